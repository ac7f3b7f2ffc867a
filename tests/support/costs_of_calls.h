// What a call costs the process: its allocations counted, its system calls forbidden.
// For a program of its own, and for one source of it: the allocator is replaced.
#pragma once

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

}  // namespace zvrtest
