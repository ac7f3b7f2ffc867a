#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;

class TargetCommands : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(base.init().exit, 0);
    const tool_result stored =
        base.tool({"put", "trg"},
                  R"({"trg_name":"HUB","rgn":"FAR","ren":"HUB1","trg_type":["REMOTE","SERVER"]})" "\n"
                  R"({"trg_name":"LEAF","rgn":"FAR","ren":"LEAF1","trg_type":["REMOTE","CLIENT"],"srv_name":"HUB"})" "\n"
                  R"({"trg_name":"NEAR","ren":"NEAR1","trg_type":["LOCAL","CLIENT"],"srv_name":"OSLO"})");
    ASSERT_EQ(stored.exit, 0) << stored.err;
  }
  scratch_base base;
};

TEST_F(TargetCommands, ARenamedServerStaysTheServerOfItsClients) {
  ASSERT_EQ(base.tool({"rename-target", "HUB", "CENTRE"}).exit, 0);
  EXPECT_EQ(base.tool({"server-of", "LEAF"}).out, "{\"trg_name\":\"LEAF\",\"srv_name\":\"CENTRE\"}\n");
  EXPECT_EQ(base.tool({"get", "trg", "LEAF"}).json()["srv_name"], "CENTRE");
  EXPECT_EQ(base.tool({"get", "trg", "HUB"}).exit, 1);
}

TEST_F(TargetCommands, RenamingRefusesATakenAndAnUnknownName) {
  const tool_result taken = base.tool({"rename-target", "HUB", "LEAF"});
  EXPECT_EQ(taken.exit, 1);
  EXPECT_THAT(taken.err, HasSubstr("exists already"));
  const tool_result unknown = base.tool({"rename-target", "NOBODY", "X"});
  EXPECT_EQ(unknown.exit, 1);
  EXPECT_THAT(unknown.err, HasSubstr("DBE_NOT_FOUND (8194)")) << "the code of the rename itself";
  EXPECT_EQ(base.tool({"get", "trg", "HUB"}).exit, 0);
}

TEST_F(TargetCommands, RenamingTheLocalTargetTakesTheConfigurationAlong) {
  const tool_result renamed = base.tool({"rename-target", "OSLO", "KRISTIANIA"});
  ASSERT_EQ(renamed.exit, 0) << renamed.err;
  EXPECT_EQ(base.tool({"status", "--json"}).json()["local_target"], "KRISTIANIA");
  EXPECT_EQ(base.tool({"get", "cfg"}).json()["workstation_name"], "KRISTIANIA");
  EXPECT_THAT(read_file(base.file("orvo.cfg")), HasSubstr("KRISTIANIA"));
  EXPECT_THAT(read_file(base.file("orvo.cfg")), HasSubstr("SERVER_WITH_COMMS"));
  EXPECT_EQ(read_file(base.file("orvo.cfg.pending")), "");
  // It must work from the files alone too.
  ASSERT_EQ(base.tool({"reset"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "trg", "KRISTIANIA"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "trg", "NEAR"}).json()["rgn"], "OSLO01") << "the local network kept its name";
}

TEST_F(TargetCommands, TheLocalTargetTakesNoNameThatItsConfigurationCannotHold) {
  const std::string config = read_file(base.file("orvo.cfg"));
  for (const char* name : {" HAMAR", "HAMAR ", "HAMAR\nMAX TARGETS: 1", "HA\tMAR"}) {
    const tool_result refused = base.tool({"rename-target", "OSLO", name});
    EXPECT_EQ(refused.exit, 2) << name;
    EXPECT_THAT(refused.err, HasSubstr("NEW")) << name;
  }
  EXPECT_EQ(read_file(base.file("orvo.cfg")), config);
  EXPECT_EQ(read_file(base.file("orvo.cfg.pending")), "");
  ASSERT_EQ(base.tool({"reset"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 0);
}

TEST_F(TargetCommands, AnInterruptedRenameOfTheLocalTargetIsUndoneWhenTheRecordHasItsOldName) {
  // As a crash behind the first two steps leaves it.
  const std::string config = read_file(base.file("orvo.cfg"));
  std::string pending = config, interim = config;
  pending.replace(pending.find("OSLO\n"), 5, "HAMAR\n");
  interim.replace(interim.find("SERVER_WITH_COMMS"), 17, "SERVER_NO_COMMS");
  write_file(base.file("orvo.cfg.pending"), pending);
  write_file(base.file("orvo.cfg"), interim);
  EXPECT_EQ(base.tool({"status", "--json"}).json()["pending_change"], true);
  const tool_result next = base.tool({"rename-target", "HUB", "CENTRE"});
  ASSERT_EQ(next.exit, 0) << next.err;
  EXPECT_THAT(next.err, HasSubstr("undone"));
  EXPECT_EQ(read_file(base.file("orvo.cfg")), config);
  ASSERT_EQ(base.tool({"reset"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 0);
}

TEST_F(TargetCommands, AnInterruptedRenameOfTheLocalTargetIsCarriedThroughWhenTheRecordHasItsNewName) {
  ASSERT_EQ(base.tool({"rename-target", "OSLO", "HAMAR"}).exit, 0);
  const std::string config = read_file(base.file("orvo.cfg"));
  std::string interim = config;
  interim.replace(interim.find("HAMAR\n"), 6, "OSLO\n");
  interim.replace(interim.find("SERVER_WITH_COMMS"), 17, "SERVER_NO_COMMS");
  write_file(base.file("orvo.cfg.pending"), config);
  write_file(base.file("orvo.cfg"), interim);
  ASSERT_EQ(base.tool({"reset"}).exit, 0);  // so that the interim configuration is in force
  const tool_result next = base.tool({"rename-target", "HUB", "CENTRE"});
  ASSERT_EQ(next.exit, 0) << next.err;
  EXPECT_THAT(next.err, HasSubstr("carried through"));
  EXPECT_EQ(read_file(base.file("orvo.cfg")), config);
  EXPECT_EQ(base.tool({"status", "--json"}).json()["local_target"], "HAMAR");
}

TEST_F(TargetCommands, StatusIsReadWrittenAndAged) {
  EXPECT_EQ(base.tool({"target-status", "get", "LEAF"}).out,
            "{\"trg_name\":\"LEAF\",\"trg_status\":\"00000000\",\"counter\":0}\n");
  ASSERT_EQ(base.tool({"target-status", "put", "LEAF", "0a0007ff"}).exit, 0);
  EXPECT_EQ(base.tool({"target-status", "get", "LEAF"}).json()["trg_status"], "0a0007ff");
  ASSERT_EQ(base.tool({"target-status", "age", "9"}).exit, 0);
  EXPECT_EQ(base.tool({"target-status", "get", "LEAF"}).json()["trg_status"], "010007ff");
  ASSERT_EQ(base.tool({"target-status", "age", "1"}).exit, 0);
  EXPECT_EQ(base.tool({"target-status", "get", "LEAF"}).json()["trg_status"], "000000ff");
  EXPECT_EQ(base.tool({"get", "trg", "LEAF"}).json()["trg_status"], "000000ff");
}

TEST_F(TargetCommands, StatusOfAnUnknownTargetLeavesNothingHeld) {
  EXPECT_THAT(base.tool({"target-status", "get", "NOBODY"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  EXPECT_EQ(base.tool({"target-status", "get", "LEAF"}).exit, 0);
}

TEST_F(TargetCommands, ATargetIsFoundByItsNetworkName) {
  EXPECT_EQ(base.tool({"target-by-rr", "FAR.LEAF1"}).json()["trg_name"], "LEAF");
  EXPECT_EQ(base.tool({"target-by-rr", "FAR.LEAF1", "--len", "64"}).out, "{\"trg_name\":\"LEAF\"}\n");
  EXPECT_EQ(base.tool({"target-by-rr", ".NEAR1"}).json()["trg_name"], "NEAR");
  EXPECT_THAT(base.tool({"target-by-rr", "FAR.NOBODY"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
}

TEST_F(TargetCommands, ATargetWithoutAServerIsItsOwn) {
  EXPECT_EQ(base.tool({"server-of", "HUB"}).json()["srv_name"], "HUB");
  EXPECT_EQ(base.tool({"server-of", "NOBODY"}).exit, 1);
}

TEST_F(TargetCommands, TraceIsSwitchedForAllProcesses) {
  ASSERT_EQ(base.tool({"trace", "on"}).exit, 0);
  EXPECT_NE(base.tool({"status", "--json"}).json()["trace"], 0);
  base.tool({"get", "trg", "LEAF"});
  EXPECT_THAT(read_file(base.file("log/trace.log")), HasSubstr(">>>>>>>>>> ENTRY"));
  ASSERT_EQ(base.tool({"trace", "off"}).exit, 0);
  EXPECT_EQ(base.tool({"status", "--json"}).json()["trace"], 0);
}

}  // namespace
