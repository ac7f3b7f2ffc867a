// Private memory of tasks: freed by its task, at the latest when that ends.
#pragma once

#include <cstdint>

namespace zvrdb::common {

struct Task;

// A zero-filled block; null when memory is exhausted or the test seam says so.
void* allocate_private(Task* task, uint32_t size);
void free_private(Task* task, void* address);
void free_private_memory(Task* task);
// True when the allocation in hand is the one that shall fail.
bool allocation_fails_by_test();

}  // namespace zvrdb::common
