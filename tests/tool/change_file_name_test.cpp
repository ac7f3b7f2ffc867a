#include "change_file_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "record_json.h"

namespace {

using namespace zvradm;
using testing::ElementsAre;
using testing::HasSubstr;

std::string fault_of(const std::string& text) {
  try {
    (void)parse_change_file_name(text);
  } catch (const name_fault& fault) {
    return fault.what();
  }
  return "no fault";
}

std::string json_fault_of(const char* text) {
  try {
    (void)change_file_from_json(json::parse(text));
  } catch (const name_fault& fault) {
    return fault.what();
  }
  return "no fault";
}

TEST(ChangeFileName, TokensAreLaidOutOneBehindTheOther) {
  const db_cf_name name = parse_change_file_name("DEB.FIX.1");
  EXPECT_THAT(name.token, ElementsAre(0, 4, 8, 255, 255, 255, 255, 255, 255, 255, 255));
  EXPECT_EQ(std::memcmp(name.text, "DEB\0FIX\0" "1\0", 11), 0);
  for (std::size_t i = 10; i < sizeof name.text; ++i) EXPECT_EQ(name.text[i], 0) << i;
}

TEST(ChangeFileName, ADotInsideATokenIsWrittenWithABackslash) {
  const db_cf_name name = parse_change_file_name(R"(libc6.2\.36-9\\x)");
  EXPECT_THAT(tokens_of(name), ElementsAre("libc6", R"(2.36-9\x)"));
  EXPECT_EQ(change_file_text(name), R"(libc6.2\.36-9\\x)");
}

TEST(ChangeFileName, ABackslashBeforeAnythingElseIsTold) {
  EXPECT_THAT(fault_of(R"(A.B\C)"), HasSubstr("stands before neither"));
  EXPECT_THAT(fault_of(R"(A.B\)"), HasSubstr("stands before neither"));
}

TEST(ChangeFileName, ATokenMayBeEmptyButNotTheWholeText) {
  EXPECT_THAT(tokens_of(parse_change_file_name("A..B.")), ElementsAre("A", "", "B", ""));
  EXPECT_EQ(change_file_text(parse_change_file_name("A..B.")), "A..B.");
  EXPECT_EQ(fault_of(""), "the name of a change file is empty");
}

TEST(ChangeFileName, SixtyFiveBytesFitAndOneMoreIsTold) {
  const std::string most(64, 'x');
  EXPECT_EQ(change_file_text(parse_change_file_name(most)), most);
  EXPECT_EQ(fault_of(most + "y"), "change file \"" + most +
                                      "y\" takes 66 bytes, at most 65 (each token its length and one more)");
  EXPECT_THAT(fault_of(std::string(61, 'x') + ".a.b"), HasSubstr("takes 66 bytes"));
  EXPECT_EQ(fault_of(std::string(60, 'x') + ".a.b"), "no fault");
}

TEST(ChangeFileName, ElevenTokensFitAndOneMoreIsTold) {
  EXPECT_EQ(change_file_text(parse_change_file_name("a.b.c.d.e.f.g.h.i.j.k")), "a.b.c.d.e.f.g.h.i.j.k");
  EXPECT_EQ(fault_of("a.b.c.d.e.f.g.h.i.j.k.l"),
            "change file \"a.b.c.d.e.f.g.h.i.j.k.l\" has 12 tokens, at most 11");
}

TEST(ChangeFileName, InJsonItIsTheListOfTokens) {
  const db_cf_name name = change_file_from_json(json::parse(R"(["DEB","a.b","FIX"])"));
  EXPECT_EQ(change_file_text(name), R"(DEB.a\.b.FIX)");
  EXPECT_EQ(json_line(change_file_json(name)), R"(["DEB","a.b","FIX"])");
}

TEST(ChangeFileName, ATokenThatIsNotUtf8IsHexInJson) {
  const db_cf_name name = parse_change_file_name("A.\xFF");
  EXPECT_EQ(json_line(change_file_json(name)), R"(["A",{"hex":"ff"}])");
  const db_cf_name back = change_file_from_json(change_file_json(name));
  EXPECT_EQ(std::memcmp(&name, &back, sizeof name), 0);
}

TEST(ChangeFileName, AnythingElseInJsonIsTold) {
  EXPECT_THAT(json_fault_of(R"("A.B")"), HasSubstr("list of its tokens"));
  EXPECT_THAT(json_fault_of("[]"), HasSubstr("at least one token"));
  EXPECT_THAT(json_fault_of("[1]"), HasSubstr("must be text"));
  EXPECT_THAT(json_fault_of(R"(["A\u0000B"])"), HasSubstr("zero byte"));
  EXPECT_THAT(json_fault_of(R"({"hex":"00"})"), HasSubstr("152 hexadecimal digits"));
}

TEST(ChangeFileName, ANameThatItsTokensDoNotGiveIsToldByItsBytes) {
  db_cf_name gap = parse_change_file_name("A.B");
  std::memcpy(gap.text, "A\0x\0B", 6);
  gap.token[1] = 4;
  db_cf_name none{};
  std::memset(none.token, 255, sizeof none.token);
  db_cf_name outside = parse_change_file_name("A.B");
  outside.token[1] = 65;
  for (const db_cf_name& name : {gap, none, outside, db_cf_name{}}) {
    const std::string text = change_file_text(name);
    EXPECT_EQ(text.substr(0, 2), "\\x");
    const db_cf_name from_text = parse_change_file_name(text);
    EXPECT_EQ(std::memcmp(&from_text, &name, sizeof name), 0);
    const db_cf_name from_json = change_file_from_json(change_file_json(name));
    EXPECT_EQ(std::memcmp(&from_json, &name, sizeof name), 0);
  }
}

TEST(ChangeFileName, TokensWithoutAZeroByteEndWithTheText) {
  db_cf_name name{};
  std::memset(name.token, 255, sizeof name.token);
  name.token[0] = 0;
  std::memset(name.text, 'x', sizeof name.text);
  EXPECT_THAT(tokens_of(name), ElementsAre(std::string(65, 'x')));
  EXPECT_FALSE(is_plain_name(name));
}

}  // namespace
