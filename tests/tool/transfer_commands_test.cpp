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
  // Made and filled with what was exported, it exports the same.
  static void fill_and_export_again(const scratch_base& other, const std::string& exported, bool transaction) {
    ASSERT_EQ(other.init().exit, 0);
    std::vector<std::string> arguments{"import", "-"};
    if (!transaction) arguments.push_back("--no-transaction");
    const tool_result imported = other.tool(arguments, exported);
    ASSERT_EQ(imported.exit, 0) << imported.err;
    EXPECT_EQ(other.tool({"export"}).out, exported);
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
    fill_and_export_again(other, exported.out, transaction);
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_EQ(other.tool({"server-of", "RING-B"}).json()["srv_name"], "RING-A");
    EXPECT_EQ(other.tool({"server-of", "RING-A"}).json()["srv_name"], "RING-B");
  }
}

// Change files whose names and records are as awkward as they may be, in an order in which
// nothing that is named is there yet.
std::string awkward_change_files() {
  // Text behind the only token.
  const std::string odd_name = "00" + std::string(20, 'f') + "41004200" + std::string(122, '0');
  return R"({"type":"cms","trg_name":"CLIENT","cf_name":["A","a.b\\"],"cm_status":0})" "\n"
         R"({"type":"cms","trg_name":"OSLO","cf_name":["A",{"hex":"ff"}],"cm_status":255,"cm_details":"00000001"})" "\n"
         R"({"type":"fst","cf_name":["A","a.b\\"],"product_id":65535,"fileset_id":0,"text290":"x"})" "\n"
         R"({"type":"prd","cf_name":["A","a.b\\"],"product_id":65535,"text80":"Ä","carried680":1})" "\n"
         R"({"type":"prd","cf_name":["A","a.b\\"],"product_id":0})" "\n"
         R"({"type":"cat","cf_name":["A","a.b\\"],"text102":{"hex":"53f872"},"lines":["","two"],"carried2412":"01"})" "\n"
         R"({"type":"cat","cf_name":["A",{"hex":"ff"}],"cf_flags":32})" "\n"
         R"({"type":"cat","cf_name":["","",""],"carried2462":9})" "\n"
         R"({"type":"cat","cf_name":["1","2","3","4","5","6","7","8","9","10","11"]})" "\n"
         "{\"type\":\"cat\",\"cf_name\":{\"hex\":\"" + odd_name + "\"}}\n"
         R"({"type":"trg","trg_name":"CLIENT","trg_type":34})" "\n";
}

TEST_F(TransferCommands, ChangeFilesAndAllThatHangsOnThemComeOutTheSame) {
  const tool_result filled = from.tool({"import", "-"}, awkward_change_files());
  ASSERT_EQ(filled.exit, 0) << filled.err;
  EXPECT_EQ(filled.out, "{\"records\":11,\"added\":11,\"replaced\":0,\"refused\":0}\n");
  const tool_result exported = from.tool({"export"});
  ASSERT_EQ(exported.exit, 0) << exported.err;
  EXPECT_EQ(exported.err, "");
  EXPECT_EQ(exported.lines().size(), 12u);
  for (const bool transaction : {true, false}) {
    const scratch_base other;
    fill_and_export_again(other, exported.out, transaction);
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_EQ(other.tool({"cms", "get", "OSLO", "A.\xFF"}).json()["cm_status"], 255);
  }
}

TEST_F(TransferCommands, NumbersOfChangeFilesAreNotExported) {
  ASSERT_EQ(from.tool({"import", "-"}, awkward_change_files()).exit, 0);
  // The numbers of the other installation run the other way round.
  to.tool({"put", "cat"}, R"({"cf_name":["Z"]})");
  ASSERT_EQ(to.tool({"import", "-"}, from.tool({"export"}).out).exit, 0);
  to.tool({"del", "cat", "Z"});
  EXPECT_EQ(to.tool({"export", "cms"}).out, from.tool({"export", "cms"}).out);
  EXPECT_EQ(to.tool({"export", "cat"}).out, from.tool({"export", "cat"}).out);
}

TEST_F(TransferCommands, OneTypeOfRecordIsExportedAlone) {
  ASSERT_EQ(from.tool({"import", "-"}, awkward_change_files()).exit, 0);
  const std::vector<std::pair<const char*, std::size_t>> counts{{"cat", 5}, {"prd", 2}, {"fst", 1}, {"cms", 2}};
  for (const auto& [type, count] : counts) {
    const auto lines = from.tool({"export", type}).lines();
    EXPECT_EQ(lines.size(), count) << type;
    for (const std::string& line : lines) EXPECT_EQ(zvradm::json::parse(line)["type"], type);
  }
  EXPECT_EQ(to.tool({"put", "cat"}, from.tool({"export", "cat"}).out).exit, 0);
}

TEST_F(TransferCommands, NothingIsStoredWhenAnyLineNamesWhatIsNotThere) {
  const std::string before = to.tool({"export"}).out;
  const tool_result result = to.tool({"import", "-"}, R"({"type":"trg","trg_name":"T","trg_type":34})" "\n"
                                                      R"({"type":"cat","cf_name":["A"]})" "\n"
                                                      R"({"type":"prd","cf_name":["B"],"product_id":1})" "\n"
                                                      R"({"type":"cms","trg_name":"T","cf_name":["A"],"cm_status":1})" "\n"
                                                      R"({"type":"cms","trg_name":"U","cf_name":["A"],"cm_status":1})" "\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("line 3: cf_name: there is no change file \"B\""));
  EXPECT_THAT(result.err, HasSubstr("line 5: trg_name: there is no target \"U\""));
  EXPECT_THAT(result.err, HasSubstr("nothing was imported"));
  EXPECT_EQ(to.tool({"export"}).out, before);
}

// The names behind high numbers cannot be had once change files were deleted, so their
// products cannot be read.
TEST_F(TransferCommands, ProductsThatCannotBeReadAreToldAndTheRestIsExported) {
  ASSERT_EQ(from.tool({"put", "cat"}, R"({"cf_name":["A"]})" "\n" R"({"cf_name":["B"]})" "\n" R"({"cf_name":["C"]})" "\n"
                                      R"({"cf_name":["D"]})").exit, 0);
  ASSERT_EQ(from.tool({"put", "prd"}, R"({"cf_name":["B"],"product_id":1})" "\n" R"({"cf_name":["D"],"product_id":1})").exit, 0);
  EXPECT_EQ(from.tool({"export"}).exit, 0);
  ASSERT_EQ(from.tool({"del", "cat", "A"}).exit, 0);
  ASSERT_EQ(from.tool({"del", "cat", "C"}).exit, 0);
  const tool_result exported = from.tool({"export", "prd"});
  EXPECT_EQ(exported.exit, 1);
  EXPECT_THAT(exported.err, HasSubstr("export prd of \"D\": DBE_NOT_FOUND (8194)"));
  EXPECT_EQ(exported.lines().size(), 1u);
  // New change files take the free numbers, and all can be read again.
  ASSERT_EQ(from.tool({"put", "cat"}, R"({"cf_name":["E"]})").exit, 0);
  EXPECT_EQ(from.tool({"export", "prd"}).lines().size(), 2u);
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
