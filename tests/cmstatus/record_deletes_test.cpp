// All pairs of a target or of a change file at once.
#include "cmstatus/cm_status.h"
#include "cmstatus/cms_fixture.h"
#include "memory/shared_tables.h"

namespace cms_test {
namespace {

using zvrdb::cmstatus::del_target_cms;

class RecordDeletes : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
  }
  int drop_file(const CfName& name) { return db_del_cf_cms(task, name.data()); }
  const CfName one = cf("ONE"), two = cf("TWO");
};

TEST_F(RecordDeletes, ATargetsPairsGoFromBothSides) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  ASSERT_EQ(set("B", one, 3), DBE_OK);
  const std::uint32_t gone = number("A");
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_FALSE(stored(task, target_record, gone));
  EXPECT_EQ(stored_of_file(one)->size(), 4u);
  EXPECT_FALSE(stored_of_file(two));
  EXPECT_EQ(by_file(one, "B"), 3u);
  expect_sides_agree();
}

TEST_F(RecordDeletes, TheNextOwnerOfADeletedTargetsNumberHasNoStatus) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  const std::uint32_t gone = number("A");
  ASSERT_EQ(del("A"), DBE_OK);
  ASSERT_EQ(put_target("HEIR"), DBE_OK);
  ASSERT_EQ(number("HEIR"), gone);
  EXPECT_EQ(status("HEIR", one).rc, DBE_NOT_FOUND);
}

TEST_F(RecordDeletes, PairsOfATargetThatIsNotLocalStayAndPassToTheNumbersNextOwner) {
  ASSERT_EQ(put_target("FAR", remote | client), DBE_OK);
  ASSERT_EQ(set("FAR", one, 7), DBE_OK);
  const std::uint32_t gone = number("FAR");
  ASSERT_EQ(del("FAR"), DBE_OK);
  EXPECT_TRUE(stored(task, target_record, gone));
  ASSERT_EQ(put_target("HEIR"), DBE_OK);
  ASSERT_EQ(number("HEIR"), gone);
  EXPECT_EQ(status("HEIR", one).status(), 7u);
  expect_sides_agree();
}

TEST_F(RecordDeletes, AnUnknownTargetOrOneWithoutStatusIsNoFailure) {
  ASSERT_EQ(set("B", one, 1), DBE_OK);
  EXPECT_EQ(del_target_cms(task, "NOBODY"), DBE_OK);
  EXPECT_EQ(del_target_cms(task, "A"), DBE_OK);
  EXPECT_EQ(del_target_cms(task, "B"), DBE_OK);
  EXPECT_EQ(del_target_cms(task, "B"), DBE_OK);
  EXPECT_TRUE(stored_pairs(task).by_target.empty());
  expect_sides_agree();
}

TEST_F(RecordDeletes, ATargetsRecordOfFreeEntriesGoesToo) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(drop("A", one), DBE_OK);
  const std::uint32_t gone = number("A");
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_FALSE(stored(task, target_record, gone));
}

TEST_F(RecordDeletes, DeletingATargetCountsAsAChangeOfStatus) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  const std::uint32_t before = cntl()->gen[DB_CMS];
  ASSERT_EQ(del("B"), DBE_OK);
  EXPECT_EQ(cntl()->gen[DB_CMS], before) << "it has no status";
  ASSERT_EQ(del("A"), DBE_OK);
  EXPECT_EQ(cntl()->gen[DB_CMS], before + 1);
}

TEST_F(RecordDeletes, ATargetWhosePairHasNoRecordOfItsChangeFileStays) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  const Body body = *stored_of_target("A");
  ASSERT_EQ(drop("A", two), DBE_OK);
  store(target_record, number("A"), body);
  EXPECT_EQ(del("A"), DBE_IO_ERROR);
  EXPECT_EQ(index_rc("A"), DBE_OK);
  EXPECT_EQ(get("A").rc, DBE_OK);
  EXPECT_EQ(*stored_of_target("A"), body);
  EXPECT_EQ(by_file(one, "A"), 1u) << "rolled back";
}

TEST_F(RecordDeletes, AChangeFilesPairsGoFromBothSidesAndItCanBeDeleted) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(set(name, one, 1), DBE_OK);
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  ASSERT_EQ(del_file(one), DBE_CMS_EXISTS);
  EXPECT_EQ(drop_file(one), DBE_OK);
  EXPECT_FALSE(stored_of_file(one));
  EXPECT_EQ(by_target("A").entries, std::vector<std::uint32_t>{listed(two, 2)});
  EXPECT_EQ(by_target("B").count, 0u);
  EXPECT_EQ(stored_of_target("A")->size(), 2 * 38u) << "the entry is free";
  expect_sides_agree();
  EXPECT_EQ(del_file(one), DBE_OK);
}

TEST_F(RecordDeletes, AnUnknownChangeFileOrOneWithoutStatusIsNoFailure) {
  EXPECT_EQ(drop_file(cf("NO.SUCH")), DBE_OK);
  EXPECT_EQ(drop_file(one), DBE_OK);
}

TEST_F(RecordDeletes, ATargetWithoutRecordIsPassedOver) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("C", one, 3), DBE_OK);
  // Lists target 77 besides, which has no record.
  Body body = *stored_of_file(one);
  body.insert(body.begin(), {9, 77, 0, 0});
  store(file_record, file_number(one), body);
  EXPECT_EQ(drop_file(one), DBE_OK);
  EXPECT_FALSE(stored_of_file(one));
  expect_sides_agree();
}

TEST_F(RecordDeletes, ATargetWhoseRecordDoesNotListTheChangeFileKeepsItsRecord) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("B", two, 2), DBE_OK);
  Body body = *stored_of_file(one);
  body.insert(body.end(), {9, static_cast<unsigned char>(number("B")), 0, 0});
  store(file_record, file_number(one), body);
  const Body kept = *stored_of_target("B");
  EXPECT_EQ(drop_file(one), DBE_OK);
  EXPECT_EQ(*stored_of_target("B"), kept);
  expect_sides_agree();
}

TEST_F(RecordDeletes, WithoutMemoryNothingOfARecordGoes) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  ASSERT_EQ(set("B", one, 3), DBE_OK);
  const StoredPairs before = stored_pairs(task);
  for (const auto& call : {std::function<int()>([&] { return del_target_cms(task, "A"); }),
                           std::function<int()>([&] { return drop_file(one); })}) {
    int rc = DBE_IO_ERROR;
    for (int allowed = 0; allowed < 20; ++allowed) {
      drop_work_area();
      co_test_fail_malloc(allowed);
      rc = call();
      co_test_fail_malloc(-1);
      if (rc == DBE_OK) break;
      EXPECT_EQ(rc, DBE_IO_ERROR);
      EXPECT_EQ(stored_pairs(task).by_target, before.by_target);
      expect_sides_agree();
    }
    EXPECT_EQ(rc, DBE_OK);
    for (const auto& [target, file, value] :
         {std::tuple("A", one, 1u), std::tuple("A", two, 2u), std::tuple("B", one, 3u)})
      set(target, file, value);
    ASSERT_EQ(stored_pairs(task).by_target, before.by_target);
  }
}

}  // namespace
}  // namespace cms_test
