// The first call of a task while another one keeps a transaction open on a file without
// the semaphore: the opening waits a minute, once.
#include <utility>

#include "engine/os_file.h"
#include "frame/frame_fixture.h"

namespace zvrdb::frame {
namespace {

using zvrtest::child_process;
using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::get_target_from_file;
using zvrtest::logged;
using zvrtest::parent_link;
using zvrtest::put_target;

constexpr std::uint32_t a_minute = 60000;

// What is done, once, when a minute has been waited and the next question for a byte comes.
std::uint64_t delayed_before = 0;
std::function<void()> act;
int act_then_probe(int file, std::uint64_t offset) {
  if (act && co_test_delayed() >= delayed_before + a_minute) std::exchange(act, nullptr)();
  return engine::linux_ops.probe(file, offset);
}

engine::os_ops with_acts() {
  engine::os_ops ops = engine::linux_ops;
  ops.probe = act_then_probe;
  return ops;
}
const engine::os_ops acting_ops = with_acts();

class FirstCall : public zvrtest::FrameTest {
 protected:
  FirstCall() {
    engine::set_os_ops(&acting_ops);
    co_test_delay_factor(0, 1);
  }
  ~FirstCall() override {
    act = nullptr;
    co_test_delay_factor(1, 1);
    engine::set_os_ops(nullptr);
  }
  // The transaction on the requests, begun last, gives the semaphore back; the one on
  // the targets stays open.
  static bool leave_targets_open(void* own) {
    return db_start_trans(own, DB_TRG) == DBE_OK && put_target(own, "HALF") == DBE_OK &&
           db_start_trans(own, DB_RQR) == DBE_OK && db_commit(own, DB_RQR) == DBE_OK;
  }
};

TEST_F(FirstCall, BesideAnOpenTransactionItWaitsAMinuteAndIsRefused) {
  client_task own("own");
  ASSERT_EQ(DBE_OK, put_target(own, "A"));
  ASSERT_TRUE(leave_targets_open(own));
  const std::uint64_t before = co_test_delayed();
  client_task first("first");
  EXPECT_EQ(DBE_IO_ERROR, get_target(first, "A"));
  EXPECT_EQ(before + a_minute, co_test_delayed());
  EXPECT_NE(std::string::npos, zvrtest::last_logged(first, 36436).find("-111"));
  EXPECT_EQ(nullptr, first.tcb());
  EXPECT_FALSE(first.inside());
  for (const iocb& block : own.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
  // The semaphore is free, and the transaction goes on.
  EXPECT_EQ(DBE_OK, put_target(own, "MORE"));
  EXPECT_EQ(DBE_OK, db_commit(own, DB_TRG));
  EXPECT_EQ(DBE_OK, get_target_from_file(first, "HALF"));
  EXPECT_EQ(before + a_minute, co_test_delayed());
}

TEST_F(FirstCall, OfClassZeroWaitsTheSameMinuteAndHoldsNothingAfterwards) {
  client_task own("own");
  ASSERT_EQ(DBE_OK, put_target(own, "A"));
  ASSERT_TRUE(leave_targets_open(own));
  const std::uint64_t before = co_test_delayed();
  client_task first("first");
  char config[100];
  EXPECT_EQ(DBE_IO_ERROR, db_get(first, DB_CFG, 0, nullptr, config, sizeof config));
  EXPECT_EQ(before + a_minute, co_test_delayed());
  EXPECT_EQ(nullptr, first.tcb());
  EXPECT_EQ(DBE_OK, db_commit(own, DB_TRG));
  EXPECT_EQ(DBE_OK, db_get(own, DB_CFG, 0, nullptr, config, sizeof config));
  EXPECT_EQ(DBE_OK, db_get(first, DB_CFG, 0, nullptr, config, sizeof config));
}

TEST_F(FirstCall, GoesOnWhenTheOwnerDiedInThatMinuteAndUndoesWhatItLeft) {
  child_process child([](parent_link& parent) {
    void* own = co_init_task("owner", nullptr, 0);
    if (!own || put_target(own, "A") != DBE_OK || !leave_targets_open(own)) return 1;
    parent.stop_here();
    return 2;
  });
  ASSERT_EQ(1, child.next());
  client_task first("first");
  ASSERT_EQ(DBE_IO_ERROR, get_target(first, "A"));
  const std::uint64_t before = co_test_delayed();
  // It dies between the wait and the question whether its transaction is still alive.
  delayed_before = before;
  act = [&child] { child.kill_now(); };
  EXPECT_EQ(DBE_OK, get_target(first, "A"));
  EXPECT_EQ(before + a_minute, co_test_delayed());
  EXPECT_FALSE(act);
  EXPECT_EQ(DBE_NOT_FOUND, get_target(first, "HALF"));
  EXPECT_EQ(DBE_NOT_FOUND, get_target_from_file(first, "HALF"));
  EXPECT_EQ(DBE_OK, put_target(first, "B"));
}

}  // namespace
}  // namespace zvrdb::frame
