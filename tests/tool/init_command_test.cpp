#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "installation.h"
#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;

TEST(Init, MakesAnInstallationThatAnswersAtOnce) {
  const scratch_base base;
  const tool_result made = base.init({"--os", "SOLARIS"});
  ASSERT_EQ(made.exit, 0) << made.err;
  EXPECT_THAT(made.out, HasSubstr("made"));
  for (const char* name : {"db", "log", "messages"}) EXPECT_TRUE(std::filesystem::is_directory(base.file(name)));
  EXPECT_FALSE(std::filesystem::exists(base.file("orvo.cfg.pending")));
  const tool_result got = base.tool({"get", "trg", "OSLO"});
  ASSERT_EQ(got.exit, 0) << got.err;
  EXPECT_EQ(got.json()["trg_type"], 40);
  EXPECT_EQ(got.json()["trg_os"], 7);
  EXPECT_EQ(got.json()["ren"], "OSLO01");
  EXPECT_THAT(read_file(base.file("orvo.cfg")), HasSubstr("SERVER_WITH_COMMS"));
}

struct kind_case {
  const char* option;
  const char* word;
  int type;
};
class InitKind : public testing::TestWithParam<kind_case> {};

TEST_P(InitKind, GivesTheLocalTargetTheTypeOfItsKind) {
  const scratch_base base;
  ASSERT_EQ(base.init({"--kind", GetParam().option}).exit, 0);
  EXPECT_THAT(read_file(base.file("orvo.cfg")), HasSubstr(std::string(GetParam().word) + "\n"));
  const tool_result got = base.tool({"get", "trg", "OSLO"});
  ASSERT_EQ(got.exit, 0) << got.err;
  EXPECT_EQ(got.json()["trg_type"], GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, InitKind,
                         testing::Values(kind_case{"client", "CLIENT", 34}, kind_case{"base", "BASE", 36},
                                         kind_case{"server", "SERVER_WITH_COMMS", 40},
                                         kind_case{"server-no-comms", "SERVER_NO_COMMS", 40},
                                         kind_case{"remote-admin-server", "REMOTE_ADMIN_SERVER", 40},
                                         kind_case{"remote-admin-base", "REMOTE_ADMIN_BASE", 36}));

TEST(Init, RepeatedWithTheSameValuesChangesNothing) {
  const scratch_base base;
  ASSERT_EQ(base.init({"--max-targets", "50"}).exit, 0);
  const std::string config = read_file(base.file("orvo.cfg")), targets = base.tool({"export"}).out;
  const tool_result again = base.init({"--max-targets", "50"});
  EXPECT_EQ(again.exit, 0) << again.err;
  EXPECT_THAT(again.out, HasSubstr("unchanged"));
  EXPECT_EQ(read_file(base.file("orvo.cfg")), config);
  EXPECT_EQ(base.tool({"export"}).out, targets);
  EXPECT_THAT(base.init().out, HasSubstr("unchanged")) << "limits that are not given stay";
}

TEST(Init, RefusesOtherValuesAndTellsWhich) {
  const scratch_base base;
  ASSERT_EQ(base.init({"--max-targets", "50"}).exit, 0);
  const std::string config = read_file(base.file("orvo.cfg"));
  const tool_result other = base.init({"--max-targets", "60", "--kind", "base"});
  EXPECT_EQ(other.exit, 1);
  EXPECT_THAT(other.err, HasSubstr("max-targets is 50, asked for is 60"));
  EXPECT_THAT(other.err, HasSubstr("kind is SERVER_WITH_COMMS, asked for is BASE"));
  EXPECT_THAT(other.err, HasSubstr("--force"));
  EXPECT_EQ(read_file(base.file("orvo.cfg")), config);
  EXPECT_EQ(base.tool({"init", "--name", "OSLO", "--rgn", "NORTH", "--ren", "OSLO02"}).exit, 1);
}

TEST(Init, WhatRootMakesBelongsToTheOwnerOfTheBaseDirectory) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a folder away";
  const scratch_base base;
  ASSERT_EQ(mkdir(base.path().c_str(), 0755), 0);
  ASSERT_EQ(chown(base.path().c_str(), 65534, 65534), 0);
  ASSERT_EQ(chmod(base.path().c_str(), 02770), 0);
  const tool_result made = base.init();
  ASSERT_EQ(made.exit, 0) << made.err;
  int seen = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(base.path())) {
    ++seen;
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 65534u) << entry.path();
    EXPECT_EQ(status.st_gid, 65534u) << entry.path();
    EXPECT_EQ(status.st_mode & 0060u, 0060u) << entry.path();
    if (entry.is_directory()) {
      EXPECT_EQ(status.st_mode & 07000u, 02000u) << entry.path();
    }
  }
  EXPECT_GE(seen, 13);  // three folders, nine record files, orvo.cfg
}

TEST(Init, ForceChangesKindLimitsAndName) {
  const scratch_base base;
  ASSERT_EQ(base.init({"--max-targets", "50"}).exit, 0);
  ASSERT_EQ(base.tool({"put", "trg"}, R"({"trg_name":"BERGEN","trg_type":130,"srv_name":"OSLO"})").exit, 0);
  const tool_result forced = base.tool({"init", "--force", "--name", "HAMAR", "--rgn", "NORTH", "--ren", "HAMAR1",
                                        "--kind", "base", "--max-targets", "60"});
  ASSERT_EQ(forced.exit, 0) << forced.err;
  EXPECT_EQ(base.tool({"get", "trg", "HAMAR"}).json()["trg_type"], 36);
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 1);
  EXPECT_EQ(base.tool({"server-of", "BERGEN"}).json()["srv_name"], "HAMAR") << "its number stayed";
  EXPECT_EQ(base.tool({"status", "--json"}).json()["targets"]["allowed"], 60);
}

TEST(Init, TellsFileAndLineOfAConfigurationThatCannotBeRead) {
  const scratch_base base;
  ASSERT_EQ(base.init().exit, 0);
  write_file(base.file("orvo.cfg"), "WORKSTATION NAME: OSLO\nMAX TARGETS: many\n");
  const tool_result result = base.init();
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("orvo.cfg, line 2"));
}

TEST(Init, BringsALostLocalTargetBack) {
  const scratch_base base;
  ASSERT_EQ(base.init().exit, 0);
  ASSERT_EQ(base.tool({"del", "trg", "OSLO", "--force"}).exit, 0);
  ASSERT_EQ(base.tool({"reset"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 1);
  const tool_result again = base.init();
  EXPECT_EQ(again.exit, 0) << again.err;
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 0);
}

// ---- killed while it works

int fatal_step = 0;
void die_at_step(int step) {
  if (step == fatal_step) raise(SIGKILL);
}

zvradm::installation_values oslo() {
  zvradm::installation_values values;
  values.name = "OSLO";
  values.rgn = "NORTH";
  values.ren = "OSLO01";
  return values;
}

// Makes the installation in a child process that is killed behind the step.
void make_and_die(const std::string& path, const zvradm::installation_values& values, int step) {
  const pid_t child = fork();
  if (child == 0) {
    fatal_step = step;
    zvradm::after_making_step = die_at_step;
    try {
      zvradm::make_installation(path, values);
    } catch (const std::exception&) {
      _exit(1);
    }
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "step " << step << " was not reached";
}

class KilledInit : public testing::TestWithParam<int> {};

TEST_P(KilledInit, IsFinishedByARepetition) {
  const scratch_base base;
  make_and_die(base.path(), oslo(), GetParam());
  const tool_result again = base.init();
  ASSERT_EQ(again.exit, 0) << again.err;
  EXPECT_FALSE(std::filesystem::exists(base.file("orvo.cfg.pending")));
  const tool_result got = base.tool({"get", "trg", "OSLO"});
  ASSERT_EQ(got.exit, 0) << got.err;
  EXPECT_EQ(got.json()["trg_type"], 40);
  EXPECT_THAT(read_file(base.file("orvo.cfg")), HasSubstr("SERVER_WITH_COMMS"));
  EXPECT_EQ(base.tool({"target-by-rr", "OSLO01.OSLO01", "--len", "64"}).json()["trg_name"], "OSLO")
      << "the local network has its name";
  EXPECT_THAT(base.init().out, HasSubstr("unchanged"));
}

TEST_P(KilledInit, ThatChangedAnInstallationIsFinishedByARepetition) {
  const scratch_base base;
  ASSERT_EQ(base.init().exit, 0);
  ASSERT_EQ(base.tool({"put", "trg"}, R"({"trg_name":"BERGEN","trg_type":130,"srv_name":"OSLO"})").exit, 0);
  zvradm::installation_values changed = oslo();
  changed.name = "HAMAR";
  changed.kind = zvradm::kind_base;
  changed.force = true;
  make_and_die(base.path(), changed, GetParam());
  const tool_result again = base.tool({"init", "--force", "--name", "HAMAR", "--rgn", "NORTH", "--ren", "OSLO01",
                                       "--kind", "base"});
  ASSERT_EQ(again.exit, 0) << again.err;
  EXPECT_FALSE(std::filesystem::exists(base.file("orvo.cfg.pending")));
  EXPECT_EQ(base.tool({"get", "trg", "HAMAR"}).json()["trg_type"], 36);
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 1);
  EXPECT_EQ(base.tool({"server-of", "BERGEN"}).json()["srv_name"], "HAMAR");
}

INSTANTIATE_TEST_SUITE_P(BehindEachStep, KilledInit, testing::Range(1, zvradm::last_making_step + 1));

TEST(Init, LeftUnfinishedRefusesOtherValues) {
  const scratch_base base;
  make_and_die(base.path(), oslo(), zvradm::step_interim_written);
  const tool_result other = base.tool({"init", "--name", "HAMAR", "--rgn", "NORTH", "--ren", "HAMAR1"});
  EXPECT_EQ(other.exit, 1);
  EXPECT_THAT(other.err, HasSubstr("not finished"));
}

}  // namespace
