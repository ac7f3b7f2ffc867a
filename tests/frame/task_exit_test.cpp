// The end of a task: files closed, transactions undone, semaphores given back.
#include "frame/frame_fixture.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::get_target_from_file;
using zvrtest::put_target;

class TaskExit : public zvrtest::FrameTest {};

TEST_F(TaskExit, TheFilesOfATaskAreClosedWhenItEnds) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    ASSERT_EQ(DBE_OK, get_target(ends, "A"));
    for (const iocb& block : stays.cntl()->files) EXPECT_EQ(2, block.use_count) << block.name;
  }
  for (const iocb& block : stays.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
  EXPECT_EQ(DBE_OK, put_target(stays, "B"));
}

TEST_F(TaskExit, AnOpenTransactionIsRolledBackAndTheSemaphoreComesBack) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    ASSERT_EQ(DBE_OK, db_start_trans(ends, DB_TRG));
    ASSERT_EQ(DBE_OK, put_target(ends, "HALF"));
  }
  EXPECT_EQ(DBE_NOT_FOUND, get_target(stays, "HALF"));
  EXPECT_EQ(1u, stays.cntl()->shm_generation);
  EXPECT_EQ(0u, zvrtest::logged(stays, 36356));
  EXPECT_EQ(1, stays.cntl()->files[1].use_count);
  EXPECT_EQ(DBE_OK, put_target(stays, "B"));
}

TEST_F(TaskExit, AfterItsRollbackACallOfClassZeroWaitsForNobody) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    ASSERT_EQ(DBE_OK, db_start_trans(ends, DB_TRG));
    ASSERT_EQ(DBE_OK, put_target(ends, "HALF"));
    ASSERT_EQ(DBE_OK, zvrtest::delete_target(ends, "A"));
  }
  co_test_delay_factor(0, 1);
  const std::uint64_t before = co_test_delayed();
  char config[100];
  EXPECT_EQ(DBE_OK, db_get(stays, DB_CFG, 0, nullptr, config, sizeof config));
  EXPECT_EQ(before, co_test_delayed());
  co_test_delay_factor(1, 1);
  // Built once, by the task that ended.
  EXPECT_EQ(1u, stays.tcb()->shm_generation);
  EXPECT_EQ(2u, zvrtest::logged(stays, 36359));
  EXPECT_EQ(DBE_OK, get_target(stays, "A"));
  EXPECT_EQ(DBE_OK, get_target_from_file(stays, "A"));
  EXPECT_EQ(DBE_NOT_FOUND, get_target(stays, "HALF"));
  EXPECT_EQ(2u, zvrtest::logged(stays, 36359));
  EXPECT_EQ(1u, zvrtest::segments_in(co_shared_folder(stays)));
  for (const iocb& block : stays.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
}

TEST_F(TaskExit, AnOpenTransactionWithoutChangesRaisesNoGeneration) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    ASSERT_EQ(DBE_OK, db_start_trans(ends, DB_TRG));
  }
  EXPECT_EQ(DBE_OK, get_target(stays, "A"));
  EXPECT_EQ(0u, stays.cntl()->shm_generation);
}

TEST_F(TaskExit, ATaskThatEndsInsideAWriteOfItsOwnGivesEverythingBack) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    ASSERT_EQ(DBE_OK, dbr_in(ends, operation::write, DB_TRG));
  }
  // The mark of the write stands: what it did in memory is not known.
  EXPECT_EQ(DBE_OK, get_target(stays, "A"));
  EXPECT_EQ(1u, stays.cntl()->shm_generation);
  EXPECT_EQ(1, stays.cntl()->files[1].use_count);
}

TEST_F(TaskExit, ATaskThatEndsInsideTheStatusPairGivesTheSemaphoreBack) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    unsigned char status[4];
    ASSERT_EQ(DBE_OK, db_get_trg_stat(ends, "A", status));
  }
  EXPECT_EQ(DBE_OK, get_target(stays, "A"));
  EXPECT_EQ(0u, stays.cntl()->shm_generation);
}

TEST_F(TaskExit, ATaskWithoutACallHasNothingToClose) {
  client_task idle("idle");
  das_exit(idle, 7);
  EXPECT_EQ(nullptr, idle.tcb());
}

TEST_F(TaskExit, ATaskThatEndsInsideACallOfClassZeroClosesItsFiles) {
  client_task stays("stays");
  ASSERT_EQ(DBE_OK, put_target(stays, "A"));
  {
    client_task ends("ends");
    ASSERT_EQ(DBE_OK, dbr_in(ends, operation::read, DB_CFG));
  }
  EXPECT_EQ(1, stays.cntl()->files[0].use_count);
  char buffer[10];
  EXPECT_EQ(DBE_OK, db_get(stays, DB_CFG, 0, nullptr, buffer, sizeof buffer));
}

TEST_F(TaskExit, WhatWasAcknowledgedIsThereInTheNextTask) {
  {
    client_task first("first");
    ASSERT_EQ(DBE_OK, put_target(first, "A"));
  }
  client_task second("second");
  EXPECT_EQ(DBE_OK, get_target_from_file(second, "A"));
}

TEST_F(TaskExit, AForkedChildLeavesItsParentsTaskAlone) {
  client_task task("parent");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  zvrtest::child_process child([](zvrtest::parent_link&) {
    void* own = co_init_task("child", nullptr, 0);
    const bool good = own && put_target(own, "B") == DBE_OK && get_target_from_file(own, "A") == DBE_OK;
    if (own) coi_term_task(own, 0);
    return good ? 0 : 1;
  });
  EXPECT_EQ(0, child.finish());
  EXPECT_EQ(DBE_OK, get_target_from_file(task, "B"));
  EXPECT_EQ(DBE_OK, put_target(task, "C"));
  EXPECT_EQ(1, task.cntl()->files[1].use_count);
}

}  // namespace
}  // namespace zvrdb::frame
