// The table of targets when the record file cannot be written.
#include <cerrno>

#include "engine/os_file.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

bool disk_is_full = false;

std::int64_t write_unless_full(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (disk_is_full) {
    errno = ENOSPC;
    return -1;
  }
  return zvrdb::engine::linux_ops.write_at(file, offset, from, n);
}

class StorageFailure : public TargetsTest {
 protected:
  void SetUp() override {
    disk_is_full = false;
    operations = zvrdb::engine::linux_ops;
    operations.write_at = write_unless_full;
    zvrdb::engine::set_os_ops(&operations);
    TargetsTest::SetUp();
  }
  void TearDown() override {
    disk_is_full = false;
    TargetsTest::TearDown();
    zvrdb::engine::set_os_ops(nullptr);
  }
  // A new task opens the file anew and finds it as the failed write left it.
  void recover() {
    disk_is_full = false;
    new_task();
  }
  zvrdb::engine::os_ops operations;
};

TEST_F(StorageFailure, ANewTargetThatCannotBeWrittenIsNotInTheTable) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  disk_is_full = true;
  EXPECT_EQ(put(Record("B").type(local | server).mode(focal_point)), DBE_IO_ERROR);
  expect_sound();
  EXPECT_EQ(index_rc("B"), DBE_NO_TARGET);
  EXPECT_EQ(cntl()->num_trgs_actual, 1u);
  EXPECT_EQ(cntl()->num_ltrg_actual, 0u);
  EXPECT_EQ(cntl()->num_srv_actual, 0u);
  EXPECT_EQ(static_cast<std::uint32_t*>(co_croca(task, CO_AREA_FOCAL_POINTS))[1], 0u);
  recover();
  EXPECT_EQ(get("A").rc, DBE_OK);
  EXPECT_EQ(put(Record("B")), DBE_OK);
  EXPECT_EQ(get("B").rc, DBE_OK);
}

TEST_F(StorageFailure, AReplacementThatCannotBeWrittenChangesNothing) {
  ASSERT_EQ(put(Record("A").type(local | client).description("old").ren("1")), DBE_OK);
  disk_is_full = true;
  EXPECT_EQ(put(Record("A").type(local | client).description("new").ren("2")), DBE_IO_ERROR);
  EXPECT_EQ(get("A", 192).record.text_at(64, 60), "old");
  EXPECT_EQ(cntl()->num_ltrg_actual, 1u);
  recover();
  EXPECT_EQ(get("A").record.text_at(64, 60), "old");
}

TEST_F(StorageFailure, ATargetThatCannotBeDeletedStays) {
  ASSERT_EQ(put(Record("A").mode(focal_point)), DBE_OK);
  disk_is_full = true;
  EXPECT_EQ(del("A"), DBE_IO_ERROR);
  EXPECT_EQ(get("A", 192).rc, DBE_OK);
  EXPECT_EQ(static_cast<std::uint32_t*>(co_croca(task, CO_AREA_FOCAL_POINTS))[1], 1u);
  recover();
  EXPECT_EQ(get("A").rc, DBE_OK);
  EXPECT_EQ(del("A"), DBE_OK);
}

TEST_F(StorageFailure, ARenameThatCannotBeWrittenHoldsUntilTheTableIsBuiltAnew) {
  ASSERT_EQ(put(Record("OLD")), DBE_OK);
  disk_is_full = true;
  EXPECT_EQ(db_rename_trg(task, "OLD", "NEW"), DBE_IO_ERROR);
  EXPECT_EQ(get("NEW", 192).rc, DBE_OK) << "the table stays renamed";
  recover();
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get("OLD", 192).rc, DBE_OK);
}

}  // namespace
}  // namespace target_test
