// Where either side ends inside a field: four rules, and both ends of both buffers.
#include "keyed/conversion_fixture.h"

namespace zvrtest {
namespace {

class ShortRecords : public ConversionTest {};

std::vector<unsigned char> bytes(std::initializer_list<int> values) {
  return std::vector<unsigned char>(values.begin(), values.end());
}

TEST_F(ShortRecords, ASingleFieldCutByTheRecordIsStoredWithItsLastByteAsNul) {
  // Profile: key, then 12 bytes from 16 on.
  record_bytes record = record_bytes(20).text(0, "P").fill(16, 4, 'r');
  const conversion stored = unparsed(DB_APR, record);
  ASSERT_EQ(stored.rc, DBE_OK);
  ASSERT_EQ(stored.bytes.size(), 24u + 4);
  EXPECT_EQ(std::vector<unsigned char>(stored.bytes.begin() + 24, stored.bytes.end()),
            bytes({'r', 'r', 'r', 0}));
}

TEST_F(ShortRecords, AnArrayElementCutByTheRecordIsStoredLessOneByteAndANul) {
  record_bytes record =
      record_bytes(64 + 4 + 10).text(0, "T1").number<std::uint16_t>(64, 1).fill(68, 10, 'p');
  const conversion stored = unparsed(DB_PRM, record);
  ASSERT_EQ(stored.rc, DBE_OK);
  ASSERT_EQ(stored.bytes.size(), 12u + 64 + 2 + 10);
  EXPECT_EQ(stored.bytes[12 + 64 + 2 + 8], 'p');
  EXPECT_EQ(stored.bytes[12 + 64 + 2 + 9], 0);
}

TEST_F(ShortRecords, AnArrayElementWithOneByteLeftIsStoredAsANul) {
  record_bytes record = record_bytes(69).text(0, "T1").number<std::uint16_t>(64, 1).fill(68, 1, 'p');
  const conversion stored = unparsed(DB_PRM, record);
  ASSERT_EQ(stored.bytes.size(), 12u + 64 + 2 + 1);
  EXPECT_EQ(stored.bytes.back(), 0);
}

TEST_F(ShortRecords, ASingleFieldThatTheDataFillsToTheEndOfTheBufferEndsWithANul) {
  std::vector<unsigned char> external(24 + 12, 'r');
  const conversion back = parsed(DB_APR, external, 20);
  EXPECT_EQ(std::vector<unsigned char>(back.bytes.begin() + 16, back.bytes.end()), bytes({'r', 'r', 'r', 0}));
}

TEST_F(ShortRecords, ASingleFieldThatTheDataEndsBeforeTheBufferIsCopiedWithANulBehind) {
  std::vector<unsigned char> external(24 + 2, 'r');
  const conversion back = parsed(DB_APR, external, 20);
  EXPECT_EQ(std::vector<unsigned char>(back.bytes.begin() + 16, back.bytes.end()), bytes({'r', 'r', 0, 0}));
  external.resize(24 + 4, 'r');
  EXPECT_EQ(parsed(DB_APR, external, 20).bytes[19], 0) << "room and data alike: the room is filled";
}

TEST_F(ShortRecords, AnArrayElementCutByTheBufferHasNoNulWhenTheDataIsThere) {
  std::vector<unsigned char> external(12 + 64 + 2 + 62, 'p');
  external[12 + 64] = 1;
  external[12 + 64 + 1] = 0;
  const conversion back = parsed(DB_PRM, external, 68 + 5);
  EXPECT_EQ(std::vector<unsigned char>(back.bytes.begin() + 68, back.bytes.end()),
            bytes({'p', 'p', 'p', 'p', 'p'}));
}

TEST_F(ShortRecords, AnArrayElementCutByBothHasANulWhereThereIsRoom) {
  std::vector<unsigned char> external(12 + 64 + 2 + 3, 'p');
  external[12 + 64] = 1;
  external[12 + 64 + 1] = 0;
  const conversion back = parsed(DB_PRM, external, 68 + 5);
  EXPECT_EQ(std::vector<unsigned char>(back.bytes.begin() + 68, back.bytes.end()),
            bytes({'p', 'p', 'p', 0, 0}));
  external.resize(12 + 64 + 2 + 5, 'p');
  EXPECT_EQ(parsed(DB_PRM, external, 68 + 5).bytes[72], 'p') << "no byte is left for a NUL";
}

TEST_F(ShortRecords, DataThatEndsInsideATextLeavesTheRestZero) {
  record_bytes record = record_bytes(682).text(80, "product").text(225, "second");
  const std::vector<unsigned char> whole = unparsed(DB_PRD, record).bytes;
  const std::vector<unsigned char> cut(whole.begin(), whole.begin() + 16 + 3);
  const record_bytes back = as_record(parsed(DB_PRD, cut, 682));
  EXPECT_EQ(back.text_at(80, 145), "pro");
  EXPECT_EQ(back.text_at(225, 65), "");
}

TEST_F(ShortRecords, ATextWithoutNulAtTheEndOfTheRecordIsLongerThanWhatIsThere) {
  record_bytes record = record_bytes(85).fill(80, 5, 'x');
  const conversion stored = unparsed(DB_PRD, record);
  EXPECT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(std::vector<unsigned char>(stored.bytes.begin() + 16, stored.bytes.end()),
            bytes({'x', 'x', 'x', 'x', 0}));
}

TEST_F(ShortRecords, AFixedArrayStoresEveryOccurrenceAndEmptyOnesAsSingleNuls) {
  record_bytes record(2464);
  const conversion empty = unparsed(DB_CAT, record);
  EXPECT_EQ(empty.bytes.size(), 16u + 102 + 1 + 1 + 14 + 8 + 50 + 1);
  record.text(364, "one").text(364 + 7 * 256, "eight");
  const conversion stored = unparsed(DB_CAT, record);
  EXPECT_EQ(stored.bytes.size(), empty.bytes.size() + 8);
  const record_bytes back = as_record(parsed(DB_CAT, stored.bytes, 2464));
  EXPECT_EQ(back.all(), record.all());
}

TEST_F(ShortRecords, ARecordLengthAtAnOffsetEndsBeforeThatField) {
  // 364 is the offset of the catalog's lines.
  EXPECT_EQ(unparsed(DB_CAT, record_bytes(364)).bytes.size(), 16u + 102 + 1 + 1 + 14);
  EXPECT_EQ(unparsed(DB_CAT, record_bytes(365)).bytes.size(), 16u + 102 + 1 + 1 + 14 + 1);
}

TEST_F(ShortRecords, AnEmptySideIsNoError) {
  EXPECT_EQ(unparsed(DB_CAT, record_bytes(0)).rc, DBE_OK);
  EXPECT_EQ(unparsed(DB_CAT, record_bytes(0)).bytes.size(), 0u);
  EXPECT_EQ(parsed(DB_CAT, {}, 2464).rc, DBE_OK);
  EXPECT_EQ(parsed(DB_CAT, std::vector<unsigned char>(300, 1), 0).rc, DBE_OK);
}

TEST_F(ShortRecords, ATypeWithoutATableIsABadRecord) {
  for (const std::uint32_t db_id : {0u, 7u, 8u, 10u, 12u, 33u, 34u, 0xFFFFFFFFu}) {
    EXPECT_EQ(unparsed(db_id, record_bytes(100)).rc, DBE_BAD_RECORD);
    EXPECT_EQ(parsed(db_id, std::vector<unsigned char>(100, 1), 100).rc, DBE_BAD_RECORD);
  }
}

TEST_F(ShortRecords, AnExternalBufferOneByteShortIsTooSmall) {
  struct sample {
    std::uint32_t db_id;
    record_bytes record;
  };
  const sample samples[] = {
      {DB_TRG,
       record_bytes(21724).text(0, "T1").text(192, "T2").number<std::uint16_t>(700, 2).number<std::uint8_t>(
           144, 16)},
      {DB_TG, record_bytes(64152).text(0, "G").number<std::uint16_t>(148, 2).text(152, "T1")},
      {DB_CAT, record_bytes(2464)},
      {DB_USR, record_bytes(1236).text(0, "U").number<std::uint16_t>(210, 1)},
      {DB_APR, record_bytes(28)},
      {DB_TAK, record_bytes(2432)},
      {DB_RQT,
       record_bytes(10204).text(16, "T1").text(104, "T2").text(168, "T3").number<std::uint16_t>(520, 1)},
      {DB_FAN, record_bytes(25198).text(16, "T1").number<std::uint16_t>(124, 30)},
      {DB_RQV, record_bytes(64620).text(16, "T1").number<std::uint32_t>(616, 64000)},
      {DB_COO, record_bytes(184).text(16, "T1")},
  };
  for (const sample& of : samples) {
    const conversion whole = unparsed(of.db_id, of.record);
    ASSERT_EQ(whole.rc, DBE_OK) << of.db_id;
    const conversion exact = unparsed(of.db_id, of.record, whole.bytes.size());
    EXPECT_EQ(exact.rc, DBE_OK) << of.db_id;
    EXPECT_EQ(exact.bytes, whole.bytes);
    for (std::size_t room = 0; room < whole.bytes.size(); room += room < 400 ? 1 : 97)
      EXPECT_EQ(unparsed(of.db_id, of.record, room).rc, DBE_BUFFER_TOO_SMALL) << of.db_id << " in " << room;
    EXPECT_EQ(unparsed(of.db_id, of.record, whole.bytes.size() - 1).rc, DBE_BUFFER_TOO_SMALL) << of.db_id;
  }
}

TEST_F(ShortRecords, AFieldAddedLaterReadsAsZeroFromAnOldRecord) {
  record_bytes record = record_bytes(2464).fill(2412, 50, 'b').number<std::uint8_t>(2462, 7);
  std::vector<unsigned char> old = unparsed(DB_CAT, record).bytes;
  old.pop_back();
  const record_bytes back = as_record(parsed(DB_CAT, old, 2464));
  EXPECT_EQ(back[2461], 'b');
  EXPECT_EQ(back[2462], 0);
}

}  // namespace
}  // namespace zvrtest
