// Dead writers, dead readers, and the generations of the shared memory.
#include "frame/frame_fixture.h"
#include "frame/shared_memory.h"
#include "recfile/recfile.h"
#include "support/journal_mode.h"

namespace zvrdb::frame {
namespace {

using zvrtest::child_process;
using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::get_target_from_file;
using zvrtest::logged;
using zvrtest::parent_link;
using zvrtest::put_target;

class Generations : public zvrtest::FrameTest {
 protected:
  std::string path(const char* name) const { return installation.base() + "/db/" + name; }

  // A process that does its work and is killed where it stands.
  void killed_after(const std::function<bool(void* task)>& work) {
    child_process child([&work](parent_link& parent) {
      void* task = co_init_task("victim", nullptr, 0);
      if (!task || !work(task)) return 1;
      parent.die();
    });
    ASSERT_EQ(1000 + SIGKILL, child.finish());
  }

  // A child's task that has the generation of "A", and none when it does not see "A".  The child
  // is forked before there is a task: what it inherits mapped stays mapped in it.
  static void* task_that_saw_a(parent_link& parent) {
    parent.stop_here();
    void* own = co_init_task("other", nullptr, 0);
    if (get_target(own, "A") != DBE_OK) return nullptr;
    parent.stop_here();
    return own;
  }
  // The next generation begins with "B" while that child has the one of "A".
  static void go_on_without(child_process& child, const client_task& task) {
    ASSERT_EQ(DBE_OK, put_target(task, "A"));
    child.go_on();
    ASSERT_EQ(1, child.next());
    task.cntl()->fwrite_in_prog = 1;
    ASSERT_EQ(DBE_OK, put_target(task, "B"));
  }
};

TEST_F(Generations, AReadFindsAWriterThatDiedInsideItsCall) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) { return dbr_in(own, operation::write, DB_TRG) == DBE_OK; });
  EXPECT_EQ(1, task.cntl()->fwrite_in_prog);
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
  EXPECT_EQ(1u, task.tcb()->shm_generation);
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  EXPECT_EQ(1u, logged(task, 36356));
  EXPECT_GT(co_shmlen(task, "MEM_0001"), 0u);
  EXPECT_EQ(0u, co_shmlen(task, "MEM_0000"));
  std::uint32_t signal = 0;
  EXPECT_EQ(CO_OK, co_get_signal(task, 3, &signal));
  EXPECT_EQ(2u, signal);
}

TEST_F(Generations, WhatADeadWriterLeftInMemoryIsThrownAway) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) {
    if (dbr_in(own, operation::write, DB_TRG) != DBE_OK) return false;
    DBR_TCB* tcb = tcb_of(own);
    tcb->name_index[0].trg_index = 99;
    tcb->cntl->num_trgs_actual = 7;
    std::strcpy(tcb->trg_cntl[0].trg_name, "BROKEN");
    return true;
  });
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(1u, task.cntl()->num_trgs_actual);
  EXPECT_EQ(DBE_NOT_FOUND, get_target(task, "BROKEN"));
}

TEST_F(Generations, AFlagSetByHandIsFoundByTheNextRead) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  task.cntl()->fwrite_in_prog = 1;
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
}

TEST_F(Generations, AWriterKilledInsideATransactionOfItsFileIsRolledBackUnderLiveTasks) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) {
    if (dbr_in(own, operation::write, DB_TRG) != DBE_OK) return false;
    if (recfile::start_trans(own, DB_TRG) != DBE_OK) return false;
    unsigned char key[12] = {4, 0, 0, 0, 50};
    const unsigned char record[40] = {};
    return recfile::db_write(own, tcb_of(own)->trg_file, key, record, sizeof record) == DBE_OK;
  });
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  // The file takes writes again, and the half of the transaction is gone.
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  EXPECT_EQ(DBE_OK, get_target_from_file(task, "B"));
  EXPECT_EQ(2u, task.cntl()->num_trgs_actual);
}

TEST_F(Generations, AWriteFlagInAFileIsClearedUnderLiveTasks) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) { return dbr_in(own, operation::write, DB_TRG) == DBE_OK; });
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  EXPECT_EQ(0, zvrtest::flag_on_disk(path("trgcfg")));
}

TEST_F(Generations, ANewTaskIsTheFinderWhileOthersLive) {
  client_task live("live");
  ASSERT_EQ(DBE_OK, put_target(live, "A"));
  killed_after([](void* own) { return dbr_in(own, operation::write, DB_TRG) == DBE_OK; });
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  client_task fresh("fresh");
  EXPECT_EQ(DBE_OK, get_target(fresh, "A"));
  EXPECT_EQ(1u, fresh.cntl()->shm_generation);
  EXPECT_EQ(DBE_OK, put_target(live, "B"));
  EXPECT_EQ(1u, live.tcb()->shm_generation);
  EXPECT_EQ(2, live.cntl()->files[1].use_count);
}

TEST_F(Generations, ADeathBetweenTheCallsOfATransactionRaisesTheGeneration) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after(
      [](void* own) { return db_start_trans(own, DB_TRG) == DBE_OK && put_target(own, "HALF") == DBE_OK; });
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  EXPECT_EQ(DBE_NOT_FOUND, get_target(task, "HALF"));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
  EXPECT_EQ(1u, logged(task, 36356));
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
}

TEST_F(Generations, ADeathAfterACommitRaisesNothing) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) {
    return db_start_trans(own, DB_TRG) == DBE_OK && put_target(own, "WHOLE") == DBE_OK &&
           db_commit(own, DB_TRG) == DBE_OK;
  });
  EXPECT_EQ(DBE_OK, get_target_from_file(task, "WHOLE"));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(Generations, AKilledReaderRaisesNothingAndKeepsTheStatus) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  unsigned char status[4] = {9, 8, 7, 6};
  unsigned char old[4];
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", old));
  ASSERT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  killed_after([](void* own) { return dbr_in(own, operation::read, DB_TRG) == DBE_OK; });
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", old));
  EXPECT_EQ(0, std::memcmp(status, old, 4));
  ASSERT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
  EXPECT_EQ(0u, logged(task, 36356));
  EXPECT_EQ(1, task.cntl()->files[0].use_count);
}

TEST_F(Generations, AFileThatADyingReaderLeftFlaggedIsClearedWithoutANewGeneration) {
  // As a first call leaves it that is killed while it repairs what an earlier one left.
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) { return dbr_in(own, operation::read, DB_TRG) == DBE_OK; });
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  EXPECT_EQ(DBE_OK, put_target(task, "B"));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(Generations, ATaskKilledInsideTheStatusPairIsAReader) {
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) {
    unsigned char status[4];
    return db_get_trg_stat(own, "A", status) == DBE_OK;
  });
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(Generations, AKillBetweenCallsLeavesRightUseCountsBehind) {
  client_task task("live");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  killed_after([](void* own) { return put_target(own, "B") == DBE_OK; });
  EXPECT_EQ(2, task.cntl()->files[1].use_count);
  client_task next("next");
  EXPECT_EQ(DBE_OK, get_target(next, "B"));
  EXPECT_EQ(2, task.cntl()->files[1].use_count);
}

TEST_F(Generations, AKilledFirstCallOfAnInstallationIsRepeatedByTheNext) {
  killed_after([](void* own) { return dbr_in(own, operation::write, DB_TRG) == DBE_OK; });
  client_task task("next");
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
}

// As a call does that finds no room in the tables for one more record.
TEST_F(Generations, ACallThatRaisesTheGenerationBuildsItBeforeItLeaves) {
  client_task task("raises");
  client_task beside("beside");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  char config[100];
  ASSERT_EQ(DBE_OK, db_get(beside, DB_CFG, 0, nullptr, config, sizeof config));
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::write, DB_CAT));
  memory::raise_generation(task);
  dbr_out(task, operation::write, DB_CAT, DBE_OK);
  EXPECT_EQ(1u, task.tcb()->shm_generation);
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(2u, logged(task, 36359));
  // A call of class 0 alone could not build it, and would wait for nobody.
  co_test_delay_factor(0, 1);
  const std::uint64_t before = co_test_delayed();
  EXPECT_EQ(DBE_OK, db_get(beside, DB_CFG, 0, nullptr, config, sizeof config));
  EXPECT_EQ(before, co_test_delayed());
  co_test_delay_factor(1, 1);
  EXPECT_EQ(DBE_OK, get_target(beside, "A"));
  EXPECT_EQ(2u, logged(task, 36359));
}

TEST_F(Generations, OldGenerationsDoNotPileUp) {
  client_task first("first");
  client_task second("second");
  ASSERT_EQ(DBE_OK, put_target(first, "A"));
  ASSERT_EQ(DBE_OK, get_target(second, "A"));
  const std::string folder = co_shared_folder(first);
  const std::uint64_t before = zvrtest::bytes_in(folder);
  for (int i = 0; i < 40; ++i) {
    first.cntl()->fwrite_in_prog = 1;
    ASSERT_EQ(DBE_OK, get_target(i % 2 ? first : second, "A"));
    ASSERT_EQ(DBE_OK, get_target(i % 2 ? second : first, "A"));
  }
  EXPECT_EQ(40u, first.cntl()->shm_generation);
  EXPECT_EQ(1u, zvrtest::segments_in(folder));
  EXPECT_LE(zvrtest::bytes_in(folder), before + 65536);
}

TEST_F(Generations, ATaskInAnotherProcessMovesAtItsNextCall) {
  child_process child([](parent_link& parent) {
    void* own = task_that_saw_a(parent);
    if (!own) return 1;
    if (get_target(own, "B") != DBE_OK) return 2;
    if (tcb_of(own)->shm_generation != 1) return 3;
    coi_term_task(own, 0);
    return 0;
  });
  ASSERT_EQ(1, child.next());
  client_task task("mover");
  go_on_without(child, task);
  ASSERT_FALSE(HasFatalFailure());
  EXPECT_EQ(2u, zvrtest::segments_in(co_shared_folder(task)));
  child.go_on();
  EXPECT_EQ(0, child.finish());
  EXPECT_EQ(1u, zvrtest::segments_in(co_shared_folder(task)));
}

TEST_F(Generations, AnOldOneThatATaskHadWhenItWasKilledGoesWithTheNextTaskThatComes) {
  child_process child([](parent_link& parent) { return task_that_saw_a(parent) ? 0 : 1; });
  ASSERT_EQ(1, child.next());
  client_task task("mover");
  go_on_without(child, task);
  ASSERT_FALSE(HasFatalFailure());
  child.kill_now();
  EXPECT_EQ(2u, zvrtest::segments_in(co_shared_folder(task)));
  client_task next("next");
  ASSERT_EQ(DBE_OK, get_target(next, "B"));
  EXPECT_EQ(1u, zvrtest::segments_in(co_shared_folder(task)));
}

// Descriptors ran out just then, say: tables of no length would stay for everybody.
TEST_F(Generations, NoTablesAreBuiltWhileTheConfigurationCannotBeHad) {
  client_task task("first");
  const std::string area = std::string(co_shared_folder(task)) + "/area-1";
  const std::string aside = area + ".aside";
  ASSERT_EQ(0, rename(area.c_str(), aside.c_str()));
  ASSERT_EQ(0, mkdir(area.c_str(), 0700));
  EXPECT_EQ(DBE_INIT_FAILED, put_target(task, "A"));
  ASSERT_EQ(0, rmdir(area.c_str()));
  ASSERT_EQ(0, rename(aside.c_str(), area.c_str()));
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(100u, task.cntl()->num_trgs_allowed);
}

TEST_F(Generations, ASegmentThatItsBuilderLeftUnfinishedIsClearedFirst) {
  client_task task("next");
  auto* base =
      static_cast<unsigned char*>(co_malloc(task, 4 + 100 * 204 + 500 * 172, CO_MEM_SHARED, "MEM_0000"));
  ASSERT_NE(nullptr, base);
  std::memset(base + 4, 1, 100 * 204 + 500 * 172);
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(0u, task.cntl()->shm_generation);
  EXPECT_EQ(1u, task.cntl()->num_trgs_actual);
}

TEST_F(Generations, AnUnfinishedSegmentOfOtherLengthsIsPassedOver) {
  client_task task("next");
  ASSERT_NE(nullptr, co_malloc(task, 64, CO_MEM_SHARED, "MEM_0000"));
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
  EXPECT_EQ(4u + 100 * 204 + 500 * 172, co_shmlen(task, "MEM_0001"));
}

TEST_F(Generations, AFinishedSegmentThatIsTooShortIsNeverMapped) {
  client_task task("next");
  auto* base = static_cast<unsigned char*>(co_malloc(task, 64, CO_MEM_SHARED, "MEM_0000"));
  ASSERT_NE(nullptr, base);
  base[0] = 1;
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(1u, task.cntl()->shm_generation);
}

TEST_F(Generations, AFailedLoadIsMadeGoodWhenItsReasonIsGone) {
  client_task task("limits");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  ASSERT_EQ(DBE_OK, put_target(task, "B"));
  ASSERT_EQ(DBE_OK, put_target(task, "C"));
  auto* config = static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  const auto allow = [config](std::uint32_t targets) {
    std::memcpy(config + 4268, &targets, sizeof targets);
  };
  allow(2);
  task.cntl()->fwrite_in_prog = 1;
  EXPECT_EQ(DBE_INIT_FAILED, get_target(task, "A"));
  EXPECT_EQ(DBE_INIT_FAILED, get_target(task, "A"));
  allow(200);
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(200u, task.cntl()->num_trgs_allowed);
  EXPECT_EQ(3u, task.cntl()->num_trgs_actual);
}

TEST_F(Generations, ChangedLimitsDoNotChangeTheLayoutOfALivingGeneration) {
  client_task task("first");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  auto* config = static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  const std::uint32_t more = 500;
  std::memcpy(config + 4268, &more, sizeof more);
  client_task later("later");
  EXPECT_EQ(DBE_OK, get_target(later, "A"));
  EXPECT_EQ(100u, later.cntl()->num_trgs_allowed);
  EXPECT_EQ(0u, later.cntl()->shm_generation);
}

TEST_F(Generations, WritersKilledAtEveryStepOfAPutLeaveASoundInstallation) {
  if (!zvrdb::test::journals_on()) GTEST_SKIP() << "the literal order of writes does not survive every kill";
  // The child puts targets one after the other and is killed at moments that the
  // number of bytes in the file decides, not the clock.
  client_task task("finder");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  for (int round = 0; round < 12; ++round) {
    child_process child([round](parent_link& parent) {
      void* own = co_init_task("putter", nullptr, 0);
      char name[16];
      for (unsigned char i = 0; i < 200; ++i) {
        std::snprintf(name, sizeof name, "R%d_%d", round % 3, i % 20);
        const std::int16_t rc = i % 5 == 4 ? zvrtest::delete_target(own, name) : put_target(own, name);
        if (rc != DBE_OK && rc != DBE_RECORD_REPLACED && rc != DBE_NOT_FOUND) return 1;
        parent.tell(i);
      }
      return 0;
    });
    for (int i = 0; i <= round * 3; ++i) ASSERT_EQ(i, child.next());
    child.kill_now();
    ASSERT_EQ(DBE_OK, get_target(task, "A"));
    char reason[200] = {};
    ASSERT_TRUE(memory::tables_sound(task, reason, sizeof reason)) << reason;
    ASSERT_EQ(DBE_RECORD_REPLACED, put_target(task, "A"));
  }
}

}  // namespace
}  // namespace zvrdb::frame
