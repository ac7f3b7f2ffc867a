// Lines of the route table of every sort, against the C library's own scanner.
#include <cstdio>
#include <random>

#include "text_fixture.h"
#include "textrec/keyword_tables.h"
#include "textrec/route_entry.h"
#include "textrec/service_parameters.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;

struct expected_route {
  std::uint32_t message;  // that ends the parse, 0 when the line is a route
  route_entry route;
};

struct scanned_fields {
  char text[6][19];
  short hop_count;
  int count;
};

scanned_fields scanned(const std::string& value) {
  scanned_fields out = {};
  out.count = std::sscanf(value.c_str(), "%18s %16s %16s %16s %16s %16s %hd", out.text[0], out.text[1], out.text[2],
                          out.text[3], out.text[4], out.text[5], &out.hop_count);
  return out;
}

std::uint8_t number_of(const value_word* list, const char* text) {
  while (std::strcmp(list->text, "NULL") != 0 && std::strcmp(list->text, text) != 0) ++list;
  return std::strcmp(list->text, "NULL") == 0 ? 255 : static_cast<std::uint8_t>(list->number);
}

expected_route expected_of(const std::string& line) {
  expected_route out = {};
  scanned_fields line_fields = scanned(line.substr(0, line.find(':')));
  const bool with_parameters = line_fields.count == 6 || line_fields.count == 7;
  if (!with_parameters && line_fields.count != 2 && line_fields.count != 3) return {36415, {}};
  for (unsigned i = 0; i < service_parameter_count; ++i)
    out.route.parameters[i] = with_parameters ? number_of(service_parameters[i], line_fields.text[i + 1]) : 255;
  if (!std::strchr(line_fields.text[0], '.')) return {36415, {}};
  char* position = nullptr;
  const char* rgn = strtok_r(line_fields.text[0], ".", &position);
  if (!rgn) rgn = "";
  const char* ren = position ? position : "";
  if (std::strlen(rgn) > 8 || std::strlen(ren) > 8) return {36379, {}};
  const char* connection = line_fields.text[with_parameters ? 5 : 1];
  if (std::strlen(connection) > 15) return {36379, {}};
  std::memcpy(out.route.rgn, rgn, std::strlen(rgn));
  std::memcpy(out.route.ren, ren, std::strlen(ren));
  std::memcpy(out.route.connection, connection, std::strlen(connection));
  if (line_fields.count == 7) out.route.hop_count = static_cast<std::uint16_t>(line_fields.hop_count);
  if (line_fields.count == 3) out.route.hop_count = static_cast<std::uint16_t>(std::atoi(line_fields.text[2]));
  return out;
}

class RouteModel : public zvrtest::TextTest {};

TEST_F(RouteModel, EveryLineIsReadAsTheCLibraryScansIt) {
  constexpr const char* pieces[] = {"R1.E1", "RGNRGNRG.RENRENRE", "RGNRGNRGN.E", "R.RENRENREN", "A.B.C", ".E", "R.", ".",
                                    "FAST", "LEVEL2", "0DATA", "ANY", "CONN1", "CONNECTION_15_B", "CONNECTION_16_BY",
                                    "3", "-4", "+5", "070", "12x", "-", "40000", "x", "R1.E1CONNECTION_BEHIND"};
  constexpr const char* borders[] = {" ", "  ", "\t", " \v", "\r", "", ":"};
  std::mt19937 random(9401);
  const auto one_of = [&](const auto& list) { return list[random() % std::size(list)]; };
  unsigned routes = 0;
  for (int round = 0; round < 40000; ++round) {
    std::string line = random() % 8 == 0 ? " " : "";
    for (auto count = random() % 9 + 1; count > 0; --count)
      line += std::string(one_of(pieces)) + borders[random() % (random() % 8 == 0 ? std::size(borders) : 3)];
    const expected_route expected = expected_of(line);
    const zvrtest::ParsedText got = parsed(rte_keywords, line, 2048);
    ASSERT_EQ(expected.message == 0 ? DBE_OK : DBE_BAD_RECORD, got.rc) << line;
    if (expected.message != 0) {
      ASSERT_EQ(expected.message, got.faults.back().number) << line;
      continue;
    }
    ++routes;
    ASSERT_EQ(1u, got.u16(0)) << line;
    ASSERT_EQ(0, std::memcmp(got.record.data() + route_head_len, &expected.route, sizeof expected.route)) << line;
  }
  EXPECT_LT(5000u, routes);
}

}  // namespace
