// Authorization profiles.
#include "users/users_fixture.h"

namespace users_test {
namespace {

class Profiles : public UsersTest {};

TEST_F(Profiles, AProfileComesBackAsItWasPut) {
  db_apr record = profile("builder", 2);
  record.prep = 1;
  record.cm = 15;
  record.dist = 3;
  record.tcq = 2;
  record.system = 1;
  record.target = 1;
  record.carried23 = record.carried24 = 1;
  record.carried25[2] = 9;
  EXPECT_EQ(store(record), DBE_OK);
  const auto read = load_whole<db_apr>(DB_APR, "builder");
  EXPECT_EQ(std::memcmp(&read, &record, sizeof record), 0);
  EXPECT_EQ(store(record), DBE_RECORD_REPLACED);
}

TEST_F(Profiles, AnUnknownProfileIsNotFound) {
  EXPECT_EQ(load(DB_APR, "builder", sizeof(db_apr)), DBE_NOT_FOUND);
  EXPECT_EQ(load(DB_APR, "builder", 0), DBE_NOT_FOUND);
  EXPECT_EQ(drop(DB_APR, "builder"), DBE_NOT_FOUND);
}

TEST_F(Profiles, ADeletedProfileIsGone) {
  ASSERT_EQ(store(profile("builder")), DBE_OK);
  EXPECT_EQ(drop(DB_APR, "builder"), DBE_OK);
  EXPECT_EQ(load(DB_APR, "builder", sizeof(db_apr)), DBE_NOT_FOUND);
  EXPECT_EQ(drop(DB_APR, "builder"), DBE_NOT_FOUND);
  EXPECT_TRUE(list(DB_APR, "*").empty());
}

TEST_F(Profiles, AGetFillsNothingBelowTheNameAndTheNameAloneAtItsLength) {
  ASSERT_EQ(store(profile("builder", 2)), DBE_OK);
  EXPECT_EQ(load(DB_APR, "builder", 15), DBE_OK);
  EXPECT_EQ(loaded, Bytes(15, 0xEE));
  EXPECT_EQ(load(DB_APR, "builder", 16), DBE_OK);
  EXPECT_EQ(text_of(loaded_as<db_apr>().name), "builder");
  EXPECT_EQ(load(DB_APR, "builder", 17), DBE_OK);
  EXPECT_EQ(loaded_as<db_apr>().config, 0) << "the last byte of a short buffer is a NUL";
  EXPECT_EQ(load(DB_APR, "builder", 18), DBE_OK);
  EXPECT_EQ(loaded_as<db_apr>().config, 2);
}

TEST_F(Profiles, ANameMayFillItsWidth) {
  const std::string full = "abcdefghijklmnop";
  ASSERT_EQ(store(profile(full, 1)), DBE_OK);
  const auto read = load_whole<db_apr>(DB_APR, full);
  EXPECT_EQ(text_of(read.name), full);
  EXPECT_EQ(read.config, 1);
  EXPECT_EQ(load(DB_APR, full.substr(0, 15), 16), DBE_NOT_FOUND);
  EXPECT_EQ(drop(DB_APR, full), DBE_OK);
}

TEST_F(Profiles, AListGivesNoTableOfAccessKeys) {
  ASSERT_EQ(store(profile("a")), DBE_OK);
  ASSERT_EQ(store(profile("b")), DBE_OK);
  ASSERT_EQ(store_keys(DB_TAK, {}), DBE_OK);
  ASSERT_EQ(store_keys(DB_DAK, {}), DBE_OK);
  EXPECT_EQ(list(DB_APR, "*"), (std::vector<std::string>{"a", "b"}));
}

TEST_F(Profiles, UsersAndProfilesOfOneNameAreDifferentRecords) {
  ASSERT_EQ(store(user("anna")), DBE_OK);
  ASSERT_EQ(store(profile("anna", 1)), DBE_OK);
  ASSERT_EQ(drop(DB_APR, "anna"), DBE_OK);
  EXPECT_EQ(load(DB_USR, "anna", 64), DBE_OK);
}

TEST_F(Profiles, APutInATransactionThatIsRolledBackDidNotHappen) {
  ASSERT_EQ(db_start_trans(task, DB_APR), DBE_OK);
  ASSERT_EQ(store(profile("builder")), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_APR), DBE_OK);
  EXPECT_EQ(load(DB_APR, "builder", 16), DBE_NOT_FOUND);
}

}  // namespace
}  // namespace users_test
