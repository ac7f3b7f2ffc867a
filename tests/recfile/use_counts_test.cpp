// Use counts after kills, and the repair of files whose writer died.
#include "recfile/child_process.h"
#include "recfile/record_files_fixture.h"
#include "recfile/use_ledger.h"

namespace zvrdb::recfile {
namespace {

class UseCounts : public ::testing::Test {
 protected:
  std::string path(const char* name) const { return installation.base() + "/db/" + name; }
  // A process that opens the files and is killed with them open.
  void open_and_be_killed() {
    zvrtest::child_process child([](zvrtest::parent_link& parent) {
      zvrtest::file_task own("victim");
      if (own.open() != 0) return 1;
      parent.die();
    });
    ASSERT_EQ(1000 + SIGKILL, child.finish());
  }
  zvrdb::test::TempInstallation installation;
};

TEST_F(UseCounts, CountsOfAKilledTaskAreTakenBackByTheNextOpener) {
  open_and_be_killed();
  open_and_be_killed();
  zvrtest::file_task files("next");
  ASSERT_EQ(0, files.open());
  for (const iocb& block : files.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
}

TEST_F(UseCounts, TheOpenerAfterAKillClearsTheFlagAsTheFirstOne) {
  open_and_be_killed();
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("catalog"), zvrtest::write_flag));
  zvrtest::file_task files("next");
  EXPECT_EQ(0, files.open());
  EXPECT_EQ(0, zvrtest::flag_on_disk(path("catalog")));
}

TEST_F(UseCounts, ANewTaskOpensBesideLiveTasksAFileThatADeadWriterFlagged) {
  zvrtest::file_task live("live");
  ASSERT_EQ(0, live.open());
  live.release();
  open_and_be_killed();
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  {
    zvrtest::file_task files("next");
    EXPECT_EQ(0, files.open());
    EXPECT_EQ(0, zvrtest::flag_on_disk(path("trgcfg")));
    EXPECT_EQ(2, files.cntl()->files[1].use_count);
  }
  EXPECT_EQ(1, live.cntl()->files[1].use_count);
}

TEST_F(UseCounts, ACountThatTheLedgerCannotExplainKeepsTheFlagBesideLiveTasks) {
  zvrtest::file_task live("live");
  ASSERT_EQ(0, live.open());
  live.cntl()->files[1].use_count = 2;
  live.release();
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  {
    zvrtest::file_task files("next");
    EXPECT_EQ(DBE_IO_ERROR, files.open());
    EXPECT_EQ(zvrtest::write_flag, zvrtest::flag_on_disk(path("trgcfg")));
  }
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), 0));
}

TEST_F(UseCounts, ReapingLeavesLiveTasksAndCountsSetByHandAlone) {
  zvrtest::file_task live("live");
  ASSERT_EQ(0, live.open());
  live.cntl()->files[2].use_count = 5;
  reap_dead_use_counts(live.task());
  EXPECT_EQ(1, live.cntl()->files[1].use_count);
  EXPECT_EQ(5, live.cntl()->files[2].use_count);
  EXPECT_EQ(1u, known_users(live.task(), 1));
}

TEST_F(UseCounts, TwoTasksOfOneProcessCountApart) {
  zvrtest::file_task first("first");
  ASSERT_EQ(0, first.open());
  first.release();
  {
    zvrtest::file_task second("second");
    ASSERT_EQ(0, second.open());
    EXPECT_EQ(2, second.cntl()->files[0].use_count);
    EXPECT_EQ(2u, known_users(second.task(), 0));
  }
  EXPECT_EQ(1, first.cntl()->files[0].use_count);
  EXPECT_EQ(1u, known_users(first.task(), 0));
}

TEST_F(UseCounts, RepairClearsTheFlagAndRollsBackUnderLiveHandles) {
  zvrtest::file_task live("live");
  ASSERT_EQ(0, live.open());
  live.release();
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    zvrtest::file_task own("writer");
    if (own.open() != 0 || start_trans(own.task(), 4) != DBE_OK) return 1;
    const std::uint32_t key[3] = {4, 9, 0};
    unsigned char copy[12];
    std::memcpy(copy, key, sizeof copy);
    const unsigned char record[30] = {};
    if (db_write(own.task(), own.tcb()->trg_file, copy, record, sizeof record) != DBE_OK) return 2;
    parent.die();
  });
  ASSERT_EQ(1000 + SIGKILL, child.finish());
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  live.take();
  reap_dead_use_counts(live.task());
  EXPECT_EQ(DBE_OK, repair_open_files(live.task()));
  EXPECT_EQ(0, zvrtest::flag_on_disk(path("trgcfg")));
  EXPECT_EQ(0, engine::transstat(live.tcb()->trg_file->psp));
  unsigned char key[12] = {};
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(live.task(), live.tcb()->trg_file, key, KEY_FIRST));
  EXPECT_EQ(1, live.cntl()->files[1].use_count);
}

TEST_F(UseCounts, RepairLeavesATransactionOfTheTaskItselfAlone) {
  zvrtest::file_task live("live");
  ASSERT_EQ(0, live.open());
  ASSERT_EQ(DBE_OK, start_trans(live.task(), 4));
  EXPECT_EQ(DBE_OK, repair_open_files(live.task()));
  EXPECT_EQ(1, live.tcb()->trans_active[4]);
  EXPECT_EQ(DBE_OK, commit(live.task(), 4));
}

TEST_F(UseCounts, RepairOfSoundFilesChangesNothing) {
  zvrtest::file_task live("live");
  ASSERT_EQ(0, live.open());
  EXPECT_EQ(DBE_OK, repair_open_files(live.task()));
  for (const iocb& block : live.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
}

}  // namespace
}  // namespace zvrdb::recfile
