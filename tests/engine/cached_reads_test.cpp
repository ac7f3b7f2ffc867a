// Reads without locks: what they cost, and that they miss nothing that others wrote.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <utility>

#include "engine/agent.h"
#include "engine/cached_reads.h"
#include "engine/engine_handle.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

// Operations to the system, counted; `before_lock` is done once, ahead of the next lock.
int calls = 0;
int locks = 0;
std::function<void()> before_lock;
std::function<void()> before_allocate;   // the same
bool flushes_fail = false;
int flushes = 0;
std::function<void()> before_flush;
std::function<void(std::uint64_t offset)> before_write;

template <auto Operation>
struct counted;
template <class R, class... A, R (*engine::os_ops::*Operation)(A...)>
struct counted<Operation> {
  static R call(A... a) {
    ++calls;
    return (engine::linux_ops.*Operation)(a...);
  }
};

engine::lock_answer counted_lock(int file, std::uint64_t offset, std::uint64_t length) {
  ++calls;
  ++locks;
  if (before_lock) std::exchange(before_lock, nullptr)();
  return engine::linux_ops.lock(file, offset, length);
}

std::int64_t counted_write(int file, std::uint64_t offset, const void* bytes, std::size_t n) {
  ++calls;
  if (before_write) before_write(offset);
  return engine::linux_ops.write_at(file, offset, bytes, n);
}

int counted_flush(int file) {
  ++calls;
  ++flushes;
  if (before_flush) before_flush();
  if (!flushes_fail) return engine::linux_ops.flush(file);
  errno = EIO;
  return -1;
}

void* counted_allocate(std::size_t bytes) {
  ++calls;
  if (before_allocate) std::exchange(before_allocate, nullptr)();
  return engine::linux_ops.allocate(bytes);
}

const engine::os_ops counting_ops = [] {
  engine::os_ops ops = engine::linux_ops;
  ops.lock = counted_lock;
  ops.unlock = counted<&engine::os_ops::unlock>::call;
  ops.probe = counted<&engine::os_ops::probe>::call;
  ops.find_held = counted<&engine::os_ops::find_held>::call;
  ops.read_at = counted<&engine::os_ops::read_at>::call;
  ops.write_at = counted_write;
  ops.flush = counted_flush;
  ops.size = counted<&engine::os_ops::size>::call;
  ops.allocate = counted_allocate;
  return ops;
}();

constexpr int records = 300;

class CachedReads : public ::testing::TestWithParam<engine::journal_use> {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(1000);
    engine::set_os_ops(&counting_ops);
    path_ = folder_.file("cached");
    reader_.journal = writer_.journal = GetParam();
    reader_.from_cache = true;
    ASSERT_EQ(writer_.create(path_), 0);
    ASSERT_EQ(engine::csetfile(writer_, 4), 0);
    for (int i = 1; i <= records; ++i) ASSERT_EQ(writer_.insert(sample(i, i % 40 == 0 ? 900 : 20)), 0);
    ASSERT_EQ(reader_.open_for_work(path_), 0);
    warm();
  }
  void TearDown() override {
    before_lock = nullptr;
    before_write = nullptr;
    before_allocate = nullptr;
    before_flush = nullptr;
    flushes_fail = false;
    if (engine::checkpsp(reader_) == 'O') reader_.close();
    if (engine::checkpsp(writer_) == 'O') writer_.close();
    engine::set_os_ops(nullptr);
    engine::set_cache_blocks(10);
    engine::checkpoint_at = engine::journal_size;
  }
  void warm() {
    for (int i = 1; i <= records; ++i) EXPECT_EQ(number_of(reader_, i), sample(i).number);
  }
  static std::int32_t number_of(handle& h, int i) {
    sample_record found;
    if (h.find_name(sample(i).name) != 0 || h.read(&found) != 0) return -77777;
    return found.number;
  }
  static int change(handle& h, int i, std::int32_t number) {
    sample_record changed = sample(i);
    changed.number = number;
    const int found = h.find_name(changed.name);
    return found ? found : h.update(changed);
  }

  scratch_folder folder_;
  std::string path_;
  handle reader_, writer_;
};

class JournalledReads : public CachedReads {};

TEST_P(CachedReads, AskTheSystemForNothing) {
  calls = 0;
  for (int i = 1; i <= records; ++i) EXPECT_EQ(number_of(reader_, i), sample(i).number);
  EXPECT_EQ(engine::dseq(reader_, 1, engine::seq_first), 0);
  int steps = 1;
  while (engine::dseq(reader_, 1, engine::seq_next) == 0) ++steps;
  while (engine::dseq(reader_, 3, engine::seq_previous) == 0) ++steps;
  EXPECT_GE(steps, records);
  EXPECT_EQ(reader_.find_name(sample(7).name, engine::find_greater), 0);
  // Cursors of keys that were not used before.
  EXPECT_LE(calls, 2);
}

TEST_P(CachedReads, SeeEachChangeOfAnotherHandle) {
  for (int i = 1; i <= records; i += 7) {
    ASSERT_EQ(change(writer_, i, 1000 + i), 0);
    EXPECT_EQ(number_of(reader_, i), 1000 + i);
  }
}

TEST_P(CachedReads, SeeTheChangesOfATransactionThatRuns) {
  ASSERT_EQ(engine::transbeg(writer_, 3, nullptr), 0);
  ASSERT_EQ(change(writer_, 5, 4711), 0);
  EXPECT_EQ(number_of(reader_, 5), 4711);
  ASSERT_EQ(change(writer_, 6, 4712), 0);
  EXPECT_EQ(number_of(reader_, 6), 4712);
  ASSERT_EQ(engine::transroll(writer_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(number_of(reader_, 5), sample(5).number);
}

TEST_P(CachedReads, SeeChangesOverCheckpoints) {
  engine::checkpoint_at = 64 * 1024;
  for (int i = 1; i <= records; ++i) {
    ASSERT_EQ(change(writer_, i, 2000 + i), 0);
    if (i % 11 == 0) {
      EXPECT_EQ(number_of(reader_, i), 2000 + i);
    }
  }
  for (int i = 1; i <= records; ++i) EXPECT_EQ(number_of(reader_, i), 2000 + i);
}

TEST_P(CachedReads, SeeTheirOwnHandlesChanges) {
  ASSERT_EQ(engine::transbeg(reader_, 3, nullptr), 0);
  ASSERT_EQ(change(reader_, 9, 99), 0);
  EXPECT_EQ(number_of(reader_, 9), 99);
  ASSERT_EQ(engine::transroll(reader_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(number_of(reader_, 9), sample(9).number);
}

TEST_P(CachedReads, TakeTheLockForWhatTheFileHasToGive) {
  ASSERT_EQ(reader_.close(), 0);
  ASSERT_EQ(reader_.open_for_work(path_), 0);
  calls = 0;
  EXPECT_EQ(number_of(reader_, 11), sample(11).number);
  EXPECT_GT(calls, 0);
  calls = 0;
  EXPECT_EQ(number_of(reader_, 11), sample(11).number);
  EXPECT_EQ(calls, 0);
}

// The process that changes the file does so while the reader is about to lock it: half the
// search was made before, half would be made after.
TEST_P(CachedReads, AreMadeAgainWhenTheFileChangesOnTheWay) {
  ASSERT_EQ(writer_.close(), 0);
  ASSERT_EQ(reader_.close(), 0);
  agent other;
  ASSERT_EQ(other.tell("open " + path_ + " S 2"), 0);
  ASSERT_EQ(reader_.open_for_work(path_), 0);
  for (int i = 1; i <= records; i += 3) {
    ASSERT_EQ(other.tell("find " + std::to_string(i)), 0);
    ASSERT_EQ(other.tell("lock"), 0);
    before_lock = [&] { ASSERT_EQ(other.tell("change " + std::to_string(i) + " " + std::to_string(3000 + i)), 0); };
    const std::int32_t seen = number_of(reader_, i);
    if (before_lock) {
      // Nothing was missing in the cache: then the change is still to come.
      EXPECT_EQ(seen, sample(i).number);
      std::exchange(before_lock, nullptr)();
    }
    EXPECT_EQ(number_of(reader_, i), 3000 + i);
  }
  EXPECT_EQ(other.tell("close"), 0);
}

// The first step of a cursor is made twice, and comes to the first entry all the same.
TEST_P(CachedReads, BeginAtTheFirstEntryWhenTheFirstStepIsMadeAgain) {
  sample_record first;
  ASSERT_EQ(engine::dseq(reader_, 1, engine::seq_first), 0);
  ASSERT_EQ(reader_.read(&first), 0);
  engine::free_cursors(reader_);
  before_allocate = [&] { ASSERT_EQ(change(writer_, 150, 4711), 0); };
  ASSERT_EQ(engine::dseq(reader_, 1, engine::seq_next), 0);
  ASSERT_FALSE(before_allocate);
  sample_record found;
  ASSERT_EQ(reader_.read(&found), 0);
  EXPECT_EQ(found.name, first.name);
}

TEST_P(CachedReads, TakeTheirLockWhereARecordIsLocked) {
  ASSERT_EQ(reader_.find_name(sample(4).name), 0);
  ASSERT_EQ(engine::dlock(reader_), 0);
  calls = 0;
  sample_record found;
  EXPECT_EQ(reader_.read(&found), 0);
  EXPECT_GT(calls, 0);
  EXPECT_EQ(engine::dunlock(reader_), 0);
}

// Without a journal the file shows what it could not flush.
TEST_P(JournalledReads, SeeNothingOfAChangeThatCouldNotBeKept) {
  for (int i = 1; i <= 40; ++i) {
    flushes_fail = true;
    EXPECT_NE(change(writer_, i, 5000 + i), 0);
    EXPECT_EQ(number_of(reader_, i), sample(i).number);
    flushes_fail = false;
    ASSERT_EQ(change(writer_, i, 6000 + i), 0);
    EXPECT_EQ(number_of(reader_, i), 6000 + i);
  }
}

// From the commit to the end of the operation: its pages are on their way to the file.
TEST_P(JournalledReads, AreNotKeptWaitingByAWriterAtWork) {
  constexpr std::int32_t none = -77777;
  constexpr int first = records + 1;
  for (int i = first; i <= first + 2; ++i) {
    int writes = 0;
    before_write = [&](std::uint64_t offset) {
      if (writes == 0 && offset != engine::flag_offset) return;
      if (writes++ == 0) return;   // the flag is about to be set
      bool locked = false;
      before_lock = [&] { locked = true; };
      EXPECT_EQ(number_of(reader_, i), none) << "a change that has not ended";
      // Those that ended are seen, though the reader comes to know of them only now.
      for (int ended = first; ended < i; ++ended) EXPECT_EQ(number_of(reader_, ended), sample(ended).number);
      before_lock = nullptr;
      EXPECT_FALSE(locked);
    };
    ASSERT_EQ(writer_.insert(sample(i, 20)), 0);
    before_write = nullptr;
    EXPECT_GT(writes, 4);
  }
  EXPECT_EQ(number_of(reader_, first + 2), sample(first + 2).number);
}

// A flush is long, and the arbiter is held while it lasts.  A reader that waited for it, or for its
// own byte, would wait for ever here.
TEST_P(JournalledReads, GoToTheFileWhileAWriterFlushes) {
  const auto read_all = [&](std::int32_t fifth) {
    for (int i = 1; i <= records; ++i)
      EXPECT_EQ(number_of(reader_, i), i == 5 ? fifth : sample(i).number);
  };
  for (const bool under_locks : {false, true}) {
    ASSERT_EQ(change(writer_, 5, sample(5).number), 0);
    ASSERT_EQ(reader_.close(), 0);
    ASSERT_EQ(reader_.open_for_work(path_), 0);
    if (under_locks) {   // it has that to follow first
      ASSERT_EQ(change(writer_, 4, sample(4).number), 0);
    }
    int flushed = 0;
    before_flush = [&] {
      if (++flushed == 1) read_all(sample(5).number);   // a checkpoint may follow
    };
    ASSERT_EQ(change(writer_, 5, 4711), 0);
    before_flush = nullptr;
    EXPECT_GT(flushed, 0);
    read_all(4711);
  }
}

TEST_P(JournalledReads, SeeNothingOfACallThatHasNotEnded) {
  for (const int mode : {1, 2}) {
    engine::begin_call(writer_);
    ASSERT_EQ(engine::transbeg(writer_, 3, nullptr), 0);
    flushes = 0;
    for (int i = 5; i <= 8; ++i) {
      ASSERT_EQ(change(writer_, i, 4000 + mode), 0);
      const std::int32_t before = mode == 1 ? sample(i).number : 4001;
      EXPECT_EQ(number_of(reader_, i), before);
    }
    EXPECT_EQ(flushes, 0) << "the reader made it count before its end";
    // Its groups stand in the journal now, and count when the flush is over.
    int flushed = 0;
    before_flush = [&] {
      if (++flushed > 1) return;
      calls = 0;
      EXPECT_EQ(number_of(reader_, 5), mode == 1 ? sample(5).number : 4001);
      EXPECT_LE(calls, 2) << "whether the writer is alive";
    };
    ASSERT_EQ(engine::transend(writer_, 1), 0);
    before_flush = nullptr;
    EXPECT_EQ(engine::end_call(writer_), 0);
    for (int i = 5; i <= 8; ++i) EXPECT_EQ(number_of(reader_, i), 4000 + mode);
  }
}

// Each get is two reads: one to find, one to read.
TEST_P(JournalledReads, AskNowAndThenWhetherTheWriterOfAChangeLives) {
  constexpr int gets = 64;
  bool flushed = false;
  before_flush = [&] {
    if (std::exchange(flushed, true)) return;
    calls = 0;
    for (int i = 1; i <= gets; ++i) EXPECT_EQ(number_of(reader_, i), sample(i).number);
    EXPECT_EQ(calls, 1 + 2 * gets / 16 - 1) << "at the first read, and at each sixteenth behind it";
  };
  ASSERT_EQ(change(writer_, 5, 4711), 0);
  before_flush = nullptr;
  EXPECT_EQ(number_of(reader_, 5), 4711);
}

// The change is committed when its writer stops, and seen to be under way; then the writer dies.
TEST_P(JournalledReads, MakeTheChangeOfOneWhoDiesBesideThemCount) {
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    handle h;
    h.journal = engine::journal_use::on;
    sample_record changed = sample(5);
    changed.number = 4711;
    sample_fields fields(changed);
    if (h.open_for_work(path_) != 0 || h.find_name(changed.name) != 0 || engine::dlock(h) != 0) _exit(1);
    before_write = [](std::uint64_t offset) {
      if (offset == engine::flag_offset) std::raise(SIGSTOP);
    };
    engine::dupdate(h, fields.list);
    _exit(2);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  ASSERT_TRUE(WIFSTOPPED(status)) << status;
  EXPECT_EQ(number_of(reader_, 5), sample(5).number) << "it has not ended";
  ASSERT_EQ(kill(child, SIGKILL), 0);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  constexpr int gets = 16;
  for (int i = 1; i <= gets; ++i) number_of(reader_, 5);
  EXPECT_EQ(number_of(reader_, 5), 4711);
}

// A process that changes record i of both files as one is stopped when it is about to write the flag
// for the nth time, and killed when the readers know that it is at work.
void kill_a_pair(const std::string (&paths)[2], int i, int nth, const std::function<void()>& look) {
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    handle pair[2];
    for (handle& h : pair) {
      h.journal = engine::journal_use::on;
      if (h.open_for_work(paths[&h - pair]) != 0) _exit(1);
    }
    sample_record changed = sample(i);
    changed.number = 4711;
    for (handle& h : pair) {
      engine::begin_call(h);
      if (engine::transbeg(h, 3, nullptr) != 0 || h.find_name(changed.name) != 0 || h.update(changed) != 0) _exit(1);
    }
    before_write = [&](std::uint64_t offset) {
      if (offset == engine::flag_offset && --nth == 0) std::raise(SIGSTOP);
    };
    engine::transend_together(pair[0], pair[1], 1);
    _exit(2);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  ASSERT_TRUE(WIFSTOPPED(status)) << status;
  look();
  ASSERT_EQ(kill(child, SIGKILL), 0);
  ASSERT_EQ(waitpid(child, &status, 0), child);
}

// One file shows the change when somebody looks; from then on the other one does too.
TEST_P(JournalledReads, ShowNoHalfOfAPairWhetherItsWriterLivesOrDied) {
  const std::string paths[] = {path_, folder_.file("second")};
  handle second;
  second.journal = engine::journal_use::on;
  second.from_cache = true;
  ASSERT_EQ(second.create(paths[1]), 0);
  ASSERT_EQ(engine::csetfile(second, 4), 0);
  for (int i = 1; i <= 9; ++i) ASSERT_EQ(second.insert(sample(i)), 0);
  const auto neither_has = [&](int i) {
    EXPECT_EQ(number_of(reader_, i), sample(i).number);
    EXPECT_EQ(number_of(second, i), sample(i).number);
  };
  neither_has(5);   // who goes to a file waits for its writer
  // The second file made a promise: its readers wait until it counts.
  const auto second_waits = [&] {
    const bool answers = engine::begin_quiet_read(second, 1);
    int result = 0;
    if (answers) engine::end_quiet_read(second, &result);
    EXPECT_FALSE(answers);
  };
  kill_a_pair(paths, 5, 1, [&] {
    EXPECT_EQ(number_of(reader_, 5), sample(5).number);
    second_waits();
  });
  EXPECT_EQ(number_of(second, 5), 4711);
  EXPECT_EQ(number_of(reader_, 5), 4711);
  // The pages of the first file are all there.
  neither_has(8);
  kill_a_pair(paths, 8, 3, [&] {
    EXPECT_EQ(number_of(reader_, 8), 4711);
    second_waits();
  });
  EXPECT_EQ(number_of(reader_, 8), 4711);
  EXPECT_EQ(number_of(second, 8), 4711);
}

// What a reader need not know, who writes has to.
TEST_P(JournalledReads, BeginAWriteBehindOperationsThatChangedNothing) {
  for (int i = 1; i <= 5; ++i) {
    ASSERT_EQ(engine::transstat(writer_), 0);
    ASSERT_EQ(engine::dflush(writer_), 0);
    calls = 0;
    EXPECT_EQ(number_of(reader_, 9), i == 1 ? sample(9).number : 7000 + i - 1);
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(change(reader_, 9, 7000 + i), 0);
    EXPECT_EQ(number_of(writer_, 9), 7000 + i);
  }
}

TEST_P(JournalledReads, SeeNothingOfACallThatFailed) {
  engine::begin_call(writer_);
  ASSERT_EQ(engine::transbeg(writer_, 3, nullptr), 0);
  ASSERT_EQ(change(writer_, 5, 4711), 0);
  EXPECT_EQ(number_of(reader_, 5), sample(5).number);
  ASSERT_EQ(engine::transroll(writer_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(engine::end_call(writer_), 0);
  EXPECT_EQ(number_of(reader_, 5), sample(5).number);
}

// Who misses many nodes brings those beside them: a walk in no order takes far fewer locks than
// it needs nodes.
TEST_P(CachedReads, BringNeighboursWhenTheyMissMuch) {
  constexpr int many = 6000;
  ASSERT_EQ(reader_.close(), 0);
  ASSERT_EQ(writer_.close(), 0);
  engine::set_cache_blocks(8192);
  ASSERT_EQ(writer_.open_for_work(path_), 0);
  ASSERT_EQ(engine::csetfile(writer_, 0), 0);
  for (int i = records + 1; i <= many; ++i) ASSERT_EQ(writer_.insert(sample(i, 300)), 0);
  ASSERT_EQ(engine::csetfile(writer_, 4), 0);
  ASSERT_EQ(reader_.open_for_work(path_), 0);
  locks = 0;
  for (int i = 0; i < many; ++i) {
    const int record = 1 + static_cast<int>(i * 4637LL % many);
    EXPECT_EQ(number_of(reader_, record), sample(record).number);
  }
  EXPECT_LT(locks, 700);
  EXPECT_GT(static_cast<engine::PSP*>(reader_)->blocks, 3000) << "nodes";
}

// A copy that is put back over a file in use begins by cutting it to nothing.
TEST_P(CachedReads, EndWithACodeWhenTheFileIsCutToNothing) {
  ASSERT_EQ(truncate(path_.c_str(), 0), 0);
  EXPECT_EQ(number_of(reader_, 11), -77777);
  EXPECT_EQ(number_of(reader_, 12), -77777);
  engine::abandon(reader_);
  engine::abandon(writer_);
}

TEST_P(JournalledReads, GoOnWhenTheJournalIsCutToNothing) {
  ASSERT_EQ(truncate((path_ + ".jnl").c_str(), 0), 0);
  EXPECT_EQ(number_of(reader_, 11), sample(11).number);
  ASSERT_EQ(change(writer_, 11, 4711), 0);
  EXPECT_EQ(number_of(reader_, 11), 4711);
}

// How often a walk over all records takes a lock: each time that it misses a node.
TEST_P(CachedReads, BringLeavesAheadInTheirDirection) {
  for (const int direction : {engine::seq_next, engine::seq_previous}) {
    int misses[2] = {};
    for (const int ahead : {0, 5}) {
      ASSERT_EQ(reader_.close(), 0);
      ASSERT_EQ(reader_.open_for_work(path_), 0);
      ASSERT_EQ(engine::read_from_cache(reader_, ahead), 0);
      int steps = 1;
      ASSERT_EQ(engine::dseq(reader_, 1, direction == engine::seq_next ? engine::seq_first : engine::seq_last), 0);
      locks = 0;
      while (engine::dseq(reader_, 1, direction) == 0) ++steps;
      EXPECT_EQ(steps, records);
      misses[ahead > 0] = locks;
    }
    EXPECT_GT(misses[1], 0);
    EXPECT_LE(misses[1], misses[0] / 4);
  }
}

TEST_P(CachedReads, BringNoMoreLeavesThanTheCacheHolds) {
  ASSERT_EQ(reader_.close(), 0);
  ASSERT_EQ(writer_.close(), 0);
  engine::set_cache_blocks(10);
  ASSERT_EQ(reader_.open_for_work(path_), 0);
  ASSERT_EQ(engine::read_from_cache(reader_, 1 << 30), 0);
  EXPECT_EQ(engine::read_from_cache(reader_, -1), engine::e_bad_argument);
  warm();
  int steps = 1;
  ASSERT_EQ(engine::dseq(reader_, 1, engine::seq_last), 0);
  while (engine::dseq(reader_, 1, engine::seq_previous) == 0) ++steps;
  EXPECT_EQ(steps, records);
}

TEST_P(CachedReads, CanBeTurnedOff) {
  ASSERT_EQ(engine::read_under_locks(reader_), 0);
  calls = 0;
  EXPECT_EQ(number_of(reader_, 11), sample(11).number);
  EXPECT_GT(calls, 0);
}

INSTANTIATE_TEST_SUITE_P(Journal, CachedReads, ::testing::Values(engine::journal_use::off, engine::journal_use::on),
                         [](const auto& mode) { return mode.param == engine::journal_use::on ? "On" : "Off"; });

INSTANTIATE_TEST_SUITE_P(Journal, JournalledReads, ::testing::Values(engine::journal_use::on),
                         [](const auto&) { return "On"; });

}  // namespace
}  // namespace zvrdb::test
