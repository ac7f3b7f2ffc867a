// Transactions of two record files that end together: a crash at any point leaves both or
// neither, in whatever order the files are opened afterwards.
//
// Kills and power cuts are made as in journal_crash_test.  ZVR_TORTURE=1 tries everything.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>

#include "engine/after_a_crash.h"
#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/faulty_os.h"
#include "engine/file_pair.h"
#include "engine/journal.h"
#include "engine/memory_disk.h"
#include "engine/os_file.h"
#include "engine/power_cuts.h"
#include "engine/scratch_folder.h"
#include "engine/psp.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

constexpr auto& paths = pair_paths;

bool torture() { return std::getenv("ZVR_TORTURE") != nullptr; }

struct milestone {
  std::size_t events;
  both_states state;
};

// Length of the journals, and how the run goes on behind the first pair.
const std::uint64_t deferred_by_default = engine::defer_to;

constexpr std::uint64_t big = 1024 * 1024;
constexpr std::uint64_t tiny = 8 * 1024;

struct scenario {
  const char* name;
  void (*run)(file_pair& files, const std::function<void()>& mark);
  std::uint64_t checkpoint;
};
void PrintTo(const scenario& s, std::ostream* out) { *out << s.name; }

class PairCrash : public ::testing::TestWithParam<scenario> {
 protected:
  void SetUp() override {
    alarm(torture() ? 4 * 3600 : 900);
    engine::checkpoint_at = engine::journal_size;
    mount_memory_disk(small_files());
    file_pair files;
    files.open();
    ASSERT_EQ(files.change_one(0, 90), 0);
    ASSERT_EQ(files.change_one(1, 90), 0);
    files.close();
    start_ = disk_now();
    engine::checkpoint_at = GetParam().checkpoint;
    engine::defer_to = 4 * engine::checkpoint_at;
    run();
  }
  void TearDown() override {
    unmount_memory_disk();
    engine::checkpoint_at = engine::journal_size;
    engine::defer_to = deferred_by_default;
    alarm(0);
  }
  void run() {
    mount_memory_disk(start_, power::stays_on);
    file_pair files;
    files.open();
    const auto mark = [&] { milestones_.push_back({disk_events().size(), files.now()}); };
    mark();
    GetParam().run(files, mark);
    files.close();
    events_ = disk_events();
    // One of each file at its close.
    if (GetParam().checkpoint != big) {
      EXPECT_GE(disk_flushes(paths[0]) + disk_flushes(paths[1]), 3) << "no checkpoint";
    }
  }
  // order: bit 0 the file opened first, bit 1 the file closed first.
  void verify(const disk_image& image, std::size_t n, unsigned order, power how = power::was_off) {
    mount_memory_disk(image, how);
    file_pair files;
    files.open(order & 1);
    if (HasFatalFailure()) return;
    const both_states found = files.now();
    std::size_t step = 0;
    while (step + 1 < milestones_.size() && milestones_[step + 1].events <= n) step++;
    const bool before = found == milestones_[step].state;
    const bool after = step + 1 < milestones_.size() && found == milestones_[step + 1].state;
    ASSERT_TRUE(before || after) << "step " << step << ": " << found.of[0].size() << " and " << found.of[1].size()
                                 << " records, not " << milestones_[step].state.of[0].size() << " and "
                                 << milestones_[step].state.of[1].size();
    ASSERT_EQ(files.change_both(395, 100), 0);
    files.close(order >> 1);
    if (HasFatalFailure()) return;
    ASSERT_EQ(disk_open_files(), 0);
    points_++;
    // What is read after a further, clean opening is what was found.
    file_pair again;
    again.open(1 - (order & 1));
    both_states left = again.now();
    for (records& r : left.of) ASSERT_EQ(r.erase(sample(395).name), 1U);
    both_states expected = found;
    expected.of[1].erase(sample(295).name);
    ASSERT_TRUE(left == expected);
    again.close();
    if (points_ % (torture() ? 1 : 32) == 0) expect_sound();
  }
  static void expect_sound() {
    for (const char* path : paths) expect_sound_bytes(disk_now().at(path).bytes);
  }

  disk_image start_;
  std::vector<milestone> milestones_;
  std::vector<disk_event> events_;
  int points_ = 0;
};

using mark_fn = std::function<void()>;

void one_pair(file_pair& files, const mark_fn& mark) {
  ASSERT_EQ(files.change_both(101, 300), 0);
  mark();
}
// Each file goes on for itself behind the pair.
void pair_and_more(file_pair& files, const mark_fn& mark) {
  one_pair(files, mark);
  for (const int which : {1, 0, 0}) {
    static int i = 0;
    ASSERT_EQ(files.change_one(which, 150 + i++ % 3), 0);
    mark();
  }
}
void several_pairs(file_pair& files, const mark_fn& mark) {
  for (int i = 101; i < 106; i++) {
    ASSERT_EQ(files.change_both(i, 700), 0);
    mark();
  }
}
// The one that decides makes checkpoints while the promise stands last in the other.
void pair_and_checkpoints(file_pair& files, const mark_fn& mark) {
  one_pair(files, mark);
  for (int i = 151; i < 157; i++) {
    ASSERT_EQ(files.change_one(0, i), 0);
    mark();
  }
}
void checkpoints_in_the_other(file_pair& files, const mark_fn& mark) {
  one_pair(files, mark);
  for (int i = 151; i < 157; i++) {
    ASSERT_EQ(files.change_one(1, i), 0);
    mark();
  }
}
void pair_undone(file_pair& files, const mark_fn& mark) {
  for (handle& h : files.of) {
    ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
    ASSERT_EQ(h.insert(sample(101, 300)), 0);
  }
  for (handle& h : files.of) ASSERT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
  mark();
  one_pair(files, mark);
}

const scenario scenarios[] = {
    {"OnePair", one_pair, big},
    {"PairAndMore", pair_and_more, big},
    {"SeveralPairs", several_pairs, big},
    {"SeveralPairsWithCheckpoints", several_pairs, tiny},
    {"CheckpointsBehindThePair", pair_and_checkpoints, tiny},
    {"CheckpointsInTheOtherFile", checkpoints_in_the_other, tiny},
    {"RollBackOfBoth", pair_undone, big},
};
INSTANTIATE_TEST_SUITE_P(Scenarios, PairCrash, ::testing::ValuesIn(scenarios),
                         [](const auto& c) { return c.param.name; });

TEST_P(PairCrash, AKillBehindAnyWriteLeavesBothOrNeither) {
  for (const power how : {power::stays_on, power::was_off}) {
    for (std::size_t n = 0; n <= events_.size(); n++) {
      for (unsigned order = 0; order < 4; order++) {
        SCOPED_TRACE("kill behind event " + std::to_string(n) + " of " + std::to_string(events_.size()) + ", order " +
                     std::to_string(order));
        verify(after_kill(start_, events_, n), n, order, how);
        if (HasFatalFailure() || HasNonfatalFailure()) return;
      }
    }
  }
  std::cout << points_ << " points" << std::endl;
}

TEST_P(PairCrash, APowerCutAtAnyWriteLeavesBothOrNeither) {
  std::mt19937 coin(40);
  const auto both_or_neither = [&](const disk_image& left, std::size_t n) {
    verify(left, n, static_cast<unsigned>(coin() % 4));
    return !HasFatalFailure() && !HasNonfatalFailure();
  };
  if (!for_each_power_cut(start_, events_, {30, 2, 4}, &coin, both_or_neither)) return;
  std::cout << points_ << " points" << std::endl;
}

TEST_P(PairCrash, ACrashInTheRepairIsRepaired) {
  std::mt19937 coin(50);
  const std::size_t step = torture() ? 1 : events_.size() / 10 + 1;
  for (std::size_t n = 0; n <= events_.size(); n += step) {
    const unsigned order = static_cast<unsigned>(coin() % 4);
    std::vector<disk_event> repair(events_.begin(), events_.begin() + static_cast<std::ptrdiff_t>(n));
    {
      mount_memory_disk(after_kill(start_, events_, n));
      file_pair files;
      files.open(order & 1);
      files.close(order >> 1);
      if (HasFatalFailure()) return;
      repair.insert(repair.end(), disk_events().begin(), disk_events().end());
    }
    for (std::size_t m = n; m <= repair.size(); m++) {
      SCOPED_TRACE("kill behind event " + std::to_string(n) + ", then at event " + std::to_string(m - n) +
                   " of the repair");
      const unsigned next = static_cast<unsigned>(coin() % 4);
      if (torture() || coin() % 3 == 0) verify(after_kill(start_, repair, m), n, next);
      if (HasFatalFailure() || HasNonfatalFailure()) return;
      if (!for_each_fate(undecided_writes(repair, m), torture(), torture() ? 20 : 1, &coin, [&](const write_fates& fates) {
            verify(after_power_cut(start_, repair, m, fates, &coin), n, next);
            return !HasFatalFailure() && !HasNonfatalFailure();
          }))
        return;
    }
  }
  std::cout << points_ << " points" << std::endl;
}

// A power cut, and another one in what the next opener does with what the first one left.  What
// that opener gave out was true: it stays, in both files.
TEST_P(PairCrash, APowerCutInTheRepairOfAPowerCutIsRepaired) {
  std::mt19937 coin(51);
  const std::size_t step = events_.size() / (torture() ? 100 : 10) + 1;
  const std::vector<milestone> milestones = milestones_;
  for (std::size_t n = coin() % step; n <= events_.size(); n += step) {
    for (int first_cut = 0; first_cut < (torture() ? 4 : 2); first_cut++) {
      const unsigned order = static_cast<unsigned>(coin() % 4);
      write_fates fates;
      for (const std::size_t i : undecided_writes(events_, n))
        fates[i] = first_cut == 0 ? write_fate::lost : static_cast<write_fate>(coin() % 3);
      const disk_image left = after_power_cut(start_, events_, n, fates, &coin);
      milestones_ = milestones;
      verify(left, n, order);
      if (HasFatalFailure()) return;
      mount_memory_disk(left);
      std::size_t seen = 0;
      both_states found;
      {
        file_pair files;
        files.open(order & 1);
        if (HasFatalFailure()) return;
        found = files.now();
        seen = disk_events().size();
        files.close(order >> 1);
        if (HasFatalFailure()) return;
      }
      const std::vector<disk_event> repair = disk_events();
      const std::size_t one_in = torture() ? repair.size() / 30 + 1 : 3;
      for (std::size_t m = 0; m <= repair.size(); m++) {
        if (m != seen && coin() % one_in != 0) continue;
        const unsigned next = static_cast<unsigned>(coin() % 4);
        SCOPED_TRACE("power cut behind event " + std::to_string(n) + " of " + std::to_string(events_.size()) +
                     ", then behind event " + std::to_string(m) + " of the repair, read behind event " +
                     std::to_string(seen) + ", orders " + std::to_string(order) + " and " + std::to_string(next));
        if (m >= seen) milestones_ = {{0, found}};
        const auto look = [&](const write_fates& second) {
          verify(after_power_cut(left, repair, m, second, &coin), n, next);
          return !HasFatalFailure() && !HasNonfatalFailure();
        };
        write_fates none;
        for (const std::size_t i : undecided_writes(repair, m)) none[i] = write_fate::lost;
        if (!look(none) || !for_each_fate(undecided_writes(repair, m), false, torture() ? 4 : 1, &coin, look)) return;
      }
    }
  }
  std::cout << points_ << " points" << std::endl;
}

class JournalPair : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(300);
    mount_memory_disk(small_files());
  }
  void TearDown() override {
    unmount_memory_disk();
    alarm(0);
  }
};

// Live handles that have read both files go on beside the dead one, whichever they look at
// first.
TEST_F(JournalPair, LiveHandlesFindBothOrNeither) {
  int points = 0;
  for (unsigned how = 0; how < 4; how++) {
    const bool writes = how & 2;
    bool after_seen = false;
    for (std::size_t n = 0; !after_seen; n++) {
      SCOPED_TRACE("killed behind event " + std::to_string(n) + ", looked at in the way " + std::to_string(how));
      mount_memory_disk(small_files());
      file_pair dead, live;
      live.open();
      dead.open();
      ASSERT_EQ(dead.change_one(0, 90), 0);
      const both_states before = live.now();
      const std::size_t events = disk_events().size();
      ASSERT_EQ(dead.change_both(101, 300), 0);
      engine::abandon(dead.of[0]);
      engine::abandon(dead.of[1]);
      after_seen = events + n >= disk_events().size();
      rewind_disk(small_files(), std::min(events + n, disk_events().size()));
      const int first = how & 1;
      for (const int which : {first, 1 - first}) {
        if (writes) settle(&live.of[which]);
        else ASSERT_EQ(live.of[which].find_name(sample(7).name), 0);
      }
      if (!writes) {
        settle(&live.of[1 - first]);
        settle(&live.of[first]);
      }
      both_states expected = before;
      expected.of[0][sample(101).name] = expected.of[1][sample(101).name] = sample(101, 300);
      expected.of[1].erase(sample(1).name);
      const both_states found = live.now();
      ASSERT_TRUE(found == before || found == expected) << found.of[0].size() << " " << found.of[1].size();
      if (after_seen) {
        ASSERT_TRUE(found == expected);
      }
      ASSERT_EQ(live.change_both(301, 40), 0);
      live.close(first);
      if (HasFatalFailure() || HasNonfatalFailure()) return;
      points++;
    }
  }
  std::cout << points << " points" << std::endl;
}

TEST_F(JournalPair, EachFileIsFlushedOnce) {
  file_pair files;
  files.open();
  ASSERT_EQ(files.change_both(101, 300), 0);
  const int first = disk_flushes("first.jnl");
  const int all = disk_flushes();
  ASSERT_EQ(files.change_both(102, 300), 0);
  EXPECT_EQ(disk_flushes("first.jnl") - first, 1);
  EXPECT_EQ(disk_flushes() - all, 2);
  files.close();
}

TEST_F(JournalPair, TheBytesAreThoseOfTwoTransactionsThatEndOneByOne) {
  const auto work = [](bool together) {
    mount_memory_disk(small_files());
    file_pair files;
    files.open();
    for (int i = 101; i < 105; i++) {
      for (handle& h : files.of) {
        EXPECT_EQ(engine::transbeg(h, 3, nullptr), 0);
        EXPECT_EQ(h.insert(sample(i, 500)), 0);
      }
      if (together) {
        EXPECT_EQ(engine::transend_together(files.of[0], files.of[1], 1), 0);
      } else {
        for (handle& h : files.of) EXPECT_EQ(engine::transend(h, 1), 0);
      }
    }
    files.close();
    const disk_image now = disk_now();
    return std::make_pair(now.at(paths[0]).bytes, now.at(paths[1]).bytes);
  };
  const auto one_by_one = work(false);
  const auto together = work(true);
  EXPECT_TRUE(one_by_one.first == together.first);
  EXPECT_TRUE(one_by_one.second == together.second);
}

TEST_F(JournalPair, RefusedWithoutJournalsOrTransactions) {
  file_pair files;
  files.open();
  EXPECT_FALSE(engine::can_end_together(files.of[0], files.of[1]));
  EXPECT_EQ(engine::transend_together(files.of[0], files.of[1], 1), engine::e_bad_argument);
  ASSERT_EQ(engine::transbeg(files.of[0], 3, nullptr), 0);
  EXPECT_FALSE(engine::can_end_together(files.of[0], files.of[1]));
  EXPECT_FALSE(engine::can_end_together(files.of[0], files.of[0]));
  ASSERT_EQ(engine::transend(files.of[0], 1), 0);
  files.close();
  files.of[1].journal = journal_use::off;
  engine::remove_journal(paths[1]);
  files.open();
  for (handle& h : files.of) ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
  EXPECT_FALSE(engine::can_end_together(files.of[0], files.of[1]));
  for (handle& h : files.of) ASSERT_EQ(engine::transend(h, 1), 0);
  files.close();
}

// A decision on another partner first makes sure of the last one.
TEST_F(JournalPair, OneFileDecidesForSeveralPartners) {
  constexpr char third_path[] = "/disk/third";
  disk_image start = small_files();
  start[third_path] = {start[paths[0]].bytes, 7000};
  mount_memory_disk(start);
  file_pair files;
  files.open();
  handle third;
  third.journal = journal_use::on;
  ASSERT_EQ(third.open_for_work(third_path), 0);
  ASSERT_EQ(files.change_both(101, 300), 0);
  for (handle* h : {&files.of[0], &third}) {
    ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
    ASSERT_EQ(h->insert(sample(102)), 0);
  }
  ASSERT_EQ(engine::transend_together(files.of[0], third, 1), 0);
  // The deciding journal may begin anew now; the first partner needs it no more.
  engine::abandon(files.of[1]);
  ASSERT_EQ(files.of[0].close(), 0);
  ASSERT_EQ(third.close(), 0);
  ASSERT_EQ(files.of[1].open_for_work(paths[1]), 0);
  EXPECT_EQ(files.of[1].find_name(sample(101).name), 0);
  ASSERT_EQ(files.of[1].close(), 0);
}

void expect_the_first_pair_alone(const disk_image& left) {
  for (const int first : {0, 1}) {
    mount_memory_disk(left);
    file_pair again;
    again.open(first);
    EXPECT_EQ(again.of[0].find_name(sample(101).name), 0);
    EXPECT_EQ(again.of[1].find_name(sample(101).name), 0);
    EXPECT_EQ(again.of[1].find_name(sample(102).name), engine::e_not_found);
    again.close();
  }
}

// What stood behind a promise told that it counts, and the deciding journal relied on that.
TEST_F(JournalPair, APromiseStaysWhenWhatStoodBehindItIsTakenBack) {
  file_pair files;
  files.open();
  files.change_both_and_go_on();
  ASSERT_FALSE(HasFatalFailure());
  ASSERT_EQ(files.of[1].insert(sample(102)), 0);
  ASSERT_EQ(files.of[0].close(), 0);
  const disk_image left = flushed_alone(small_files(), disk_events());
  engine::abandon(files.of[1]);
  expect_the_first_pair_alone(left);
}

// The next pair's promise stood behind it, whose writer died before that was decided.
TEST_F(JournalPair, APromiseStaysWhenTheNextOneIsTakenBack) {
  file_pair files;
  files.open();
  files.change_both_and_go_on();
  ASSERT_FALSE(HasFatalFailure());
  ASSERT_EQ(engine::wrenter(files.of[1]), 0);
  ASSERT_EQ(files.of[1].insert(sample(102)), 0);
  engine::group_link next;
  next.there = true;
  next.number = 4711;
  next.salt = files.of[0].get()->journal->log.salt;
  std::strcpy(next.name, "first");
  ASSERT_EQ(engine::wrleave_with_promise(files.of[1], 0, next), 0);
  engine::abandon(files.of[1]);
  ASSERT_EQ(files.of[0].close(), 0);
  expect_the_first_pair_alone(flushed_alone(small_files(), disk_events()));
}

// Who works in the deciding file may begin a new life there at any moment.
TEST_F(JournalPair, WhoSettlesAPromiseWritesNothingWhereSomebodyWorks) {
  file_pair files;
  files.open();
  ASSERT_EQ(files.change_both(101, 300), 0);
  const disk_image left = flushed_alone(small_files(), disk_events());
  for (handle& h : files.of) engine::abandon(h);
  for (const bool at_work : {false, true}) {
    mount_memory_disk(left);
    const int other = engine::os().open(paths[0], {true, false, false});
    if (at_work) {
      ASSERT_EQ(engine::os().lock(other, engine::arbiter_byte, 1), engine::lock_answer::taken);
    }
    ASSERT_EQ(files.of[1].open_for_work(paths[1]), 0);
    EXPECT_EQ(files.of[1].find_name(sample(101).name), 0);
    const std::uint64_t deciding = left.at("/disk/first.jnl").identity;
    const auto written = std::count_if(disk_events().begin(), disk_events().end(), [&](const disk_event& e) {
      return e.what == disk_event::kind::write && e.identity == deciding;
    });
    EXPECT_EQ(written == 0, at_work);
    engine::os().close(other);
    ASSERT_EQ(files.of[1].close(), 0);
  }
}

// While somebody works in the other file the deciding journal keeps what it decided.
TEST_F(JournalPair, NoLifeBeginsWhileThePartnerIsBusy) {
  file_pair files;
  files.open();
  ASSERT_EQ(files.change_both(101, 300), 0);
  engine::PSP* other = files.of[1].get();
  ASSERT_EQ(engine::wrenter(other), 0);
  EXPECT_EQ(engine::settle_partner(files.of[0].get()), engine::partner_busy);
  ASSERT_EQ(engine::check_point(files.of[0].get()), 0);
  EXPECT_TRUE(files.of[0].get()->journal->log.at.decision.there);
  ASSERT_EQ(engine::wrleave(other), 0);
  ASSERT_EQ(engine::check_point(files.of[0].get()), 0);
  EXPECT_FALSE(files.of[0].get()->journal->log.at.decision.there);
  files.close();
}

// ---- Failures: each nth call of the system, once and for good.

class PairFaults : public ::testing::TestWithParam<std::pair<os_call, bool>> {};
INSTANTIATE_TEST_SUITE_P(Calls, PairFaults,
                         ::testing::Values(std::pair{os_call::write, false}, std::pair{os_call::write, true},
                                           std::pair{os_call::flush, false}, std::pair{os_call::flush, true},
                                           std::pair{os_call::read, false}, std::pair{os_call::lock, false},
                                           std::pair{os_call::unlock, false}, std::pair{os_call::allocate, false}));

TEST_P(PairFaults, AnErrorMeansNeitherAndSuccessBoth) {
  const auto [call, for_good] = GetParam();
  bool failed = true;
  int nth = 1;
  for (; failed; nth++) {
    SCOPED_TRACE(nth);
    ASSERT_LT(nth, 500);
    scratch_folder folder;
    const std::string names[] = {folder.file("first"), folder.file("second")};
    install_faulty_os();
    for (const std::string& name : names) {
      file_recipe recipe = sample_recipe(false, 20, 600);
      recipe.spare_nodes = 6;
      write_file(name, build_file(recipe).bytes);
    }
    file_pair files;
    for (int i : {0, 1}) ASSERT_EQ(files.of[i].open_for_work(names[i]), 0);
    for (handle& h : files.of) {
      ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
      ASSERT_EQ(h.insert(sample(101, 300)), 0);
    }
    fail_call(call, nth, for_good);
    const int result = engine::transend_together(files.of[0], files.of[1], 1);
    failed = failures() > 0;
    disarm();
    if (!failed) {
      ASSERT_EQ(result, 0);
    }
    for (handle& h : files.of) engine::abandon(h);
    for (int i : {0, 1}) {
      handle& h = files.of[i];
      ASSERT_EQ(h.open_for_work(names[i]), 0);
      settle(&h);
      const int found = h.find_name(sample(101).name);
      EXPECT_EQ(found == 0, result == 0) << "file " << i << ": " << found << ", the call answered " << result;
      ASSERT_EQ(h.close(), 0);
      const check_result checked = check_file(names[i], true);
      EXPECT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
    }
    EXPECT_EQ(open_files(), 0);
    remove_faulty_os();
    if (::testing::Test::HasFailure()) return;
  }
  std::cout << nth - 1 << " points" << std::endl;
}

}  // namespace
}  // namespace zvrdb::test
