// Every exported call with every pointer null in turn: a code, never a crash, and
// nothing left held.
#include "frame/dispatch.h"
#include "frame/frame_fixture.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::put_target;

class NullArguments : public zvrtest::FrameTest {
 protected:
  NullArguments() : task("null") { EXPECT_EQ(DBE_OK, put_target(task, "A")); }
  void expect_free() {
    EXPECT_FALSE(task.inside());
    EXPECT_FALSE(task.owns_memory());
    EXPECT_FALSE(task.owns_files());
  }
  client_task task;
  // As long as the longest record that a handler takes whole.
  std::vector<unsigned char> record = std::vector<unsigned char>(65535);
};

TEST_F(NullArguments, ANullTaskIsRefusedByEveryCall) {
  const void* keys[] = {"A"};
  std::uint16_t count = 0;
  std::uint16_t index = 0;
  std::uint32_t number = 0;
  char name[128] = "untouched";
  EXPECT_EQ(DBE_INIT_FAILED, db_del(nullptr, DB_TRG, 1, keys));
  EXPECT_EQ(DBE_INIT_FAILED, db_get(nullptr, DB_TRG, 1, keys, name, 10));
  EXPECT_EQ(DBE_INIT_FAILED, db_get_next(nullptr, DB_TRG, name, 1, &index, name, 10));
  EXPECT_EQ(DBE_INIT_FAILED, db_get_more(nullptr, DB_TRG, name, name, 10));
  EXPECT_EQ(DBE_INIT_FAILED, db_put(nullptr, DB_TRG, 1, keys, name, 10));
  EXPECT_EQ(DBE_INIT_FAILED, db_start_list(nullptr, DB_TRG, name, name, 10, &count, &index));
  EXPECT_EQ(DBE_INIT_FAILED, db_init_list(nullptr, DB_TRG, name, name, 10));
  EXPECT_EQ(DBE_INIT_FAILED, db_start_trans(nullptr, DB_TRG));
  EXPECT_EQ(DBE_INIT_FAILED, db_commit(nullptr, DB_TRG));
  EXPECT_EQ(DBE_INIT_FAILED, db_rollback(nullptr, DB_TRG));
  EXPECT_EQ(DBE_INIT_FAILED, db_get_trg_index(nullptr, "A", &number));
  EXPECT_EQ(DBE_INIT_FAILED, db_rename_trg(nullptr, "A", "B"));
  EXPECT_EQ(DBE_INIT_FAILED, db_trg_from_rr(nullptr, "RGN     A       ", name, 10));
  EXPECT_EQ(DBE_INIT_FAILED, db_get_trg_stat(nullptr, "A", name));
  EXPECT_EQ(DBE_INIT_FAILED, db_put_trg_stat(nullptr, "A", name));
  EXPECT_EQ(DBE_INIT_FAILED, db_time_trg_stat(nullptr, 1));
  EXPECT_EQ(DBE_INIT_FAILED, db_get_srv(nullptr, "A", name));
  EXPECT_EQ(DBE_INIT_FAILED, parse_keyed(nullptr, DB_TRG, name, name, &number, &number));
  db_get_type_str(nullptr, DB_TRG, name);
  EXPECT_STREQ("untouched", name);
}

TEST_F(NullArguments, NullKeysAreRefusedByEveryTypeThatTakesKeys) {
  const void* null_key[] = {nullptr, nullptr, nullptr};
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    const record_type& row = type_row(db_id);
    if (row.num_keys == 0) continue;
    for (const void* const* keys :
         {static_cast<const void* const*>(nullptr), static_cast<const void* const*>(null_key)}) {
      if (row.get_fn) {
        EXPECT_EQ(DBE_NOT_FOUND, db_get(task, db_id, 3, keys, record.data(), 100)) << db_id;
      }
      if (row.put_fn) {
        EXPECT_EQ(DBE_NOT_FOUND, db_put(task, db_id, 3, keys, record.data(), 100)) << db_id;
      }
      if (row.del_fn) {
        EXPECT_EQ(DBE_NOT_FOUND, db_del(task, db_id, 3, keys)) << db_id;
      }
    }
    const void* keys[] = {"A", "B", "C"};
    if (row.get_fn) {
      EXPECT_EQ(DBE_NOT_FOUND, db_get(task, db_id, 0, keys, record.data(), 100)) << db_id;
    }
  }
  expect_free();
}

TEST_F(NullArguments, NullRecordsAndBuffersAreRefused) {
  const void* keys[] = {"A", "B", "C"};
  std::uint16_t index = 0;
  unsigned char state[512] = {};
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    const record_type& row = type_row(db_id);
    if (row.get_fn) {
      EXPECT_EQ(DBE_BAD_RECORD, db_get(task, db_id, 3, keys, nullptr, 100)) << db_id;
    }
    if (row.put_fn) {
      EXPECT_EQ(DBE_BAD_RECORD, db_put(task, db_id, 3, keys, nullptr, 0)) << db_id;
    }
    if (row.get_more_fn) {
      EXPECT_EQ(DBE_BAD_RECORD, db_get_more(task, db_id, state, nullptr, 100)) << db_id;
    }
    if (row.get_next_fn) {
      EXPECT_EQ(DBE_BAD_RECORD, db_get_next(task, db_id, state, 1, &index, nullptr, 100)) << db_id;
    }
  }
  EXPECT_EQ(0, index);
  EXPECT_EQ(DBE_OK, db_get(task, DB_TRG, 1, keys, nullptr, 0));
  EXPECT_EQ(DBE_BAD_RECORD, db_trg_from_rr(task, "RGN     A       ", nullptr, 10));
  expect_free();
}

TEST_F(NullArguments, ANullBufferOfLengthZeroIsRefusedWhereAFixedLengthIsWritten) {
  const void* keys[] = {"A"};
  std::strcpy(reinterpret_cast<char*>(record.data()), "A");
  ASSERT_EQ(DBE_OK, db_put(task, DB_PRM, 1, keys, record.data(), 62812));
  unsigned char state[420];
  ASSERT_EQ(DBE_OK, db_init_list(task, DB_PRM, nullptr, state, sizeof state));
  EXPECT_EQ(DBE_BAD_RECORD, db_get_more(task, DB_PRM, state, nullptr, 0));
  expect_free();
  // The list has not moved.
  EXPECT_EQ(DBE_OK, db_get_more(task, DB_PRM, state, record.data(), 62812));
  EXPECT_EQ(DBE_END_OF_LIST, db_get_more(task, DB_PRM, state, record.data(), 62812));
}

TEST_F(NullArguments, NullListsAndListStatesAreRefused) {
  std::uint16_t count = 3;
  std::uint16_t index = 0;
  char list[64];
  EXPECT_EQ(DBE_LIST_TOO_SMALL, db_start_list(task, DB_TRG, nullptr, nullptr, 64, &count, &index));
  EXPECT_EQ(DBE_LIST_TOO_SMALL, db_start_list(task, DB_TRG, nullptr, list, 64, nullptr, &index));
  EXPECT_EQ(DBE_LIST_TOO_SMALL, db_start_list(task, DB_TRG, nullptr, list, 64, &count, nullptr));
  EXPECT_EQ(3, count);
  EXPECT_EQ(DBE_LIST_TOO_SMALL, db_get_next(task, DB_TRG, nullptr, 1, &index, record.data(), 100));
  EXPECT_EQ(DBE_LIST_TOO_SMALL, db_get_next(task, DB_TRG, list, 1, nullptr, record.data(), 100));
  for (std::uint32_t db_id : {DB_TRG, DB_PRM}) {
    EXPECT_EQ(DBE_LIST_TOO_SMALL, db_init_list(task, db_id, record.data(), nullptr, 420)) << db_id;
    EXPECT_EQ(DBE_LIST_TOO_SMALL, db_init_list(task, db_id, record.data(), nullptr, 0)) << db_id;
    EXPECT_EQ(DBE_LIST_TOO_SMALL, db_get_more(task, db_id, nullptr, record.data(), 100)) << db_id;
  }
  expect_free();
}

TEST_F(NullArguments, ANullFilterIsRefusedByATypeThatReadsItAndOnlyThere) {
  unsigned char state[420];
  EXPECT_EQ(DBE_BAD_RECORD, db_init_list(task, DB_TRG, nullptr, state, sizeof state));
  EXPECT_EQ(DBE_OK, db_init_list(task, DB_PRM, nullptr, state, sizeof state));
}

TEST_F(NullArguments, TheTargetCallsRefuseNullNames) {
  std::uint32_t number = 0;
  char out[64];
  EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, nullptr, &number));
  EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "A", nullptr));
  EXPECT_EQ(DBE_NOT_FOUND, db_rename_trg(task, nullptr, "B"));
  EXPECT_EQ(DBE_NOT_FOUND, db_rename_trg(task, "A", nullptr));
  EXPECT_EQ(DBE_NOT_FOUND, db_trg_from_rr(task, nullptr, out, 10));
  EXPECT_EQ(DBE_NOT_FOUND, db_get_trg_stat(task, nullptr, out));
  EXPECT_EQ(DBE_NOT_FOUND, db_get_trg_stat(task, "A", nullptr));
  EXPECT_EQ(DBE_NOT_FOUND, db_get_srv(task, nullptr, out));
  EXPECT_EQ(DBE_NOT_FOUND, db_get_srv(task, "A", nullptr));
  expect_free();
  ASSERT_EQ(DBE_OK, db_get_trg_stat(task, "A", out));
  EXPECT_EQ(DBE_NOT_FOUND, db_put_trg_stat(task, "A", nullptr));
  expect_free();
  EXPECT_EQ(DBE_NOT_FOUND, db_put_trg_stat(task, nullptr, out));
  expect_free();
}

TEST_F(NullArguments, ConversionRefusesNullsAndATaskWithoutTables) {
  std::uint32_t length = 12;
  std::uint32_t room = 192;
  EXPECT_EQ(DBE_BAD_RECORD, parse_keyed(task, DB_TRG, nullptr, record.data(), &length, &room));
  EXPECT_EQ(DBE_BAD_RECORD, parse_keyed(task, DB_TRG, record.data(), nullptr, &length, &room));
  EXPECT_EQ(DBE_BAD_RECORD, parse_keyed(task, DB_TRG, record.data(), record.data(), nullptr, &room));
  EXPECT_EQ(DBE_BAD_RECORD, parse_keyed(task, DB_TRG, record.data(), record.data(), &length, nullptr));
  client_task fresh("fresh");
  EXPECT_EQ(DBE_INIT_FAILED, parse_keyed(fresh, DB_TRG, record.data(), record.data() + 1000, &length, &room));
  db_get_type_str(task, DB_TRG, nullptr);
}

}  // namespace
}  // namespace zvrdb::frame
