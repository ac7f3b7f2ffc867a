// Copies to callers of what lies in memory.
#pragma once

#include <cstddef>
#include <cstring>

namespace zvrdb::memory {

// Of a length that is not known before.  Calls the C library: of a copy that cannot overlap
// and whose length is bounded a compiler makes string instructions, which take several
// times as long to get going as a short copy takes.
inline void copy_out(void* to, const void* from, std::size_t length) {
  std::memmove(to, from, length);
}

}  // namespace zvrdb::memory
