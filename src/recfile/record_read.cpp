// Finding and reading of logical records.
#include <atomic>
#include <cstring>

#include "memory/trace.h"
#include "recfile/record_fields.h"
#include "recfile/storage_messages.h"

namespace zvrdb::recfile {
namespace {

constexpr char binary_key = 2;
constexpr std::uint32_t after_all_pieces = 0xFFFFFFFFu;
constexpr std::uint32_t locate_wait_ms = 500;
// A record of the callers has at most five pieces; a run without end would mean a
// damaged file.
constexpr unsigned most_pieces = 256;
constexpr int leaves_read_through = 64;

// A delay, not a lock: whoever finds it set waits once and goes on.
std::atomic<std::uint16_t> exact_search_running{0};

struct locate_rule {
  std::int16_t option;
  int engine_option;  // of dfind, or of dseq when `by_sequence`
  bool by_sequence;
  int other_success;  // result beside 0 that counts as found
  bool copy_back;
};
constexpr locate_rule locate_rules[] = {
    {KEY_FIRST, engine::seq_first, true, 0, true},  {KEY_LAST, engine::seq_last, true, 0, true},
    {KEY_EQ, engine::find_equal, false, 0, false},  {KEY_GE, engine::find_greater_equal, false, 2, true},
    {KEY_GT, engine::find_greater, false, 0, true}, {KEY_LE, engine::find_less_equal, false, 3, true},
};

int search(void* task, const open_file& file, const locate_rule& rule, const unsigned char* value) {
  if (rule.by_sequence) return engine::dseq(file.entry->psp, 1, rule.engine_option);
  if (rule.option != KEY_EQ) return engine::dfind(file.entry->psp, 1, value, binary_key, rule.engine_option);
  if (exact_search_running.load(std::memory_order_relaxed) != 0) co_delay(task, locate_wait_ms);
  exact_search_running.store(1, std::memory_order_relaxed);
  const int code = engine::dfind(file.entry->psp, 1, value, binary_key, rule.engine_option);
  exact_search_running.store(0, std::memory_order_relaxed);
  return code;
}

// The engine stands on the last piece of the file; the record begins at piece 0.
std::int16_t settle_on_piece_zero(void* task, const open_file& file, field_list* list, file_key* key) {
  const unsigned char* current = current_key(file);
  if (!current) return DBE_IO_ERROR;
  std::memcpy(key->bytes, current, file.key_len);
  if (recnum_of(file, current) == 0) return DBE_OK;
  set_recnum(file, key->bytes, 0);
  if (find_piece(task, file, list, key) == DBE_OK) return DBE_OK;
  ZVR_TRACE(task, 5, 2, "%s", " >>>>> Record with number 0 not found <<<<<<<");
  co_log2(task, 36455, 0, 0, 0, "%s", "");
  return DBE_IO_ERROR;
}

std::int16_t locate(void* task, const open_file& file, file_key* key, std::int16_t option) {
  set_recnum(file, key->bytes, option == KEY_GT ? after_all_pieces : 0);
  field_list list;
  build_fields(file, &list);
  unsigned char value[key_value_len];
  const std::int16_t rc = key_value(task, file, &list, key, value);
  if (rc != DBE_OK) return rc;
  for (const locate_rule& rule : locate_rules) {
    if (rule.option != option) continue;
    const int code = search(task, file, rule, value);
    if (code != engine::e_ok && (rule.other_success == 0 || code != rule.other_success)) return DBE_NOT_FOUND;
    if (option == KEY_LAST) return settle_on_piece_zero(task, file, &list, key);
    if (!rule.copy_back) return DBE_OK;
    const unsigned char* current = current_key(file);
    if (!current) return DBE_IO_ERROR;
    std::memcpy(key->bytes, current, file.key_len);
    return DBE_OK;
  }
  ZVR_TRACE(task, 5, 2, "Invalid option given %d", option);
  co_log2(task, 36433, 0, 0, 0, "%hu", static_cast<unsigned short>(option));
  return DBE_IO_ERROR;
}

// Where the pieces of a record are gathered.
struct gathering {
  unsigned char* buffer;
  std::uint32_t room;        // bytes of the buffer
  std::uint32_t filled;      // bytes in it
  unsigned char* work_area;  // for a piece that may not fit
};

// Reads the current piece behind what is there.  Straight into the buffer when no
// stored length can overrun it, by way of the work area otherwise.
std::int16_t append_piece(void* task, const open_file& file, field_list* list, gathering* into) {
  const std::uint32_t remaining = into->room - into->filled;
  const bool straight = remaining >= record_buffer_len;
  list->data->fdata = straight ? into->buffer + into->filled : into->work_area;
  const int code = engine::dread(file.entry->psp, list->fields.data());
  if (code != engine::e_ok) {
    issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), at_read);
    return DBE_IO_ERROR;
  }
  const auto length = static_cast<std::uint32_t>(static_cast<std::uint16_t>(list->data->flen));
  if (length > record_buffer_len) return DBE_IO_ERROR;
  if (length > remaining) return DBE_BUFFER_TOO_SMALL;
  if (!straight) std::memcpy(into->buffer + into->filled, into->work_area, length);
  into->filled += length;
  return DBE_OK;
}

std::int16_t gather(void* task, const open_file& file, const unsigned char* key, gathering* into) {
  field_list list;
  build_fields(file, &list);
  for (unsigned piece = 0; piece < most_pieces; ++piece) {
    // An empty piece is not stored and leaves the length as it was.
    list.data->flen = 0;
    const std::int16_t rc = append_piece(task, file, &list, into);
    if (rc != DBE_OK) return rc;
    const int code = engine::dseq(file.entry->psp, 1, engine::seq_next);
    if (search_failed(code)) {
      issue_err_msg(task, file.spec->name, static_cast<std::int16_t>(code), at_read);
      return DBE_IO_ERROR;
    }
    if (code != engine::e_ok) return DBE_OK;
    const unsigned char* current = current_key(file);
    if (!current || !same_record(file, current, key)) return DBE_OK;
  }
  return DBE_IO_ERROR;
}

}  // namespace

std::int16_t db_locate(void* task, file_entry* handle, void* key, std::int16_t option) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  open_file file;
  if (!find_open(task, handle, &file) || !key) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  file_key in_file;
  load_key(task, file, key, &in_file);
  rc = locate(task, file, &in_file, option);
  return_key(task, file, in_file, key);
  return rc;
}

bool locate_failed(const file_entry* handle) {
  if (!handle || !handle->psp) return true;
  return search_failed(engine::last_status(handle->psp));
}

std::int16_t db_locate_surely(void* task, file_entry* handle, void* key, std::int16_t option) {
  const std::int16_t rc = db_locate(task, handle, key, option);
  return rc == DBE_NOT_FOUND && locate_failed(handle) ? static_cast<std::int16_t>(DBE_IO_ERROR) : rc;
}

std::int16_t db_locate_next(void* task, file_entry* handle, void* key) {
  open_file file;
  if (key && find_open(task, handle, &file) && engine::last_status(handle->psp) == engine::e_ok) {
    file_key read;
    load_key(task, file, key, &read);
    const unsigned char* current = current_key(file);
    if (current && !same_record(file, current, read.bytes)) {
      std::memcpy(read.bytes, current, file.key_len);
      return_key(task, file, read, key);
      return DBE_OK;
    }
  }
  return db_locate_surely(task, handle, key, KEY_GT);
}

reading_through::reading_through(const file_entry* handle) : handle_(handle) {
  // Where it cannot be had, reads are as ever.
  if (handle_ && handle_->psp) engine::read_from_cache(handle_->psp, leaves_read_through);
}

reading_through::~reading_through() {
  if (handle_ && handle_->psp) engine::read_from_cache(handle_->psp, 0);
}

std::int16_t db_read(void* task, file_entry* handle, void* buffer, std::uint32_t* length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  open_file file;
  if (!find_open(task, handle, &file) || !buffer || *length < file.key_len) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  gathering into = {static_cast<unsigned char*>(buffer), *length, file.key_len, nullptr};
  into.work_area = piece_area(task, file.tcb);
  if (!into.work_area) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  // The engine forgets its current key at the first read, so it is copied here.
  const unsigned char* current = current_key(file);
  if (!current) {
    issue_err_msg(task, file.spec->name, engine::e_no_current, at_read);
    return rc = DBE_IO_ERROR;
  }
  unsigned char key[max_key_len];
  std::memcpy(key, current, file.key_len);
  rc = gather(task, file, key, &into);
  std::memcpy(into.buffer, key, file.key_len);
  // The conversion covers both keys of "snacorr"; only key 1 stands in this buffer.
  unsigned char host[max_key_len] = {};
  std::memcpy(host, key, file.key_len);
  convert_key_nbo(task, file.spec->list_id, host, from_network);
  std::memcpy(into.buffer, host, file.key_len);
  if (rc == DBE_OK) *length = into.filled;
  return rc;
}

}  // namespace zvrdb::recfile
