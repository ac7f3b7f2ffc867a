// What one process of an installation holds: its mapping of the shared control
// file, its tasks, descriptors and mapped memory.
//
// A process is attached from its first task to the end of its last one.  Everything
// here but what is told as atomic is written under `mutex`, and stays as it is while
// a task lives; so a task reads it without the mutex.
#pragma once

#include <locale.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/message_file.h"
#include "common/shared_control.h"

namespace zvrdb::common {

struct Task;

struct Installation {
  char base[CO_PATH_MAX - 64];  // absolute, no separator at its end; leaves room for the names below it
  char folder[64];              // of the shared state
  uid_t owner;
  gid_t group;
  bool group_may_write;  // then members of the group share the state too
  int64_t birth_seconds;
  uint64_t birth_nanoseconds;
};

struct Process {
  std::mutex mutex;
  std::atomic<uint32_t> epoch{1};  // raised in a forked child: tasks of another epoch are the parent's
  uint32_t task_count = 0;
  Task* first_task = nullptr;
  Task* oldest_ended = nullptr;  // blocks of ended tasks, see take_block
  Task* newest_ended = nullptr;
  uint32_t ended_count = 0;
  Installation installation{};
  SharedControl* control = nullptr;
  int folder_fd = -1;
  int query_fd = -1;  // the registry, for questions only: holds no lock
  locale_t locale{};
  bool plain_order = true;  // collation "C"
  bool wide_text = false;   // characters of more than one byte exist
  MessageTable messages{};
};

// Without a constructor or destructor that runs: exit functions and threads may use it from
// the very start to the very end.
extern Process* const process_of_program;
inline Process& process() { return *process_of_program; }

// Attaches on the first task (ORVO_PATH), detaches after the last; both under
// process().mutex.  A reason of failure is left for co_init_error.
bool attach();
void detach();

}  // namespace zvrdb::common
