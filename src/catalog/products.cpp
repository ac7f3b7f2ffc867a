// Products and filesets of change files: records in the catalog file that hang on the
// number of a change file, while callers give its name.
#include <cstring>

#include "catalog/catalog.h"
#include "catalog/catalog_key.h"
#include "keyed/keyed.h"
#include "memory/cf_name.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::catalog {
namespace {

using memory::tcb_of;

// The caller's key record, by offset.
constexpr std::size_t product_id_offset = 76;
constexpr std::size_t fileset_id_offset = 78;
static_assert(product_id_offset == memory::cf_name_len);
static_assert(product_list_len == keyed::list_state_len(sizeof(catalog_key)));

// Bytes of a key that all records of a change file, or of one of its products, share.
constexpr std::uint16_t change_file_prefix = offsetof(catalog_key, product_id);
constexpr std::uint16_t product_prefix = offsetof(catalog_key, fileset_id);

std::uint16_t id_at(const void* key_record, std::size_t offset) {
  std::uint16_t id = 0;
  std::memcpy(&id, static_cast<const unsigned char*>(key_record) + offset, sizeof id);
  return id;
}

// The ids of the key record are read as far as the record type has them.
std::int16_t key_of(void* task, std::uint32_t db_id, std::uint16_t num_keys, const void* const* keys,
                    catalog_key* key) {
  *key = {};
  key->db_id = db_id;
  const unsigned char* key_record = name_key(num_keys, keys);
  if (!key_record) return DBE_NOT_FOUND;
  const std::int16_t rc = memory::get_cat_num(task, &key->cf_number, key_record);
  if (rc != DBE_OK) return rc;
  key->product_id = id_at(key_record, product_id_offset);
  if (db_id == DB_FST) key->fileset_id = id_at(key_record, fileset_id_offset);
  return rc;
}

// The handlers of both types have one body each; `function` is the handler's name.
std::int16_t get_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  catalog_key key;
  rc = key_of(task, db_id, num_keys, keys, &key);
  if (rc == DBE_OK) rc = keyed::get_keyed(task, db_id, tcb_of(task)->cat_file, &key, buffer, length);
  return rc;
}

std::int16_t put_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys, const void* record, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  catalog_key key;
  rc = key_of(task, db_id, num_keys, keys, &key);
  if (rc == DBE_OK) rc = keyed::put_keyed(task, db_id, tcb_of(task)->cat_file, &key, record, length);
  return rc;
}

std::int16_t del_record(void* task, const char* function, std::uint32_t db_id, std::uint16_t num_keys,
                        const void* const* keys) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  catalog_key key;
  rc = key_of(task, db_id, num_keys, keys, &key);
  if (rc == DBE_OK) rc = keyed::del_keyed(task, db_id, tcb_of(task)->cat_file, &key);
  return rc;
}

// Looks as far as the first NUL of the text: a wildcard in a later token is no
// wildcard, and the name is simply unknown.
bool wildcard_in_first_token(const void* cf_name) {
  const auto* text = static_cast<const char*>(cf_name) + memory::cf_text_offset;
  return std::memchr(text, '*', strnlen(text, memory::cf_text_len)) != nullptr;
}

std::int16_t begin_list(void* task, const char* function, std::uint32_t db_id, const void* filter,
                        void* list_state, std::uint32_t size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  if (size < product_list_len) {
    bracket.quitting();
    return rc = DBE_LIST_TOO_SMALL;
  }
  // A cleared state is one without entries, and stays so unless all goes well.
  std::memset(list_state, 0, product_list_len);
  if (!filter) {
    bracket.quitting();
    return rc = DBE_BAD_RECORD;
  }
  if (wildcard_in_first_token(filter)) {
    ZVR_TRACE(task, 5, 2, "%s", "Change File cannot contain wildcard(s)");
    bracket.quitting();
    return rc = DBE_EMPTY_LIST;
  }
  catalog_key start = {};
  start.db_id = db_id;
  rc = memory::get_cat_num(task, &start.cf_number, filter);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  if (db_id == DB_FST) start.product_id = id_at(filter, product_id_offset);
  const std::uint16_t match = start.product_id != 0 ? product_prefix : change_file_prefix;
  keyed::set_list_state(list_state, &start, sizeof start, {0, match, sizeof start});
  return rc;
}

std::int16_t next_of_list(void* task, const char* function, std::uint32_t db_id, void* list_state,
                          void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, function, &rc);
  return rc = keyed::get_more_keyed(task, db_id, tcb_of(task)->cat_file, list_state, buffer, length);
}

}  // namespace

std::int16_t get_prd(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  return get_record(task, __func__, DB_PRD, n, keys, buffer, length);
}
std::int16_t put_prd(void* task, std::uint16_t n, const void* const* keys, void* record,
                     std::uint16_t length) {
  return put_record(task, __func__, DB_PRD, n, keys, record, length);
}
std::int16_t del_prd(void* task, std::uint16_t n, const void* const* keys) {
  return del_record(task, __func__, DB_PRD, n, keys);
}
std::int16_t init_list_prd(void* task, void* filter, void* list_state, std::uint32_t size) {
  return begin_list(task, __func__, DB_PRD, filter, list_state, size);
}
std::int16_t get_more_prd(void* task, void* list_state, void* buffer, std::uint16_t length) {
  return next_of_list(task, __func__, DB_PRD, list_state, buffer, length);
}

std::int16_t get_fst(void* task, std::uint16_t n, const void* const* keys, void* buffer,
                     std::uint16_t length) {
  return get_record(task, __func__, DB_FST, n, keys, buffer, length);
}
std::int16_t put_fst(void* task, std::uint16_t n, const void* const* keys, void* record,
                     std::uint16_t length) {
  return put_record(task, __func__, DB_FST, n, keys, record, length);
}
std::int16_t del_fst(void* task, std::uint16_t n, const void* const* keys) {
  return del_record(task, __func__, DB_FST, n, keys);
}
std::int16_t init_list_fst(void* task, void* filter, void* list_state, std::uint32_t size) {
  return begin_list(task, __func__, DB_FST, filter, list_state, size);
}
std::int16_t get_more_fst(void* task, void* list_state, void* buffer, std::uint16_t length) {
  return next_of_list(task, __func__, DB_FST, list_state, buffer, length);
}

}  // namespace zvrdb::catalog
