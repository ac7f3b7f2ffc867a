// A process is killed right before each of its write operations in turn: memory and file
// agree afterwards, and the change was made whole or not at all.
#include <functional>

#include "catalog/catalog.h"
#include "catalog/catalog_fixture.h"
#include "frame/frame_fixture.h"
#include "support/killed_writes.h"

namespace catalog_test {
namespace {

class KilledCatalogCalls : public CatalogTest {
 protected:
  // The change is made by a process that dies before its first, second, ... write operation,
  // until it lives.  Then restore brings the catalog back.
  void sweep(const std::function<bool(void*)>& change, const std::function<void()>& restore) {
    for (int nth = 0; nth < 100 && !HasFailure(); ++nth) {
      SCOPED_TRACE(numbered("before write operation ", static_cast<unsigned>(nth)));
      restore();
      before = table_lines();
      const int parts_before = parts_of(1);
      const int ended = in_child([&](void* child) {
        get_on(child, "A");
        zvrtest::die_before_write_operation(nth);
        const bool done = change(child);
        zvrtest::live_on();
        return done ? 0 : 1;
      });
      ASSERT_TRUE(ended == 0 || ended == -SIGKILL) << ended;
      expect_agreement();
      if (table_lines() == before) {
        EXPECT_EQ(parts_of(1), parts_before);
        EXPECT_NE(ended, 0) << "answered as done";
      } else if (made.empty()) {
        made = table_lines();
      } else {
        EXPECT_EQ(table_lines(), made);
      }
      if (ended == 0) {
        EXPECT_GT(nth, 0);
        return;
      }
    }
  }
  // Two change files; two records below the second one.
  void two_files() {
    for (const char* name : {"A", "B"}) put_cf(name);
    for (const char* name : {"C", "D"}) del_cf(name);
    ASSERT_EQ(number_of("B"), 1);
    framed([&] { return zvrdb::catalog::del_prod_file(task, 1); });
    ASSERT_EQ(store_part(DB_PRD, 1, 1), DBE_OK);
    ASSERT_EQ(store_part(DB_FST, 1, 1, 1), DBE_OK);
  }
  std::vector<std::string> before, made;
};

TEST_F(KilledCatalogCalls, OfANewChangeFileLeaveItWholeOrAbsent) {
  sweep([](void* child) { return put_on(child, "C") == DBE_OK; }, [this] { two_files(); });
}

TEST_F(KilledCatalogCalls, OfAReplacementLeaveTheOldOrTheNewOne) {
  sweep([](void* child) { return put_on(child, CatRecord("A").text("new")) == DBE_RECORD_REPLACED; },
        [this] { two_files(); });
}

TEST_F(KilledCatalogCalls, OfADeletionLeaveAllOfItOrNothing) {
  sweep([](void* child) { return del_on(child, "B") == DBE_OK; }, [this] { two_files(); });
}

TEST_F(KilledCatalogCalls, OfATransactionLeaveAllOfItOrNothing) {
  sweep(
      [](void* child) {
        return db_start_trans(child, DB_CAT) == DBE_OK && put_on(child, "C") == DBE_OK &&
               put_on(child, CatRecord("A").text("new")) == DBE_RECORD_REPLACED &&
               put_on(child, "D") == DBE_OK && db_commit(child, DB_CAT) == DBE_OK;
      },
      [this] { two_files(); });
}

TEST_F(KilledCatalogCalls, OfADeletionThatEndsATransactionLeaveAllOfBothOrNothing) {
  sweep(
      [](void* child) {
        return db_start_trans(child, DB_CAT) == DBE_OK && put_on(child, "C") == DBE_OK &&
               del_on(child, "B") == DBE_OK;
      },
      [this] { two_files(); });
}

TEST_F(KilledCatalogCalls, BetweenGrowthAndTheBiggerTablesLeaveTheNextCallToBuildThem) {
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  for (int i = 0; i < 499; ++i) ASSERT_EQ(put_cf(numbered("N", i)), DBE_OK) << i;
  ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  zvrtest::client_task beside("beside");
  ASSERT_EQ(get_on(beside, "N0"), DBE_OK);
  kill_writer_after([](void* child) {
    if (zvrdb::frame::dbr_in(child, zvrdb::frame::operation::write, DB_CAT) != DBE_OK) return;
    CatRecord record("N499");
    const CfName name = record.name();
    const void* keys[] = {name.data()};
    zvrdb::catalog::put_cat(child, 1, keys, record.bytes.data(), record_len);
  });
  EXPECT_EQ(get_on(beside, "N499"), DBE_OK);
  EXPECT_EQ(put_cf("N500"), DBE_OK);
  EXPECT_EQ(number_of("N500"), 500);
  EXPECT_EQ(get_on(beside, "N500"), DBE_OK);
  EXPECT_EQ(zvrtest::segments_in(co_shared_folder(task)), 1u);
  expect_agreement();
}

}  // namespace
}  // namespace catalog_test
