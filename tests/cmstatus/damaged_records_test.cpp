// Records that no library wrote: odd lengths, numbers without meaning, more than the
// tables allow.  Nothing crashes, nothing is written beyond a body, and what is sound in
// a record is still served.
#include <random>

#include "cmstatus/cms_fixture.h"

namespace cms_test {
namespace {

class DamagedRecords : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
  }
  // Every call on the damaged records, whatever it answers.
  void call_everything() {
    for (const char* target : {"A", "B"})
      for (const CfName& file : {one, two}) {
        status(target, file);
        set(target, file, 5);
        drop(target, file);
        set(target, file, 6);
      }
    for (const CfName& file : {one, two}) {
      by_file(file);
      by_file(file, 3);
    }
    by_target("A");
    by_target("A", 4);
    del("B");
    put_target("B");
    db_del_cf_cms(task, one.data());
  }
  // An entry in the record of a change file.
  static void add_target(Body& body, std::uint32_t target, unsigned char status) {
    body.push_back(status);
    for (unsigned shift = 0; shift < 24; shift += 8)
      body.push_back(static_cast<unsigned char>(target >> shift));
  }
  const CfName one = cf("ONE"), two = cf("TWO");
};

TEST_F(DamagedRecords, BytesBehindTheLastWholeEntryOfATargetAreOverwrittenByTheNextOne) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  Body body = *stored_of_target("A");
  body.resize(body.size() + 20, 0x33);
  store(target_record, number("A"), body);
  EXPECT_EQ(by_target("A").count, 1u);
  EXPECT_EQ(set("A", two, 2), DBE_OK);
  EXPECT_EQ(stored_of_target("A")->size(), 2 * 38u);
  EXPECT_EQ(status("A", two).bytes[141], 0);
  expect_sides_agree();
}

TEST_F(DamagedRecords, BytesBehindTheLastWholeEntryOfAChangeFileAreOverwrittenByTheNextOne) {
  ASSERT_EQ(set("A", one, 1), DBE_OK);
  Body body = *stored_of_file(one);
  body.resize(body.size() + 3, 0x33);
  store(file_record, file_number(one), body);
  EXPECT_EQ(by_file(one, "A"), 1u);
  EXPECT_EQ(set("B", one, 2), DBE_OK);
  EXPECT_EQ(stored_of_file(one)->size(), 8u);
  expect_sides_agree();
}

TEST_F(DamagedRecords, EmptyBodiesHoldNoEntries) {
  store(target_record, number("A"), {});
  store(file_record, file_number(one), {});
  EXPECT_EQ(status("A", one).rc, DBE_NOT_FOUND);
  EXPECT_EQ(by_target("A").count, 0u);
  EXPECT_EQ(by_file(one, "A"), 15u);
  EXPECT_EQ(set("A", one, 1), DBE_OK);
  expect_sides_agree();
}

TEST_F(DamagedRecords, NumbersOfTargetsBeyondTheTableAreLeftOutOfTheList) {
  Body body;
  for (const std::uint32_t target : {0xFFFFFFu, 101u, 100u, 0u, 1000u}) add_target(body, target, 7);
  ASSERT_LE(body.size(), 2 * 4 + 8u + 4u + 76u);
  store(file_record, file_number(one), body);
  const FileList list = by_file(one);
  EXPECT_EQ(list.rc, DBE_OK);
  EXPECT_EQ(list.list[100], 7);
  EXPECT_EQ(std::count(list.list.begin(), list.list.end(), 7), 1);
  EXPECT_EQ(list.list[0], 15);
}

TEST_F(DamagedRecords, NumbersOfChangeFilesWithoutMeaningAreListedAsTheyStand) {
  Body body(38 * 2);
  body[0] = 0xFE;
  body[1] = 0xFF;
  body[2] = 1;
  body[38] = 0x10;
  body[39] = 0x27;
  body[40] = 2;
  store(target_record, number("A"), body);
  EXPECT_EQ(by_target("A").entries, (std::vector<std::uint32_t>{65534 * 256 + 1, 10000 * 256 + 2}));
}

TEST_F(DamagedRecords, ARecordThatFillsItsWorkAreaStillTakesAPair) {
  // Two targets: 20 bytes beside 8 of entries, so four stale entries beside two fill it.
  Body body;
  for (std::uint32_t target = 50; target < 54; ++target) add_target(body, target, 1);
  store(file_record, file_number(one), body);
  ASSERT_EQ(2u * 4 + 20, 12 + body.size());
  EXPECT_EQ(set("A", one, 9), DBE_OK);
  EXPECT_EQ(stored_of_file(one)->size(), body.size() + 4);
  // Now it is longer than what is read.
  EXPECT_EQ(set("B", one, 9), DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(status("B", one).rc, DBE_NOT_FOUND) << "rolled back";
  EXPECT_EQ(by_file(one, "A"), 9u) << "lists read with more room";
}

TEST_F(DamagedRecords, ATargetsRecordThatFillsItsWorkAreaStillTakesAPair) {
  const std::uint32_t longest = cntl()->num_cat_alloc * 152 / 38 * 38;
  Body body(longest);
  for (std::size_t at = 0; at < body.size(); at += 38) {
    body[at] = static_cast<unsigned char>(200 + at / 38 % 256);
    body[at + 1] = static_cast<unsigned char>(1 + at / 38 / 256);
  }
  store(target_record, number("A"), body);
  EXPECT_EQ(set("A", one, 9), DBE_OK);
  EXPECT_EQ(stored_of_target("A")->size(), longest + 38);
  EXPECT_EQ(set("A", two, 9), DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(status("A", two).rc, DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(by_target("A", 40000).rc, DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(drop("A", one), DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(by_file(two, "A"), 15u) << "rolled back";
}

TEST_F(DamagedRecords, ARandomBodyHarmsNobody) {
  std::mt19937 random(44);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(numbered("round ", round));
    for (const std::uint32_t kind : {target_record, file_record})
      for (const std::uint32_t of : {0u, 1u, 2u}) {
        if (random() % 3 == 0) continue;
        Body body(random() % (random() % 2 ? 30 : 500));
        for (unsigned char& byte : body)
          byte =
              random() % 2 ? static_cast<unsigned char>(random() % 4) : static_cast<unsigned char>(random());
        store(kind, of, body);
      }
    call_everything();
    expect_sound();
    // And afterwards there is a way back.
    for (const char* name : {"A", "B"}) {
      store(target_record, number(name), {});
      EXPECT_EQ(by_target(name).rc, DBE_OK);
    }
    for (const CfName& file : {one, two})
      EXPECT_EQ(db_del_cf_cms(task, file.data()) & ~DBE_BUFFER_TOO_SMALL, 0);
  }
}

}  // namespace
}  // namespace cms_test
