// Fan-out blocks, request vectors and reports.
#include "keyed/conversion_fixture.h"

namespace zvrtest {
namespace {

class VariableBlocks : public ConversionTest {
 protected:
  static record_bytes request(std::size_t length) {
    return record_bytes(length).text(0, "user").text(16, "T1");
  }
  static record_bytes target_request() { return request(10204).text(104, "T2").text(168, "T3"); }
};

TEST_F(VariableBlocks, AFanOutBlockIsAsLongAsItsCount) {
  record_bytes record = request(25198).number<std::uint16_t>(124, 100).fill(638, 100, 'f');
  const conversion stored = unparsed(DB_FAN, record);
  EXPECT_EQ(stored.bytes.size(), 76u + 518 + 100);
  EXPECT_EQ(as_record(parsed(DB_FAN, stored.bytes, 25198)).all(), record.all());
  const record_bytes shorter = as_record(parsed(DB_FAN, stored.bytes, 648));
  EXPECT_EQ(shorter[647], 'f');
}

TEST_F(VariableBlocks, AFanOutBlockWhoseDataIsCutIsNotMovedAtAll) {
  record_bytes record = request(25198).number<std::uint16_t>(124, 100).fill(638, 100, 'f');
  std::vector<unsigned char> cut = unparsed(DB_FAN, record).bytes;
  cut.pop_back();
  const conversion back = parsed(DB_FAN, cut, 25198);
  EXPECT_EQ(back.rc, DBE_OK);
  EXPECT_EQ(back.bytes[638], 0);
}

TEST_F(VariableBlocks, ACountBeyondTheRecordMovesWhatThereIs) {
  record_bytes record = request(700).number<std::uint16_t>(124, 65535).fill(638, 62, 'f');
  const conversion stored = unparsed(DB_FAN, record);
  EXPECT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(stored.bytes.size(), 76u + 518 + 62);
  record_bytes vector = request(1000).number<std::uint32_t>(616, 0xFFFFFFFF);
  EXPECT_EQ(unparsed(DB_RQV, vector).rc, DBE_OK);
}

TEST_F(VariableBlocks, AVectorComesBehindTheBlockThatLiesInsideIt) {
  record_bytes record = request(64620).number<std::uint32_t>(616, 10).fill(620, 10, 'v');
  const conversion stored = unparsed(DB_RQV, record);
  ASSERT_EQ(stored.bytes.size(), 76u + 512 + 4 + 10);
  const record_bytes back = as_record(parsed(DB_RQV, stored.bytes, 64620));
  EXPECT_EQ(back.number_at<std::uint32_t>(616), 10u);
  EXPECT_EQ(back.text_at(620, 20), "vvvvvvvvvv");
}

TEST_F(VariableBlocks, AVectorRecordShorterThanThatBlockHasNoVector) {
  record_bytes record = request(9692).number<std::uint32_t>(616, 10).fill(620, 10, 'v');
  const conversion stored = unparsed(DB_RQV, record);
  EXPECT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(stored.bytes.size(), 76u);
}

TEST_F(VariableBlocks, AReportWithTextKeepsItsHeadAndText) {
  record_bytes record =
      target_request().number<std::uint16_t>(520, 1).fill(522, 34, 'h').text(556, "it went well");
  const conversion stored = unparsed(DB_RQT, record);
  EXPECT_EQ(stored.bytes.size(), 76u + 4 + 1 + 28 + 2 + 34 + 13 + 512);
  EXPECT_EQ(as_record(parsed(DB_RQT, stored.bytes, 10204)).all(), record.all());
}

TEST_F(VariableBlocks, AReportTextWithoutNulFillsTheBlockAndComesBackTheSame) {
  record_bytes record =
      target_request().number<std::uint16_t>(520, 1).fill(556, 1024, 't').fill(1580, 40, 'x');
  const conversion stored = unparsed(DB_RQT, record);
  EXPECT_EQ(stored.bytes.size(), 76u + 4 + 1 + 28 + 2 + 34 + 1025 + 512);
  const record_bytes back = as_record(parsed(DB_RQT, stored.bytes, 10204));
  EXPECT_EQ(back.text_at(556, 1024), std::string(1024, 't'));
  EXPECT_EQ(back[1580], 0);
}

TEST_F(VariableBlocks, NoReportIsItsTypeAlone) {
  record_bytes record = target_request().number<std::uint16_t>(520, 0xFFFF).fill(522, 34, 'h');
  const conversion stored = unparsed(DB_RQT, record);
  EXPECT_EQ(stored.bytes.size(), 76u + 4 + 1 + 28 + 2 + 512);
  const record_bytes back = as_record(parsed(DB_RQT, stored.bytes, 10204));
  EXPECT_EQ(back.number_at<std::uint16_t>(520), 0xFFFF);
  EXPECT_EQ(back[522], 0);
}

TEST_F(VariableBlocks, AnUnknownReportTypeIsStoredAsNone) {
  const conversion stored = unparsed(DB_RQT, target_request().number<std::uint16_t>(520, 5));
  EXPECT_EQ(stored.rc, DBE_OK);
  EXPECT_EQ(as_record(parsed(DB_RQT, stored.bytes, 10204)).number_at<std::uint16_t>(520), 0xFFFF);
}

TEST_F(VariableBlocks, AnUnknownStoredReportTypeIsABadRecord) {
  std::vector<unsigned char> stored = unparsed(DB_RQT, target_request().number<std::uint16_t>(520, 1)).bytes;
  stored[76 + 4 + 1 + 28] = 2;
  EXPECT_EQ(parsed(DB_RQT, stored, 10204).rc, DBE_BAD_RECORD);
  EXPECT_EQ(parsed(DB_RQT, stored, 1579).rc, DBE_OK) << "no room for a report: it is passed by";
}

TEST_F(VariableBlocks, AReportWhoseDataIsCutIsNoError) {
  const std::vector<unsigned char> stored =
      unparsed(DB_RQT, target_request().number<std::uint16_t>(520, 1).text(556, "text")).bytes;
  for (std::size_t length = 76 + 4 + 1 + 28; length < stored.size(); ++length)
    EXPECT_EQ(parsed(DB_RQT, std::vector<unsigned char>(stored.begin(), stored.begin() + length), 10204).rc,
              DBE_OK);
}

}  // namespace
}  // namespace zvrtest
