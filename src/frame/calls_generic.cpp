// The generic calls: enter, find the handler in the table, call it, leave.
#include <zvrdb/records.h>

#include "frame/call_bracket.h"

namespace zvrdb::frame {
namespace {

constexpr handler_column<del_handler> del_column = {&record_type::del_fn, "del_fn", operation::write, 36363};
constexpr handler_column<get_handler> get_column = {&record_type::get_fn, "get_fn", operation::read, 36361};
constexpr handler_column<get_next_handler> get_next_column = {&record_type::get_next_fn, "get_next_fn",
                                                              operation::read, 36365};
constexpr handler_column<get_more_handler> get_more_column = {&record_type::get_more_fn, "get_more_fn",
                                                              operation::read, 36452};
constexpr handler_column<put_handler> put_column = {&record_type::put_fn, "put_fn", operation::write, 36362};
constexpr handler_column<start_list_handler> start_list_column = {&record_type::start_list_fn,
                                                                  "start_list_fn", operation::read, 36364};
constexpr handler_column<init_list_handler> init_list_column = {&record_type::init_list_fn, "init_list_fn",
                                                                operation::read, 36451};

constexpr std::uint32_t record_stored = 36353;
constexpr std::uint32_t record_deleted = 36354;

}  // namespace

bool keys_given(std::uint32_t db_id, std::uint16_t num_keys, keys_arg keys) {
  const std::uint16_t wanted = type_row(db_id).num_keys;
  if (wanted == 0) return true;
  if (!keys || num_keys < wanted) return false;
  for (std::uint16_t i = 0; i < wanted; ++i)
    if (!keys[i]) return false;
  return true;
}

bool take_area(void** area, std::uint32_t length) {
  // A default CM status is written whatever the length is.
  thread_local unsigned char nothing[sizeof(db_cms)];
  if (!*area && length == 0) *area = nothing;
  return *area != nullptr;
}

}  // namespace zvrdb::frame

using namespace zvrdb;
using namespace zvrdb::frame;

extern "C" {

int16_t db_del(void* task, uint32_t db_id, uint16_t num_keys, const void* const* keys) {
  return handled_call(task, __func__, del_column, db_id, [&](const auto& del_fn) -> std::int16_t {
    if (!keys_given(db_id, num_keys, keys)) return DBE_NOT_FOUND;
    const std::int16_t rc = del_fn(num_keys, keys);
    if (rc == DBE_OK) memory::log_db_msg(task, record_deleted, db_id);
    return rc;
  });
}

int16_t db_get(void* task, uint32_t db_id, uint16_t num_keys, const void* const* keys, void* buffer,
               uint16_t buffer_len) {
  return handled_call(task, __func__, get_column, db_id, [&](const auto& get_fn) -> std::int16_t {
    if (!keys_given(db_id, num_keys, keys)) return DBE_NOT_FOUND;
    if (!take_area(&buffer, buffer_len)) return DBE_BAD_RECORD;
    return get_fn(num_keys, keys, buffer, buffer_len);
  });
}

int16_t db_get_next(void* task, uint32_t db_id, const void* list, uint16_t max, uint16_t* index, void* buffer,
                    uint16_t buffer_len) {
  return handled_call(task, __func__, get_next_column, db_id, [&](const auto& get_next_fn) -> std::int16_t {
    if (!index) return DBE_LIST_TOO_SMALL;
    if (*index >= max) return DBE_END_OF_LIST;
    if (!list) return DBE_LIST_TOO_SMALL;
    if (!take_area(&buffer, buffer_len)) return DBE_BAD_RECORD;
    const std::int16_t rc = get_next_fn(list, index, buffer, buffer_len);
    *index = static_cast<std::uint16_t>(*index + 1u);
    return rc;
  });
}

int16_t db_get_more(void* task, uint32_t db_id, void* list_state, void* buffer, uint16_t buffer_len) {
  return handled_call(task, __func__, get_more_column, db_id, [&](const auto& get_more_fn) -> std::int16_t {
    if (!list_state) return DBE_LIST_TOO_SMALL;
    // Some handlers fill a fixed length, whatever is told; so no buffer is never right.
    if (!buffer) return DBE_BAD_RECORD;
    return get_more_fn(list_state, buffer, buffer_len);
  });
}

int16_t db_put(void* task, uint32_t db_id, uint16_t num_keys, const void* const* keys, void* record,
               uint16_t record_len) {
  return handled_call(task, __func__, put_column, db_id, [&](const auto& put_fn) -> std::int16_t {
    if (!keys_given(db_id, num_keys, keys)) return DBE_NOT_FOUND;
    // Some handlers take a fixed length, whatever is told; so no record is never right.
    if (!record) return DBE_BAD_RECORD;
    const std::int16_t rc = put_fn(num_keys, keys, record, record_len);
    if (rc == DBE_OK || rc == DBE_RECORD_REPLACED) memory::log_db_msg(task, record_stored, db_id);
    return rc;
  });
}

int16_t db_start_list(void* task, uint32_t db_id, const void* filter, void* list, uint32_t list_size,
                      uint16_t* count, uint16_t* index) {
  return handled_call(task, __func__, start_list_column, db_id,
                      [&](const auto& start_list_fn) -> std::int16_t {
                        if (!count || !index || !take_area(&list, list_size)) return DBE_LIST_TOO_SMALL;
                        *count = 0;
                        *index = 0;
                        return start_list_fn(filter, list, list_size, count);
                      });
}

int16_t db_init_list(void* task, uint32_t db_id, void* filter, void* list_state, uint32_t list_state_size) {
  return handled_call(task, __func__, init_list_column, db_id, [&](const auto& init_list_fn) -> std::int16_t {
    if (!take_area(&list_state, list_state_size)) return DBE_LIST_TOO_SMALL;
    return init_list_fn(filter, list_state, list_state_size);
  });
}

void db_get_type_str(void* task, uint32_t db_id, char* dst) {
  if (!task || !dst) return;
  const trace_bracket bracket(task, __func__);
  memory::type_str(task, db_id, dst);
}

}  // extern "C"
