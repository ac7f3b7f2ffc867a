// Tasks: making, ending, the registry, exit functions, fork.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/agent.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::Agent;
using zvrdb::test::TempInstallation;

TEST(Task, NoInstallationIsToldAndRefused) {
  unsetenv("ORVO_PATH");
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("ORVO_PATH"), std::string::npos);
  setenv("ORVO_PATH", "/nonexistent/base", 1);
  EXPECT_EQ(co_init_task("t", nullptr, 1), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("/nonexistent/base"), std::string::npos);
}

TEST(Task, StartsWithZeroSlotsAndEndsClean) {
  TempInstallation installation;
  void* task = co_init_task("first", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
  ASSERT_NE(co_slots(task), nullptr);
  EXPECT_EQ(co_slots(task)->dbr_tcb, nullptr);
  EXPECT_EQ(co_slots(task)->task_rc, 0);
  EXPECT_EQ(co_slots(task)->in_das, 0);
  co_task_info info[4];
  ASSERT_EQ(co_live_tasks(task, info, 4), 1u);
  EXPECT_STREQ(info[0].name, "first");
  EXPECT_EQ(info[0].process, getpid());
  EXPECT_EQ(info[0].place, co_task_place(task));
  EXPECT_EQ(info[0].incarnation, co_task_incarnation(task));
  coi_term_task(task, 0);
}

TEST(Task, FailsCleanlyWithoutAHandle) {
  EXPECT_EQ(co_slots(nullptr), nullptr);
  EXPECT_EQ(co_task_alive(nullptr, 0, 1), 0);
  EXPECT_EQ(co_live_tasks(nullptr, nullptr, 0), 0u);
  EXPECT_EQ(co_reg_exit(nullptr, nullptr), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_get_signal(nullptr, 3, nullptr), CO_BAD_ARGUMENT);
  coi_term_task(nullptr, 0);
}

TEST(Task, IncarnationRisesWhenAPlaceIsTakenAgain) {
  TempInstallation installation;
  void* keeper = co_init_task("keeper", nullptr, 1);
  ASSERT_NE(keeper, nullptr);
  void* first = co_init_task("a", nullptr, 0);
  const uint32_t place = co_task_place(first);
  const uint32_t incarnation = co_task_incarnation(first);
  EXPECT_EQ(co_task_alive(keeper, place, incarnation), 1);
  coi_term_task(first, 0);
  EXPECT_EQ(co_task_alive(keeper, place, incarnation), 0);
  void* second = co_init_task("b", nullptr, 0);
  EXPECT_EQ(co_task_place(second), place);
  EXPECT_EQ(co_task_incarnation(second), incarnation + 1);
  EXPECT_EQ(co_task_alive(keeper, place, incarnation), 0);
  EXPECT_EQ(co_task_alive(keeper, place, incarnation + 1), 1);
  EXPECT_EQ(co_task_alive(keeper, CO_MAX_TASKS, 1), 0);
  EXPECT_EQ(co_task_alive(keeper, place, 0), 0);
  coi_term_task(second, 0);
  coi_term_task(keeper, 0);
}

TEST(Task, AKilledProcessIsDeadAtOnce) {
  TempInstallation installation;
  Agent agent([](Agent& self) {
    void* task = co_init_task("agent", nullptr, 1);
    self.tell(co_task_place(task));
    self.tell(co_task_incarnation(task));
    return static_cast<int>(self.hear());
  });
  const uint32_t place = agent.hear();
  const uint32_t incarnation = agent.hear();
  void* task = co_init_task("watcher", nullptr, 1);
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(co_task_alive(task, place, incarnation), 1);
  EXPECT_EQ(co_live_tasks(task, nullptr, 0), 2u);
  agent.kill_now();
  EXPECT_EQ(co_task_alive(task, place, incarnation), 0);
  EXPECT_EQ(co_live_tasks(task, nullptr, 0), 1u);
  coi_term_task(task, 0);
}

std::vector<int> exit_calls;
void exit_one(void*, uint32_t reason) {
  exit_calls.push_back(10 + static_cast<int>(reason));
}
void exit_two(void*, uint32_t reason) {
  exit_calls.push_back(20 + static_cast<int>(reason));
}

TEST(Task, ExitFunctionsRunLastFirst) {
  TempInstallation installation;
  exit_calls.clear();
  void* task = co_init_task("t", nullptr, 1);
  EXPECT_EQ(co_reg_exit(task, exit_one), CO_OK);
  EXPECT_EQ(co_reg_exit(task, exit_two), CO_OK);
  coi_term_task(task, 3);
  EXPECT_EQ(exit_calls, (std::vector<int>{23, 13}));
}

template <int Number>
void numbered_exit(void*, uint32_t) {
  exit_calls.push_back(Number);
}
template <int... Numbers>
std::vector<co_exit_fn> numbered_exits(std::integer_sequence<int, Numbers...>) {
  return {numbered_exit<Numbers>...};
}

TEST(Task, SixteenExitFunctionsAreKeptEachOnce) {
  TempInstallation installation;
  exit_calls.clear();
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  const std::vector<co_exit_fn> functions = numbered_exits(std::make_integer_sequence<int, 17>());
  for (int i = 0; i < 16; ++i) EXPECT_EQ(co_reg_exit(task, functions[static_cast<size_t>(i)]), CO_OK);
  EXPECT_EQ(co_reg_exit(task, functions[3]), CO_OK);  // registered already
  EXPECT_EQ(co_reg_exit(task, functions[16]), CO_NO_MEMORY);
  coi_term_task(task, 0);
  EXPECT_EQ(exit_calls, (std::vector<int>{15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}));
}

TEST(Task, NamesAndVersionsAreCutToTheirRoom) {
  TempInstallation installation;
  void* task = co_init_task(std::string(40, 'n').c_str(), nullptr, 1);
  ASSERT_NE(task, nullptr);
  co_task_info info;
  ASSERT_EQ(co_live_tasks(task, &info, 1), 1u);
  EXPECT_EQ(info.name, std::string(31, 'n'));
  const char* date = nullptr;
  const char* time = nullptr;
  for (uint32_t component = 0; component < 16; ++component)
    EXPECT_EQ(co_reg_version(task, component, std::string(30, 'd').c_str(), "1"), CO_OK);
  EXPECT_EQ(co_reg_version(task, 16, "d", "t"), CO_NO_MEMORY);
  ASSERT_EQ(co_version(task, 15, &date, &time), CO_OK);
  EXPECT_EQ(date, std::string(19, 'd'));
  EXPECT_EQ(co_reg_version(task, 15, "again", "2"), CO_OK);
  ASSERT_EQ(co_version(task, 15, &date, &time), CO_OK);
  EXPECT_STREQ(date, "again");
  EXPECT_STREQ(time, "2");
  coi_term_task(task, 0);
}

TEST(Task, IsRefusedWhenEveryPlaceIsTaken) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  const int registry = open((installation.shared_folder() + "/tasks").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(registry, 0);
  struct flock places {};  // as many tasks of others would hold them
  places.l_type = F_WRLCK;
  places.l_start = co_task_place(task) + 1;
  places.l_len = CO_MAX_TASKS;
  ASSERT_EQ(fcntl(registry, F_OFD_SETLK, &places), 0);
  EXPECT_EQ(co_init_task("over", nullptr, 0), nullptr);
  EXPECT_STREQ(co_init_error(), "all 1024 places for tasks of the installation are taken");
  close(registry);
  void* next = co_init_task("next", nullptr, 0);
  EXPECT_NE(next, nullptr) << co_init_error();
  coi_term_task(next, 0);
  coi_term_task(task, 0);
}

TEST(Task, AnEndedHandleIsAnsweredLikeNone) {
  TempInstallation installation;
  void* keeper = co_init_task("keeper", nullptr, 1);
  ASSERT_NE(keeper, nullptr);
  void* ended = co_init_task("ended", nullptr, 0);
  coi_term_task(ended, 0);
  for (int round = 0; round < 10; ++round) {
    uint32_t handle = 7;
    EXPECT_EQ(co_slots(ended), nullptr);
    EXPECT_EQ(co_malloc(ended, 8, CO_MEM_PRIVATE, "A"), nullptr);
    EXPECT_EQ(co_open_sema4(ended, "S", &handle, 0, 1), CO_BAD_ARGUMENT);
    EXPECT_EQ(co_reg_exit(ended, exit_one), CO_BAD_ARGUMENT);
    EXPECT_EQ(co_log2(ended, 36392, 0, 0, 0, ""), CO_BAD_ARGUMENT);
    EXPECT_EQ(co_croca(ended, CO_AREA_CONFIG), nullptr);
    coi_term_task(ended, 0);
    void* next = co_init_task("next", nullptr, 0);  // is another one, though it follows at once
    ASSERT_NE(next, nullptr);
    EXPECT_NE(next, ended);
    coi_term_task(next, 0);
  }
  EXPECT_EQ(co_live_tasks(keeper, nullptr, 0), 1u);
  coi_term_task(keeper, 0);
}

void exit_ends_the_task_again(void* task, uint32_t reason) {
  exit_calls.push_back(30 + static_cast<int>(reason));
  coi_term_task(task, 5);
}

TEST(Task, AnExitFunctionThatEndsItsTaskAgainChangesNothing) {
  TempInstallation installation;
  exit_calls.clear();
  void* keeper = co_init_task("keeper", nullptr, 1);
  void* task = co_init_task("t", nullptr, 0);
  co_reg_exit(task, exit_one);
  co_reg_exit(task, exit_ends_the_task_again);
  coi_term_task(task, 3);
  EXPECT_EQ(exit_calls, (std::vector<int>{33, 13}));
  EXPECT_EQ(co_live_tasks(keeper, nullptr, 0), 1u);
  coi_term_task(keeper, 0);
}

TEST(Task, AnExitFunctionThatLeavesTheProgramStillEndsItsTask) {
  TempInstallation installation;
  void* task = co_init_task("watcher", nullptr, 1);
  uint32_t semaphore = 0;
  ASSERT_EQ(co_open_sema4(task, "S", &semaphore, 0, 1), CO_OK);
  Agent agent([semaphore](Agent&) {
    void* own = co_init_task("agent", nullptr, 1);
    if (co_req_sema4(own, semaphore, 0) != CO_OK) return 1;
    co_reg_exit(own, [](void*, uint32_t) { exit(7); });
    coi_term_task(own, 0);
    return 2;
  });
  EXPECT_EQ(agent.result(), 7);
  EXPECT_EQ(co_req_sema4(task, semaphore, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task, semaphore), 0u);  // released, not left
  coi_term_task(task, 0);
}

TEST(Task, ExitOfTheProgramEndsItsTask) {
  TempInstallation installation;
  const std::string mark = installation.path("mark");
  static const char* mark_path;
  mark_path = mark.c_str();
  Agent agent([](Agent&) {
    void* task = co_init_task("agent", nullptr, 1);
    co_reg_exit(task, [](void*, uint32_t reason) {
      FILE* file = fopen(mark_path, "w");
      fprintf(file, "%u", reason);
      fclose(file);
    });
    exit(7);
    return 0;
  });
  EXPECT_EQ(agent.result(), 7);
  EXPECT_EQ(installation.read("mark"), "1");
}

TEST(Task, AForkedChildForgetsItsParentsTask) {
  TempInstallation installation;
  void* task = co_init_task("parent", nullptr, 1);
  ASSERT_NE(task, nullptr);
  const uint32_t place = co_task_place(task);
  const uint32_t incarnation = co_task_incarnation(task);
  uint32_t semaphore = 0;
  ASSERT_EQ(co_open_sema4(task, "S", &semaphore, 0, 1), CO_OK);
  ASSERT_EQ(co_req_sema4(task, semaphore, 0), CO_OK);
  void* segment = co_malloc(task, 4096, CO_MEM_SHARED, "SEG");
  ASSERT_NE(segment, nullptr);
  Agent agent([&](Agent& self) {
    if (co_slots(task) != nullptr || co_lock_sema4(task, semaphore) != 0) return 1;
    coi_term_task(task, 0);  // nothing of the parent's may change
    void* own = co_init_task("child", nullptr, 1);
    if (own == nullptr || co_task_place(own) == place) return 2;
    if (co_try_sema4(own, semaphore) != 0) return 3;
    if (co_task_alive(own, place, incarnation) != 1) return 4;
    self.tell(1);
    self.hear();
    if (co_task_alive(own, place, incarnation) != 0) return 5;
    co_shm_sweep(own, nullptr);
    if (co_shmlen(own, "SEG") != 0) return 6;
    coi_term_task(own, 0);
    return 0;
  });
  ASSERT_EQ(agent.hear(), 1u);
  EXPECT_NE(co_lock_sema4(task, semaphore), 0);
  EXPECT_EQ(co_shmlen(task, "SEG"), 4096u);
  coi_term_task(task, 0);
  agent.tell(1);
  EXPECT_EQ(agent.result(), 0);
}

// Whatever another thread is in the middle of, the child finds no lock that nobody
// will ever release.
TEST(Task, AChildOfABusyProcessCanUseEveryService) {
  TempInstallation installation;
  void* task = co_init_task("parent", nullptr, 1);
  ASSERT_NE(task, nullptr);
  installation.write("users", "anna 7\n");
  std::atomic<bool> stop{false};
  std::thread busy([&] {
    void* own = co_init_task("busy", nullptr, 0);
    while (!stop) {
      co_date_time(own, nullptr, nullptr);
      co_hw_filtered(own, "NAME");
      co_log2(own, 36392, 0, 0, 0, "");
      co_free_int(own, co_malloc(own, 100, CO_MEM_SHARED, "SEG"), "test");
      uint32_t semaphore = 0;
      co_open_sema4(own, "S", &semaphore, 0, 1);
      co_shm_sweep(own, nullptr);
    }
    coi_term_task(own, 0);
  });
  for (int round = 0; round < 30; ++round) {
    Agent agent([](Agent&) {
      alarm(20);  // a child that hangs is killed, and fails the test
      co_date_time(nullptr, nullptr, nullptr);
      void* own = co_init_task("child", nullptr, 1);
      uint16_t level = 0;
      if (co_hw_filtered(own, "NAME") != 0 || co_log2(own, 36392, 0, 0, 0, "") != CO_OK) return 1;
      if (co_malloc(own, 100, CO_MEM_SHARED, "SEG") == nullptr) return 2;
      if (co_get_uauth(own, "anna", nullptr, &level) != CO_OK || level != 7) return 3;
      coi_term_task(own, 0);
      return 0;
    });
    const int result = agent.result();
    EXPECT_EQ(result, 0) << round;
    if (result != 0) break;
  }
  stop = true;
  busy.join();
  coi_term_task(task, 0);
}

TEST(Task, AChildHasNoneOfItsParentsDirectoriesOpen) {
  TempInstallation installation;
  void* task = co_init_task("parent", nullptr, 1);
  ASSERT_NE(task, nullptr);
  uint32_t directory = 0;
  ASSERT_EQ(co_opendir(task, installation.base().c_str(), &directory, 1), CO_OK);
  Agent agent([directory](Agent&) {
    void* own = co_init_task("child", nullptr, 1);
    uint32_t parents = directory;
    char name[256];
    if (co_readdir(own, &parents, name, sizeof name) != CO_BAD_ARGUMENT) return 1;
    uint32_t mine[64];  // every place is free
    for (uint32_t& handle : mine)
      if (co_opendir(own, "/", &handle, 1) != CO_OK) return 2;
    uint32_t over = 0;
    return co_opendir(own, "/", &over, 1) == CO_NO_MEMORY ? 0 : 3;
  });
  EXPECT_EQ(agent.result(), 0);
  char name[256];
  EXPECT_EQ(co_readdir(task, &directory, name, sizeof name), CO_OK);
  EXPECT_EQ(co_closedir(task, &directory), CO_OK);
  coi_term_task(task, 0);
}

TEST(Task, OneProcessHoldsOneInstallationAtATime) {
  void* task;
  {
    TempInstallation first;
    task = co_init_task("t", nullptr, 1);
    ASSERT_NE(task, nullptr);
    TempInstallation second;
    EXPECT_EQ(co_init_task("u", nullptr, 1), nullptr);
    EXPECT_NE(std::string(co_init_error()).find(second.base()), std::string::npos);
    coi_term_task(task, 0);
    task = co_init_task("u", nullptr, 1);
    ASSERT_NE(task, nullptr) << co_init_error();
    EXPECT_EQ(second.shared_folder(), co_shared_folder(task));
    coi_term_task(task, 0);
  }
}

TEST(Task, VersionsAndSignalsAreKept) {
  TempInstallation installation;
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr);
  const char* date = nullptr;
  const char* time = nullptr;
  EXPECT_EQ(co_version(task, 4, &date, &time), CO_NOT_FOUND);
  EXPECT_EQ(co_reg_version(task, 4, "Dec 11 2000", "23:34:09"), CO_OK);
  ASSERT_EQ(co_version(task, 4, &date, &time), CO_OK);
  EXPECT_STREQ(date, "Dec 11 2000");
  EXPECT_STREQ(time, "23:34:09");
  uint32_t value = 9;
  EXPECT_EQ(co_get_signal(task, 3, &value), CO_OK);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(co_set_signal(task, 3, 2), CO_OK);
  Agent agent([](Agent&) {
    void* own = co_init_task("other", nullptr, 1);
    uint32_t seen = 0;
    return co_get_signal(own, 3, &seen) == CO_OK && seen == 2 ? 0 : 1;
  });
  EXPECT_EQ(agent.result(), 0);
  EXPECT_EQ(co_set_signal(task, 32, 1), CO_BAD_ARGUMENT);
  coi_term_task(task, 0);
}

}  // namespace
