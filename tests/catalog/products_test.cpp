// Products and filesets of change files.
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

using namespace zvrdb;

constexpr std::uint32_t state_len = 272;
using Bytes = std::vector<unsigned char>;

// The caller's key record: name, product id, fileset id.
Bytes part_key(const CfName& name, unsigned product, unsigned fileset = 0) {
  Bytes key(80);
  std::memcpy(key.data(), name.data(), name.size());
  const std::uint16_t ids[] = {static_cast<std::uint16_t>(product), static_cast<std::uint16_t>(fileset)};
  std::memcpy(key.data() + 76, ids, sizeof ids);
  return key;
}
Bytes part_key(const std::string& dotted, unsigned product, unsigned fileset = 0) {
  return part_key(cf(dotted), product, fileset);
}
std::size_t length_of(std::uint32_t db_id) {
  return db_id == DB_PRD ? sizeof(db_prd) : sizeof(db_fst);
}

class Products : public CatalogTest {
 protected:
  void SetUp() override {
    CatalogTest::SetUp();
    for (const char* name : {"A", "B", "C.D"}) ASSERT_EQ(put_cf(name), DBE_OK);
  }

  int put_part(std::uint32_t db_id, const Bytes& key, const std::string& text = "text") {
    Bytes record = key;
    record.resize(length_of(db_id));
    std::memcpy(record.data() + 80, text.data(), text.size());
    const void* keys[] = {key.data()};
    return db_put(task, db_id, 1, keys, record.data(), static_cast<std::uint16_t>(record.size()));
  }
  // Fills `part`.
  int get_part(std::uint32_t db_id, const Bytes& key, std::size_t length) {
    part.assign(length, 0xEE);
    const void* keys[] = {key.data()};
    return db_get(task, db_id, 1, keys, part.data(), static_cast<std::uint16_t>(length));
  }
  int get_part(std::uint32_t db_id, const Bytes& key) { return get_part(db_id, key, length_of(db_id)); }
  int del_part(std::uint32_t db_id, const Bytes& key) {
    const void* keys[] = {key.data()};
    return db_del(task, db_id, 1, keys);
  }
  int start(std::uint32_t db_id, Bytes filter, std::uint32_t size = state_len) {
    return db_init_list(task, db_id, filter.data(), state.data(), size);
  }
  int next(std::uint32_t db_id) {
    part.assign(length_of(db_id), 0xEE);
    return db_get_more(task, db_id, state.data(), part.data(), static_cast<std::uint16_t>(part.size()));
  }
  std::string text() const { return reinterpret_cast<const char*>(part.data()) + 80; }
  // "product.fileset" of what was read last.
  std::string ids() const {
    std::uint16_t id[2];
    std::memcpy(id, part.data() + 76, sizeof id);
    return std::to_string(id[0]) + "." + std::to_string(id[1]);
  }
  // The whole list begun with this filter.
  std::vector<std::string> list(std::uint32_t db_id, const Bytes& filter) {
    EXPECT_EQ(start(db_id, filter), DBE_OK);
    std::vector<std::string> found;
    int rc;
    while ((rc = next(db_id)) == DBE_OK) found.push_back(ids());
    EXPECT_EQ(rc, DBE_END_OF_LIST);
    return found;
  }

  Bytes part;
  Bytes state = Bytes(state_len, 0xEE);
};

using Ids = std::vector<std::string>;

TEST_F(Products, ComeBackAsTheyWerePutWithTheirKeyBuiltAnew) {
  ASSERT_EQ(put_part(DB_PRD, part_key("C.D", 7), "a product"), DBE_OK);
  ASSERT_EQ(put_part(DB_FST, part_key("C.D", 7, 3), "a fileset"), DBE_OK);
  ASSERT_EQ(get_part(DB_PRD, part_key("C.D", 7)), DBE_OK);
  EXPECT_EQ(text(), "a product");
  EXPECT_EQ(Bytes(part.begin(), part.begin() + 80), part_key("C.D", 7));
  ASSERT_EQ(get_part(DB_FST, part_key("C.D", 7, 3)), DBE_OK);
  EXPECT_EQ(text(), "a fileset");
  EXPECT_EQ(Bytes(part.begin(), part.begin() + 80), part_key("C.D", 7, 3));
}

TEST_F(Products, AKeyInTheRecordItselfIsNotStored) {
  Bytes record = part_key("A", 9, 9);
  record.resize(sizeof(db_fst));
  const Bytes key = part_key("B", 1, 2);
  const void* keys[] = {key.data()};
  ASSERT_EQ(db_put(task, DB_FST, 1, keys, record.data(), sizeof(db_fst)), DBE_OK);
  ASSERT_EQ(get_part(DB_FST, key), DBE_OK);
  EXPECT_EQ(Bytes(part.begin(), part.begin() + 80), key);
}

TEST_F(Products, PuttingAgainReplaces) {
  for (const std::uint32_t db_id : {DB_PRD, DB_FST}) {
    EXPECT_EQ(put_part(db_id, part_key("A", 1, 1), "old"), DBE_OK);
    EXPECT_EQ(put_part(db_id, part_key("A", 1, 1), "new"), DBE_RECORD_REPLACED);
    ASSERT_EQ(get_part(db_id, part_key("A", 1, 1)), DBE_OK);
    EXPECT_EQ(text(), "new");
  }
}

TEST_F(Products, OneIsDeletedAndTheOthersStay) {
  for (const unsigned product : {1u, 2u}) {
    ASSERT_EQ(put_part(DB_PRD, part_key("A", product)), DBE_OK);
    ASSERT_EQ(put_part(DB_FST, part_key("A", product, 1)), DBE_OK);
  }
  EXPECT_EQ(del_part(DB_PRD, part_key("A", 1)), DBE_OK);
  EXPECT_EQ(del_part(DB_PRD, part_key("A", 1)), DBE_NOT_FOUND);
  EXPECT_EQ(get_part(DB_PRD, part_key("A", 1)), DBE_NOT_FOUND);
  EXPECT_EQ(get_part(DB_PRD, part_key("A", 2)), DBE_OK);
  EXPECT_EQ(list(DB_FST, part_key("A", 0)), (Ids{"1.1", "2.1"}))
      << "a product's filesets are records of their own";
}

TEST_F(Products, AProductsKeyHasNoFileset) {
  ASSERT_EQ(put_part(DB_PRD, part_key("A", 1, 77)), DBE_OK);
  EXPECT_EQ(put_part(DB_PRD, part_key("A", 1, 78)), DBE_RECORD_REPLACED);
  EXPECT_EQ(get_part(DB_PRD, part_key("A", 1, 79)), DBE_OK);
}

TEST_F(Products, TheKeyRecordOfAProductMayEndBehindItsId) {
  Bytes key = part_key("A", 5);
  key.resize(78);
  key.shrink_to_fit();
  ASSERT_EQ(put_part(DB_PRD, part_key("A", 5)), DBE_OK);
  EXPECT_EQ(get_part(DB_PRD, key), DBE_OK);
}

TEST_F(Products, AnUnknownChangeFileIsNotFoundWithoutAFile) {
  const Bytes key = part_key("UNKNOWN", 1, 1);
  EXPECT_EQ(put_part(DB_PRD, key), DBE_NOT_FOUND);
  EXPECT_EQ(put_part(DB_FST, key), DBE_NOT_FOUND);
  EXPECT_EQ(del_part(DB_PRD, key), DBE_NOT_FOUND);
  EXPECT_EQ(del_part(DB_FST, key), DBE_NOT_FOUND);
  framed([&] {
    file_entry* file = tcb()->cat_file;
    tcb()->cat_file = nullptr;
    unsigned char buffer[548];
    const void* keys[] = {key.data()};
    EXPECT_EQ(catalog::get_prd(task, 1, keys, buffer, sizeof buffer), DBE_NOT_FOUND);
    EXPECT_EQ(catalog::get_fst(task, 1, keys, buffer, sizeof buffer), DBE_NOT_FOUND);
    tcb()->cat_file = file;
    return DBE_OK;
  });
}

TEST_F(Products, AShortBufferGetsTheKeyAlone) {
  ASSERT_EQ(put_part(DB_FST, part_key("A", 1, 2), "text"), DBE_OK);
  ASSERT_EQ(get_part(DB_FST, part_key("A", 1, 2), 80), DBE_OK);
  EXPECT_EQ(part, part_key("A", 1, 2));
  ASSERT_EQ(get_part(DB_FST, part_key("A", 1, 2), 83), DBE_OK);
  EXPECT_EQ(std::string(part.begin() + 80, part.end()), std::string("te\0", 3)) << "cut with a NUL";
}

TEST_F(Products, AreListedInOrderOfTheirIds) {
  for (const unsigned product : {256u, 2u, 65535u, 0u, 1u})
    ASSERT_EQ(put_part(DB_PRD, part_key("A", product)), DBE_OK);
  ASSERT_EQ(put_part(DB_PRD, part_key("B", 9)), DBE_OK);
  ASSERT_EQ(put_part(DB_FST, part_key("A", 1, 1)), DBE_OK);
  EXPECT_EQ(list(DB_PRD, part_key("A", 0)), (Ids{"0.0", "1.0", "2.0", "256.0", "65535.0"}));
  EXPECT_EQ(list(DB_PRD, part_key("A", 2)), (Ids{"0.0", "1.0", "2.0", "256.0", "65535.0"})) << "always all";
  EXPECT_EQ(list(DB_PRD, part_key("B", 0)), (Ids{"9.0"}));
  EXPECT_EQ(list(DB_PRD, part_key("C.D", 0)), Ids{});
}

TEST_F(Products, FilesetsAreListedOfOneProductOrOfAll) {
  for (const auto& [product, fileset] : {std::pair{2u, 1u}, {1u, 300u}, {1u, 2u}, {3u, 0u}})
    ASSERT_EQ(put_part(DB_FST, part_key("A", product, fileset)), DBE_OK);
  ASSERT_EQ(put_part(DB_FST, part_key("B", 1, 5)), DBE_OK);
  EXPECT_EQ(list(DB_FST, part_key("A", 0)), (Ids{"1.2", "1.300", "2.1", "3.0"}));
  EXPECT_EQ(list(DB_FST, part_key("A", 1)), (Ids{"1.2", "1.300"}));
  EXPECT_EQ(list(DB_FST, part_key("A", 1, 300)), (Ids{"1.2", "1.300"}))
      << "the fileset of the filter does not count";
  EXPECT_EQ(list(DB_FST, part_key("A", 4)), Ids{});
}

TEST_F(Products, AListGoesOnFromItsKeyWhenRecordsComeAndGo) {
  for (const unsigned product : {1u, 3u, 5u}) ASSERT_EQ(put_part(DB_PRD, part_key("A", product)), DBE_OK);
  ASSERT_EQ(start(DB_PRD, part_key("A", 0)), DBE_OK);
  ASSERT_EQ(next(DB_PRD), DBE_OK);
  EXPECT_EQ(ids(), "1.0");
  ASSERT_EQ(del_part(DB_PRD, part_key("A", 1)), DBE_OK);
  ASSERT_EQ(del_part(DB_PRD, part_key("A", 3)), DBE_OK);
  ASSERT_EQ(put_part(DB_PRD, part_key("A", 2)), DBE_OK);
  ASSERT_EQ(next(DB_PRD), DBE_OK);
  EXPECT_EQ(ids(), "2.0");
  ASSERT_EQ(next(DB_PRD), DBE_OK);
  EXPECT_EQ(ids(), "5.0");
  EXPECT_EQ(next(DB_PRD), DBE_END_OF_LIST);
  EXPECT_EQ(next(DB_PRD), DBE_END_OF_LIST);
}

TEST_F(Products, AListStateTooSmallIsRefusedAndNotCleared) {
  for (const std::uint32_t db_id : {DB_PRD, DB_FST}) {
    state.assign(state_len, 0xEE);
    EXPECT_EQ(start(db_id, part_key("A", 0), state_len - 1), DBE_LIST_TOO_SMALL);
    EXPECT_EQ(state, Bytes(state_len, 0xEE));
    EXPECT_EQ(start(db_id, part_key("A*", 0), 0), DBE_LIST_TOO_SMALL) << "the size comes first";
    EXPECT_EQ(start(db_id, part_key("A", 0), state_len), DBE_OK);
  }
}

TEST_F(Products, AStateBiggerThanNeededIsWrittenAsFarAsNeeded) {
  state.assign(state_len + 8, 0xEE);
  EXPECT_EQ(start(DB_PRD, part_key("A", 0), state_len + 8), DBE_OK);
  EXPECT_EQ(Bytes(state.begin() + state_len, state.end()), Bytes(8, 0xEE));
}

TEST_F(Products, AWildcardInTheFirstTokenGivesAnEmptyList) {
  ASSERT_EQ(put_part(DB_PRD, part_key("A", 1)), DBE_OK);
  for (const std::uint32_t db_id : {DB_PRD, DB_FST})
    for (const char* name : {"*", "A*", "*A.B"}) {
      EXPECT_EQ(start(db_id, part_key(name, 0)), DBE_EMPTY_LIST) << name;
      EXPECT_EQ(state, Bytes(state_len, 0)) << name;
      EXPECT_EQ(next(db_id), DBE_END_OF_LIST) << name;
    }
}

TEST_F(Products, AWildcardInALaterTokenIsJustAnUnknownName) {
  for (const std::uint32_t db_id : {DB_PRD, DB_FST})
    for (const char* name : {"C.*", "C.D*", "?", "UNKNOWN"}) {
      EXPECT_EQ(start(db_id, part_key(name, 0)), DBE_NOT_FOUND) << name;
      EXPECT_EQ(next(db_id), DBE_END_OF_LIST) << name;
    }
}

TEST_F(Products, AChangeFileWhoseFirstTokenHoldsAStarHasNoLists) {
  ASSERT_EQ(put_cf("S*R"), DBE_OK);
  EXPECT_EQ(put_part(DB_PRD, part_key("S*R", 1)), DBE_OK) << "it may have products";
  EXPECT_EQ(get_part(DB_PRD, part_key("S*R", 1)), DBE_OK);
  EXPECT_EQ(start(DB_PRD, part_key("S*R", 0)), DBE_EMPTY_LIST);
}

TEST_F(Products, ATextWithoutNulIsLookedThroughForWildcardsToItsEndOnly) {
  CfName name;
  name.fill('x');
  std::memset(name.data(), 0, 11);
  // The product id behind the name reads as stars.
  EXPECT_EQ(start(DB_PRD, part_key(name, 0x2A2A)), DBE_NOT_FOUND);
  name[75] = '*';
  EXPECT_EQ(start(DB_PRD, part_key(name, 0)), DBE_EMPTY_LIST);
}

TEST_F(Products, ANullFilterIsABadRecordAndLeavesAnEmptyList) {
  EXPECT_EQ(db_init_list(task, DB_PRD, nullptr, state.data(), state_len), DBE_BAD_RECORD);
  EXPECT_EQ(next(DB_PRD), DBE_END_OF_LIST);
}

TEST_F(Products, AStateThatWasNeverBegunIsAtItsEnd) {
  state.assign(state_len, 0);
  EXPECT_EQ(next(DB_PRD), DBE_END_OF_LIST);
  EXPECT_EQ(next(DB_FST), DBE_END_OF_LIST);
}

TEST_F(Products, OfTheHighestNumbersCannotBeReadOnceOthersAreDeleted) {
  ASSERT_EQ(put_part(DB_PRD, part_key("C.D", 1)), DBE_OK);
  ASSERT_EQ(number_of("C.D"), 2);
  ASSERT_EQ(del_cf("A"), DBE_OK);
  EXPECT_EQ(get_part(DB_PRD, part_key("C.D", 1)), DBE_OK) << "the count of change files is a number still";
  ASSERT_EQ(del_cf("B"), DBE_OK);
  EXPECT_EQ(get_part(DB_PRD, part_key("C.D", 1)), DBE_NOT_FOUND)
      << "names of numbers above the count are not told";
  EXPECT_EQ(del_part(DB_PRD, part_key("C.D", 1)), DBE_OK);
}

TEST_F(Products, GoWithTheirChangeFile) {
  for (const char* name : {"A", "B"}) {
    ASSERT_EQ(put_part(DB_PRD, part_key(name, 1)), DBE_OK);
    ASSERT_EQ(put_part(DB_FST, part_key(name, 1, 1)), DBE_OK);
  }
  ASSERT_EQ(del_cf("A"), DBE_OK);
  ASSERT_EQ(put_cf("NEW"), DBE_OK);
  ASSERT_EQ(number_of("NEW"), 0) << "the number of A";
  EXPECT_EQ(list(DB_PRD, part_key("NEW", 0)), Ids{});
  EXPECT_EQ(list(DB_FST, part_key("NEW", 0)), Ids{});
  EXPECT_EQ(list(DB_PRD, part_key("B", 0)), (Ids{"1.0"}));
  EXPECT_EQ(list(DB_FST, part_key("B", 0)), (Ids{"1.1"}));
}

TEST_F(Products, AllOfANumberAreDeletedAndNoneOfItsNeighbours) {
  for (const unsigned number : {32767u, 32768u, 32769u, 65535u, 0u})
    for (const unsigned product : {0u, 1u, 65535u}) {
      ASSERT_EQ(store_part(DB_PRD, number, product), DBE_OK);
      ASSERT_EQ(store_part(DB_FST, number, product, 1), DBE_OK);
    }
  // Numbers above 32767 are negative ones for it.
  EXPECT_EQ(framed([&] { return catalog::del_prod_file(task, -32768); }), DBE_OK);
  EXPECT_EQ(parts_of(32767), 6);
  EXPECT_EQ(parts_of(32768), 0);
  EXPECT_EQ(parts_of(32769), 6);
  EXPECT_EQ(framed([&] { return catalog::del_prod_file(task, -1); }), DBE_OK);
  EXPECT_EQ(parts_of(65535), 0);
  EXPECT_EQ(parts_of(0), 6);
  EXPECT_EQ(framed([&] { return catalog::del_prod_file(task, -1); }), DBE_OK) << "nothing to delete";
}

}  // namespace
}  // namespace catalog_test
