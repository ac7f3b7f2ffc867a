// Values that need more than a row of a table can say.
#include "sample_tables.h"
#include "text_fixture.h"
#include "textrec/keyword_tables.h"
#include "textrec/older_tables.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;
using zvrtest::ParsedText;

constexpr std::size_t name_len = 20;
constexpr keyword_entry lu_keywords[] = {special_row("PARTNER", {17, 0}, fqplu_name_parse), end_row()};

class SpecialFunctions : public zvrtest::TextTest {
 protected:
  ParsedText connection(const std::string& text) { return parsed(scn_keywords, text, scn_record_len); }
  ParsedText target(const std::string& text) { return parsed(older_target_keywords, text, older_target_len); }
  ParsedText parameters(const std::string& text) {
    return parsed(older_parameter_keywords, text, older_parameter_len);
  }
  ParsedText hardware(const std::string& text) {
    return parsed(older_hardware_keywords, text, older_hardware_len);
  }
  ParsedText partner(const std::string& value) { return parsed(lu_keywords, "PARTNER: " + value, name_len); }
};

// ---- Next DSU

TEST_F(SpecialFunctions, ADsuNameIsSplitAtItsDot) {
  const ParsedText result = connection("NEXT DSU:  RGN1.REN12345  ");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(44, 8), "RGN1");
  EXPECT_EQ(result.text(52, 8), "REN12345");
}

TEST_F(SpecialFunctions, BothPartsOfADsuNameMayFillTheirFields) {
  const ParsedText result = connection("NEXT DSU: 12345678.abcdefgh\nTRANSMISSION TIME-OUT: 0");
  EXPECT_EQ(result.text(44, 16), "12345678abcdefgh");
  for (const char* value : {"123456789.E", "R.123456789"}) {
    const ParsedText longer = connection(std::string("NEXT DSU: ") + value);
    EXPECT_EQ(longer.rc, DBE_BAD_RECORD) << value;
    EXPECT_EQ(longer.message(), 36379u) << value;
    EXPECT_NE(longer.faults[0].text.find("NEXT DSU is too long: 123456789. At most 8"), std::string::npos);
  }
}

TEST_F(SpecialFunctions, AnEmptyDsuNameReadsAsEmpty) {
  for (const char* text : {"NEXT DSU:\nTYPE: SNA", "NEXT DSU:  .\nTYPE: SNA", "NEXT DSU:   \r\nTYPE: SNA",
                           "NEXT DSU: ...\nTYPE: SNA"}) {
    const ParsedText result = connection(text);
    EXPECT_EQ(result.rc, DBE_OK) << text;
    EXPECT_EQ(result.text(44, 16), "") << text;
    EXPECT_EQ(result.u8(18), 1u) << text;
  }
}

TEST_F(SpecialFunctions, ALeadingDotMakesTheRenAnRgn) {
  const ParsedText result = connection("NEXT DSU:  .E1\nTRANSMISSION TIME-OUT:  0");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(44, 8), "E1");
  EXPECT_EQ(result.text(52, 8), "");
}

TEST_F(SpecialFunctions, ADsuNameMayEndWithItsDot) {
  const ParsedText result = connection("NEXT DSU: R1.\nTRANSMISSION TIME-OUT:  0");
  EXPECT_EQ(result.text(44, 8), "R1");
  EXPECT_EQ(result.text(52, 8), "");
}

TEST_F(SpecialFunctions, WithoutDotTheNextLineIsTakenForTheRen) {
  EXPECT_EQ(connection("NEXT DSU: R1\nTRANSMISSION TIME-OUT: 0").message(), 36379u);
  const ParsedText longer = connection("NEXT DSU: R1\nNEXT DSU: R2.E2");
  EXPECT_EQ(longer.rc, DBE_BAD_RECORD);
  const ParsedText result = connection("NEXT DSU: R1\n#1234567\nTYPE: SNA");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(44, 8), "R1");
  EXPECT_EQ(result.text(52, 8), "#1234567");
  EXPECT_EQ(result.u8(18), 1u);
}

TEST_F(SpecialFunctions, WithoutDotNothingIsReadBehindTheText) {
  char text[] = "NEXT DSU: R1";
  unsigned char record[scn_record_len] = {};
  EXPECT_EQ(parse(task, DB_SCN, "", scn_keywords, text, record, sizeof record), DBE_OK);
  EXPECT_EQ(connection("NEXT DSU: R1").rc, DBE_OK);
  EXPECT_EQ(connection("NEXT DSU: R1 \nTRANSMISSION TIME-OUT: 0").text(52, 8), "");
}

TEST_F(SpecialFunctions, ADsuNameReplacesALongerOne) {
  const ParsedText result = connection("NEXT DSU: ABCDEFGH.IJKLMNOP\nNEXT DSU: A.B");
  EXPECT_EQ(result.text(44, 8), "A");
  EXPECT_EQ(result.text(52, 8), "B");
}

// ---- Partner names

TEST_F(SpecialFunctions, APartnerNameIsKeptAsItStands) {
  const ParsedText result = partner("NET$.LU#@1");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(0, 17), "NET$.LU#@1");
  EXPECT_EQ(partner("12345678.ABCDEFGH").text(0, name_len), "12345678.ABCDEFGH");
}

TEST_F(SpecialFunctions, APartnerNameHasExactlyOneDot) {
  for (const char* value : {"NETLU", "A.B.C", "A..B", ""}) {
    const ParsedText result = partner(value);
    EXPECT_EQ(result.rc, DBE_BAD_RECORD) << value;
    EXPECT_TRUE(result.faults.empty()) << value;
  }
}

TEST_F(SpecialFunctions, ThePartsOfAPartnerNameAreTestedForLengthAndCharacters) {
  EXPECT_EQ(partner("123456789.A").message(), 36379u);
  EXPECT_EQ(partner("A.123456789").message(), 36379u);
  const ParsedText lower = partner("NET.lu");
  EXPECT_EQ(lower.message(), 36405u);
  EXPECT_NE(lower.faults[0].text.find("NET.lu"), std::string::npos);
}

// ---- Addresses

TEST_F(SpecialFunctions, LinesOfAnAddressAreJoinedByLineFeeds) {
  const ParsedText result =
      target("MANAGER ADDRESS: 1 Street\nMANAGER ADDRESS:Town\nMANAGER ADDRESS:   Land");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(412, 200), "1 Street\nTown\nLand");
}

TEST_F(SpecialFunctions, AnAddressIsCutAndNeverFails) {
  const std::string line(150, 'x');
  const ParsedText result =
      target("MANAGER ADDRESS: " + line + "\nMANAGER ADDRESS: " + line + "\nMANAGER ADDRESS: z");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(412, 200), line + "\n" + std::string(48, 'x'));
  EXPECT_EQ(result.u8(412 + 199), 0u);
  ASSERT_EQ(result.faults.size(), 2u);
  EXPECT_EQ(result.faults[0].number, 36381u);
  EXPECT_NE(result.faults[0].text.find("NAME is longer than 200"), std::string::npos);
  const ParsedText fits = target("MANAGER ADDRESS: " + std::string(199, 'x'));
  EXPECT_TRUE(fits.faults.empty());
  EXPECT_EQ(fits.text(412, 200).size(), 199u);
}

// ---- Hardware parameters

TEST_F(SpecialFunctions, AHardwareParameterIsNameAndValue) {
  const ParsedText result =
      hardware("HARDWARE PARMS:  CPU =  x86=64\nHARDWARE PARMS: RAM=\nHARDWARE PARMS:NONE");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(68, 81), "CPU ");
  EXPECT_EQ(result.text(68 + 81, 81), "x86=64");
  EXPECT_EQ(result.text(68 + 162, 81), "RAM");
  EXPECT_EQ(result.text(68 + 162 + 81, 81), "");
  EXPECT_EQ(result.text(68 + 2 * 162, 81), "NONE");
  EXPECT_EQ(result.text(68 + 2 * 162 + 81, 81), "");
}

TEST_F(SpecialFunctions, PartsOfAHardwareParameterAreLimited) {
  const std::string most(80, 'a');
  const ParsedText result = hardware("HARDWARE PARMS: " + most + "=" + most);
  EXPECT_EQ(result.text(68, 81), most);
  EXPECT_EQ(result.text(68 + 81, 81), most);
  for (const std::string& value : {most + "a=b", "b=" + most + "a", most + "a"}) {
    const ParsedText longer = hardware("HARDWARE PARMS: " + value);
    EXPECT_EQ(longer.rc, DBE_BAD_RECORD);
    EXPECT_EQ(longer.message(), 36379u);
  }
  hardware("");
  char text[400];
  std::snprintf(text, sizeof text, "HARDWARE PARMS: b=%sa\n", most.c_str());
  std::vector<unsigned char> record(older_hardware_len);
  EXPECT_EQ(parse(task, DB_THW, "K", older_hardware_keywords, text, record.data(), older_hardware_len),
            DBE_BAD_RECORD);
  EXPECT_NE(log().find("At most 81"), std::string::npos);
}

TEST_F(SpecialFunctions, AsManyHardwareParametersAsTheRecordHolds) {
  std::string text;
  for (unsigned i = 0; i < older_hardware_count; ++i) text += "HARDWARE PARMS: N=V\n";
  EXPECT_EQ(hardware(text).rc, DBE_OK);
  EXPECT_EQ(hardware(text + "HARDWARE PARMS: N=V\n").message(), 36378u);
}

// ---- Target parameters

TEST_F(SpecialFunctions, EveryLineWithAnUnknownKeywordIsATargetParameter) {
  const ParsedText result = parameters("A: 1\nNUMBER OF PARMS: 2\nB:two words\nC");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u16(64), 2u);
  EXPECT_EQ(result.text(68, 12), "A");
  EXPECT_EQ(result.text(80, 50), "1");
  EXPECT_EQ(result.text(130, 12), "B");
  EXPECT_EQ(result.text(142, 50), "two words");
  EXPECT_EQ(result.text(192, 12), "C");
  EXPECT_EQ(result.text(204, 50), "") << "nothing is taken from the next line";
}

TEST_F(SpecialFunctions, ATargetParameterWithoutColonTakesNothingFromTheNextLine) {
  const ParsedText result = parameters("C\nNUMBER OF PARMS: 1\nD:\nE:5");
  EXPECT_EQ(result.text(68, 12), "C");
  EXPECT_EQ(result.text(80, 50), "");
  EXPECT_EQ(result.text(130, 12), "D");
  EXPECT_EQ(result.text(142, 50), "");
  EXPECT_EQ(result.text(192, 12), "E");
  EXPECT_EQ(result.text(204, 50), "5");
}

TEST_F(SpecialFunctions, TheValueOfATargetParameterLosesItsTrailingBlanks) {
  const ParsedText result = parameters("NAME :  value  \r\nX:  a:b ");
  EXPECT_EQ(result.text(68, 12), "NAME");
  EXPECT_EQ(result.text(80, 50), "value");
  EXPECT_EQ(result.text(142, 50), "a:b");
}

TEST_F(SpecialFunctions, NameAndValueOfATargetParameterAreLimited) {
  const std::string name(11, 'n');
  const std::string value(49, 'v');
  const ParsedText result = parameters(name + ": " + value);
  EXPECT_EQ(result.text(68, 12), name);
  EXPECT_EQ(result.text(80, 50), value);
  const ParsedText long_name = parameters(name + "n: v");
  EXPECT_EQ(long_name.message(), 36379u);
  EXPECT_NE(long_name.faults[0].text.find("Target Parameter is too long: nnnnnnnnnnnn. At most 11"),
            std::string::npos);
  const ParsedText long_value = parameters("n: v" + value);
  EXPECT_EQ(long_value.message(), 36379u);
  EXPECT_NE(long_value.faults[0].text.find("Target Parameter Value is too long"), std::string::npos);
  char text[200];
  std::snprintf(text, sizeof text, "n: v%s\n", value.c_str());
  std::vector<unsigned char> record(older_parameter_len);
  EXPECT_EQ(parse(task, DB_PRM, "K", older_parameter_keywords, text, record.data(), older_parameter_len),
            DBE_BAD_RECORD);
  EXPECT_NE(log().find("At most 49"), std::string::npos);
}

// ---- Windows

TEST_F(SpecialFunctions, AWindowIsHourAndMinuteWithBaseZero) {
  struct {
    const char* value;
    unsigned hour, minute;
  } const cases[] = {{"8:30", 8, 30},   {"08:09", 0, 0}, {"23:59", 23, 59}, {"010:0x10", 8, 16},
                     {"7", 7, 0},       {"", 0, 0},      {":5", 0, 5},      {"300:5", 44, 5},
                     {"no:time", 0, 0}, {"1:2:3", 1, 2}};
  for (const auto& c : cases) {
    const ParsedText result = target(std::string("CM WINDOW STOP: ") + c.value);
    EXPECT_EQ(result.rc, DBE_OK) << c.value;
    EXPECT_EQ(result.u8(148), c.hour) << c.value;
    EXPECT_EQ(result.u8(149), c.minute) << c.value;
    EXPECT_EQ(result.u16(150), 0u) << c.value;
  }
}

// ---- The older records as wholes

TEST_F(SpecialFunctions, AnOlderTargetIsReadWhole) {
  const ParsedText result = target(
      "DESCRIPTION:     A target\nTARGET TYPE:     report_to\nTARGET OS:       WIN2K_ADV\nNETWORK ID:      "
      "NET#1\n"
      "SHORT NAME:      SHORT1\nCM WINDOW START: 1:2\nRBAPI TRACE: BOTH\nLOG LEVEL: d\nHELD STATUS: held\n"
      "LAN ADDRESS: 00:11\nCUSTOMER NAME: c\nCONTACT NAME: d\nCONTACT PHONE: 12\nMANAGER NAME: e\nMANAGER "
      "ADDRESS: f\n"
      "NUMBER OF PARMS: 1\nNUMBER OF USERS: 2\nHARDWARE PARMS: A=B\nUSER: one\nUSER: two\n");
  ASSERT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.text(64, 60), "A target");
  EXPECT_EQ(result.u8(140), 152u);
  EXPECT_EQ(result.u8(141), 21u);
  EXPECT_EQ(result.text(124, 8), "NET#1");
  EXPECT_EQ(result.text(132, 8), "SHORT1");
  EXPECT_EQ(result.u32(144), 0x0201u);
  EXPECT_EQ(result.u8(160), 3u);
  EXPECT_EQ(result.u8(161), 2u);
  EXPECT_EQ(result.u8(162), 1u);
  EXPECT_EQ(result.text(168, 32), "00:11");
  EXPECT_EQ(result.text(200, 60), "c");
  EXPECT_EQ(result.text(260, 60), "d");
  EXPECT_EQ(result.text(320, 32), "12");
  EXPECT_EQ(result.text(352, 60), "e");
  EXPECT_EQ(result.text(412, 200), "f");
  EXPECT_EQ(result.u16(612), 1u);
  EXPECT_EQ(result.u16(614), 2u);
  EXPECT_EQ(result.text(616, 81), "A");
  EXPECT_EQ(result.text(5800, 16), "one");
  EXPECT_EQ(result.text(5816, 16), "two");
}

TEST_F(SpecialFunctions, AnOlderGroupIsReadWhole) {
  const ParsedText result = parsed(older_group_keywords,
                                   "DESCRIPTION: g\nTARGET TYPE: remote\nTARGET OS: MK/6\nSHORT NAME: G1\n"
                                   "TARGET: T1\nTARGET: T2\nNUMBER OF TARGETS: 2\nNUMBER OF TSPS: 3\n",
                                   older_group_len);
  ASSERT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u8(140), 192u);
  EXPECT_EQ(result.text(148, 64), "T1");
  EXPECT_EQ(result.text(212, 64), "T2");
  EXPECT_EQ(result.u16(144), 2u);
  EXPECT_EQ(result.u16(146), 3u);
}

TEST_F(SpecialFunctions, AnOlderTargetHasNoMoreThanItsUsersAndParameters) {
  std::string users;
  for (unsigned i = 0; i < older_user_count; ++i) users += "USER: u\n";
  EXPECT_EQ(target(users).rc, DBE_OK);
  EXPECT_EQ(target(users + "USER: u\n").message(), 36378u);
  EXPECT_EQ(target("USER: 1234567890123456").message(), 36379u);
}

}  // namespace
