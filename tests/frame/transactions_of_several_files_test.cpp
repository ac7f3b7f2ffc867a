// Explicit transactions on two files at once, of which one outlives the semaphore.
#include "frame/frame_fixture.h"
#include "recfile/recfile.h"

namespace zvrdb::frame {
namespace {

using zvrtest::child_process;
using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::get_target_from_file;
using zvrtest::parent_link;
using zvrtest::put_target;

class TransactionsOfSeveralFiles : public zvrtest::FrameTest {
 protected:
  TransactionsOfSeveralFiles() : task("live") { EXPECT_EQ(DBE_OK, put_target(task, "A")); }

  // The transaction on the requests, begun last, gives the semaphore back; the one on
  // the targets stays open.
  static bool leave_targets_open(void* own) {
    return db_start_trans(own, DB_TRG) == DBE_OK && put_target(own, "HALF") == DBE_OK &&
           db_start_trans(own, DB_RQR) == DBE_OK && db_commit(own, DB_RQR) == DBE_OK;
  }
  static void die_with_targets_open() {
    child_process child([](parent_link& parent) {
      void* own = co_init_task("victim", nullptr, 0);
      if (!own || !leave_targets_open(own)) return 1;
      parent.die();
    });
    ASSERT_EQ(1000 + SIGKILL, child.finish());
  }
  void expect_memory_and_file_agree(const char* name) {
    EXPECT_EQ(get_target(task, name), get_target_from_file(task, name)) << name;
  }
  client_task task;
};

TEST_F(TransactionsOfSeveralFiles, ADeathWithoutTheSemaphoreLeavesMemoryAndFileTheSame) {
  die_with_targets_open();
  ASSERT_FALSE(HasFatalFailure());
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  expect_memory_and_file_agree("A");
  expect_memory_and_file_agree("B");
  expect_memory_and_file_agree("HALF");
  EXPECT_EQ(DBE_NOT_FOUND, get_target_from_file(task, "HALF"));
}

TEST_F(TransactionsOfSeveralFiles, AFreshTaskAfterSuchADeathBringsMemoryBackToTheFile) {
  die_with_targets_open();
  ASSERT_FALSE(HasFatalFailure());
  client_task fresh("fresh");
  EXPECT_EQ(DBE_OK, get_target(fresh, "A"));
  expect_memory_and_file_agree("A");
  expect_memory_and_file_agree("HALF");
  EXPECT_EQ(DBE_NOT_FOUND, get_target(task, "HALF"));
}

TEST_F(TransactionsOfSeveralFiles, AFreshTaskOfClassZeroLeavesTheRebuildToTheNextCallOfClassOne) {
  die_with_targets_open();
  ASSERT_FALSE(HasFatalFailure());
  client_task fresh("fresh");
  char config[100];
  EXPECT_EQ(DBE_OK, db_get(fresh, DB_CFG, 0, nullptr, config, sizeof config));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
  EXPECT_EQ(DBE_NOT_FOUND, get_target(task, "HALF"));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
  expect_memory_and_file_agree("A");
}

TEST_F(TransactionsOfSeveralFiles, AWriterBesideTheOpenOneIsRefusedAndMemoryStaysTrue) {
  client_task own("own");
  ASSERT_TRUE(leave_targets_open(own));
  EXPECT_EQ(DBE_IO_ERROR, put_target(task, "B"));
  expect_memory_and_file_agree("B");
  ASSERT_EQ(DBE_OK, db_rollback(own, DB_TRG));
  expect_memory_and_file_agree("HALF");
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  expect_memory_and_file_agree("B");
}

TEST_F(TransactionsOfSeveralFiles, ATaskThatEndsWithTheOpenOneBringsMemoryBackToTheFile) {
  client_task own("own");
  ASSERT_TRUE(leave_targets_open(own));
  own.end();
  expect_memory_and_file_agree("HALF");
  EXPECT_EQ(DBE_NOT_FOUND, get_target(task, "HALF"));
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
}

TEST_F(TransactionsOfSeveralFiles, ASecondTaskOfTheThreadIsRefusedInsteadOfWaitingForItself) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  client_task second("second");
  EXPECT_EQ(DBE_INIT_FAILED, get_target(second, "A"));
  EXPECT_EQ(nullptr, second.tcb());
  EXPECT_TRUE(task.owns_memory());
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_EQ(DBE_OK, get_target(second, "B"));
}

}  // namespace
}  // namespace zvrdb::frame
