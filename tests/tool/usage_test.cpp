#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>

#include "refusals.h"
#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::vector<std::vector<std::string>> all_commands{{"init"},
                                                         {"status"},
                                                         {"reset"},
                                                         {"put"},
                                                         {"get"},
                                                         {"del"},
                                                         {"list"},
                                                         {"rename-target"},
                                                         {"target-status"},
                                                         {"target-by-rr"},
                                                         {"server-of"},
                                                         {"import"},
                                                         {"export"},
                                                         {"trace"},
                                                         {"auth"},
                                                         {"edit"},
                                                         {"check-config"},
                                                         {"request-tree"},
                                                         {"correlator"},
                                                         {"request"},
                                                         {"request-tree", "show"},
                                                         {"request-tree", "del"},
                                                         {"last-request"},
                                                         {"correlator", "of"},
                                                         {"request", "of"},
                                                         {"matrix"},
                                                         {"migrate"},
                                                         {"journal"},
                                                         {"cms"},
                                                         {"cms", "put"},
                                                         {"cms", "get"},
                                                         {"cms", "del"},
                                                         {"cms", "del-file"},
                                                         {"cms", "by-file"},
                                                         {"cms", "by-target"},
                                                         {"cms", "import"},
                                                         {"file"},
                                                         {"file", "check"},
                                                         {"file", "dump"},
                                                         {"file", "summary"},
                                                         {"file", "hold"}};

TEST(Usage, EveryCommandTellsItsFormWithAnExample) {
  for (std::vector<std::string> command : all_commands) {
    command.push_back("--help");
    const tool_result result = run_tool(command);
    EXPECT_EQ(result.exit, 0) << command[0];
    EXPECT_THAT(result.out, HasSubstr("Example")) << command[0];
    EXPECT_EQ(result.err, "");
  }
}

TEST(Usage, TheExamplesOfACommandAreItsOwn) {
  for (std::vector<std::string> command : all_commands) {
    command.push_back("--help");
    const std::string out = run_tool(command).out;
    EXPECT_THAT(out.substr(std::min(out.find("Example"), out.size())), HasSubstr(" " + command[0]));
  }
}

TEST(Usage, TheVersionIsTold) {
  const tool_result result = run_tool({"--version"});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.out, MatchesRegex("zvradm [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Usage, AWordThatIsNoCommandIsNamed) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"frobnicate"},
                                                    {"cms", "frobnicate"},
                                                    {"file", "frobnicate", "x"},
                                                    {"target-status", "frobnicate"}}) {
    const tool_result result = run_tool(arguments);
    EXPECT_EQ(result.exit, 2) << arguments[0];
    EXPECT_THAT(result.err, HasSubstr("'frobnicate'")) << arguments[0];
  }
  EXPECT_THAT(run_tool({"cms"}).err, HasSubstr("subcommand is required"));
}

TEST(Usage, WhatIsWrongIsToldInOneLineWithTheHelpThatTellsMore) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
      {{}, "'zvradm --help' tells more"},
      {{"cms"}, "'zvradm cms --help' tells more"},
      {{"frobnicate"}, "'zvradm --help' tells which there are"},
      {{"trace", "frobnicate"}, "'zvradm trace --help' tells which there are"},
      {{"init", "--name", "A", "--ren", "B"}, "--rgn is required; 'zvradm init --help' tells more"},
      {{"journal", "of"}, "'zvradm journal --help' tells more"},
      {{"get", "trg", "A", "--tabel"}, "--tabel; 'zvradm get --help' tells more"},
      {{"cms", "put", "A", "B", "256"}, "'zvradm cms put --help' tells more"},
      {{"target-status", "age", "x"}, "'zvradm target-status age --help' tells more"}};
  for (const auto& [arguments, words] : wrong) {
    const tool_result result = run_tool(arguments);
    EXPECT_EQ(result.exit, 2) << words;
    EXPECT_THAT(result.err, MatchesRegex("zvradm: [^\n]*\n")) << words;
    EXPECT_THAT(result.err, HasSubstr(words));
  }
}

TEST(Usage, ANumberOutOfItsRangeIsToldTheRange) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"get", "cat", "A", "--len", "65536"},
        {"list", "cat", "--len", "-1"},
        {"list", "fst", "A", "--product", "65536"}})
    EXPECT_THAT(run_tool(arguments).err, HasSubstr("0 to 65535")) << arguments[0];
  EXPECT_THAT(run_tool({"cms", "put", "A", "B", "256"}).err, HasSubstr("0 to 255"));
}

TEST(Usage, WhatCannotBeAskedEndsWithTwo) {
  const scratch_base base;
  const std::vector<std::vector<std::string>> wrong{
      {},
      {"frobnicate"},
      {"get"},
      {"get", "xyz", "A"},
      {"get", "trg"},
      {"get", "trg", "A", "B"},
      {"get", "trg", "A", "--len", "65536"},
      {"get", "trg", "A", "--len", "x"},
      {"list", "trg", "--type", "NONSENSE"},
      {"list", "trg", "--type", "256"},
      {"list", "trg", "--exclude"},
      {"list", "prm", "--name", "A"},
      {"list", "trg", "--names", "--server", "A"},
      {"init", "--name", "A", "--rgn", "B"},
      {"init", "--name", "A", "--rgn", "NINECHARS", "--ren", "C"},
      {"init", "--name", std::string(64, 'x'), "--rgn", "B", "--ren", "C"},
      {"init", "--name", "A", "--rgn", "B", "--ren", "C", "--kind", "castle"},
      {"init", "--name", "A", "--rgn", "B", "--ren", "C", "--max-targets", "0"},
      {"init", "--name", " A", "--rgn", "B", "--ren", "C"},
      {"rename-target", "A"},
      {"rename-target", "A", std::string(64, 'x')},
      {"target-status", "put", "A", "123"},
      {"target-status", "age", "65536"},
      {"target-by-rr", "NODOT"},
      {"target-by-rr", "NINECHARS.A"},
      {"get", "cat"},
      {"get", "cat", "A\\B"},
      {"get", "cat", std::string(66, 'x')},
      {"get", "prd", "A"},
      {"get", "prd", "A", "65536"},
      {"get", "fst", "A", "1"},
      {"del", "fst", "A", "1", "-1"},
      {"list", "prd"},
      {"list", "fst", "A", "--product", "65536"},
      {"list", "prd", "A", "--product", "1"},
      {"list", "cat", "A"},
      {"list", "trg", "--filter", "A"},
      {"list", "cat", "--filter", "a.b.c.d.e.f.g.h.i.j.k.l"},
      {"list", "cat", "--server", "A"},
      {"cms"},
      {"cms", "put", "A", "B"},
      {"cms", "put", "A", "B", "256"},
      {"cms", "put", "A", "B", "-1"},
      {"cms", "put", "A", "B", "1", "--details", "0"},
      {"cms", "put", "A", "B", "1", "--details", std::string(66, '0')},
      {"cms", "put", std::string(65, 'x'), "B", "1"},
      {"cms", "get", "A", "B\\"},
      {"cms", "by-file", std::string(66, 'x')},
      {"export", "cfg"},
      {"import"},
      {"trace"},
      {"file", "check"},
      {"file"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const tool_result result = base.tool(arguments);
    std::string text;
    for (const std::string& word : arguments) text += word + " ";
    EXPECT_EQ(result.exit, 2) << text << result.err;
    EXPECT_EQ(result.out, "") << text;
    EXPECT_NE(result.err, "") << text;
  }
}

TEST(Usage, CodesThatTheCommonServicesAnswerHaveNamesAndSayWhatToDo) {
  for (const int code : {CO_NOT_FOUND, CO_IO_ERROR, CO_BAD_ARGUMENT, CO_NO_MEMORY, CO_FAILURE})
    EXPECT_STRNE(zvradm::code_name(static_cast<std::int16_t>(code)), "UNKNOWN") << code;
  EXPECT_THAT(zvradm::code_meaning(CO_IO_ERROR), HasSubstr("who may write"));
}

// On a full disk the message log may have no room for the reason, and of damage it may have none.
TEST(Usage, FailuresOfARecordFileAreToldWithMoreThanTheLog) {
  EXPECT_THAT(zvradm::code_meaning(DBE_IO_ERROR), HasSubstr("no room"));
  EXPECT_THAT(zvradm::code_meaning(DBE_INIT_FAILED), HasSubstr("'zvradm file check --deep'"));
}

TEST(Usage, WithoutABaseDirectoryNothingIsDone) {
  unsetenv("ORVO_PATH");
  const tool_result result = run_tool({"status"});
  EXPECT_EQ(result.exit, 2);
  EXPECT_THAT(result.err, HasSubstr("--base DIR"));
}

TEST(Usage, WithoutAnInstallationTheToolTellsHowToMakeOne) {
  const scratch_base base;
  const tool_result result = base.tool({"get", "trg", "OSLO"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("init --name"));
}

TEST(Usage, TheBaseMayStandBehindTheCommandOrInTheEnvironment) {
  const scratch_base base;
  ASSERT_EQ(base.init().exit, 0);
  EXPECT_EQ(run_tool({"get", "trg", "OSLO", "--base", base.path()}).exit, 0);
  setenv("ORVO_PATH", base.path().c_str(), 1);
  EXPECT_EQ(run_tool({"get", "trg", "OSLO"}).exit, 0);
  unsetenv("ORVO_PATH");
}

}  // namespace
