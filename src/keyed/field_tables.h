// Tables of record fields: what stands where in the internal record, and in which
// order the fields follow one another in the external form.
#pragma once

#include <cstdint>
#include <span>

namespace zvrdb::keyed {

// Where a converter reads external bytes.  `end` is the true end of the data: nothing
// behind it exists, whatever a converter leaves uncounted.
struct external_source {
  const unsigned char* at;
  const unsigned char* end;
  const unsigned char* link;  // target number that the field before was read from, or null
  std::uint32_t left() const { return static_cast<std::uint32_t>(end - at); }
};

// Where a converter writes external bytes, up to the end of the buffer.
struct external_sink {
  unsigned char* at;
  unsigned char* end;
  std::uint32_t left() const { return static_cast<std::uint32_t>(end - at); }
};

struct field_descriptor;

// The internal side of a converter: the record, or the occurrence for an array, and the
// bytes that there are from its base on.
struct internal_record {
  unsigned char* base;
  std::uint32_t length;
};
struct internal_record_view {
  const unsigned char* base;
  std::uint32_t length;
};

// External to internal.  0 or the code that ends the conversion.  The descriptor may be
// null for the keys of user requests alone: the position then stays.
using parse_fn = std::int16_t (*)(void* task, std::uint32_t db_id, const field_descriptor* field,
                                  external_source* from, internal_record to);
// Internal to external, likewise.
using unparse_fn = std::int16_t (*)(void* task, std::uint32_t db_id, const field_descriptor* field,
                                    external_sink* to, internal_record_view from);

enum class data_type : std::uint16_t {
  text = 1,          // string, stored with its NUL; its length is that of the data, not of the field
  short_number = 3,  // the rest are `length` bytes, copied as they stand
  number = 5,
  bytes = 6,
  block = 7
};

inline constexpr std::uint32_t fixed_count = 0xFFFF;  // all occurrences are stored

struct field_descriptor {
  data_type type;
  std::uint16_t occ;           // 0: a single field; else the most occurrences
  std::uint32_t length;        // of the field; of an array: from one occurrence to the next
  std::uint32_t offset;        // in the internal record, of the first occurrence
  std::uint32_t count_offset;  // of an array: where the record holds its u16 count, or fixed_count
  parse_fn parse;              // both or none
  unparse_fn unparse;
};

// The table of a record type, empty for a type without one.
std::span<const field_descriptor> field_table(std::uint32_t db_id);

}  // namespace zvrdb::keyed
