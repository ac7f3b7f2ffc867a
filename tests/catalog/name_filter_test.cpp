// Filters on names of change files: the places found in them, and what matches.
#include "catalog/name_filter.h"

#include <gtest/gtest.h>

#include "support/cf_names.h"

namespace zvrtest {
namespace {

using namespace zvrdb::catalog;
using zvrdb::memory::cf_position;

std::string shown(cf_position place) {
  return std::to_string(place.token) + "," + std::to_string(place.character);
}
std::string first(const CfName& filter) {
  return shown(filter_of(nullptr, filter.data()).first);
}
std::string last(const CfName& filter) {
  return shown(filter_of(nullptr, filter.data()).last);
}
std::string first(const std::string& filter) {
  return first(cf(filter));
}
std::string last(const std::string& filter) {
  return last(cf(filter));
}
bool matches(const CfName& filter, const CfName& name) {
  return mismatch(filter_of(nullptr, filter.data()), name.data()) == zvrdb::catalog::matched;
}
bool matches(const std::string& filter, const std::string& name) {
  return matches(cf(filter), cf(name));
}
int sign(int order) {
  return (order > 0) - (order < 0);
}
int before(const CfName& filter, const CfName& name, unsigned token, unsigned character) {
  const cf_position place = {static_cast<std::uint16_t>(token), static_cast<std::uint16_t>(character)};
  return sign(cmp_match_first(nullptr, filter_of(nullptr, filter.data()), name.data(), place));
}
int before(const std::string& filter, const std::string& name, unsigned token, unsigned character) {
  return before(cf(filter), cf(name), token, character);
}

const std::string ten_tokens = "0.1.2.3.4.5.6.7.8.9";
const std::string eleven_tokens = ten_tokens + ".10";

TEST(FirstWildcard, IsTheEarlierOfStarAndQuestionMark) {
  EXPECT_EQ(first("A.B*"), "1,1");
  EXPECT_EQ(first("A.B?C*"), "1,1");
  EXPECT_EQ(first("A.B*C?"), "1,1");
  EXPECT_EQ(first("A.BC.?"), "2,0");
  EXPECT_EQ(first("*.B"), "0,0");
  EXPECT_EQ(first(ten_tokens + ".XY*"), "10,2");
}

TEST(FirstWildcard, IsNowhereInAPlainName) {
  EXPECT_EQ(first("A.B"), "10,0");
  EXPECT_EQ(first(eleven_tokens), "10,0");
  EXPECT_EQ(first(""), "10,0");
}

TEST(FirstWildcard, IsNotLookedForBehindTheEndOfTheFilter) {
  CfName filter = cf("A.B.*");
  filter[1] = 255;
  EXPECT_EQ(first(filter), "10,0");
  filter[1] = 65;
  EXPECT_EQ(first(filter), "10,0") << "an offset behind the text is an absent token";
}

TEST(FirstWildcard, IsFoundInTheLastByteOfATokenWithoutNul) {
  EXPECT_EQ(first(cf_name_of({std::string(64, 'x') + "?"})), "0,64");
}

TEST(WildcardTail, BelongsToFiltersOfTenTokens) {
  EXPECT_EQ(last("A.B.*.*.*.*.*.*.*.*"), "2,0");
  EXPECT_EQ(last("A.B.C.D.E.F.G.H.I.*"), "9,0");
  EXPECT_EQ(last("*.*.*.*.*.*.*.*.*.*"), "0,0");
}

TEST(WildcardTail, BeginsInTheTokenWhoseStarIsNotTheFirstCharacter) {
  EXPECT_EQ(last("A.BC*.*.*.*.*.*.*.*"), "10,0") << "nine tokens";
  EXPECT_EQ(last("A.BC*.*.*.*.*.*.*.*.*"), "1,2");
  EXPECT_EQ(last("A.*.B*.*.*.*.*.*.*.*"), "2,1");
  EXPECT_EQ(last("A.?*.*.*.*.*.*.*.*.*"), "1,1");
}

TEST(WildcardTail, GoesThroughATokenThatOnlyBeginsWithAStar) {
  EXPECT_EQ(last("A.*X.*.*.*.*.*.*.*.*"), "1,0");
}

TEST(WildcardTail, EndsAtATokenWithoutStar) {
  EXPECT_EQ(last("*.*.*.A.*.*.*.*.*.*"), "4,0");
  EXPECT_EQ(last("*.*.*.*.*.*.*.*.*.A"), "10,0");
  EXPECT_EQ(last("*.*.*.?.*.*.*.*.*.*"), "4,0") << "a question mark is no tail";
}

TEST(WildcardTail, OfAShorterFilterIsNowhere) {
  for (const char* filter : {"*", "A.*", "A.B*", "*.*.*.*.*.*.*.*.*", ""})
    EXPECT_EQ(last(filter), "10,0") << filter;
  EXPECT_FALSE(matches("A.B*", "A.BC.D"));
}

TEST(WildcardTail, OfAFilterOfElevenTokensIsNowhere) {
  EXPECT_EQ(last("*.*.*.*.*.*.*.*.*.*.*"), "10,0");
}

TEST(WildcardTail, EndsAtADamagedOffset) {
  CfName filter = cf("A.*.*.*.*.*.*.*.*.*");
  ASSERT_EQ(last(filter), "1,0");
  filter[4] = 70;
  EXPECT_EQ(last(filter), "5,0");
  filter[10] = 70;
  EXPECT_EQ(last(filter), "5,0") << "an eleventh token that lies nowhere is none";
  filter[9] = 254;
  EXPECT_EQ(last(filter), "10,0");
}

TEST(FixedPart, ComparesWholeTokensThenCharacters) {
  EXPECT_EQ(before("A.BC*", "A.BCD", 1, 2), 0);
  EXPECT_EQ(before("A.BC*", "A.BD", 1, 2), -1);
  EXPECT_EQ(before("A.BC*", "A.BB", 1, 2), 1);
  EXPECT_EQ(before("A.BC*", "A.B", 1, 2), 1);
  EXPECT_EQ(before("A.BC*", "B.BC", 1, 2), -1);
  EXPECT_EQ(before("B.BC*", "A.BC", 1, 2), 1);
  EXPECT_EQ(before("A.BC*", "AA.BC", 1, 2), -1);
}

TEST(FixedPart, OfNoCharactersIsEqual) {
  EXPECT_EQ(before("*", "ANYTHING", 0, 0), 0);
  EXPECT_EQ(before("A.*", "A", 1, 0), 0) << "also to no token at all";
  EXPECT_EQ(before("A.*", "A.X", 1, 0), 0);
}

TEST(FixedPart, AnAbsentTokenCountsAsEmptyAtThePlaceItself) {
  EXPECT_EQ(before("A.B*", "A", 1, 1), 1);
  EXPECT_EQ(before("A", "A.B", 1, 1), -1);
  EXPECT_EQ(before("A", "A", 1, 1), 0);
  EXPECT_EQ(before("A", "A.", 1, 1), 0);
}

TEST(FixedPart, TheShorterNameIsLessBeforeThePlace) {
  EXPECT_EQ(before("A.B", "A.B.C", 10, 0), -1);
  EXPECT_EQ(before("A.B.C", "A.B", 10, 0), 1);
  EXPECT_EQ(before("A.B", "A.B", 10, 0), 0);
  EXPECT_EQ(before("A.B", "A.B.", 10, 0), -1) << "no token is less than an empty one";
}

TEST(FixedPart, DoesNotReachTheEleventhToken) {
  EXPECT_EQ(before(eleven_tokens, ten_tokens + ".OTHER", 10, 0), 0);
  EXPECT_EQ(before(eleven_tokens, ten_tokens, 10, 0), 0);
}

TEST(FixedPart, CharactersCompareAsUnsignedBytes) {
  EXPECT_EQ(before("\xC4.*", "Z", 1, 0), 1);
  EXPECT_EQ(before("\xC4*", "Z", 0, 1), 1);
}

TEST(Match, OfAPlainFilterIsTheVeryName) {
  EXPECT_TRUE(matches("A.B", "A.B"));
  EXPECT_FALSE(matches("A.B", "A.B.C"));
  EXPECT_FALSE(matches("A.B", "A"));
  EXPECT_FALSE(matches("A.B", "A.BC"));
  EXPECT_FALSE(matches("A.BC", "A.B"));
  EXPECT_FALSE(matches("A.B", "A.C"));
}

TEST(Match, AQuestionMarkIsExactlyOneCharacter) {
  EXPECT_TRUE(matches("A.?", "A.X"));
  EXPECT_FALSE(matches("A.?", "A.XY"));
  EXPECT_FALSE(matches("A.?", "A"));
  EXPECT_FALSE(matches("A.?", "A.")) << "the end of a token is not a character";
  EXPECT_TRUE(matches("A.X?Z", "A.XYZ"));
  EXPECT_FALSE(matches("A.XY?", "A.XY"));
}

TEST(Match, AStarTakesTheRestOfItsToken) {
  EXPECT_TRUE(matches("A.B*", "A.B"));
  EXPECT_TRUE(matches("A.B*", "A.BC"));
  EXPECT_FALSE(matches("A.B*", "A.C"));
  EXPECT_FALSE(matches("A.B*", "A"));
  EXPECT_FALSE(matches("A.B*", "A.BC.D"));
  EXPECT_TRUE(matches("A.B*.D", "A.BC.D"));
  EXPECT_FALSE(matches("A.B*.D", "A.BC.E"));
}

TEST(Match, WhatFollowsAStarInItsTokenIsNotLookedAt) {
  EXPECT_TRUE(matches("A.X*Y", "A.XZ"));
  EXPECT_TRUE(matches("A.X*Y", "A.X"));
  EXPECT_TRUE(matches("A.*Y", "A.Z"));
  EXPECT_FALSE(matches("A.*Y", "A")) << "only a star alone takes a missing token";
}

TEST(Match, AStarAloneTakesAMissingTokenToo) {
  EXPECT_TRUE(matches("A.*", "A"));
  EXPECT_TRUE(matches("A.*", "A."));
  EXPECT_TRUE(matches("A.*", "A.X"));
  EXPECT_TRUE(matches("A.*.*.*", "A"));
  EXPECT_FALSE(matches("A.*", "A.X.Y"));
  EXPECT_FALSE(matches("A.*.B", "A"));
  EXPECT_TRUE(matches("*.B", "A.B"));
}

TEST(Match, AWildcardCharacterOfTheNameIsComparedFirst) {
  EXPECT_TRUE(matches("A*", "A*"));
  EXPECT_TRUE(matches("A?", "A?"));
  EXPECT_FALSE(matches("A*", "A*B")) << "equal characters: the comparison goes on behind the filter's end";
  EXPECT_TRUE(matches("A*C", "A*C"));
  EXPECT_FALSE(matches("A*C", "A*D"));
  EXPECT_TRUE(matches("A*C", "A+D"));
  EXPECT_TRUE(matches("*", "*"));
  EXPECT_TRUE(matches("*", "*X")) << "a star alone is not compared";
  EXPECT_FALSE(matches("A", "*"));
}

TEST(Match, AFilterOfTenTokensStopsAtItsTail) {
  const std::string tail = ".*.*.*.*.*.*.*.*";  // tokens 2 to 9
  EXPECT_TRUE(matches("A.B*" + tail, "A.BC.D.E.F"));
  EXPECT_TRUE(matches("A.B*" + tail, "A.B"));
  EXPECT_TRUE(matches("A.B*" + tail, "A.B*C")) << "the tail comes before the compare";
  EXPECT_TRUE(matches("A.B*" + tail, "A.B.2.3.4.5.6.7.8.9.10")) << "the rest of the name is not looked at";
  EXPECT_FALSE(matches("A.B*" + tail, "A.C"));
  EXPECT_FALSE(matches("A.B*" + tail, "A"));
}

TEST(Match, ATailOfStarsAloneDoesNotTakeAnEleventhToken) {
  EXPECT_TRUE(matches("A.*.*.*.*.*.*.*.*.*", "A"));
  EXPECT_TRUE(matches("0.*.*.*.*.*.*.*.*.*", ten_tokens));
  EXPECT_FALSE(matches("0.*.*.*.*.*.*.*.*.*", eleven_tokens));
  EXPECT_TRUE(matches("0.*X.*.*.*.*.*.*.*.*", eleven_tokens))
      << "here token 1 is compared, and that is the tail";
}

TEST(Match, TheEleventhTokenOfAFilterIsNotCompared) {
  EXPECT_TRUE(matches(eleven_tokens, ten_tokens + ".OTHER"));
  EXPECT_TRUE(matches(eleven_tokens, ten_tokens + "."));
  EXPECT_FALSE(matches(eleven_tokens, ten_tokens)) << "but it must be there";
  EXPECT_TRUE(matches(ten_tokens + ".*", ten_tokens));
  EXPECT_FALSE(matches("X.1.2.3.4.5.6.7.8.9.10", eleven_tokens));
}

TEST(Match, AnOffsetBehindTheTextIsAMissingToken) {
  CfName name = cf("A.B.C");
  name[1] = 99;
  EXPECT_TRUE(matches(cf("A"), name));
  EXPECT_TRUE(matches(cf("A.*.C"), name));
  EXPECT_FALSE(matches(cf("A.*"), name)) << "there is a token where the filter has ended";
  EXPECT_FALSE(matches(cf("A.B.C"), name));
  EXPECT_FALSE(matches(cf("A.?.C"), name));
  EXPECT_TRUE(matches(name, cf("A")));
}

TEST(Match, NothingBehindTheEndMarkCounts) {
  CfName name = cf("A.B.C");
  name[1] = 255;
  EXPECT_TRUE(matches(cf("A"), name));
  EXPECT_TRUE(matches(cf("A.*"), name));
  EXPECT_FALSE(matches(cf("A.*.C"), name));
  EXPECT_TRUE(matches(name, cf("A")));
  EXPECT_FALSE(matches(name, cf("A.B.C")));
}

TEST(Match, NamesWithoutEndsAreReadToTheEndOfTheTextOnly) {
  CfName endless;
  endless.fill('x');
  std::memset(endless.data(), 0, 11);
  EXPECT_TRUE(matches(endless, endless));
  EXPECT_TRUE(matches(cf_name_of({std::string(64, 'x') + "*"}), cf_name_of({std::string(65, 'x')})));
  EXPECT_FALSE(matches(cf_name_of({std::string(65, 'x')}), cf_name_of({std::string(64, 'x')})));
  EXPECT_FALSE(matches(cf_name_of({std::string(64, 'x') + "?"}), cf_name_of({std::string(64, 'x')})));
}

TEST(Match, TheEmptyFilterTakesTheNameWithoutTokens) {
  CfName nothing{};
  std::memset(nothing.data(), 255, 11);
  EXPECT_TRUE(matches(nothing, nothing));
  EXPECT_FALSE(matches(nothing, cf("A")));
  EXPECT_TRUE(matches(cf("*"), nothing));
  EXPECT_FALSE(matches(cf("?"), nothing));
}

}  // namespace
}  // namespace zvrtest
