// The text of the base configuration and its record.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "zvrco/zvrco.h"

namespace {

struct Parsed {
  std::array<unsigned char, CO_CONFIG_LENGTH + 8> bytes{};
  uint16_t result = 0;
  uint32_t line = 0;
  char reason[160] = "";
  explicit Parsed(const std::string& text) {
    memset(bytes.data() + CO_CONFIG_LENGTH, 0x77, 8);
    result = co_parse_config(text.c_str(), bytes.data(), &line, reason, sizeof reason);
    for (size_t i = CO_CONFIG_LENGTH; i < bytes.size(); ++i) EXPECT_EQ(bytes[i], 0x77);
  }
  uint32_t number(size_t offset, size_t length) const {
    uint32_t value = 0;
    memcpy(&value, bytes.data() + offset, length);  // the low bytes first, as everywhere here
    return value;
  }
  std::string text(size_t offset) const { return reinterpret_cast<const char*>(bytes.data()) + offset; }
};

struct NumberRow {
  const char* keyword;
  size_t offset;
  size_t length;
};
constexpr NumberRow kNumbers[] = {
    {"LAN AUTHORIZATION", 66, 2},    {"LOG FILE SIZE", 68, 4},
    {"API TRACE FILE SIZE", 72, 4},  {"TRACE FILE SIZE", 76, 4},
    {"TCP/IP PORT", 80, 2},          {"FILE SYSTEM", 82, 2},
    {"MAX ATTEMPTS", 86, 2},         {"MAX CONNECTIONS", 4264, 4},
    {"MAX TARGETS", 4268, 4},        {"MAX USER INTERFACES", 4272, 4},
    {"MAX REQUESTS", 4280, 4},       {"MAX LOCAL TARGETS", 4284, 4},
    {"MAX SERVER CONNS", 4288, 4},   {"MAX STS", 4292, 4},
    {"DACA IDLE TIME", 4296, 4},     {"DACA RETRY TIME", 4300, 4},
    {"STS IDLE TIME", 4304, 4},      {"STS RETRY TIME", 4308, 4},
    {"MAX SERVER TARGETS", 4568, 4}, {"MAX SNADS ROUTES", 4572, 4},
    {"MAX STS ROUTES", 4576, 4},     {"CONNECTION WINDOW DURATION", 4636, 4},
};

TEST(Config, EveryNumberGoesToItsPlaceAndNowhereElse) {
  for (const NumberRow& row : kNumbers) {
    const uint32_t value = row.length == 2 ? 0xFFFEu : 0xFFFFFFFEu;
    const Parsed parsed(std::string(row.keyword) + ":   " + std::to_string(value) + "\n");
    ASSERT_EQ(parsed.result, CO_OK) << row.keyword << parsed.reason;
    EXPECT_EQ(parsed.number(row.offset, row.length), value) << row.keyword;
    for (size_t i = 0; i < CO_CONFIG_LENGTH; ++i)
      if ((i < row.offset || i >= row.offset + row.length) && (i < 88 || i >= 92)) {
        ASSERT_EQ(parsed.bytes[i], 0) << row.keyword << " at " << i;
      }
    EXPECT_EQ(Parsed(std::string(row.keyword) + ": " + std::to_string(uint64_t{value} + 2) + "\n").result,
              CO_BAD_ARGUMENT)
        << row.keyword;
    EXPECT_EQ(Parsed(std::string(row.keyword) + ": 12x\n").result, CO_BAD_ARGUMENT) << row.keyword;
    EXPECT_EQ(Parsed(std::string(row.keyword) + ":\n").result, CO_BAD_ARGUMENT) << row.keyword;
    EXPECT_EQ(Parsed(std::string(row.keyword) + ": -1\n").result, CO_BAD_ARGUMENT) << row.keyword;
  }
}

struct TextRow {
  const char* keyword;
  size_t offset;
  size_t room;
};
constexpr TextRow kTexts[] = {
    {"WORKSTATION NAME", 0, 64}, {"FILE PATH", 88, 256},           {"REPOSITORY", 344, 256},
    {"SERVICE AREA", 600, 256},  {"BACKUP AREA", 856, 256},        {"WORK AREA", 1112, 256},
    {"SERVER", 1368, 350},       {"INVENTORY PROGRAM", 4312, 256}, {"TARGET ADDRESS", 4584, 9},
    {"OS USER", 4594, 16},
};

TEST(Config, EveryTextIsKeptToTheLastByteOfItsRoom) {
  for (const TextRow& row : kTexts) {
    const std::string longest(row.room, 'z');
    const Parsed parsed(std::string(row.keyword) + ": " + longest + "  \r\n");
    ASSERT_EQ(parsed.result, CO_OK) << row.keyword << parsed.reason;
    EXPECT_EQ(parsed.text(row.offset), longest) << row.keyword;
    EXPECT_EQ(parsed.bytes[row.offset + row.room], 0);
    const Parsed over(std::string(row.keyword) + ": " + longest + "z\n");
    EXPECT_EQ(over.result, CO_BAD_ARGUMENT) << row.keyword;
    EXPECT_NE(std::string(over.reason).find(row.keyword), std::string::npos) << over.reason;
  }
}

struct WordRow {
  const char* keyword;
  size_t offset;
  size_t length;
  const char* word;
  uint32_t value;
};
constexpr WordRow kWords[] = {
    {"MESSAGE LOG LEVEL", 64, 2, "D", 2},
    {"MESSAGE LOG LEVEL", 64, 2, "N", 1},
    {"MESSAGE LOG LEVEL", 64, 2, "M", 0},
    {"MACHINE TYPE", 84, 1, "MK/6", 0},
    {"MACHINE TYPE", 84, 1, "MK/7", 2},
    {"MACHINE TYPE", 84, 1, "HP_UX", 3},
    {"MACHINE TYPE", 84, 1, "WIN2K_ADV", 21},
    {"MACHINE TYPE", 84, 1, "WIN2K", 20},
    {"MACHINE TYPE", 84, 1, "MK/900", 14},
    {"MACHINE TYPE", 84, 1, "OS_UNKNOWN", 24},
    {"MACHINE TYPE", 84, 1, "Unknown", 255},
    {"CONFIGURATION", 85, 1, "CLIENT", 0},
    {"CONFIGURATION", 85, 1, "BASE", 1},
    {"CONFIGURATION", 85, 1, "SERVER_NO_COMMS", 2},
    {"CONFIGURATION", 85, 1, "SERVER_WITH_COMMS", 3},
    {"CONFIGURATION", 85, 1, "REMOTE_ADMIN_SERVER", 4},
    {"CONFIGURATION", 85, 1, "REMOTE_ADMIN_BASE", 5},
    {"AUTHORIZE", 4276, 1, "ALL", 1},
    {"AUTHORIZE", 4276, 1, "NONE", 0},
    {"AUTOMATIC CLIENT UPGRADE", 4277, 1, "YES", 1},
    {"TARGET PASSWORD AUTHENTICATION", 4278, 1, "YES", 1},
    {"PLAN FEATURE", 4580, 1, "Y", 1},
    {"PLAN FEATURE", 4580, 1, "N", 0},
    {"AUTOMATIC TARGET REGISTRATION", 4581, 1, "YES", 1},
    {"AUTOMATIC TARGET INVENTORY", 4582, 1, "YES", 1},
    {"TARGET MODE", 4583, 1, "PUSH", 2},
    {"TARGET MODE", 4583, 1, "PULL", 1},
    {"EXTEND FILE SYSTEM ON STORE", 4593, 1, "YES", 1},
    {"AUTOMATIC TARGET INFO UPDATE", 4610, 1, "YES", 1},
    {"AUTOMATIC TARGET DELETION", 4611, 1, "YES", 1},
    {"KESTRA ALERT", 4624, 1, "YES", 1},
};

TEST(Config, EveryWordHasItsValue) {
  for (const WordRow& row : kWords) {
    const Parsed parsed(std::string(row.keyword) + ": " + row.word + " and more\n");
    ASSERT_EQ(parsed.result, CO_OK) << row.keyword << parsed.reason;
    EXPECT_EQ(parsed.number(row.offset, row.length), row.value) << row.keyword << " " << row.word;
    EXPECT_EQ(Parsed(std::string(row.keyword) + ": nonsense\n").result, CO_BAD_ARGUMENT);
    EXPECT_EQ(Parsed(std::string(row.keyword) + ":\n").result, CO_BAD_ARGUMENT);
  }
}

TEST(Config, OrderIsFreeAndCommentsAndEmptyLinesArePassedOver) {
  const Parsed parsed(
      "# head\n\nMAX TARGETS: 0x10\r\n\r\nWORKSTATION NAME:two: words \n#MAX TARGETS: 9\nMAX STS: 4");
  ASSERT_EQ(parsed.result, CO_OK) << parsed.reason;
  EXPECT_EQ(parsed.number(4268, 4), 16u);
  EXPECT_EQ(parsed.text(0), "two: words");
  EXPECT_EQ(parsed.number(4292, 4), 4u);
}

TEST(Config, FaultsAreToldWithTheirLine) {
  struct Fault {
    const char* text;
    uint32_t line;
    const char* reason;
  };
  for (const Fault& fault :
       {Fault{"MAX STS: 1\nMAX STUFF: 2\n", 2, "MAX STUFF is no keyword"},
        Fault{" MAX STS: 1\n", 1, " MAX STS is no keyword"},
        Fault{"MAX STS : 1\n", 1, "MAX STS  is no keyword"},
        Fault{"max sts: 1\n", 1, "max sts is no keyword"},
        Fault{"\n\nno colon\n", 3, "a line is KEYWORD: value"}, Fault{":\n", 1, " is no keyword"},
        Fault{"AUTHORIZE: MAYBE\n", 1, "AUTHORIZE has no value MAYBE"},
        Fault{"MAX STS: 4294967296\n", 1, "the value of MAX STS is above 4294967295"}}) {
    const Parsed parsed(fault.text);
    EXPECT_EQ(parsed.result, CO_BAD_ARGUMENT) << fault.text;
    EXPECT_EQ(parsed.line, fault.line) << fault.text;
    EXPECT_STREQ(parsed.reason, fault.reason);
  }
}

TEST(Config, WhatWasReadBeforeAFaultStays) {
  const Parsed parsed("MAX TARGETS: 5\nnonsense\nMAX TARGETS: 6\n");
  EXPECT_EQ(parsed.result, CO_BAD_ARGUMENT);
  EXPECT_EQ(parsed.number(4268, 4), 5u);
}

TEST(Config, FiveServersFollowOneAnotherAndASixthIsAFault) {
  std::string text;
  for (int i = 0; i < 5; ++i) text += "SERVER:               S" + std::to_string(i) + "\n";
  const Parsed parsed(text);
  ASSERT_EQ(parsed.result, CO_OK) << parsed.reason;
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(parsed.text(1368 + 350 * i), std::to_string(i).insert(0, 1, 'S'));
  const Parsed over(text + "SERVER: S5\n");
  EXPECT_EQ(over.result, CO_BAD_ARGUMENT);
  EXPECT_EQ(over.line, 6u);
}

TEST(Config, AServerLineWithoutANameNamesNoServer) {
  const Parsed parsed("SERVER:\nSERVER: ONE\nSERVER:    \nSERVER: TWO\nSERVER:\nSERVER:\nSERVER:\n");
  ASSERT_EQ(parsed.result, CO_OK) << parsed.reason;
  EXPECT_EQ(parsed.text(1368), "ONE");
  EXPECT_EQ(parsed.text(1368 + 350), "TWO");
  EXPECT_EQ(parsed.text(1368 + 2 * 350), "");
}

TEST(Config, AMissingFilePathIsTheDefaultThatPrintersLeaveOut) {
  EXPECT_EQ(Parsed("").text(88), ".\\\\");
  EXPECT_EQ(Parsed("FILE PATH:            \n").text(88), "");
  EXPECT_EQ(Parsed("FILE PATH: /opt/product\n").text(88), "/opt/product");
}

TEST(Config, AnEndOfFileMarkEndsTheText) {
  const Parsed parsed("MAX STS: 1\n\x1Anonsense\n");
  EXPECT_EQ(parsed.result, CO_OK);
  EXPECT_EQ(parsed.number(4292, 4), 1u);
}

TEST(Config, NullArgumentsAreRefused) {
  unsigned char record[CO_CONFIG_LENGTH] = {};
  EXPECT_EQ(co_parse_config(nullptr, record, nullptr, nullptr, 0), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_parse_config("", nullptr, nullptr, nullptr, 0), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_parse_config("nonsense\n", record, nullptr, nullptr, 0), CO_BAD_ARGUMENT);
}

}  // namespace
