// Keyed access: records by key and lists, through the conversion between the caller's
// record (internal form) and what is stored (external form).
#pragma once

#include <zvrdb/records.h>

#include <cstddef>
#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::keyed {

inline constexpr std::uint32_t external_capacity = 65535;

// Cursor of a keyed list, owned by the caller: list_state_len(key_len) bytes or more.
// Its fields lie at these offsets; it is read and written byte-wise, since a caller's
// area need not be aligned.
inline constexpr std::uint32_t list_start_key = offsetof(db_list_state, start_key);  // host order
inline constexpr std::uint32_t list_index_no = offsetof(db_list_state, index_no);
inline constexpr std::uint32_t list_key_match = offsetof(db_list_state, key_match);
inline constexpr std::uint32_t list_first_time = offsetof(db_list_state, first_time);
inline constexpr std::uint32_t list_key_len = offsetof(db_list_state, key_len);
inline constexpr std::uint32_t list_init_ok = offsetof(db_list_state, init_ok);
inline constexpr std::uint32_t list_last_key = sizeof(db_list_state);  // key_len bytes
constexpr std::uint32_t list_state_len(std::uint32_t key_len) {
  return list_last_key + key_len;
}
struct list_setup {
  std::uint16_t index_no;
  std::uint16_t key_match;
  std::uint16_t key_len;
};
// Fills a list state that stands at its start: first_time and init_ok set.
void set_list_state(void* list_state, const void* start_key, std::uint32_t start_key_len,
                    const list_setup& setup);

std::int16_t get_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* key, void* buffer,
                       std::uint32_t buffer_len);
std::int16_t put_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* key, const void* record,
                       std::uint32_t record_len);
std::int16_t del_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* key);
std::int16_t start_list_keyed(void* task, file_entry* handle, const void* key, std::uint16_t key_prefix_len,
                              std::uint16_t entry_len, void* list, std::uint32_t list_size,
                              std::uint16_t* count);
std::int16_t get_more_keyed(void* task, std::uint32_t db_id, file_entry* handle, void* list_state,
                            void* buffer, std::uint32_t buffer_len);
std::int16_t get_keyed_alt(void* task, std::uint32_t db_id, file_entry* handle, void* key,
                           std::uint32_t key_len, void* buffer, std::uint32_t buffer_len);
std::int16_t get_more_alt(void* task, std::uint32_t db_id, file_entry* handle, void* list_state, void* buffer,
                          std::uint32_t buffer_len);

// Internal to external form.  external_len: in size of the buffer, out bytes written.
std::int16_t unparse_keyed(void* task, std::uint32_t db_id, void* external, const void* internal,
                           std::uint32_t* external_len, std::uint32_t internal_len);

// External to internal form; the internal record has been zeroed by the caller.
// external_len: in bytes of external data; internal_len: in size of the record.
std::int16_t parse_keyed(void* task, std::uint32_t db_id, const void* external, void* internal,
                         std::uint32_t* external_len, std::uint32_t* internal_len);

}  // namespace zvrdb::keyed
