// Waiting for lock bytes of a record file.
#pragma once

#include <cstdint>

namespace zvrdb::engine {

// Locks bytes of an open file, however long another handle has them.
// 0, or e_byte_lock when they cannot be locked at all.
int wait_for_bytes(int file, std::uint64_t offset, std::uint64_t length);
// The same, keeping each byte from when it comes free: whoever comes again and again for one of
// them waits in turn, so they will all be had.
int wait_for_each_byte(int file, std::uint64_t offset, std::uint64_t length);

}  // namespace zvrdb::engine
