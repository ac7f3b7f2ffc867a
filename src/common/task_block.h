// The task block behind the opaque handle.
#pragma once

#include <cstdint>

#include "common/process.h"

namespace zvrdb::common {

inline constexpr uint32_t kTaskMagic = 0x5A54534B;
inline constexpr uint32_t kMaxExitFunctions = 16;
inline constexpr uint32_t kMaxVersions = 16;

struct MemoryBlock;

struct ComponentVersion {
  uint32_t component;
  char date[20];
  char time[20];
};

struct Task {
  co_task_slots slots;  // first: the address of the handle is theirs
  uint32_t magic;
  uint32_t epoch;
  uint32_t place;
  uint32_t incarnation;
  uint32_t is_main;
  uint32_t held_events;  // co_hold_events not yet released
  uint32_t ending;       // its exit functions run or have run
  pid_t thread;
  int registry_fd;  // its open file description holds the byte lock of the place
  char name[kTaskNameSize];
  co_exit_fn exit_functions[kMaxExitFunctions];
  uint32_t exit_count;
  ComponentVersion versions[kMaxVersions];
  uint32_t version_count;
  MemoryBlock* blocks;  // private memory, freed with the task
  Task* next;           // live, or ended after it
};

// The block of a live task of this process; null for null, for an ended handle, for a
// handle of the parent in a forked child.
inline Task* task_of(void* handle) {
  Task* task = static_cast<Task*>(handle);
  if (task == nullptr || task->magic != kTaskMagic) return nullptr;
  return task->epoch == process().epoch.load(std::memory_order_relaxed) ? task : nullptr;
}

// Ends a task as coi_term_task does, or goes on with an end that exit() broke off.
void end_task(Task* task, uint32_t reason);

inline uint64_t identity_of(const Task& task) {
  return task_identity(task.place, task.incarnation);
}

}  // namespace zvrdb::common
