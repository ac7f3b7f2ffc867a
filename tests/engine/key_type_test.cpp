// Every type of key, in files of both byte orders, at every integrity level, with caches
// down to one block and two files at work in turn: walks and finds give what sorting the
// values in memory gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

struct key_kind {
  int type;         // of the key
  char field_type;
};
constexpr key_kind kinds[] = {{0, 'S'}, {1, 'S'}, {2, 'B'}, {3, 'L'},  {4, 'H'},  {5, 'I'},
                              {6, 'F'}, {7, 'D'}, {9, 'M'}, {10, 'U'}, {16, 'B'}, {20, 'B'}};
constexpr int kind_count = static_cast<int>(std::size(kinds));

template <class T>
std::string bytes_of(T value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

template <class T>
int compare_as(const std::string& a, const std::string& b) {
  T x, y;
  std::memcpy(&x, a.data(), sizeof x);
  std::memcpy(&y, b.data(), sizeof y);
  return x < y ? -1 : y < x ? 1 : 0;
}

std::string lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

// Values are kept as the field holds them: text, bytes, or a number in native order.
int compare(int kind, const std::string& a, const std::string& b) {
  switch (kinds[kind].type) {
    case 1: return lower(a).compare(lower(b));
    case 3: case 5: return compare_as<std::int32_t>(a, b);
    case 4: return compare_as<std::int16_t>(a, b);
    case 6: return compare_as<float>(a, b);
    case 7: return compare_as<double>(a, b);
    case 10: return compare_as<std::uint16_t>(a, b);
    default: return a.compare(b);   // bytes unsigned, the shorter first
  }
}

// As dfind takes it.
std::string key_of(int kind, const std::string& value) {
  if (kinds[kind].field_type == 'B') return static_cast<char>(value.size()) + value;
  return value + std::string(8, '\0');
}

char call_type(int kind) { return kinds[kind].type == 0 ? 'S' : static_cast<char>(kinds[kind].type); }

using values = std::vector<std::string>;

class fields {
 public:
  fields() {
    for (int i = 0; i < kind_count; i++) {
      const char type = kinds[i].field_type;
      list[i] = {type, call_type(i), 'D', 0, static_cast<std::int16_t>(type == 'S' ? 64 : type == 'B' ? 60 : 8),
                 static_cast<std::uint8_t>(i + 1), 0, data_[i]};
    }
    list[kind_count] = {'E', 'N', 'N', 0, 0, 0, 0, nullptr};
  }
  explicit fields(const values& v) : fields() {
    for (int i = 0; i < kind_count; i++) {
      std::memcpy(data_[i], v[static_cast<std::size_t>(i)].data(), v[static_cast<std::size_t>(i)].size());
      if (kinds[i].field_type == 'B') list[i].flen = static_cast<std::int16_t>(v[static_cast<std::size_t>(i)].size());
    }
  }
  fields(const fields&) = delete;
  fields& operator=(const fields&) = delete;
  values get() const {
    values v;
    for (int i = 0; i < kind_count; i++) {
      std::size_t n = 0;
      switch (kinds[i].field_type) {
        case 'S': n = std::strlen(data_[i]); break;
        case 'B': n = static_cast<std::size_t>(list[i].flen); break;
        case 'D': n = 8; break;
        case 'M': n = 6; break;
        case 'H': case 'U': n = 2; break;
        default: n = 4; break;
      }
      v.emplace_back(data_[i], n);
    }
    return v;
  }
  engine::field list[kind_count + 1];

 private:
  char data_[kind_count][64] = {};
};

struct key_case {
  const char* name;
  int order;
  char access;
  int level;
  unsigned cache_blocks;
};

class KeyTypes : public ::testing::TestWithParam<key_case> {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(GetParam().cache_blocks);
    for (int i = 0; i < kind_count; i++) table_[i] = {static_cast<std::uint8_t>(i + 1), static_cast<std::uint8_t>(kinds[i].type), {}, nullptr};
    for (int f = 0; f < 2; f++) {
      paths_[f] = folder_.file(f ? "second" : "first");
      ASSERT_EQ(h_[f].create(paths_[f], GetParam().access, GetParam().order, table_), 0);
      ASSERT_EQ(engine::csetfile(h_[f], GetParam().level), 0);
    }
  }
  void TearDown() override {
    for (handle& h : h_)
      if (engine::checkpsp(h) == 'O') engine::abandon(h);
    engine::set_cache_blocks(10);
  }
  unsigned upto(unsigned n) { return static_cast<unsigned>(random_() % n); }
  std::string text(const char* letters) {
    std::string t;
    for (unsigned n = upto(4); n > 0; n--) t += letters[upto(6)];
    return t;
  }
  std::string any_value(int kind) {
    switch (kinds[kind].field_type) {
      case 'S': return text("aB_Zb^");
      case 'B': return text("\x01\x7F\x80\xFF\xAA\x02");
      case 'L': case 'I': return bytes_of(static_cast<std::int32_t>((upto(40)) - 20) * 40000000);
      case 'H': return bytes_of(static_cast<std::int16_t>(upto(30) * 2184));
      case 'U': return bytes_of(static_cast<std::uint16_t>(upto(30) * 2184));
      case 'F': return bytes_of(static_cast<float>(upto(40)) / 3 - 6);
      case 'D': return bytes_of(static_cast<double>(upto(40)) / 3 - 6);
      default: return text("\x01\x7F\x80\xFF\xAA\x02") + std::string(6, '\x40');
    }
  }
  values any_values() {
    values v;
    for (int i = 0; i < kind_count; i++) {
      v.push_back(any_value(i));
      if (kinds[i].field_type == 'M') v.back().resize(6);
    }
    return v;
  }
  int change(int f, const values& v) {
    int result = engine::dlock(h_[f]);
    if (result) return result;
    fields changed(v);
    result = engine::dupdate(h_[f], changed.list);
    const int unlocked = engine::dunlock(h_[f]);
    return result ? result : unlocked;
  }
  int remove(int f) {
    const int locked = engine::dlock(h_[f]);
    fields list;
    return locked ? locked : engine::ddelete(h_[f], list.list);
  }
  void expect_walks(int f) {
    for (int kind = 0; kind < kind_count; kind++) {
      SCOPED_TRACE("key type " + std::to_string(kinds[kind].type));
      for (bool forward : {true, false}) {
        std::string before;
        std::size_t count = 0;
        for (int r = engine::dseq(h_[f], kind + 1, forward ? engine::seq_first : engine::seq_last); r == 0;
             r = engine::dseq(h_[f], kind + 1, forward ? engine::seq_next : engine::seq_previous)) {
          fields found;
          ASSERT_EQ(engine::dread(h_[f], found.list), 0);
          const std::string here = found.get()[static_cast<std::size_t>(kind)];
          if (count++ > 0) {
            ASSERT_LE(forward ? compare(kind, before, here) : compare(kind, here, before), 0);
          }
          before = here;
        }
        ASSERT_EQ(count, model_[f].size());
      }
    }
  }
  void expect_finds(int f) {
    const int kind = static_cast<int>(upto(kind_count));
    const auto k = static_cast<std::size_t>(kind);
    std::string value = any_value(kind);
    if (kinds[kind].field_type == 'M') value.resize(6);
    const auto ranked = [&](int wanted) {   // the nearest value on that side, if there is one
      const std::string* best = nullptr;
      for (const values& v : model_[f]) {
        if ((compare(kind, v[k], value) > 0 ? 1 : compare(kind, v[k], value) < 0 ? -1 : 0) != wanted) continue;
        if (best == nullptr || wanted * compare(kind, v[k], *best) < 0) best = &v[k];
      }
      return best;
    };
    const std::string *less = ranked(-1), *equal = ranked(0), *greater = ranked(1);
    const struct {
      int option, result;
      const std::string* found;
    } expected[] = {
        {engine::find_equal, equal ? 0 : -1, equal},
        {engine::find_greater, greater ? 0 : -1, greater},
        {engine::find_greater_equal, equal ? 0 : greater ? 2 : -1, equal ? equal : greater},
        {engine::find_less, less ? 0 : -1, less},
        {engine::find_less_equal, equal ? 0 : less ? 3 : -1, equal ? equal : less},
    };
    for (const auto& e : expected) {
      SCOPED_TRACE("key type " + std::to_string(kinds[kind].type) + ", option " + std::to_string(e.option));
      ASSERT_EQ(engine::dfind(h_[f], kind + 1, key_of(kind, value).data(), call_type(kind), e.option), e.result);
      if (e.found == nullptr) continue;
      fields found;
      ASSERT_EQ(engine::dread(h_[f], found.list), 0);
      ASSERT_EQ(compare(kind, found.get()[k], *e.found), 0);
    }
  }
  // Makes a random record current; its place in the model.
  std::size_t any_record(int f) {
    const std::size_t n = upto(static_cast<unsigned>(model_[f].size()));
    const values& wanted = model_[f][n];
    const int kind = static_cast<int>(upto(kind_count));
    int r = engine::dfind(h_[f], kind + 1, key_of(kind, wanted[static_cast<std::size_t>(kind)]).data(), call_type(kind),
                          engine::find_equal);
    for (; r == 0; r = engine::dseq(h_[f], kind + 1, engine::seq_next)) {
      fields found;
      if (engine::dread(h_[f], found.list) == 0 && found.get() == wanted) break;
    }
    EXPECT_EQ(r, 0) << "key type " << kinds[kind].type;
    return n;
  }

  scratch_folder folder_;
  std::string paths_[2];
  engine::key_entry table_[kind_count + 1] = {};
  handle h_[2];
  std::vector<values> model_[2];
  std::mt19937 random_{7};
};

TEST_P(KeyTypes, WalksAndFindsGiveWhatSortingTheValuesGives) {
  for (int round = 0; round < 160; round++) {
    SCOPED_TRACE("round " + std::to_string(round));
    const int f = round & 1;
    const unsigned choice = upto(10);
    if (choice < 6 || model_[f].empty()) {
      const values v = any_values();
      ASSERT_EQ(engine::dinsert(h_[f], fields(v).list), 0);
      model_[f].push_back(v);
    } else {
      const std::size_t n = any_record(f);
      if (choice < 8) {
        values v = any_values();
        for (std::size_t i = 0; i < v.size(); i++)
          if (upto(2)) v[i] = model_[f][n][i];
        ASSERT_EQ(change(f, v), 0);
        model_[f][n] = v;
      } else {
        ASSERT_EQ(remove(f), 0);
        model_[f].erase(model_[f].begin() + static_cast<std::ptrdiff_t>(n));
      }
    }
    expect_finds(f);
    if (round % 40 == 39) {
      expect_walks(0);
      expect_walks(1);
    }
    if (::testing::Test::HasFailure()) return;
  }
  for (int f = 0; f < 2; f++) {
    ASSERT_EQ(h_[f].close(), 0);
    check_result result = check_file(paths_[f], true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, KeyTypes,
    ::testing::Values(key_case{"LittleSharedLevel4", 1, 'S', 4, 10}, key_case{"BigSharedLevel4OneBlock", 2, 'S', 4, 1},
                      key_case{"BigSharedLevel1", 2, 'S', 1, 3}, key_case{"LittleSharedLevel0OneBlock", 1, 'S', 0, 1},
                      key_case{"LittleExclusiveLevel0", 1, 'E', 0, 10}, key_case{"BigExclusiveLevel1OneBlock", 2, 'E', 1, 1},
                      key_case{"LittleExclusiveLevel2", 1, 'E', 2, 2}, key_case{"BigExclusiveLevel3", 2, 'E', 3, 10},
                      key_case{"BigExclusiveLevel4", 2, 'E', 4, 200}, key_case{"LittleOneWriterLevel4", 1, 'D', 4, 5}),
    [](const auto& c) { return c.param.name; });

}  // namespace
}  // namespace zvrdb::test
