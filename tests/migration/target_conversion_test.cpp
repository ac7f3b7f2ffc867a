// The targets' stage: states, records, users, server names, the limit of local targets.
#include <cstring>
#include <filesystem>

#include "migration/migration_fixture.h"
#include "migration/target_record.h"
#include "textrec/older_tables.h"

using namespace migration_test;
using zvrdb::migration::convert_type;
using zvrdb::migration::relation_bits;

namespace {

constexpr int not_reached = -1;

class TargetConversion : public MigrationTest {
 protected:
  using MigrationTest::MigrationTest;
  // Every older target has a file of CM status.
  void put(const std::string& name, const older_target& target) {
    db_.target(name, target);
    db_.status(name, "");
  }
  int convert() {
    what_ = {};
    migrate(&what_);
    return what_.ends.size() > 1 ? what_.ends[1] : not_reached;
  }
  void remove(const char* relative) { std::filesystem::remove_all(installation_->path(relative)); }
  void make(const char* relative) { std::filesystem::create_directories(installation_->path(relative)); }
  heard what_;
};

// ---- States

TEST_F(TargetConversion, WithNothingThereItIsRefused) {
  for (const char* name : {"db/target_config", "db/target_hw", "db/parms"}) remove(name);
  EXPECT_EQ(6425, convert());
}

TEST_F(TargetConversion, WithoutHardwareOrParametersItIsRefused) {
  remove("db/target_hw");
  EXPECT_EQ(6425, convert());
  new_task();
  make("db/target_hw");
  remove("db/parms");
  EXPECT_EQ(6425, convert());
}

TEST_F(TargetConversion, OlderTargetsWithoutAnythingBesideAreNotTakenForConverted) {
  put("OSLO", {});
  remove("db/target_hw");
  remove("db/parms");
  EXPECT_EQ(6425, convert());
  EXPECT_TRUE(db_.there("db/target_config/OSLO"));
  EXPECT_TRUE(db_.there("db/cm_status/OSLO"));
}

TEST_F(TargetConversion, AStateOfNoConversionIsRefusedAndNothingRemoved) {
  make("db/target_tmp");
  make("db/target_del");
  EXPECT_EQ(6425, convert());
  EXPECT_TRUE(db_.there("db/target_config"));
  EXPECT_TRUE(db_.there("db/target_tmp"));
  EXPECT_TRUE(db_.there("db/target_del"));
}

TEST_F(TargetConversion, GoesOnFromTheRenamedDirectory) {
  put("OSLO", {});
  std::filesystem::rename(installation_->path("db/target_config"), installation_->path("db/target_tmp"));
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ("1 conversion was cut short, begins anew", what_.begins.at(1));
  EXPECT_EQ(DBE_OK, target("OSLO").rc);
  EXPECT_FALSE(db_.there("db/target_tmp"));
  EXPECT_FALSE(db_.there("db/target_del"));
}

TEST_F(TargetConversion, AFileThatWasBegunIsMadeAnew) {
  put("OSLO", {});
  std::filesystem::rename(installation_->path("db/target_config"), installation_->path("db/target_tmp"));
  db_.file("db/trgcfg", "not even a record file");
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ(DBE_OK, target("OSLO").rc);
}

TEST_F(TargetConversion, AFileThatWasBegunAndCannotBeRemovedIsRefused) {
  std::filesystem::rename(installation_->path("db/target_config"), installation_->path("db/target_tmp"));
  make("db/trgcfg/inside");
  EXPECT_EQ(6425, convert());
}

TEST_F(TargetConversion, WhatIsConvertedIsOnlyTidiedUp) {
  put("OSLO", {});
  ASSERT_EQ(DBE_OK, convert());
  for (const std::vector<const char*>& left :
       {std::vector<const char*>{"target_del"}, {"target_del", "parms"}, {"target_del", "parms", "target_hw"}}) {
    new_task();
    for (const char* name : left) db_.file(std::string("db/") + name + "/X", "older");
    EXPECT_EQ(DBE_OK, convert());
    EXPECT_EQ("1 converted, to be tidied up", what_.begins.at(1));
    for (const char* name : left) EXPECT_FALSE(db_.there(std::string("db/") + name));
    EXPECT_EQ(DBE_OK, target("OSLO").rc);
  }
}

TEST_F(TargetConversion, ADirectoryThatCannotBeRemovedIsTriedAgainByEveryRun) {
  put("OSLO", {});
  db_.file("db/target_hw/folder/file", "not of the older release");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_TRUE(db_.there("db/target_del"));
  EXPECT_TRUE(what_.noted("target_hw cannot be removed"));
  new_task();
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ("1 converted, to be tidied up", what_.begins.at(1));
  remove("db/target_hw/folder");
  new_task();
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_FALSE(db_.there("db/target_hw"));
  EXPECT_FALSE(db_.there("db/target_del"));
}

TEST_F(TargetConversion, NamesOfDirectoriesMayHaveAnyCase) {
  put("OSLO", {});
  db_.hardware("OSLO", {{"CPU", "486"}});
  for (const auto& [from, to] : {std::pair{"target_config", "Target_Config"}, {"target_hw", "TARGET_HW"}, {"parms", "Parms"}})
    std::filesystem::rename(installation_->path(std::string("db/") + from), installation_->path(std::string("db/") + to));
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ(DBE_OK, get(DB_THW, "OSLO", 20804).rc);
  for (const char* name : {"Target_Config", "TARGET_HW", "Parms"}) EXPECT_FALSE(db_.there(std::string("db/") + name));
}

// ---- Records

TEST_F(TargetConversion, EachFieldOfATargetHasItsPlace) {
  older_target older = {.type = "no_cm", .rgn = "NORTH", .ren = "OSLO01", .description = "Main office"};
  older.hardware = {{"CPU", "486"}, {"Disk", "40 MB"}};
  older.more = "CM WINDOW STOP: 7:40\nDISTRIBUTION WINDOW START: 1:2\nDISTRIBUTION WINDOW STOP: 3:4\n"
               "RBAPI TRACE: both\nHELD STATUS: held\nCONTACT NAME: A contact\nCONTACT PHONE: 123\nMANAGER NAME: A manager\n";
  put("OSLO", older);
  ASSERT_EQ(DBE_OK, convert()) << (what_.notes.empty() ? "" : what_.notes.back());
  const stored_record record = target("OSLO");
  ASSERT_EQ(DBE_OK, record.rc);
  EXPECT_EQ("OSLO", record.text(0, 64));
  EXPECT_EQ("Main office", record.text(64, 60));
  EXPECT_EQ("NORTH", record.text(124, 8));
  EXPECT_EQ("OSLO01", record.text(132, 8));
  EXPECT_EQ(11u, record.byte(145));
  EXPECT_EQ(6u, record.byte(148));
  EXPECT_EQ(30u, record.byte(149));
  EXPECT_EQ(7u, record.byte(152));
  EXPECT_EQ(40u, record.byte(153));
  EXPECT_EQ(1u, record.byte(156));
  EXPECT_EQ(4u, record.byte(161));
  EXPECT_EQ(3u, record.byte(164));
  EXPECT_EQ(1u, record.byte(165));
  EXPECT_EQ(1u, record.byte(166));
  EXPECT_EQ("10.0.0.1", record.text(256, 32));
  EXPECT_EQ("A customer", record.text(288, 60));
  EXPECT_EQ("A contact", record.text(348, 60));
  EXPECT_EQ("123", record.text(408, 32));
  EXPECT_EQ("A manager", record.text(440, 60));
  EXPECT_EQ("Main Street 1\nSome Town", record.text(500, 200));
  EXPECT_EQ(2, record.u16(700));
  EXPECT_EQ(1, record.u16(702));
  EXPECT_EQ("CPU", record.text(988, 81));
  EXPECT_EQ("486", record.text(988 + 81, 81));
  EXPECT_EQ("40 MB", record.text(988 + 162 + 81, 81));
}

TEST_F(TargetConversion, HardwareAndParametersGoBesideTheTarget) {
  put("OSLO", {});
  db_.hardware("OSLO", {{"CPU", "486"}, {"Disk", "40 MB"}});
  db_.parameters("OSLO", {{"TMP", "/tmp"}, {"LANG", "C"}, {"X", "y:z"}});
  put("bare", {});
  ASSERT_EQ(DBE_OK, convert());
  const stored_record hardware = get(DB_THW, "OSLO", 20804);
  EXPECT_EQ(2, hardware.u16(64));
  EXPECT_EQ("Disk", hardware.text(68 + 162, 81));
  EXPECT_EQ("40 MB", hardware.text(68 + 162 + 81, 81));
  const stored_record parameters = get(DB_PRM, "OSLO", 62812);
  EXPECT_EQ(3, parameters.u16(64));
  EXPECT_EQ("TMP", parameters.text(68, 12));
  EXPECT_EQ("/tmp", parameters.text(80, 50));
  EXPECT_EQ("y:z", parameters.text(68 + 124 + 12, 50));
  EXPECT_EQ(DBE_NOT_FOUND, get(DB_THW, "bare", 20804).rc);
  EXPECT_EQ(DBE_NOT_FOUND, get(DB_PRM, "bare", 62812).rc);
}

TEST_F(TargetConversion, ASideFileOfAnotherCaseIsTheTargetsAndTheExactOneComesFirst) {
  put("Oslo", {});
  db_.hardware("OSLO", {{"CPU", "other case"}});
  db_.parameters("oslo", {{"P", "other case"}});
  db_.parameters("Oslo", {{"P", "this very name"}});
  ASSERT_EQ(DBE_OK, convert());
  const stored_record hardware = get(DB_THW, "Oslo", 20804);
  EXPECT_EQ("Oslo", hardware.text(0, 64));
  EXPECT_EQ("other case", hardware.text(68 + 81, 81));
  EXPECT_EQ("this very name", get(DB_PRM, "Oslo", 62812).text(80, 50));
}

TEST_F(TargetConversion, CountsThatSayMoreThanThereIsAreBounded) {
  older_target older;
  older.more = "NUMBER OF PARMS: 60000\nNUMBER OF USERS: 60000\n";
  older.users = {"anna"};
  put("OSLO", older);
  db_.file("db/target_hw/OSLO", "NUMBER OF PARMS: 60000\n");
  db_.file("db/parms/OSLO", "NUMBER OF PARMS: 60000\n");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(32, target("OSLO").u16(700));
  EXPECT_EQ(32, get(DB_THW, "OSLO", 20804).u16(64));
  EXPECT_EQ(1000, get(DB_PRM, "OSLO", 62812).u16(64));
  EXPECT_EQ(1u, what_.counts["1 users"]);
}

TEST_F(TargetConversion, NumbersFollowTheOrderOfNames) {
  for (const char* name : {"C", "A", "B"}) put(name, {});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(1u, number("A"));
  EXPECT_EQ(2u, number("B"));
  EXPECT_EQ(3u, number("C"));
}

TEST_F(TargetConversion, ATextThatCannotBeParsedEndsTheStage) {
  put("OSLO", {});
  db_.file("db/target_config/OSLO", "WRONG: 1\n");
  EXPECT_EQ(6425, convert());
  EXPECT_TRUE(what_.noted("OSLO cannot be read as a record: line 1: The keyword WRONG"));
  EXPECT_TRUE(db_.there("db/target_tmp/OSLO"));  // the administrator mends it and goes on
  new_task();
  db_.file("db/target_tmp/OSLO", older_target{}.text());
  EXPECT_EQ(DBE_OK, convert());
}

TEST_F(TargetConversion, ASideTextThatCannotBeParsedEndsTheStage) {
  put("OSLO", {});
  db_.file("db/target_hw/OSLO", "WRONG: 1\n");
  EXPECT_EQ(6425, convert());
}

TEST_F(TargetConversion, TargetsBeyondTheLimitAreTold) {
  for (const char* name : {"A", "B", "C"}) put(name, {});
  configure(4268, 2);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_TRUE(what_.noted("holds 3 targets, MAX TARGETS is 2"));
  EXPECT_EQ(2u, what_.counts["1 targets"]);
}

TEST_F(TargetConversion, WithoutRoomForASingleTargetItFailsAndAllStay) {
  for (const char* name : {"A", "B"}) put(name, {});
  configure(4268, 0);
  EXPECT_EQ(DBE_IO_ERROR, convert());
  EXPECT_TRUE(db_.there("db/target_tmp/B"));
  EXPECT_TRUE(db_.there("db/cm_status/A"));
  configure(4268, 100);
  new_task();
  configure(4268, 100);
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_EQ(2u, what_.counts["1 targets"]);
}

TEST_F(TargetConversion, WithNoTargetAtAllItIsConverted) {
  EXPECT_EQ(DBE_OK, convert());
  EXPECT_TRUE(db_.there("db/trgcfg"));
}

// ---- Type and mode

struct type_case {
  unsigned older, type, mode;
};

TEST(OlderType, BitsMoveOneAfterTheOther) {
  // Worked out by hand from the rules, in their order.
  constexpr type_case cases[] = {
      {0, 0, 16},        {2, 0, 2},         {4, 0, 1},          {6, 0, 1},
      {8, 8, 4},         {12, 8, 4},        {10, 8, 4},         {16, 16, 24},
      {24, 16, 12},      {152, 144, 12},    {136, 136, 4},      {128, 128, 2},
      {1, 1, 2},         {129, 129, 2},     {130, 128, 2},      {132, 128, 2},
      {32, 32, 16},      {34, 32, 2},       {36, 32, 1},        {144, 144, 24},
      {18, 16, 10},      {20, 16, 9},       {28, 16, 12},
  };
  for (const type_case& c : cases) {
    const auto made = convert_type(static_cast<std::uint8_t>(c.older));
    EXPECT_EQ(c.type, made.type) << c.older;
    EXPECT_EQ(c.mode, made.mode) << c.older;
  }
}

TEST(OlderType, RelationBitsTellBaseClientAndServer) {
  EXPECT_EQ(132, relation_bits(0, false, false));
  EXPECT_EQ(132, relation_bits(128, false, false));
  EXPECT_EQ(2, relation_bits(128, true, false));
  EXPECT_EQ(34, relation_bits(0, true, false));
  EXPECT_EQ(40, relation_bits(0, true, true));
  EXPECT_EQ(8, relation_bits(128, true, true));
}

// ---- Servers

TEST_F(TargetConversion, TheServerHasBothHalvesOfItsClientsRegion) {
  put("SERVER", {.rgn = "NORTH", .ren = "NORTH"});
  put("CLIENT", {.rgn = "NORTH", .ren = "C1"});
  put("FAR", {.type = "remote", .rgn = "NORTH", .ren = "C2"});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("SERVER", target("CLIENT").text(192, 64));
  EXPECT_EQ(34u, target("CLIENT").byte(144));
  EXPECT_EQ(2u, target("CLIENT").byte(146));
  EXPECT_EQ("SERVER", target("SERVER").text(192, 64));
  EXPECT_EQ(40u, target("SERVER").byte(144));
  EXPECT_EQ(130u, target("FAR").byte(144));
}

TEST_F(TargetConversion, WithoutAServerATargetIsARemoteBaseSystem) {
  put("ALONE", {.rgn = "WEST", .ren = "W1"});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("", target("ALONE").text(192, 64));
  EXPECT_EQ(164u, target("ALONE").byte(144));
}

TEST_F(TargetConversion, AFocalPointIsItsOwnServer) {
  put("FOCUS", {.type = "focalpoint", .rgn = "NORTH", .ren = "F1"});
  put("REPORT", {.type = "report_to", .rgn = "NORTH", .ren = "R1"});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("FOCUS", target("FOCUS").text(192, 64));
  EXPECT_EQ(136u, target("FOCUS").byte(144));
  EXPECT_EQ(4u, target("FOCUS").byte(146));
  EXPECT_EQ("REPORT", target("REPORT").text(192, 64));
  EXPECT_EQ(152u, target("REPORT").byte(144));
  EXPECT_EQ(12u, target("REPORT").byte(146));
}

TEST_F(TargetConversion, WithoutARegionThisMachineIsTheServer) {
  put("LOCAL", {.rgn = "", .ren = "L1"});
  put("OTHER", {.rgn = "", .ren = "L2"});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ("LOCAL", target("OTHER").text(192, 64));
  EXPECT_EQ(34u, target("OTHER").byte(144));
  EXPECT_EQ(40u, target("LOCAL").byte(144));
}

TEST_F(TargetConversion, AServerThatIsNoTargetEndsTheStage) {
  put("OTHER", {.rgn = "", .ren = "L2"});  // its server would be "LOCAL"
  EXPECT_EQ(DBE_NO_TARGET, convert());
  EXPECT_TRUE(what_.noted("the server of OTHER would be LOCAL"));
}

TEST_F(TargetConversion, APrivateTableLeavesNothingShared) {
  put("OSLO", {});
  ASSERT_EQ(DBE_OK, convert());
  for (const auto& entry : std::filesystem::directory_iterator(installation_->shared_folder()))
    EXPECT_EQ(std::string::npos, entry.path().filename().string().find("MEM_")) << entry.path();
}

// ---- Users

TEST_F(TargetConversion, AUserListedOnSeventeenTargetsHasThemAll) {
  for (int i = 0; i < 17; ++i) {
    older_target target;
    target.users = {"everyone"};
    if (i < 16) target.users.emplace_back("sixteen");
    put("T" + std::to_string(10 + i), target);
  }
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(1u, user("everyone").u32(124));
  EXPECT_TRUE(user_targets("everyone").empty());
  EXPECT_EQ("", user("everyone").text(212, 64));
  EXPECT_EQ(0u, user("sixteen").u32(124));
  ASSERT_EQ(16u, user_targets("sixteen").size());
  EXPECT_EQ("T10", user_targets("sixteen").front());
  EXPECT_EQ("T25", user_targets("sixteen").back());
}

TEST_F(TargetConversion, UsersThatWereBeingBuiltAreMadeAnew) {
  put("OSLO", {.users = {"bob"}});
  db_.file("db/users", "cut short");
  db_.file("db/users.begun", "");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ((std::vector<std::string>{"OSLO"}), user_targets("bob"));
  EXPECT_FALSE(db_.there("db/users.begun"));
}

TEST_F(TargetConversion, UsersOfBeforeStay) {
  put("OSLO", {.users = {"bob"}});
  ASSERT_EQ(DBE_OK, convert());
  for (const char* name : {"db/target_config", "db/target_hw", "db/parms"}) make(name);
  put("OSLO", {.users = {"eve"}});
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(DBE_OK, user("bob").rc);
  EXPECT_EQ((std::vector<std::string>{"OSLO"}), user_targets("eve"));
}

TEST_F(TargetConversion, AUserWithABlankInTheNameIsLoggedAndPassedOver) {
  older_target older;
  older.users = {"two words", "fine1", "under_score"};
  put("OSLO", older);
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(2u, logged(36465));
  EXPECT_EQ(2u, what_.counts["1 users passed over"]);
  EXPECT_EQ(DBE_OK, user("fine1").rc);
  EXPECT_EQ(DBE_NOT_FOUND, user("two words").rc);
}

TEST_F(TargetConversion, ANewUserHasTheProfileOfItsLevel) {
  installation_->write("users", "plain 0\nbuilder 1\nboss 2\nodd 7\n");
  const std::uint16_t login_default = 3;
  std::memcpy(static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG)) + 86, &login_default, 2);
  older_target older;
  older.users = {"plain", "builder", "boss", "odd", "stranger", "Administrator"};
  put("OSLO", older);
  ASSERT_EQ(DBE_OK, convert());
  const struct {
    const char* name;
    const char* profile;
    std::uint32_t mask;
  } wanted[] = {{"plain", "ZVRUSER", 0}, {"builder", "ZVRBLD", 0},   {"boss", "ZVRADMN", 0xFFFFFFFF},
                {"odd", "ZVRUSER", 0},   {"stranger", "ZVRUSER", 0}, {"Administrator", "ZVRUSER", 0}};
  for (const auto& w : wanted) {
    const stored_record record = user(w.name);
    ASSERT_EQ(DBE_OK, record.rc) << w.name;
    EXPECT_EQ(w.profile, record.text(100, 16)) << w.name;
    EXPECT_EQ(w.mask, record.u32(116)) << w.name;
    EXPECT_EQ(w.mask, record.u32(120)) << w.name;
    EXPECT_EQ("User record built by migration process", record.text(40, 60));
    EXPECT_EQ(3, record.u16(208));
    EXPECT_EQ(0u, record.u32(16));
  }
  EXPECT_EQ(1u, user("Administrator").u32(124));
  EXPECT_TRUE(user_targets("Administrator").empty());
  EXPECT_EQ((std::vector<std::string>{"OSLO"}), user_targets("plain"));
}

// ---- The limit of local targets

struct limit_case {
  std::uint32_t limit, local, becomes;
};

class LocalLimit : public TargetConversion, public ::testing::WithParamInterface<limit_case> {
 protected:
  LocalLimit() : TargetConversion({.max_targets = 3000, .max_local_targets = GetParam().limit}) {}
};

TEST_P(LocalLimit, BecomesWhatThereIsAndTenMoreAtMostTwoThousand) {
  for (std::uint32_t i = 0; i < GetParam().local; ++i)
    db_.file("db/target_config/T" + std::to_string(i), "NETWORK ID: R\nSHORT NAME: X\n");
  db_.target("AWAY", {.type = "remote", .rgn = "R", .ren = "Y"});  // does not count
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(GetParam().becomes, configured(4284));
  // The file is written in any case, with the limit where it is above the default.
  const std::string line = "MAX LOCAL TARGETS:    " + std::to_string(GetParam().becomes) + "\n";
  EXPECT_EQ(GetParam().becomes > 512, installation_->read("orvo.cfg").find(line) != std::string::npos);
  EXPECT_EQ(std::string::npos, installation_->read("orvo.cfg").find("MAX SERVER TARGETS"));
}

INSTANTIATE_TEST_SUITE_P(Limits, LocalLimit,
                         ::testing::Values(limit_case{512, 5, 512}, limit_case{512, 511, 512}, limit_case{512, 512, 512},
                                           limit_case{512, 600, 610}, limit_case{600, 600, 600},
                                           limit_case{600, 601, 611}, limit_case{10, 11, 21}));

TEST_F(TargetConversion, TheLimitEndsAtTwoThousand) {
  configure(4268, 3000);
  for (std::uint32_t i = 0; i < 1995; ++i) db_.file("db/target_config/T" + std::to_string(i), "NETWORK ID: R\n");
  ASSERT_EQ(DBE_OK, convert());
  EXPECT_EQ(2000u, configured(4284));
}

}  // namespace
