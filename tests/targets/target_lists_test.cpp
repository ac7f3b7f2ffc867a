// Lists of targets with and without filters.
#include <array>
#include <cstring>

#include "targets/targets.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

constexpr std::size_t block_len = 420;

struct Filter {
  Filter& name(std::string_view value) { return text(0, value); }
  Filter& server(std::string_view value) { return text(72, value); }
  Filter& type(unsigned bits) { return byte(64, bits); }
  Filter& mode(unsigned bits) { return byte(66, bits); }
  Filter& os(std::uint16_t low, std::uint16_t high) {
    std::memcpy(bytes.data() + 68, &low, 2);
    std::memcpy(bytes.data() + 70, &high, 2);
    return byte(67, 1);
  }
  Filter& exclude() { return byte(136, 1); }
  Filter& text(std::size_t offset, std::string_view value) {
    std::memcpy(bytes.data() + offset, value.data(), std::min<std::size_t>(value.size(), 64));
    return *this;
  }
  Filter& byte(std::size_t offset, unsigned value) {
    bytes[offset] = static_cast<unsigned char>(value);
    return *this;
  }
  std::array<unsigned char, 138> bytes{};
};

class TargetLists : public TargetsTest {
 protected:
  int init(Filter filter) {
    last_filter = filter;
    return db_init_list(task, DB_TRG, last_filter.bytes.data(), block.data(), block_len);
  }
  // Name of the next target, or "" with the code in last_rc.
  std::string more(std::size_t length = 192) {
    Record record("");
    last_rc =
        db_get_more(task, DB_TRG, block.data(), record.bytes.data(), static_cast<std::uint16_t>(length));
    return last_rc == DBE_OK ? record.name() : "";
  }
  std::vector<std::string> rest() {
    std::vector<std::string> all;
    for (std::string name = more(); last_rc == DBE_OK; name = more()) all.push_back(name);
    return all;
  }
  std::vector<std::string> listed(const Filter& filter) {
    EXPECT_EQ(init(filter), DBE_OK);
    std::vector<std::string> all = rest();
    EXPECT_EQ(last_rc, DBE_END_OF_LIST);
    return all;
  }
  using Names = std::vector<std::string>;

  Filter last_filter;
  std::array<unsigned char, block_len> block{};
  int last_rc = 0;
};

TEST_F(TargetLists, APrefixListsItsTargetsAndExclusionTheOthers) {
  for (const char* name : {"AD", "AB2", "AA", "AC", "AB1"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  EXPECT_EQ(listed(Filter().name("AB*")), (Names{"AB1", "AB2"}));
  EXPECT_EQ(listed(Filter().name("AB*").exclude()), (Names{"AA", "AC", "AD"}));
  EXPECT_EQ(listed(Filter().exclude()), (Names{"AA", "AB1", "AB2", "AC", "AD"})) << "no name filter";
}

TEST_F(TargetLists, ExclusionTestsTheBoundBeforeTheNameBehindARunOfMatches) {
  for (const char* name : {"AA", "AB1", "AB2", "AC"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  EXPECT_EQ(listed(Filter().name("AB*").exclude()), (Names{"AA"}));
}

TEST_F(TargetLists, AFilterAboveAllNamesIsAnEmptyListAtOnce) {
  ASSERT_EQ(put(Record("M")), DBE_OK);
  EXPECT_EQ(init(Filter().name("Z*")), DBE_EMPTY_LIST);
  EXPECT_EQ(init(Filter().name("Z*").exclude()), DBE_EMPTY_LIST);
  EXPECT_EQ(more(), "");
  EXPECT_EQ(last_rc, DBE_END_OF_LIST) << "a list that was not set up has no entry";
}

TEST_F(TargetLists, AnEmptyTableGivesAListWithoutEntries) {
  EXPECT_EQ(listed(Filter()), Names{});
  EXPECT_EQ(init(Filter().name("A*")), DBE_EMPTY_LIST);
}

TEST_F(TargetLists, ABlockOfZerosIsNoList) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  EXPECT_EQ(more(), "");
  EXPECT_EQ(last_rc, DBE_END_OF_LIST);
}

TEST_F(TargetLists, TheStarIsOverwrittenInTheCallersFilter) {
  ASSERT_EQ(put(Record("AB")), DBE_OK);
  ASSERT_EQ(init(Filter().name("A*B*")), DBE_OK);
  EXPECT_EQ(std::memcmp(last_filter.bytes.data(), "A\0B*", 4), 0);
  EXPECT_EQ(rest(), (Names{"AB"}));
}

TEST_F(TargetLists, AFilterWithoutStarIsAPrefixToo) {
  for (const char* name : {"A", "AB", "B"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  EXPECT_EQ(listed(Filter().name("A")), (Names{"A", "AB"}));
}

TEST_F(TargetLists, AFilterThatFillsItsFieldMatchesNoName) {
  ASSERT_EQ(put(Record(std::string(63, 'N'))), DBE_OK);
  EXPECT_EQ(init(Filter().name(std::string(64, 'N'))), DBE_EMPTY_LIST);
  EXPECT_EQ(listed(Filter().name(std::string(64, 'A'))), Names{});
}

TEST_F(TargetLists, AServerFilterListsTheClientsOfThatServer) {
  ASSERT_EQ(put(Record("S1").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("S2").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("A").server("S1")), DBE_OK);
  ASSERT_EQ(put(Record("B").server("S2")), DBE_OK);
  ASSERT_EQ(put(Record("C").server("S1")), DBE_OK);
  EXPECT_EQ(listed(Filter().server("S1")), (Names{"A", "C", "S1"}));
  EXPECT_EQ(listed(Filter().server("S1").name("C*")), (Names{"C"}));
}

TEST_F(TargetLists, AServerFilterThatIsNoServerIsAnEmptyList) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  EXPECT_EQ(init(Filter().server("A")), DBE_EMPTY_LIST);
  EXPECT_EQ(init(Filter().server("Z")), DBE_EMPTY_LIST);
}

TEST_F(TargetLists, AnUnknownServerRightBeforeAServerIsAcceptedAndListsNothing) {
  ASSERT_EQ(put(Record("A").server("")), DBE_OK);
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  EXPECT_EQ(listed(Filter().server("R")), Names{});
}

TEST_F(TargetLists, AnyCommonModeBitPassesButFocalAloneIsStrict) {
  ASSERT_EQ(put(Record("M1").mode(1)), DBE_OK);
  ASSERT_EQ(put(Record("M4").mode(4)), DBE_OK);
  ASSERT_EQ(put(Record("M5").mode(5)), DBE_OK);
  ASSERT_EQ(put(Record("M2").mode(2)), DBE_OK);
  EXPECT_EQ(listed(Filter().mode(5)), (Names{"M1", "M4", "M5"}));
  EXPECT_EQ(listed(Filter().mode(4)), (Names{"M4"}));
}

TEST_F(TargetLists, AMobileClientPassesATypeFilterAsLocalAndMobileOnly) {
  ASSERT_EQ(put(Record("L").type(local | client)), DBE_OK);
  ASSERT_EQ(put(Record("M").type(mobile | client | remote)), DBE_OK);
  ASSERT_EQ(put(Record("R").type(remote | client)), DBE_OK);
  EXPECT_EQ(listed(Filter().type(local)), (Names{"L", "M"}));
  EXPECT_EQ(listed(Filter().type(mobile)), (Names{"M"}));
  EXPECT_EQ(listed(Filter().type(client)), (Names{"L", "R"}));
  EXPECT_EQ(listed(Filter().type(remote)), (Names{"R"}));
}

TEST_F(TargetLists, TheSystemFilterHasABitForEachCodeAndAnySystemPassesAll) {
  for (const unsigned code : {0u, 15u, 16u, 31u, 32u, 48u, 98u, 99u, 255u})
    ASSERT_EQ(put(Record(numbered("OS", code)).os(code)), DBE_OK);
  EXPECT_EQ(listed(Filter().os(1, 0)), (Names{"OS0", "OS99"}));
  EXPECT_EQ(listed(Filter().os(0x8000, 0)), (Names{"OS15", "OS99"}));
  EXPECT_EQ(listed(Filter().os(0, 1)), (Names{"OS16", "OS99"}));
  EXPECT_EQ(listed(Filter().os(0, 0x8000)), (Names{"OS31", "OS99"}));
  EXPECT_EQ(listed(Filter().os(0xFFFF, 0xFFFF)), (Names{"OS0", "OS15", "OS16", "OS31", "OS99"}));
  EXPECT_EQ(listed(Filter().os(0, 0)), Names{}) << "an empty mask has no common bit with anything";
}

TEST_F(TargetLists, AllFiltersWorkTogether) {
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("A1").type(remote | client).mode(push).os(11).server("S")), DBE_OK);
  ASSERT_EQ(put(Record("A2").type(remote | client).mode(pull).os(11).server("S")), DBE_OK);
  ASSERT_EQ(put(Record("A3").type(remote | client).mode(push).os(4).server("S")), DBE_OK);
  ASSERT_EQ(put(Record("A4").type(remote | client).mode(push).os(11)), DBE_OK);
  ASSERT_EQ(put(Record("A5").type(local).mode(push).os(11).server("S")), DBE_OK);
  EXPECT_EQ(listed(Filter().name("A*").type(client).mode(push).os(1 << 11, 0).server("S")), (Names{"A1"}));
}

TEST_F(TargetLists, TheListGivesTheWholeRecordWhenAskedForIt) {
  ASSERT_EQ(put(Record("A").text(288, 60, "customer")), DBE_OK);
  ASSERT_EQ(init(Filter()), DBE_OK);
  Record record("");
  ASSERT_EQ(db_get_more(task, DB_TRG, block.data(), record.bytes.data(), record_len), DBE_OK);
  EXPECT_EQ(record.text_at(288, 60), "customer");
}

TEST_F(TargetLists, ATraceOfEverythingTellsTheStepsAndChangesNoAnswer) {
  ASSERT_EQ(co_set_trace(task, 0x13F), CO_OK);
  ASSERT_EQ(put(Record("S").type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("A").server("S").ren("A1")), DBE_OK);
  EXPECT_EQ(listed(Filter().server("S")), (Names{"A", "S"}));
  EXPECT_EQ(init(Filter().server("A")), DBE_EMPTY_LIST);
  Record record("");
  char rr[16] = "X";
  EXPECT_EQ(db_trg_from_rr(task, rr, record.bytes.data(), 192), DBE_NOT_FOUND);
  EXPECT_EQ(db_rename_trg(task, "S", "T"), DBE_OK);
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_EQ(get("T").rc, DBE_OK);
  ASSERT_EQ(co_set_trace(task, 0), CO_OK);
  const std::string trace = installation_->read("log/trace.log");
  for (const char* line : {"put_trg: >>>>>>>>>> ENTRY", "Had to reset a null trg", "This is not a Server",
                           "Have a second try after reordering the vector !!", "didn't find dsuname",
                           "No target specified, setting index to 4294967295"})
    EXPECT_NE(trace.find(line), std::string::npos) << line;
}

TEST_F(TargetLists, AShortBlockIsRefusedAndNotWrittenBeyondItsEnd) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  for (const std::uint32_t size : {0u, 1u, 268u, 419u}) {
    Filter filter;
    std::vector<unsigned char> area(block_len, 0xEE);
    EXPECT_EQ(db_init_list(task, DB_TRG, filter.bytes.data(), area.data(), size), DBE_LIST_TOO_SMALL);
    EXPECT_TRUE(std::all_of(area.begin() + size, area.end(), [](unsigned char c) { return c == 0xEE; }))
        << size;
  }
}

TEST_F(TargetLists, ASpoiledBlockNeverReadsOutsideTheTable) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  for (const unsigned char filler :
       {std::uint8_t{0x01}, std::uint8_t{0x7F}, std::uint8_t{0x80}, std::uint8_t{0xFF}}) {
    for (std::size_t at = 268; at < block_len; ++at) {
      ASSERT_EQ(init(Filter().name("A*").exclude()), DBE_OK);
      block[at] = filler;
      rest();
    }
    ASSERT_EQ(init(Filter()), DBE_OK);
    std::fill(block.begin() + 268, block.end(), filler);
    rest();
    EXPECT_TRUE(last_rc == DBE_END_OF_LIST || last_rc == DBE_NOT_FOUND);
  }
}

TEST_F(TargetLists, ATableThatShrinksEndsTheListEarlier) {
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  ASSERT_EQ(init(Filter()), DBE_OK);
  EXPECT_EQ(more(), "A");
  ASSERT_EQ(del("C"), DBE_OK);
  ASSERT_EQ(del("D"), DBE_OK);
  EXPECT_EQ(rest(), (Names{"B"}));
}

TEST_F(TargetLists, AListGoesOnAfterARebuild) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  ASSERT_EQ(init(Filter()), DBE_OK);
  EXPECT_EQ(more(), "A");
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(rest(), (Names{"B", "C"}));
}

TEST_F(TargetLists, ThePlainListHoldsAllNamesInOrder) {
  for (const char* name : {"C", "A", "B"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  char list[3 * 64];
  std::uint16_t count = 9, index = 9;
  ASSERT_EQ(db_start_list(task, DB_TRG, nullptr, list, sizeof list, &count, &index), DBE_OK);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(index, 0);
  EXPECT_STREQ(list + 64, "B");
  for (const char* name : {"A", "B", "C"}) {
    Record record("");
    EXPECT_EQ(db_get_next(task, DB_TRG, list, count, &index, record.bytes.data(), 192), DBE_OK);
    EXPECT_EQ(record.name(), name);
  }
  Record record("");
  EXPECT_EQ(db_get_next(task, DB_TRG, list, count, &index, record.bytes.data(), 192), DBE_END_OF_LIST);
}

TEST_F(TargetLists, TheNamesAreAddedToTheCountOfTheCaller) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  char list[2 * 64];
  std::uint16_t count = 40;
  ASSERT_EQ(zvrdb::targets::start_list_trg(task, nullptr, list, sizeof list, &count), DBE_OK);
  EXPECT_EQ(count, 42) << "the frame sets it to zero, the handler does not";
}

TEST_F(TargetLists, ANameListThatIsTooSmallIsFilledToItsLastByteAndNotBeyond) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  for (const std::uint32_t size : {0u, 1u, 64u, 65u, 127u, 128u, 130u, 191u}) {
    std::vector<char> area(256, '!');
    std::uint16_t count = 0, index = 0;
    const int rc = db_start_list(task, DB_TRG, nullptr, area.data(), size, &count, &index);
    EXPECT_EQ(rc, size > 128 ? DBE_OK : DBE_LIST_TOO_SMALL) << size;
    EXPECT_EQ(count, (size + 63) / 64) << size;
    EXPECT_TRUE(std::all_of(area.begin() + size, area.end(), [](char c) { return c == '!'; })) << size;
  }
}

TEST_F(TargetLists, ANameOfTheListThatWasDeletedIsNotFound) {
  ASSERT_EQ(put(Record("A")), DBE_OK);
  char list[64];
  std::uint16_t count = 0, index = 0;
  ASSERT_EQ(db_start_list(task, DB_TRG, nullptr, list, sizeof list, &count, &index), DBE_OK);
  ASSERT_EQ(del("A"), DBE_OK);
  Record record("");
  EXPECT_EQ(db_get_next(task, DB_TRG, list, count, &index, record.bytes.data(), 192), DBE_NOT_FOUND);
  EXPECT_EQ(index, 1) << "the index goes on whatever the result";
}

}  // namespace
}  // namespace target_test
