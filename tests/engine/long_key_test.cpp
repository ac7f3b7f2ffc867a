// Keys of the greatest lengths: nodes hold three or four of them, and inner entries are
// larger than leaf entries.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

const engine::key_entry counted_key[] = {{1, 2, {}, nullptr}, {0, 0, {}, nullptr}};

TEST(LongKeys, OfMixedLengthsNeverOverflowANode) {
  scratch_folder folder;
  const std::string path = folder.file("keys");
  handle h;
  ASSERT_EQ(h.create(path, 'E', 1, counted_key), 0);
  ASSERT_EQ(engine::csetfile(h, 0), 0);
  std::mt19937 random(5);
  std::set<std::string> keys;
  while (keys.size() < 4000) {
    // Inner entries of 250 and 253 bytes: four of them can fill a node to the last byte.
    std::string key(random() % 2 ? 241 : 238, 'k');
    for (std::size_t i = 0; i < 6; i++) key[i] = static_cast<char>('a' + random() % 26);
    keys.insert(key);
  }
  std::vector<std::string> shuffled(keys.begin(), keys.end());
  std::shuffle(shuffled.begin(), shuffled.end(), random);
  const auto value = [](const std::string& key) { return static_cast<char>(key.size()) + key; };
  const auto raw = [](const std::string& text) { return reinterpret_cast<const std::uint8_t*>(text.data()); };
  for (const std::string& key : shuffled) ASSERT_EQ(engine::badd(h, 1, raw(value(key)), 1, nullptr, 0), 0);
  for (const std::string& key : shuffled) ASSERT_EQ(engine::bfind(h, 1, raw(value(key)), 1, nullptr, 0), 0);
  ASSERT_EQ(h.close(), 0);
  check_result result = check_file(path, false);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

}  // namespace
}  // namespace zvrdb::test
