// Files that another implementation wrote: the engine reads them, changes them and
// leaves them sound.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::report_outcome;

class ForeignFile : public ::testing::TestWithParam<bool> {
 protected:
  bool big() const { return GetParam(); }
  std::string put(const file_recipe& recipe) {
    std::string path = folder_.file("foreign");
    write_file(path, build_file(recipe).bytes);
    return path;
  }
  void expect_sound(const std::string& path) {
    check_result result = check_file(path, true);
    EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
  }
  engine::file_summary summary_of(const std::string& path) {
    engine::file_summary summary;
    std::string reason;
    engine::summarize_file(path.c_str(), &summary, &reason);
    return summary;
  }
  scratch_folder folder_;
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, ForeignFile, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

file_recipe deep_recipe(bool big, int records = 300) {
  file_recipe recipe = sample_recipe(big, records, 420, 160);
  recipe.scatter_seed = 11;
  return recipe;
}

sample_record deep_sample(int i) { return sample(i, i % 40 == 0 ? 1500 : 20); }

TEST_P(ForeignFile, IsReadInTheOrderOfEveryKey) {
  std::string path = put(deep_recipe(big()));
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  std::vector<sample_record> all;
  for (int i = 1; i <= 300; i++) all.push_back(deep_sample(i));
  const std::pair<int, std::function<bool(const sample_record&, const sample_record&)>> orders[] = {
      {1, [](const auto& a, const auto& b) { return a.name < b.name; }},
      {2, [](const auto& a, const auto& b) { return a.group < b.group; }},
      {3, [](const auto& a, const auto& b) { return a.number < b.number; }},
      {4, [](const auto& a, const auto& b) { return a.small < b.small; }},
      {5, [](const auto& a, const auto& b) { return a.weight < b.weight; }}};
  for (const auto& [key, less] : orders) {
    std::vector<sample_record> expected = all;
    std::stable_sort(expected.begin(), expected.end(), less);
    int direction = engine::seq_first;
    for (const sample_record& record : expected) {
      ASSERT_EQ(engine::dseq(h, key, direction), 0) << "key " << key;
      sample_record found;
      ASSERT_EQ(h.read(&found), 0);
      ASSERT_EQ(found, record) << "key " << key;
      direction = engine::seq_next;
    }
    EXPECT_EQ(engine::dseq(h, key, engine::seq_next), engine::e_not_found);
    direction = engine::seq_last;
    for (auto record = expected.rbegin(); record != expected.rend(); ++record) {
      ASSERT_EQ(engine::dseq(h, key, direction), 0) << "key " << key;
      sample_record found;
      ASSERT_EQ(h.read(&found), 0);
      ASSERT_EQ(found, *record) << "key " << key;
      direction = engine::seq_previous;
    }
    EXPECT_EQ(engine::dseq(h, key, engine::seq_previous), engine::e_not_found);
  }
}

TEST_P(ForeignFile, FindsNumbersInNativeOrder) {
  std::string path = put(deep_recipe(big()));
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  for (int i = 1; i <= 300; i++) {
    sample_record wanted = deep_sample(i);
    sample_record found;
    ASSERT_EQ(engine::dfind(h, 3, &wanted.number, 3, engine::find_equal), 0);
    ASSERT_EQ(h.read(&found), 0);
    ASSERT_EQ(found, wanted);
    ASSERT_EQ(engine::dfind(h, 5, &wanted.weight, 7, engine::find_equal), 0);
    ASSERT_EQ(h.read(&found), 0);
    ASSERT_EQ(found, wanted);
    ASSERT_EQ(h.find_name(wanted.name), 0);
    ASSERT_EQ(h.read(&found), 0);
    ASSERT_EQ(found, wanted);
  }
}

TEST_P(ForeignFile, IsLeftSoundByInsertsUpdatesAndDeletes) {
  file_recipe recipe = deep_recipe(big());
  recipe.free_nodes = 6;
  for (int i = 301; i <= 306; i++) add_free_number(&recipe, i);
  std::string path = put(recipe);
  std::map<std::string, sample_record> model;
  for (int i = 1; i <= 300; i++) model[deep_sample(i).name] = deep_sample(i);
  {
    handle h;
    ASSERT_EQ(h.open_for_work(path), 0);
    for (int i = 1000; i < 1150; i++) {
      ASSERT_EQ(h.insert(deep_sample(i)), 0) << i;
      model[deep_sample(i).name] = deep_sample(i);
    }
    for (int i = 3; i < 300; i += 3) {
      ASSERT_EQ(h.find_name(deep_sample(i).name), 0) << i;
      sample_record changed = deep_sample(i);
      changed.group = "changed";
      changed.number = 100000 + i;
      changed.payload += "longer by some bytes";
      ASSERT_EQ(h.update(changed), 0) << i;
      model[changed.name] = changed;
    }
    for (int i = 5; i < 300; i += 5) {
      ASSERT_EQ(h.find_name(deep_sample(i).name), 0) << i;
      ASSERT_EQ(h.remove(), 0) << i;
      model.erase(deep_sample(i).name);
    }
    ASSERT_EQ(h.close(), 0);
  }
  expect_sound(path);
  EXPECT_EQ(summary_of(path).records, model.size());
  EXPECT_EQ(summary_of(path).header.little_endian, !big());
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  int direction = engine::seq_first;
  for (const auto& [name, record] : model) {
    ASSERT_EQ(engine::dseq(h, 1, direction), 0);
    sample_record found;
    ASSERT_EQ(h.read(&found), 0);
    ASSERT_EQ(found, record);
    direction = engine::seq_next;
  }
}

TEST_P(ForeignFile, GivesItsFreeNodesAndNumbersToNewRecords) {
  file_recipe recipe = deep_recipe(big());
  recipe.free_nodes = 6;
  add_free_number(&recipe, 350);
  add_free_number(&recipe, 340);
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  int inserted = 0;
  while (summary_of(path).free_nodes == 6U && inserted < 200) ASSERT_EQ(h.insert(deep_sample(1000 + inserted++)), 0);
  EXPECT_LT(summary_of(path).free_nodes, 6U);
  EXPECT_EQ(summary_of(path).header.nextnode, build_file(recipe).next_node);
  std::vector<std::int32_t> numbers;
  auto bodies = [](void* context, const engine::dump_entry& entry) {
    if (entry.key == 19 && entry.last) static_cast<std::vector<std::int32_t>*>(context)->push_back(entry.rec);
    return true;
  };
  std::string reason;
  engine::dump_file(path.c_str(), nullptr, bodies, &numbers, &reason);
  EXPECT_TRUE(std::count(numbers.begin(), numbers.end(), 340));
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
}

TEST_P(ForeignFile, RollsBackItsInterruptedTransaction) {
  // Given: in its last transaction record 5 was added, record 6 deleted; then a write
  // operation was torn that had logged one more removal.
  file_recipe recipe = deep_recipe(big(), 60);
  file_recipe whole = recipe;
  log_chain chain{77, {{4, ""}}};
  auto log_record_of = [&](int rec, int type) {
    for (const tree_entry& entry : whole.entries)
      if (entry.rec == rec) chain.records.push_back({type, leaf_form(big(), entry)});
  };
  log_record_of(5, 1);
  chain.records.push_back({5, ""});
  chain.records.push_back({4, ""});
  log_record_of(6, 2);
  chain.records.push_back({5, ""});
  chain.records.push_back({4, ""});
  log_record_of(7, 2);
  std::erase_if(recipe.entries, [](const tree_entry& entry) { return entry.rec == 6; });
  recipe.transaction = chain;
  std::string path = put(recipe);
  expect_sound(path);

  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(engine::transstat(h), engine::e_trans_interrupted);
  EXPECT_EQ(engine::transbeg(h, 3, nullptr), engine::e_trans_interrupted);
  EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);

  EXPECT_EQ(engine::transstat(h), 0);
  EXPECT_EQ(h.find_name(deep_sample(5).name), engine::e_not_found);
  sample_record found;
  EXPECT_EQ(h.find_name(deep_sample(6).name), 0);
  EXPECT_EQ(h.read(&found), 0);
  EXPECT_EQ(found, deep_sample(6));
  EXPECT_EQ(h.find_name(deep_sample(7).name), 0);
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
  EXPECT_GT(summary_of(path).unreachable_nodes, 0U);
  EXPECT_EQ(summary_of(path).entries_by_key[16], 0U);
}

TEST_P(ForeignFile, RollsBackATransactionOfManyLogNodes) {
  file_recipe recipe = deep_recipe(big(), 200);
  log_chain chain{77, {}};
  for (int i = 101; i <= 200; i++) {
    chain.records.push_back({4, ""});
    for (const tree_entry& entry : recipe.entries)
      if (entry.rec == i && entry.data.size() < 200) chain.records.push_back({1, leaf_form(big(), entry)});
    if (i % 40 == 0) {
      // A body of several pieces is logged piece by piece.
      for (const tree_entry& entry : recipe.entries) {
        if (entry.rec != i || entry.data.size() < 200) continue;
        std::size_t pieces = (entry.data.size() + 242) / 243;
        for (std::size_t p = 0; p < pieces; p++) {
          tree_entry piece = entry;
          piece.data = entry.data.substr(p * 243, 243);
          chain.records.push_back({1, leaf_form(big(), piece, static_cast<int>(p | (p + 1 == pieces ? 0x80U : 0U)))});
        }
      }
    }
    chain.records.push_back({5, ""});
  }
  recipe.transaction = chain;
  std::string path = put(recipe);
  ASSERT_GT(summary_of(path).log_nodes, 10U);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
  for (int i = 1; i <= 200; i++) ASSERT_EQ(h.find_name(deep_sample(i).name), i <= 100 ? 0 : engine::e_not_found) << i;
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
  EXPECT_EQ(summary_of(path).records, 100U);
}

TEST_P(ForeignFile, WithAnEmptyTransactionChainIsReadyForATransaction) {
  file_recipe recipe = deep_recipe(big(), 20);
  recipe.transaction = log_chain{0, {}};
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);   // takes slot 0, which owns the chain
  EXPECT_EQ(engine::transstat(h), engine::e_trans_empty);
  EXPECT_EQ(engine::transend(h, 1), 0);
  EXPECT_EQ(engine::transstat(h), 0);
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
  EXPECT_EQ(summary_of(path).free_nodes, 1U);
}

TEST_P(ForeignFile, WithTheWriteFlagSetOpensOnlyAfterItWasCleared) {
  file_recipe recipe = deep_recipe(big(), 20);
  recipe.write_flag = true;
  std::string path = put(recipe);
  handle h;
  EXPECT_EQ(h.open(path), engine::e_write_flag);
  EXPECT_EQ(engine::checkpsp(h), 'C');
  ASSERT_EQ(engine::_bopen(h, path.c_str(), 'E', 2), 0);
  EXPECT_EQ(engine::clrwrit(h), 0);
  EXPECT_EQ(engine::cclose(h), 0);
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(h.insert(deep_sample(500)), 0);
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
}

TEST_P(ForeignFile, GivesTheLocksOfADeadSlotToTheNextWhoAsks) {
  file_recipe recipe = deep_recipe(big(), 20);
  for (int i = 1; i <= 20; i++) add_lock(&recipe, 19, std::string(1, '\0'), i, 150);
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  ASSERT_EQ(h.find_name(deep_sample(3).name), 0);
  EXPECT_EQ(engine::dlock(h), 0);
  EXPECT_EQ(engine::dunlock(h), 0);
  EXPECT_EQ(summary_of(path).locks, 19U);
  ASSERT_EQ(h.find_name(deep_sample(4).name), 0);
  EXPECT_EQ(h.remove(), 0);
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
}

TEST_P(ForeignFile, LosesTheLocksOfTheSlotThatAnOpenTakes) {
  file_recipe recipe = deep_recipe(big(), 20);
  for (int i = 1; i <= 10; i++) add_lock(&recipe, 19, std::string(1, '\0'), i, 0);
  for (int i = 11; i <= 20; i++) add_lock(&recipe, 19, std::string(1, '\0'), i, 1);
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(summary_of(path).locks, 10U);
  expect_sound(path);
}

TEST_P(ForeignFile, MakesAReadOnlyHandlePassOverASlotWithLocks) {
  file_recipe recipe = deep_recipe(big(), 20);
  add_lock(&recipe, 19, std::string(1, '\0'), 4, 0);
  std::string path = put(recipe);
  std::vector<unsigned char> before = read_file(path);
  handle h;
  ASSERT_EQ(h.open(path, 'S', 1), 0);
  EXPECT_EQ(h.find_name(deep_sample(4).name), 0);
  EXPECT_EQ(engine::dlock(h), engine::e_read_only);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(read_file(path), before);
}

TEST_P(ForeignFile, KeepsItsKeptTransactionChains) {
  file_recipe recipe = deep_recipe(big(), 60);
  recipe.kept.push_back({3, {{4, ""}, {5, ""}}});
  recipe.kept.push_back({9, {{4, ""}, {5, ""}}});
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
  ASSERT_EQ(h.insert(deep_sample(500)), 0);
  ASSERT_EQ(engine::transend(h, 3), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(summary_of(path).log_nodes, 3U);
  expect_sound(path);
}

TEST_P(ForeignFile, IsAsItWasAfterARollBack) {
  std::string path = put(deep_recipe(big()));
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  ASSERT_EQ(engine::transbeg(h, 3, nullptr), 0);
  for (int i = 500; i < 600; i++) ASSERT_EQ(h.insert(deep_sample(i)), 0);
  for (int i = 1; i <= 300; i += 2) {
    ASSERT_EQ(h.find_name(deep_sample(i).name), 0);
    ASSERT_EQ(h.remove(), 0);
  }
  for (int i = 2; i <= 300; i += 2) {
    ASSERT_EQ(h.find_name(deep_sample(i).name), 0);
    sample_record changed = deep_sample(i);
    changed.weight = 1e9;
    changed.payload.assign(900, 'z');
    ASSERT_EQ(h.update(changed), 0);
  }
  ASSERT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
  sample_record found;
  for (int i = 1; i <= 300; i++) {
    ASSERT_EQ(h.find_name(deep_sample(i).name), 0) << i;
    ASSERT_EQ(h.read(&found), 0) << i;
    ASSERT_EQ(found, deep_sample(i));
  }
  for (int i = 500; i < 600; i++) ASSERT_EQ(h.find_name(deep_sample(i).name), engine::e_not_found);
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
}

TEST_P(ForeignFile, MayHoldARollBackListThatACrashLeft) {
  file_recipe recipe = deep_recipe(big(), 30);
  log_chain chain{77, {{4, ""}}};
  for (const tree_entry& entry : recipe.entries)
    if (entry.rec == 5) chain.records.push_back({1, leaf_form(big(), entry)});
  chain.records.push_back({5, ""});
  recipe.transaction = chain;
  for (int position = 1; position <= 3; position++)
    recipe.entries.push_back({16, std::string("TRANSNDE\0", 9), position, bytes32(false, 0)});
  std::string path = put(recipe);
  expect_sound(path);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
  EXPECT_EQ(h.find_name(deep_sample(5).name), engine::e_not_found);
  EXPECT_EQ(h.find_name(deep_sample(6).name), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(summary_of(path).entries_by_key[16], 0U);
  expect_sound(path);
}

TEST_P(ForeignFile, WithACountOfFreeNumbersButNoneInTheTreeTakesNewRecords) {
  std::vector<unsigned char> bytes = build_file(deep_recipe(big(), 30)).bytes;
  std::string three = bytes32(big(), 3);
  std::copy(three.begin(), three.end(), bytes.begin() + 64);
  std::string path = folder_.file("foreign");
  write_file(path, bytes);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  for (int i = 100; i < 110; i++) EXPECT_EQ(h.insert(deep_sample(i)), 0);
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
}

TEST_P(ForeignFile, MayHaveAChecksumOverUnsignedBytes) {
  file_recipe recipe;
  recipe.big_endian = big();
  recipe.key_types = sample_key_types();
  add_record(&recipe, 1, written_fields(big(), sample(1)));
  std::string& body = recipe.entries.back().data;
  unsigned sum = 0;
  for (std::size_t i = 4; i < body.size(); i++) sum = ((sum + static_cast<unsigned char>(body[i])) << 1) & 0xFFFF;
  ASSERT_NE(body.substr(2, 2), bytes16(big(), static_cast<std::uint16_t>(sum)));
  body.replace(2, 2, bytes16(big(), static_cast<std::uint16_t>(sum)));
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  ASSERT_EQ(h.find_name(sample(1).name), 0);
  sample_record found;
  EXPECT_EQ(h.read(&found), 0);
  EXPECT_EQ(found, sample(1));
  expect_sound(path);
}

TEST_P(ForeignFile, WithAWrongChecksumIsRefusedByRead) {
  file_recipe recipe = deep_recipe(big(), 1);
  std::string& body = recipe.entries.back().data;
  body[3] = static_cast<char>(body[3] ^ 0x55);
  handle h;
  ASSERT_EQ(h.open_for_work(put(recipe)), 0);
  ASSERT_EQ(h.find_name(deep_sample(1).name), 0);
  sample_record found;
  EXPECT_EQ(h.read(&found), engine::e_checksum);
}

TEST_P(ForeignFile, HandsTheTypeOfTheRecordReadLastToTheNextOneWritten) {
  file_recipe recipe;
  recipe.big_endian = big();
  recipe.key_types = sample_key_types();
  add_record(&recipe, 1, written_fields(big(), sample(1)));
  recipe.entries.back().data = packed_record(big(), written_fields(big(), sample(1)), 9);
  std::string path = put(recipe);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  ASSERT_EQ(h.insert(sample(2)), 0);
  ASSERT_EQ(h.find_name(sample(1).name), 0);
  sample_record found;
  ASSERT_EQ(h.read(&found), 0);
  ASSERT_EQ(h.insert(sample(3)), 0);
  ASSERT_EQ(h.insert(sample(4)), 0);
  std::vector<int> types;
  auto bodies = [](void* context, const engine::dump_entry& entry) {
    if (entry.key == 19 && entry.piece == 0) static_cast<std::vector<int>*>(context)->push_back(entry.data[4]);
    return true;
  };
  std::string reason;
  engine::dump_file(path.c_str(), nullptr, bodies, &types, &reason);
  EXPECT_EQ(types, (std::vector<int>{9, 0, 9, 9}));
}

TEST_P(ForeignFile, MayHaveItsWriteFlagInEitherOrder) {
  for (bool flag_big : {false, true}) {
    std::vector<unsigned char> bytes = build_file(deep_recipe(big(), 3)).bytes;
    std::string flag = bytes16(flag_big, 13245);
    std::copy(flag.begin(), flag.end(), bytes.begin() + 1010);
    std::string path = folder_.file("foreign");
    write_file(path, bytes);
    handle h;
    EXPECT_EQ(h.open(path), engine::e_write_flag);
  }
}

TEST_P(ForeignFile, WithAFreeChainThatRunsIntoTheTreeLosesNoRecord) {
  file_layout layout = build_file(deep_recipe(big(), 60));
  std::string leaf = bytes32(big(), 1);
  std::copy(leaf.begin(), leaf.end(), layout.bytes.begin() + 60);
  std::string path = folder_.file("foreign");
  write_file(path, layout.bytes);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  for (int i = 100; i < 140; i++) ASSERT_EQ(h.insert(deep_sample(i)), 0);
  for (int i = 1; i <= 60; i++) ASSERT_EQ(h.find_name(deep_sample(i).name), 0) << i;
  ASSERT_EQ(h.close(), 0);
  expect_sound(path);
}

TEST_P(ForeignFile, MayHoldCompositeKeysWhoseOrderIsNotThatOfTheirBytes) {
  constexpr int count = 8;
  const auto value = [](int i) { return std::string("\x04key") + static_cast<char>('a' + i); };
  file_recipe recipe = sample_recipe(big(), 20);
  recipe.leaf_limit = 40;
  recipe.key_types[6] = 2;
  for (int i = 0; i < count; i++) recipe.entries.push_back({6, value(i), i + 1, ""});
  std::vector<unsigned char> bytes = build_file(recipe).bytes;
  // As a descending segment has it.  Separators are left: the keys searched are others.
  bytes[192 + 6] = 8;
  std::vector<std::size_t> places;
  for (int i = 0; i < count; i++) {
    const std::string text = leaf_form(big(), {6, value(i), i + 1, ""});
    const std::vector<unsigned char> leaf_entry(text.begin(), text.end());
    const auto at = std::search(bytes.begin() + 1024, bytes.end(), leaf_entry.begin(), leaf_entry.end());
    ASSERT_NE(at, bytes.end());
    places.push_back(static_cast<std::size_t>(at - bytes.begin()) + leaf_entry.size() - 1);
  }
  for (int i = 0; i < count; i++) bytes[places[static_cast<std::size_t>(i)]] = static_cast<unsigned char>('a' + count - 1 - i);
  std::string path = folder_.file("composite");
  write_file(path, bytes);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  for (int i = 1; i <= 20; i++) {
    sample_record found;
    ASSERT_EQ(h.find_name(sample(i).name), 0) << i;
    EXPECT_EQ(h.read(&found), 0) << i;
  }
  int steps = 0;
  for (int r = engine::dseq(h, 6, engine::seq_first); r == 0; r = engine::dseq(h, 6, engine::seq_next)) steps++;
  EXPECT_EQ(steps, count);
}

TEST_P(ForeignFile, SkipsItsEmptyLeavesInBothDirections) {
  file_recipe recipe = deep_recipe(big());
  for (tree_entry& entry : recipe.entries) entry.removed = entry.rec > 20 && entry.rec < 280;
  std::string path = put(recipe);
  ASSERT_GT(summary_of(path).empty_leaves, 20U);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  for (int direction : {int(engine::seq_next), int(engine::seq_previous)}) {
    int found = 0;
    int result = engine::dseq(h, 3, direction == engine::seq_next ? engine::seq_first : engine::seq_last);
    for (; result == 0; result = engine::dseq(h, 3, direction)) found++;
    EXPECT_EQ(found, 41);
    EXPECT_EQ(result, engine::e_not_found);
  }
}

}  // namespace
}  // namespace zvrdb::test
