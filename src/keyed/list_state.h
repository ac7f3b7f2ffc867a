// A caller's list state, copied out of and into its bytes.
#pragma once

#include <cstdint>
#include <cstring>

#include "keyed/keyed.h"

namespace zvrdb::keyed {

inline constexpr std::uint32_t list_key_capacity = list_index_no - list_start_key;

inline std::uint16_t list_number(const void* list_state, std::uint32_t offset) {
  std::uint16_t number = 0;
  std::memcpy(&number, static_cast<const unsigned char*>(list_state) + offset, sizeof number);
  return number;
}
inline void set_list_number(void* list_state, std::uint32_t offset, std::uint16_t number) {
  std::memcpy(static_cast<unsigned char*>(list_state) + offset, &number, sizeof number);
}

// A state that list functions may walk: begun, and with lengths that are the file's.
inline bool list_usable(const void* list_state, std::uint32_t file_key_len) {
  if (!list_state || list_number(list_state, list_init_ok) == 0) return false;
  const std::uint32_t key_len = list_number(list_state, list_key_len);
  return key_len != 0 && key_len == file_key_len && key_len <= list_key_capacity &&
         list_number(list_state, list_key_match) <= key_len;
}

}  // namespace zvrdb::keyed
