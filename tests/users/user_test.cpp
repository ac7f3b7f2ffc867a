// Users: get, put and deletion, which only marks.
#include "users/users_fixture.h"

namespace users_test {
namespace {

class Users : public UsersTest {
 protected:
  // A user deleted with this last_seqno.
  void put_deleted(const std::string& name, std::uint32_t last_seqno) {
    ASSERT_EQ(store(user(name)), DBE_OK);
    db_usr again = user(name, "old");
    again.last_seqno = last_seqno;
    ASSERT_EQ(store(again), DBE_RECORD_REPLACED);
    ASSERT_EQ(drop(DB_USR, name), DBE_OK);
  }
};

TEST_F(Users, AUserComesBackWithAllFields) {
  put_targets(2);
  db_usr record = user("anna", "Anna of the first floor");
  set_text(record.profile, "builder");
  record.tak_mask = 0x80000001u;
  record.dak_mask = 7;
  record.carried20[15] = 0xAB;
  std::memset(record.carried132, 0x5C, sizeof record.carried132);
  record.login_default = 3;
  record.num_login_trgs = 2;
  set_text(record.login_trgs[0], "T1");
  set_text(record.login_trgs[1], "T0");
  ASSERT_EQ(store(record), DBE_OK);
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  EXPECT_EQ(std::memcmp(&read, &record, offsetof(db_usr, deleted)), 0);
  EXPECT_EQ(std::memcmp(read.carried20, record.carried20, sizeof read.carried20), 0);
  EXPECT_EQ(text_of(read.description), "Anna of the first floor");
  EXPECT_EQ(text_of(read.profile), "builder");
  EXPECT_EQ(std::memcmp(&read.tak_mask, &record.tak_mask, 96), 0);
  EXPECT_EQ(text_of(read.login_trgs[0]), "T1");
  EXPECT_EQ(text_of(read.login_trgs[1]), "T0");
}

TEST_F(Users, ANewUserBeginsWithLastSeqnoZero) {
  db_usr record = user("anna");
  record.last_seqno = 77;
  record.deleted = 9;
  EXPECT_EQ(store(DB_USR, "anna", &record), DBE_OK);
  EXPECT_EQ(record.last_seqno, 0u) << "in the caller's record too";
  EXPECT_EQ(record.deleted, 0u);
  EXPECT_EQ(load_whole<db_usr>(DB_USR, "anna").last_seqno, 0u);
}

TEST_F(Users, AReplacedUserTakesTheLastSeqnoOfTheRecord) {
  ASSERT_EQ(store(user("anna")), DBE_OK);
  db_usr record = user("anna", "new");
  record.last_seqno = 41;
  record.deleted = 1;
  EXPECT_EQ(store(DB_USR, "anna", &record), DBE_RECORD_REPLACED);
  EXPECT_EQ(record.last_seqno, 41u);
  EXPECT_EQ(record.deleted, 0u);
  EXPECT_EQ(load_whole<db_usr>(DB_USR, "anna").last_seqno, 41u);
}

TEST_F(Users, ARevivedUserGoesOnWithItsLastSeqnoAndCountsAsNew) {
  put_deleted("anna", 4711);
  db_usr record = user("anna", "new");
  record.last_seqno = 5;
  EXPECT_EQ(store(DB_USR, "anna", &record), DBE_OK);
  EXPECT_EQ(record.last_seqno, 4711u);
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  EXPECT_EQ(read.last_seqno, 4711u);
  EXPECT_EQ(read.deleted, 0u);
  EXPECT_EQ(text_of(read.description), "new");
  EXPECT_EQ(store(user("anna")), DBE_RECORD_REPLACED) << "alive from now on";
}

TEST_F(Users, AUserThatCannotBeReadIsNotReplaced) {
  put_targets(1);
  db_usr record = user("anna");
  record.num_login_trgs = 1;
  set_text(record.login_trgs[0], "T0");
  ASSERT_EQ(store(record), DBE_OK);
  // The table ends before the number of the login target.
  tcb()->cntl->num_trgs_allowed = 0;
  record.deleted = 3;
  record.last_seqno = 12;
  EXPECT_EQ(store(DB_USR, "anna", &record), DBE_NO_TARGET);
  EXPECT_EQ(record.deleted, 0u) << "cleared behind the read, whatever that answered";
  EXPECT_EQ(record.last_seqno, 12u);
  tcb()->cntl->num_trgs_allowed = 100;
}

TEST_F(Users, ADeletedUserIsNotFound) {
  ASSERT_EQ(store(user("anna")), DBE_OK);
  EXPECT_EQ(drop(DB_USR, "anna"), DBE_OK);
  EXPECT_EQ(load(DB_USR, "anna", sizeof(db_usr)), DBE_NOT_FOUND);
  EXPECT_EQ(loaded, Bytes(sizeof(db_usr), 0xEE)) << "the buffer is left alone";
}

TEST_F(Users, ADeletedUserCanBeDeletedAgain) {
  put_deleted("anna", 6);
  EXPECT_EQ(drop(DB_USR, "anna"), DBE_OK);
  EXPECT_EQ(load(DB_USR, "anna", sizeof(db_usr)), DBE_NOT_FOUND);
  db_usr record = user("anna");
  ASSERT_EQ(store(DB_USR, "anna", &record), DBE_OK);
  EXPECT_EQ(record.last_seqno, 6u);
}

TEST_F(Users, AnUnknownUserIsNotFound) {
  EXPECT_EQ(drop(DB_USR, "anna"), DBE_NOT_FOUND);
  EXPECT_EQ(load(DB_USR, "anna", sizeof(db_usr)), DBE_NOT_FOUND);
  EXPECT_EQ(load(DB_USR, "anna", 0), DBE_NOT_FOUND);
}

TEST_F(Users, ALoginTargetThatIsUnknownIsRefused) {
  db_usr record = user("anna");
  record.num_login_trgs = 1;
  set_text(record.login_trgs[0], "NOWHERE");
  EXPECT_EQ(store(record), DBE_NO_TARGET);
  EXPECT_EQ(load(DB_USR, "anna", 64), DBE_NOT_FOUND);
}

// The table of targets gives the name of a deleted one until it is loaded anew, and as a
// name to store it is unknown.
TEST_F(Users, ADeletionIsRefusedWhileTheNameOfADeletedLoginTargetIsRemembered) {
  put_targets(2);
  db_usr record = user("anna");
  record.num_login_trgs = 2;
  set_text(record.login_trgs[0], "T0");
  set_text(record.login_trgs[1], "T1");
  record.last_seqno = 7;
  ASSERT_EQ(store(record), DBE_OK);
  ASSERT_EQ(drop(DB_TRG, "T0"), DBE_OK);
  EXPECT_EQ(text_of(load_whole<db_usr>(DB_USR, "anna").login_trgs[0]), "T0");
  EXPECT_EQ(drop(DB_USR, "anna"), DBE_NO_TARGET);
  EXPECT_EQ(load_whole<db_usr>(DB_USR, "anna").deleted, 0u) << "nothing is changed";
  memory::raise_generation(task);
  ASSERT_EQ(index_rc("T1"), DBE_OK);
  const auto reloaded = load_whole<db_usr>(DB_USR, "anna");
  EXPECT_EQ(text_of(reloaded.login_trgs[0]), "");
  EXPECT_EQ(text_of(reloaded.login_trgs[1]), "T1");
  EXPECT_EQ(drop(DB_USR, "anna"), DBE_OK);
}

TEST_F(Users, AGetOfAnyLengthGivesTheBeginOfTheRecord) {
  put_targets(1);
  db_usr record = user("anna", "of the first floor");
  record.num_login_trgs = 1;
  set_text(record.login_trgs[0], "T0");
  ASSERT_EQ(store(record), DBE_OK);
  Bytes whole(sizeof(db_usr));
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  std::memcpy(whole.data(), &read, sizeof read);
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    ASSERT_EQ(load(DB_USR, "anna", length), DBE_OK) << length;
    ASSERT_EQ(loaded, Bytes(whole.begin(), whole.begin() + static_cast<long>(length))) << length;
  }
}

TEST_F(Users, AGetLongerThanTheRecordLeavesTheRestAlone) {
  ASSERT_EQ(store(user("anna")), DBE_OK);
  ASSERT_EQ(load(DB_USR, "anna", 65535), DBE_OK);
  EXPECT_EQ(Bytes(loaded.begin() + sizeof(db_usr), loaded.end()), Bytes(65535 - sizeof(db_usr), 0xEE));
}

TEST_F(Users, APutOfAnyLengthTouchesNoByteBehindIt) {
  // Each in memory of just its length: `deleted` and `last_seqno` may lie behind the end.
  for (std::size_t length = 0; length <= 140; ++length) {
    db_usr record = user(numbered("U", length));
    record.deleted = 0xFFFFFFFFu;
    record.last_seqno = 0xFFFFFFFFu;
    const std::string name = text_of(record.usr_name);
    EXPECT_EQ(store(DB_USR, name, &record, length), length == 0 ? DBE_IO_ERROR : DBE_OK) << length;
    // A number that the record ends before or within keeps the bytes behind the end.
    if (length >= 20) {
      EXPECT_EQ(record.deleted, 0u) << length;
    }
    if (length <= 16) {
      EXPECT_EQ(record.deleted, 0xFFFFFFFFu) << length;
    }
    if (length >= 132) {
      EXPECT_EQ(record.last_seqno, 0u) << length;
    }
    if (length <= 128) {
      EXPECT_EQ(record.last_seqno, 0xFFFFFFFFu) << length;
    }
    if (length > 0) {
      EXPECT_EQ(load(DB_USR, name, sizeof(db_usr)), DBE_OK) << length;
    }
  }
}

TEST_F(Users, APutLongerThanTheRecordStoresTheRecord) {
  db_usr record = user("anna", "first");
  ASSERT_EQ(store(DB_USR, "anna", &record, 65535), DBE_OK);
  EXPECT_EQ(text_of(load_whole<db_usr>(DB_USR, "anna").description), "first");
}

TEST_F(Users, ANameMayFillItsWidth) {
  const std::string full = "abcdefghijklmnop";
  ASSERT_EQ(store(user(full, "full")), DBE_OK);
  const auto read = load_whole<db_usr>(DB_USR, full);
  EXPECT_EQ(text_of(read.usr_name), full);
  EXPECT_EQ(text_of(read.description), "full");
  EXPECT_EQ(load(DB_USR, full + "q", 64), DBE_OK) << "no more than 16 bytes count";
  EXPECT_EQ(load(DB_USR, full.substr(0, 15), 64), DBE_NOT_FOUND);
  EXPECT_EQ(drop(DB_USR, full), DBE_OK);
  EXPECT_EQ(load(DB_USR, full, 64), DBE_NOT_FOUND);
}

// The text is stored up to a NUL, which then lies behind the field.
TEST_F(Users, AProfileNameMayFillItsWidth) {
  db_usr record = user("anna");
  set_text(record.profile, "abcdefghijklmnop");
  record.tak_mask = record.dak_mask = record.all_targets = 0xFFFFFFFFu;
  ASSERT_EQ(store(record), DBE_OK);
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  EXPECT_EQ(text_of(read.profile), "abcdefghijklmnop");
  EXPECT_EQ(read.tak_mask, 0xFFFFFFFFu);
  EXPECT_EQ(read.last_seqno, 0u);
}

TEST_F(Users, MoreLoginTargetsThanTheRecordHoldsAreNotTaken) {
  put_targets(16);
  db_usr record = user("anna");
  record.num_login_trgs = 17;
  for (unsigned i = 0; i < 16; ++i) set_text(record.login_trgs[i], numbered("T", i));
  ASSERT_EQ(store(record), DBE_OK);
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  EXPECT_EQ(read.num_login_trgs, 17) << "the count is the caller's";
  EXPECT_EQ(text_of(read.login_trgs[15]), "T15");
}

TEST_F(Users, TheKeyNamesTheUserWhateverTheRecordSays) {
  ASSERT_EQ(store(DB_USR, "anna", user("bert", "of the key")), DBE_OK);
  EXPECT_EQ(load(DB_USR, "bert", 64), DBE_NOT_FOUND);
  EXPECT_EQ(text_of(load_whole<db_usr>(DB_USR, "anna").usr_name), "anna");
}

TEST_F(Users, ARecordMayBeItsOwnKey) {
  db_usr record = user("abcdefghijklmnop", "key and record in one");
  const void* keys[] = {&record};
  ASSERT_EQ(db_put(task, DB_USR, 1, keys, &record, sizeof record), DBE_OK);
  ASSERT_EQ(db_get(task, DB_USR, 1, keys, &record, sizeof record), DBE_OK);
  EXPECT_EQ(text_of(record.description), "key and record in one");
}

TEST_F(Users, ADeletionInATransactionThatIsRolledBackDidNotHappen) {
  ASSERT_EQ(store(user("anna")), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_USR), DBE_OK);
  ASSERT_EQ(drop(DB_USR, "anna"), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_USR), DBE_OK);
  EXPECT_EQ(load(DB_USR, "anna", 64), DBE_OK);
}

TEST_F(Users, AListPassesOverDeletedUsers) {
  for (const char* name : {"anna", "bert", "carl", "dora"}) ASSERT_EQ(store(user(name)), DBE_OK);
  ASSERT_EQ(drop(DB_USR, "anna"), DBE_OK);
  ASSERT_EQ(drop(DB_USR, "carl"), DBE_OK);
  EXPECT_EQ(list(DB_USR, "*"), (std::vector<std::string>{"bert", "dora"}));
  ASSERT_EQ(drop(DB_USR, "dora"), DBE_OK);
  EXPECT_EQ(list(DB_USR, "*"), std::vector<std::string>{"bert"}) << "the last ones too";
  ASSERT_EQ(drop(DB_USR, "bert"), DBE_OK);
  EXPECT_TRUE(list(DB_USR, "*").empty());
}

TEST_F(Users, AListEntryOfAnyLengthGivesTheBeginOfTheRecord) {
  ASSERT_EQ(store(user("anna", "first")), DBE_OK);
  Bytes whole(sizeof(db_usr));
  const auto read = load_whole<db_usr>(DB_USR, "anna");
  std::memcpy(whole.data(), &read, sizeof read);
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{15}, std::size_t{20},
                                   std::size_t{41}, std::size_t{1235}, sizeof(db_usr)}) {
    Bytes state, record(length, 0xEE);
    ASSERT_EQ(begin_list(DB_USR, "*", &state), DBE_OK);
    record.reserve(1);  // so that there is an address
    ASSERT_EQ(db_get_more(task, DB_USR, state.data(), record.data(), static_cast<std::uint16_t>(length)),
              DBE_OK);
    EXPECT_EQ(record, Bytes(whole.begin(), whole.begin() + static_cast<long>(length))) << length;
  }
}

TEST_F(Users, AListEntryLongerThanTheRecordLeavesTheRestAlone) {
  ASSERT_EQ(store(user("anna")), DBE_OK);
  Bytes state, record(65535, 0xEE);
  ASSERT_EQ(begin_list(DB_USR, "*", &state), DBE_OK);
  ASSERT_EQ(db_get_more(task, DB_USR, state.data(), record.data(), 65535), DBE_OK);
  EXPECT_EQ(Bytes(record.begin() + sizeof(db_usr), record.end()), Bytes(65535 - sizeof(db_usr), 0xEE));
}

}  // namespace
}  // namespace users_test
