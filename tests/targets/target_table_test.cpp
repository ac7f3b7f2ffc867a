// Adding, replacing, reading and deleting targets.
#include <cstring>

#include "memory/shared_tables.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

class TargetTable : public TargetsTest {};

TEST_F(TargetTable, AFullTableRefusesANewTargetAndReplacesAnOldOne) {
  configure(3);
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  EXPECT_EQ(put(Record("D")), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(logged(36383), 1);
  EXPECT_EQ(put(Record("B").description("again")), DBE_RECORD_REPLACED);
  EXPECT_EQ(get("B").record.text_at(64, 60), "again");
}

TEST_F(TargetTable, ANewTargetReceivesTheNumberFreedLast) {
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  const std::uint32_t b = number("B"), c = number("C");
  ASSERT_EQ(del("B"), DBE_OK);
  ASSERT_EQ(del("C"), DBE_OK);
  ASSERT_EQ(put(Record("E")), DBE_OK);
  ASSERT_EQ(put(Record("F")), DBE_OK);
  ASSERT_EQ(put(Record("G")), DBE_OK);
  EXPECT_EQ(number("E"), c);
  EXPECT_EQ(number("F"), b);
  EXPECT_EQ(number("G"), 5u);
}

TEST_F(TargetTable, ATargetWithoutServerIsItsOwnInMemoryAndHasNoneInTheFile) {
  ASSERT_EQ(put(Record("OTHER")), DBE_OK);
  ASSERT_EQ(put(Record("ALONE")), DBE_OK);
  EXPECT_EQ(get("ALONE", 192).record.u32(188), number("ALONE"));
  const Reading whole = get("ALONE");
  EXPECT_EQ(whole.record.u32(188), no_link);
  EXPECT_EQ(whole.record.text_at(192, 64), "");
  EXPECT_EQ(server_of("ALONE"), "ALONE");
  EXPECT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get("ALONE", 192).record.u32(188), number("ALONE"));
}

TEST_F(TargetTable, TheWholeRecordComesBackAsItWasPut) {
  ASSERT_EQ(put(Record("SERVER").type(remote | server)), DBE_OK);
  Record record("TARGET");
  record.description("a machine").rgn("NETWORK1").ren("ELEMENT1").type(remote | client).os(11).mode(push);
  record.text(140, 4, "abcd")
      .text(148, 16, "0123456789ABCDEF")
      .text(164, 3, "\1\1\1")
      .text(168, 16, "carried");
  record.server("SERVER").text(256, 32, "lan").text(288, 60, "customer").text(348, 60, "contact");
  record.text(408, 32, "phone")
      .text(440, 60, "manager")
      .text(500, 200, "address")
      .text(702, 286, "raw block");
  record.hardware(0, "processor", "fast").hardware(1, "memory", "large");
  ASSERT_EQ(put(record), DBE_OK);
  Record expected = record;
  const std::uint32_t server = number("SERVER");
  std::memcpy(expected.bytes.data() + 188, &server, 4);
  EXPECT_EQ(get("TARGET").record.bytes, expected.bytes);
  new_task();
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get("TARGET").record.bytes, expected.bytes);
}

TEST_F(TargetTable, AShortReadComesFromMemoryWithItsMarkAndALongOneFromTheFileWithout) {
  ASSERT_EQ(put(Record("T").description("kept")), DBE_OK);
  slot("T")->description[0] = 'K';  // memory and file can now be told apart
  const Reading brief = get("T", 192);
  EXPECT_EQ(brief.record.text_at(64, 60), "Kept");
  EXPECT_EQ(brief.record.bytes[167], 1);
  const Reading whole = get("T", 193);
  EXPECT_EQ(whole.record.text_at(64, 60), "kept");
  EXPECT_EQ(whole.record.bytes[167], 0);
}

TEST_F(TargetTable, AReadWritesNoByteBeyondItsLength) {
  ASSERT_EQ(put(Record("T").description("text").type(client)), DBE_OK);
  for (const std::size_t length : {0, 1, 64, 144, 145, 191, 192, 193, 255, 256, 1000}) {
    std::vector<unsigned char> buffer(record_len + 1, 0xEE);
    const void* keys[] = {"T"};
    ASSERT_EQ(db_get(task, DB_TRG, 1, keys, buffer.data(), static_cast<std::uint16_t>(length)), DBE_OK);
    EXPECT_TRUE(std::all_of(buffer.begin() + static_cast<long>(length), buffer.end(), [](unsigned char c) {
      return c == 0xEE;
    })) << length;
  }
}

TEST_F(TargetTable, UnknownNamesAreNotFound) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  EXPECT_EQ(get("U").rc, DBE_NOT_FOUND);
  EXPECT_EQ(del("U"), DBE_NOT_FOUND);
  EXPECT_EQ(index_rc("U"), DBE_NO_TARGET);
  EXPECT_EQ(get("").rc, DBE_NOT_FOUND);
}

TEST_F(TargetTable, TheVolatileStatusIsTheMemorysInEveryRead) {
  ASSERT_EQ(put(Record("T").text(184, 4, "wxyz")), DBE_OK);
  EXPECT_EQ(get("T", 192).record.u32(184), 0u) << "never taken from a caller's record";
  EXPECT_EQ(get("T").record.u32(184), 0u);
  std::memcpy(slot("T")->trg_status, "\1\2\3\4", 4);
  EXPECT_EQ(get("T", 192).record.text_at(184, 4), "\1\2\3\4");
  EXPECT_EQ(get("T").record.text_at(184, 4), "\1\2\3\4");
  ASSERT_EQ(put(Record("T").text(184, 4, "wxyz")), DBE_RECORD_REPLACED);
  EXPECT_EQ(get("T", 192).record.text_at(184, 4), "\1\2\3\4") << "a replacement keeps it";
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get("T", 192).record.u32(184), 0u) << "it lives no longer than the memory";
}

TEST_F(TargetTable, UpdatingAServerTwiceRaisesTheServerCountTwice) {
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  EXPECT_EQ(cntl()->num_srv_actual, 1u);
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_RECORD_REPLACED);
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_RECORD_REPLACED);
  EXPECT_EQ(cntl()->num_srv_actual, 3u);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(cntl()->num_srv_actual, 1u);
}

TEST_F(TargetTable, ServersAreCountedDifferentlyByPutAndByLoading) {
  ASSERT_EQ(put(Record("L").type(local | server)), DBE_OK);
  ASSERT_EQ(put(Record("R").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("B").type(remote | base)), DBE_OK);
  EXPECT_EQ(cntl()->num_srv_actual, 3u);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(cntl()->num_srv_actual, 2u) << "a local server is not counted while loading";
  ASSERT_EQ(del("L"), DBE_OK);
  EXPECT_EQ(cntl()->num_srv_actual, 1u) << "but its deletion lowers the count";
}

TEST_F(TargetTable, UpdatingALocalTargetKeepsTheLocalCount) {
  ASSERT_EQ(put(Record("A").type(local | client)), DBE_OK);
  ASSERT_EQ(put(Record("B").type(local | client)), DBE_OK);
  ASSERT_EQ(put(Record("A").type(local | client)), DBE_RECORD_REPLACED);
  EXPECT_EQ(cntl()->num_ltrg_actual, 2u);
  ASSERT_EQ(del("A"), DBE_OK);
  EXPECT_EQ(cntl()->num_ltrg_actual, 1u);
}

TEST_F(TargetTable, AFailedUpdateOfALocalTargetLeavesTheLocalCount) {
  ASSERT_EQ(put(Record("A").type(local | client)), DBE_OK);
  EXPECT_EQ(put(Record("A").type(local | client).description("new").server("NOBODY")), DBE_NO_TARGET);
  EXPECT_EQ(cntl()->num_ltrg_actual, 1u);
  EXPECT_EQ(get("A", 192).record.text_at(64, 60), "");
  EXPECT_EQ(get("A").record.text_at(64, 60), "");
}

TEST_F(TargetTable, TheLocalCountNeverFallsBelowZero) {
  ASSERT_EQ(put(Record("A").type(client)), DBE_OK);
  EXPECT_EQ(cntl()->num_ltrg_actual, 0u);
  ASSERT_EQ(put(Record("A").type(local | client)), DBE_RECORD_REPLACED);
  EXPECT_EQ(cntl()->num_ltrg_actual, 1u);
}

TEST_F(TargetTable, LimitsAreTestedInTheirOrder) {
  configure(2, 1, 1);
  ASSERT_EQ(put(Record("A").type(local | server)), DBE_OK);
  EXPECT_EQ(put(Record("B").type(local | server)), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(logged(36459), 1);
  EXPECT_EQ(put(Record("B").type(remote | server)), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(put(Record("B").type(remote | base)), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(logged(36460), 2);
  ASSERT_EQ(put(Record("B").type(remote | client)), DBE_OK);
  EXPECT_EQ(put(Record("C").type(local | server)), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(logged(36383), 1);
}

TEST_F(TargetTable, ALimitRaisedWhileRunningDoesNotPassTheTableAsBuilt) {
  configure(2);
  ASSERT_EQ(put(Record("A")), DBE_OK);
  configure(50);
  ASSERT_EQ(put(Record("B")), DBE_OK);
  EXPECT_EQ(put(Record("C")), DBE_LIMIT_EXCEEDED);
  EXPECT_NE(last_logged(36383).find("Target Configuration has been reached: at most 2 "), std::string::npos)
      << "the lower of both is told";
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(put(Record("C")), DBE_OK);
}

TEST_F(TargetTable, ATableForNoTargetsIsEmptyAndTakesNone) {
  configure(0);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(put(Record("A")), DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(get("A").rc, DBE_NOT_FOUND);
  configure(1);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(put(Record("A")), DBE_OK);
}

TEST_F(TargetTable, AFailedNewTargetSendsItsNumberToTheEndOfBothFreeLists) {
  configure(5);
  ASSERT_EQ(put(Record("A")), DBE_OK);
  EXPECT_EQ(put(Record("X").server("NOBODY")), DBE_NO_TARGET);
  expect_sound();
  EXPECT_EQ(index_rc("X"), DBE_NO_TARGET);
  EXPECT_EQ(cntl()->num_trgs_actual, 1u);
  ASSERT_EQ(put(Record("B")), DBE_OK);
  EXPECT_EQ(number("B"), 3u);
  EXPECT_EQ(number("A"), 1u);
  for (const char* name : {"C", "D", "E"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  EXPECT_EQ(number("E"), 2u) << "the number that failed comes last";
  EXPECT_EQ(get("A").rc, DBE_OK);
}

TEST_F(TargetTable, AFailedNewTargetLeavesWhatItsSlotHeld) {
  ASSERT_EQ(put(Record("GONE")), DBE_OK);
  const std::uint32_t freed = number("GONE");
  ASSERT_EQ(del("GONE"), DBE_OK);
  EXPECT_EQ(put(Record("X").server("NOBODY")), DBE_NO_TARGET);
  char name[64];
  ASSERT_EQ(zvrdb::memory::get_trg_name(task, name, freed), DBE_OK);
  EXPECT_STREQ(name, "GONE");
}

TEST_F(TargetTable, AFailedNewTargetStaysOutAfterARebuild) {
  EXPECT_EQ(put(Record("X").mode(focal_point).server("NOBODY")), DBE_NO_TARGET);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get("X").rc, DBE_NOT_FOUND);
  EXPECT_TRUE(names().empty());
}

TEST_F(TargetTable, ATargetMayNameItselfAsItsServer) {
  ASSERT_EQ(put(Record("S").type(remote | server).server("S")), DBE_OK);
  EXPECT_EQ(get("S").record.text_at(192, 64), "S");
  EXPECT_EQ(server_of("S"), "S");
}

TEST_F(TargetTable, ARecordOfAnotherNameThanItsKeyIsRefused) {
  ASSERT_EQ(put(Record("A").description("old")), DBE_OK);
  EXPECT_EQ(put_as("A", Record("B").description("new")), DBE_BAD_RECORD);
  EXPECT_EQ(put_as("NEW", Record("B")), DBE_BAD_RECORD);
  EXPECT_EQ(get("A").record.text_at(64, 60), "old");
  EXPECT_EQ(names(), std::vector<std::string>{"A"});
}

TEST_F(TargetTable, NamesAreCutToSixtyThreeCharacters) {
  const std::string full(64, 'N'), cut(63, 'N');
  ASSERT_EQ(put(Record(full)), DBE_OK);
  EXPECT_EQ(get(cut).rc, DBE_OK);
  EXPECT_EQ(get(cut).record.name(), cut);
  EXPECT_EQ(get(full).rc, DBE_NOT_FOUND) << "a longer name is an unknown one";
  EXPECT_EQ(put(Record(full)), DBE_RECORD_REPLACED);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(names(), std::vector<std::string>{cut});
}

TEST_F(TargetTable, AShortRecordReadsAsZeroBeyondItsLength) {
  Record record("T");
  record.type(client).mode(push).server("NOBODY");
  // The record lies at the very end of its memory.
  for (const std::size_t length : {64, 100, 147, 148, 191, 192}) {
    ASSERT_TRUE(put(record, length) == DBE_OK || put(record, length) == DBE_RECORD_REPLACED) << length;
    EXPECT_EQ(server_of("T"), "T") << length;
  }
  EXPECT_EQ(get("T").record.text_at(256, 32), "");
}

TEST_F(TargetTable, ARecordOfTheShortFormSurvivesARebuild) {
  ASSERT_EQ(put(Record("S").type(remote | server), 192), DBE_OK);
  ASSERT_EQ(put(Record("T").type(client), 148), DBE_OK);
  ASSERT_EQ(put(Record("U"), 64), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(server_of("T"), "T");
  EXPECT_EQ(get("T").rc, DBE_OK);
  EXPECT_EQ(get("T").record.text_at(192, 64), "");
  EXPECT_EQ(names().size(), 3u);
}

TEST_F(TargetTable, AMobileClientCutRightBeforeItsStatusCanBeReadBack) {
  ASSERT_EQ(put(Record("M").type(local | mobile), 147), DBE_OK);
  EXPECT_EQ(get("M").rc, DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get("M").record.bytes[144], local | mobile);
}

TEST_F(TargetTable, TheConnectionStatusIsStoredForMobileClientsOnly) {
  ASSERT_EQ(put(Record("M").type(local | mobile).byte(147, 7)), DBE_OK);
  ASSERT_EQ(put(Record("N").type(local | client).byte(147, 7)), DBE_OK);
  EXPECT_EQ(get("M").record.bytes[147], 7);
  EXPECT_EQ(get("N").record.bytes[147], 0);
}

TEST_F(TargetTable, ALocalTargetReadsWithTheLocalNetworkNameWhateverWasStored) {
  with_local_target(3, "ELEMENT");
  ASSERT_EQ(put(Record("T").type(local | client).rgn("WRONG").ren("T1")), DBE_OK);
  EXPECT_EQ(get("T", 148).record.text_at(124, 8), "ELEMENT");
  EXPECT_EQ(get("T").record.text_at(124, 8), "ELEMENT");
  std::memcpy(slot("T")->rgn, "STALE\0\0", 8);
  EXPECT_EQ(get("T", 148).record.text_at(124, 8), "ELEMENT");
  ASSERT_EQ(put(Record("R").type(remote | client).rgn("OTHER").ren("R1")), DBE_OK);
  EXPECT_EQ(get("R", 148).record.text_at(124, 8), "OTHER");
}

TEST_F(TargetTable, ALoneLocalTargetHasTheLocalNetworkNameInItsSlot) {
  with_local_target(3, "ELEMENT");
  EXPECT_EQ(std::string_view(slot("LOCAL")->rgn, 7), "ELEMENT");
  ASSERT_EQ(put(Record("LOCAL").type(local | server).rgn("WRONG").ren("ELEMENT")), DBE_RECORD_REPLACED);
  EXPECT_EQ(std::string_view(slot("LOCAL")->rgn, 7), "ELEMENT");
}

TEST_F(TargetTable, WithoutALocalServerRecordNoNetworkNameIsWritten) {
  ASSERT_EQ(put(Record("T").type(local | client).rgn("OWN").ren("T1")), DBE_OK);
  EXPECT_EQ(get("T", 148).record.text_at(124, 8), "OWN");
  EXPECT_EQ(get("T").record.text_at(124, 8), "OWN");
}

TEST_F(TargetTable, TheLocalServerOfABaseInstallationCallsItselfABaseSystem) {
  for (const unsigned kind : {1u, 5u}) {
    with_local_target(kind, "ELEMENT");
    EXPECT_EQ(get("LOCAL", 192).record.bytes[144], local | base) << kind;
    EXPECT_EQ(get("LOCAL", 145).record.bytes[144], local | base) << kind;
    EXPECT_EQ(get("LOCAL").record.bytes[144], local | base) << kind;
    EXPECT_EQ(slot("LOCAL")->trg_type, local | server) << "the table keeps the server";
  }
  with_local_target(3, "ELEMENT");
  EXPECT_EQ(get("LOCAL", 192).record.bytes[144], local | server);
}

TEST_F(TargetTable, AReplacementMayMoveATargetInTheNetworkOrder) {
  ASSERT_EQ(put(Record("A").rgn("N").ren("1")), DBE_OK);
  ASSERT_EQ(put(Record("B").rgn("N").ren("2")), DBE_OK);
  ASSERT_EQ(put(Record("C").rgn("N").ren("3")), DBE_OK);
  ASSERT_EQ(put(Record("A").rgn("N").ren("9")), DBE_RECORD_REPLACED);
  expect_sound();
  EXPECT_EQ(del("B"), DBE_OK);
  EXPECT_EQ(del("A"), DBE_OK);
}

TEST_F(TargetTable, DeletionAmongEqualNetworkNamesFreesItsOwnNumber) {
  for (const char* name : {"A", "B", "C", "D", "E"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  for (const char* name : {"C", "A", "E"}) {
    const std::uint32_t freed = number(name);
    ASSERT_EQ(del(name), DBE_OK);
    expect_sound();
    ASSERT_EQ(put(Record(name)), DBE_OK);
    EXPECT_EQ(number(name), freed);
  }
  EXPECT_EQ(number("B"), 2u);
  EXPECT_EQ(number("D"), 4u);
}

TEST_F(TargetTable, DeletionFindsATargetInANetworkOrderThatWentStale) {
  with_local_target(3, "MIDDLE");
  ASSERT_EQ(put(Record("X").type(remote | client).rgn("AAA").ren("1")), DBE_OK);
  ASSERT_EQ(put(Record("Y").type(remote | client).rgn("ZZZ").ren("1")), DBE_OK);
  ASSERT_EQ(put(Record("L1").type(local | client).ren("1")), DBE_OK);
  ASSERT_EQ(put(Record("L2").type(local | client).ren("2")), DBE_OK);
  std::memset(cntl()->local_dsu, 0, 8);
  std::memcpy(cntl()->local_dsu, "ZZZZZZ", 6);
  EXPECT_EQ(del("L1"), DBE_OK);
}

TEST_F(TargetTable, AFreedNumberStillHasItsLastName) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  const std::uint32_t freed = number("T");
  ASSERT_EQ(del("T"), DBE_OK);
  char name[64];
  EXPECT_EQ(zvrdb::memory::get_trg_name(task, name, freed), DBE_OK);
  EXPECT_STREQ(name, "T");
  EXPECT_EQ(zvrdb::memory::get_trg_name(task, name, 0), DBE_NO_TARGET);
  EXPECT_EQ(zvrdb::memory::get_trg_name(task, name, cntl()->num_trgs_allowed), DBE_OK);
  EXPECT_EQ(zvrdb::memory::get_trg_name(task, name, cntl()->num_trgs_allowed + 1), DBE_NO_TARGET);
}

TEST_F(TargetTable, ALinkToADeletedServerGoesToTheNextOwnerOfItsNumber) {
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("C").type(remote | client).server("S")), DBE_OK);
  ASSERT_EQ(del("S"), DBE_OK);
  EXPECT_EQ(server_of("C"), "S");
  ASSERT_EQ(put(Record("NEXT")), DBE_OK);
  EXPECT_EQ(server_of("C"), "NEXT");
  EXPECT_EQ(get("C").record.text_at(192, 64), "NEXT");
}

TEST_F(TargetTable, ShortNetworkNamesArePaddedOnTheLeft) {
  char text[18];
  zvrdb::memory::dsu_text(text, "AB\0\0\0\0\0", "ELEMENT8");
  EXPECT_STREQ(text, "      AB.ELEMENT8");
}

TEST_F(TargetTable, APutInsideATransactionThatIsRolledBackIsGoneFromMemoryToo) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  ASSERT_EQ(put(Record("B")), DBE_OK);
  ASSERT_EQ(del("A"), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_TRG), DBE_OK);
  EXPECT_EQ(names(), std::vector<std::string>{"A"});
  EXPECT_EQ(get("A").rc, DBE_OK);
}

TEST_F(TargetTable, AFailedAllocationOfAWorkAreaIsAnError) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  co_test_fail_malloc(0);
  EXPECT_EQ(db_rename_trg(task, "T", "U"), DBE_IO_ERROR);
  co_test_fail_malloc(-1);
  EXPECT_EQ(logged(36355), 1);
  EXPECT_EQ(get("T").rc, DBE_OK);
}

TEST_F(TargetTable, ACountBeyondTheTableIsNotFollowedByMovesInTheIndexes) {
  configure(3);
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  cntl()->num_trgs_actual = 0xFFFFFFFFu;
  EXPECT_EQ(db_rename_trg(task, "B", "D"), DBE_OK);
  EXPECT_EQ(cntl()->num_trgs_actual, 3u);
  cntl()->num_trgs_actual = 0xFFFFFFFFu;
  EXPECT_EQ(put(Record("A").ren("MOVED")), DBE_RECORD_REPLACED);
  EXPECT_EQ(cntl()->num_trgs_actual, 3u);
  cntl()->num_trgs_actual = 0xFFFFFFFFu;
  EXPECT_EQ(del("C"), DBE_OK);
  EXPECT_EQ(cntl()->num_trgs_actual, 2u);
  EXPECT_EQ(names(), (std::vector<std::string>{"A", "D"}));
}

}  // namespace
}  // namespace target_test
