// db_start_trans, db_commit, db_rollback and what they hold.
#include "frame/frame_fixture.h"
#include "recfile/recfile.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::get_target_from_file;
using zvrtest::logged;
using zvrtest::put_target;

class ExplicitTransactions : public zvrtest::FrameTest {
 protected:
  ExplicitTransactions() : task("transactions") { EXPECT_EQ(DBE_OK, put_target(task, "A")); }
  // A record of a group, written as a call of its own would.
  std::int16_t put_group() {
    std::int16_t rc = dbr_in(task, operation::write, DB_TG);
    if (rc == DBE_OK) {
      unsigned char key[72] = {6, 0, 0, 0, 'G'};
      const unsigned char record[100] = {};
      rc = recfile::db_write(task, task.tcb()->tg_file, key, record, sizeof record);
    }
    dbr_out(task, operation::write, DB_TG, rc);
    return rc;
  }
  bool has_group() {
    unsigned char key[72] = {6, 0, 0, 0, 'G'};
    std::int16_t rc = dbr_in(task, operation::read, DB_TG);
    if (rc == DBE_OK) rc = recfile::db_locate(task, task.tcb()->tg_file, key, recfile::KEY_EQ);
    dbr_out(task, operation::read, DB_TG, rc);
    return rc == DBE_OK;
  }
  bool mark_is_set() {
    // What a death of this task would look like to the next owner.
    return task.tcb()->trans_in_prog[1] != 0;
  }
  client_task task;
};

TEST_F(ExplicitTransactions, CommitWithoutATransactionIsASuccessAndHoldsNothing) {
  EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(ExplicitTransactions, RollbackWithoutChangesIsASuccess) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_TRUE(task.owns_memory());
  EXPECT_EQ(DBE_OK, db_rollback(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(ExplicitTransactions, AWriteInsideNeitherRequestsNorReleasesNorFlushes) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  EXPECT_TRUE(task.owns_memory());
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  EXPECT_EQ(1u, task.tcb()->trans_in_prog[1]);
  EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(0u, task.tcb()->trans_in_prog[1]);
  EXPECT_EQ(no_trans_id, task.tcb()->start_trans_id);
}

TEST_F(ExplicitTransactions, ParametersJoinTheTransactionOfTheTargetsAndGroupsDoNot) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  std::vector<unsigned char> parameters(62812);
  std::strcpy(reinterpret_cast<char*>(parameters.data()), "A");
  const void* keys[] = {"A"};
  EXPECT_EQ(DBE_OK, db_put(task, DB_PRM, 1, keys, parameters.data(), 62812));
  EXPECT_EQ(DBE_OK, put_group());
  EXPECT_TRUE(task.owns_memory());
  ASSERT_EQ(DBE_OK, db_rollback(task, DB_TRG));
  EXPECT_EQ(DBE_NOT_FOUND, db_get(task, DB_PRM, 1, keys, parameters.data(), 62812));
  EXPECT_TRUE(has_group());
}

TEST_F(ExplicitTransactions, StartedTwiceItIsEndedByOneCommit) {
  EXPECT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(DBE_OK, db_rollback(task, DB_TRG));
  EXPECT_EQ(DBE_OK, get_target_from_file(task, "B"));
}

TEST_F(ExplicitTransactions, EndingAnotherTypeFirstDoesNotHoldTheSemaphoreForGood) {
  for (std::uint32_t other : {DB_PRM, DB_TG}) {
    ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
    ASSERT_EQ(DBE_OK, db_commit(task, other));
    EXPECT_TRUE(task.owns_memory()) << other;
    ASSERT_EQ(DBE_OK, db_commit(task, DB_TRG));
    EXPECT_FALSE(task.owns_memory()) << other;
  }
}

TEST_F(ExplicitTransactions, TwoTransactionsInAnyOrderOfTheirEndsReleaseTheSemaphore) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_RQR));
  ASSERT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_TRUE(task.owns_memory());
  ASSERT_EQ(DBE_OK, db_commit(task, DB_RQR));
  EXPECT_FALSE(task.owns_memory());
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_RQR));
  ASSERT_EQ(DBE_OK, db_commit(task, DB_RQR));
  EXPECT_FALSE(task.owns_memory());
  ASSERT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(ExplicitTransactions, AStartThatFailsLeavesTheOneBeforeItItsName) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_EQ(DBE_BAD_DB_ID, db_start_trans(task, DB_TAK));
  EXPECT_EQ(static_cast<std::uint32_t>(DB_TRG), task.tcb()->start_trans_id);
  EXPECT_TRUE(task.owns_memory());
  EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(DBE_BAD_DB_ID, db_start_trans(task, DB_TAK));
  EXPECT_EQ(no_trans_id, task.tcb()->start_trans_id);
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(ExplicitTransactions, TypesWithoutFilesAreRefused) {
  for (std::uint32_t db_id :
       {DB_CFG, DB_RTE, DB_SCN, DB_SCF, DB_UA, DB_UCF, DB_TAK, DB_DAK, DB_PRD, DB_FST}) {
    EXPECT_EQ(DBE_BAD_DB_ID, db_start_trans(task, db_id)) << db_id;
    EXPECT_EQ(DBE_BAD_DB_ID, db_commit(task, db_id)) << db_id;
    EXPECT_EQ(DBE_BAD_DB_ID, db_rollback(task, db_id)) << db_id;
    EXPECT_FALSE(task.owns_memory());
    EXPECT_FALSE(task.owns_files());
  }
  EXPECT_EQ(10u, logged(task, 36430));
  EXPECT_EQ(10u, logged(task, 36431));
  EXPECT_EQ(10u, logged(task, 36432));
}

TEST_F(ExplicitTransactions, ACallOfTheOtherClassIsRefusedAndReleasesNothing) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  char buffer[100];
  EXPECT_EQ(DBE_TRANS_IN_PROGRESS, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(1u, logged(task, 36457));
  EXPECT_TRUE(task.owns_memory());
  EXPECT_FALSE(task.inside());
  ASSERT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
}

TEST_F(ExplicitTransactions, RollbackBringsMemoryBackToTheFile) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, put_target(task, "B"));
  ASSERT_EQ(DBE_OK, zvrtest::delete_target(task, "A"));
  ASSERT_EQ(DBE_OK, db_rollback(task, DB_TRG));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(DBE_NOT_FOUND, get_target(task, "B"));
  EXPECT_EQ(0u, logged(task, 36356));
  std::uint32_t signal = 0;
  co_get_signal(task, 3, &signal);
  EXPECT_EQ(2u, signal);
}

TEST_F(ExplicitTransactions, AfterARollbackACallOfClassZeroWaitsForNobody) {
  co_test_delay_factor(0, 1);
  const std::uint64_t before = co_test_delayed();
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, put_target(task, "B"));
  ASSERT_EQ(DBE_OK, db_rollback(task, DB_TRG));
  char buffer[100];
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(before, co_test_delayed());
  co_test_delay_factor(1, 1);
}

TEST_F(ExplicitTransactions, RollbackInAFileThatIsNotHeldInMemoryRaisesNothing) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TG));
  ASSERT_EQ(DBE_OK, put_group());
  ASSERT_EQ(DBE_OK, db_rollback(task, DB_TG));
  EXPECT_FALSE(has_group());
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(ExplicitTransactions, AnInternalCommitOnTheSameFileEndsTheExplicitOne) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, put_target(task, "B"));
  // What a handler with a transaction of its own does inside one call.
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::write, DB_TRG));
  ASSERT_EQ(DBE_OK, recfile::start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, recfile::commit(task, DB_TRG));
  dbr_out(task, operation::write, DB_TRG, 0);
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(DBE_OK, db_rollback(task, DB_TRG));
  EXPECT_EQ(DBE_OK, get_target_from_file(task, "B"));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(ExplicitTransactions, ALongTransactionKeepsOtherTasksWaiting) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    void* own = co_init_task("waiter", nullptr, 0);
    parent.reached();
    return get_target(own, "B") == DBE_OK ? 0 : 1;
  });
  ASSERT_EQ(1, child.next());
  ASSERT_EQ(DBE_OK, put_target(task, "B"));
  ASSERT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_EQ(0, child.finish());
}

}  // namespace
}  // namespace zvrdb::frame
