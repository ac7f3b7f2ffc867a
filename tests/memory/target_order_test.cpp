#include <random>

#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::memory;

std::string dsu_of(const char* rgn, const char* ren) {
  char text[18];
  dsu_text(text, rgn, ren);
  return text;
}

TEST(TargetOrder, ADsuNameIsPaddedOnTheLeft) {
  EXPECT_EQ(dsu_of("N", "ELEM"), "       N.    ELEM");
  EXPECT_EQ(dsu_of("", ""), "        .        ");
  EXPECT_EQ(dsu_of("NETWORK1", "ELEMENT1"), "NETWORK1.ELEMENT1");
}

TEST(TargetOrder, PartsOfADsuNameMayFillTheirWidth) {
  const char both[16] = {'N', 'E', 'T', 'W', 'O', 'R', 'K', '1', 'E', 'L', 'E', 'M', 'E', 'N', 'T', '1'};
  char text[18];
  dsu_text(text, both, both + 8);
  EXPECT_STREQ(text, "NETWORK1.ELEMENT1");
}

TEST(TargetOrder, ALocalTargetTakesTheLocalNetworkName) {
  table_task t;
  const std::uint32_t local = t.add("L", "OLD", "L1", 32 | 2);
  const std::uint32_t remote = t.add("R", "OLD", "R1", 128);
  char text[18];
  dsu_text_of(t.tcb(), trg_slot(t.tcb(), local), text);
  EXPECT_STREQ(text, "     OLD.      L1") << "there is no local name yet";
  std::memcpy(t.cntl()->local_dsu, "SERVER99", 8);
  dsu_text_of(t.tcb(), trg_slot(t.tcb(), local), text);
  EXPECT_STREQ(text, "SERVER99.      L1");
  dsu_text_of(t.tcb(), trg_slot(t.tcb(), remote), text);
  EXPECT_STREQ(text, "     OLD.      R1");
}

TEST(TargetOrder, ASortWritesTheLocalNetworkNameEvenIntoALoneTarget) {
  table_task t;
  const std::uint32_t local = t.add("L", "OLD", "L1", 32);
  std::memcpy(t.cntl()->local_dsu, "HERE\0\0\0\0", 8);
  sort_dsu(t.task());
  EXPECT_STREQ(trg_slot(t.tcb(), local)->rgn, "HERE");
  t.cntl()->local_dsu[0] = 0;
  sort_dsu(t.task());
  EXPECT_STREQ(trg_slot(t.tcb(), local)->rgn, "HERE") << "no local name is none to write";
}

TEST(TargetOrder, AmongEqualDsuNamesTheEntryWithTheNumberIsFound) {
  table_task t(50);
  t.add_unsorted("FIRST", "A", "A");
  for (unsigned i = 0; i < 40; ++i) t.add_unsorted("T" + std::to_string(i));
  t.add_unsorted("LAST", "Z", "Z");
  sort_names(t.task());
  sort_dsu(t.task());
  ASSERT_EQ(t.unsound(), "");
  const std::string none = dsu_of("", "");
  for (std::uint32_t number = 2; number <= 41; ++number) {
    const std::int64_t position = find_dsu_of(t.task(), none.c_str(), number);
    ASSERT_GE(position, 0);
    EXPECT_EQ(t.tcb()->dsu_index[position], number);
  }
  EXPECT_EQ(find_dsu_of(t.task(), none.c_str(), 1), -1) << "a number with another name";
  EXPECT_EQ(find_dsu_of(t.task(), none.c_str(), 45), -1) << "a free number";
  EXPECT_EQ(find_dsu_of(t.task(), none.c_str(), 0), -1);
  EXPECT_GE(find_dsu(t.task(), dsu_of("Z", "Z").c_str()), 0);
  EXPECT_EQ(find_dsu(t.task(), dsu_of("Y", "Z").c_str()), -1);
  EXPECT_EQ(locate_dsu(t.task(), "ZZZZZZZZ.ZZZZZZZZ"), -1);
  EXPECT_EQ(locate_dsu(t.task(), dsu_of("Y", "Z").c_str()), find_dsu(t.task(), dsu_of("Z", "Z").c_str()));
}

TEST(TargetOrder, ASortBringsAnyOrderIntoOne) {
  std::mt19937 random(7);
  for (const unsigned count : {0u, 1u, 2u, 3u, 7u, 64u, 65u, 1000u}) {
    table_task t(count + 3);
    for (unsigned i = 0; i < count; ++i)
      t.add_unsorted("N" + std::to_string(random()), "R" + std::to_string(random() % 5),
                     "E" + std::to_string(random() % 10), random() % 2 ? 32 : 128);
    std::memcpy(t.cntl()->local_dsu, "LOCAL\0\0\0", 8);
    sort_names(t.task());
    sort_dsu(t.task());
    EXPECT_EQ(t.unsound(), "") << count;
  }
}

TEST(TargetOrder, ASortLeavesTheFreeNumbersAlone) {
  table_task t(6);
  for (const char* name : {"C", "A", "B"}) t.add_unsorted(name);
  std::swap(t.tcb()->name_index[3], t.tcb()->name_index[5]);
  std::swap(t.tcb()->dsu_index[3], t.tcb()->dsu_index[5]);
  sort_names(t.task());
  sort_dsu(t.task());
  EXPECT_EQ(t.unsound(), "");
  EXPECT_EQ(t.tcb()->name_index[3].trg_index, 6u);
  EXPECT_EQ(t.tcb()->name_index[5].trg_index, 4u);
}

}  // namespace
}  // namespace zvrtest
