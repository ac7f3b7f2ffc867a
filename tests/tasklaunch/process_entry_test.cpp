// The process entry: name, tables, exit codes. Each case is a process of its own.
#include <sys/prctl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tasklaunch/launch.h"
#include "tasklaunch/launch_fixture.h"

using namespace zvrdb::tasklaunch;

namespace {

std::string name_of(const char* path) {
  char name[ZVR_TASK_NAME];
  program_name(path, name);
  return name;
}

TEST(ProgramName, IsTheLowerCaseStemBehindThePath) {
  EXPECT_EQ("zvrcmps", name_of("C:\\Product\\Bin\\ZvrCmps.Exe"));
  EXPECT_EQ("zvrcmps", name_of("/opt/Product/bin/ZVRCMPS"));
  EXPECT_EQ("sorter", name_of("/opt\\mixed/Sorter.v2.1"));
  EXPECT_EQ("sorter", name_of("sorter"));
}

TEST(ProgramName, IsCutToElevenBytesBeforeTheDotIsLookedFor) {
  EXPECT_EQ("averylongna", name_of("/bin/averylongname.exe"));
  EXPECT_EQ("abcdefghij", name_of("ABCDEFGHIJ.EXE"));
  EXPECT_EQ("abcdefghijk", name_of("ABCDEFGHIJKL.EXE"));
}

TEST(ProgramName, MayBeEmpty) {
  EXPECT_EQ("", name_of(nullptr));
  EXPECT_EQ("", name_of("/bin/"));
  EXPECT_EQ("", name_of("/bin/.profile"));
}

std::string titled() {
  char title[17] = {};
  prctl(PR_GET_NAME, title, 0, 0, 0);
  return title;
}

// Says on standard error what it was given, for the parent to compare.
std::uint16_t say(void* task, const char* name, int count, char** arguments) {
  const char* date = nullptr;
  const char* time = nullptr;
  co_version(task, 0, &date, &time);
  std::fprintf(stderr, "%s|%d|%s|%s|%s %s|%d\n", name, count, count > 1 ? arguments[1] : "", titled().c_str(),
               date ? date : "", time ? time : "", co_hw_filtered(task, "Mouse"));
  return 42;
}

void hook() {
  std::fputs("end hook\n", stderr);
}

constexpr zvr_task_row tasks[] = {
    {"teller", say, 0, hook},
    {"orvo", say, 0, nullptr},
    {"", nullptr, 0, nullptr},
};
constexpr zvr_program program = {tasks, nullptr, "Command line", "Jan  1 2001", "01:02:03"};

[[noreturn]] void run(const char* path, const char* argument = nullptr) {
  char* arguments[] = {const_cast<char*>(path), const_cast<char*>(argument), nullptr};
  run_program(program, argument ? 2 : 1, arguments);
}

class ProcessEntry : public ::testing::Test {
 protected:
  ProcessEntry() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  zvrdb::test::TempInstallation installation_;
};
using ProcessEntryDeathTest = ProcessEntry;

TEST_F(ProcessEntryDeathTest, TheResultOfTheTaskIsTheExitCode) {
  installation_.write("hwfilter", "Mouse\n");
  EXPECT_EXIT(run("/Bin/Teller.EXE", "word"), ::testing::ExitedWithCode(42),
              "^teller\\|2\\|word\\|teller\\|Jan  1 2001 01:02:03\\|1\n$");
}

TEST_F(ProcessEntryDeathTest, TheCommandLineHasATitleOfItsOwn) {
  EXPECT_EXIT(run("orvo"), ::testing::ExitedWithCode(42), "^orvo\\|1\\|\\|Command line\\|");
}

TEST_F(ProcessEntryDeathTest, ANameThatIsInNoRowLeavesWith99) {
  EXPECT_EXIT(run("/bin/stranger.x"), ::testing::ExitedWithCode(99), "^ZVRCO014E: Task stranger not found.\n$");
}

TEST_F(ProcessEntryDeathTest, AnEmptyNameIsNotTheEndRow) {
  EXPECT_EXIT(run("/bin/"), ::testing::ExitedWithCode(99), "Task  not found");
  EXPECT_EXIT(run_program(program, 0, nullptr), ::testing::ExitedWithCode(99), "Task  not found");
  EXPECT_EXIT(run_program(no_tasks(), 0, nullptr), ::testing::ExitedWithCode(99), "Task  not found");
}

TEST_F(ProcessEntryDeathTest, TheEndHookRunsOnlyWhenTheStartUpIsNotComeThrough) {
  setenv("ORVO_PATH", "/nowhere", 1);
  EXPECT_EXIT(run("teller"), ::testing::ExitedWithCode(99), "teller: .*\nend hook\n$");
}

}  // namespace
