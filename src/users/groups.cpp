// Target groups of both kinds.
#include "users/groups.h"

#include <zvrdb/records.h>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "users/group_kinds.h"
#include "users/name_key.h"

namespace zvrdb::users {
namespace {

using memory::tcb_of;

static_assert(group_list_len == keyed::list_state_len(sizeof(group_key)));
static_assert(group_entry_len == offsetof(group_key, recnum));

bool written(std::int16_t rc) {
  return rc == DBE_OK || rc == DBE_RECORD_REPLACED;
}

// The limit is that of both kinds together.
bool room_for_one(void* task, const group_kind& kind) {
  const DBR_CNTL* cntl = tcb_of(task)->cntl;
  const std::uint32_t limit = group_limit(task);
  if (std::uint64_t{cntl->num_tg_actual} + cntl->num_dtg_actual < limit) return true;
  co_log2(task, 36383, 0, 0, 0, "%s|%hd", kind.word, static_cast<short>(limit));
  return false;
}

std::int16_t get_group(void* task, const char* function, const group_kind& kind, const void* name,
                       void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, function, &rc);
  if (!name) return rc;
  group_key key = key_from<64>(kind.db_id, name);
  return rc = keyed::get_keyed(task, kind.db_id, tcb_of(task)->*kind.file, &key, buffer, length);
}

// A record that could be written is written a second time: callers know the result of
// that, which is 8196 for a new group too.
std::int16_t put_group(void* task, const char* function, const group_kind& kind, const void* name,
                       const void* record, std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, function, &rc);
  if (!name) return rc;
  DBR_TCB* tcb = tcb_of(task);
  file_entry* file = tcb->*kind.file;
  group_key key = key_from<64>(kind.db_id, name);
  rc = keyed::get_keyed(task, kind.db_id, file, &key, nullptr, 0);
  if (rc != DBE_OK && rc != DBE_NOT_FOUND) {
    bracket.quitting();
    return rc;
  }
  const bool exists = rc == DBE_OK;
  if (exists) ZVR_TRACE(task, 2, 2, "%s", "Updating existing record");
  if (!exists && !room_for_one(task, kind)) {
    bracket.quitting();
    return rc = DBE_LIMIT_EXCEEDED;
  }
  rc = keyed::put_keyed(task, kind.db_id, file, &key, record, length);
  if (!written(rc)) {
    bracket.quitting();
    return rc;
  }
  if (rc == DBE_OK) ++(tcb->cntl->*kind.count);
  return rc = keyed::put_keyed(task, kind.db_id, file, &key, record, length);
}

std::int16_t del_group(void* task, const char* function, const group_kind& kind, const void* name) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, function, &rc);
  if (!name) return rc;
  DBR_TCB* tcb = tcb_of(task);
  group_key key = key_from<64>(kind.db_id, name);
  rc = keyed::del_keyed(task, kind.db_id, tcb->*kind.file, &key);
  // Groups beyond the limit are in the file without being counted.
  std::uint32_t& count = tcb->cntl->*kind.count;
  if (rc == DBE_OK && count > 0) --count;
  return rc;
}

std::int16_t start_group_list(void* task, const char* function, const group_kind& kind, const void* filter,
                              void* list, std::uint32_t size, std::uint16_t* count) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  const bool all = !filter || static_cast<const char*>(filter)[0] == 0;
  const name_filter<64> names = filter_from<64>(kind.db_id, all ? "*" : filter);
  rc = keyed::start_list_keyed(task, tcb_of(task)->*kind.file, &names.start, names.match, group_entry_len,
                               list, size, count);
  const std::uint32_t limit = group_limit(task);
  if (*count > limit) {
    *count = static_cast<std::uint16_t>(limit);
    if (std::uint64_t{limit} * group_entry_len <= size) rc = DBE_OK;
  }
  return rc;
}

std::int16_t begin_group_list(void* task, const char* function, const group_kind& kind, const void* filter,
                              void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  rc = begin_name_list<64>(kind.db_id, filter, list_state, size);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

std::int16_t next_of_list(void* task, const char* function, const group_kind& kind, void* list_state,
                          void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  return rc = keyed::get_more_keyed(task, kind.db_id, tcb_of(task)->*kind.file, list_state, buffer, length);
}

const unsigned char* entry_name(const void* list, std::uint16_t index) {
  return static_cast<const unsigned char*>(list) + std::size_t{index} * group_entry_len +
         offsetof(group_key, name);
}

}  // namespace

std::int16_t get_tg(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                    std::uint16_t length) {
  return get_group(task, __func__, static_groups, given_name(n, keys), buffer, length);
}
std::int16_t put_tg(void* task, std::uint16_t n, const void* const* keys, void* record,
                    std::uint16_t length) {
  return put_group(task, __func__, static_groups, given_name(n, keys), record, length);
}
std::int16_t del_tg(void* task, std::uint16_t n, const void* const* keys) {
  return del_group(task, __func__, static_groups, given_name(n, keys));
}
std::int16_t start_list_tg(void* task, const void* filter, void* list, std::uint32_t size,
                           std::uint16_t* count) {
  return start_group_list(task, __func__, static_groups, filter, list, size, count);
}
std::int16_t get_next_tg(void* task, const void* list, const std::uint16_t* index, void* buffer,
                         std::uint16_t length) {
  return get_group(task, __func__, static_groups, entry_name(list, *index), buffer, length);
}
std::int16_t init_list_tg(void* task, void* filter, void* list_state, std::uint32_t size) {
  return begin_group_list(task, __func__, static_groups, filter, list_state, size);
}
std::int16_t get_more_tg(void* task, void* list_state, void* buffer, std::uint16_t length) {
  return next_of_list(task, __func__, static_groups, list_state, buffer, length);
}

std::int16_t get_dtg(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  return get_group(task, __func__, dynamic_groups, given_name(n, keys), buffer, length);
}
std::int16_t put_dtg(void* task, std::uint16_t n, const void* const* keys, void* record,
                     std::uint16_t length) {
  return put_group(task, __func__, dynamic_groups, given_name(n, keys), record, length);
}
std::int16_t del_dtg(void* task, std::uint16_t n, const void* const* keys) {
  return del_group(task, __func__, dynamic_groups, given_name(n, keys));
}
std::int16_t start_list_dtg(void* task, const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count) {
  return start_group_list(task, __func__, dynamic_groups, filter, list, size, count);
}
std::int16_t get_next_dtg(void* task, const void* list, const std::uint16_t* index, void* buffer,
                          std::uint16_t length) {
  return get_group(task, __func__, dynamic_groups, entry_name(list, *index), buffer, length);
}
std::int16_t init_list_dtg(void* task, void* filter, void* list_state, std::uint32_t size) {
  return begin_group_list(task, __func__, dynamic_groups, filter, list_state, size);
}
std::int16_t get_more_dtg(void* task, void* list_state, void* buffer, std::uint16_t length) {
  return next_of_list(task, __func__, dynamic_groups, list_state, buffer, length);
}

}  // namespace zvrdb::users
