// The control file of an installation's shared folder: what all its processes
// share besides common areas and segments.
//
// The file "control" is mapped whole by every process.  It appears under its name
// complete: set-up fills a file of another name and renames it (shared_folder).
// Words that are read without a lock are atomics; the rest tells its guard.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "zvrco/zvrco.h"

namespace zvrdb::common {

inline constexpr uint64_t kControlMagic = 0x5A56'5243'4F4E'0002;  // raised with each change of the layout
inline constexpr uint32_t kMaxSemaphores = 32;
inline constexpr uint32_t kSemaphoreNameSize = 32;
inline constexpr uint32_t kMaxSignals = 32;
inline constexpr uint32_t kTaskNameSize = 32;
inline constexpr uint32_t kCollationNameSize = 64;

static_assert(std::atomic<uint32_t>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free);

// One place of the task registry.  The owner of the place writes it while it holds
// the set-up lock; the place is alive while its byte of the file "tasks" is locked.
struct SharedTask {
  std::atomic<uint32_t> incarnation;
  std::atomic<int32_t> process;  // 0: never taken, or given back in order
  char name[kTaskNameSize];
};

// A task over all time: place and incarnation in one word, 0 nobody.
constexpr uint64_t task_identity(uint32_t place, uint32_t incarnation) {
  return (static_cast<uint64_t>(incarnation) << 32) | (place + 1u);
}

struct alignas(128) SharedSemaphore {
  pthread_mutex_t mutex;        // robust, error-checking, process-shared
  std::atomic<uint64_t> owner;  // task_identity of the owner, 0 none; written under mutex
  uint32_t mark;                // "in a transaction"; under mutex
  uint32_t death;               // what dead owners left: 0, 1, 2; under mutex
  uint32_t death_asked;         // the present owner has asked; under mutex
  std::atomic<uint32_t> used;   // 1 once name is whole; set under the set-up lock
  char name[kSemaphoreNameSize];
};

struct SharedControl {
  uint64_t magic;
  uint64_t size;
  int64_t birth_seconds;  // of the base directory: an inode number may come again
  uint64_t birth_nanoseconds;
  char collation[kCollationNameSize];
  std::atomic<uint32_t> trace_word;
  std::atomic<uint32_t> signals[kMaxSignals];
  SharedSemaphore semaphores[kMaxSemaphores];
  SharedTask tasks[CO_MAX_TASKS];
};

}  // namespace zvrdb::common
