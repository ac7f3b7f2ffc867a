// Lists of change files while somebody else changes them.
#include "change_file_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zvrdb/zvrdb.h>

#include <cstring>
#include <memory>

#include "change_file_name.h"
#include "session.h"
#include "tool_driver.h"

namespace {

using namespace zvradm;
using testing::ElementsAre;

class ChangeFileList : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(base.init().exit, 0);
    task = std::make_unique<session>(base.path());
    for (const char* name : {"A.1", "A.2", "A.3", "B.1"}) ASSERT_EQ(store(name), DBE_OK);
  }
  std::int16_t store(const char* name) {
    db_cat record{};
    record.cf_name = parse_change_file_name(name);
    const void* const keys[] = {&record.cf_name};
    return db_put(task->task(), DB_CAT, 1, keys, &record, sizeof record);
  }
  std::int16_t remove(const char* name) {
    const db_cf_name key = parse_change_file_name(name);
    const void* const keys[] = {&key};
    return db_del(task->task(), DB_CAT, 1, keys);
  }
  // The names that a list gives; `meanwhile` happens when the first one is given.
  template <class Act>
  std::vector<std::string> names(const char* filter, Act meanwhile) {
    std::vector<std::string> all;
    changes = read_change_files(task->task(), parse_change_file_name(filter), sizeof(db_cf_name), "list",
                                [&](const db_cat_entry&, std::span<const unsigned char> record) {
                                  db_cf_name name;
                                  std::memcpy(&name, record.data(), sizeof name);
                                  if (all.empty()) meanwhile();
                                  all.push_back(change_file_text(name));
                                });
    return all;
  }
  tool_test::scratch_base base;
  std::unique_ptr<session> task;  // ends before the installation
  list_changes changes;
};

TEST_F(ChangeFileList, WithoutChangesAllIsGiven) {
  EXPECT_THAT(names("A.*", [] {}), ElementsAre("A.1", "A.2", "A.3"));
  EXPECT_EQ(changes.stored_anew + changes.gone, 0u);
}

TEST_F(ChangeFileList, WhatIsStoredAnewIsGivenAsItIsNow) {
  EXPECT_THAT(names("A.*", [&] { EXPECT_EQ(store("A.2"), DBE_RECORD_REPLACED); }), ElementsAre("A.1", "A.2", "A.3"));
  EXPECT_EQ(changes.stored_anew, 1u);
  EXPECT_EQ(changes.gone, 0u);
}

TEST_F(ChangeFileList, WhatIsDeletedIsNotGivenAndCounted) {
  EXPECT_THAT(names("A.*", [&] { EXPECT_EQ(remove("A.2"), DBE_OK); }), ElementsAre("A.1", "A.3"));
  EXPECT_EQ(changes.stored_anew, 0u);
  EXPECT_EQ(changes.gone, 1u);
}

TEST_F(ChangeFileList, ANumberThatPassesToANameThatDoesNotMatchIsNotGiven) {
  EXPECT_THAT(names("A.*", [&] {
                EXPECT_EQ(remove("A.2"), DBE_OK);
                EXPECT_EQ(store("C.1"), DBE_OK);
              }),
              ElementsAre("A.1", "A.3"));
  EXPECT_EQ(changes.gone, 1u);
}

TEST_F(ChangeFileList, ANumberThatPassesToANameThatMatchesIsGivenUnderIt) {
  EXPECT_THAT(names("A.*", [&] {
                EXPECT_EQ(remove("A.2"), DBE_OK);
                EXPECT_EQ(store("A.9"), DBE_OK);
              }),
              ElementsAre("A.1", "A.9", "A.3"));
  EXPECT_EQ(changes.stored_anew, 1u);
}

TEST_F(ChangeFileList, TheWholeCatalogIsNumbered) {
  const auto files = list_numbered_change_files(task->task(), "list");
  ASSERT_EQ(files.size(), 4u);
  EXPECT_EQ(change_file_text(files[3].name), "B.1");
  EXPECT_EQ(files[3].number, 3u);
}

}  // namespace
