// Reading change files, by name and by the entries of a list.
#include <cstring>

#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

class CatalogRead : public CatalogTest {};

TEST_F(CatalogRead, AtMost164BytesComeFromMemoryAndMoreFromTheFile) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  ASSERT_EQ(remove_raw(0), DBE_OK);
  EXPECT_EQ(get_cf("A", 164).rc, DBE_OK) << "the file no longer has it";
  EXPECT_EQ(get_cf("A", 165).rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("A", 1).rc, DBE_OK);
  EXPECT_EQ(get_cf("A", 0).rc, DBE_OK);
}

TEST_F(CatalogRead, AnyLengthGivesThatMuchOfTheRecord) {
  CatRecord record("A.B");
  record.text("some words").last_byte(200);
  for (std::size_t i = 364; i < 2412; i += 256) std::memcpy(record.bytes.data() + i, "line", 4);
  ASSERT_EQ(put_cf(record), DBE_OK);
  for (const std::size_t length : {1u, 75u, 76u, 77u, 163u, 164u}) {
    const CatReading read = get_cf("A.B", length);
    ASSERT_EQ(read.rc, DBE_OK);
    EXPECT_EQ(std::memcmp(read.record.bytes.data(), record.bytes.data(), length), 0) << length;
  }
  for (const std::size_t length : {165u, 400u, 2463u, 2464u}) {
    const CatReading read = get_cf("A.B", length);
    ASSERT_EQ(read.rc, DBE_OK);
    // The last byte of a read that ends within a field is a NUL.
    EXPECT_EQ(std::memcmp(read.record.bytes.data(), record.bytes.data(), length - 1), 0) << length;
  }
}

TEST_F(CatalogRead, AListEntryGivesItsChangeFile) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  CatRecord record(std::string("none"));
  EXPECT_EQ(next_rc(listed("B"), record_len, &record), DBE_OK);
  EXPECT_EQ(record.name(), cf("B"));
  EXPECT_EQ(record.last_byte(), 7u);
}

TEST_F(CatalogRead, AnEntryWhoseChangeFileWasDeletedIsNotFound) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const ListEntry entry = listed("A");
  ASSERT_EQ(del_cf("A"), DBE_OK);
  EXPECT_EQ(next_rc(entry), DBE_NOT_FOUND);
}

TEST_F(CatalogRead, AnEntryWhoseNumberWasTakenAgainHasChangedAndIsFilledAllTheSame) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const ListEntry entry = listed("A");
  ASSERT_EQ(del_cf("A"), DBE_OK);
  ASSERT_EQ(put_cf("B"), DBE_OK);
  ASSERT_EQ(number_of("B"), 0);
  CatRecord record(std::string("none"));
  EXPECT_EQ(next_rc(entry, head_len, &record), DBE_ENTRY_CHANGED);
  EXPECT_EQ(record.name(), cf("B"));
  EXPECT_EQ(next_rc(entry, record_len, &record), DBE_ENTRY_CHANGED);
}

TEST_F(CatalogRead, AnEntryWhoseChangeFileWasReplacedHasChanged) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const ListEntry entry = listed("A");
  ASSERT_EQ(put_cf("A"), DBE_RECORD_REPLACED);
  EXPECT_EQ(next_rc(entry), DBE_ENTRY_CHANGED);
}

TEST_F(CatalogRead, AFailedReadIsNotHiddenByAChangedEntry) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const ListEntry entry = listed("A");
  ASSERT_EQ(put_cf("A"), DBE_RECORD_REPLACED);
  ASSERT_EQ(remove_raw(0), DBE_OK);
  EXPECT_EQ(next_rc(entry, record_len), DBE_NOT_FOUND);
}

TEST_F(CatalogRead, EntriesThatLeadNowhereAreNotFollowed) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  for (const unsigned number : {1u, 499u, 500u, 65535u})
    EXPECT_EQ(next_rc({static_cast<std::uint16_t>(number), 0, 0}), DBE_NOT_FOUND) << number;
}

TEST_F(CatalogRead, ListsNeedNotBeAligned) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  const ListEntry entries[] = {listed("A"), listed("B")};
  std::vector<unsigned char> list(1 + sizeof entries);
  std::memcpy(list.data() + 1, entries, sizeof entries);
  std::uint16_t index = 1;
  CatRecord record(std::string("none"));
  EXPECT_EQ(db_get_next(task, DB_CAT, list.data() + 1, 2, &index, record.bytes.data(), 164), DBE_OK);
  EXPECT_EQ(record.name(), cf("B"));
  EXPECT_EQ(db_get_next(task, DB_CAT, list.data() + 1, 2, &index, record.bytes.data(), 164), DBE_END_OF_LIST);
  EXPECT_EQ(db_find_cat_idx(task, cf("B").data(), list.data() + 1, 2, &index), DBE_OK);
  EXPECT_EQ(index, 1);
}

TEST_F(CatalogRead, TheNameOfANumberIsBoundedByTheCountOfChangeFiles) {
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(del_cf("A"), DBE_OK);
  ASSERT_EQ(del_cf("B"), DBE_OK);
  unsigned char name[76] = {};
  EXPECT_EQ(zvrdb::memory::get_cat_name(task, name, 1), DBE_OK) << "a free slot";
  EXPECT_EQ(std::memcmp(name, cf("B").data(), 76), 0);
  EXPECT_EQ(zvrdb::memory::get_cat_name(task, name, 2), DBE_OK) << "as many as there are, inclusive";
  EXPECT_EQ(std::memcmp(name, cf("C").data(), 76), 0);
  EXPECT_EQ(zvrdb::memory::get_cat_name(task, name, 3), DBE_NOT_FOUND) << "D is there and cannot be had";
  EXPECT_EQ(number_of("D"), 3);
}

class CatalogPlace : public CatalogRead {
 protected:
  int place(const std::string& name, std::uint16_t count) {
    std::uint16_t index = 999;
    const CfName wanted = cf(name);
    const int rc = db_find_cat_idx(task, wanted.data(), list.data(), count, &index);
    return rc == DBE_OK ? index : -rc;
  }
  void fill(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      ASSERT_EQ(put_cf(name), DBE_OK);
      list.push_back(listed(name));
    }
  }
  std::vector<ListEntry> list;
};

TEST_F(CatalogPlace, ANameIsFoundInACallersList) {
  fill({"A", "C", "E"});
  EXPECT_EQ(place("A", 3), 0);
  EXPECT_EQ(place("C", 3), 1);
  EXPECT_EQ(place("E", 3), 2);
}

TEST_F(CatalogPlace, AnAbsentNameGivesTheFirstAboveAndTheCountWhenThereIsNone) {
  fill({"B", "D"});
  EXPECT_EQ(place("A", 2), 0);
  EXPECT_EQ(place("C", 2), 1);
  EXPECT_EQ(place("E", 2), 2);
  EXPECT_EQ(place("D", 1), 1) << "the list ends before it";
  EXPECT_EQ(place("A", 0), 0);
}

TEST_F(CatalogPlace, AmongNamesOfOneTextTheVeryNameIsFound) {
  std::vector<CfName> names(3, cf("A.B"));
  names[0][1] = 22;
  names[1][1] = 21;
  names[2][1] = 20;
  for (const CfName& name : names) {
    ASSERT_EQ(put_cf(CatRecord(name)), DBE_OK);
    list.push_back({static_cast<std::uint16_t>(number_of(name)), 0, 1});
  }
  std::uint16_t index = 9;
  for (std::uint16_t i = 0; i < 3; ++i) {
    ASSERT_EQ(db_find_cat_idx(task, names[i].data(), list.data(), 3, &index), DBE_OK);
    EXPECT_EQ(index, i);
  }
  EXPECT_EQ(place("A.B", 3), 0) << "another table: the first of them";
}

TEST_F(CatalogPlace, EntriesThatLeadNowhereAreBelowAllNames) {
  fill({"B"});
  list.insert(list.begin(), 2, ListEntry{60000, 0, 0});
  EXPECT_EQ(place("A", 3), 2);
  EXPECT_EQ(place("B", 3), 2);
  EXPECT_EQ(place("C", 3), 3);
}

TEST_F(CatalogPlace, NullArgumentsAreRefused) {
  fill({"A"});
  std::uint16_t index = 7;
  const CfName name = cf("A");
  EXPECT_EQ(db_find_cat_idx(task, nullptr, list.data(), 1, &index), DBE_NOT_FOUND);
  EXPECT_EQ(db_find_cat_idx(task, name.data(), nullptr, 1, &index), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(db_find_cat_idx(task, name.data(), list.data(), 1, nullptr), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(index, 7);
  EXPECT_EQ(db_find_cat_idx(task, name.data(), nullptr, 0, &index), DBE_OK);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(db_find_cat_idx(nullptr, name.data(), list.data(), 1, &index), DBE_INIT_FAILED);
}

}  // namespace
}  // namespace catalog_test
