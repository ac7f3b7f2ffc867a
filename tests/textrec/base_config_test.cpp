// The base configuration record as text.
#include "textrec/base_config.h"

#include <gtest/gtest.h>
#include <zvrco/zvrco.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using zvrdb::textrec::base_config_len;
using zvrdb::textrec::base_config_text_max;
using zvrdb::textrec::unparse_cfg;

struct Config {
  Config& u8(std::size_t offset, unsigned value) {
    bytes[offset] = static_cast<unsigned char>(value);
    return *this;
  }
  Config& u16(std::size_t offset, std::uint16_t value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
    return *this;
  }
  Config& u32(std::size_t offset, std::uint32_t value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
    return *this;
  }
  Config& text(std::size_t offset, std::string_view value) {
    std::memcpy(bytes.data() + offset, value.data(), value.size());
    return *this;
  }
  std::string print() const {
    std::vector<char> out(base_config_text_max, '!');
    const std::uint32_t length = unparse_cfg(nullptr, out.data(), bytes.data());
    EXPECT_EQ(out[length], 0);
    EXPECT_EQ(std::strlen(out.data()), length);
    return out.data();
  }
  bool prints(const std::string& line) const {
    return ("\n" + print()).find("\n" + line + "\n") != std::string::npos;
  }

  std::vector<unsigned char> bytes = std::vector<unsigned char>(base_config_len);
};

// The record that the printed text is read as.
std::vector<unsigned char> read_back(const Config& config) {
  std::vector<unsigned char> record(base_config_len);
  std::uint32_t line = 0;
  char reason[200] = {};
  EXPECT_EQ(co_parse_config(config.print().c_str(), record.data(), &line, reason, sizeof reason), CO_OK)
      << "line " << line << ": " << reason;
  return record;
}

TEST(BaseConfigText, AnEmptyRecordPrintsItsFixedLinesInOrder) {
  EXPECT_EQ(Config().print(),
            "WORKSTATION NAME:     \n"
            "MESSAGE LOG LEVEL:    M\n"
            "LAN AUTHORIZATION:    0\n"
            "LOG FILE SIZE:        0\n"
            "TRACE FILE SIZE:      0\n"
            "API TRACE FILE SIZE:  0\n"
            "TCP/IP PORT:          0\n"
            "MAX TARGETS:          0\n"
            "MAX CONNECTIONS:      0\n"
            "MAX USER INTERFACES:  0\n"
            "CONFIGURATION:        CLIENT\n"
            "MACHINE TYPE:         MK/6\n"
            "PLAN FEATURE:         N\n"
            "FILE PATH:            \n"
            "REPOSITORY:           \n"
            "SERVICE AREA:         \n"
            "BACKUP AREA:          \n"
            "WORK AREA:            \n"
            "AUTHORIZE:   NONE\n"
            "MAX REQUESTS:        0\n"
            "MAX LOCAL TARGETS:   0\n"
            "MAX SERVER CONNS:    0\n"
            "MAX STS:             0\n"
            "DACA IDLE TIME:      0\n"
            "DACA RETRY TIME:     0\n"
            "STS IDLE TIME:       0\n"
            "STS RETRY TIME:      0\n"
            "INVENTORY PROGRAM:   \n"
            "AUTOMATIC CLIENT UPGRADE:  NO\n"
            "TARGET PASSWORD AUTHENTICATION:   NO\n"
            "FILE SYSTEM:    0\n"
            "MAX SERVER TARGETS:  0\n"
            "MAX SNADS ROUTES:    0\n"
            "MAX STS ROUTES:      0\n"
            "MAX ATTEMPTS:   0\n"
            "AUTOMATIC TARGET REGISTRATION:  NO\n"
            "AUTOMATIC TARGET INVENTORY:  NO\n"
            "TARGET MODE:  Unknown\n"
            "EXTEND FILE SYSTEM ON STORE:  NO\n"
            "AUTOMATIC TARGET INFO UPDATE:  NO\n"
            "AUTOMATIC TARGET DELETION:  NO\n"
            "KESTRA ALERT:  NO\n"
            "CONNECTION WINDOW DURATION:      0\n");
}

TEST(BaseConfigText, NumbersComeFromTheirOffsetsAtTheirWidths) {
  const Config config =
      Config().u16(66, 1).u32(68, 11).u32(72, 12).u32(76, 4294967295u).u16(80, 65535).u16(82, 3);
  EXPECT_TRUE(config.prints("LAN AUTHORIZATION:    1"));
  EXPECT_TRUE(config.prints("LOG FILE SIZE:        11"));
  EXPECT_TRUE(config.prints("API TRACE FILE SIZE:  12"));
  EXPECT_TRUE(config.prints("TRACE FILE SIZE:      4294967295"));
  EXPECT_TRUE(config.prints("TCP/IP PORT:          65535"));
  EXPECT_TRUE(config.prints("FILE SYSTEM:    3"));
  const Config limits = Config()
                            .u16(86, 9)
                            .u32(4264, 1)
                            .u32(4268, 2)
                            .u32(4272, 3)
                            .u32(4280, 4)
                            .u32(4284, 5)
                            .u32(4288, 6)
                            .u32(4292, 7)
                            .u32(4296, 8)
                            .u32(4300, 9)
                            .u32(4304, 10)
                            .u32(4308, 11)
                            .u32(4568, 12)
                            .u32(4572, 13)
                            .u32(4576, 14)
                            .u32(4636, 15);
  for (const char* line :
       {"MAX ATTEMPTS:   9", "MAX CONNECTIONS:      1", "MAX TARGETS:          2", "MAX USER INTERFACES:  3",
        "MAX REQUESTS:        4", "MAX LOCAL TARGETS:   5", "MAX SERVER CONNS:    6",
        "MAX STS:             7", "DACA IDLE TIME:      8", "DACA RETRY TIME:     9",
        "STS IDLE TIME:       10", "STS RETRY TIME:      11", "MAX SERVER TARGETS:  12",
        "MAX SNADS ROUTES:    13", "MAX STS ROUTES:      14", "CONNECTION WINDOW DURATION:      15"})
    EXPECT_TRUE(limits.prints(line)) << line;
}

TEST(BaseConfigText, ValuesWithWordsPrintTheirWords) {
  struct {
    std::size_t offset;
    unsigned value;
    const char* line;
  } const cases[] = {
      {85, 1, "CONFIGURATION:        BASE"},
      {85, 2, "CONFIGURATION:        SERVER_NO_COMMS"},
      {85, 3, "CONFIGURATION:        SERVER_WITH_COMMS"},
      {85, 4, "CONFIGURATION:        REMOTE_ADMIN_SERVER"},
      {85, 5, "CONFIGURATION:        REMOTE_ADMIN_BASE"},
      {85, 255, "CONFIGURATION:        REMOTE_ADMIN_SERVER"},
      {84, 1, "MACHINE TYPE:         Unknown"},
      {84, 11, "MACHINE TYPE:         WINDOWS_NT"},
      {84, 13, "MACHINE TYPE:         SINIX"},
      {84, 15, "MACHINE TYPE:         Unknown"},
      {84, 18, "MACHINE TYPE:         WIN95"},
      {84, 24, "MACHINE TYPE:         OS_UNKNOWN"},
      {84, 255, "MACHINE TYPE:         Unknown"},
      {64, 1, "MESSAGE LOG LEVEL:    N"},
      {64, 2, "MESSAGE LOG LEVEL:    D"},
      {4276, 1, "AUTHORIZE:   ALL"},
      {4276, 2, "AUTHORIZE:   Unknown"},
      {4580, 1, "PLAN FEATURE:         Y"},
      {4580, 2, "PLAN FEATURE:         N"},
      {4583, 1, "TARGET MODE:  PULL"},
      {4583, 2, "TARGET MODE:  PUSH"},
      {4277, 1, "AUTOMATIC CLIENT UPGRADE:  YES"},
      {4278, 1, "TARGET PASSWORD AUTHENTICATION:   YES"},
      {4581, 1, "AUTOMATIC TARGET REGISTRATION:  YES"},
      {4582, 1, "AUTOMATIC TARGET INVENTORY:  YES"},
      {4593, 1, "EXTEND FILE SYSTEM ON STORE:  YES"},
      {4610, 1, "AUTOMATIC TARGET INFO UPDATE:  YES"},
      {4611, 1, "AUTOMATIC TARGET DELETION:  YES"},
      {4624, 1, "KESTRA ALERT:  YES"},
      {4624, 7, "KESTRA ALERT:  Unknown"},
  };
  for (const auto& c : cases) EXPECT_TRUE(Config().u8(c.offset, c.value).prints(c.line)) << c.line;
}

TEST(BaseConfigText, TheDefaultFilePathIsNotPrinted) {
  EXPECT_EQ(Config().text(88, ".\\\\").print().find("FILE PATH"), std::string::npos);
  EXPECT_TRUE(Config().text(88, ".\\").prints("FILE PATH:            .\\"));
  EXPECT_TRUE(Config().text(88, "/opt/base").prints("FILE PATH:            /opt/base"));
}

TEST(BaseConfigText, AddressAndUserArePrintedOnlyWhenThereIsOne) {
  EXPECT_TRUE(Config().text(4584, "ADDRESS").prints("TARGET ADDRESS:  ADDRESS"));
  EXPECT_TRUE(Config().text(4594, "daemon").prints("OS USER:  daemon"));
}

TEST(BaseConfigText, ServersEndAtTheFirstEmptyBlockAndComeBeforeTheUser) {
  Config config;
  config.text(1368, "ONE").text(1368 + 350, "TWO").text(1368 + 3 * 350, "FOUR").text(4594, "daemon");
  const std::string text = config.print();
  EXPECT_NE(text.find("SERVER:               ONE\nSERVER:               TWO\nOS USER:  daemon\n"),
            std::string::npos);
  EXPECT_EQ(text.find("FOUR"), std::string::npos);
}

TEST(BaseConfigText, TextThatFillsItsFieldEndsWithIt) {
  Config config;
  config.text(4584, "NINECHARS").u8(4593, 1);
  EXPECT_TRUE(config.prints("TARGET ADDRESS:  NINECHARS"));
  EXPECT_TRUE(Config().text(0, std::string(64, 'W')).prints("WORKSTATION NAME:     " + std::string(64, 'W')));
}

TEST(BaseConfigText, ALineFeedInATextMakesNoFurtherLine) {
  Config config;
  config.text(0, "OSLO\nMAX TARGETS: 0").text(344, "a\nb").text(4584, "\nX").text(1368, "ONE\nTWO").text(1718, "\nX");
  EXPECT_TRUE(config.prints("WORKSTATION NAME:     OSLO"));
  EXPECT_TRUE(config.prints("REPOSITORY:           a"));
  EXPECT_TRUE(config.prints("SERVER:               ONE"));
  const std::string text = config.print();
  EXPECT_EQ(text.find("MAX TARGETS: 0"), std::string::npos);
  EXPECT_EQ(text.find("TARGET ADDRESS"), std::string::npos);
  EXPECT_EQ(text.find('X', text.find("  ONE\n")), std::string::npos);
}

TEST(BaseConfigText, ARecordOfAnyBytesStaysWithinItsText) {
  Config config;
  for (const unsigned char filler : {std::uint8_t{0x01}, std::uint8_t{0x41}, std::uint8_t{0xFF}}) {
    std::fill(config.bytes.begin(), config.bytes.end(), filler);
    EXPECT_LT(config.print().size(), base_config_text_max);
  }
}

TEST(BaseConfigText, WhatIsPrintedReadsBackAsTheSameRecord) {
  Config config;
  config.text(0, "WORKSTATION")
      .u16(64, 2)
      .u16(66, 1)
      .u32(68, 10)
      .u32(72, 20)
      .u32(76, 30)
      .u16(80, 729)
      .u16(82, 1);
  config.u8(84, 11)
      .u8(85, 3)
      .u16(86, 5)
      .text(88, "/opt/base")
      .text(344, "/opt/repository")
      .text(600, "/opt/service");
  config.text(856, "/opt/backup").text(1112, "/opt/work").text(1368, "ONE").text(1368 + 350, "TWO");
  config.u32(4264, 1)
      .u32(4268, 2000)
      .u32(4272, 3)
      .u8(4276, 1)
      .u8(4277, 1)
      .u8(4278, 1)
      .u32(4280, 4)
      .u32(4284, 5);
  config.u32(4288, 6).u32(4292, 7).u32(4296, 8).u32(4300, 9).u32(4304, 10).u32(4308, 11).text(4312,
                                                                                              "inventory");
  config.u32(4568, 12).u32(4572, 13).u32(4576, 14).u8(4580, 1).u8(4581, 1).u8(4582, 1).u8(4583, 2);
  config.text(4584, "ADDRESS")
      .u8(4593, 1)
      .text(4594, "daemon")
      .u8(4610, 1)
      .u8(4611, 1)
      .u8(4624, 1)
      .u32(4636, 15);
  EXPECT_EQ(read_back(config), config.bytes);
}

struct TextField {
  std::size_t offset;
  std::size_t width;
};
constexpr TextField text_fields[] = {{0, 64},     {88, 256},   {344, 256},  {600, 256}, {856, 256},
                                     {1112, 256}, {1368, 350}, {4312, 256}, {4584, 9},  {4594, 16},
                                     {1718, 350}, {2068, 350}, {2418, 350}, {2768, 350}};

TEST(BaseConfigText, EveryTextThatFillsItsFieldReadsBackAsTheSameRecord) {
  Config all;
  for (const TextField& field : text_fields) {
    Config config;
    // The servers before this one, or the list would end before it.
    for (std::size_t at = 1368; field.width == 350 && at < field.offset; at += 350) config.text(at, "BEFORE");
    config.text(field.offset, std::string(field.width, 'f'));
    EXPECT_EQ(read_back(config), config.bytes) << field.offset;
    all.text(field.offset, std::string(field.width, 'a'));
  }
  EXPECT_EQ(read_back(all), all.bytes);
}

TEST(BaseConfigText, EveryNumberAtItsGreatestReadsBackAsTheSameRecord) {
  Config config;
  for (const std::size_t offset : {66, 80, 82, 86}) config.u16(offset, 0xFFFF);
  for (const std::size_t offset :
       {68, 72, 76, 4264, 4268, 4272, 4280, 4284, 4288, 4292, 4296, 4300, 4304, 4308, 4568, 4572, 4576, 4636})
    config.u32(offset, 0xFFFFFFFF);
  EXPECT_EQ(read_back(config), config.bytes);
}

// A value that has no word of its own comes back as another one of the same word.
TEST(BaseConfigText, EveryValueOfAWordFieldPrintsTheSameWordAfterItWasRead) {
  for (const std::size_t offset :
       {64, 84, 85, 4276, 4277, 4278, 4580, 4581, 4582, 4583, 4593, 4610, 4611, 4624})
    for (unsigned value = 0; value < 256; ++value) {
      Config config;
      config.u8(offset, value);
      Config back;
      back.bytes = read_back(config);
      ASSERT_EQ(back.print(), config.print()) << offset << ": " << value;
    }
}

}  // namespace
