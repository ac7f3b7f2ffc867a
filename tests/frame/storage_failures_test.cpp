// Writes that fail, and processes killed right before a write of their choice.
#include <zvrdb/zvrdb.h>

#include "engine/os_file.h"
#include "frame/frame_fixture.h"
#include "recfile/recfile.h"
#include "support/journal_mode.h"

namespace zvrdb::frame {
namespace {

using zvrtest::child_process;
using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::get_target_from_file;
using zvrtest::logged;
using zvrtest::parent_link;
using zvrtest::put_target;

// Counts writes down from when it is armed; at 0 the write fails, or the process dies
// before it.
int writes_left = -1;
bool die_there = false;
std::int64_t planned_write(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (writes_left == 0) {
    if (die_there) kill(getpid(), SIGKILL);
    return 0;
  }
  if (writes_left > 0) --writes_left;
  return engine::linux_ops.write_at(file, offset, from, n);
}

engine::os_ops with_planned_writes() {
  engine::os_ops ops = engine::linux_ops;
  ops.write_at = planned_write;
  return ops;
}
const engine::os_ops planned_ops = with_planned_writes();

class StorageFailures : public zvrtest::FrameTest {
 protected:
  StorageFailures() {
    writes_left = -1;
    die_there = false;
    engine::set_os_ops(&planned_ops);
  }
  ~StorageFailures() override { engine::set_os_ops(nullptr); }
};

TEST_F(StorageFailures, ACommitThatFailsEndsTheTransactionAndReleasesTheSemaphore) {
  {
    client_task task("commit");
    ASSERT_EQ(DBE_OK, put_target(task, "A"));
    ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
    ASSERT_EQ(DBE_OK, put_target(task, "B"));
    writes_left = 0;
    EXPECT_EQ(DBE_IO_ERROR, db_commit(task, DB_TRG));
    writes_left = -1;
    EXPECT_EQ(1u, logged(task, 36450));
    EXPECT_FALSE(task.owns_memory());
    EXPECT_EQ(0u, task.tcb()->trans_in_prog[1]);
    EXPECT_EQ(0, task.tcb()->trans_active[DB_TRG]);
    // It keeps its name, but an internal transaction does not take over the semaphore.
    EXPECT_EQ(static_cast<std::uint32_t>(DB_TRG), task.tcb()->start_trans_id);
    EXPECT_EQ(DBE_OK, db_start_trans(task, DB_RQR));
    EXPECT_EQ(DBE_OK, db_commit(task, DB_RQR));
    EXPECT_FALSE(task.owns_memory());
    // Memory follows what the file will hold.
    EXPECT_EQ(1u, task.cntl()->shm_generation);
  }
  client_task next("next");
  EXPECT_EQ(DBE_OK, get_target_from_file(next, "A"));
  EXPECT_EQ(DBE_NOT_FOUND, get_target(next, "B"));
}

TEST_F(StorageFailures, AFullDiskIsOverWhenItIsOverForTheTasksThatMetIt) {
  client_task task("full");
  client_task beside("beside");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  ASSERT_EQ(DBE_OK, get_target(beside, "A"));
  for (int n = 0; n < 12; ++n) {
    writes_left = n;
    const std::int16_t rc = put_target(task, "B");
    EXPECT_TRUE(rc == DBE_IO_ERROR || rc == DBE_OK || rc == DBE_RECORD_REPLACED) << n << " " << rc;
    writes_left = 0;
    EXPECT_EQ(DBE_IO_ERROR, put_target(task, "C")) << n;
    writes_left = -1;
    EXPECT_EQ(n == 0 ? DBE_OK : DBE_RECORD_REPLACED, put_target(task, "D")) << n;
    EXPECT_EQ(DBE_RECORD_REPLACED, put_target(beside, "A")) << n;
    EXPECT_EQ(DBE_OK, get_target_from_file(beside, "D")) << n;
    EXPECT_EQ(DBE_NOT_FOUND, get_target(beside, "C")) << n;
    EXPECT_EQ(2, task.cntl()->files[1].use_count) << n;
  }
}

TEST_F(StorageFailures, ARollbackThatFailsAtAnyWriteLeavesMemoryAndFileTheSame) {
  client_task task("rollback");
  client_task beside("beside");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  bool passed = false;
  int failures = 0;
  for (int n = 0; n < 200 && !passed; ++n) {
    ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG)) << n;
    const std::int16_t put = put_target(task, "B");
    EXPECT_TRUE(put == DBE_OK || put == DBE_RECORD_REPLACED) << n << " " << put;
    ASSERT_EQ(DBE_RECORD_REPLACED, put_target(task, "A")) << n;
    writes_left = n;
    const std::int16_t rc = db_rollback(task, DB_TRG);
    passed = writes_left > 0;
    writes_left = -1;
    EXPECT_TRUE(rc == DBE_OK || rc == DBE_IO_ERROR) << n << " " << rc;
    if (rc != DBE_OK) ++failures;
    EXPECT_FALSE(task.owns_memory()) << n;
    for (void* reader : {static_cast<void*>(task), static_cast<void*>(beside)})
      for (const char* name : {"A", "B"})
        EXPECT_EQ(get_target(reader, name), get_target_from_file(reader, name)) << n << " " << name;
    // The one beside meets the file as the failure left it.
    if (n % 2 == 0) {
      EXPECT_EQ(DBE_OK, zvrtest::delete_target(beside, "A")) << n;
    }
    EXPECT_EQ(n % 2 == 0 ? DBE_OK : DBE_RECORD_REPLACED, put_target(beside, "A")) << n;
  }
  EXPECT_TRUE(passed);
  EXPECT_GT(failures, 0);
}

TEST_F(StorageFailures, ATaskWhoseLastRollbackFailsAtAnyWriteLeavesMemoryAndFileTheSame) {
  client_task beside("beside");
  ASSERT_EQ(DBE_OK, put_target(beside, "A"));
  bool passed = false;
  for (int n = 0; n < 100 && !passed; ++n) {
    client_task task("ends");
    ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG)) << n;
    const std::int16_t put = put_target(task, "B");
    EXPECT_TRUE(put == DBE_OK || put == DBE_RECORD_REPLACED) << n << " " << put;
    ASSERT_EQ(DBE_RECORD_REPLACED, put_target(task, "A")) << n;
    writes_left = n;
    task.end();
    passed = writes_left > 0;
    writes_left = -1;
    for (const char* name : {"A", "B"})
      EXPECT_EQ(get_target(beside, name), get_target_from_file(beside, name)) << n << " " << name;
    for (const iocb& block : beside.cntl()->files) EXPECT_EQ(1, block.use_count) << n << " " << block.name;
    EXPECT_EQ(DBE_RECORD_REPLACED, put_target(beside, "A")) << n;
  }
  EXPECT_TRUE(passed);
}

TEST_F(StorageFailures, AFailedFlushOnTheWayOutDoesNotChangeTheResult) {
  client_task task("flush");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::write, DB_TRG));
  writes_left = 0;
  dbr_out(task, operation::write, DB_TRG, DBE_OK);
  writes_left = -1;
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(1u, logged(task, 36437));
}

unsigned open_descriptors() {
  unsigned count = 0;
  DIR* listing = opendir("/proc/self/fd");
  while (listing && readdir(listing)) ++count;
  if (listing) closedir(listing);
  return count;
}

TEST_F(StorageFailures, ACloseThatFailsIsToldAndLetsGoOfTheFileAllTheSame) {
  client_task task("close");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  const unsigned descriptors = open_descriptors();
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::read, DB_DTG));
  file_entry* handle = task.tcb()->dtg_file;
  writes_left = 0;
  EXPECT_EQ(DBE_IO_ERROR, recfile::db_close(task, handle));
  writes_left = -1;
  dbr_out(task, operation::read, DB_DTG, DBE_IO_ERROR);
  EXPECT_EQ(1u, logged(task, 36437));
  EXPECT_EQ(nullptr, handle->iocb);
  EXPECT_EQ(nullptr, handle->psp);
  EXPECT_EQ(0u, handle->use_count);
  EXPECT_EQ(0, task.cntl()->files[8].use_count);
  EXPECT_EQ(descriptors - (test::journals_on() ? 2 : 1), open_descriptors());
  // A task that lives on opens it again.
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_NE(nullptr, handle->iocb);
  EXPECT_EQ(1, task.cntl()->files[8].use_count);
}

TEST_F(StorageFailures, ATaskWhoseFilesCannotBeClosedLetsGoOfThemAll) {
  client_task beside("beside");
  ASSERT_EQ(DBE_OK, put_target(beside, "A"));
  const unsigned descriptors = open_descriptors();
  {
    client_task task("ends");
    ASSERT_EQ(DBE_OK, get_target(task, "A"));
    writes_left = 0;
  }
  writes_left = -1;
  EXPECT_EQ(9u, logged(beside, 36437));
  EXPECT_EQ(descriptors, open_descriptors());
  for (const iocb& block : beside.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
  EXPECT_EQ(DBE_OK, put_target(beside, "B"));
  client_task next("next");
  EXPECT_EQ(DBE_OK, get_target_from_file(next, "B"));
}

TEST_F(StorageFailures, APutThatFailsAtAnyWriteIsACleanCodeAndThereAfterwardsWholeOrNot) {
  bool passed = false;
  int failures = 0;
  for (int n = 0; n < 400 && !passed; ++n) {
    char name[16];
    std::snprintf(name, sizeof name, "N%03d", n);
    std::int16_t rc;
    {
      client_task task("failing");
      ASSERT_EQ(DBE_NO_TARGET, [&] {
        std::uint32_t number;
        return db_get_trg_index(task, name, &number);
      }());
      writes_left = n;
      rc = put_target(task, name);
      passed = writes_left > 0;
      writes_left = -1;
      EXPECT_FALSE(task.owns_memory()) << n;
      EXPECT_FALSE(task.inside()) << n;
    }
    EXPECT_TRUE(rc == DBE_OK || rc == DBE_IO_ERROR) << n << " " << rc;
    if (rc != DBE_OK) ++failures;
    client_task task("checking");
    const std::int16_t found = get_target_from_file(task, name);
    if (rc == DBE_OK) {
      EXPECT_EQ(DBE_OK, found) << n;
    } else {
      EXPECT_TRUE(found == DBE_OK || found == DBE_NOT_FOUND) << n << " " << found;
    }
  }
  EXPECT_TRUE(passed);
  // With a journal: the groups of the call, which are one write.  What fails behind the commit is repaired.
  EXPECT_GE(failures, test::journals_on() ? 1 : 6);
}

// A process is killed before its nth write; another one, alive all the time, goes on.
class KilledBeforeAWrite : public StorageFailures {
 protected:
  // The number of writes that the work takes is told by the child when it is done.
  bool kill_before(int n, const std::function<void(void* task)>& work, bool* acknowledged) {
    child_process child([n, &work](parent_link& parent) {
      engine::set_os_ops(&planned_ops);
      void* own = co_init_task("victim", nullptr, 0);
      std::uint32_t number;
      if (!own || db_get_trg_index(own, "A", &number) != DBE_OK) return 1;
      die_there = true;
      writes_left = n;
      work(own);
      parent.reached();
      writes_left = -1;
      die_there = false;
      return 0;
    });
    *acknowledged = child.next() == 1;
    const int status = child.finish();
    EXPECT_TRUE(status == 0 || status == 1000 + SIGKILL) << status;
    return status == 1000 + SIGKILL;
  }
};

TEST_F(KilledBeforeAWrite, APutIsThereWholeOrNotAtAllAndTheInstallationGoesOn) {
  client_task live("live");
  ASSERT_EQ(DBE_OK, put_target(live, "A"));
  bool killed = true;
  int n = 0;
  for (; n < 400 && killed; ++n) {
    char name[16];
    std::snprintf(name, sizeof name, "N%03d", n);
    bool acknowledged = false;
    killed = kill_before(
        n, [&name](void* own) { put_target(own, name); }, &acknowledged);
    ASSERT_EQ(DBE_OK, get_target_from_file(live, "A")) << n;
    const std::int16_t in_memory = get_target(live, name);
    const std::int16_t in_file = get_target_from_file(live, name);
    EXPECT_EQ(in_memory, in_file) << n;
    EXPECT_TRUE(in_memory == DBE_OK || in_memory == DBE_NOT_FOUND) << n;
    if (acknowledged) {
      EXPECT_EQ(DBE_OK, in_memory) << n;
    }
    EXPECT_EQ(DBE_RECORD_REPLACED, put_target(live, "A")) << n;
    if (killed) {
      EXPECT_EQ(1, live.cntl()->files[1].use_count) << n;
    }
    char reason[200] = {};
    ASSERT_TRUE(memory::tables_sound(live, reason, sizeof reason)) << n << " " << reason;
  }
  EXPECT_FALSE(killed);
  // All of them writes of the put: the open before it makes none.  With a journal its groups are one.
  EXPECT_GE(n, test::journals_on() ? 7 : 10);
}

TEST_F(KilledBeforeAWrite, AnAcknowledgedTransactionIsThereWholeAndTheInstallationGoesOn) {
  client_task live("live");
  ASSERT_EQ(DBE_OK, put_target(live, "A"));
  bool killed = true;
  int n = 0;
  for (; n < 600 && killed; ++n) {
    char first[16];
    char second[16];
    std::snprintf(first, sizeof first, "F%03d", n % 40);
    std::snprintf(second, sizeof second, "S%03d", n % 40);
    bool acknowledged = false;
    killed = kill_before(
        n,
        [&](void* own) {
          db_start_trans(own, DB_TRG);
          put_target(own, first);
          put_target(own, second);
          db_commit(own, DB_TRG);
        },
        &acknowledged);
    const std::int16_t one = get_target_from_file(live, first);
    const std::int16_t two = get_target_from_file(live, second);
    if (acknowledged) {
      EXPECT_EQ(DBE_OK, one) << n;
      EXPECT_EQ(DBE_OK, two) << n;
    }
    EXPECT_EQ(one, get_target(live, first)) << n;
    EXPECT_EQ(two, get_target(live, second)) << n;
    EXPECT_EQ(DBE_RECORD_REPLACED, put_target(live, "A")) << n;
    zvrtest::delete_target(live, first);
    zvrtest::delete_target(live, second);
  }
  EXPECT_FALSE(killed);
  EXPECT_GT(n, test::journals_on() ? 8 : 20);
}

}  // namespace
}  // namespace zvrdb::frame
