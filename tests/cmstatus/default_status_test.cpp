// The default status of pairs without a record, in single reads and in lists.
#include <cstring>

#include "cmstatus/cm_status.h"
#include "cmstatus/cms_fixture.h"
#include "frame/call_bracket.h"
#include "memory/shared_tables.h"

namespace cms_test {
namespace {

constexpr unsigned granted = 32;  // bit of cf_flags

class DefaultStatus : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    ASSERT_EQ(put_target("A"), DBE_OK);
    ASSERT_EQ(put_target("B"), DBE_OK);
    ASSERT_EQ(put_target("FAR", remote | client), DBE_OK);
    ASSERT_EQ(put_file(fix), DBE_OK);
    ASSERT_EQ(put_file(ref, granted), DBE_OK);
  }
  const CfName fix = cf("ACME.PROD.FIX.1"), ref = cf("ACME.PROD.REF.2"), unknown = cf("NO.SUCH.UPD");
};

TEST_F(DefaultStatus, APairWithoutRecordOnALocalTargetHasItWhenAllAreAuthorized) {
  EXPECT_EQ(status("A", fix).rc, DBE_NOT_FOUND);
  authorize(1);
  const StatusRecord read = status("A", fix);
  EXPECT_EQ(read.rc, DBE_OK);
  EXPECT_EQ(read.target(), "A");
  EXPECT_EQ(std::memcmp(read.bytes.data() + 64, fix.data(), fix.size()), 0);
  EXPECT_EQ(read.status(), 128u);
  EXPECT_EQ(read.bytes[152], 0) << "the type of a fix";
}

TEST_F(DefaultStatus, OtherModesOfAuthorizationDoNotGrantIt) {
  for (const unsigned mode : {0u, 2u, 255u}) {
    authorize(mode);
    EXPECT_EQ(status("A", fix).rc, DBE_NOT_FOUND) << mode;
  }
}

TEST_F(DefaultStatus, TheChangeFilesFlagGrantsIt) {
  const StatusRecord read = status("A", ref);
  EXPECT_EQ(read.rc, DBE_OK);
  EXPECT_EQ(read.status(), 128u);
  EXPECT_EQ(read.bytes[152], 2) << "the type of a refresh";
}

TEST_F(DefaultStatus, ATargetThatIsNotLocalHasNone) {
  authorize(1);
  EXPECT_EQ(status("FAR", fix).rc, DBE_NOT_FOUND);
  EXPECT_EQ(status("FAR", ref).rc, DBE_NOT_FOUND);
  EXPECT_EQ(status("NOBODY", ref).rc, DBE_NOT_FOUND);
}

TEST_F(DefaultStatus, AnUnknownChangeFileHasItOnALocalTargetWhenAllAreAuthorized) {
  EXPECT_EQ(status("A", unknown).rc, DBE_NOT_FOUND);
  authorize(1);
  const StatusRecord read = status("A", unknown);
  EXPECT_EQ(read.rc, DBE_OK);
  EXPECT_EQ(read.status(), 128u);
  EXPECT_EQ(read.bytes[152], 1) << "the type of an update";
}

TEST_F(DefaultStatus, ANameWithoutClassHasTheUnknownType) {
  authorize(1);
  EXPECT_EQ(status("A", cf("ACME.PROD")).bytes[152], 3);
}

TEST_F(DefaultStatus, AStoredStatusComesBeforeIt) {
  authorize(1);
  ASSERT_EQ(set("A", ref, 7), DBE_OK);
  EXPECT_EQ(status("A", ref).status(), 7u);
  ASSERT_EQ(drop("A", ref), DBE_OK);
  EXPECT_EQ(status("A", ref).status(), 128u);
}

TEST_F(DefaultStatus, FillsNamesStatusAndTypeWhateverTheLengthAndLeavesTheOtherBytes) {
  for (const std::uint16_t length : {std::uint16_t{0}, std::uint16_t{70}, std::uint16_t{65535}}) {
    // What the caller must offer, so that a sanitizer sees a byte too many.
    std::vector<unsigned char> buffer(153, 0xEE);
    const void* keys[] = {"A", ref.data()};
    ASSERT_EQ(db_get(task, DB_CMS, 2, keys, buffer.data(), length), DBE_OK);
    EXPECT_EQ(buffer[140], 128);
    EXPECT_EQ(buffer[152], 2);
    for (std::size_t at = 141; at < 152; ++at) EXPECT_EQ(buffer[at], 0xEE) << at;
  }
}

TEST_F(DefaultStatus, IsGivenWhenTheStoredRecordCannotBeRead) {
  ASSERT_EQ(set("A", ref, 7), DBE_OK);
  store(target_record, number("A"), Body(38 * 500 * 5));  // longer than the catalog allows
  EXPECT_EQ(status("A", ref).status(), 128u);
  ASSERT_EQ(set("B", fix, 7), DBE_OK);
  store(target_record, number("B"), Body(38 * 500 * 5));
  EXPECT_EQ(status("B", fix).rc, DBE_BUFFER_TOO_SMALL);
}

TEST_F(DefaultStatus, IsGivenWhenThereIsNoMemory) {
  ASSERT_EQ(set("A", ref, 7), DBE_OK);
  ASSERT_EQ(status("A", ref).status(), 7u);
  drop_work_area();
  co_test_fail_malloc(0);
  const StatusRecord read = status("A", ref);
  co_test_fail_malloc(-1);
  EXPECT_EQ(read.rc, DBE_OK);
  EXPECT_EQ(read.status(), 128u);
}

TEST_F(DefaultStatus, AListHasItForLocalTargetsWithoutStatus) {
  ASSERT_EQ(set("B", ref, 7), DBE_OK);
  const FileList list = by_file(ref);
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.list[number("A")], 128);
  EXPECT_EQ(list.list[number("B")], 7);
  EXPECT_EQ(list.list[number("FAR")], 15);
  EXPECT_EQ(list.list[0], 15);
  EXPECT_EQ(list.list[50], 15) << "no target has ever had this number";
  EXPECT_EQ(by_file(fix).list[number("A")], 15);
  authorize(1);
  EXPECT_EQ(by_file(fix).list[number("A")], 128);
}

TEST_F(DefaultStatus, AListOfAnUnknownChangeFileHasItWithTheFailure) {
  authorize(1);
  const FileList list = by_file(unknown);
  EXPECT_EQ(list.rc, DBE_NOT_FOUND);
  EXPECT_EQ(list.list[number("A")], 128);
  EXPECT_EQ(list.list[0], 15);
}

TEST_F(DefaultStatus, AListThatIsTooShortHasItWithTheFailure) {
  ASSERT_EQ(set("A", ref, 7), DBE_OK);
  ASSERT_EQ(set("B", ref, 7), DBE_OK);
  ASSERT_EQ(set("FAR", ref, 7), DBE_OK);
  const FileList list = by_file(ref, 2);
  EXPECT_EQ(list.rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(list.list, (std::vector<unsigned char>{15, 128}));
}

TEST_F(DefaultStatus, ADeletedLocalTargetsNumberHasItStill) {
  const std::uint32_t gone = number("B");
  ASSERT_EQ(del("B"), DBE_OK);
  EXPECT_EQ(by_file(ref).list[gone], 128);
}

TEST_F(DefaultStatus, ASlotThatBeginsWithOnesHasNone) {
  ASSERT_EQ(number("B"), 2u);
  zvrdb::TRG_CNTL_ENTRY* marked = slot("B");
  std::memset(marked->trg_name, 0xFF, 3);
  EXPECT_EQ(by_file(ref).list[2], 128) << "only three";
  std::memset(marked->trg_name, 0xFF, 4);
  EXPECT_EQ(by_file(ref).list[2], 15);
  std::memcpy(marked->trg_name, "B\0\0\0", 4);
}

TEST_F(DefaultStatus, AListLongerThanTheTableOfTargetsIsFilledWithoutIt) {
  authorize(1);
  const FileList list = by_file(fix, 5000);
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.list[number("A")], 128);
  EXPECT_TRUE(std::all_of(list.list.begin() + 101, list.list.end(), [](unsigned char b) { return b == 15; }));
}

TEST_F(DefaultStatus, ACallThatCouldNotBeginLeavesTheListAlone) {
  authorize(1);
  std::vector<unsigned char> list(101, 0xEE);
  EXPECT_EQ(db_cm_by_cat(nullptr, fix.data(), list.data(), 101), DBE_INIT_FAILED);
  EXPECT_TRUE(std::all_of(list.begin(), list.end(), [](unsigned char b) { return b == 0xEE; }));
}

TEST_F(DefaultStatus, ANullBufferOfLengthZeroTakesIt) {
  const void* keys[] = {"A", ref.data()};
  EXPECT_EQ(db_get(task, DB_CMS, 2, keys, nullptr, 0), DBE_OK);
  // A handler may write that much into what stands for no area.
  void* area = nullptr;
  ASSERT_TRUE(zvrdb::frame::take_area(&area, 0));
  std::memset(area, 0, 153);
}

TEST_F(DefaultStatus, OfAListIsTakenFromTheTableThatIsThereNow) {
  // As if, on leaving the call, a smaller segment had come to where the other one was.
  zvrdb::cmstatus::default_status_rule rule = {true, false, tcb()->trg_cntl, 1000000};
  std::vector<unsigned char> list(200000, 15);
  zvrdb::cmstatus::add_default_status(task, list.data(), 200000, rule);
  EXPECT_EQ(list[number("A")], 128);
  EXPECT_TRUE(std::all_of(list.begin() + 101, list.end(), [](unsigned char b) { return b == 15; }));
}

}  // namespace
}  // namespace cms_test
