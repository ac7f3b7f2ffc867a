// The counts of groups: taken when the shared memory is built, and right after roll-backs
// and kills.
#include <signal.h>

#include "engine/format.h"
#include "engine/os_file.h"
#include "recfile/recfile.h"
#include "users/groups.h"
#include "users/users_fixture.h"

namespace users_test {
namespace {

constexpr int no_kill = -1;
int operations_left = no_kill;

// Dies where a write operation of the engine would begin: between two of them a kill must
// leave nothing half done.
engine::lock_answer lock_or_die(int file, std::uint64_t offset, std::uint64_t length) {
  if (offset == engine::arbiter_byte) {
    if (operations_left == 0) raise(SIGKILL);
    if (operations_left > 0) --operations_left;
  }
  return engine::linux_ops.lock(file, offset, length);
}

class GroupCounts : public UsersTest {
 protected:
  void SetUp() override {
    operations_left = no_kill;
    operations = engine::linux_ops;
    operations.lock = lock_or_die;
    engine::set_os_ops(&operations);
    UsersTest::SetUp();
  }
  void TearDown() override {
    UsersTest::TearDown();
    engine::set_os_ops(nullptr);
  }
  void put_groups(unsigned groups, unsigned dynamic_groups) {
    for (unsigned i = 0; i < groups; ++i) ASSERT_EQ(store(group(numbered("G", i))), DBE_RECORD_REPLACED);
    for (unsigned i = 0; i < dynamic_groups; ++i)
      ASSERT_EQ(store(dynamic_group(numbered("D", i))), DBE_RECORD_REPLACED);
  }
  // A child does the work and is killed before its first, second and later write operation,
  // until it comes to its end; each time `check` looks at what there is.
  void kill_at_each_operation(const std::function<void(void* task)>& work,
                              const std::function<void()>& check) {
    for (int done = 0;; ++done) {
      SCOPED_TRACE(numbered("killed behind write operation ", static_cast<unsigned>(done)));
      ASSERT_LT(done, 100);
      const int end = in_child([&](void* child) {
        operations_left = done;
        work(child);
        const bool over = operations_left > 0;
        operations_left = no_kill;
        return over ? 1 : 0;
      });
      check();
      if (end == 1 || HasFailure()) return;
    }
  }
  // The counts are those of the files, whatever these are.
  void expect_agreement() {
    EXPECT_EQ(index_rc(""), DBE_NO_TARGET);  // repairs what the dead one left
    expect_counts(groups_in_file(DB_TG), groups_in_file(DB_DTG));
  }

  engine::os_ops operations{};
};

TEST_F(GroupCounts, AreTakenWhenTheMemoryIsBuilt) {
  put_groups(3, 2);
  cntl()->num_tg_actual = cntl()->num_dtg_actual = 99;
  ASSERT_EQ(rebuild(), DBE_OK);
  expect_counts(3, 2);
}

TEST_F(GroupCounts, OfEmptyFilesAreZero) {
  cntl()->num_tg_actual = cntl()->num_dtg_actual = 99;
  ASSERT_EQ(rebuild(), DBE_OK);
  expect_counts(0, 0);
}

TEST_F(GroupCounts, AreLeftAloneWhileTheGenerationStands) {
  put_groups(1, 1);
  cntl()->num_tg_actual = cntl()->num_dtg_actual = 99;
  new_task();
  EXPECT_EQ(index_rc(""), DBE_NO_TARGET);
  EXPECT_EQ(users::count_tg(task), DBE_OK);
  EXPECT_EQ(users::count_dtg(task), DBE_OK);
  EXPECT_EQ(cntl()->num_tg_actual, 99u);
  EXPECT_EQ(cntl()->num_dtg_actual, 99u);
}

TEST_F(GroupCounts, ALongGroupIsOneGroup) {
  put_targets(1);
  const std::vector<std::string> members(1000, "T0");
  db_dtg dynamic = dynamic_group("D", std::string(4000, 's'), std::vector<std::string>(800, "T0"));
  ASSERT_EQ(store(group("G", members)), DBE_RECORD_REPLACED);
  ASSERT_EQ(store(dynamic), DBE_RECORD_REPLACED);
  ASSERT_EQ(rebuild(), DBE_OK);
  expect_counts(1, 1);
}

TEST_F(GroupCounts, GroupsBeyondTheLimitStayAndAreLoggedAndNotCounted) {
  const std::string full(64, 'Z');
  put_groups(3, 2);
  ASSERT_EQ(store(group(full)), DBE_RECORD_REPLACED);
  configure(2);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(cntl()->num_tg_actual, 2u) << "each kind is held against the whole limit";
  EXPECT_EQ(cntl()->num_dtg_actual, 2u);
  EXPECT_EQ(groups_in_file(DB_TG), 4u);
  EXPECT_EQ(logged(36418), 2);
  EXPECT_NE(last_logged(36418).find("The group " + full + " exceeds the limit of 2"), std::string::npos)
      << last_logged(36418);
  EXPECT_EQ(load(DB_TG, "G2", 64), DBE_OK);
  EXPECT_EQ(store(group("G2")), DBE_RECORD_REPLACED) << "and can be changed";
  configure(100);
}

TEST_F(GroupCounts, NeverFallBelowZero) {
  put_groups(2, 1);
  configure(0);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(cntl()->num_tg_actual, 0u);
  EXPECT_EQ(drop(DB_TG, "G0"), DBE_OK) << "an uncounted group";
  EXPECT_EQ(drop(DB_DTG, "D0"), DBE_OK);
  EXPECT_EQ(cntl()->num_tg_actual, 0u);
  EXPECT_EQ(cntl()->num_dtg_actual, 0u);
  configure(100);
}

TEST_F(GroupCounts, ARecordOfAnotherTypeEndsTheWalkAndNothingIsStored) {
  put_groups(2, 0);
  // Behind all groups, for its type is a higher number.
  Bytes foreign(80);
  foreign[0] = 7;
  foreign[4] = 'X';
  ASSERT_EQ(recfile::db_write(task, tcb()->tg_file, foreign.data(), foreign.data(), 80), DBE_OK);
  cntl()->num_tg_actual = 41;
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(cntl()->num_tg_actual, 41u);
  cntl()->num_tg_actual = 2;
}

TEST_F(GroupCounts, ARollBackTakesAddedGroupsOutOfThem) {
  put_groups(1, 1);
  for (const std::uint32_t db_id : {DB_TG, DB_DTG}) {
    ASSERT_EQ(db_start_trans(task, db_id), DBE_OK);
    if (db_id == DB_TG)
      ASSERT_EQ(store(group("NEW")), DBE_RECORD_REPLACED);
    else
      ASSERT_EQ(store(dynamic_group("NEW")), DBE_RECORD_REPLACED);
    ASSERT_EQ(db_rollback(task, db_id), DBE_OK);
    expect_counts(1, 1);
  }
}

// A generation costs the volatile status of all targets.
TEST_F(GroupCounts, ARollBackBeginsNoGeneration) {
  put_targets(1);
  char status[4] = {1, 2, 3, 4};
  char before[4];
  ASSERT_EQ(db_get_trg_stat(task, "T0", before), DBE_OK);
  ASSERT_EQ(db_put_trg_stat(task, "T0", status), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_TG), DBE_OK);
  ASSERT_EQ(store(group("G")), DBE_RECORD_REPLACED);
  ASSERT_EQ(db_rollback(task, DB_TG), DBE_OK);
  expect_counts(0, 0);
  EXPECT_EQ(cntl()->shm_generation, generation);
  ASSERT_EQ(db_get_trg_stat(task, "T0", before), DBE_OK);
  EXPECT_EQ(std::memcmp(before, status, 4), 0);
}

TEST_F(GroupCounts, ARollBackTakesDeletedGroupsInAgain) {
  put_groups(2, 2);
  for (const std::uint32_t db_id : {DB_TG, DB_DTG}) {
    ASSERT_EQ(db_start_trans(task, db_id), DBE_OK);
    ASSERT_EQ(drop(db_id, db_id == DB_TG ? "G0" : "D0"), DBE_OK);
    ASSERT_EQ(db_rollback(task, db_id), DBE_OK);
    expect_counts(2, 2);
  }
}

TEST_F(GroupCounts, ARollBackOfOneFileLeavesWhatTheOtherCommitted) {
  ASSERT_EQ(db_start_trans(task, DB_TG), DBE_OK);
  ASSERT_EQ(store(group("G")), DBE_RECORD_REPLACED);
  ASSERT_EQ(store(dynamic_group("D")), DBE_RECORD_REPLACED);
  ASSERT_EQ(db_rollback(task, DB_TG), DBE_OK);
  expect_counts(0, 1);
}

TEST_F(GroupCounts, ACommitKeepsThemAndBeginsNoGeneration) {
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_TG), DBE_OK);
  ASSERT_EQ(store(group("G")), DBE_RECORD_REPLACED);
  ASSERT_EQ(db_commit(task, DB_TG), DBE_OK);
  expect_counts(1, 0);
  EXPECT_EQ(cntl()->shm_generation, generation);
}

TEST_F(GroupCounts, ARollBackThatUndidNothingBeginsNoGeneration) {
  put_groups(1, 0);
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_TG), DBE_OK);
  EXPECT_EQ(load(DB_TG, "G0", 64), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_TG), DBE_OK);
  EXPECT_EQ(cntl()->shm_generation, generation);
  expect_counts(1, 0);
}

TEST_F(GroupCounts, ATaskThatEndsInATransactionTakesItBack) {
  put_groups(1, 0);
  ASSERT_EQ(db_start_trans(task, DB_TG), DBE_OK);
  ASSERT_EQ(store(group("NEW")), DBE_RECORD_REPLACED);
  new_task();
  expect_counts(1, 0);
}

TEST_F(GroupCounts, ATaskThatIsKilledInATransactionTakesItBack) {
  put_groups(1, 1);
  kill_writer_after([](void* child) {
    db_tg added = group("NEW");
    db_start_trans(child, DB_TG);
    store_on(child, DB_TG, "NEW", &added, sizeof added);
    drop_on(child, DB_TG, "G0");
  });
  expect_counts(1, 1);
}

TEST_F(GroupCounts, AreRightWhereverAPutIsKilled) {
  put_targets(2);
  put_groups(1, 1);
  unsigned killed = 0;
  kill_at_each_operation(
      [](void* child) {
        db_tg added = group("NEW", {"T0", "T1"});
        store_on(child, DB_TG, "NEW", &added, sizeof added);
      },
      [&] {
        ++killed;
        expect_agreement();
        const int rc = load(DB_TG, "NEW", sizeof(db_tg));
        EXPECT_TRUE(rc == DBE_OK || rc == DBE_NOT_FOUND);
        if (rc != DBE_OK) return;
        EXPECT_EQ(members_of(loaded_as<db_tg>()), (std::vector<std::string>{"T0", "T1"}));
        EXPECT_EQ(drop(DB_TG, "NEW"), DBE_OK);
      });
  EXPECT_GT(killed, 4u);
}

TEST_F(GroupCounts, AreRightWhereverADeletionIsKilled) {
  put_groups(1, 1);
  kill_at_each_operation([](void* child) { drop_on(child, DB_DTG, "D0"); },
                         [&] {
                           expect_agreement();
                           ASSERT_EQ(store(dynamic_group("D0")), DBE_RECORD_REPLACED);
                         });
}

}  // namespace
}  // namespace users_test
