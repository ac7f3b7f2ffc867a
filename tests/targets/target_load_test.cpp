// Building of the table from the file.
#include <cstring>

#include "memory/shared_tables.h"
#include "recfile/recfile.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

class TargetLoad : public TargetsTest {};

TEST_F(TargetLoad, OnePlaceIsKeptForTheLocalTargetUntilItIsMet) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  ASSERT_EQ(put(Record("B")), DBE_OK);
  ASSERT_EQ(put(Record("LOCAL").type(local | server)), DBE_OK);
  configure(3);
  EXPECT_EQ(rebuild(), DBE_OK) << "the local target is among the three";
  EXPECT_EQ(names().size(), 3u);
}

TEST_F(TargetLoad, AFullTableWithoutTheLocalTargetDoesNotLoad) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  configure(3);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED);
  EXPECT_EQ(logged(36417), 1);
  EXPECT_GE(logged(36360), 1);
  configure(4);
  EXPECT_EQ(rebuild(), DBE_OK);
}

TEST_F(TargetLoad, ATargetThatOnlyBearsTheLocalNameKeepsThePlaceReserved) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  ASSERT_EQ(put(Record("LOCAL").type(client)), DBE_OK);
  configure(2);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED);
  configure(3);
  EXPECT_EQ(rebuild(), DBE_OK);
}

TEST_F(TargetLoad, TheLocalAndServerLimitsHoldWhileLoading) {
  ASSERT_EQ(put(Record("LOCAL").type(local | server)), DBE_OK);
  ASSERT_EQ(put(Record("A").type(local | client)), DBE_OK);
  ASSERT_EQ(put(Record("R").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("Q").type(remote | server)), DBE_OK);
  configure(10, 1, 10);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED);
  EXPECT_EQ(logged(36459), 1);
  configure(10, 2, 1);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED);
  EXPECT_EQ(logged(36460), 1);
  configure(10, 2, 2);
  EXPECT_EQ(rebuild(), DBE_OK);
}

TEST_F(TargetLoad, ANumberBeyondALoweredLimitIsToldAndNothingIsLost) {
  for (const char* name : {"A", "B", "C", "LOCAL"}) ASSERT_EQ(put(Record(name).type(local)), DBE_OK);
  ASSERT_EQ(del("A"), DBE_OK);
  ASSERT_EQ(del("B"), DBE_OK);
  configure(3);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED) << "number 4 has no slot among three";
  EXPECT_GE(logged(36417), 1);
  configure(4);
  EXPECT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number("LOCAL"), 4u);
}

TEST_F(TargetLoad, ARecordOfNumberZeroIsToldAndNotFollowed) {
  ASSERT_EQ(put(Record("LOCAL").type(local)), DBE_OK);
  std::uint32_t key[] = {DB_TRG, 0, 0};
  const Record stray("STRAY");
  std::vector<unsigned char> stored(12 + 64);
  std::memcpy(stored.data() + 12, stray.bytes.data(), 64);
  ASSERT_EQ(zvrdb::recfile::db_write(task, tcb()->trg_file, key, stored.data(), 12 + 64), DBE_OK);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED);
  EXPECT_NE(last_logged(36417).find("STRAY"), std::string::npos);
  EXPECT_GE(logged(36360), 1);
  ASSERT_EQ(zvrdb::recfile::db_delete(task, key, tcb()->trg_file), DBE_OK);
  EXPECT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(names(), std::vector<std::string>{"LOCAL"});
}

TEST_F(TargetLoad, AMaximumOfZeroIsReachedByTheFirstRecord) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  configure(0);
  EXPECT_EQ(rebuild(), DBE_INIT_FAILED) << "no limit wraps around below zero";
  configure(10, 0, 0);
  EXPECT_EQ(rebuild(), DBE_OK);
  ASSERT_EQ(put(Record("L").type(local)), DBE_LIMIT_EXCEEDED);
  ASSERT_EQ(put(Record("S").type(server)), DBE_LIMIT_EXCEEDED);
}

TEST_F(TargetLoad, ALinkOutOfTheTableCountsAsNone) {
  ASSERT_EQ(put(Record("LOCAL").type(local)), DBE_OK);
  for (const char* name : {"B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("B").server("S")), DBE_RECORD_REPLACED);
  ASSERT_EQ(del("S"), DBE_OK);
  configure(3);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(server_of("B"), "B");
}

TEST_F(TargetLoad, NumbersNamesAndLinksAreTheSameAfterARebuild) {
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  for (const char* name : {"D", "A", "C", "B"}) ASSERT_EQ(put(Record(name).server("S")), DBE_OK);
  ASSERT_EQ(del("A"), DBE_OK);
  const std::uint32_t c = number("C");
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number("C"), c);
  EXPECT_EQ(server_of("C"), "S");
  EXPECT_EQ(names(), (std::vector<std::string>{"B", "C", "D", "S"}));
  EXPECT_EQ(cntl()->num_trgs_actual, 4u);
  ASSERT_EQ(put(Record("E")), DBE_OK);
  EXPECT_EQ(number("E"), 3u) << "free numbers stand in rising order";
}

TEST_F(TargetLoad, LoadingTellsTheNumberOfTargets) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  const int before = logged(36357);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(logged(36357), before + 1);
}

TEST_F(TargetLoad, TheDeathOfAWriterBringsTheTableBackToTheFile) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  kill_writer_after([](void* child) {
    const Record record("B");
    const void* keys[] = {"B"};
    Record copy = record;
    db_start_trans(child, DB_TRG);
    db_put(child, DB_TRG, 1, keys, copy.bytes.data(), record_len);
  });
  EXPECT_EQ(names(), std::vector<std::string>{"A"});
  EXPECT_EQ(get("A").rc, DBE_OK);
  EXPECT_EQ(put(Record("B")), DBE_OK);
}

TEST_F(TargetLoad, AHalfDoneIndexMoveIsRepairedByARebuild) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  tcb()->name_index[0] = tcb()->name_index[1];
  tcb()->dsu_index[2] = 77777;
  cntl()->num_trgs_actual = 77;
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(names(), (std::vector<std::string>{"A", "B", "C"}));
}

}  // namespace
}  // namespace target_test
