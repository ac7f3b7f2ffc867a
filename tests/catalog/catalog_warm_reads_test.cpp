// Reads that memory answers make no system call and allocate nothing, once the task
// has made its first call.
#include <array>

#include "catalog/catalog_fixture.h"
#include "support/costs_of_calls.h"

namespace catalog_test {
namespace {

using zvrtest::then_without_system_calls;

struct WarmRead {
  CfName name = cf("A.B.50");
  CfName filter = cf("A.*.5*");
  unsigned char record[head_len];
  const void* keys[1] = {name.data()};

  int all(void* task) {
    std::uint16_t number = 0;
    unsigned char back[76];
    int rc = db_get(task, DB_CAT, 1, keys, record, head_len);
    if (rc == DBE_OK) rc = db_get(task, DB_CAT, 1, keys, record, 1);
    if (rc == DBE_OK) rc = zvrdb::memory::get_cat_num(task, &number, name.data());
    if (rc == DBE_OK) rc = zvrdb::memory::get_cat_name(task, back, number);
    const ListEntry entry = {number, 0, 1};
    std::uint16_t index = 0;
    if (rc == DBE_OK) rc = db_find_cat_idx(task, name.data(), &entry, 1, &index);
    std::array<ListEntry, 60> list;
    std::uint16_t count = 0;
    if (rc == DBE_OK)
      rc = db_start_list(task, DB_CAT, filter.data(), list.data(), sizeof list, &count, &index);
    if (rc == DBE_OK && count != 11) rc = DBE_END_OF_LIST;
    index = 0;
    if (rc == DBE_OK) rc = db_get_next(task, DB_CAT, &entry, 1, &index, record, head_len);
    return rc;
  }
};

class CatalogWarmReads : public CatalogTest {
 protected:
  void fill() {
    for (unsigned i = 0; i < 60; ++i) ASSERT_EQ(put_cf(numbered("A.B.", i)), DBE_OK);
  }
};

TEST_F(CatalogWarmReads, MakeNoSystemCall) {
  fill();
  EXPECT_EQ(in_child([](void* child) {
              WarmRead reads;
              const auto all = [&] { return reads.all(child) == DBE_OK; };
              return then_without_system_calls(all, [&] { return zvrtest::a_thousand_times(all); });
            }),
            0);
}

TEST_F(CatalogWarmReads, AreKilledByTheSameFilterWhenTheyReachTheFile) {
  fill();
  const int status = in_child([](void* child) {
    WarmRead reads;
    const auto from_memory = [&] { return reads.all(child) == DBE_OK; };
    return then_without_system_calls(from_memory, [&] {
      get_on(child, "A.B.50", head_len + 1);
      return true;
    });
  });
  EXPECT_LT(status, 0) << "the filter works: a read from the file makes system calls";
}

TEST_F(CatalogWarmReads, AllocateNothing) {
#if ZVR_SANITIZED
  GTEST_SKIP() << "the sanitizer has the allocator";
#else
  fill();
  WarmRead reads;
  zvrtest::expect_no_allocation([&] { return reads.all(task) == DBE_OK; });
  const unsigned long before = allocations;
  get_cf("A.B.50");
  EXPECT_GT(allocations, before) << "the counter works";
#endif
}

}  // namespace
}  // namespace catalog_test
