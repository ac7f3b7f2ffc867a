// Transactions of the record files, without the request frame.
#include "recfile/child_process.h"
#include "recfile/record_files_fixture.h"

namespace zvrdb::recfile {
namespace {

using zvrtest::write_target;

bool has_target(zvrtest::file_task& files, std::uint32_t number) {
  return zvrtest::find_target(files, number) == DBE_OK;
}

class Transactions : public ::testing::Test {
 protected:
  Transactions() : files("transactions") { EXPECT_EQ(0, files.open()); }
  std::string path(const char* name) const { return installation.base() + "/db/" + name; }
  void* task() { return files.task(); }
  zvrdb::test::TempInstallation installation;
  zvrtest::file_task files;
};

TEST_F(Transactions, FlagsGoByFileAndTheGroupingStopsWhereItIsTold) {
  const std::vector<std::vector<std::uint32_t>> groups = {{4, 5, 11, 32}, {17, 18, 19, 20, 21, 30}, {28, 29}};
  for (std::uint32_t given = 0; given < DB_TYPE_COUNT; ++given) {
    std::vector<std::uint32_t> expected = {given};
    for (const auto& group : groups)
      for (std::uint32_t id : group)
        if (id == given) expected = group;
    set_trans_active(task(), given);
    std::vector<std::uint32_t> set;
    for (std::uint32_t id = 0; id < DB_TYPE_COUNT; ++id)
      if (files.tcb()->trans_active[id] == 1) set.push_back(id);
    EXPECT_EQ(expected, set) << given;
    reset_trans_active(task(), given);
    for (std::uint16_t flag : files.tcb()->trans_active) EXPECT_EQ(0, flag);
  }
}

TEST_F(Transactions, AnOutOfRangeTypeFlagsNothing) {
  set_trans_active(task(), DB_TYPE_COUNT);
  for (std::uint16_t flag : files.tcb()->trans_active) EXPECT_EQ(0, flag);
}

TEST_F(Transactions, CommitKeepsAndRollbackUndoes) {
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  ASSERT_EQ(DBE_OK, write_target(files, 1));
  ASSERT_EQ(DBE_OK, commit(task(), 4));
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  ASSERT_EQ(DBE_OK, write_target(files, 2));
  ASSERT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_TRUE(has_target(files, 1));
  EXPECT_FALSE(has_target(files, 2));
  EXPECT_EQ(0, files.tcb()->trans_active[32]);
}

TEST_F(Transactions, RollbackWithoutChangesIsASuccess) {
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  EXPECT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_EQ(DBE_OK, commit(task(), 4));
  EXPECT_EQ(0u, zvrtest::logged(task(), 36436));
}

TEST_F(Transactions, TypesWithoutATransactionAreRefusedWithTheirMessages) {
  const std::uint32_t types[] = {0, 7, 8, 12, 24, 25, 26, 27, 33};
  for (std::uint32_t db_id : types) {
    EXPECT_EQ(DBE_BAD_DB_ID, start_trans(task(), db_id)) << db_id;
    EXPECT_EQ(DBE_BAD_DB_ID, commit(task(), db_id)) << db_id;
    EXPECT_EQ(DBE_BAD_DB_ID, rollback(task(), db_id)) << db_id;
  }
  EXPECT_EQ(std::size(types), zvrtest::logged(task(), 36430));
  EXPECT_EQ(std::size(types), zvrtest::logged(task(), 36431));
  EXPECT_EQ(std::size(types), zvrtest::logged(task(), 36432));
}

TEST_F(Transactions, FlushIgnoresTheTypesThatAreNotFlushed) {
  files.close_files();
  for (std::uint32_t db_id : {0u, 1u, 2u, 3u, 7u, 8u, 12u, 24u, 25u, 26u, 27u, 31u, 32u, 33u, 99u})
    EXPECT_EQ(DBE_OK, db_bflush(task(), db_id)) << db_id;
  EXPECT_EQ(0u, zvrtest::logged(task(), 36366));
  for (std::uint32_t db_id : {4u, 5u, 6u, 9u, 10u, 11u, 17u, 23u, 28u, 30u})
    EXPECT_EQ(DBE_OK, db_bflush(task(), db_id)) << db_id;
}

TEST_F(Transactions, AnInternalTransactionNeverKeepsTheSemaphore) {
  ASSERT_EQ(DBE_OK, start_trans(task(), 10));
  EXPECT_EQ(0u, files.tcb()->trans_in_prog[1]);
  // Nor after an explicit one of another type was named and failed to end.
  files.tcb()->start_trans_id = 9;
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  EXPECT_EQ(0u, files.tcb()->trans_in_prog[1]);
  ASSERT_EQ(DBE_OK, commit(task(), 10));
  ASSERT_EQ(DBE_OK, commit(task(), 4));
}

TEST_F(Transactions, TheNamedTransactionKeepsTheSemaphoreUntilItsNameEndsIt) {
  files.tcb()->start_trans_id = 4;
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  EXPECT_EQ(1u, files.tcb()->trans_in_prog[1]);
  EXPECT_EQ(DBE_OK, commit(task(), 6));
  EXPECT_EQ(1u, files.tcb()->trans_in_prog[1]);
  EXPECT_EQ(DBE_OK, commit(task(), 5));
  EXPECT_EQ(1u, files.tcb()->trans_in_prog[1]);
  EXPECT_EQ(DBE_OK, commit(task(), 4));
  EXPECT_EQ(0u, files.tcb()->trans_in_prog[1]);
}

TEST_F(Transactions, AnImplicitTransactionEndsWithItsRecordAndAJoinedOneDoesNot) {
  ASSERT_EQ(DBE_OK, write_target(files, 1));
  EXPECT_EQ(0, files.tcb()->trans_active[4]);
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  ASSERT_EQ(DBE_OK, write_target(files, 2));
  EXPECT_EQ(1, files.tcb()->trans_active[4]);
  ASSERT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_TRUE(has_target(files, 1));
  EXPECT_FALSE(has_target(files, 2));
}

TEST_F(Transactions, CloseRollsAnOpenTransactionBack) {
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  ASSERT_EQ(DBE_OK, write_target(files, 1));
  file_entry* trg = files.tcb()->trg_file;
  ASSERT_EQ(DBE_OK, db_close(task(), trg));
  EXPECT_EQ(0, files.tcb()->trans_active[4]);
  ASSERT_EQ(DBE_OK, db_open(task(), 4, &trg));
  EXPECT_FALSE(has_target(files, 1));
}

TEST_F(Transactions, OnlyChangesOfEarlierCallsCountAsUndone) {
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  ASSERT_EQ(DBE_OK, write_target(files, 1));
  ASSERT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_EQ(0u, files.tcb()->undone_ids);
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  ASSERT_EQ(DBE_OK, write_target(files, 1));
  files.tcb()->changed_before = files.tcb()->changed_files;  // as the end of a call does
  ASSERT_EQ(DBE_OK, rollback(task(), 4));
  EXPECT_EQ(1u << 1, files.tcb()->undone_ids);
  EXPECT_EQ(0u, files.tcb()->changed_files);
}

TEST_F(Transactions, AStaleHandleIsOpenedAgain) {
  // Another handle's transaction was interrupted: the first attempt fails, the
  // opening rolls it back, the second attempt succeeds.
  files.release();
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    zvrtest::file_task own("interrupted");
    if (own.open() != 0) return 1;
    if (start_trans(own.task(), 4) != DBE_OK || write_target(own, 5) != DBE_OK) return 2;
    parent.die();
  });
  EXPECT_EQ(1000 + SIGKILL, child.finish());
  files.take();
  ASSERT_EQ(engine::e_trans_interrupted, engine::transstat(files.tcb()->trg_file->psp));
  EXPECT_EQ(DBE_OK, start_trans(task(), 4));
  EXPECT_FALSE(has_target(files, 5));
  EXPECT_EQ(DBE_OK, commit(task(), 4));
}

TEST_F(Transactions, ABusyTransactionMakesTheOpenWaitOnceAndFail) {
  ASSERT_EQ(DBE_OK, start_trans(task(), 4));
  zvrtest::child_process child([](zvrtest::parent_link&) {
    void* own = co_init_task("second", nullptr, 0);
    if (!own) return 1;
    auto* tcb = static_cast<DBR_TCB*>(co_malloc(own, sizeof(DBR_TCB), CO_MEM_PRIVATE, "DBR__TCB"));
    tcb->cntl = static_cast<DBR_CNTL*>(co_croca(own, CO_AREA_DBR_CNTL));
    co_slots(own)->dbr_tcb = tcb;
    co_test_delay_factor(0, 1);
    const std::uint64_t before = co_test_delayed();
    file_entry* handle = nullptr;
    if (db_open(own, 4, &handle) != DBE_IO_ERROR || handle) return 2;
    if (co_test_delayed() - before != 60000) return 3;
    if (zvrtest::last_logged(own, 36436).find("-111") == std::string::npos) return 4;
    return tcb->cntl->files[1].use_count == 1 ? 0 : 5;
  });
  EXPECT_EQ(0, child.finish());
  EXPECT_EQ(DBE_OK, commit(task(), 4));
}

TEST_F(Transactions, AnEmptyChainThatWasKeptIsFreedAtOpen) {
  engine::PSP* psp = files.tcb()->trg_file->psp;
  ASSERT_EQ(0, engine::transbeg(psp, 3, nullptr));
  ASSERT_EQ(0, engine::transend(psp, 2));
  ASSERT_EQ(engine::e_trans_empty, engine::transstat(psp));
  file_entry* trg = files.tcb()->trg_file;
  ASSERT_EQ(DBE_OK, db_close(task(), trg));
  ASSERT_EQ(DBE_OK, db_open(task(), 4, &trg));
  EXPECT_EQ(0, engine::transstat(trg->psp));
}

}  // namespace
}  // namespace zvrdb::recfile
