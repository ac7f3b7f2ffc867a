#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>

#include "engine/mapped_pages.h"

namespace zvrdb::engine {
namespace {

struct view {
  std::atomic<std::uintptr_t> at{0};   // 0: free
  std::atomic<std::size_t> length{0};
};
// Looked through by the handler: nothing but lock-free atomics, and what was written before it
// was installed.  Two for each file of a process.
std::array<view, 256> views;
unsigned views_used = 0;
struct sigaction program_action;
static_assert(std::atomic<std::uintptr_t>::is_always_lock_free);

// Whether what another machine writes shows in a mapping at all is not sure there.
bool is_remote(int file) {
  constexpr unsigned long remote[] = {0x6969, 0x517B, 0xFE534D42, 0xFF534D42, 0x65735546, 0x01021997, 0x5346414F,
                                      0x00C36400};   // NFS, SMB, SMB2, CIFS, FUSE, 9P, AFS, Ceph
  struct statfs st;
  if (fstatfs(file, &st) != 0) return true;
  for (const unsigned long kind : remote)
    if (static_cast<unsigned long>(st.f_type) == kind) return true;
  return false;
}

bool turn_to_zeros(std::uintptr_t address) {
  for (const view& v : views) {
    const std::uintptr_t at = v.at.load();
    const std::size_t length = v.length.load();
    if (at == 0 || address < at || address - at >= length) continue;
    return mmap(reinterpret_cast<void*>(at), length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
           MAP_FAILED;
  }
  return false;
}

void on_fault(int number, siginfo_t* info, void* context) {
  const int kept_errno = errno;
  const bool mended = turn_to_zeros(reinterpret_cast<std::uintptr_t>(info->si_addr));
  errno = kept_errno;
  if (mended) return;
  if ((program_action.sa_flags & SA_SIGINFO) != 0) {
    program_action.sa_sigaction(number, info, context);
  } else if (program_action.sa_handler != SIG_DFL && program_action.sa_handler != SIG_IGN) {
    program_action.sa_handler(number);
  } else {
    // The instruction faults again, and that ends the process.
    signal(number, SIG_DFL);
  }
}

void install_handler() {
  if (sigaction(SIGBUS, nullptr, &program_action) != 0) return;
  struct sigaction own {};
  own.sa_sigaction = on_fault;
  own.sa_mask = program_action.sa_mask;
  own.sa_flags = SA_SIGINFO | (program_action.sa_flags & SA_ONSTACK);
  sigaction(SIGBUS, &own, nullptr);
}

// A handler that came after ours stays, and knows ours.
void remove_handler() {
  struct sigaction now {};
  if (sigaction(SIGBUS, nullptr, &now) != 0) return;
  if ((now.sa_flags & SA_SIGINFO) != 0 && now.sa_sigaction == on_fault) sigaction(SIGBUS, &program_action, nullptr);
}

view* free_view() {
  for (view& v : views)
    if (v.at.load() == 0) return &v;
  return nullptr;
}

}  // namespace

const void* map_pages(int file, std::size_t n) {
  struct stat st;
  if (is_remote(file) || fstat(file, &st) != 0 || static_cast<std::uint64_t>(st.st_size) < n) return nullptr;
  view* v = free_view();
  if (v == nullptr) return nullptr;
  const void* mapped = mmap(nullptr, n, PROT_READ, MAP_SHARED, file, 0);
  if (mapped == MAP_FAILED) return nullptr;
  if (views_used++ == 0) install_handler();
  v->length.store(n);
  v->at.store(reinterpret_cast<std::uintptr_t>(mapped));
  return mapped;
}

void unmap_pages(const void* mapped, std::size_t n) {
  for (view& v : views)
    if (v.at.load() == reinterpret_cast<std::uintptr_t>(mapped)) {
      v.at.store(0);
      if (--views_used == 0) remove_handler();
    }
  munmap(const_cast<void*>(mapped), n);
}

}  // namespace zvrdb::engine
