// Waiting for a process to be gone with all it had open.
#pragma once

#include <cstdint>

namespace zvrdb::common {

// Waits until the process has ended, at most some seconds.  Returns at once when there
// is no such process, or when it is this one.
void await_process_end(int32_t process);

}  // namespace zvrdb::common
