#include <sys/mman.h>

#include "common/zeroed_pages.h"

namespace zvrdb::common {

void* map_zeroed_pages(size_t size) {
  void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return address == MAP_FAILED ? nullptr : address;
}

void unmap_pages(void* address, size_t size) {
  munmap(address, size);
}

}  // namespace zvrdb::common
