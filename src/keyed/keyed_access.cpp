// Records by key: get, put and delete.
#include <cstring>

#include "keyed/field_tables.h"
#include "keyed/keyed.h"
#include "keyed/scratch.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::keyed {
namespace {

constexpr std::uint32_t trg_type_offset = 144;
constexpr std::uint32_t mobile_status_offset = 147;
constexpr unsigned char trg_type_mobile = 0x10;

std::uint32_t key_fields_len(std::uint32_t db_id) {
  return db_id < DB_TYPE_COUNT ? int_key_len[db_id] : 0;
}

// What the key alone counts as in external form: its first field.
std::uint32_t external_key_len(std::uint32_t db_id) {
  const std::span<const field_descriptor> table = field_table(db_id);
  return table.empty() ? 0 : table.front().length;
}

// A mobile client's record that ends right before its connection status would be stored
// without a byte that every reader of it then asks for.
bool ends_before_mobile_status(std::uint32_t db_id, const void* record, std::uint32_t record_len) {
  return db_id == DB_TRG && record_len == mobile_status_offset &&
         (static_cast<const unsigned char*>(record)[trg_type_offset] & trg_type_mobile) != 0;
}

std::int16_t unparse_for_put(void* task, std::uint32_t db_id, unsigned char* external, const void* record,
                             std::uint32_t record_len, std::uint32_t* external_len) {
  if (!ends_before_mobile_status(db_id, record, record_len))
    return unparse_keyed(task, db_id, external, record, external_len, record_len);
  unsigned char with_status[mobile_status_offset + 1] = {};
  std::memcpy(with_status, record, mobile_status_offset);
  return unparse_keyed(task, db_id, external, with_status, external_len, sizeof with_status);
}

}  // namespace

std::int16_t get_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* key, void* buffer,
                       std::uint32_t buffer_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = recfile::db_locate(task, handle, key, recfile::KEY_EQ);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  const std::uint32_t needed = key_fields_len(db_id);
  if (buffer_len < needed) {
    ZVR_TRACE(task, 2, 2, "length needed for key %lu, internal buffer one %lu",
              static_cast<unsigned long>(needed), static_cast<unsigned long>(buffer_len));
    return rc;
  }
  const void* external = key;
  std::uint32_t external_len = external_key_len(db_id);
  if (buffer_len > needed) {
    unsigned char* area = scratch_area(task, "PRK_GET");
    external_len = external_capacity;
    rc = area ? recfile::db_read(task, handle, area, &external_len) : std::int16_t{DBE_IO_ERROR};
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
    external = area;
  }
  if (buffer_len > 0) std::memset(buffer, 0, buffer_len);
  return rc = parse_keyed(task, db_id, external, buffer, &external_len, &buffer_len);
}

std::int16_t put_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* key, const void* record,
                       std::uint32_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  unsigned char* external = scratch_area(task, "PRK_PUT");
  std::uint32_t external_len = external_capacity;
  rc = external ? unparse_for_put(task, db_id, external, record, record_len, &external_len)
                : std::int16_t{DBE_IO_ERROR};
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  rc = recfile::db_locate(task, handle, key, recfile::KEY_EQ);
  if (rc == DBE_OK) {
    rc = recfile::db_update(task, handle, key, external, external_len);
    if (rc == DBE_OK) rc = DBE_RECORD_REPLACED;
  } else if (rc == DBE_NOT_FOUND) {
    rc = recfile::db_write(task, handle, key, external, external_len);
  }
  return rc;
}

std::int16_t del_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* key) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  ZVR_TRACE(task, 2, 2, "deleting a record of db_id %lu", static_cast<unsigned long>(db_id));
  return rc = recfile::db_delete(task, key, handle);
}

}  // namespace zvrdb::keyed
