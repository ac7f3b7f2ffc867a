// Authorization profiles: plain records by name in the authorization file.
#include <zvrdb/records.h>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "users/name_key.h"
#include "users/users.h"

namespace zvrdb::users {

using memory::tcb_of;

static_assert(apr_record_len == sizeof(db_apr));

std::int16_t get_apr(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  const void* name = given_name(num_keys, keys);
  if (!name) return rc;
  user_key key = key_from<16>(DB_APR, name);
  return rc = keyed::get_keyed(task, DB_APR, tcb_of(task)->apr_file, &key, buffer, length);
}

std::int16_t put_apr(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  const void* name = given_name(num_keys, keys);
  if (!name) return rc;
  user_key key = key_from<16>(DB_APR, name);
  return rc = keyed::put_keyed(task, DB_APR, tcb_of(task)->apr_file, &key, record, length);
}

std::int16_t del_apr(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  const void* name = given_name(num_keys, keys);
  if (!name) return rc;
  user_key key = key_from<16>(DB_APR, name);
  return rc = keyed::del_keyed(task, DB_APR, tcb_of(task)->apr_file, &key);
}

std::int16_t init_list_apr(void* task, void* filter, void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = begin_name_list<16>(DB_APR, filter, list_state, size);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

std::int16_t get_more_apr(void* task, void* list_state, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = keyed::get_more_keyed(task, DB_APR, tcb_of(task)->apr_file, list_state, buffer, length);
}

}  // namespace zvrdb::users
