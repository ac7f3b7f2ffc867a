// Reads that memory answers make no system call and allocate nothing, once the task
// has made its first call.

#include "support/costs_of_calls.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

using zvrtest::then_without_system_calls;

struct WarmRead {
  unsigned char record[192];
  const void* keys[1] = {"T50"};

  int all(void* task) {
    std::uint32_t number = 0;
    int rc = db_get_trg_index(task, "T50", &number);
    if (rc == DBE_OK) rc = db_get(task, DB_TRG, 1, keys, record, 148);
    if (rc == DBE_OK) rc = db_get(task, DB_TRG, 1, keys, record, 192);
    unsigned char status[4];
    if (rc == DBE_OK) rc = db_get_trg_stat(task, "T50", status);
    if (rc == DBE_OK) rc = db_put_trg_stat(task, "T50", status);
    unsigned char filter[138] = {}, state[420];
    if (rc == DBE_OK) rc = db_init_list(task, DB_TRG, filter, state, sizeof state);
    for (int i = 0; rc == DBE_OK && i < 60; ++i) rc = db_get_more(task, DB_TRG, state, record, 148);
    if (rc == DBE_OK && db_get_more(task, DB_TRG, state, record, 148) != DBE_END_OF_LIST) rc = DBE_NOT_FOUND;
    return rc;
  }
};

class WarmReads : public TargetsTest {
 protected:
  void fill() {
    configure(100);
    for (int i = 0; i < 60; ++i) ASSERT_EQ(put(Record(numbered("T", i)).type(local | client)), DBE_OK);
  }
};

TEST_F(WarmReads, MakeNoSystemCall) {
  fill();
  EXPECT_EQ(in_child([](void* child) {
              WarmRead reads;
              const auto all = [&] { return reads.all(child) == DBE_OK; };
              return then_without_system_calls(all, [&] { return zvrtest::a_thousand_times(all); });
            }),
            0);
}

TEST_F(WarmReads, AreKilledByTheSameFilterWhenTheyReachTheFile) {
  fill();
  const int status = in_child([](void* child) {
    WarmRead reads;
    const auto from_memory = [&] { return reads.all(child) == DBE_OK; };
    return then_without_system_calls(from_memory, [&] {
      std::vector<unsigned char> record(193);
      db_get(child, DB_TRG, 1, reads.keys, record.data(), 193);
      return true;
    });
  });
  EXPECT_LT(status, 0) << "the filter works: a read from the file makes system calls";
}

TEST_F(WarmReads, AllocateNothing) {
#if ZVR_SANITIZED
  GTEST_SKIP() << "the sanitizer has the allocator";
#else
  fill();
  WarmRead reads;
  zvrtest::expect_no_allocation([&] { return reads.all(task) == DBE_OK; });
  const unsigned long before = allocations;
  get("T50");
  EXPECT_GT(allocations, before) << "the counter works";
#endif
}

}  // namespace
}  // namespace target_test
