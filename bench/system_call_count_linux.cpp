#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "system_call_count.h"

namespace bench {
namespace {

bool is_write(unsigned long long number) {
  return number == SYS_write || number == SYS_pwrite64 || number == SYS_writev || number == SYS_pwritev ||
         number == SYS_pwritev2;
}

// Whether a descriptor of the child was opened so that each write is flushed.
bool writes_are_flushed(pid_t child, unsigned long long file) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/fdinfo/%llu", static_cast<int>(child), file);
  std::FILE* info = std::fopen(path, "r");
  if (!info) return false;
  unsigned flags = 0;
  const bool known = std::fscanf(info, "pos: %*d flags: %o", &flags) == 1;
  std::fclose(info);
  return known && (flags & O_DSYNC) != 0;
}

bool is_flush(pid_t child, const user_regs_struct& regs) {
  const unsigned long long number = regs.orig_rax;
  return number == SYS_fsync || number == SYS_fdatasync || number == SYS_msync || number == SYS_sync_file_range ||
         (is_write(number) && writes_are_flushed(child, regs.rdi));
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
        if (is_flush(child, regs)) ++counts.flushes;
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
