// Sizing and building of the catalog's tables from the file.
#include <algorithm>
#include <cstring>

#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

class CatalogLoad : public CatalogTest {};

TEST_F(CatalogLoad, AnEmptyFileGivesRoomForFiveHundred) {
  EXPECT_EQ(get_cf("A").rc, DBE_NOT_FOUND);
  EXPECT_EQ(cntl()->num_cat_alloc, 500u);
  EXPECT_EQ(cntl()->num_cat_inited, 0u);
  EXPECT_EQ(cntl()->num_cat_actual, 0u);
  EXPECT_EQ(cntl()->cat_cntl_len, 500u * 4);
  EXPECT_EQ(cntl()->dist_cat_len, 500u * 168);
  EXPECT_EQ(logged(36358), 1);
}

TEST_F(CatalogLoad, ARebuildGivesTheSameTables) {
  for (const char* name : {"B.A", "A.B", "A", "C.FIX.1", "C.FIX.10", "C.FIX.2"})
    ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(del_cf("A.B"), DBE_OK);
  expect_agreement();
  EXPECT_EQ(cntl()->num_cat_alloc, 506u);
  EXPECT_EQ(logged(36358), 2);
}

TEST_F(CatalogLoad, ACatalogWhoseLastRecordIsAProductStillCountsItsSlotsRight) {
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(store_part(DB_PRD, 1, 3), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number_of("D"), 3);
  EXPECT_EQ(cntl()->num_cat_inited, 4u) << "more change files than the product's number tells";
  ASSERT_EQ(store_part(DB_FST, 3, 3, 1), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number_of("D"), 3);
  EXPECT_EQ(cntl()->num_cat_inited, 4u) << "the fileset hangs on the last one";
  ASSERT_EQ(put_cf("E"), DBE_OK);
  EXPECT_EQ(number_of("E"), 4);
}

TEST_F(CatalogLoad, AFileOfNothingButProductsHasNoSlots) {
  ASSERT_EQ(store_part(DB_PRD, 9, 1), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(get_cf("A").rc, DBE_NOT_FOUND);
  EXPECT_EQ(cntl()->num_cat_inited, 0u);
}

TEST_F(CatalogLoad, FreeNumbersComeBackAsFreeAndKeepTheirNumbers) {
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(del_cf("D"), DBE_OK);
  ASSERT_EQ(del_cf("B"), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number_of("C"), 2);
  EXPECT_EQ(cntl()->num_cat_inited, 4u) << "the last one is free and counts";
  for (const unsigned free : {1u, 3u}) {
    EXPECT_EQ(cat_slot(free).free_flag, 1);
    EXPECT_EQ(cat_slot(free).cf_number, free);
  }
  ASSERT_EQ(put_cf("E"), DBE_OK);
  EXPECT_EQ(number_of("E"), 1);
}

TEST_F(CatalogLoad, ANewTaskAndANewSharedStateFindTheSame) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  const auto before = table_lines();
  new_task();
  EXPECT_EQ(table_lines(), before);
}

TEST_F(CatalogLoad, CountsThatADeadWriterLeftAreNotBelieved) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  cntl()->num_cat_inited = 1;
  cntl()->num_cat_actual = 77;
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number_of("C"), 2);
  EXPECT_EQ(cntl()->num_cat_inited, 3u);
  ASSERT_EQ(put_cf("D"), DBE_OK);
  EXPECT_EQ(number_of("D"), 3) << "no live number is given out";
}

TEST_F(CatalogLoad, AHalfDoneMoveInTheIndexIsRepairedByARebuild) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  const auto before = table_lines();
  tcb()->cat_cntl[0] = tcb()->cat_cntl[1];
  tcb()->cat_cntl[2].dist_idx = 65535;
  cat_slot(1).free_flag = 1;
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(table_lines(), before);
}

TEST_F(CatalogLoad, NumbersThatADamagedFileLacksAreFree) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(remove_raw(1), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(all_names(), (std::vector<std::string>{"A", "C"}));
  EXPECT_EQ(number_of("C"), 2) << "a name keeps the number of its record";
  ASSERT_EQ(put_cf("D"), DBE_OK);
  EXPECT_EQ(number_of("D"), 1);
  expect_agreement();
}

TEST_F(CatalogLoad, TheSameNameOnTwoRecordsIsToldByTheCheckAndDoesNoHarm) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(store_raw(1, CatRecord("A")), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number_of("A"), 0);
  char reason[200] = {};
  EXPECT_FALSE(zvrdb::memory::catalog_sound(task, reason, sizeof reason));
  ASSERT_EQ(store_raw(1, CatRecord("B")), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
}

TEST_F(CatalogLoad, TheHeadIsReadAsItWasStored) {
  CatRecord record("A");
  record.text(std::string(200, 'x'));  // runs on behind the head
  for (std::size_t i = 76; i < 102; ++i) record.bytes[i] = static_cast<unsigned char>(i);
  ASSERT_EQ(put_cf(record), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  const CatReading head = get_cf("A", head_len);
  EXPECT_EQ(std::memcmp(head.record.bytes.data(), record.bytes.data(), head_len), 0);
}

TEST_F(CatalogLoad, ManyChangeFilesAreSortedAsTheyCame) {
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  for (int i = 0; i < 400; ++i) ASSERT_EQ(put_cf(numbered("N", (i * 7919) % 400)), DBE_OK);
  ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  expect_agreement();
  const auto names = all_names();
  ASSERT_EQ(names.size(), 400u);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

}  // namespace
}  // namespace catalog_test
