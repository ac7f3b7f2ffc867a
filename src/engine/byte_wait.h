// Waiting for lock bytes of a record file.
#pragma once

#include <cstdint>

namespace zvrdb::engine {

// Locks bytes of an open file, however long another handle has them.
// 0, or e_byte_lock when they cannot be locked at all.
int wait_for_bytes(int file, std::uint64_t offset, std::uint64_t length);

}  // namespace zvrdb::engine
