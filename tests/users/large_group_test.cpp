// What a group of a thousand members costs, in comparisons of names.  The order of names
// is replaced by one that counts, so this is a program of its own.
#include <cstring>

#include "users/users_fixture.h"

namespace {
unsigned long comparisons = 0;
}

// Stands before the one of the common services in this program.
extern "C" int co_collate(void*, const char* a, const char* b) {
  ++comparisons;
  return std::strcmp(a, b);
}

namespace users_test {
namespace {

class LargeGroups : public UsersTest {
 protected:
  void SetUp() override {
    UsersTest::SetUp();
    configure(2000);
    ASSERT_EQ(rebuild(), DBE_OK);
    put_targets(1000);
  }
  std::vector<std::string> first(unsigned count) {
    std::vector<std::string> names;
    for (unsigned i = 0; i < count; ++i) names.push_back(numbered("T", i));
    return names;
  }
  unsigned long cost_of_put(unsigned count) {
    db_tg record = group("G", first(count));
    EXPECT_EQ(rebuild(), DBE_OK);   // a task remembers where it found names, of one generation
    comparisons = 0;
    EXPECT_EQ(store(record), DBE_RECORD_REPLACED);
    return comparisons;
  }
};

TEST_F(LargeGroups, APutSearchesEachMemberTwiceByHalves) {
  // Ten halvings of 1000 names and the look at the one that was found, with one to spare.
  constexpr unsigned long search = 12;
  const unsigned long hundred = cost_of_put(100);
  const unsigned long thousand = cost_of_put(1000);
  EXPECT_GT(hundred, 100u);
  EXPECT_LE(hundred, 2 * 100 * search) << "for each of the two writes";
  EXPECT_LE(thousand, 2 * 1000 * search);
}

TEST_F(LargeGroups, AGetComparesNoNames) {
  ASSERT_EQ(store(group("G", first(1000))), DBE_RECORD_REPLACED);
  comparisons = 0;
  const auto read = load_whole<db_tg>(DB_TG, "G");
  EXPECT_EQ(comparisons, 0u) << "names are found by number";
  EXPECT_EQ(members_of(read), first(1000));
}

TEST_F(LargeGroups, ADynamicGroupOfAllItsMembersComesBack) {
  ASSERT_EQ(store(dynamic_group("D", "all", first(800))), DBE_RECORD_REPLACED);
  EXPECT_EQ(members_of(load_whole<db_dtg>(DB_DTG, "D")), first(800));
}

}  // namespace
}  // namespace users_test
