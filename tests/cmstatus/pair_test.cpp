// One pair of a target and a change file: put, get and del.
#include <cstring>

#include "cmstatus/cm_status.h"
#include "cmstatus/cms_fixture.h"

namespace cms_test {
namespace {

class PairTest : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    ASSERT_EQ(put_target("A"), DBE_OK);
    ASSERT_EQ(put_target("B"), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
  }
  const CfName one = cf("ACME.PROD.FIX.1"), two = cf("ACME.PROD.UPD.2");
};

TEST_F(PairTest, AStatusThatWasPutIsThereBothWays) {
  EXPECT_EQ(set("A", one, 7, "details"), DBE_OK);
  EXPECT_EQ(by_file(one, "A"), 7u);
  EXPECT_EQ(by_file(one, "B"), 15u);
  const TargetList list = by_target("A");
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.entries, std::vector<std::uint32_t>{listed(one, 7)});
  expect_sides_agree();
}

TEST_F(PairTest, AStatusIsReadWithNamesAndDetails) {
  ASSERT_EQ(set("A", one, 7, "details"), DBE_OK);
  const StatusRecord read = status("A", one);
  EXPECT_EQ(read.rc, DBE_OK);
  EXPECT_EQ(read.target(), "A");
  EXPECT_EQ(std::memcmp(read.bytes.data() + 64, one.data(), one.size()), 0);
  EXPECT_EQ(read.status(), 7u);
  EXPECT_STREQ(read.details().c_str(), "details");
}

TEST_F(PairTest, ASecondPutReplacesTheStatusOnBothSides) {
  ASSERT_EQ(set("A", one, 7, "old"), DBE_OK);
  EXPECT_EQ(set("A", one, 9, "new"), DBE_RECORD_REPLACED);
  EXPECT_EQ(by_file(one, "A"), 9u);
  EXPECT_EQ(by_target("A").entries, std::vector<std::uint32_t>{listed(one, 9)});
  EXPECT_STREQ(status("A", one).details().c_str(), "new");
  expect_sides_agree();
}

TEST_F(PairTest, PuttingForAnUnknownTargetOrChangeFileIsRefusedAndChangesNothing) {
  EXPECT_EQ(set("NOBODY", one, 7), DBE_BAD_CMS_KEY);
  EXPECT_EQ(set("A", cf("NO.SUCH"), 7), DBE_BAD_CMS_KEY);
  EXPECT_EQ(set("", one, 7), DBE_BAD_CMS_KEY);
  EXPECT_EQ(set(std::string(64, 'A'), one, 7), DBE_BAD_CMS_KEY);
  EXPECT_TRUE(stored_pairs(task).by_target.empty());
  expect_sides_agree();
}

TEST_F(PairTest, PuttingAsksForNoLocalTarget) {
  ASSERT_EQ(put_target("FAR", remote | client), DBE_OK);
  EXPECT_EQ(set("FAR", one, 7), DBE_OK);
  EXPECT_EQ(status("FAR", one).status(), 7u);
}

TEST_F(PairTest, PuttingTakesStatusAndDetailsWhateverTheLengthSays) {
  std::array<unsigned char, status_len> record{};
  record[140] = 3;
  record[144] = 'd';
  record[175] = 'z';
  const void* keys[] = {"A", one.data()};
  EXPECT_EQ(db_put(task, DB_CMS, 2, keys, record.data(), 0), DBE_OK);
  EXPECT_EQ(status("A", one).status(), 3u);
  EXPECT_EQ(status("A", one).bytes[144], 'd');
  EXPECT_EQ(status("A", one).bytes[175], 'z');
}

TEST_F(PairTest, TheNamesInTheCallersRecordAreNotLookedAt) {
  std::array<unsigned char, status_len> record{};
  std::memcpy(record.data(), "B", 2);
  std::memcpy(record.data() + 64, two.data(), two.size());
  const void* keys[] = {"A", one.data()};
  EXPECT_EQ(db_put(task, DB_CMS, 2, keys, record.data(), status_len), DBE_OK);
  EXPECT_EQ(status("A", one).rc, DBE_OK);
  EXPECT_EQ(status("B", two).rc, DBE_NOT_FOUND);
}

TEST_F(PairTest, TheCallersThreeBytesBehindTheStatusAreNotStored) {
  std::array<unsigned char, status_len> record{};
  std::fill_n(record.begin() + 141, 3, 0x55);
  const void* keys[] = {"A", one.data()};
  ASSERT_EQ(db_put(task, DB_CMS, 2, keys, record.data(), status_len), DBE_OK);
  const StatusRecord read = status("A", one);
  EXPECT_EQ(read.bytes[141] | read.bytes[142] | read.bytes[143], 0);
}

TEST_F(PairTest, TheThreeBytesOfAStoredEntryAreHandedOutAndStay) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  Body body = *stored_of_target("A");
  body[3] = 'x';
  body[4] = 'y';
  body[5] = 'z';
  store(target_record, number("A"), body);
  EXPECT_EQ(std::memcmp(status("A", one).bytes.data() + 141, "xyz", 3), 0);
  ASSERT_EQ(set("A", one, 8), DBE_RECORD_REPLACED);
  EXPECT_EQ(std::memcmp(status("A", one).bytes.data() + 141, "xyz", 3), 0);
  // And with the entry, to the next pair that takes it.
  ASSERT_EQ(drop("A", one), DBE_OK);
  ASSERT_EQ(set("A", two, 9), DBE_OK);
  EXPECT_EQ(std::memcmp(status("A", two).bytes.data() + 141, "xyz", 3), 0);
}

TEST_F(PairTest, AShortBufferTakesWholeNamesOnly) {
  ASSERT_EQ(set("A", one, 7, "details"), DBE_OK);
  for (const std::size_t length : {0u, 63u, 64u, 139u, 140u, 141u, 145u, 176u}) {
    SCOPED_TRACE(numbered("length ", length));
    // In memory of just this length, so that a sanitizer sees a byte too many.
    std::vector<unsigned char> exact(length, 0xEE);
    const void* keys[] = {"A", one.data()};
    ASSERT_EQ(db_get(task, DB_CMS, 2, keys, exact.data(), static_cast<std::uint16_t>(length)), DBE_OK);
    const std::size_t filled = length < 64 ? 0 : length < 140 ? 64 : length;
    const StatusRecord whole = status("A", one);
    EXPECT_TRUE(std::equal(exact.begin(), exact.begin() + static_cast<long>(filled), whole.bytes.begin()));
    EXPECT_TRUE(std::all_of(exact.begin() + static_cast<long>(filled), exact.end(),
                            [](unsigned char byte) { return byte == 0xEE; }));
  }
}

TEST_F(PairTest, ALongBufferIsFilledToItsRecordsEnd) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  std::vector<unsigned char> buffer(1000, 0xEE);
  const void* keys[] = {"A", one.data()};
  ASSERT_EQ(db_get(task, DB_CMS, 2, keys, buffer.data(), 1000), DBE_OK);
  EXPECT_EQ(buffer[175], 0);
  EXPECT_EQ(buffer[176], 0xEE);
}

TEST_F(PairTest, TheKeysMayLieInTheBuffer) {
  ASSERT_EQ(set("A", one, 7, "details"), DBE_OK);
  std::array<unsigned char, status_len> record{};
  record[0] = 'A';
  std::copy(one.begin(), one.end(), record.begin() + 64);
  const void* keys[] = {record.data(), record.data() + 64};
  ASSERT_EQ(db_get(task, DB_CMS, 2, keys, record.data(), status_len), DBE_OK);
  EXPECT_EQ(record, status("A", one).bytes);
}

TEST_F(PairTest, GettingWithoutAStatusOrOfUnknownNamesFindsNothing) {
  EXPECT_EQ(status("A", one).rc, DBE_NOT_FOUND) << "no record of the target";
  ASSERT_EQ(set("A", two, 7), DBE_OK);
  EXPECT_EQ(status("A", one).rc, DBE_NOT_FOUND) << "no entry";
  EXPECT_EQ(status("NOBODY", one).rc, DBE_NOT_FOUND);
  EXPECT_EQ(status("A", cf("NO.SUCH")).rc, DBE_NOT_FOUND);
}

TEST_F(PairTest, DeletingTakesThePairOutOfBothSides) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(set("B", one, 8), DBE_OK);
  EXPECT_EQ(drop("A", one), DBE_OK);
  EXPECT_EQ(status("A", one).rc, DBE_NOT_FOUND);
  EXPECT_EQ(by_file(one, "A"), 15u);
  EXPECT_EQ(by_file(one, "B"), 8u);
  EXPECT_EQ(by_target("A").count, 0u);
  expect_sides_agree();
}

TEST_F(PairTest, DeletingWhatIsNotThereFindsNothing) {
  EXPECT_EQ(drop("A", one), DBE_NOT_FOUND) << "no record of the target";
  ASSERT_EQ(set("A", two, 7), DBE_OK);
  EXPECT_EQ(drop("A", one), DBE_NOT_FOUND) << "no entry";
  EXPECT_EQ(drop("NOBODY", one), DBE_NOT_FOUND);
  EXPECT_EQ(drop("A", cf("NO.SUCH")), DBE_NOT_FOUND);
  EXPECT_EQ(status("A", two).rc, DBE_OK);
  expect_sides_agree();
}

TEST_F(PairTest, AFreedEntryIsTakenAgainAndTheRecordDoesNotGrow) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(drop("A", one), DBE_OK);
  ASSERT_EQ(stored_of_target("A")->size(), 38u);
  EXPECT_EQ(set("A", two, 8), DBE_OK);
  EXPECT_EQ(stored_of_target("A")->size(), 38u);
  EXPECT_EQ(by_target("A").entries, std::vector<std::uint32_t>{listed(two, 8)});
  expect_sides_agree();
}

TEST_F(PairTest, ATargetsRecordStaysWhenItsLastEntryIsFree) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(drop("A", one), DBE_OK);
  const TargetList list = by_target("A");
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.count, 0u);
}

TEST_F(PairTest, AChangeFilesRecordGoesWithItsLastTarget) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(set("B", one, 7), DBE_OK);
  EXPECT_EQ(del_file(one), DBE_CMS_EXISTS);
  ASSERT_EQ(drop("A", one), DBE_OK);
  EXPECT_EQ(stored_of_file(one)->size(), 4u);
  EXPECT_EQ(del_file(one), DBE_CMS_EXISTS);
  ASSERT_EQ(drop("B", one), DBE_OK);
  EXPECT_FALSE(stored_of_file(one));
  EXPECT_EQ(zvrdb::cmstatus::any_cm_by_cat(task, file_number(one)), DBE_OK);
  EXPECT_EQ(del_file(one), DBE_OK);
}

TEST_F(PairTest, DeletingWithoutTheChangeFilesRecordFailsAndChangesNothing) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  const Body body = *stored_of_target("A");
  // Only the target's side is left.
  ASSERT_EQ(drop("A", one), DBE_OK);
  store(target_record, number("A"), body);
  EXPECT_EQ(drop("A", one), DBE_NOT_FOUND);
  EXPECT_EQ(stored_of_target("A"), body);
}

TEST_F(PairTest, DeletingSucceedsWhenTheChangeFilesRecordDoesNotListTheTarget) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  const Body body = *stored_of_target("A");
  ASSERT_EQ(drop("A", one), DBE_OK);
  ASSERT_EQ(set("B", one, 8), DBE_OK);
  store(target_record, number("A"), body);
  EXPECT_EQ(drop("A", one), DBE_OK);
  EXPECT_EQ(stored_of_file(one)->size(), 4u);
  expect_sides_agree();
}

TEST_F(PairTest, ARenamedTargetKeepsItsStatus) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "A", "C"), DBE_OK);
  EXPECT_EQ(status("C", one).status(), 7u);
  EXPECT_EQ(status("A", one).rc, DBE_NOT_FOUND);
  EXPECT_EQ(by_file(one, "C"), 7u);
}

TEST_F(PairTest, WithoutMemoryPairsStayAsTheyAre) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(status("A", one).rc, DBE_OK);
  for (const auto& call : {std::function<int()>([&] { return set("A", one, 8); }),
                           std::function<int()>([&] { return set("B", two, 8); }),
                           std::function<int()>([&] { return drop("A", one); })}) {
    int rc = DBE_IO_ERROR;
    for (int allowed = 0; allowed < 10; ++allowed) {
      drop_work_area();
      co_test_fail_malloc(allowed);
      const int logged_before = logged(36355);
      rc = call();
      co_test_fail_malloc(-1);
      if (rc != DBE_IO_ERROR) break;
      EXPECT_EQ(logged(36355), logged_before + 1);
      expect_sides_agree();
      EXPECT_EQ(status("A", one).status(), 7u);
      EXPECT_EQ(status("B", two).rc, DBE_NOT_FOUND);
    }
    EXPECT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
    expect_sides_agree();
    drop("A", one);
    drop("B", two);
    ASSERT_EQ(set("A", one, 7), DBE_OK);
  }
  drop_work_area();
  co_test_fail_malloc(0);
  const int rc = status("A", one).rc;
  co_test_fail_malloc(-1);
  EXPECT_EQ(rc, DBE_IO_ERROR);
}

}  // namespace
}  // namespace cms_test
