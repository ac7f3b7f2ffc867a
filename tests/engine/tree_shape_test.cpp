// Where nodes split: the leaves of a file against a plain reckoning of the rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <tuple>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

// The order of an entry, and its bytes.
struct shape_entry {
  std::tuple<int, std::int32_t, std::int32_t, int> order;   // key number, value, record, piece
  int size;
};

struct shape_leaf {
  int node;
  std::vector<shape_entry> entries;
  int bytes() const {
    return std::accumulate(entries.begin(), entries.end(), 0, [](int sum, const shape_entry& e) { return sum + e.size; });
  }
};

// Leaves of a tree of at most two levels.  A leaf's separator is the entry that ended it
// when it split.
class reckoned_tree {
 public:
  reckoned_tree() { leaves_.push_back({0, {}}); }
  void insert(const shape_entry& entry) {
    std::size_t at = 0;
    while (at < separators_.size() && separators_[at] < entry.order) at++;
    std::vector<shape_entry>& entries = leaves_[at].entries;
    auto place = std::lower_bound(entries.begin(), entries.end(), entry,
                                  [](const shape_entry& a, const shape_entry& b) { return a.order < b.order; });
    entries.insert(place, entry);
    if (leaves_[at].bytes() > 1006) split(at);
  }
  const std::vector<shape_leaf>& leaves() const { return leaves_; }

 private:
  void split(std::size_t at) {
    int limit = at + 1 == leaves_.size() ? 1006 : 503;
    std::vector<shape_entry>& entries = leaves_[at].entries;
    std::size_t kept = 0;
    for (int end = entries[0].size; end < limit; end += entries[kept].size) kept++;
    shape_leaf right{next_node_++, {entries.begin() + static_cast<std::ptrdiff_t>(kept), entries.end()}};
    entries.resize(kept);
    if (leaves_.size() == 1) next_node_++;   // the root
    separators_.insert(separators_.begin() + static_cast<std::ptrdiff_t>(at), entries.back().order);
    leaves_.insert(leaves_.begin() + static_cast<std::ptrdiff_t>(at) + 1, right);
  }
  std::vector<shape_leaf> leaves_;
  std::vector<std::tuple<int, std::int32_t, std::int32_t, int>> separators_;
  int next_node_ = 1;
};

struct leaf_on_disk {
  int node, count, room;
  bool operator==(const leaf_on_disk&) const = default;
};

std::ostream& operator<<(std::ostream& out, const leaf_on_disk& leaf) {
  return out << "leaf " << leaf.node << " count " << leaf.count << " room " << leaf.room;
}

int number_at(const std::vector<unsigned char>& bytes, std::size_t at, int size) {
  std::int32_t value = 0;
  for (int i = size - 1; i >= 0; i--) value = static_cast<std::int32_t>(static_cast<std::uint32_t>(value) << 8 | bytes[at + static_cast<std::size_t>(i)]);
  return value;
}

std::vector<leaf_on_disk> leaves_of(const std::vector<unsigned char>& bytes) {
  auto base = [](int node) { return 1024 + 1024 * static_cast<std::size_t>(node); };
  int node = number_at(bytes, 12, 4);
  while (number_at(bytes, base(node) + 12, 2) > 0) node = number_at(bytes, base(node), 4);
  std::vector<leaf_on_disk> leaves;
  for (; node >= 0 && leaves.size() < 1000; node = number_at(bytes, base(node) + 4, 4))
    leaves.push_back({node, number_at(bytes, base(node) + 14, 2), number_at(bytes, base(node) + 16, 2)});
  return leaves;
}

const engine::key_entry shape_keys[] = {{3, 3, {}, nullptr}, {0, 0, {}, nullptr}};

class TreeShape : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    path_ = folder_.file("shape");
    ASSERT_EQ(h_.create(path_, 'S', 1, shape_keys), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  void insert(std::int32_t value, std::size_t payload) {
    std::string data(payload, 'p');
    engine::field list[] = {{'L', 3, 'D', 0, 4, 3, 0, &value},
                            {'B', 'N', 'N', 0, static_cast<std::int16_t>(payload), 0, 0, data.data()},
                            {'E', 'E', 'N', 0, 0, 0, 0, nullptr}};
    ASSERT_EQ(engine::dinsert(h_, list), 0);
    std::int32_t rec = ++records_;
    reckoned_.insert({{3, value, rec, 0}, 11});
    std::size_t body = packed_record(false, {{'L', 3, 'D', 3, std::string(4, 'x')}, {'B', 'N', 'N', 0, data}}).size();
    for (int piece = 0; body > 0; piece++) {
      std::size_t size = std::min<std::size_t>(body, 243);
      reckoned_.insert({{19, 0, rec, piece}, static_cast<int>(size) + 8});
      body -= size;
    }
  }
  void expect_as_reckoned() {
    ASSERT_EQ(h_.close(), 0);
    std::vector<leaf_on_disk> expected;
    for (const shape_leaf& leaf : reckoned_.leaves())
      expected.push_back({leaf.node, static_cast<int>(leaf.entries.size()), 1006 - leaf.bytes()});
    EXPECT_EQ(leaves_of(read_file(path_)), expected);
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
  reckoned_tree reckoned_;
  std::int32_t records_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Orders, TreeShape, ::testing::Values('r', 'f', 'm'), [](const auto& order) {
  return order.param == 'r' ? "Rising" : order.param == 'f' ? "Falling" : "Mixed";
});

std::vector<std::int32_t> values_in(char order, int count) {
  std::vector<std::int32_t> values(static_cast<std::size_t>(count));
  std::iota(values.begin(), values.end(), 1);
  if (order == 'f') std::reverse(values.begin(), values.end());
  if (order == 'm') std::shuffle(values.begin(), values.end(), std::mt19937(17));
  return values;
}

TEST_P(TreeShape, SplitsFollowTheLimitsForShortRecords) {
  for (std::int32_t value : values_in(GetParam(), 500)) insert(value, 8);
  ASSERT_GT(reckoned_.leaves().size(), 15U);
  expect_as_reckoned();
}

TEST_P(TreeShape, SplitsFollowTheLimitsForBodiesOfSeveralPieces) {
  for (std::int32_t value : values_in(GetParam(), 60)) insert(value, 500 + static_cast<std::size_t>(value) * 3);
  ASSERT_GT(reckoned_.leaves().size(), 15U);
  expect_as_reckoned();
}

TEST_P(TreeShape, SplitsFollowTheLimitsForMixedSizes) {
  for (std::int32_t value : values_in(GetParam(), 150)) insert(value, static_cast<std::size_t>(value) * 37 % 300);
  ASSERT_GT(reckoned_.leaves().size(), 15U);
  expect_as_reckoned();
}

TEST_P(TreeShape, DeletionLeavesEveryLeafInPlace) {
  // Every number is deleted, and none is used again meanwhile.
  for (std::int32_t value : values_in(GetParam(), 150)) insert(value, 60);
  ASSERT_EQ(h_.close(), 0);
  std::size_t leaves = leaves_of(read_file(path_)).size();
  ASSERT_EQ(h_.open(path_, 'S', 2, shape_keys), 0);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  std::int32_t value;
  unsigned char data[400];
  engine::field list[] = {{'L', 3, 'D', 0, 4, 3, 0, &value}, {'B', 'N', 'N', 0, 400, 0, 0, data}, {'E', 'E', 'N', 0, 0, 0, 0, nullptr}};
  while (engine::dseq(h_, 3, engine::seq_first) == 0) {
    ASSERT_EQ(engine::dlock(h_), 0);
    ASSERT_EQ(engine::ddelete(h_, list), 0);
  }
  ASSERT_EQ(h_.close(), 0);
  EXPECT_GE(leaves_of(read_file(path_)).size(), leaves);
  check_result result = check_file(path_, true);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

TEST_P(TreeShape, ANodeExactlyFullIsNotSplit) {
  // 1006 = 5 keys of 11 bytes and bodies that take the rest.
  std::size_t overhead = packed_record(false, {{'L', 3, 'D', 3, std::string(4, 'x')}, {'B', 'N', 'N', 0, "p"}}).size() - 1;
  std::size_t rest = 1006 - 5 * 11 - 5 * (8 + overhead);
  for (std::int32_t value : values_in(GetParam(), 4)) insert(value, rest / 5);
  insert(5, rest - 4 * (rest / 5));
  ASSERT_EQ(reckoned_.leaves().size(), 1U);
  ASSERT_EQ(reckoned_.leaves()[0].bytes(), 1006);
  expect_as_reckoned();
}

TEST_P(TreeShape, ARootThatSplitsLeavesALevelMore) {
  for (std::int32_t value : values_in(GetParam(), 60)) insert(value, 8);
  expect_as_reckoned();
  std::vector<unsigned char> bytes = read_file(path_);
  EXPECT_EQ(number_at(bytes, 28, 4), 2);
  int root = number_at(bytes, 12, 4);
  std::size_t base = 1024 + 1024 * static_cast<std::size_t>(root);
  EXPECT_EQ(root, 2);
  EXPECT_EQ(number_at(bytes, base, 4), 0);
  EXPECT_EQ(number_at(bytes, base + 14, 2), static_cast<int>(reckoned_.leaves().size()) - 1);
}

}  // namespace
}  // namespace zvrdb::test
