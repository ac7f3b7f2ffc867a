// A catalog that fills its tables goes on to bigger ones, and every live task with it.
#include "catalog/catalog_fixture.h"
#include "frame/frame_fixture.h"
#include "recfile/child_process.h"

namespace catalog_test {
namespace {

using zvrtest::child_process;
using zvrtest::client_task;
using zvrtest::parent_link;

class CatalogGrowth : public CatalogTest {
 protected:
  // In one transaction, for speed; it ends before the tables are full.
  void fill(int from, int to) {
    ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
    for (int i = from; i < to; ++i) ASSERT_EQ(put_cf(numbered("N", i)), DBE_OK) << i;
    ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  }
};

TEST_F(CatalogGrowth, ThePutThatFillsTheTablesRaisesTheGenerationOnceAndSucceeds) {
  fill(0, 499);
  const std::uint32_t generation = cntl()->shm_generation;
  ASSERT_EQ(cntl()->num_cat_alloc, 500u);
  EXPECT_EQ(put_cf("N499"), DBE_OK);
  EXPECT_EQ(cntl()->shm_generation, generation + 1);
  std::uint32_t signal = 0;
  EXPECT_EQ(co_get_signal(task, 3, &signal), CO_OK);
  EXPECT_EQ(signal, 2u);
  EXPECT_EQ(number_of("N499"), 499);
  EXPECT_EQ(cntl()->num_cat_alloc, 1000u);
  EXPECT_EQ(cntl()->num_cat_inited, 500u);
  EXPECT_EQ(put_cf("N500"), DBE_OK);
  EXPECT_EQ(put_cf("N500"), DBE_RECORD_REPLACED);
  EXPECT_EQ(cntl()->shm_generation, generation + 1);
  EXPECT_EQ(zvrtest::segments_in(co_shared_folder(task)), 1u) << "the old one is let go of";
  expect_agreement();
}

TEST_F(CatalogGrowth, ADeletedNumberIsTakenBeforeTheTablesGrow) {
  fill(0, 499);
  ASSERT_EQ(del_cf("N250"), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  EXPECT_EQ(put_cf("M"), DBE_OK);
  EXPECT_EQ(number_of("M"), 250);
  EXPECT_EQ(cntl()->shm_generation, generation);
}

TEST_F(CatalogGrowth, AnotherTaskMovesAtItsNextCall) {
  fill(0, 499);
  client_task beside("beside");
  ASSERT_EQ(get_on(beside, "N7"), DBE_OK);
  const std::uint32_t before = beside.tcb()->shm_generation;
  ASSERT_EQ(put_cf("N499"), DBE_OK);
  EXPECT_EQ(put_on(beside, "FROM BESIDE"), DBE_OK);
  EXPECT_EQ(beside.tcb()->shm_generation, before + 1);
  EXPECT_EQ(get_on(beside, "N499"), DBE_OK);
  EXPECT_EQ(get_on(task, "FROM BESIDE"), DBE_OK);
  EXPECT_EQ(number_of("FROM BESIDE"), 500);
}

TEST_F(CatalogGrowth, TheTaskThatFilledTheTablesMayBeTheOtherOne) {
  fill(0, 499);
  client_task beside("beside");
  ASSERT_EQ(put_on(beside, "LAST"), DBE_OK);
  EXPECT_EQ(put_cf("NEXT"), DBE_OK);
  EXPECT_EQ(number_of("NEXT"), 500);
  EXPECT_EQ(del_on(beside, "N0"), DBE_OK);
  EXPECT_EQ(get_cf("N0", 10).rc, DBE_NOT_FOUND);
}

TEST_F(CatalogGrowth, ACallOnTextRecordsNeedNotWaitForTheBiggerTables) {
  fill(0, 499);
  client_task beside("beside");
  unsigned char config[100];
  ASSERT_EQ(get_on(beside, "N0"), DBE_OK);
  ASSERT_EQ(put_cf("N499"), DBE_OK);
  EXPECT_EQ(db_get(task, DB_CFG, 0, nullptr, config, sizeof config), DBE_OK);
  EXPECT_EQ(db_get(beside, DB_CFG, 0, nullptr, config, sizeof config), DBE_OK);
  EXPECT_EQ(beside.tcb()->shm_generation, cntl()->shm_generation);
}

TEST_F(CatalogGrowth, LiveProcessesMoveAtTheirNextCall) {
  fill(0, 499);
  const auto one_of_them = [](const char* first, const char* own) {
    return [first, own](parent_link& parent) {
      void* other = co_init_task("other", nullptr, 1);
      if (!other || get_on(other, "N0") != DBE_OK) return 1;
      parent.stop_here();
      if (get_on(other, first) != DBE_OK) return 2;
      if (get_on(other, first, record_len) != DBE_OK) return 3;
      if (put_on(other, own) != DBE_OK) return 4;
      char reason[200];
      if (!zvrdb::memory::catalog_sound(other, reason, sizeof reason)) return 5;
      coi_term_task(other, 0);
      return 0;
    };
  };
  child_process first(one_of_them("N499", "FIRST"));
  child_process second(one_of_them("FIRST", "SECOND"));
  ASSERT_EQ(first.next(), 1);
  ASSERT_EQ(second.next(), 1);
  ASSERT_EQ(put_cf("N499"), DBE_OK);
  first.go_on();
  EXPECT_EQ(first.finish(), 0);
  second.go_on();
  EXPECT_EQ(second.finish(), 0);
  EXPECT_EQ(number_of("FIRST"), 500);
  EXPECT_EQ(number_of("SECOND"), 501);
  expect_agreement();
}

TEST_F(CatalogGrowth, AProcessThatGrewTheTablesAndDiedLeavesThemSound) {
  fill(0, 499);
  kill_writer_after([](void* child) { put_on(child, "N499"); });
  EXPECT_EQ(number_of("N499"), 499);
  EXPECT_EQ(put_cf("N500"), DBE_OK);
  expect_agreement();
}

TEST_F(CatalogGrowth, GrowthInsideATransactionIsUndoneWithIt) {
  fill(0, 490);
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  for (int i = 490; i < 510; ++i) ASSERT_EQ(put_cf(numbered("N", i)), DBE_OK) << i;
  EXPECT_EQ(cntl()->num_cat_alloc, 1000u);
  EXPECT_EQ(number_of("N505"), 505);
  ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK);
  EXPECT_EQ(cntl()->num_cat_inited, 490u);
  EXPECT_EQ(cntl()->num_cat_alloc, 990u);
  EXPECT_EQ(get_cf("N490", 10).rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("N489").rc, DBE_OK);
  EXPECT_EQ(put_cf("AGAIN"), DBE_OK);
  EXPECT_EQ(number_of("AGAIN"), 490);
  expect_agreement();
}

TEST_F(CatalogGrowth, GrowthInsideTheTransactionOfATaskThatEndsIsUndoneWithIt) {
  fill(0, 499);
  {
    client_task other("ends");
    ASSERT_EQ(db_start_trans(other, DB_CAT), DBE_OK);
    ASSERT_EQ(put_on(other, "N499"), DBE_OK);
  }
  EXPECT_EQ(get_cf("N499", head_len).rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("N499").rc, DBE_NOT_FOUND);
  EXPECT_EQ(put_cf("AGAIN"), DBE_OK);
  EXPECT_EQ(number_of("AGAIN"), 499);
  expect_agreement();
}

TEST_F(CatalogGrowth, GrowthInsideTheTransactionOfAProcessThatDiesIsUndoneWithIt) {
  fill(0, 499);
  kill_writer_after([](void* child) {
    db_start_trans(child, DB_CAT);
    put_on(child, "N499");
  });
  EXPECT_EQ(get_cf("N499", head_len).rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("N499").rc, DBE_NOT_FOUND);
  expect_agreement();
}

TEST_F(CatalogGrowth, ADeathInATransactionThatGrewTheTablesIsSeenByAFirstCallOnTextRecords) {
  fill(0, 499);
  kill_writer_after([](void* child) {
    db_start_trans(child, DB_CAT);
    put_on(child, "N499");
  });
  {
    client_task first("first");
    unsigned char config[100];
    ASSERT_EQ(db_get(first, DB_CFG, 0, nullptr, config, sizeof config), DBE_OK);
  }
  EXPECT_EQ(get_cf("N499", head_len).rc, DBE_NOT_FOUND);
  EXPECT_EQ(get_cf("N499").rc, DBE_NOT_FOUND);
  expect_agreement();
}

TEST_F(CatalogGrowth, AListMadeBeforeIsReadWithinTheBiggerTables) {
  fill(0, 499);
  std::vector<ListEntry> list(600);
  std::uint16_t count = 0, index = 0;
  const CfName all = cf("*");
  ASSERT_EQ(db_start_list(task, DB_CAT, all.data(), list.data(), 600 * 4, &count, &index), DBE_OK);
  ASSERT_EQ(count, 499);
  ASSERT_EQ(put_cf("N499"), DBE_OK);
  ASSERT_EQ(del_cf("N7"), DBE_OK);
  const std::uint16_t gone = 7;
  for (std::uint16_t at = 0; at < count; ++at) {
    CatRecord record("none");
    index = at;
    const int rc = db_get_next(task, DB_CAT, list.data(), count, &index, record.bytes.data(), head_len);
    EXPECT_EQ(index, at + 1);
    if (list[at].dist_idx == gone) {
      EXPECT_EQ(rc, DBE_NOT_FOUND);
      continue;
    }
    // The sequence of a slot begins anew with its generation; the record is the slot's.
    EXPECT_EQ(rc, DBE_ENTRY_CHANGED);
    EXPECT_EQ(record.name(), cf(numbered("N", list[at].dist_idx)));
  }
  const CfName name = cf("N44");
  EXPECT_EQ(db_find_cat_idx(task, name.data(), list.data(), count, &index), DBE_OK);
  EXPECT_EQ(list[index].dist_idx, 44);
}

TEST_F(CatalogGrowth, OthersListWhileItGrows) {
  fill(0, 400);
  const auto reader = [](parent_link& parent) {
    void* other = co_init_task("lists", nullptr, 1);
    if (!other || get_on(other, "N0") != DBE_OK) return 1;
    parent.stop_here();
    std::vector<ListEntry> list(2000);
    const CfName all = cf("*");
    for (std::uint16_t seen = 0; seen < 700;) {
      std::uint16_t count = 0, index = 0;
      if (db_start_list(other, DB_CAT, all.data(), list.data(), 2000 * 4, &count, &index) != DBE_OK) return 2;
      if (count < seen) return 3;  // nothing is deleted
      seen = count;
      // Nobody has changed an entry that was listed, but its generation may have gone on.
      CatRecord record("none");
      index = static_cast<std::uint16_t>(count / 2);
      const ListEntry entry = list[index];
      const int rc = db_get_next(other, DB_CAT, list.data(), count, &index, record.bytes.data(), head_len);
      if (rc != DBE_OK && rc != DBE_ENTRY_CHANGED) return 4;
      if (record.name() != cf(numbered("N", entry.dist_idx))) return 5;
    }
    coi_term_task(other, 0);
    return 0;
  };
  child_process first(reader);
  child_process second(reader);
  ASSERT_EQ(first.next(), 1);
  ASSERT_EQ(second.next(), 1);
  first.go_on();
  second.go_on();
  for (int i = 400; i < 700; ++i) ASSERT_EQ(put_cf(numbered("N", i)), DBE_OK) << i;
  EXPECT_EQ(first.finish(), 0);
  EXPECT_EQ(second.finish(), 0);
  expect_agreement();
}

}  // namespace
}  // namespace catalog_test
