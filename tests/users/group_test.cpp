// Groups of targets of both kinds: get, put, deletion and their limit.
#include "users/users_fixture.h"

namespace users_test {
namespace {

const std::string full_name(64, 'G');

class Groups : public UsersTest {
 protected:
  void put_counted(unsigned groups, unsigned dynamic_groups) {
    for (unsigned i = 0; i < groups; ++i) ASSERT_EQ(store(group(numbered("G", i))), DBE_RECORD_REPLACED);
    for (unsigned i = 0; i < dynamic_groups; ++i)
      ASSERT_EQ(store(dynamic_group(numbered("D", i))), DBE_RECORD_REPLACED);
  }
};

TEST_F(Groups, AGroupComesBackAsItWasPut) {
  put_targets(3);
  db_tg record = group("EUROPE", {"T2", "T0", "T1"});
  set_text(record.description, "All of Europe");
  record.carried124[7] = 0xAB;
  set_text(record.short_name, "EU");
  record.carried140[3] = 5;
  record.type = 64;
  record.os = 3;
  record.mode = 1;
  record.carried147 = 9;
  record.num_tsps = 77;
  EXPECT_EQ(store(record), DBE_RECORD_REPLACED) << "the code of the second write";
  const auto read = load_whole<db_tg>(DB_TG, "EUROPE");
  EXPECT_EQ(std::memcmp(&read, &record, sizeof record), 0);
}

TEST_F(Groups, ADynamicGroupComesBackAsItWasPut) {
  put_targets(3);
  db_dtg record = dynamic_group("UNIX", "os = HP_UX", {"T2", "T0"});
  set_text(record.description, "By system");
  record.carried152[0] = 0xCD;
  record.carried152[147] = 0xEF;
  set_text(record.short_name, "UX");
  record.type = 64;
  EXPECT_EQ(store(record), DBE_RECORD_REPLACED);
  const auto read = load_whole<db_dtg>(DB_DTG, "UNIX");
  EXPECT_EQ(std::memcmp(&read, &record, sizeof record), 0);
}

TEST_F(Groups, TheSelectionTextMayBeOfAnyLengthUpToItsField) {
  put_targets(1);
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{4095}}) {
    const std::string text(length, 's');
    ASSERT_EQ(store(dynamic_group("UNIX", text, {"T0"})), DBE_RECORD_REPLACED);
    const auto read = load_whole<db_dtg>(DB_DTG, "UNIX");
    EXPECT_EQ(text_of(read.selection), text);
    EXPECT_EQ(members_of(read), std::vector<std::string>{"T0"});
  }
}

// The text is stored twice.  A record put with a text and bytes behind its NUL comes back
// with both: the bytes of the field as they stand, and the text over them.
TEST_F(Groups, BytesBehindTheSelectionTextComeBack) {
  db_dtg record = dynamic_group("UNIX", "short");
  record.selection[100] = 'x';
  ASSERT_EQ(store(record), DBE_RECORD_REPLACED);
  const auto read = load_whole<db_dtg>(DB_DTG, "UNIX");
  EXPECT_EQ(text_of(read.selection), "short");
  EXPECT_EQ(read.selection[100], 'x');
}

TEST_F(Groups, ANewGroupAnswersReplacedAndIsCountedOnce) {
  EXPECT_EQ(store(group("G")), DBE_RECORD_REPLACED);
  expect_counts(1, 0);
  EXPECT_EQ(store(group("G")), DBE_RECORD_REPLACED);
  expect_counts(1, 0);
  EXPECT_EQ(store(dynamic_group("G")), DBE_RECORD_REPLACED);
  expect_counts(1, 1);
}

TEST_F(Groups, ADeletedGroupIsNotCounted) {
  put_counted(2, 1);
  EXPECT_EQ(drop(DB_TG, "G0"), DBE_OK);
  expect_counts(1, 1);
  EXPECT_EQ(drop(DB_DTG, "D0"), DBE_OK);
  expect_counts(1, 0);
  EXPECT_EQ(load(DB_TG, "G0", 64), DBE_NOT_FOUND);
}

TEST_F(Groups, ADeletionOfAnUnknownGroupChangesNoCount) {
  put_counted(1, 1);
  EXPECT_EQ(drop(DB_TG, "D0"), DBE_NOT_FOUND);
  EXPECT_EQ(drop(DB_DTG, "G0"), DBE_NOT_FOUND);
  expect_counts(1, 1);
}

TEST_F(Groups, AnUnknownMemberIsRefusedAndNothingIsStoredOrCounted) {
  put_targets(1);
  EXPECT_EQ(store(group("G", {"T0", "NOWHERE"})), DBE_NO_TARGET);
  EXPECT_EQ(store(dynamic_group("D", "", {"NOWHERE"})), DBE_NO_TARGET);
  expect_counts(0, 0);
  ASSERT_EQ(store(group("G", {"T0"})), DBE_RECORD_REPLACED);
  EXPECT_EQ(store(group("G", {"NOWHERE"})), DBE_NO_TARGET);
  EXPECT_EQ(members_of(load_whole<db_tg>(DB_TG, "G")), std::vector<std::string>{"T0"});
  expect_counts(1, 0);
}

TEST_F(Groups, AnEmptyMemberStaysAnEmptyMember) {
  put_targets(1);
  ASSERT_EQ(store(group("G", {"", "T0", ""})), DBE_RECORD_REPLACED);
  EXPECT_EQ(members_of(load_whole<db_tg>(DB_TG, "G")), (std::vector<std::string>{"", "T0", ""}));
}

TEST_F(Groups, ARenamedMemberIsReadByItsNewName) {
  put_targets(1);
  ASSERT_EQ(store(group("G", {"T0"})), DBE_RECORD_REPLACED);
  ASSERT_EQ(db_rename_trg(task, "T0", "NEW"), DBE_OK);
  EXPECT_EQ(members_of(load_whole<db_tg>(DB_TG, "G")), std::vector<std::string>{"NEW"});
}

TEST_F(Groups, TheLimitIsTheSmallerOfTheTargetsAllowedAndWhatTheyLeave) {
  EXPECT_EQ(index_rc(""), DBE_NO_TARGET);  // so that the counts have been taken
  const auto limit_for = [&](std::uint32_t max_targets) {
    configure(max_targets);
    // At the limit the message tells it.
    cntl()->num_tg_actual = 65535;
    EXPECT_EQ(store(group("G")), DBE_LIMIT_EXCEEDED);
    cntl()->num_tg_actual = 0;
    const std::string line = last_logged(36383);
    const std::size_t at = line.find("at most ");
    return at == std::string::npos ? -1 : std::stoi(line.substr(at + 8));
  };
  EXPECT_EQ(limit_for(100), 100);
  EXPECT_EQ(limit_for(32767), 32767);
  EXPECT_EQ(limit_for(32768), 32767);
  EXPECT_EQ(limit_for(40000), 25535);
  EXPECT_EQ(limit_for(65535), 0);
  EXPECT_EQ(limit_for(70000), 0) << "never below none";
  EXPECT_EQ(limit_for(0), 0);
  configure(100);
}

TEST_F(Groups, BothKindsShareTheLimit) {
  configure(3);
  put_counted(2, 1);
  EXPECT_EQ(store(group("MORE")), DBE_LIMIT_EXCEEDED);
  EXPECT_NE(last_logged(36383).find("Target Group"), std::string::npos);
  EXPECT_EQ(last_logged(36383).find("Dynamic"), std::string::npos);
  EXPECT_EQ(store(dynamic_group("MORE")), DBE_LIMIT_EXCEEDED);
  EXPECT_NE(last_logged(36383).find("Dynamic Target Group"), std::string::npos);
  EXPECT_EQ(logged(36383), 2);
  expect_counts(2, 1);
  ASSERT_EQ(drop(DB_DTG, "D0"), DBE_OK);
  EXPECT_EQ(store(group("MORE")), DBE_RECORD_REPLACED);
  configure(100);
}

TEST_F(Groups, AtTheLimitAGroupThatIsThereCanBeChanged) {
  configure(1);
  put_counted(1, 0);
  db_tg record = group("G0");
  set_text(record.description, "changed");
  EXPECT_EQ(store(record), DBE_RECORD_REPLACED);
  EXPECT_EQ(text_of(load_whole<db_tg>(DB_TG, "G0").description), "changed");
  expect_counts(1, 0);
  configure(100);
}

TEST_F(Groups, ANameMayFillItsWidth) {
  put_targets(1);
  ASSERT_EQ(store(group(full_name, {"T0"})), DBE_RECORD_REPLACED);
  ASSERT_EQ(store(dynamic_group(full_name, "all", {"T0"})), DBE_RECORD_REPLACED);
  db_tg read = load_whole<db_tg>(DB_TG, full_name);
  EXPECT_EQ(text_of(read.name), full_name);
  EXPECT_EQ(members_of(read), std::vector<std::string>{"T0"});
  EXPECT_EQ(text_of(load_whole<db_dtg>(DB_DTG, full_name).name), full_name);
  EXPECT_EQ(load(DB_TG, full_name.substr(1), 64), DBE_NOT_FOUND);
  EXPECT_EQ(drop(DB_TG, full_name), DBE_OK);
  EXPECT_EQ(drop(DB_DTG, full_name), DBE_OK);
  expect_counts(0, 0);
}

TEST_F(Groups, AGetFillsNothingBelowTheNameAndWholeMembersOnly) {
  put_targets(2);
  ASSERT_EQ(store(group("G", {"T0", "T1"})), DBE_RECORD_REPLACED);
  EXPECT_EQ(load(DB_TG, "G", 63), DBE_OK);
  EXPECT_EQ(loaded, Bytes(63, 0xEE));
  EXPECT_EQ(load(DB_TG, "G", 64), DBE_OK);
  EXPECT_EQ(text_of(loaded_as<db_tg>().name), "G");
  EXPECT_EQ(load(DB_TG, "G", 152 + 64 + 63), DBE_OK);
  EXPECT_EQ(text_of(loaded_as<db_tg>().members[0]), "T0");
  EXPECT_EQ(text_of(loaded_as<db_tg>().members[1]), "") << "there is no room for the whole name";
  EXPECT_EQ(loaded_as<db_tg>().num_members, 2);
}

TEST_F(Groups, MoreMembersThanTheRecordHoldsAreNotTaken) {
  put_targets(2);
  db_tg record = group("G", {"T0"});
  for (auto& member : record.members) set_text(member, "T1");
  record.num_members = 0xFFFF;
  ASSERT_EQ(store(record), DBE_RECORD_REPLACED);
  const auto read = load_whole<db_tg>(DB_TG, "G");
  EXPECT_EQ(read.num_members, 0xFFFF) << "the count is the caller's";
  EXPECT_EQ(text_of(read.members[999]), "T1");
  db_dtg dynamic = dynamic_group("D");
  for (auto& member : dynamic.members) set_text(member, "T1");
  dynamic.num_members = 0xFFFF;
  ASSERT_EQ(store(dynamic), DBE_RECORD_REPLACED);
  EXPECT_EQ(text_of(load_whole<db_dtg>(DB_DTG, "D").members[799]), "T1");
}

TEST_F(Groups, AShortPutStoresTheMembersThatLieInIt) {
  put_targets(2);
  db_tg record = group("G", {"T0", "T1"});
  ASSERT_EQ(store(DB_TG, "G", &record, 152 + 64), DBE_RECORD_REPLACED);
  const auto read = load_whole<db_tg>(DB_TG, "G");
  EXPECT_EQ(text_of(read.members[0]), "T0");
  EXPECT_EQ(text_of(read.members[1]), "");
  // The name that the record ends in is the bytes that there are.
  EXPECT_EQ(store(DB_TG, "G", &record, 152 + 64 + 2), DBE_RECORD_REPLACED);
  EXPECT_EQ(store(DB_TG, "G", &record, 152 + 64 + 1), DBE_NO_TARGET);
}

TEST_F(Groups, AnEmptyRecordIsNotStoredAndNotCounted) {
  db_tg record = group("G");
  EXPECT_EQ(store(DB_TG, "G", &record, 0), DBE_IO_ERROR);
  expect_counts(0, 0);
}

}  // namespace
}  // namespace users_test
