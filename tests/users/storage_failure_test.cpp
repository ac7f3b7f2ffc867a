// Groups when a record file cannot be written.
#include <cerrno>

#include "engine/format.h"
#include "engine/os_file.h"
#include "users/users_fixture.h"

namespace users_test {
namespace {

constexpr int no_failure = -1;
int operations_left = no_failure;

// The disk is full for good from the begin of the write operation behind so many of them.
engine::lock_answer counted_lock(int file, std::uint64_t offset, std::uint64_t length) {
  if (offset == engine::arbiter_byte && operations_left > 0) --operations_left;
  return engine::linux_ops.lock(file, offset, length);
}
std::int64_t write_until_full(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (operations_left == 0) {
    errno = ENOSPC;
    return -1;
  }
  return engine::linux_ops.write_at(file, offset, from, n);
}

class StorageFailure : public UsersTest {
 protected:
  void SetUp() override {
    operations_left = no_failure;
    operations = engine::linux_ops;
    operations.write_at = write_until_full;
    operations.lock = counted_lock;
    engine::set_os_ops(&operations);
    UsersTest::SetUp();
  }
  void TearDown() override {
    operations_left = no_failure;
    UsersTest::TearDown();
    engine::set_os_ops(nullptr);
  }
  // Fails the first, the second and later write operation of the work, until it has enough
  // of them; each time the counts must be those of the files once the disk has room again.
  void fail_each_operation(const std::function<void()>& work) {
    for (int enough = 1;; ++enough) {
      SCOPED_TRACE(numbered("the disk is full from write operation ", static_cast<unsigned>(enough)));
      ASSERT_LT(enough, 100);
      operations_left = enough;
      work();
      const bool over = operations_left > 1;
      operations_left = no_failure;
      new_task();
      ASSERT_EQ(index_rc(""), DBE_NO_TARGET);
      expect_counts(groups_in_file(DB_TG), groups_in_file(DB_DTG));
      if (over || HasFailure()) return;
    }
  }
  engine::os_ops operations{};
};

TEST_F(StorageFailure, APutThatFailsAtAnyWriteOperationLeavesTheCountsRight) {
  ASSERT_EQ(store(group("G")), DBE_RECORD_REPLACED);
  fail_each_operation([&] {
    const int rc = store(dynamic_group("NEW"));
    EXPECT_TRUE(rc == DBE_RECORD_REPLACED || rc == DBE_IO_ERROR) << rc;
    if (rc == DBE_IO_ERROR) return;
    const int dropped = drop(DB_DTG, "NEW");
    EXPECT_TRUE(dropped == DBE_OK || dropped == DBE_IO_ERROR) << dropped;
  });
}

TEST_F(StorageFailure, ARollBackThatFailsAtAnyWriteOperationLeavesTheCountsRight) {
  ASSERT_EQ(store(group("OLD")), DBE_RECORD_REPLACED);
  fail_each_operation([&] {
    if (db_start_trans(task, DB_TG) != DBE_OK) return;
    store(group("NEW"));
    drop(DB_TG, "OLD");
    db_rollback(task, DB_TG);
  });
}

TEST_F(StorageFailure, ACommitThatFailsAtAnyWriteOperationLeavesTheCountsRight) {
  ASSERT_EQ(store(group("OLD")), DBE_RECORD_REPLACED);
  fail_each_operation([&] {
    if (db_start_trans(task, DB_TG) != DBE_OK) return;
    store(group("NEW"));
    drop(DB_TG, "NEW");
    store(group("LAST"));
    db_commit(task, DB_TG);
  });
}

}  // namespace
}  // namespace users_test
