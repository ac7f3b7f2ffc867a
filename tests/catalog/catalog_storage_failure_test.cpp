// The catalog when the record file cannot be written: whatever write fails, what is
// answered is what is there, in memory and in the file.
#include <memory>

#include "catalog/catalog.h"
#include "catalog/catalog_fixture.h"
#include "engine/os_file.h"
#include "frame/frame_fixture.h"
#include "support/journal_mode.h"

namespace catalog_test {
namespace {

// Writes that still succeed before one fails, alone or with all that follow; negative for
// no failure.
int writes_left = -1;
bool fails_for_good = false;

std::int64_t counted_write(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (writes_left == 0) {
    if (!fails_for_good) writes_left = -1;
    return 0;
  }
  if (writes_left > 0) --writes_left;
  return zvrdb::engine::linux_ops.write_at(file, offset, from, n);
}

class CatalogStorageFailure : public CatalogTest {
 protected:
  void SetUp() override {
    writes_left = -1;
    operations = zvrdb::engine::linux_ops;
    operations.write_at = counted_write;
    zvrdb::engine::set_os_ops(&operations);
    CatalogTest::SetUp();
    // It has the file open before anything fails: an opener waits for the owner of an
    // interrupted transaction.
    beside = std::make_unique<zvrtest::client_task>("beside");
    get_on(*beside, "none");
  }
  void TearDown() override {
    writes_left = -1;
    beside.reset();
    CatalogTest::TearDown();
    zvrdb::engine::set_os_ops(nullptr);
  }

  // Memory and file answer alike for each of these names, to this task and to another.
  void expect_same_answers(const std::vector<std::string>& names) {
    for (void* reader : {task, static_cast<void*>(*beside)})
      for (const std::string& name : names) {
        const int head = get_on(reader, name);
        EXPECT_EQ(head, get_on(reader, name, record_len)) << name;
        EXPECT_TRUE(head == DBE_OK || head == DBE_NOT_FOUND) << head;
      }
  }

  // A handle that could not write meets its failure once more at the next write.
  static int again(const std::function<int()>& call) {
    const int rc = call();
    return rc == DBE_IO_ERROR ? call() : rc;
  }

  // Fails the nth write of the call for each n until none does.  `restore` is told
  // whether the call was done and brings the catalog back to where it is to begin.
  void sweep(const std::function<int()>& call, const std::function<void(bool done)>& restore,
             const std::vector<std::string>& names) {
    for (const bool for_good : {false, true}) {
      int failures = 0;
      bool passed = false;
      fails_for_good = for_good;
      for (int n = 0; n < 300 && !passed && !HasFailure(); ++n) {
        SCOPED_TRACE(numbered(for_good ? "all writes from " : "write ", static_cast<unsigned>(n)));
        writes_left = n;
        const int rc = call();
        passed = writes_left > 0;
        writes_left = -1;
        const bool done = rc == DBE_OK || rc == DBE_RECORD_REPLACED;
        EXPECT_TRUE(done || rc == DBE_IO_ERROR) << rc;
        if (!done) ++failures;
        expect_same_answers(names);
        expect_catalog_sound();
        restore(done);
      }
      EXPECT_TRUE(passed);
      // With a journal the groups of a call are one write, and what fails behind the commit is repaired.
      EXPECT_GE(failures, zvrdb::test::journals_on() ? 1 : 3);
    }
    expect_agreement();
  }

  // Brings both change files, and two records below B, back whatever is left of them.
  void complete() {
    for (const char* name : {"A", "B"}) {
      const int rc = again([&] { return put_cf(name); });
      EXPECT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << name << " " << rc;
    }
    framed([&] { return zvrdb::catalog::del_prod_file(task, 1); });
    EXPECT_EQ(number_of("B"), 1);
    EXPECT_EQ(store_part(DB_PRD, 1, 1), DBE_OK);
    EXPECT_EQ(store_part(DB_FST, 1, 1, 1), DBE_OK);
  }

  std::unique_ptr<zvrtest::client_task> beside;
  zvrdb::engine::os_ops operations;
};

TEST_F(CatalogStorageFailure, ANewChangeFileThatCannotBeWrittenIsNotInTheTables) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  const auto before = table_lines();
  fails_for_good = true;
  writes_left = 0;
  EXPECT_EQ(put_cf("B"), DBE_IO_ERROR);
  EXPECT_EQ(put_cf(CatRecord("A").text("new")), DBE_IO_ERROR);
  EXPECT_EQ(del_cf("A"), DBE_IO_ERROR);
  EXPECT_EQ(get_cf("A", head_len).rc, DBE_OK) << "memory goes on answering";
  EXPECT_EQ(get_cf("B", head_len).rc, DBE_NOT_FOUND);
  expect_catalog_sound();
  writes_left = -1;
  EXPECT_EQ(table_lines(), before);
  EXPECT_EQ(put_cf("B"), DBE_OK);
  EXPECT_EQ(number_of("B"), 1);
  expect_agreement();
}

// A write operation that a failure cuts short may stay or not.  What the file then holds
// is what memory shows.
TEST_F(CatalogStorageFailure, MemoryFollowsTheFileWhicheverWriteOfAPutFails) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  sweep([&] { return put_cf("B"); },
        [&](bool done) {
          const int rc = again([&] { return del_cf("B"); });
          EXPECT_TRUE(rc == DBE_OK || (!done && rc == DBE_NOT_FOUND)) << rc;
        },
        {"A", "B"});
}

TEST_F(CatalogStorageFailure, MemoryFollowsTheFileWhicheverWriteOfAReplacementFails) {
  ASSERT_EQ(put_cf(CatRecord("A").text("old")), DBE_OK);
  sweep([&] { return put_cf(CatRecord("A").text("new")); },
        [&](bool done) {
          const std::string head = get_cf("A", head_len).record.text();
          EXPECT_EQ(head, get_cf("A").record.text());
          EXPECT_TRUE(head == "new" || (!done && head == "old")) << head;
          const int rc = again([&] { return put_cf(CatRecord("A").text("old")); });
          EXPECT_TRUE(rc == DBE_RECORD_REPLACED || rc == DBE_OK) << rc;
        },
        {"A"});
}

TEST_F(CatalogStorageFailure, MemoryFollowsTheFileWhicheverWriteOfADeletionFails) {
  complete();
  sweep([&] { return del_cf("B"); },
        [&](bool done) {
          if (done) {
            EXPECT_EQ(parts_of(1), 0);
            EXPECT_EQ(number_of("B"), -1);
          }
          complete();
        },
        {"A", "B"});
}

TEST_F(CatalogStorageFailure, ADeletionWhoseTransactionCannotBeEndedIsUndoneInMemoryToo) {
  complete();
  const auto before = table_lines();
  int commits_failed = 0;
  for (int n = 0; n < 300; ++n) {
    SCOPED_TRACE(numbered("write ", static_cast<unsigned>(n)));
    const std::uint32_t generation = cntl()->shm_generation;
    const int told = logged(36450);
    fails_for_good = false;
    writes_left = n;
    const int rc = del_cf("B");
    const bool passed = writes_left > 0;
    writes_left = -1;
    if (passed) break;
    if (logged(36450) > told) {
      ++commits_failed;
      EXPECT_EQ(rc, DBE_IO_ERROR) << "the failing commit is the result";
      EXPECT_GT(cntl()->shm_generation, generation) << "memory had shown the deletion already";
      // The file holds all of the deletion or nothing, and memory the same.
      EXPECT_EQ(parts_of(1), number_of("B") == 1 ? 2 : 0);
      if (number_of("B") == 1) {
        EXPECT_EQ(table_lines(), before);
      }
    }
    complete();
  }
  EXPECT_GT(commits_failed, 0);
}

TEST_F(CatalogStorageFailure, MemoryFollowsTheFileWhenADeletionFailsInATransaction) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  fails_for_good = false;
  int failures = 0;
  for (int n = 0; n < 300; ++n) {
    SCOPED_TRACE(numbered("write ", static_cast<unsigned>(n)));
    ASSERT_EQ(again([&] { return db_start_trans(task, DB_CAT); }), DBE_OK);
    ASSERT_EQ(put_cf("B"), DBE_OK);
    writes_left = n;
    const int rc = del_cf("A");
    const bool passed = writes_left > 0;
    writes_left = -1;
    expect_same_answers({"A", "B"});
    if (rc == DBE_OK) {
      EXPECT_EQ(get_on(task, "A"), DBE_NOT_FOUND);
      EXPECT_EQ(get_on(task, "B"), DBE_OK);
    } else {
      ++failures;
      EXPECT_EQ(rc, DBE_IO_ERROR);
    }
    EXPECT_EQ(db_rollback(task, DB_CAT), DBE_OK) << "it is over";
    again([&] { return del_cf("B"); });
    again([&] { return put_cf("A"); });
    if (passed || HasFailure()) break;
  }
  EXPECT_GT(failures, 2);
  expect_agreement();
}

TEST_F(CatalogStorageFailure, MemoryFollowsTheFileWhicheverWriteOfATransactionFails) {
  ASSERT_EQ(put_cf(CatRecord("A").text("old")), DBE_OK);
  const auto transaction = [&]() -> int {
    const bool done = db_start_trans(task, DB_CAT) == DBE_OK &&
                      put_cf(CatRecord("A").text("new")) == DBE_RECORD_REPLACED && put_cf("B") == DBE_OK &&
                      db_commit(task, DB_CAT) == DBE_OK;
    if (done) return DBE_OK;
    db_rollback(task, DB_CAT);
    writes_left = -1;
    // The handle was lost in a roll-back that failed: opening the file anew meets what is
    // left of it once.
    if (get_on(task, "A") == DBE_INIT_FAILED) get_on(task, "A");
    return DBE_IO_ERROR;
  };
  sweep(transaction,
        [&](bool done) {
          const std::string head = get_cf("A", head_len).record.text();
          EXPECT_EQ(head, get_cf("A").record.text());
          if (done) {
            EXPECT_EQ(head, "new");
          }
          EXPECT_FALSE(tcb()->trans_in_prog[1]);
          EXPECT_EQ(tcb()->trans_active[DB_CAT], 0);
          again([&] { return del_cf("B"); });
          const int rc = again([&] { return put_cf(CatRecord("A").text("old")); });
          EXPECT_TRUE(rc == DBE_RECORD_REPLACED || rc == DBE_OK) << rc;
        },
        {"A", "B"});
}

}  // namespace
}  // namespace catalog_test
