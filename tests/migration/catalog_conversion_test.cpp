// The catalog's stage: its states, its records, what it does with damage.
#include <cstring>
#include <filesystem>

#include "memory/shared_tables.h"
#include "migration/catalog_record.h"
#include "migration/migration_fixture.h"

using namespace migration_test;

namespace {

class CatalogConversion : public MigrationTest {
 protected:
  // The stage is the first one: what it does shows whatever the others answer.
  int convert() {
    what_ = {};
    migrate(&what_);
    return what_.ends.at(0);
  }
  // Number of a change file, or the negative code.
  int number_of(const std::string& dotted) {
    const zvrtest::CfName name = zvrtest::cf(dotted);
    std::uint16_t number = 0;
    const int rc = framed([&]() -> int { return zvrdb::memory::get_cat_num(task, &number, name.data()); });
    return rc == DBE_OK ? number : -rc;
  }
  heard what_;
};

std::string letters(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

TEST(CatalogRecord, EachFieldHasItsPlace) {
  const std::string older = catalog_entry("A.B.C", "a text", "a line");
  unsigned char bytes[zvrdb::migration::catalog_len];
  zvrdb::migration::copy_cat_rec(bytes, reinterpret_cast<const unsigned char*>(older.data()));
  const stored_record record = {0, {bytes, bytes + sizeof bytes}};
  EXPECT_EQ(0, std::memcmp(bytes, older.data(), 76));
  EXPECT_EQ(0x11223344u, record.u32(76));
  EXPECT_EQ(0, record.u16(84));
  EXPECT_EQ(0, record.u16(88));
  EXPECT_EQ(7u, record.byte(90));
  EXPECT_EQ(8u, record.byte(91));
  EXPECT_EQ(older.substr(82, 10), std::string(bytes + 92, bytes + 102));
  EXPECT_EQ("a text", record.text(102, 244));
  EXPECT_EQ("V1", record.text(346, 4));
  EXPECT_EQ(340, record.u16(350));
  EXPECT_EQ(342, record.u16(352));
  EXPECT_EQ(344344u, record.u32(356));
  EXPECT_EQ("a line", record.text(364, 256));
  EXPECT_EQ("", record.text(364 + 256, 256));
  EXPECT_EQ(std::string(48, 'k'), std::string(bytes + 2412, bytes + 2460));
  EXPECT_EQ(1u, record.byte(2460));
  EXPECT_EQ(2u, record.byte(2461));
  EXPECT_EQ(3u, record.byte(2462));
  EXPECT_EQ(0u, record.byte(2463));
}

TEST(CatalogRecord, TextsWithoutAnEndStayInsideTheirFields) {
  std::string older(1024, 'x');
  unsigned char bytes[zvrdb::migration::catalog_len];
  zvrdb::migration::copy_cat_rec(bytes, reinterpret_cast<const unsigned char*>(older.data()));
  const stored_record record = {0, {bytes, bytes + sizeof bytes}};
  EXPECT_EQ(std::string(243, 'x'), record.text(102, 244));
  EXPECT_EQ("xxx", record.text(346, 4));
  EXPECT_EQ(std::string(255, 'x'), record.text(364, 256));
  EXPECT_EQ("", record.text(364 + 256, 256));
}

TEST_F(CatalogConversion, NumbersStayAsTheyWere) {
  db_.catalog({catalog_entry("A.0"), free_catalog_entry(), catalog_entry("A.2"), half_free_catalog_entry(mark::first),
               half_free_catalog_entry(mark::second), catalog_entry("A.5", letters(243), letters(255))});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(0, number_of("A.0"));
  EXPECT_EQ(2, number_of("A.2"));
  EXPECT_EQ(5, number_of("A.5"));
  EXPECT_EQ(6u, tcb()->cntl->num_cat_inited);
  EXPECT_EQ(3u, tcb()->cntl->num_cat_actual);
  const stored_record record = change_file("A.5");
  EXPECT_EQ(letters(243), record.text(102, 244));
  EXPECT_EQ(letters(255), record.text(364, 256));
}

TEST_F(CatalogConversion, AnEntryWithOneMarkOfTwoIsFreedAndTold) {
  db_.catalog({half_free_catalog_entry(mark::first), half_free_catalog_entry(mark::second), free_catalog_entry()});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(2u, what_.counts["0 corrupt entries freed"]);
  EXPECT_EQ(1u, what_.counts["0 free entries"]);
  EXPECT_TRUE(what_.noted("the catalog entry 0 is corrupt"));
  EXPECT_TRUE(what_.noted("the catalog entry 1 is corrupt"));
  EXPECT_LT(number_of("HALF.FREE"), 0);
}

TEST_F(CatalogConversion, MoreThanABlockAndAPartOfARecordAtTheEnd) {
  std::vector<std::string> entries;
  for (int i = 0; i < 9; ++i) entries.push_back(catalog_entry("B." + std::to_string(i)));
  entries.push_back(std::string(1023, 'z'));
  db_.catalog(entries);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(8, number_of("B.8"));
  EXPECT_EQ(9u, what_.counts["0 change files"]);
}

TEST_F(CatalogConversion, OfExactlyOneBlockReadsNothingMore) {
  db_.catalog({catalog_entry("B.0"), catalog_entry("B.1"), catalog_entry("B.2"), catalog_entry("B.3")});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(4u, what_.counts["0 change files"]);
}

TEST_F(CatalogConversion, AnEmptyCatalogIsConverted) {
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(0u, what_.counts["0 change files"]);
  EXPECT_TRUE(db_.there("db/catalog.old.done"));
}

TEST_F(CatalogConversion, WithoutACatalogItFailsWithItsMessage) {
  std::filesystem::remove(installation_->path("db/catalog"));
  EXPECT_EQ(DBE_IO_ERROR, migrate());
  EXPECT_EQ(1u, logged(36388));
  EXPECT_FALSE(db_.there("db/trgcfg"));  // no stage behind it was run
}

TEST_F(CatalogConversion, IsFoundUnderANameOfAnotherCase) {
  db_.catalog({catalog_entry("A.0")});
  std::filesystem::rename(installation_->path("db/catalog"), installation_->path("db/CATALOG"));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(0, number_of("A.0"));
  EXPECT_FALSE(db_.there("db/CATALOG"));
}

TEST_F(CatalogConversion, GoesOnFromTheRenamedFile) {
  db_.file("db/catalog.old", catalog_entry("A.0"));
  std::filesystem::remove(installation_->path("db/catalog"));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(0, number_of("A.0"));
  EXPECT_TRUE(db_.there("db/catalog.old.done"));
  EXPECT_FALSE(db_.there("db/catalog.old"));
}

TEST_F(CatalogConversion, ARecordFileBesideTheRenamedOneIsTheBeginOfItAndMadeAnew) {
  db_.catalog({catalog_entry("A.0"), catalog_entry("A.1")});
  ASSERT_EQ(DBE_OK, convert());
  new_task();
  db_.file("db/catalog.old", catalog_entry("A.7"));
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(0, number_of("A.7"));
  EXPECT_LT(number_of("A.0"), 0);
}

TEST_F(CatalogConversion, WhatIsNoHeaderYetBesideTheRenamedOneIsMadeAnewToo) {
  for (const std::size_t length : {0u, 1u, 351u, 4096u}) {
    db_.file("db/catalog.old", catalog_entry("A.0"));
    db_.file("db/catalog", std::string(length, '\0'));
    EXPECT_EQ(DBE_OK, convert()) << length;
    EXPECT_EQ(0, number_of("A.0")) << length;
    new_task();
  }
}

TEST_F(CatalogConversion, TwoOlderCatalogsAreRefusedAndStay) {
  db_.file("db/catalog.old", catalog_entry("A.0"));
  db_.catalog({catalog_entry("A.1")});
  EXPECT_EQ(DBE_IO_ERROR, convert());
  EXPECT_EQ(1u, logged(36388));
  EXPECT_EQ(catalog_entry("A.0"), installation_->read("db/catalog.old"));
  EXPECT_EQ(catalog_entry("A.1"), installation_->read("db/catalog"));
}

TEST_F(CatalogConversion, AConvertedCatalogIsPassedOver) {
  db_.catalog({catalog_entry("A.0")});
  ASSERT_EQ(DBE_OK, convert());
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("0 converted", what_.begins.at(0));
  EXPECT_EQ(0, number_of("A.0"));
}

}  // namespace
