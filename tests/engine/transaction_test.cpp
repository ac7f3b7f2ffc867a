// Transactions of one process: commit, roll-back and what they leave.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine/engine_handle.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

class Transaction : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    path_ = folder_.file("trans");
    ASSERT_EQ(h_.create(path_, GetParam()), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    for (int i = 1; i <= 30; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  engine::file_summary summary() {
    engine::file_summary s;
    std::string reason;
    engine::summarize_file(path_.c_str(), &s, &reason);
    return s;
  }
  void expect_records(int first, int last, int expected) {
    for (int i = first; i <= last; i++) ASSERT_EQ(h_.find_name(sample(i).name), expected) << i;
  }
  void expect_as_before() {
    for (int i = 1; i <= 30; i++) {
      sample_record found;
      ASSERT_EQ(h_.find_name(sample(i).name), 0) << i;
      ASSERT_EQ(h_.read(&found), 0);
      ASSERT_EQ(found, sample(i));
    }
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(Access, Transaction, ::testing::Values('S', 'E'),
                         [](const auto& a) { return a.param == 'S' ? "Shared" : "Exclusive"; });

class SharedTransaction : public Transaction {};
INSTANTIATE_TEST_SUITE_P(Access, SharedTransaction, ::testing::Values('S'), [](const auto&) { return "Shared"; });

TEST_P(Transaction, CommitKeepsTheChangesAndFreesTheLog) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 31; i <= 60; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  std::uint64_t logged = summary().log_nodes;
  EXPECT_GT(logged, 1U);
  ASSERT_EQ(engine::transend(h_, 1), 0);
  EXPECT_EQ(summary().log_nodes, 0U);
  EXPECT_EQ(summary().free_nodes, logged);
  expect_records(1, 60, 0);
  EXPECT_EQ(engine::transstat(h_), 0);
  EXPECT_EQ(engine::transroll(h_, nullptr, 0, nullptr), engine::e_trans_none);
  EXPECT_EQ(engine::transend(h_, 1), engine::e_not_found);
}

TEST_P(Transaction, RollBackLeavesASplitInPlaceAndTheEntriesGone) {
  std::uint64_t leaves = summary().leaves;
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 31; i <= 130; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  std::uint64_t split = summary().leaves;
  const int depth = summary().header.depth;
  EXPECT_GT(split, leaves);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_GE(summary().leaves, split);
  EXPECT_EQ(summary().header.depth, depth);
  EXPECT_EQ(summary().records, 30U);
  expect_records(31, 130, engine::e_not_found);
  expect_as_before();
}

TEST_P(Transaction, ARecordAddedAndDeletedInOneTransactionComesBackToNothing) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40, 900)), 0);
  ASSERT_EQ(h_.find_name(sample(40).name), 0);
  ASSERT_EQ(h_.remove(), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(h_.find_name(sample(40).name), engine::e_not_found);
  EXPECT_EQ(summary().records, 30U);
  expect_as_before();
}

TEST_P(Transaction, ARecordDeletedAndAddedAgainComesBackOnce) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int round = 0; round < 3; round++) {
    ASSERT_EQ(h_.find_name(sample(7).name), 0);
    ASSERT_EQ(h_.remove(), 0);
    sample_record other = sample(7);
    other.payload = "round " + std::to_string(round);
    ASSERT_EQ(h_.insert(other), 0);
  }
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_as_before();
  EXPECT_EQ(summary().entries_by_key[1], 30U);
}

TEST_P(Transaction, RollBackBringsDeletedAndChangedRecordsBack) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 2; i <= 30; i += 2) {
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
    ASSERT_EQ(h_.remove(), 0);
  }
  for (int i = 1; i <= 30; i += 2) {
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
    ASSERT_EQ(h_.update(sample(1000 + i, 700)), 0);   // every key becomes another one
  }
  expect_records(1, 30, engine::e_not_found);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_as_before();
  for (int i = 1; i <= 30; i += 2) EXPECT_EQ(h_.find_name(sample(1000 + i).name), engine::e_not_found);
}

TEST_P(Transaction, LongerThanANodeUsesFurtherLogNodesAndRollsThemBackInOrder) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int round = 0; round < 20; round++) {
    for (int i = 1; i <= 30; i++) {
      ASSERT_EQ(h_.find_name(sample(i).name), 0);
      sample_record changed = sample(i, static_cast<std::size_t>(round) * 40);
      changed.number = round * 100 + i;
      ASSERT_EQ(h_.update(changed), 0);
    }
  }
  EXPECT_GT(summary().log_nodes, 50U);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_as_before();
  EXPECT_EQ(summary().entries_by_key[16], 0U);
}

TEST_P(Transaction, RollBackWithoutAChangeIsDone) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  EXPECT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(engine::transstat(h_), 0);
  EXPECT_EQ(engine::transroll(h_, nullptr, 0, nullptr), engine::e_trans_none);
}

TEST_P(Transaction, RollBackKeepsCountersAndNumbers) {
  std::int32_t next = summary().header.nextrec;
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(summary().header.nextrec, next + 1);
  EXPECT_EQ(summary().header.reccount, 31);
  EXPECT_EQ(summary().records, 30U);
  ASSERT_EQ(h_.insert(sample(41)), 0);
  expect_records(41, 41, 0);
}

TEST_P(Transaction, RollBackMayBeginANewTransaction) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 3, nullptr), 0);
  EXPECT_EQ(h_.find_name(sample(40).name), engine::e_not_found);
  EXPECT_EQ(engine::transstat(h_), engine::e_trans_interrupted);
  ASSERT_EQ(h_.insert(sample(41)), 0);
  ASSERT_EQ(engine::transend(h_, 1), 0);
  EXPECT_EQ(h_.find_name(sample(41).name), 0);
  expect_as_before();
}

TEST_P(Transaction, RollBackIntoATransactionThatCannotBeIsRefusedBeforeAnythingIsUndone) {
  handle other;
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  EXPECT_EQ(engine::transroll(h_, nullptr, 7, nullptr), engine::e_bad_argument);
  EXPECT_EQ(engine::transroll(h_, nullptr, 3, other), engine::e_bad_argument);
  ASSERT_EQ(engine::csetfile(h_, 1), 0);
  EXPECT_EQ(engine::transroll(h_, nullptr, 3, nullptr), engine::e_level);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  EXPECT_EQ(engine::transstat(h_), engine::e_trans_interrupted);
  ASSERT_EQ(h_.insert(sample(41)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_records(40, 41, engine::e_not_found);
  expect_as_before();
}

TEST_P(Transaction, AnEmptiedChainIsUsedByTheNextTransaction) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  const std::int32_t head = h_.get()->transhead;
  for (int i = 40; i < 60; i++) ASSERT_EQ(h_.insert(sample(i, 500)), 0);
  EXPECT_NE(h_.get()->lognode, head);
  ASSERT_EQ(engine::transend(h_, 2), 0);
  EXPECT_EQ(h_.get()->transhead, head);
  EXPECT_EQ(engine::transstat(h_), engine::e_trans_empty);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  EXPECT_EQ(h_.get()->lognode, head);
  for (int i = 60; i < 80; i++) ASSERT_EQ(h_.insert(sample(i, 500)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(engine::transstat(h_), 0);
  expect_records(40, 59, 0);
  expect_records(60, 79, engine::e_not_found);
}

TEST_P(Transaction, AKeptChainHangsOnTheOneBefore) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  const std::int32_t first = h_.get()->transhead;
  ASSERT_EQ(engine::transend(h_, 3), 0);
  EXPECT_EQ(h_.get()->savedhead, first);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(41)), 0);
  const std::int32_t second = h_.get()->transhead;
  ASSERT_EQ(engine::transend(h_, 3), 0);
  EXPECT_EQ(h_.get()->savedhead, second);
  std::vector<unsigned char> bytes = read_file(path_);
  EXPECT_EQ(engine::load32s(&bytes[engine::node_offset(second)], engine::native_order), first);
  EXPECT_EQ(engine::load32s(&bytes[engine::node_offset(first)], engine::native_order), -1);
  EXPECT_EQ(engine::transstat(h_), 0);
  expect_records(1, 30, 0);
  expect_records(40, 41, 0);
}

TEST_P(Transaction, LeftByAHandleIsRolledBackByTheNextOne) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 40; i < 100; i++) ASSERT_EQ(h_.insert(sample(i, 300)), 0);
  engine::abandon(h_);
  ASSERT_EQ(h_.open(path_, GetParam()), 0);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  expect_records(40, 99, 0);
  EXPECT_EQ(engine::transstat(h_), engine::e_trans_interrupted);
  EXPECT_EQ(engine::transbeg(h_, 3, nullptr), engine::e_trans_interrupted);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(engine::transstat(h_), 0);
  expect_records(40, 99, engine::e_not_found);
  expect_as_before();
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(engine::transend(h_, 1), 0);
}

TEST_P(Transaction, SurvivesTheUseOfAnotherFileBetweenItsSteps) {
  std::string other_path = folder_.file("other");
  handle other;
  ASSERT_EQ(other.create(other_path, GetParam()), 0);
  ASSERT_EQ(engine::csetfile(other, 4), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(engine::transbeg(other, 3, nullptr), 0);
  for (int i = 40; i < 80; i++) {
    ASSERT_EQ(h_.insert(sample(i)), 0);
    ASSERT_EQ(other.insert(sample(i)), 0);
  }
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  ASSERT_EQ(engine::transend(other, 1), 0);
  expect_as_before();
  expect_records(40, 79, engine::e_not_found);
  for (int i = 40; i < 80; i++) ASSERT_EQ(other.find_name(sample(i).name), 0);
  ASSERT_EQ(other.close(), 0);
  EXPECT_EQ(check_file(other_path, true).outcome, engine::report_outcome::sound);
}

TEST_P(SharedTransaction, LeavesRecordLocksOutOfTheLog) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  ASSERT_EQ(engine::dlock(h_), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(summary().locks, 1U);
}

TEST_P(SharedTransaction, OfOneHandleIsBusyForAnotherOfTheProcess) {
  handle other;
  ASSERT_EQ(other.open_for_work(path_), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  EXPECT_EQ(engine::transstat(h_), engine::e_trans_interrupted);
  EXPECT_EQ(engine::transstat(other), engine::e_trans_busy);
  EXPECT_EQ(engine::transbeg(other, 3, nullptr), engine::e_trans_busy);
  EXPECT_EQ(engine::transend(other, 1), engine::e_trans_busy);
  EXPECT_EQ(engine::transroll(other, nullptr, 0, nullptr), engine::e_trans_none);
  // The owner goes on undisturbed.
  ASSERT_EQ(h_.insert(sample(41)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(other.find_name(sample(40).name), engine::e_not_found);
  EXPECT_EQ(other.find_name(sample(41).name), engine::e_not_found);
}

TEST_P(SharedTransaction, OfADeadHandleIsInterruptedForOthersAndEmptyForTheNextOfItsSlot) {
  handle other, next;
  ASSERT_EQ(other.open_for_work(path_), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  engine::abandon(h_);
  EXPECT_EQ(engine::transstat(other), engine::e_trans_interrupted);
  ASSERT_EQ(next.open_for_work(path_), 0);
  EXPECT_EQ(engine::transstat(next), engine::e_trans_empty);
  EXPECT_EQ(engine::transend(next, 1), 0);
  EXPECT_EQ(engine::transstat(other), 0);
}

TEST_P(SharedTransaction, IsNotEndedByAForkedChildThatLetsGoOfItsFiles) {
  handle other;
  ASSERT_EQ(other.open_for_work(path_), 0);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool closed = engine::checkpsp(h_) == 'C' && engine::dinsert(h_, nullptr) == engine::e_bad_handle;
    handle own;
    const bool opens = own.open(path_) == 0 && own.find_name(sample(40).name) == 0;
    _exit(closed && opens ? 0 : 1);
  }
  int state = 0;
  ASSERT_EQ(waitpid(child, &state, 0), child);
  EXPECT_EQ(state, 0);
  // The owner's slot is still locked, and still the owner's alone.
  EXPECT_EQ(engine::transstat(other), engine::e_trans_busy);
  ASSERT_EQ(h_.insert(sample(41)), 0);
  engine::abandon(h_);
  EXPECT_EQ(engine::transstat(other), engine::e_trans_interrupted);
  ASSERT_EQ(engine::transroll(other, nullptr, 0, nullptr), 0);
}

}  // namespace
}  // namespace zvrdb::test
