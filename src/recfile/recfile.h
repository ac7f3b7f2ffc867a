// The nine record files: opening and closing with repair after a crash, logical
// records cut in pieces, transactions, key byte order.  All of it runs under the
// class 1 semaphore.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::recfile {

// ---- files
void set_datalist(void* task, std::uint32_t db_id, iocb* block, const char* name, std::uint16_t key_len);
// 0 or 8193 (36366 logged).
std::int16_t get_file_ptr(void* task, iocb** block, file_entry** entry, std::uint32_t db_id);
// 0, 8193 or 8455.
std::int16_t db_open(void* task, std::uint32_t db_id, file_entry** handle);
// As db_open, for a file that is thrown away and made again should this task die: nobody
// else may have it open, records are stored without transactions, and nothing is flushed
// before db_bflush. The entry must not be open. reset_trans_active comes before db_close.
// 8455 also when somebody has it open.
std::int16_t db_open_alone(void* task, std::uint32_t db_id, file_entry** handle);
// 0 or 8455.
std::int16_t db_close(void* task, file_entry* handle);
void issue_err_msg(void* task, const char* file_name, std::int16_t code, std::uint16_t function_number);
// Opens the nine files into the task's DBR_TCB; registers nothing.
std::int16_t open_files(void* task);
// Address of the handle field of DBR_TCB for a db_id, or null.
file_entry** handle_field(DBR_TCB* tcb, std::uint32_t db_id);
// Takes back the use counts that dead tasks left.  The caller owns "DBR_MEM".
void reap_dead_use_counts(void* task);
// After a dead writer: clears what it left in each open file of this task (write flag,
// interrupted transaction).  The caller owns "DBR_MEM".
std::int16_t repair_open_files(void* task);
// Tries again to open what a failed roll-back closed.  The caller owns "DBR_MEM".
void reopen_lost_files(void* task);

// ---- logical records.  A key is in host order on entry and on return.
enum locate_option : std::int16_t {
  KEY_FIRST = 1,
  KEY_LAST = 2,
  KEY_EQ = 3,
  KEY_GE = 4,
  KEY_GT = 5,
  KEY_LE = 6
};
// 0, 8194 or 8455.
std::int16_t db_locate(void* task, file_entry* handle, void* key, std::int16_t option);
// Of the last db_locate, db_update or db_delete, when it answered 8194: whether the search
// itself failed, so that nothing is known of the record.
bool locate_failed(const file_entry* handle);
// db_locate for who builds tables from the file: 8194 only when there is no such record for
// sure, 8455 when the search itself failed.
std::int16_t db_locate_surely(void* task, file_entry* handle, void* key, std::int16_t option);
// Behind a db_read that answered 0, the file unchanged since: the record behind the one of `key`
// that was read.  As db_locate_surely with KEY_GT, without a search where the read ended on it.
std::int16_t db_locate_next(void* task, file_entry* handle, void* key);
// For as long as it lives, who reads a file from one end to the other is brought what comes next
// in larger pieces.
class reading_through {
 public:
  explicit reading_through(const file_entry* handle);
  ~reading_through();
  reading_through(const reading_through&) = delete;
  reading_through& operator=(const reading_through&) = delete;

 private:
  const file_entry* handle_;
};
// 0, 8224 or 8455.  length: in the buffer's size, out the bytes returned, key included.
std::int16_t db_read(void* task, file_entry* handle, void* buffer, std::uint32_t* length);
// 0 or 8455.
std::int16_t db_write(void* task, file_entry* handle, void* key, const void* record,
                      std::uint32_t record_len);
// 0, 8194 or 8455.
std::int16_t db_update(void* task, file_entry* handle, void* key, const void* record,
                       std::uint32_t record_len);
// 0, 8194 or 8455.
std::int16_t db_delete(void* task, void* key, file_entry* handle);

// ---- transactions
std::int16_t start_trans(void* task, std::uint32_t db_id);
std::int16_t commit(void* task, std::uint32_t db_id);
std::int16_t rollback(void* task, std::uint32_t db_id);
// Ends the transactions on the files of two record types: for good when rc is 0 or 8196, else
// they are undone. With commit journals both count or neither, whenever this process or the
// machine dies. Without, the first ends before the second, and a first one that cannot be
// ended undoes the second. Answers rc for each, or 8455 for one that could not be ended.
// Always the same two in the same order.
struct both_ends {
  std::int16_t first, second;
};
both_ends end_both(void* task, std::uint32_t first_id, std::uint32_t second_id, std::int16_t rc);
// Rolls back every transaction that this task has open.
void rollback_all(void* task);
void set_trans_active(void* task, std::uint32_t db_id);
void reset_trans_active(void* task, std::uint32_t db_id);
std::int16_t db_bflush(void* task, std::uint32_t db_id);

// ---- keys
inline constexpr std::uint32_t max_key_len = 124;  // "snacorr": key 1 and key 2 together
enum key_direction : std::int16_t { to_network = 1, from_network = 2 };
// Any key of "snacorr" given here must be 124 bytes.
void convert_key_nbo(void* task, std::uint32_t db_id, void* key, std::int16_t direction);
void trace_key(void* task, std::uint32_t db_id, const void* key);
std::uint32_t key_length(const file_entry* handle);

}  // namespace zvrdb::recfile
