// Keys made of several fields: their values, their order, and records that have them.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "engine/composite_key.h"
#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::field;
using engine::segment;

// Key 1: town without regard to case, then number from high to low, then code, 3 bytes at most.
const segment town_number_code[] = {{1, {}, 0, 0, 0, {}}, {3, {}, 1, 0, 1, {}}, {2, {}, 2, 3, 0, {}}, {31, {}, 0, 0, 0, {}}};
// Key 2: every other type of segment.
const segment all_numbers[] = {{4, {}, 3, 0, 0, {}},  {10, {}, 4, 0, 1, {}}, {6, {}, 5, 0, 0, {}},
                               {7, {}, 6, 0, 0, {}},  {9, {}, 7, 0, 0, {}},  {0, {}, 0, 4, 0, {}},
                               {17, {}, 2, 0, 0, {}}, {31, {}, 0, 0, 0, {}}};
const engine::key_entry keys[] = {{1, 8, {}, town_number_code}, {2, 8, {}, all_numbers}, {0, 0, {}, nullptr}};
const engine::key_entry keys_without_tables[] = {{1, 8, {}, nullptr}, {2, 8, {}, nullptr}, {0, 0, {}, nullptr}};

struct place {
  std::string town;
  std::int32_t number = 0;
  std::string code;
  std::int16_t small = 0;
  std::uint16_t unsigned_small = 0;
  float ratio = 0;
  double weight = 0;
  std::string six = std::string(6, '\0');
  bool operator==(const place&) const = default;
};

struct place_fields {
  explicit place_fields(const place& p = {})
      : number(p.number), small(p.small), unsigned_small(p.unsigned_small), ratio(p.ratio), weight(p.weight) {
    std::memcpy(town, p.town.c_str(), p.town.size() + 1);
    std::memcpy(code, p.code.data(), p.code.size());
    std::memcpy(six, p.six.data(), 6);
    list[2].flen = static_cast<std::int16_t>(p.code.size());
  }
  place get() const {
    return {town, number, {code, static_cast<std::size_t>(list[2].flen)}, small, unsigned_small, ratio, weight, {six, 6}};
  }
  char town[260] = {};
  std::int32_t number;
  char code[260] = {};
  std::int16_t small;
  std::uint16_t unsigned_small;
  float ratio;
  double weight;
  char six[6];
  field list[11] = {{'S', 'N', 'N', 0, 250, 0, 0, town},   {'L', 'N', 'N', 0, 4, 0, 0, &number},
                    {'B', 'N', 'N', 0, 0, 0, 0, code},     {'H', 'N', 'N', 0, 2, 0, 0, &small},
                    {'U', 'N', 'N', 0, 2, 0, 0, &unsigned_small}, {'F', 'N', 'N', 0, 4, 0, 0, &ratio},
                    {'D', 'N', 'N', 0, 8, 0, 0, &weight},  {'M', 'N', 'N', 0, 6, 0, 0, six},
                    {'X', 8, 'U', 0, 0, 1, 0, nullptr},    {'X', 8, 'D', 0, 0, 2, 0, nullptr},
                    {'E', 'E', 'N', 0, 0, 0, 0, nullptr}};
};

std::string number_bytes(std::int32_t v) { return bytes32(false, static_cast<std::uint32_t>(v)); }
// A value of key 1 in native order; parts left out at the end make it a beginning only.
std::string town_key(const std::string& town) {
  const std::string body = town + '\0';
  return static_cast<char>(body.size()) + body;
}
std::string town_key(const std::string& town, std::int32_t number) {
  const std::string body = town + '\0' + number_bytes(number);
  return static_cast<char>(body.size()) + body;
}
std::string town_key(const std::string& town, std::int32_t number, const std::string& code) {
  const std::string body = town + '\0' + number_bytes(number) + static_cast<char>(code.size()) + code;
  return static_cast<char>(body.size()) + body;
}

std::string lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return text;
}
bool by_first_key(const place& a, const place& b) {
  if (lower(a.town) != lower(b.town)) return lower(a.town) < lower(b.town);
  if (a.number != b.number) return a.number > b.number;
  return a.code.substr(0, 3) < b.code.substr(0, 3);
}
bool by_second_key(const place& a, const place& b) {
  if (a.small != b.small) return a.small < b.small;
  if (a.unsigned_small != b.unsigned_small) return a.unsigned_small > b.unsigned_small;
  if (a.ratio != b.ratio) return a.ratio < b.ratio;
  if (a.weight != b.weight) return a.weight < b.weight;
  if (a.six != b.six) return a.six < b.six;
  if (a.town.substr(0, 4) != b.town.substr(0, 4)) return a.town.substr(0, 4) < b.town.substr(0, 4);
  return a.code < b.code;
}

struct composite_case {
  const char* name;
  char access;
  int byte_order;
  engine::journal_use journal;
};

class CompositeKey : public ::testing::TestWithParam<composite_case> {
 protected:
  void SetUp() override {
    h_.journal = GetParam().journal;
    ASSERT_EQ(h_.create(path_, GetParam().access, GetParam().byte_order, keys), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    expect_sound(keys);
    expect_sound(nullptr);
  }
  void expect_sound(const engine::key_entry* table) {
    engine::check_options options;
    options.deep = true;
    options.keys = table;
    std::string text;
    auto collect = [](void* context, const engine::problem& p) {
      if (!p.note) *static_cast<std::string*>(context) += p.path + ": " + p.text + "\n";
    };
    EXPECT_EQ(engine::verify_file(path_.c_str(), options, collect, &text, nullptr), engine::report_outcome::sound) << text;
  }
  int insert(const place& p) {
    place_fields f(p);
    return engine::dinsert(h_, f.list);
  }
  place read() {
    place_fields f;
    EXPECT_EQ(engine::dread(h_, f.list), 0);
    return f.get();
  }
  int find(const std::string& value, int option = engine::find_equal) {
    return engine::dfind(h_, 1, value.data(), 8, option);
  }
  std::vector<place> walk(int key) {
    std::vector<place> found;
    for (int r = engine::dseq(h_, key, engine::seq_first); r == 0; r = engine::dseq(h_, key, engine::seq_next))
      found.push_back(read());
    return found;
  }
  scratch_folder folder_;
  std::string path_ = folder_.file("composite");
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(Files, CompositeKey,
                         ::testing::Values(composite_case{"Shared", 'S', 3, engine::journal_use::off},
                                           composite_case{"BigEndianExclusive", 'E', 2, engine::journal_use::off},
                                           composite_case{"SharedWithJournal", 'S', 3, engine::journal_use::on},
                                           composite_case{"BigEndianWithJournal", 'S', 2, engine::journal_use::on}),
                         [](const auto& a) { return a.param.name; });

TEST_P(CompositeKey, IsALengthByteAndTheSegmentsOfItsFields) {
  ASSERT_EQ(insert({"Ulm", 258, "abcdef", 1, 2, 1.5F, 2.5, "123456"}), 0);
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_first), 0);
  const bool big = GetParam().byte_order == 2;
  const auto found = [&] { return std::string(reinterpret_cast<const char*>(engine::current_key(h_)), engine::current_key(h_)[0] + 1U); };
  std::string body = std::string("Ulm\0", 4) + bytes32(big, 258) + "\3" + "abc";
  EXPECT_EQ(found(), static_cast<char>(body.size()) + body);
  ASSERT_EQ(engine::dseq(h_, 2, engine::seq_first), 0);
  body = bytes16(big, 1) + bytes16(big, 2) + bytes_float(big, 1.5F) + bytes_double(big, 2.5) + "123456" +
         std::string("Ulm\0", 4) + "\6" + "abcdef";
  EXPECT_EQ(found(), static_cast<char>(body.size()) + body);
}

TEST_P(CompositeKey, SortsSegmentBySegmentAndADescendingOneBackwards) {
  std::mt19937 random(7);
  std::vector<place> all;
  for (int i = 0; i < 250; i++) {
    place p;
    p.town = std::string(1, static_cast<char>((random() % 2 ? 'a' : 'A') + random() % 3)) + (random() % 2 ? "" : "bcdefg");
    p.number = static_cast<std::int32_t>(random() % 7) - 3;
    p.code = std::string(1 + random() % 3, static_cast<char>('k' + random() % 3));
    p.small = static_cast<std::int16_t>(random() % 5 - 2);
    p.unsigned_small = static_cast<std::uint16_t>(random() % 3 * 30000);
    p.ratio = static_cast<float>(random() % 3) - 1;
    p.weight = static_cast<double>(random() % 3) - 1;
    p.six = std::string(5, 'x') + static_cast<char>(random() % 2);
    const bool there = std::any_of(all.begin(), all.end(), [&](const place& q) { return !by_first_key(p, q) && !by_first_key(q, p); });
    ASSERT_EQ(insert(p), there ? engine::e_not_found : 0) << i;
    if (!there) all.push_back(p);
  }
  std::stable_sort(all.begin(), all.end(), by_first_key);
  EXPECT_EQ(walk(1), all);
  const std::vector<place> second = walk(2);
  EXPECT_EQ(second.size(), all.size());
  EXPECT_TRUE(std::is_sorted(second.begin(), second.end(), by_second_key));
  for (const place& p : all) {
    ASSERT_EQ(find(town_key(p.town, p.number, p.code.substr(0, 3))), 0);
    EXPECT_EQ(read(), p);
  }
}

TEST_P(CompositeKey, IsFoundByItsFirstSegmentsToo) {
  for (int i = 0; i < 30; i++) ASSERT_EQ(insert({std::string(1, static_cast<char>('a' + i / 10)), i % 10, "c"}), 0);
  ASSERT_EQ(find(town_key("B")), 0);
  EXPECT_EQ(read(), (place{"b", 9, "c"}));
  ASSERT_EQ(find(town_key("b", 4)), 0);
  EXPECT_EQ(read(), (place{"b", 4, "c"}));
  EXPECT_EQ(find(town_key("bb")), engine::e_not_found);
  EXPECT_EQ(find(town_key("b", 10)), engine::e_not_found);
  ASSERT_EQ(find(town_key("b"), engine::find_greater), 0);
  EXPECT_EQ(read(), (place{"c", 9, "c"}));
  ASSERT_EQ(find(town_key("b"), engine::find_less), 0);
  EXPECT_EQ(read(), (place{"a", 0, "c"}));
  EXPECT_EQ(find(town_key("bb"), engine::find_greater_equal), 2);
  EXPECT_EQ(read(), (place{"c", 9, "c"}));
}

// What is remembered of a find may lie where that of a shorter value would: each open puts both
// elsewhere.
TEST_P(CompositeKey, IsFoundByItsFirstSegmentBehindAnyFindOfAWholeValue) {
  constexpr int numbers = 60;
  constexpr int opens = 400;
  for (int i = 0; i < numbers; i++) ASSERT_EQ(insert({"a", i, "c"}), 0);
  for (int i = 0; i < opens && !HasFailure(); i++) {
    ASSERT_EQ(h_.close(), 0);
    ASSERT_EQ(h_.open(path_, GetParam().access, 2, keys), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    for (int number = 0; number < numbers; number++) {
      ASSERT_EQ(find(town_key("a", number, "c")), 0);
      ASSERT_EQ(find(town_key("a")), 0);
      ASSERT_EQ(read(), (place{"a", numbers - 1, "c"})) << i << " " << number;
    }
  }
}

TEST_P(CompositeKey, FollowsItsFieldsThroughUpdatesAndGoesWithItsRecord) {
  for (int i = 0; i < 60; i++) ASSERT_EQ(insert({"t" + std::to_string(i), i, "c"}), 0);
  for (int i = 0; i < 60; i += 2) {
    ASSERT_EQ(find(town_key("t" + std::to_string(i))), 0);
    ASSERT_EQ(engine::dlock(h_), 0);
    place_fields changed({"t" + std::to_string(i), 1000 + i, "d"});
    ASSERT_EQ(engine::dupdate(h_, changed.list), 0);
    ASSERT_EQ(engine::dunlock(h_), 0);
  }
  for (int i = 0; i < 60; i++) {
    const bool even = i % 2 == 0;
    EXPECT_EQ(find(town_key("t" + std::to_string(i), i, "c")), even ? engine::e_not_found : 0);
    EXPECT_EQ(find(town_key("t" + std::to_string(i), 1000 + i, "d")), even ? 0 : engine::e_not_found);
  }
  while (engine::dseq(h_, 2, engine::seq_first) == 0) {
    ASSERT_EQ(engine::dlock(h_), 0);
    place_fields any;
    ASSERT_EQ(engine::ddelete(h_, any.list), 0);
  }
  EXPECT_TRUE(walk(1).empty());
  engine::file_summary s;
  ASSERT_EQ(engine::dflush(h_), 0);
  ASSERT_EQ(h_.close(), 0);
  engine::summarize_file(path_.c_str(), &s, nullptr);
  EXPECT_EQ(s.entries_by_key[1] + s.entries_by_key[2], 0U);
}

TEST_P(CompositeKey, TakesAnEmptySegmentForAFieldTakenOut) {
  place_fields f({"Rom", 7, "abc"});
  f.list[0].ftype = static_cast<char>(f.list[0].ftype | 0x80);
  ASSERT_EQ(engine::dinsert(h_, f.list), 0);
  EXPECT_EQ(find(town_key("", 7, "abc")), 0);
  std::array<unsigned char, 256> value;
  ASSERT_EQ(engine::dkeyval(h_, 1, f.list, -1, value.data()), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(value.data()), value[0] + 1U), town_key("", 7, "abc"));
}

TEST_P(CompositeKey, TellsWhyAValueCannotBeBuiltAndChangesNothing) {
  std::array<unsigned char, 256> value;
  place_fields none({"a", 1, "b"});
  none.list[1].fdata = nullptr;
  EXPECT_EQ(engine::dkeyval(h_, 1, none.list, -1, value.data()), engine::e_no_field);
  place_fields longest({std::string(233, 'l'), 1, "b"});
  EXPECT_EQ(engine::dkeyval(h_, 1, longest.list, -1, value.data()), 0);
  EXPECT_EQ(value[0], 240);
  place_fields too_long({std::string(235, 'l'), 1, "b"});
  EXPECT_EQ(engine::dkeyval(h_, 1, too_long.list, -1, value.data()), engine::e_too_long);
  EXPECT_EQ(engine::dinsert(h_, too_long.list), engine::e_too_long);
  place_fields misfit({"a", 1, "b"});
  misfit.list[1].ftype = 'D';
  EXPECT_EQ(engine::dkeyval(h_, 1, misfit.list, -1, value.data()), engine::e_segments);
  place_fields plain({"a", 1, "b"});
  plain.list[8].ftype = 'B';
  EXPECT_EQ(engine::dinsert(h_, plain.list), engine::e_field_type);
  EXPECT_TRUE(walk(1).empty());
  EXPECT_EQ(insert({"a", 1, "b"}), 0);
}

TEST_P(CompositeKey, IsLeftAloneByAHandleWithoutItsTable) {
  ASSERT_EQ(insert({"a", 1, "b"}), 0);
  ASSERT_EQ(h_.close(), 0);
  ASSERT_EQ(h_.open(path_, GetParam().access, 2, keys_without_tables), 0);
  EXPECT_EQ(find(town_key("a")), engine::e_key_type);
  EXPECT_EQ(insert({"b", 1, "b"}), engine::e_key_type);
  EXPECT_EQ(engine::dseq(h_, 1, engine::seq_first), 0);
}

TEST_P(CompositeKey, ComesBackWithARollBackAndOnlyWhereItsOrderIsKnown) {
  for (int i = 0; i < 20; i++) ASSERT_EQ(insert({"t" + std::to_string(i), i, "c"}), 0);
  const std::vector<place> before = walk(1);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 20; i < 60; i++) ASSERT_EQ(insert({"t" + std::to_string(i), i, "c"}), 0);
  ASSERT_EQ(engine::dflush(h_), 0);
  engine::abandon(h_);
  ASSERT_EQ(h_.open(path_, GetParam().access, 2, keys_without_tables), 0);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  // With a journal the file never had the transaction, so there is nothing to roll back.
  const bool taken_back = GetParam().journal == engine::journal_use::on;
  if (taken_back) {
    EXPECT_EQ(engine::transstat(h_), 0);
  } else {
    ASSERT_EQ(engine::transstat(h_), engine::e_trans_interrupted);
    EXPECT_EQ(engine::transroll(h_, nullptr, 0, nullptr), engine::e_segments);
    EXPECT_EQ(engine::transstat(h_), engine::e_trans_interrupted);
  }
  ASSERT_EQ(h_.close(), 0);
  ASSERT_EQ(h_.open(path_, GetParam().access, 2, keys), 0);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  if (!taken_back) {
    EXPECT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  }
  EXPECT_EQ(walk(1), before);
}

TEST(CompositeValues, OfAnyBytesAreComparedWithinTheirLength) {
  std::mt19937 random(11);
  const segment* tables[] = {town_number_code, all_numbers};
  for (int round = 0; round < 20000; round++) {
    const auto value = [&] {
      std::string bytes(1 + random() % 12, '\0');
      for (char& c : bytes) c = static_cast<char>(random() % 4);
      bytes[0] = static_cast<char>(bytes.size() - 1);
      return std::vector<std::uint8_t>(bytes.begin(), bytes.end());   // of exactly that length
    };
    const auto a = value();
    const auto b = value();
    const segment* table = tables[random() % 2];
    const int one = engine::compare_composite(table, engine::byte_order::little, a.data(), b.data());
    EXPECT_EQ(one, -engine::compare_composite(table, engine::byte_order::little, b.data(), a.data()));
    std::vector<std::uint8_t> there(a.size()), back(a.size());
    engine::convert_composite(table, a.data(), there.data(), static_cast<int>(a.size()), engine::byte_order::little,
                              engine::byte_order::big);
    engine::convert_composite(table, there.data(), back.data(), static_cast<int>(a.size()), engine::byte_order::big,
                              engine::byte_order::little);
    EXPECT_EQ(a, back);
  }
}

TEST(CompositeValues, OutOfOrderAreFoundByTheCheckThatKnowsTheTable) {
  scratch_folder folder;
  const std::string path = folder.file("order");
  for (const bool sorted : {true, false}) {
    file_recipe recipe;
    recipe.key_types[1] = 2;
    // Of two records of one town, the higher number comes first.
    const std::string high = town_key("a", 9, "x");
    const std::string low = town_key("a", 3, "x");
    recipe.entries.push_back({1, sorted ? high : low, 1, ""});
    recipe.entries.push_back({1, sorted ? low : high, 2, ""});
    recipe.next_record = 3;
    std::vector<unsigned char> bytes = build_file(recipe).bytes;
    bytes[192 + 1] = 8;
    // The writer puts them in the order of their bytes.
    const std::string by_bytes[] = {std::min(high, low), std::max(high, low)};
    const auto at = std::search(bytes.begin() + 1024, bytes.end(), by_bytes[0].begin(), by_bytes[0].end());
    ASSERT_NE(at, bytes.end());
    if (sorted) {
      const auto second = std::search(bytes.begin() + 1024, bytes.end(), by_bytes[1].begin(), by_bytes[1].end());
      std::swap_ranges(at, at + static_cast<std::ptrdiff_t>(high.size()), second);
    }
    write_file(path, bytes);
    engine::check_options options;
    options.keys = keys;
    EXPECT_EQ(engine::verify_file(path.c_str(), options, nullptr, nullptr, nullptr),
              sorted ? engine::report_outcome::sound : engine::report_outcome::problems);
    options.keys = nullptr;
    EXPECT_EQ(engine::verify_file(path.c_str(), options, nullptr, nullptr, nullptr), engine::report_outcome::sound);
  }
}

}  // namespace
}  // namespace zvrdb::test
