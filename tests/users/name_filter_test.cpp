// Filters of lists by name, which users, profiles and both kinds of groups have in common.
#include "users/users_fixture.h"

namespace users_test {
namespace {

struct Kind {
  const char* suffix;
  std::uint32_t db_id;
  std::uint32_t width;
};
constexpr Kind kinds[] = {{"usr", DB_USR, 16}, {"apr", DB_APR, 16}, {"tg", DB_TG, 64}, {"dtg", DB_DTG, 64}};

class NameFilter : public UsersTest, public ::testing::WithParamInterface<Kind> {
 protected:
  using Names = std::vector<std::string>;

  void put_names(const Names& all) {
    for (const std::string& name : all) {
      Bytes record(int_key_len[GetParam().db_id]);
      std::memcpy(record.data(), name.data(), name.size());
      const int rc = store_on(task, GetParam().db_id, name, record.data(), record.size());
      ASSERT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
    }
  }
  Names listed(const std::string& filter) { return list(GetParam().db_id, filter); }
  std::uint32_t state_len() const { return 256 + GetParam().width + 8; }
};

TEST_P(NameFilter, AStarAloneListsAllInTheOrderOfBytes) {
  put_names({"b", "B", "a", "ab"});
  EXPECT_EQ(listed("*"), (Names{"B", "a", "ab", "b"}));
}

TEST_P(NameFilter, AStarBehindAPrefixListsWhatBeginsWithIt) {
  put_names({"a", "ab", "abc", "ac", "b"});
  EXPECT_EQ(listed("ab*"), (Names{"ab", "abc"}));
  EXPECT_EQ(listed("a*"), (Names{"a", "ab", "abc", "ac"}));
  EXPECT_EQ(listed("x*"), Names{});
}

TEST_P(NameFilter, WhatStandsBehindTheStarDoesNotCount) {
  put_names({"ab", "ac", "b"});
  EXPECT_EQ(listed("a*c"), (Names{"ab", "ac"}));
  EXPECT_EQ(listed("**"), (Names{"ab", "ac", "b"}));
}

TEST_P(NameFilter, WithoutAStarItIsTheNameItself) {
  put_names({"a", "ab", "abc"});
  EXPECT_EQ(listed("ab"), Names{"ab"});
  EXPECT_EQ(listed("abx"), Names{});
}

TEST_P(NameFilter, AnEmptyOneAsksForTheEmptyName) {
  put_names({"a", "b"});
  EXPECT_EQ(listed(""), Names{});
  put_names({""});
  EXPECT_EQ(listed(""), Names{""});
}

TEST_P(NameFilter, NamesAndPrefixesMayFillTheWidth) {
  const std::string full(GetParam().width, 'n');
  const std::string other = full.substr(1) + "o";
  put_names({full, other, full.substr(1)});
  EXPECT_EQ(listed(full), Names{full}) << "no byte behind the width is read";
  EXPECT_EQ(listed(full.substr(1) + "*"), (Names{full.substr(1), full, other}));
  EXPECT_EQ(listed(full.substr(2) + "n*"), (Names{full.substr(1), full, other}));
  EXPECT_EQ(listed(full + "*"), Names{full});
}

TEST_P(NameFilter, AStateThatIsTooShortIsRefusedAndLeftAlone) {
  Bytes state(state_len() - 1, 0xEE);
  char filter[] = "*";
  EXPECT_EQ(db_init_list(task, GetParam().db_id, filter, state.data(), state_len() - 1), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(state, Bytes(state_len() - 1, 0xEE));
  EXPECT_EQ(db_init_list(task, GetParam().db_id, filter, state.data(), 0), DBE_LIST_TOO_SMALL);
}

TEST_P(NameFilter, AStateIsFilledFieldByField) {
  Bytes state;
  ASSERT_EQ(begin_list(GetParam().db_id, "ab*", &state), DBE_OK);
  Bytes expected(state_len());
  const auto put16 = [&](std::size_t at, std::uint32_t value) {
    expected[at] = static_cast<unsigned char>(value);
    expected[at + 1] = static_cast<unsigned char>(value >> 8);
  };
  put16(0, GetParam().db_id);
  expected[4] = 'a';
  expected[5] = 'b';
  put16(246, 4 + 2);                 // key_match
  put16(248, 1);                     // first_time
  put16(250, GetParam().width + 8);  // key_len
  put16(252, 1);                     // init_ok
  EXPECT_EQ(state, expected);
  ASSERT_EQ(begin_list(GetParam().db_id, "ab", &state), DBE_OK);
  put16(246, 4 + GetParam().width);
  EXPECT_EQ(state, expected);
}

TEST_P(NameFilter, ANullFilterIsRefusedAndItsListIsAtItsEnd) {
  Bytes state(state_len(), 0xEE), record(64);
  EXPECT_EQ(db_init_list(task, GetParam().db_id, nullptr, state.data(), state_len()), DBE_BAD_RECORD);
  EXPECT_EQ(db_get_more(task, GetParam().db_id, state.data(), record.data(), 64), DBE_END_OF_LIST);
}

TEST_P(NameFilter, AListGoesOnBehindWhatWasDeletedMeanwhile) {
  put_names({"a", "b", "c"});
  Bytes state;
  ASSERT_EQ(begin_list(GetParam().db_id, "*", &state), DBE_OK);
  Bytes record(64);
  ASSERT_EQ(db_get_more(task, GetParam().db_id, state.data(), record.data(), 64), DBE_OK);
  ASSERT_EQ(drop(GetParam().db_id, "a"), DBE_OK);
  ASSERT_EQ(drop(GetParam().db_id, "b"), DBE_OK);
  ASSERT_EQ(db_get_more(task, GetParam().db_id, state.data(), record.data(), 64), DBE_OK);
  EXPECT_EQ(record[0], 'c');
  EXPECT_EQ(db_get_more(task, GetParam().db_id, state.data(), record.data(), 64), DBE_END_OF_LIST);
}

TEST_P(NameFilter, ASpoiledStateIsAListAtItsEnd) {
  put_names({"a"});
  Bytes state, record(64);
  for (const std::size_t at : {246u, 250u}) {
    ASSERT_EQ(begin_list(GetParam().db_id, "*", &state), DBE_OK);
    state[at] = state[at + 1] = 0xFF;
    EXPECT_EQ(db_get_more(task, GetParam().db_id, state.data(), record.data(), 64), DBE_END_OF_LIST) << at;
  }
}

INSTANTIATE_TEST_SUITE_P(Of, NameFilter, ::testing::ValuesIn(kinds),
                         [](const auto& one) { return std::string(one.param.suffix); });

}  // namespace
}  // namespace users_test
