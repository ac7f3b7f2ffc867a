// How a file grows: ahead of need, up to a full disk, and up to the largest file there is.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/node_alloc.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

constexpr std::uint8_t no_key[] = {0};
constexpr std::uint64_t largest_file = std::uint64_t{1} << 32;
constexpr std::uint64_t most_nodes = largest_file / 1024 - 1;

// The disk ends here.
std::uint64_t disk_end = ~std::uint64_t{0};

std::int64_t write_to_the_end(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (offset >= disk_end) return 0;
  return engine::linux_ops.write_at(file, offset, from, std::min<std::uint64_t>(n, disk_end - offset));
}

class Growth : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    disk_end = ~std::uint64_t{0};
    table_ = engine::linux_ops;
    table_.write_at = write_to_the_end;
    engine::set_os_ops(&table_);
    path_ = folder_.file("growing");
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') engine::abandon(h_);
    engine::set_os_ops(nullptr);
  }
  void create() {
    ASSERT_EQ(h_.create(path_, GetParam()), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  // A file of a few records that takes exactly `nodes` nodes, all in use or lost, but for
  // the holes of a sparse file.
  void put_file_of(std::uint64_t nodes) {
    file_recipe recipe = sample_recipe(false, 5);
    recipe.spare_nodes = 0;
    std::vector<unsigned char> bytes = build_file(recipe).bytes;
    const std::string count = bytes32(false, static_cast<std::uint32_t>(nodes));
    std::copy(count.begin(), count.end(), bytes.begin() + 36);   // the next node
    std::copy(count.begin(), count.end(), bytes.begin() + 52);   // nodes on disk
    write_file(path_, bytes);
    std::filesystem::resize_file(path_, 1024 + 1024 * nodes);
    ASSERT_EQ(h_.open(path_, GetParam()), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  std::uint64_t size() { return std::filesystem::file_size(path_); }
  int add_body(int rec, std::size_t length) {
    const std::string data(length, 'd');
    return engine::badd(h_, 19, no_key, rec, reinterpret_cast<const std::uint8_t*>(data.data()),
                        static_cast<int>(length));
  }
  void close_and_expect_sound() {
    ASSERT_EQ(h_.close(), 0);
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  scratch_folder folder_;
  std::string path_;
  engine::os_ops table_;
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(Access, Growth, ::testing::Values('S', 'E'),
                         [](const auto& a) { return a.param == 'S' ? "Shared" : "Exclusive"; });

TEST_P(Growth, IsOfTenNodesAtLeastAndOfAllThatAreNeeded) {
  create();
  EXPECT_EQ(size(), 11264U);
  ASSERT_EQ(engine::wrenter(h_), 0);
  // One node is in use, so nine are there.
  EXPECT_EQ(engine::ensurenodes(h_, 9), 0);
  EXPECT_EQ(size(), 11264U);
  EXPECT_EQ(engine::ensurenodes(h_, 10), 0);
  EXPECT_EQ(size(), 1024U + 20 * 1024);
  EXPECT_EQ(h_.get()->extent, 20);
  EXPECT_EQ(engine::ensurenodes(h_, 100), 0);
  EXPECT_EQ(size(), 1024U + 101 * 1024);
  EXPECT_EQ(h_.get()->nextnode, 1);
  EXPECT_EQ(h_.get()->grown, 1);
  EXPECT_EQ(engine::wrleave(h_), 0);
  EXPECT_EQ(h_.get()->grown, 0);
}

TEST_P(Growth, ThatFindsTheDiskFullLeavesNoPieceOfTheValue) {
  create();
  ASSERT_EQ(add_body(1, 300), 0);
  disk_end = size();
  EXPECT_EQ(add_body(2, 30000), engine::e_write);
  EXPECT_EQ(engine::bfind(h_, 19, no_key, 2, nullptr, 0), engine::e_not_found);
  EXPECT_EQ(engine::bfind(h_, 19, no_key, 1, nullptr, 0), 0);
  EXPECT_EQ(size(), disk_end);
  ASSERT_EQ(h_.close(), 0);
  EXPECT_EQ(check_file(path_, false).outcome, engine::report_outcome::sound);
  disk_end = ~std::uint64_t{0};
  ASSERT_EQ(h_.open(path_, GetParam()), 0);
  EXPECT_EQ(add_body(2, 30000), 0);
}

TEST_P(Growth, ThatFindsTheDiskFullRefusesTheRecordUntilThereIsRoom) {
  create();
  disk_end = size() + 512;   // half a node more
  EXPECT_EQ(h_.insert(sample(1)), engine::e_write);
  EXPECT_EQ(h_.find_name(sample(1).name), engine::e_not_found);
  disk_end = ~std::uint64_t{0};
  EXPECT_EQ(h_.insert(sample(1)), 0);
  close_and_expect_sound();
}

TEST_P(Growth, EndsAtFourGigabytesBeforeAnythingIsChanged) {
  file_recipe recipe = sample_recipe(false, 5);
  const auto needed = static_cast<std::uint64_t>(build_file(recipe).depth + 1) * 6;   // five keys and the body
  put_file_of(most_nodes - needed);
  EXPECT_EQ(h_.insert(sample(50)), 0);
  EXPECT_EQ(size(), largest_file);
  const std::int32_t next_node = h_.get()->nextnode;
  const auto tree_of = [&] {
    std::vector<unsigned char> tree(std::size_t{1024} * 30);
    EXPECT_EQ(engine::linux_ops.read_at(h_.get()->file, 1024, tree.data(), tree.size()),
              static_cast<std::int64_t>(tree.size()));
    return tree;
  };
  // Nodes are there still, but not all that a record might need.
  h_.get()->nextnode = h_.get()->extent - 1;
  h_.get()->hdrdirty = 1;
  ASSERT_EQ(engine::dflush(h_), 0);
  const auto before = tree_of();
  EXPECT_EQ(h_.insert(sample(51)), engine::e_write);
  EXPECT_EQ(h_.insert(sample(51)), engine::e_write);
  EXPECT_EQ(tree_of(), before);
  EXPECT_EQ(size(), largest_file);
  EXPECT_EQ(h_.get()->extent, static_cast<std::int32_t>(most_nodes));
  EXPECT_EQ(h_.find_name(sample(51).name), engine::e_not_found);
  EXPECT_EQ(h_.find_name(sample(50).name), 0);
  // What needs no room goes on.
  ASSERT_EQ(h_.find_name(sample(3).name), 0);
  EXPECT_EQ(h_.remove(), 0);
  h_.get()->nextnode = next_node;
  EXPECT_EQ(h_.insert(sample(51)), 0);
}

TEST_P(Growth, ByAWholeStepBeyondFourGigabytesIsRefusedToo) {
  put_file_of(most_nodes - 5);
  ASSERT_EQ(engine::wrenter(h_), 0);
  EXPECT_EQ(engine::ensurenodes(h_, 2), engine::e_write);
  EXPECT_EQ(size(), largest_file - 5 * 1024);
  EXPECT_EQ(engine::wrleave(h_), 0);
}

}  // namespace
}  // namespace zvrdb::test
