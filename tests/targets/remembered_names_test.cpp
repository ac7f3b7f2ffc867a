// A task remembers where it found names; what other processes do to them meanwhile, it sees.
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

class RememberedNames : public TargetsTest {
 protected:
  void SetUp() override {
    TargetsTest::SetUp();
    for (const char* name : {"A", "B", "C"}) {
      ASSERT_EQ(put(Record(name)), DBE_OK);
      numbers_.push_back(number(name));
    }
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(index_rc(name), DBE_OK) << "remembered";
  }
  // In another process; each call must succeed.
  void elsewhere(const std::function<int(void* own)>& calls) { ASSERT_EQ(in_child(calls), DBE_OK); }

  static int rename(void* own, const char* from, const char* to) { return db_rename_trg(own, from, to); }
  static int erase(void* own, const char* name) {
    const void* keys[] = {name};
    return db_del(own, DB_TRG, 1, keys);
  }
  static int add(void* own, const char* name) {
    Record record(name);
    const void* keys[] = {name};
    return db_put(own, DB_TRG, 1, keys, record.bytes.data(), static_cast<std::uint16_t>(record_len));
  }

  std::vector<std::uint32_t> numbers_;
};

TEST_F(RememberedNames, ARenameElsewhereIsSeen) {
  elsewhere([](void* own) { return rename(own, "B", "X"); });
  EXPECT_EQ(index_rc("B"), DBE_NO_TARGET);
  EXPECT_EQ(number("X"), numbers_[1]);
  EXPECT_EQ(number("A"), numbers_[0]);
}

TEST_F(RememberedNames, NamesThatChangeTheirOwnersElsewhereLeadToTheNewOnes) {
  elsewhere([](void* own) {
    int rc = rename(own, "A", "X");
    if (rc == DBE_OK) rc = rename(own, "B", "A");
    return rc == DBE_OK ? rename(own, "X", "B") : rc;
  });
  EXPECT_EQ(number("A"), numbers_[1]);
  EXPECT_EQ(number("B"), numbers_[0]);
  EXPECT_EQ(number("C"), numbers_[2]);
}

TEST_F(RememberedNames, OfTwoThatBearOneNameTheSearchesFirstIsFound) {
  elsewhere([](void* own) { return rename(own, "A", "C"); });
  const std::uint32_t first = number("C");
  EXPECT_EQ(first, tcb()->name_index[zvrdb::memory::find_name(task, "C")].trg_index);
  EXPECT_EQ(number("C"), first);
  unsigned char status[4] = {1, 2, 3, 4}, seen[4] = {};
  ASSERT_EQ(db_get_trg_stat(task, "C", seen), DBE_OK);
  ASSERT_EQ(db_put_trg_stat(task, "C", status), DBE_OK);
  EXPECT_EQ(std::memcmp(zvrdb::memory::trg_slot(tcb(), first)->trg_status, status, 4), 0);
}

TEST_F(RememberedNames, ADeletedTargetIsGoneAndItsNumberLeadsToTheNextOwner) {
  elsewhere([](void* own) { return erase(own, "B"); });
  EXPECT_EQ(index_rc("B"), DBE_NO_TARGET);
  elsewhere([](void* own) { return add(own, "NEW"); });
  EXPECT_EQ(number("NEW"), numbers_[1]);
  EXPECT_EQ(index_rc("B"), DBE_NO_TARGET);
  elsewhere([](void* own) { return add(own, "B"); });
  EXPECT_NE(number("B"), numbers_[1]);
}

TEST_F(RememberedNames, ANewGenerationBeginsAnew) {
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number("A"), numbers_[0]);
  elsewhere([](void* own) { return erase(own, "A"); });
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(index_rc("A"), DBE_NO_TARGET);
  EXPECT_EQ(number("C"), numbers_[2]);
}

TEST_F(RememberedNames, AListStepsOverTwoThatBearOneNameAsTheLookupDoes) {
  ASSERT_EQ(db_rename_trg(task, "A", "C"), DBE_OK);
  const std::uint32_t first = number("C");
  zvrdb::memory::trg_slot(tcb(), first)->trg_status[3] = 9;
  unsigned char filter[138] = {}, state[420], record[192];
  ASSERT_EQ(db_init_list(task, DB_TRG, filter, state, sizeof state), DBE_OK);
  std::vector<std::pair<std::string, unsigned>> steps;
  while (db_get_more(task, DB_TRG, state, record, sizeof record) == DBE_OK)
    steps.emplace_back(reinterpret_cast<const char*>(record), record[187]);
  // Both steps answer the one that the name leads to.
  EXPECT_EQ(steps, (std::vector<std::pair<std::string, unsigned>>{{"B", 0}, {"C", 9}, {"C", 9}}));
}

}  // namespace
}  // namespace target_test
