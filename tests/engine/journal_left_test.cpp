// What a killed writer left in the file and its journal, opened by the next one.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "engine/journal.h"
#include "engine/journal_use_fixture.h"

namespace zvrdb::test {
namespace {

// While the machine runs on, what was written is there, flushed or not.
TEST_F(JournalUse, AfterAKillAFileThatIsWholeIsNotWrittenAgain) {
  for (const power how : {power::stays_on, power::was_off}) {
    mount_memory_disk(image());
    ASSERT_EQ(a_.open_for_work(path), 0);
    for (int i = 101; i < 111; i++) {
      put(&a_, i);
      ASSERT_FALSE(HasFatalFailure());
    }
    engine::abandon(a_);
    mount_memory_disk(disk_now(), how);
    ASSERT_EQ(a_.open_for_work(path), 0);
    const auto nodes_written = std::count_if(disk_events().begin(), disk_events().end(), [](const disk_event& e) {
      return e.what == disk_event::kind::write && e.identity == 5000 && e.offset >= engine::page_size;
    });
    if (how == power::stays_on) {
      EXPECT_EQ(nodes_written, 0);
    } else {
      EXPECT_GT(nodes_written, 10);
    }
    EXPECT_EQ(disk_flushes(), 0);
    EXPECT_EQ(a_.find_name(sample(110).name), 0);
    ASSERT_EQ(a_.close(), 0);
  }
}

// What a dead owner's transaction left in the journal alone was nobody's business yet.
TEST_F(JournalUse, AnUnfinishedTransactionThatTheFileNeverSawIsTakenOutOfTheJournal) {
  for (const power how : {power::stays_on, power::was_off}) {
    mount_memory_disk(image());
    ASSERT_EQ(a_.open_for_work(path), 0);
    put(&a_, 101);
    ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
    for (int i = 102; i < 112; i++) ASSERT_EQ(a_.insert(sample(i, 500)), 0);
    engine::abandon(a_);
    mount_memory_disk(disk_now(), how);
    ASSERT_EQ(a_.open_for_work(path), 0);
    EXPECT_TRUE(engine::took_back_transaction(a_));
    EXPECT_EQ(engine::transstat(a_), 0);
    EXPECT_EQ(disk_flushes(), 0);
    EXPECT_EQ(a_.find_name(sample(101).name), 0);
    EXPECT_EQ(a_.find_name(sample(102).name), engine::e_not_found);
    put(&a_, 102);
    ASSERT_EQ(a_.close(), 0);
    expect_sound();
    ASSERT_EQ(a_.open_for_work(path), 0);
    EXPECT_FALSE(engine::took_back_transaction(a_));
    EXPECT_EQ(a_.find_name(sample(102).name), 0);
    ASSERT_EQ(a_.close(), 0);
  }
}

// Others had it brought into the file in part: that part is rolled back, the rest taken out.
TEST_F(JournalUse, AnUnfinishedTransactionThatTheFileSawInPartIsRolledBack) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open_for_work(path), 0);
  put(&a_, 101);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(102, 500)), 0);
  EXPECT_EQ(b_.find_name(sample(102).name), 0);
  ASSERT_EQ(a_.insert(sample(103, 500)), 0);
  engine::abandon(a_);
  engine::abandon(b_);
  mount_memory_disk(disk_now(), power::stays_on);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_TRUE(engine::took_back_transaction(a_));
  ASSERT_EQ(engine::transstat(a_), engine::e_trans_interrupted);
  ASSERT_EQ(engine::transroll(a_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(a_.find_name(sample(101).name), 0);
  EXPECT_EQ(a_.find_name(sample(102).name), engine::e_not_found);
  EXPECT_EQ(a_.find_name(sample(103).name), engine::e_not_found);
  ASSERT_EQ(a_.close(), 0);
  expect_sound();
}

// A transaction that the journal had to be flushed in: what was flushed is in the file.
TEST_F(JournalUse, ALongUnfinishedTransactionIsRolledBackAsFarAsItWasWritten) {
  engine::checkpoint_at = 16 * 1024;
  engine::defer_to = 64 * 1024;
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  const records before = all_records(&a_);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  for (int i = 102; i < 160; i++) ASSERT_EQ(a_.insert(sample(i, 500)), 0);
  engine::abandon(a_);
  mount_memory_disk(disk_now(), power::stays_on);
  ASSERT_EQ(a_.open_for_work(path), 0);
  const int state = engine::transstat(a_);
  ASSERT_EQ(state, engine::e_trans_interrupted);
  ASSERT_EQ(engine::transroll(a_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(all_records(&a_), before);
  ASSERT_EQ(a_.close(), 0);
  expect_sound();
}

// The life that was begun without a flush, or the one before it, is there after a power cut.
TEST_F(JournalUse, ALifeBegunWithoutAFlushMayBeLost) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  ASSERT_EQ(a_.close(), 0);
  const disk_image start = disk_now();
  mount_memory_disk(start);
  for (int i = 0; i < 3; i++) {
    ASSERT_EQ(a_.open_for_work(path), 0);
    EXPECT_EQ(engine::transstat(a_), 0);
    ASSERT_EQ(a_.close(), 0);
  }
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 102);
  engine::abandon(a_);
  const std::vector<disk_event> written = disk_events();
  std::mt19937 coin(60);
  for (std::size_t n = 0; n <= written.size(); n++) {
    for (int s = 0; s < 10; s++) {
      SCOPED_TRACE(std::to_string(n) + " " + std::to_string(s));
      write_fates fates;
      for (std::size_t i : undecided_writes(written, n)) fates[i] = static_cast<write_fate>(coin() % 3);
      mount_memory_disk(after_power_cut(start, written, n, fates, &coin));
      ASSERT_EQ(a_.open_for_work(path), 0);
      if (engine::transstat(a_) == engine::e_trans_interrupted) {
        ASSERT_EQ(engine::transroll(a_, nullptr, 0, nullptr), 0);
      }
      if (engine::transstat(a_) == engine::e_trans_empty) {
        ASSERT_EQ(engine::transend(a_, 1), 0);
      }
      ASSERT_EQ(a_.find_name(sample(101).name), 0);
      if (n == written.size()) {
        ASSERT_EQ(a_.find_name(sample(102).name), 0);
      }
      put(&a_, 103);
      ASSERT_EQ(a_.close(), 0);
    }
  }
}

// A full disk had room for the group and not for the zeros behind it.
TEST_F(JournalUse, ALastGroupThatEndsWithTheFileCounts) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  ASSERT_EQ(b_.open_for_work(path), 0);
  ASSERT_EQ(b_.close(), 0);
  engine::abandon(a_);
  disk_image left = disk_now();
  disk_bytes journal = left.at(journal_of_it).bytes;
  std::size_t end = engine::journal_groups;
  for (std::size_t at = end; std::memcmp(journal.data() + at, "ZVRG", 4) == 0; at = (end + 511) / 512 * 512)
    end = at + engine::load_le32(journal.data() + at + 4);
  ASSERT_NE(end % 512, 0U);
  journal.resize(end);
  left.at(journal_of_it).bytes = journal;
  mount_memory_disk(left, power::stays_on);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(a_.find_name(sample(101).name), 0);
  put(&a_, 102);
  ASSERT_EQ(a_.close(), 0);
  expect_sound();
}

// A check of a file that a killed writer left says so.
TEST_F(JournalUse, ACheckTellsThatTheJournalIsAheadOfTheFile) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::nothing);
  const std::size_t events = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::nothing);
  rewind_disk(image(), next_flush(events) + 3);   // among the pages
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::ahead);
  rewind_disk(image(), next_flush(events) + 1);   // committed, the file not yet changed
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::ahead);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::nothing);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(103)), 0);
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::nothing) << "a transaction that runs is none";
  ASSERT_EQ(engine::transend(a_, 1), 0);
  ASSERT_EQ(a_.close(), 0);
  EXPECT_EQ(engine::look_at_journal_beside(path), engine::journal_beside::nothing);
}

}  // namespace
}  // namespace zvrdb::test
