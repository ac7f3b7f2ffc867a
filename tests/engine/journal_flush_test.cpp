// What work with a journal costs: flushes, bytes written, room.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "engine/journal.h"
#include "engine/journal_use_fixture.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

TEST_F(JournalUse, APutAReplacementAndADeletionCostOneFlushEach) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  int flushes = disk_flushes();
  const auto cost = [&] { const int now = disk_flushes(); return now - std::exchange(flushes, now); };
  put(&a_, 101);
  EXPECT_EQ(cost(), 1);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  for (int i = 110; i < 114; i++) ASSERT_EQ(a_.insert(sample(i, 2000)), 0);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  ASSERT_EQ(engine::dflush(a_), 0);
  EXPECT_EQ(cost(), 1) << "four pieces";
  ASSERT_EQ(a_.find_name(sample(101).name), 0);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.update(sample(101, 700)), 0);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  ASSERT_EQ(engine::dflush(a_), 0);
  EXPECT_EQ(cost(), 1) << "replace";
  ASSERT_EQ(a_.find_name(sample(101).name), 0);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.remove(), 0);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  ASSERT_EQ(engine::dflush(a_), 0);
  EXPECT_EQ(cost(), 1) << "delete";
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  for (int i = 200; i < 240; i++) ASSERT_EQ(a_.insert(sample(i)), 0);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  EXPECT_EQ(cost(), 1) << "forty puts in one transaction";
  ASSERT_EQ(a_.find_name(sample(210).name), 0);
  sample_record r;
  ASSERT_EQ(a_.read(&r), 0);
  EXPECT_EQ(cost(), 0) << "get";
}

TEST_F(JournalUse, ATransactionOfAnyLengthCostsOneFlush) {
  engine::checkpoint_at = 16 * 1024;
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  const int flushes = disk_flushes(".jnl");
  const int of_the_file = disk_flushes("file");
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  for (int i = 1000; i < 3500; i++) ASSERT_EQ(a_.insert(sample(i, 300)), 0);
  EXPECT_GT(disk_now().at(journal_of_it).bytes.size(), engine::journal_kept);
  EXPECT_EQ(disk_flushes(".jnl"), flushes);
  ASSERT_EQ(engine::transend(a_, 1), 0);
  // The checkpoint behind it flushes the file, and the head of a new life.
  EXPECT_EQ(disk_flushes(".jnl") - flushes, 2);
  EXPECT_LE(disk_flushes("file") - of_the_file, 1);
  EXPECT_EQ(disk_now().at(journal_of_it).bytes.size(), engine::journal_size) << "what a giant took is given back";
  for (int i = 1000; i < 3500; i++) ASSERT_EQ(a_.find_name(sample(i).name), 0);
}

// An operation appends what it changed of the nodes that the cache has, not the nodes.
TEST_F(JournalUse, AGroupIsSmallerThanTheNodesThatItChanges) {
  engine::set_cache_blocks(200);
  ASSERT_EQ(a_.open_for_work(path), 0);
  for (int i = 101; i < 140; i++) ASSERT_EQ(a_.insert(sample(i, 20)), 0);
  const std::size_t from = disk_events().size();
  for (int i = 141; i < 161; i++) {
    ASSERT_EQ(a_.find_name(sample(i - 40).name), 0);
    sample_record changed = sample(i - 40, 20);
    changed.payload[7] = 'x';
    ASSERT_EQ(a_.update(changed), 0);
  }
  std::size_t groups = 0, of_the_file = 0;
  for (std::size_t at = from; at < disk_events().size(); at++) {
    const disk_event& e = disk_events()[at];
    if (e.what != disk_event::kind::write) continue;
    (e.identity == 5000 ? of_the_file : groups) += e.bytes.size();
  }
  EXPECT_LT(groups, 3 * 20 * 2 * engine::journal_sector) << "lock, update, unlock";
  EXPECT_GT(of_the_file, 3 * 20 * engine::page_size);
  ASSERT_EQ(a_.close(), 0);
  engine::set_cache_blocks(10);
}

// In a transaction too, from the second operation on whatever the cache has.
TEST_F(JournalUse, GroupsOfATransactionGrowWithWhatItChanges) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  std::uint64_t longest = 0, all = 0;
  const std::size_t from = disk_events().size();
  for (int i = 1000; i < 1100; i++) ASSERT_EQ(a_.insert(sample(i, 20)), 0);
  for (std::size_t at = from; at < disk_events().size(); at++) {
    if (disk_events()[at].what != disk_event::kind::write || disk_events()[at].offset < engine::journal_groups) continue;
    all += disk_events()[at].bytes.size();
    longest = std::max<std::uint64_t>(longest, disk_events()[at].bytes.size());
  }
  ASSERT_EQ(engine::transend(a_, 1), 0);
  EXPECT_GT(longest, 4 * engine::page_size);
  EXPECT_LT(all, 100 * 4 * engine::page_size);
}

TEST_F(JournalUse, OpeningAndClosingAnIntactFileFlushesNothing) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  ASSERT_EQ(a_.close(), 0);
  const int flushes = disk_flushes();
  ASSERT_EQ(engine::_bopen(a_, path, 'E', 2, journal_use::on), 0);
  ASSERT_EQ(engine::clrwrit(a_), 0);
  ASSERT_EQ(engine::cclose(a_), 0);
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(engine::transstat(a_), 0);
  ASSERT_EQ(a_.close(), 0);
  EXPECT_EQ(disk_flushes(), flushes);
}

TEST_F(JournalUse, OpensWithoutAChangeLeaveNoGroupsAndFlushNothing) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  ASSERT_EQ(a_.close(), 0);
  const int flushes = disk_flushes();
  for (int i = 0; i < 20; i++) {
    ASSERT_EQ(a_.open_for_work(path), 0);
    EXPECT_EQ(a_.get()->journal->log.at.last, 0U) << i;
    EXPECT_EQ(engine::transstat(a_), 0);
    EXPECT_EQ(a_.find_name(sample(101).name), 0);
    ASSERT_EQ(a_.close(), 0);
  }
  EXPECT_EQ(disk_flushes(), flushes);
}

}  // namespace
}  // namespace zvrdb::test
