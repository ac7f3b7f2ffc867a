#include "common/process_end.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zvrdb::common {
namespace {

// A number may come again, or the process may live on without the thread that held
// the semaphore; neither may keep us for ever.
constexpr int kLongestWaitMs = 2000;

}  // namespace

void await_process_end(int32_t process) {
  if (process <= 0 || process == getpid()) return;
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  if (fd < 0) return;
  pollfd end{fd, POLLIN, 0};
  poll(&end, 1, kLongestWaitMs);
  close(fd);
}

}  // namespace zvrdb::common
