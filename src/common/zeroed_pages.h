// Zero-filled memory in whole pages, straight from the system: a page costs nothing until
// it is touched, and none is cleared by hand.
#pragma once

#include <cstddef>

namespace zvrdb::common {

// Null when there is none.
void* map_zeroed_pages(size_t size);
void unmap_pages(void* address, size_t size);

}  // namespace zvrdb::common
