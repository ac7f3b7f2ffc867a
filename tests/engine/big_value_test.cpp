// Values of the most pieces there can be, among others, through replacements, deletions
// and roll-backs.
#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr int longest_body = 31346;
const std::uint8_t no_value[] = {0};

std::string patterned(int length, unsigned salt) {
  std::string data(static_cast<std::size_t>(length), '\0');
  for (std::size_t i = 0; i < data.size(); i++) data[i] = static_cast<char>(i * 31 + i / 243 + salt);
  return data;
}

std::map<std::int32_t, std::size_t> lengths(const std::map<std::int32_t, std::string>& values) {
  std::map<std::int32_t, std::size_t> result;
  for (const auto& [rec, data] : values) result[rec] = data.size();
  return result;
}

class BigValues : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    path_ = folder_.file("values");
    ASSERT_EQ(h_.create(path_, GetParam(), 1, nullptr), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    // Bodies are changed here without the locks of records.
    h_.get()->nolock = 1;
    h_.get()->keylocks[engine::key_bodies - 1] = 'L';
  }
  int store(std::int32_t rec, const std::string& data, int mode) {
    return engine::bstore(h_, engine::key_bodies, no_value, rec, reinterpret_cast<const std::uint8_t*>(data.data()),
                          static_cast<int>(data.size()), mode);
  }
  int remove(std::int32_t rec) { return engine::bdelete(h_, engine::key_bodies, no_value, rec); }
  // Every value there is, forwards and backwards.
  void expect_values(const std::map<std::int32_t, std::string>& expected) {
    std::vector<std::uint8_t> buffer(40000);
    const int capacity = static_cast<int>(buffer.size());
    std::map<std::int32_t, std::string> forward, backward;
    const auto here = [&] { return std::string(reinterpret_cast<char*>(buffer.data()), static_cast<std::size_t>(h_.get()->datalen)); };
    for (int r = engine::bfirst(h_, engine::key_bodies, buffer.data(), capacity); r == 0;
         r = engine::bnext(h_, engine::key_bodies, buffer.data(), capacity))
      ASSERT_TRUE(forward.emplace(h_.get()->recno, here()).second) << h_.get()->recno;
    for (int r = engine::blast(h_, engine::key_bodies, buffer.data(), capacity); r == 0;
         r = engine::bprev(h_, engine::key_bodies, buffer.data(), capacity))
      ASSERT_TRUE(backward.emplace(h_.get()->recno, here()).second) << h_.get()->recno;
    ASSERT_EQ(lengths(forward), lengths(expected));
    ASSERT_EQ(lengths(backward), lengths(expected));
    ASSERT_TRUE(forward == expected);
    ASSERT_TRUE(backward == expected);
    for (const auto& [rec, data] : expected) {
      ASSERT_EQ(engine::bfind(h_, engine::key_bodies, no_value, rec, buffer.data(), capacity), 0) << rec;
      ASSERT_TRUE(here() == data) << rec;
    }
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(Access, BigValues, ::testing::Values('S', 'E'),
                         [](const auto& a) { return a.param == 'S' ? "Shared" : "Exclusive"; });

TEST_P(BigValues, AValueOf129PiecesAddedInATransactionIsGoneAfterTheRollBack) {
  ASSERT_EQ(store(4, "before", engine::store_new), 0);
  ASSERT_EQ(store(6, "behind", engine::store_new), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(store(5, patterned(longest_body, 1), engine::store_new), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_values({{4, "before"}, {6, "behind"}});
}

TEST_P(BigValues, AValueOf129PiecesDeletedInATransactionIsBackAfterTheRollBack) {
  std::map<std::int32_t, std::string> values{{4, "before"}, {5, patterned(longest_body, 2)}, {6, "behind"}};
  for (const auto& [rec, data] : values) ASSERT_EQ(store(rec, data, engine::store_new), 0);
  for (int round = 0; round < 3; round++) {
    ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
    ASSERT_EQ(remove(5), 0);
    ASSERT_EQ(store(5, patterned(100 + round * 15000, 3), engine::store_new), 0);
    ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
    expect_values(values);
  }
}

TEST_P(BigValues, AgreeWithAMapThroughRandomChangesAndRollBacks) {
  for (unsigned seed = 1; seed <= 6; seed++) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto upto = [&](unsigned n) { return static_cast<int>(random() % n); };
    std::map<std::int32_t, std::string> values, before;
    while (engine::bfirst(h_, engine::key_bodies, nullptr, 0) == 0) {
      ASSERT_EQ(remove(h_.get()->recno), 0);
    }
    bool inside = false;
    for (int round = 0; round < 60; round++) {
      SCOPED_TRACE("round " + std::to_string(round));
      const std::int32_t rec = 1 + upto(12);
      const int kind = upto(4);
      const int length = kind == 0 ? longest_body - upto(240) : kind == 1 ? upto(31000) : 1 + upto(243);
      const std::string data = patterned(length, static_cast<unsigned>(round));
      if (upto(6) == 0) {
        if (!inside) {
          ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
          before = values;
        } else if (upto(2)) {
          ASSERT_EQ(engine::transend(h_, 1), 0);
        } else {
          ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
          values = before;
        }
        inside = !inside;
      } else if (upto(4) == 0) {
        ASSERT_EQ(remove(rec), values.erase(rec) ? 0 : engine::e_not_found);
      } else {
        ASSERT_EQ(store(rec, data, engine::store_any), 0);
        values[rec] = data;
      }
      expect_values(values);
      if (::testing::Test::HasFatalFailure()) return;
    }
    if (inside) {
      ASSERT_EQ(engine::transend(h_, 1), 0);
    }
  }
  ASSERT_EQ(h_.close(), 0);
  check_result result = check_file(path_, false);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

}  // namespace
}  // namespace zvrdb::test
