// Lists of groups into the caller's area.
#include "users/users_fixture.h"

namespace users_test {
namespace {

struct Entry {
  std::uint32_t db_id;
  char name[64];
};
static_assert(sizeof(Entry) == 68);

struct Listing {
  int rc;
  std::uint16_t count;
  std::vector<Entry> entries;
  std::vector<std::string> names;
};

class GroupLists : public UsersTest, public ::testing::WithParamInterface<std::uint32_t> {
 protected:
  using Names = std::vector<std::string>;

  void put_names(const Names& all) {
    for (const std::string& name : all) {
      Bytes record(160);
      std::memcpy(record.data(), name.data(), name.size());
      ASSERT_EQ(store_on(task, GetParam(), name, record.data(), record.size()), DBE_RECORD_REPLACED);
    }
  }
  Listing listed(const char* filter, std::uint32_t size = 100 * 68) {
    Listing listing{};
    Bytes area(size, 0xEE);
    std::uint16_t index = 99;
    listing.rc = db_start_list(task, GetParam(), filter, area.data(), size, &listing.count, &index);
    EXPECT_EQ(index, 0);
    for (std::size_t i = 0; i < listing.count && (i + 1) * sizeof(Entry) <= size; ++i) {
      Entry entry;
      std::memcpy(&entry, area.data() + i * sizeof entry, sizeof entry);
      listing.entries.push_back(entry);
      listing.names.push_back(text_of(entry.name));
    }
    return listing;
  }
};

TEST_P(GroupLists, AnEntryIsTheTypeAndTheName) {
  const std::string full(64, 'g');
  put_names({"A", full});
  const Listing all = listed("*");
  ASSERT_EQ(all.rc, DBE_OK);
  ASSERT_EQ(all.count, 2);
  EXPECT_EQ(all.entries[0].db_id, GetParam());
  EXPECT_EQ(all.entries[1].db_id, GetParam());
  EXPECT_EQ(all.names, (Names{"A", full}));
}

TEST_P(GroupLists, NoFilterAndAnEmptyOneAskForAll) {
  put_names({"A", "B"});
  EXPECT_EQ(listed(nullptr).names, (Names{"A", "B"}));
  EXPECT_EQ(listed("").names, (Names{"A", "B"}));
}

TEST_P(GroupLists, AFilterIsAPrefixOrAName) {
  put_names({"A", "AB", "ABC", "B"});
  EXPECT_EQ(listed("AB*").names, (Names{"AB", "ABC"}));
  EXPECT_EQ(listed("AB").names, Names{"AB"});
  EXPECT_EQ(listed("X").names, Names{});
  EXPECT_EQ(listed("X").rc, DBE_OK);
}

TEST_P(GroupLists, OfNoGroupsIsEmpty) {
  EXPECT_EQ(listed(nullptr).rc, DBE_OK);
  EXPECT_EQ(listed(nullptr).count, 0);
}

TEST_P(GroupLists, AnAreaThatIsTooSmallGetsWholeEntries) {
  put_names({"A", "B", "C"});
  const Listing part = listed(nullptr, 2 * 68 + 67);
  EXPECT_EQ(part.rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(part.names, (Names{"A", "B"}));
  EXPECT_EQ(listed(nullptr, 67).rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(listed(nullptr, 67).count, 0);
  EXPECT_EQ(listed(nullptr, 3 * 68).rc, DBE_OK);
}

TEST_P(GroupLists, MoreThanTheLimitIsCutToItWhenTheAreaHoldsIt) {
  put_names({"A", "B", "C", "D"});
  configure(2);
  const Listing whole = listed(nullptr);
  EXPECT_EQ(whole.rc, DBE_OK);
  EXPECT_EQ(whole.count, 2);
  const Listing too_small = listed(nullptr, 3 * 68);
  EXPECT_EQ(too_small.rc, DBE_OK) << "the limit fits, so nothing is missing";
  EXPECT_EQ(too_small.count, 2);
  configure(100);
}

TEST_P(GroupLists, NotMoreThanTheLimitStaysTooSmall) {
  put_names({"A", "B", "C", "D"});
  configure(2);
  const Listing at_limit = listed(nullptr, 2 * 68);
  EXPECT_EQ(at_limit.rc, DBE_LIST_TOO_SMALL) << "the count does not exceed the limit";
  EXPECT_EQ(at_limit.count, 2);
  EXPECT_EQ(listed(nullptr, 68).rc, DBE_LIST_TOO_SMALL);
  configure(100);
}

TEST_P(GroupLists, EachEntryCanBeRead) {
  const std::string full(64, 'g');
  put_names({"A", full});
  Bytes area(2 * 68);
  std::uint16_t count = 0, index = 0;
  ASSERT_EQ(db_start_list(task, GetParam(), nullptr, area.data(), 2 * 68, &count, &index), DBE_OK);
  char name[64];
  ASSERT_EQ(db_get_next(task, GetParam(), area.data(), count, &index, name, 64), DBE_OK);
  EXPECT_EQ(text_of(name), "A");
  ASSERT_EQ(db_get_next(task, GetParam(), area.data(), count, &index, name, 64), DBE_OK);
  EXPECT_EQ(text_of(name), full) << "the last name of the area, without a NUL behind it";
  EXPECT_EQ(db_get_next(task, GetParam(), area.data(), count, &index, name, 64), DBE_END_OF_LIST);
}

TEST_P(GroupLists, AnEntryThatWasDeletedMeanwhileIsNotFound) {
  put_names({"A", "B"});
  Bytes area(2 * 68);
  std::uint16_t count = 0, index = 0;
  ASSERT_EQ(db_start_list(task, GetParam(), nullptr, area.data(), 2 * 68, &count, &index), DBE_OK);
  ASSERT_EQ(drop(GetParam(), "A"), DBE_OK);
  char name[64];
  EXPECT_EQ(db_get_next(task, GetParam(), area.data(), count, &index, name, 64), DBE_NOT_FOUND);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(db_get_next(task, GetParam(), area.data(), count, &index, name, 64), DBE_OK);
}

TEST_P(GroupLists, ACursorGivesWholeRecords) {
  put_targets(2);
  if (GetParam() == DB_TG)
    ASSERT_EQ(store(group("G", {"T1", "T0"})), DBE_RECORD_REPLACED);
  else
    ASSERT_EQ(store(dynamic_group("G", "all", {"T1", "T0"})), DBE_RECORD_REPLACED);
  Bytes state, record(65535);
  ASSERT_EQ(begin_list(GetParam(), "*", &state), DBE_OK);
  ASSERT_EQ(db_get_more(task, GetParam(), state.data(), record.data(), 65535), DBE_OK);
  const std::size_t first_member = GetParam() == DB_TG ? 152 : 4396;
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + first_member), "T1");
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + first_member + 64), "T0");
}

INSTANTIATE_TEST_SUITE_P(Of, GroupLists, ::testing::Values(DB_TG, DB_DTG),
                         [](const auto& one) { return one.param == DB_TG ? "tg" : "dtg"; });

}  // namespace
}  // namespace users_test
