#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;

TEST(SegmentLayout, TheTablesFollowTheHeaderInTheirOrder) {
  table_task t(7, 11);
  const unsigned char* base = t.tcb()->shm_base;
  const auto at = [base](const void* table) { return reinterpret_cast<const unsigned char*>(table) - base; };
  EXPECT_EQ(at(t.tcb()->trg_cntl), 4);
  EXPECT_EQ(at(t.tcb()->name_index), 4 + 7 * 192);
  EXPECT_EQ(at(t.tcb()->dsu_index), 4 + 7 * 200);
  EXPECT_EQ(at(t.tcb()->cat_cntl), 4 + 7 * 204);
  EXPECT_EQ(at(t.tcb()->dist_cat), 4 + 7 * 204 + 11 * 4);
  EXPECT_EQ(memory::segment_length(t.tcb()), 4u + 7 * 204 + 11 * 172);
}

TEST(SegmentLayout, LengthsBeyondFourGigabytesAddUp) {
  table_task t;
  t.cntl()->trg_cntl_len = 0xFFFFFFFF;
  t.cntl()->dist_cat_len = 0xFFFFFFFF;
  EXPECT_GT(memory::segment_length(t.tcb()), 0x1FFFFFFFFull);
}

TEST(SegmentLayout, TablesAreNotLaidOutBeyondWhatIsMapped) {
  table_task t(7, 11);
  unsigned char* base = t.tcb()->shm_base;
  const std::uint64_t length = memory::segment_length(t.tcb());
  EXPECT_TRUE(memory::lay_out(t.tcb(), base, length + 100));
  EXPECT_EQ(t.tcb()->shm_length, length) << "what the tables take";
  EXPECT_FALSE(memory::lay_out(t.tcb(), base, length - 1));
  EXPECT_EQ(t.tcb()->shm_base, nullptr);
  EXPECT_EQ(memory::trg_count(t.tcb()), 0u);
  t.cntl()->dist_cat_len = 0xFFFFFFFC;
  EXPECT_FALSE(memory::lay_out(t.tcb(), base, length));
  t.cntl()->dist_cat_len = 11 * 168;
  t.cntl()->name_index_len += 2;
  EXPECT_FALSE(memory::lay_out(t.tcb(), base, length + 100)) << "no table would be aligned";
  EXPECT_EQ(t.tcb()->dist_cat, nullptr);
}

TEST(SegmentLayout, ASegmentIsNamedByItsGeneration) {
  char name[16];
  memory::segment_name(0, name);
  EXPECT_STREQ(name, "MEM_0000");
  memory::segment_name(1, name);
  EXPECT_STREQ(name, "MEM_0001");
  memory::segment_name(0xFFFFFFFF, name);
  EXPECT_STREQ(name, "MEM_4294967295");
}

TEST(SegmentLayout, ForgettingClearsAllPointers) {
  table_task t;
  memory::forget_layout(t.tcb());
  EXPECT_FALSE(t.tcb()->shm_base || t.tcb()->trg_cntl || t.tcb()->name_index || t.tcb()->dsu_index ||
               t.tcb()->cat_cntl || t.tcb()->dist_cat || t.tcb()->shm_length);
}

}  // namespace
}  // namespace zvrtest
