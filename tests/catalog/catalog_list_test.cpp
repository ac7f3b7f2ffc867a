// Lists of change files by filter: what is listed, in what order, and what it costs.
#include <cstring>

#include "catalog/catalog_fixture.h"
#include "catalog/catalog_index.h"

namespace zvrtest {
namespace {

using Names = std::vector<std::string>;
using zvrdb::CAT_CNTL_ENTRY;

// For more than one catalog in a test: a process has one at a time.
Names listed_of(const Names& names, const std::string& filter) {
  return CatalogIndex(names_of(names)).listed(filter);
}

TEST(CatalogList, APlainFilterListsTheVeryName) {
  const CatalogIndex index(names_of({"A", "A.B", "A.B.C", "A.BC", "B"}));
  EXPECT_EQ(index.listed("A.B"), (Names{"A.B"}));
  EXPECT_EQ(index.listed("A.C"), Names{});
  EXPECT_EQ(index.listed("0"), Names{}) << "below all";
  EXPECT_EQ(index.listed("Z"), Names{}) << "above all";
}

TEST(CatalogList, AQuestionMarkListsNamesOfOneCharacter) {
  const CatalogIndex index(names_of({"A", "A.X", "A.XY", "A.Y", "B.X"}));
  EXPECT_EQ(index.listed("A.?"), (Names{"A.X", "A.Y"}));
}

TEST(CatalogList, AStarInATokenListsTheTokensThatBeginSo) {
  const CatalogIndex index(names_of({"A.A", "A.B", "A.BC", "A.BC.D", "A.C"}));
  EXPECT_EQ(index.listed("A.B*"), (Names{"A.B", "A.BC"}));
}

TEST(CatalogList, AStarAloneListsTheNameWithoutThatTokenToo) {
  const CatalogIndex index(names_of({"A", "A.X", "A.X.Y", "B"}));
  EXPECT_EQ(index.listed("A.*"), (Names{"A", "A.X"}));
}

TEST(CatalogList, TheRestOfATokenBehindAStarIsNotLookedAt) {
  const CatalogIndex index(names_of({"A.XZ", "A.Y"}));
  EXPECT_EQ(index.listed("A.X*Y"), (Names{"A.XZ"}));
}

TEST(CatalogList, AFilterThatBeginsWithAWildcardGoesThroughTheWholeCatalog) {
  const CatalogIndex index(names_of({"A.B", "A.C", "M", "Z.B"}));
  EXPECT_EQ(index.listed("*.B"), (Names{"A.B", "Z.B"}));
  EXPECT_EQ(index.listed("?.B"), (Names{"A.B", "Z.B"}));
}

TEST(CatalogList, NamesThatHoldWildcardsAreNamesLikeAnyOther) {
  const CatalogIndex index(names_of({"A.*", "A.?", "A.B", "A.B*", "A.B*C"}));
  EXPECT_EQ(index.listed("A.?"), (Names{"A.*", "A.?", "A.B"}));
  EXPECT_EQ(index.listed("A.B*"), (Names{"A.B", "A.B*"})) << "not the one that goes on behind its own star";
}

TEST(CatalogList, AnEmptyCatalogListsNothingAndLeavesTheCount) {
  const CatalogIndex index(std::vector<CfName>{});
  CAT_CNTL_ENTRY entry = {7, 7, 7};
  std::uint16_t count = 3;
  EXPECT_EQ(zvrdb::catalog::start_list_cat(index.task(), cf("*").data(), &entry, 4, &count), DBE_OK);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(entry.dist_idx, 7);
}

TEST(CatalogList, TheCountIsAddedTo) {
  const CatalogIndex index(names_of({"A", "B"}));
  CAT_CNTL_ENTRY entries[2];
  std::uint16_t count = 3;
  EXPECT_EQ(zvrdb::catalog::start_list_cat(index.task(), cf("*").data(), entries, sizeof entries, &count),
            DBE_OK);
  EXPECT_EQ(count, 5);
  EXPECT_EQ(index.name_in(entries[0].dist_idx), cf("A")) << "the area is filled from its start";
}

TEST(CatalogList, EntriesHoldSlotDifferenceAndGeneration) {
  const CatalogIndex index(names_of({"A.B", "A.BC", "C"}));
  const Listing listing = index.list(cf("A.*"));
  ASSERT_EQ(listing.entries.size(), 2u);
  EXPECT_EQ(listing.entries[0].dist_idx, 2);
  EXPECT_EQ(listing.entries[0].name_diff, 17);
  EXPECT_EQ(listing.entries[0].spare, 2 * 7) << "cf_gen of the slot";
  EXPECT_EQ(listing.entries[1].spare, 1 * 7);
}

TEST(CatalogList, AFullAreaHoldsWhatFits) {
  const CatalogIndex index(names_of({"A.1", "A.2", "A.3"}));
  const Listing listing = index.list(cf("A.*"), 2);
  EXPECT_EQ(listing.rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(listing.count, 2);
  EXPECT_EQ(index.shown(listing), (Names{"A.1", "A.2"}));
  EXPECT_EQ(index.list(cf("A.*"), 3).rc, DBE_OK);
  EXPECT_EQ(index.list(cf("A.*"), 0).rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(index.list(cf("B.*"), 0).rc, DBE_OK) << "nothing to list";
}

TEST(CatalogList, AFullAreaEndsARunToo) {
  const CatalogIndex index(names_of({"A.1", "A.2", "A.3"}));
  const Listing listing = index.list(cf("A*.*.*.*.*.*.*.*.*.*"), 2);
  EXPECT_EQ(listing.cost.filter_tests, 1u);
  EXPECT_EQ(listing.rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(index.shown(listing), (Names{"A.1", "A.2"}));
}

TEST(CatalogList, AnAreaThatEndsWithinAnEntryGetsThePartThatFits) {
  const CatalogIndex index(names_of({"A", "B", "C"}));
  unsigned char area[8];
  std::memset(area, 0xEE, sizeof area);
  std::uint16_t count = 0;
  EXPECT_EQ(zvrdb::catalog::start_list_cat(index.task(), cf("*").data(), area, 6, &count),
            DBE_LIST_TOO_SMALL);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(area[4], 1) << "the slot of B";
  EXPECT_EQ(area[6], 0xEE);
  EXPECT_EQ(area[7], 0xEE);
  // The last of all may end so, and the list is complete.
  count = 0;
  EXPECT_EQ(zvrdb::catalog::start_list_cat(index.task(), cf("?").data(), area, 5, &count),
            DBE_LIST_TOO_SMALL);
  count = 0;
  EXPECT_EQ(zvrdb::catalog::start_list_cat(index.task(), cf("A").data(), area, 1, &count), DBE_OK);
  EXPECT_EQ(count, 1);
}

TEST(CatalogList, ANullFilterIsRefused) {
  const CatalogIndex index(names_of({"A"}));
  CAT_CNTL_ENTRY entry;
  std::uint16_t count = 0;
  EXPECT_EQ(zvrdb::catalog::start_list_cat(index.task(), nullptr, &entry, 4, &count), DBE_BAD_RECORD);
  EXPECT_EQ(count, 0);
}

TEST(CatalogList, NamesOfOneTextAreFoundEachByItsOwnFilter) {
  // "A" and "A." have the same text and differ in the token table alone.
  const CatalogIndex index(names_of({"A.", "A", "A.B", "A..", "A..B"}));
  for (const char* name : {"A", "A.", "A..", "A..B", "A.B"}) EXPECT_EQ(index.listed(name), (Names{name}));
  EXPECT_EQ(index.listed("A.*"), (Names{"A", "A.", "A.B"}));
}

TEST(CatalogList, AnIndexEntryWithoutASlotIsPassedOver) {
  const CatalogIndex index(names_of({"A.1", "A.2", "A.3", "A.4", "A.5"}));
  index.tcb()->cat_cntl[3].dist_idx = 60000;
  const Names others = {"A.1", "A.2", "A.3", "A.5"};
  EXPECT_EQ(index.listed("A.?*"), others) << "behind a run";
  EXPECT_EQ(index.listed("A*.*.*.*.*.*.*.*.*.*"), others) << "within one";
}

TEST(CatalogList, ACountBeyondTheTableIsNotFollowed) {
  const CatalogIndex index(names_of({"A", "B"}), 0);
  index.cntl()->num_cat_actual = 0xFFFFFFFFu;
  EXPECT_EQ(index.listed("*"), (Names{"A", "B"}));
}

// ---- runs

const std::string tail_from_2 = ".*.*.*.*.*.*.*.*";

TEST(CatalogRuns, ARunTakesNeighboursThatDifferBehindTheTail) {
  const CatalogIndex index(names_of({"A.B", "A.B.1", "A.B.2", "A.BC", "A.C"}));
  const Listing listing = index.list(cf("A.B*" + tail_from_2));
  EXPECT_EQ(index.shown(listing), (Names{"A.B", "A.B.1", "A.B.2", "A.BC"}));
  EXPECT_EQ(listing.cost.filter_tests, 2u) << "A.B for three, and A.BC, which differs at the tail itself";
}

TEST(CatalogRuns, AnEleventhTokenComesAlongWithTheNameBeforeIt) {
  const std::string ten = "A.1.2.3.4.5.6.7.8.9";
  const std::string filter = "A.*.*.*.*.*.*.*.*.*";
  EXPECT_EQ(listed_of({ten + ".10"}, filter), Names{}) << "by itself it does not match";
  EXPECT_EQ(listed_of({ten, ten + ".10"}, filter), (Names{ten, ten + ".10"}));
}

TEST(CatalogRuns, AFarDifferenceInALongTokenLengthensARun) {
  // Token 1, character 18 reads as token 2, character 2, which is behind a tail that
  // begins at token 2: neighbours are one run though the filter wants the first only.
  const std::string far = "A." + std::string(18, 'L');
  const Names names = {far + "1.X", far + "2.X"};
  const CatalogIndex index(names_of(names));
  EXPECT_EQ(index.listed(far + "1" + tail_from_2), names);
  EXPECT_EQ(index.listed(far + "2" + tail_from_2), (Names{far + "2.X"}));
  EXPECT_EQ(index.listed(far + "1.X"), (Names{far + "1.X"})) << "without a tail each is tested";
}

TEST(CatalogRuns, TheSkipGoesOnBehindTheFixedPart) {
  // Two names with the fixed part, none of which matches: the walk goes on behind them,
  // and only the end of a run asks for the fixed part again.  Of the last three the first
  // is tested; the others begin with the same token, which is what it fails in.
  const CatalogIndex index(names_of({"A.B.X", "A.BB.X", "C.1", "C.2", "C.3"}));
  const Listing none = index.list(cf("A.B*"));
  EXPECT_EQ(none.rc, DBE_OK);
  EXPECT_EQ(none.count, 0);
  EXPECT_EQ(none.cost.filter_tests, 3u);
}

TEST(CatalogRuns, BehindARunTheFixedPartMustGoOn) {
  const CatalogIndex index(names_of({"A.B", "C.1", "C.2", "C.3"}));
  const Listing listing = index.list(cf("A.B*"));
  EXPECT_EQ(listing.count, 1);
  EXPECT_EQ(listing.cost.filter_tests, 1u);
}

TEST(CatalogRuns, TheLastEntryEndsAnyRun) {
  CatalogIndex index(names_of({"A.1", "A.2"}));
  index.tcb()->cat_cntl[1].name_diff = 255;
  EXPECT_EQ(index.listed("A*.*.*.*.*.*.*.*.*.*"), (Names{"A.1", "A.2"}));
}

// ---- cost, over 30,000 change files: 300 packages, 50 fixes and 50 refreshes each

std::string numbered(const std::string& text, unsigned number, int width) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%0*u", width, number);
  return text + digits;
}

class CatalogCost : public ::testing::Test {
 protected:
  static constexpr unsigned packages = 300;
  static constexpr unsigned versions = 50;

  static std::vector<CfName> names() {
    std::vector<CfName> all;
    for (unsigned package = 0; package < packages; ++package)
      for (const char* type : {".FIX.", ".REF."})
        for (unsigned version = 0; version < versions; ++version)
          all.push_back(cf("DEB." + numbered("PKG", package, 3) + type + numbered("", version, 2)));
    return all;
  }
  // The binary search, and one look behind each run.
  static constexpr unsigned search = 17;

  CatalogIndex index{names()};
};

TEST_F(CatalogCost, AllChangeFilesAreOneRun) {
  const Listing listing = index.list(cf("*.*.*.*.*.*.*.*.*.*"));
  EXPECT_EQ(listing.count, packages * versions * 2);
  EXPECT_EQ(listing.cost.filter_tests, 1u);
  EXPECT_LE(listing.cost.prefix_tests, search);
}

TEST_F(CatalogCost, AFixedPartAndATailCostOneTest) {
  const Listing listing = index.list(cf("DEB.PKG123*" + tail_from_2));
  EXPECT_EQ(listing.count, versions * 2);
  EXPECT_EQ(listing.cost.filter_tests, 1u);
  EXPECT_LE(listing.cost.prefix_tests, search + 1);
  EXPECT_EQ(index.shown(listing).front(), "DEB.PKG123.FIX.00");
  EXPECT_EQ(index.shown(listing).back(), "DEB.PKG123.REF.49");
}

TEST_F(CatalogCost, EachRunCostsOneTestAndOneLookBehindIt) {
  struct {
    const char* filter;
    unsigned found;  // packages
    unsigned runs;
  } const rows[] = {
      {"DEB.PKG123", 1, 2},  // the tail begins at the type
      {"DEB.PKG12*", 10, 10}, {"DEB.PKG1*", 100, 10}, {"DEB.PKG1??", 100, 200},
      {"DEB.PKG*", 300, 3},   {"DEB.P*", 300, 1},
  };
  for (const auto& row : rows) {
    const Listing listing = index.list(cf(row.filter + tail_from_2));
    EXPECT_EQ(listing.count, row.found * versions * 2) << row.filter;
    // What follows the packages asked for is not matched any more.
    EXPECT_EQ(listing.cost.filter_tests, row.runs) << row.filter;
    EXPECT_LE(listing.cost.prefix_tests, search + row.runs) << row.filter;
  }
}

TEST_F(CatalogCost, NamesThatFailInTheSameTokenCostOneTest) {
  const Listing listing = index.list(cf("DEB.PKG1??.REF*.*.*.*.*.*.*.*"));
  EXPECT_EQ(listing.count, 100u * versions);
  // One for each run of refreshes, and one for all the fixes before them.
  EXPECT_EQ(listing.cost.filter_tests, 200u);
}

TEST_F(CatalogCost, WithoutATailEachNameIsTested) {
  const Listing listing = index.list(cf("DEB.PKG123.FIX.*"));
  EXPECT_EQ(listing.count, versions);
  EXPECT_EQ(listing.cost.filter_tests, versions);
}

// ---- through the exported calls

class CatalogListCalls : public catalog_test::CatalogTest {
 protected:
  struct Called {
    int rc;
    std::vector<catalog_test::ListEntry> entries;
  };
  Called start(const std::string& filter, std::size_t room = 100) {
    Called called{0, std::vector<catalog_test::ListEntry>(room)};
    const CfName name = cf(filter);
    std::uint16_t count = 77;
    std::uint16_t at = 77;
    called.rc = db_start_list(task, DB_CAT, name.data(), called.entries.data(),
                              static_cast<std::uint32_t>(room * 4), &count, &at);
    EXPECT_EQ(at, 0);
    called.entries.resize(count);
    return called;
  }
  // Walks a list with db_get_next.
  Names walk(const Called& called) {
    Names found;
    std::uint16_t at = 0;
    unsigned char head[76];
    for (;;) {
      const int rc = db_get_next(task, DB_CAT, called.entries.data(),
                                 static_cast<std::uint16_t>(called.entries.size()), &at, head, sizeof head);
      if (rc == DBE_END_OF_LIST) return found;
      CfName name;
      std::memcpy(name.data(), head, sizeof head);
      found.push_back(rc == DBE_OK ? dotted(name) : std::to_string(rc));
    }
  }
};

TEST_F(CatalogListCalls, AnEmptyCatalogListsNothing) {
  const Called called = start("*");
  EXPECT_EQ(called.rc, DBE_OK);
  EXPECT_TRUE(called.entries.empty());
}

TEST_F(CatalogListCalls, AListIsWalkedInOrderOfNames) {
  for (const char* name : {"DEB.B.FIX.1", "DEB.A.REF.1", "DEB.A.FIX.2", "RPM.A.FIX.1", "DEB.A.FIX.1"})
    ASSERT_EQ(put_cf(name), DBE_OK);
  EXPECT_EQ(walk(start("DEB.*.FIX.*")), (Names{"DEB.A.FIX.1", "DEB.A.FIX.2", "DEB.B.FIX.1"}));
  EXPECT_EQ(start("DEB.*.FIX.*", 2).rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(walk(start("DEB.*.FIX.*", 2)), (Names{"DEB.A.FIX.1", "DEB.A.FIX.2"}));
}

TEST_F(CatalogListCalls, AListTellsOfSlotsThatWereReusedBehindIt) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  const Called called = start("*");
  ASSERT_EQ(del_cf("B"), DBE_OK);
  EXPECT_EQ(walk(called), (Names{"A", "8194", "C"}));
  ASSERT_EQ(put_cf("Z"), DBE_OK);
  EXPECT_EQ(walk(called), (Names{"A", "8210", "C"})) << "Z has the number of B";
  ASSERT_EQ(put_cf("A"), DBE_RECORD_REPLACED);
  EXPECT_EQ(walk(called), (Names{"8210", "8210", "C"})) << "a store of the same name counts too";
  EXPECT_EQ(walk(start("*")), (Names{"A", "C", "Z"}));
}

TEST_F(CatalogListCalls, DeletedNamesAreListedByNoRun) {
  const std::string tail = ".*.*.*.*.*.*.*.*";
  for (const char* name : {"A.B.1", "A.B.2", "A.B.3", "A.BB", "A.C"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(del_cf("A.B.2"), DBE_OK);
  EXPECT_EQ(walk(start("A.B*" + tail)), (Names{"A.B.1", "A.B.3", "A.BB"}));
  ASSERT_EQ(del_cf("A.B.3"), DBE_OK);
  ASSERT_EQ(del_cf("A.BB"), DBE_OK);
  // A.B.1 now differs from A.C where A.BB did.
  EXPECT_EQ(walk(start("A.B*" + tail)), (Names{"A.B.1"}));
}

TEST_F(CatalogListCalls, ANullFilterIsABadRecord) {
  catalog_test::ListEntry entry;
  std::uint16_t count = 7;
  std::uint16_t at = 7;
  EXPECT_EQ(db_start_list(task, DB_CAT, nullptr, &entry, 4, &count, &at), DBE_BAD_RECORD);
}

TEST_F(CatalogListCalls, TheTypeOfAChangeFileTakesNoLockAndNeedsNoTask) {
  const CfName name = cf("DEB.A.FIX.1");
  EXPECT_EQ(db_get_type(task, name.data(), co_find_subtree(task, name.data())), 0);
  EXPECT_EQ(db_get_type(task, cf("A.UPD").data(), 1), 1);
  EXPECT_EQ(db_get_type(task, cf("A.REF").data(), 1), 2);
  EXPECT_EQ(db_get_type(task, cf("A.B").data(), co_find_subtree(task, cf("A.B").data())), 3);
  EXPECT_EQ(db_get_type(task, nullptr, 0), 3);
  EXPECT_EQ(db_get_type(nullptr, name.data(), 2), 0);
  EXPECT_EQ(co_slots(task)->dbr_tcb, nullptr) << "no call has entered the frame";
}

}  // namespace
}  // namespace zvrtest
