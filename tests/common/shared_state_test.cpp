// Set-up, guarding and dropping of an installation's shared state.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "common/agent.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::Agent;
using zvrdb::test::ConfigChoices;
using zvrdb::test::default_config;
using zvrdb::test::TempInstallation;
namespace fs = std::filesystem;

// 0 when the state is whole and usable for a new task.
int use_state() {
  void* task = co_init_task("user", nullptr, 1);
  if (task == nullptr) return 1;
  uint32_t semaphore = 0;
  if (co_open_sema4(task, "DBR_MEM", &semaphore, 0, 1) != CO_OK) return 2;
  if (co_req_sema4(task, semaphore, 0) != CO_OK) return 3;
  const char* target = static_cast<const char*>(co_croca(task, CO_AREA_LOCAL_TARGET));
  if (target == nullptr || strcmp(target, "LOCAL") != 0) return 4;
  uint32_t* counter = static_cast<uint32_t*>(co_croca(task, CO_AREA_DBR_CNTL));
  if (counter == nullptr) return 5;
  ++counter[0];
  coi_term_task(task, 0);
  return 0;
}

TEST(SharedState, BelongsToTheOwnerAlone) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  ASSERT_EQ(installation.shared_folder(), co_shared_folder(task));
  struct stat status {};
  ASSERT_EQ(stat(installation.shared_folder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);  // the base directory is its owner's alone
  co_croca(task, 3);
  co_malloc(task, 100, CO_MEM_SHARED, "SEG");
  for (const fs::directory_entry& entry : fs::directory_iterator(installation.shared_folder())) {
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660u) << entry.path();
  }
  coi_term_task(task, 0);
}

TEST(SharedState, IsSharedWithTheGroupThatMayWriteTheBase) {
  TempInstallation installation;
  ASSERT_EQ(chmod(installation.base().c_str(), 0770), 0);
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  struct stat status {};
  ASSERT_EQ(stat(installation.shared_folder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0770u);
  coi_term_task(task, 0);
}

mode_t mode_of(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(SharedState, FollowsTheBaseDirectoryWhenItsGroupLosesOrGetsTheRightToWrite) {
  TempInstallation installation;
  ASSERT_EQ(chmod(installation.base().c_str(), 0770), 0);
  ASSERT_EQ(use_state(), 0);
  EXPECT_EQ(mode_of(installation.shared_folder()), 0770u);
  ASSERT_EQ(chmod(installation.base().c_str(), 0750), 0);
  ASSERT_EQ(use_state(), 0);
  EXPECT_EQ(mode_of(installation.shared_folder()), 0700u);
  ASSERT_EQ(chmod(installation.base().c_str(), 0770), 0);
  ASSERT_EQ(use_state(), 0);
  EXPECT_EQ(mode_of(installation.shared_folder()), 0770u);
}

TEST(SharedState, IsClosedToAGroupThatIsNotTheBaseDirectorys) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  TempInstallation installation;
  ASSERT_EQ(chown(installation.base().c_str(), 65534, 7), 0);
  ASSERT_EQ(chmod(installation.base().c_str(), 0770), 0);
  // The owner, who is no member of the base directory's group but of another one.
  const pid_t owner = fork();
  if (owner == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(10);
    _exit(use_state());
  }
  ASSERT_GT(owner, 0);
  int status = 0;
  ASSERT_EQ(waitpid(owner, &status, 0), owner);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(mode_of(installation.shared_folder()), 0700u);
  ASSERT_EQ(use_state(), 0);  // root can give it to the right group
  EXPECT_EQ(mode_of(installation.shared_folder()), 0770u);
  struct stat given {};
  ASSERT_EQ(stat(installation.shared_folder().c_str(), &given), 0);
  EXPECT_EQ(given.st_uid, 65534u);
  EXPECT_EQ(given.st_gid, 7u);
}

TEST(SharedState, AFileOfAnotherOwnerInTheFolderIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a file away";
  TempInstallation installation;
  ASSERT_EQ(use_state(), 0);
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  for (const char* name : {"area-13", "seg-PLANTED"}) {
    const std::string path = installation.shared_folder() + "/" + name;
    std::ofstream(path) << std::string(10000, 'p');
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
  }
  EXPECT_EQ(co_croca(task, CO_AREA_TARGET_KEYS), nullptr);
  EXPECT_EQ(co_shmfind(task, "PLANTED"), nullptr);
  EXPECT_EQ(co_malloc(task, 100, CO_MEM_SHARED, "PLANTED"), nullptr);
  coi_term_task(task, 0);
  for (const char* name : {"control", "tasks", "setup"}) {
    const std::string path = installation.shared_folder() + "/" + name;
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr) << name;
    EXPECT_NE(std::string(co_init_error()), "") << name;
    ASSERT_EQ(chown(path.c_str(), geteuid(), getegid()), 0);
  }
  EXPECT_EQ(use_state(), 0);
}

TEST(SharedState, IsNotDroppedWhenNobodyCanTellWhoIsAlive) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a file away";
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  const std::string registry = installation.shared_folder() + "/tasks";
  ASSERT_EQ(chown(registry.c_str(), 65534, 65534), 0);
  EXPECT_EQ(co_reset(nullptr, nullptr, 0, nullptr), CO_FAILURE);
  EXPECT_NE(std::string(co_init_error()).find("tasks"), std::string::npos) << co_init_error();
  EXPECT_TRUE(fs::exists(registry));
  coi_term_task(task, 0);
}

TEST(SharedState, AMemberOfTheGroupMayDropItAndUseItAgain) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  TempInstallation installation;
  ASSERT_EQ(chown(installation.base().c_str(), 65534, 65534), 0);
  ASSERT_EQ(chmod(installation.base().c_str(), 0770), 0);
  ASSERT_EQ(use_state(), 0);
  const pid_t member = fork();
  if (member == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(1) != 0) _exit(10);
    uint32_t count = 7;
    if (co_reset(nullptr, nullptr, 0, &count) != CO_OK || count != 0) _exit(11);
    _exit(use_state());
  }
  ASSERT_GT(member, 0);
  int status = 0;
  ASSERT_EQ(waitpid(member, &status, 0), member);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(SharedState, AFolderOfAnotherOwnerIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a folder away";
  TempInstallation installation;
  ASSERT_EQ(mkdir(installation.shared_folder().c_str(), 0770), 0);
  ASSERT_EQ(chown(installation.shared_folder().c_str(), 65534, 65534), 0);
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("refused"), std::string::npos) << co_init_error();
  uint32_t count = 0;
  EXPECT_EQ(co_reset(nullptr, nullptr, 0, &count), CO_FAILURE);
}

TEST(SharedState, AFolderOpenToOthersIsRefused) {
  TempInstallation installation;
  ASSERT_EQ(mkdir(installation.shared_folder().c_str(), 0700), 0);
  ASSERT_EQ(chmod(installation.shared_folder().c_str(), 0777), 0);
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
}

TEST(SharedState, ALinkOrAFileInItsPlaceIsRefused) {
  TempInstallation installation;
  const fs::path elsewhere = installation.path("elsewhere");
  fs::create_directory(elsewhere);
  fs::create_directory_symlink(elsewhere, installation.shared_folder());
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_TRUE(fs::is_empty(elsewhere));
  fs::remove(installation.shared_folder());
  std::ofstream(installation.shared_folder()) << "x";
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
}

TEST(SharedState, ALinkInTheFolderIsNotFollowed) {
  TempInstallation installation;
  ASSERT_EQ(use_state(), 0);
  installation.write("victim", "precious");
  fs::create_symlink(installation.path("victim"), installation.shared_folder() + "/area-40");
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(co_croca(task, CO_AREA_LEDGER), nullptr);
  EXPECT_EQ(installation.read("victim"), "precious");
  coi_term_task(task, 0);
}

TEST(SharedState, ABaseDirectoryOfTheLongestPathServesLikeAnyOther) {
  TempInstallation parent;
  const std::string base = parent.base() + "/" + std::string(191 - parent.base().size() - 1, 'b');
  ASSERT_EQ(base.size(), 191u);
  fs::create_directories(base + "/db");
  std::ofstream(base + "/orvo.cfg") << "WORKSTATION NAME: FAR\n";
  std::ofstream(base + "/users") << "anna 7\n";
  std::ofstream(base + "/hwfilter") << "SERIAL\n";
  fs::create_directories(base + "/messages");
  std::ofstream(base + "/messages/zvr.msg") << "101 I own text\n";
  setenv("ORVO_PATH", base.c_str(), 1);
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
  char name[65];
  EXPECT_EQ(co_get_target(task, name, 0), CO_OK);
  EXPECT_STREQ(name, "FAR");
  uint16_t level = 0;
  EXPECT_EQ(co_get_uauth(task, "anna", nullptr, &level), CO_OK);
  EXPECT_EQ(level, 7);
  EXPECT_EQ(co_read_hw_filter(task), CO_OK);
  EXPECT_EQ(co_hw_filtered(task, "SERIAL"), 1);
  EXPECT_EQ(co_log2(task, 101, 0, 0, 0, ""), CO_OK);
  EXPECT_TRUE(fs::exists(base + "/log/messages.log"));
  EXPECT_STREQ(co_message_text(task, 101), "own text");
  char temporary[CO_PATH_MAX];
  EXPECT_EQ(co_db_get_tmpnam((base + "/routetab").c_str(), temporary, 0, 1), CO_OK);
  EXPECT_EQ(temporary, base + "/db/tmp/t0e_routetab");
  coi_term_task(task, 0);
  EXPECT_EQ(co_reset(nullptr, nullptr, 0, nullptr), CO_OK);
  setenv("ORVO_PATH", (base + "b").c_str(), 1);
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_STREQ(co_init_error(), "the path of the base directory is longer than 191 characters");
}

TEST(SharedState, EightProcessesMaySetItUpAtOnce) {
  for (int round = 0; round < 10; ++round) {
    TempInstallation installation;
    {
      std::vector<std::unique_ptr<Agent>> agents;
      for (int i = 0; i < 8; ++i)
        agents.push_back(std::make_unique<Agent>([](Agent& self) {
          self.hear();
          return use_state();
        }));
      for (auto& agent : agents) agent->tell(1);
      for (auto& agent : agents) EXPECT_EQ(agent->result(), 0);
    }
    void* task = co_init_task("t", nullptr, 1);
    ASSERT_NE(task, nullptr);
    EXPECT_EQ(static_cast<uint32_t*>(co_croca(task, CO_AREA_DBR_CNTL))[0], 8u);
    coi_term_task(task, 0);
  }
}

// Runs body in a child that is killed before its system call number `calls`; true
// when the child came to its end before that.
bool run_and_kill_after(int calls, int (*body)()) {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(99);
    raise(SIGSTOP);
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  for (int stop = 0; stop < 2 * calls; ++stop) {
    if (!WIFSTOPPED(status)) break;
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
  }
  if (WIFEXITED(status)) {
    EXPECT_EQ(WEXITSTATUS(status), 0);
    return true;
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return false;
}

TEST(SharedState, SetUpMayBeKilledBeforeAnySystemCall) {
  bool finished = false;
  int calls = 0;
  while (!finished) {
    ASSERT_LT(++calls, 2000);
    TempInstallation installation;
    finished = run_and_kill_after(calls, use_state);
    Agent next([](Agent&) { return use_state(); });
    ASSERT_EQ(next.result(), 0) << "after " << calls << " system calls";
  }
  EXPECT_GT(calls, 50);
}

TEST(SharedState, ResetMayBeKilledBeforeAnySystemCall) {
  bool finished = false;
  int calls = 0;
  while (!finished) {
    ASSERT_LT(++calls, 2000);
    TempInstallation installation;
    ASSERT_EQ(use_state(), 0);
    finished =
        run_and_kill_after(calls, [] { return static_cast<int>(co_reset(nullptr, nullptr, 0, nullptr)); });
    Agent next([](Agent&) { return use_state(); });
    ASSERT_EQ(next.result(), 0) << "after " << calls << " system calls";
  }
  EXPECT_GT(calls, 20);
}

TEST(SharedState, ResetIsRefusedWhileATaskLivesAndNamesIt) {
  TempInstallation installation;
  Agent agent([](Agent& self) {
    void* task = co_init_task("holder", nullptr, 1);
    self.tell(task != nullptr);
    self.hear();
    return 0;
  });
  ASSERT_EQ(agent.hear(), 1u);
  co_task_info info[2];
  uint32_t count = 0;
  EXPECT_EQ(co_reset(nullptr, info, 2, &count), CO_FAILURE);
  ASSERT_EQ(count, 1u);
  EXPECT_STREQ(info[0].name, "holder");
  EXPECT_EQ(info[0].process, agent.pid());
  EXPECT_TRUE(fs::exists(installation.shared_folder()));
  agent.kill_now();
  EXPECT_EQ(co_reset(installation.base().c_str(), info, 2, &count), CO_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(fs::exists(installation.shared_folder()));
  EXPECT_EQ(co_reset(nullptr, info, 2, &count), CO_OK);
}

TEST(SharedState, OutlivesItsTasksUntilReset) {
  TempInstallation installation;
  ASSERT_EQ(use_state(), 0);
  ASSERT_EQ(use_state(), 0);
  void* task = co_init_task("t", nullptr, 1);
  EXPECT_EQ(static_cast<uint32_t*>(co_croca(task, CO_AREA_DBR_CNTL))[0], 2u);
  coi_term_task(task, 0);
  ASSERT_EQ(co_reset(nullptr, nullptr, 0, nullptr), CO_OK);
  task = co_init_task("t", nullptr, 1);
  EXPECT_EQ(static_cast<uint32_t*>(co_croca(task, CO_AREA_DBR_CNTL))[0], 0u);
  coi_term_task(task, 0);
}

TEST(SharedState, ADamagedControlFileIsMadeAnewWhenNobodyLives) {
  TempInstallation installation;
  ASSERT_EQ(use_state(), 0);
  fs::resize_file(installation.shared_folder() + "/control", 100);
  EXPECT_EQ(use_state(), 0);
}

TEST(SharedState, AStateOfAnEarlierDirectoryOfTheSameInodeIsDropped) {
  TempInstallation installation;
  ASSERT_EQ(use_state(), 0);
  // The birth of the base directory stands behind magic and size.
  std::fstream control(installation.shared_folder() + "/control",
                       std::ios::in | std::ios::out | std::ios::binary);
  control.seekp(16);
  const int64_t other_birth = 1;
  control.write(reinterpret_cast<const char*>(&other_birth), sizeof other_birth);
  control.close();
  ASSERT_EQ(use_state(), 0);
  void* task = co_init_task("t", nullptr, 1);
  EXPECT_EQ(static_cast<uint32_t*>(co_croca(task, CO_AREA_DBR_CNTL))[0], 1u);
  coi_term_task(task, 0);
}

TEST(CommonAreas, AreOneMemoryForAllProcessesAndZeroAtFirst) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  struct Row {
    uint32_t number;
    size_t size;
  };
  for (const Row& row : {Row{3, CO_AREA_DBR_CNTL_SIZE}, Row{13, 2436}, Row{14, 2436},
                         Row{24, 8 + size_t{CO_FOCAL_CAPACITY} * 80}, Row{40, CO_AREA_LEDGER_SIZE}}) {
    auto* area = static_cast<unsigned char*>(co_croca(task, row.number));
    ASSERT_NE(area, nullptr) << row.number;
    EXPECT_EQ(area[0], 0);
    EXPECT_EQ(area[row.size - 1], 0);
    area[row.size - 1] = static_cast<unsigned char>(row.number);
    EXPECT_EQ(co_croca(task, row.number), area);
    Agent agent([&](Agent&) {
      void* own = co_init_task("other", nullptr, 1);
      auto* seen = static_cast<unsigned char*>(co_croca(own, row.number));
      return seen != nullptr && seen[row.size - 1] == row.number ? 0 : 1;
    });
    EXPECT_EQ(agent.result(), 0) << row.number;
  }
  EXPECT_EQ(co_croca(task, 0), nullptr);
  EXPECT_EQ(co_croca(task, 99), nullptr);
  EXPECT_EQ(co_croca(nullptr, 1), nullptr);
  coi_term_task(task, 0);
}

// A full memory file system refuses at once then, and does not end a process later.
TEST(CommonAreas, AreAllocatedWhole) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  for (const uint32_t number : {1, 2, 3, 13, 14, 24, 40}) {
    ASSERT_NE(co_croca(task, number), nullptr);
    struct stat status {};
    ASSERT_EQ(stat((installation.shared_folder() + "/area-" + std::to_string(number)).c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, status.st_size) << number;
  }
  coi_term_task(task, 0);
}

TEST(CommonAreas, ConfigurationIsReadOnceForTheSharedState) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  auto* config = static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  uint32_t max_targets = 0;
  memcpy(&max_targets, config + 4268, 4);
  EXPECT_EQ(max_targets, 100u);
  EXPECT_EQ(config[85], 2);
  ConfigChoices choices;
  choices.workstation = "RENAMED";
  choices.max_targets = 77;
  installation.write("orvo.cfg", default_config(choices));
  void* second = co_init_task("u", nullptr, 0);
  memcpy(&max_targets, config + 4268, 4);
  EXPECT_EQ(max_targets, 100u);
  EXPECT_EQ(co_reload_config(task), CO_OK);
  memcpy(&max_targets, config + 4268, 4);
  EXPECT_EQ(max_targets, 77u);
  char name[65];
  EXPECT_EQ(co_get_target(second, name, 0), CO_OK);
  EXPECT_STREQ(name, "RENAMED");
  EXPECT_EQ(co_set_target(second, "AGAIN"), CO_OK);
  EXPECT_EQ(co_get_target(task, name, 0), CO_OK);
  EXPECT_STREQ(name, "AGAIN");
  EXPECT_STREQ(reinterpret_cast<const char*>(config), "AGAIN");
  EXPECT_EQ(co_set_target(task, std::string(64, 'x').c_str()), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_set_target(task, std::string(63, 'x').c_str()), CO_OK);
  coi_term_task(second, 0);
  coi_term_task(task, 0);
}

TEST(CommonAreas, AFaultyConfigurationIsNotReadAnew) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  const auto* config = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  const std::vector<unsigned char> before(config, config + CO_CONFIG_LENGTH);
  installation.write("orvo.cfg", "WORKSTATION NAME: OTHER\nMAX TARGETS: -1\n");
  EXPECT_EQ(co_reload_config(task), CO_BAD_ARGUMENT);
  EXPECT_NE(std::string(co_init_error()).find("line 2"), std::string::npos) << co_init_error();
  EXPECT_EQ(before, std::vector<unsigned char>(config, config + CO_CONFIG_LENGTH));
  char name[65];
  EXPECT_EQ(co_get_target(task, name, 0), CO_OK);
  EXPECT_STREQ(name, "LOCAL");
  coi_term_task(task, 0);
}

TEST(CommonAreas, ALocalNameThatFillsItsFieldIsAStringStill) {
  ConfigChoices choices;
  choices.workstation = std::string(64, 'w');
  TempInstallation installation(default_config(choices));
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
  char name[65 + 1];
  name[65] = 77;
  EXPECT_EQ(co_get_target(task, name, 0), CO_OK);
  EXPECT_EQ(name, choices.workstation);
  EXPECT_EQ(name[65], 77);
  EXPECT_EQ(static_cast<const char*>(co_croca(task, CO_AREA_LOCAL_TARGET)), choices.workstation);
  EXPECT_EQ(co_reload_config(task), CO_OK);
  EXPECT_EQ(static_cast<const char*>(co_croca(task, CO_AREA_LOCAL_TARGET)), choices.workstation);
  coi_term_task(task, 0);
}

TEST(CommonAreas, AMissingConfigurationLeavesZeros) {
  TempInstallation installation("");
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
  auto* config = static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  for (uint32_t i = 0; i < CO_CONFIG_LENGTH; ++i) ASSERT_EQ(config[i], 0) << i;
  coi_term_task(task, 0);
}

TEST(CommonAreas, AFaultyConfigurationIsToldWithItsLine) {
  TempInstallation installation("# first\nMAX TARGETS: many\n");
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("orvo.cfg, line 2: the value of MAX TARGETS"),
            std::string::npos)
      << co_init_error();
}

}  // namespace
