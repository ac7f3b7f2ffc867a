// A process is killed right before each of its write operations in turn: both sides of
// every pair agree afterwards, and the change was made whole or not at all.
#include <functional>

#include "cmstatus/cms_fixture.h"
#include "support/journal_mode.h"
#include "support/killed_writes.h"

namespace cms_test {
namespace {

class KilledCalls : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_target(name), DBE_OK);
    ASSERT_EQ(put_file(one), DBE_OK);
    ASSERT_EQ(put_file(two), DBE_OK);
    begin_anew();
  }
  void begin_anew() {
    const int rc = put_target("A");
    ASSERT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED);
    for (const CfName& name : {one, two}) ASSERT_EQ(db_del_cf_cms(task, name.data()), DBE_OK);
    ASSERT_EQ(set("A", one, 1), DBE_OK);
    ASSERT_EQ(set("A", two, 2), DBE_OK);
    ASSERT_EQ(set("B", one, 3), DBE_OK);
    before = stored_pairs(task);
    expect_sides_agree();
  }
  // The change is made by a process that dies before its first, second, ... write operation,
  // until it lives.
  void sweep(const std::function<int(void*)>& change) {
    for (int nth = 0; nth < 100; ++nth) {
      SCOPED_TRACE(numbered("before write operation ", static_cast<unsigned>(nth)));
      const int ended = in_child([&](void* child) {
        get_status(child, "A", one);
        // With a journal there is no part of an operation that a kill could leave.
        zvrtest::die_before_write_operation(nth, zvrdb::test::journals_on());
        const int rc = change(child);
        zvrtest::live_on();
        return rc == DBE_OK || rc == DBE_RECORD_REPLACED ? 0 : 1;
      });
      ASSERT_TRUE(ended == 0 || ended == -SIGKILL) << ended;
      expect_sides_agree();
      const StoredPairs after = stored_pairs(task);
      if (ended == 0) {
        EXPECT_NE(after.by_target, before.by_target) << "answered as done";
        EXPECT_GT(nth, 2);
        return;
      }
      if (after.by_target != before.by_target) {
        EXPECT_EQ(after.by_target, made_by(change));
      }
      begin_anew();
      if (HasFailure()) return;
    }
    ADD_FAILURE() << "it is always killed";
  }
  // What the change makes of the pairs that each attempt starts from.
  std::map<Pair, unsigned> made_by(const std::function<int(void*)>& change) {
    begin_anew();
    const int rc = change(task);
    EXPECT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
    return stored_pairs(task).by_target;
  }
  const CfName one = cf("ONE"), two = cf("TWO");
  StoredPairs before;
};

TEST_F(KilledCalls, OfANewPairLeaveBothSidesEqual) {
  sweep([&](void* child) { return put_status(child, "B", two, 9); });
}
TEST_F(KilledCalls, OfTheFirstPairOfATargetLeaveBothSidesEqual) {
  sweep([&](void* child) { return put_status(child, "C", one, 9); });
}
TEST_F(KilledCalls, OfAReplacementLeaveBothSidesEqual) {
  sweep([&](void* child) { return put_status(child, "A", one, 9); });
}
TEST_F(KilledCalls, OfADeletionLeaveBothSidesEqual) {
  sweep([&](void* child) { return del_status(child, "A", one); });
}
TEST_F(KilledCalls, OfADeletionOfTheLastTargetLeaveBothSidesEqual) {
  sweep([&](void* child) { return del_status(child, "A", two); });
}
TEST_F(KilledCalls, OfTheDeletionOfATargetLeaveBothSidesEqual) {
  sweep([&](void* child) {
    const void* keys[] = {"A"};
    return static_cast<int>(db_del(child, DB_TRG, 1, keys));
  });
}
TEST_F(KilledCalls, OfTheDeletionOfAChangeFilesStatusLeaveBothSidesEqual) {
  sweep([&](void* child) { return static_cast<int>(db_del_cf_cms(child, one.data())); });
}

}  // namespace
}  // namespace cms_test
