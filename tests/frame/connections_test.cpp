// SNADS connections from the exported calls to their files and back.
#include "text_records_fixture.h"

namespace {

using zvrtest::connection_len;
using zvrtest::get_connection;
using zvrtest::logged;
using zvrtest::put_connection;
using zvrtest::text_record;

class Connections : public zvrtest::TextRecordTest {
 protected:
  std::vector<std::string> list(std::uint32_t size, std::uint16_t* count, std::int16_t expected = DBE_OK) {
    std::vector<char> area(size + 16, '!');
    std::uint16_t index = 9;
    EXPECT_EQ(expected, db_start_list(task, DB_SCN, nullptr, area.data(), size, count, &index));
    EXPECT_EQ(std::string(16, '!'), std::string(area.data() + size, 16)) << "written behind the list";
    EXPECT_EQ(0, index);
    std::vector<std::string> names;
    for (std::uint32_t at = 0; at + 16 <= size && area[at] != '!'; at += 16)
      names.emplace_back(area.data() + at, strnlen(area.data() + at, 16));
    return names;
  }
  text_record record{connection_len, 0x5A};
};

TEST_F(Connections, AFileIsReadEndToEnd) {
  connection_file("OSLO",
                  "# To the north\nTYPE: STS\nPROTOCOL:         TCP/IP\nREMOTE SERVER NAME:  OSLO01\n"
                  "TCP/IP TIME-OUT:  60\nNEXT DSU:  NORTH.OSLO01\nTRANSMISSION TIME-OUT: 1\nRETRY LIMIT: 2\n"
                  "SEND MU_ID TIME-OUT: 3\nRECEIVE MU_ID TIME-OUT: 4");
  ASSERT_EQ(DBE_OK, get_connection(task, "OSLO", record, connection_len));
  EXPECT_EQ("OSLO", record.text(0, 16));
  EXPECT_EQ(2u, record.u16(16));
  EXPECT_EQ(2u, record.u16(18));
  EXPECT_EQ("NORTH", record.text(44, 8));
  EXPECT_EQ("OSLO01", record.text(52, 8));
  EXPECT_EQ(1u, record.u32(60));
  EXPECT_EQ(2u, record.u16(64));
  EXPECT_EQ(3u, record.u32(68));
  EXPECT_EQ(4u, record.u32(72));
  EXPECT_EQ("OSLO01", record.text(76, 64));
  EXPECT_EQ(60u, record.u32(140));
}

TEST_F(Connections, WithoutProtocolAndTypeTheDefaultsHold) {
  connection_file("A", "RETRY LIMIT: 5\n");
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ(1u, record.u16(16));
  EXPECT_EQ(1u, record.u16(18));
}

TEST_F(Connections, DefaultsApplyAfterAFailedParseToo) {
  connection_file("A", "RETRY LIMIT: 5\nPROTOCOL: X\nTYPE: STS\n");
  EXPECT_EQ(DBE_BAD_RECORD, get_connection(task, "A", record, connection_len));
  EXPECT_EQ(1u, record.u16(16));
  EXPECT_EQ(1u, record.u16(18));
  EXPECT_EQ(5u, record.u16(64)) << "what was read before the failure stays";
  EXPECT_EQ("", record.text(76, 64)) << "no server is derived";
}

TEST_F(Connections, DefaultsApplyToTheCallersBytesWhenThereIsNoRecord) {
  EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, "NONE", record, connection_len));
  EXPECT_EQ(0x5A5Au, record.u16(16));
  text_record zeros(connection_len);
  EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, "NONE", zeros, connection_len));
  EXPECT_EQ(1u, zeros.u16(16));
  EXPECT_EQ(1u, zeros.u16(18));
}

TEST_F(Connections, OfSixteenBytesOnlyTheNameIsRead) {
  connection_file("A", "PROTOCOL: nothing\n");
  EXPECT_EQ(DBE_OK, get_connection(task, "A", record, 16));
  EXPECT_EQ("A", record.text(0, 16));
  EXPECT_EQ(0x5A, record.u8(16));
}

TEST_F(Connections, DefaultsStayWithinTheBuffer) {
  connection_file("A", "");
  for (std::uint16_t length = 17; length <= 21; ++length) {
    text_record cut(connection_len, 0x5A);
    EXPECT_EQ(DBE_OK, get_connection(task, "A", cut, length));
    EXPECT_EQ(1u, cut.u8(16)) << length;
    EXPECT_EQ(length > 17 ? 0u : 0x5Au, cut.u8(17)) << length;
    EXPECT_EQ(length > 18 ? 1u : 0x5Au, cut.u8(18)) << length;
    EXPECT_EQ(length > 19 ? 0u : 0x5Au, cut.u8(19)) << length;
    for (std::size_t at = length; at < connection_len; ++at) ASSERT_EQ(0x5Au, cut.u8(at)) << length;
  }
}

TEST_F(Connections, LengthZeroAsksOnlyWhetherThereIsOne) {
  connection_file("A", "PROTOCOL: nothing\n");
  EXPECT_EQ(DBE_OK, get_connection(task, "A", record, 0));
  EXPECT_EQ(0x5A, record.u8(0));
  EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, "B", record, 0));
}

TEST_F(Connections, NamesThatAreNoFileNamesAreNotFound) {
  installation.write("db/secret", "TYPE: SNA\n");
  for (const char* name : {"", ".", "..", "../secret", "a/b", "/etc/passwd"}) {
    EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, name, record, connection_len)) << name;
    EXPECT_EQ(DBE_NOT_FOUND, put_connection(task, name, text_record(connection_len))) << name;
    const void* keys[] = {name};
    EXPECT_EQ(DBE_NOT_FOUND, db_del(task, DB_SCN, 1, keys)) << name;
  }
  const std::string longest(300, 'n');
  EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, longest.c_str(), record, connection_len));
  EXPECT_EQ("TYPE: SNA\n", installation.read("db/secret"));
}

TEST_F(Connections, ANameLongerThanItsFieldIsCutInTheRecord) {
  connection_file("A_NAME_OF_TWENTY_BYT", "TYPE: STS\n");
  ASSERT_EQ(DBE_OK, get_connection(task, "A_NAME_OF_TWENTY_BYT", record, connection_len));
  EXPECT_EQ("A_NAME_OF_TWENTY", record.text(0, 16));
  EXPECT_EQ(2u, record.u16(18));
}

TEST_F(Connections, TheNameMayStandInTheRecordItself) {
  connection_file("A", "TYPE: STS\n");
  record.set_text(0, std::string("A\0B", 3));
  const void* keys[] = {record.bytes.data()};
  ASSERT_EQ(DBE_OK, db_get(task, DB_SCN, 1, keys, record.bytes.data(), connection_len));
  EXPECT_EQ("A", record.text(0, 16));
  EXPECT_EQ('B', record.u8(2)) << "the head is left as it is";
  EXPECT_EQ(2u, record.u16(18));
}

// ---- The name of the server

TEST_F(Connections, TheServerIsDerivedFromTheNextDsu) {
  zvrdb::TRG_CNTL_ENTRY target = zvrtest::target_record("BERGEN");
  std::memcpy(target.rgn, "NORTH\0\0\0", 8);
  std::memcpy(target.ren, "BERGEN01", 8);
  const void* keys[] = {"BERGEN"};
  ASSERT_EQ(DBE_OK, db_put(task, DB_TRG, 1, keys, &target, sizeof target));
  connection_file("A", "NEXT DSU: NORTH.BERGEN01\n");
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ("BERGEN", record.text(76, 64));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, 140));
  EXPECT_EQ("BERGEN", record.text(76, 64));
}

TEST_F(Connections, AnIndexOutOfOrderIsScannedAndNotSorted) {
  for (const char* name : {"A", "B", "C", "D"}) {
    zvrdb::TRG_CNTL_ENTRY target = zvrtest::target_record(name);
    const void* keys[] = {name};
    ASSERT_EQ(DBE_OK, db_put(task, DB_TRG, 1, keys, &target, sizeof target));
  }
  std::uint32_t* index = task.tcb()->dsu_index;
  std::swap(index[0], index[3]);
  const std::vector<std::uint32_t> before(index, index + 4);
  connection_file("A", "NEXT DSU: RGN     .A\n");
  connection_file("D", "NEXT DSU: RGN     .D\n");
  for (const char* name : {"A", "D"}) {
    ASSERT_EQ(DBE_OK, get_connection(task, name, record, connection_len));
    EXPECT_EQ(name, record.text(76, 64));
  }
  EXPECT_EQ(before, std::vector<std::uint32_t>(index, index + 4));
  std::swap(index[0], index[3]);
}

TEST_F(Connections, AnUnknownDsuGivesTheTextOfAMessage) {
  connection_file("A", "NEXT DSU: NO.WHERE\n");
  connection_file("B", "PROTOCOL: TCP/IP\nTYPE: STS\n");
  for (const char* name : {"A", "B"}) {
    ASSERT_EQ(DBE_OK, get_connection(task, name, record, connection_len));
    EXPECT_EQ("unknown server", record.text(76, 64));
  }
  EXPECT_EQ(2u, record.u16(16));
  EXPECT_EQ(0u, record.u32(140));
}

TEST_F(Connections, ShorterThanTheServersFieldNothingIsDerived) {
  connection_file("A", "NEXT DSU: NO.WHERE\n");
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, 139));
  EXPECT_EQ("", record.text(76, 63));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, 140));
  EXPECT_EQ("unknown server", record.text(76, 64));
  EXPECT_EQ(0x5A, record.u8(140));
}

TEST_F(Connections, AServerThatIsNamedIsNotDerived) {
  connection_file("A", "REMOTE SERVER NAME: OSLO\nNEXT DSU: NO.WHERE\n");
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ("OSLO", record.text(76, 64));
}

// ---- Writing

text_record sample() {
  text_record record(connection_len);
  return record.set16(16, 1)
      .set16(18, 1)
      .set_text(20, "SENDTP")
      .set_text(32, "RECVTP")
      .set_text(44, "NORTHRGN")
      .set_text(52, "OSLOREN1")
      .set32(60, 4294967295u)
      .set16(64, 65535)
      .set32(68, 30)
      .set32(72, 40)
      .set_text(76, "SERVER")
      .set32(140, 50);
}

TEST_F(Connections, PutTellsNewFromReplaced) {
  EXPECT_EQ(DBE_OK, put_connection(task, "A", sample()));
  EXPECT_EQ(DBE_RECORD_REPLACED, put_connection(task, "A", sample()));
  EXPECT_EQ(2u, logged(task, 36353));
  EXPECT_TRUE(std::filesystem::is_empty(installation.path("db/tmp")));
  EXPECT_EQ(1, task.cntl()->fparsed_ok);
  EXPECT_EQ(2u, task.cntl()->gen[DB_SCN]);
}

TEST_F(Connections, AnAppcConnectionIsPrintedWithItsPrograms) {
  ASSERT_EQ(DBE_OK, put_connection(task, "A", sample()));
  EXPECT_EQ(
      "TYPE:         SNA\nPROTOCOL:         APPC\nSEND TP SYMBOLIC DESTINATION:  SENDTP\n"
      "RECEIVE TP SYMBOLIC DESTINATION:  RECVTP\nNEXT DSU:  NORTHRGN.OSLOREN1\n"
      "TRANSMISSION TIME-OUT:  4294967295\nRETRY LIMIT:  65535\nSEND MU_ID TIME-OUT:  30\n"
      "RECEIVE MU_ID TIME-OUT:  40\n",
      installation.read("db/snadscon/A"));
}

TEST_F(Connections, OfAnAppcConnectionServerAndTimeOutAreLost) {
  ASSERT_EQ(DBE_OK, put_connection(task, "A", sample()));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  text_record expected = sample();
  expected.set_text(0, "A").set_text(76, "unknown server").set32(140, 0);
  EXPECT_EQ(expected.bytes, record.bytes);
}

TEST_F(Connections, OtherConnectionsComeBackWithoutTheirPrograms) {
  for (const unsigned protocol : {2u, 4u, 5u}) {
    text_record put = sample();
    put.set16(16, protocol).set16(18, 2);
    ASSERT_GE(put_connection(task, "A", put), DBE_OK);
    ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
    put.set_text(0, "A").set_text(20, std::string(24, '\0'));
    EXPECT_EQ(put.bytes, record.bytes) << protocol;
  }
}

TEST_F(Connections, AnUnknownProtocolIsWrittenAsAppcAndTypeZeroAsSts) {
  text_record put = sample();
  put.set16(16, 3).set16(18, 0);
  ASSERT_EQ(DBE_OK, put_connection(task, "A", put));
  EXPECT_NE(std::string::npos,
            installation.read("db/snadscon/A")
                .find("TYPE:         STS\nPROTOCOL:         APPC\nREMOTE SERVER NAME:  SERVER\n"));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ(1u, record.u16(16));
  EXPECT_EQ(2u, record.u16(18));
}

TEST_F(Connections, AnEmptyRecordComesBack) {
  ASSERT_EQ(DBE_OK, put_connection(task, "A", text_record(connection_len)));
  EXPECT_NE(std::string::npos, installation.read("db/snadscon/A").find("NEXT DSU:  .\n"));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ("", record.text(44, 16));
}

TEST_F(Connections, TextsThatFillTheirFieldsArePrintedSoThatTheyReadBack) {
  text_record put = sample();
  put.set_text(20, "123456789!!!").set_text(32, "abcdefghi!!!");
  ASSERT_EQ(DBE_OK, put_connection(task, "A", put));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ("12345678", record.text(20, 12));
  EXPECT_EQ("abcdefgh", record.text(32, 12));
  put.set16(16, 2).set_text(76, std::string(64, 's'));
  ASSERT_EQ(DBE_RECORD_REPLACED, put_connection(task, "A", put));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ(std::string(63, 's'), record.text(76, 64));
}

TEST_F(Connections, ALineFeedInATextMakesNoFurtherLine) {
  text_record put = sample();
  put.set16(16, 2).set_text(76, "one\nRETRY LIMIT: 1");
  ASSERT_EQ(DBE_OK, put_connection(task, "A", put));
  ASSERT_EQ(DBE_OK, get_connection(task, "A", record, connection_len));
  EXPECT_EQ("one", record.text(76, 64));
  EXPECT_EQ(65535u, record.u16(64));
}

TEST_F(Connections, AMissingRecordDirectoryIsNotMade) {
  std::filesystem::remove(installation.path("db/snadscon"));
  EXPECT_EQ(DBE_FILE_NOT_FOUND, put_connection(task, "A", sample())) << "the code of the renaming";
  EXPECT_FALSE(std::filesystem::exists(installation.path("db/snadscon")));
  EXPECT_EQ(0, task.cntl()->fparsed_ok);
  std::uint16_t count = 7;
  list(16, &count, DBE_IO_ERROR);
  EXPECT_EQ(0, count);
  EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, "A", record, connection_len));
  EXPECT_EQ(1, task.cntl()->fparsed_ok) << "put right by the next call";
  EXPECT_TRUE(std::filesystem::is_empty(installation.path("db/tmp")));
}

TEST_F(Connections, TheDirectoryOfTemporaryFilesIsMade) {
  std::filesystem::remove_all(installation.path("db/tmp"));
  EXPECT_EQ(DBE_OK, put_connection(task, "A", sample()));
  EXPECT_TRUE(std::filesystem::is_directory(installation.path("db/tmp")));
}

TEST_F(Connections, DelRemovesTheFile) {
  ASSERT_EQ(DBE_OK, put_connection(task, "A", sample()));
  const void* keys[] = {"A"};
  EXPECT_EQ(DBE_OK, db_del(task, DB_SCN, 1, keys));
  EXPECT_EQ(1u, logged(task, 36354));
  EXPECT_EQ(DBE_NOT_FOUND, db_del(task, DB_SCN, 1, keys));
  EXPECT_EQ(DBE_NOT_FOUND, get_connection(task, "A", record, connection_len));
}

TEST_F(Connections, AFileThatCannotBeReadIsAnError) {
  std::filesystem::create_directory(installation.path("db/snadscon/DIR"));
  EXPECT_EQ(DBE_IO_ERROR, get_connection(task, "DIR", record, connection_len));
  EXPECT_EQ(DBE_IO_ERROR, put_connection(task, "DIR", sample()));
}

// ---- Lists

TEST_F(Connections, AreListedInOrderWithoutDirectories) {
  for (const char* name : {"C", "A", "B", "A_NAME_OF_16_BYT"}) connection_file(name, "");
  std::filesystem::create_directory(installation.path("db/snadscon/DIR"));
  connection_file(".hidden", "");
  std::uint16_t count = 0;
  EXPECT_EQ((std::vector<std::string>{"A", "A_NAME_OF_16_BYT", "B", "C"}), list(4 * 16, &count));
  EXPECT_EQ(4, count);
  EXPECT_EQ(4u, list(10 * 16, &count).size());
}

TEST_F(Connections, AListThatIsTooSmallHoldsTheFirstNamesAndTheCountOfAll) {
  for (const char* name : {"E", "C", "A", "B", "D"}) connection_file(name, "");
  std::uint16_t count = 0;
  EXPECT_EQ((std::vector<std::string>{"A", "B", "C", "D"}), list(4 * 16, &count));
  EXPECT_EQ(5, count);
  EXPECT_EQ((std::vector<std::string>{"A"}), list(16, &count));
  EXPECT_EQ(5, count);
}

TEST_F(Connections, AListOfNoWholeNumberOfEntriesIsNotOverrun) {
  for (const char* name : {"CCCCCCCC", "AAAAAAAA", "BBBBBBBB"}) connection_file(name, "");
  std::uint16_t count = 0;
  EXPECT_EQ((std::vector<std::string>{"AAAAAAAA"}), list(20, &count));
  EXPECT_EQ(3, count);
  list(5, &count);
  EXPECT_EQ(3, count);
}

TEST_F(Connections, AListWithoutRoomTellsTheCountOnly) {
  for (const char* name : {"A", "B"}) connection_file(name, "");
  std::uint16_t count = 0, index = 0;
  EXPECT_EQ(DBE_LIST_TOO_SMALL, db_start_list(task, DB_SCN, nullptr, nullptr, 0, &count, &index));
  EXPECT_EQ(2, count);
}

TEST_F(Connections, AnEmptyDirectoryIsAnEmptyList) {
  std::uint16_t count = 5;
  EXPECT_TRUE(list(64, &count).empty());
  EXPECT_EQ(0, count);
}

TEST_F(Connections, AreReadOneAfterTheOtherFromAList) {
  connection_file("FULL_NAME_OF_16B", "TYPE: STS\n");
  connection_file("G", "PROTOCOL: BAD\n");
  connection_file("H", "PROTOCOL: IPX\n");
  char area[3 * 16];
  std::uint16_t count = 0, index = 0;
  ASSERT_EQ(DBE_OK, db_start_list(task, DB_SCN, nullptr, area, sizeof area, &count, &index));
  ASSERT_EQ(3, count);
  const auto next = [&] {
    return db_get_next(task, DB_SCN, area, count, &index, record.bytes.data(), connection_len);
  };
  ASSERT_EQ(DBE_OK, next()) << "a name that fills its entry ends with it";
  EXPECT_EQ("FULL_NAME_OF_16B", record.text(0, 16));
  EXPECT_EQ(2u, record.u16(18));
  EXPECT_EQ(1u, record.u16(16));
  EXPECT_EQ("unknown server", record.text(76, 64));
  EXPECT_EQ(DBE_BAD_RECORD, next());
  EXPECT_EQ(2, index) << "goes on behind one that cannot be read";
  ASSERT_EQ(DBE_OK, next());
  EXPECT_EQ(4u, record.u16(16));
  EXPECT_EQ(DBE_END_OF_LIST, next());
  EXPECT_EQ(3, index);
}

}  // namespace
