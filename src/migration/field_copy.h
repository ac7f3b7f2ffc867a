// Copies between two flat records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zvrdb::migration {

struct field_move {
  std::uint32_t from;
  std::uint32_t to;
  std::uint32_t length;
};

template <std::size_t count>
void copy_fields(unsigned char* record, const unsigned char* older, const field_move (&moves)[count]) {
  for (const field_move& move : moves) std::memcpy(record + move.to, older + move.from, move.length);
}

inline std::uint16_t load_u16(const unsigned char* at) {
  std::uint16_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
inline void store_u16(unsigned char* at, std::uint16_t value) {
  std::memcpy(at, &value, sizeof value);
}
inline std::uint32_t load_u32(const unsigned char* at) {
  std::uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
inline void store_u32(unsigned char* at, std::uint32_t value) {
  std::memcpy(at, &value, sizeof value);
}

// A text of a field of `from_len` bytes into one of `to_len`, which has been zeroed and
// keeps a NUL at its end.
inline void copy_text(unsigned char* to, std::size_t to_len, const unsigned char* from, std::size_t from_len) {
  const std::size_t length = strnlen(reinterpret_cast<const char*>(from), from_len);
  std::memcpy(to, from, length < to_len ? length : to_len - 1);
}

}  // namespace zvrdb::migration
