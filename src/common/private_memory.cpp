#include "common/private_memory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/segments.h"
#include "common/task_block.h"
#include "common/zeroed_pages.h"

namespace zvrdb::common {

// Stands before the bytes that the caller gets.
struct alignas(std::max_align_t) MemoryBlock {
  MemoryBlock* next;
  MemoryBlock* previous;
  Task* owner;
  size_t mapped;  // bytes of pages of its own, 0 for a block of the heap
};

namespace {

// Work areas of this size are asked for and given back in one call, most of them never
// touched: the heap would clear all of them each time.  The address sanitizer watches the
// heap only, so there everything stays on it.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t least_mapped = SIZE_MAX;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr size_t least_mapped = SIZE_MAX;
#else
constexpr size_t least_mapped = 128 * 1024;
#endif
#else
constexpr size_t least_mapped = 128 * 1024;
#endif

MemoryBlock* make_block(size_t size) {
  if (size < least_mapped) return static_cast<MemoryBlock*>(calloc(1, size));
  auto* block = static_cast<MemoryBlock*>(map_zeroed_pages(size));
  if (block != nullptr) block->mapped = size;
  return block;
}

void give_back(MemoryBlock* block) {
  if (block->mapped != 0)
    unmap_pages(block, block->mapped);
  else
    free(block);
}

std::atomic<int32_t> allocations_until_failure{-1};

}  // namespace

bool allocation_fails_by_test() {
  int32_t left = allocations_until_failure.load(std::memory_order_relaxed);
  while (left >= 0) {
    if (allocations_until_failure.compare_exchange_weak(left, left - 1)) return left == 0;
  }
  return false;
}

void* allocate_private(Task* task, uint32_t size) {
  if (allocation_fails_by_test()) return nullptr;
  MemoryBlock* block = make_block(sizeof(MemoryBlock) + size);
  if (block == nullptr) return nullptr;
  block->owner = task;
  block->next = task->blocks;
  if (task->blocks != nullptr) task->blocks->previous = block;
  task->blocks = block;
  return block + 1;
}

void free_private(Task* task, void* address) {
  MemoryBlock* block = static_cast<MemoryBlock*>(address) - 1;
  if (block->owner != task) return;
  if (block->previous != nullptr)
    block->previous->next = block->next;
  else
    task->blocks = block->next;
  if (block->next != nullptr) block->next->previous = block->previous;
  give_back(block);
}

void free_private_memory(Task* task) {
  while (MemoryBlock* block = task->blocks) {
    task->blocks = block->next;
    give_back(block);
  }
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

void* co_malloc(void* handle, uint32_t size, uint32_t kind, const char* tag) {
  Task* task = task_of(handle);
  if (task == nullptr) return nullptr;
  if (kind == CO_MEM_PRIVATE) return allocate_private(task, size);
  if (kind != CO_MEM_SHARED || tag == nullptr || size == 0) return nullptr;
  return allocation_fails_by_test() ? nullptr : attach_or_make_segment(task, tag, size);
}

void co_free_int(void* handle, void* address, const char* caller) {
  (void)caller;  // for a trace of leaks; blocks left over go with their task
  Task* task = task_of(handle);
  if (task == nullptr || address == nullptr) return;
  if (!drop_segment_reference(task, address)) free_private(task, address);
}

void co_test_fail_malloc(int32_t n) {
  allocations_until_failure.store(n < 0 ? -1 : n);
}
