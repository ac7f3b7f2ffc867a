// Exact counts of the system calls that a piece of work makes.
#pragma once

#include <functional>

namespace bench {

struct CallCounts {
  bool known;  // false when this process may not trace its children
  long calls;
  long flushes;  // fsync, fdatasync, msync, sync_file_range, writes to what is open with O_DSYNC
};

// Runs prepare and then work in a child process that is traced from the end of prepare
// to the end of work.
CallCounts count_system_calls(const std::function<void()>& prepare, const std::function<void()>& work);

}  // namespace bench
