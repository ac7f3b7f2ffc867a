#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "recfile/recfile.h"
#include "support/temp_installation.h"

namespace zvrdb::recfile {
namespace {

using key_bytes = std::array<unsigned char, max_key_len>;

key_bytes rising_key() {
  key_bytes key;
  for (unsigned i = 0; i < key.size(); ++i) key[i] = static_cast<unsigned char>(i + 1);
  return key;
}

std::uint32_t u32_at(const key_bytes& key, unsigned offset) {
  std::uint32_t value = 0;
  std::memcpy(&value, key.data() + offset, sizeof value);
  return value;
}

void put_u32(key_bytes& key, unsigned offset, std::uint32_t value) {
  std::memcpy(key.data() + offset, &value, sizeof value);
}

// Positions of the bytes that a conversion moves.
std::vector<unsigned> moved_bytes(std::uint32_t db_id) {
  const key_bytes before = rising_key();
  key_bytes after = before;
  convert_key_nbo(nullptr, db_id, after.data(), to_network);
  std::vector<unsigned> moved;
  for (unsigned i = 0; i < before.size(); ++i)
    if (before[i] != after[i]) moved.push_back(i);
  return moved;
}

std::vector<unsigned> words(std::initializer_list<unsigned> offsets) {
  std::vector<unsigned> all;
  for (unsigned offset : offsets)
    for (unsigned i = 0; i < 4; ++i) all.push_back(offset + i);
  return all;
}

TEST(RecordKeys, ConvertingTwiceRestoresTheKey) {
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    const key_bytes before = rising_key();
    key_bytes key = before;
    convert_key_nbo(nullptr, db_id, key.data(), to_network);
    convert_key_nbo(nullptr, db_id, key.data(), from_network);
    EXPECT_EQ(before, key) << db_id;
  }
}

TEST(RecordKeys, ExactlyTheIntegersOfEachLayoutAreSwapped) {
  for (std::uint32_t db_id : {4u, 5u, 10u, 11u, 32u}) EXPECT_EQ(words({0, 4}), moved_bytes(db_id)) << db_id;
  for (std::uint32_t db_id : {6u, 22u, 23u, 24u, 25u, 31u})
    EXPECT_EQ(words({0}), moved_bytes(db_id)) << db_id;
  for (std::uint32_t db_id : {9u, 26u, 27u})
    EXPECT_EQ((std::vector<unsigned>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}), moved_bytes(db_id)) << db_id;
  for (std::uint32_t db_id : {17u, 18u, 19u, 20u, 21u, 30u})
    EXPECT_EQ(words({0, 4, 24, 28, 64, 68}), moved_bytes(db_id)) << db_id;
  for (std::uint32_t db_id : {28u, 29u}) EXPECT_EQ(words({0, 20, 24, 120}), moved_bytes(db_id)) << db_id;
  for (std::uint32_t db_id : {0u, 1u, 2u, 3u, 7u, 8u, 12u, 16u, 33u})
    EXPECT_TRUE(moved_bytes(db_id).empty()) << db_id;
}

TEST(RecordKeys, ShortNumbersOfACatalogKeyAreSwappedOneByOne) {
  key_bytes key = rising_key();
  convert_key_nbo(nullptr, 9, key.data(), to_network);
  const unsigned char expected[12] = {4, 3, 2, 1, 6, 5, 8, 7, 10, 9, 11, 12};
  EXPECT_EQ(0, std::memcmp(expected, key.data(), sizeof expected));
}

TEST(RecordKeys, RecnumIsNeverSwapped) {
  key_bytes key = {};
  put_u32(key, 8, 1);
  convert_key_nbo(nullptr, 4, key.data(), to_network);
  EXPECT_EQ(1u, u32_at(key, 8));
}

TEST(RecordKeys, SnaDateAndTimeStayAsTheyAre) {
  for (unsigned moved : moved_bytes(29)) EXPECT_FALSE(moved >= 112 && moved < 120) << moved;
}

TEST(RecordKeys, TargetNumbersAbove255KeepNumericOrderInTheFile) {
  key_bytes low = {};
  key_bytes high = {};
  put_u32(low, 0, 4);
  put_u32(high, 0, 4);
  put_u32(low, 4, 255);
  put_u32(high, 4, 256);
  convert_key_nbo(nullptr, 4, low.data(), to_network);
  convert_key_nbo(nullptr, 4, high.data(), to_network);
  EXPECT_LT(std::memcmp(low.data(), high.data(), 12), 0);
}

TEST(RecordKeys, TheLengthsThatAKeyCanFillAreThoseOfTheTable) {
  const std::uint32_t expected[DB_TYPE_COUNT] = {0,  0,  0,  0,  64,  64,  64,  0,   0,   102, 0,  64,
                                                 0,  0,  0,  0,  0,   88,  104, 120, 168, 232, 20, 16,
                                                 12, 12, 80, 80, 124, 124, 616, 64,  64,  0};
  for (unsigned db_id = 0; db_id < DB_TYPE_COUNT; ++db_id)
    EXPECT_EQ(expected[db_id], int_key_len[db_id]) << db_id;
}

struct traced_key {
  std::uint32_t db_id;
  const char* heading;
  bool name_at_4;
  std::vector<const char*> lines;
};

TEST(RecordKeys, ATraceOfAKeyNamesItsFields) {
  const traced_key traced[] = {
      {5,
       "Target Config",
       false,
       {"DAS identifier = 67305985", "Target number  = 134678021", "Recnum         = "}},
      {10,
       "CM Status",
       false,
       {"Record type    = 67305985", "TRG/CAT number = 134678021", "Recnum         = "}},
      {31, "Target Group", true, {"DAS identifier = ", "Group name     = ABCDE", "Recnum         = "}},
      {27, "Dist Cat", false, {"CF number      = 1541", "Product ID     = 2055", "Fileset ID     = 2569"}},
      {22, "Users", true, {"User name      = ABCDE", "Recnum         = "}},
      {25, "Profiles", true, {"Profile name   = ABCDE", "Recnum         = "}},
      {30,
       "User Request",
       false,
       {"Source domain  = ", "UserID         = ", "Fanout_Server  = ", "TargetID       = "}},
      {28,
       "Correlators",
       false,
       {"Origin domain  = ", "Int seq_no     = ", "SNA Origin     = ", "SNA seq_no     = "}},
  };
  const zvrdb::test::TempInstallation installation;
  void* task = co_init_task("trace", nullptr, 0);
  ASSERT_NE(nullptr, task);
  trace_key(task, 5, rising_key().data());
  EXPECT_EQ("", installation.read("log/trace.log")) << "nothing while the trace is off";
  ASSERT_EQ(CO_OK, co_set_trace(task, 1));
  for (const traced_key& it : traced) {
    key_bytes key = rising_key();
    if (it.name_at_4) std::memcpy(key.data() + 4, "ABCDE", 6);
    trace_key(task, it.db_id, key.data());
    const std::string trace = installation.read("log/trace.log");
    const std::size_t block = trace.rfind(std::string(" Key contents for ") + it.heading + "\n");
    ASSERT_NE(std::string::npos, block) << it.heading;
    for (const char* line : it.lines)
      EXPECT_NE(std::string::npos, trace.find(std::string("0/2 trace_key:      ") + line, block))
          << line << trace;
  }
  coi_term_task(task, 0);
}

}  // namespace
}  // namespace zvrdb::recfile
