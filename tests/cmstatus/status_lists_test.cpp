// States of a change file on all targets, and of all change files on a target.
#include "cmstatus/cms_fixture.h"

namespace cms_test {
namespace {

class StatusLists : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
    ASSERT_EQ(put_file(three), DBE_OK);
  }
  const CfName one = cf("ONE"), two = cf("TWO"), three = cf("THREE");
};

TEST_F(StatusLists, AChangeFileWithoutStatusGivesAListOfFifteens) {
  const FileList list = by_file(one);
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.list, std::vector<unsigned char>(101, 15));
}

TEST_F(StatusLists, AnUnknownChangeFileGivesAListOfFifteensWithTheFailure) {
  const FileList list = by_file(cf("NO.SUCH"));
  EXPECT_EQ(list.rc, DBE_NOT_FOUND);
  EXPECT_EQ(list.list, std::vector<unsigned char>(101, 15));
}

TEST_F(StatusLists, AListOfFewerBytesThanEntriesIsTooSmall) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("B", one, 2), DBE_OK);
  const FileList list = by_file(one, 1);
  EXPECT_EQ(list.rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(list.list, std::vector<unsigned char>{15});
  EXPECT_EQ(by_file(one, 0).rc, DBE_LIST_TOO_SMALL);
}

TEST_F(StatusLists, TargetsWithoutAPlaceInAListThatIsLongEnoughAreLeftOut) {
  ASSERT_EQ(set("C", one, 3), DBE_OK);
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_GT(number("C"), number("A"));
  const FileList list = by_file(one, number("C"));
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.list[number("A")], 1);
}

TEST_F(StatusLists, EntryZeroOfAListStaysAsItWasFilled) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  store(file_record, file_number(one), {3, 0, 0, 0});  // status 3 of target 0
  EXPECT_EQ(by_file(one).list[0], 15);
}

TEST_F(StatusLists, ATargetsListHasItsChangeFilesInStoredOrder) {
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("A", three, 3), DBE_OK);
  EXPECT_EQ(by_target("A").entries,
            (std::vector<std::uint32_t>{listed(two, 2), listed(one, 1), listed(three, 3)}));
  ASSERT_EQ(drop("A", two), DBE_OK);
  EXPECT_EQ(by_target("A").entries, (std::vector<std::uint32_t>{listed(one, 1), listed(three, 3)}));
  ASSERT_EQ(set("A", two, 4), DBE_OK);
  EXPECT_EQ(by_target("A").entries,
            (std::vector<std::uint32_t>{listed(two, 4), listed(one, 1), listed(three, 3)}));
}

TEST_F(StatusLists, ATargetsListThatIsTooSmallHasTheFirstEntries) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  for (const std::uint32_t length : {4u, 5u, 7u}) {
    const TargetList list = by_target("A", length);
    EXPECT_EQ(list.rc, DBE_LIST_TOO_SMALL);
    EXPECT_EQ(list.count, 1u);
    EXPECT_EQ(list.entries, std::vector<std::uint32_t>{listed(one, 1)});
  }
  EXPECT_EQ(by_target("A", 0).rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(by_target("A", 0).count, 0u);
  EXPECT_EQ(by_target("A", 8).rc, DBE_OK);
}

TEST_F(StatusLists, FreedEntriesNeedNoRoomInATargetsList) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(set("A", two, 2), DBE_OK);
  ASSERT_EQ(drop("A", two), DBE_OK);
  EXPECT_EQ(by_target("A", 4).rc, DBE_OK);
}

TEST_F(StatusLists, TheRestOfATargetsListIsFilledWithFifteens) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  std::vector<std::uint32_t> list(3, 0xEEEEEEEE);
  std::uint32_t count = 0;
  ASSERT_EQ(db_cm_by_trg(task, "A", list.data(), 11, &count), DBE_OK);
  EXPECT_EQ(list, (std::vector<std::uint32_t>{listed(one, 1), 0x0F0F0F0F, 0xEE0F0F0F}));
}

TEST_F(StatusLists, AnUnknownTargetAndOneWithoutRecordHaveNoList) {
  EXPECT_EQ(by_target("NOBODY").rc, DBE_NOT_FOUND);
  EXPECT_EQ(by_target("NOBODY").count, 0u);
  EXPECT_EQ(by_target("A").rc, DBE_NOT_FOUND);
  EXPECT_EQ(by_target("A").count, 0u);
}

TEST_F(StatusLists, NullArgumentsAreRefused) {
  std::uint32_t count = 9, list[4];
  EXPECT_EQ(db_cm_by_cat(task, one.data(), nullptr, 0), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(db_cm_by_trg(task, "A", list, sizeof list, nullptr), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(db_cm_by_trg(task, "A", nullptr, 0, &count), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(db_cm_by_trg(task, nullptr, list, sizeof list, &count), DBE_NOT_FOUND);
  unsigned char bytes[8] = {};
  EXPECT_EQ(db_cm_by_cat(task, nullptr, bytes, sizeof bytes), DBE_NOT_FOUND);
  EXPECT_EQ(db_del_cf_cms(task, nullptr), DBE_NOT_FOUND);
  EXPECT_EQ(db_cm_by_trg(nullptr, "A", list, sizeof list, &count), DBE_INIT_FAILED);
  EXPECT_EQ(db_del_cf_cms(nullptr, one.data()), DBE_INIT_FAILED);
}

TEST_F(StatusLists, WithoutMemoryListsFail) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  ASSERT_EQ(by_target("A").rc, DBE_OK);
  drop_work_area();
  co_test_fail_malloc(0);
  EXPECT_EQ(by_target("A").rc, DBE_IO_ERROR);
  co_test_fail_malloc(0);
  EXPECT_EQ(by_file(one).rc, DBE_IO_ERROR);
  co_test_fail_malloc(-1);
}

TEST_F(StatusLists, TheCountOfATargetsListIsZeroAlsoWhenTheCallCannotBegin) {
  std::uint32_t count = 9, list[4] = {7, 7, 7, 7};
  EXPECT_EQ(db_cm_by_trg(nullptr, "A", list, sizeof list, &count), DBE_INIT_FAILED);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(list[0], 7u);
}

}  // namespace
}  // namespace cms_test
