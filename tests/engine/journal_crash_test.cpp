// A crash at any point of work with a journal: everything acknowledged is there, the
// operation at hand is there whole or not at all, and the file goes on working.
//
// The engine runs on a disk in memory that remembers its writes.  For each point the test
// makes what a kill would have left (every write so far) and what power cuts could have left
// (of the writes that no flush followed: none, each one missing, prefixes, random choices,
// with sectors of 512 bytes torn), opens it, and compares.
//
// ZVR_TORTURE=1 tries all variants at all points.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <iostream>

#include "engine/after_a_crash.h"
#include "engine/engine_handle.h"
#include "engine/every_record.h"
#include "engine/format.h"
#include "engine/journal.h"
#include "engine/memory_disk.h"
#include "engine/power_cuts.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;
constexpr char path[] = "/disk/crash";

bool torture() { return std::getenv("ZVR_TORTURE") != nullptr; }

// What the file must hold after a crash, from an event on.
struct milestone {
  std::size_t events;
  records state;
};

class work {
 public:
  explicit work(handle* h, records start) : h_(h), now_(start), committed_(std::move(start)) { mark(); }
  const std::vector<milestone>& milestones() const { return milestones_; }

  void insert(int i, std::size_t payload = 20) { put(sample(i, payload)); }
  void put(const sample_record& r) {
    ASSERT_EQ(h_->insert(r), 0);
    now_[r.name] = r;
    done();
  }
  // A name of which a node holds four, and which differs from others at its end alone.
  void insert_long_name(int i) {
    sample_record r = sample(i);
    r.name = std::string(200, 'n') + r.name;
    put(r);
  }
  void update(int i, std::size_t payload) {
    sample_record r = sample(i, payload);
    r.number = 4711;
    ASSERT_EQ(h_->find_name(r.name), 0);
    ASSERT_EQ(engine::dlock(*h_), 0);
    mark();
    sample_fields fields(r);
    ASSERT_EQ(engine::dupdate(*h_, fields.list), 0);
    now_[r.name] = r;
    done();
    ASSERT_EQ(engine::dunlock(*h_), 0);
    mark();
  }
  void remove(int i) {
    ASSERT_EQ(h_->find_name(sample(i).name), 0);
    ASSERT_EQ(engine::dlock(*h_), 0);
    sample_fields fields;
    ASSERT_EQ(engine::ddelete(*h_, fields.list), 0);
    now_.erase(sample(i).name);
    done();
  }
  void begin() {
    ASSERT_EQ(engine::transbeg(*h_, 3, nullptr), 0);
    inside_ = true;
    mark();
  }
  void end() {
    ASSERT_EQ(engine::transend(*h_, 1), 0);
    inside_ = false;
    committed_ = now_;
    mark();
  }
  void roll_back() {
    ASSERT_EQ(engine::transroll(*h_, nullptr, 0, nullptr), 0);
    inside_ = false;
    now_ = committed_;
    mark();
  }
  // As one call of a client: an implicit transaction, and the flush behind it.
  void call(const std::function<void()>& change) {
    begin();
    change();
    end();
    ASSERT_EQ(engine::dflush(*h_), 0);
    mark();
  }

  // The same, whose operations nobody comes between.
  void held_call(const std::function<void()>& change) {
    engine::begin_call(*h_);
    begin();
    change();
    end();
    ASSERT_EQ(engine::end_call(*h_), 0);
  }

 private:
  void done() {
    if (!inside_) committed_ = now_;
    mark();
  }
  void mark() { milestones_.push_back({disk_events().size(), committed_}); }

  handle* h_;
  records now_, committed_;
  bool inside_ = false;
  std::vector<milestone> milestones_;
};

const std::uint64_t deferred_by_default = engine::defer_to;

// Lengths of the journal.
constexpr std::uint64_t big = 1024 * 1024;
constexpr std::uint64_t small = 16 * 1024;

constexpr unsigned few = 10;
constexpr unsigned many = 500;

struct scenario {
  const char* name;
  void (*run)(work& w);
  std::uint64_t checkpoint;   // length of the journal
  bool fresh_journal;         // the journal is made by the run's own open
  unsigned blocks = few;      // of the cache: groups have less of the nodes that it holds
  bool grows = false;         // leaves, inner nodes and the root are split
};
void PrintTo(const scenario& s, std::ostream* out) { *out << s.name; }

class Crash : public ::testing::TestWithParam<scenario> {
 protected:
  void SetUp() override {
    alarm(torture() ? 4 * 3600 : 600);
    engine::checkpoint_at = engine::journal_size;
    file_recipe recipe = sample_recipe(false, 30, 600);
    recipe.spare_nodes = 6;   // so that growth comes too
    disk_image start;
    start[path] = {build_file(recipe).bytes, 5000};
    for (int i = 1; i <= 30; i++) {
      const sample_record r = sample(i, i % 40 == 0 ? 3000 : 20);
      base_[r.name] = r;
    }
    start_ = start;
    if (!GetParam().fresh_journal) {
      mount_memory_disk(start);
      handle h;
      h.journal = journal_use::on;
      ASSERT_EQ(h.open_for_work(path), 0);
      ASSERT_EQ(h.insert(sample(90)), 0);
      ASSERT_EQ(h.close(), 0);
      base_[sample(90).name] = sample(90);
      start_ = disk_now();
    }
    read_base();
    engine::checkpoint_at = GetParam().checkpoint;
    engine::defer_to = 4 * engine::checkpoint_at;
  }
  void TearDown() override {
    unmount_memory_disk();
    engine::checkpoint_at = engine::journal_size;
    engine::defer_to = deferred_by_default;
    alarm(0);
  }
  // The samples as the file has them.
  void read_base() {
    mount_memory_disk(start_, power::stays_on);
    handle h;
    h.journal = journal_use::on;
    ASSERT_EQ(h.open_for_work(path), 0);
    base_ = all_records(&h);
    ASSERT_EQ(h.close(), 0);
  }
  // Opens what a crash left, as the layer above does.  Events of the repair stay on the disk.
  void recover(handle* h) {
    h->journal = journal_use::on;
    ASSERT_EQ(h->open_for_work(path), 0);
    settle(h);
  }
  // Before or after, never between: what was acknowledged at event n, or one step more.
  void verify(const disk_image& image, std::size_t n, power how = power::was_off) {
    mount_memory_disk(image, how);
    handle h;
    recover(&h);
    if (HasFatalFailure()) return;
    const records found = all_records(&h);
    std::size_t step = 0;
    while (step + 1 < milestones_.size() && milestones_[step + 1].events <= n) step++;
    const bool before = found == milestones_[step].state;
    const bool after = step + 1 < milestones_.size() && found == milestones_[step + 1].state;
    ASSERT_TRUE(before || after) << "step " << step << ": " << found.size() << " records, not "
                                 << milestones_[step].state.size();
    ASSERT_EQ(h.insert(sample(399)), 0);
    ASSERT_EQ(h.close(), 0);
    ASSERT_EQ(disk_open_files(), 0);
    points_++;
    if (points_ % (torture() ? 1 : 16) == 0) expect_sound_bytes(disk_now().at(path).bytes);
  }
  void run() {
    mount_memory_disk(start_, power::stays_on);
    engine::set_cache_blocks(GetParam().blocks);
    handle h;
    h.journal = journal_use::on;
    work w(&h, base_);
    ASSERT_EQ(h.open_for_work(path), 0);
    GetParam().run(w);
    if (HasFatalFailure()) return;
    ASSERT_EQ(h.close(), 0);
    engine::set_cache_blocks(few);
    milestones_ = w.milestones();
    events_ = disk_events();
    end_ = disk_now();
    if (GetParam().grows) expect_every_kind_of_split();
    // One of them at the close.
    if (GetParam().checkpoint != big) {
      EXPECT_GE(disk_flushes(path), 2) << "no checkpoint";
    }
  }
  static engine::file_summary summary_of(const disk_bytes& bytes) {
    scratch_folder folder;
    write_file(folder.file("f"), bytes);
    engine::file_summary summary = {};
    std::string reason;
    EXPECT_EQ(engine::summarize_file(folder.file("f").c_str(), &summary, &reason), engine::report_outcome::sound) << reason;
    return summary;
  }
  // A root that is split leaves two inner nodes more, another inner node one.
  void expect_every_kind_of_split() const {
    const engine::file_summary before = summary_of(start_.at(path).bytes), after = summary_of(end_.at(path).bytes);
    EXPECT_GT(after.leaves, before.leaves);
    EXPECT_GT(after.header.depth, before.header.depth);
    EXPECT_GT(after.inner_nodes - before.inner_nodes,
              2U * static_cast<unsigned>(after.header.depth - before.header.depth));
  }

  disk_image start_, end_;
  records base_;
  std::vector<milestone> milestones_;
  std::vector<disk_event> events_;
  int points_ = 0;
};

const scenario scenarios[] = {
    {"Insert", [](work& w) { w.insert(101); }, big, false},
    {"PutOfOnePiece", [](work& w) { w.call([&] { w.insert(101, 300); }); }, big, false},
    {"PutOfFourPieces", [](work& w) { w.call([&] { for (int i = 101; i < 105; i++) w.insert(i, 700); }); }, big, false},
    {"Replace", [](work& w) { w.call([&] { w.update(7, 500); }); }, big, false},
    {"ReplaceOutsideATransaction", [](work& w) { w.update(7, 500); }, big, false},
    {"Delete", [](work& w) { w.call([&] { w.remove(7); }); }, big, false},
    {"ManyInsertsThatSplit", [](work& w) { for (int i = 101; i < 125; i++) w.insert(i, 200); }, big, false},
    {"SplitsUpToTheRoot", [](work& w) { w.begin(); for (int i = 101; i < 113; i++) w.insert_long_name(i); w.end(); for (int i = 113; i < 121; i++) w.insert_long_name(i); }, big, false, few, true},
    {"Commit", [](work& w) { w.begin(); w.insert(101, 300); w.update(7, 400); w.remove(8); w.end(); w.insert(102); }, big, false},
    {"RollBack", [](work& w) { w.begin(); w.insert(101, 300); w.update(7, 400); w.remove(8); w.roll_back(); w.insert(102); }, big, false},
    {"RefusedAndGoneOn", [](work& w) { w.begin(); w.insert(101, 2000); w.end(); w.call([&] { w.remove(101); w.insert(101, 50); }); }, big, false},
    {"OpenAndClose", [](work&) {}, big, false},
    {"FirstJournal", [](work& w) { w.insert(101); w.call([&] { w.insert(102, 300); }); }, big, true},
    {"Checkpoints", [](work& w) { for (int i = 101; i < 113; i++) w.call([&] { w.insert(i, 300); }); }, small, false},
    {"CheckpointsInATransaction", [](work& w) { w.begin(); for (int i = 101; i < 121; i++) w.insert(i, 500); w.end(); w.insert(121); }, small / 2, false},
    {"CheckpointsInARollBack", [](work& w) { w.begin(); for (int i = 101; i < 116; i++) w.insert(i, 500); w.roll_back(); w.insert(121); }, small / 2, false},
    {"HeldCalls", [](work& w) { w.held_call([&] { w.insert(101, 300); }); w.held_call([&] { w.update(7, 500); }); w.held_call([&] { w.remove(8); w.insert(102, 900); }); }, big, false, many},
    {"HeldCallsWithCheckpoints", [](work& w) { for (int i = 101; i < 109; i++) w.held_call([&] { w.insert(i, 300); w.remove(i - 90); }); }, small, false},
    {"CallsOnNodesInTheCache", [](work& w) { w.call([&] { w.insert(101, 300); }); w.call([&] { w.update(7, 500); }); w.update(7, 30); w.call([&] { w.remove(8); }); }, big, false, many},
    {"CommitOfNodesInTheCache", [](work& w) { w.insert(103); w.begin(); w.insert(101, 300); w.update(7, 400); w.remove(8); w.end(); w.insert(102); }, big, false, many},
    {"CheckpointsAmongNodesInTheCache", [](work& w) { for (int i = 101; i < 109; i++) w.call([&] { w.insert(i, 300); w.remove(i - 90); }); }, small, false, many},
};

INSTANTIATE_TEST_SUITE_P(Scenarios, Crash, ::testing::ValuesIn(scenarios), [](const auto& c) { return c.param.name; });

TEST_P(Crash, AKillBehindAnyWriteLeavesBeforeOrAfter) {
  run();
  for (const power how : {power::stays_on, power::was_off}) {
    for (std::size_t n = 0; n <= events_.size(); n++) {
      SCOPED_TRACE("kill behind event " + std::to_string(n) + " of " + std::to_string(events_.size()));
      verify(after_kill(start_, events_, n), n, how);
      if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
  }
  std::cout << points_ << " points" << std::endl;
}

TEST_P(Crash, APowerCutAtAnyWriteLeavesBeforeOrAfter) {
  run();
  std::mt19937 coin(20);
  const auto before_or_after = [&](const disk_image& left, std::size_t n) {
    verify(left, n);
    return !HasFatalFailure() && !HasNonfatalFailure();
  };
  if (!for_each_power_cut(start_, events_, {60, 3, 6}, &coin, before_or_after)) return;
  std::cout << points_ << " points" << std::endl;
}

// A kill, and a kill or a power cut in what the next opener then does.
TEST_P(Crash, ACrashInTheRepairIsRepaired) {
  run();
  std::mt19937 coin(30);
  const std::size_t step = torture() ? 1 : events_.size() / 12 + 1;
  for (std::size_t n = 0; n <= events_.size(); n += step) {
    const disk_image first = after_kill(start_, events_, n);
    std::vector<disk_event> repair;
    {
      mount_memory_disk(first);
      handle h;
      recover(&h);
      if (HasFatalFailure()) return;
      ASSERT_EQ(h.close(), 0);
      // Before the first cut nothing of it was flushed for sure: its writes are open too.
      repair.assign(events_.begin(), events_.begin() + static_cast<std::ptrdiff_t>(n));
      repair.insert(repair.end(), disk_events().begin(), disk_events().end());
    }
    for (std::size_t m = n; m <= repair.size(); m++) {
      SCOPED_TRACE("kill behind event " + std::to_string(n) + ", then at event " + std::to_string(m - n) + " of the repair");
      if (torture() || coin() % 3 == 0) verify(after_kill(start_, repair, m), n);
      if (HasFatalFailure() || HasNonfatalFailure()) return;
      if (!for_each_fate(undecided_writes(repair, m), torture(), torture() ? 20 : 1, &coin, [&](const write_fates& fates) {
            verify(after_power_cut(start_, repair, m, fates, &coin), n);
            return !HasFatalFailure() && !HasNonfatalFailure();
          }))
        return;
    }
  }
  std::cout << points_ << " points" << std::endl;
}

// A power cut, and another one in what the next opener does with what the first one left.  What
// that opener gave out was true: it stays.
TEST_P(Crash, APowerCutInTheRepairOfAPowerCutIsRepaired) {
  run();
  std::mt19937 coin(31);
  const std::size_t step = events_.size() / (torture() ? 100 : 12) + 1;
  const std::vector<milestone> milestones = milestones_;
  for (std::size_t n = coin() % step; n <= events_.size(); n += step) {
    for (int first_cut = 0; first_cut < (torture() ? 4 : 2); first_cut++) {
      write_fates fates;
      for (const std::size_t i : undecided_writes(events_, n))
        fates[i] = first_cut == 0 ? write_fate::lost : static_cast<write_fate>(coin() % 3);
      const disk_image left = after_power_cut(start_, events_, n, fates, &coin);
      milestones_ = milestones;
      verify(left, n);
      if (HasFatalFailure()) return;
      mount_memory_disk(left);
      std::size_t seen = 0;
      records found;
      {
        handle h;
        recover(&h);
        if (HasFatalFailure()) return;
        found = all_records(&h);
        seen = disk_events().size();
        ASSERT_EQ(h.close(), 0);
      }
      const std::vector<disk_event> repair = disk_events();
      const std::size_t one_in = torture() ? repair.size() / 30 + 1 : 3;
      for (std::size_t m = 0; m <= repair.size(); m++) {
        if (m != seen && coin() % one_in != 0) continue;
        SCOPED_TRACE("power cut behind event " + std::to_string(n) + " of " + std::to_string(events_.size()) +
                     ", then behind event " + std::to_string(m) + " of the repair, read behind event " +
                     std::to_string(seen));
        if (m >= seen) milestones_ = {{0, found}};
        const auto look = [&](const write_fates& second) {
          verify(after_power_cut(left, repair, m, second, &coin), n);
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

// The file bears a flag whose clearing alone was lost, and the journal behind it a transaction that
// nobody ended.  The next opener brings that to the file; then a cut loses the headers of this, and
// some of the nodes, but not the clearing of the flag.
TEST_P(Crash, AFlagLeftByOnePowerCutDoesNotMisleadBehindTheNext) {
  run();
  std::mt19937 coin(32);
  const std::uint64_t own = start_.at(path).identity;
  const auto at_flag = [own](const disk_event& e) { return e.identity == own && e.offset == engine::flag_offset; };
  const auto is_header = [own](const disk_event& e) { return e.identity == own && e.offset == 0; };
  const std::size_t step = torture() ? 1 : events_.size() / 40 + 1;
  for (std::size_t n = 0; n <= events_.size(); n += step) {
    write_fates flags_stay;
    for (const std::size_t i : undecided_writes(events_, n))
      if (at_flag(events_[i]) && events_[i].bytes == disk_bytes{0, 0}) flags_stay[i] = write_fate::lost;
    const disk_image left = after_power_cut(start_, events_, n, flags_stay, &coin);
    mount_memory_disk(left);
    {
      handle h;
      recover(&h);
      if (HasFatalFailure()) return;
      ASSERT_EQ(h.close(), 0);
    }
    const std::vector<disk_event> repair = disk_events();
    const std::size_t step_of_repair = torture() ? 1 : repair.size() / 40 + 1;
    for (std::size_t m = 0; m <= repair.size(); m += step_of_repair) {
      SCOPED_TRACE("power cut behind event " + std::to_string(n) + " of " + std::to_string(events_.size()) +
                   ", then behind event " + std::to_string(m) + " of the repair");
      for (int variant = 0; variant < (torture() ? 6 : 2); variant++) {
        write_fates fates;
        for (const std::size_t i : undecided_writes(repair, m))
          if (!at_flag(repair[i]) && (is_header(repair[i]) || coin() % 2 == 0)) fates[i] = write_fate::lost;
        verify(after_power_cut(left, repair, m, fates, &coin), n);
        if (HasFatalFailure() || HasNonfatalFailure()) return;
      }
    }
  }
  std::cout << points_ << " points" << std::endl;
}

// After a clean close the record file alone is complete.
TEST_P(Crash, ACleanCloseLeavesAFileThatNeedsNoJournal) {
  run();
  disk_image alone = end_;
  for (auto at = alone.begin(); at != alone.end();) at = at->first == path ? std::next(at) : alone.erase(at);
  ASSERT_EQ(alone.size(), 1U);
  for (std::size_t i : undecided_writes(events_, events_.size())) {
    // Not flushed is at most the generation, which nothing hangs on.
    if (events_[i].identity == start_.at(path).identity) {
      EXPECT_EQ(events_[i].offset, 0U);
      EXPECT_EQ(events_[i].bytes.size(), 4U);
    }
  }
  expect_sound_bytes(alone.at(path).bytes);
  mount_memory_disk(alone);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(all_records(&h), milestones_.back().state);
  ASSERT_EQ(h.close(), 0);
}

// ---- The first creation of a file

class CreationCrash : public ::testing::TestWithParam<journal_use> {
 protected:
  void SetUp() override {
    alarm(600);
    mount_memory_disk({});
    handle h;
    h.journal = GetParam();
    ASSERT_EQ(h.create(path), 0);
    created_ = disk_events().size();
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    ASSERT_EQ(h.insert(sample(1)), 0);
    stored_ = disk_events().size();
    ASSERT_EQ(h.close(), 0);
    events_ = disk_events();
  }
  void TearDown() override {
    unmount_memory_disk();
    alarm(0);
  }
  // Behind the n-th event: no file, and then one can be made; or a whole one.
  void verify(const disk_image& image, std::size_t n, power how) {
    mount_memory_disk(image, how);
    handle h;
    h.journal = GetParam();
    if (image.count(path) == 0) {
      ASSERT_LT(n, created_) << "the file is gone";
      ASSERT_EQ(h.create(path), 0);
      ASSERT_EQ(engine::csetfile(h, 4), 0);
    } else {
      if (GetParam() == journal_use::off) clear_flag(&h);
      ASSERT_EQ(h.open_for_work(path), 0);
      settle(&h);
      if (HasFatalFailure()) return;
    }
    const records found = all_records(&h);
    if (GetParam() == journal_use::on || n <= created_ || n >= stored_) {
      ASSERT_TRUE(n < stored_ ? found.size() <= 1 : found.size() == 1) << found.size();
      ASSERT_EQ(h.insert(sample(2)), 0);
      ASSERT_EQ(h.close(), 0);
      expect_sound_bytes(disk_now().at(path).bytes);
    }
    points_++;
  }
  // As the layer above does where nobody else has the file.
  static void clear_flag(handle* h) {
    ASSERT_EQ(engine::_bopen(*h, path, 'E', 2), 0);
    ASSERT_EQ(engine::clrwrit(*h), 0);
    ASSERT_EQ(engine::cclose(*h), 0);
  }

  std::vector<disk_event> events_;
  std::size_t created_ = 0, stored_ = 0;
  int points_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Journals, CreationCrash, ::testing::Values(journal_use::on, journal_use::off),
                         [](const auto& a) { return a.param == journal_use::on ? "On" : "Off"; });

TEST_P(CreationCrash, AKillLeavesNoFileOrAWholeOne) {
  for (const power how : {power::stays_on, power::was_off}) {
    for (std::size_t n = 0; n <= events_.size(); n++) {
      SCOPED_TRACE("kill behind event " + std::to_string(n) + " of " + std::to_string(events_.size()));
      verify(after_kill({}, events_, n), n, how);
      if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
  }
  std::cout << points_ << " points" << std::endl;
}

TEST_P(CreationCrash, APowerCutLeavesNoFileOrAWholeOne) {
  // Without a journal a cut in the first put may leave half of it.
  if (GetParam() == journal_use::off) events_.resize(created_);
  std::mt19937 coin(21);
  const auto none_or_whole = [&](const disk_image& left, std::size_t n) {
    verify(left, n, power::was_off);
    return !HasFatalFailure() && !HasNonfatalFailure();
  };
  if (!for_each_power_cut({}, events_, {SIZE_MAX, SIZE_MAX, 20}, &coin, none_or_whole)) return;
  std::cout << points_ << " points" << std::endl;
}

}  // namespace
}  // namespace zvrdb::test
