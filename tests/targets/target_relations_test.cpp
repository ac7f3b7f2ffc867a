// Status, rename, network names and servers of targets.
#include <cstring>

#include "memory/shared_tables.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

class TargetRelations : public TargetsTest {
 protected:
  std::string status(const std::string& name) {
    return std::string(reinterpret_cast<const char*>(slot(name)->trg_status), 4);
  }
  void set_status(const std::string& name, const char* bytes) {
    std::memcpy(slot(name)->trg_status, bytes, 4);
  }
  // Reads by RGN.REN; the name found, or "" with the code in last_rc.
  std::string by_rr(std::string_view rgn, std::string_view ren, std::size_t length = 192) {
    char rr[16] = {};
    std::memcpy(rr, rgn.data(), std::min<std::size_t>(rgn.size(), 8));
    std::memcpy(rr + 8, ren.data(), std::min<std::size_t>(ren.size(), 8));
    Record record("");
    last_rc = db_trg_from_rr(task, rr, record.bytes.data(), static_cast<std::uint16_t>(length));
    return last_rc == DBE_OK ? record.name() : "";
  }
  int last_rc = 0;
};

TEST_F(TargetRelations, WritingAStatusBeforeAnyReadIsRefused) {
  const unsigned char bytes[4] = {1, 2, 3, 4};
  new_task();
  EXPECT_EQ(db_put_trg_stat(task, "A", bytes), DBE_NO_STAT_GET);
  EXPECT_EQ(logged(36385), 1);
  EXPECT_EQ(put(Record("A")), DBE_OK);
  EXPECT_EQ(db_put_trg_stat(task, "A", bytes), DBE_NO_STAT_GET);
}

TEST_F(TargetRelations, AStatusIsReadAndWrittenAsOneStep) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  unsigned char bytes[4] = {9, 9, 9, 9};
  ASSERT_EQ(db_get_trg_stat(task, "A", bytes), DBE_OK);
  EXPECT_EQ(bytes[0], 0);
  bytes[3] = 5;
  ASSERT_EQ(db_put_trg_stat(task, "A", bytes), DBE_OK);
  EXPECT_EQ(status("A"), std::string("\0\0\0\5", 4));
  EXPECT_EQ(in_child([](void* child) {
              unsigned char read[4];
              if (db_get_trg_stat(child, "A", read) != DBE_OK) return 1;
              if (db_put_trg_stat(child, "A", read) != DBE_OK) return 2;
              return read[3] == 5 ? 0 : 3;
            }),
            0);
}

TEST_F(TargetRelations, AStatusOfAnUnknownTargetIsNotFoundAndNothingStaysHeld) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  unsigned char bytes[4];
  EXPECT_EQ(db_get_trg_stat(task, "B", bytes), DBE_NOT_FOUND);
  EXPECT_EQ(in_child([](void* child) {
              const void* keys[] = {"A"};
              unsigned char head[192];
              return db_get(child, DB_TRG, 1, keys, head, sizeof head);
            }),
            0);
}

TEST_F(TargetRelations, AStatusWrittenForAnUnknownNameGoesToTheNextGreaterTarget) {
  ASSERT_EQ(put(Record("B")), DBE_OK);
  unsigned char bytes[4];
  ASSERT_EQ(db_get_trg_stat(task, "B", bytes), DBE_OK);
  EXPECT_EQ(db_put_trg_stat(task, "A", "\1\2\3\4"), DBE_OK);
  EXPECT_EQ(status("B"), "\1\2\3\4");
  ASSERT_EQ(db_get_trg_stat(task, "B", bytes), DBE_OK);
  EXPECT_EQ(db_put_trg_stat(task, "C", bytes), DBE_NOT_FOUND);
  EXPECT_EQ(logged(36386), 1);
}

TEST_F(TargetRelations, AgingClearsACounterThatRunsOutTogetherWithItsByte) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  set_status("A", "\x0A\x00\x07\x08");  // equal
  set_status("B", "\x0B\x00\x07\x08");  // one above
  set_status("C", "\x09\x00\x07\x08");
  ASSERT_EQ(db_time_trg_stat(task, 10), DBE_OK);
  EXPECT_EQ(status("A"), std::string("\0\0\0\x08", 4));
  EXPECT_EQ(status("B"), std::string("\x01\0\x07\x08", 4));
  EXPECT_EQ(status("C"), std::string("\0\0\0\x08", 4));
}

TEST_F(TargetRelations, AgingGoesBySlotsSoThatHolesHideTheLastOnes) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  ASSERT_EQ(del("A"), DBE_OK);
  set_status("B", "\x05\0\0\0");
  set_status("C", "\x05\0\0\0");
  ASSERT_EQ(db_time_trg_stat(task, 1), DBE_OK);
  EXPECT_EQ(status("B")[0], 4);
  EXPECT_EQ(status("C")[0], 5) << "its slot lies behind the count";
}

TEST_F(TargetRelations, ARenamedServerIsAtOnceTheServerOfItsClients) {
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("A").server("S")), DBE_OK);
  ASSERT_EQ(put(Record("B").server("S")), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "S", "Z"), DBE_OK);
  EXPECT_EQ(server_of("A"), "Z");
  EXPECT_EQ(server_of("B"), "Z");
  EXPECT_EQ(get("A").record.text_at(192, 64), "Z");
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(server_of("A"), "Z");
}

TEST_F(TargetRelations, ARenameKeepsNumberStatusAndRecord) {
  ASSERT_EQ(put(Record("OLD").description("text").mode(push).server("OLD")), DBE_OK);
  const std::uint32_t kept = number("OLD");
  set_status("OLD", "\1\2\3\4");
  const std::uint32_t cms = cntl()->gen[DB_CMS], trg = cntl()->gen[DB_TRG];
  ASSERT_EQ(db_rename_trg(task, "OLD", "NEW"), DBE_OK);
  EXPECT_EQ(cntl()->gen[DB_CMS], cms + 1);
  EXPECT_EQ(cntl()->gen[DB_TRG], trg + 1);
  EXPECT_EQ(number("NEW"), kept);
  EXPECT_EQ(status("NEW"), "\1\2\3\4");
  EXPECT_EQ(get("OLD").rc, DBE_NOT_FOUND);
  const Reading whole = get("NEW");
  EXPECT_EQ(whole.record.name(), "NEW");
  EXPECT_EQ(whole.record.text_at(64, 60), "text");
  EXPECT_EQ(whole.record.text_at(192, 64), "NEW") << "its own server is renamed with it";
}

TEST_F(TargetRelations, ARenameKeepsTheIndexInOrder) {
  for (const char* name : {"A", "C", "E"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "A", "D"), DBE_OK);
  EXPECT_EQ(names(), (std::vector<std::string>{"C", "D", "E"}));
}

TEST_F(TargetRelations, ARenameOfAnUnknownTargetIsNotFound) {
  EXPECT_EQ(db_rename_trg(task, "OLD", "NEW"), DBE_NOT_FOUND);
}

TEST_F(TargetRelations, ANewNameIsCutToSixtyThreeCharacters) {
  ASSERT_EQ(put(Record("OLD")), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "OLD", std::string(80, 'N').c_str()), DBE_OK);
  EXPECT_EQ(get(std::string(63, 'N')).rc, DBE_OK);
}

TEST_F(TargetRelations, ARenameWithoutARecordInTheFileFails) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  const std::uint32_t real = number("A");
  // The table knows a target that the file does not.
  ASSERT_EQ(put(Record("B")), DBE_OK);
  std::swap(tcb()->name_index[1].trg_index, tcb()->name_index[2].trg_index);
  zvrdb::TRG_CNTL_ENTRY* ghost = zvrdb::memory::trg_slot(tcb(), tcb()->name_index[1].trg_index);
  std::memcpy(ghost->trg_name, "B\0", 2);
  ghost->in_use = 1;
  EXPECT_EQ(db_rename_trg(task, "B", "C"), DBE_IO_ERROR);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number("A"), real);
}

TEST_F(TargetRelations, AFailedWriteLeavesTheTableRenamed) {
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("A").server("S")), DBE_OK);
  ASSERT_EQ(del("S"), DBE_OK);  // the link of A now leads to a freed number
  EXPECT_EQ(db_rename_trg(task, "A", "B"), DBE_NO_TARGET);
  EXPECT_EQ(get("B", 192).rc, DBE_OK);
  EXPECT_EQ(get("A", 192).rc, DBE_NOT_FOUND);
}

TEST_F(TargetRelations, ATargetIsFoundByItsNetworkName) {
  ASSERT_EQ(put(Record("A").rgn("NETWORK8").ren("ELEMENT8")), DBE_OK);
  ASSERT_EQ(put(Record("B").rgn("NET").ren("EL")), DBE_OK);
  EXPECT_EQ(by_rr("NETWORK8", "ELEMENT8"), "A");
  EXPECT_EQ(by_rr("NET", "EL"), "B");
  EXPECT_EQ(by_rr("NET", "EL", record_len), "B");
  EXPECT_EQ(by_rr("NET", "NONE"), "");
  EXPECT_EQ(last_rc, DBE_NOT_FOUND);
}

TEST_F(TargetRelations, AnEmptyNetworkIsTheOneOfThisServer) {
  with_local_target(3, "HERE");
  ASSERT_EQ(put(Record("L").type(local | client).rgn("ANY").ren("L1")), DBE_OK);
  EXPECT_EQ(by_rr("", "L1"), "L");
  EXPECT_EQ(by_rr("HERE", "L1"), "L");
  EXPECT_EQ(by_rr("ANY", "L1"), "");
}

TEST_F(TargetRelations, ALookupSortsAStaleOrderOnceAndFindsWhatIsThere) {
  for (const char* ren : {"1", "2", "3", "4"})
    ASSERT_EQ(put(Record(std::string("T") + ren).rgn("N").ren(ren)), DBE_OK);
  std::swap(tcb()->dsu_index[0], tcb()->dsu_index[3]);
  EXPECT_EQ(by_rr("N", "1"), "T1");
  expect_sound();
  std::swap(tcb()->dsu_index[0], tcb()->dsu_index[3]);
  EXPECT_EQ(by_rr("N", "9"), "");
  EXPECT_EQ(last_rc, DBE_NOT_FOUND);
  expect_sound();
}

TEST_F(TargetRelations, TheServerOfAnUnknownTargetIsNotFound) {
  char server[64];
  EXPECT_EQ(db_get_srv(task, "NOBODY", server), DBE_NOT_FOUND);
}

TEST_F(TargetRelations, ALinkOutOfTheTableIsNotFollowed) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  char server[64];
  for (const std::uint32_t link : {0u, cntl()->num_trgs_allowed + 1, no_link}) {
    slot("A")->srv_num = link;
    EXPECT_EQ(db_get_srv(task, "A", server), DBE_NOT_FOUND) << link;
  }
  slot("A")->srv_num = number("A");
}

}  // namespace
}  // namespace target_test
