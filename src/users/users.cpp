// Users: marked as deleted instead of removed, so that the last sequence number of a name
// is never lost.
#include "users/users.h"

#include <zvrdb/records.h>

#include <algorithm>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "users/name_key.h"

namespace zvrdb::users {
namespace {

using memory::tcb_of;

static_assert(usr_record_len == sizeof(db_usr));
static_assert(user_list_len == keyed::list_state_len(sizeof(user_key)));

// The stored record, deleted or not.
std::int16_t read_user(void* task, user_key* key, db_usr* record) {
  return keyed::get_keyed(task, DB_USR, tcb_of(task)->usr_file, key, record, sizeof *record);
}

std::int16_t write_user(void* task, user_key* key, const void* record, std::uint32_t length) {
  return keyed::put_keyed(task, DB_USR, tcb_of(task)->usr_file, key, record, length);
}

void copy_out(void* buffer, std::uint16_t length, const db_usr& record) {
  std::memcpy(buffer, &record, std::min<std::size_t>(length, sizeof record));
}

// Stores a number in a record that may end before or within it.
void set_number(void* record, std::uint16_t length, std::size_t offset, std::uint32_t number) {
  if (offset >= length) return;
  std::memcpy(static_cast<unsigned char*>(record) + offset, &number,
              std::min<std::size_t>(sizeof number, length - offset));
}

}  // namespace

std::int16_t get_usr(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  const void* name = given_name(num_keys, keys);
  if (!name) return rc;
  user_key key = key_from<16>(DB_USR, name);
  db_usr record;
  rc = read_user(task, &key, &record);
  if (rc == DBE_OK && record.deleted != 0) {
    ZVR_TRACE(task, 2, 2, "%s", "deleted flag is TRUE, returning no record");
    rc = DBE_NOT_FOUND;
  }
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  copy_out(buffer, length, record);
  return rc;
}

std::int16_t put_usr(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  const void* name = given_name(num_keys, keys);
  if (!name) return rc;
  // The name may stand in the record itself, which is changed only behind it.
  user_key key = key_from<16>(DB_USR, name);
  db_usr stored;
  rc = read_user(task, &key, &stored);
  set_number(record, length, offsetof(db_usr, deleted), 0);
  if (rc != DBE_OK && rc != DBE_NOT_FOUND) {
    bracket.quitting();
    return rc;
  }
  const bool revived = rc == DBE_OK && stored.deleted != 0;
  if (revived) set_number(record, length, offsetof(db_usr, last_seqno), stored.last_seqno);
  if (rc == DBE_NOT_FOUND) set_number(record, length, offsetof(db_usr, last_seqno), 0);
  rc = write_user(task, &key, record, length);
  if (revived && rc == DBE_RECORD_REPLACED) rc = DBE_OK;
  return rc;
}

std::int16_t del_usr(void* task, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_NOT_FOUND;
  const trace_bracket bracket(task, __func__, &rc);
  const void* name = given_name(num_keys, keys);
  if (!name) return rc;
  user_key key = key_from<16>(DB_USR, name);
  db_usr record;
  rc = read_user(task, &key, &record);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  record.deleted = 1;
  rc = write_user(task, &key, &record, sizeof record);
  if (rc == DBE_RECORD_REPLACED) rc = DBE_OK;
  return rc;
}

std::int16_t init_list_usr(void* task, void* filter, void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = begin_name_list<16>(DB_USR, filter, list_state, size);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

std::int16_t get_more_usr(void* task, void* list_state, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  db_usr record;
  for (;;) {
    rc = keyed::get_more_keyed(task, DB_USR, tcb_of(task)->usr_file, list_state, &record, sizeof record);
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
    if (record.deleted == 0) break;
    ZVR_TRACE(task, 2, 2, "deleted flag for user %.16s is TRUE, trying the next one", record.usr_name);
  }
  copy_out(buffer, length, record);
  return rc;
}

}  // namespace zvrdb::users
