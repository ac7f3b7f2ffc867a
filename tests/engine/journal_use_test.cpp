// Handles with a journal beside each other, and what the record file is like afterwards.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "engine/engine_handle.h"
#include "engine/journal.h"
#include "engine/memory_disk.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"
#include "engine/writers_held.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;
using records = std::map<std::string, sample_record>;

constexpr char path[] = "/disk/file";
constexpr char journal_of_it[] = "/disk/file.jnl";
constexpr std::size_t flag_at = 1010;

records all_records(handle* h) {
  records result;
  for (int found = engine::dseq(*h, 1, engine::seq_first); found == 0; found = engine::dseq(*h, 1, engine::seq_next)) {
    sample_record r;
    EXPECT_EQ(h->read(&r), 0);
    result[r.name] = r;
  }
  return result;
}

const std::uint64_t deferred_by_default = engine::defer_to;

class JournalUse : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(300);
    mount_memory_disk(image());
    a_.journal = b_.journal = journal_use::on;
  }
  void TearDown() override {
    for (handle* h : {&a_, &b_}) {
      if (engine::checkpsp(*h) != 'O') continue;
      EXPECT_EQ(h->close(), 0);
    }
    EXPECT_EQ(disk_open_files(), 0);
    unmount_memory_disk();
    engine::checkpoint_at = engine::journal_size;
    engine::defer_to = deferred_by_default;
    alarm(0);
  }
  static disk_image image() {
    file_recipe recipe = sample_recipe(false, 30, 600);
    recipe.spare_nodes = 6;
    disk_image start;
    start[path] = {build_file(recipe).bytes, 5000};
    return start;
  }
  static void put(handle* h, int i, std::size_t payload = 300) {
    ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
    ASSERT_EQ(h->insert(sample(i, payload)), 0);
    ASSERT_EQ(engine::transend(*h, 1), 0);
    ASSERT_EQ(engine::dflush(*h), 0);
  }
  static bool flag_set() { return disk_now().at(path).bytes[flag_at] != 0; }
  static void expect_sound() {
    scratch_folder folder;
    write_file(folder.file("f"), disk_now().at(path).bytes);
    const check_result checked = check_file(folder.file("f"), true);
    ASSERT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text() << checked.reason;
  }
  handle a_, b_;
};

// ---- The same bytes

void random_work(handle* h, handle* other, unsigned seed) {
  std::mt19937 random(seed);
  bool inside = false;
  records model = all_records(h);
  records before;
  for (int round = 0; round < 400; round++) {
    const unsigned choice = static_cast<unsigned>(random() % 100);
    const int i = static_cast<int>(random() % 200);
    const std::size_t payload = random() % 6 ? random() % 80 : random() % 2500;
    handle* who = inside || random() % 2 ? h : other;
    if (choice < 40) {
      const sample_record r = sample(i, payload);
      ASSERT_EQ(who->insert(r), model.count(r.name) ? engine::e_not_found : 0);
      model.emplace(r.name, r);
    } else if (choice < 55 && who->find_name(sample(i).name) == 0) {
      const sample_record r = sample(i, payload);
      ASSERT_EQ(who->update(r), 0);
      model[r.name] = r;
    } else if (choice < 70 && who->find_name(sample(i).name) == 0) {
      ASSERT_EQ(who->remove(), 0);
      model.erase(sample(i).name);
    } else if (choice < 75) {
      ASSERT_EQ(engine::dflush(*who), 0);
    } else if (choice < 80) {
      engine::transstat(*who);
    } else if (choice < 95) {
      if (!inside) {
        ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
        before = model;
      } else if (random() % 2) {
        ASSERT_EQ(engine::transend(*h, 1), 0);
      } else {
        ASSERT_EQ(engine::transroll(*h, nullptr, 0, nullptr), 0);
        model = before;
      }
      inside = !inside;
    }
  }
  if (inside) {
    ASSERT_EQ(engine::transend(*h, 1), 0);
  }
  ASSERT_EQ(all_records(other), model);
}

class SameBytes : public JournalUse, public ::testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Seeds, SameBytes, ::testing::Range(1, 7));

TEST_P(SameBytes, AreLeftWithAJournalAndWithout) {
  disk_bytes results[2];
  for (const bool journal : {false, true}) {
    mount_memory_disk(image());
    handle first, second;
    first.journal = second.journal = journal ? journal_use::on : journal_use::off;
    engine::checkpoint_at = GetParam() % 2 ? engine::journal_size : 32 * 1024;
    engine::defer_to = GetParam() % 4 < 2 ? 4 * engine::checkpoint_at : deferred_by_default;
    ASSERT_EQ(first.open_for_work(path), 0);
    ASSERT_EQ(second.open_for_work(path), 0);
    ASSERT_EQ(engine::has_journal(second), journal);
    random_work(&first, GetParam() % 3 ? &first : &second, static_cast<unsigned>(GetParam()));
    if (HasFatalFailure()) return;
    ASSERT_EQ(first.close(), 0);
    ASSERT_EQ(second.close(), 0);
    ASSERT_EQ(disk_now().count(journal_of_it), journal ? 1U : 0U);
    results[journal] = disk_now().at(path).bytes;
  }
  ASSERT_EQ(results[0].size(), results[1].size());
  for (std::size_t at = 0; at < results[0].size(); at++) {
    ASSERT_EQ(results[0][at], results[1][at]) << "byte " << at << ", node " << (static_cast<long>(at) - 1024) / 1024;
  }
}

// Groups hold only what was changed of a node, and make the file of today of the one that was
// there when the life began.
TEST_P(SameBytes, ComeOutOfTheJournalWhereAllWritesToTheFileWereLost) {
  for (const unsigned blocks : {10u, 2000u}) {
    mount_memory_disk(image());
    engine::set_cache_blocks(blocks);
    engine::checkpoint_at = 64 * engine::journal_size;
    handle first, second;
    first.journal = second.journal = journal_use::on;
    ASSERT_EQ(first.open_for_work(path), 0);
    ASSERT_EQ(second.open_for_work(path), 0);
    random_work(&first, GetParam() % 3 ? &first : &second, static_cast<unsigned>(GetParam()));
    if (HasFatalFailure()) return;
    const disk_image whole = disk_now();
    disk_image lost = whole;
    lost.at(path) = image().at(path);
    engine::abandon(first);
    engine::abandon(second);
    mount_memory_disk(lost);
    handle after;
    after.journal = journal_use::on;
    ASSERT_EQ(after.open_for_work(path), 0);
    EXPECT_TRUE(disk_now().at(path).bytes == whole.at(path).bytes) << blocks << " blocks";
    ASSERT_EQ(after.close(), 0);
    engine::set_cache_blocks(10);
  }
}

// ---- Flushes

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

// ---- A handle that lives on beside one that died

void a_call(handle* h) {
  ASSERT_EQ(engine::transbeg(*h, 3, nullptr), 0);
  ASSERT_EQ(h->insert(sample(101, 900)), 0);
  ASSERT_EQ(h->insert(sample(102, 20)), 0);
  ASSERT_EQ(engine::transend(*h, 1), 0);
  ASSERT_EQ(engine::dflush(*h), 0);
}

// The commit: from here on others must see the change whole.
std::size_t behind_first_flush(std::size_t from) {
  while (from < disk_events().size() && disk_events()[from].what != disk_event::kind::flush) from++;
  return from + 1;
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
      const bool committed = until >= behind_first_flush(events);
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

// ---- Flags and journals that do not belong

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
  std::size_t flagged = events;
  while (disk_events()[flagged].offset != flag_at) flagged++;
  const disk_image crashed = after_kill(image(), disk_events(), flagged + 3);   // flag, header, one node
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

// ---- With and without

TEST_F(JournalUse, AnOpenWithoutBringsTheFileUpToDateFirst) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  const std::size_t events = disk_events().size();
  ASSERT_EQ(a_.insert(sample(101)), 0);
  std::size_t flagged = events;
  while (disk_events()[flagged].offset != flag_at) flagged++;
  const disk_image crashed = after_kill(image(), disk_events(), flagged + 2);
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

// It goes on from 1 behind the last one, in the midst of a transaction or of questions.
TEST_F(JournalUse, AGenerationThatWrapsIsFollowed) {
  for (const int left : {2, 5, 9, 14, 20, 30}) {
    disk_image start = image();
    disk_bytes& bytes = start.at(path).bytes;
    bytes[0] = static_cast<unsigned char>(0xFF - left);
    bytes[1] = bytes[2] = bytes[3] = 0xFF;
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

TEST_F(JournalUse, AReaderFinishesWhatADeadWriterCommitted) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  ASSERT_EQ(b_.open(path, 'S', 1), 0);
  EXPECT_TRUE(engine::has_journal(b_));
  std::size_t flagged = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  while (disk_events()[flagged].offset != flag_at) flagged++;
  rewind_disk(image(), flagged + 2);
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
    std::size_t committed = disk_events().size();
    ASSERT_EQ(a_.insert(sample(102)), 0);
    engine::abandon(a_);
    while (disk_events()[committed].what != disk_event::kind::flush) committed++;
    rewind_disk(image(), committed + 1);
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

// Neither is it taken for the journal of another file, nor is one made that nobody knows again.
TEST_F(JournalUse, AFileWhoseIdentityCannotBeHadIsNotOpened) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  std::size_t at = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  while (disk_events()[at].what != disk_event::kind::flush) at++;
  rewind_disk(image(), at + 1);   // committed, the file not yet changed
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

// A check of a file that a killed writer left says so.
TEST_F(JournalUse, ACheckTellsThatTheJournalIsAheadOfTheFile) {
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_FALSE(engine::journal_is_ahead(path));
  std::size_t at = disk_events().size();
  ASSERT_EQ(a_.insert(sample(102)), 0);
  engine::abandon(a_);
  EXPECT_FALSE(engine::journal_is_ahead(path));
  while (disk_events()[at].what != disk_event::kind::flush) at++;
  rewind_disk(image(), at + 3);   // among the pages
  EXPECT_TRUE(engine::journal_is_ahead(path));
  rewind_disk(image(), at + 1);   // committed, the file not yet changed
  EXPECT_TRUE(engine::journal_is_ahead(path));
  ASSERT_EQ(a_.open_for_work(path), 0);
  EXPECT_FALSE(engine::journal_is_ahead(path));
  ASSERT_EQ(engine::transbeg(a_, 3, nullptr), 0);
  ASSERT_EQ(a_.insert(sample(103)), 0);
  EXPECT_FALSE(engine::journal_is_ahead(path)) << "a transaction that runs is none";
  ASSERT_EQ(engine::transend(a_, 1), 0);
  ASSERT_EQ(a_.close(), 0);
  EXPECT_FALSE(engine::journal_is_ahead(path));
}

// ---- Nothing piles up

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
      std::map<std::size_t, write_fate> fates;
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

// ---- A full disk

std::uint64_t bytes_left = 0;   // of the disk

std::int64_t write_while_it_fits(int file, std::uint64_t offset, const void* from, std::size_t n) {
  const std::int64_t size = engine::linux_ops.size(file);
  const std::uint64_t grows = offset + n > static_cast<std::uint64_t>(size) ? offset + n - static_cast<std::uint64_t>(size) : 0;
  if (grows > bytes_left) return 0;
  bytes_left -= grows;
  return engine::linux_ops.write_at(file, offset, from, n);
}

TEST(JournalFullDisk, NothingChangesAndWorkGoesOnWhenThereIsRoomAgain) {
  scratch_folder folder;
  engine::os_ops ops = engine::linux_ops;
  ops.write_at = write_while_it_fits;
  engine::set_os_ops(&ops);
  const std::string file = folder.file("full");
  file_recipe recipe = sample_recipe(false, 30, 600);
  recipe.spare_nodes = 6;
  write_file(file, build_file(recipe).bytes);
  {
    handle h;
    h.journal = journal_use::on;
    bytes_left = 0;   // no room for a journal either
    ASSERT_EQ(h.open_for_work(file), 0);
    EXPECT_EQ(h.find_name(sample(7).name), 0);
    EXPECT_EQ(engine::transstat(h), 0);
    const std::vector<unsigned char> before = read_file(file);
    EXPECT_EQ(h.insert(sample(101)), engine::e_write);
    EXPECT_EQ(read_file(file), before);
    bytes_left = 2 * 1024 * 1024;
    ASSERT_EQ(h.insert(sample(101)), 0);
    bytes_left = 0;   // room in the journal, and in the file until it must grow
    int i = 102;
    while (h.insert(sample(i, 400)) == 0) {
      ASSERT_LT(i, 200);
      i++;
    }
    EXPECT_GT(i, 102);
    EXPECT_EQ(h.find_name(sample(i).name), engine::e_not_found);
    for (int there = 101; there < i; there++) ASSERT_EQ(h.find_name(sample(there).name), 0) << there;
    bytes_left = 1024 * 1024;
    ASSERT_EQ(h.insert(sample(i, 400)), 0);
    ASSERT_EQ(h.close(), 0);
  }
  const check_result checked = check_file(file, true);
  EXPECT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
  engine::set_os_ops(nullptr);
}

// ---- Levels and accesses

TEST_F(JournalUse, AllAccessesAndLevelsWorkWithIt) {
  for (const char access : {'S', 'E', 'D'}) {
    for (int level = 0; level <= 4; level++) {
      SCOPED_TRACE(std::string(1, access) + std::to_string(level));
      mount_memory_disk(image());
      handle h;
      h.journal = journal_use::on;
      ASSERT_EQ(h.open(path, access), 0);
      ASSERT_TRUE(engine::has_journal(h));
      ASSERT_EQ(engine::csetfile(h, level), 0);
      for (int i = 101; i < 120; i++) ASSERT_EQ(h.insert(sample(i, 300)), 0);
      ASSERT_EQ(h.find_name(sample(105).name), 0);
      ASSERT_EQ(h.remove(), 0);
      const records all = all_records(&h);
      ASSERT_EQ(h.close(), 0);
      expect_sound();
      ASSERT_EQ(h.open(path, access), 0);
      EXPECT_EQ(all_records(&h), all);
      ASSERT_EQ(h.close(), 0);
    }
  }
}

}  // namespace
}  // namespace zvrdb::test
