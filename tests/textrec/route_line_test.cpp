// Lines of the route table.
#include "text_fixture.h"
#include "textrec/keyword_tables.h"
#include "textrec/route_entry.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;
using zvrtest::ParsedText;

class RouteLine : public zvrtest::TextTest {
 protected:
  ParsedText routes(const std::string& text) { return parsed(rte_keywords, text, rte_record_len); }
};

route_entry route_of(const ParsedText& result, unsigned index = 0) {
  route_entry route;
  std::memcpy(&route, result.record.data() + route_head_len + index * sizeof route, sizeof route);
  return route;
}

void expect_parameters(const route_entry& route, unsigned priority, unsigned protection, unsigned capacity,
                       unsigned security) {
  EXPECT_EQ(route.parameters[0], priority);
  EXPECT_EQ(route.parameters[1], protection);
  EXPECT_EQ(route.parameters[2], capacity);
  EXPECT_EQ(route.parameters[3], security);
}

TEST_F(RouteLine, OfTwoFieldsTakesTheDefaults) {
  const ParsedText result = routes("R1.E1  CONN1");
  ASSERT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u16(0), 1u);
  const route_entry route = route_of(result);
  EXPECT_STREQ(route.rgn, "R1");
  EXPECT_STREQ(route.ren, "E1");
  expect_parameters(route, 255, 255, 255, 255);
  EXPECT_STREQ(route.connection, "CONN1");
  EXPECT_EQ(route.hop_count, 0u);
}

TEST_F(RouteLine, OfThreeFieldsEndsWithTheHopCount) {
  const route_entry route = route_of(routes("  R1.E1  CONN1 3"));
  expect_parameters(route, 255, 255, 255, 255);
  EXPECT_EQ(route.hop_count, 3u);
  EXPECT_EQ(route_of(routes("R1.E1 CONN1 many")).hop_count, 0u);
  EXPECT_EQ(route_of(routes("R1.E1 CONN1 12x")).hop_count, 12u);
  EXPECT_EQ(route_of(routes("R1.E1 CONN1 010")).hop_count, 10u) << "decimal";
}

TEST_F(RouteLine, OfSixFieldsHasServiceParameters) {
  const route_entry route = route_of(routes("R1.E1  FAST  LEVEL2  0DATA  ANY  CONN1"));
  expect_parameters(route, 240, 48, 0, 255);
  EXPECT_STREQ(route.connection, "CONN1");
  EXPECT_EQ(route.hop_count, 0u);
}

TEST_F(RouteLine, OfSevenFieldsHasAllOfThem) {
  const route_entry route = route_of(routes("R1.E1\tDATA1 ANY 16MEGABYTES LEVEL2 CONN1 -2"));
  expect_parameters(route, 8, 255, 24, 32);
  EXPECT_EQ(route.hop_count, 65534u);
}

TEST_F(RouteLine, ABadHopCountOfSevenFieldsReadsAsSixFields) {
  for (const char* hops : {"x", "-", "+x", "x1"}) {
    const ParsedText result = routes(std::string("R1.E1 FAST ANY ANY ANY CONN1 ") + hops);
    EXPECT_EQ(result.rc, DBE_OK) << hops;
    EXPECT_EQ(route_of(result).hop_count, 0u) << hops;
    EXPECT_EQ(route_of(result).parameters[0], 240) << hops;
  }
}

TEST_F(RouteLine, OfAnyOtherNumberOfFieldsIsRefused) {
  for (const char* line : {"R1.E1", "R1.E1 A B CONN1", "R1.E1 A B C CONN1", " ", "\t\r", "R1.E1:"}) {
    const ParsedText result = routes(std::string("NETWORK PROTOCOL: APPC\n") + line);
    EXPECT_EQ(result.rc, DBE_BAD_RECORD) << line;
    EXPECT_EQ(result.message(), 36415u) << line;
    EXPECT_EQ(result.faults[0].line, 2u) << line;
    EXPECT_EQ(result.u16(0), 0u) << line;
  }
}

TEST_F(RouteLine, ADestinationWithoutDotIsRefused) {
  const ParsedText result = routes("R1E1 CONN1");
  EXPECT_EQ(result.rc, DBE_BAD_RECORD);
  EXPECT_EQ(result.message(), 36415u);
  EXPECT_NE(result.faults[0].text.find("R1E1 CONN1"), std::string::npos);
}

TEST_F(RouteLine, TheDestinationIsSplitAsADsuNameIs) {
  const route_entry empty = route_of(routes(". CONN1"));
  EXPECT_STREQ(empty.rgn, "");
  EXPECT_STREQ(empty.ren, "");
  const route_entry leading = route_of(routes(".E1 CONN1"));
  EXPECT_STREQ(leading.rgn, "E1");
  EXPECT_STREQ(leading.ren, "");
  const route_entry full = route_of(routes("12345678.abcdefgh CONN1"));
  EXPECT_EQ(std::string(full.rgn, 16), "12345678abcdefgh");
  EXPECT_STREQ(route_of(routes("R.E.X CONN1")).ren, "E.X");
}

TEST_F(RouteLine, PartsThatAreTooLongAreRefused) {
  struct {
    const char* line;
    const char* what;
  } const cases[] = {{"123456789.E C", "Dest RGN is too long: 123456789. At most 8"},
                     {"R.123456789 C", "Dest REN is too long: 123456789. At most 8"},
                     {"R.E 1234567890123456", "Connection Name is too long: 1234567890123456. At most 15"}};
  for (const auto& c : cases) {
    const ParsedText result = routes(c.line);
    EXPECT_EQ(result.rc, DBE_BAD_RECORD) << c.line;
    EXPECT_EQ(result.message(), 36379u) << c.line;
    EXPECT_NE(result.faults[0].text.find(c.what), std::string::npos) << result.faults[0].text;
    EXPECT_EQ(result.u16(0), 0u) << c.line;
  }
  EXPECT_STREQ(route_of(routes("R.E 123456789012345")).connection, "123456789012345");
}

TEST_F(RouteLine, AFieldThatIsTooLongGoesOnInTheNext) {
  // The destination is cut at 18 bytes, so the line is of three fields.
  const ParsedText split = routes("12345678.12345678XY C");
  EXPECT_EQ(split.message(), 36379u) << "its REN has nine";
  // A connection of 17 bytes is of 16 and a hop count.
  EXPECT_EQ(routes("R.E 12345678901234567").message(), 36379u);
  // A priority of 18 bytes makes seven fields of six.
  const ParsedText shifted = routes("R.E 123456789012345678 ANY ANY CONN1 5");
  ASSERT_EQ(shifted.rc, DBE_OK);
  const route_entry route = route_of(shifted);
  expect_parameters(route, 255, 255, 255, 255);
  EXPECT_STREQ(route.connection, "CONN1");
  EXPECT_EQ(route.hop_count, 5u);
}

TEST_F(RouteLine, AColonCutsTheLine) {
  EXPECT_STREQ(route_of(routes("R.E CONN:7 3")).connection, "CONN");
  EXPECT_EQ(routes("R.E: CONN").message(), 36415u);
}

TEST_F(RouteLine, AnUnknownServiceParameterStaysUnknownAndIsTold) {
  const ParsedText result = routes("R.E SLOW LEVEL9 0DATA ANY CONN1 1");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u16(0), 1u);
  expect_parameters(route_of(result), 255, 255, 0, 255);
  ASSERT_EQ(result.faults.size(), 2u);
  EXPECT_EQ(result.faults[0].number, 36376u);
  EXPECT_NE(result.faults[0].text.find("SLOW"), std::string::npos);
  EXPECT_NE(result.faults[1].text.find("LEVEL9"), std::string::npos);
}

TEST_F(RouteLine, EveryServiceParameterIsFoundBothWays) {
  for (const value_word* list : service_parameters)
    for (const value_word* row = list; std::strcmp(row->text, "NULL") != 0; ++row) {
      EXPECT_EQ(rte_str_to_num(task, list, row->text), row->number);
      EXPECT_STREQ(rte_num_to_str(task, list, static_cast<std::uint8_t>(row->number)), row->text);
    }
  EXPECT_STREQ(rte_num_to_str(task, service_parameters[0], 7), "ANY");
  EXPECT_EQ(rte_str_to_num(task, service_parameters[0], "NULL"), 255);
  EXPECT_NE(log().find("ZVR36376"), std::string::npos);
}

TEST_F(RouteLine, TheTableHoldsSixteenHundredRoutes) {
  std::string text = "NETWORK PROTOCOL: BOTH\n";
  for (unsigned i = 0; i < most_routes; ++i)
    text += "R" + std::to_string(i) + ".E  ANY  ANY  ANY  ANY  CONN  " + std::to_string(i) + "\n\n";
  const ParsedText full = routes(text);
  ASSERT_EQ(full.rc, DBE_OK);
  EXPECT_EQ(full.u16(0), most_routes);
  EXPECT_EQ(full.u16(2), 3u);
  EXPECT_EQ(route_of(full, most_routes - 1).hop_count, most_routes - 1);
  const ParsedText beyond = routes(text + "R.E CONN\n");
  EXPECT_EQ(beyond.rc, DBE_BAD_RECORD);
  EXPECT_EQ(beyond.message(), 36378u);
}

TEST_F(RouteLine, AShortRecordTakesTheRoutesThatFitAndCountsNoOthers) {
  const std::string text = "R1.E1 C1\nR2.E2 C2\nR3.E3 X\nbad line of six more words here\n";
  const ParsedText result = parsed(rte_keywords, text, route_head_len + 2 * sizeof(route_entry) + 39);
  EXPECT_EQ(result.rc, DBE_OK) << "a route that has no room is not looked at";
  EXPECT_EQ(result.u16(0), 2u);
  EXPECT_EQ(parsed(rte_keywords, text, 4).u16(0), 0u);
  EXPECT_EQ(parsed(rte_keywords, text, 1).rc, DBE_OK);
}

TEST_F(RouteLine, RoutesAndTheProtocolStandInAnyOrder) {
  const ParsedText result = routes("R1.E1 C1\n# note\nNETWORK PROTOCOL: TCP/IP\n\nR2.E2 C2");
  EXPECT_EQ(result.rc, DBE_OK);
  EXPECT_EQ(result.u16(0), 2u);
  EXPECT_EQ(result.u16(2), 2u);
  EXPECT_STREQ(route_of(result, 1).connection, "C2");
}

TEST_F(RouteLine, TheProtocolTakesThreeWordsOnly) {
  for (const char* word : {"IPX", "NBI", "ANY"})
    EXPECT_EQ(routes(std::string("NETWORK PROTOCOL: ") + word).message(), 36377u) << word;
}

}  // namespace
