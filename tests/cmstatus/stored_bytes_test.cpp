// Byte for byte what the record file holds of pairs.
#include <algorithm>

#include "cmstatus/cms_fixture.h"
#include "recfile/recfile.h"

namespace cms_test {
namespace {

using namespace zvrdb;

class StoredBytes : public CmStatusTest {
 protected:
  void SetUp() override {
    CmStatusTest::SetUp();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put_target(name), DBE_OK);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(put_file(cf(numbered("F", i))), DBE_OK);
    ASSERT_EQ(number("B"), 2u);
    ASSERT_EQ(file_number(cf("F1")), 1u);
  }
  // An entry of a target's record.
  static Body entry(unsigned file, unsigned status, std::string_view details) {
    Body body(38);
    body[0] = static_cast<unsigned char>(file);
    body[1] = static_cast<unsigned char>(file >> 8);
    body[2] = static_cast<unsigned char>(status);
    std::copy(details.begin(), details.end(), body.begin() + 6);
    return body;
  }
  static Body joined(std::initializer_list<Body> parts) {
    Body all;
    for (const Body& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }
};

TEST_F(StoredBytes, OfATargetsRecord) {
  ASSERT_EQ(set("B", cf("F1"), 0x7F, "first"), DBE_OK);
  EXPECT_EQ(*stored_of_target("B"), entry(1, 0x7F, "first"));
  const std::string full(32, 'x');
  ASSERT_EQ(set("B", cf("F2"), 255, full), DBE_OK);
  EXPECT_EQ(*stored_of_target("B"), joined({entry(1, 0x7F, "first"), entry(2, 255, full)}));
  ASSERT_EQ(drop("B", cf("F1")), DBE_OK);
  EXPECT_EQ(*stored_of_target("B"), joined({entry(0xFFFF, 0x7F, "first"), entry(2, 255, full)}));
}

TEST_F(StoredBytes, OfAChangeFilesRecord) {
  ASSERT_EQ(set("B", cf("F1"), 0x7F), DBE_OK);
  EXPECT_EQ(*stored_of_file(cf("F1")), (Body{0x7F, 2, 0, 0}));
  ASSERT_EQ(set("A", cf("F1"), 255), DBE_OK);
  ASSERT_EQ(set("C", cf("F1"), 0), DBE_OK);
  EXPECT_EQ(*stored_of_file(cf("F1")), (Body{0x7F, 2, 0, 0, 255, 1, 0, 0, 0, 3, 0, 0}));
  ASSERT_EQ(set("A", cf("F1"), 9), DBE_RECORD_REPLACED);
  ASSERT_EQ(drop("B", cf("F1")), DBE_OK);
  EXPECT_EQ(*stored_of_file(cf("F1")), (Body{9, 1, 0, 0, 0, 3, 0, 0})) << "the order stays";
}

TEST_F(StoredBytes, TheRecordsOfTargetsComeBeforeThoseOfChangeFilesInTheOrderOfNumbers) {
  for (const char* target : {"C", "A", "B"})
    for (const char* file : {"F2", "F0"}) ASSERT_EQ(set(target, cf(file), 1), DBE_OK);
  std::vector<Pair> keys;
  struct {
    std::uint32_t kind, number, recnum;
  } key{};
  std::int16_t option = recfile::KEY_FIRST;
  while (recfile::db_locate(task, tcb()->cms_file, &key, option) == DBE_OK) {
    keys.emplace_back(key.kind, static_cast<std::uint16_t>(key.number));
    option = recfile::KEY_GT;
  }
  EXPECT_EQ(keys, (std::vector<Pair>{{1, 1}, {1, 2}, {1, 3}, {2, 0}, {2, 2}}));
}

}  // namespace
}  // namespace cms_test
