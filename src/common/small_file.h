// A whole small text file in memory.
#pragma once

#include <cstdint>

namespace zvrdb::common {

// The file's text with a NUL behind it, to be freed with free(); bytes behind an
// embedded NUL are not seen.  Null with errno when it cannot be read or is longer
// than max bytes (EFBIG).
char* read_small_file(const char* path, uint32_t max);

}  // namespace zvrdb::common
