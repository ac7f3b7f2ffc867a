// Which filters are taken, and what a list state is made of them.
#include <algorithm>

#include "requests/requests.h"
#include "requests/requests_fixture.h"

namespace request_test {
namespace {

using zvrdb::requests::chk_filter_req;
using zvrdb::requests::invalid_filter;

class RequestFilter : public RequestsTest {
 protected:
  unsigned mask(std::uint32_t db_id, const Id& filter) {
    const bytes id = filter.of(db_id);
    return chk_filter_req(task, id.data(), db_id);
  }
  int init(std::uint32_t db_id, const Id& filter) {
    bytes state;
    return begin(db_id, filter, state);
  }
};

std::uint16_t match_length(const bytes& state) {
  return number_at<std::uint16_t>(state, offsetof(db_list_state, key_match));
}
std::uint16_t walked_index(const bytes& state) {
  return number_at<std::uint16_t>(state, offsetof(db_list_state, index_no));
}

struct Accepted {
  std::uint32_t db_id;
  std::vector<unsigned> masks;
};
const Accepted accepted[] = {
    {DB_RQR, {0, 8, 12, 14, 15}},
    {DB_RQF, {0, 16, 24, 28, 30, 31}},
    {DB_RQV, {0, 16, 24, 28, 30, 31}},
    {DB_FAN, {0, 256, 384, 400, 408, 412, 414, 415}},
    {DB_RQD, {0, 32, 48, 56, 60, 62, 63, 31}},
    {DB_RQT, {0, 64, 96, 112, 120, 124, 126, 127, 63}},
};

TEST_F(RequestFilter, EveryMaskOfEveryTypeIsTakenOrRefusedAsTold) {
  for (const Accepted& type : accepted) {
    for (unsigned wild = 0; wild < 512; ++wild) {
      if ((wild & ~type_of(type.db_id).all()) != 0) continue;
      const Id filter = Id{}.wild(wild);
      EXPECT_EQ(mask(type.db_id, filter), wild) << type.db_id;
      const bool taken = std::find(type.masks.begin(), type.masks.end(), wild) != type.masks.end();
      EXPECT_EQ(init(type.db_id, filter), taken ? DBE_OK : DBE_EMPTY_LIST)
          << type_of(type.db_id).suffix << " mask " << wild;
    }
  }
}

TEST_F(RequestFilter, PartsThatATypeHasNotAreNotLookedAt) {
  Id filter;
  filter.domain = "A*B";
  filter.target = "*A";
  EXPECT_EQ(mask(DB_RQF, filter), 0u);
  EXPECT_EQ(mask(DB_RQR, filter.wild(wild_function)), 0u);
  filter.domain = "SRV";
  EXPECT_EQ(mask(DB_RQD, filter), 0u);
  EXPECT_EQ(mask(DB_RQT, filter), invalid_filter);
}

TEST_F(RequestFilter, ANameIsWholeOrALoneStar) {
  for (const char* name : {"*A", "A*", "**", "A*B"}) {
    Id filter;
    filter.source = name;
    EXPECT_EQ(mask(DB_RQR, filter), invalid_filter) << name;
    filter = Id{};
    filter.domain = name;
    EXPECT_EQ(mask(DB_RQD, filter), invalid_filter) << name;
    EXPECT_EQ(mask(DB_RQT, filter), invalid_filter) << name;
    filter = Id{};
    filter.target = name;
    EXPECT_EQ(mask(DB_RQT, filter), invalid_filter) << name;
    EXPECT_EQ(init(DB_RQT, filter), DBE_EMPTY_LIST) << name;
  }
}

TEST_F(RequestFilter, AUserOrAFunctionMayBeAPrefix) {
  for (const char* text : {"*", "A*", "ABCDEFGHIJKLMNO*"}) {
    Id filter;
    filter.user = text;
    EXPECT_EQ(mask(DB_RQR, filter), wild_user) << text;
    filter = Id{};
    filter.function = text;
    EXPECT_EQ(mask(DB_RQF, filter), wild_function) << text;
  }
  for (const char* text : {"*A", "**", "A*B", "A**"}) {
    Id filter;
    filter.user = text;
    EXPECT_EQ(mask(DB_RQR, filter), invalid_filter) << text;
    filter = Id{};
    filter.function = text;
    EXPECT_EQ(mask(DB_RQF, filter), invalid_filter) << text;
  }
}

TEST_F(RequestFilter, AFanoutServerIsNeverInvalid) {
  Id filter;
  filter.rgn = "A*B*";
  filter.ren = "12345678";
  EXPECT_EQ(mask(DB_FAN, filter), wild_rgn);
  filter.rgn = "12345678";
  filter.ren = "1234567*";
  EXPECT_EQ(mask(DB_FAN, filter), wild_ren);
}

TEST_F(RequestFilter, NumbersAreWildWhenAllOnes) {
  Id filter;
  filter.sequence = 0xFFFFFFFEu;
  filter.recursion = 0xFFFE;
  EXPECT_EQ(mask(DB_RQR, filter), 0u);
  filter.sequence = 0xFFFF;
  EXPECT_EQ(mask(DB_RQR, filter), 0u);
}

TEST_F(RequestFilter, FieldsOfFullWidthAreReadNoFurther) {
  Id filter;
  filter.user = "ABCDEFGHIJKLMNOP";  // the source follows
  filter.source = "*";
  filter.function = "ABCDEFGHIJKLMNOP";  // the domain follows
  filter.domain = "*";
  EXPECT_EQ(mask(DB_RQD, filter), wild_source | wild_server);
  filter.source = std::string(64, 'x');
  filter.domain = std::string(64, 'x');
  filter.target = std::string(64, 'x');
  EXPECT_EQ(mask(DB_RQT, filter), 0u);
  EXPECT_EQ(init(DB_RQT, filter), DBE_EMPTY_LIST);
}

TEST_F(RequestFilter, AnotherRecordTypeHasNoFilter) {
  const bytes id = Id{}.of(DB_RQT);
  EXPECT_EQ(chk_filter_req(task, id.data(), DB_USR), invalid_filter);
}

TEST_F(RequestFilter, AUsersPrefixBindsItsBytesBehindTypeAndSource) {
  Id filter = everything();
  filter.source = "SRC";
  filter.user = "AB*";
  EXPECT_EQ(mask(DB_RQT, filter), 126u);
  bytes state;
  ASSERT_EQ(begin(DB_RQT, filter, state), DBE_OK);
  EXPECT_EQ(match_length(state), 4 + 4 + 2);
  EXPECT_EQ(number_at<std::uint32_t>(state, 0), static_cast<std::uint32_t>(DB_RQT));
  EXPECT_EQ(number_at<std::uint32_t>(state, 4), number("SRC"));
  EXPECT_EQ(text_at(state, 8, 16), "AB");
}

TEST_F(RequestFilter, EachExactPartAddsItsWidthToTheMatch) {
  struct Row {
    std::uint32_t db_id;
    unsigned wild;
    unsigned match;
  };
  const Row rows[] = {
      {DB_RQR, 15, 4},   {DB_RQR, 14, 8},   {DB_RQR, 12, 24}, {DB_RQR, 8, 28},
      {DB_RQR, 0, 32},   {DB_RQF, 16, 32},  {DB_RQF, 0, 64},  {DB_RQV, 0, 64},
      {DB_RQD, 32, 64},  {DB_RQD, 0, 68},   {DB_RQT, 64, 68}, {DB_RQT, 0, 72},
      {DB_FAN, 384, 48}, {DB_FAN, 256, 56}, {DB_FAN, 0, 64},  {DB_FAN, 400, 32},
  };
  for (const Row& row : rows) {
    bytes state;
    ASSERT_EQ(begin(row.db_id, Id{}.wild(row.wild), state), DBE_OK);
    EXPECT_EQ(match_length(state), row.match) << row.db_id << " mask " << row.wild;
    EXPECT_EQ(walked_index(state), 1);
    EXPECT_EQ(number_at<std::uint16_t>(state, offsetof(db_list_state, key_len)), 76);
    EXPECT_EQ(number_at<std::uint16_t>(state, offsetof(db_list_state, first_time)), 1);
    EXPECT_EQ(number_at<std::uint16_t>(state, offsetof(db_list_state, init_ok)), 1);
  }
}

TEST_F(RequestFilter, APrefixOfTheFanoutServerCounts) {
  Id filter;
  filter.ren = "RE*";
  bytes state;
  ASSERT_EQ(begin(DB_FAN, filter, state), DBE_OK);
  EXPECT_EQ(match_length(state), 4 + 4 + 16 + 4 + 4 + 16 + 8 + 2);
  filter.rgn = "R*";
  EXPECT_EQ(init(DB_FAN, filter), DBE_EMPTY_LIST) << "REN must be a lone star behind a wild RGN";
  filter.ren = "*";
  ASSERT_EQ(begin(DB_FAN, filter, state), DBE_OK);
  EXPECT_EQ(match_length(state), 4 + 4 + 16 + 4 + 4 + 16 + 1);
}

TEST_F(RequestFilter, BehindAWildPartTheTextsMustBeLoneStars) {
  for (const unsigned before :
       {wild_recursion, wild_recursion | wild_sequence, wild_recursion | wild_sequence | wild_user}) {
    for (const std::uint32_t db_id : {DB_RQF, DB_RQV, DB_RQD, DB_RQT, DB_FAN}) {
      Id filter = Id{}.wild(before | wild_function | wild_server | wild_target | wild_rgn | wild_ren);
      EXPECT_EQ(init(db_id, filter), DBE_OK) << db_id << " " << before;
      filter.function = "F*";
      EXPECT_EQ(init(db_id, filter), DBE_EMPTY_LIST) << db_id << " " << before;
    }
  }
  // The first wild part itself may be a prefix.
  for (const std::uint32_t db_id : {DB_RQF, DB_RQV, DB_RQD, DB_RQT, DB_FAN}) {
    Id filter = Id{}.wild(wild_server | wild_target | wild_rgn | wild_ren);
    filter.function = "F*";
    EXPECT_EQ(init(db_id, filter), DBE_OK) << db_id;
    filter = everything();
    filter.source = "SRC";
    filter.user = "U*";
    EXPECT_EQ(init(db_id, filter), DBE_OK) << db_id;
  }
}

TEST_F(RequestFilter, BehindAWildPartTheFanoutServerMustBeLoneStars) {
  for (const unsigned before :
       {wild_function, wild_function | wild_recursion, wild_function | wild_recursion | wild_sequence,
        wild_function | wild_recursion | wild_sequence | wild_user, type_of(DB_FAN).all()}) {
    Id filter = Id{}.wild(before | wild_rgn | wild_ren);
    EXPECT_EQ(init(DB_FAN, filter), DBE_OK) << before;
    filter.rgn = "R*";
    EXPECT_EQ(init(DB_FAN, filter), DBE_EMPTY_LIST) << before;
    filter.rgn = "*";
    filter.ren = "R*";
    EXPECT_EQ(init(DB_FAN, filter), DBE_EMPTY_LIST) << before;
    filter.ren = "*       ";
    EXPECT_EQ(init(DB_FAN, filter), DBE_EMPTY_LIST) << "longer than one byte";
  }
}

TEST_F(RequestFilter, AWholeListNeedsLoneStars) {
  for (const Type& type : request_types()) {
    bytes state;
    ASSERT_EQ(begin(type.db_id, everything(), state), DBE_OK);
    EXPECT_EQ(match_length(state), 4);
    EXPECT_EQ(number_at<std::uint32_t>(state, 4), 0u) << "nothing is written but the db_id";
    Id filter = everything();
    filter.user = "AB*";
    EXPECT_EQ(init(type.db_id, filter), DBE_EMPTY_LIST) << type.suffix;
    filter = everything();
    filter.function = "AB*";
    EXPECT_EQ(init(type.db_id, filter), type.db_id == DB_RQR ? DBE_OK : DBE_EMPTY_LIST) << type.suffix;
  }
}

TEST_F(RequestFilter, AListByDestinationWalksAKeyOfItsOwn) {
  Id filter = everything();
  filter.target = "T1";
  bytes state;
  ASSERT_EQ(begin(DB_RQT, filter, state), DBE_OK);
  EXPECT_EQ(walked_index(state), 3);
  EXPECT_EQ(match_length(state), 0);
  EXPECT_EQ(number_at<std::uint32_t>(state, 0), 0u) << "no record type";
  EXPECT_EQ(number_at<std::uint32_t>(state, 68), number("T1"));
  filter = everything();
  filter.domain = "SRV2";
  ASSERT_EQ(begin(DB_RQD, filter, state), DBE_OK);
  EXPECT_EQ(walked_index(state), 2);
  EXPECT_EQ(match_length(state), 0);
  EXPECT_EQ(number_at<std::uint32_t>(state, 64), number("SRV2"));
  EXPECT_EQ(number_at<std::uint32_t>(state, 68), 0u);
}

TEST_F(RequestFilter, AListByDestinationNeedsLoneStars) {
  for (const std::uint32_t db_id : {DB_RQD, DB_RQT}) {
    Id filter = everything();
    (db_id == DB_RQD ? filter.domain : filter.target) = db_id == DB_RQD ? "SRV" : "T1";
    ASSERT_EQ(init(db_id, filter), DBE_OK);
    Id prefix = filter;
    prefix.user = "A*";
    EXPECT_EQ(init(db_id, prefix), DBE_EMPTY_LIST);
    prefix = filter;
    prefix.function = "A*";
    EXPECT_EQ(init(db_id, prefix), DBE_EMPTY_LIST);
  }
}

TEST_F(RequestFilter, AnUnknownNameIsAnEmptyListAndNoOtherCode) {
  for (const Type& type : request_types()) {
    Id filter;
    filter.source = "NOBODY";
    EXPECT_EQ(init(type.db_id, filter), DBE_EMPTY_LIST) << type.suffix;
  }
  Id filter;
  filter.domain = "NOBODY";
  EXPECT_EQ(init(DB_RQD, filter), DBE_EMPTY_LIST);
  EXPECT_EQ(init(DB_RQT, filter), DBE_EMPTY_LIST);
  EXPECT_EQ(init(DB_RQD, everything().wild(0)), DBE_OK);
  filter = everything();
  filter.domain = "NOBODY";
  EXPECT_EQ(init(DB_RQD, filter), DBE_EMPTY_LIST) << "by destination";
  filter = Id{};
  filter.target = "NOBODY";
  EXPECT_EQ(init(DB_RQT, filter), DBE_EMPTY_LIST);
  filter = everything();
  filter.target = "NOBODY";
  EXPECT_EQ(init(DB_RQT, filter), DBE_EMPTY_LIST) << "by destination";
}

TEST_F(RequestFilter, AWildPartWithAnExactOneBehindItIsNotTaken) {
  EXPECT_EQ(init(DB_RQT, Id{}.wild(wild_source)), DBE_EMPTY_LIST);
  EXPECT_EQ(init(DB_RQT, Id{}.wild(wild_sequence)), DBE_EMPTY_LIST);
  EXPECT_EQ(init(DB_FAN, Id{}.wild(wild_rgn)), DBE_EMPTY_LIST);
}

TEST_F(RequestFilter, AStateThatIsTooSmallIsLeftAlone) {
  for (const Type& type : request_types()) {
    bytes filter = everything().of(type.db_id);
    bytes state(331, 0x55);
    EXPECT_EQ(db_init_list(task, type.db_id, filter.data(), state.data(), 331), DBE_LIST_TOO_SMALL);
    EXPECT_EQ(state, bytes(331, 0x55));
    EXPECT_EQ(db_init_list(task, type.db_id, filter.data(), nullptr, 0), DBE_LIST_TOO_SMALL);
  }
}

TEST_F(RequestFilter, ARefusedFilterLeavesAStateWithoutEntries) {
  ASSERT_EQ(put_request(DB_RQT, Id{}), DBE_OK);
  Id filter;
  filter.target = "NOBODY";
  bytes state;
  EXPECT_EQ(begin(DB_RQT, filter, state), DBE_EMPTY_LIST);
  EXPECT_EQ(state, bytes(list_len));
  Id found;
  EXPECT_EQ(more(DB_RQT, state, &found), DBE_END_OF_LIST);
}

TEST_F(RequestFilter, ANullFilterIsRefused) {
  bytes state(list_len);
  EXPECT_EQ(db_init_list(task, DB_RQT, nullptr, state.data(), list_len), DBE_BAD_RECORD);
}

TEST_F(RequestFilter, TheFilterIsNotWrittenTo) {
  for (const Type& type : request_types()) {
    bytes filter = everything().of(type.db_id);
    const bytes before = filter;
    bytes state(list_len);
    EXPECT_EQ(db_init_list(task, type.db_id, filter.data(), state.data(), list_len), DBE_OK);
    EXPECT_EQ(filter, before);
  }
}

}  // namespace
}  // namespace request_test
