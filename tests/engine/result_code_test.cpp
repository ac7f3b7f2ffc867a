// Results that only odd files, odd arguments or a failing system bring about.
#include <gtest/gtest.h>

#include <vector>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/header_page.h"
#include "engine/node_cache.h"
#include "engine/scratch_folder.h"
#include "engine/trans_log.h"

namespace zvrdb::test {
namespace {

class ResultCodes : public ::testing::TestWithParam<bool> {
 protected:
  bool big() const { return GetParam(); }
  std::string put(const file_recipe& recipe) {
    std::string path = folder_.file("file");
    write_file(path, build_file(recipe).bytes);
    return path;
  }
  file_recipe with_log(int type) {
    file_recipe recipe = sample_recipe(big(), 5);
    recipe.transaction = log_chain{7, {{4, ""}, {type, ""}, {5, ""}}};
    return recipe;
  }
  scratch_folder folder_;
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, ResultCodes, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(ResultCodes, RollBackRefusesAnUnknownLogRecordAndLeavesTheFileKnownAsDamaged) {
  const std::string path = put(with_log(7));
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), engine::e_log_record);
  EXPECT_EQ(h.insert(sample(50)), engine::e_write_flag);
}

TEST_P(ResultCodes, RollBackPassesOverLogRecordsFrom128On) {
  for (int type : {6, 128, 255}) {
    file_recipe recipe = with_log(type);
    if (type == 6) recipe.transaction->records[1].entry = bytes32(big(), 3);
    const std::string path = put(recipe);
    handle h;
    ASSERT_EQ(h.open_for_work(path), 0);
    EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0) << type;
    EXPECT_EQ(h.insert(sample(50)), 0);
  }
}

TEST_P(ResultCodes, RollBackRefusesLogRecordsThatRunOutOfTheirNode) {
  file_recipe recipe = sample_recipe(big(), 5);
  file_layout layout = build_file(recipe);
  recipe.transaction = log_chain{7, {{4, ""}, {5, ""}}};
  layout = build_file(recipe);
  // The head names more records than its node has.
  const auto order = big() ? engine::byte_order::big : engine::byte_order::little;
  const auto head = engine::load32s(&layout.bytes[engine::header_at::transhead], order);
  engine::store16(&layout.bytes[engine::node_offset(head) + 14], 80, order);
  const std::string path = folder_.file("file");
  write_file(path, layout.bytes);
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  EXPECT_EQ(engine::transroll(h, nullptr, 0, nullptr), engine::e_damaged);
}

TEST_P(ResultCodes, AnInformationAreaOfImpossibleLengthIsLoadedEmpty) {
  for (const auto& [length, kept] : {std::pair<std::uint32_t, int>{100, 100}, {1, 1}, {0, 0}, {101, 0}, {0xFFFFFFFF, 0}}) {
    file_recipe recipe = sample_recipe(big(), 5);
    recipe.information = std::string(100, 'i');
    std::vector<unsigned char> bytes = build_file(recipe).bytes;
    const std::string field = bytes32(big(), length);
    std::memcpy(&bytes[engine::header_at::infolen], field.data(), field.size());
    const std::string path = folder_.file("file");
    write_file(path, bytes);
    handle h;
    ASSERT_EQ(h.open_for_work(path), 0);
    EXPECT_EQ(h.insert(sample(50)), 0);
    EXPECT_EQ(h.close(), 0);
    bytes = read_file(path);
    const auto n = static_cast<std::size_t>(kept);
    EXPECT_EQ(std::string(bytes.begin() + engine::header_at::info, bytes.begin() + engine::header_at::keytypes),
              std::string(n, 'i') + std::string(100 - n, '\0'));
    EXPECT_EQ(std::string(bytes.begin() + engine::header_at::infolen, bytes.begin() + engine::header_at::reserved),
              bytes32(big(), static_cast<std::uint32_t>(kept)));
  }
}

TEST_P(ResultCodes, NodeNumbersThatCannotBeAreRefused) {
  const std::string path = put(sample_recipe(big(), 5));
  handle h;
  ASSERT_EQ(h.open(path, 'E'), 0);
  EXPECT_EQ(engine::nodeget(h, nullptr, -1), engine::e_negative_node);
  EXPECT_EQ(engine::nodeget(h, nullptr, h.get()->nextnode), engine::e_unallocated_node);
  EXPECT_EQ(engine::nodeget(h, nullptr, INT32_MAX), engine::e_unallocated_node);
  EXPECT_EQ(engine::nodeget(h, nullptr, 0), 0);
}

TEST_P(ResultCodes, NodesThatCannotBeAreNotWritten) {
  const std::string path = put(sample_recipe(big(), 5));
  const std::vector<unsigned char> before = read_file(path);
  handle h;
  ASSERT_EQ(h.open(path, 'E'), 0);
  ASSERT_EQ(h.get()->intlevel, 3);
  engine::clear_buffer(engine::scratch_buffer);
  engine::node& v = engine::scratch_buffer.image;
  for (auto* put_node : {engine::nodeput, engine::nodeputd}) {
    v.room = -1;
    EXPECT_EQ(put_node(h, engine::scratch_buffer, 1), engine::e_damaged);
    v.room = 1006;
    v.count = 0x8000;
    EXPECT_EQ(put_node(h, engine::scratch_buffer, 1), engine::e_damaged);
    v.count = 0;
  }
  EXPECT_EQ(engine::nodeput(h, engine::scratch_buffer, h.get()->extent + 1), engine::e_damaged);
  engine::purgefile(h);
  EXPECT_EQ(read_file(path), before);
}

std::int32_t first_listed_node = -1;

// Looks up the first node of the chain in the list that a roll-back keeps, and ends it.
int look_into_list(engine::PSP* h, double done, const engine::log_view*) {
  if (done < 0) return 0;
  std::uint8_t number[4] = {};
  const auto* key = reinterpret_cast<const std::uint8_t*>("TRANSNDE");
  if (engine::bfind(h, 16, key, 1, number, sizeof number) == 0 && h->datalen == 4)
    std::memcpy(&first_listed_node, number, sizeof number);
  return 1;
}

TEST_P(ResultCodes, RollBackListsItsLogNodesFromOneOnInNativeOrder) {
  const std::string path = put(with_log(6));
  handle h;
  ASSERT_EQ(h.open_for_work(path), 0);
  const std::int32_t head = h.get()->transhead;
  ASSERT_GT(head, 0);
  EXPECT_EQ(engine::transroll(h, look_into_list, 0, nullptr), 0);
  EXPECT_EQ(first_listed_node, head);
}

class Progress : public ::testing::Test {
 protected:
  struct step {
    double done;
    int sequence, type;
  };
  static int note(engine::PSP*, double done, const engine::log_view* record) {
    steps.push_back({done, record->sequence, record->type});
    return done >= 0 && stop ? 1 : 0;
  }
  void SetUp() override {
    steps.clear();
    stop = false;
    path_ = folder_.file("file");
    ASSERT_EQ(h_.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
    for (int i = 1; i <= 20; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  }
  static std::vector<step> steps;
  static bool stop;
  scratch_folder folder_;
  std::string path_;
  handle h_;
};
std::vector<Progress::step> Progress::steps;
bool Progress::stop = false;

TEST_F(Progress, IsToldForEachLogRecordOnceInEachPass) {
  ASSERT_EQ(engine::transroll(h_, note, 0, nullptr), 0);
  const std::size_t all = steps.size() / 2;
  ASSERT_EQ(steps.size(), 2 * all);
  ASSERT_GT(all, 140U);   // seven entries of each record, and the marks of operations
  for (std::size_t i = 0; i < all; i++) {
    const auto number = static_cast<int>(i + 1);
    EXPECT_EQ(steps[i].done, -1.0);
    EXPECT_EQ(steps[i].sequence, number);
    const step& undone = steps[2 * all - 1 - i];
    EXPECT_EQ(undone.sequence, number);
    EXPECT_EQ(undone.type, steps[i].type);
    EXPECT_DOUBLE_EQ(undone.done, static_cast<double>(all - i) / static_cast<double>(all));
  }
  EXPECT_EQ(h_.find_name(sample(1).name), engine::e_not_found);
}

TEST_F(Progress, EndsTheRollBackByAnyOtherAnswerThanZero) {
  stop = true;
  ASSERT_EQ(engine::transroll(h_, note, 0, nullptr), 0);
  EXPECT_EQ(engine::transstat(h_), 0);
  for (int i = 1; i <= 20; i++) EXPECT_EQ(h_.find_name(sample(i).name), 0) << i;
  EXPECT_EQ(engine::bfirst(h_, engine::key_rollback, nullptr, 0), engine::e_not_found);
  EXPECT_EQ(h_.close(), 0);
  check_result result = check_file(path_, true);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

TEST(Arguments, ACompanionOfAPlainTransactionIsRefused) {
  scratch_folder folder;
  handle h, other;
  ASSERT_EQ(h.create(folder.file("file")), 0);
  ASSERT_EQ(engine::csetfile(h, 4), 0);
  EXPECT_EQ(engine::transbeg(h, 3, other), engine::e_bad_argument);
  EXPECT_EQ(engine::transbeg(h, 1, other), engine::e_bad_handle);
  EXPECT_EQ(engine::transend(h, 0), engine::e_bad_argument);
  EXPECT_EQ(engine::transend(h, 4), engine::e_bad_argument);
  EXPECT_EQ(engine::transstat(h), 0);
}

TEST(Arguments, SegmentTablesThatCannotBeAreRefusedAtOpen) {
  scratch_folder folder;
  const std::string path = folder.file("composite");
  const std::vector<engine::segment> end(1, {31, {}, 0, 0, 0, {}});
  std::vector<engine::segment> most(243, {2, {}, 0, 0, 0, {}}), too_many(244, {2, {}, 0, 0, 0, {}});
  std::vector<engine::segment> bad_type(1, {21, {}, 0, 0, 0, {}});
  for (auto* table : {&most, &too_many, &bad_type}) table->push_back(end[0]);
  const auto keys = [](const std::vector<engine::segment>& table) {
    return std::vector<engine::key_entry>{{1, 8, {}, table.data()}, {0, 0, {}, nullptr}};
  };
  handle h;
  ASSERT_EQ(h.create(path, 'S', 3, keys(most).data()), 0);
  ASSERT_EQ(h.close(), 0);
  EXPECT_EQ(h.open(path, 'S', 2, keys(end).data()), engine::e_segments);
  EXPECT_EQ(h.open(path, 'S', 2, keys(too_many).data()), engine::e_segments);
  EXPECT_EQ(h.open(path, 'S', 2, keys(bad_type).data()), engine::e_segments);
  EXPECT_EQ(engine::checkpsp(h), 'C');
  EXPECT_EQ(h.open(path, 'S', 2, keys(most).data()), 0);
}

TEST(Arguments, ALockThatCannotBeDroppedStopsTheMoveOfItsCursor) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("file")), 0);
  ASSERT_EQ(engine::csetfile(h, 4), 0);
  ASSERT_EQ(h.insert(sample(1)), 0);
  engine::cursor_of(h, 1).ckeyno = -1;
  h.get()->keylocks[0] = 'L';
  EXPECT_EQ(engine::dseq(h, 1, engine::seq_first), engine::e_unlock);
  EXPECT_EQ(h.find_name(sample(1).name, engine::find_less), engine::e_unlock);
  h.get()->keylocks[0] = 'U';
  EXPECT_EQ(h.find_name(sample(1).name), 0);
}

TEST(Arguments, ACursorWithoutMemoryHasNoPlaceAndEndsTheOperation) {
  scratch_folder folder;
  install_faulty_os();
  {
    handle h;
    ASSERT_EQ(h.create(folder.file("file")), 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    ASSERT_EQ(h.insert(sample(1)), 0);
    ASSERT_FALSE(engine::has_cursor(h, 9));
    fail_call(os_call::allocate, 1, true);
    const engine::cursor& c = engine::cursor_of(h, 9);
    EXPECT_EQ(h.get()->deferred, engine::e_no_memory);
    EXPECT_EQ(c.cnode, -1);
    EXPECT_EQ(c.ckeyno, -1);
    EXPECT_EQ(c.cstale, 1);
    EXPECT_EQ(c.cindex + static_cast<int>(c.crecno) + c.cpiece + c.cdeleted, 0);
    EXPECT_FALSE(engine::has_cursor(h, 9));
    EXPECT_EQ(engine::dseq(h, 9, engine::seq_first), engine::e_no_memory);
    disarm();
    EXPECT_EQ(engine::dseq(h, 9, engine::seq_first), engine::e_not_found);
    EXPECT_EQ(h.find_name(sample(1).name), 0);
    // A place behind the end of the file is none.
    engine::cursor_of(h, 1).cnode = h.get()->extent + 1;
    EXPECT_EQ(engine::cursor_node(h, 1), -1);
    EXPECT_EQ(h.find_name(sample(1).name), 0);
  }
  remove_faulty_os();
}

TEST(Arguments, ARefusedFindOrStepLeavesNoCurrentRecord) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("file")), 0);
  ASSERT_EQ(h.insert(sample(1)), 0);
  const std::int32_t value = 0;
  const auto current = [&] {
    sample_record found;
    return h.read(&found);
  };
  ASSERT_EQ(current(), 0);
  EXPECT_EQ(engine::dfind(h, 0, &value, 3, engine::find_equal), engine::e_bad_argument);
  EXPECT_EQ(current(), engine::e_no_current);
  ASSERT_EQ(h.find_name(sample(1).name), 0);
  EXPECT_EQ(engine::dfind(h, 3, &value, 3, 6), engine::e_bad_argument);
  EXPECT_EQ(current(), engine::e_no_current);
  ASSERT_EQ(h.find_name(sample(1).name), 0);
  EXPECT_EQ(engine::dseq(h, 1, 5), engine::e_bad_argument);
  EXPECT_EQ(current(), engine::e_no_current);
}

TEST(Arguments, AFileWithoutLocksIsTakenWhole) {
  scratch_folder folder;
  const std::string path = folder.file("file");
  {
    handle made;
    ASSERT_EQ(made.create(path), 0);
  }
  install_faulty_os();
  {
    handle h;
    fail_call(os_call::lock, 1, true);
    EXPECT_EQ(h.open(path), 0);
    EXPECT_EQ(h.get()->access, 'E');
    EXPECT_EQ(h.insert(sample(1)), 0);
    EXPECT_EQ(h.close(), 0);
    disarm();
  }
  EXPECT_EQ(open_files(), 0);
  remove_faulty_os();
}

}  // namespace
}  // namespace zvrdb::test
