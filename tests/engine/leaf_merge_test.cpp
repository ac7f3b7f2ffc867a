// Leaves that deletes empty: they leave the tree, and everything else stays where it was.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/psp.h"
#include "engine/record_locks.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

struct merge_case {
  const char* name;
  char access;
  int byte_order;
  int level;
  engine::journal_use journal;
  unsigned cache_blocks;
};

const engine::key_entry merge_keys[] = {{1, 0, {}, nullptr}, {2, 2, {}, nullptr}, {0, 0, {}, nullptr}};

class LeafMerge : public ::testing::TestWithParam<merge_case> {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(GetParam().cache_blocks);
    const merge_case& c = GetParam();
    ASSERT_EQ(engine::dcreate(h_, path_.c_str(), nullptr, 0, c.access, c.byte_order, merge_keys, c.journal, engine::option_merge), 0);
    ASSERT_EQ(engine::csetfile(h_, c.level), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    expect_sound();
    engine::set_cache_blocks(10);
  }
  void expect_sound() {
    if (engine::checkpsp(h_) == 'O') {
      ASSERT_EQ(engine::dflush(h_), 0);
    }
    check_result result = check_file(path_, false);
    ASSERT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  engine::file_summary summary() {
    engine::file_summary s;
    EXPECT_EQ(engine::dflush(h_), 0);
    engine::summarize_file(path_.c_str(), &s, nullptr);
    return s;
  }
  static const std::uint8_t* raw(const std::string& text) { return reinterpret_cast<const std::uint8_t*>(text.c_str()); }
  int add(const std::string& key, std::int32_t rec, const std::string& data = "") {
    return engine::badd(h_, 1, raw(key), rec, raw(data), static_cast<int>(data.size()));
  }
  // The key of the entry at the cursor of key 1.
  std::string here() { return reinterpret_cast<const char*>(h_.get()->keybuf); }
  std::vector<std::string> walk(bool forward) {
    std::vector<std::string> found;
    int r = forward ? engine::bfirst(h_, 1, nullptr, 0) : engine::blast(h_, 1, nullptr, 0);
    for (; r == 0; r = forward ? engine::bnext(h_, 1, nullptr, 0) : engine::bprev(h_, 1, nullptr, 0)) found.push_back(here());
    return found;
  }
  // But for node 0, which stays the first leaf.
  void expect_no_empty_leaves() {
    const engine::file_summary s = summary();
    const std::vector<unsigned char> bytes = read_file(path_);
    EXPECT_EQ(s.empty_leaves, bytes[1024 + 14] == 0 && bytes[1024 + 15] == 0 ? 1U : 0U);
    EXPECT_EQ(s.unreachable_nodes, 0U);
  }
  void expect_empty_tree() {
    const engine::file_summary s = summary();
    EXPECT_EQ(s.header.depth, 1);
    EXPECT_EQ(s.leaves, 1U);
    EXPECT_EQ(s.inner_nodes, 0U);
    EXPECT_EQ(s.unreachable_nodes, 0U);
    EXPECT_EQ(s.free_nodes + 1, static_cast<std::uint64_t>(s.header.nextnode));
  }
  scratch_folder folder_;
  std::string path_ = folder_.file("merge");
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(Files, LeafMerge,
                         ::testing::Values(merge_case{"Shared", 'S', 3, 4, engine::journal_use::off, 10},
                                           merge_case{"SharedWithJournal", 'S', 3, 4, engine::journal_use::on, 10},
                                           merge_case{"ExclusiveBigEndianOneBlock", 'E', 2, 3, engine::journal_use::off, 1},
                                           merge_case{"ExclusiveLevel0", 'E', 3, 0, engine::journal_use::off, 200}),
                         [](const auto& a) { return a.param.name; });

std::string key_of(int i, int length) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%05d", i);
  return digits + std::string(static_cast<std::size_t>(length), 'k');
}

TEST_P(LeafMerge, TakesOutTheLeafAndLinksItsNeighboursPastIt) {
  for (int i = 0; i < 12; i++) ASSERT_EQ(add(key_of(i, 200), 1), 0);   // four entries a leaf, rising
  const engine::file_summary before = summary();
  ASSERT_EQ(before.leaves, 3U);
  for (int i = 4; i < 8; i++) ASSERT_EQ(engine::bdelete(h_, 1, raw(key_of(i, 200)), 1), 0);
  const engine::file_summary after = summary();
  EXPECT_EQ(after.leaves, 2U);
  EXPECT_EQ(after.empty_leaves, 0U);
  EXPECT_EQ(after.free_nodes, 1U);
  EXPECT_EQ(walk(true).size(), 8U);
  EXPECT_EQ(walk(false).size(), 8U);
  // What would have lain there finds its place.
  ASSERT_EQ(add(key_of(6, 200), 1), 0);
  EXPECT_EQ(walk(true)[4], key_of(6, 200));
}

class EveryOrder : public LeafMerge {};
INSTANTIATE_TEST_SUITE_P(Files, EveryOrder,
                         ::testing::Values(merge_case{"Shared", 'S', 3, 4, engine::journal_use::off, 10},
                                           merge_case{"ExclusiveBigEndian", 'E', 2, 1, engine::journal_use::off, 5}),
                         [](const auto& a) { return a.param.name; });

TEST_P(EveryOrder, LeavesOneEmptyLeafWhenEverythingIsDeleted) {
  for (int order = 0; order < 15; order++) {
    // Short separators give way to long ones in the later rounds, and nodes above split for it.
    const bool mixed = order >= 5;
    const int count = mixed ? 1500 : 400;
    const auto length_of = [mixed, order](int i) {
      return mixed ? (i * 7919 % 11 < 3 + order % 5 ? 236 : 2) : 150 + i % 80;
    };
    std::vector<int> all;
    for (int i = 0; i < count; i++) all.push_back(i);
    std::mt19937 random(static_cast<unsigned>(order));
    std::shuffle(all.begin(), all.end(), random);
    for (int i : all) ASSERT_EQ(add(key_of(i, length_of(i)), i + 1), 0);
    ASSERT_GE(summary().header.depth, 4);
    if (order == 0) std::sort(all.begin(), all.end());
    if (order == 1) std::sort(all.rbegin(), all.rend());
    if (order == 2) {   // from the middle outwards
      std::sort(all.begin(), all.end(), [count](int a, int b) { return std::abs(a - count / 2) < std::abs(b - count / 2); });
    }
    int left = count;
    for (int i : all) {
      ASSERT_EQ(engine::bdelete(h_, 1, raw(key_of(i, length_of(i))), i + 1), 0) << i;
      if (--left % (mixed ? 50 : 16) == 0) {
        expect_sound();
        ASSERT_FALSE(HasFailure()) << "order " << order << ", " << left << " left";
        expect_no_empty_leaves();
      }
    }
    expect_empty_tree();
  }
}

TEST_P(LeafMerge, AgreesWithAModelThroughRandomWork) {
  std::mt19937 random(5);
  std::map<std::pair<std::string, std::int32_t>, std::string> model;
  for (int round = 0; round < 2500; round++) {
    // Waves: the file fills and empties again.
    const bool filling = (round / 300) % 2 == 0;
    const int i = static_cast<int>(random() % 250);
    const std::string key = key_of(i, 1 + i * 37 % 220);
    const std::int32_t rec = 1 + i % 3;
    const auto at = model.find({key, rec});
    if (random() % 10 < (filling ? 8U : 2U)) {
      const std::string data(random() % 12 ? random() % 30 : random() % 3000, 'd');
      const int result = engine::bstore(h_, 1, raw(key), rec, raw(data), static_cast<int>(data.size()), engine::store_any);
      ASSERT_EQ(result, 0);
      model[{key, rec}] = data;
    } else if (at != model.end() || random() % 4 == 0) {
      ASSERT_EQ(engine::bdelete(h_, 1, raw(key), rec), at == model.end() ? engine::e_not_found : 0);
      model.erase({key, rec});
    }
    if (round % 100 != 99) continue;
    expect_sound();
    ASSERT_FALSE(HasFailure()) << round;
    std::vector<std::string> expected;
    for (const auto& [k, data] : model) expected.push_back(k.first);
    ASSERT_EQ(walk(true), expected);
    std::reverse(expected.begin(), expected.end());
    ASSERT_EQ(walk(false), expected);
    expect_no_empty_leaves();
    for (const auto& [k, data] : model) {
      std::vector<std::uint8_t> read(4000);
      ASSERT_EQ(engine::bfind(h_, 1, raw(k.first), k.second, read.data(), 4000), 0);
      ASSERT_EQ(std::string(read.begin(), read.begin() + h_.get()->datalen), data);
    }
  }
}

TEST_P(LeafMerge, LetsAWalkGoOnInBothDirectionsWhileItDeletes) {
  for (const bool forward : {true, false}) {
    std::vector<std::string> expected;
    for (int i = 0; i < 60; i++) {
      ASSERT_EQ(add(key_of(i, 200), 1), 0);
      expected.push_back(key_of(i, 200));
    }
    if (!forward) std::reverse(expected.begin(), expected.end());
    std::vector<std::string> met;
    int r = forward ? engine::bfirst(h_, 1, nullptr, 0) : engine::blast(h_, 1, nullptr, 0);
    for (; r == 0; r = forward ? engine::bnext(h_, 1, nullptr, 0) : engine::bprev(h_, 1, nullptr, 0)) {
      met.push_back(here());
      ASSERT_EQ(engine::keylock(h_, 1), 0);
      ASSERT_EQ(engine::bdelcur(h_, 1), 0);
    }
    EXPECT_EQ(met, expected);
    expect_empty_tree();
  }
}

TEST_P(LeafMerge, KeepsCursorsOfOtherKeysWhereTheyStood) {
  // Key 1 fills leaves before those of key 2.
  for (int i = 0; i < 40; i++) ASSERT_EQ(add(key_of(i, 200), 1), 0);
  const auto second = [](int i) { return std::string("\x14") + "second key value " + static_cast<char>('a' + i) + "xx"; };
  for (int i = 0; i < 20; i++) ASSERT_EQ(engine::badd(h_, 2, raw(second(i)), 1, nullptr, 0), 0);
  ASSERT_EQ(engine::bfirst(h_, 2, nullptr, 0), 0);
  for (int i = 0; i < 40; i++) {
    ASSERT_EQ(engine::bdelete(h_, 1, raw(key_of(39 - i, 200)), 1), 0);
    if (i % 2 == 0) continue;
    ASSERT_EQ(i / 2 == 0 ? 0 : engine::bnext(h_, 2, nullptr, 0), 0);
    ASSERT_EQ(engine::cursor_of(h_, 2).ckey[18], 'a' + i / 2);
  }
  EXPECT_EQ(engine::bnext(h_, 2, nullptr, 0), engine::e_not_found);
}

TEST_P(LeafMerge, TakesOutAllLeavesOfALongValue) {
  ASSERT_EQ(add("before", 1), 0);
  ASSERT_EQ(add("behind", 1), 0);
  for (const std::size_t length : {std::size_t{237 * 40}, std::size_t{30588}, std::size_t{30589}}) {
    ASSERT_EQ(add("bek", 5, std::string(length, 'v')), 0) << length;
    ASSERT_GT(summary().leaves, 9U);
    ASSERT_EQ(engine::bdelete(h_, 1, raw("bek"), 5), 0);
    expect_sound();
    EXPECT_EQ(summary().empty_leaves, 0U) << length;
    EXPECT_LE(summary().leaves, 2U) << length;
    EXPECT_EQ(walk(true), (std::vector<std::string>{"before", "behind"}));
  }
}

TEST_P(LeafMerge, TakesOutWhatAShorterValueLeavesBehind) {
  ASSERT_EQ(add("key", 1, std::string(9000, 'v')), 0);
  ASSERT_GT(summary().leaves, 8U);
  ASSERT_EQ(engine::bstore(h_, 1, raw("key"), 1, raw("short"), 5, engine::store_replace), 0);
  EXPECT_LE(summary().leaves, 2U);
  EXPECT_EQ(summary().empty_leaves, 0U);
  std::uint8_t read[16];
  ASSERT_EQ(engine::bfind(h_, 1, raw("key"), 1, read, sizeof read), 0);
  EXPECT_EQ(std::string(read, read + 5), "short");
}

class MergeInTransactions : public LeafMerge {};
INSTANTIATE_TEST_SUITE_P(Files, MergeInTransactions,
                         ::testing::Values(merge_case{"Shared", 'S', 3, 4, engine::journal_use::off, 10},
                                           merge_case{"SharedWithJournal", 'S', 3, 4, engine::journal_use::on, 10},
                                           merge_case{"Exclusive", 'E', 2, 4, engine::journal_use::off, 10}),
                         [](const auto& a) { return a.param.name; });

TEST_P(MergeInTransactions, IsUndoneByPuttingTheEntriesBack) {
  for (int i = 0; i < 150; i++) ASSERT_EQ(add(key_of(i, 180), 1), 0);
  const std::vector<std::string> before = walk(true);
  std::mt19937 random(9);
  for (int round = 0; round < 12; round++) {
    ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
    for (int k = 0; k < 120; k++) {
      const int i = static_cast<int>(random() % 200);
      if (random() % 4) {
        engine::bdelete(h_, 1, raw(key_of(i, 180)), 1);
      } else {
        add(key_of(i, 180), 1);
      }
    }
    ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
    ASSERT_EQ(walk(true), before);
    expect_sound();
    ASSERT_FALSE(HasFailure()) << round;
  }
}

TEST_P(MergeInTransactions, WorksInTreesOfTheirOwn) {
  ASSERT_EQ(engine::dkeytree(h_, 1, 3), 0);
  for (int i = 0; i < 100; i++) ASSERT_EQ(add(key_of(i, 200), 1), 0);
  ASSERT_GE(summary().header.tree_depths[2], 3);
  for (int i = 0; i < 100; i++) ASSERT_EQ(engine::bdelete(h_, 1, raw(key_of(i * 37 % 100, 200)), 1), 0);
  const engine::file_summary s = summary();
  EXPECT_EQ(s.header.tree_depths[2], 1);
  EXPECT_EQ(s.leaves, 2U);
  EXPECT_EQ(s.inner_nodes, 0U);
}

TEST(LeafMergeBesideOthers, LetsAHandleWithoutItWorkOn) {
  scratch_folder folder;
  const std::string path = folder.file("both");
  handle with, without;
  ASSERT_EQ(without.create(path), 0);
  ASSERT_EQ(engine::csetfile(without, 4), 0);
  std::vector<unsigned char> buffer(record_buffer);
  ASSERT_EQ(engine::dopen(with, path.c_str(), buffer.data(), record_buffer, 'S', 2, sample_key_table(),
                          engine::journal_use::off, engine::option_merge), 0);
  ASSERT_EQ(engine::csetfile(with, 4), 0);
  std::mt19937 random(4);
  std::set<int> model;
  for (int round = 0; round < 900; round++) {
    handle* h = random() % 2 ? &with : &without;
    const int i = static_cast<int>(random() % 120);
    const bool there = model.count(i) > 0;
    ASSERT_EQ(h->find_name(sample(i).name), there ? 0 : engine::e_not_found);
    if (there) {
      ASSERT_EQ(h->remove(), 0);
      model.erase(i);
    } else if ((round / 150) % 2 == 0) {
      ASSERT_EQ(h->insert(sample(i, random() % 9 ? 60 : 2500)), 0);
      model.insert(i);
    }
    if (round % 50 == 0) {
      check_result result = check_file(path, true);
      ASSERT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
    }
  }
  EXPECT_EQ(engine::dopen(with, path.c_str(), nullptr, 0, 'S', 2, sample_key_table(), engine::journal_use::off, 64),
            engine::e_bad_argument);
}

}  // namespace
}  // namespace zvrdb::test
