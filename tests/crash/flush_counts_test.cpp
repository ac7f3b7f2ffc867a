// How often the disk is flushed by the calls of a client.
#include <gtest/gtest.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdlib>

#include "crash/crash_installation.h"
#include "crash/stored_records.h"
#include "engine/os_file.h"
#include "support/temp_installation.h"

namespace crash_test {
namespace {

int flushes = 0;

int counted_flush(int file) {
  ++flushes;
  return zvrdb::engine::linux_ops.flush(file);
}

class FlushCounts : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const char* chosen = std::getenv("ZVR_JOURNAL")) chosen_ = chosen;
    setenv("ZVR_JOURNAL", "on", 1);
    operations_ = zvrdb::engine::linux_ops;
    operations_.flush = counted_flush;
    zvrdb::engine::set_os_ops(&operations_);
    task_ = co_init_task("counts", nullptr, 0);
    ASSERT_NE(task_, nullptr);
    for (const char* name : {"LOCAL", "SRC", "SRV", "T1", "T2"}) ASSERT_TRUE(put_target(task_, name, "first"));
    for (const char* name : {"APP.ONE.REF.1", "APP.TWO.REF.1"}) ASSERT_TRUE(put_change_file(task_, name));
  }
  void TearDown() override {
    if (task_) coi_term_task(task_, 0);
    zvrdb::engine::set_os_ops(nullptr);
    if (chosen_.empty())
      unsetenv("ZVR_JOURNAL");
    else
      setenv("ZVR_JOURNAL", chosen_.c_str(), 1);
  }
  int of(const step& call) {
    const int before = flushes;
    EXPECT_TRUE(call(task_));
    return flushes - before;
  }
  zvrdb::test::TempInstallation place_;
  zvrdb::engine::os_ops operations_;
  void* task_ = nullptr;
  std::string chosen_;
};

TEST_F(FlushCounts, OnePutReplacementOrDeletionIsOne) {
  EXPECT_EQ(of([](void* t) { return put_target(t, "NEW", "new"); }), 1);
  EXPECT_EQ(of([](void* t) { return put_target(t, "NEW", "replaced"); }), 1);
  EXPECT_EQ(of([](void* t) { return del_target(t, "NEW"); }), 1);
}

TEST_F(FlushCounts, SoItIsWithRecordsOfFourPieces) {
  EXPECT_EQ(of([](void* t) { return put_shadow(t, "T1", 1000, 1); }), 1);
  EXPECT_EQ(of([](void* t) { return put_shadow(t, "T1", 1000, 2); }), 1);
  EXPECT_EQ(of([](void* t) { return del_shadow(t, "T1"); }), 1);
}

TEST_F(FlushCounts, AndWithAPairOfStatus) {
  EXPECT_EQ(of([](void* t) { return put_status(t, "T1", "APP.ONE.REF.1", 1); }), 1);
  EXPECT_EQ(of([](void* t) { return put_status(t, "T1", "APP.ONE.REF.1", 2); }), 1);
  EXPECT_EQ(of([](void* t) { return del_status(t, "T1", "APP.ONE.REF.1"); }), 1);
}

// But for the checkpoint, when the journal has come to its length.
TEST_F(FlushCounts, AnExplicitTransactionIsOne) {
  EXPECT_EQ(of([](void* t) {
              bool good = db_start_trans(t, DB_TRG) == DBE_OK;
              for (unsigned i = 0; i < 30; ++i) good = good && put_shadow(t, i % 2 ? "T1" : "T2", 10, i);
              return good && db_commit(t, DB_TRG) == DBE_OK;
            }),
            1);
  EXPECT_EQ(of([](void* t) {
              return db_start_trans(t, DB_TRG) == DBE_OK && put_target(t, "NEW", "undone") &&
                     db_rollback(t, DB_TRG) == DBE_OK;
            }),
            1);
}

// One for each file that has a part in it.
TEST_F(FlushCounts, WhatLiesInTwoFilesIsTwo) {
  ASSERT_TRUE(put_parameters(task_, "T1", 10, 1));
  ASSERT_TRUE(put_hardware(task_, "T1", 1));
  ASSERT_TRUE(put_status(task_, "T1", "APP.ONE.REF.1", 1));
  EXPECT_EQ(of([](void* t) { return del_target(t, "T1"); }), 2);
  ASSERT_TRUE(put_request(task_, 1));
  EXPECT_EQ(of([](void* t) { return del_request(t, 1); }), 2);
}

TEST_F(FlushCounts, LookingIsNone) {
  ASSERT_TRUE(put_shadow(task_, "T1", 1000, 1));
  EXPECT_EQ(of([](void* t) { return !observe(t).empty(); }), 0);
}

TEST_F(FlushCounts, AnInstallationInWhichNothingWasChangedIsOpenedAndClosedWithoutOne) {
  coi_term_task(task_, 0);
  const int before = flushes;
  for (int i = 0; i < 3; ++i) {
    task_ = co_init_task("again", nullptr, 0);
    ASSERT_NE(task_, nullptr);
    EXPECT_FALSE(observe(task_).empty());
    coi_term_task(task_, 0);
    task_ = nullptr;
  }
  EXPECT_EQ(flushes, before);
}

}  // namespace
}  // namespace crash_test
