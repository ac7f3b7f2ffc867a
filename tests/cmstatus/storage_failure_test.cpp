// The storage refuses to write from each write operation of a change on in turn: whatever
// the answer was, both sides of every pair agree afterwards, and what was answered as done
// is there.  (Without journals a failure in the midst of a write operation is another matter:
// the engine's, which may leave that one operation half done.)
#include <cerrno>
#include <functional>

#include "cmstatus/cm_status.h"
#include "cmstatus/cms_fixture.h"
#include "engine/os_file.h"
#include "support/journal_mode.h"

namespace cms_test {
namespace {

// Write operations begin with the writing of their flag; that of the nth from now on is
// refused, and every write from then on.
struct {
  int left = 0;  // 0: none is refused
  bool refusing = false;
} fault;

bool begins_write_operation(std::uint64_t offset, const void* from, std::size_t n) {
  return zvrdb::test::journals_on() || (offset == 1010 && n == 2 && *static_cast<const unsigned char*>(from) != 0);
}

std::int64_t write_unless_refused(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (begins_write_operation(offset, from, n) && fault.left > 0 && --fault.left == 0) fault.refusing = true;
  if (fault.refusing) {
    errno = ENOSPC;
    return -1;
  }
  return zvrdb::engine::linux_ops.write_at(file, offset, from, n);
}

// The nth read from now on fails, once; 0: none does.
int failing_read = 0;

std::int64_t read_unless_failing(int file, std::uint64_t offset, void* to, std::size_t n) {
  if (failing_read > 0 && --failing_read == 0) {
    errno = EIO;
    return -1;
  }
  return zvrdb::engine::linux_ops.read_at(file, offset, to, n);
}

class StorageFailureOnStatus : public CmStatusTest {
 protected:
  void SetUp() override {
    fault = {};
    operations = zvrdb::engine::linux_ops;
    operations.write_at = write_unless_refused;
    operations.read_at = read_unless_failing;
    operations.map = nullptr;   // so that each change reads
    zvrdb::engine::set_os_ops(&operations);
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
    begin_anew();
  }
  void TearDown() override {
    fault = {};
    CmStatusTest::TearDown();
    zvrdb::engine::set_os_ops(nullptr);
  }
  // The pairs that each attempt starts from.
  void begin_anew() {
    for (const CfName& name : {one, two}) ASSERT_EQ(db_del_cf_cms(task, name.data()), DBE_OK);
    ASSERT_EQ(set("A", one, 1), DBE_OK);
    ASSERT_EQ(set("A", two, 2), DBE_OK);
    ASSERT_EQ(set("B", one, 3), DBE_OK);
    before = stored_pairs(task);
    expect_sides_agree();
  }
  // Refuses from the first, second, ... write operation on, until the change gets by
  // without meeting the refusal.
  void fail_from_each(const std::function<int()>& change) {
    for (int nth = 1; nth < 300; ++nth) {
      SCOPED_TRACE(numbered("from write operation ", nth));
      fault = {nth, false};
      const int rc = change();
      const bool met = fault.refusing;
      fault = {};
      if (!met) {
        EXPECT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
        EXPECT_GT(nth, 2);
        begin_anew();
        return;
      }
      // A new task opens the file anew and finds it as the failure left it.
      new_task();
      ASSERT_EQ(by_file(one).rc, DBE_OK);
      expect_sides_agree();
      const StoredPairs after = stored_pairs(task);
      if (rc == DBE_OK || rc == DBE_RECORD_REPLACED)
        EXPECT_NE(after.by_target, before.by_target) << "answered as done";
      else
        EXPECT_EQ(after.by_target, before.by_target) << "answered as failed with " << rc;
      begin_anew();
      if (HasFailure()) return;
    }
    ADD_FAILURE() << "the refusal is always met";
  }
  zvrdb::engine::os_ops operations;
  const CfName one = cf("ONE"), two = cf("TWO");
  StoredPairs before;
};

TEST_F(StorageFailureOnStatus, OfANewPairLeavesBothSidesEqual) {
  fail_from_each([&] { return set("B", two, 9); });
}

TEST_F(StorageFailureOnStatus, OfTheFirstPairOfATargetLeavesBothSidesEqual) {
  fail_from_each([&] { return set("C", one, 9); });
}

TEST_F(StorageFailureOnStatus, OfAReplacementLeavesBothSidesEqual) {
  fail_from_each([&] { return set("A", one, 9); });
}

TEST_F(StorageFailureOnStatus, OfADeletionLeavesBothSidesEqual) {
  fail_from_each([&] { return drop("A", one); });
}

TEST_F(StorageFailureOnStatus, OfADeletionOfTheLastTargetLeavesBothSidesEqual) {
  fail_from_each([&] { return drop("A", two); });
}

TEST_F(StorageFailureOnStatus, OfTheDeletionOfATargetsStatusLeavesBothSidesEqual) {
  fail_from_each([&] { return zvrdb::cmstatus::del_target_cms(task, "A"); });
}

TEST_F(StorageFailureOnStatus, OfTheDeletionOfAChangeFilesStatusLeavesBothSidesEqual) {
  fail_from_each([&] { return db_del_cf_cms(task, one.data()); });
}

// A record that cannot be read is not one that is not there.
TEST_F(StorageFailureOnStatus, OfAnyOneReadLeavesBothSidesEqual) {
  const std::function<int(void*)> changes[] = {
      [&](void* child) { return static_cast<int>(db_del_cf_cms(child, one.data())); },
      [&](void* child) { return static_cast<int>(zvrdb::cmstatus::del_target_cms(child, "A")); },
      [&](void* child) { return del_status(child, "A", one); },
      [&](void* child) { return put_status(child, "B", two, 9); },
  };
  for (const auto& change : changes)
    for (int nth = 1; nth < 200; ++nth) {
      SCOPED_TRACE(numbered("read ", nth));
      const int met = in_child([&](void* child) {
        get_status(child, "A", one);
        failing_read = nth;
        change(child);
        return failing_read == 0 ? 1 : 0;
      });
      expect_sides_agree();
      if (met == 0) {
        EXPECT_GT(nth, 1);
        break;
      }
      if (HasFailure()) return;
      begin_anew();
    }
}

}  // namespace
}  // namespace cms_test
