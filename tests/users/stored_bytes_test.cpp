// Byte for byte what the record files hold.
#include "recfile/recfile.h"
#include "users/users_fixture.h"

namespace users_test {
namespace {

// Bytes put one behind the other.
struct Built {
  Bytes bytes;
  Built& number(std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<unsigned char>(value >> shift));
    return *this;
  }
  Built& text(std::string_view value, std::size_t width) {
    bytes.insert(bytes.end(), value.begin(), value.end());
    return zeros(width - value.size());
  }
  Built& zeros(std::size_t count) {
    bytes.insert(bytes.end(), count, 0);
    return *this;
  }
  Built& byte(unsigned value) {
    bytes.push_back(static_cast<unsigned char>(value));
    return *this;
  }
};

class StoredBytes : public UsersTest {
 protected:
  void SetUp() override {
    UsersTest::SetUp();
    put_targets(3);
    ASSERT_EQ(number("T2"), 3u);
  }
};

TEST_F(StoredBytes, OfAUser) {
  db_usr record = user("anna", "Anna");
  set_text(record.profile, "builder");
  record.tak_mask = 0x04030201;
  record.dak_mask = 5;
  record.all_targets = 1;
  record.carried20[0] = 0xAB;
  record.login_default = 6;
  record.num_login_trgs = 2;
  set_text(record.login_trgs[0], "T2");
  ASSERT_EQ(store(record), DBE_OK);
  const Bytes key = Built{}.number(22).text("anna", 16).number(0).bytes;
  Built expected{key};
  expected.number(0).byte(0xAB).zeros(15);      // deleted, carried
  expected.text("Anna", 5).text("builder", 8);  // texts with their NUL
  expected.number(0x04030201).number(5).number(1).number(0).zeros(76);
  expected.byte(6).zeros(1).byte(2).zeros(1);
  expected.number(3).number(0xFFFFFFFFu);  // numbers of targets; none
  EXPECT_EQ(stored(&DBR_TCB::usr_file, key), expected.bytes);
  ASSERT_EQ(drop(DB_USR, "anna"), DBE_OK);
  expected.bytes[24] = 1;
  EXPECT_EQ(stored(&DBR_TCB::usr_file, key), expected.bytes) << "marked, and all else as it was";
}

TEST_F(StoredBytes, OfAProfile) {
  db_apr record = profile("builder", 2);
  record.target = 1;
  ASSERT_EQ(store(record), DBE_OK);
  const Bytes key = Built{}.number(23).text("builder", 16).number(0).bytes;
  EXPECT_EQ(stored(&DBR_TCB::apr_file, key), Built{key}.byte(2).zeros(5).byte(1).zeros(5).bytes);
}

TEST_F(StoredBytes, OfTheAccessKeys) {
  for (const std::uint32_t db_id : {DB_TAK, DB_DAK}) {
    db_ak table{};
    table.keys[31].mask = 0x80000000u;
    set_text(table.keys[31].description, "the last");
    ASSERT_EQ(store_keys(db_id, table), DBE_OK);
    const Bytes key = Built{}.number(db_id).zeros(20).bytes;
    Built expected{key};
    expected.zeros(31 * 76 + 12).number(0x80000000u).text("the last", 60);
    EXPECT_EQ(stored(&DBR_TCB::apr_file, key), expected.bytes);
  }
}

TEST_F(StoredBytes, OfAGroup) {
  db_tg record = group("EUROPE", {"T2", "", "T0"});
  set_text(record.description, "All");
  set_text(record.short_name, "EU");
  record.type = 64;
  record.os = 3;
  record.num_tsps = 0x0201;
  ASSERT_EQ(store(record), DBE_RECORD_REPLACED);
  const Bytes key = Built{}.number(6).text("EUROPE", 64).number(0).bytes;
  Built expected{key};
  expected.text("All", 4).zeros(8).text("EU", 8).zeros(4).byte(64).byte(3).zeros(2);
  expected.byte(3).byte(0).byte(1).byte(2);
  expected.number(3).number(0xFFFFFFFFu).number(1);
  EXPECT_EQ(stored(&DBR_TCB::tg_file, key), expected.bytes);
}

TEST_F(StoredBytes, OfADynamicGroupWithItsTextTwice) {
  db_dtg record = dynamic_group("UNIX", "os", {"T1"});
  set_text(record.description, "By system");
  record.carried152[147] = 0xCD;
  ASSERT_EQ(store(record), DBE_RECORD_REPLACED);
  const Bytes key = Built{}.number(31).text("UNIX", 64).number(0).bytes;
  Built expected{key};
  expected.text("By system", 10);
  expected.zeros(24).byte(1).zeros(3).zeros(147).byte(0xCD).text("os", 4096);  // 124 to 4395
  expected.text("os", 3).number(2);
  EXPECT_EQ(stored(&DBR_TCB::dtg_file, key), expected.bytes);
}

// A file of another writer, whose two texts differ: that with its NUL counts.
TEST_F(StoredBytes, TheSecondTextOfADynamicGroupWins) {
  const Bytes key = Built{}.number(31).text("UNIX", 64).number(0).bytes;
  Built record{key};
  record.text("", 1).zeros(28).zeros(148).text("first", 4096).text("second!", 8);
  Bytes located = key;
  ASSERT_EQ(recfile::db_write(task, tcb()->dtg_file, located.data(), record.bytes.data(),
                              static_cast<std::uint32_t>(record.bytes.size())),
            DBE_OK);
  EXPECT_EQ(text_of(load_whole<db_dtg>(DB_DTG, "UNIX").selection), "second!");
}

// Damaged numbers lead to no name and to no memory that is not the record's.
TEST_F(StoredBytes, AMemberNumberBeyondTheTableIsNoTarget) {
  const Bytes key = Built{}.number(6).text("BAD", 64).number(0).bytes;
  Built record{key};
  record.text("", 1).zeros(24).byte(0xFF).byte(0xFF).zeros(2).number(1).number(0x7FFFFFFF);
  Bytes located = key;
  ASSERT_EQ(recfile::db_write(task, tcb()->tg_file, located.data(), record.bytes.data(),
                              static_cast<std::uint32_t>(record.bytes.size())),
            DBE_OK);
  EXPECT_EQ(load(DB_TG, "BAD", sizeof(db_tg)), DBE_NO_TARGET);
  EXPECT_EQ(load(DB_TG, "BAD", 152 + 64), DBE_OK) << "the first one is there";
  EXPECT_EQ(text_of(loaded_as<db_tg>().members[0]), "T0");
}

// A count that the data does not bear out.
TEST_F(StoredBytes, ACountBeyondTheDataGivesTheMembersThatThereAre) {
  const Bytes user_key = Built{}.number(22).text("anna", 16).number(0).bytes;
  Built record{user_key};
  record.zeros(20).zeros(1).zeros(1).zeros(94).byte(0xFF).byte(0xFF).number(2);
  Bytes located = user_key;
  ASSERT_EQ(recfile::db_write(task, tcb()->usr_file, located.data(), record.bytes.data(),
                              static_cast<std::uint32_t>(record.bytes.size())),
            DBE_OK);
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  EXPECT_EQ(read.num_login_trgs, 0xFFFF);
  EXPECT_EQ(text_of(read.login_trgs[0]), "T1");
  EXPECT_EQ(text_of(read.login_trgs[1]), "");
}

}  // namespace
}  // namespace users_test
