// The order of key values of each type, in both byte orders.
#include "engine/key_compare.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "engine/format.h"

namespace zvrdb::test {
namespace {

using engine::byte_order;

class KeyCompare : public ::testing::TestWithParam<byte_order> {
 protected:
  // Bytes of a value in file order.
  template <class T>
  std::string number(T value) const {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    if (GetParam() != engine::native_order) bytes.assign(bytes.rbegin(), bytes.rend());
    return bytes;
  }
  static std::string counted(const std::string& bytes) { return static_cast<char>(bytes.size()) + bytes; }
  int compare(int type, const std::string& a, const std::string& b) const {
    return engine::compare_values(type, GetParam(), reinterpret_cast<const std::uint8_t*>(a.c_str()),
                                  reinterpret_cast<const std::uint8_t*>(b.c_str()));
  }
  // Each value is below all that follow and equal to itself.
  void expect_rising(int type, const std::vector<std::string>& values) const {
    for (std::size_t i = 0; i < values.size(); i++)
      for (std::size_t j = 0; j < values.size(); j++)
        EXPECT_EQ(compare(type, values[i], values[j]), i < j ? -1 : i > j ? 1 : 0)
            << "type " << type << ": " << i << ", " << j;
  }
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, KeyCompare, ::testing::Values(byte_order::little, byte_order::big),
                         [](const auto& o) { return o.param == byte_order::big ? "BigEndian" : "LittleEndian"; });

TEST_P(KeyCompare, StringsSortByBytes) {
  expect_rising(0, {"", "A", "B", "_", "a", "aa", "b", "\x7F", "\x80", "\xFF"});
}

TEST_P(KeyCompare, StringsWithoutCaseSortInSmallLettersOfAscii) {
  expect_rising(1, {"", "@", "[", "_", "`", "A", "aB", "Ac", "b", "{", "\xC4", "\xE4"});
  EXPECT_EQ(compare(1, "AbZ", "aBz"), 0);
}

TEST_P(KeyCompare, BytesSortByBytesAndThenTheShorterFirst) {
  for (int type : {2, 8, 16, 17, 18, 19, 20})
    expect_rising(type, {counted(""), counted(std::string(1, '\0')), counted(std::string(2, '\0')), counted("a"),
                         counted("ab"), counted("b"), counted("\x80"), counted("\xFF")});
}

TEST_P(KeyCompare, IntegersSortBySign) {
  for (int type : {3, 5})
    expect_rising(type, {number<std::int32_t>(INT32_MIN), number<std::int32_t>(-256), number<std::int32_t>(-1),
                         number<std::int32_t>(0), number<std::int32_t>(1), number<std::int32_t>(256),
                         number<std::int32_t>(INT32_MAX)});
  expect_rising(4, {number<std::int16_t>(-32768), number<std::int16_t>(-1), number<std::int16_t>(0),
                    number<std::int16_t>(255), number<std::int16_t>(256), number<std::int16_t>(32767)});
  expect_rising(10, {number<std::uint16_t>(0), number<std::uint16_t>(255), number<std::uint16_t>(256),
                     number<std::uint16_t>(32768), number<std::uint16_t>(65535)});
}

TEST_P(KeyCompare, FloatsSortByValueAndAnUnorderedPairAsGreater) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  expect_rising(6, {number(-infinity), number(-2.5F), number(0.0F), number(1e-30F), number(3.0F), number(infinity)});
  expect_rising(7, {number(-1e300), number(-2.5), number(0.0), number(1e-300), number(3.0), number(1e300)});
  EXPECT_EQ(compare(6, number(-0.0F), number(0.0F)), 0);
  EXPECT_EQ(compare(7, number(-0.0), number(0.0)), 0);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const double wide_nan = std::numeric_limits<double>::quiet_NaN();
  for (float other : {0.0F, infinity, nan}) {
    EXPECT_EQ(compare(6, number(nan), number(other)), 1);
    EXPECT_EQ(compare(6, number(other), number(nan)), 1);
    EXPECT_EQ(compare(7, number(wide_nan), number<double>(other)), 1);
    EXPECT_EQ(compare(7, number<double>(other), number(wide_nan)), 1);
  }
}

TEST_P(KeyCompare, SixBytesAreBytesInEitherByteOrder) {
  expect_rising(9, {std::string(6, '\0'), std::string("\0\0\0\0\0\1", 6), std::string("\0\1\0\0\0\0", 6),
                    std::string("\1\0\0\0\0\0", 6), std::string("\x80\0\0\0\0\0", 6), std::string(6, '\xFF')});
}

TEST_P(KeyCompare, LengthsFollowTheType) {
  const std::uint8_t value[256] = {3, 'a', 0, 'c', 'd'};
  const struct {
    int type, length;
  } rows[] = {{0, 3}, {1, 3}, {2, 4}, {3, 4}, {4, 2}, {5, 4}, {6, 4}, {7, 8}, {8, 4}, {9, 6}, {10, 2},
              {16, 4}, {17, 4}, {18, 4}, {19, 4}, {20, 4}};
  for (const auto& row : rows) {
    EXPECT_EQ(engine::key_value_length(row.type, value, 256), row.length) << row.type;
    EXPECT_EQ(engine::key_value_length(row.type, value, row.length), row.length) << row.type;
    // A value that its bytes don't hold has no length.
    EXPECT_EQ(engine::key_value_length(row.type, value, row.length - 1), -1) << row.type;
    EXPECT_EQ(engine::key_value_length(row.type, value, 0), -1) << row.type;
  }
  for (int type : {11, 12, 13, 14, 15, 21, 30, 31}) EXPECT_EQ(engine::key_value_length(type, value, 256), -1) << type;
}

}  // namespace
}  // namespace zvrdb::test
