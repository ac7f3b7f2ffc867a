// The generic calls: enter, find the handler in the table, call it, leave.
#include "frame/call_bracket.h"
#include "memory/record_types.h"

namespace zvrdb::frame {
namespace {

// Messages of a call for which the record type has no handler.
enum no_handler : std::uint32_t {
  no_get = 36361,
  no_put = 36362,
  no_del = 36363,
  no_start_list = 36364,
  no_get_next = 36365,
  no_init_list = 36451,
  no_get_more = 36452
};
enum done : std::uint32_t { record_stored = 36353, record_deleted = 36354 };

std::int16_t has_no_handler(void* task, no_handler message, std::uint32_t db_id) {
  memory::log_db_msg(task, message, db_id);
  return DBE_BAD_DB_ID;
}

void trace_handler(void* task, const char* call, const char* handler, std::uint32_t db_id) {
  if (co_trc_test(task, 2, 2))
    co_trc2(task, 2, 2, call, "Calling %s for db_id %hd", handler, static_cast<short>(db_id));
}

// A null area of length 0 is allowed; the handler then gets an area that is none, for
// it may not take null.  False for a null area of any other length.
bool take_area(void** area, std::uint32_t length) {
  static unsigned char nothing;
  if (!*area && length == 0) *area = &nothing;
  return *area != nullptr;
}

}  // namespace

bool keys_given(std::uint32_t db_id, std::uint16_t num_keys, keys_arg keys) {
  const std::uint16_t wanted = type_row(db_id).num_keys;
  if (wanted == 0) return true;
  if (!keys || num_keys < wanted) return false;
  for (std::uint16_t i = 0; i < wanted; ++i)
    if (!keys[i]) return false;
  return true;
}

}  // namespace zvrdb::frame

using namespace zvrdb;
using namespace zvrdb::frame;

extern "C" {

int16_t db_del(void* task, uint32_t db_id, uint16_t num_keys, const void* const* keys) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::write, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const del_handler handler = type_row(db_id).del_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_del, db_id);
  }
  if (!keys_given(db_id, num_keys, keys)) return rc = DBE_NOT_FOUND;
  trace_handler(task, __func__, "del_fn", db_id);
  rc = handler(task, num_keys, keys);
  if (rc == DBE_OK) memory::log_db_msg(task, record_deleted, db_id);
  return rc;
}

int16_t db_get(void* task, uint32_t db_id, uint16_t num_keys, const void* const* keys, void* buffer,
               uint16_t buffer_len) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const get_handler handler = type_row(db_id).get_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_get, db_id);
  }
  if (!keys_given(db_id, num_keys, keys)) return rc = DBE_NOT_FOUND;
  if (!take_area(&buffer, buffer_len)) return rc = DBE_BAD_RECORD;
  trace_handler(task, __func__, "get_fn", db_id);
  return rc = handler(task, num_keys, keys, buffer, buffer_len);
}

int16_t db_get_next(void* task, uint32_t db_id, const void* list, uint16_t max, uint16_t* index, void* buffer,
                    uint16_t buffer_len) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const get_next_handler handler = type_row(db_id).get_next_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_get_next, db_id);
  }
  if (!index) return rc = DBE_LIST_TOO_SMALL;
  if (*index >= max) return rc = DBE_END_OF_LIST;
  if (!list) return rc = DBE_LIST_TOO_SMALL;
  if (!take_area(&buffer, buffer_len)) return rc = DBE_BAD_RECORD;
  trace_handler(task, __func__, "get_next_fn", db_id);
  rc = handler(task, list, index, buffer, buffer_len);
  *index = static_cast<std::uint16_t>(*index + 1u);
  return rc;
}

int16_t db_get_more(void* task, uint32_t db_id, void* list_state, void* buffer, uint16_t buffer_len) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const get_more_handler handler = type_row(db_id).get_more_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_get_more, db_id);
  }
  if (!list_state) return rc = DBE_LIST_TOO_SMALL;
  // Some handlers fill a fixed length, whatever is told; so no buffer is never right.
  if (!buffer) return rc = DBE_BAD_RECORD;
  trace_handler(task, __func__, "get_more_fn", db_id);
  return rc = handler(task, list_state, buffer, buffer_len);
}

int16_t db_put(void* task, uint32_t db_id, uint16_t num_keys, const void* const* keys, void* record,
               uint16_t record_len) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::write, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const put_handler handler = type_row(db_id).put_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_put, db_id);
  }
  if (!keys_given(db_id, num_keys, keys)) return rc = DBE_NOT_FOUND;
  // Some handlers take a fixed length, whatever is told; so no record is never right.
  if (!record) return rc = DBE_BAD_RECORD;
  trace_handler(task, __func__, "put_fn", db_id);
  rc = handler(task, num_keys, keys, record, record_len);
  if (rc == DBE_OK || rc == DBE_RECORD_REPLACED) memory::log_db_msg(task, record_stored, db_id);
  return rc;
}

int16_t db_start_list(void* task, uint32_t db_id, const void* filter, void* list, uint32_t list_size,
                      uint16_t* count, uint16_t* index) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const start_list_handler handler = type_row(db_id).start_list_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_start_list, db_id);
  }
  if (!count || !index || !take_area(&list, list_size)) return rc = DBE_LIST_TOO_SMALL;
  *count = 0;
  *index = 0;
  trace_handler(task, __func__, "start_list_fn", db_id);
  return rc = handler(task, filter, list, list_size, count);
}

int16_t db_init_list(void* task, uint32_t db_id, void* filter, void* list_state, uint32_t list_state_size) {
  if (!task) return DBE_INIT_FAILED;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const call_bracket call(task, operation::read, db_id, &rc);
  if (!call.entered()) {
    bracket.quitting();
    return rc;
  }
  const init_list_handler handler = type_row(db_id).init_list_fn;
  if (!handler) {
    bracket.quitting();
    return rc = has_no_handler(task, no_init_list, db_id);
  }
  if (!take_area(&list_state, list_state_size)) return rc = DBE_LIST_TOO_SMALL;
  trace_handler(task, __func__, "init_list_fn", db_id);
  return rc = handler(task, filter, list_state, list_state_size);
}

void db_get_type_str(void* task, uint32_t db_id, char* dst) {
  if (!task || !dst) return;
  const trace_bracket bracket(task, __func__);
  memory::type_str(task, db_id, dst);
}

}  // extern "C"
