// Copies of text that never pass the end of their room.
#pragma once

#include <cstddef>
#include <cstring>

namespace zvrdb::common {

// Copies text into a field of size bytes, cut if need be, always NUL-terminated and
// zero to its end.
inline void copy_text(char* field, size_t size, const char* text) {
  const size_t length = strnlen(text, size - 1);
  memcpy(field, text, length);
  memset(field + length, 0, size - length);
}

}  // namespace zvrdb::common
