// A name that was found once is found again without a search, and never under a number
// that the search would not have found.
#include "memory/name_hints.h"

#include <utility>

#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::memory;

class NameHints : public ::testing::Test {
 protected:
  explicit NameHints(std::uint32_t allowed = 20) : t_(allowed) {}
  void SetUp() override { make_room_for_hints(t_.task(), t_.tcb()); }
  void TearDown() override { free_hints(t_.task(), t_.tcb()); }

  std::uint32_t number(const std::string& name) { return number_of_name(t_.task(), name.c_str()); }
  std::uint32_t hinted(const std::string& name) { return hinted_number(t_.tcb(), name.c_str(), name.size()); }
  TRG_CNTL_ENTRY& slot(std::uint32_t number) { return *trg_slot(t_.tcb(), number); }
  // Takes the last entry of the used part out, as a deletion does.
  void remove(std::uint32_t number) {
    std::uint32_t position = 0;
    while (t_.tcb()->name_index[position].trg_index != number) ++position;
    const std::uint32_t last = --t_.cntl()->num_trgs_actual;
    std::swap(t_.tcb()->name_index[position], t_.tcb()->name_index[last]);
    slot(number).in_use = 0;
    sort_names(t_.task());
  }

  table_task t_;
};

TEST_F(NameHints, ANameFoundOnceIsFoundAgainWithoutTheIndex) {
  const std::uint32_t a = t_.add("A"), b = t_.add("B");
  EXPECT_EQ(hinted("A"), 0u);
  EXPECT_EQ(number("A"), a);
  EXPECT_EQ(number("B"), b);
  std::swap(t_.tcb()->name_index[0], t_.tcb()->name_index[1]);
  EXPECT_EQ(find_name(t_.task(), "A"), -1) << "the index is out of order";
  EXPECT_EQ(number("A"), a);
  EXPECT_EQ(number("B"), b);
}

TEST(HintsOfManyNames, NamesOfAllLengthsAreKept) {
  table_task t(200);
  make_room_for_hints(t.task(), t.tcb());
  std::vector<std::uint32_t> numbers;
  for (std::size_t length = 0; length < trg_name_len; ++length)
    numbers.push_back(t.add(std::string(length, 'x')));
  for (std::size_t length = 0; length < trg_name_len; ++length) {
    const std::string name(length, 'x');
    ASSERT_EQ(number_of_name(t.task(), name.c_str()), numbers[length]);
    EXPECT_EQ(hinted_number(t.tcb(), name.c_str(), length), numbers[length]);
  }
  EXPECT_EQ(number_of_name(t.task(), std::string(trg_name_len, 'x').c_str()), 0u);
  free_hints(t.task(), t.tcb());
}

TEST_F(NameHints, AnUnknownNameIsNotKept) {
  t_.add("A");
  EXPECT_EQ(number("B"), 0u);
  const std::uint32_t b = t_.add("B");
  EXPECT_EQ(number("B"), b);
}

TEST_F(NameHints, AFreedNumberIsNotFollowedNorOneThatHasAnotherName) {
  const std::uint32_t a = t_.add("A");
  ASSERT_EQ(number("A"), a);
  remove(a);
  EXPECT_EQ(number("A"), 0u) << "the slot still holds the name";
  ASSERT_EQ(t_.add("B"), a);
  EXPECT_EQ(number("A"), 0u);
  EXPECT_EQ(number("B"), a);
  const std::uint32_t again = t_.add("A");
  EXPECT_EQ(number("A"), again);
}

TEST_F(NameHints, ARenameMakesThemVoid) {
  const std::uint32_t first = t_.add("A"), second = t_.add("B");
  ASSERT_EQ(number("B"), second);
  std::memcpy(slot(first).trg_name, "B", 2);
  ++t_.cntl()->renames;
  sort_names(t_.task());
  EXPECT_EQ(hinted("B"), 0u);
  EXPECT_EQ(number("B"), first) << "of two that bear the name the search finds the first";
  EXPECT_EQ(hinted("B"), first);
}

TEST_F(NameHints, ANewGenerationMakesThemVoidAndSoDoesAnotherTable) {
  const std::uint32_t a = t_.add("A");
  ASSERT_EQ(number("A"), a);
  ++t_.tcb()->shm_generation;
  EXPECT_EQ(hinted("A"), 0u);
  ASSERT_EQ(number("A"), a);
  TRG_CNTL_ENTRY* const slots = t_.tcb()->trg_cntl;
  t_.tcb()->trg_cntl = nullptr;
  EXPECT_EQ(hinted("A"), 0u);
  t_.tcb()->trg_cntl = slots;
  EXPECT_EQ(hinted("A"), a);
}

TEST(HintsOfManyNames, MoreNamesThanThereIsRoomForAreStillFound) {
  table_task t(5000);
  t.cntl()->num_trgs_allowed = 10;
  make_room_for_hints(t.task(), t.tcb());
  t.cntl()->num_trgs_allowed = 5000;
  std::vector<std::uint32_t> numbers;
  for (unsigned i = 0; i < 5000; ++i) numbers.push_back(t.add_unsorted("TARGET." + std::to_string(i)));
  sort_names(t.task());
  for (int round = 0; round < 3; ++round)
    for (unsigned i = 0; i < 5000; ++i)
      ASSERT_EQ(number_of_name(t.task(), ("TARGET." + std::to_string(i)).c_str()), numbers[i]);
  free_hints(t.task(), t.tcb());
}

TEST(HintsOfManyNames, AFullTableOfNamesIsFoundByHintsButForAFew) {
  constexpr unsigned all = 20000;
  table_task t(all);
  make_room_for_hints(t.task(), t.tcb());
  for (unsigned i = 0; i < all; ++i) t.add_unsorted("TARGET." + std::to_string(i));
  sort_names(t.task());
  for (unsigned i = 0; i < all; ++i) number_of_name(t.task(), ("TARGET." + std::to_string(i)).c_str());
  unsigned lost = 0;
  for (unsigned i = 0; i < all; ++i) {
    const std::string name = "TARGET." + std::to_string(i);
    if (hinted_number(t.tcb(), name.c_str(), name.size()) == 0) ++lost;
  }
  EXPECT_LT(lost, all / 50);
  free_hints(t.task(), t.tcb());
}

TEST_F(NameHints, WithoutMemoryForThemNamesAreSearchedFor) {
  free_hints(t_.task(), t_.tcb());
  co_test_fail_malloc(0);
  make_room_for_hints(t_.task(), t_.tcb());
  co_test_fail_malloc(-1);
  EXPECT_EQ(t_.tcb()->hints, nullptr);
  const std::uint32_t a = t_.add("A");
  EXPECT_EQ(number("A"), a);
  EXPECT_EQ(number("A"), a);
  EXPECT_EQ(hinted("A"), 0u);
}

TEST_F(NameHints, ACountOfTargetsCutDownIsABoundForThemToo) {
  for (const char* name : {"A", "B", "C"}) t_.add(name);
  ASSERT_EQ(number("C"), 3u);
  t_.cntl()->num_trgs_allowed = 2;
  ++t_.tcb()->shm_generation;  // lengths change with the generation only
  EXPECT_EQ(number("C"), 0u);
  EXPECT_EQ(number("B"), 2u);
}

}  // namespace
}  // namespace zvrtest
