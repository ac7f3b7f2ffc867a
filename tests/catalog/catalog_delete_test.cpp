// Deleting change files, with what hangs on them.
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

class CatalogDelete : public CatalogTest {
 protected:
  int put_status(const std::string& target, const std::string& dotted) {
    unsigned char record[176] = {};
    std::memcpy(record, target.data(), target.size());
    const CfName name = cf(dotted);
    std::memcpy(record + 64, name.data(), name.size());
    record[140] = 3;
    const void* keys[] = {target.c_str(), name.data()};
    return db_put(task, DB_CMS, 2, keys, record, sizeof record);
  }
};

TEST_F(CatalogDelete, ADeletedChangeFileIsGoneFromMemoryAndFile) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  EXPECT_EQ(del_cf("B"), DBE_OK);
  EXPECT_EQ(get_cf("B", head_len).rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("B").rc, DBE_NOT_FOUND);
  EXPECT_EQ(all_names(), (std::vector<std::string>{"A", "C"}));
  EXPECT_EQ(number_of("C"), 2) << "the others keep their numbers";
  EXPECT_EQ(cntl()->num_cat_inited, 3u);
  EXPECT_EQ(logged(36354), 1);
  expect_agreement();
  EXPECT_EQ(cat_slot(1).free_flag, 1);
  EXPECT_EQ(cat_slot(1).cf_number, 1) << "a free number keeps itself";
}

TEST_F(CatalogDelete, AnUnknownNameIsNotFound) {
  EXPECT_EQ(del_cf("A"), DBE_NOT_FOUND);
  ASSERT_EQ(put_cf("A"), DBE_OK);
  EXPECT_EQ(del_cf("B"), DBE_NOT_FOUND);
  EXPECT_EQ(del_cf("A"), DBE_OK);
  EXPECT_EQ(del_cf("A"), DBE_NOT_FOUND);
}

TEST_F(CatalogDelete, DelCatRefusesWhileCmStatusExistsAndChangesNothing) {
  ASSERT_EQ(put(target_test::Record("T").type(target_test::local | target_test::client)), DBE_OK);
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(store_part(DB_PRD, 1, 5), DBE_OK);
  ASSERT_EQ(put_status("T", "B"), DBE_OK);
  const auto before = table_lines();
  EXPECT_EQ(del_cf("B"), DBE_CMS_EXISTS);
  EXPECT_EQ(table_lines(), before);
  EXPECT_EQ(parts_of(1), 1);
  EXPECT_EQ(get_cf("B").rc, DBE_OK);
  EXPECT_EQ(logged(36354), 0);
  EXPECT_EQ(del_cf("A"), DBE_OK) << "another change file may go";
  ASSERT_EQ(db_del_cf_cms(task, cf("B").data()), DBE_OK);
  EXPECT_EQ(del_cf("B"), DBE_OK);
  EXPECT_EQ(parts_of(1), 0);
}

TEST_F(CatalogDelete, ProductsAndFilesetsGoWithTheirChangeFileAndNoOthers) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  for (unsigned number = 0; number < 3; ++number)
    for (const unsigned product : {0u, 1u, 65535u}) {
      ASSERT_EQ(store_part(DB_PRD, number, product), DBE_OK);
      ASSERT_EQ(store_part(DB_FST, number, product, 0), DBE_OK);
      ASSERT_EQ(store_part(DB_FST, number, product, 65535), DBE_OK);
    }
  ASSERT_EQ(parts_of(1), 9);
  EXPECT_EQ(del_cf("B"), DBE_OK);
  EXPECT_EQ(parts_of(0), 9);
  EXPECT_EQ(parts_of(1), 0);
  EXPECT_EQ(parts_of(2), 9);
}

TEST_F(CatalogDelete, ProductsOfNumbersAboveTheSignedHalfAreFound) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  for (const unsigned number : {32767u, 32768u, 40000u, 65534u}) {
    ASSERT_EQ(store_part(DB_PRD, number, 1), DBE_OK);
    ASSERT_EQ(store_part(DB_FST, number, 1, 2), DBE_OK);
  }
  EXPECT_EQ(framed([&] { return zvrdb::catalog::del_prod_file(task, static_cast<std::int16_t>(40000)); }),
            DBE_OK);
  EXPECT_EQ(parts_of(40000), 0);
  EXPECT_EQ(framed([&] { return zvrdb::catalog::del_prod_file(task, static_cast<std::int16_t>(32768)); }),
            DBE_OK);
  EXPECT_EQ(parts_of(32768), 0);
  EXPECT_EQ(parts_of(32767), 2);
  EXPECT_EQ(parts_of(65534), 2);
  EXPECT_EQ(framed([&] { return zvrdb::catalog::del_prod_file(task, 5); }), DBE_OK) << "none is no failure";
}

TEST_F(CatalogDelete, ThePreviousEntryGetsTheSmallerDifference) {
  for (const char* name : {"A.B.C", "A.B.D", "A.BD", "Z"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(differences(), (std::vector<unsigned>{32, 17, 0, 0}));
  ASSERT_EQ(del_cf("A.B.D"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{17, 0, 0})) << "its own was 32, the deleted one's 17";
  ASSERT_EQ(del_cf("A.BD"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{0, 0})) << "its own was 17, the deleted one's 0";
  ASSERT_EQ(put_cf("A.B.A"), DBE_OK);
  ASSERT_EQ(del_cf("A.B.A"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{0, 0})) << "the first has none before it";
  ASSERT_EQ(del_cf("Z"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{0})) << "the last has none behind it";
  expect_agreement();
}

TEST_F(CatalogDelete, OfNamesWithOneTextThisVeryNameGoes) {
  CfName first = cf("A.B");
  CfName second = first;
  second[1] = 255;
  ASSERT_EQ(put_cf(CatRecord(first)), DBE_OK);
  ASSERT_EQ(put_cf(CatRecord(second)), DBE_OK);
  const void* keys[] = {second.data()};
  EXPECT_EQ(db_del(task, DB_CAT, 1, keys), DBE_OK);
  EXPECT_EQ(cat_slot(1).free_flag, 1);
  EXPECT_EQ(cat_slot(0).free_flag, 0);
  EXPECT_EQ(db_del(task, DB_CAT, 1, keys), DBE_OK) << "only the text is compared";
  EXPECT_EQ(cntl()->num_cat_actual, 0u);
  EXPECT_EQ(db_del(task, DB_CAT, 1, keys), DBE_NOT_FOUND);
}

TEST_F(CatalogDelete, EverythingCanGoAndComeAgain) {
  for (int round = 0; round < 3; ++round) {
    for (const char* name : {"B", "A", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
    EXPECT_EQ(number_of("B"), 0);
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(del_cf(name), DBE_OK);
    EXPECT_TRUE(all_names().empty());
  }
  expect_agreement();
  EXPECT_EQ(cntl()->num_cat_inited, 3u);
}

TEST_F(CatalogDelete, ACountBeyondTheTablesIsNotFollowed) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  // Entries behind the used ones lead to slot 1 until the end of the table.
  for (std::uint32_t at = 2; at < cntl()->num_cat_alloc; ++at) tcb()->cat_cntl[at].dist_idx = 1;
  cntl()->num_cat_actual = 0xFFFFFFFFu;
  EXPECT_EQ(del_cf("A"), DBE_OK);
  EXPECT_LT(cntl()->num_cat_actual, cntl()->num_cat_alloc);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(all_names(), std::vector<std::string>{"B"});
  expect_agreement();
}

}  // namespace
}  // namespace catalog_test
