// Lines, keywords and kinds of values.
#include "textrec/parse.h"

#include "sample_tables.h"
#include "text_fixture.h"
#include "textrec/keyword_rows.h"
#include "textrec/keyword_tables.h"
#include "textrec/older_tables.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;
using zvrtest::ParsedText;

class Parse : public zvrtest::TextTest {
 protected:
  ParsedText connection(const std::string& text, std::size_t len = scn_record_len) {
    return parsed(scn_keywords, text, len);
  }
  ParsedText sample(const std::string& text) {
    return parsed(zvrtest::sample_keywords, text, zvrtest::sample_len);
  }
};

// ---- Lines

TEST_F(Parse, AnEmptyTextLeavesTheRecordAsItWas) {
  for (const char* text : {"", "\n\n\n", "# a comment", "# one\n\n#two\n\n", "#", "\n#\n"}) {
    const ParsedText result =
        parsed(scn_keywords, text, scn_record_len, std::vector<unsigned char>(scn_record_len, 0x5A));
    EXPECT_EQ(result.rc, DBE_OK) << text;
    EXPECT_EQ(result.record, std::vector<unsigned char>(scn_record_len, 0x5A)) << text;
  }
}

TEST_F(Parse, WhiteSpaceBehindTheColonAndAtTheEndOfALineIsNotTheValues) {
  const ParsedText plain = connection("PROTOCOL:TCP/IP\nREMOTE SERVER NAME:a b");
  EXPECT_EQ(plain.u8(16), 2u);
  EXPECT_EQ(plain.text(76, 64), "a b");
  for (const char* text : {"PROTOCOL:   TCP/IP\nREMOTE SERVER NAME:  a b",
                           "PROTOCOL:   TCP/IP   \r\nREMOTE SERVER NAME:a b \t \r",
                           "PROTOCOL:\tTCP/IP\r\nREMOTE SERVER NAME:\t a b\r\n",
                           "\n\nPROTOCOL:TCP/IP\n\n\nREMOTE SERVER NAME: a b"}) {
    const ParsedText result = connection(text);
    EXPECT_EQ(result.rc, DBE_OK) << text;
    EXPECT_EQ(result.record, plain.record) << text;
  }
}

TEST_F(Parse, ABlankBeforeTheKeywordOrTheColonMakesItUnknown) {
  for (const char* text :
       {" PROTOCOL: APPC", "PROTOCOL : APPC", "protocol: APPC", "PROTOCO: APPC", "PROTOCOLS: APPC"}) {
    const ParsedText result = connection(text);
    EXPECT_EQ(result.rc, DBE_BAD_RECORD) << text;
    EXPECT_EQ(result.message(), 36376u) << text;
  }
}

TEST_F(Parse, ABlankLineOfACarriageReturnIsAnUnknownKeyword) {
  EXPECT_EQ(connection("TYPE: STS\n\r\n").message(), 36376u);
  EXPECT_EQ(connection("TYPE: STS\n \n").message(), 36376u);
  EXPECT_EQ(parsed(rte_keywords, "\r\n", rte_record_len).message(), 36415u);
}

TEST_F(Parse, AValueMayHoldColons) {
  EXPECT_EQ(connection("REMOTE SERVER NAME: a:b").text(76, 64), "a:b");
  EXPECT_EQ(connection("REMOTE SERVER NAME::a").text(76, 64), ":a");
}

TEST_F(Parse, ALineWithoutColonIsNeverTheKeywordItSpells) {
  EXPECT_EQ(connection("PROTOCOL").message(), 36376u);
  EXPECT_EQ(connection("TYPE\nPROTOCOL: APPC").message(), 36376u);
  const ParsedText routes = parsed(rte_keywords, "NETWORK PROTOCOL", rte_record_len);
  EXPECT_EQ(routes.message(), 36415u);
}

TEST_F(Parse, ALineOfNothingButColonsIsAnUnknownKeyword) {
  for (const char* text : {":", "::", ":::::", ": APPC", ":PROTOCOL: APPC"})
    EXPECT_EQ(connection(text).message(), 36376u) << text;
}

TEST_F(Parse, TheEndRowOfATableIsNoKeyword) {
  EXPECT_EQ(connection("NULL: x").message(), 36376u);
  EXPECT_EQ(connection("TYPE: STS\nNULL:").message(), 36376u);
  EXPECT_EQ(connection("PROTOCOL: NULL").message(), 36377u);
  EXPECT_EQ(connection("*: x").message(), 36376u);
}

TEST_F(Parse, AKeywordLongerThanAnyRowIsUnknown) {
  EXPECT_EQ(connection(std::string(59, 'K') + ": x").message(), 36376u);
  EXPECT_EQ(connection(std::string(5000, 'K') + ": x").message(), 36376u);
}

TEST_F(Parse, TheOldEndOfFileMarkEndsTheTextBehindAKeywordLine) {
  EXPECT_EQ(connection("\x1A\nno keyword").rc, DBE_OK);
  EXPECT_EQ(connection("TYPE: STS\n\x1A").rc, DBE_OK);
  const ParsedText result = connection("TYPE: STS\n\n\x1Agarbage\nPROTOCOL: IPX");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u8(18), 2u);
  EXPECT_EQ(result.u8(16), 0u);
}

TEST_F(Parse, TheOldEndOfFileMarkBehindACommentIsAnUnknownKeyword) {
  EXPECT_EQ(connection("# note\n\x1A").message(), 36376u);
  EXPECT_EQ(connection("TYPE: STS\n# note\n\x1A").message(), 36376u);
}

TEST_F(Parse, ABlankLineBeforeALineDoesNotShiftItsValue) {
  const ParsedText result =
      connection("\n\n\nREMOTE SERVER NAME: abc\n\n\n\nRETRY LIMIT: 7\n# c\n\nTYPE: SNA");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(76, 64), "abc");
  EXPECT_EQ(result.u16(64), 7u);
  EXPECT_EQ(result.u8(18), 1u);
}

TEST_F(Parse, ATextWithoutLastLineFeedIsReadToItsEnd) {
  char text[] = "RETRY LIMIT: 9";
  unsigned char record[scn_record_len] = {};
  EXPECT_EQ(parse(task, DB_SCN, "NAME", scn_keywords, text, record, sizeof record), DBE_OK);
  EXPECT_EQ(record[64], 9);
}

TEST_F(Parse, AFaultIsToldWithItsLine) {
  const ParsedText result = connection("# comment\n\nTYPE: STS\n\n# more\nRETRY LIMIT: 3\nPROTOCOL: X25");
  ASSERT_EQ(result.faults.size(), 1u);
  EXPECT_EQ(result.faults[0].line, 7u);
  EXPECT_NE(result.faults[0].text.find("X25"), std::string::npos);
  EXPECT_EQ(result.u16(64), 3u);
}

TEST_F(Parse, WithNobodyAskingFaultsGoToTheMessageLog) {
  char text[] = "TYPE: STS\nSIZE: 3\n";
  unsigned char record[scn_record_len] = {};
  EXPECT_EQ(parse(task, DB_SCN, "HOME", scn_keywords, text, record, sizeof record), DBE_BAD_RECORD);
  EXPECT_EQ(record[18], 2) << "what was stored before the failure stays";
  EXPECT_NE(log().find("ZVR36376"), std::string::npos);
  EXPECT_NE(log().find("The keyword SIZE in the record HOME of type SNADS connection is not known"),
            std::string::npos);
  EXPECT_EQ(log().find("ZVR36377"), std::string::npos);
}

// ---- Search

TEST_F(Parse, KeywordsAreFoundInAnyOrder) {
  const ParsedText result = connection("TCP/IP TIME-OUT: 5\nPROTOCOL: NBI\nRETRY LIMIT: 3\nTYPE: SNA");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u32(140), 5u);
  EXPECT_EQ(result.u8(16), 5u);
  EXPECT_EQ(result.u16(64), 3u);
  EXPECT_EQ(result.u8(18), 1u);
}

TEST_F(Parse, AnExactKeywordBeatsTheCatchAllWhereverItStands) {
  for (const keyword_entry* table : {zvrtest::catch_all_first, zvrtest::catch_all_last}) {
    const ParsedText result = parsed(table, "OTHER: 1\nCOUNT: 7\nMORE: 2\nLESS", 400);
    EXPECT_EQ(result.rc, DBE_OK);
    EXPECT_EQ(result.u16(0), 7u);
    EXPECT_EQ(result.text(4, 12), "OTHER");
    EXPECT_EQ(result.text(4 + 62, 12), "MORE");
    EXPECT_EQ(result.text(4 + 2 * 62, 12), "LESS");
  }
}

TEST_F(Parse, TheCatchAllTakesTheWordOfTheEndRowToo) {
  const ParsedText result = parsed(zvrtest::catch_all_last, "NULL: 1\n*: 2\nNULL", 400);
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(4, 12), "NULL");
  EXPECT_EQ(result.text(4 + 62, 12), "*");
}

// Each keyword of a table in table order, with a value that its kind takes.
std::string in_table_order(const keyword_entry* table, unsigned* lines) {
  std::string text;
  for (*lines = 0; !is_end(*table); ++table, ++*lines)
    text += std::string(table->keyword) + ":" + std::string(table->skip - std::strlen(table->keyword), ' ') +
            (table->value_list          ? table->value_list->text
             : table->kind == KIND_NAME ? ""
                                        : ".") +
            "\n";
  return text;
}

TEST_F(Parse, AFileInTableOrderCostsOneComparisonALine) {
  for (const keyword_entry* table :
       {scn_keywords, scf_keywords, ucf_keywords, older_hardware_keywords, older_group_keywords}) {
    unsigned lines = 0;
    const std::string text = in_table_order(table, &lines);
    const std::uint64_t before = keyword_comparisons();
    EXPECT_EQ(parsed(table, text, 70000).rc, DBE_OK) << text;
    EXPECT_EQ(keyword_comparisons() - before, lines) << text;
  }
}

// The two numbers of the older target table are the only neighbours that begin and end
// alike and are of one length.
TEST_F(Parse, NeighboursAlikeInLengthAndEndsCostOneMore) {
  unsigned lines = 0;
  const std::string text = in_table_order(older_target_keywords, &lines);
  const std::uint64_t before = keyword_comparisons();
  EXPECT_EQ(parsed(older_target_keywords, text, 500).rc, DBE_OK) << text;
  EXPECT_EQ(keyword_comparisons() - before, lines + 1u);
}

TEST_F(Parse, RepeatedKeywordsCostOneComparisonEach) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "TARGET: T" + std::to_string(i) + "\n";
  const std::uint64_t before = keyword_comparisons();
  EXPECT_EQ(parsed(older_group_keywords, text, older_group_len).rc, DBE_OK);
  EXPECT_LE(keyword_comparisons() - before, 101u);
}

// ---- Occurrences

TEST_F(Parse, AKeywordMayStandAsOftenAsTheFieldHasRoom) {
  const ParsedText all = sample("LIST: a\nLIST: b\nLIST: c");
  EXPECT_EQ(all.rc, DBE_OK);
  EXPECT_EQ(all.text(40, 4), "a");
  EXPECT_EQ(all.text(48, 4), "c");
  const ParsedText beyond = sample("LIST: a\nLIST: b\nLIST: c\nLIST: d");
  EXPECT_EQ(beyond.rc, DBE_BAD_RECORD);
  EXPECT_EQ(beyond.message(), 36378u);
  EXPECT_EQ(beyond.text(48, 4), "c");
}

TEST_F(Parse, ASharedCounterCountsForBothKeywords) {
  const ParsedText result = sample("LIST: a\nMORE: b\nLIST: c");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(40, 4), "a");
  EXPECT_EQ(result.text(56, 4), "b");
  EXPECT_EQ(result.text(48, 4), "c");
  EXPECT_EQ(sample("MORE: a\nMORE: b\nMORE: c\nLIST: d").message(), 36378u);
}

TEST_F(Parse, CountersBeginAnewWithEachText) {
  EXPECT_EQ(sample("LIST: a\nLIST: b\nLIST: c").rc, DBE_OK);
  EXPECT_EQ(sample("LIST: a\nLIST: b\nLIST: c").rc, DBE_OK);
}

TEST_F(Parse, TheOccurrenceIsCountedBeforeTheRecordIsFoundTooShort) {
  const ParsedText result = parsed(zvrtest::sample_keywords, "LIST: a\nLIST: b\nLIST: c\nLIST: d", 44);
  EXPECT_EQ(result.message(), 36378u);
  EXPECT_EQ(result.text(40, 4), "a");
}

TEST_F(Parse, ASingleKeywordMayRepeatAndOverlaysWhatItStored) {
  EXPECT_EQ(connection("REMOTE SERVER NAME: abcdef\nREMOTE SERVER NAME: xy").text(76, 64), "xycdef");
  EXPECT_EQ(connection("RETRY LIMIT: 1\nRETRY LIMIT: 2").u16(64), 2u);
}

// ---- Short records

TEST_F(Parse, LinesOfFieldsBehindTheRecordsEndArePassedOver) {
  const std::string text = "TCP/IP TIME-OUT: 5\nPROTOCOL: IPX\nTYPE: nothing\nRETRY LIMIT: 3";
  const ParsedText result = connection(text, 18);
  EXPECT_EQ(result.rc, DBE_OK) << "a wrong word behind the end is not looked at";
  EXPECT_EQ(result.u8(16), 4u);
  EXPECT_EQ(connection(text, 19).message(), 36377u);
  EXPECT_EQ(connection("RETRY LIMIT: 515", 65).u8(64), 0u);
  EXPECT_EQ(connection("RETRY LIMIT: 515", 66).u16(64), 515u);
  EXPECT_EQ(connection(text, 0).rc, DBE_OK);
}

TEST_F(Parse, AnUnknownKeywordIsOneInAShortRecordToo) {
  EXPECT_EQ(connection("PROTO: IPX", 1).message(), 36376u);
}

// ---- Kinds

TEST_F(Parse, AStringLeavesOneByteOfItsFieldFree) {
  EXPECT_EQ(connection("SEND TP SYMBOLIC DESTINATION: 12345678").text(20, 9), "12345678");
  const ParsedText longer = connection("SEND TP SYMBOLIC DESTINATION: 123456789ABC");
  EXPECT_EQ(longer.rc, DBE_BAD_RECORD);
  EXPECT_EQ(longer.message(), 36379u);
  EXPECT_NE(longer.faults[0].text.find("too long: 123456789. At most 8"), std::string::npos)
      << "cut to the field's length: " << longer.faults[0].text;
}

TEST_F(Parse, NothingWritesATerminator) {
  const ParsedText result = parsed(scn_keywords, "SEND TP SYMBOLIC DESTINATION: abc", scn_record_len,
                                   std::vector<unsigned char>(scn_record_len, '!'));
  EXPECT_EQ(result.text(20, 12), "abc!!!!!!!!!");
}

TEST_F(Parse, ANameFillsItsWholeField) {
  const ParsedText result = sample("SHORT NAME: ABCDEFG1");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(24, 8), "ABCDEFG1");
  const ParsedText longer = sample("SHORT NAME: ABCDEFGHIJKL");
  EXPECT_EQ(longer.message(), 36379u);
  EXPECT_NE(longer.faults[0].text.find("too long: ABCDEFGHI. At most 8"), std::string::npos)
      << longer.faults[0].text;
}

TEST_F(Parse, ANameIsOfDigitsAndUpperCaseLetters) {
  for (const char* value : {"abc", "A B", "A-B", "A$", "\xC3\x84"}) {
    const ParsedText result = sample(std::string("SHORT NAME: ") + value);
    EXPECT_EQ(result.rc, DBE_BAD_RECORD) << value;
    EXPECT_EQ(result.message(), 36405u) << value;
  }
  EXPECT_EQ(sample("SHORT NAME:").rc, DBE_OK);
}

TEST_F(Parse, ThreeKeywordsTakeSignsInNames) {
  for (const char* keyword : {"NETWORK ID", "LOCAL LU ALIAS NAME", "MODE NAME"}) {
    EXPECT_EQ(sample(std::string(keyword) + ": A$#@1").text(32, 8), "A$#@1") << keyword;
    EXPECT_EQ(sample(std::string(keyword) + ": a$#@1").message(), 36405u) << keyword;
  }
}

TEST_F(Parse, NumbersAreReadWithBaseZero) {
  struct {
    const char* value;
    std::uint32_t stored;
  } const cases[] = {{"1A", 1},
                     {"0x1A", 26},
                     {"010", 8},
                     {"08", 0},
                     {"", 0},
                     {"none", 0},
                     {"65535", 65535},
                     {"65536", 0},
                     {"65537", 1},
                     {"-1", 65535},
                     {"+7", 7},
                     {"  12 x", 12},
                     {"4294967295", 65535},
                     {"5000000000", 65535},
                     {"99999999999999999999999", 65535}};
  for (const auto& c : cases)
    EXPECT_EQ(sample(std::string("USHORT: ") + c.value).u16(2), c.stored) << c.value;
}

TEST_F(Parse, NumbersBeyondThirtyTwoBitsStayAtTheLimitAndAreThenCut) {
  EXPECT_EQ(sample("ULONG: 4294967295").u32(8), 4294967295u);
  EXPECT_EQ(sample("ULONG: 5000000000").u32(8), 4294967295u);
  EXPECT_EQ(sample("ULONG: -5").u32(8), 4294967291u);
  EXPECT_EQ(sample("ULONG: -5000000000").u32(8), 4294967295u);
  EXPECT_EQ(sample("LONG: 5000000000").u32(4), 2147483647u);
  EXPECT_EQ(sample("LONG: -5000000000").u32(4), 2147483648u);
  EXPECT_EQ(sample("LONG: -3").u32(4), 4294967293u);
  EXPECT_EQ(sample("SHORT: 5000000000").u16(0), 65535u);
  EXPECT_EQ(sample("SHORT: -5000000000").u16(0), 0u);
  EXPECT_EQ(sample("SHORT: -2").u16(0), 65534u);
}

TEST_F(Parse, AWordEndsAtTheFirstBlankAndTheRestIsIgnored) {
  EXPECT_EQ(parsed(ucf_keywords, "CM_USER: install activate", ucf_record_len).u8(2), 1u);
  const ParsedText both = parsed(ucf_keywords, "CM_USER: inst&exec\nCM_PREP: INST&EXEC", ucf_record_len);
  EXPECT_EQ(both.u8(2), 3u);
  EXPECT_EQ(both.u8(10), 3u);
}

TEST_F(Parse, ATabIsPartOfAWord) {
  EXPECT_EQ(parsed(ucf_keywords, "CM_USER: install\tactivate", ucf_record_len).message(), 36377u);
}

TEST_F(Parse, AWordThatIsNotInItsListIsRefused) {
  const ParsedText result = connection("PROTOCOL: BOTH ways");
  EXPECT_EQ(result.rc, DBE_BAD_RECORD);
  EXPECT_EQ(result.message(), 36377u);
  EXPECT_NE(result.faults[0].text.find("The value BOTH of keyword PROTOCOL in the record NAME"),
            std::string::npos);
  EXPECT_EQ(connection("PROTOCOL:").message(), 36377u);
  EXPECT_EQ(connection("PROTOCOL:   \r").message(), 36377u);
  EXPECT_EQ(connection("PROTOCOL: appc").message(), 36377u);
}

TEST_F(Parse, AnUnknownKindIsRefused) {
  const ParsedText result = sample("BROKEN: 1");
  EXPECT_EQ(result.rc, DBE_BAD_RECORD);
  EXPECT_EQ(result.message(), 36380u);
  EXPECT_EQ(sample("SHORT NAME: A\nBROKEN:").message(), 36380u);
}

TEST_F(Parse, AWordStoresTheLowBytesOfItsNumber) {
  EXPECT_EQ(sample("WIDE: big").u32(12), 0x01020304u);
  EXPECT_EQ(sample("NARROW: big").u8(16), 0x04u);
  EXPECT_EQ(sample("MIDDLE: big").u16(18), 0x0304u);
  EXPECT_EQ(sample("WIDE: twice").u32(12), 1u) << "the first row that matches wins";
}

TEST_F(Parse, AValueBeginsAtTheColumnThatTheTableTells) {
  EXPECT_EQ(parsed(ucf_keywords, "CONFIG1:    view", ucf_record_len).u8(0), 1u);
  EXPECT_EQ(parsed(ucf_keywords, "CONFIG1:       modify", ucf_record_len).u8(0), 2u);
  EXPECT_EQ(parsed(ucf_keywords, "CONFIG1: view", ucf_record_len).message(), 36377u);
  EXPECT_EQ(parsed(ucf_keywords, "CM1:1234all", ucf_record_len).u8(2), 15u);
  EXPECT_EQ(parsed(ucf_keywords, "TARGET3: own_target", ucf_record_len).message(), 36377u);
  EXPECT_EQ(parsed(ucf_keywords, "TARGET3: no own_target", ucf_record_len).u8(22), 1u);
}

TEST_F(Parse, ALineThatEndsBeforeItsColumnHasNoValue) {
  for (const char* text :
       {"CONFIG1:", "CONFIG1:vi", "CONFIG1:\nPREP_USER: view", "TARGET2:\r\nPREP_USER: view"})
    EXPECT_EQ(parsed(ucf_keywords, text, ucf_record_len).message(), 36377u) << text;
}

}  // namespace
