// How many instructions a piece of work takes, counted one by one: the same figure on a busy
// machine and on an idle one, and no counter of the processor is needed.
#pragma once

#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZVR_COUNTED_BUILD 0
#elif defined(__OPTIMIZE__) && defined(__x86_64__)
#define ZVR_COUNTED_BUILD 1
#else
#define ZVR_COUNTED_BUILD 0
#endif

namespace zvrtest {

struct InstructionCount {
  long count = -1;  // -1: not known
  std::string why_not;
};

// Parent and child take turns at each step, which goes a hundred times faster on one processor.
class OnOneProcessor {
 public:
  OnOneProcessor() {
    known_ = sched_getaffinity(0, sizeof before_, &before_) == 0;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    if (known_) sched_setaffinity(0, sizeof one, &one);
  }
  ~OnOneProcessor() {
    if (known_) sched_setaffinity(0, sizeof before_, &before_);
  }
  OnOneProcessor(const OnOneProcessor&) = delete;
  OnOneProcessor& operator=(const OnOneProcessor&) = delete;

 private:
  bool known_;
  cpu_set_t before_;
};

// In a child process: `prepare` makes ready and answers the work, whose instructions are
// counted.  Only those of the program and its libraries are; a system call is one.
inline InstructionCount count_instructions(const std::function<std::function<void()>()>& prepare) {
#if !ZVR_COUNTED_BUILD
  (void)prepare;
  return {-1, "counted in an optimized build for x86-64 without sanitizers"};
#else
  constexpr int not_traced = 97;
  const OnOneProcessor pinned;
  const pid_t child = fork();
  if (child < 0) return {-1, "no child process"};
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(not_traced);
    const std::function<void()> work = prepare();
    asm volatile("int3" ::: "memory");
    work();
    asm volatile("int3" ::: "memory");
    _exit(0);
  }
  const auto resume = [child](auto how, int* status) {
    return ptrace(how, child, nullptr, nullptr) == 0 && waitpid(child, status, 0) == child;
  };
  // An int3 of its own, not the trap behind a single step.
  const auto at_mark = [child](int status) {
    siginfo_t info{};
    return WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP &&
           ptrace(PTRACE_GETSIGINFO, child, nullptr, &info) == 0 && info.si_code == SI_KERNEL;
  };
  int status = 0;
  if (waitpid(child, &status, 0) != child) return {-1, "the child was lost"};
  if (WIFEXITED(status) && WEXITSTATUS(status) == not_traced) return {-1, "tracing is not permitted"};
  InstructionCount found;
  if (at_mark(status)) {
    found.count = 0;
    while (resume(PTRACE_SINGLESTEP, &status) && WIFSTOPPED(status) && !at_mark(status)) ++found.count;
    if (!at_mark(status)) found = {-1, "the work did not come to its end"};
  } else {
    found.why_not = "the work was not begun";
  }
  if (WIFSTOPPED(status)) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  return found;
#endif
}

}  // namespace zvrtest
