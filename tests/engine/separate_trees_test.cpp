// Keys in trees of their own: records, transactions, several handles, and giving a tree back.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

struct tree_case {
  const char* name;
  char access;
  int byte_order;
  int level;
  engine::journal_use journal;
};

class SeparateTrees : public ::testing::TestWithParam<tree_case> {
 protected:
  void SetUp() override {
    h_.journal = other_.journal = GetParam().journal;
    ASSERT_EQ(h_.create(path_, GetParam().access, GetParam().byte_order), 0);
    ASSERT_EQ(engine::csetfile(h_, GetParam().level), 0);
  }
  void TearDown() override {
    for (handle* h : {&other_, &h_}) {
      if (engine::checkpsp(*h) != 'O') continue;
      EXPECT_EQ(h->close(), 0);
    }
    check_result result = check_file(path_, deep_);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  bool big() const { return GetParam().byte_order == 2; }
  // Keys 1 and 2 share tree 1; the bodies have tree 20, locks and free numbers tree 7.
  void give_trees() {
    ASSERT_EQ(engine::dkeytree(h_, 1, 1), 0);
    ASSERT_EQ(engine::dkeytree(h_, 2, 1), 0);
    ASSERT_EQ(engine::dkeytree(h_, engine::key_bodies, 20), 0);
    ASSERT_EQ(engine::dkeytree(h_, engine::key_locks, 7), 0);
    ASSERT_EQ(engine::dkeytree(h_, engine::key_free_records, 7), 0);
  }
  engine::file_summary summary() {
    engine::file_summary s;
    engine::dflush(h_);
    engine::summarize_file(path_.c_str(), &s, nullptr);
    return s;
  }
  int entries_of(int key) {
    int n = 0;
    for (int r = engine::dseq(h_, key, engine::seq_first); r == 0; r = engine::dseq(h_, key, engine::seq_next)) n++;
    return n;
  }
  void expect_records(handle* h, int first, int last) {
    for (int i = first; i <= last; i++) {
      sample_record found;
      ASSERT_EQ(h->find_name(sample(i).name), 0) << i;
      ASSERT_EQ(h->read(&found), 0);
      ASSERT_EQ(found, sample(i));
    }
  }
  scratch_folder folder_;
  std::string path_ = folder_.file("trees");
  handle h_, other_;
  bool deep_ = true;   // not where keys stand for no records
};

INSTANTIATE_TEST_SUITE_P(Files, SeparateTrees,
                         ::testing::Values(tree_case{"Shared", 'S', 3, 4, engine::journal_use::off},
                                           tree_case{"SharedWithJournal", 'S', 3, 4, engine::journal_use::on},
                                           tree_case{"BigEndianExclusive", 'E', 2, 3, engine::journal_use::off},
                                           tree_case{"ExclusiveWithJournal", 'E', 3, 4, engine::journal_use::on}),
                         [](const auto& a) { return a.param.name; });

class SharedSeparateTrees : public SeparateTrees {};
INSTANTIATE_TEST_SUITE_P(Files, SharedSeparateTrees,
                         ::testing::Values(tree_case{"Shared", 'S', 3, 4, engine::journal_use::off},
                                           tree_case{"SharedWithJournal", 'S', 2, 4, engine::journal_use::on}),
                         [](const auto& a) { return a.param.name; });

class SeparateTreesAtLevel4 : public SeparateTrees {};
INSTANTIATE_TEST_SUITE_P(Files, SeparateTreesAtLevel4,
                         ::testing::Values(tree_case{"Shared", 'S', 3, 4, engine::journal_use::off},
                                           tree_case{"BigEndianExclusive", 'E', 2, 4, engine::journal_use::off},
                                           tree_case{"SharedWithJournal", 'S', 3, 4, engine::journal_use::on}),
                         [](const auto& a) { return a.param.name; });

TEST_P(SeparateTrees, AreNamedByTheHeaderAndBeginWithOneEmptyLeaf) {
  give_trees();
  EXPECT_EQ(h_.get()->depth, 1);
  ASSERT_EQ(h_.close(), 0);
  const std::vector<unsigned char> bytes = read_file(path_);
  const auto number = [&](std::size_t at) {
    return engine::load32s(bytes.data() + at, big() ? engine::byte_order::big : engine::byte_order::little);
  };
  for (int key = 1; key <= 22; key++) {
    const int tree = key <= 2 ? 1 : key == 19 ? 20 : key == 18 || key == 20 ? 7 : 0;
    EXPECT_EQ(bytes[220 + static_cast<std::size_t>(key) - 1], tree) << key;
  }
  for (int tree = 1; tree <= 20; tree++) {
    const bool there = tree == 1 || tree == 7 || tree == 20;
    const std::size_t at = static_cast<std::size_t>(tree) - 1;
    EXPECT_EQ(bytes[242 + at], there ? 1 : 0);
    const int root = number(264 + 4 * at);
    EXPECT_EQ(root != 0, there);
    if (!there) continue;
    const std::size_t node = 1024 + 1024 * static_cast<std::size_t>(root);
    EXPECT_EQ(number(node + 4), -1);
    EXPECT_EQ(number(node + 8), -1);
    EXPECT_EQ(number(node + 12), 0);
  }
  ASSERT_EQ(h_.open(path_, GetParam().access), 0);
  EXPECT_EQ(summary().trees, 4U);
}

TEST_P(SeparateTrees, HoldRecordsThroughInsertUpdateAndDelete) {
  give_trees();
  std::map<int, int> model;   // record number of the samples: its version
  std::mt19937 random(3);
  for (int round = 0; round < 700; round++) {
    const int i = static_cast<int>(random() % 150);
    const bool there = model.count(i) > 0;
    ASSERT_EQ(h_.find_name(sample(i).name), there ? 0 : engine::e_not_found);
    if (!there) {
      ASSERT_EQ(h_.insert(sample(i, random() % 8 ? 20 : 1500)), 0);
      model[i] = 20;
    } else if (random() % 2) {
      ASSERT_EQ(h_.remove(), 0);
      model.erase(i);
    } else {
      sample_record changed = sample(i);
      changed.number = static_cast<std::int32_t>(random() % 1000);
      ASSERT_EQ(h_.update(changed), 0);
    }
  }
  for (int key = 1; key <= 5; key++) EXPECT_EQ(entries_of(key), static_cast<int>(model.size())) << key;
  const engine::file_summary s = summary();
  EXPECT_EQ(s.records, model.size());
  EXPECT_GT(s.header.tree_depths[0], 1);
  EXPECT_GT(s.header.tree_depths[19], 1);
}

TEST_P(SeparateTrees, EndWhereTheirOwnEntriesEnd) {
  give_trees();
  for (int i = 1; i <= 40; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  EXPECT_EQ(engine::dseq(h_, 2, engine::seq_last), 0);
  EXPECT_EQ(engine::dseq(h_, 2, engine::seq_next), engine::e_not_found);
  EXPECT_EQ(engine::dseq(h_, 2, engine::seq_last), 0);
  int back = 1;
  while (engine::dseq(h_, 2, engine::seq_previous) == 0) back++;
  EXPECT_EQ(back, 40);
  EXPECT_EQ(h_.find_name("zzzz", engine::find_greater_equal), engine::e_not_found);
  EXPECT_EQ(h_.find_name("zzzz", engine::find_less), 0);
}

TEST_P(SeparateTreesAtLevel4, RollBackWithTheSharedOne) {
  give_trees();
  for (int i = 1; i <= 30; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  EXPECT_EQ(engine::dkeytree(h_, 9, 2), engine::e_trans_interrupted);
  EXPECT_EQ(engine::dfreetree(h_, 1), engine::e_trans_interrupted);
  for (int i = 31; i <= 90; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  for (int i = 1; i <= 30; i += 3) {
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
    ASSERT_EQ(h_.remove(), 0);
  }
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_records(&h_, 1, 30);
  for (int key = 1; key <= 5; key++) EXPECT_EQ(entries_of(key), 30) << key;
}

TEST_P(SharedSeparateTrees, AreSeenByOtherHandles) {
  ASSERT_EQ(other_.open_for_work(path_), 0);
  EXPECT_EQ(other_.find_name("x"), engine::e_not_found);
  give_trees();
  for (int i = 1; i <= 40; i++) ASSERT_EQ((i % 2 ? h_ : other_).insert(sample(i)), 0);
  expect_records(&h_, 1, 40);
  expect_records(&other_, 1, 40);
  EXPECT_EQ(engine::dkeytree(other_, 1, 0), engine::e_exists);
}

TEST_P(SeparateTrees, AreRefusedToKeysThatHaveEntriesAndToNumbersThatAreNone) {
  ASSERT_EQ(h_.insert(sample(1)), 0);
  EXPECT_EQ(engine::dkeytree(h_, 1, 1), engine::e_exists);
  EXPECT_EQ(engine::dkeytree(h_, engine::key_bodies, 1), engine::e_exists);
  EXPECT_EQ(engine::dkeytree(h_, 1, 0), 0);
  EXPECT_EQ(engine::dkeytree(h_, 9, 1), 0);
  EXPECT_EQ(engine::dkeytree(h_, 9, 0), 0);
  for (int key : {0, 17, 21, -1}) EXPECT_EQ(engine::dkeytree(h_, key, 1), engine::e_bad_argument);
  for (int tree : {-1, 21}) EXPECT_EQ(engine::dkeytree(h_, 9, tree), engine::e_bad_argument);
  for (int tree : {-1, 0, 21}) EXPECT_EQ(engine::dfreetree(h_, tree), engine::e_bad_argument);
  EXPECT_EQ(engine::dfreetree(h_, 2), engine::e_not_found);
  expect_records(&h_, 1, 1);
}

TEST_P(SeparateTrees, GiveAllTheirNodesBackAndTheirKeysAreEmptyInTheSharedOne) {
  deep_ = false;
  ASSERT_EQ(engine::dkeytree(h_, 6, 3), 0);
  const std::string filler(200, 'f');
  for (std::int32_t i = 1; i <= 400; i++) {
    const std::string value = "v" + std::to_string(i * 7919 % 1000) + filler;
    ASSERT_EQ(engine::badd(h_, 6, reinterpret_cast<const std::uint8_t*>(value.c_str()), i, nullptr, 0), 0);
  }
  const engine::file_summary before = summary();
  ASSERT_GE(before.header.tree_depths[2], 4);
  ASSERT_EQ(engine::dfreetree(h_, 3), 0);
  const engine::file_summary after = summary();
  EXPECT_EQ(after.trees, 1U);
  EXPECT_EQ(after.free_nodes, before.leaves + before.inner_nodes - 1);
  EXPECT_EQ(after.unreachable_nodes, 0U);
  EXPECT_EQ(entries_of(6), 0);
  EXPECT_EQ(engine::dfreetree(h_, 3), engine::e_not_found);
  // The nodes come back into use.
  ASSERT_EQ(engine::dkeytree(h_, 6, 5), 0);
  const std::int32_t next = h_.get()->nextnode;
  for (std::int32_t i = 1; i <= 200; i++) {
    const std::string value = std::to_string(i) + filler;
    ASSERT_EQ(engine::badd(h_, 6, reinterpret_cast<const std::uint8_t*>(value.c_str()), i, nullptr, 0), 0);
  }
  EXPECT_EQ(entries_of(6), 200);
  EXPECT_EQ(h_.get()->nextnode, next);
}

TEST_P(SeparateTrees, TellTheNodeThatCouldNotBeRead) {
  deep_ = false;
  ASSERT_EQ(engine::dkeytree(h_, 6, 3), 0);
  for (std::int32_t i = 1; i <= 400; i++) {
    const std::string value = std::to_string(i);
    ASSERT_EQ(engine::badd(h_, 6, reinterpret_cast<const std::uint8_t*>(value.c_str()), i, nullptr, 0), 0);
  }
  ASSERT_EQ(h_.close(), 0);
  std::vector<unsigned char> bytes = read_file(path_);
  const auto order = big() ? engine::byte_order::big : engine::byte_order::little;
  const std::int32_t root = engine::load32s(bytes.data() + 264 + 8, order);
  const std::size_t root_at = 1024 + 1024 * static_cast<std::size_t>(root);
  const std::int32_t leaf = engine::load32s(bytes.data() + root_at, order);
  const std::vector<unsigned char> sound = bytes;
  engine::store16(bytes.data() + 1024 + 1024 * static_cast<std::size_t>(leaf) + 12, 3, order);   // its level
  write_file(path_, bytes);
  ASSERT_EQ(h_.open(path_, GetParam().access), 0);
  EXPECT_LT(engine::dfreetree(h_, 3), 0);
  std::int32_t node = 0;
  EXPECT_EQ(engine::last_fault(h_, &node), engine::fault_tree_read);
  EXPECT_EQ(node, leaf);
  engine::abandon(h_);
  write_file(path_, sound);
}

TEST(SeparateTreesOfAnotherProgram, AreFollowedWhereTheHeaderNamesThem) {
  // Two files of one key each become one: the tree of the second is hung in as tree 4.
  scratch_folder folder;
  const std::string path = folder.file("merged");
  const auto recipe_of = [](int key, const std::string& value, int n) {
    file_recipe recipe;
    recipe.key_types = {{1, 0}, {2, 0}};
    recipe.leaf_limit = 60;
    recipe.inner_limit = 60;
    recipe.spare_nodes = 0;
    for (int i = 1; i <= n; i++) recipe.entries.push_back({key, value + std::to_string(i) + std::string(1, '\0'), i, ""});
    return recipe;
  };
  const file_layout first = build_file(recipe_of(1, "one", 9));
  const file_layout second = build_file(recipe_of(2, "two", 7));
  ASSERT_GE(second.depth, 2);
  std::vector<unsigned char> bytes = first.bytes;
  const auto order = engine::byte_order::little;
  const std::int32_t by = first.next_node;
  for (int n = 0; n < second.next_node; n++) {
    std::vector<unsigned char> node(second.bytes.begin() + 1024 + 1024 * n, second.bytes.begin() + 2048 + 1024 * n);
    const auto shift = [&](std::size_t at) {
      const std::int32_t v = engine::load32s(node.data() + at, order);
      if (v >= 0) engine::store32s(node.data() + at, v + by, order);
    };
    const bool inner = engine::load16(node.data() + 12, order) != 0;
    if (inner) shift(0);
    shift(4);
    shift(8);
    for (std::size_t at = 18; inner && node[at] != 0; at += node[at] + 1U) shift(at + node[at] - 3);
    bytes.insert(bytes.end(), node.begin(), node.end());
  }
  bytes[220 + 1] = 4;
  bytes[242 + 3] = static_cast<unsigned char>(second.depth);
  engine::store32s(bytes.data() + 264 + 12, engine::load32s(second.bytes.data() + 12, order) + by, order);
  engine::store32s(bytes.data() + 36, by + second.next_node, order);
  engine::store32s(bytes.data() + 52, by + second.next_node, order);
  write_file(path, bytes);
  const check_result checked = check_file(path, false);
  ASSERT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
  handle h;
  const engine::key_entry keys[] = {{1, 0, {}, nullptr}, {2, 0, {}, nullptr}, {0, 0, {}, nullptr}};
  ASSERT_EQ(h.open(path, 'S', 2, keys), 0);
  for (int i = 1; i <= 9; i++) EXPECT_EQ(engine::dfind(h, 1, ("one" + std::to_string(i)).c_str(), 'S', engine::find_equal), 0);
  for (int i = 1; i <= 7; i++) EXPECT_EQ(engine::dfind(h, 2, ("two" + std::to_string(i)).c_str(), 'S', engine::find_equal), 0);
  EXPECT_EQ(engine::dfind(h, 2, "two9", 'S', engine::find_equal), engine::e_not_found);
}

TEST(SeparateTreesOfAnotherProgram, ThatAreWrongInTheHeaderAreFoundByTheCheckAndDoNoHarm) {
  scratch_folder folder;
  const std::string path = folder.file("wrong");
  const std::vector<unsigned char> sound = build_file(sample_recipe(false, 20)).bytes;
  const struct {
    std::size_t at;
    unsigned char value;
  } wrongs[] = {{220, 4}, {220, 99}, {240, 1}, {242, 1}, {242, 200}, {264, 9}, {300, 255}};
  for (const auto& wrong : wrongs) {
    std::vector<unsigned char> bytes = sound;
    bytes[wrong.at] = wrong.value;
    write_file(path, bytes);
    EXPECT_EQ(check_file(path, true).outcome, engine::report_outcome::problems) << wrong.at;
    handle h;
    ASSERT_EQ(h.open_for_work(path), 0);
    const int found = h.find_name(sample(3).name);
    EXPECT_TRUE(found == 0 || found == engine::e_not_found) << found;
    EXPECT_LE(h.insert(sample(500)), 0);
    engine::dfreetree(h, 1);
    engine::abandon(h);
  }
}

}  // namespace
}  // namespace zvrdb::test
