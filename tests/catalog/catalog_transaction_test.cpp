// Memory and file agree whatever becomes of a transaction.
#include "catalog/catalog_fixture.h"
#include "frame/frame_fixture.h"

namespace catalog_test {
namespace {

using zvrtest::client_task;

class CatalogTransaction : public CatalogTest {};

TEST_F(CatalogTransaction, ARollBackTakesPutsAndReplacementsBack) {
  ASSERT_EQ(put_cf(CatRecord("A").text("old")), DBE_OK);
  const auto before = table_lines();
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  ASSERT_EQ(put_cf(CatRecord("A").text("new")), DBE_RECORD_REPLACED);
  ASSERT_EQ(put_cf("B"), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK);
  EXPECT_EQ(cntl()->shm_generation, generation + 1);
  EXPECT_EQ(table_lines(), before);
  EXPECT_EQ(get_cf("A", head_len).record.text(), "old");
  EXPECT_EQ(get_cf("A").record.text(), "old");
  EXPECT_EQ(put_cf("C"), DBE_OK);
  EXPECT_EQ(number_of("C"), 1) << "the number of B was never given";
  expect_agreement();
}

TEST_F(CatalogTransaction, ARollBackWithoutChangesLeavesTheTablesAlone) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  ASSERT_EQ(get_cf("A").rc, DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK);
  EXPECT_EQ(cntl()->shm_generation, generation);
}

TEST_F(CatalogTransaction, ADeletionInsideATransactionEndsItWithItsOwn) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  ASSERT_EQ(put_cf("C"), DBE_OK);
  ASSERT_EQ(del_cf("A"), DBE_OK);
  EXPECT_EQ(tcb()->trans_active[DB_CAT], 0);
  ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK) << "finds nothing";
  EXPECT_EQ(all_names(), (std::vector<std::string>{"B", "C"}));
  expect_agreement();
}

TEST_F(CatalogTransaction, ADeletionThatIsRefusedInsideATransactionLeavesItOpen) {
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  ASSERT_EQ(put_cf("A"), DBE_OK);
  EXPECT_EQ(del_cf("B"), DBE_NOT_FOUND);
  EXPECT_EQ(tcb()->trans_active[DB_CAT], 1);
  ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK);
  EXPECT_TRUE(all_names().empty());
}

TEST_F(CatalogTransaction, AWriterThatDiesInATransactionTakesItsChangesWithIt) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put_cf(name), DBE_OK);
  const auto before = table_lines();
  kill_writer_after([](void* child) {
    db_start_trans(child, DB_CAT);
    put_on(child, "C");
    put_on(child, CatRecord("A").text("new"));
    put_on(child, "D");
  });
  EXPECT_EQ(table_lines(), before);
  EXPECT_EQ(put_cf("E"), DBE_OK);
  EXPECT_EQ(number_of("E"), 2);
  expect_agreement();
}

TEST_F(CatalogTransaction, AWriterThatDiesBehindItsPutHasPutIt) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  kill_writer_after([](void* child) {
    put_on(child, "B");
    del_on(child, "A");
  });
  EXPECT_EQ(all_names(), std::vector<std::string>{"B"});
  expect_agreement();
}

TEST_F(CatalogTransaction, ATaskThatEndsInATransactionTakesItsChangesWithIt) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  {
    client_task other("ends");
    ASSERT_EQ(db_start_trans(other, DB_CAT), DBE_OK);
    ASSERT_EQ(put_on(other, "B"), DBE_OK);
  }
  EXPECT_EQ(all_names(), std::vector<std::string>{"A"});
  expect_agreement();
}

TEST_F(CatalogTransaction, ACommitKeepsMemoryAsItIs) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  ASSERT_EQ(put_cf("B"), DBE_OK);
  ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  EXPECT_EQ(cntl()->shm_generation, generation);
  expect_agreement();
}

TEST_F(CatalogTransaction, TargetsAndChangeFilesAreUndoneApart) {
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  ASSERT_EQ(put_cf("A"), DBE_OK);
  ASSERT_EQ(put(target_test::Record("T")), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK);
  EXPECT_EQ(get("T").rc, DBE_OK);
  EXPECT_EQ(get_cf("A").rc, DBE_NOT_FOUND);
}

}  // namespace
}  // namespace catalog_test
