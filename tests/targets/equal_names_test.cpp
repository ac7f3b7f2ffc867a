// An order of names in which different names are equal: here upper and lower case.
#include <strings.h>

#include "targets/targets_fixture.h"

// Stands before the one of the common services in this program.
extern "C" int co_collate(void*, const char* a, const char* b) {
  return strcasecmp(a, b);
}

namespace target_test {
namespace {

class EqualNames : public TargetsTest {};

TEST_F(EqualNames, NamesThatCollateEqualAreTwoTargets) {
  ASSERT_EQ(put(Record("name").description("lower")), DBE_OK);
  ASSERT_EQ(put(Record("NAME").description("upper")), DBE_OK) << "new, not a replacement";
  EXPECT_EQ(cntl()->num_trgs_actual, 2u);
  EXPECT_EQ(get("name").record.text_at(64, 60), "lower");
  EXPECT_EQ(get("NAME").record.text_at(64, 60), "upper");
}

TEST_F(EqualNames, AReplacementTakesTheEntryOfThisVeryName) {
  for (const char* name : {"name", "NAME", "Name", "nAME"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  for (const char* name : {"name", "NAME", "Name", "nAME"})
    ASSERT_EQ(put(Record(name).description(name)), DBE_RECORD_REPLACED) << name;
  for (const char* name : {"name", "NAME", "Name", "nAME"}) EXPECT_EQ(get(name).record.text_at(64, 60), name);
  EXPECT_EQ(cntl()->num_trgs_actual, 4u);
}

TEST_F(EqualNames, ADeletionTakesTheEntryOfThisVeryName) {
  for (const char* name : {"name", "NAME", "Name"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  const std::uint32_t upper = number("NAME");
  ASSERT_EQ(del("Name"), DBE_OK);
  ASSERT_EQ(del("name"), DBE_OK);
  EXPECT_EQ(number("NAME"), upper);
  EXPECT_EQ(names(), std::vector<std::string>{"NAME"});
}

TEST_F(EqualNames, ARebuildKeepsThemApart) {
  for (const char* name : {"name", "NAME", "Name"}) ASSERT_EQ(put(Record(name).description(name)), DBE_OK);
  ASSERT_EQ(rebuild(), DBE_OK);
  for (const char* name : {"name", "NAME", "Name"}) EXPECT_EQ(get(name).record.text_at(64, 60), name);
}

}  // namespace
}  // namespace target_test
