// What the engine writes, byte for byte, against images of the independent writer.
#include <gtest/gtest.h>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

class GoldenFile : public ::testing::TestWithParam<bool> {
 protected:
  bool big() const { return GetParam(); }
  int order() const { return big() ? 2 : 1; }
  void SetUp() override {
    path_ = folder_.file("golden");
    ASSERT_EQ(h_.create(path_, 'S', order()), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  file_recipe recipe(std::uint32_t generation, int spare_nodes) {
    file_recipe expected;
    expected.big_endian = big();
    expected.generation = generation;
    expected.key_types = sample_key_types();
    expected.spare_nodes = spare_nodes;
    return expected;
  }
  // All but the undefined gaps of the header.
  void expect_bytes(std::vector<unsigned char> expected) {
    std::vector<unsigned char> actual = read_file(path_);
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t gap : {214U, 215U, 262U, 263U}) actual[gap] = expected[gap] = 0;
    for (std::size_t i = 0; i < expected.size(); i++)
      ASSERT_EQ(int(actual[i]), int(expected[i])) << "byte " << i << " (node " << int(i / 1024) - 1 << ", offset " << i % 1024 << ")";
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, GoldenFile, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(GoldenFile, ANewFileHasAnEmptyLeafAndTenNodes) {
  expect_bytes(build_file(recipe(2, 9)).bytes);
  EXPECT_EQ(read_file(path_).size(), 11264U);
}

TEST_P(GoldenFile, ANewFileBeginsWithTheseBytes) {
  const std::vector<unsigned char> little = {2,   0, 0, 0, 'V', 0, 0, 0, 1,   0, 0, 0, 0,    0,    0,    0,
                                             'A', 0, 0, 0, 'L', 0, 0, 0, 'I', 0, 0, 0, 1,    0,    0,    0,
                                             'D', 0, 0, 0, 1,   0, 0, 0, 'A', 0, 0, 0, 1,    0,    0,    0,
                                             'T', 0, 0, 0, 10,  0, 0, 0, '1', 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  std::vector<unsigned char> bytes = read_file(path_);
  for (std::size_t i = 0; i < little.size(); i++)
    EXPECT_EQ(bytes[i], little[big() ? (i & ~std::size_t{3}) + 3 - (i & 3) : i]) << i;
  EXPECT_EQ(bytes[192 + 1], 2);
  EXPECT_EQ(bytes[192 + 5], 7);
  EXPECT_EQ(bytes[192 + 20], 2);
  const std::vector<unsigned char> leaf = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
  EXPECT_TRUE(std::equal(leaf.begin(), leaf.end(), bytes.begin() + 1024));
  EXPECT_EQ(bytes[1024 + 16], big() ? 0x03 : 0xEE);
  EXPECT_EQ(bytes[1024 + 17], big() ? 0xEE : 0x03);
}

TEST_P(GoldenFile, ClosingRaisesTheGeneration) {
  ASSERT_EQ(h_.close(), 0);
  expect_bytes(build_file(recipe(3, 9)).bytes);
}

TEST_P(GoldenFile, OneRecordLiesUnderItsKeysAndKey19) {
  ASSERT_EQ(h_.insert(sample(1)), 0);
  // Five keys ask for (1 + 1) * (5 + 1) nodes ahead, so the file has grown by ten.
  file_recipe expected = recipe(3, 19);
  add_record(&expected, 1, written_fields(big(), sample(1)));
  expect_bytes(build_file(expected).bytes);
  ASSERT_EQ(h_.close(), 0);
  expected.generation = 4;
  expect_bytes(build_file(expected).bytes);
}

TEST_P(GoldenFile, AnEmptyFieldThatIsNoKeyIsNotStored) {
  ASSERT_EQ(h_.insert(sample(1, 0)), 0);
  file_recipe expected = recipe(3, 19);
  add_record(&expected, 1, written_fields(big(), sample(1, 0)));
  expect_bytes(build_file(expected).bytes);
}

TEST_P(GoldenFile, ABodyOfSeveralPiecesIsCutAt243Bytes) {
  ASSERT_EQ(h_.insert(sample(1, 600)), 0);
  file_recipe expected = recipe(3, 19);
  add_record(&expected, 1, written_fields(big(), sample(1, 600)));
  expect_bytes(build_file(expected).bytes);
}

TEST_P(GoldenFile, ACommittedTransactionLeavesOneFreeNode) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(1)), 0);
  ASSERT_EQ(engine::transend(h_, 1), 0);
  file_recipe expected = recipe(5, 18);
  expected.free_nodes = 1;
  add_record(&expected, 1, written_fields(big(), sample(1)));
  expect_bytes(build_file(expected).bytes);
}

TEST_P(GoldenFile, ATransactionInProgressHasItsLogOnDisk) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(1)), 0);
  std::vector<unsigned char> bytes = read_file(path_);
  const unsigned char* log = bytes.data() + 1024 * 2;
  // Owner slot 0, level FFFE, 8 records: begun, five keys, body, finished.
  std::string head = bytes32(big(), 0xFFFFFFFFU) + bytes32(big(), 0) + bytes32(big(), 0) + bytes16(big(), 0xFFFE) + bytes16(big(), 8);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(log), 16), head);
  // The first record: generation at the start 3, sequence 1, generation 4, type 4, no entry.
  std::string first(reinterpret_cast<const char*>(log) + 18, 14);
  EXPECT_EQ(first.substr(0, 6), bytes32(big(), 3) + bytes16(big(), 1));
  EXPECT_EQ(first.substr(8), bytes32(big(), 4) + std::string("\4\0", 2));
  // The second one: the entry of key 1.
  std::string second(reinterpret_cast<const char*>(log) + 32, 200);
  std::string entry = leaf_form(big(), {1, key_value(written_fields(big(), sample(1))[0]), 1, ""});
  EXPECT_EQ(second.substr(4, 2), bytes16(big(), 2));
  EXPECT_EQ(second[12], 1);
  EXPECT_EQ(second.substr(13, 1 + entry.size()), static_cast<char>(entry.size()) + entry);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()) + 344, 4), bytes32(big(), 1));
  ASSERT_EQ(engine::transend(h_, 1), 0);
}

TEST_P(GoldenFile, ARollBackLeavesItsLogNodeAndCounters) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(1)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  std::vector<unsigned char> expected = build_file(recipe(5, 19)).bytes;
  std::vector<unsigned char> actual = read_file(path_);
  auto put = [&](std::size_t at, std::uint32_t value) {
    std::string bytes = bytes32(big(), value);
    std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<std::ptrdiff_t>(at));
  };
  put(36, 2);   // nextnode: the log node stays allocated
  put(44, 2);   // nextrec
  put(68, 1);   // reccount isn't undone
  ASSERT_EQ(actual.size(), expected.size());
  std::copy_n(actual.begin() + 2048, 1024, expected.begin() + 2048);
  EXPECT_NE(expected[2048 + 12], 0);
  expect_bytes(expected);
}

TEST_P(GoldenFile, UpdateAndDeleteLeaveTheBytesOfAFileThatNeverHeldTheRecord) {
  ASSERT_EQ(h_.insert(sample(1)), 0);
  ASSERT_EQ(h_.insert(sample(2)), 0);
  ASSERT_EQ(h_.find_name(sample(1).name), 0);
  ASSERT_EQ(h_.remove(), 0);
  sample_record changed = sample(2);
  changed.group = "another";
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  ASSERT_EQ(h_.update(changed), 0);
  // Two inserts, lock and delete, lock, update and unlock: seven operations.
  file_recipe expected = recipe(9, 19);
  add_record(&expected, 2, written_fields(big(), changed));
  add_free_number(&expected, 1);
  expected.next_record = 3;
  expect_bytes(build_file(expected).bytes);
}

}  // namespace
}  // namespace zvrdb::test
