#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class RecordCommands : public testing::Test {
 protected:
  void SetUp() override {
    const tool_result made = base.init();
    ASSERT_EQ(made.exit, 0) << made.err;
  }
  tool_result put(const std::string& type, const std::string& lines) { return base.tool({"put", type}, lines); }
  std::vector<std::string> names(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"list", "trg"});
    std::vector<std::string> all;
    for (const std::string& line : base.tool(arguments).lines())
      all.push_back(zvradm::json::parse(line)["trg_name"].get<std::string>());
    return all;
  }
  scratch_base base;
};

TEST_F(RecordCommands, PutAnswersALineForEachRecord) {
  const tool_result result = put("trg", R"({"trg_name":"BERGEN","trg_type":130})"
                                        "\n\n"
                                        R"({"type":"trg","trg_name":"BERGEN","description":"again","trg_type":130})");
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(result.lines(), ElementsAre(R"({"line":1,"rc":0,"code":"DBE_OK"})",
                                          R"({"line":3,"rc":8196,"code":"DBE_RECORD_REPLACED"})"));
}

TEST_F(RecordCommands, PutTellsANameThatIsMisspeltAndNotThatItIsMissing) {
  EXPECT_THAT(put("trg", R"({"trg_nam":"A","trg_type":130})").err, HasSubstr("line 1: trg_nam: unknown field"));
}

TEST_F(RecordCommands, PutTellsRefusedRecordsAndStoresTheOthers) {
  const tool_result result = put("trg", R"({"trg_name":"A","trg_type":130,"srv_name":"NOBODY"})"
                                        "\n"
                                        R"({"trg_name":"B","colour":"red"})"
                                        "\n"
                                        R"(not JSON)"
                                        "\n"
                                        R"({"description":"nameless"})"
                                        "\n"
                                        R"({"trg_name":"C","trg_type":130})");
  EXPECT_EQ(result.exit, 1);
  const auto lines = result.lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], R"({"line":1,"rc":8200,"code":"DBE_NO_TARGET"})");
  EXPECT_EQ(lines[1], R"({"line":2,"rc":8195,"code":"DBE_BAD_RECORD","field":"colour","error":"unknown field"})");
  EXPECT_THAT(lines[2], HasSubstr("not JSON at byte"));
  EXPECT_THAT(lines[3], HasSubstr(R"("field":"trg_name","error":"is missing")"));
  EXPECT_EQ(lines[4], R"({"line":5,"rc":0,"code":"DBE_OK"})");
  EXPECT_THAT(result.err, HasSubstr("line 1: put trg \"A\": DBE_NO_TARGET (8200)"));
  EXPECT_THAT(result.err, HasSubstr("line 2: colour: unknown field"));
  EXPECT_THAT(names({}), ElementsAre("C", "OSLO"));
}

TEST_F(RecordCommands, PutRefusesAnEmptyNameInEitherForm) {
  const tool_result result = put("trg", R"({"trg_name":"","trg_type":130})"
                                        "\n"
                                        R"({"trg_name":{"hex":""},"trg_type":130})");
  EXPECT_EQ(result.exit, 1);
  const auto lines = result.lines();
  ASSERT_EQ(lines.size(), 2u);
  for (const std::string& line : lines) EXPECT_THAT(line, HasSubstr(R"("field":"trg_name","error":"is empty")"));
  EXPECT_THAT(names({}), ElementsAre("OSLO"));
}

TEST_F(RecordCommands, PutOfATypeThatIsOnlyReadIsRefusedAtOnce) {
  const tool_result result = put("ua", "{}\n{}\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("put ua: DBE_BAD_DB_ID (8193)"));
}

TEST_F(RecordCommands, PutReadsAFileToo) {
  write_file(base.file("lines"), R"({"trg_name":"A","trg_type":130})");
  EXPECT_EQ(base.tool({"put", "trg", base.file("lines")}).exit, 0);
  EXPECT_EQ(base.tool({"put", "trg", base.file("nothing")}).exit, 1);
}

TEST_F(RecordCommands, PutWithUpdateKeepsTheOtherFields) {
  put("trg", R"({"trg_name":"A","trg_type":130,"description":"first","contact_name":"K. Lund"})");
  ASSERT_EQ(base.tool({"put", "trg", "--update"}, R"({"trg_name":"A","description":"second"})").exit, 0);
  const auto record = base.tool({"get", "trg", "A"}).json();
  EXPECT_EQ(record["description"], "second");
  EXPECT_EQ(record["contact_name"], "K. Lund");
  const tool_result missing = base.tool({"put", "trg", "--update"}, R"({"trg_name":"Z","description":"x"})");
  EXPECT_EQ(missing.exit, 1);
  EXPECT_EQ(missing.json()["rc"], 8194);
}

TEST_F(RecordCommands, OmittedFieldsAreZero) {
  put("trg", R"({"trg_name":"A","trg_type":130,"description":"first"})");
  put("trg", R"({"trg_name":"A","trg_type":130})");
  EXPECT_EQ(base.tool({"get", "trg", "A"}).json()["description"], "");
}

TEST_F(RecordCommands, GetPrintsTheWholeRecordOrItsHead) {
  put("trg", R"({"trg_name":"A","trg_type":130,"srv_name":"OSLO","hw_parms":[{"name":"disks","value":"2"}]})");
  const auto whole = base.tool({"get", "trg", "A"}).json();
  EXPECT_EQ(whole["srv_name"], "OSLO");
  EXPECT_EQ(whole["hw_parms"], zvradm::json::parse(R"([{"name":"disks","value":"2"}])"));
  const auto head = base.tool({"get", "trg", "A", "--len", "192"}).json();
  EXPECT_EQ(head["trg_type"], 130);
  EXPECT_FALSE(head.contains("srv_name"));
  EXPECT_EQ(base.tool({"get", "trg", "A", "--len", "64"}).out, "{\"trg_name\":\"A\"}\n");
  EXPECT_EQ(base.tool({"get", "trg", "A", "--words"}).json()["trg_type"], zvradm::json::parse(R"(["CLIENT","REMOTE"])"));
}

TEST_F(RecordCommands, GetOfAMissingRecordTellsNameAndNumberOfTheCode) {
  const tool_result result = base.tool({"get", "trg", "NOBODY"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("DBE_NOT_FOUND (8194)"));
  EXPECT_THAT(base.tool({"get", "prm", "OSLO"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  EXPECT_THAT(base.tool({"get", "prm", "NOBODY"}).err, HasSubstr("DBE_NO_TARGET (8200)"));
}

TEST_F(RecordCommands, GetAsATableShowsAFieldALine) {
  const tool_result result = base.tool({"get", "trg", "OSLO", "--table"});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.out, HasSubstr("\ntrg_type           SERVER+LOCAL\n")) << result.out;
}

TEST_F(RecordCommands, GetOfTheConfigurationNamesThisInstallation) {
  const auto config = base.tool({"get", "cfg"}).json();
  EXPECT_EQ(config["workstation_name"], "OSLO");
  EXPECT_EQ(config["configuration"], 3);
  EXPECT_EQ(config["max_targets"], 10000);
}

TEST_F(RecordCommands, PutOfTheConfigurationChangesMemoryAndNotTheFile) {
  const std::string file = read_file(base.file("orvo.cfg"));
  const tool_result bare = base.tool({"put", "cfg"}, R"({"max_requests":77})");
  EXPECT_EQ(bare.exit, 1);
  EXPECT_EQ(bare.json()["field"], "workstation_name");
  EXPECT_THAT(bare.err, HasSubstr("put --update keeps what is left out"));
  const tool_result result = base.tool({"put", "cfg", "--update"}, R"({"max_requests":77})");
  EXPECT_EQ(result.out, "{\"line\":1,\"rc\":8196,\"code\":\"DBE_RECORD_REPLACED\"}\n");
  EXPECT_EQ(base.tool({"get", "cfg"}).json()["max_requests"], 77);
  EXPECT_EQ(read_file(base.file("orvo.cfg")), file);
}

TEST_F(RecordCommands, GetOfAUserAnswersTheLevel) {
  write_file(base.file("users"), "klund 1\n");
  const tool_result known = base.tool({"get", "ua", "klund"});
  ASSERT_EQ(known.exit, 0) << known.err;
  EXPECT_EQ(known.json()["user_name"], "klund");
  EXPECT_EQ(known.json()["level"], 1);
  EXPECT_THAT(base.tool({"get", "ua", "nobody-here"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  EXPECT_THAT(base.tool({"del", "ua", "klund"}).err, HasSubstr("DBE_BAD_DB_ID (8193)"));
}

TEST_F(RecordCommands, ParametersHardwareAndShadowHangOnTheirTarget) {
  for (const char* type : {"prm", "thw", "sht"}) {
    const std::string list = std::string(type) == "thw" ? "hw_parms" : "parms";
    const tool_result result =
        put(type, "{\"trg_name\":\"OSLO\",\"" + list +
                      "\":[{\"name\":\"one\",\"value\":\"1\"},{\"name\":\"two\",\"value\":\"2\"}]}");
    ASSERT_EQ(result.exit, 0) << type << result.err;
    EXPECT_EQ(base.tool({"get", type, "OSLO"}).json()[list].size(), 2u) << type;
    EXPECT_EQ(base.tool({"del", type, "OSLO"}).exit, 0) << type;
    EXPECT_EQ(base.tool({"get", type, "OSLO"}).exit, 1) << type;
  }
}

TEST_F(RecordCommands, DelTakesATarget) {
  put("trg", R"({"trg_name":"A","trg_type":130})");
  EXPECT_EQ(base.tool({"del", "trg", "A"}).exit, 0);
  EXPECT_THAT(base.tool({"del", "trg", "A"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
}

TEST_F(RecordCommands, DelRefusesTheLocalTargetWithoutForce) {
  const tool_result refused = base.tool({"del", "trg", "OSLO"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err, HasSubstr("--force"));
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 0);
  EXPECT_EQ(base.tool({"del", "trg", "OSLO", "--force"}).exit, 0);
}

class ListCommand : public RecordCommands {
 protected:
  void SetUp() override {
    RecordCommands::SetUp();
    const tool_result stored = put("trg",
        R"({"trg_name":"AA","trg_type":"CLIENT","trg_os":"DOS","trg_mode":"PULL","srv_name":"OSLO"})" "\n"
        R"({"trg_name":"AB1","trg_type":["REMOTE","CLIENT"],"trg_os":"SOLARIS","trg_mode":"PUSH"})" "\n"
        R"({"trg_name":"AB2","trg_type":["REMOTE","SERVER"],"trg_os":20,"trg_mode":4})" "\n"
        R"({"trg_name":"AC","trg_type":"MOBILE","trg_os":99,"trg_mode":5,"srv_name":"AB2"})");
    ASSERT_EQ(stored.exit, 0) << stored.err;
  }
};

TEST_F(ListCommand, ListsAllInTheOrderOfNames) { EXPECT_THAT(names({}), ElementsAre("AA", "AB1", "AB2", "AC", "OSLO")); }

TEST_F(ListCommand, FiltersByNameAndItsOpposite) {
  EXPECT_THAT(names({"--name", "AB*"}), ElementsAre("AB1", "AB2"));
  EXPECT_THAT(names({"--name", "AB"}), ElementsAre("AB1", "AB2"));
  EXPECT_THAT(names({"--name", "AB*", "--exclude"}), ElementsAre("AA", "AC", "OSLO"));
}

TEST_F(ListCommand, AFilterAboveAllNamesGivesAnEmptyList) {
  const tool_result result = base.tool({"list", "trg", "--name", "ZZ"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out, "");
}

TEST_F(ListCommand, FiltersByType) {
  EXPECT_THAT(names({"--type", "8"}), ElementsAre("AB2", "OSLO"));
  EXPECT_THAT(names({"--type", "LOCAL"}), ElementsAre("AC", "OSLO")) << "a mobile client counts as local";
}

TEST_F(ListCommand, FiltersByMode) {
  EXPECT_THAT(names({"--mode", "5"}), ElementsAre("AA", "AB2", "AC"));
  EXPECT_THAT(names({"--mode", "4"}), ElementsAre("AB2"));
}

TEST_F(ListCommand, FiltersBySystem) {
  EXPECT_THAT(names({"--os", "SOLARIS"}), ElementsAre("AB1", "AC")) << "99 is any system";
  EXPECT_THAT(names({"--os", "0x100000"}), ElementsAre("AB2", "AC"));
}

TEST_F(ListCommand, FiltersByServer) {
  EXPECT_THAT(names({"--server", "AB2"}), ElementsAre("AB2", "AC"));
  EXPECT_THAT(names({"--server", "AA"}), IsEmpty());
}

TEST_F(ListCommand, GivesNamesOnly) {
  EXPECT_EQ(base.tool({"list", "trg", "--names"}).lines()[0], R"({"trg_name":"AA"})");
  EXPECT_THAT(names({"--names"}), ElementsAre("AA", "AB1", "AB2", "AC", "OSLO"));
}

TEST_F(ListCommand, GivesAsMuchOfEachRecordAsAsked) {
  EXPECT_FALSE(zvradm::json::parse(base.tool({"list", "trg"}).lines()[0]).contains("srv_name"));
  EXPECT_EQ(zvradm::json::parse(base.tool({"list", "trg", "--len", "256"}).lines()[0])["srv_name"], "OSLO");
}

TEST_F(ListCommand, ATableHasAHeadAndTheServersNames) {
  const auto lines = base.tool({"list", "trg", "--table"}).lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_THAT(lines[0], HasSubstr("srv_name"));
  EXPECT_THAT(lines[1], HasSubstr("OSLO"));
  EXPECT_THAT(lines[4], HasSubstr("AB2"));
}

TEST_F(ListCommand, ATableHasTheColumnsThatItsRecordsCanFill) {
  const auto head = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"list", "trg", "--table"});
    return base.tool(arguments).lines().at(0);
  };
  EXPECT_THAT(head({}), Not(HasSubstr("lan_address")));
  EXPECT_THAT(head({"--len", "21724"}), HasSubstr("lan_address"));
  EXPECT_EQ(head({"--names"}), "trg_name");
  put("prm", R"({"trg_name":"AA","parms":[{"name":"n","value":"v"},{"name":"m","value":"w"}]})");
  const auto parameters = base.tool({"list", "prm", "--table"}).lines();
  ASSERT_EQ(parameters.size(), 2u);
  EXPECT_THAT(parameters[0], HasSubstr("parms"));
  EXPECT_THAT(parameters[1], testing::EndsWith("2"));
}

TEST_F(ListCommand, ListsParameterRecordsOfAllTargets) {
  put("prm", R"({"trg_name":"AA","parms":[{"name":"n","value":"v"}]})");
  put("prm", R"({"trg_name":"AC","parms":[]})");
  const auto lines = base.tool({"list", "prm"}).lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr(R"("parms":[{"name":"n","value":"v"}])"));
}

TEST_F(ListCommand, ATypeWithoutListsIsRefusedByTheLibrary) {
  EXPECT_THAT(base.tool({"list", "thw"}).err, HasSubstr("DBE_BAD_DB_ID (8193)"));
}

}  // namespace
