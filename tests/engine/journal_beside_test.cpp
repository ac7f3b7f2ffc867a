// Handles with a journal beside each other, beside one that died, and beside writers without one.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "engine/journal.h"
#include "engine/journal_use_fixture.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/sharing.h"
#include "engine/writers_held.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

// Each record is seen by another handle as soon as it is put: groups that say only what an
// operation changed of a node meet nodes that it has in its cache, and others.
TEST_F(JournalUse, AnotherHandleFollowsALongTransactionRecordByRecord) {
  for (const bool from_cache : {false, true}) {
    ASSERT_EQ(a_.open_for_work(path), 0);
    b_.from_cache = from_cache;
    ASSERT_EQ(b_.open_for_work(path), 0);
    const int base = from_cache ? 2000 : 1000;
    ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
    for (int i = 0; i < 200; i++) {
      ASSERT_EQ(a_.insert(sample(base + i * 37 % 200, 40)), 0);
      if (i % 9 == 0) {
        ASSERT_EQ(b_.find_name(sample(base + i * 37 % 200).name), 0);
      }
    }
    ASSERT_EQ(engine::transend(a_, 1), 0);
    for (int i = 0; i < 200; i++) {
      if (i % 3 == 0) {
        ASSERT_EQ(a_.insert(sample(base + 500 + i, 40)), 0);
      }
      ASSERT_EQ(b_.find_name(sample(base + i).name), 0);
    }
    ASSERT_EQ(all_records(&b_), all_records(&a_));
    ASSERT_EQ(a_.close(), 0);
    ASSERT_EQ(b_.close(), 0);
  }
  expect_sound();
}

TEST_F(JournalUse, AnotherHandleSeesTheChangesOfARunningTransaction) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  EXPECT_EQ(b_.find_name(sample(101).name), 0);
  ASSERT_EQ(b_.insert(sample(102)), 0);
  ASSERT_EQ(a_.insert(sample(103)), 0);
  EXPECT_EQ(engine::transbeg(b_, 3, nullptr), engine::e_trans_busy);
  ASSERT_EQ(engine::transroll(a_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(b_.find_name(sample(101).name), engine::e_not_found);
  EXPECT_EQ(a_.find_name(sample(102).name), 0);
  EXPECT_EQ(b_.find_name(sample(103).name), engine::e_not_found);
}

// It goes on from 1 behind the last one, in the midst of a transaction or of questions.
TEST_F(JournalUse, AGenerationThatWrapsIsFollowed) {
  for (const int left : {2, 5, 9, 14, 20, 30}) {
    disk_image start = image();
    const unsigned char generation[] = {static_cast<unsigned char>(0xFF - left), 0xFF, 0xFF, 0xFF};
    start.at(path).bytes.write(0, generation, sizeof generation);
    mount_memory_disk(start);
    ASSERT_EQ(a_.open_for_work(path), 0);
    ASSERT_EQ(b_.open_for_work(path), 0);
    for (int i = 101; i < 109; ++i) {
      handle& writer = i % 2 ? a_ : b_;
      handle& other = i % 2 ? b_ : a_;
      ASSERT_EQ(engine::transbeg(writer, 3, nullptr), 0);
      ASSERT_EQ(writer.insert(sample(i)), 0);
      if (i % 4 < 2) {
        EXPECT_EQ(other.find_name(sample(i).name), 0);
      }
      ASSERT_EQ(writer.insert(sample(i + 100)), 0);
      ASSERT_EQ(engine::transend(writer, 1), 0);
      EXPECT_EQ(other.find_name(sample(i + 100).name), 0);
      ASSERT_EQ(engine::dflush(writer), 0);
    }
    for (handle* h : {&a_, &b_}) EXPECT_EQ(all_records(h).size(), 46U);
    ASSERT_EQ(a_.close(), 0);
    ASSERT_EQ(b_.close(), 0);
    expect_sound();
  }
}

// ---- Beside one that died

void a_call(handle* h) {
  ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
  ASSERT_EQ(h->insert(sample(101, 900)), 0);
  ASSERT_EQ(h->insert(sample(102, 20)), 0);
  ASSERT_EQ(engine::transend(*h, 1), 0);
  ASSERT_EQ(engine::dflush(*h), 0);
}

// The other one reads first, or writes first, or a third comes.
TEST_F(JournalUse, ALiveHandleFinishesWhatAKilledOneBegan) {
  enum { reads, writes, comes };
  int points = 0;
  for (const int who : {reads, writes, comes}) {
    bool after_seen = false;
    for (int n = 0; !after_seen; n++) {
      SCOPED_TRACE("killed behind event " + std::to_string(n) + ", the other " + std::to_string(who));
      ASSERT_LT(n, 200);
      mount_memory_disk(image());
      handle dead, live, third;
      dead.journal = live.journal = third.journal = journal_use::on;
      ASSERT_EQ(live.open_for_work(path), 0);
      ASSERT_EQ(dead.open_for_work(path), 0);
      ASSERT_EQ(dead.insert(sample(90)), 0);
      const records before = all_records(&live);
      const std::size_t events = disk_events().size();
      a_call(&dead);
      if (HasFatalFailure()) return;
      engine::abandon(dead);
      const std::size_t until = events + static_cast<std::size_t>(n);
      after_seen = until >= disk_events().size();
      const bool committed = until > next_flush(events);   // from there on others must see the change whole
      rewind_disk(image(), std::min(until, disk_events().size()));
      handle& other = who == comes ? third : live;
      if (who == comes) {
        ASSERT_EQ(third.open_for_work(path), 0);
      }
      if (who != reads) {
        const int state = engine::transstat(other);
        ASSERT_TRUE(state == 0 || state == engine::e_trans_interrupted || state == engine::e_trans_empty) << state;
      } else {
        ASSERT_EQ(live.find_name(sample(7).name), 0);
      }
      EXPECT_FALSE(flag_set());
      const int state = engine::transstat(other);
      if (state == engine::e_trans_interrupted) {
        ASSERT_EQ(engine::transroll(other, nullptr, 0, nullptr), 0);
      }
      if (state == engine::e_trans_empty) {
        ASSERT_EQ(engine::transend(other, 1), 0);
      }
      records after = before;
      after[sample(101).name] = sample(101, 900);
      after[sample(102).name] = sample(102, 20);
      const records found = all_records(&live);
      ASSERT_TRUE(found == before || found == after) << found.size();
      if (committed) {
        ASSERT_EQ(found, after);
      }
      put(&live, 103);
      if (HasFatalFailure()) return;
      if (who == comes) {
        ASSERT_EQ(third.close(), 0);
      }
      ASSERT_EQ(live.close(), 0);
      expect_sound();
      if (HasFatalFailure()) return;
      points++;
    }
  }
  std::cout << points << " points" << std::endl;
}

TEST_F(JournalUse, AReaderFinishesWhatADeadWriterCommitted) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open(path, 'S', 1), 0);
  EXPECT_TRUE(engine::has_journal(b_));
  const std::size_t events = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  rewind_disk(image(), next_flag_write(events) + 2);
  ASSERT_TRUE(flag_set());
  EXPECT_EQ(b_.find_name(sample(102).name), 0);
  EXPECT_FALSE(flag_set());
}

// A writer was killed when it had committed and not yet changed the file: who keeps writers
// away, for a copy, has it in the file.
TEST_F(JournalUse, WhoHoldsTheWritersHasWhatADeadOneCommitted) {
  for (const bool beside_others : {false, true}) {
    SCOPED_TRACE(beside_others);
    mount_memory_disk(image());
    ASSERT_EQ(a_.open_for_work(path), 0);
    if (beside_others) {
      ASSERT_EQ(b_.open_for_work(path), 0);
    }
    const std::size_t events = disk_events().size();
    ASSERT_EQ(a_.insert(sample(102)), 0);
    engine::abandon(a_);
    rewind_disk(image(), next_flush(events) + 1);
    disk_bytes held;
    {
      const engine::writers_held keeps(path);
      ASSERT_EQ(keeps.result(), 0);
      held = disk_now().at(path).bytes;
    }
    disk_image copy;
    copy["/disk/copy"] = {held, 9000};
    if (beside_others) engine::abandon(b_);
    mount_memory_disk(copy);
    ASSERT_EQ(a_.open_for_work("/disk/copy"), 0);
    EXPECT_EQ(a_.find_name(sample(102).name), 0);
    ASSERT_EQ(a_.close(), 0);
  }
}

// ---- With and without

TEST_F(JournalUse, AnOpenWithoutBringsTheFileUpToDateFirst) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  const std::size_t events = disk_events().size();
  ASSERT_EQ(a_.insert(sample(101)), 0);
  const disk_image crashed = after_kill(image(), disk_events(), next_flag_write(events) + 2);
  engine::abandon(a_);
  mount_memory_disk(crashed);
  a_.journal = journal_use::off;
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_FALSE(engine::has_journal(a_));
  EXPECT_EQ(a_.find_name(sample(101).name), 0);
  ASSERT_EQ(a_.insert(sample(102)), 0);
  ASSERT_EQ(a_.close(), 0);
  b_.journal = journal_use::on;
  ASSERT_EQ(b_.open_for_work(path), 0);
  EXPECT_TRUE(engine::has_journal(b_));
  EXPECT_EQ(b_.find_name(sample(102).name), 0);
  put(&b_, 103);
}

TEST_F(JournalUse, WhoComesLaterDoesAsTheOthersDo) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  b_.journal = journal_use::off;
  ASSERT_EQ(b_.open_for_work(path), 0);
  EXPECT_TRUE(engine::has_journal(b_));
  ASSERT_EQ(a_.close(), 0);
  ASSERT_EQ(b_.close(), 0);
  a_.journal = journal_use::off;
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_FALSE(engine::has_journal(a_));
  b_.journal = journal_use::on;
  ASSERT_EQ(b_.open_for_work(path), 0);
  EXPECT_FALSE(engine::has_journal(b_));
  ASSERT_EQ(b_.insert(sample(102)), 0);
}

TEST_F(JournalUse, AWriterWithoutOneBetweenTwoOperationsIsNoticed) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  // Another program of the format, which knows nothing of journals.
  handle foreign;
  disk_image now = disk_now();
  engine::abandon(a_);
  const disk_file log = now.at(journal_of_it);
  now.erase(journal_of_it);
  mount_memory_disk(now);
  ASSERT_EQ(foreign.open_for_work(path), 0);
  ASSERT_FALSE(engine::has_journal(foreign));
  ASSERT_EQ(foreign.find_name(sample(101).name), 0);
  ASSERT_EQ(foreign.remove(), 0);
  ASSERT_EQ(foreign.insert(sample(102)), 0);
  ASSERT_EQ(foreign.close(), 0);
  now = disk_now();
  now[journal_of_it] = log;
  mount_memory_disk(now);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(a_.find_name(sample(101).name), engine::e_not_found);
  EXPECT_EQ(a_.find_name(sample(102).name), 0);
  put(&a_, 103);
  ASSERT_EQ(a_.close(), 0);
  expect_sound();
}

// It takes all reader bytes at once, and would not get them from readers who come and go.
TEST_F(JournalUse, ReadersLetAWriterWithoutAJournalGoFirst) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(engine::read_under_locks(a_), 0);
  static engine::os_ops ops;
  static handle* writer;
  static int waited;
  for (const bool with_journal : {true, false}) {
    handle other;
    other.journal = journal_use::on;
    ASSERT_EQ(other.open_for_work(path), 0);
    // One that knows of no journal has a slot, and no byte of the journal.
    const auto slot = static_cast<std::uint64_t>(other.get()->slot);
    if (!with_journal) {
      ASSERT_EQ(engine::os().unlock(other.get()->journal->log.file, (std::uint64_t{1} << 32) + 64 + slot, 1), 0);
    }
    writer = &other;
    waited = 0;
    const engine::os_ops& below = engine::os();
    ops = below;
    ops.wait = [](unsigned) {
      ++waited;
      engine::relarbiter(*writer);
    };
    ASSERT_EQ(engine::getarbiter(other), 0);
    engine::set_os_ops(&ops);
    EXPECT_EQ(a_.find_name(sample(1).name), 0);
    engine::set_os_ops(&below);
    EXPECT_EQ(waited, with_journal ? 0 : 1);
    ASSERT_EQ(engine::relarbiter(other), 0);
    ASSERT_EQ(other.close(), 0);
  }
}

}  // namespace
}  // namespace zvrdb::test
