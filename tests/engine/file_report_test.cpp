#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/sample_files.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::report_outcome;
using ::testing::HasSubstr;

constexpr std::size_t node_at(std::size_t n) { return 1024 + 1024 * n; }

class FileReport : public ::testing::TestWithParam<bool> {
 protected:
  std::string put(const file_layout& layout) {
    std::string path = folder_.file("sample");
    write_file(path, layout.bytes);
    return path;
  }
  check_result check(const file_layout& layout, bool deep = true) { return check_file(put(layout), deep); }
  void set32(file_layout* layout, std::size_t at, std::uint32_t value) {
    std::string bytes = bytes32(GetParam(), value);
    std::copy(bytes.begin(), bytes.end(), layout->bytes.begin() + static_cast<std::ptrdiff_t>(at));
  }
  void expect_problem(const file_layout& layout, const std::string& text, bool deep = false) {
    check_result result = check(layout, deep);
    EXPECT_EQ(result.outcome, report_outcome::problems);
    EXPECT_THAT(result.text(), HasSubstr(text));
  }
  scratch_folder folder_;
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, FileReport, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

file_recipe full_recipe(bool big) {
  file_recipe recipe = sample_recipe(big, 300, 400, 150);
  recipe.scatter_seed = 5;
  recipe.free_nodes = 4;
  for (int i = 301; i < 310; i++) add_free_number(&recipe, i);
  for (int i = 100; i < 140; i++)
    for (tree_entry& entry : recipe.entries)
      if (entry.rec == i) entry.removed = true;
  add_lock(&recipe, 19, std::string(1, '\0'), 7, 33);
  log_chain chain{12, {}};
  chain.records.push_back({4, ""});
  for (int i = 0; i < 40; i++) chain.records.push_back({1, leaf_form(big, {3, bytes32(big, 5), 400 + i, ""})});
  chain.records.push_back({5, ""});
  recipe.transaction = chain;
  recipe.kept.push_back({3, {{4, ""}, {2, leaf_form(big, {3, bytes32(big, 5), 400, ""})}, {5, ""}}});
  recipe.kept.push_back({4, {{3, ""}}});
  return recipe;
}

TEST_P(FileReport, FindsASoundFileOfAllPartsSound) {
  file_layout layout = build_file(full_recipe(GetParam()));
  EXPECT_GE(layout.depth, 4);
  for (bool deep : {false, true}) {
    check_result result = check(layout, deep);
    EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
  }
}

TEST_P(FileReport, FindsAnEmptyTreeSound) {
  check_result result = check(build_file({.big_endian = GetParam()}));
  EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
}

TEST_P(FileReport, TellsAnInterruptedTransactionInANoteOnly) {
  check_result result = check(build_file(full_recipe(GetParam())));
  ASSERT_FALSE(result.notes.empty());
  EXPECT_THAT(result.notes[0].text, HasSubstr("transaction is in progress"));
}

TEST_P(FileReport, AcceptsAValueOf129Pieces) {
  file_recipe recipe{.big_endian = GetParam(), .key_types = {{1, 2}}};
  std::vector<record_field> fields = {{'B', 2, 'U', 1, "key"}, {'B', 'N', 'N', 0, std::string(31320, 'x')}};
  add_record(&recipe, 2, fields);
  add_record(&recipe, 3, fields);
  ASSERT_GT(recipe.entries[1].data.size(), 128U * 243U);
  check_result result = check(build_file(recipe));
  EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
}

TEST_P(FileReport, RefusesWhatIsNoRecordFile) {
  std::string path = folder_.file("other");
  write_file(path, {});
  EXPECT_EQ(check_file(path, true).outcome, report_outcome::unreadable);
  write_file(path, std::vector<unsigned char>(5000, 'A'));
  check_result result = check_file(path, true);
  EXPECT_EQ(result.outcome, report_outcome::unreadable);
  EXPECT_THAT(result.reason, HasSubstr("isn't a record file"));
  EXPECT_EQ(check_file(folder_.path(), true).outcome, report_outcome::unreadable);
  EXPECT_THAT(check_file(folder_.file("absent"), true).reason, HasSubstr("can't be opened"));
}

TEST_P(FileReport, ReportsASetWriteFlag) {
  file_recipe recipe = sample_recipe(GetParam(), 3);
  recipe.write_flag = true;
  expect_problem(build_file(recipe), "write-in-progress flag");
}

// Shared handles take it for a header that cannot be read, and refuse every operation.
TEST_P(FileReport, ReportsAGenerationOfZero) {
  file_recipe recipe = sample_recipe(GetParam(), 3);
  recipe.generation = 0;
  expect_problem(build_file(recipe), "generation is 0");
}

TEST_P(FileReport, ReportsAnEntryOutOfOrder) {
  file_recipe recipe{.big_endian = GetParam(), .key_types = {{3, 3}}};
  for (int i = 1; i < 5; i++) recipe.entries.push_back({3, bytes32(GetParam(), static_cast<std::uint32_t>(i)), 9, ""});
  file_layout layout = build_file(recipe);
  set32(&layout, node_at(0) + 18 + 11 + 7, 0xFFFFFFF0U);
  expect_problem(layout, "doesn't sort after the one before it");
}

TEST_P(FileReport, ReportsALeafOutsideItsSeparators) {
  file_recipe recipe{.big_endian = GetParam(), .key_types = {{3, 3}}, .leaf_limit = 33};
  for (int i = 1; i < 10; i++) recipe.entries.push_back({3, bytes32(GetParam(), static_cast<std::uint32_t>(i)), 9, ""});
  file_layout layout = build_file(recipe);
  ASSERT_EQ(layout.leaves, 3);
  file_layout above = layout;
  set32(&above, node_at(0) + 18 + 22 + 7, 5);
  expect_problem(above, "above the separator to its right");
  set32(&layout, node_at(1) + 18 + 7, 3);
  set32(&layout, node_at(1) + 18 + 3, 8);
  expect_problem(layout, "isn't above the separator to its left");
}

TEST_P(FileReport, ReportsBrokenNeighbours) {
  file_layout layout = build_file(sample_recipe(GetParam(), 100, 400));
  file_layout next = layout;
  set32(&next, node_at(2) + 4, 2);
  expect_problem(next, "next of node 2 is 2, the node to the right is 3");
  set32(&layout, node_at(2) + 8, 7);
  expect_problem(layout, "prev is 7, the node to the left is 1");
}

TEST_P(FileReport, ReportsAChildThatIsReachedTwice) {
  file_layout layout = build_file(sample_recipe(GetParam(), 100, 400));
  std::size_t root = node_at(static_cast<std::size_t>(layout.tree_nodes) - 1);
  set32(&layout, root, 1);
  expect_problem(layout, "reached a second time");
}

TEST_P(FileReport, ReportsALevelThatDoesNotFit) {
  file_layout layout = build_file(sample_recipe(GetParam(), 100, 400));
  layout.bytes[node_at(3) + 12] = 1;
  expect_problem(layout, "level is");
}

TEST_P(FileReport, ReportsRoomAndTail) {
  file_layout layout = build_file(sample_recipe(GetParam(), 2));
  file_layout tail = layout;
  tail.bytes[node_at(0) + 1023] = 9;
  expect_problem(tail, "behind the last entry, isn't zero");
  layout.bytes[node_at(0) + 16] ^= 1;
  expect_problem(layout, "room is");
}

TEST_P(FileReport, ReportsAnExtentBeyondTheFile) {
  file_layout layout = build_file(sample_recipe(GetParam(), 2));
  layout.bytes.resize(layout.bytes.size() - 1024);
  expect_problem(layout, "extent is");
}

TEST_P(FileReport, ReportsAFreeNodeInUse) {
  file_layout layout = build_file(sample_recipe(GetParam(), 100, 400));
  set32(&layout, 60, 2);
  expect_problem(layout, "in use elsewhere");
}

TEST_P(FileReport, ReportsACycleOfFreeNodes) {
  file_recipe recipe = sample_recipe(GetParam(), 5);
  recipe.free_nodes = 3;
  file_layout layout = build_file(recipe);
  set32(&layout, node_at(static_cast<std::size_t>(layout.tree_nodes)) + 4, static_cast<std::uint32_t>(layout.tree_nodes) + 2);
  expect_problem(layout, "twice in the chain");
}

TEST_P(FileReport, ReportsAnUnknownLogRecord) {
  file_recipe recipe = sample_recipe(GetParam(), 5);
  recipe.transaction = log_chain{0, {{4, ""}, {77, ""}}};
  expect_problem(build_file(recipe), "unknown type 77");
}

TEST_P(FileReport, ReportsEntriesThatNothingLeadsTo) {
  file_recipe recipe = sample_recipe(GetParam(), 100, 400);
  file_layout layout = build_file(recipe);
  std::size_t last = static_cast<std::size_t>(layout.next_node);
  std::copy_n(layout.bytes.begin() + node_at(1), 1024, layout.bytes.begin() + static_cast<std::ptrdiff_t>(node_at(last)));
  set32(&layout, 36, static_cast<std::uint32_t>(last) + 1);
  expect_problem(layout, "nothing leads to this node");
}

TEST_P(FileReport, AllowsLogNodesLeftByARollBack) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  recipe.transaction = log_chain{0, {{4, ""}, {5, ""}}};
  file_layout layout = build_file(recipe);
  set32(&layout, 344, 0xFFFFFFFFU);
  check_result result = check(layout);
  EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
}

TEST_P(FileReport, AllowsALogNodeAtTheHeadOfTheFreeChain) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  recipe.transaction = log_chain{0, {{4, ""}, {5, ""}}};
  file_layout layout = build_file(recipe);
  set32(&layout, 344, 0xFFFFFFFFU);
  set32(&layout, 60, static_cast<std::uint32_t>(layout.tree_nodes));
  check_result result = check(layout);
  EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
}

TEST_P(FileReport, DeepReportsABodyWithAWrongChecksum) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  recipe.entries.back().data[2] = static_cast<char>(recipe.entries.back().data[2] ^ 4);
  EXPECT_EQ(check(build_file(recipe), false).outcome, report_outcome::sound);
  expect_problem(build_file(recipe), "wrong checksum", true);
}

TEST_P(FileReport, DeepReportsAKeyWithoutABody) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  recipe.entries.push_back({3, bytes32(GetParam(), 5), 5000, ""});
  expect_problem(build_file(recipe), "names record 5000, which has no body", true);
}

TEST_P(FileReport, DeepReportsABodyWithoutKeys) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  std::erase_if(recipe.entries, [](const tree_entry& entry) { return entry.rec == 4 && entry.key < 16; });
  expect_problem(build_file(recipe), "record 4 has no key entry", true);
}

TEST_P(FileReport, DeepReportsAKeyThatTheBodyDoesNotHold) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  recipe.entries.push_back({1, key_value({'B', 2, 'U', 1, "quite another"}), 4, ""});
  expect_problem(build_file(recipe), "doesn't stand in the record's body", true);
}

TEST_P(FileReport, DeepReportsAMissingPiece) {
  file_recipe recipe = sample_recipe(GetParam(), 45, 400);
  file_layout layout = build_file(recipe);
  for (std::size_t at = 1024; at + 3 < layout.bytes.size(); at++)
    if (layout.bytes[at] == 250 && layout.bytes[at + 1] == 19 && layout.bytes[at + 2] == 2) layout.bytes[at + 2] = 3;
  expect_problem(layout, "piece number 2 was expected", true);
}

TEST_P(FileReport, DeepReportsANumberBothUsedAndFree) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  add_free_number(&recipe, 5);
  expect_problem(build_file(recipe), "its number waits for reuse", true);
}

TEST_P(FileReport, DeepReportsANumberNotYetGivenOut) {
  file_recipe recipe = sample_recipe(GetParam(), 10);
  recipe.next_record = 10;
  expect_problem(build_file(recipe), "isn't below nextrec", true);
}

TEST_P(FileReport, TellsCountersThatARollBackLeftInNotesOnly) {
  file_layout layout = build_file(sample_recipe(GetParam(), 10));
  set32(&layout, 68, 12);
  set32(&layout, 64, 1);
  check_result result = check(layout);
  EXPECT_EQ(result.outcome, report_outcome::sound) << result.text();
  EXPECT_EQ(result.notes.size(), 2U);
}

TEST_P(FileReport, CheckShowsItsProgressUpToTheEnd) {
  struct shown {
    std::uint64_t calls = 0, last = 0, all = 0;
    bool rising = true;
  } progress;
  file_layout layout = build_file(full_recipe(GetParam()));
  engine::check_options options;
  options.progress_context = &progress;
  options.progress = [](void* context, std::uint64_t done, std::uint64_t all) {
    shown* s = static_cast<shown*>(context);
    s->rising = s->rising && done >= s->last && done <= all;
    s->last = done;
    s->all = all;
    s->calls++;
  };
  std::string reason;
  EXPECT_EQ(engine::verify_file(put(layout).c_str(), options, nullptr, nullptr, &reason), report_outcome::sound);
  EXPECT_TRUE(progress.rising);
  EXPECT_EQ(progress.last, progress.all);
  EXPECT_EQ(progress.all, static_cast<std::uint64_t>(layout.next_node));
}

TEST_P(FileReport, NeitherCheckNorDumpNorSummaryChangesTheFile) {
  file_layout layout = build_file(full_recipe(GetParam()));
  std::string path = put(layout);
  std::string reason;
  engine::file_summary summary;
  check_file(path, true);
  engine::summarize_file(path.c_str(), &summary, &reason);
  engine::dump_file(path.c_str(), nullptr, nullptr, nullptr, &reason);
  EXPECT_EQ(read_file(path), layout.bytes);
}

TEST_P(FileReport, DumpGivesEveryEntryInTreeOrder) {
  struct dumped {
    int headers = 0;
    std::vector<engine::dump_entry> entries;
  } all;
  std::string path = put(build_file(full_recipe(GetParam())));
  auto header_fn = [](void* context, const engine::file_header& header) {
    static_cast<dumped*>(context)->headers += header.depth > 0;
    return true;
  };
  auto entry_fn = [](void* context, const engine::dump_entry& entry) {
    static_cast<dumped*>(context)->entries.push_back(entry);
    return true;
  };
  std::string reason;
  EXPECT_EQ(engine::dump_file(path.c_str(), header_fn, entry_fn, &all, &reason), report_outcome::sound);
  EXPECT_EQ(all.headers, 1);
  file_recipe recipe = full_recipe(GetParam());
  std::erase_if(recipe.entries, [](const tree_entry& entry) { return entry.removed; });
  std::size_t values = 0;
  for (const engine::dump_entry& entry : all.entries) values += entry.last;
  EXPECT_EQ(values, recipe.entries.size());
  EXPECT_EQ(all.entries.front().key, 1);
  EXPECT_EQ(all.entries.back().key, 20);
  EXPECT_EQ(all.entries.back().data.size(), 2U);
}

TEST_P(FileReport, DumpStopsWhenItIsToldTo) {
  std::string path = put(build_file(sample_recipe(GetParam(), 10)));
  int calls = 0;
  auto stop = [](void* context, const engine::dump_entry&) { return ++*static_cast<int*>(context) < 3; };
  std::string reason;
  engine::dump_file(path.c_str(), nullptr, stop, &calls, &reason);
  EXPECT_EQ(calls, 3);
}

TEST_P(FileReport, SummaryCountsWhatTheFileHolds) {
  file_layout layout = build_file(full_recipe(GetParam()));
  engine::file_summary summary;
  std::string reason;
  EXPECT_EQ(engine::summarize_file(put(layout).c_str(), &summary, &reason), report_outcome::sound);
  EXPECT_EQ(summary.header.little_endian, !GetParam());
  EXPECT_EQ(summary.leaves, static_cast<std::uint64_t>(layout.leaves));
  EXPECT_EQ(summary.inner_nodes, static_cast<std::uint64_t>(layout.tree_nodes - layout.leaves));
  EXPECT_EQ(summary.free_nodes, 4U);
  EXPECT_EQ(summary.log_nodes, static_cast<std::uint64_t>(layout.next_node - layout.tree_nodes - 4));
  EXPECT_EQ(summary.unused_nodes, 5U);
  EXPECT_EQ(summary.unreachable_nodes, 0U);
  EXPECT_EQ(summary.records, 260U);
  EXPECT_EQ(summary.free_numbers, 9U);
  EXPECT_EQ(summary.locks, 1U);
  EXPECT_GT(summary.empty_leaves, 0U);
  EXPECT_EQ(summary.entries_by_key[1], 260U);
  EXPECT_GT(summary.leaf_fill, 0.1);
  EXPECT_LT(summary.inner_fill, 0.3);
}

}  // namespace
}  // namespace zvrdb::test
