// Work with a journal leaves the bytes that work without one leaves, at all accesses and levels.
#include <gtest/gtest.h>

#include <random>

#include "engine/journal.h"
#include "engine/journal_use_fixture.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

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
