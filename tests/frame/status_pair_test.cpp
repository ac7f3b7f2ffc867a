// db_get_trg_stat and db_put_trg_stat: one critical section in two calls.
#include "frame/frame_fixture.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::logged;
using zvrtest::put_target;

class StatusPair : public zvrtest::FrameTest {
 protected:
  StatusPair() : task("status") {
    EXPECT_EQ(DBE_OK, put_target(task, "A"));
    EXPECT_EQ(DBE_OK, put_target(task, "C"));
  }
  client_task task;
  unsigned char status[4] = {1, 2, 3, 4};
  unsigned char out[4] = {};
};

TEST_F(StatusPair, TheSemaphoreStaysHeldFromGetToPut) {
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_TRUE(task.owns_memory());
  EXPECT_TRUE(task.inside());
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  EXPECT_FALSE(task.owns_memory());
  EXPECT_FALSE(task.inside());
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_EQ(0, std::memcmp(status, out, 4));
  ASSERT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
}

TEST_F(StatusPair, AGetThatFailsHoldsNothing) {
  EXPECT_EQ(DBE_NOT_FOUND, db_get_trg_stat(task, "B", out));
  EXPECT_FALSE(task.owns_memory());
  EXPECT_FALSE(task.inside());
  EXPECT_EQ(0, task.tcb()->trg_stat_read);
}

TEST_F(StatusPair, PutAsATasksFirstCallIsRefusedAndReleasesNothing) {
  client_task fresh("fresh");
  EXPECT_EQ(DBE_NO_STAT_GET, db_put_trg_stat(fresh, "A", status));
  EXPECT_EQ(1u, logged(fresh, 36385));
  EXPECT_EQ(nullptr, fresh.tcb());
  EXPECT_EQ(DBE_NO_STAT_GET, db_put_trg_stat(task, "A", status));
}

TEST_F(StatusPair, APutOnItsOwnTakesTheSemaphoreForItsLength) {
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  ASSERT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  task.cntl()->fwrite_in_prog = 1;  // the generation goes on under it as well
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  EXPECT_EQ(1u, task.tcb()->shm_generation);
  EXPECT_FALSE(task.owns_memory());
  EXPECT_FALSE(task.inside());
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_EQ(0, std::memcmp(status, out, 4));
  ASSERT_EQ(DBE_OK, db_put_trg_stat(task, "A", out));
}

TEST_F(StatusPair, AnUnknownNameWritesToTheNextOneAndAboveAllToNone) {
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "B", status));
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "C", out));
  EXPECT_EQ(0, std::memcmp(status, out, 4));
  EXPECT_EQ(DBE_NOT_FOUND, db_put_trg_stat(task, "D", status));
  EXPECT_EQ(1u, logged(task, 36386));
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(StatusPair, ACallOfItsOwnClassInBetweenDoesNotHang) {
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_EQ(DBE_OK, zvrtest::get_target(task, "C"));
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(StatusPair, ACallOfClassZeroInBetweenWorksWhenItsSemaphoreIsFree) {
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  char buffer[100];
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_TRUE(task.owns_memory());
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(StatusPair, ACallOfClassZeroInBetweenIsRefusedWhenAnotherTaskHasItsSemaphore) {
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    void* own = co_init_task("file class", nullptr, 0);
    if (dbr_in(own, operation::read, DB_CFG) != DBE_OK) return 1;
    parent.stop_here();
    dbr_out(own, operation::read, DB_CFG, 0);
    coi_term_task(own, 0);
    return 0;
  });
  ASSERT_EQ(1, child.next());
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  char buffer[100];
  EXPECT_EQ(DBE_TRANS_IN_PROGRESS, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(1u, logged(task, 36457));
  EXPECT_TRUE(task.owns_memory());
  EXPECT_EQ(0, co_try_sema4(task, task.tcb()->sema4[0])) << "leaving did not release what another task owns";
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  child.go_on();
  EXPECT_EQ(0, child.finish());
}

TEST_F(StatusPair, InsideATransactionThePutKeepsTheSemaphore) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status));
  EXPECT_TRUE(task.owns_memory());
  ASSERT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_FALSE(task.owns_memory());
}

}  // namespace
}  // namespace zvrdb::frame
