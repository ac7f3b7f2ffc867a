// What the calls cost that memory answers, in instructions, the name and its copy aside: a
// change that makes one dearer fails here, and one that makes it much cheaper should bring its
// new figure.
#include "catalog/catalog_fixture.h"
#include "support/instruction_count.h"

namespace catalog_test {
namespace {

using zvrtest::count_instructions;
using zvrtest::InstructionCount;

constexpr unsigned targets = 100;
constexpr unsigned change_files = 60;  // in 3 sections
constexpr unsigned repeated = 2;

std::string target_name(unsigned i) {
  return numbered("TARGET.", i);
}
std::string file_name(unsigned i) {
  return numbered("SECTION", i % 3) + numbered(".PACKAGE", 100 + i / 6) +
         (i / 3 % 2 == 0 ? ".FIX.1" : ".REF.1");
}

class MemoryCosts : public CatalogTest {
 protected:
  void SetUp() override {
    CatalogTest::SetUp();
    const InstructionCount nothing = count_instructions([] { return [] {}; });
    if (nothing.count < 0) GTEST_SKIP() << nothing.why_not;
    configure(targets + 10);
    ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
    for (unsigned i = 0; i < targets; ++i) ASSERT_EQ(put(target_test::Record(target_name(i))), DBE_OK);
    ASSERT_EQ(db_commit(task, DB_TRG), DBE_OK);
    ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
    for (unsigned i = 0; i < change_files; ++i) ASSERT_EQ(put_cf(file_name(i)), DBE_OK);
    ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  }

  // Instructions of one of the `per_call` steps of a call, which is made before as often as it
  // is counted.
  double cost(double per_call, const std::function<int(void* task, unsigned i)>& call) {
    const InstructionCount found = count_instructions([&]() -> std::function<void()> {
      void* own = co_init_task("counted", nullptr, 1);
      const auto all = [own, &call] {
        for (unsigned i = 0; i < repeated; ++i)
          if (call(own, i) != DBE_OK) abort();
      };
      all();
      return all;
    });
    EXPECT_GE(found.count, 0) << found.why_not;
    return static_cast<double>(found.count) / repeated / per_call;
  }

  const std::string names[repeated] = {target_name(7), target_name(71)};
  const CfName files[repeated] = {cf(file_name(7)), cf(file_name(31))};
};

// The figure with the functions of the C library that every processor can do (the environment of
// the test chooses them), and 5 in a hundred for other versions of it.
#define EXPECT_COST(figure, ...)                    \
  do {                                              \
    const double found = cost(__VA_ARGS__);         \
    std::cout << "instructions: " << found << "\n"; \
    EXPECT_LE(found, (figure)*1.05);                \
  } while (0)

TEST_F(MemoryCosts, OfALookupByName) {
  EXPECT_COST(1065, 1, [&](void* own, unsigned i) {
    std::uint32_t number = 0;
    return db_get_trg_index(own, names[i].c_str(), &number);
  });
}

TEST_F(MemoryCosts, OfAGetOf148Bytes) {
  EXPECT_COST(1298, 1, [&](void* own, unsigned i) {
    unsigned char record[148];
    const void* keys[] = {names[i].c_str()};
    return db_get(own, DB_TRG, 1, keys, record, sizeof record);
  });
}

TEST_F(MemoryCosts, OfAStateReadAndWritten) {
  EXPECT_COST(1569, 1, [&](void* own, unsigned i) {
    unsigned char status[4];
    const int rc = db_get_trg_stat(own, names[i].c_str(), status);
    return rc == DBE_OK ? db_put_trg_stat(own, names[i].c_str(), status) : rc;
  });
}

TEST_F(MemoryCosts, OfAStepOfAList) {
  constexpr unsigned steps = 6;
  EXPECT_COST(1591, steps, [](void* own, unsigned) -> int {
    unsigned char filter[138] = {}, state[420], record[148];
    int rc = db_init_list(own, DB_TRG, filter, state, sizeof state);
    for (unsigned step = 0; rc == DBE_OK && step < steps; ++step)
      rc = db_get_more(own, DB_TRG, state, record, sizeof record);
    return rc;
  });
}

TEST_F(MemoryCosts, OfAGetOfTheHeadOfAChangeFile) {
  EXPECT_COST(1579, 1, [&](void* own, unsigned i) {
    unsigned char record[head_len];
    const void* keys[] = {files[i].data()};
    return db_get(own, DB_CAT, 1, keys, record, sizeof record);
  });
}

TEST_F(MemoryCosts, OfAChangeFileInAListByFilter) {
  constexpr unsigned listed = change_files / 3 / 2;
  const CfName filter = cf("SECTION1.*.FIX.*");
  EXPECT_COST(893, listed, [&](void* own, unsigned) {
    ListEntry list[change_files];
    std::uint16_t count = 0, index = 0;
    const int rc = db_start_list(own, DB_CAT, filter.data(), list, sizeof list, &count, &index);
    return rc == DBE_OK && count != listed ? 1 : rc;
  });
}

}  // namespace
}  // namespace catalog_test
