// The field list and the key of one record operation, built on the stack of the call.
#pragma once

#include <array>
#include <cstdint>

#include "recfile/file_table.h"

namespace zvrdb::recfile {

inline constexpr std::uint32_t key_value_len = 256;  // longest key value with its length byte

// The caller's key in the file's byte order.  Given back to the caller in host order
// when the operation ends.
struct file_key {
  unsigned char bytes[max_key_len];
};
void load_key(void* task, const open_file& file, const void* caller_key, file_key* key);
void return_key(void* task, const open_file& file, const file_key& key, void* caller_key);
std::uint32_t recnum_of(const open_file& file, const unsigned char* key);
void set_recnum(const open_file& file, unsigned char* key, std::uint32_t recnum);
// Whether two keys belong to the same logical record.
bool same_record(const open_file& file, const unsigned char* a, const unsigned char* b);
// Current key of the engine under key 1, key_len bytes; null when its length is wrong.
const unsigned char* current_key(const open_file& file);

struct field_list {
  std::array<engine::field, most_fields> fields;
  engine::field* data;
};
// All value pointers null; lengths as the table tells.
void build_fields(const open_file& file, field_list* list);
// Lengths of the key fields back to the table's, for a read sets them to what it found.
void restore_key_lengths(const open_file& file, field_list* list);

// Values of the keys beside key 1, as they go into and come out of the field list.
struct other_keys {
  unsigned char* second;    // key 2; room for record_buffer_len bytes
  unsigned char target[4];  // key 3 of "userreq": the bytes of the file
};
void point_other_keys(const open_file& file, field_list* list, other_keys* keys);
// From the key of a record that is to be stored.
void derive_other_keys(const open_file& file, const file_key& key, other_keys* keys);

// Of the engine's answer to a search: it came to no end, so that nothing is known of the record.
bool search_failed(int code);

// Sets the key value and finds the engine record with this very key.
// 0, 8194 or 8455 (logged).
std::int16_t find_piece(void* task, const open_file& file, field_list* list, file_key* key);
std::int16_t key_value(void* task, const open_file& file, field_list* list, file_key* key,
                       unsigned char* value);

// The task's work area: the first half takes the data of a piece, the second half
// key 2.  Each half is as long as the engine's record buffer, so no stored length can
// overrun it.  Null (36355 logged with the tag) when memory is exhausted.
unsigned char* piece_area(void* task, DBR_TCB* tcb);
inline unsigned char* second_key_area(unsigned char* area) {
  return area + record_buffer_len;
}

}  // namespace zvrdb::recfile
