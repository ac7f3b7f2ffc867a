// Several operations as one call: the same file, fewer calls of the system, and a failure in it
// leaves what an operation that fails leaves.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>

#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/faulty_os.h"
#include "engine/journal.h"
#include "engine/memory_disk.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/sample_files.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

constexpr char path[] = "/disk/file";

class HeldCall : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(120);
    mount_memory_disk(image());
    a_.journal = b_.journal = journal_use::on;
    ASSERT_EQ(a_.open_for_work(path), 0);
  }
  void TearDown() override {
    for (handle* h : {&a_, &b_}) {
      if (engine::checkpsp(*h) != 'O') continue;
      EXPECT_EQ(h->close(), 0);
    }
    unmount_memory_disk();
    alarm(0);
  }
  static disk_image image() {
    file_recipe recipe = sample_recipe(false, 30, 600);
    recipe.spare_nodes = 6;
    disk_image start;
    start[path] = {build_file(recipe).bytes, 5000};
    return start;
  }
  static void replace(handle* h, int i, std::size_t payload) {
    ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
    ASSERT_EQ(h->find_name(sample(i).name), 0);
    sample_record r = sample(i, payload);
    r.number = 4711;
    ASSERT_EQ(h->update(r), 0);
    ASSERT_EQ(engine::transend(*h, 1), 0);
  }
  static std::size_t writes_since(std::size_t from) {
    std::size_t n = 0;
    for (; from < disk_events().size(); from++) n += disk_events()[from].what == disk_event::kind::write;
    return n;
  }
  handle a_, b_;
};

TEST_F(HeldCall, LeavesTheFileThatItsOperationsLeaveAlone) {
  disk_bytes results[2];
  for (const bool held : {false, true}) {
    ASSERT_EQ(a_.close(), 0);
    mount_memory_disk(image());
    ASSERT_EQ(a_.open_for_work(path), 0);
    for (int i = 1; i <= 20; i++) {
      if (held) engine::begin_call(a_);
      replace(&a_, i, static_cast<std::size_t>(40 * i));
      ASSERT_EQ(a_.insert(sample(100 + i, 30)), 0);
      EXPECT_EQ(engine::end_call(a_), 0);
    }
    ASSERT_EQ(a_.close(), 0);
    results[held] = disk_now().at(path).bytes;
    ASSERT_EQ(a_.open_for_work(path), 0);
  }
  EXPECT_TRUE(results[0] == results[1]);
}

// Changes of records all over a file, each locked for it: with the lock in the file, with one that
// may stay out of it, and without a journal, where there is no call.
class LockForACall : public HeldCall {
 protected:
  enum class how { lock_in_file, lock_for_call, no_journal };
  disk_bytes work(how way, bool merges, int* unwritten) {
    EXPECT_EQ(a_.close(), 0);
    disk_image start;
    file_recipe recipe = sample_recipe(false, 150, 700, 500);
    recipe.spare_nodes = 3;
    start[path] = {build_file(recipe).bytes, 5000};
    mount_memory_disk(start);
    a_.journal = way == how::no_journal ? journal_use::off : journal_use::on;
    a_.options = merges ? unsigned{engine::option_merge} : 0u;
    EXPECT_EQ(a_.open_for_work(path), 0);
    for (int round = 0; round < 300 && !HasFailure(); round++) {
      const int i = 1 + round * 37 % 150;
      engine::begin_call(a_);
      EXPECT_EQ(engine::transbeg(a_, 3, nullptr), 0);
      if (a_.find_name(sample(i).name) != 0) {
        EXPECT_EQ(a_.insert(sample(i, static_cast<std::size_t>(round))), 0);
      } else {
        EXPECT_EQ(way == how::lock_for_call ? engine::dlock_for_call(a_) : engine::dlock(a_), 0);
        *unwritten += a_.get()->lock_unwritten;
        sample_record r = sample(i, static_cast<std::size_t>(round * 7 % 900));
        r.number += round;
        sample_fields fields(r);
        if (round % 3 == 0) {
          EXPECT_EQ(engine::ddelete(a_, fields.list), 0);
        } else {
          EXPECT_EQ(engine::dupdate(a_, fields.list), 0);
          EXPECT_EQ(engine::dunlock(a_), 0);
        }
      }
      EXPECT_EQ(engine::transend(a_, 1), 0);
      EXPECT_EQ(engine::end_call(a_), 0);
    }
    EXPECT_EQ(a_.close(), 0);
    disk_bytes bytes = disk_now().at(path).bytes;
    a_.options = 0;
    a_.journal = journal_use::on;
    EXPECT_EQ(a_.open_for_work(path), 0);
    return bytes;
  }
};

TEST_F(LockForACall, LeavesTheFileThatALockInTheFileLeaves) {
  for (const bool merges : {false, true}) {
    int unwritten[3] = {};
    const disk_bytes in_file = work(how::lock_in_file, merges, unwritten);
    const disk_bytes for_call = work(how::lock_for_call, merges, unwritten + 1);
    const disk_bytes without = work(how::no_journal, merges, unwritten + 2);
    EXPECT_TRUE(for_call == in_file);
    EXPECT_TRUE(for_call == without);
    EXPECT_EQ(unwritten[0], 0);
    EXPECT_GT(unwritten[1], 100) << "most stay out of the file";
    EXPECT_EQ(unwritten[2], 0);
  }
}

TEST_F(LockForACall, MeetsTheLockOfAnotherHandle) {
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(b_.find_name(sample(3).name), 0);
  ASSERT_EQ(engine::dlock(b_), 0);
  engine::begin_call(a_);
  ASSERT_EQ(a_.find_name(sample(3).name), 0);
  EXPECT_EQ(engine::dlock_for_call(a_), engine::e_locked_by_other);
  EXPECT_FALSE(a_.get()->lock_unwritten);
  EXPECT_EQ(engine::end_call(a_), 0);
  ASSERT_EQ(engine::dunlock(b_), 0);
}

TEST_F(LockForACall, TakesOverTheLockOfADeadHandle) {
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(b_.find_name(sample(3).name), 0);
  ASSERT_EQ(engine::dlock(b_), 0);
  engine::abandon(b_);
  engine::begin_call(a_);
  ASSERT_EQ(a_.find_name(sample(3).name), 0);
  EXPECT_EQ(a_.update(sample(3, 50)), 0);
  EXPECT_EQ(engine::end_call(a_), 0);
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(b_.find_name(sample(3).name), 0);
  EXPECT_EQ(b_.update(sample(3, 60)), 0);
}

TEST_F(LockForACall, EndsWithTheCallAtTheLatest) {
  ASSERT_EQ(b_.open_for_work(path), 0);
  engine::begin_call(a_);
  ASSERT_EQ(a_.find_name(sample(3).name), 0);
  ASSERT_EQ(engine::dlock_for_call(a_), 0);
  ASSERT_TRUE(a_.get()->lock_unwritten);
  EXPECT_EQ(engine::end_call(a_), 0);
  sample_fields fields(sample(3, 50));
  EXPECT_EQ(engine::dupdate(a_, fields.list), engine::e_lock_needed);
  ASSERT_EQ(b_.find_name(sample(3).name), 0);
  ASSERT_EQ(engine::dlock(b_), 0);
  EXPECT_EQ(engine::dupdate(b_, fields.list), 0);
  EXPECT_EQ(engine::dunlock(b_), 0);
}

TEST_F(LockForACall, OutsideACallStandsInTheFile) {
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(a_.find_name(sample(3).name), 0);
  ASSERT_EQ(engine::dlock_for_call(a_), 0);
  ASSERT_EQ(b_.find_name(sample(3).name), 0);
  EXPECT_EQ(engine::dlock(b_), engine::e_locked_by_other);
  ASSERT_EQ(engine::dunlock(a_), 0);
}

TEST_F(HeldCall, WritesTheGroupsOfItsOperationsAtOnce) {
  replace(&a_, 1, 20);
  std::size_t from = disk_events().size();
  replace(&a_, 2, 20);
  const std::size_t alone = writes_since(from);
  from = disk_events().size();
  engine::begin_call(a_);
  replace(&a_, 3, 20);
  EXPECT_EQ(engine::end_call(a_), 0);
  EXPECT_EQ(writes_since(from), alone - 5) << "begin, lock, update, unlock, end, and no leaf for the lock";
}

TEST_F(HeldCall, KeepsOthersOutUntilItEnds) {
  ASSERT_EQ(b_.open_for_work(path), 0);
  engine::begin_call(a_);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  EXPECT_EQ(engine::os().probe(b_.get()->file, engine::arbiter_byte), 1);
  sample_record found;
  ASSERT_EQ(a_.find_name(sample(101).name), 0);
  ASSERT_EQ(a_.read(&found), 0);
  EXPECT_EQ(engine::os().probe(b_.get()->file, engine::arbiter_byte), 1);
  EXPECT_EQ(engine::end_call(a_), 0);
  EXPECT_EQ(engine::os().probe(b_.get()->file, engine::arbiter_byte), 0);
  EXPECT_EQ(engine::os().probe(b_.get()->file, engine::reader_bytes), 0);
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
  ASSERT_EQ(b_.insert(sample(102)), 0);
  EXPECT_EQ(a_.find_name(sample(102).name), 0);
}

// What a transaction did in the call is in the journal when the call ends.
TEST_F(HeldCall, MayEndInATransactionThatGoesOn) {
  ASSERT_EQ(b_.open_for_work(path), 0);
  engine::begin_call(a_);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(101, 300)), 0);
  ASSERT_EQ(engine::end_call(a_), 0);
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
  EXPECT_EQ(engine::transstat(b_), engine::e_trans_busy);
  engine::begin_call(a_);
  ASSERT_EQ(a_.insert(sample(102, 300)), 0);
  ASSERT_EQ(engine::transroll(a_, nullptr, 0, nullptr), 0);
  ASSERT_EQ(engine::end_call(a_), 0);
  EXPECT_NE(b_.find_name(sample(101).name), 0);
  EXPECT_EQ(engine::transstat(b_), 0);
}

TEST_F(HeldCall, EndsWithTheHandle) {
  engine::begin_call(a_);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  ASSERT_EQ(a_.close(), 0);
  EXPECT_EQ(engine::end_call(a_), 0) << "nothing to end";
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(engine::transstat(b_), engine::e_trans_interrupted);
  ASSERT_EQ(engine::transroll(b_, nullptr, 0, nullptr), 0);
  EXPECT_NE(b_.find_name(sample(101).name), 0);
  engine::begin_call(b_);
  engine::abandon(b_);
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(b_.insert(sample(102)), 0);
}

TEST_F(HeldCall, IsNothingWithoutAJournal) {
  ASSERT_EQ(a_.close(), 0);
  a_.journal = journal_use::off;
  mount_memory_disk(image());
  ASSERT_EQ(a_.open_for_work(path), 0);
  engine::begin_call(a_);
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(b_.insert(sample(101)), 0);
  ASSERT_EQ(a_.insert(sample(102)), 0);
  EXPECT_EQ(engine::end_call(a_), 0);
}

// Somebody reads the journal just when all but the last sector of the groups stands there.
TEST_F(HeldCall, WhatOfItWasWrittenInPartMisleadsNobodyWhoHasReadIt) {
  engine::journal_file log;
  log.identity = a_.get()->journal->log.identity;
  ASSERT_EQ(engine::open_journal(&log, "/disk/file.jnl"), 0);
  ASSERT_EQ(engine::catch_up(&log, false), 0);
  static engine::os_ops below;
  static std::function<void()> halfway;   // done once, within the next write of several groups
  below = engine::os();
  static engine::os_ops torn;
  torn = below;
  torn.write_at = [](int file, std::uint64_t offset, const void* from, std::size_t n) {
    const bool groups = n >= 3 * engine::journal_sector && std::memcmp(from, "ZVRG", 4) == 0;
    if (!groups || !halfway) return below.write_at(file, offset, from, n);
    const std::int64_t written = below.write_at(file, offset, from, n - engine::journal_sector);
    std::exchange(halfway, nullptr)();
    return written;
  };
  engine::set_os_ops(&torn);
  const std::uint64_t known = log.at.sequence;
  halfway = [&] { EXPECT_EQ(engine::catch_up(&log, false), 0); };
  engine::begin_call(a_);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  EXPECT_EQ(engine::transend(a_, 1), engine::e_write);
  EXPECT_EQ(engine::end_call(a_), 0);
  EXPECT_GT(log.at.sequence, known + 1) << "it has read several groups";
  ASSERT_EQ(a_.find_name(sample(1).name), 0);
  ASSERT_EQ(engine::dlock(a_), 0) << "a short group in the place of the first of them";
  EXPECT_EQ(engine::catch_up(&log, false), 0);
  EXPECT_EQ(log.at.changed_generation, a_.get()->journal->log.at.changed_generation);
  EXPECT_EQ(log.at.sequence, a_.get()->journal->log.at.sequence);
  engine::close_journal(&log);
  ASSERT_EQ(engine::dunlock(a_), 0);
}

// Every nth call of the system fails inside a call of several operations, once and for good.
class HeldCallFaults : public ::testing::TestWithParam<os_call> {
 protected:
  void SetUp() override {
    alarm(300);
    install_faulty_os();
  }
  void TearDown() override {
    remove_faulty_os();
    alarm(0);
  }
  scratch_folder folder_;
};

INSTANTIATE_TEST_SUITE_P(Calls, HeldCallFaults,
                         ::testing::Values(os_call::read, os_call::write, os_call::flush, os_call::lock,
                                           os_call::unlock, os_call::allocate));

TEST_P(HeldCallFaults, LeaveTheRecordWholeOrAsItWas) {
  for (const bool for_good : {false, true}) {
    for (const bool begun_before : {false, true}) {
      int nth = 1;
      for (bool failed = true; failed; nth++) {
        SCOPED_TRACE("call " + std::to_string(nth) + (for_good ? " and all later" : "") + (begun_before ? ", begun before" : ""));
        ASSERT_LT(nth, 300);
        const std::string file = folder_.file(std::to_string(nth) + (for_good ? "g" : "o") + (begun_before ? "b" : "i"));
        records before, after;
        {
          handle h;
          h.journal = journal_use::on;
          ASSERT_EQ(h.create(file), 0);
          ASSERT_EQ(engine::csetfile(h, 4), 0);
          // Of short records the lock stands in the leaf of the one that is changed.
          for (int i = 1; i <= 30; i++) ASSERT_EQ(h.insert(sample(i, begun_before ? 20 : 300)), 0);
          before = after = all_records(&h);
          if (begun_before) {
            ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
            ASSERT_EQ(h.insert(sample(90, 20)), 0);
            after[sample(90, 20).name] = sample(90, 20);
          }
          sample_record changed = sample(7, 700);
          after[changed.name] = changed;
          fail_call(GetParam(), nth, for_good);
          engine::begin_call(h);
          int result = begun_before ? 0 : engine::transbeg(h, 3, nullptr);
          if (result == 0) result = h.find_name(changed.name);
          if (result == 0) result = h.update(changed);
          if (result == 0) result = engine::transend(h, 1);
          const int ended = engine::end_call(h);
          if (result == 0) result = ended;
          failed = failures() > 0;
          disarm();
          EXPECT_FALSE(h.get()->held);
          if (result == 0) {
            before = after;
          } else {
            // As a caller does whose change was refused.
            const int undone = engine::transroll(h, nullptr, 0, nullptr);
            if (undone == 0 || undone == engine::e_trans_none) {
              const records found = all_records(&h);
              EXPECT_TRUE(found == before || (found == after && failed)) << found.size();
              EXPECT_EQ(h.insert(sample(91, 20)), 0);
              before = found;
              before[sample(91, 20).name] = sample(91, 20);
            }
          }
          engine::abandon(h);
        }
        handle h;
        h.journal = journal_use::on;
        ASSERT_EQ(h.open_for_work(file), 0);
        if (engine::transstat(h) != 0) {
          ASSERT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
        }
        const records found = all_records(&h);
        EXPECT_TRUE(found == before || (failed && found == after)) << found.size() << " records";
        ASSERT_EQ(h.close(), 0);
        const check_result checked = check_file(file, true);
        ASSERT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
        if (HasFailure()) return;
      }
      EXPECT_GT(nth, 2);
    }
  }
}

}  // namespace
}  // namespace zvrdb::test
