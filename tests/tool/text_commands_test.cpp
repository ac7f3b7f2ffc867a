// Text records through the tool: JSON, the editor, the check.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;
using testing::Not;

class TextCommands : public testing::Test {
 protected:
  void SetUp() override {
    const tool_result made = base.init();
    ASSERT_EQ(made.exit, 0) << made.err;
    unsetenv("VISUAL");
  }
  void TearDown() override {
    unsetenv("EDITOR");
    unsetenv("VISUAL");
  }
  // A shell text that does the editor's work on the file "$1".
  void editor(const std::string& work) {
    write_file(base.file("editor.sh"), work);
    setenv("EDITOR", ("sh " + base.file("editor.sh")).c_str(), 1);
  }
  std::string connection(const std::string& name) { return read_file(base.file("db/snadscon/" + name)); }
  scratch_base base;
};

TEST_F(TextCommands, ConnectionsArePutReadListedAndDeleted) {
  const tool_result put =
      base.tool({"put", "scn"},
                R"({"connection":"B","protocol":"TCP/IP","connection_type":"STS","remote_server":"OSLO"})"
                "\n"
                R"({"connection":"A","protocol":"APPC","send_tp":"TP","next_rgn":"OSLO01","next_ren":"OSLO01"})");
  ASSERT_EQ(put.exit, 0) << put.err;
  EXPECT_THAT(connection("B"), HasSubstr("PROTOCOL:         TCP/IP\nREMOTE SERVER NAME:  OSLO\n"));
  const zvradm::json got = base.tool({"get", "scn", "A", "--words"}).json();
  EXPECT_EQ(got["protocol"], "APPC");
  EXPECT_EQ(got["send_tp"], "TP");
  EXPECT_EQ(got["next_ren"], "OSLO01");
  EXPECT_EQ(got["remote_server"], "OSLO")
      << "derived from the next DSU: the RGN of a local target is the REN of this server";
  const auto listed = base.tool({"list", "scn"}).lines();
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(zvradm::json::parse(listed[0])["connection"], "A");
  EXPECT_EQ(zvradm::json::parse(listed[1])["remote_server"], "OSLO");
  EXPECT_EQ(base.tool({"list", "scn", "--names"}).lines()[1], R"({"connection":"B"})");
  EXPECT_THAT(base.tool({"list", "scn", "--table"}).out, HasSubstr("OSLO01"));
  EXPECT_EQ(base.tool({"del", "scn", "A"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "scn", "A"}).exit, 1);
  EXPECT_THAT(base.tool({"get", "scf"}).err, HasSubstr("no such record; 'zvradm edit scf' makes one"));
  EXPECT_EQ(base.tool({"get", "scn", "../users"}).exit, 1);
}

TEST_F(TextCommands, WhatATextWouldNotGiveBackIsRefused) {
  struct row {
    const char *type, *record, *field, *error;
  };
  for (const row& one : std::initializer_list<row>{
           {"scf", R"({"transmission_hold_time":70000})", "transmission_hold_time", "read as 4464"},
           {"scf", R"({"allocation_failure_retry_time":65536})", "allocation_failure_retry_time", "read as 0"},
           {"ucf", R"({"config_user":3})", "config_user", "read as 0"},
           {"rte", R"({"routes":[{"rgn":"R","ren":"E","connection":""}]})", "routes[0].connection", "read as"},
           {"rte", R"({"routes":[{"rgn":"R","ren":"E","connection":"A B"}]})", "routes[0].connection", "read as"},
           {"scn", R"({"connection":"A","protocol":2,"remote_server":"a\nb"})", "remote_server", "read as"},
           {"scn", R"({"connection":"A","send_tp":"TP"})", "send_tp", "APPC"},
           {"scn", R"({"connection":"A","protocol":2,"next_rgn":"a.b"})", "next_rgn", "read as"},
           {"scn", R"({"connection":"../users"})", "connection", "no name of a connection"}}) {
    const tool_result put = base.tool({"put", one.type}, one.record);
    ASSERT_EQ(put.exit, 1) << one.record << put.out;
    EXPECT_EQ(put.json()["field"], one.field) << one.record << put.out;
    EXPECT_THAT(std::string(put.json()["error"]), HasSubstr(one.error)) << one.record;
    EXPECT_NE(base.tool(one.type == std::string("scn") ? std::vector<std::string>{"get", "scn", "A"} : std::vector<std::string>{"get", one.type}).exit, 0) << one.record;
  }
  EXPECT_EQ(base.tool({"put", "scf"}, R"({"max_crmu":1})").exit, 0);
  EXPECT_EQ(base.tool({"put", "scf", "--update"}, R"({"transmission_hold_time":65536})").exit, 1);
  EXPECT_EQ(base.tool({"get", "scf"}).json()["max_crmu"], 1);
}

TEST_F(TextCommands, RoutesThatAreTooLongForAPutAreToldSo) {
  zvradm::json routes = zvradm::json::array();
  for (int i = 0; i < 1600; ++i)
    routes.push_back({{"rgn", "R" + std::to_string(i)}, {"ren", "E"}, {"connection", "CONNECTION"}});
  const tool_result put = base.tool({"put", "rte"}, zvradm::json{{"routes", routes}}.dump());
  EXPECT_EQ(put.exit, 1);
  EXPECT_THAT(put.err, HasSubstr("longer than the 65535 bytes of a put; 'zvradm edit rte' takes a longer one"));
  routes.erase(routes.begin() + 1000, routes.end());
  EXPECT_EQ(base.tool({"put", "rte"}, zvradm::json{{"routes", routes}}.dump()).exit, 0);
  EXPECT_EQ(base.tool({"get", "rte"}).json()["routes"].size(), 1000u);
}

TEST_F(TextCommands, WhatAGetFillsInMayBePutAgain) {
  ASSERT_EQ(base.tool({"put", "scn"}, R"({"connection":"A","protocol":"APPC","next_rgn":"X","next_ren":"Y"})").exit, 0);
  const std::string got = base.tool({"get", "scn", "A"}).out;
  EXPECT_EQ(base.tool({"put", "scn"}, got).exit, 0);
  EXPECT_EQ(base.tool({"get", "scn", "A"}).out, got);
  write_file(base.file("db/snadscon/B"), "PROTOCOL: TCP/IP\nSEND TP SYMBOLIC DESTINATION: X\n");
  write_file(base.file("db/routetab"), "NETWORK PROTOCOL: APPC\n.E1 D 2\n");
  const tool_result all = base.tool({"export", "scn", "rte"});
  const tool_result again = base.tool({"import", "-"}, all.out);
  EXPECT_EQ(again.exit, 0) << again.err;
  write_file(base.file("db/routetab"), "NETWORK PROTOCOL: BOTH\n");
  EXPECT_EQ(base.tool({"put", "rte"}, base.tool({"get", "rte"}).out).exit, 0);
}

TEST_F(TextCommands, TheSingleRecordsComeBack) {
  for (
      const auto& [type, record] :
      {std::pair{"scf", R"({"origin_hop_count":7,"max_crmu":8,"transmission_hold_time":9})"},
       std::pair{
           "rte",
           R"({"network_protocol":"TCP/IP","routes":[{"rgn":"R","ren":"E","priority":"FAST","protection":"ANY","capacity":"0DATA","security":255,"connection":"A","hop_count":3}]})"},
       std::pair{
           "ucf",
           R"({"cm_user":["INSTALL","ACTIVATE"],"config_admn":"MODIFY","target_prep":"OWN_TARGET"})"}}) {
    const tool_result put = base.tool({"put", type}, record);
    ASSERT_EQ(put.exit, 0) << type << put.err;
    const zvradm::json given = zvradm::json::parse(record);
    const zvradm::json got = base.tool({"get", type, "--words"}).json();
    for (const auto& [name, value] : given.items())
      if (name != "routes" && !value.is_array()) {
        EXPECT_EQ(got[name], value) << type << name;
      }
  }
  EXPECT_EQ(base.tool({"get", "rte"}).json()["routes"][0]["priority"], 240);
  EXPECT_EQ(base.tool({"get", "ucf"}).json()["cm_user"], 9);
  EXPECT_THAT(read_file(base.file("db/routetab")), HasSubstr("R.E  FAST  ANY  0DATA  ANY  A  3\n\n"));
}

TEST_F(TextCommands, ExportAndImportTakeTextRecordsAlong) {
  ASSERT_EQ(
      base.tool({"put", "scn"}, R"({"connection":"B","protocol":2,"connection_type":2,"remote_server":"X"})")
          .exit,
      0);
  ASSERT_EQ(base.tool({"put", "scf"}, R"({"origin_hop_count":7})").exit, 0);
  ASSERT_EQ(base.tool({"put", "ucf"}, R"({"cm_user":9})").exit, 0);
  ASSERT_EQ(
      base.tool({"put", "rte"}, R"({"network_protocol":1,"routes":[{"rgn":"R","ren":"E","connection":"B"}]})")
          .exit,
      0);
  const tool_result exported = base.tool({"export", "scn", "scf", "rte", "ucf"});
  ASSERT_EQ(exported.exit, 0) << exported.err;
  EXPECT_EQ(exported.lines().size(), 4u);
  for (const char* file : {"db/snadscon/B", "db/snadscfg", "db/routetab", "db/user_config"})
    std::filesystem::remove(base.file(file));
  const tool_result imported = base.tool({"import", "-"}, exported.out);
  EXPECT_EQ(imported.exit, 0) << imported.err;
  EXPECT_EQ(base.tool({"export", "scn", "scf", "rte", "ucf"}).out, exported.out);
}

TEST_F(TextCommands, EditReplacesTheTextAndKeepsItsComments) {
  editor(R"(printf '# mine\nTYPE: STS\n' > "$1")");
  const tool_result made = base.tool({"edit", "scn", "OSLO"});
  ASSERT_EQ(made.exit, 0) << made.err;
  EXPECT_THAT(made.out, HasSubstr("scn OSLO: stored"));
  EXPECT_EQ(connection("OSLO"), "# mine\nTYPE: STS\n");
  editor(R"(echo "PROTOCOL: IPX" >> "$1")");
  ASSERT_EQ(base.tool({"edit", "scn", "OSLO"}).exit, 0);
  EXPECT_EQ(connection("OSLO"), "# mine\nTYPE: STS\nPROTOCOL: IPX\n");
  EXPECT_TRUE(std::filesystem::is_empty(base.file("db/tmp")));
  EXPECT_THAT(base.tool({"get", "scn", "OSLO", "--words"}).out, HasSubstr(R"("protocol":"IPX")"));
}

TEST_F(TextCommands, EditBeginsANewRecordWithItsKeywordsAsComments) {
  editor(R"(cp "$1" ")" + base.file("seen") + R"(")");
  const tool_result result = base.tool({"edit", "scn", "NEW"});
  EXPECT_THAT(result.out, HasSubstr("unchanged"));
  EXPECT_THAT(read_file(base.file("seen")), HasSubstr("# PROTOCOL: APPC | TCP/IP | IPX | NBI\n"));
  EXPECT_FALSE(std::filesystem::exists(base.file("db/snadscon/NEW")));
}

TEST_F(TextCommands, EditTellsLineAndReasonAndReplacesNothing) {
  ASSERT_EQ(base.tool({"put", "scf"}, R"({"origin_hop_count":7})").exit, 0);
  const std::string before = read_file(base.file("db/snadscfg"));
  editor(R"(printf '# one\nMAX CRMU: 3\nMAX CRMUS: 4\n' > "$1")");
  const tool_result result = base.tool({"edit", "scf"}, "n\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("scf, line 3: The keyword MAX CRMUS"));
  EXPECT_THAT(result.err, HasSubstr("Back to the editor?"));
  EXPECT_THAT(result.err, HasSubstr("nothing was changed"));
  EXPECT_EQ(read_file(base.file("db/snadscfg")), before);
  const std::string kept = result.err.substr(result.err.rfind("kept in ") + 8);
  const std::string copy = kept.substr(0, kept.find('\n'));
  EXPECT_EQ(read_file(copy), "# one\nMAX CRMU: 3\nMAX CRMUS: 4\n");
  std::filesystem::remove_all(std::filesystem::path(copy).parent_path());
}

TEST_F(TextCommands, EditGoesBackToTheEditorUntilTheTextCanBeRead) {
  editor(
      R"(if grep -q BAD "$1"; then sed -i s/BAD/5/ "$1"; sed -i 's/MAX CRMUS/MAX CRMU/' "$1"; else echo "MAX CRMUS: BAD" > "$1"; fi)");
  const tool_result result = base.tool({"edit", "scf"}, "y\n");
  ASSERT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(read_file(base.file("db/snadscfg")), "MAX CRMU: 5\n");
}

TEST_F(TextCommands, EditRefusesWhatSomebodyElseChangedMeanwhile) {
  ASSERT_EQ(base.tool({"put", "ucf"}, R"({"cm_user":1})").exit, 0);
  editor("echo 'CM_USER: all' > \"$1\"; echo 'CM_USER: none' > " + base.file("db/user_config"));
  const tool_result result = base.tool({"edit", "ucf"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("changed by somebody else"));
  EXPECT_EQ(read_file(base.file("db/user_config")), "CM_USER: none\n");
  const std::string kept = result.err.substr(result.err.rfind("kept in ") + 8);
  std::filesystem::remove_all(std::filesystem::path(kept.substr(0, kept.find('\n'))).parent_path());
  editor("echo 'CM_USER: all' > \"$1\"");
  EXPECT_EQ(base.tool({"edit", "ucf"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "ucf"}).json()["cm_user"], 15);
}

TEST_F(TextCommands, AnEditorThatFailsChangesNothing) {
  editor("echo 'MAX CRMU: 3' > \"$1\"; exit 3");
  const tool_result result = base.tool({"edit", "scf"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("the editor"));
  EXPECT_FALSE(std::filesystem::exists(base.file("db/snadscfg")));
}

TEST_F(TextCommands, AnInterruptWhileTheEditorRunsIsTheEditors) {
  editor(R"sh(p=$PPID
while [ "$(cat /proc/$p/comm)" != zvradm ]; do p=$(awk '/^PPid/ {print $2}' /proc/$p/status); done
kill -INT $p
kill -QUIT $p
echo 'MAX CRMU: 3' > "$1")sh");
  const tool_result result = base.tool({"edit", "scf"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(read_file(base.file("db/snadscfg")), "MAX CRMU: 3\n");
}

TEST_F(TextCommands, EditOfTheBaseConfigurationSaysWhenItTakesEffect) {
  editor("echo 'MAX SNADS ROUTES:    77' >> \"$1\"");
  const tool_result result = base.tool({"edit", "cfg"});
  ASSERT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("takes effect when the shared state is made anew"));
  EXPECT_THAT(read_file(base.file("orvo.cfg")), HasSubstr("MAX SNADS ROUTES:    77\n"));
  editor("echo 'MAX SNADS ROUTES:    many' >> \"$1\"");
  const tool_result bad = base.tool({"edit", "cfg"}, "");
  EXPECT_EQ(bad.exit, 1);
  EXPECT_THAT(bad.err, HasSubstr("is not a number"));
  EXPECT_THAT(read_file(base.file("orvo.cfg")), Not(HasSubstr("many")));
  const std::string kept = bad.err.substr(bad.err.rfind("kept in ") + 8);
  std::filesystem::remove_all(std::filesystem::path(kept.substr(0, kept.find('\n'))).parent_path());
}

TEST_F(TextCommands, EditRefusesABaseConfigurationThatNoInstallationWorksWith) {
  const std::string before = read_file(base.file("orvo.cfg"));
  for (const char* work : {": > \"$1\"", "sed -i '/^WORKSTATION NAME/d' \"$1\"", "sed -i '/^MAX TARGETS/d' \"$1\""}) {
    editor(work);
    setenv("TMPDIR", base.file("log").c_str(), 1);
    const tool_result result = base.tool({"edit", "cfg"});
    unsetenv("TMPDIR");
    EXPECT_EQ(result.exit, 1) << work;
    EXPECT_THAT(result.err, HasSubstr("is missing")) << work;
    EXPECT_EQ(read_file(base.file("orvo.cfg")), before) << work;
  }
}

TEST_F(TextCommands, EditTellsThatAnotherWorkstationNameRenamesNothing) {
  editor("sed -i 's/^WORKSTATION NAME.*/WORKSTATION NAME: BERGEN/' \"$1\"");
  const tool_result result = base.tool({"edit", "cfg"});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.err, HasSubstr("zvradm rename-target OSLO BERGEN"));
}

TEST_F(TextCommands, EditOfTheBaseConfigurationMakesNoInstallation) {
  const scratch_base none;
  editor("echo 'WORKSTATION NAME: OSLO' > \"$1\"");
  const tool_result result = none.tool({"edit", "cfg"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("no installation here"));
  EXPECT_FALSE(std::filesystem::exists(none.file("orvo.cfg")));
}

TEST_F(TextCommands, EditIsForTextsAndTheirNames) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"edit", "trg", "A"},
                                                    {"edit", "scn"},
                                                    {"edit", "scf", "A"},
                                                    {"edit", "scn", "a/b"}})
    EXPECT_EQ(base.tool(arguments).exit, 2) << arguments[1];
}

TEST_F(TextCommands, CheckConfigTellsEachFaultWithFileLineAndReason) {
  ASSERT_EQ(base.tool({"put", "scn"}, R"({"connection":"GOOD","protocol":2})").exit, 0);
  const tool_result clean = base.tool({"check-config"});
  EXPECT_EQ(clean.exit, 0) << clean.err;
  EXPECT_EQ(clean.out, "{\"files\":2,\"faults\":0,\"notes\":0}\n");
  write_file(base.file("db/snadscon/BAD"), "# c\nPROTOCOL: X25\nTYPE: STS\nNO KEYWORD\n");
  write_file(base.file("db/routetab"), "NETWORK PROTOCOL: IPX\nR1.E1 SLOW ANY ANY ANY C 1\nno route\n");
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "{\"files\":4,\"faults\":4,\"notes\":1}\n") << result.err;
  EXPECT_THAT(result.err, HasSubstr("db/snadscon/BAD, line 2: The value X25 of keyword PROTOCOL"));
  EXPECT_THAT(result.err, HasSubstr("db/snadscon/BAD, line 4: The keyword NO KEYWORD"));
  EXPECT_THAT(result.err, HasSubstr("db/routetab, line 1: The value IPX"));
  EXPECT_THAT(result.err, HasSubstr("db/routetab, line 2: note: The keyword SLOW"));
  EXPECT_THAT(result.err, HasSubstr("db/routetab, line 3: The route \"no route\""));
}

TEST_F(TextCommands, CheckConfigLooksAtWhateverTheLibraryTakesForAConnection) {
  ASSERT_EQ(base.tool({"put", "scn"}, R"({"connection":"GOOD","protocol":2})").exit, 0);
  std::filesystem::create_directory(base.file("db/snadscon/folder"));
  std::filesystem::create_directory_symlink(base.file("db/snadscon/folder"), base.file("db/snadscon/link"));
  EXPECT_EQ(base.tool({"check-config"}).out, "{\"files\":2,\"faults\":0,\"notes\":0}\n");
  write_file(base.file("db/snadscon/.OSLO.swp"), "what an editor leaves is hidden\n");
  write_file(base.file("db/snadscon/SEVENTEEN_LETTERS"), "PROTOCOL: IPX\n");
  EXPECT_EQ(base.tool({"list", "scn", "--names"}).lines().size(), 2u);
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "{\"files\":3,\"faults\":1,\"notes\":0}\n") << result.err;
  EXPECT_THAT(result.err, HasSubstr("db/snadscon/SEVENTEEN_LETTERS: "));
}

TEST_F(TextCommands, CheckConfigTellsOfAConnectionThatIsALinkToNothing) {
  ASSERT_EQ(base.tool({"put", "scn"}, R"({"connection":"GOOD","protocol":2})").exit, 0);
  std::filesystem::create_symlink("nowhere", base.file("db/snadscon/GONE"));
  EXPECT_EQ(base.tool({"list", "scn"}).exit, 1) << "it ends the list";
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("db/snadscon/GONE: "));
}

TEST_F(TextCommands, CheckConfigTellsOfADirectoryOfConnectionsThatIsNone) {
  write_file(base.file("db/snadscon"), "");
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("db/snadscon: "));
}

TEST_F(TextCommands, CheckConfigTellsAFaultOfTheBaseConfiguration) {
  write_file(base.file("orvo.cfg"), read_file(base.file("orvo.cfg")) + "COLOUR: red\n");
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("orvo.cfg, line "));
  EXPECT_THAT(result.err, HasSubstr("COLOUR is no keyword"));
}

TEST_F(TextCommands, ARecordThatCannotBeReadLeadsToTheCheck) {
  write_file(base.file("db/snadscfg"), "MAX CRMUS: 4\n");
  EXPECT_THAT(base.tool({"get", "scf"}).err, HasSubstr("(8195)"));
  EXPECT_THAT(base.tool({"get", "scf"}).err, HasSubstr("'zvradm check-config' tells where"));
}

TEST_F(TextCommands, CheckConfigNotesNumbersThatAreReadAsOthers) {
  write_file(base.file("db/snadscfg"), "MAX CRMU: many\nORIGIN HOP COUNT: 99999999\nTRANSMISSION HOLD TIME: 0x10\n");
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.json()["notes"], 2) << result.err;
  EXPECT_THAT(result.err, HasSubstr("line 1: note: the value many of MAX CRMU is no number: it is read as 0\n"));
  EXPECT_THAT(result.err, HasSubstr("line 2: note: the value 99999999 of ORIGIN HOP COUNT is too large: it is read as " +
                                    std::to_string(base.tool({"get", "scf"}).json()["origin_hop_count"].get<int>())));
}

TEST_F(TextCommands, CheckConfigTellsCarriageReturns) {
  write_file(base.file("db/snadscfg"), "MAX CRMU: 5\r\n\r\n");
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("in the record of type"));
  EXPECT_THAT(result.err, HasSubstr("the line ends in a carriage return"));
}

TEST_F(TextCommands, CheckConfigTellsABaseConfigurationThatNoInstallationWorksWith) {
  write_file(base.file("orvo.cfg"), "");
  const tool_result result = base.tool({"check-config"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("orvo.cfg: WORKSTATION NAME is missing"));
  EXPECT_THAT(result.err, HasSubstr("orvo.cfg: MAX TARGETS is missing or 0"));
  EXPECT_THAT(result.err, HasSubstr("orvo.cfg: note: MAX LOCAL TARGETS is missing or 0"));
}

}  // namespace
