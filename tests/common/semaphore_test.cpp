// Named semaphores between tasks and processes, and what killed owners leave.
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>

#include "common/agent.h"
#include "common/task_block.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::Agent;
using zvrdb::test::TempInstallation;

bool sleeps(pid_t process) {
  std::ifstream text("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(text, line);
  const std::size_t end = line.rfind(')');
  return end != std::string::npos && end + 2 < line.size() && line[end + 2] == 'S';
}

class Semaphore : public testing::Test {
 protected:
  void SetUp() override {
    task_ = co_init_task("t", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
    ASSERT_EQ(co_open_sema4(task_, "DBR_MEM", &semaphore_, 0, 1), CO_OK);
  }
  void TearDown() override { coi_term_task(task_, 0); }

  // A process that takes the semaphore, runs `inside` and waits to be killed.
  template <typename Body>
  void take_and_be_killed(Body inside) {
    Agent agent([&](Agent& self) {
      void* own = co_init_task("victim", nullptr, 1);
      uint32_t handle = 0;
      if (co_open_sema4(own, "DBR_MEM", &handle, 0, 1) != CO_OK || co_req_sema4(own, handle, 0) != CO_OK)
        return 1;
      inside(own, handle);
      self.tell(1);
      self.hear();
      return 0;
    });
    ASSERT_EQ(agent.hear(), 1u);
    agent.kill_now();
  }

  TempInstallation installation_;
  void* task_ = nullptr;
  uint32_t semaphore_ = 0;
};

TEST_F(Semaphore, OneNameIsOneSemaphore) {
  uint32_t again = 0;
  uint32_t other = 0;
  EXPECT_NE(semaphore_, 0u);
  EXPECT_EQ(co_open_sema4(task_, "DBR_MEM", &again, 0, 1), CO_OK);
  EXPECT_EQ(co_open_sema4(task_, "DBRFILE", &other, 0, 1), CO_OK);
  EXPECT_EQ(again, semaphore_);
  EXPECT_NE(other, semaphore_);
  EXPECT_EQ(co_open_sema4(task_, "", &other, 0, 1), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_open_sema4(task_, std::string(32, 'x').c_str(), &other, 0, 1), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_open_sema4(task_, nullptr, &other, 0, 1), CO_BAD_ARGUMENT);
}

TEST_F(Semaphore, NamesBeyondTheRoomAreRefused) {
  uint16_t result = CO_OK;
  for (int i = 0; i < 40 && result == CO_OK; ++i) {
    uint32_t handle = 0;
    result = co_open_sema4(task_, ("N" + std::to_string(i)).c_str(), &handle, 0, 1);
  }
  EXPECT_EQ(result, CO_NO_MEMORY);
}

// A release wakes one waiter; when that one is killed before it has the semaphore, and somebody
// takes it afresh meanwhile, then nobody is left who would wake the others.
TEST_F(Semaphore, AWaiterWhoseWakingWentToADyingOneGoesOnByItself) {
  const auto open_of = [](void* own) {
    uint32_t handle = 0;
    return co_open_sema4(own, "DBR_MEM", &handle, 0, 1) == CO_OK ? handle : 0;
  };
  Agent holder([&](Agent& self) {
    void* own = co_init_task("holder", nullptr, 1);
    self.tell(co_req_sema4(own, open_of(own), 0));
    self.hear();
    return 0;
  });
  ASSERT_EQ(holder.hear(), CO_OK);
  Agent waiter([&](Agent& self) {
    void* own = co_init_task("waiter", nullptr, 1);
    const uint32_t handle = open_of(own);
    self.tell(co_req_sema4(own, handle, 0));
    co_clear_sema4(own, handle);
    coi_term_task(own, 0);
    return 0;
  });
  auto& word = zvrdb::common::process().control->semaphores[semaphore_ - 1].mutex.__data.__lock;
  while ((static_cast<uint32_t>(__atomic_load_n(&word, __ATOMIC_RELAXED)) & FUTEX_WAITERS) == 0 || !sleeps(waiter.pid()))
    std::this_thread::yield();
  __atomic_store_n(&word, 0, __ATOMIC_SEQ_CST);
  EXPECT_EQ(waiter.hear(), CO_OK);
  EXPECT_EQ(waiter.result(), 0);
  holder.kill_now();
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
}

TEST_F(Semaphore, UnknownHandlesAreRefused) {
  for (uint32_t handle : {0u, 2u, 33u, 0xFFFFFFFFu}) {
    EXPECT_EQ(co_req_sema4(task_, handle, 0), CO_BAD_ARGUMENT);
    EXPECT_EQ(co_clear_sema4(task_, handle), CO_BAD_ARGUMENT);
    EXPECT_EQ(co_try_sema4(task_, handle), 0);
    EXPECT_EQ(co_lock_sema4(task_, handle), 0);
    EXPECT_EQ(co_sema4_death(task_, handle), 0u);
  }
}

TEST_F(Semaphore, ASecondRequestOfTheOwnerIsNotCounted) {
  EXPECT_EQ(co_lock_sema4(task_, semaphore_), 0);
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_try_sema4(task_, semaphore_), 1);
  EXPECT_NE(co_lock_sema4(task_, semaphore_), 0);
  EXPECT_EQ(co_clear_sema4(task_, semaphore_), CO_OK);
  EXPECT_EQ(co_lock_sema4(task_, semaphore_), 0);
  EXPECT_EQ(co_clear_sema4(task_, semaphore_), CO_OK);
}

TEST_F(Semaphore, ATaskThatDoesNotOwnItClearsNothing) {
  ASSERT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  Agent agent([&](Agent&) {
    void* own = co_init_task("other", nullptr, 1);
    if (co_clear_sema4(own, semaphore_) != CO_OK) return 1;
    if (co_try_sema4(own, semaphore_) != 0) return 2;
    return static_cast<int>(co_lock_sema4(own, semaphore_));
  });
  EXPECT_EQ(agent.result(), 0);
  EXPECT_NE(co_lock_sema4(task_, semaphore_), 0);
}

TEST_F(Semaphore, TwoTasksOfOneThreadDoNotWaitForEachOther) {
  void* second = co_init_task("second", nullptr, 0);
  ASSERT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_req_sema4(second, semaphore_, 0), CO_FAILURE);
  EXPECT_EQ(co_lock_sema4(second, semaphore_), 0);
  coi_term_task(second, 0);
  EXPECT_NE(co_lock_sema4(task_, semaphore_), 0);
}

TEST_F(Semaphore, StaysWithTheThreadThatTookIt) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer takes the release that is refused for a fault of ours";
#endif
  std::promise<void*> taken;
  std::promise<void> tried;
  std::thread thread([&] {
    void* own = co_init_task("thread", nullptr, 0);
    EXPECT_EQ(co_req_sema4(own, semaphore_, 0), CO_OK);
    taken.set_value(own);
    tried.get_future().wait();
    EXPECT_NE(co_lock_sema4(own, semaphore_), 0);
    EXPECT_EQ(co_clear_sema4(own, semaphore_), CO_OK);
    coi_term_task(own, 0);
  });
  void* owner = taken.get_future().get();
  EXPECT_EQ(co_clear_sema4(owner, semaphore_), CO_FAILURE);  // here it is another thread
  EXPECT_EQ(co_try_sema4(task_, semaphore_), 0);
  tried.set_value();
  thread.join();
  EXPECT_EQ(co_try_sema4(task_, semaphore_), 1);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 0u);
}

TEST_F(Semaphore, NoneIsMadeWhenTheSharedFolderIsGone) {
  ASSERT_GT(std::filesystem::remove_all(installation_.shared_folder()), 0u);
  uint32_t handle = 7;
  EXPECT_EQ(co_open_sema4(task_, "NEW", &handle, 0, 1), CO_FAILURE);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(co_init_task("late", nullptr, 0), nullptr);
  EXPECT_NE(std::string(co_init_error()).find("removed under living tasks"), std::string::npos);
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);  // what is mapped goes on
}

TEST_F(Semaphore, IsHandedOnWhenItIsReleased) {
  ASSERT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  Agent agent([&](Agent& self) {
    void* own = co_init_task("waiter", nullptr, 1);
    self.tell(static_cast<uint32_t>(co_try_sema4(own, semaphore_)));
    const uint16_t result = co_req_sema4(own, semaphore_, 0);
    self.tell(static_cast<uint32_t>(result));
    const uint32_t death = co_sema4_death(own, semaphore_);
    coi_term_task(own, 0);
    return static_cast<int>(death);
  });
  EXPECT_EQ(agent.hear(), 0u);
  EXPECT_EQ(co_clear_sema4(task_, semaphore_), CO_OK);
  EXPECT_EQ(agent.hear(), 0u);
  EXPECT_EQ(agent.result(), 0);
}

TEST_F(Semaphore, AKilledReaderIsReportedOnce) {
  take_and_be_killed([](void*, uint32_t) {});
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 1u);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 0u);
  EXPECT_EQ(co_clear_sema4(task_, semaphore_), CO_OK);
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 0u);
}

TEST_F(Semaphore, AKilledOwnerWithTheMarkIsAWriter) {
  take_and_be_killed([](void* own, uint32_t handle) { co_mark_sema4(own, handle, 1); });
  EXPECT_EQ(co_try_sema4(task_, semaphore_), 1);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 2u);
  EXPECT_EQ(co_clear_sema4(task_, semaphore_), CO_OK);
  // The mark went with its owner.
  take_and_be_killed([](void*, uint32_t) {});
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 1u);
}

TEST_F(Semaphore, AMarkTakenBackLeavesAReader) {
  take_and_be_killed([](void* own, uint32_t handle) {
    co_mark_sema4(own, handle, 1);
    co_mark_sema4(own, handle, 0);
  });
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 1u);
}

TEST_F(Semaphore, ADeathNobodyAskedForStays) {
  take_and_be_killed([](void* own, uint32_t handle) { co_mark_sema4(own, handle, 1); });
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_clear_sema4(task_, semaphore_), CO_OK);
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 2u);
}

TEST_F(Semaphore, ARepairerKilledAtWorkHandsTheDeathOn) {
  take_and_be_killed([](void* own, uint32_t handle) { co_mark_sema4(own, handle, 1); });
  take_and_be_killed([](void* own, uint32_t handle) {
    if (co_sema4_death(own, handle) != 2) _exit(3);
  });
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 2u);
}

TEST_F(Semaphore, AKillBetweenLockAndOwnerIsFound) {
  take_and_be_killed([](void*, uint32_t handle) {
    zvrdb::common::process().control->semaphores[handle - 1].owner.store(0);
  });
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_NE(co_lock_sema4(task_, semaphore_), 0);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 1u);
}

TEST_F(Semaphore, AWaiterIsWokenByTheDeathOfTheOwner) {
  Agent owner([&](Agent& self) {
    void* own = co_init_task("owner", nullptr, 1);
    if (co_req_sema4(own, semaphore_, 0) != CO_OK) return 1;
    self.tell(1);
    self.hear();
    return 0;
  });
  ASSERT_EQ(owner.hear(), 1u);
  Agent waiter([&](Agent& self) {
    void* own = co_init_task("waiter", nullptr, 1);
    self.tell(1);
    if (co_req_sema4(own, semaphore_, 0) != CO_OK) return 9;
    const int death = static_cast<int>(co_sema4_death(own, semaphore_));
    coi_term_task(own, 0);
    return death;
  });
  ASSERT_EQ(waiter.hear(), 1u);
  owner.kill_now();
  EXPECT_EQ(waiter.result(), 1);
}

TEST_F(Semaphore, AnEndingTaskReleasesWhatItHolds) {
  Agent agent([&](Agent&) {
    void* own = co_init_task("ender", nullptr, 1);
    if (co_req_sema4(own, semaphore_, 0) != CO_OK) return 1;
    coi_term_task(own, 0);
    return 0;
  });
  EXPECT_EQ(agent.result(), 0);
  EXPECT_EQ(co_try_sema4(task_, semaphore_), 1);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 0u);
}

TEST_F(Semaphore, AThreadThatEndsWithoutReleasingIsADeadOwner) {
  void* own = nullptr;
  std::thread([&] {
    own = co_init_task("thread", nullptr, 0);
    ASSERT_EQ(co_req_sema4(own, semaphore_, 0), CO_OK);
  }).join();
  EXPECT_EQ(co_req_sema4(task_, semaphore_, 0), CO_OK);
  EXPECT_EQ(co_sema4_death(task_, semaphore_), 1u);
  EXPECT_EQ(co_lock_sema4(own, semaphore_), 0);
  coi_term_task(own, 0);
  EXPECT_NE(co_lock_sema4(task_, semaphore_), 0);
}

TEST_F(Semaphore, GuardsACounterBetweenThreadsAndProcesses) {
  auto* counter = static_cast<uint32_t*>(co_croca(task_, CO_AREA_DBR_CNTL));
  const auto raise = [this](void* own) {
    auto* shared = static_cast<uint32_t*>(co_croca(own, CO_AREA_DBR_CNTL));
    for (int i = 0; i < 20000; ++i) {
      co_req_sema4(own, semaphore_, 0);
      ++*shared;
      co_clear_sema4(own, semaphore_);
    }
  };
  const auto in_process = [&](Agent&) {
    void* own = co_init_task("agent", nullptr, 1);
    raise(own);
    coi_term_task(own, 0);
    return 0;
  };
  Agent first(in_process);
  Agent second(in_process);
  std::thread thread([&] {
    void* own = co_init_task("thread", nullptr, 0);
    raise(own);
    coi_term_task(own, 0);
  });
  raise(task_);
  thread.join();
  EXPECT_EQ(first.result(), 0);
  EXPECT_EQ(second.result(), 0);
  EXPECT_EQ(*counter, 80000u);
}

// In strict mode any system call but read, write and exit kills the process.
TEST_F(Semaphore, UncontendedPathsMakeNoSystemCall) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer's own thread outlives the exit of the only other one";
#endif
  Agent agent([&](Agent&) {
    void* own = co_init_task("strict", nullptr, 1);
    uint32_t handle = 0;
    if (co_open_sema4(own, "ALONE", &handle, 0, 1) != CO_OK) return 1;
    co_hold_events(own);
    co_release_events(own);
    co_croca(own, CO_AREA_DBR_CNTL);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) return 2;
    uint32_t wrong = 0;
    for (int i = 0; i < 1000; ++i) {
      co_hold_events(own);
      wrong += co_req_sema4(own, handle, 0) != CO_OK;
      wrong += co_lock_sema4(own, handle) == 0;
      wrong += co_trc_test(own, 0, 39) != 0;
      co_mark_sema4(own, handle, 1);
      co_mark_sema4(own, handle, 0);
      wrong += co_sema4_death(own, handle) != 0;
      wrong += co_croca(own, CO_AREA_DBR_CNTL) == nullptr;
      wrong += co_collate(own, "a", "b") >= 0;
      wrong += co_clear_sema4(own, handle) != CO_OK;
      co_release_events(own);
    }
    syscall(SYS_exit, wrong == 0 ? 0 : 3);
    return 4;
  });
  EXPECT_EQ(agent.result(), 0);
}

}  // namespace
