// The table of record types and the generic calls over it.
#include "frame/dispatch.h"

#include "frame/frame_fixture.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::logged;

class Dispatch : public zvrtest::FrameTest {
 protected:
  Dispatch() : task("dispatch") {
    std::uint32_t number;
    EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
  }
  client_task task;
};

TEST_F(Dispatch, TheTableHasTheClassesAndKeysOfEveryRecordType) {
  const int classes[DB_TYPE_COUNT] = {0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0,
                                      1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};
  const int keys[DB_TYPE_COUNT] = {0, 0, 1, 0, 1, 1, 1, 3, 0, 1, 2, 1, 0, 0, 0, 0, 0,
                                   1, 1, 1, 1, 1, 1, 1, 0, 0, 1, 1, 1, 1, 1, 1, 1, 0};
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    EXPECT_EQ(classes[db_id], type_row(db_id).sem_index) << db_id;
    EXPECT_EQ(keys[db_id], type_row(db_id).num_keys) << db_id;
    EXPECT_EQ(0, type_row(db_id).spare);
  }
  struct own_length {
    std::uint32_t db_id;
    unsigned key;
    std::uint16_t length;
  };
  std::uint16_t lengths[DB_TYPE_COUNT][3] = {};
  for (const own_length& own : {own_length{7, 1, 16}, {7, 2, 32}, {10, 1, 64}, {28, 0, 16}, {29, 0, 16}})
    lengths[own.db_id][own.key] = own.length;
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id)
    for (unsigned key = 0; key < 3; ++key)
      EXPECT_EQ(lengths[db_id][key], type_row(db_id).key_len[key]) << db_id << " " << key;
}

// A record type has all of its handlers or, as long as it has none, waits for them.
TEST_F(Dispatch, ARecordTypeHasTheHandlersOfItsRowAndNoOther) {
  // del, get, get_next, get_more, put, start_list, init_list
  const char* rows[DB_TYPE_COUNT] = {
      ".g..p..", ".g..p..", "dgn.ps.", ".g..p..", "dgnmpsi", "dg.mp.i", "dgnmpsi", ".g.....", ".g..p..",
      "dgn.ps.", "dg..p..", "dg..p..", ".......", ".......", ".......", ".......", ".......", "dg.mp.i",
      "dg.mp.i", "dg.mp.i", "dg.mp.i", "dg.mp.i", "dg.mp.i", "dg.mp.i", ".g..p..", ".g..p..", "dg.mp.i",
      "dg.mp.i", ".g.....", "dg..p..", "dg.mp.i", "dgnmpsi", "dg..p..", "......."};
  const std::string none = ".......";
  unsigned waiting = 0;
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    const record_type& row = type_row(db_id);
    const std::string has = {row.del_fn ? 'd' : '.',      row.get_fn ? 'g' : '.',
                             row.get_next_fn ? 'n' : '.', row.get_more_fn ? 'm' : '.',
                             row.put_fn ? 'p' : '.',      row.start_list_fn ? 's' : '.',
                             row.init_list_fn ? 'i' : '.'};
    if (has == none && rows[db_id] != none)
      ++waiting;
    else
      EXPECT_EQ(rows[db_id], has) << db_id;
  }
  for (const std::uint32_t db_id : {DB_CFG, DB_TRG, DB_PRM, DB_UA, DB_THW, DB_SHT})
    EXPECT_NE(nullptr, type_row(db_id).get_fn) << db_id;
  EXPECT_LE(waiting, 22u);
}

TEST(ReturnCodes, HaveTheNumbersThatClientsKnow) {
  EXPECT_EQ(0, DBE_OK);
  EXPECT_EQ(0x2001, DBE_BAD_DB_ID);
  EXPECT_EQ(0x2002, DBE_NOT_FOUND);
  EXPECT_EQ(0x2003, DBE_BAD_RECORD);
  EXPECT_EQ(0x2004, DBE_RECORD_REPLACED);
  EXPECT_EQ(0x2007, DBE_END_OF_LIST);
  EXPECT_EQ(0x2008, DBE_NO_TARGET);
  EXPECT_EQ(0x2009, DBE_INIT_FAILED);
  EXPECT_EQ(0x2011, DBE_BAD_CMS_KEY);
  EXPECT_EQ(0x2012, DBE_ENTRY_CHANGED);
  EXPECT_EQ(0x2013, DBE_LIST_TOO_SMALL);
  EXPECT_EQ(0x2014, DBE_CMS_EXISTS);
  EXPECT_EQ(0x2015, DBE_LIMIT_EXCEEDED);
  EXPECT_EQ(0x2016, DBE_NO_STATUS);
  EXPECT_EQ(0x2017, DBE_NO_STAT_GET);
  EXPECT_EQ(0x2018, DBE_NOT_AUTHORIZED);
  EXPECT_EQ(0x2019, DBE_EMPTY_LIST);
  EXPECT_EQ(0x2020, DBE_BUFFER_TOO_SMALL);
  EXPECT_EQ(0x2021, DBE_TRANS_IN_PROGRESS);
  EXPECT_EQ(0x2101, DBE_FILE_NOT_FOUND);
  EXPECT_EQ(0x2107, DBE_IO_ERROR);
  EXPECT_EQ(0x2109, DBE_FILE_STATUS);
  EXPECT_EQ(0x2110, DBE_CO_FAILURE);
}

TEST_F(Dispatch, ACallWithoutAHandlerIsRefusedWithTheMessageOfTheCall) {
  char buffer[8] = {};
  std::uint16_t count = 77;
  std::uint16_t index = 0;
  const void* keys[] = {"A", "B", "C"};
  unsigned del = 0, get = 0, next = 0, more = 0, put = 0, start = 0, init = 0;
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    const record_type& row = type_row(db_id);
    if (!row.del_fn && ++del) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_del(task, db_id, 3, keys)) << db_id;
    }
    if (!row.get_fn && ++get) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_get(task, db_id, 3, keys, buffer, 8)) << db_id;
    }
    if (!row.get_next_fn && ++next) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_get_next(task, db_id, buffer, 1, &index, buffer, 8)) << db_id;
    }
    if (!row.get_more_fn && ++more) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_get_more(task, db_id, buffer, buffer, 8)) << db_id;
    }
    if (!row.put_fn && ++put) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_put(task, db_id, 3, keys, buffer, 8)) << db_id;
    }
    if (!row.start_list_fn && ++start) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_start_list(task, db_id, buffer, buffer, 8, &count, &index)) << db_id;
    }
    if (!row.init_list_fn && ++init) {
      EXPECT_EQ(DBE_BAD_DB_ID, db_init_list(task, db_id, buffer, buffer, 8)) << db_id;
    }
    EXPECT_FALSE(task.owns_files());
    EXPECT_FALSE(task.owns_memory());
  }
  EXPECT_EQ(del, logged(task, 36363));
  EXPECT_EQ(get, logged(task, 36361));
  EXPECT_EQ(next, logged(task, 36365));
  EXPECT_EQ(more, logged(task, 36452));
  EXPECT_EQ(put, logged(task, 36362));
  EXPECT_EQ(start, logged(task, 36364));
  EXPECT_EQ(init, logged(task, 36451));
  // The out values of a list are left alone by a call that never reached a handler.
  EXPECT_EQ(77, count);
  EXPECT_EQ(0, index);
}

TEST_F(Dispatch, AnUnknownTypeIsRefusedAtOnceAndTakesNoSemaphore) {
  client_task fresh("fresh");
  char buffer[8];
  EXPECT_EQ(DBE_BAD_DB_ID, db_get(fresh, 34, 0, nullptr, buffer, 8));
  EXPECT_EQ(DBE_BAD_DB_ID, db_get(fresh, 0xFFFFFFFFu, 0, nullptr, buffer, 8));
  EXPECT_EQ(nullptr, fresh.tcb());
  EXPECT_FALSE(fresh.inside());
  EXPECT_EQ(2u, logged(fresh, 36366));
  EXPECT_NE(std::string::npos, zvrtest::last_logged(fresh, 36366).find("-1"));
  EXPECT_EQ(0u, logged(fresh, 36361));
}

TEST_F(Dispatch, ARefusedEntryDoesNotLogTheMissingHandler) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  char buffer[8];
  EXPECT_EQ(DBE_TRANS_IN_PROGRESS, db_get(task, 12, 0, nullptr, buffer, 8));
  EXPECT_EQ(0u, logged(task, 36361));
  // Nor does it touch what a call would have set.
  std::uint16_t count = 77;
  std::uint16_t index = 78;
  EXPECT_EQ(DBE_TRANS_IN_PROGRESS, db_start_list(task, DB_SCN, nullptr, buffer, 8, &count, &index));
  EXPECT_EQ(77, count);
  EXPECT_EQ(78, index);
  EXPECT_EQ(0u, logged(task, 36364));
  ASSERT_EQ(DBE_OK, db_rollback(task, DB_TRG));
}

TEST_F(Dispatch, AWriteWithoutAHandlerRaisesTheGenerationOfItsType) {
  const std::uint32_t before = task.cntl()->gen[7];
  EXPECT_EQ(DBE_BAD_DB_ID, db_del(task, 7, 0, nullptr));
  EXPECT_EQ(before + 1, task.cntl()->gen[7]);
  char buffer[8];
  std::uint16_t index = 0;
  EXPECT_EQ(DBE_BAD_DB_ID, db_get_next(task, 8, buffer, 1, &index, buffer, 8));
  EXPECT_EQ(0u, task.cntl()->gen[8]);
}

TEST_F(Dispatch, PutLogsItsMessageForANewAndForAReplacedRecord) {
  EXPECT_EQ(DBE_OK, zvrtest::put_target(task, "A"));
  EXPECT_EQ(1u, logged(task, 36353));
  EXPECT_EQ(DBE_RECORD_REPLACED, zvrtest::put_target(task, "A"));
  EXPECT_EQ(2u, logged(task, 36353));
}

TEST_F(Dispatch, DeleteLogsItsMessageOnlyWhenItDeleted) {
  ASSERT_EQ(DBE_OK, zvrtest::put_target(task, "A"));
  EXPECT_EQ(DBE_OK, zvrtest::delete_target(task, "A"));
  EXPECT_EQ(1u, logged(task, 36354));
  EXPECT_EQ(DBE_NOT_FOUND, zvrtest::delete_target(task, "A"));
  EXPECT_EQ(1u, logged(task, 36354));
}

TEST_F(Dispatch, GetNextAtTheEndCallsNoHandlerAndLeavesTheIndexAlone) {
  char list[64] = "A";
  std::uint16_t index = 1;
  char buffer[148];
  EXPECT_EQ(DBE_END_OF_LIST, db_get_next(task, DB_TRG, list, 1, &index, buffer, sizeof buffer));
  EXPECT_EQ(1, index);
  EXPECT_FALSE(task.inside());
  EXPECT_FALSE(task.owns_memory());
  // It enters all the same.
  client_task fresh("fresh");
  EXPECT_EQ(DBE_END_OF_LIST, db_get_next(fresh, DB_TRG, list, 1, &index, buffer, sizeof buffer));
  EXPECT_NE(nullptr, fresh.tcb());
}

TEST_F(Dispatch, GetNextAtTheEndOfATypeWithoutAHandlerIsRefusedForThat) {
  char list[64] = "A";
  std::uint16_t index = 5;
  char buffer[8];
  EXPECT_EQ(DBE_BAD_DB_ID, db_get_next(task, DB_PRM, list, 1, &index, buffer, sizeof buffer));
  EXPECT_EQ(1u, logged(task, 36365));
  EXPECT_EQ(5, index);
}

TEST_F(Dispatch, GetNextRaisesTheIndexWhateverTheHandlerSays) {
  ASSERT_EQ(DBE_OK, zvrtest::put_target(task, "A"));
  char list[128] = "A";
  std::strcpy(list + 64, "GONE");
  std::uint16_t index = 0;
  char buffer[148];
  EXPECT_EQ(DBE_OK, db_get_next(task, DB_TRG, list, 2, &index, buffer, sizeof buffer));
  EXPECT_EQ(1, index);
  EXPECT_EQ(DBE_NOT_FOUND, db_get_next(task, DB_TRG, list, 2, &index, buffer, sizeof buffer));
  EXPECT_EQ(2, index);
}

TEST_F(Dispatch, StartListSetsCountAndIndexToZeroBeforeTheHandler) {
  std::uint16_t count = 99;
  std::uint16_t index = 99;
  char list[64];
  EXPECT_EQ(DBE_OK, db_start_list(task, DB_TRG, nullptr, list, sizeof list, &count, &index));
  EXPECT_EQ(0, count);
  EXPECT_EQ(0, index);
}

TEST_F(Dispatch, NamesOfRecordTypesComeFromTheMessageFile) {
  char name[128];
  for (std::uint32_t db_id = 0; db_id < 40; ++db_id) {
    std::memset(name, 'x', sizeof name);
    db_get_type_str(task, db_id, name);
    const bool assigned = db_id <= 11 || (db_id >= 17 && db_id <= 32);
    EXPECT_EQ(assigned, name[0] != 0) << db_id;
  }
  char coi[128];
  db_get_type_str(task, 28, coi);
  db_get_type_str(task, 29, name);
  EXPECT_STREQ(coi, name);
  EXPECT_FALSE(task.inside());
}

TEST_F(Dispatch, UserAuthorizationCanBeReadAndNothingElse) {
  installation.write("users", "anna 1\n");
  char answer[34] = {};
  const void* keys[] = {"anna", "TARGET", "Z"};
  EXPECT_EQ(DBE_OK, db_get(task, DB_UA, 3, keys, answer, sizeof answer));
  EXPECT_EQ(DBE_BAD_DB_ID, db_del(task, DB_UA, 3, keys));
  EXPECT_EQ(1u, logged(task, 36363));
}

}  // namespace
}  // namespace zvrdb::frame
