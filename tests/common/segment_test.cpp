// Private memory and named shared segments.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/agent.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {
int allocations_to_interrupt = 0;
}

// Stands in the place of the C library's: a signal may come while memory is allocated.
extern "C" int posix_fallocate(int fd, off_t offset, off_t length) {
  if (allocations_to_interrupt > 0) {
    --allocations_to_interrupt;
    return EINTR;
  }
  return reinterpret_cast<decltype(&posix_fallocate)>(dlsym(RTLD_NEXT, "posix_fallocate"))(fd, offset,
                                                                                           length);
}

namespace {

using zvrdb::test::Agent;
using zvrdb::test::TempInstallation;
namespace fs = std::filesystem;

class Segment : public testing::Test {
 protected:
  void SetUp() override {
    task_ = co_init_task("t", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
  }
  void TearDown() override {
    co_test_fail_malloc(-1);
    coi_term_task(task_, 0);
  }
  int files() const {
    int count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(installation_.shared_folder())) {
      const std::string name = entry.path().filename();
      count += name.starts_with("seg-") || name.starts_with("new-");
    }
    return count;
  }

  TempInstallation installation_;
  void* task_ = nullptr;
};

TEST_F(Segment, PrivateMemoryIsZeroAndGoesWithItsTask) {
  void* other = co_init_task("other", nullptr, 0);
  std::vector<unsigned char*> blocks;
  for (int i = 0; i < 100; ++i) {
    auto* block = static_cast<unsigned char*>(co_malloc(other, 1000, CO_MEM_PRIVATE, "TEST"));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[999], 0);
    memset(block, 0xFF, 1000);
    blocks.push_back(block);
  }
  for (int i = 0; i < 100; i += 3) co_free_int(other, blocks[static_cast<size_t>(i)], "test");
  co_free_int(other, nullptr, "test");
  coi_term_task(other, 0);  // frees the rest: the leak checker watches
}

TEST_F(Segment, PrivateMemoryOfEverySizeIsZeroAlsoWhereMemoryWasGivenBack) {
  void* other = co_init_task("other", nullptr, 0);
  for (int round = 0; round < 3; ++round)
    for (const uint32_t size : {1u, 4095u, 100000u, 131071u, 131072u, 5000000u}) {
      auto* block = static_cast<unsigned char*>(co_malloc(other, size, CO_MEM_PRIVATE, "TEST"));
      ASSERT_NE(block, nullptr);
      EXPECT_TRUE(std::all_of(block, block + size, [](unsigned char byte) { return byte == 0; })) << size;
      memset(block, 0xFF, size);
      if (round < 2) co_free_int(other, block, "test");
    }
  coi_term_task(other, 0);
}

TEST_F(Segment, TheAllocationThatATestChoosesFailsOnce) {
  co_test_fail_malloc(2);
  EXPECT_NE(co_malloc(task_, 8, CO_MEM_PRIVATE, "A"), nullptr);
  EXPECT_NE(co_malloc(task_, 8, CO_MEM_PRIVATE, "B"), nullptr);
  EXPECT_EQ(co_malloc(task_, 8, CO_MEM_PRIVATE, "C"), nullptr);
  EXPECT_NE(co_malloc(task_, 8, CO_MEM_PRIVATE, "D"), nullptr);
  co_test_fail_malloc(0);
  EXPECT_EQ(co_malloc(task_, 8, CO_MEM_SHARED, "E"), nullptr);
  EXPECT_NE(co_malloc(task_, 8, CO_MEM_SHARED, "E"), nullptr);
}

TEST_F(Segment, IsMadeZeroAndFoundByOthers) {
  EXPECT_EQ(co_shmfind(task_, "MEM_0000"), nullptr);
  EXPECT_EQ(co_shmlen(task_, "MEM_0000"), 0u);
  auto* made = static_cast<unsigned char*>(co_malloc(task_, 10000, CO_MEM_SHARED, "MEM_0000"));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made[0], 0);
  EXPECT_EQ(made[9999], 0);
  made[9999] = 42;
  EXPECT_EQ(co_shmlen(task_, "MEM_0000"), 10000u);
  Agent agent([](Agent&) {
    void* own = co_init_task("other", nullptr, 1);
    if (co_shmlen(own, "MEM_0000") != 10000) return 1;
    auto* found = static_cast<unsigned char*>(co_shmfind(own, "MEM_0000"));
    if (found == nullptr || found[9999] != 42) return 2;
    if (co_malloc(own, 10000, CO_MEM_SHARED, "MEM_0000") != found) return 3;
    return co_shmlen(own, "MEM_0000") == 10000 ? 0 : 4;
  });
  EXPECT_EQ(agent.result(), 0);
}

TEST_F(Segment, IsMappedOnceForAllTasksOfAProcess) {
  void* second = co_init_task("second", nullptr, 0);
  void* made = co_malloc(task_, 4096, CO_MEM_SHARED, "SEG");
  EXPECT_EQ(co_shmfind(second, "SEG"), made);
  EXPECT_EQ(co_malloc(second, 100, CO_MEM_SHARED, "SEG"), made);
  coi_term_task(second, 0);
  memset(made, 1, 4096);  // still this task's
  co_free_int(task_, made, "test");
  EXPECT_EQ(co_shmlen(task_, "SEG"), 4096u);  // the name stays
}

TEST_F(Segment, AShorterOneIsNeverMappedPastItsEnd) {
  void* made = co_malloc(task_, 100, CO_MEM_SHARED, "SEG");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(co_malloc(task_, 101, CO_MEM_SHARED, "SEG"), nullptr);
  co_free_int(task_, made, "test");
  EXPECT_EQ(co_malloc(task_, 101, CO_MEM_SHARED, "SEG"), nullptr);
  EXPECT_NE(co_malloc(task_, 100, CO_MEM_SHARED, "SEG"), nullptr);
}

TEST_F(Segment, ASignalWhileItIsMadeChangesNothing) {
  allocations_to_interrupt = 3;
  EXPECT_NE(co_malloc(task_, 4096, CO_MEM_SHARED, "SEG"), nullptr);
  EXPECT_EQ(allocations_to_interrupt, 0);
  EXPECT_EQ(co_shmlen(task_, "SEG"), 4096u);
  allocations_to_interrupt = 1;
  EXPECT_NE(co_croca(task_, CO_AREA_LEDGER), nullptr);
  EXPECT_EQ(allocations_to_interrupt, 0);
}

TEST_F(Segment, NamesThatAreNoneAreRefused) {
  for (const char* name : {"", "a/b", "..", "a b", "x-y"}) {
    EXPECT_EQ(co_malloc(task_, 100, CO_MEM_SHARED, name), nullptr) << name;
    EXPECT_EQ(co_shmfind(task_, name), nullptr) << name;
    EXPECT_EQ(co_shmlen(task_, name), 0u) << name;
  }
  EXPECT_EQ(co_malloc(task_, 100, CO_MEM_SHARED, std::string(64, 'x').c_str()), nullptr);
  EXPECT_EQ(co_malloc(task_, 100, CO_MEM_SHARED, nullptr), nullptr);
  EXPECT_EQ(co_malloc(task_, 0, CO_MEM_SHARED, "SEG"), nullptr);
  EXPECT_EQ(co_malloc(task_, 100, 3, "SEG"), nullptr);
  EXPECT_EQ(co_shmfind(task_, nullptr), nullptr);
  EXPECT_EQ(files(), 0);
}

TEST_F(Segment, AProcessHasThirtyTwoMappedAndNoMore) {
  std::vector<void*> made;
  for (int i = 0; i < 32; ++i)
    made.push_back(co_malloc(task_, 10, CO_MEM_SHARED, ("S" + std::to_string(i)).c_str()));
  for (void* segment : made) EXPECT_NE(segment, nullptr);
  EXPECT_EQ(co_malloc(task_, 10, CO_MEM_SHARED, "OVER"), nullptr);
  EXPECT_EQ(co_malloc(task_, 10, CO_MEM_SHARED, "S31"), made[31]);
  co_free_int(task_, made[0], "test");
  EXPECT_NE(co_malloc(task_, 10, CO_MEM_SHARED, "OVER"), nullptr);
}

TEST_F(Segment, TheLastOneOutRemovesTheName) {
  void* made = co_malloc(task_, 4096, CO_MEM_SHARED, "OLD");
  Agent agent([](Agent& self) {
    void* own = co_init_task("other", nullptr, 1);
    void* found = co_shmfind(own, "OLD");
    self.tell(found != nullptr);
    self.hear();
    co_shm_letgo(own, found, "NEW");
    return co_shmlen(own, "OLD") == 0 ? 0 : 1;
  });
  ASSERT_EQ(agent.hear(), 1u);
  co_shm_letgo(task_, made, "NEW");
  EXPECT_EQ(co_shmlen(task_, "OLD"), 4096u);
  agent.tell(1);
  EXPECT_EQ(agent.result(), 0);
  EXPECT_EQ(files(), 0);
}

TEST_F(Segment, TheCurrentOneIsKeptByItsName) {
  void* made = co_malloc(task_, 4096, CO_MEM_SHARED, "NOW");
  co_shm_letgo(task_, made, "NOW");
  EXPECT_EQ(co_shmlen(task_, "NOW"), 4096u);
  co_shm_sweep(task_, "NOW");
  EXPECT_EQ(co_shmlen(task_, "NOW"), 4096u);
}

TEST_F(Segment, ASweepRemovesWhatTheDeadLeft) {
  Agent agent([](Agent& self) {
    void* own = co_init_task("other", nullptr, 1);
    void* made = co_malloc(own, 4096, CO_MEM_SHARED, "LEFT");
    self.tell(made != nullptr);
    self.hear();
    return 0;
  });
  ASSERT_EQ(agent.hear(), 1u);
  co_shm_sweep(task_, "NOW");
  EXPECT_EQ(co_shmlen(task_, "LEFT"), 4096u);  // someone has it mapped
  agent.kill_now();
  co_shm_sweep(task_, "NOW");
  EXPECT_EQ(co_shmlen(task_, "LEFT"), 0u);
}

TEST_F(Segment, ASweepRemovesUnfinishedOnes) {
  std::ofstream(installation_.shared_folder() + "/new-3-1") << "half";
  EXPECT_EQ(files(), 1);
  co_shm_sweep(task_, nullptr);
  EXPECT_EQ(files(), 0);
}

// Its maker put it in place and could not take the first name off it.
TEST_F(Segment, ASweepTakesTheUnfinishedNameOffOneThatIsInUse) {
  void* made = co_malloc(task_, 4096, CO_MEM_SHARED, "NOW");
  ASSERT_NE(made, nullptr);
  const std::string folder = installation_.shared_folder();
  std::filesystem::create_hard_link(folder + "/seg-NOW", folder + "/new-3-1");
  co_shm_sweep(task_, "NOW");
  EXPECT_FALSE(std::filesystem::exists(folder + "/new-3-1"));
  EXPECT_EQ(co_shmlen(task_, "NOW"), 4096u);
}

TEST_F(Segment, ManyGenerationsDoNotPileUp) {
  void* before = nullptr;
  for (int generation = 0; generation < 100; ++generation) {
    const std::string name = "MEM_" + std::to_string(generation);
    void* made = co_malloc(task_, 4096, CO_MEM_SHARED, name.c_str());
    ASSERT_NE(made, nullptr);
    if (before != nullptr) co_shm_letgo(task_, before, name.c_str());
    before = made;
    ASSERT_EQ(files(), 1);
  }
}

TEST_F(Segment, ProcessesThatMakeItAtOnceGetOneMemory) {
  for (int round = 0; round < 20; ++round) {
    const std::string name = "RACE_" + std::to_string(round);
    const auto body = [&](Agent& self) {
      void* own = co_init_task("racer", nullptr, 1);
      self.hear();
      auto* words = static_cast<uint32_t*>(co_malloc(own, 4096, CO_MEM_SHARED, name.c_str()));
      if (words == nullptr) return 1;
      __atomic_fetch_add(words, 1u, __ATOMIC_SEQ_CST);
      return 0;
    };
    Agent a(body);
    Agent b(body);
    Agent c(body);
    for (Agent* agent : {&a, &b, &c}) agent->tell(1);
    for (Agent* agent : {&a, &b, &c}) ASSERT_EQ(agent->result(), 0);
    const auto* words = static_cast<const uint32_t*>(co_shmfind(task_, name.c_str()));
    ASSERT_NE(words, nullptr);
    EXPECT_EQ(*words, 3u);
    co_shm_letgo(task_, const_cast<uint32_t*>(words), nullptr);
  }
}

}  // namespace
