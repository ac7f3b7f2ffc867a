// Handles that come at the same moment, or while something is amiss: all of a file agree on
// whether it has a journal, and none of them works on a file that was not brought up to date.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "engine/after_a_crash.h"
#include "engine/engine_handle.h"
#include "engine/journal.h"
#include "engine/memory_disk.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

constexpr char path[] = "/disk/file";

// Done once, ahead of the next attempt to lock the arbiter byte.
std::function<void()> before_arbiter;
std::function<void()> while_waiting;   // done once
bool creations_fail = false;
bool flushes_fail = false;
bool file_flushes_fail = false;   // of the record file alone
constexpr std::uint64_t file_identity = 5000;
engine::os_ops below;

engine::lock_answer lock(int file, std::uint64_t offset, std::uint64_t length) {
  if (offset == engine::arbiter_byte && before_arbiter) std::exchange(before_arbiter, nullptr)();
  return below.lock(file, offset, length);
}
void wait(unsigned attempt) {
  if (while_waiting) std::exchange(while_waiting, nullptr)();
  below.wait(attempt);
}
int create(const char* name) { return creations_fail ? -1 : below.create(name); }
int flush(int file) {
  const bool fails = flushes_fail || (file_flushes_fail && below.identity(file) == file_identity);
  return fails ? -1 : below.flush(file);
}

class JournalOpen : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(300);
    mount(image());
    a_.journal = b_.journal = journal_use::on;
  }
  void TearDown() override {
    before_arbiter = while_waiting = nullptr;
    creations_fail = flushes_fail = file_flushes_fail = false;
    engine::checkpoint_at = engine::journal_size;
    for (handle* h : {&a_, &b_}) {
      if (engine::checkpsp(*h) != 'O') continue;
      EXPECT_EQ(h->close(), 0);
    }
    EXPECT_EQ(disk_open_files(), 0);
    unmount_memory_disk();
    alarm(0);
  }
  static void mount(const disk_image& what) {
    mount_memory_disk(what);
    below = engine::os();
    static engine::os_ops watched;
    watched = below;
    watched.lock = lock;
    watched.wait = wait;
    watched.create = create;
    watched.flush = flush;
    engine::set_os_ops(&watched);
  }
  static disk_image image() {
    file_recipe recipe = sample_recipe(false, 30, 600);
    recipe.spare_nodes = 6;
    disk_image start;
    start[path] = {build_file(recipe).bytes, file_identity};
    return start;
  }
  static int put(handle* h, int i) {
    if (const int begun = engine::transbeg(*h, 3, nullptr); begun != 0) return begun;
    if (const int inserted = h->insert(sample(i)); inserted != 0) return inserted;
    return engine::transend(*h, 1);
  }
  static void expect_sound() { expect_sound_bytes(disk_now().at(path).bytes); }
  // A commit that was acknowledged, and a power cut: the journal has it, the file nothing of it.
  disk_image after_lost_pages() {
    EXPECT_EQ(a_.open_for_work(path), 0);
    EXPECT_EQ(put(&a_, 101), 0);
    disk_image left = flushed_alone(image(), disk_events());
    engine::abandon(a_);
    return left;
  }
  handle a_, b_;
};

TEST_F(JournalOpen, TwoAtOnceBringTheFileUpToDate) {
  mount(after_lost_pages());
  before_arbiter = [&] {
    ASSERT_EQ(a_.open_for_work(path), 0);
    EXPECT_TRUE(engine::has_journal(a_));
    EXPECT_EQ(a_.find_name(sample(101).name), 0);
  };
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_FALSE(before_arbiter);
  EXPECT_TRUE(engine::has_journal(b_));
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
  ASSERT_EQ(put(&b_, 102), 0);
  EXPECT_EQ(a_.find_name(sample(102).name), 0);
}

TEST_F(JournalOpen, TwoAtOnceMakeOneJournal) {
  before_arbiter = [&] { ASSERT_EQ(a_.open_for_work(path), 0); };
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_FALSE(before_arbiter);
  EXPECT_TRUE(engine::has_journal(a_));
  EXPECT_TRUE(engine::has_journal(b_));
  ASSERT_EQ(put(&a_, 101), 0);
  ASSERT_EQ(put(&b_, 102), 0);
}

// One that asks for no journal takes no part in settling it, but brings the file up to date.
TEST_F(JournalOpen, OneWithoutAndOneWithAtOnceBringTheFileUpToDate) {
  mount(after_lost_pages());
  b_.journal = journal_use::off;
  before_arbiter = [&] {
    ASSERT_EQ(a_.open_for_work(path), 0);
    EXPECT_EQ(a_.find_name(sample(101).name), 0);
  };
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_FALSE(before_arbiter);
  EXPECT_EQ(engine::has_journal(a_), engine::has_journal(b_));
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
}

// A reader too settles the journal it finds.
TEST_F(JournalOpen, AReaderAndAWriterAtOnceBringTheFileUpToDate) {
  mount(after_lost_pages());
  before_arbiter = [&] {
    ASSERT_EQ(a_.open(path, 'S', 1), 0);
    EXPECT_EQ(a_.find_name(sample(101).name), 0);
  };
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_FALSE(before_arbiter);
  EXPECT_TRUE(engine::has_journal(b_));
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
}

// Whoever has a slot and is not seen to use the journal may be on its way to it or from it.
TEST_F(JournalOpen, BesideASlotThatIsTakenTheFileIsBroughtUpToDate) {
  mount(after_lost_pages());
  const int other = engine::os().open(path, {true, false, false});
  ASSERT_EQ(engine::os().lock(other, engine::slot_bytes + 7, 1), engine::lock_answer::taken);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(a_.find_name(sample(101).name), 0);
  engine::os().close(other);
}

// It could not be made at the open of the one; the other found none, and does without.
TEST_F(JournalOpen, AJournalThatCouldNotBeMadeIsNotMadeBesideOneThatDoesWithout) {
  creations_fail = true;
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open_for_work(path), 0);
  creations_fail = false;
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  EXPECT_EQ(engine::transbeg(b_, 3, nullptr), engine::e_trans_busy);
  EXPECT_EQ(b_.insert(sample(102)), 0);
  ASSERT_EQ(a_.insert(sample(103)), 0);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  for (const int i : {101, 102, 103}) {
    EXPECT_EQ(a_.find_name(sample(i).name), 0) << i;
    EXPECT_EQ(b_.find_name(sample(i).name), 0) << i;
  }
  EXPECT_EQ(engine::has_journal(a_), engine::has_journal(b_));
  ASSERT_EQ(a_.close(), 0);
  ASSERT_EQ(b_.close(), 0);
  expect_sound();
}

// The arbiter is held while a slot is looked for, and old locks are seen all the same.
TEST_F(JournalOpen, AReadOnlyHandleTakesNoSlotWithOldLocks) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(put(&a_, 101), 0);
  ASSERT_EQ(a_.find_name(sample(101).name), 0);
  ASSERT_EQ(engine::dlock(a_), 0);
  const int slot = a_.get()->slot;
  engine::abandon(a_);
  ASSERT_EQ(b_.open(path, 'S', 1), 0);
  EXPECT_NE(b_.get()->slot, slot);
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
}

// The journal holds changes, but the file went on without it, and so does who has it open.
TEST_F(JournalOpen, BesideOneThatDoesWithoutAJournalOfAnotherStateIsLeftAlone) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(put(&a_, 101), 0);
  handle foreign;
  ASSERT_EQ(foreign.open_for_work(path), 0);
  engine::journal_let_go(foreign);
  ASSERT_EQ(foreign.insert(sample(201)), 0);
  engine::abandon(a_);
  ASSERT_EQ(foreign.close(), 0);
  b_.journal = journal_use::off;
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_FALSE(engine::has_journal(b_));
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_FALSE(engine::has_journal(a_));
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(202)), 0);
  EXPECT_EQ(engine::transbeg(b_, 3, nullptr), engine::e_trans_busy);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  for (const int i : {101, 201, 202}) EXPECT_EQ(b_.find_name(sample(i).name), 0) << i;
}

// A close that failed left the handle as it was.
TEST_F(JournalOpen, AHandleThatCouldNotBeClosedKeepsItsSlot) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  flushes_fail = true;
  EXPECT_NE(a_.close(), 0);
  flushes_fail = false;
  ASSERT_EQ(engine::checkpsp(a_), 'O');
  ASSERT_EQ(a_.insert(sample(102)), 0);
  EXPECT_TRUE(engine::slot_is_alive(b_, a_.get()->slot));
  EXPECT_EQ(engine::transbeg(b_, 3, nullptr), engine::e_trans_busy);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
  EXPECT_EQ(b_.find_name(sample(102).name), 0);
}

// What the system could not write is gone from its memory too, sooner or later, and it tells that
// once: the one who was told is killed.
TEST_F(JournalOpen, WhatAFlushThatFailedMayHaveLostIsWrittenAgainByWhoeverFlushesNext) {
  engine::checkpoint_at = 24 * 1024;
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open_for_work(path), 0);
  file_flushes_fail = true;
  for (int i = 101; i < 111; ++i) ASSERT_EQ(a_.insert(sample(i, 700)), 0);
  const std::size_t written_in_vain = disk_events().size();
  engine::abandon(a_);
  file_flushes_fail = false;
  ASSERT_EQ(put(&b_, 201), 0);
  const std::vector<disk_event> events = disk_events();
  EXPECT_TRUE(std::any_of(events.begin() + static_cast<std::ptrdiff_t>(written_in_vain), events.end(), [](const disk_event& e) {
    return e.what == disk_event::kind::flush && e.identity == file_identity;
  })) << "a checkpoint";
  write_fates fates;
  for (std::size_t i = 0; i < written_in_vain; ++i)
    if (events[i].what == disk_event::kind::write && events[i].identity == file_identity) fates[i] = write_fate::lost;
  const disk_image left = after_power_cut(image(), events, events.size(), fates, nullptr);
  engine::abandon(b_);
  mount(left);
  ASSERT_EQ(a_.open_for_work(path), 0);
  for (int i = 101; i < 111; ++i) {
    sample_record found;
    EXPECT_EQ(a_.find_name(sample(i).name), 0) << i;
    EXPECT_EQ(a_.read(&found), 0) << i;
    EXPECT_EQ(found.payload, sample(i, 700).payload) << i;
  }
  EXPECT_EQ(a_.find_name(sample(201).name), 0);
}

// A program that knows nothing of journals goes on from the generation that the file bears,
// and the operations that moved it in the journal alone are not in the file.
TEST_F(JournalOpen, AProgramWithoutOneIsNoticedBehindOperationsWithoutAChange) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(put(&a_, 101), 0);
  for (int i = 0; i < 40; ++i) ASSERT_EQ(engine::dflush(a_), 0);
  handle foreign;
  ASSERT_EQ(foreign.open_for_work(path), 0);
  engine::journal_let_go(foreign);
  for (int i = 201; i < 206; ++i) {
    ASSERT_EQ(foreign.insert(sample(i, 700)), 0);
    EXPECT_EQ(a_.find_name(sample(i).name), 0) << i;
    ASSERT_EQ(put(&a_, i - 60), 0);
    EXPECT_EQ(foreign.find_name(sample(i - 60).name), 0) << i;
    for (int k = 0; k < 9; ++k) ASSERT_EQ(engine::dflush(a_), 0);
  }
  ASSERT_EQ(foreign.close(), 0);
  ASSERT_EQ(a_.close(), 0);
  expect_sound();
}

// The system closes the record file of a dead process first, and its journal then.
TEST_F(JournalOpen, WaitsForTheDyingOneWhoseSlotItHas) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.close(), 0);
  constexpr std::uint64_t byte_of_slot_0 = (std::uint64_t{1} << 32) + 64;
  const int dying = engine::os().open("/disk/file.jnl", {true, false, false});
  ASSERT_EQ(engine::os().lock(dying, byte_of_slot_0, 1), engine::lock_answer::taken);
  while_waiting = [&] { engine::os().close(dying); };
  EXPECT_EQ(a_.open_for_work(path), 0);
  EXPECT_FALSE(while_waiting) << "it never waited";
  EXPECT_TRUE(engine::has_journal(a_));
}

}  // namespace
}  // namespace zvrdb::test
