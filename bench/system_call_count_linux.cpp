#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "system_call_count.h"

namespace bench {
namespace {

bool is_flush(unsigned long long number) {
  return number == SYS_fsync || number == SYS_fdatasync || number == SYS_msync ||
         number == SYS_sync_file_range;
}

// The work stands between two calls of getppid: the system call that does nothing.
void run_child(const std::function<void()>& prepare, const std::function<void()>& work) {
  prepare();
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(2);
  raise(SIGSTOP);
  syscall(SYS_getppid);
  work();
  syscall(SYS_getppid);
  _exit(0);
}

// Follows the child from its stop to its end.
void count(pid_t child, CallCounts& counts) {
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  int markers = 0;
  bool at_entry = true;
  int status = 0;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child) {
    if (!WIFSTOPPED(status)) break;
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    if (at_entry) {
      user_regs_struct regs{};
      ptrace(PTRACE_GETREGS, child, nullptr, &regs);
      if (regs.orig_rax == SYS_getppid) {
        ++markers;
      } else if (markers == 1) {
        ++counts.calls;
        if (is_flush(regs.orig_rax)) ++counts.flushes;
      }
    }
    at_entry = !at_entry;
  }
  counts.known = markers == 2;
}

}  // namespace

CallCounts count_system_calls(const std::function<void()>& prepare, const std::function<void()>& work) {
  CallCounts counts{false, 0, 0};
  const pid_t child = fork();
  if (child == 0) run_child(prepare, work);
  int status = 0;
  if (child < 0 || waitpid(child, &status, WUNTRACED) != child || !WIFSTOPPED(status)) return counts;
  count(child, counts);
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return counts;
}

}  // namespace bench
