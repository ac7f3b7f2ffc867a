// Adding and replacing change files.
#include <cstring>

#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

class CatalogStore : public CatalogTest {};

TEST_F(CatalogStore, AChangeFileIsFoundByItsNameFromMemoryAndFromTheFile) {
  ASSERT_EQ(put_cf(CatRecord("A.B").text("words").last_byte(42)), DBE_OK);
  const CatReading head = get_cf("A.B", head_len);
  EXPECT_EQ(head.rc, DBE_OK);
  EXPECT_EQ(head.record.name(), cf("A.B"));
  EXPECT_EQ(head.record.text(), "words");
  const CatReading whole = get_cf("A.B");
  EXPECT_EQ(whole.rc, DBE_OK);
  EXPECT_EQ(whole.record.text(), "words");
  EXPECT_EQ(whole.record.last_byte(), 42u);
  EXPECT_EQ(get_cf("A").rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("A.B.C").rc, DBE_NOT_FOUND);
}

TEST_F(CatalogStore, PuttingTheSameNameAgainReplaces) {
  ASSERT_EQ(put_cf(CatRecord("A").text("old")), DBE_OK);
  EXPECT_EQ(put_cf(CatRecord("A").text("new")), DBE_RECORD_REPLACED);
  EXPECT_EQ(get_cf("A", head_len).record.text(), "new");
  EXPECT_EQ(get_cf("A").record.text(), "new");
  EXPECT_EQ(cntl()->num_cat_actual, 1u);
  EXPECT_EQ(cntl()->num_cat_inited, 1u);
  EXPECT_EQ(logged(36353), 2);
}

TEST_F(CatalogStore, NumbersStartAtZeroAndNamesStandInOrder) {
  const char* names[] = {"M", "C", "X", "A"};
  for (const char* name : names) ASSERT_EQ(put_cf(name), DBE_OK);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(number_of(names[i]), i);
  EXPECT_EQ(all_names(), (std::vector<std::string>{"A", "C", "M", "X"}));
}

TEST_F(CatalogStore, ANewChangeFileGetsTheLowestFreeNumber) {
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(del_cf("C"), DBE_OK);
  ASSERT_EQ(del_cf("B"), DBE_OK);
  ASSERT_EQ(del_cf("D"), DBE_OK);
  EXPECT_EQ(put_cf("E"), DBE_OK) << "new, though a record of that number is in the file";
  EXPECT_EQ(number_of("E"), 1) << "the lowest, and not the one freed last";
  EXPECT_EQ(put_cf("F"), DBE_OK);
  EXPECT_EQ(number_of("F"), 2);
  EXPECT_EQ(cntl()->num_cat_inited, 4u);
  expect_agreement();
}

TEST_F(CatalogStore, TheNumberJustFreedIsTakenAgain) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(del_cf("B"), DBE_OK);
  ASSERT_EQ(put_cf("Z"), DBE_OK);
  EXPECT_EQ(number_of("Z"), 1);
}

TEST_F(CatalogStore, ARecordOfAnotherNameThanItsKeyIsRefusedBeforeAnythingIsChanged) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const auto before = table_lines();
  for (const char* key : {"A", "B"}) {
    CatRecord record(std::string("C"));
    const CfName name = cf(key);
    const void* keys[] = {name.data()};
    EXPECT_EQ(db_put(task, DB_CAT, 1, keys, record.bytes.data(), record_len), DBE_BAD_RECORD) << key;
  }
  CfName other_table = cf("A");
  other_table[1] = 7;
  CatRecord record(other_table);
  const CfName name = cf("A");
  const void* keys[] = {name.data()};
  EXPECT_EQ(db_put(task, DB_CAT, 1, keys, record.bytes.data(), record_len), DBE_BAD_RECORD)
      << "the token table is part of the name";
  EXPECT_EQ(table_lines(), before);
  expect_agreement();
}

TEST_F(CatalogStore, ANameThatLooksLikeAFreeNumberIsRefused) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  EXPECT_EQ(put_cf(CatRecord(zvrtest::cf_name_of({}))), DBE_BAD_RECORD) << "no token at all";
  EXPECT_EQ(cntl()->num_cat_actual, 1u);
  expect_agreement();
}

TEST_F(CatalogStore, ANameThatDiffersOnlyInItsTokenTableIsANewEntryNextToTheOther) {
  CfName first = cf("A.B");
  CfName second = first;
  second[1] = 255;  // one token in the table, the same text
  ASSERT_EQ(put_cf(CatRecord(first).text("two tokens")), DBE_OK);
  ASSERT_EQ(put_cf(CatRecord(second).text("one token")), DBE_OK);
  EXPECT_EQ(cntl()->num_cat_actual, 2u);
  EXPECT_EQ(get_cf(first).record.text(), "two tokens");
  EXPECT_EQ(get_cf(second).record.text(), "one token");
  EXPECT_EQ(put_cf(CatRecord(first).text("two again")), DBE_RECORD_REPLACED) << "no third one";
  EXPECT_EQ(put_cf(CatRecord(second).text("one again")), DBE_RECORD_REPLACED);
  EXPECT_EQ(cntl()->num_cat_actual, 2u);
  EXPECT_EQ(get_cf(first, head_len).record.text(), "two again");
  EXPECT_EQ(get_cf(second, head_len).record.text(), "one again");
}

TEST_F(CatalogStore, TheOrderAmongNamesOfOneTextIsTheSameAfterARebuild) {
  std::vector<CfName> names;
  for (const int table : {9, 255, 3, 70, 5}) {
    names.push_back(cf("A.B"));
    names.back()[1] = static_cast<unsigned char>(table);
  }
  for (const CfName& name : names) ASSERT_EQ(put_cf(CatRecord(name)), DBE_OK);
  ASSERT_EQ(put_cf("A"), DBE_OK);
  ASSERT_EQ(put_cf("A.C"), DBE_OK);
  CfName unknown = cf("A.B");
  unknown[1] = 100;
  const int found = number_of(unknown);
  EXPECT_EQ(found, number_of(names[1]))
      << "only the text is compared: the first of them, which has the fewest tokens";
  expect_agreement();
  EXPECT_EQ(number_of(unknown), found);
}

TEST_F(CatalogStore, NeighboursKnowWhereTheyDiffer) {
  ASSERT_EQ(put_cf("A.B.C"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{0}));
  ASSERT_EQ(put_cf("A.BD"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{17, 0})) << "token 1, character 1";
  ASSERT_EQ(put_cf("A.B.D"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{32, 17, 0})) << "both neighbours' values are new";
  ASSERT_EQ(put_cf("A.B"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{32, 32, 17, 0}));
  ASSERT_EQ(put_cf("Z"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{32, 32, 17, 0, 0}));
  ASSERT_EQ(put_cf("A.B.C"), DBE_RECORD_REPLACED);
  EXPECT_EQ(differences(), (std::vector<unsigned>{32, 32, 17, 0, 0}));
  expect_agreement();
}

TEST_F(CatalogStore, ADifferenceBehindTheFifteenthCharacterSpillsIntoTheTokensHalf) {
  ASSERT_EQ(put_cf("ABCDEFGHIJKLMNOPQRST1"), DBE_OK);
  ASSERT_EQ(put_cf("ABCDEFGHIJKLMNOPQRST2"), DBE_OK);
  EXPECT_EQ(differences(), (std::vector<unsigned>{20, 0}));
}

TEST_F(CatalogStore, EachStoreAndEachDeletionRaisesTheSequenceOfTheSlot) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  EXPECT_EQ(cat_slot(0).cf_gen, 1);
  ASSERT_EQ(put_cf("A"), DBE_RECORD_REPLACED);
  EXPECT_EQ(cat_slot(0).cf_gen, 2);
  ASSERT_EQ(del_cf("A"), DBE_OK);
  EXPECT_EQ(cat_slot(0).cf_gen, 3);
  cat_slot(0).cf_gen = 255;
  ASSERT_EQ(put_cf("B"), DBE_OK);
  EXPECT_EQ(cat_slot(0).cf_gen, 0) << "it wraps";
  ASSERT_EQ(rebuild(), DBE_OK);
  ASSERT_EQ(number_of("B"), 0);
  EXPECT_EQ(cat_slot(0).cf_gen, 0);
}

TEST_F(CatalogStore, ALengthBeyondTheRecordIsCut) {
  CatRecord record("A");
  record.text("words").last_byte(9);
  record.bytes.resize(5000, 0xEE);
  ASSERT_EQ(put_cf(record, 5000), DBE_OK);
  std::vector<unsigned char> buffer(5000, 0xCC);
  const CfName name = cf("A");
  const void* keys[] = {name.data()};
  ASSERT_EQ(db_get(task, DB_CAT, 1, keys, buffer.data(), 5000), DBE_OK);
  EXPECT_EQ(buffer[2462], 9);
  EXPECT_EQ(buffer[2464], 0xCC) << "no byte behind the record is touched";
}

TEST_F(CatalogStore, BytesBeyondAShortRecordCountAsZero) {
  CatRecord record("A");
  for (std::size_t i = 76; i < 102; ++i) record.bytes[i] = 0x55;
  ASSERT_EQ(put_cf(record, 90), DBE_OK);
  const CatReading head = get_cf("A", head_len);
  EXPECT_EQ(head.record.bytes[88], 0x55);
  EXPECT_EQ(head.record.bytes[90], 0);
  EXPECT_EQ(get_cf("A").record.bytes[90], 0);
}

TEST_F(CatalogStore, ARecordThatIsItsNameAloneKeepsItWhole) {
  const CfName long_name = cf(std::string(64, 'L'));
  CatRecord record(long_name);
  ASSERT_EQ(put_cf(record, 76), DBE_OK);
  ASSERT_EQ(put_cf(CatRecord("ABC"), 14), DBE_OK) << "a record that ends with the name's last letter";
  CfName full = cf("F");
  std::memset(full.data() + 11, 'F', 65);  // no NUL in the text
  ASSERT_EQ(put_cf(CatRecord(full), 76), DBE_OK);
  expect_agreement();
  EXPECT_EQ(get_cf("ABC").record.name(), cf("ABC"));
  EXPECT_EQ(get_cf(full).record.name(), full);
}

TEST_F(CatalogStore, ARecordThatEndsWithinItsNameIsRefusedLikeAnyOtherName) {
  EXPECT_EQ(put_cf(CatRecord("ABCDEF"), 14), DBE_BAD_RECORD) << "the record's name is ABC";
  EXPECT_EQ(put_cf(CatRecord("A"), 0), DBE_BAD_RECORD);
  EXPECT_EQ(cntl()->num_cat_inited, 0u);
}

TEST_F(CatalogStore, MissingKeysAreRefused) {
  CatRecord record("A");
  EXPECT_EQ(db_put(task, DB_CAT, 0, nullptr, record.bytes.data(), record_len), DBE_NOT_FOUND);
  const void* keys[] = {nullptr};
  EXPECT_EQ(db_put(task, DB_CAT, 1, keys, record.bytes.data(), record_len), DBE_NOT_FOUND);
  EXPECT_EQ(db_del(task, DB_CAT, 1, keys), DBE_NOT_FOUND);
  EXPECT_EQ(db_get(task, DB_CAT, 1, keys, record.bytes.data(), 10), DBE_NOT_FOUND);
}

TEST_F(CatalogStore, ACountBeyondTheTablesIsNotFollowed) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  for (const std::uint32_t count : {cntl()->num_cat_alloc, 0x40000000u, 0xFFFFFFFFu}) {
    cntl()->num_cat_actual = count;
    EXPECT_EQ(put_cf("C"), DBE_LIMIT_EXCEEDED) << "before anything is written";
    EXPECT_EQ(cntl()->num_cat_inited, 2u);
  }
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(all_names(), (std::vector<std::string>{"A", "B"}));
}

}  // namespace
}  // namespace catalog_test
