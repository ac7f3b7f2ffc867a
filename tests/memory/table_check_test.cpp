#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

class TableCheck : public ::testing::Test {
 protected:
  TableCheck() : t(6) {
    for (const char* name : {"C", "A", "B"}) t.add(name, name, name);
  }
  zvrdb::NAME_INDEX_ENTRY* names() { return t.tcb()->name_index; }
  std::uint32_t* dsus() { return t.tcb()->dsu_index; }
  table_task t;
};

TEST_F(TableCheck, SoundTablesPass) {
  EXPECT_EQ(t.unsound(), "");
}

TEST_F(TableCheck, ANumberThatStandsTwiceIsSeen) {
  names()[4].trg_index = names()[0].trg_index;
  EXPECT_NE(t.unsound().find("stands twice"), std::string::npos) << t.unsound();
}

TEST_F(TableCheck, AMissingNumberInTheFreePartIsSeen) {
  dsus()[4] = dsus()[5];
  EXPECT_NE(t.unsound().find("stands twice"), std::string::npos) << t.unsound();
}

TEST_F(TableCheck, AnOrderThatIsWrongIsSeenInEitherIndex) {
  std::swap(names()[0], names()[2]);
  EXPECT_NE(t.unsound().find("name index"), std::string::npos) << t.unsound();
  std::swap(names()[0], names()[2]);
  std::swap(dsus()[0], dsus()[1]);
  EXPECT_NE(t.unsound().find("DSU index"), std::string::npos) << t.unsound();
}

TEST_F(TableCheck, FreePartsThatDifferAreSeen) {
  std::swap(dsus()[3], dsus()[4]);
  EXPECT_NE(t.unsound().find("free entry 3"), std::string::npos) << t.unsound();
}

TEST_F(TableCheck, MarksOfUseThatDisagreeWithTheIndexAreSeen) {
  t.tcb()->trg_cntl[names()[4].trg_index - 1].in_use = 1;
  EXPECT_NE(t.unsound().find("marked as in use"), std::string::npos) << t.unsound();
}

TEST_F(TableCheck, ACountThatIsWrongIsSeen) {
  t.cntl()->num_trgs_actual = 2;
  EXPECT_NE(t.unsound(), "");
  t.cntl()->num_trgs_actual = 4;
  EXPECT_NE(t.unsound(), "");
  t.cntl()->num_trgs_actual = 7;
  EXPECT_NE(t.unsound(), "");
}

TEST_F(TableCheck, TablesThatAreNotMappedAreNotSound) {
  zvrdb::memory::forget_layout(t.tcb());
  EXPECT_NE(t.unsound(), "");
}

TEST_F(TableCheck, AShortReasonIsCutAndNoneIsAllowed) {
  names()[0].trg_index = 99;
  char reason[8];
  EXPECT_FALSE(zvrdb::memory::tables_sound(t.task(), reason, sizeof reason));
  EXPECT_EQ(std::string(reason).size(), 7u);
  EXPECT_FALSE(zvrdb::memory::tables_sound(t.task(), nullptr, 0));
}

}  // namespace
}  // namespace zvrtest
