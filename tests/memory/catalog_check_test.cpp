#include "memory/shared_tables_fixture.h"
#include "support/cf_names.h"

namespace zvrtest {
namespace {

// Slots 0 to 3 hold C, A.B, (free) and A.C.
class CatalogCheck : public ::testing::Test {
 protected:
  CatalogCheck() {
    const char* names[] = {"C", "A.B", "FREE", "A.C"};
    for (std::uint16_t n = 0; n < 4; ++n) {
      slot(n).cf_number = n;
      slot(n).free_flag = n == 2 ? 1 : 0;
      std::memcpy(slot(n).head, cf(names[n]).data(), 76);
    }
    index()[0] = {1, 16, 0};
    index()[1] = {3, 0, 0};
    index()[2] = {0, 0, 0};
    t.cntl()->num_cat_inited = 4;
    t.cntl()->num_cat_actual = 3;
  }
  zvrdb::DIST_CAT_ENTRY& slot(unsigned number) { return t.tcb()->dist_cat[number]; }
  zvrdb::CAT_CNTL_ENTRY* index() { return t.tcb()->cat_cntl; }
  bool told(const char* what) {
    char reason[200] = {};
    if (zvrdb::memory::catalog_sound(t.task(), reason, sizeof reason)) return false;
    EXPECT_NE(std::string(reason).find(what), std::string::npos) << reason;
    return true;
  }
  table_task t;
};

TEST_F(CatalogCheck, SoundTablesPass) {
  char reason[200] = {};
  EXPECT_TRUE(zvrdb::memory::catalog_sound(t.task(), reason, sizeof reason)) << reason;
}

TEST_F(CatalogCheck, ASlotThatStandsTwiceIsSeen) {
  index()[1].dist_idx = 1;
  EXPECT_TRUE(told("stands twice"));
}

TEST_F(CatalogCheck, AFreeSlotInTheIndexIsSeen) {
  slot(2).free_flag = 0;
  slot(3).free_flag = 1;
  EXPECT_TRUE(told("is free"));
}

TEST_F(CatalogCheck, ASlotMissingFromTheIndexIsSeen) {
  t.cntl()->num_cat_actual = 2;
  EXPECT_TRUE(told("3 slots in use, 2 change files"));
}

TEST_F(CatalogCheck, AnEntryThatLeadsNowhereIsSeen) {
  index()[2].dist_idx = 4;
  EXPECT_TRUE(told("out of bounds"));
}

TEST_F(CatalogCheck, AWrongOrderIsSeen) {
  std::swap(index()[0], index()[2]);
  EXPECT_TRUE(told("stands behind"));
}

TEST_F(CatalogCheck, OneNameOnTwoSlotsIsSeen) {
  std::memcpy(slot(3).head, slot(1).head, 76);
  EXPECT_TRUE(told("stands behind"));
}

TEST_F(CatalogCheck, AWrongDifferenceIsSeen) {
  index()[0].name_diff = 17;
  EXPECT_TRUE(told("name_diff is 17 and should be 16"));
  index()[0].name_diff = 16;
  index()[2].name_diff = 1;
  EXPECT_TRUE(told("last entry"));
}

TEST_F(CatalogCheck, ANumberThatIsNotItsSlotsIsSeen) {
  slot(2).cf_number = 3;
  EXPECT_TRUE(told("slot 2 bears number 3"));
}

TEST_F(CatalogCheck, CountsBeyondTheTablesAreSeen) {
  t.cntl()->num_cat_inited = 11;
  EXPECT_TRUE(told("11 slots"));
  t.cntl()->num_cat_inited = 4;
  t.cntl()->num_cat_actual = 11;
  EXPECT_TRUE(told("11 change files"));
  t.cntl()->num_cat_actual = 3;
  t.cntl()->num_cat_alloc = 12;
  EXPECT_TRUE(told("for 12 allocated"));
}

TEST_F(CatalogCheck, TablesThatAreNotMappedAreNotSound) {
  zvrdb::memory::forget_layout(t.tcb());
  EXPECT_TRUE(told("not mapped"));
}

TEST_F(CatalogCheck, ASortBringsAnyOrderIntoOne) {
  std::swap(index()[0], index()[2]);
  std::swap(index()[0], index()[1]);
  zvrdb::memory::sort_cat(t.task());
  EXPECT_EQ(index()[0].dist_idx, 1);
  EXPECT_EQ(index()[1].dist_idx, 3);
  EXPECT_EQ(index()[2].dist_idx, 0);
}

TEST_F(CatalogCheck, ANameIsLocatedAtTheFirstEntryNotBelowIt) {
  const auto place = [&](const char* name) { return zvrdb::memory::locate_cat(t.task(), cf(name).data()); };
  EXPECT_EQ(place("A"), 0);
  EXPECT_EQ(place("A.B"), 0);
  EXPECT_EQ(place("A.BA"), 1);
  EXPECT_EQ(place("B"), 2);
  EXPECT_EQ(place("D"), -1) << "above all";
  EXPECT_EQ(zvrdb::memory::locate_cat(t.task(), nullptr), -1);
  EXPECT_EQ(zvrdb::memory::find_cat(t.task(), cf("A.C").data()), 1);
  EXPECT_EQ(zvrdb::memory::find_cat(t.task(), cf("B").data()), -1);
}

}  // namespace
}  // namespace zvrtest
