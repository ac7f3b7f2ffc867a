// Users, profiles, access keys and groups through the tool.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;
using zvradm::json;

constexpr const char* all_kinds =
    R"({"type":"usr","usr_name":"SIXTEENLETTERS_X","description":"full","profile":"SIXTEENLETTERS_P","tak_mask":4294967295,"login_trgs":["BERGEN","OSLO"],"last_seqno":41,"login_default":3,"carried132":"01"})" "\n"
    R"({"type":"usr","usr_name":"KLUND","all_targets":1})" "\n"
    R"({"type":"apr","name":"SIXTEENLETTERS_P","config":2,"cm":15,"target":1,"carried23":1})" "\n"
    R"({"type":"tak","keys":[{"name":"TAK1","mask":1,"description":"first"},{"name":"","mask":0,"description":""},{"name":"TAK3","mask":4,"description":""}]})" "\n"
    R"({"type":"dak","keys":[{"name":"DAK1","mask":1,"description":"This is DAK1"}]})" "\n"
    R"({"type":"tg","name":"Europe","description":"All","short_name":"EIGHTCHR","group_type":64,"members":["OSLO","","BERGEN"]})" "\n"
    R"({"type":"tg","name":"Empty"})" "\n"
    R"({"type":"dtg","name":"Unix","selection":"os = SOLARIS","carried152":"ff","members":["BERGEN"]})" "\n"
    R"({"type":"trg","trg_name":"BERGEN","trg_type":34})" "\n";

class UserCommands : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(base.init().exit, 0); }
  std::vector<std::string> names(const std::string& type, std::vector<std::string> filters) {
    std::vector<std::string> arguments{"list", type};
    arguments.insert(arguments.end(), filters.begin(), filters.end());
    std::vector<std::string> all;
    for (const std::string& line : base.tool(arguments).lines()) all.push_back(json::parse(line).front());
    return all;
  }
  scratch_base base;
};

TEST_F(UserCommands, RecordsComeBackAsTheyWerePut) {
  ASSERT_EQ(base.tool({"put", "trg"}, R"({"trg_name":"BERGEN","trg_type":34})").exit, 0);
  const std::vector<std::vector<std::string>> gets{
      {"usr", "KLUND", R"({"usr_name":"KLUND","profile":"builder","tak_mask":5,"login_trgs":["BERGEN"]})"},
      {"apr", "builder", R"({"name":"builder","config":1,"cm":3})"},
      {"tg", "Europe", R"({"name":"Europe","members":["BERGEN","OSLO"]})"},
      {"dtg", "Unix", R"({"name":"Unix","selection":"all","members":["OSLO"]})"}};
  for (const auto& one : gets) {
    const std::string type = one[0];
    ASSERT_EQ(base.tool({"put", type}, one[2]).exit, 0) << type;
    const json record = base.tool({"get", type, one[1]}).json();
    const json given = json::parse(one[2]);
    for (const auto& [name, value] : given.items()) EXPECT_EQ(record[name], value) << type << " " << name;
    EXPECT_EQ(base.tool({"put", type, "--update"}, "{\"" + record.begin().key() + "\":\"" + one[1] + "\"}").exit, 0);
    EXPECT_EQ(base.tool({"get", type, one[1]}).json(), record) << type;
    EXPECT_EQ(base.tool({"del", type, one[1]}).exit, 0) << type;
    EXPECT_THAT(base.tool({"get", type, one[1]}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  }
}

TEST_F(UserCommands, ANewGroupIsAnsweredAsTheLibraryDoes) {
  EXPECT_EQ(base.tool({"put", "tg"}, R"({"name":"G"})").json()["rc"], 8196);
}

TEST_F(UserCommands, AccessKeysHaveNoKeyAndAreNotDeleted) {
  EXPECT_THAT(base.tool({"get", "tak"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  const std::string table = R"({"keys":[{"name":"TAK1","mask":1,"description":"This is TAK1"}]})";
  ASSERT_EQ(base.tool({"put", "tak"}, table).json()["rc"], 0);
  EXPECT_EQ(base.tool({"get", "tak"}).out, table + "\n");
  EXPECT_EQ(base.tool({"put", "tak"}, table).json()["rc"], 8196);
  EXPECT_EQ(base.tool({"get", "tak", "NAME"}).exit, 2);
  EXPECT_THAT(base.tool({"del", "tak"}).err, HasSubstr("DBE_BAD_DB_ID (8193)"));
  EXPECT_THAT(base.tool({"list", "dak"}).err, HasSubstr("DBE_BAD_DB_ID (8193)"));
}

TEST_F(UserCommands, ListsTakeTheBeginOfNames) {
  const std::vector<std::pair<std::string, std::string>> types{
      {"usr", "usr_name"}, {"apr", "name"}, {"tg", "name"}, {"dtg", "name"}};
  for (const auto& [type, field] : types) {
    std::string lines;
    for (const char* name : {"A", "AB", "ABC", "B"}) lines += "{\"" + field + "\":\"" + name + "\"}\n";
    ASSERT_EQ(base.tool({"put", type}, lines).exit, 0) << type;
    EXPECT_THAT(names(type, {}), ElementsAre("A", "AB", "ABC", "B")) << type;
    EXPECT_THAT(names(type, {"--name", "AB"}), ElementsAre("AB", "ABC")) << type;
    EXPECT_THAT(names(type, {"--name", "AB*C"}), ElementsAre("AB", "ABC")) << type;
    EXPECT_EQ(base.tool({"list", type, "--names", "--name", "B"}).out, "{\"" + field + "\":\"B\"}\n") << type;
    EXPECT_THAT(base.tool({"list", type, "--table"}).out, HasSubstr("ABC")) << type;
    EXPECT_EQ(base.tool({"list", type, "--server", "OSLO"}).exit, 2) << type;
    EXPECT_EQ(base.tool({"list", type, "--name", std::string(65, 'x')}).exit, 2) << type;
  }
}

TEST_F(UserCommands, ADeletedUserIsNotListedAndItsLastSeqnoGoesOn) {
  base.tool({"put", "usr"}, R"({"usr_name":"KLUND"})" "\n" R"({"usr_name":"KLUND","last_seqno":9})");
  ASSERT_EQ(base.tool({"del", "usr", "KLUND"}).exit, 0);
  EXPECT_EQ(base.tool({"list", "usr"}).out, "");
  EXPECT_EQ(base.tool({"put", "usr"}, R"({"usr_name":"KLUND"})").json()["rc"], 0);
  EXPECT_EQ(base.tool({"get", "usr", "KLUND"}).json()["last_seqno"], 9);
}

TEST_F(UserCommands, RightsHaveWords) {
  ASSERT_EQ(base.tool({"put", "apr"}, R"({"name":"P","config":"modify","cm":"INST&AUTH","dist":"RETRIEVE","target":"own_target"})").exit, 0);
  const json record = base.tool({"get", "apr", "P", "--words"}).json();
  EXPECT_EQ(record["config"], "MODIFY");
  EXPECT_EQ(record["cm"], "INST&AUTH");
  EXPECT_EQ(record["dist"], "RETRIEVE");
  EXPECT_EQ(record["target"], "OWN_TARGET");
  EXPECT_EQ(base.tool({"get", "apr", "P"}).json()["cm"], 5);
}

TEST_F(UserCommands, AuthTellsLevelProfileAndRights) {
  write_file(base.file("users"), "KLUND 2\n");
  base.tool({"put", "usr"}, R"({"usr_name":"KLUND","profile":"builder","tak_mask":5})");
  base.tool({"put", "apr"}, R"({"name":"builder","prep":1})");
  const tool_result told = base.tool({"auth", "KLUND"});
  EXPECT_EQ(told.exit, 0) << told.err;
  const json line = told.json();
  EXPECT_EQ(line["level"], 2);
  EXPECT_EQ(base.tool({"auth", "KLUND", "OSLO"}).err, "");
  EXPECT_THAT(base.tool({"auth", "KLUND", "OSLOO"}).err, HasSubstr("there is no target \"OSLOO\""));
  EXPECT_EQ(line["profile"], "builder");
  EXPECT_EQ(line["tak_mask"], 5);
  EXPECT_EQ(line["rights"]["prep"], "VIEW");
  EXPECT_EQ(line["rights"]["config"], "NONE");
}

TEST_F(UserCommands, AuthTellsWhatIsMissing) {
  write_file(base.file("users"), "NOBODY none\nANNA 1\n");
  const json anna = base.tool({"auth", "ANNA"}).json();
  EXPECT_EQ(anna["level"], 1);
  EXPECT_TRUE(anna["profile"].is_null());
  EXPECT_TRUE(anna["rights"].is_null());
  const tool_result refused = base.tool({"auth", "NOBODY"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err, HasSubstr("DBE_NOT_AUTHORIZED (8216)"));
  EXPECT_THAT(refused.err, HasSubstr("users gives the level 'none'"));
  base.tool({"put", "usr"}, R"({"usr_name":"zvr-unknown","profile":"gone"})");
  const tool_result unknown = base.tool({"auth", "zvr-unknown"});
  EXPECT_EQ(unknown.exit, 1);
  EXPECT_THAT(unknown.err, HasSubstr("DBE_NOT_FOUND (8194): the level is not known"));
  EXPECT_THAT(unknown.err, HasSubstr("a line 'zvr-unknown LEVEL' of " + base.file("users")));
  EXPECT_TRUE(unknown.json()["level"].is_null());
  EXPECT_EQ(unknown.json()["profile"], "gone");
  EXPECT_TRUE(unknown.json()["rights"].is_null());
}

TEST_F(UserCommands, WhatIsExportedAndImportedComesOutTheSame) {
  const tool_result filled = base.tool({"import", "-"}, all_kinds);
  ASSERT_EQ(filled.exit, 0) << filled.err;
  EXPECT_EQ(filled.out, "{\"records\":9,\"added\":9,\"replaced\":0,\"refused\":0}\n");
  const tool_result exported = base.tool({"export"});
  ASSERT_EQ(exported.exit, 0) << exported.err;
  EXPECT_THAT(exported.out, HasSubstr("\"last_seqno\":41"));
  for (const bool transaction : {true, false}) {
    const scratch_base other;
    ASSERT_EQ(other.init().exit, 0);
    std::vector<std::string> arguments{"import", "-"};
    if (!transaction) arguments.push_back("--no-transaction");
    ASSERT_EQ(other.tool(arguments, exported.out).exit, 0);
    EXPECT_EQ(other.tool({"export"}).out, exported.out);
    EXPECT_EQ(other.tool({"import", "-"}, exported.out).json()["replaced"], 10);
  }
}

TEST_F(UserCommands, AnImportNeverLowersTheLastSeqnoOfADeletedUser) {
  base.tool({"put", "usr"}, R"({"usr_name":"KLUND"})" "\n" R"({"usr_name":"KLUND","last_seqno":90})");
  base.tool({"del", "usr", "KLUND"});
  ASSERT_EQ(base.tool({"import", "-"}, R"({"type":"usr","usr_name":"KLUND","last_seqno":9})").exit, 0);
  EXPECT_EQ(base.tool({"get", "usr", "KLUND"}).json()["last_seqno"], 90);
}

TEST_F(UserCommands, NothingIsImportedWhenAGroupNamesNoTarget) {
  const tool_result result =
      base.tool({"import", "-"}, R"({"type":"tak","keys":[{"name":"T","mask":1,"description":""}]})" "\n"
                                 R"({"type":"tg","name":"G","members":["OSLO","NOWHERE"]})" "\n"
                                 R"({"type":"usr","usr_name":"U","login_trgs":["NOWHERE"]})");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("line 2: members: there is no target \"NOWHERE\""));
  EXPECT_THAT(result.err, HasSubstr("line 3: login_trgs: there is no target \"NOWHERE\""));
  EXPECT_EQ(base.tool({"export", "tg", "usr", "tak"}).out, "");
}

TEST_F(UserCommands, AnExportLeavesOutMembersThatAreNoTargetsAnyMore) {
  ASSERT_EQ(base.tool({"import", "-"}, all_kinds).exit, 0);
  ASSERT_EQ(base.tool({"del", "trg", "BERGEN"}).exit, 0);
  const tool_result exported = base.tool({"export", "tg", "dtg", "usr"});
  for (const std::string& line : exported.lines()) EXPECT_EQ(line.find("BERGEN"), std::string::npos) << line;
  const scratch_base other;
  ASSERT_EQ(other.init().exit, 0);
  EXPECT_EQ(other.tool({"import", "-"}, exported.out).exit, 0);
}

}  // namespace
