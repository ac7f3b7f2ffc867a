// Making and ending tasks.
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/bounded_text.h"
#include "common/console_events.h"
#include "common/init_error.h"
#include "common/private_memory.h"
#include "common/segments.h"
#include "common/semaphores.h"
#include "common/shared_folder.h"
#include "common/task_block.h"
#include "common/task_registry.h"

namespace zvrdb::common {
namespace {

// Takes a place in the registry.  The shared folder may be dropped between finding
// it and locking it, as long as no task holds it: then it is made again.
bool enter_installation(Task* task) {
  Process& here = process();
  for (;;) {
    if (here.control == nullptr && !attach()) return false;
    bool gone = false;
    const int setup = take_setup_lock(here.installation, here.folder_fd, &gone);
    if (setup >= 0) {
      const bool entered = take_place(here.installation, here.folder_fd, here.control, task);
      close(setup);
      return entered;
    }
    if (!gone) return false;
    if (here.task_count != 0)
      return init_error("the shared state %s was removed under living tasks", here.installation.folder);
    detach();
  }
}

bool same_installation() {
  Process& here = process();
  if (here.task_count == 0) return true;
  Installation wanted;
  if (!describe_installation(nullptr, &wanted)) return false;
  if (strcmp(wanted.folder, here.installation.folder) == 0) return true;
  return init_error("this process has tasks of the installation %s and can have none of %s",
                    here.installation.base, wanted.base);
}

// The block of an ended task stays memory of ours for a while, so that its handle can
// still be told from a live one.
constexpr uint32_t kEndedBlocks = 64;

// A zeroed block; under process().mutex.
Task* take_block() {
  Process& here = process();
  if (here.ended_count < kEndedBlocks) return static_cast<Task*>(calloc(1, sizeof(Task)));
  Task* task = here.oldest_ended;
  here.oldest_ended = task->next;
  --here.ended_count;
  *task = Task{};
  return task;
}

void keep_ended_block(Task* task) {
  Process& here = process();
  task->magic = 0;
  task->next = nullptr;
  (here.ended_count == 0 ? here.oldest_ended : here.newest_ended->next) = task;
  here.newest_ended = task;
  ++here.ended_count;
}

void run_exit_functions(Task* task, uint32_t reason) {
  while (task->exit_count > 0) {
    const co_exit_fn function = task->exit_functions[--task->exit_count];
    function(task, reason);
  }
}

void unlink_task(Task* task) {
  Process& here = process();
  for (Task** link = &here.first_task; *link != nullptr; link = &(*link)->next) {
    if (*link != task) continue;
    *link = task->next;
    --here.task_count;
    return;
  }
}

}  // namespace

void end_task(Task* task, uint32_t reason) {
  task->ending = 1;
  run_exit_functions(task, reason);
  release_semaphores_of(task);
  while (task->held_events > 0) co_release_events(task);
  free_private_memory(task);
  Process& here = process();
  std::lock_guard<std::mutex> guard(here.mutex);
  release_segments_of(task);
  unlink_task(task);
  give_place_back(here.control, task);
  if (here.task_count == 0) detach();
  keep_ended_block(task);
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

void* co_init_task(const char* name, co_task_entry entry, uint32_t flag) {
  (void)entry;  // the caller runs it; kept in the interface for the task shell
  clear_init_error();
  Process& here = process();
  std::lock_guard<std::mutex> guard(here.mutex);
  Task* task = take_block();
  if (task == nullptr) {
    init_error("no memory for a task");
    return nullptr;
  }
  task->magic = kTaskMagic;
  task->is_main = flag;
  task->thread = gettid();
  task->registry_fd = -1;
  copy_text(task->name, sizeof task->name, name == nullptr ? "" : name);
  task->epoch = here.epoch.load();
  if (!same_installation() || !enter_installation(task)) {
    if (here.task_count == 0 && here.control != nullptr) detach();
    free(task);
    return nullptr;
  }
  task->next = here.first_task;
  here.first_task = task;
  ++here.task_count;
  return task;
}

void coi_term_task(void* handle, uint32_t reason) {
  Task* task = task_of(handle);
  if (task == nullptr || task->ending != 0) return;
  end_task(task, reason);
}

co_task_slots* co_slots(void* handle) {
  Task* task = task_of(handle);
  return task == nullptr ? nullptr : &task->slots;
}

uint16_t co_reg_exit(void* handle, co_exit_fn function) {
  Task* task = task_of(handle);
  if (task == nullptr || function == nullptr) return CO_BAD_ARGUMENT;
  for (uint32_t i = 0; i < task->exit_count; ++i)
    if (task->exit_functions[i] == function) return CO_OK;
  if (task->exit_count == kMaxExitFunctions) return CO_NO_MEMORY;
  task->exit_functions[task->exit_count++] = function;
  return CO_OK;
}

uint16_t co_reg_version(void* handle, uint32_t component, const char* date, const char* time) {
  Task* task = task_of(handle);
  if (task == nullptr || date == nullptr || time == nullptr) return CO_BAD_ARGUMENT;
  uint32_t row = 0;
  while (row < task->version_count && task->versions[row].component != component) ++row;
  if (row == kMaxVersions) return CO_NO_MEMORY;
  if (row == task->version_count) ++task->version_count;
  ComponentVersion& version = task->versions[row];
  version.component = component;
  copy_text(version.date, sizeof version.date, date);
  copy_text(version.time, sizeof version.time, time);
  return CO_OK;
}

uint16_t co_version(void* handle, uint32_t component, const char** date, const char** time) {
  const Task* task = task_of(handle);
  if (task == nullptr || date == nullptr || time == nullptr) return CO_BAD_ARGUMENT;
  for (uint32_t row = 0; row < task->version_count; ++row) {
    if (task->versions[row].component != component) continue;
    *date = task->versions[row].date;
    *time = task->versions[row].time;
    return CO_OK;
  }
  return CO_NOT_FOUND;
}

uint16_t co_get_signal(void* handle, uint32_t number, uint32_t* value) {
  if (task_of(handle) == nullptr || value == nullptr || number >= kMaxSignals) return CO_BAD_ARGUMENT;
  *value = process().control->signals[number].load();
  return CO_OK;
}

uint16_t co_set_signal(void* handle, uint32_t number, uint32_t value) {
  if (task_of(handle) == nullptr || number >= kMaxSignals) return CO_BAD_ARGUMENT;
  process().control->signals[number].store(value);
  return CO_OK;
}
