#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "migration/older_database.h"
#include "tool_driver.h"

namespace {

using namespace tool_test;
using migration_test::older_database;
using testing::HasSubstr;
using testing::Not;

// An installation that has its configuration and, below "db", an older database.
class MigrateCommand : public ::testing::Test {
 protected:
  MigrateCommand() : db_(base_.path()) {
    std::filesystem::create_directories(base_.file("db"));
    std::filesystem::create_directories(base_.file("log"));
    write_file(base_.file("orvo.cfg"),
               "WORKSTATION NAME:     OSLO\nMAX TARGETS:          100\nCONFIGURATION:        SERVER_NO_COMMS\n"
               "MAX LOCAL TARGETS:   50\nMAX SERVER TARGETS:  50\n");
    migration_test::write_older_database(base_.path(), {.targets = 12, .damaged = true});
  }
  zvradm::json stage(const tool_result& result, std::size_t i) const {
    return zvradm::json::parse(result.lines().at(i));
  }
  scratch_base base_;
  older_database db_;
};

TEST_F(MigrateCommand, ConvertsAndSumsUpEachStage) {
  const tool_result result = base_.tool({"migrate", "--json"});
  ASSERT_EQ(0, result.exit) << result.err;
  ASSERT_EQ(6u, result.lines().size());
  EXPECT_EQ("catalog", stage(result, 0)["stage"]);
  EXPECT_EQ(3, stage(result, 0)["converted"]["corrupt entries freed"]);
  EXPECT_EQ(12, stage(result, 1)["converted"]["targets"]);
  EXPECT_EQ(60, stage(result, 2)["converted"]["pairs"]);
  EXPECT_EQ(2, stage(result, 3)["converted"]["target groups"]);
  EXPECT_EQ("DBE_OK", stage(result, 5)["code"]);
  EXPECT_EQ("older layout", stage(result, 1)["found"]);
  EXPECT_EQ(0, base_.tool({"get", "trg", "TRG00003"}).exit);
  EXPECT_EQ(0, base_.tool({"file", "check", "--deep", base_.file("db/trgcfg"), base_.file("db/cmstatus"),
                           base_.file("db/catalog"), base_.file("db/users"), base_.file("db/auth"),
                           base_.file("db/trggrp")})
                   .exit);
}

TEST_F(MigrateCommand, TellsWhatWasPassedOverAndWhatWasLogged) {
  const tool_result result = base_.tool({"migrate"});
  ASSERT_EQ(0, result.exit) << result.err;
  EXPECT_THAT(result.out, HasSubstr("12 targets"));
  EXPECT_THAT(result.out, HasSubstr("the user name \"odd name\" holds a character that is not allowed [message 36465]"));
  EXPECT_THAT(result.out, HasSubstr("is corrupt and becomes a free one"));
}

TEST_F(MigrateCommand, ADryRunChangesNothing) {
  const std::vector<std::string> before = db_.entries_of_db();
  const tool_result result = base_.tool({"migrate", "--dry-run"});
  ASSERT_EQ(0, result.exit) << result.err;
  EXPECT_THAT(result.out, HasSubstr("would be converted"));
  EXPECT_THAT(result.out, HasSubstr("12 targets"));
  EXPECT_EQ(before, db_.entries_of_db());
}

TEST_F(MigrateCommand, AFaultIsFoundBeforeAnythingIsChanged) {
  db_.file("db/target_config/TRG00004", "NO SUCH KEYWORD: x\n");
  const std::vector<std::string> before = db_.entries_of_db();
  const tool_result result = base_.tool({"migrate"});
  EXPECT_EQ(1, result.exit);
  EXPECT_THAT(result.err, HasSubstr("stage targets: target_config/TRG00004 cannot be read as a record: line 1: "
                                    "The keyword NO SUCH KEYWORD"));
  EXPECT_THAT(result.err, HasSubstr("DBE_MIGRATION (6425)"));
  EXPECT_THAT(result.err, HasSubstr("nothing was changed"));
  EXPECT_EQ(before, db_.entries_of_db());
}

TEST_F(MigrateCommand, AFaultThatShowsOnlyOnTheWayCanBeMended) {
  db_.group("GROUP0", {.members = {"NOBODY"}});
  const tool_result result = base_.tool({"migrate"});
  EXPECT_EQ(1, result.exit);
  EXPECT_THAT(result.err, HasSubstr("stage target groups: the group GROUP0 has a member that is no target"));
  EXPECT_THAT(result.err, HasSubstr("run the command again"));
  db_.file("db/target_group.old/GROUP0", migration_test::older_group{.members = {"TRG00001"}}.text());
  const tool_result again = base_.tool({"migrate"});
  EXPECT_EQ(0, again.exit) << again.err;
  EXPECT_THAT(again.out, HasSubstr("2 target groups"));
}

TEST_F(MigrateCommand, AConvertedDatabaseIsLeftAlone) {
  ASSERT_EQ(0, base_.tool({"migrate"}).exit);
  const std::string before = read_file(base_.file("db/auth"));
  const tool_result result = base_.tool({"migrate"});
  EXPECT_EQ(0, result.exit) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Converted already"));
  EXPECT_EQ(before, read_file(base_.file("db/auth")));
  EXPECT_THAT(base_.tool({"migrate", "--dry-run"}).out, HasSubstr("Converted already"));
  const tool_result again = base_.tool({"migrate", "--again"});
  EXPECT_EQ(0, again.exit) << again.err;
  EXPECT_THAT(again.out, Not(HasSubstr("Converted already")));
}

TEST_F(MigrateCommand, SettingsOutlastTheConversionAndTheSharedState) {
  const std::string older = read_file(base_.file("orvo.cfg"));
  write_file(base_.file("orvo.cfg"), older + "MAX REQUESTS: 77\n");
  ASSERT_EQ(0, base_.tool({"migrate"}).exit);
  EXPECT_FALSE(std::filesystem::exists(base_.file("orvo.cfg.older")));
  ASSERT_EQ(0, base_.tool({"reset"}).exit);
  const zvradm::json config = base_.tool({"get", "cfg"}).json();
  EXPECT_EQ(77, config["max_requests"]);
  EXPECT_EQ(50, config["max_local_targets"]);
  EXPECT_EQ(50, config["max_server_targets"]);
  EXPECT_EQ(12u, base_.tool({"list", "trg"}).lines().size());
}

TEST_F(MigrateCommand, LimitsThatTheOlderReleaseDidNotKnowHideNoTarget) {
  write_file(base_.file("orvo.cfg"), "WORKSTATION NAME: OSLO\nMAX TARGETS: 100\nCONFIGURATION: SERVER_NO_COMMS\n");
  ASSERT_EQ(0, base_.tool({"migrate"}).exit);
  EXPECT_EQ(12u, base_.tool({"list", "trg"}).lines().size());
  ASSERT_EQ(0, base_.tool({"reset"}).exit);
  EXPECT_EQ(12u, base_.tool({"list", "trg"}).lines().size());
}

TEST_F(MigrateCommand, SettingsOutlastAConversionThatWasCutShort) {
  write_file(base_.file("orvo.cfg"), read_file(base_.file("orvo.cfg")) + "MAX REQUESTS: 77\n");
  db_.group("GROUP0", {.members = {"NOBODY"}});
  ASSERT_EQ(1, base_.tool({"migrate"}).exit);
  ASSERT_EQ(0, base_.tool({"reset"}).exit);
  db_.file("db/target_group.old/GROUP0", migration_test::older_group{.members = {"TRG00001"}}.text());
  ASSERT_EQ(0, base_.tool({"migrate"}).exit);
  EXPECT_EQ(77, base_.tool({"get", "cfg"}).json()["max_requests"]);
}

// A replacement of "orvo.cfg" that was killed in the middle: the record is the temporary
// file alone, and with the machine down the shared state is gone too.
TEST_F(MigrateCommand, GoesOnWhereTheConfigurationWasBeingReplaced) {
  write_file(base_.file("orvo.cfg"), read_file(base_.file("orvo.cfg")) + "MAX REQUESTS: 77\n");
  db_.group("GROUP0", {.members = {"NOBODY"}});
  ASSERT_EQ(1, base_.tool({"migrate"}).exit);
  ASSERT_EQ(0, base_.tool({"reset"}).exit);
  db_.file("db/target_group.old/GROUP0", migration_test::older_group{.members = {"TRG00001"}}.text());
  std::filesystem::rename(base_.file("orvo.cfg"), base_.file("db/tmp/t0e_orvo.cfg"));
  const tool_result other = base_.tool({"list", "trg"});
  EXPECT_EQ(1, other.exit);
  EXPECT_THAT(other.err, HasSubstr("'zvradm migrate'"));
  EXPECT_THAT(other.err, Not(HasSubstr("init")));
  const tool_result result = base_.tool({"migrate"});
  ASSERT_EQ(0, result.exit) << result.err;
  EXPECT_EQ(77, base_.tool({"get", "cfg"}).json()["max_requests"]);
  EXPECT_EQ(12u, base_.tool({"list", "trg"}).lines().size());
  EXPECT_TRUE(std::filesystem::is_empty(base_.file("db/tmp")));
}

TEST_F(MigrateCommand, RefusesMoreTargetsThanTheConfigurationAllows) {
  write_file(base_.file("orvo.cfg"), "WORKSTATION NAME: OSLO\nMAX TARGETS: 11\nCONFIGURATION: SERVER_NO_COMMS\n");
  const std::vector<std::string> before = db_.entries_of_db();
  const tool_result result = base_.tool({"migrate"});
  EXPECT_EQ(1, result.exit);
  EXPECT_THAT(result.err, HasSubstr("MAX TARGETS"));
  EXPECT_THAT(result.err, HasSubstr("nothing was changed"));
  EXPECT_EQ(before, db_.entries_of_db());
  EXPECT_EQ(1, base_.tool({"migrate", "--dry-run"}).exit);
  // One place more is kept for this machine, which has no record here.
  write_file(base_.file("orvo.cfg"), "WORKSTATION NAME: OSLO\nMAX TARGETS: 13\nCONFIGURATION: SERVER_NO_COMMS\n");
  ASSERT_EQ(0, base_.tool({"reset"}).exit);
  EXPECT_EQ(0, base_.tool({"migrate"}).exit);
  EXPECT_EQ(12u, base_.tool({"list", "trg"}).lines().size());
}

TEST_F(MigrateCommand, TellsTheLineOfAFaultInAGroupOrInTheRights) {
  db_.file("db/target_group/GROUP1", "# a comment\nNO SUCH KEYWORD: x\n");
  EXPECT_THAT(base_.tool({"migrate", "--dry-run"}).err, HasSubstr("GROUP1 cannot be read as a record: line 2: "));
  std::filesystem::remove(base_.file("db/target_group/GROUP1"));
  db_.file("db/user_config", "CONFIG_USER: VIEW\nCM_USER: SLEEP\n");
  EXPECT_THAT(base_.tool({"migrate", "--dry-run"}).err,
              HasSubstr("stage authorization: user_config cannot be read as a record: line 2: The value SLEEP"));
}

TEST_F(MigrateCommand, TellsWhatIsMissing) {
  std::filesystem::remove_all(base_.file("db/cm_status"));
  EXPECT_THAT(base_.tool({"migrate"}).err,
              HasSubstr("stage CM status: neither an older directory nor a record file: DBE_IO_ERROR (8455)\n"));
  std::filesystem::remove_all(base_.file("db"));
  EXPECT_THAT(base_.tool({"migrate"}).err, HasSubstr("stage catalog: catalog cannot be worked on"));
}

TEST_F(MigrateCommand, RefusesWhereThereIsNoOlderDatabase) {
  const scratch_base fresh;
  ASSERT_EQ(0, fresh.init().exit);
  std::filesystem::remove(fresh.file("db/cmstatus"));
  const tool_result result = fresh.tool({"migrate"});
  EXPECT_EQ(1, result.exit);
  EXPECT_THAT(result.err, HasSubstr("nothing was changed"));
}

}  // namespace
