#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;

// Targets whose names, servers and bytes are as awkward as they may be.
constexpr const char* awkward_records =
    R"({"type":"trg","trg_name":"CLIENT","description":"before its server","trg_type":130,"srv_name":"ZENTRUM","trg_mode":8})" "\n"
    R"({"type":"trg","trg_name":"ZENTRUM","rgn":"FULLNAME","ren":"EIGHTCHR","trg_type":136,"srv_name":"RING-A"})" "\n"
    R"({"type":"trg","trg_name":"RING-A","trg_type":136,"srv_name":"RING-B"})" "\n"
    R"({"type":"trg","trg_name":"RING-B","trg_type":136,"srv_name":"RING-A"})" "\n"
    R"({"type":"trg","trg_name":"Åse \"quoted\" \\","trg_type":130,"carried140":"00ff00ff","contact_name":{"hex":"53f872"},"carried702":"0100"})" "\n"
    R"({"type":"thw","trg_name":"CLIENT","hw_parms":[{"name":"memory","value":"512"}]})" "\n"
    R"({"type":"prm","trg_name":"RING-A","parms":[{"name":"short","value":"v"},{"name":"","value":""}]})" "\n"
    R"({"type":"sht","trg_name":"CLIENT","parms":[{"name":"s","value":"t"}]})" "\n";

class TransferCommands : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(from.init().exit, 0);
    ASSERT_EQ(to.init().exit, 0);
  }
  scratch_base from, to;
};

TEST_F(TransferCommands, WhatIsExportedAndImportedComesOutTheSame) {
  const tool_result filled = from.tool({"import", "-"}, awkward_records);
  ASSERT_EQ(filled.exit, 0) << filled.err;
  EXPECT_EQ(filled.out, "{\"records\":8,\"added\":8,\"replaced\":0,\"refused\":0}\n");
  const tool_result exported = from.tool({"export"});
  ASSERT_EQ(exported.exit, 0) << exported.err;
  EXPECT_EQ(exported.lines().size(), 9u);
  for (const bool transaction : {true, false}) {
    const scratch_base other;
    ASSERT_EQ(other.init().exit, 0);
    std::vector<std::string> arguments{"import", "-"};
    if (!transaction) arguments.push_back("--no-transaction");
    const tool_result imported = other.tool(arguments, exported.out);
    ASSERT_EQ(imported.exit, 0) << imported.err;
    EXPECT_EQ(other.tool({"export"}).out, exported.out);
    EXPECT_EQ(other.tool({"server-of", "RING-B"}).json()["srv_name"], "RING-A");
    EXPECT_EQ(other.tool({"server-of", "RING-A"}).json()["srv_name"], "RING-B");
  }
}

TEST_F(TransferCommands, ServersStandBeforeTheirClients) {
  from.tool({"import", "-"}, awkward_records);
  const std::string text = from.tool({"export", "trg"}).out;
  EXPECT_LT(text.find(R"("trg_name":"ZENTRUM")"), text.find(R"("trg_name":"CLIENT")"));
  EXPECT_EQ(text.find("\"thw\""), std::string::npos);
}

TEST_F(TransferCommands, ARenamedTargetTakesItsRecordsAlong) {
  from.tool({"import", "-"}, awkward_records);
  ASSERT_EQ(from.tool({"rename-target", "CLIENT", "CUSTOMER"}).exit, 0);
  const std::string text = from.tool({"export"}).out;
  EXPECT_EQ(text.find("\"CLIENT\""), std::string::npos) << text;
  ASSERT_EQ(to.tool({"import", "-"}, text).exit, 0);
  EXPECT_EQ(to.tool({"export"}).out, text);
}

TEST_F(TransferCommands, NothingIsImportedWhenALineIsRefused) {
  const std::string before = to.tool({"export"}).out;
  const tool_result result = to.tool({"import", "-"}, R"({"type":"trg","trg_name":"A","trg_type":130})" "\n"
                                                      R"({"type":"trg","trg_name":"B","colour":"red"})" "\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("line 2: colour: unknown field"));
  EXPECT_THAT(result.err, HasSubstr("nothing was imported"));
  EXPECT_EQ(to.tool({"export"}).out, before);
  EXPECT_EQ(to.tool({"get", "trg", "A"}).exit, 1) << "memory and file agree";
}

TEST_F(TransferCommands, WithoutATransactionTheGoodLinesAreKept) {
  const tool_result result = to.tool({"import", "-", "--no-transaction"},
                                     R"({"type":"trg","trg_name":"A","trg_type":130})" "\n"
                                     R"({"type":"trg","trg_name":"B","trg_type":130,"srv_name":"NOBODY"})" "\n"
                                     R"({"type":"ua"})" "\n"
                                     R"({"trg_name":"C"})" "\n"
                                     R"({"type":"trg","trg_name":"D","trg_type":130})" "\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "{\"records\":5,\"added\":2,\"replaced\":0,\"refused\":3}\n");
  EXPECT_THAT(result.err, HasSubstr("line 2: put trg \"B\": DBE_NO_TARGET (8200)"));
  EXPECT_THAT(result.err, HasSubstr("line 3: type: is not one that can be imported"));
  EXPECT_THAT(result.err, HasSubstr("line 4: type: is missing"));
  EXPECT_EQ(to.tool({"get", "trg", "D"}).exit, 0);
}

TEST_F(TransferCommands, LinesOfAnExportCanBePut) {
  from.tool({"import", "-"}, awkward_records);
  const std::string text = from.tool({"export", "thw"}).out;
  EXPECT_EQ(from.tool({"put", "thw"}, text).json()["rc"], 8196);
}

TEST_F(TransferCommands, AMissingFileIsTold) {
  const tool_result result = to.tool({"import", to.file("nothing.jsonl")});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("nothing.jsonl"));
}

}  // namespace
