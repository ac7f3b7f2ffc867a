// Records as bytes: packing a field list, taking it apart, the checks of a list.
#pragma once

#include <cstdint>

#include "engine/engine.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// Bytes of a field's value of that type, 0 where they vary.
int value_size(char type);
constexpr char type_char(const field& f) { return static_cast<char>(f.ftype & 0x7F); }
constexpr bool is_taken_out(const field& f) { return (static_cast<unsigned char>(f.ftype) & 0x80) != 0; }
constexpr bool is_list_end(const field& f) { return f.ftype == 'E'; }
constexpr bool is_key_field(const field& f) { return f.fkeytype != 'N'; }

// The checks of a field list, each descriptor up to the end.  For reading without the
// length tests.  0, e_field_type, e_key_type, e_duplicates_flag, e_field_length,
// e_too_long, e_key_number.
int check_list_for_writing(const PSP* h, const field* fields);
int check_list_for_reading(const PSP* h, const field* fields);

// Whether a key type given in a call or field fits the file's for that key number.
bool key_type_fits(const PSP* h, int key, char key_type);

// Bytes of the packed record, -1 if it is longer than capacity.  buffer null: counts only.
std::int64_t packrec(const PSP* h, std::uint8_t* buffer, const field* fields, std::uint8_t type, std::int64_t capacity);
// Fills the fields from a packed record.  0, e_checksum, e_field_list.
int unpackrec(PSP* h, const std::uint8_t* record, std::int32_t length, field* fields);
// The checks of unpackrec alone: both checksums.
int check_packed(const PSP* h, const std::uint8_t* record, std::int32_t length, const field* fields);

// The stored fields of a packed record, one after the other.
struct stored_field {
  int index;                     // in the field list; -1 the end
  const std::uint8_t* value;
  std::int32_t length;
};
struct packed_reader {
  const PSP* h;
  const std::uint8_t* record;
  std::int32_t length;
  std::int32_t at;
  const field* fields;
  int count;                     // descriptors in the list
  int last;                      // index met last
};
packed_reader read_packed(const PSP* h, const std::uint8_t* record, std::int32_t length, const field* fields);
// 0, or e_field_list when the bytes don't fit the list.
int next_stored(packed_reader* r, stored_field* out);

// Room for any key value, zeroed behind it.
inline constexpr int key_value_buffer = 512;
using key_value = std::uint8_t[key_value_buffer];

// Key value of a stored field in file order.  A binary value of 242 bytes or more is
// refused (false), or cut to 241 with cut set.
bool key_of_stored(const field& f, const stored_field& s, bool cut, key_value out);

}  // namespace zvrdb::engine
