// The two tables of access keys.  Each is one record of the authorization file, kept in a
// common area once it was read or written:
//
//   unloaded   flag 0: the bytes behind it mean nothing, the next get reads the file
//   loaded     flag 1: the bytes are the table
//
// A put goes through unloaded before it touches the file, and back to loaded when all is
// done: whoever is killed in between leaves a table that is read again.  What a put stored
// in a transaction that is then rolled back stays in memory all the same.
#include <zvrdb/records.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "keyed/keyed.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "users/name_key.h"
#include "users/users.h"

namespace zvrdb::users {
namespace {

using memory::tcb_of;

static_assert(ak_record_len == sizeof(db_ak));

struct key_table {
  std::uint32_t db_id;
  std::uint32_t area;
  const char* not_loaded;  // traced
};
constexpr key_table target_keys = {DB_TAK, CO_AREA_TARGET_KEYS, "Could not load Target Access Key table"};
constexpr key_table default_keys = {DB_DAK, CO_AREA_DEFAULT_KEYS, "Could not load Data Access Key table"};

struct key_cache {
  std::uint32_t loaded;
  unsigned char table[ak_record_len];
};
static_assert(sizeof(key_cache) == 2436);

// The flag comes before the bytes that it speaks of, or behind them, as told.
void set_loaded(key_cache* cache, std::uint32_t loaded) {
  std::atomic_ref(cache->loaded).store(loaded, std::memory_order_seq_cst);
}

key_cache* cache_of(void* task, const key_table& table) {
  return static_cast<key_cache*>(co_croca(task, table.area));
}

std::int16_t get_table(void* task, const char* function, const key_table& table, void* buffer,
                       std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  key_cache* cache = cache_of(task, table);
  if (!cache) return rc = DBE_CO_FAILURE;
  if (cache->loaded == 0) {
    user_key key = {table.db_id, {}, 0};
    rc = keyed::get_keyed(task, table.db_id, tcb_of(task)->apr_file, &key, cache->table, ak_record_len);
    if (rc != DBE_OK) {
      ZVR_TRACE(task, 5, 2, "%s", table.not_loaded);
      bracket.quitting();
      return rc;
    }
    set_loaded(cache, 1);
  }
  std::memcpy(buffer, cache->table, std::min<std::size_t>(length, ak_record_len));
  return rc;
}

std::int16_t put_table(void* task, const char* function, const key_table& table, const void* record,
                       std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  key_cache* cache = cache_of(task, table);
  if (!cache) return rc = DBE_CO_FAILURE;
  const std::uint32_t was_loaded = cache->loaded;
  set_loaded(cache, 0);
  user_key key = {table.db_id, {}, 0};
  rc = keyed::put_keyed(task, table.db_id, tcb_of(task)->apr_file, &key, record, length);
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) {
    set_loaded(cache, was_loaded);
    bracket.quitting();
    return rc;
  }
  const std::size_t taken = std::min<std::size_t>(length, ak_record_len);
  std::memcpy(cache->table, record, taken);
  std::memset(cache->table + taken, 0, ak_record_len - taken);
  set_loaded(cache, 1);
  return rc;
}

}  // namespace

std::int16_t get_tak(void* task, std::uint16_t, const void* const*, void* buffer, std::uint16_t length) {
  return get_table(task, __func__, target_keys, buffer, length);
}
std::int16_t put_tak(void* task, std::uint16_t, const void* const*, void* record, std::uint16_t length) {
  return put_table(task, __func__, target_keys, record, length);
}
std::int16_t get_dak(void* task, std::uint16_t, const void* const*, void* buffer, std::uint16_t length) {
  return get_table(task, __func__, default_keys, buffer, length);
}
std::int16_t put_dak(void* task, std::uint16_t, const void* const*, void* record, std::uint16_t length) {
  return put_table(task, __func__, default_keys, record, length);
}

std::int16_t init_access_keys(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  for (const key_table& table : {target_keys, default_keys})
    if (key_cache* cache = cache_of(task, table)) set_loaded(cache, 0);
  return rc;
}

}  // namespace zvrdb::users
