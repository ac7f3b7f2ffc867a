#include "torture/torture_model.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <new>

namespace torture {

Shared* make_shared_model() {
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return new (memory) Shared{};
}

void release(Shared* shared) {
  munmap(shared, sizeof *shared);
}

void report_failure(Shared* shared, unsigned worker, const std::string& what) {
  std::uint32_t none = 0;
  if (shared->failed.compare_exchange_strong(none, 1)) {
    std::snprintf(shared->failure, sizeof shared->failure, "worker %u: %s", worker, what.c_str());
    shared->failed = 2;
  }
  shared->stop = 1;
}

}  // namespace torture
