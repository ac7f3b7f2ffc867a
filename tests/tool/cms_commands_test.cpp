// CM status: pairs, lists both ways, import.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrdb/zvrdb.h>

#include <csignal>

#include "session.h"
#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;

class CmsCommands : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(base.init().exit, 0);
    const tool_result filled = base.tool({"import", "-"}, R"({"type":"trg","trg_name":"BERGEN","trg_type":34})" "\n"
                                                          R"({"type":"trg","trg_name":"REMOTE","trg_type":130})" "\n"
                                                          R"({"type":"cat","cf_name":["A","FIX","1"]})" "\n"
                                                          R"({"type":"cat","cf_name":["A","REF","1"],"cf_flags":32})" "\n"
                                                          R"({"type":"cat","cf_name":["B"]})" "\n");
    ASSERT_EQ(filled.exit, 0) << filled.err;
  }
  tool_result cms(std::vector<std::string> arguments, const std::string& in = "") {
    arguments.insert(arguments.begin(), "cms");
    return base.tool(arguments, in);
  }
  scratch_base base;
};

TEST_F(CmsCommands, APairIsStoredReplacedReadAndDeleted) {
  EXPECT_EQ(cms({"put", "OSLO", "B", "5", "--details", "00ff10"}).out, "{\"rc\":0,\"code\":\"DBE_OK\"}\n");
  EXPECT_EQ(cms({"get", "OSLO", "B"}).out, R"({"trg_name":"OSLO","cf_name":["B"],"cm_status":5,"cm_details":"00ff10"})" "\n");
  EXPECT_EQ(cms({"put", "OSLO", "B", "6"}).out, "{\"rc\":8196,\"code\":\"DBE_RECORD_REPLACED\"}\n");
  EXPECT_EQ(cms({"get", "OSLO", "B"}).out, R"({"trg_name":"OSLO","cf_name":["B"],"cm_status":6,"cm_details":""})" "\n");
  EXPECT_THAT(cms({"get", "OSLO", "B", "--table"}).out, HasSubstr("cm_status"));
  EXPECT_EQ(cms({"del", "OSLO", "B"}).exit, 0);
  EXPECT_THAT(cms({"get", "OSLO", "B"}).err, HasSubstr("cms get \"OSLO\" \"B\": DBE_NOT_FOUND (8194)"));
  EXPECT_THAT(cms({"del", "OSLO", "B"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
}

TEST_F(CmsCommands, UnknownNamesAreRefused) {
  EXPECT_THAT(cms({"put", "NOBODY", "B", "5"}).err, HasSubstr("DBE_BAD_CMS_KEY (8209)"));
  EXPECT_THAT(cms({"put", "OSLO", "NOTHING", "5"}).err, HasSubstr("DBE_BAD_CMS_KEY (8209)"));
  EXPECT_EQ(cms({"get", "OSLO", "NOTHING"}).exit, 1);
  EXPECT_EQ(cms({"by-file", "NOTHING"}).exit, 1);
  EXPECT_THAT(cms({"by-target", "NOBODY"}).err, HasSubstr("DBE_NO_TARGET (8200)"));
  EXPECT_THAT(cms({"del-file", "NOTHING"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
}

TEST_F(CmsCommands, TheGenericCommandsKnowStatusToo) {
  ASSERT_EQ(base.tool({"put", "cms"}, R"({"trg_name":"OSLO","cf_name":["B"],"cm_status":5,"cm_details":"01"})").exit, 0);
  EXPECT_EQ(base.tool({"get", "cms", "OSLO", "B"}).json()["cm_status"], 5);
  ASSERT_EQ(base.tool({"put", "cms", "--update"}, R"({"trg_name":"OSLO","cf_name":["B"],"cm_status":6})").exit, 0);
  EXPECT_EQ(base.tool({"get", "cms", "OSLO", "B"}).json()["cm_details"], "01");
  ASSERT_EQ(base.tool({"del", "cms", "OSLO", "B"}).exit, 0);
}

TEST_F(CmsCommands, ADefaultStatusIsNotWhatAnUpdateKeeps) {
  const tool_result result =
      base.tool({"put", "cms", "--update"}, R"({"trg_name":"OSLO","cf_name":["A","REF","1"],"cm_status":6})");
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.json()["rc"], 8194);
}

TEST_F(CmsCommands, TheDefaultStatusIsMarked) {
  EXPECT_EQ(cms({"get", "OSLO", "A.REF.1"}).out,
            R"({"trg_name":"OSLO","cf_name":["A","REF","1"],"cm_status":128,"default":true,"cf_type":"REF"})" "\n");
  EXPECT_EQ(cms({"get", "REMOTE", "A.REF.1"}).exit, 1);
  EXPECT_EQ(cms({"get", "OSLO", "A.FIX.1"}).exit, 1);
}

TEST_F(CmsCommands, AStored128IsNotTakenForTheDefault) {
  ASSERT_EQ(cms({"put", "OSLO", "A.REF.1", "128"}).exit, 0);
  EXPECT_EQ(cms({"get", "OSLO", "A.REF.1"}).json()["cm_details"], "");
  EXPECT_THAT(cms({"by-file", "A.REF.1"}).lines(),
              ElementsAre(R"({"trg_name":"BERGEN","cm_status":128,"default":true})", R"({"trg_name":"OSLO","cm_status":128})"));
}

TEST_F(CmsCommands, StatusIsListedBothWays) {
  cms({"put", "OSLO", "B", "5"});
  cms({"put", "OSLO", "A.FIX.1", "6"});
  cms({"put", "BERGEN", "B", "7"});
  EXPECT_THAT(cms({"by-file", "B"}).lines(),
              ElementsAre(R"({"trg_name":"BERGEN","cm_status":7})", R"({"trg_name":"OSLO","cm_status":5})"));
  EXPECT_THAT(cms({"by-target", "OSLO"}).lines(),
              ElementsAre(R"({"cf_name":["A","FIX","1"],"cm_status":6})", R"({"cf_name":["B"],"cm_status":5})"));
  EXPECT_EQ(cms({"by-target", "REMOTE"}).out, "");
  EXPECT_EQ(cms({"by-target", "REMOTE"}).exit, 0);
  EXPECT_THAT(cms({"by-file", "A.REF.1", "--table"}).out, HasSubstr("default"));
  EXPECT_THAT(cms({"by-target", "OSLO", "--table"}).out, HasSubstr("A.FIX.1"));
}

TEST_F(CmsCommands, AChangeFileWithStatusIsDeletedInTwoSteps) {
  cms({"put", "OSLO", "B", "5"});
  cms({"put", "BERGEN", "B", "7"});
  const tool_result refused = base.tool({"del", "cat", "B"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err, HasSubstr("DBE_CMS_EXISTS (8212)"));
  EXPECT_THAT(refused.err, HasSubstr("cms del-file"));
  ASSERT_EQ(cms({"del-file", "B"}).exit, 0);
  EXPECT_EQ(cms({"by-file", "B"}).out, "");
  EXPECT_EQ(cms({"by-target", "BERGEN"}).out, "");
  EXPECT_EQ(base.tool({"del", "cat", "B"}).exit, 0);
}

TEST_F(CmsCommands, ADeletedTargetLeavesNoStatusWhetherItIsLocalOrNot) {
  for (const char* name : {"BERGEN", "REMOTE"}) {
    ASSERT_EQ(cms({"put", name, "B", "7"}).exit, 0);
    ASSERT_EQ(base.tool({"del", "trg", name}).exit, 0) << name;
    EXPECT_EQ(cms({"by-file", "B"}).out, "") << name;
  }
  EXPECT_EQ(base.tool({"del", "cat", "B"}).exit, 0);
}

// As a program that does not know of it leaves a target that is not local.
TEST_F(CmsCommands, StatusOfATargetThatIsGoneIsToldByItsNumber) {
  ASSERT_EQ(cms({"put", "REMOTE", "B", "7"}).exit, 0);
  {
    const zvradm::session other(base.path());
    const void* const keys[] = {"REMOTE"};
    ASSERT_EQ(db_del(other.task(), DB_TRG, 1, keys), DBE_OK);
  }
  EXPECT_EQ(cms({"by-file", "B"}).out, "{\"trg_number\":3,\"cm_status\":7}\n");
  EXPECT_THAT(cms({"by-file", "B", "--table"}).out, HasSubstr("(number 3)"));
  EXPECT_EQ(base.tool({"del", "cat", "B"}).exit, 1);
  ASSERT_EQ(cms({"del-file", "B"}).exit, 0);
  EXPECT_EQ(base.tool({"del", "cat", "B"}).exit, 0);
}

// With many pairs the list areas grow, and the records are of many pieces.
TEST_F(CmsCommands, ListsAndExportsGrowWithTheirRecords) {
  constexpr int all = 1000;
  std::string lines;
  for (int i = 0; i < all; ++i) {
    const std::string name = "T" + std::to_string(1000 + i);
    lines += "{\"type\":\"trg\",\"trg_name\":\"" + name + "\",\"trg_type\":34}\n";
    lines += "{\"type\":\"cms\",\"trg_name\":\"" + name + "\",\"cf_name\":[\"B\"],\"cm_status\":1}\n";
  }
  const tool_result imported = base.tool({"import", "-"}, lines);
  ASSERT_EQ(imported.exit, 0) << imported.err;
  EXPECT_EQ(cms({"by-file", "B"}).lines().size(), static_cast<std::size_t>(all));
  EXPECT_EQ(base.tool({"export", "cms"}).lines().size(), static_cast<std::size_t>(all));
}

std::string pair_line(const std::string& target, const std::string& file, int status) {
  return "{\"trg_name\":\"" + target + "\",\"cf_name\":[\"" + file + "\"],\"cm_status\":" + std::to_string(status) + "}\n";
}

TEST_F(CmsCommands, ImportStoresAllPairs) {
  cms({"put", "OSLO", "B", "5"});
  const tool_result result = cms({"import"}, pair_line("OSLO", "B", 6) + pair_line("BERGEN", "B", 7));
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out, "{\"records\":2,\"added\":1,\"replaced\":1,\"refused\":0}\n");
  EXPECT_EQ(cms({"by-file", "B"}).lines().size(), 2u);
  EXPECT_EQ(cms({"get", "OSLO", "B"}).json()["cm_status"], 6);
}

TEST_F(CmsCommands, ImportAnswersEachPairWhenAsked) {
  write_file(base.file("pairs"), pair_line("OSLO", "B", 6) + "\n" + pair_line("OSLO", "B", 7));
  EXPECT_THAT(cms({"import", "--answers", base.file("pairs")}).lines(),
              ElementsAre(R"({"line":1,"rc":0,"code":"DBE_OK"})", R"({"line":3,"rc":8196,"code":"DBE_RECORD_REPLACED"})",
                          R"({"records":2,"added":1,"replaced":1,"refused":0})"));
}

TEST_F(CmsCommands, ImportAnswersAFaultyLineWithItsFieldAsPutDoes) {
  const std::string lines = R"({"trg_name":"OSLO","cf_name":["B"]})" "\n" + pair_line("OSLO", "B", 256);
  const std::vector<std::string> answers = cms({"import", "--no-transaction", "--answers"}, lines).lines();
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_THAT(base.tool({"put", "cms"}, lines).lines(), ElementsAre(answers[0], answers[1]));
  EXPECT_THAT(answers[0], HasSubstr(R"("field":"cm_status","error":"is missing")"));
}

TEST_F(CmsCommands, ImportTellsAllFaultyLinesAndStoresNothing) {
  const tool_result result =
      cms({"import"}, pair_line("OSLO", "B", 6) + pair_line("NOBODY", "B", 1) + pair_line("OSLO", "NOTHING", 1) +
                          R"({"trg_name":"OSLO","cf_name":["B"]})" "\n" + pair_line("OSLO", "B", 256) + "{\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("line 2: trg_name: there is no target \"NOBODY\""));
  EXPECT_THAT(result.err, HasSubstr("line 3: cf_name: there is no change file \"NOTHING\""));
  EXPECT_THAT(result.err, HasSubstr("line 4: cm_status: is missing"));
  EXPECT_THAT(result.err, HasSubstr("line 5: cm_status: must be a number from 0 to 255"));
  EXPECT_THAT(result.err, HasSubstr("line 6: not JSON"));
  EXPECT_THAT(result.err, HasSubstr("nothing was imported"));
  EXPECT_EQ(cms({"by-file", "B"}).out, "");
}

TEST_F(CmsCommands, ImportWithoutATransactionKeepsTheGoodLines) {
  const tool_result result =
      cms({"import", "--no-transaction"}, pair_line("NOBODY", "B", 1) + pair_line("OSLO", "B", 6));
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "{\"records\":2,\"added\":1,\"replaced\":0,\"refused\":1}\n");
  EXPECT_THAT(result.err, HasSubstr("line 1: put cms \"NOBODY\" \"B\": DBE_BAD_CMS_KEY (8209)"));
  EXPECT_EQ(cms({"by-target", "OSLO"}).lines().size(), 1u);
}

// Starts an import whose answers nobody takes, kills it when it waits to write one, with
// the lock of the installation in its hand, and gives all answers that it has written.
std::vector<std::string> answers_of_killed_import(const scratch_base& base, const std::string& file) {
  constexpr int pipe_room = 4096, answer_length = 36;  // of lines 100 to 999
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) abort();
  if (fcntl(out[1], F_SETPIPE_SZ, pipe_room) != pipe_room) abort();
  const pid_t process = fork();
  if (process == 0) {
    dup2(out[1], STDOUT_FILENO);
    execl(ZVRADM_PATH, "zvradm", "--base", base.path().c_str(), "cms", "import", "--answers", file.c_str(),
          static_cast<char*>(nullptr));
    _exit(127);
  }
  close(out[1]);
  int waiting = 0;
  while (waiting + answer_length <= pipe_room) {
    if (ioctl(out[0], FIONREAD, &waiting) != 0 || waitpid(process, nullptr, WNOHANG) != 0) abort();
    sched_yield();
  }
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  std::vector<std::string> answers(1);
  char c;
  while (read(out[0], &c, 1) == 1) {
    if (c == '\n')
      answers.emplace_back();
    else
      answers.back() += c;
  }
  close(out[0]);
  EXPECT_EQ(answers.back(), "") << "an answer is written whole";
  answers.pop_back();
  return answers;
}

TEST_F(CmsCommands, AKilledImportLosesNoAnsweredPairAndLeavesNoneHalf) {
  constexpr int all = 600;
  std::string files, pairs;
  for (int i = 0; i < all; ++i) {
    const std::string name = "F" + std::to_string(1000 + i);
    files += "{\"type\":\"cat\",\"cf_name\":[\"" + name + "\"]}\n";
    pairs += pair_line("OSLO", name, 1 + i % 100);
  }
  ASSERT_EQ(base.tool({"import", "-"}, files).exit, 0);
  write_file(base.file("pairs"), pairs);
  const auto answers = answers_of_killed_import(base, base.file("pairs"));
  ASSERT_GE(answers.size(), 30u);
  ASSERT_LT(answers.size(), static_cast<std::size_t>(all));
  for (std::size_t i = 0; i < answers.size(); ++i)
    EXPECT_EQ(answers[i], "{\"line\":" + std::to_string(i + 1) + ",\"rc\":0,\"code\":\"DBE_OK\"}");
  const auto stored = cms({"by-target", "OSLO"}).lines();
  EXPECT_GE(stored.size(), answers.size());
  EXPECT_LE(stored.size(), answers.size() + 1);
  for (std::size_t i = 0; i < stored.size(); ++i) {
    const auto pair = zvradm::json::parse(stored[i]);
    const std::string name = "F" + std::to_string(1000 + i);
    EXPECT_EQ(pair["cf_name"][0], name);
    EXPECT_EQ(pair["cm_status"], 1 + i % 100);
  }
  // The other side knows the same pairs, and none beyond.
  const auto other_side = [&](std::size_t i) { return cms({"by-file", "F" + std::to_string(1000 + i)}).lines().size(); };
  EXPECT_EQ(other_side(0), 1u);
  EXPECT_EQ(other_side(stored.size() - 1), 1u);
  EXPECT_EQ(other_side(stored.size()), 0u);
  const tool_result again = cms({"import", base.file("pairs")});
  ASSERT_EQ(again.exit, 0) << again.err;
  EXPECT_EQ(again.json()["replaced"], stored.size());
  EXPECT_EQ(cms({"by-target", "OSLO"}).lines().size(), static_cast<std::size_t>(all));
}

}  // namespace
