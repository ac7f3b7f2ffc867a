// Keys made of several fields, as a segment table given at open tells: a length byte, then
// the segments one behind the other.  engine.h tells the bytes of each.
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/psp.h"

namespace zvrdb::engine {

inline constexpr std::uint8_t segment_end = 31;
inline constexpr int longest_composite = 241;   // bytes behind the length byte

// The segment table of a composite key number; null for other keys, and where the open gave
// none.
inline const segment* segments_of(const PSP* h, int key) {
  return type_of_key(h, key) == kt_composite ? h->segments[key - 1] : nullptr;
}
// Whether the file has a composite key whose table this handle doesn't know.
bool lacks_segments(const PSP* h);

// Segment by segment, up to the first difference or until one of the two has no bytes left.
int compare_composite(const segment* table, byte_order order, const std::uint8_t* a, const std::uint8_t* b);
// Brings the numbers in a value to the other order; `length` with the length byte.
void convert_composite(const segment* table, const std::uint8_t* from, std::uint8_t* to, int length,
                       byte_order from_order, byte_order to_order);

// Any key number's values, composite ones by their table.
int compare_key_values(const PSP* h, int key, const std::uint8_t* a, const std::uint8_t* b);
void convert_key_value(const PSP* h, int key, const std::uint8_t* from, std::uint8_t* to, int length,
                       byte_order from_order, byte_order to_order);

// The value of a composite key: of a field list, in native order, and of a packed record, in
// file order.  out: 256 bytes.  0, e_no_field, e_too_long, e_segments, e_field_list.
int composite_of_list(const PSP* h, int key, const field* fields, std::uint8_t* out);
int composite_of_record(const PSP* h, int key, const std::uint8_t* record, std::int32_t length, const field* fields,
                        std::uint8_t* out);

}  // namespace zvrdb::engine
