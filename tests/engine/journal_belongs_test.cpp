// Write flags and journals that do not belong to the file, and files that cannot be told.
#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "engine/journal.h"
#include "engine/journal_use_fixture.h"
#include "engine/os_file.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

TEST_F(JournalUse, AFlagThatNoJournalExplainsIsRefusedUntilItIsCleared) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  put(&a_, 101);
  ASSERT_EQ(a_.close(), 0);
  patch_disk(path, flag_at, {0xBD, 0x33});
  EXPECT_EQ(a_.open_for_work(path), engine::e_write_flag);
  ASSERT_EQ(engine::_bopen(a_, path, 'E', 2, journal_use::on), 0);
  ASSERT_EQ(engine::clrwrit(a_), 0);
  ASSERT_EQ(engine::cclose(a_), 0);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(a_.find_name(sample(101).name), 0);
  put(&a_, 102);
}

TEST_F(JournalUse, AFlagSetBesideALiveHandleRefusesItsWrites) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  patch_disk(path, flag_at, {0xBD, 0x33});
  EXPECT_EQ(a_.insert(sample(101)), engine::e_write_flag);
  EXPECT_EQ(a_.find_name(sample(7).name), 0);
  EXPECT_EQ(engine::clrwrit(a_), 0);
  EXPECT_EQ(a_.insert(sample(101)), 0);
}

// A crash leaves a file with a flag and its journal; each byte of the journal is then spoilt.
TEST_F(JournalUse, ASpoiltJournalIsNeverAppliedInPart) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(101, 20)), 0);
  const records before = all_records(&a_);
  const std::size_t events = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102, 20)), 0);
  const records after = all_records(&a_);
  const disk_image crashed = after_kill(image(), disk_events(), next_flag_write(events) + 3);   // flag, header, one node
  ASSERT_NE(crashed.at(path).bytes[flag_at], 0);
  const std::uint64_t end = a_.get()->journal->log.at.end;
  engine::abandon(a_);
  int refused = 0, repaired = 0;
  for (std::uint64_t at = 0; at < end; at += at >= 512 && at < 4096 ? 512 : 7) {
    SCOPED_TRACE(at);
    mount_memory_disk(crashed);
    patch_disk(journal_of_it, at, {static_cast<unsigned char>(crashed.at(journal_of_it).bytes[at] ^ 0x10)});
    handle h;
    h.journal = journal_use::on;
    const int opened = h.open_for_work(path);
    if (opened == engine::e_write_flag) {
      refused++;
      EXPECT_EQ(disk_now().at(path).bytes, crashed.at(path).bytes) << "a journal that is spoilt changed the file";
      continue;
    }
    ASSERT_EQ(opened, 0);
    repaired++;
    const records found = all_records(&h);
    ASSERT_TRUE(found == after || found == before);
    ASSERT_EQ(h.close(), 0);
    expect_sound();
  }
  std::cout << refused << " refused, " << repaired << " repaired" << std::endl;
  EXPECT_GT(refused, 100);
  EXPECT_GT(repaired, 3);   // bytes between head and groups, and behind the ends of groups
}

TEST_F(JournalUse, AJournalOfAnotherFileIsNotApplied) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  disk_image crashed = disk_now();
  engine::abandon(a_);
  crashed.at(path) = {image().at(path).bytes, 6000};   // the file as it once was, copied back
  mount_memory_disk(crashed);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(a_.find_name(sample(101).name), engine::e_not_found);
  put(&a_, 102);
  ASSERT_EQ(a_.close(), 0);
  expect_sound();
}

TEST_F(JournalUse, AFileMadeAnewStartsWithoutTheJournalOfTheOldOne) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(101)), 0);
  disk_image crashed = disk_now();
  engine::abandon(a_);
  crashed.erase(path);
  mount_memory_disk(crashed);
  ASSERT_EQ(a_.create(path), 0);
  EXPECT_TRUE(engine::has_journal(a_));
  EXPECT_EQ(a_.find_name(sample(101).name), engine::e_not_found);
  ASSERT_EQ(engine::csetfile(a_, 4), 0);
  put(&a_, 102);
}

// Neither is it taken for the journal of another file, nor is one made that nobody knows again.
TEST_F(JournalUse, AFileWhoseIdentityCannotBeHadIsNotOpened) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  const std::size_t events = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  rewind_disk(image(), next_flush(events) + 1);   // committed, the file not yet changed
  const disk_image left = disk_now();
  static engine::os_ops blind;
  for (const bool with_journal : {true, false}) {
    disk_image start = left;
    if (!with_journal) start.erase(std::string(path) + ".jnl");
    mount_memory_disk(start);
    blind = engine::os();
    blind.identity = [](int) -> std::uint64_t { return 0; };
    engine::set_os_ops(&blind);
    EXPECT_EQ(a_.open_for_work(path), engine::e_io);
    EXPECT_EQ(disk_now().size(), start.size());
    EXPECT_TRUE(disk_now().at(path).bytes == start.at(path).bytes);
  }
  mount_memory_disk(left);
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_EQ(a_.find_name(sample(102).name), 0);
  ASSERT_EQ(a_.close(), 0);
}

// A file that cannot be opened, for want of descriptors, looks like one that is not there.
TEST_F(JournalUse, TheCreationOfAFileThatIsThereLeavesItsJournalAlone) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  const disk_image left = disk_now();
  static engine::os_ops poor;
  poor = engine::os();
  poor.open = [](const char*, engine::open_how) { return -1; };
  engine::set_os_ops(&poor);
  EXPECT_NE(a_.create(path), 0);
  ASSERT_EQ(disk_now().size(), left.size());
  for (const auto& [name, file] : left) EXPECT_TRUE(disk_now().at(name).bytes == file.bytes) << name;
}

}  // namespace
}  // namespace zvrdb::test
