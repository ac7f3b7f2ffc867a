// A whole older database, of some size, converted and looked at through the exported calls.
#include "memory/shared_tables.h"
#include "migration/migration_fixture.h"

using namespace migration_test;

namespace {

class WholeConversion : public MigrationTest {
 protected:
  static constexpr older_size size = {.targets = 40, .change_files = 60, .groups = 3, .damaged = true};
  WholeConversion() { write_older_database(installation_->base(), size); }
  void expect_all_there() {
    for (unsigned i = 0; i < size.targets; ++i) {
      const stored_record record = target(target_name(i));
      ASSERT_EQ(DBE_OK, record.rc) << i;
      EXPECT_EQ(target_name(i / 10 * 10), record.text(192, 64)) << i;
      EXPECT_EQ(i % 4 == 2 ? DBE_NOT_FOUND : DBE_OK, get(DB_THW, target_name(i), 20804).rc) << i;
      EXPECT_EQ(DBE_OK, get(DB_PRM, target_name(i), 62812).rc) << i;
    }
    EXPECT_EQ(DBE_OK, change_file("APP.PART.REF.0").rc);
    EXPECT_EQ(DBE_NOT_FOUND, change_file("HALF.FREE").rc);
    EXPECT_EQ(3u, keyed(DB_TG, "GROUP0", 64152).u16(148));
    EXPECT_EQ(DBE_OK, keyed(DB_USR, "remuser", 1236).rc);
    char reason[160] = "";
    EXPECT_EQ(1, framed([&] { return zvrdb::memory::tables_sound(task, reason, sizeof reason) ? 1 : 0; })) << reason;
    EXPECT_EQ(1, framed([&] { return zvrdb::memory::catalog_sound(task, reason, sizeof reason) ? 1 : 0; })) << reason;
  }
};

TEST_F(WholeConversion, BringsEveryRecordOver) {
  heard what;
  ASSERT_EQ(DBE_OK, migrate(&what)) << (what.notes.empty() ? "" : what.notes.back());
  expect_all_there();
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0, 0}), what.ends);
  EXPECT_EQ(40u, what.counts["1 targets"]);
  EXPECT_EQ(30u, what.counts["1 hardware records"]);
  EXPECT_EQ(40u, what.counts["1 parameter records"]);
  EXPECT_EQ(5u, what.counts["1 users"]);
  EXPECT_EQ(8u, what.counts["1 users passed over"]);
  EXPECT_EQ(200u, what.counts["2 pairs"]);
  EXPECT_EQ(3u, what.counts["3 target groups"]);
  EXPECT_EQ(8u, logged(36465));
}

TEST_F(WholeConversion, LeavesNothingOfTheOlderLayoutButItsCatalog) {
  ASSERT_EQ(DBE_OK, migrate());
  EXPECT_EQ((std::vector<std::string>{"auth", "catalog", "catalog.old.done", "cmstatus", "tmp", "trgcfg", "trggrp",
                                      "user_config", "users"}),
            db_.entries_of_db());
}

TEST_F(WholeConversion, TheTaskGoesOnWithItsFirstCall) {
  ASSERT_EQ(DBE_OK, migrate());
  EXPECT_EQ(nullptr, tcb());
  EXPECT_EQ(0, co_slots(task)->in_das);
  EXPECT_EQ(DBE_OK, target(target_name(7)).rc);
}

TEST_F(WholeConversion, ASecondRunConvertsNothingAgain) {
  ASSERT_EQ(DBE_OK, migrate());
  expect_all_there();
  heard what;
  ASSERT_EQ(DBE_OK, migrate(&what));
  EXPECT_EQ((std::vector<std::string>{"0 converted", "1 converted", "2 converted", "3 converted",
                                      "4 access keys and profiles", "5 the user \"remuser\""}),
            what.begins);
  expect_all_there();
}

TEST_F(WholeConversion, ADryRunTellsTheSameAndWritesNothing) {
  const std::vector<std::string> before = db_.entries_of_db();
  const std::string config = installation_->read("orvo.cfg");
  heard rehearsed;
  ASSERT_EQ(DBE_OK, migrate(&rehearsed, DB_MIG_DRY_RUN));
  EXPECT_EQ(before, db_.entries_of_db());
  EXPECT_EQ(config, installation_->read("orvo.cfg"));
  EXPECT_EQ(0u, logged(36465));
  heard what;
  ASSERT_EQ(DBE_OK, migrate(&what));
  for (const char* kind : {"0 change files", "0 free entries", "0 corrupt entries freed", "1 targets",
                           "1 hardware records", "1 parameter records", "1 users passed over", "2 pairs",
                           "3 target groups"})
    EXPECT_EQ(what.counts[kind], rehearsed.counts[kind]) << kind;
}

TEST_F(WholeConversion, OtherTasksBuildTheirTablesAnew) {
  ASSERT_EQ(DBE_OK, migrate());
  ASSERT_EQ(DBE_OK, target(target_name(0)).rc);
  const std::uint32_t generation = tcb()->cntl->shm_generation;
  void* other = co_init_task("other", nullptr, 0);
  ASSERT_NE(nullptr, other);
  ASSERT_EQ(DBE_OK, db_mig_das(other));
  EXPECT_LT(generation, tcb()->cntl->shm_generation);
  EXPECT_EQ(DBE_OK, target(target_name(0)).rc);
  coi_term_task(other, 0);
}

TEST_F(WholeConversion, IsRefusedInATransaction) {
  ASSERT_EQ(DBE_OK, migrate());
  ASSERT_EQ(DBE_OK, target(target_name(0)).rc);
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_EQ(DBE_TRANS_IN_PROGRESS, migrate());
  EXPECT_EQ(DBE_OK, db_rollback(task, DB_TRG));
}

TEST_F(WholeConversion, IsRefusedBetweenTheTwoCallsOnAStatus) {
  ASSERT_EQ(DBE_OK, migrate());
  unsigned char status[4] = {};
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, target_name(0).c_str(), status));
  EXPECT_EQ(DBE_TRANS_IN_PROGRESS, migrate());
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, target_name(0).c_str(), status));
}

// The task has opened the new files between two runs, and one of them is made anew.
TEST_F(WholeConversion, ATaskThatHasTheFilesOpenGoesOnWithTheNewOnes) {
  const std::string sound = installation_->read("db/target_config/" + target_name(5));
  db_.file("db/target_config/" + target_name(5), "WRONG: 1\n");
  ASSERT_EQ(DBE_MIGRATION, migrate());
  EXPECT_EQ(DBE_NOT_FOUND, target("NOBODY").rc);
  db_.file("db/target_tmp/" + target_name(5), sound);
  ASSERT_EQ(DBE_OK, migrate());
  expect_all_there();
}

TEST_F(WholeConversion, AFileThatAnotherTaskHasOpenIsNotTakenAway) {
  const std::string sound = installation_->read("db/target_config/" + target_name(5));
  db_.file("db/target_config/" + target_name(5), "WRONG: 1\n");
  ASSERT_EQ(DBE_MIGRATION, migrate());
  db_.file("db/target_tmp/" + target_name(5), sound);
  EXPECT_EQ(DBE_NOT_FOUND, target("NOBODY").rc);
  void* other = co_init_task("other", nullptr, 0);
  ASSERT_NE(nullptr, other);
  heard what;
  EXPECT_EQ(DBE_MIGRATION, db_mig_watched(other, 0, watcher(), &what));
  EXPECT_TRUE(what.noted("trgcfg is open in another task"));
  coi_term_task(other, 0);
  ASSERT_EQ(DBE_OK, migrate());
  expect_all_there();
}

TEST_F(WholeConversion, NeedsATask) {
  EXPECT_EQ(DBE_INIT_FAILED, db_mig_das(nullptr));
}

}  // namespace
