// When the catalog's slots are counted anew, and when the count in memory is believed.
#include "catalog/catalog.h"
#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

class CatalogSizes : public CatalogTest {
 protected:
  // The three slots that the file has are four in memory, so that it shows which of the
  // two was taken.  The tables are built anew at the end.
  std::uint32_t sized(unsigned write_in_progress, unsigned finitialized, int generations_on) {
    for (const char* name : {"A", "B", "C"}) put_cf(name);
    std::uint32_t counted = 0;
    framed([&] {
      cntl()->num_cat_inited = 4;
      cntl()->fwrite_in_prog = static_cast<std::uint16_t>(write_in_progress);
      cntl()->finitialized = static_cast<std::uint16_t>(finitialized);
      cntl()->alloc_generation = cntl()->shm_generation - static_cast<std::uint32_t>(generations_on);
      const int rc = zvrdb::catalog::alloc_cat(task);
      counted = cntl()->num_cat_inited;
      allocated = cntl()->num_cat_alloc;
      return rc;
    });
    EXPECT_EQ(rebuild(), DBE_OK);
    return counted;
  }
  std::uint32_t allocated = 0;
};

TEST_F(CatalogSizes, StandWhenTheyAreThoseOfTheRunningGeneration) {
  EXPECT_EQ(sized(0, 1, 0), 4u);
  EXPECT_EQ(allocated, 500u) << "nothing is done";
}

TEST_F(CatalogSizes, OfANewGenerationBelieveTheCountOfALivingWriter) {
  EXPECT_EQ(sized(0, 1, 1), 4u);
  EXPECT_EQ(allocated, 504u);
}

TEST_F(CatalogSizes, OfANewGenerationAreCountedInTheFileAfterADeadWriter) {
  EXPECT_EQ(sized(1, 1, 1), 3u);
  EXPECT_EQ(allocated, 503u);
}

TEST_F(CatalogSizes, OfTheFirstGenerationAreCountedInTheFile) {
  EXPECT_EQ(sized(0, 0, 0), 3u);
  EXPECT_EQ(allocated, 503u);
}

TEST_F(CatalogSizes, AFileThatHoldsFewerThanWereCountedIsNotLoaded) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  for (const std::uint32_t counted : {2u, 4u}) {
    framed([&] {
      cntl()->num_cat_inited = counted;
      EXPECT_EQ(zvrdb::catalog::init_cat(task), DBE_INIT_FAILED) << counted;
      return DBE_OK;
    });
    ASSERT_EQ(rebuild(), DBE_OK);
  }
  EXPECT_GE(logged(36360), 2);
}

TEST_F(CatalogSizes, MoreRecordsThanTheTablesHoldAreNotLoaded) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  framed([&] {
    cntl()->num_cat_alloc = 2;
    EXPECT_EQ(zvrdb::catalog::init_cat(task), DBE_INIT_FAILED);
    return DBE_OK;
  });
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(number_of("C"), 2);
}

}  // namespace
}  // namespace catalog_test
