// The record files when the system below the storage engine answers as it rarely does:
// permissions refused, owners that end at the right moment, a full disk.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>

#include "engine/format.h"
#include "engine/os_file.h"
#include "recfile/child_process.h"
#include "recfile/record_files_fixture.h"
#include "support/journal_mode.h"

namespace zvrdb::recfile {
namespace {

using zvrtest::find_target;
using zvrtest::write_target;

// Waits pass at once as long as it lives; they are counted all the same.
class no_waiting {
 public:
  no_waiting() : before_(co_test_delayed()) { co_test_delay_factor(0, 1); }
  ~no_waiting() { co_test_delay_factor(1, 1); }
  std::uint64_t asked() const { return co_test_delayed() - before_; }

 private:
  std::uint64_t before_;
};

// What the operations of a test answer beside the real ones.
bool disk_is_full = false;
std::uint64_t first_slot_busy_until = 0;  // until so much waiting was asked for it is somebody's
std::atomic<std::thread::id> held_thread{};
std::atomic<bool> search_held{false};

std::int64_t write_unless_full(int file, std::uint64_t offset, const void* from, std::size_t n) {
  return disk_is_full ? 0 : engine::linux_ops.write_at(file, offset, from, n);
}

bool is_busy_slot(std::uint64_t offset) {
  return offset == engine::slot_bytes && co_test_delayed() < first_slot_busy_until;
}
int probe_with_busy_slot(int file, std::uint64_t offset) {
  return is_busy_slot(offset) ? 1 : engine::linux_ops.probe(file, offset);
}

// Holds the thread of that name until somebody asks for a wait.
engine::lock_answer lock_and_hold(int file, std::uint64_t offset, std::uint64_t length) {
  if (is_busy_slot(offset)) return engine::lock_answer::busy;
  if (held_thread.load() == std::this_thread::get_id()) {
    held_thread = std::thread::id();
    const std::uint64_t before = co_test_delayed();
    search_held = true;
    // The bound is for a test that fails: nobody waits then, and nobody must hang.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (co_test_delayed() == before && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  }
  return engine::linux_ops.lock(file, offset, length);
}

engine::os_ops operations_of_the_tests() {
  engine::os_ops ops = engine::linux_ops;
  ops.write_at = write_unless_full;
  ops.probe = probe_with_busy_slot;
  ops.lock = lock_and_hold;
  ops.map = nullptr;   // so that each search locks
  return ops;
}
const engine::os_ops test_ops = operations_of_the_tests();

class StorageSeams : public ::testing::Test {
 protected:
  StorageSeams() {
    disk_is_full = false;
    first_slot_busy_until = 0;
    engine::set_os_ops(&test_ops);
  }
  ~StorageSeams() override { engine::set_os_ops(nullptr); }
  std::string path(const char* name) const { return installation.base() + "/db/" + name; }
  zvrdb::test::TempInstallation installation;
};

// From here on this process may change no file's permissions.
bool forbid_changes_of_permissions() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fchmod, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog filter{sizeof program / sizeof program[0], program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(StorageSeams, ANewFileThatCannotGetItsPermissionsIsRemovedAgain) {
  zvrtest::child_process child([this](zvrtest::parent_link&) {
    zvrtest::file_task files("permissions");
    if (!forbid_changes_of_permissions()) return 1;
    if (files.open() != DBE_IO_ERROR) return 2;
    if (access(path("userreq").c_str(), F_OK) == 0) return 3;
    const file_entry& entry = files.tcb()->files[0];
    if (entry.psp || entry.iocb || files.cntl()->files[0].use_count != 0) return 4;
    return files.tcb()->req_file ? 5 : 0;
  });
  EXPECT_EQ(0, child.finish());
  zvrtest::file_task files("next");
  EXPECT_EQ(0, files.open());
}

TEST_F(StorageSeams, ATransactionWhoseOwnerEndsInTheWaitIsRolledBack) {
  // With a journal the file has nothing of it yet.
  const test::without_journals literal;
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    zvrtest::file_task own("owner");
    if (own.open() != 0) return 1;
    if (start_trans(own.task(), 4) != DBE_OK || write_target(own, 5) != DBE_OK) return 2;
    parent.die();
  });
  ASSERT_EQ(1000 + SIGKILL, child.finish());
  zvrtest::file_task files("opener");
  const no_waiting waits;
  first_slot_busy_until = co_test_delayed() + 1;
  EXPECT_EQ(0, files.open());
  EXPECT_EQ(60000u, waits.asked());
  EXPECT_EQ(DBE_NOT_FOUND, find_target(files, 5));
  EXPECT_EQ(DBE_OK, write_target(files, 5));
}

TEST_F(StorageSeams, AnExactSearchBesideAnotherOneWaitsOnceAndGoesOn) {
  zvrtest::file_task files("first");
  ASSERT_EQ(0, files.open());
  ASSERT_EQ(DBE_OK, write_target(files, 5));
  files.release();
  const no_waiting waits;
  std::atomic<bool> second_is_open{false};
  std::int16_t second_found = -1;
  std::thread second([&] {
    zvrtest::file_task own("second");
    const bool opened = own.open() == 0;
    second_is_open = true;
    while (!search_held) std::this_thread::yield();
    if (opened) second_found = find_target(own, 5);
  });
  while (!second_is_open) std::this_thread::yield();
  const std::uint64_t before = waits.asked();
  EXPECT_EQ(DBE_OK, find_target(files, 5));
  EXPECT_EQ(before, waits.asked()) << "a search alone does not wait";
  held_thread = std::this_thread::get_id();
  EXPECT_EQ(DBE_OK, find_target(files, 5));
  second.join();
  EXPECT_EQ(DBE_OK, second_found);
  EXPECT_EQ(before + 500, waits.asked());
}

TEST_F(StorageSeams, ACloseThatFailsIsToldAndClosesAllTheSame) {
  zvrtest::file_task files("full");
  ASSERT_EQ(0, files.open());
  ASSERT_EQ(DBE_OK, write_target(files, 5));
  disk_is_full = true;
  EXPECT_EQ(DBE_IO_ERROR, db_close(files.task(), files.tcb()->trg_file));
  disk_is_full = false;
  EXPECT_EQ(1u, zvrtest::logged(files.task(), 36437));
  const file_entry& entry = files.tcb()->files[1];
  EXPECT_EQ(nullptr, entry.psp);
  EXPECT_EQ(nullptr, entry.iocb);
  EXPECT_EQ(0, files.cntl()->files[1].use_count);
  file_entry* again = nullptr;
  EXPECT_EQ(DBE_OK, db_open(files.task(), 4, &again));
  EXPECT_EQ(DBE_OK, find_target(files, 5));
}

TEST_F(StorageSeams, ATransactionThatCannotBeginOnAFreshHandleEitherIsNotActive) {
  zvrtest::file_task files("full");
  ASSERT_EQ(0, files.open());
  disk_is_full = true;
  files.tcb()->start_trans_id = 4;
  EXPECT_EQ(DBE_IO_ERROR, start_trans(files.task(), 4));
  disk_is_full = false;
  EXPECT_EQ(0, files.tcb()->trans_active[4]);
  EXPECT_EQ(0u, files.tcb()->trans_in_prog[1]);
  // The close of the stale handle failed and was returned; the handle is opened anew by
  // the next attempt.
  EXPECT_EQ(DBE_OK, start_trans(files.task(), 4));
  EXPECT_EQ(1u, files.tcb()->trans_in_prog[1]);
  EXPECT_EQ(DBE_OK, commit(files.task(), 4));
}

}  // namespace
}  // namespace zvrdb::recfile
