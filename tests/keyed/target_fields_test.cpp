// Targets: links by number, the status of mobile clients, arrays by count.
#include "keyed/conversion_fixture.h"

namespace zvrtest {
namespace {

constexpr std::size_t trg_len = 21724;
constexpr std::size_t key_len = 12;
constexpr std::size_t head_len = key_len + 64;  // key and name

class TargetFields : public ConversionTest {
 protected:
  static record_bytes target(const char* name) { return record_bytes(trg_len).text(0, name); }
};

// External length of a target with nothing but a name: the texts take one byte each.
constexpr std::size_t bare_len = head_len + 1 + 7 + 16 + 16 + 3 + 1 + 4 + 6 + 286 + 2;

TEST_F(TargetFields, AnEmptyTextTakesOneByte) {
  const conversion stored = unparsed(DB_TRG, target("T1"));
  ASSERT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(stored.bytes.size(), bare_len);
  const conversion longer = unparsed(DB_TRG, target("T1").text(64, "four"));
  EXPECT_EQ(longer.bytes.size(), bare_len + 4);
}

TEST_F(TargetFields, TheKeyHoldsTypeAndNumber) {
  const conversion stored = unparsed(DB_TRG, target("T3"));
  record_bytes key(stored.bytes.size());
  key.all() = stored.bytes;
  EXPECT_EQ(key.number_at<std::uint32_t>(0), 4u);
  EXPECT_EQ(key.number_at<std::uint32_t>(4), 3u);
  EXPECT_EQ(key.number_at<std::uint32_t>(8), 0u);
  EXPECT_EQ(key.text_at(12, 64), "T3");
}

TEST_F(TargetFields, AnUnknownNameOfTheTargetOrOfItsServerIsRefused) {
  EXPECT_EQ(unparsed(DB_TRG, target("nobody")).rc, DBE_NO_TARGET);
  EXPECT_EQ(unparsed(DB_TRG, target("T1").text(192, "nobody")).rc, DBE_NO_TARGET);
}

TEST_F(TargetFields, NoOccurrencesAreStoredForACountOfZeroAndReadBackAsZero) {
  const conversion stored = unparsed(DB_TRG, target("T1").fill(988, 162, 'x'));
  EXPECT_EQ(stored.bytes.size(), bare_len);
  const record_bytes back = as_record(parsed(DB_TRG, stored.bytes, trg_len));
  for (std::size_t i = 988; i < trg_len; ++i) ASSERT_EQ(back[i], 0);
}

TEST_F(TargetFields, AsManyOccurrencesAreStoredAsTheCountTells) {
  record_bytes record = target("T1").number<std::uint16_t>(700, 2);
  record.fill(988, 162, 'a').fill(988 + 162, 162, 'b').fill(988 + 324, 162, 'c');
  const conversion stored = unparsed(DB_TRG, record);
  EXPECT_EQ(stored.bytes.size(), bare_len + 324);
  const record_bytes back = as_record(parsed(DB_TRG, stored.bytes, trg_len));
  EXPECT_EQ(back[988], 'a');
  EXPECT_EQ(back[988 + 323], 'b');
  EXPECT_EQ(back[988 + 324], 0);
}

TEST_F(TargetFields, ACountAboveTheOccurrencesStopsAtThem) {
  record_bytes record = target("T1").number<std::uint16_t>(700, 60000);
  EXPECT_EQ(unparsed(DB_TRG, record).bytes.size(), bare_len + 128 * 162);
  record_bytes parms = record_bytes(62812).text(0, "T1").number<std::uint16_t>(64, 1005);
  const conversion stored = unparsed(DB_PRM, parms);
  EXPECT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(stored.bytes.size(), 12u + 64 + 2 + 1000 * 62);
}

TEST_F(TargetFields, ABufferOf64BytesTakesTheName) {
  const conversion stored = unparsed(DB_TRG, target("T1").text(64, "description"));
  const conversion back = parsed(DB_TRG, stored.bytes, 64);
  EXPECT_EQ(back.rc, DBE_OK);
  EXPECT_EQ(as_record(back).text_at(0, 64), "T1");
}

TEST_F(TargetFields, TheLastByteOfAFullNameIsKeptInABufferOf64) {
  std::vector<unsigned char> external(12 + 64, 'n');
  EXPECT_EQ(parsed(DB_TRG, external, 64).bytes, std::vector<unsigned char>(64, 'n'));
}

TEST_F(TargetFields, AnEmptyServerNameIsStoredAsNoneAndReadsBackEmpty) {
  const conversion stored = unparsed(DB_TRG, target("T1").fill(148, 16, 'w'));
  const std::size_t link = head_len + 1 + 7 + 16 + 16 + 3 + 1;
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(stored.bytes[link + i], 0xFF);
  const record_bytes back = as_record(parsed(DB_TRG, stored.bytes, trg_len));
  EXPECT_EQ(back.text_at(192, 64), "");
  EXPECT_EQ(back.number_at<std::uint32_t>(188), 0xFFFFFFFFu);
}

TEST_F(TargetFields, OneStoredNumberFillsServerNameAndNumber) {
  const conversion stored = unparsed(DB_TRG, target("T1").text(192, "T7").text(256, "address"));
  ASSERT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(stored.bytes.size(), bare_len + 7) << "the number is stored once";
  const record_bytes back = as_record(parsed(DB_TRG, stored.bytes, trg_len));
  EXPECT_EQ(back.text_at(192, 64), "T7");
  EXPECT_EQ(back.number_at<std::uint32_t>(188), 7u);
  EXPECT_EQ(back.text_at(256, 32), "address");
  const record_bytes shorter = as_record(parsed(DB_TRG, stored.bytes, 200));
  EXPECT_EQ(shorter.number_at<std::uint32_t>(188), 7u) << "the number, though the name has no room";
  EXPECT_EQ(shorter.text_at(192, 8), "");
}

TEST_F(TargetFields, ARecordThatEndsBeforeTheLinkHasNoServerNumber) {
  const conversion stored = unparsed(DB_TRG, record_bytes(192).text(0, "T1"));
  ASSERT_EQ(stored.rc, DBE_OK);
  const conversion back = parsed(DB_TRG, stored.bytes, trg_len);
  EXPECT_EQ(back.rc, DBE_OK);
  EXPECT_EQ(as_record(back).number_at<std::uint32_t>(188), 0u);
  EXPECT_EQ(as_record(back).text_at(192, 64), "");
}

TEST_F(TargetFields, EachLengthOfATargetThatIsStoredCanBeReadAgain) {
  record_bytes whole = target("T1").text(64, "text").text(192, "T2").number<std::uint16_t>(700, 1);
  whole.fill(140, 4, 'r').fill(124, 16, 'd').fill(148, 16, 'w');
  t.add("T");  // what is left of the server's name when the record ends behind its first byte
  for (const unsigned type : {2u, 16u}) {
    whole.number<std::uint8_t>(144, static_cast<std::uint8_t>(type));
    for (std::size_t length = 1; length < 1200; ++length) {
      if (type == 16 && length == 147) continue;  // a put completes such a record
      const conversion stored = unparse(
          t.task(), DB_TRG, std::vector<unsigned char>(whole.all().begin(), whole.all().begin() + length));
      ASSERT_EQ(stored.rc, DBE_OK) << length;
      ASSERT_EQ(parsed(DB_TRG, stored.bytes, trg_len).rc, DBE_OK) << length;
    }
  }
}

TEST_F(TargetFields, OnlyAMobileClientHasAConnectionStatus) {
  record_bytes record = target("T1").number<std::uint8_t>(147, 9).fill(148, 16, 'w');
  const conversion fixed = unparsed(DB_TRG, record.number<std::uint8_t>(144, 34));
  const conversion mobile = unparsed(DB_TRG, record.number<std::uint8_t>(144, 16));
  EXPECT_EQ(mobile.bytes.size(), fixed.bytes.size() + 1);
  const std::size_t status = head_len + 1 + 7 + 16;
  EXPECT_EQ(fixed.bytes[status], 'w') << "what follows is one byte earlier";
  EXPECT_EQ(mobile.bytes[status], 9);
  EXPECT_EQ(mobile.bytes[status + 1], 'w');
  EXPECT_EQ(as_record(parsed(DB_TRG, mobile.bytes, trg_len))[147], 9);
  EXPECT_EQ(as_record(parsed(DB_TRG, fixed.bytes, trg_len))[147], 0);
}

TEST_F(TargetFields, AMobileClientWhoseDataEndsBeforeItsStatusCannotBeRead) {
  const conversion stored =
      unparsed(DB_TRG, target("T1").number<std::uint8_t>(144, 16).number<std::uint8_t>(147, 9));
  const std::vector<unsigned char> cut(stored.bytes.begin(), stored.bytes.begin() + head_len + 1 + 7 + 16);
  EXPECT_EQ(parsed(DB_TRG, cut, trg_len).rc, DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(parsed(DB_TRG, cut, 147).rc, DBE_OK) << "nobody asks for the status";
}

TEST_F(TargetFields, AGetOfTheKeyAloneGivesAnEmptyNameForTargets) {
  const record_bytes key = record_bytes(12).number<std::uint32_t>(0, 4).number<std::uint32_t>(4, 3);
  for (const std::uint32_t db_id : {DB_TRG, DB_PRM, DB_THW, DB_SHT}) {
    const conversion back = parsed(db_id, key.all(), 64);
    EXPECT_EQ(back.rc, DBE_OK);
    EXPECT_EQ(back.bytes, std::vector<unsigned char>(64, 0));
  }
}

TEST_F(TargetFields, AParameterRecordKeepsTheNameItWasStoredUnder) {
  record_bytes parms =
      record_bytes(62812).text(0, "T2").number<std::uint16_t>(64, 1).text(68, "NAME").text(80, "value");
  const conversion stored = unparsed(DB_PRM, parms);
  std::memcpy(t.tcb()->trg_cntl[1].trg_name, "T2new", 6);
  const record_bytes back = as_record(parsed(DB_PRM, stored.bytes, 62812));
  EXPECT_EQ(back.text_at(0, 64), "T2");
  EXPECT_EQ(back.text_at(80, 50), "value");
}

TEST_F(TargetFields, AFullTextWithoutItsNulRunsIntoTheNextField) {
  record_bytes record = target("T1").fill(64, 60, 'd').text(124, "RGN");
  const conversion stored = unparsed(DB_TRG, record);
  EXPECT_EQ(stored.bytes.size(), bare_len + 63) << "60 of its own, 3 of the next, one NUL";
  const record_bytes back = as_record(parsed(DB_TRG, stored.bytes, trg_len));
  EXPECT_EQ(back.text_at(64, 64), std::string(60, 'd') + "RGN") << "the field behind is parsed later";
}

TEST_F(TargetFields, GroupMembersAreStoredAsNumbers) {
  record_bytes group = record_bytes(64152).text(0, "GROUP").number<std::uint16_t>(148, 3);
  group.text(152, "T5").text(152 + 128, "T6");
  const conversion stored = unparsed(DB_TG, group);
  ASSERT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(stored.bytes.size(), 72u + 1 + 28 + 12);
  const record_bytes back = as_record(parsed(DB_TG, stored.bytes, 64152));
  EXPECT_EQ(back.text_at(0, 64), "GROUP");
  EXPECT_EQ(back.text_at(152, 64), "T5");
  EXPECT_EQ(back.text_at(152 + 64, 64), "") << "an empty member is none";
  EXPECT_EQ(back.text_at(152 + 128, 64), "T6");
  EXPECT_EQ(unparsed(DB_TG, group.text(152, "nobody")).rc, DBE_NO_TARGET);
}

TEST_F(TargetFields, ShortBuffersOfListsWithLinksAreNeverLeft) {
  struct list {
    std::uint32_t db_id;
    std::size_t length, count_at, first;
    std::uint16_t most;
  };
  for (const list& of : {list{DB_TG, 64152, 148, 152, 1000}, list{DB_USR, 1236, 210, 212, 16},
                         list{DB_DTG, 55596, 148, 4396, 800}}) {
    record_bytes record = record_bytes(of.length).text(0, "NAME");
    record.number<std::uint16_t>(of.count_at, static_cast<std::uint16_t>(of.most + 1));
    for (std::size_t i = 0; i < of.most; ++i) record.text(of.first + 64 * i, "T4");
    const conversion stored = unparsed(of.db_id, record);
    ASSERT_EQ(stored.rc, DBE_OK);
    for (const std::size_t length :
         {of.first, of.first + 1, of.first + 63, of.first + 64, of.first + 300, of.length - 1}) {
      const conversion back = parsed(of.db_id, stored.bytes, length);
      EXPECT_EQ(back.rc, DBE_OK);
      const conversion again = unparse(t.task(), of.db_id, back.bytes);
      EXPECT_TRUE(again.rc == DBE_OK || again.rc == DBE_NO_TARGET);
    }
  }
}

TEST_F(TargetFields, AMemberWhoseNumberIsOutOfRangeStopsTheReading) {
  record_bytes group = record_bytes(64152).text(0, "GROUP").number<std::uint16_t>(148, 1).text(152, "T5");
  std::vector<unsigned char> stored = unparsed(DB_TG, group).bytes;
  const std::uint32_t wild = 999;
  std::memcpy(stored.data() + stored.size() - 4, &wild, 4);
  EXPECT_EQ(parsed(DB_TG, stored, 64152).rc, DBE_NO_TARGET);
  EXPECT_EQ(parsed(DB_TG, stored, 152).rc, DBE_OK) << "a short buffer asks for no member";
}

}  // namespace
}  // namespace zvrtest
