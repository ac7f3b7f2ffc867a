// CM status inside a client's transactions.  Its calls have transactions of their own,
// and so end one that the client has begun on the same file.
#include "cmstatus/cms_fixture.h"

namespace cms_test {
namespace {

class ExplicitTransactionsOnStatus : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
  }
  bool semaphore_held() { return co_lock_sema4(task, tcb()->sema4[1]) != 0; }
  const CfName one = cf("ONE"), two = cf("TWO");
};

TEST_F(ExplicitTransactionsOnStatus, APutCommitsTheTransactionOfTheSameFile) {
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  EXPECT_TRUE(semaphore_held());
  EXPECT_EQ(set("A", one, 7), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(tcb()->start_trans_id, std::uint32_t{DB_CMS}) << "the client has not ended it";
  EXPECT_EQ(db_rollback(task, DB_CMS), DBE_OK) << "it finds nothing";
  EXPECT_EQ(tcb()->start_trans_id, zvrdb::no_trans_id);
  EXPECT_EQ(status("A", one).status(), 7u);
  expect_sides_agree();
}

TEST_F(ExplicitTransactionsOnStatus, AStatusCanBePutAgainUnderTheNameOfATransactionThatIsOver) {
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  EXPECT_EQ(set("A", two, 8), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(set("A", two, 9), DBE_RECORD_REPLACED);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(in_child([this](void* child) { return put_status(child, "B", one, 1); }), DBE_OK);
  EXPECT_EQ(db_commit(task, DB_CMS), DBE_OK);
  EXPECT_EQ(by_target("A").count, 2u);
  expect_sides_agree();
}

TEST_F(ExplicitTransactionsOnStatus, AnotherFilesOwnTransactionHoldsNothingUnderTheNameOfOneThatIsOver) {
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  EXPECT_EQ(del_file(two), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(tcb()->trans_in_prog[1], 0u);
}

TEST_F(ExplicitTransactionsOnStatus, ADeletionThatFailsRollsTheTransactionOfTheSameFileBack) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  EXPECT_EQ(drop("A", two), DBE_NOT_FOUND);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(db_commit(task, DB_CMS), DBE_OK);
  EXPECT_EQ(status("A", one).status(), 7u);
}

TEST_F(ExplicitTransactionsOnStatus, ACallThatChangesNothingLeavesTheTransactionOpen) {
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  EXPECT_EQ(set("NOBODY", one, 7), DBE_BAD_CMS_KEY);
  EXPECT_EQ(drop("A", one), DBE_NOT_FOUND) << "no record of the target";
  EXPECT_EQ(status("A", one).rc, DBE_NOT_FOUND);
  EXPECT_EQ(db_del_cf_cms(task, one.data()), DBE_OK);
  EXPECT_TRUE(semaphore_held());
  EXPECT_EQ(db_rollback(task, DB_CMS), DBE_OK);
  EXPECT_FALSE(semaphore_held());
}

TEST_F(ExplicitTransactionsOnStatus, DeletingAChangeFilesStatusCommitsTheTransactionOfTheSameFile) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  EXPECT_EQ(db_del_cf_cms(task, one.data()), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(db_rollback(task, DB_CMS), DBE_OK);
  EXPECT_FALSE(stored_of_file(one));
}

TEST_F(ExplicitTransactionsOnStatus, StatusIsNoPartOfATransactionOnTargets) {
  ASSERT_EQ(set("B", two, 3), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  EXPECT_EQ(set("A", one, 7), DBE_OK);
  EXPECT_TRUE(semaphore_held());
  EXPECT_EQ(del("B"), DBE_OK);
  EXPECT_TRUE(semaphore_held());
  EXPECT_EQ(db_rollback(task, DB_TRG), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(status("A", one).status(), 7u);
  EXPECT_EQ(index_rc("B"), DBE_OK) << "the target is back";
  EXPECT_EQ(status("B", two).rc, DBE_NOT_FOUND) << "its status went on its own";
  expect_sides_agree();
}

TEST_F(ExplicitTransactionsOnStatus, DeletingATargetCommitsTheTransactionOnStatus) {
  ASSERT_EQ(set("A", one, 7), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_CMS), DBE_OK);
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(db_rollback(task, DB_CMS), DBE_OK);
  EXPECT_FALSE(stored_of_file(one));
  expect_sides_agree();
}

TEST_F(ExplicitTransactionsOnStatus, StatusIsNoPartOfATransactionOnTheCatalogAndStaysWithTheNumber) {
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  const CfName undone = cf("UNDONE"), next = cf("NEXT");
  ASSERT_EQ(put_file(undone), DBE_OK);
  const std::uint16_t its_number = file_number(undone);
  EXPECT_EQ(set("A", undone, 7), DBE_OK);
  EXPECT_TRUE(semaphore_held());
  EXPECT_EQ(db_rollback(task, DB_CAT), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(status("A", undone).rc, DBE_NOT_FOUND);
  expect_sides_agree();
  ASSERT_EQ(put_file(next), DBE_OK);
  EXPECT_EQ(file_number(next), its_number);
  EXPECT_EQ(status("A", next).status(), 7u) << "status goes by number";
  EXPECT_EQ(del_file(next), DBE_CMS_EXISTS);
  EXPECT_EQ(db_del_cf_cms(task, next.data()), DBE_OK);
  EXPECT_FALSE(stored_of_file(next));
  EXPECT_EQ(del_file(next), DBE_OK);
}

TEST_F(ExplicitTransactionsOnStatus, GrowthOfTheCatalogLeavesATransactionOnTargetsOpen) {
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  for (unsigned i = 2; i < 499; ++i) ASSERT_EQ(put_file(cf(numbered("N", i))), DBE_OK) << i;
  ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  ASSERT_EQ(put_target("NEW"), DBE_OK);
  ASSERT_EQ(put_file(cf("N499")), DBE_OK);
  ASSERT_EQ(cntl()->shm_generation, generation + 1);
  EXPECT_EQ(index_rc("NEW"), DBE_OK) << "the tables are built from what the transaction has made";
  EXPECT_EQ(set("NEW", cf("N499"), 7), DBE_OK);
  EXPECT_TRUE(semaphore_held());
  EXPECT_EQ(db_rollback(task, DB_TRG), DBE_OK);
  EXPECT_FALSE(semaphore_held());
  EXPECT_EQ(index_rc("NEW"), DBE_NO_TARGET);
  EXPECT_EQ(status("A", cf("N499")).rc, DBE_NOT_FOUND);
  EXPECT_EQ(put_file(cf("N500")), DBE_OK);
  EXPECT_EQ(file_number(cf("N499")), 499);
  expect_sides_agree();
}

}  // namespace
}  // namespace cms_test
