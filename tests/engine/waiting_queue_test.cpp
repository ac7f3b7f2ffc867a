// Writers that wait in turn: processes of their own, and bytes that the test itself holds.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <memory>

#include "engine/agent.h"
#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/format.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

constexpr std::uint64_t arbiter = 771;
constexpr std::uint64_t position(int n) { return arbiter + static_cast<std::uint64_t>(n); }

class WaitingQueue : public ::testing::TestWithParam<engine::journal_use> {
 protected:
  void SetUp() override {
    alarm(100);
    h_.options = engine::option_queue;
    h_.journal = GetParam();
    ASSERT_EQ(h_.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    file_ = engine::linux_ops.open(path_.c_str(), {true, false, false});
    ASSERT_GE(file_, 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    engine::linux_ops.close(file_);
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
    alarm(0);
  }
  bool hold(std::uint64_t byte, std::uint64_t n = 1) {
    return engine::linux_ops.lock(file_, byte, n) == engine::lock_answer::taken;
  }
  void let_go(std::uint64_t byte, std::uint64_t n = 1) { ASSERT_EQ(engine::linux_ops.unlock(file_, byte, n), 0); }
  bool is_taken(int n) { return engine::linux_ops.probe(file_, position(n)) == 1; }
  // Who comes holds the positions above the one that is tried, for the moment: only while
  // those can be had is a position taken to stay.
  void wait_until_taken(int n) {
    const auto above = static_cast<std::uint64_t>(engine::slot_count - n);
    for (bool settled = false; !settled; sched_yield()) {
      if (!hold(position(n + 1), above)) continue;
      settled = is_taken(n);
      let_go(position(n + 1), above);
    }
  }
  void expect_nobody_waits() {
    for (int n = 0; n <= 209; n++) EXPECT_FALSE(is_taken(n)) << n;
  }
  std::string open_command(unsigned options = engine::option_queue) {
    return "open " + path_ + " S 2 " + std::to_string(options) + (GetParam() == engine::journal_use::on ? " 1" : " 0");
  }
  // Number of the record, in the order in which the inserts came to pass.
  int record_of(int i) {
    EXPECT_EQ(h_.find_name(sample(i).name), 0) << i;
    return engine::current_record(h_);
  }
  scratch_folder folder_;
  std::string path_ = folder_.file("queue");
  handle h_;
  int file_ = -1;
};

INSTANTIATE_TEST_SUITE_P(Files, WaitingQueue, ::testing::Values(engine::journal_use::off, engine::journal_use::on),
                         [](const auto& a) { return a.param == engine::journal_use::on ? "Journal" : "Plain"; });

TEST_P(WaitingQueue, IsEmptyBetweenOperations) {
  for (int i = 1; i <= 20; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  expect_nobody_waits();
}

TEST_P(WaitingQueue, ServesWritersInTheOrderOfTheirComing) {
  constexpr int count = 5;
  agent agents[count];
  for (agent& a : agents) ASSERT_EQ(a.tell(open_command()), 0);
  for (int round = 0; round < 3; round++) {
    ASSERT_TRUE(hold(arbiter));
    // Each round in another order.
    for (int n = 0; n < count; n++) {
      const int who = (n * 2 + round) % count;
      agents[who].send("insert " + std::to_string(100 * round + n));
      wait_until_taken(n + 1);
    }
    let_go(arbiter);
    for (agent& a : agents) ASSERT_EQ(a.answer(), 0);
    for (int n = 1; n < count; n++) EXPECT_LT(record_of(100 * round + n - 1), record_of(100 * round + n));
  }
  expect_nobody_waits();
}

TEST_P(WaitingQueue, LetsNobodyIntoAGapBelowOneWhoWaits) {
  agent late;
  ASSERT_EQ(late.tell(open_command()), 0);
  ASSERT_TRUE(hold(arbiter));
  ASSERT_TRUE(hold(position(7)));   // someone on the way down: below is free for the moment
  late.send("insert 1");
  wait_until_taken(8);
  for (int n = 1; n < 7; n++) EXPECT_FALSE(is_taken(n)) << n;
  let_go(position(7));
  wait_until_taken(1);
  EXPECT_TRUE(late.is_silent(20));
  let_go(arbiter);
  EXPECT_EQ(late.answer(), 0);
}

TEST_P(WaitingQueue, GoesOnWhenOneWhoWaitsDies) {
  auto first = std::make_unique<agent>();
  agent second;
  ASSERT_EQ(first->tell(open_command()), 0);
  ASSERT_EQ(second.tell(open_command()), 0);
  ASSERT_TRUE(hold(arbiter));
  first->send("insert 1");
  wait_until_taken(1);
  second.send("insert 2");
  wait_until_taken(2);
  first->kill();
  let_go(arbiter);
  EXPECT_EQ(second.answer(), 0);
  EXPECT_EQ(h_.find_name(sample(1).name), engine::e_not_found);
  EXPECT_EQ(h_.find_name(sample(2).name), 0);
}

TEST_P(WaitingQueue, WorksBesideWritersThatTakeTheArbiterWhenItIsFree) {
  agent queueing, other;
  ASSERT_EQ(queueing.tell(open_command()), 0);
  ASSERT_EQ(other.tell(open_command(0)), 0);
  for (int i = 1; i <= 60; i += 2) {
    queueing.send("insert " + std::to_string(i));
    other.send("insert " + std::to_string(i + 1));
    ASSERT_EQ(queueing.answer(), 0);
    ASSERT_EQ(other.answer(), 0);
  }
  for (int i = 1; i <= 60; i++) EXPECT_EQ(h_.find_name(sample(i).name), 0);
}

TEST_P(WaitingQueue, LetsAReaderWaitItsTurnBehindTheWriters) {
  agent writer, reader;
  ASSERT_EQ(writer.tell(open_command()), 0);
  ASSERT_EQ(reader.tell(open_command()), 0);
  ASSERT_TRUE(hold(arbiter));
  writer.send("insert 1");
  wait_until_taken(1);
  reader.send("find 1");
  wait_until_taken(2);
  let_go(arbiter);
  EXPECT_EQ(writer.answer(), 0);
  EXPECT_EQ(reader.answer(), 0);   // it saw what came before it
}

TEST_P(WaitingQueue, ThatHasNoPositionLeftRefusesTheWriter) {
  ASSERT_TRUE(hold(arbiter, 210));
  EXPECT_EQ(h_.insert(sample(1)), engine::e_no_slot);
  let_go(arbiter, 210);
  EXPECT_EQ(h_.insert(sample(1)), 0);
}

TEST(WaitingQueueFailure, IsToldByTheOpenAndByTheWriter) {
  scratch_folder folder;
  const std::string path = folder.file("queue");
  install_faulty_os();
  {
    handle h;
    ASSERT_EQ(h.create(path), 0);
    ASSERT_EQ(h.close(), 0);
    h.options = engine::option_queue;
    ASSERT_EQ(h.open_for_work(path), 0);
    fail_call(os_call::lock, 1, true);
    EXPECT_EQ(h.insert(sample(1)), engine::e_queue);
    disarm();
    EXPECT_EQ(h.insert(sample(1)), 0);
    const int file = engine::linux_ops.open(path.c_str(), {true, false, false});
    ASSERT_EQ(engine::linux_ops.lock(file, arbiter, 1), engine::lock_answer::taken);
    // The slot is taken first, behind that of the other handle; then the arbiter is seen held.
    handle second;
    second.options = engine::option_queue;
    fail_call(os_call::lock, 3, true);
    EXPECT_EQ(second.open(path), engine::e_queue);
    EXPECT_EQ(engine::checkpsp(second), 'C');
    disarm();
    engine::linux_ops.close(file);
    EXPECT_EQ(second.open(path), 0);
  }
  remove_faulty_os();
}

}  // namespace
}  // namespace zvrdb::test
