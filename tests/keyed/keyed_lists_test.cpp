// Lists in key order, on real files.
#include "keyed/keyed_files_fixture.h"

namespace zvrtest {
namespace {

using namespace zvrdb;
using namespace zvrdb::keyed;

class KeyedLists : public KeyedFiles {
 protected:
  void SetUp() override {
    KeyedFiles::SetUp();
    for (const char* name : {"A1", "A2", "A3", "A4", "A5", "B1"}) ASSERT_EQ(put_user(name), DBE_OK);
  }
  int put_user(const std::string& name) {
    record_bytes key = name_key(DB_USR, name);
    record_bytes record = record_bytes(1236).text(0, name);
    return put_keyed(task(), DB_USR, tcb()->usr_file, key.all().data(), record.all().data(), 1236);
  }
  int delete_user(const std::string& name) {
    record_bytes key = name_key(DB_USR, name);
    return del_keyed(task(), DB_USR, tcb()->usr_file, key.all().data());
  }
  struct listing {
    int rc;
    std::uint16_t count;
    std::vector<unsigned char> list;
  };
  listing start_list(const std::string& prefix, std::size_t entries, std::uint16_t entry_len = 20) {
    const record_bytes key = name_key(DB_USR, prefix);
    listing out = {0, 777, std::vector<unsigned char>(entries * entry_len)};
    out.rc = start_list_keyed(task(), tcb()->usr_file, key.all().data(),
                              static_cast<std::uint16_t>(4 + prefix.size()), entry_len, out.list.data(),
                              static_cast<std::uint32_t>(out.list.size()), &out.count);
    return out;
  }
  record_bytes state(const std::string& prefix) {
    const record_bytes key = name_key(DB_USR, prefix);
    record_bytes block(list_state_len(24));
    set_list_state(block.all().data(), key.all().data(), 24,
                   {0, static_cast<std::uint16_t>(4 + prefix.size()), 24});
    return block;
  }
  int more(record_bytes* block, record_bytes* buffer) {
    return get_more_keyed(task(), DB_USR, tcb()->usr_file, block->all().data(), buffer->all().data(),
                          static_cast<std::uint32_t>(buffer->size()));
  }
  std::vector<std::string> walk(record_bytes* block) {
    std::vector<std::string> names;
    record_bytes buffer(1236);
    while (names.size() < 100 && more(block, &buffer) == DBE_OK) names.push_back(buffer.text_at(0, 16));
    return names;
  }
  using Names = std::vector<std::string>;
};

TEST_F(KeyedLists, AListTooSmallHoldsWhatFits) {
  const listing out = start_list("A", 3);
  EXPECT_EQ(out.rc, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(out.count, 3);
  EXPECT_STREQ(reinterpret_cast<const char*>(out.list.data() + 2 * 20 + 4), "A3");
}

TEST_F(KeyedLists, AListOfJustTheRightSizeIsComplete) {
  const listing out = start_list("A", 5);
  EXPECT_EQ(out.rc, DBE_OK);
  EXPECT_EQ(out.count, 5);
}

TEST_F(KeyedLists, AListOverTheEndOfTheFileEndsThere) {
  const listing out = start_list("B", 3);
  EXPECT_EQ(out.rc, DBE_OK);
  EXPECT_EQ(out.count, 1);
  EXPECT_EQ(start_list("", 10).count, 6);
  EXPECT_EQ(start_list("C", 10).count, 0);
}

TEST_F(KeyedLists, ImpossibleLengthsAreRefusedWithoutAList) {
  std::uint16_t count = 777;
  record_bytes key(300), list(1000);
  EXPECT_EQ(
      start_list_keyed(task(), tcb()->usr_file, key.all().data(), 245, 20, list.all().data(), 1000, &count),
      DBE_IO_ERROR);
  EXPECT_EQ(
      start_list_keyed(task(), tcb()->usr_file, key.all().data(), 4, 245, list.all().data(), 1000, &count),
      DBE_IO_ERROR);
  EXPECT_EQ(count, 777);
}

TEST_F(KeyedLists, RecordsComeInKeyOrderAndTheEndStaysTheEnd) {
  record_bytes block = state("A");
  EXPECT_EQ(walk(&block), (Names{"A1", "A2", "A3", "A4", "A5"}));
  record_bytes buffer(1236);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(more(&block, &buffer), DBE_END_OF_LIST);
  record_bytes all = state("");
  EXPECT_EQ(walk(&all).size(), 6u);
  EXPECT_EQ(more(&all, &buffer), DBE_END_OF_LIST);
  EXPECT_EQ(more(&all, &buffer), DBE_END_OF_LIST);
}

TEST_F(KeyedLists, DeletingTheRecordLastReturnedDoesNoHarm) {
  record_bytes block = state("A");
  record_bytes buffer(1236);
  ASSERT_EQ(more(&block, &buffer), DBE_OK);
  ASSERT_EQ(more(&block, &buffer), DBE_OK);
  ASSERT_EQ(delete_user("A2"), DBE_OK);
  EXPECT_EQ(walk(&block), (Names{"A3", "A4", "A5"}));
}

TEST_F(KeyedLists, AFailedGetStillMovesTheList) {
  // A number out of range among the log-in targets of the first.
  record_bytes key = name_key(DB_USR, "A1");
  record_bytes record = record_bytes(1236).text(0, "A1").number<std::uint16_t>(210, 1).text(212, "T9");
  ASSERT_EQ(put_keyed(task(), DB_USR, tcb()->usr_file, key.all().data(), record.all().data(), 1236),
            DBE_RECORD_REPLACED);
  tcb()->cntl->num_trgs_allowed = 8;
  record_bytes block = state("A");
  record_bytes buffer(1236);
  EXPECT_EQ(more(&block, &buffer), DBE_NO_TARGET);
  EXPECT_EQ(more(&block, &buffer), DBE_OK);
  EXPECT_EQ(buffer.text_at(0, 16), "A2");
}

TEST_F(KeyedLists, AStateThatWasNotBegunOrIsNotOfThisFileIsAnEmptyList) {
  record_bytes buffer(1236);
  record_bytes good = state("A");
  record_bytes block = good;
  EXPECT_EQ(more(&block.number<std::uint16_t>(list_init_ok, 0), &buffer), DBE_END_OF_LIST);
  block = good;
  for (const std::uint16_t key_len : std::vector<std::uint16_t>{0, 12, 23, 25, 76, 65535})
    EXPECT_EQ(more(&block.number(list_key_len, key_len), &buffer), DBE_END_OF_LIST) << key_len;
  block = good;
  for (const std::uint16_t key_match : std::vector<std::uint16_t>{25, 244, 65535})
    EXPECT_EQ(more(&block.number(list_key_match, key_match), &buffer), DBE_END_OF_LIST) << key_match;
  EXPECT_EQ(more(&good, &buffer), DBE_OK);
}

TEST_F(KeyedLists, AListByKeysAloneReadsNoRecord) {
  free_scratch();
  record_bytes block = state("A");
  record_bytes buffer(20);
  co_test_fail_malloc(0);
  EXPECT_EQ(more(&block, &buffer), DBE_OK);
  co_test_fail_malloc(-1);
  EXPECT_EQ(buffer.text_at(0, 16), "A1");
  EXPECT_EQ(tcb()->scratch, nullptr);
}

}  // namespace
}  // namespace zvrtest
