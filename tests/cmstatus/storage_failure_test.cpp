// The storage fails at each of its write operations in turn: whatever the answer was,
// both sides of every pair agree afterwards, and what was answered as done is there.
#include <functional>

#include "cmstatus/cms_fixture.h"
#include "cmstatus/cm_status.h"
#include "engine/faulty_os.h"

namespace cms_test {
namespace {

using zvrdb::test::os_call;

class StorageFailureOnStatus : public CmStatusTest {
 protected:
  void SetUp() override {
    zvrdb::test::install_faulty_os();
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
    begin_anew();
  }
  void TearDown() override {
    zvrdb::test::disarm();
    CmStatusTest::TearDown();
    zvrdb::test::remove_faulty_os();
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
  // Fails the first, second, ... call of the kind, once or for good, until the change
  // gets by without meeting the failure.
  void fail_each(os_call kind, bool for_good, const std::function<int()>& change) {
    for (int nth = 1; nth < 300; ++nth) {
      SCOPED_TRACE(numbered("failing call ", nth));
      zvrdb::test::fail_call(kind, nth, for_good);
      const int rc = change();
      const bool met = zvrdb::test::failures() > 0;
      zvrdb::test::disarm();
      if (!met) {
        EXPECT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
        EXPECT_GT(nth, 1);
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
    ADD_FAILURE() << "the failure is always met";
  }
  void fail_each(const std::function<int()>& change) {
    for (const os_call kind : {os_call::write, os_call::flush})
      for (const bool for_good : {false, true}) {
        SCOPED_TRACE(std::string(kind == os_call::write ? "write" : "flush") + (for_good ? " for good" : " once"));
        fail_each(kind, for_good, change);
        if (HasFailure()) return;
      }
  }
  const CfName one = cf("ONE"), two = cf("TWO");
  StoredPairs before;
};

TEST_F(StorageFailureOnStatus, OfANewPairLeavesBothSidesEqual) {
  fail_each([&] { return set("B", two, 9); });
}

TEST_F(StorageFailureOnStatus, OfTheFirstPairOfATargetLeavesBothSidesEqual) {
  fail_each([&] { return set("C", one, 9); });
}

TEST_F(StorageFailureOnStatus, OfAReplacementLeavesBothSidesEqual) {
  fail_each([&] { return set("A", one, 9); });
}

TEST_F(StorageFailureOnStatus, OfADeletionLeavesBothSidesEqual) {
  fail_each([&] { return drop("A", one); });
}

TEST_F(StorageFailureOnStatus, OfADeletionOfTheLastTargetLeavesBothSidesEqual) {
  fail_each([&] { return drop("A", two); });
}

TEST_F(StorageFailureOnStatus, OfTheDeletionOfATargetsStatusLeavesBothSidesEqual) {
  fail_each([&] { return zvrdb::cmstatus::del_target_cms(task, "A"); });
}

TEST_F(StorageFailureOnStatus, OfTheDeletionOfAChangeFilesStatusLeavesBothSidesEqual) {
  fail_each([&] { return db_del_cf_cms(task, one.data()); });
}

}  // namespace
}  // namespace cms_test
