#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::memory;

TEST(TargetLookup, EachOfManyNamesIsFoundUnderItsOwnNumber) {
  table_task t(600);
  std::vector<std::uint32_t> numbers;
  for (unsigned i = 0; i < 500; ++i) numbers.push_back(t.add_unsorted("T" + std::to_string(i * 7919 % 500)));
  sort_names(t.task());
  sort_dsu(t.task());
  ASSERT_EQ(t.unsound(), "");
  for (unsigned i = 0; i < 500; ++i) {
    std::uint32_t number = 0;
    ASSERT_EQ(get_trg_index(t.task(), ("T" + std::to_string(i * 7919 % 500)).c_str(), &number), DBE_OK);
    EXPECT_EQ(number, numbers[i]);
  }
}

TEST(TargetLookup, AnUnknownNameIsNoTarget) {
  table_task t;
  std::uint32_t number = 77;
  EXPECT_EQ(get_trg_index(t.task(), "A", &number), DBE_NO_TARGET) << "empty table";
  t.add("B");
  for (const char* name : {"", "A", "BB", "C"})
    EXPECT_EQ(get_trg_index(t.task(), name, &number), DBE_NO_TARGET);
  EXPECT_EQ(get_trg_index(t.task(), nullptr, &number), DBE_NO_TARGET);
  EXPECT_EQ(number, 77u);
}

TEST(TargetLookup, LocateGivesTheNameOrTheNextGreaterAndNothingAboveAll) {
  table_task t;
  EXPECT_EQ(locate_name(t.task(), "A"), -1) << "empty table";
  for (const char* name : {"D", "B", "F"}) t.add(name);
  EXPECT_EQ(t.name_at(locate_name(t.task(), "A")), "B");
  EXPECT_EQ(t.name_at(locate_name(t.task(), "B")), "B");
  EXPECT_EQ(t.name_at(locate_name(t.task(), "C")), "D");
  EXPECT_EQ(t.name_at(locate_name(t.task(), "F")), "F");
  EXPECT_EQ(locate_name(t.task(), "G"), -1);
  EXPECT_EQ(find_name(t.task(), "C"), -1);
  EXPECT_EQ(t.name_at(find_name(t.task(), "D")), "D");
}

TEST(TargetLookup, ANameOf64CharactersIsUnknownAndOneOf63IsNot) {
  table_task t;
  const std::string longest(63, 'x');
  t.add(longest);
  EXPECT_GE(find_name(t.task(), longest.c_str()), 0);
  t.add(longest + "x");  // fills its slot to the last byte
  EXPECT_EQ(find_name(t.task(), (longest + "x").c_str()), -1);
  EXPECT_EQ(find_name(t.task(), (longest + "xy").c_str()), -1);
  EXPECT_EQ(t.unsound(), "");
}

TEST(TargetLookup, Number65535HasNoStatusSlot) {
  table_task t(65536);
  t.tcb()->name_index[0].trg_index = 65535;
  t.tcb()->name_index[65534].trg_index = 1;
  t.add_unsorted("EDGE");
  std::uint32_t number = 0;
  EXPECT_EQ(get_trg_index(t.task(), "EDGE", &number), DBE_NO_STATUS);
  EXPECT_EQ(number, 65535u);
}

TEST(TargetLookup, ANumberOutOfBoundsInTheIndexIsNotFollowed) {
  table_task t;
  t.add("A");
  t.add("B");
  std::uint32_t number = 0;
  for (const std::uint32_t wild : {0u, 21u, 0xFFFFFFFFu}) {
    t.tcb()->name_index[0].trg_index = wild;
    t.tcb()->dsu_index[0] = wild;
    EXPECT_EQ(get_trg_index(t.task(), "A", &number), DBE_NO_TARGET);
    EXPECT_EQ(get_trg_index(t.task(), "", &number), DBE_NO_TARGET);
    EXPECT_EQ(get_trg_index(t.task(), "B", &number), DBE_OK);
    sort_names(t.task());
    sort_dsu(t.task());
    EXPECT_NE(t.unsound(), "");
  }
}

TEST(TargetLookup, ACountAboveTheTableIsCutToTheTable) {
  table_task t(3);
  for (const char* name : {"A", "B", "C"}) t.add(name);
  t.cntl()->num_trgs_actual = 0xFFFFFFFF;
  EXPECT_EQ(trg_count(t.tcb()), 3u);
  std::uint32_t number = 0;
  EXPECT_EQ(get_trg_index(t.task(), "C", &number), DBE_OK);
  EXPECT_EQ(get_trg_index(t.task(), "D", &number), DBE_NO_TARGET);
  EXPECT_NE(t.unsound(), "");
}

TEST(TargetLookup, TablesShorterThanTheAllowedNumberBoundEverySlot) {
  table_task t(5);
  t.add("A");
  t.cntl()->num_trgs_allowed = 1000;
  EXPECT_EQ(trg_slot(t.tcb(), 6), nullptr);
  EXPECT_NE(trg_slot(t.tcb(), 5), nullptr);
  EXPECT_EQ(trg_slot(t.tcb(), 0), nullptr);
  t.cntl()->trg_cntl_len = 1000 * 192;
  t.cntl()->name_index_len = 1000 * 8;
  t.cntl()->dsu_index_len = 1000 * 4;
  EXPECT_EQ(trg_slot(t.tcb(), 6), nullptr);
  EXPECT_EQ(trg_slot(t.tcb(), 1000), nullptr);
  t.cntl()->num_trgs_actual = 1000;
  EXPECT_EQ(trg_count(t.tcb()), 5u);
  std::uint32_t number = 0;
  EXPECT_EQ(get_trg_index(t.task(), "Z", &number), DBE_NO_TARGET);
}

// While a task without the semaphore looks names up, the lengths of the next generation
// may be computed, in the same sum or a lower one.
TEST(TargetLookup, LengthsOfAnotherGenerationNeverLeadBeyondTheTablesThatAreMapped) {
  table_task t(10, 10);
  t.add("A");
  t.cntl()->num_trgs_allowed = 15;
  t.cntl()->num_trgs_actual = 15;
  t.cntl()->trg_cntl_len = 15 * 192;
  t.cntl()->name_index_len = 15 * 8;
  t.cntl()->dsu_index_len = 15 * 4;
  t.cntl()->cat_cntl_len = 0;
  t.cntl()->dist_cat_len = 0;
  ASSERT_LE(segment_length(t.tcb()), t.tcb()->shm_length);
  EXPECT_EQ(trg_count(t.tcb()), 10u);
  EXPECT_EQ(trg_slot(t.tcb(), 11), nullptr);
  std::uint32_t number = 0;
  EXPECT_EQ(get_trg_index(t.task(), "Z", &number), DBE_NO_TARGET);
  t.cntl()->num_trgs_actual = 1;
  EXPECT_EQ(get_trg_index(t.task(), "A", &number), DBE_OK) << "its own tables still answer";

  t.cntl()->trg_cntl_len = 0;
  t.cntl()->name_index_len = 0;
  t.cntl()->dsu_index_len = 0;
  t.cntl()->num_cat_alloc = 15;
  t.cntl()->num_cat_actual = 15;
  t.cntl()->cat_cntl_len = 15 * 4;
  t.cntl()->dist_cat_len = 15 * 168;
  ASSERT_LE(segment_length(t.tcb()), t.tcb()->shm_length);
  unsigned char cf_name[76] = {};
  EXPECT_EQ(get_cat_name(t.task(), cf_name, 9), DBE_OK);
  EXPECT_EQ(get_cat_name(t.task(), cf_name, 10), DBE_NOT_FOUND);
  cf_name[11] = 'Z';
  std::uint16_t cf_number = 0;
  EXPECT_EQ(get_cat_num(t.task(), &cf_number, cf_name), DBE_NOT_FOUND);
}

TEST(TargetLookup, NumbersTurnIntoNamesAlsoOfFreeSlots) {
  table_task t;
  const std::uint32_t number = t.add("A");
  char name[64];
  EXPECT_EQ(get_trg_name(t.task(), name, number), DBE_OK);
  EXPECT_STREQ(name, "A");
  t.tcb()->trg_cntl[number - 1].in_use = 0;
  t.cntl()->num_trgs_actual = 0;
  EXPECT_EQ(get_trg_name(t.task(), name, number), DBE_OK);
  EXPECT_STREQ(name, "A") << "the last name held there";
  EXPECT_EQ(get_trg_name(t.task(), name, 20), DBE_OK);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(get_trg_name(t.task(), name, 0), DBE_NO_TARGET);
  EXPECT_EQ(get_trg_name(t.task(), name, 21), DBE_NO_TARGET);
  EXPECT_EQ(get_trg_name(t.task(), name, 0xFFFFFFFF), DBE_NO_TARGET);
}

TEST(TargetLookup, ATaskWithoutTablesFindsNothing) {
  table_task t;
  t.add("A");
  forget_layout(t.tcb());
  std::uint32_t number = 0;
  char name[64];
  EXPECT_EQ(get_trg_index(t.task(), "A", &number), DBE_NO_TARGET);
  EXPECT_EQ(get_trg_name(t.task(), name, 1), DBE_NO_TARGET);
  EXPECT_EQ(locate_dsu(t.task(), "A"), -1);
  EXPECT_EQ(find_dsu_of(t.task(), "A", 1), -1);
  EXPECT_EQ(trg_count(t.tcb()), 0u);
}

// What the child leaves for its parent to read, and to clean up: once it may make no
// more system calls, it can remove nothing.
struct quiet_child {
  char base[256];
  char shared_folder[256];
};

void look_up_quietly(quiet_child* shared) {
  table_task t(200);
  std::snprintf(shared->base, sizeof shared->base, "%s", t.installation().base().c_str());
  std::snprintf(shared->shared_folder, sizeof shared->shared_folder, "%s", co_shared_folder(t.task()));
  for (unsigned i = 0; i < 150; ++i) t.add_unsorted("T" + std::to_string(i));
  sort_names(t.task());
  std::uint32_t number = 0;
  char name[64];
  const auto works = [&](const char* known) {
    return get_trg_index(t.task(), known, &number) == DBE_OK &&
           get_trg_index(t.task(), "nobody", &number) == DBE_NO_TARGET &&
           get_trg_name(t.task(), name, 3) == DBE_OK;
  };
  if (!works("T77")) syscall(SYS_exit_group, 2);
  // From here on the kernel kills the process at any call but read, write and exit.
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) syscall(SYS_exit_group, 3);
  const bool good = works("T78");
  syscall(SYS_exit, good ? 0 : 1);
}

TEST(TargetLookup, ALookupMakesNoSystemCall) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer's own thread outlives the exit of the only other one";
#endif
  auto* shared = static_cast<quiet_child*>(
      mmap(nullptr, sizeof(quiet_child), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(shared, MAP_FAILED);
  const pid_t child = fork();
  if (child == 0) look_up_quietly(shared);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  for (const char* left : {shared->base, shared->shared_folder})
    if (*left) std::filesystem::remove_all(left);
  munmap(shared, sizeof(quiet_child));
  ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(TargetLookup, ALookupAllocatesNothing) {
  table_task t;
  t.add("A");
  co_test_fail_malloc(0);
  std::uint32_t number = 0;
  EXPECT_EQ(get_trg_index(t.task(), "A", &number), DBE_OK);
  EXPECT_EQ(co_malloc(t.task(), 8, CO_MEM_PRIVATE, "TEST"), nullptr) << "the failure was not used up";
  co_test_fail_malloc(-1);
}

}  // namespace
}  // namespace zvrtest
