// Bounded access to the bytes of internal and external records.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "keyed/field_tables.h"
#include "memory/codes.h"
#include "memory/record_types.h"

namespace zvrdb::keyed {

// `width` bytes at an offset; those that the record doesn't have read as zero.
inline void take_bytes(internal_record_view from, std::uint32_t offset, void* out, std::uint32_t width) {
  const std::uint32_t there = offset < from.length ? std::min(width, from.length - offset) : 0;
  std::memcpy(out, from.base + (there ? offset : 0), there);
  std::memset(static_cast<unsigned char*>(out) + there, 0, width - there);
}

template <class Number>
Number take_number(internal_record_view from, std::uint32_t offset) {
  Number number = 0;
  take_bytes(from, offset, &number, sizeof number);
  return number;
}

// A string of at most `width` bytes into `out` of that width, padded with zeros; without
// a NUL when it is as long as that.
inline void take_text(internal_record_view from, std::uint32_t offset, void* out, std::uint32_t width) {
  take_bytes(from, offset, out, width);
  auto* text = static_cast<char*>(out);
  const std::size_t length = strnlen(text, width);
  std::memset(text + length, 0, width - length);
}

// A name of at most 64 characters.
struct name_text {
  char text[65];
};
inline name_text take_name(internal_record_view from, std::uint32_t offset) {
  name_text name = {};
  take_text(from, offset, name.text, sizeof name.text - 1);
  return name;
}

template <class Number>
Number load_number(const unsigned char* at) {
  Number number = 0;
  std::memcpy(&number, at, sizeof number);
  return number;
}
template <class Number>
void store_number(unsigned char* at, Number number) {
  std::memcpy(at, &number, sizeof number);
}

// The next `width` external bytes (a key), which are passed over; those beyond the end
// read as zero.
template <std::uint32_t width>
struct external_key {
  unsigned char bytes[width];
  explicit external_key(const external_source& from) : bytes{} {
    std::memcpy(bytes, from.at, std::min(width, from.left()));
  }
};
inline void pass_over(external_source* from, std::uint32_t width) {
  from->at += std::min(width, from->left());
}

inline std::int16_t no_room(void* task, std::uint32_t db_id) {
  memory::log_db_msg(task, 36456, db_id);
  return DBE_BUFFER_TOO_SMALL;
}

}  // namespace zvrdb::keyed
