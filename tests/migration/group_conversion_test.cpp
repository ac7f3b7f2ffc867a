// The stages of target groups, authorization and the remote user.
#include <cstring>
#include <filesystem>

#include "migration/group_record.h"
#include "migration/migration_fixture.h"

using namespace migration_test;

namespace {

constexpr int not_reached = -1;

class LaterStages : public MigrationTest {
 protected:
  LaterStages() {
    for (const char* name : {"A", "B", "C"}) {
      db_.target(name, {.rgn = "N", .ren = name});
      db_.status(name, "");
    }
  }
  int stage(std::size_t i) {
    what_ = {};
    migrate(&what_);
    return what_.ends.size() > i ? what_.ends[i] : not_reached;
  }
  int groups() { return stage(3); }
  int authorization() { return stage(4); }
  void rename(const char* from, const char* to) {
    std::filesystem::rename(installation_->path(from), installation_->path(to));
  }
  heard what_;
};

TEST_F(LaterStages, AGroupHasItsMembersAndItsPlaces) {
  db_.group("OFFICE", {.type = "pull", .os = "SOLARIS", .ren = "GRP1", .members = {"C", "A"}, .tsps = 7});
  ASSERT_EQ(DBE_OK, groups());
  const stored_record record = keyed(DB_TG, "OFFICE", 64152);
  ASSERT_EQ(DBE_OK, record.rc);
  EXPECT_EQ("OFFICE", record.text(0, 64));
  EXPECT_EQ("An older group", record.text(64, 60));
  EXPECT_EQ("GRP1", record.text(132, 8));
  EXPECT_EQ(64u, record.byte(144));
  EXPECT_EQ(7u, record.byte(145));
  EXPECT_EQ(1u, record.byte(146));
  EXPECT_EQ(2, record.u16(148));
  EXPECT_EQ(7, record.u16(150));
  EXPECT_EQ("C", record.text(152, 64));
  EXPECT_EQ("A", record.text(216, 64));
}

TEST(GroupRecord, TheModeFollowsTheOlderType) {
  constexpr struct {
    unsigned char older, mode;
  } cases[] = {{68, 1}, {66, 2}, {70, 2}, {64, 16}, {200, 4}, {192, 2}, {196, 2}, {0, 16}};
  std::vector<unsigned char> older(64152), record(64152);
  for (const auto& c : cases) {
    older[140] = c.older;
    zvrdb::migration::copy_tg_rec(record.data(), older.data());
    EXPECT_EQ(c.mode, record[146]) << static_cast<int>(c.older);
  }
}

TEST(GroupRecord, ACountAboveAThousandIsBounded) {
  std::vector<unsigned char> older(64152, 0xFF), record(64152);
  zvrdb::migration::copy_tg_rec(record.data(), older.data());
  std::uint16_t count;
  std::memcpy(&count, record.data() + 148, sizeof count);
  EXPECT_EQ(1000, count);
}

TEST_F(LaterStages, AMemberThatIsNoTargetEndsTheStage) {
  db_.group("OFFICE", {.members = {"A", "NOBODY"}});
  EXPECT_EQ(DBE_NO_TARGET, groups());
  EXPECT_TRUE(what_.noted("the group OFFICE has a member that is no target"));
}

TEST_F(LaterStages, AGroupThatCannotBeParsedEndsTheStage) {
  db_.file("db/target_group/OFFICE", "WRONG: 1\n");
  EXPECT_EQ(6425, groups());
}

TEST_F(LaterStages, WithoutGroupsTheStageIsDone) {
  EXPECT_EQ(DBE_OK, groups());
  EXPECT_TRUE(db_.there("db/trggrp"));
  EXPECT_FALSE(db_.there("db/target_group.old"));
}

TEST_F(LaterStages, GroupsWithNeitherDirectoryNorFileFail) {
  std::filesystem::remove_all(installation_->path("db/target_group"));
  EXPECT_EQ(DBE_IO_ERROR, groups());
}

TEST_F(LaterStages, GroupsGoOnFromTheRenamedDirectory) {
  db_.group("OFFICE", {.members = {"A"}});
  rename("db/target_group", "db/target_group.old");
  ASSERT_EQ(DBE_OK, groups());
  EXPECT_EQ(1, keyed(DB_TG, "OFFICE", 64152).u16(148));
}

TEST_F(LaterStages, AGroupFileThatWasBegunIsMadeAnew) {
  db_.group("OFFICE", {.members = {"A"}});
  rename("db/target_group", "db/target_group.old");
  db_.file("db/trggrp", "a begin");
  ASSERT_EQ(DBE_OK, groups());
  EXPECT_EQ(1, keyed(DB_TG, "OFFICE", 64152).u16(148));
}

TEST_F(LaterStages, AGroupFileThatWasBegunAndCannotBeRemovedFails) {
  rename("db/target_group", "db/target_group.old");
  std::filesystem::create_directories(installation_->path("db/trggrp/inside"));
  EXPECT_EQ(DBE_IO_ERROR, groups());
}

TEST_F(LaterStages, BothNamesOfTheOlderGroupsAreRefused) {
  std::filesystem::create_directories(installation_->path("db/target_group.old"));
  EXPECT_EQ(6425, groups());
}

TEST_F(LaterStages, ConvertedGroupsAreOnlyTidiedUp) {
  db_.group("OFFICE", {.members = {"A"}});
  ASSERT_EQ(DBE_OK, groups());
  new_task();
  db_.file("db/target_group.old.done/X", "what a kill left");
  EXPECT_EQ(DBE_OK, groups());
  EXPECT_EQ("3 converted", what_.begins.at(3));
  EXPECT_FALSE(db_.there("db/target_group.old.done"));
  EXPECT_EQ(1, keyed(DB_TG, "OFFICE", 64152).u16(148));
}

// ---- Authorization

TEST_F(LaterStages, BothTablesOfAccessKeysAreNumbered) {
  ASSERT_EQ(DBE_OK, authorization());
  for (const auto& [db_id, stem] : {std::pair<std::uint32_t, std::string>{DB_TAK, "TAK"}, {DB_DAK, "DAK"}}) {
    const stored_record record = keyed(db_id, "", 2432);
    ASSERT_EQ(DBE_OK, record.rc);
    for (unsigned i = 0; i < 32; ++i) {
      const std::string name = stem + std::to_string(i + 1);
      EXPECT_EQ(name, record.text(i * 76, 12));
      EXPECT_EQ(1u << i, record.u32(i * 76 + 12));
      EXPECT_EQ("This is " + name, record.text(i * 76 + 16, 60));
    }
  }
}

TEST_F(LaterStages, TablesThatProgramsHaveReadAreReadAnew) {
  auto* cache = static_cast<unsigned char*>(co_croca(task, CO_AREA_TARGET_KEYS));
  cache[0] = 1;
  ASSERT_EQ(DBE_OK, authorization());
  EXPECT_EQ(0, cache[0]);
}

TEST_F(LaterStages, EachProfileHasTheRightsOfItsClass) {
  ASSERT_EQ(DBE_OK, authorization());
  const struct {
    const char* name;
    std::vector<unsigned char> rights;
  } wanted[] = {{"ZVRUSER", {1, 1, 3, 1, 1, 1, 1, 0, 0, 0, 0, 0}},
                {"ZVRBLD", {1, 1, 3, 1, 1, 1, 1, 1, 1, 0, 0, 0}},
                {"ZVRADMN", {2, 2, 15, 1, 2, 2, 1, 1, 1, 0, 0, 0}}};
  for (const auto& w : wanted) {
    const stored_record record = keyed(DB_APR, w.name, 28);
    ASSERT_EQ(DBE_OK, record.rc) << w.name;
    EXPECT_EQ(w.name, record.text(0, 16));
    EXPECT_EQ(w.rights, (std::vector<unsigned char>(record.bytes.begin() + 16, record.bytes.end()))) << w.name;
  }
}

TEST_F(LaterStages, WithoutTheUserConfigurationAuthorizationFails) {
  std::filesystem::remove(installation_->path("db/user_config"));
  EXPECT_EQ(DBE_IO_ERROR, authorization());
  new_task();
  db_.file("db/user_config", "CONFIG_USER: everything\n");
  EXPECT_EQ(6425, authorization());
}

TEST_F(LaterStages, TheRemoteUserIsMadeAndWrittenAnew) {
  ASSERT_EQ(DBE_OK, stage(5));
  const stored_record record = keyed(DB_USR, "remuser", 1236);
  ASSERT_EQ(DBE_OK, record.rc);
  EXPECT_EQ("remuser", record.text(0, 16));
  EXPECT_EQ(std::vector<unsigned char>(1220), (std::vector<unsigned char>(record.bytes.begin() + 16, record.bytes.end())));
}

}  // namespace
