// Names of change files: their tokens, where two of them differ, and their class.
#include "memory/cf_name.h"

#include "memory/shared_tables_fixture.h"
#include "support/cf_names.h"

namespace zvrtest {
namespace {

using namespace zvrdb::memory;

std::string token_text(const CfName& name, std::uint32_t index) {
  const cf_token token = token_of(name.data(), index);
  if (!token.present) {
    EXPECT_EQ(token.length, 0u);
    return "<absent>";
  }
  return std::string(token.text, token.length);
}

// "token,character" of the first difference, which is the same seen from either side.
std::string diff(const CfName& a, const CfName& b) {
  std::uint16_t token = 77;
  std::uint16_t character = 77;
  get_name_diff(nullptr, a.data(), b.data(), &token, &character);
  std::uint16_t back_token = 77;
  std::uint16_t back_character = 77;
  get_name_diff(nullptr, b.data(), a.data(), &back_token, &back_character);
  EXPECT_EQ(token, back_token);
  EXPECT_EQ(character, back_character);
  return std::to_string(token) + "," + std::to_string(character);
}
std::string diff(const std::string& a, const std::string& b) {
  return diff(cf(a), cf(b));
}

int type_of(const CfName& name, std::uint16_t index) {
  return get_type(nullptr, name.data(), index);
}

TEST(ChangeFileNames, TokensLieWhereTheTableSays) {
  const CfName name = cf("DEB.ZLIB..FIX");
  EXPECT_EQ(token_text(name, 0), "DEB");
  EXPECT_EQ(token_text(name, 1), "ZLIB");
  EXPECT_EQ(token_text(name, 2), "") << "an empty token is a token";
  EXPECT_EQ(token_text(name, 3), "FIX");
  EXPECT_EQ(token_text(name, 4), "<absent>");
}

TEST(ChangeFileNames, TokensBehindTheEleventhAreAbsent) {
  CfName name = cf("1.2.3.4.5.6.7.8.9.10.11");
  EXPECT_EQ(token_text(name, 10), "11");
  // The text begins where a twelfth offset would stand.
  EXPECT_EQ(token_text(name, 11), "<absent>");
  EXPECT_EQ(token_text(name, 65535), "<absent>");
  EXPECT_EQ(token_text(name, 0xFFFFFFFFu), "<absent>");
}

TEST(ChangeFileNames, AnOffsetBehindTheTextIsAnAbsentToken) {
  CfName name = cf("A.B.C");
  for (const int offset : {65, 66, 128, 253, 254, 255}) {
    name[1] = static_cast<unsigned char>(offset);
    EXPECT_EQ(token_text(name, 1), "<absent>") << offset;
  }
  name[1] = 64;
  EXPECT_EQ(token_text(name, 1), "") << "the last byte of the text, a NUL";
}

TEST(ChangeFileNames, TokensBehindTheEndMarkAreAbsent) {
  CfName name = cf("A.B.C");
  name[1] = 255;
  EXPECT_EQ(token_text(name, 0), "A");
  EXPECT_EQ(token_text(name, 2), "<absent>") << "though its offset still stands there";
  name[1] = 254;
  EXPECT_EQ(token_text(name, 2), "C") << "only 255 is the end mark";
}

TEST(ChangeFileNames, ATokenWithoutNulEndsWithTheText) {
  CfName name = cf_name_of({std::string(65, 'x')});
  EXPECT_EQ(token_text(name, 0), std::string(65, 'x'));
  name[1] = 60;
  EXPECT_EQ(token_text(name, 1), "xxxxx");
  name[2] = 64;
  EXPECT_EQ(token_text(name, 2), "x");
}

TEST(ChangeFileNames, NamesDifferAtTheFirstUnequalCharacter) {
  EXPECT_EQ(diff("A.BC.D", "A.BD.D"), "1,1");
  EXPECT_EQ(diff("A", "B"), "0,0");
  EXPECT_EQ(diff("A.B.CCCC", "A.B.CCCD"), "2,3");
}

TEST(ChangeFileNames, ATokenThatEndsEarlierDiffersAtItsEnd) {
  EXPECT_EQ(diff("A.B", "A.BC"), "1,1");
  EXPECT_EQ(diff("A..C", "A.B.C"), "1,0");
}

TEST(ChangeFileNames, ANameThatEndsEarlierDiffersAtTheTokenItLacks) {
  EXPECT_EQ(diff("A.B", "A.B.C"), "2,0");
  EXPECT_EQ(diff("A.B", "A.B."), "2,0") << "an empty token is more than none";
}

TEST(ChangeFileNames, EqualNamesDifferWhereTheyEnd) {
  EXPECT_EQ(diff("A.B", "A.B"), "2,0");
  const std::string eleven = "1.2.3.4.5.6.7.8.9.10.11";
  EXPECT_EQ(diff(eleven, eleven), "11,0");
  CfName none;
  none.fill(255);
  EXPECT_EQ(diff(none, none), "0,0");
}

TEST(ChangeFileNames, ADamagedOffsetIsATokenThatTheNameLacks) {
  CfName damaged = cf("A.B.C");
  damaged[1] = 200;
  EXPECT_EQ(diff(damaged, cf("A.B.C")), "1,0");
  EXPECT_EQ(diff(damaged, damaged), "1,0");
  // No offset ends this name, no NUL its tokens.
  CfName endless;
  endless.fill('x');
  for (int i = 0; i < 11; ++i) endless[static_cast<std::size_t>(i)] = static_cast<unsigned char>(i);
  EXPECT_EQ(diff(endless, endless), "11,0");
}

TEST(ChangeFileNames, TheSamePlaceInTheTextCanBeAnotherToken) {
  const CfName two = cf("A.B");
  CfName one = two;
  one[1] = 255;
  ASSERT_EQ(std::memcmp(one.data() + 11, two.data() + 11, 65), 0);
  EXPECT_EQ(diff(one, two), "1,0");
}

TEST(ChangeFileNames, TheEncodedDifferenceIsTokenTimesSixteenPlusCharacter) {
  EXPECT_EQ(encoded_name_diff(nullptr, cf("A.BC").data(), cf("A.BD").data()), 17);
  EXPECT_EQ(encoded_name_diff(nullptr, cf("A.B").data(), cf("A.B.C").data()), 32);
  const CfName eleven = cf("1.2.3.4.5.6.7.8.9.10.11");
  EXPECT_EQ(encoded_name_diff(nullptr, eleven.data(), eleven.data()), 176);
}

TEST(ChangeFileNames, AFarCharacterSpillsIntoTheTokenOfTheEncodedDifference) {
  const std::string far(20, 'f');
  EXPECT_EQ(encoded_name_diff(nullptr, cf("A." + far + "1").data(), cf("A." + far + "2").data()), 36)
      << "as token 2, character 4";
}

TEST(ChangeFileNames, TheFarthestDifferencesFitEightBits) {
  const std::string nine = "........";  // eight empty tokens and the place of the ninth
  const std::string long_token(40, 'f');
  EXPECT_EQ(
      encoded_name_diff(nullptr, cf(nine + long_token + "1").data(), cf(nine + long_token + "2").data()),
      168);
  // No sound name reaches farther than its last byte but one, in the last token.
  const std::string eleven = "..........";
  const std::string longest(53, 'f');
  EXPECT_EQ(encoded_name_diff(nullptr, cf(eleven + longest).data(), cf(eleven + longest + "2").data()), 213);
  // Tokens of a damaged name overlap, and its last one may be all of the text.
  CfName a;
  a.fill('f');
  std::memset(a.data(), 0, 11);
  CfName b = a;
  b[10] = 1;
  EXPECT_EQ(diff(a, b), "10,64");
  EXPECT_EQ(encoded_name_diff(nullptr, a.data(), b.data()), 224);
}

TEST(ChangeFileNames, TheTypeIsTheTokenAtTheIndex) {
  const CfName name = cf("A.FIX.UPD.REF.OTHER");
  EXPECT_EQ(type_of(name, 1), 0);
  EXPECT_EQ(type_of(name, 2), 1);
  EXPECT_EQ(type_of(name, 3), 2);
  EXPECT_EQ(type_of(name, 4), 3);
  EXPECT_EQ(type_of(name, 0), 3);
}

TEST(ChangeFileNames, OnlyTheWholeTokenIsAType) {
  for (const char* text : {"FI", "FIXX", "fix", "REFRESH", "", "UP"})
    EXPECT_EQ(type_of(cf(text), 0), 3) << text;
}

TEST(ChangeFileNames, NoTokenHasNoType) {
  const CfName name = cf("FIX.UPD");
  for (const int index : {2, 10, 11, 12, 253, 254, 255, 256, 65535})
    EXPECT_EQ(type_of(name, static_cast<std::uint16_t>(index)), 3) << index;
  CfName damaged = name;
  for (const int offset : {65, 253, 254, 255}) {
    damaged[0] = static_cast<unsigned char>(offset);
    EXPECT_EQ(type_of(damaged, 0), 3) << offset;
  }
  EXPECT_EQ(get_type(nullptr, nullptr, 0), 3);
}

TEST(ChangeFileNames, TheTypeIsReadAtItsOffsetWhateverStandsBefore) {
  CfName name = cf("A.B.REF");
  name[1] = 255;
  EXPECT_EQ(type_of(name, 2), 2);
}

TEST(ChangeFileNames, ATypeAtTheVeryEndOfTheTextNeedsNoNul) {
  CfName name = cf("A");
  std::memcpy(name.data() + 11 + 62, "FIX", 3);
  name[1] = 62;
  EXPECT_EQ(type_of(name, 1), 0);
}

}  // namespace
}  // namespace zvrtest
