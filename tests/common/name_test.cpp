// Structured names, request identifiers, characters, collation.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "common/agent.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::Agent;
using zvrdb::test::TempInstallation;

using Name = std::array<unsigned char, 76>;

Name name_of(const std::vector<std::string>& tokens) {
  Name name;
  name.fill(0);
  for (size_t i = 0; i < 11; ++i) name[i] = 255;
  size_t offset = 0;
  for (size_t i = 0; i < tokens.size(); ++i) {
    name[i] = static_cast<unsigned char>(offset);
    memcpy(name.data() + 11 + offset, tokens[i].c_str(), tokens[i].size() + 1);
    offset += tokens[i].size() + 1;
  }
  return name;
}

std::string dotted(const Name& name) {
  char out[CO_DOTTED_NAME + 1];
  out[CO_DOTTED_NAME] = 0x55;
  co_glob_to_dot(nullptr, out, name.data());
  EXPECT_EQ(out[CO_DOTTED_NAME], 0x55);
  EXPECT_LT(strnlen(out, CO_DOTTED_NAME), CO_DOTTED_NAME);
  return out;
}

TEST(Names, TokensAreJoinedByDots) {
  EXPECT_EQ(dotted(name_of({"PROD", "REF", "1"})), "PROD.REF.1");
  EXPECT_EQ(dotted(name_of({"A"})), "A");
  EXPECT_EQ(dotted(name_of({})), "");
  EXPECT_EQ(dotted(name_of({"A", "", "B"})), "A..B");
  EXPECT_EQ(dotted(name_of({"V1.2", "x"})), "V1\\.2.x");
  EXPECT_EQ(dotted(name_of({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"})),
            "1.2.3.4.5.6.7.8.9.10.11");
}

TEST(Names, TheLongestNamesFit) {
  EXPECT_EQ(dotted(name_of({std::string(64, '.')})).size(), 128u);
  Name unterminated;
  unterminated.fill('.');
  unterminated[0] = 0;
  unterminated[1] = 255;
  EXPECT_EQ(dotted(unterminated).size(), 130u);
}

TEST(Names, DamagedNamesStayInTheirBuffers) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 20000; ++round) {
    Name name;
    for (unsigned char& byte : name)
      byte = static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 66);
    dotted(name);
    const uint8_t token = co_find_subtree(nullptr, name.data());
    EXPECT_TRUE(token == 255 || token < 11);
  }
}

TEST(Names, TheSubtreeIsTheFirstTokenOfItsKind) {
  EXPECT_EQ(co_find_subtree(nullptr, name_of({"A", "REF", "UPD"}).data()), 1);
  EXPECT_EQ(co_find_subtree(nullptr, name_of({"UPD"}).data()), 0);
  EXPECT_EQ(co_find_subtree(nullptr, name_of({"A", "B", "FIX", "9"}).data()), 2);
  EXPECT_EQ(co_find_subtree(nullptr, name_of({"A", "REFX", "ref", "RE"}).data()), 255);
  EXPECT_EQ(co_find_subtree(nullptr, name_of({}).data()), 255);
  EXPECT_EQ(co_find_subtree(nullptr, nullptr), 255);
  Name cut = name_of({"A"});
  cut[0] = 62;
  memcpy(cut.data() + 11 + 62, "REF", 3);  // ends with the name, no NUL
  EXPECT_EQ(co_find_subtree(nullptr, cut.data()), 0);
}

TEST(Names, AnOffsetBeyondTheTextIsNoTokenAndTheEndMarkEndsTheName) {
  Name name = name_of({"A", "B", "REF"});
  name[1] = 65;
  EXPECT_EQ(co_find_subtree(nullptr, name.data()), 2);
  EXPECT_EQ(dotted(name), "A.REF");
  name[1] = 254;
  EXPECT_EQ(co_find_subtree(nullptr, name.data()), 2);
  name[0] = 254;
  EXPECT_EQ(dotted(name), "REF");
  name[1] = 255;
  EXPECT_EQ(co_find_subtree(nullptr, name.data()), 255);
  EXPECT_EQ(dotted(name), "");
  // Eleven tokens have no end mark behind them; the last one counts.
  Name full = name_of({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "FIX"});
  EXPECT_EQ(co_find_subtree(nullptr, full.data()), 10);
  full[10] = 64;  // the last byte of the text, a NUL
  EXPECT_EQ(co_find_subtree(nullptr, full.data()), 255);
}

TEST(Names, ARequestIdentifierIsDomainUserNumbersFunction) {
  char key[104] = {};
  memcpy(key, "USER", 4);
  memcpy(key + 16, "SERVER1", 7);
  const uint32_t sequence = 4000000000u;
  const uint16_t recursion = 65535;
  memcpy(key + 80, &sequence, 4);
  memcpy(key + 84, &recursion, 2);
  memcpy(key + 88, "INSTALL", 7);
  char out[CO_REQUEST_TEXT];
  co_bld_reqid(nullptr, key, out);
  EXPECT_STREQ(out, "SERVER1.USER.4000000000.65535.INSTALL");
  memset(key, 'x', 80);
  memset(key + 88, 'y', 16);
  co_bld_reqid(nullptr, key, out);
  EXPECT_EQ(strlen(out), 64u + 1 + 16 + 1 + 10 + 1 + 5 + 1 + 16);
}

TEST(Names, BlanksAtTheEndAreStripped) {
  char text[] = "  a b \t\r\n";
  co_strip_trailing_blanks(nullptr, text);
  EXPECT_STREQ(text, "  a b");
  char blanks[] = "   ";
  co_strip_trailing_blanks(nullptr, blanks);
  EXPECT_STREQ(blanks, "");
}

TEST(Names, StepsGoByCharactersOfTheInstallation) {
  setenv("LC_ALL", "C.UTF-8", 1);
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  unsetenv("LC_ALL");
  ASSERT_NE(task, nullptr);
  EXPECT_STREQ(co_collation_name(task), "C.UTF-8");
  const char* text = "a\xC3\xA4z";
  EXPECT_EQ(co_mblen(task, text), 1);
  EXPECT_EQ(co_mblen(task, text + 1), 2);
  EXPECT_EQ(co_next_char(task, text + 1), text + 3);
  EXPECT_EQ(co_prev_char(task, text, text + 3), text + 1);
  EXPECT_EQ(co_prev_char(task, text, text + 1), text);
  EXPECT_EQ(co_prev_char(task, text, text), text);
  EXPECT_EQ(co_mblen(task, ""), 0);
  EXPECT_EQ(co_next_char(task, text + 4), text + 4);
  const char* cut = "\xC3";  // the first half of a character
  EXPECT_EQ(co_mblen(task, cut), 1);
  for (const char* none :
       {"\x80", "\xC1\x80", "\xE0\x9F\x80", "\xED\xA0\x80", "\xF0\x8F\x80\x80", "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80", "\xE2\x82", "\xF0\x90\x80", "\xC3z", "\xFF"})
    EXPECT_EQ(co_mblen(task, none), 1);
  EXPECT_EQ(co_mblen(task, "\xC2\x80"), 2);
  EXPECT_EQ(co_mblen(task, "\xE0\xA0\x80"), 3);
  EXPECT_EQ(co_mblen(task, "\xE2\x82\xAC"), 3);
  EXPECT_EQ(co_mblen(task, "\xED\x9F\xBF"), 3);
  EXPECT_EQ(co_mblen(task, "\xF0\x90\x80\x80"), 4);
  EXPECT_EQ(co_mblen(task, "\xF4\x8F\xBF\xBF"), 4);
  EXPECT_LT(co_collate(task, "B", "a"), 0) << "the order is that of the bytes";
  EXPECT_LT(co_collate(task, "\xEF\xBF\xBD", "\xF0\x90\x80\x80"), 0);
  coi_term_task(task, 0);
}

TEST(Collation, IsFixedWhenTheSharedStateIsMade) {
  setenv("LC_ALL", "C.UTF-8", 1);
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  setenv("LC_ALL", "C", 1);
  Agent agent([](Agent&) {
    void* own = co_init_task("other", nullptr, 1);
    return strcmp(co_collation_name(own), "C.UTF-8") == 0 && co_mblen(own, "\xC3\xA4") == 2 ? 0 : 1;
  });
  EXPECT_EQ(agent.result(), 0);
  unsetenv("LC_ALL");
  coi_term_task(task, 0);
}

// A locale that sorts the printing characters from '~' down to '!', for this test alone.
bool make_reversed_locale(const std::string& folder, const std::string& name) {
  std::ofstream charmap(folder + "/charmap");
  charmap << "<code_set_name> SCRATCH\n<comment_char> %\n<escape_char> /\n<mb_cur_min> 1\n<mb_cur_max> 1\n"
          << "CHARMAP\n<U0000>..<U007F> /x00 ASCII\nEND CHARMAP\n";
  std::ofstream source(folder + "/source");
  source << "comment_char %\nescape_char /\n"
         << "LC_CTYPE\nupper <U0041>..<U005A>\nlower <U0061>..<U007A>\nEND LC_CTYPE\n"
         << "LC_COLLATE\norder_start forward\n";
  for (int c = '~'; c > ' '; --c) {
    char line[16];
    snprintf(line, sizeof line, "<U%04X>\n", static_cast<unsigned>(c));
    source << line;
  }
  source << "UNDEFINED\norder_end\nEND LC_COLLATE\n";
  charmap.close();
  source.close();
  const std::string command = "localedef -c --no-archive -i " + folder + "/source -f " + folder +
                              "/charmap " + folder + "/" + name + " >/dev/null 2>&1";
  (void)!system(command.c_str());  // it complains of the categories that are not there
  return std::filesystem::exists(folder + "/" + name + "/LC_COLLATE");
}

// 0 when this process sorts by that locale, whatever its own choice is.
int sort_reversed(const char* own_choice, const std::string& locale_path) {
  setenv("LOCPATH", locale_path.c_str(), 1);
  setenv("LC_ALL", own_choice, 1);
  setlocale(LC_ALL, "");
  void* task = co_init_task("sorter", nullptr, 1);
  if (task == nullptr || strcmp(co_collation_name(task), "zz_ZZ") != 0) return 1;
  std::vector<std::string> names = {"ALPHA", "beta", "ALPHABET", "Z", "_9", "beta1"};
  std::sort(names.begin(), names.end(), [task](const std::string& a, const std::string& b) {
    return co_collate(task, a.c_str(), b.c_str()) < 0;
  });
  if (names != std::vector<std::string>{"beta", "beta1", "_9", "Z", "ALPHA", "ALPHABET"}) return 2;
  if (co_collate(task, "Z", "Z") != 0) return 3;
  coi_term_task(task, 0);
  return 0;
}

TEST(Collation, TheOrderOfALocaleIsThatOfEveryProcess) {
  TempInstallation installation;
  const std::string& path = installation.base();
  if (!make_reversed_locale(path, "zz_ZZ")) GTEST_SKIP() << "localedef makes no locale here";
  // The first one makes the shared state, and so chooses for all.
  for (const char* own_choice : {"zz_ZZ", "C", "C.UTF-8", ""}) {
    Agent agent([&](Agent&) { return sort_reversed(own_choice, path); });
    EXPECT_EQ(agent.result(), 0) << own_choice;
  }
  // Whoever does not have that order cannot work with what was sorted by it.
  EXPECT_EQ(co_init_task("stranger", nullptr, 1), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("zz_ZZ"), std::string::npos) << co_init_error();
}

TEST(Collation, WhatIsNotAvailableIsC) {
  for (const char* name : {"xx_YY.nowhere", "C", "POSIX", "", "/tmp/evil",
                           "a_name_of_a_locale_that_is_much_longer_than_what_the_shared_state_can_keep"}) {
    setenv("LC_ALL", name, 1);
    unsetenv("LC_COLLATE");
    unsetenv("LANG");
    TempInstallation installation;
    void* task = co_init_task("t", nullptr, 1);
    ASSERT_NE(task, nullptr);
    EXPECT_STREQ(co_collation_name(task), "C") << name;
    EXPECT_LT(co_collate(task, "B", "a"), 0);
    EXPECT_EQ(co_collate(task, "a", "a"), 0);
    EXPECT_GT(co_collate(task, "\xC3\xA4", "z"), 0);
    coi_term_task(task, 0);
  }
  unsetenv("LC_ALL");
}

TEST(Collation, AnOrderThatThisSystemDoesNotHaveIsRefused) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  strcpy(const_cast<char*>(co_collation_name(task)), "xx_YY.nowhere");
  coi_term_task(task, 0);
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("xx_YY.nowhere"), std::string::npos);
}

}  // namespace
