// The text records of which there is one: SNADS configuration, routes, user configuration.
#include "text_records_fixture.h"

namespace {

using zvrtest::get_single;
using zvrtest::put_single;
using zvrtest::routes_len;
using zvrtest::text_record;

class SingleTextRecords : public zvrtest::TextRecordTest {
 protected:
  text_record routes{routes_len, 0x5A};
};

text_record& set_route(text_record& record, unsigned index, const std::string& rgn, const std::string& ren,
                       const std::string& connection, unsigned hops) {
  const std::size_t at = 4 + index * 40u;
  record.set_text(at, rgn).set_text(at + 8, ren).set32(at + 16, 0xFFFFFFFFu).set_text(at + 20, connection);
  return record.set16(at + 38, hops);
}

// ---- SNADS configuration

TEST_F(SingleTextRecords, SnadsConfigurationComesBack) {
  text_record put(12);
  put.set16(0, 7).set16(2, 65535).set32(4, 600).set32(8, 65535);
  EXPECT_EQ(DBE_OK, put_single(task, DB_SCF, put));
  EXPECT_EQ(
      "ORIGIN HOP COUNT:                 7\nMAX CRMU:                         65535\n"
      "TRANSMISSION HOLD TIME:           600\nALLOCATION FAILURE RETRY TIME:    65535\n",
      installation.read("db/snadscfg"));
  text_record got(12, 0x5A);
  EXPECT_EQ(DBE_OK, get_single(task, DB_SCF, got));
  EXPECT_EQ(put.bytes, got.bytes);
  EXPECT_EQ(DBE_RECORD_REPLACED, put_single(task, DB_SCF, put));
}

TEST_F(SingleTextRecords, OfATimeAboveSixteenBitsTheLowOnesAreWritten) {
  text_record put(12);
  put.set32(4, 65536 + 5).set32(8, 0xFFFF0000u);
  ASSERT_EQ(DBE_OK, put_single(task, DB_SCF, put));
  text_record got(12);
  ASSERT_EQ(DBE_OK, get_single(task, DB_SCF, got));
  EXPECT_EQ(5u, got.u32(4));
  EXPECT_EQ(0u, got.u32(8));
  installation.write("db/snadscfg", "TRANSMISSION HOLD TIME: 70000\n");
  ASSERT_EQ(DBE_OK, get_single(task, DB_SCF, got));
  EXPECT_EQ(70000u, got.u32(4)) << "a hand-written one is read";
}

TEST_F(SingleTextRecords, AMissingFileIsNotFound) {
  text_record got(12);
  EXPECT_EQ(DBE_NOT_FOUND, get_single(task, DB_SCF, got));
  EXPECT_EQ(DBE_NOT_FOUND, get_single(task, DB_UCF, got));
  EXPECT_EQ(DBE_NOT_FOUND, get_single(task, DB_RTE, got));
  EXPECT_EQ(2u, got.u16(2)) << "the default of routes all the same";
}

// ---- Routes

TEST_F(SingleTextRecords, AnEmptyRouteTableHasNoRoutesAndTcpIp) {
  installation.write("db/routetab", "");
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  EXPECT_EQ(0u, routes.u16(0));
  EXPECT_EQ(2u, routes.u16(2));
}

TEST_F(SingleTextRecords, TheDefaultProtocolStaysWithinTheBuffer) {
  installation.write("db/routetab", "");
  for (std::uint16_t length = 1; length <= 5; ++length) {
    text_record cut(8, 0x5A);
    ASSERT_EQ(DBE_OK, db_get(task, DB_RTE, 0, nullptr, cut.bytes.data(), length));
    EXPECT_EQ(length > 2 ? 2u : 0x5Au, cut.u8(2)) << length;
    EXPECT_EQ(length > 3 ? 0u : 0x5Au, cut.u8(3)) << length;
  }
}

TEST_F(SingleTextRecords, RoutesAreWrittenWithSevenFieldsAndAnEmptyLineEach) {
  text_record put(routes_len);
  set_route(put, 0, "R1", "E1", "CONN1", 3);
  set_route(put, 1, "12345678", "abcdefgh", "123456789012345", 65535);
  put.set16(0, 2).set16(2, 2).set8(4 + 16, 240).set8(4 + 17, 48).set8(4 + 18, 0).set8(4 + 19, 7);
  ASSERT_EQ(DBE_OK, put_single(task, DB_RTE, put));
  EXPECT_EQ(
      "NETWORK PROTOCOL:         TCP/IP\nR1.E1  FAST  LEVEL2  0DATA  ANY  CONN1  3\n\n"
      "12345678.abcdefgh  ANY  ANY  ANY  ANY  123456789012345  -1\n\n",
      installation.read("db/routetab"));
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  put.set8(4 + 19, 255);
  EXPECT_EQ(put.bytes, routes.bytes);
}

TEST_F(SingleTextRecords, BothProtocolsAreWrittenAsAppc) {
  installation.write("db/routetab", "NETWORK PROTOCOL: BOTH\nR1.E1 CONN\n");
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  EXPECT_EQ(3u, routes.u16(2));
  ASSERT_EQ(DBE_RECORD_REPLACED, put_single(task, DB_RTE, routes));
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  EXPECT_EQ(1u, routes.u16(2));
  EXPECT_EQ(1u, routes.u16(0));
}

TEST_F(SingleTextRecords, TwoProtocolsCanBeWrittenAndNotRead) {
  for (const unsigned protocol : {4u, 5u}) {
    ASSERT_GE(put_single(task, DB_RTE, text_record(routes_len).set16(2, protocol)), DBE_OK);
    EXPECT_EQ(DBE_BAD_RECORD, get_single(task, DB_RTE, routes));
    EXPECT_EQ(2u, routes.u16(2));
  }
  EXPECT_EQ(2u, zvrtest::logged(task, 36377));
}

TEST_F(SingleTextRecords, NoMoreRoutesAreWrittenThanTheRecordHolds) {
  text_record put(4 + 2 * 40 + 39);
  set_route(put, 0, "R1", "E1", "C1", 1);
  set_route(put, 1, "R2", "E2", "C2", 2);
  put.set16(0, 65535);
  ASSERT_EQ(DBE_OK, put_single(task, DB_RTE, put));
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  EXPECT_EQ(2u, routes.u16(0));
  EXPECT_EQ(DBE_RECORD_REPLACED, put_single(task, DB_RTE, text_record(2).set16(0, 9)));
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  EXPECT_EQ(0u, routes.u16(0));
}

text_record full_table(const std::string& connection) {
  text_record put(routes_len);
  for (unsigned i = 0; i < 1600; ++i) set_route(put, i, "RGN1234", "E", connection, 1);
  put.set16(0, 1600);
  return put;
}

TEST_F(SingleTextRecords, AFullTableOfShortRoutesComesBack) {
  text_record put = full_table("C");
  put.set16(2, 1);
  ASSERT_EQ(DBE_OK, put_single(task, DB_RTE, put));
  ASSERT_EQ(DBE_OK, get_single(task, DB_RTE, routes));
  EXPECT_EQ(put.bytes, routes.bytes);
}

TEST_F(SingleTextRecords, ATableWhoseTextIsTooLongIsRefusedBeforeTheOldOneGoes) {
  ASSERT_EQ(DBE_OK, put_single(task, DB_RTE, text_record(4)));
  const std::string before = installation.read("db/routetab");
  EXPECT_EQ(DBE_IO_ERROR, put_single(task, DB_RTE, full_table("A_LONG_NAME_12")));
  EXPECT_EQ(before, installation.read("db/routetab"));
  EXPECT_EQ(1, task.cntl()->fparsed_ok);
}

TEST_F(SingleTextRecords, MoreRoutesThanTheRecordHasAreABadRecord) {
  std::string text;
  for (int i = 0; i < 1601; ++i) text += "R.E C\n";
  installation.write("db/routetab", text);
  EXPECT_EQ(DBE_BAD_RECORD, get_single(task, DB_RTE, routes));
  EXPECT_EQ(1600u, routes.u16(0));
  EXPECT_EQ(1u, zvrtest::logged(task, 36378));
}

// ---- User configuration

TEST_F(SingleTextRecords, TheUserConfigurationIsPrintedInUpperCaseWords) {
  text_record put(24);
  put.set8(0, 1).set8(1, 2).set8(2, 3).set8(3, 3).set8(4, 9).set8(5, 0).set8(6, 1).set8(10, 15).set8(18, 16);
  put.set8(11, 4).set8(22, 2);
  ASSERT_EQ(DBE_OK, put_single(task, DB_UCF, put));
  EXPECT_EQ(
      "CONFIG_USER:      VIEW\nPREP_USER:      MODIFY\nCM_USER:          INST&EXEC\nDIST_USER:      ALL\n"
      "TCQ_USER:      NONE\nSYSTEM_USER:      NONE\nTARGET_USER:      OWN_TARGET\n"
      "CONFIG_PREP:      NONE\nPREP_PREP:      NONE\nCM_PREP:          ALL\nDIST_PREP:      NONE\n"
      "TCQ_PREP:      NONE\nSYSTEM_PREP:      NONE\nTARGET_PREP:      ALL\n"
      "CONFIG_ADMN:      NONE\nPREP_ADMN:      NONE\nCM_ADMN:          NONE\nDIST_ADMN:      NONE\n"
      "TCQ_ADMN:      NONE\nSYSTEM_ADMN:      NONE\nTARGET_ADMN:      ALL\n",
      installation.read("db/user_config"));
}

TEST_F(SingleTextRecords, EveryRightComesBack) {
  for (unsigned round = 0; round < 16; ++round) {
    text_record put(24);
    for (unsigned block = 0; block < 24; block += 8)
      put.set8(block, round % 3)
          .set8(block + 1, round % 3)
          .set8(block + 2, round)
          .set8(block + 3, round % 4)
          .set8(block + 4, round % 3)
          .set8(block + 5, round % 3)
          .set8(block + 6, round % 2);
    ASSERT_GE(put_single(task, DB_UCF, put), DBE_OK);
    text_record got(24, 0x5A);
    ASSERT_EQ(DBE_OK, get_single(task, DB_UCF, got));
    EXPECT_EQ(put.bytes, got.bytes);
  }
}

TEST_F(SingleTextRecords, OlderKeywordsOfTheUserConfigurationAreRead) {
  installation.write("db/user_config",
                     "CONFIG1:    view\r\nPREP2:    modify\r\nCM3:    all\r\nDIST1:     send\r\nTARGET3:     "
                     "OWN_TARGET\r\n");
  text_record got(24);
  ASSERT_EQ(DBE_OK, get_single(task, DB_UCF, got));
  EXPECT_EQ(1u, got.u8(0));
  EXPECT_EQ(2u, got.u8(9));
  EXPECT_EQ(15u, got.u8(18));
  EXPECT_EQ(1u, got.u8(3));
  EXPECT_EQ(1u, got.u8(22));
  EXPECT_EQ(0u, got.u8(16)) << "a keyword that is missing is none";
}

TEST_F(SingleTextRecords, TheUserConfigurationLeavesTheFlagOfTheOtherClassAlone) {
  task.cntl()->fparsed_ok = 7;
  ASSERT_EQ(DBE_OK, put_single(task, DB_UCF, text_record(24)));
  EXPECT_EQ(7, task.cntl()->fparsed_ok);
  EXPECT_EQ(1, task.tcb()->sem_index);
}

TEST_F(SingleTextRecords, BaseConfigurationStaysInItsFile) {
  const std::string before = installation.read("orvo.cfg");
  text_record config(4640);
  ASSERT_EQ(DBE_OK, get_single(task, DB_CFG, config));
  EXPECT_EQ(DBE_RECORD_REPLACED, put_single(task, DB_CFG, config.set32(4280, 99)));
  EXPECT_EQ(before, installation.read("orvo.cfg"));
}

}  // namespace
