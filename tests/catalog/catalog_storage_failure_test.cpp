// The catalog when the record file cannot be written: whatever write fails, what is
// answered is what is there, in memory and in the file.
#include "catalog/catalog_fixture.h"
#include "engine/os_file.h"
#include "frame/frame_fixture.h"

namespace catalog_test {
namespace {

// Writes that still succeed; negative for no limit.
int writes_left = -1;

std::int64_t counted_write(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (writes_left == 0) return 0;
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
  }
  void TearDown() override {
    writes_left = -1;
    CatalogTest::TearDown();
    zvrdb::engine::set_os_ops(nullptr);
  }

  // Memory and file answer alike for each of these names, to this task and to another.
  void expect_same_answers(const std::vector<std::string>& names, int at_write) {
    zvrtest::client_task beside("beside");
    for (void* reader : {task, static_cast<void*>(beside)})
      for (const std::string& name : names) {
        const int head = get_on(reader, name);
        EXPECT_EQ(head, get_on(reader, name, record_len)) << name << " with write " << at_write << " failing";
        EXPECT_TRUE(head == DBE_OK || head == DBE_NOT_FOUND) << head << " " << at_write;
      }
  }

  // Fails the nth write of the call, for good while it runs, for each n until none does.
  // `restore` brings the catalog back to where the call is to begin.
  void sweep(const std::function<int()>& call, const std::function<void(bool done)>& restore,
             const std::vector<std::string>& names) {
    int failures = 0;
    bool passed = false;
    for (int n = 0; n < 300 && !passed && !HasFailure(); ++n) {
      writes_left = n;
      const int rc = call();
      passed = writes_left > 0;
      writes_left = -1;
      const bool done = rc == DBE_OK || rc == DBE_RECORD_REPLACED;
      EXPECT_TRUE(done || rc == DBE_IO_ERROR) << n << ": " << rc;
      if (!done) ++failures;
      expect_same_answers(names, n);
      expect_catalog_sound();
      restore(done);
    }
    EXPECT_TRUE(passed);
    EXPECT_GT(failures, 2);
    expect_agreement();
  }

  zvrdb::engine::os_ops operations;
};

TEST_F(CatalogStorageFailure, ANewChangeFileIsThereOrNotAtAnyFailingWrite) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  sweep([&] { return put_cf("B"); },
        [&](bool done) { EXPECT_EQ(del_cf("B"), done ? DBE_OK : DBE_NOT_FOUND); }, {"A", "B"});
}

TEST_F(CatalogStorageFailure, AReplacementIsWholeOrNotAtAnyFailingWrite) {
  ASSERT_EQ(put_cf(CatRecord("A").text("old")), DBE_OK);
  sweep([&] { return put_cf(CatRecord("A").text("new")); },
        [&](bool done) {
          EXPECT_EQ(get_cf("A", head_len).record.text(), done ? "new" : "old");
          EXPECT_EQ(get_cf("A").record.text(), done ? "new" : "old");
          EXPECT_EQ(put_cf(CatRecord("A").text("old")), DBE_RECORD_REPLACED);
        },
        {"A"});
}

TEST_F(CatalogStorageFailure, ADeletionIsWholeOrNotAtAnyFailingWrite) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  ASSERT_EQ(put_cf("B"), DBE_OK);
  ASSERT_EQ(store_part(DB_PRD, 1, 1), DBE_OK);
  ASSERT_EQ(store_part(DB_FST, 1, 1, 1), DBE_OK);
  sweep([&] { return del_cf("B"); },
        [&](bool done) {
          EXPECT_EQ(parts_of(1), done ? 0 : 2);
          EXPECT_EQ(number_of("B"), done ? -1 : 1);
          if (!done) return;
          EXPECT_EQ(put_cf("B"), DBE_OK);
          EXPECT_EQ(store_part(DB_PRD, 1, 1), DBE_OK);
          EXPECT_EQ(store_part(DB_FST, 1, 1, 1), DBE_OK);
        },
        {"A", "B"});
}

TEST_F(CatalogStorageFailure, ADeletionWhoseTransactionCannotBeEndedIsUndoneInMemoryToo) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  ASSERT_EQ(put_cf("B"), DBE_OK);
  const auto before = table_lines();
  // The last write that lets the call fail is one of its commit.
  int last_failing = -1;
  for (int n = 0; n < 300; ++n) {
    writes_left = n;
    const int rc = del_cf("B");
    writes_left = -1;
    if (rc == DBE_OK) break;
    last_failing = n;
  }
  ASSERT_GT(last_failing, 0);
  ASSERT_EQ(put_cf("B"), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  writes_left = last_failing;
  EXPECT_EQ(del_cf("B"), DBE_IO_ERROR) << "the failing commit is the result";
  writes_left = -1;
  EXPECT_EQ(get_cf("B", head_len).rc, DBE_OK);
  EXPECT_GT(cntl()->shm_generation, generation) << "memory had shown the deletion already";
  EXPECT_EQ(table_lines(), before);
  EXPECT_EQ(del_cf("B"), DBE_OK);
}

TEST_F(CatalogStorageFailure, ADeletionThatFailsInATransactionUndoesAllOfItEverywhere) {
  ASSERT_EQ(put_cf("A"), DBE_OK);
  for (int n = 0; n < 40; ++n) {
    ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
    const int put = put_cf("B");
    ASSERT_EQ(put, DBE_OK);
    writes_left = n;
    const int rc = del_cf("A");
    const bool passed = writes_left > 0;
    writes_left = -1;
    if (passed) {
      EXPECT_EQ(rc, DBE_OK);
      return;
    }
    if (rc != DBE_OK) {
      expect_same_answers({"A", "B"}, n);
      EXPECT_EQ(get_on(task, "B"), DBE_NOT_FOUND) << n;
      EXPECT_EQ(get_on(task, "A"), DBE_OK) << n;
      EXPECT_EQ(db_rollback(task, DB_CAT), DBE_OK);
    } else {
      EXPECT_EQ(del_cf("B"), DBE_OK);
      EXPECT_EQ(put_cf("A"), DBE_OK);
    }
  }
  FAIL() << "some write always failed";
}

}  // namespace
}  // namespace catalog_test
