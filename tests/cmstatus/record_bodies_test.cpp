// Bodies of the two kinds of records, in memory of just their room, so that a sanitizer
// sees any step beyond it.
#include "cmstatus/record_bodies.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace zvrdb::cmstatus {
namespace {

struct Body {
  explicit Body(std::vector<unsigned char> content, std::uint32_t spare = 0) : bytes(std::move(content)) {
    const auto length = static_cast<std::uint32_t>(bytes.size());
    bytes.resize(length + spare, 0xEE);
    view = {bytes.data(), length, length + spare};
  }
  std::vector<unsigned char> bytes;
  record_body view;
};

// Entry with this change file; every other byte tells its place.
std::vector<unsigned char> entry(std::uint16_t number) {
  std::vector<unsigned char> bytes(target_entry_len);
  std::memcpy(bytes.data(), &number, sizeof number);
  for (std::uint32_t i = sizeof number; i < target_entry_len; ++i) bytes[i] = static_cast<unsigned char>(i);
  return bytes;
}
std::vector<unsigned char> entries(std::initializer_list<int> numbers) {
  std::vector<unsigned char> all;
  for (const int number : numbers) {
    const auto one = entry(static_cast<std::uint16_t>(number));
    all.insert(all.end(), one.begin(), one.end());
  }
  return all;
}
std::vector<unsigned char> targets(std::initializer_list<std::uint32_t> values) {
  std::vector<unsigned char> all(values.size() * file_entry_len);
  std::size_t at = 0;
  for (const std::uint32_t value : values) {
    std::memcpy(all.data() + at, &value, sizeof value);
    at += sizeof value;
  }
  return all;
}
struct Place {
  int rc;
  std::uint32_t offset;
  bool operator==(const Place&) const = default;
};
Place find(const Body& body, int number) {
  Place place{0, 999};
  place.rc = find_cms(body.view, static_cast<std::uint16_t>(number), &place.offset);
  return place;
}
unsigned char details[details_len] = {'d', 'e', 't'};

TEST(TargetBody, FindCmsGivesTheOffsetOfTheChangeFile) {
  const Body body(entries({7, 9, 8}));
  EXPECT_EQ(find(body, 7), (Place{DBE_OK, 0}));
  EXPECT_EQ(find(body, 8), (Place{DBE_OK, 2 * target_entry_len}));
}

TEST(TargetBody, FindCmsOfAnAbsentChangeFileGivesTheFirstFreeEntry) {
  const Body body(entries({7, free_entry, 9, free_entry}));
  EXPECT_EQ(find(body, 8), (Place{DBE_NOT_FOUND, target_entry_len}));
}

TEST(TargetBody, FindCmsOfAnAbsentChangeFileGivesTheEndWhenNoEntryIsFree) {
  const Body body(entries({7, 9}));
  EXPECT_EQ(find(body, 8), (Place{DBE_NOT_FOUND, 2 * target_entry_len}));
  EXPECT_EQ(find(Body({}), 8), (Place{DBE_NOT_FOUND, 0}));
}

TEST(TargetBody, FindCmsFindsAnEntryBehindAFreeOne) {
  const Body body(entries({free_entry, 9}));
  EXPECT_EQ(find(body, 9), (Place{DBE_OK, target_entry_len}));
}

TEST(TargetBody, FindCmsOf65535FindsTheFirstFreeEntry) {
  EXPECT_EQ(find(Body(entries({7, free_entry, free_entry})), free_entry), (Place{DBE_OK, target_entry_len}));
  EXPECT_EQ(find(Body(entries({7})), free_entry), (Place{DBE_NOT_FOUND, target_entry_len}));
}

TEST(TargetBody, BytesBehindTheLastWholeEntryAreNoEntry) {
  auto bytes = entries({7, 9});
  bytes.resize(target_entry_len + 5);
  EXPECT_EQ(find(Body(bytes), 9), (Place{DBE_NOT_FOUND, target_entry_len}));
  EXPECT_EQ(find(Body({7}), 7), (Place{DBE_NOT_FOUND, 0}));
}

TEST(TargetBody, AnEntryAtTheEndMakesTheBodyLongerByOneEntry) {
  Body body(entries({7}), target_entry_len);
  ASSERT_TRUE(store_entry(&body.view, target_entry_len, 9, 42, details));
  EXPECT_EQ(body.view.length, 2 * target_entry_len);
  EXPECT_EQ(find(body, 9), (Place{DBE_OK, target_entry_len}));
  const unsigned char* added = body.bytes.data() + target_entry_len;
  EXPECT_EQ(added[2], 42);
  EXPECT_EQ(added[3] | added[4] | added[5], 0);
  EXPECT_EQ(std::memcmp(added + 6, details, details_len), 0);
}

TEST(TargetBody, AnEntryThatIsWrittenAnewKeepsItsThreeBytes) {
  Body body(entries({7, free_entry, 9}));
  ASSERT_TRUE(store_entry(&body.view, target_entry_len, 8, 42, details));
  EXPECT_EQ(body.view.length, 3 * target_entry_len);
  const unsigned char* reused = body.bytes.data() + target_entry_len;
  EXPECT_EQ(reused[2], 42);
  EXPECT_EQ(reused[3], 3);
  EXPECT_EQ(reused[4], 4);
  EXPECT_EQ(reused[5], 5);
  EXPECT_EQ(find(body, 9), (Place{DBE_OK, 2 * target_entry_len}));
}

TEST(TargetBody, AnEntryWithoutRoomIsNotWritten) {
  Body body(entries({7}), target_entry_len - 1);
  EXPECT_FALSE(store_entry(&body.view, target_entry_len, 9, 42, details));
  EXPECT_EQ(body.view.length, target_entry_len);
  Body none({}, 0);
  EXPECT_FALSE(store_entry(&none.view, 0, 9, 42, details));
  EXPECT_FALSE(store_entry(&body.view, 0xFFFFFFFF, 9, 42, details));
}

TEST(TargetBody, AnEntryIsMarkedFreeOnlyWhereAWholeOneStands) {
  auto bytes = entries({7, 9});
  bytes.resize(target_entry_len + 1);
  Body body(bytes);
  for (const std::uint32_t offset : {1u, 2u, target_entry_len, body.view.length, 0xFFFFFFFFu})
    free_entry_at(body.view, offset);
  EXPECT_EQ(cat_index_at(body.view, target_entry_len), free_entry);
  EXPECT_EQ(body.bytes[target_entry_len], 9) << "behind the last whole entry";
  free_entry_at(body.view, 0);
  EXPECT_EQ(cat_index_at(body.view, 0), free_entry);
}

TEST(ChangeFileBody, FindsATargetByTheHigh24BitsOfItsEntry) {
  const Body body(targets({0x0102FF, 0x02FF, 0xFFFFFF07}));
  EXPECT_EQ(entries_of_file(body.view), 3u);
  EXPECT_EQ(find_target(body.view, 2), 1u);
  EXPECT_EQ(find_target(body.view, 0xFFFFFF), 2u);
  EXPECT_EQ(target_status_at(body.view, 2).status, 7);
  EXPECT_EQ(find_target(body.view, 3), 3u);
}

TEST(ChangeFileBody, AStatusIsReplacedInItsPlace) {
  Body body(targets({0x101, 0x202, 0x303}));
  EXPECT_EQ(store_target(&body.view, 2, 99), DBE_RECORD_REPLACED);
  EXPECT_EQ(body.bytes, targets({0x101, 0x200 | 99, 0x303}));
}

TEST(ChangeFileBody, ANewTargetGoesToTheEnd) {
  Body body(targets({0x303}), file_entry_len);
  EXPECT_EQ(store_target(&body.view, 2, 255), DBE_OK);
  EXPECT_EQ(body.view.length, 8u);
  EXPECT_EQ(body.bytes, targets({0x303, 0x2FF}));
}

TEST(ChangeFileBody, ANewTargetWithoutRoomIsRefused) {
  Body body(targets({0x303}), file_entry_len - 1);
  EXPECT_EQ(store_target(&body.view, 2, 1), DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(body.view.length, 4u);
  Body none({});
  EXPECT_EQ(store_target(&none.view, 2, 1), DBE_BUFFER_TOO_SMALL);
}

TEST(ChangeFileBody, ARemovedTargetLeavesNoGapAndTheOrderStays) {
  Body body(targets({0x101, 0x202, 0x303, 0x404}));
  remove_target(&body.view, 1);
  EXPECT_EQ(body.view.length, 12u);
  body.bytes.resize(12);
  EXPECT_EQ(body.bytes, targets({0x101, 0x303, 0x404}));
  remove_target(&body.view, 2);
  EXPECT_EQ(body.view.length, 8u);
  remove_target(&body.view, 2);
  EXPECT_EQ(body.view.length, 8u) << "no such position";
}

TEST(ChangeFileBody, BytesBehindTheLastWholeEntryAreNoEntry) {
  auto bytes = targets({0x101, 0x202});
  bytes.resize(7);
  Body body(bytes);
  EXPECT_EQ(entries_of_file(body.view), 1u);
  EXPECT_EQ(find_target(body.view, 2), 1u);
  remove_target(&body.view, 0);
  EXPECT_EQ(body.view.length, 0u);
  remove_target(&body.view, 0);
  EXPECT_EQ(body.view.length, 0u);
}

TEST(AnyBody, IsWorkedOnWithinItsRoom) {
  std::mt19937 random(20);
  for (int round = 0; round < 3000; ++round) {
    std::vector<unsigned char> bytes(random() % 200);
    for (unsigned char& byte : bytes) byte = random() % 3 ? 0xFF : static_cast<unsigned char>(random());
    Body body(bytes, static_cast<std::uint32_t>(random() % 45));
    const auto number = static_cast<std::uint16_t>(random() % 2 ? 0xFFFF : random());
    std::uint32_t offset = 0;
    find_cms(body.view, number, &offset);
    ASSERT_LE(offset, body.view.length);
    free_entry_at(body.view, random() % 2 ? offset : static_cast<std::uint32_t>(random()));
    store_entry(&body.view, offset, number, 1, details);
    ASSERT_LE(body.view.length, body.view.room);
    store_target(&body.view, static_cast<std::uint32_t>(random() & highest_target), 2);
    ASSERT_LE(body.view.length, body.view.room);
    remove_target(&body.view, static_cast<std::uint32_t>(random() % 60));
    ASSERT_LE(body.view.length, body.view.room);
  }
}

}  // namespace
}  // namespace zvrdb::cmstatus
