// Header fields that no engine ever wrote: the file must not grow by them, and counters
// at the ends of their range must not upset anything.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr std::size_t depth_at = 28;
constexpr std::size_t freerecs_at = 64;
constexpr std::size_t reccount_at = 68;

class HostileHeader : public ::testing::TestWithParam<bool> {
 protected:
  std::string put(std::size_t offset, std::uint32_t value, bool with_free_number = false) {
    file_recipe recipe = sample_recipe(GetParam(), 5);
    if (with_free_number) add_free_number(&recipe, 9);
    std::vector<unsigned char> bytes = build_file(recipe).bytes;
    const std::string field = bytes32(GetParam(), value);
    std::memcpy(bytes.data() + offset, field.data(), field.size());
    std::string path = folder_.file("hostile");
    write_file(path, bytes);
    return path;
  }
  scratch_folder folder_;
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, HostileHeader, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(HostileHeader, ADepthThatCannotBeGrowsNoFile) {
  for (std::uint32_t depth : {0x10001U, 21U, 0U, 0xFFFFFFFFU, 0x7FFFFFFFU}) {
    const std::string path = put(depth_at, depth);
    const auto size = std::filesystem::file_size(path);
    handle h;
    // An open looks for old locks in the tree, which cannot be searched.
    if (h.open(path, 'E') != 0) continue;
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    EXPECT_EQ(h.insert(sample(50)), engine::e_damaged) << depth;
    EXPECT_EQ(engine::transbeg(h, 3, nullptr), engine::e_damaged) << depth;
    engine::abandon(h);
    EXPECT_EQ(std::filesystem::file_size(path), size) << depth;
  }
}

TEST_P(HostileHeader, CountersAtTheEndsOfTheirRangeLetRecordsInAndOut) {
  for (const auto& [offset, value] : {std::pair<std::size_t, std::uint32_t>{freerecs_at, 0x80000000U},
                                      {freerecs_at, 0x7FFFFFFFU},
                                      {reccount_at, 0x7FFFFFFFU},
                                      {reccount_at, 0x80000000U}}) {
    const std::string path = put(offset, value, offset == freerecs_at);
    handle h;
    ASSERT_EQ(h.open_for_work(path), 0);
    ASSERT_EQ(h.find_name(sample(3).name), 0);
    EXPECT_EQ(h.remove(), 0);
    EXPECT_EQ(h.insert(sample(50)), 0);
    EXPECT_EQ(h.insert(sample(51)), 0);
    sample_record found;
    ASSERT_EQ(h.find_name(sample(51).name), 0);
    EXPECT_EQ(h.read(&found), 0);
    EXPECT_EQ(found, sample(51));
    EXPECT_EQ(h.close(), 0);
  }
}

}  // namespace
}  // namespace zvrdb::test
