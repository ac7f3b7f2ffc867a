// Files that are wrong in one place: the code that tells of it, and what still works.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/header_page.h"
#include "engine/key_compare.h"
#include "engine/node_cache.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

constexpr std::size_t nextnode_at = 36;
constexpr std::size_t nextrec_at = 44;
constexpr std::size_t freenode_at = 60;
constexpr std::size_t key_types_at = 192;

const std::uint8_t* raw(const std::string& text) { return reinterpret_cast<const std::uint8_t*>(text.data()); }

class OddFile : public ::testing::TestWithParam<bool> {
 protected:
  bool big() const { return GetParam(); }
  std::uint32_t field(const std::vector<unsigned char>& bytes, std::size_t at) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; i++) value |= std::uint32_t{bytes[at + i]} << 8 * (big() ? 3 - i : i);
    return value;
  }
  void set_field(std::vector<unsigned char>* bytes, std::size_t at, std::uint32_t value) const {
    const std::string text = bytes32(big(), value);
    std::copy(text.begin(), text.end(), bytes->begin() + static_cast<std::ptrdiff_t>(at));
  }
  void put(const std::vector<unsigned char>& bytes) { write_file(path_, bytes); }
  scratch_folder folder_;
  std::string path_ = folder_.file("odd");
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, OddFile, ::testing::Values(false, true),
                         [](const auto& order) { return order.param ? "BigEndian" : "LittleEndian"; });

TEST_P(OddFile, WithOneLetterOfItsHeaderWrongIsNotOurs) {
  const std::vector<unsigned char> good = build_file(sample_recipe(big(), 5)).bytes;
  for (std::size_t word : {4U, 16U, 20U, 24U, 32U, 40U, 48U, 56U}) {
    for (std::size_t i = 0; i < 4; i++) {
      std::vector<unsigned char> bytes = good;
      bytes[word + i] ^= 0x20;
      put(bytes);
      ASSERT_EQ(h_.open(path_), engine::e_foreign_file) << word + i;
      ASSERT_EQ(engine::checkpsp(h_), 'C');
    }
  }
}

TEST_P(OddFile, CutShortTellsOfAShortRead) {
  const std::vector<unsigned char> good = build_file(sample_recipe(big(), 5)).bytes;
  for (std::size_t length : {0U, 100U, 351U, 352U, 1011U}) {
    put({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)});
    EXPECT_EQ(h_.open(path_, 'E'), engine::e_short_read) << length;
    EXPECT_EQ(engine::checkpsp(h_), 'C');
  }
  put({good.begin(), good.begin() + 1024 + 500});
  ASSERT_EQ(h_.open(path_, 'E'), 0);
  EXPECT_EQ(engine::nodeget(h_, nullptr, 0), engine::e_short_read);
  EXPECT_EQ(engine::dseq(h_, 1, engine::seq_first), engine::e_damaged);
}

TEST_P(OddFile, WhoseFreeChainLeavesItRefusesTheSplitAndKeepsWhatItHas) {
  file_recipe recipe = sample_recipe(big(), 30, 600);
  recipe.spare_nodes = 60;
  for (char access : {'S', 'E'}) {
    std::vector<unsigned char> bytes = build_file(recipe).bytes;
    set_field(&bytes, freenode_at, field(bytes, nextnode_at) + 1);
    put(bytes);
    ASSERT_EQ(h_.open(path_, access), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    int refused = 0, last = 100;
    for (; last < 300 && refused == 0; last++) refused = h_.insert(sample(last));
    EXPECT_EQ(refused, engine::e_node_range);
    EXPECT_EQ(h_.insert(sample(last - 1)), engine::e_node_range);
    for (int i = 1; i <= 30; i++) ASSERT_EQ(h_.find_name(sample(i).name), 0) << i;
    for (int i = 100; i < last - 1; i++) ASSERT_EQ(h_.find_name(sample(i).name), 0) << i;
    EXPECT_EQ(h_.find_name(sample(last - 1).name), engine::e_not_found);
    // The operation was left: others may write.
    EXPECT_EQ(h_.get()->wrnest, 0);
    ASSERT_EQ(h_.find_name(sample(3).name), 0);
    EXPECT_EQ(h_.remove(), 0);
    EXPECT_EQ(h_.close(), 0);
  }
}

TEST_P(OddFile, WhoseFreeChainEndsInTheFirstUnusedNodeGivesThatNodeOutOnce) {
  file_recipe recipe = sample_recipe(big(), 30, 600);
  recipe.spare_nodes = 60;
  std::vector<unsigned char> bytes = build_file(recipe).bytes;
  set_field(&bytes, freenode_at, field(bytes, nextnode_at));
  put(bytes);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  for (int i = 100; i < 200; i++) ASSERT_EQ(h_.insert(sample(i)), 0) << i;
  for (int i = 100; i < 200; i++) ASSERT_EQ(h_.find_name(sample(i).name), 0) << i;
  ASSERT_EQ(h_.close(), 0);
  check_result result = check_file(path_, true);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

TEST_P(OddFile, WhoseFreeChainBeginsWithALogNodeGivesOnlyThatOneOut) {
  constexpr std::size_t transhead_at = 344;
  file_recipe recipe = sample_recipe(big(), 30, 600);
  recipe.spare_nodes = 60;
  recipe.transaction = log_chain{7, {{4, ""}, {5, ""}}};
  std::vector<unsigned char> bytes = build_file(recipe).bytes;
  const std::uint32_t log_node = field(bytes, transhead_at), next_node = field(bytes, nextnode_at);
  set_field(&bytes, transhead_at, 0xFFFFFFFFU);
  set_field(&bytes, freenode_at, log_node);
  put(bytes);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  EXPECT_EQ(h_.get()->transhead, static_cast<std::int32_t>(log_node));
  EXPECT_EQ(h_.get()->freenode, -1);
  EXPECT_EQ(h_.get()->nextnode, static_cast<std::int32_t>(next_node));
  for (int i = 100; i < 150; i++) ASSERT_EQ(h_.insert(sample(i)), 0) << i;
  ASSERT_EQ(engine::transend(h_, 1), 0);
  for (int i = 100; i < 150; i++) ASSERT_EQ(h_.find_name(sample(i).name), 0) << i;
  ASSERT_EQ(h_.close(), 0);
  check_result result = check_file(path_, true);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
}

TEST_P(OddFile, WhoseGenerationIsTheLastOneGoesOnWithOne) {
  std::vector<unsigned char> bytes = build_file(sample_recipe(big(), 5)).bytes;
  set_field(&bytes, 0, 0xFFFFFFFFU);
  put(bytes);
  handle other;
  ASSERT_EQ(other.open_for_work(path_), 0);
  const std::uint32_t before = field(read_file(path_), 0);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  ASSERT_EQ(h_.find_name(sample(50).name), engine::e_not_found);
  for (int i = 50; i < 60; i++) {
    ASSERT_EQ(other.insert(sample(i)), 0);
    EXPECT_NE(field(read_file(path_), 0), 0U);
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
  }
  EXPECT_LT(field(read_file(path_), 0), 20U);
  EXPECT_GE(before, 0xFFFFFFFFU - 1);
}

TEST_P(OddFile, BearsTheWriteFlagInItsOwnByteOrder) {
  put(build_file(sample_recipe(big(), 5)).bytes);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  ASSERT_EQ(engine::wrenter(h_), 0);
  ASSERT_EQ(engine::writehdr(h_), 0);
  std::vector<unsigned char> bytes = read_file(path_);
  EXPECT_EQ(bytes[1010], big() ? 0x33 : 0xBD);
  EXPECT_EQ(bytes[1011], big() ? 0xBD : 0x33);
  ASSERT_EQ(engine::wrleave(h_), 0);
  bytes = read_file(path_);
  EXPECT_EQ(bytes[1010] + bytes[1011], 0);
}

TEST_P(OddFile, WhoseNextNumberIsInUseRefusesTheRecordAndKeepsTheOneThatHasIt) {
  std::vector<unsigned char> bytes = build_file(sample_recipe(big(), 5)).bytes;
  set_field(&bytes, nextrec_at, 5);
  put(bytes);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  EXPECT_EQ(h_.insert(sample(50)), engine::e_body);
  EXPECT_EQ(h_.find_name(sample(50).name), engine::e_not_found);
  sample_record found;
  ASSERT_EQ(h_.find_name(sample(5).name), 0);
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found, sample(5));
}

TEST_P(OddFile, WithoutTheBodyOfARecordRefusesToReadChangeOrDeleteIt) {
  put(build_file(sample_recipe(big(), 5)).bytes);
  ASSERT_EQ(h_.open(path_, 'E'), 0);
  ASSERT_EQ(h_.find_name(sample(3).name), 0);
  ASSERT_EQ(engine::bdelete(h_, engine::key_bodies, raw(std::string(1, '\0')), h_.get()->recno_cur), 0);
  sample_record found;
  EXPECT_EQ(h_.read(&found), engine::e_not_found);
  EXPECT_EQ(h_.update(sample(3)), engine::e_no_current);   // nothing that could be locked
  sample_fields fields(sample(3));
  EXPECT_EQ(engine::dupdate(h_, fields.list), engine::e_body);
  EXPECT_EQ(engine::ddelete(h_, fields.list), engine::e_body);
  EXPECT_EQ(h_.find_name(sample(3).name), 0);
}

TEST_P(OddFile, WithAPieceMissingTellsOfItAndLeavesThePlace) {
  std::vector<unsigned char> bytes = build_file(sample_recipe(big(), 40)).bytes;
  // Piece 1 of the body of record 40 becomes a second piece 2.
  const std::string head = std::string("\x13\x01", 2) + bytes32(big(), 40) + std::string(1, '\0');
  const auto piece = std::search(bytes.begin() + 1024, bytes.end(), head.begin(), head.end());
  ASSERT_NE(piece, bytes.end());
  piece[1] = 2;
  put(bytes);
  ASSERT_EQ(h_.open(path_, 'E'), 0);
  std::uint8_t body[16384];
  EXPECT_EQ(engine::bfind(h_, engine::key_bodies, raw(std::string(1, '\0')), 40, body, sizeof body),
            engine::e_broken_pieces);
  EXPECT_EQ(h_.get()->recno, 40);
  EXPECT_EQ(engine::cursor_of(h_, engine::key_bodies).cpiece, 0);
  EXPECT_EQ(engine::bcurrent(h_, engine::key_bodies, nullptr, 0), 0);
  sample_record found;
  ASSERT_EQ(h_.find_name(sample(40).name), 0);
  EXPECT_EQ(h_.read(&found), engine::e_not_found);
  ASSERT_EQ(h_.find_name(sample(39).name), 0);
  EXPECT_EQ(h_.read(&found), 0);
}

TEST_P(OddFile, KeepsTheTypeOfAKeyInTheLowFiveBits) {
  file_recipe recipe = sample_recipe(big(), 5);
  recipe.key_types[7] = 2;
  for (int i = 0; i < 20; i++) {
    const std::string value(static_cast<std::size_t>(20 - i), static_cast<char>('a' + i));
    recipe.entries.push_back({7, static_cast<char>(value.size()) + value, 1, ""});
  }
  std::vector<unsigned char> bytes = build_file(recipe).bytes;
  bytes[key_types_at + 7] |= 0xE0;
  put(bytes);
  ASSERT_EQ(h_.open_for_work(path_), 0);
  for (int i = 0; i < 20; i++) {
    const std::string value(static_cast<std::size_t>(20 - i), static_cast<char>('a' + i));
    EXPECT_EQ(engine::bfind(h_, 7, raw(static_cast<char>(value.size()) + value), 1, nullptr, 0), 0) << i;
    EXPECT_EQ(i == 0 ? engine::bfirst(h_, 7, nullptr, 0) : 0, 0);
  }
  ASSERT_EQ(h_.close(), 0);
  EXPECT_EQ(read_file(path_)[key_types_at + 7], 0xE2);
}

// ---- Key types that nobody defined

TEST_P(OddFile, KeysOfTheTypes11To15AreCreatedButNeverUsed) {
  for (int type = 11; type <= 15; type++) {
    std::filesystem::remove(path_);
    const auto stored = static_cast<std::uint8_t>(type);
    const engine::key_entry keys[] = {{1, 2, {}, nullptr}, {2, stored, {}, nullptr}, {0, 0, {}, nullptr}};
    ASSERT_EQ(h_.create(path_, 'S', big() ? 2 : 1, keys), 0);
    ASSERT_EQ(h_.close(), 0);
    ASSERT_EQ(h_.open(path_, 'S', 2, keys), 0);
    const std::string value = "value";
    EXPECT_EQ(engine::dfind(h_, 2, value.data(), static_cast<char>(type), engine::find_equal), engine::e_key_type);
    char name[] = "name", text[8] = "text";
    const engine::field list[] = {{'B', 2, 'U', 0, 4, 1, 0, name},
                                  {'S', static_cast<char>(type), 'D', 0, sizeof text, 2, 0, text},
                                  {'E', 'N', 'N', 0, 0, 0, 0, nullptr}};
    EXPECT_EQ(engine::dinsert(h_, list), engine::e_key_type);
    EXPECT_EQ(engine::badd(h_, 2, raw(value), 1, nullptr, 0), engine::e_bad_argument);
    EXPECT_EQ(engine::dseq(h_, 2, engine::seq_first), engine::e_not_found);
    EXPECT_EQ(engine::compare_values(type, engine::native_order, raw("a"), raw("b")), 0);
    ASSERT_EQ(h_.close(), 0);
  }
}

TEST_P(OddFile, EntriesOfTheKeyTypes11To15CountAsDamage) {
  file_recipe recipe = sample_recipe(big(), 5);
  recipe.key_types[7] = 0;
  recipe.entries.push_back({7, std::string("value\0", 6), 1, ""});
  std::vector<unsigned char> bytes = build_file(recipe).bytes;
  for (int type = 11; type <= 15; type++) {
    bytes[key_types_at + 7] = static_cast<unsigned char>(type);
    put(bytes);
    ASSERT_EQ(h_.open(path_, 'E'), 0);
    EXPECT_EQ(engine::bfirst(h_, 7, nullptr, 0), engine::e_damaged);
    EXPECT_EQ(h_.insert(sample(50)), engine::e_damaged);
    EXPECT_EQ(check_file(path_, false).outcome, engine::report_outcome::problems);
    engine::abandon(h_);
  }
}

}  // namespace
}  // namespace zvrdb::test
