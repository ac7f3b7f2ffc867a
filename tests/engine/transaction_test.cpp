// Transactions of one process: commit, roll-back and what they leave.
#include <gtest/gtest.h>

#include "engine/engine_handle.h"
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

TEST_P(Transaction, CommitKeepsTheChangesAndFreesTheLog) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 31; i <= 60; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  std::uint64_t logged = summary().log_nodes;
  EXPECT_GT(logged, 1U);
  ASSERT_EQ(engine::transend(h_, 1), 0);
  EXPECT_EQ(summary().log_nodes, 0U);
  EXPECT_EQ(summary().free_nodes, logged);
  expect_records(1, 60, 0);
  EXPECT_EQ(engine::transend(h_, 1), engine::e_not_found);
}

TEST_P(Transaction, RollBackLeavesASplitInPlaceAndTheEntriesGone) {
  std::uint64_t leaves = summary().leaves;
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  for (int i = 31; i <= 130; i++) ASSERT_EQ(h_.insert(sample(i)), 0);
  std::uint64_t split = summary().leaves;
  EXPECT_GT(split, leaves);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_GE(summary().leaves, split);
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

TEST_P(Transaction, AnEmptiedChainIsUsedByTheNextTransaction) {
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(40)), 0);
  ASSERT_EQ(engine::transend(h_, 2), 0);
  EXPECT_EQ(engine::transstat(h_), engine::e_trans_empty);
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.insert(sample(41)), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  expect_records(40, 40, 0);
  expect_records(41, 41, engine::e_not_found);
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

TEST_P(Transaction, LeavesRecordLocksOutOfTheLog) {
  if (GetParam() == 'E') GTEST_SKIP() << "an exclusive file has no lock entries";
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  ASSERT_EQ(engine::dlock(h_), 0);
  ASSERT_EQ(engine::transroll(h_, nullptr, 0, nullptr), 0);
  EXPECT_EQ(summary().locks, 1U);
}

}  // namespace
}  // namespace zvrdb::test
