#include "memory/shared_tables_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::memory;

struct cf_name {
  unsigned char bytes[76] = {};
  explicit cf_name(const std::string& text, unsigned char first_token = 0) {
    std::memset(bytes, 255, 11);
    bytes[0] = first_token;
    std::memcpy(bytes + 11, text.data(), text.size());
  }
};

// Entries in the order given, which must be that of the texts.
void fill(table_task& t, const std::vector<cf_name>& names) {
  for (std::size_t i = 0; i < names.size(); ++i) {
    t.tcb()->cat_cntl[i].dist_idx = static_cast<std::uint16_t>(names.size() - 1 - i);
    DIST_CAT_ENTRY& slot = t.tcb()->dist_cat[names.size() - 1 - i];
    slot.cf_number = static_cast<std::uint16_t>(names.size() - 1 - i);
    std::memcpy(slot.head, names[i].bytes, 76);
  }
  t.cntl()->num_cat_actual = static_cast<std::uint32_t>(names.size());
  t.cntl()->num_cat_inited = t.cntl()->num_cat_actual;
}

TEST(ChangeFiles, NamesTurnIntoNumbersAndBack) {
  table_task t;
  const std::vector<cf_name> names = {cf_name("AA"), cf_name("B"), cf_name("C")};
  fill(t, names);
  for (std::uint16_t i = 0; i < 3; ++i) {
    std::uint16_t number = 99;
    ASSERT_EQ(get_cat_num(t.task(), &number, names[i].bytes), DBE_OK);
    EXPECT_EQ(number, 2 - i);
    unsigned char name[76];
    ASSERT_EQ(get_cat_name(t.task(), name, number), DBE_OK);
    EXPECT_EQ(std::memcmp(name, names[i].bytes, 76), 0);
  }
  std::uint16_t number = 99;
  EXPECT_EQ(get_cat_num(t.task(), &number, cf_name("A").bytes), DBE_NOT_FOUND);
  EXPECT_EQ(get_cat_num(t.task(), &number, cf_name("D").bytes), DBE_NOT_FOUND);
  EXPECT_EQ(number, 99);
}

TEST(ChangeFiles, AmongEqualTextsTheEqualTokenTableWins) {
  table_task t;
  fill(t, {cf_name("A", 2), cf_name("A", 1), cf_name("A", 0)});
  std::uint16_t number = 99;
  ASSERT_EQ(get_cat_num(t.task(), &number, cf_name("A", 1).bytes), DBE_OK);
  EXPECT_EQ(number, 1);
  ASSERT_EQ(get_cat_num(t.task(), &number, cf_name("A", 7).bytes), DBE_OK) << "only the text is compared";
  EXPECT_EQ(number, 2);
}

TEST(ChangeFiles, TheBoundOfNumbersIsTheCountOfValidNames) {
  table_task t;
  fill(t, {cf_name("A"), cf_name("B"), cf_name("C")});
  t.cntl()->num_cat_actual = 1;  // two were deleted
  unsigned char name[76];
  EXPECT_EQ(get_cat_name(t.task(), name, 0), DBE_OK);
  EXPECT_EQ(get_cat_name(t.task(), name, 1), DBE_OK) << "the bound itself, though the slot is free";
  EXPECT_EQ(get_cat_name(t.task(), name, 2), DBE_NOT_FOUND);
}

TEST(ChangeFiles, NumbersOutOfBoundsAreNotFollowed) {
  table_task t;
  fill(t, {cf_name("A"), cf_name("B")});
  unsigned char name[76];
  std::uint16_t number = 0;
  t.cntl()->num_cat_actual = 0xFFFFFFFF;
  EXPECT_EQ(get_cat_name(t.task(), name, 9), DBE_OK);
  EXPECT_EQ(get_cat_name(t.task(), name, 10), DBE_NOT_FOUND) << "the table has ten slots";
  EXPECT_EQ(get_cat_name(t.task(), name, 65535), DBE_NOT_FOUND);
  t.cntl()->num_cat_actual = 2;
  t.tcb()->cat_cntl[0].dist_idx = 10;
  EXPECT_EQ(get_cat_num(t.task(), &number, cf_name("A").bytes), DBE_NOT_FOUND);
  EXPECT_EQ(get_cat_num(t.task(), &number, cf_name("B").bytes), DBE_OK);
}

TEST(ChangeFiles, AnEmptyCatalogHasNoNames) {
  table_task t(5, 0);
  unsigned char name[76];
  std::uint16_t number = 0;
  EXPECT_EQ(get_cat_num(t.task(), &number, cf_name("A").bytes), DBE_NOT_FOUND);
  EXPECT_EQ(get_cat_num(t.task(), &number, nullptr), DBE_NOT_FOUND);
  EXPECT_EQ(get_cat_name(t.task(), name, 0), DBE_NOT_FOUND);
}

}  // namespace
}  // namespace zvrtest
