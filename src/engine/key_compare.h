// Lengths and order of key values and of entries.
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/psp.h"

namespace zvrdb::engine {

bool key_type_is_known(int type);
// Whether a value begins with a byte that tells how many follow.
bool has_length_byte(int type);
// Bytes of a value of fixed length, 0 for the others.
int fixed_key_length(int type);
// A letter as values without regard to case are compared.
std::uint8_t folded(std::uint8_t c);
// Whether values of the type are held in the byte order of the file.
bool key_type_is_numeric(int type);

// Length of a key value of which at most `avail` bytes may be looked at; -1 when it
// doesn't end within them or the type is unknown.
int key_value_length(int type, const std::uint8_t* value, int avail);
// Length of a key value that a caller gave, which holds at least what its type tells.
// More than max_key_value when it is too long; -1 for an unknown type.
int caller_key_length(int type, const std::uint8_t* value);

// Sign of a against b, both in the given order.  An unordered pair of floats: 1.
int compare_values(int type, byte_order order, const std::uint8_t* a, const std::uint8_t* b);

// Brings a numeric value from one order to the other; other values are copied (length
// bytes).
void convert_value(int type, const std::uint8_t* from, std::uint8_t* to, int length, byte_order from_order,
                   byte_order to_order);

// What a search looks for.
struct target {
  const std::uint8_t* key;   // file order
  std::int32_t recno;
  int keyno;
  int type;
  int piece;                 // bits 0 to 6
  int edge;                  // -1 below every value of keyno, 1 above, 0 none
  byte_order order;
  const segment* segments;   // of a composite key, null if unknown
};

// Sign of an entry against the target: on all parts, and on key number and value only.
struct entry_sign {
  int full;
  int key;
};
entry_sign entrycmp(const std::uint8_t* entry, const target& t, bool in_leaf);

// Key number, value and record number of two entries of the file compared; pieces are
// left out.
int compare_entries(const PSP* h, const std::uint8_t* a, const std::uint8_t* b);
// Whether the order of two values of the type is a sure one: floats may be unordered, and
// how the segments of a composite key sort is not told by the file.
bool is_totally_ordered(int type);

inline int entry_size(const std::uint8_t* entry) { return entry[entry_at::length] + 1; }
inline std::int32_t entry_record(const std::uint8_t* entry, byte_order o) {
  return load32s(entry + entry_at::record, o);
}

}  // namespace zvrdb::engine
