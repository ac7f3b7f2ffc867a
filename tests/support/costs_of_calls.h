// What a call costs the process: its allocations counted, its system calls forbidden.
// For a program of its own, and for one source of it: the allocator is replaced.
#pragma once

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZVR_SANITIZED 1
#else
#define ZVR_SANITIZED 0
#endif

#if !ZVR_SANITIZED
// Counts what this process allocates, the library's share included.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
}
namespace {
volatile unsigned long allocations = 0;
}
extern "C" {
void* malloc(std::size_t size) {
  allocations = allocations + 1;
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  allocations = allocations + 1;
  return __libc_calloc(count, size);
}
void* realloc(void* old, std::size_t size) {
  allocations = allocations + 1;
  return __libc_realloc(old, size);
}
}
#endif

namespace zvrtest {

// From here on any system call but the end of the process is its death.
inline bool forbid_system_calls() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
  };
  sock_fprog filter{sizeof program / sizeof program[0], program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// The work of a child process: `first`, and then `rest` without system calls.  Both answer true
// when they were done.  The process ends with 0, with 3 where the rest was not done, with 1 or 2
// where it did not come to that; or it is killed.
template <class First, class Rest>
int then_without_system_calls(First first, Rest rest) {
  if (!first()) return 1;
  if (!forbid_system_calls()) return 2;
  syscall(SYS_exit_group, rest() ? 0 : 3);
  return 4;
}

template <class Calls>
bool a_thousand_times(Calls calls) {
  for (int i = 0; i < 1000; ++i)
    if (!calls()) return false;
  return true;
}

#if !ZVR_SANITIZED
// The calls, which answer true when they were done, allocate nothing behind their first time.
template <class Calls>
void expect_no_allocation(Calls calls) {
  ASSERT_TRUE(calls());
  const unsigned long before = allocations;
  const std::size_t in_use = mallinfo2().uordblks;
  ASSERT_TRUE(a_thousand_times(calls));
  EXPECT_EQ(allocations, before);
  EXPECT_EQ(mallinfo2().uordblks, in_use);
}
#endif

}  // namespace zvrtest
