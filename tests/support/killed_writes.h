// A process that is killed right before one of its write operations.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <cstdint>

#include "engine/format.h"
#include "engine/os_file.h"

namespace zvrtest {

struct planned_death {
  int operations_left = -1;   // negative: none is planned
  bool at_any_write = false;
};
inline planned_death death;

// A write operation begins with the writing of its flag.
inline bool begins_write_operation(std::uint64_t offset, const void* from, std::size_t n) {
  return offset == zvrdb::engine::flag_offset && n == 2 && *static_cast<const unsigned char*>(from) != 0;
}

inline std::int64_t write_or_die(int file, std::uint64_t offset, const void* from, std::size_t n) {
  const bool counts = death.at_any_write || begins_write_operation(offset, from, n);
  if (death.operations_left >= 0 && counts && death.operations_left-- == 0) kill(getpid(), SIGKILL);
  return zvrdb::engine::linux_ops.write_at(file, offset, from, n);
}

// From here on this process dies before the write operation that follows so many; each single
// write counts as one when it is told so.  For a forked child: the engine keeps the planned calls.
inline void die_before_write_operation(int behind, bool at_any_write = false) {
  static zvrdb::engine::os_ops operations = zvrdb::engine::linux_ops;
  operations.write_at = write_or_die;
  zvrdb::engine::set_os_ops(&operations);
  death = {behind, at_any_write};
}
inline void live_on() { death = {}; }

}  // namespace zvrtest
