#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/bounded_text.h"
#include "common/init_error.h"
#include "common/open_lock.h"
#include "common/shared_folder.h"
#include "common/task_block.h"
#include "common/task_registry.h"

namespace zvrdb::common {

bool place_locked(int registry_fd, uint32_t place) {
  return range_locked(registry_fd, static_cast<off_t>(place), 1);
}

void describe_place(const SharedControl* control, uint32_t place, co_task_info* out) {
  const SharedTask& entry = control->tasks[place];
  out->place = place;
  out->incarnation = entry.incarnation.load();
  out->process = entry.process.load();
  copy_text(out->name, sizeof out->name, entry.name);
}

bool take_place(const Installation& installation, int folder_fd, SharedControl* control, Task* task) {
  const int fd = open_shared_file(installation, folder_fd, kRegistryName, O_RDWR | O_CREAT);
  if (fd < 0)
    return init_error("%s/%s cannot be opened: %s", installation.folder, kRegistryName, strerror(errno));
  for (uint32_t place = 0; place < CO_MAX_TASKS; ++place) {
    if (place_locked(fd, place)) continue;
    SharedTask& entry = control->tasks[place];
    // The incarnation rises before the lock is held: who sees the place locked sees
    // the new incarnation too, and never takes us for the dead one before us.
    uint32_t incarnation = entry.incarnation.load() + 1;
    if (incarnation == 0) incarnation = 1;
    entry.incarnation.store(incarnation);
    entry.process.store(getpid());
    copy_text(entry.name, sizeof entry.name, task->name);
    if (!lock_range(fd, F_WRLCK, static_cast<off_t>(place), 1, false)) continue;
    task->place = place;
    task->incarnation = incarnation;
    task->registry_fd = fd;
    return true;
  }
  close(fd);
  return init_error("all %u places for tasks of the installation are taken", CO_MAX_TASKS);
}

void give_place_back(SharedControl* control, Task* task) {
  control->tasks[task->place].process.store(0);
  close(task->registry_fd);
  task->registry_fd = -1;
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

uint32_t co_task_place(void* handle) {
  const Task* task = task_of(handle);
  return task == nullptr ? CO_MAX_TASKS : task->place;
}

uint32_t co_task_incarnation(void* handle) {
  const Task* task = task_of(handle);
  return task == nullptr ? 0 : task->incarnation;
}

int co_task_alive(void* handle, uint32_t place, uint32_t incarnation) {
  const Task* task = task_of(handle);
  if (task == nullptr || place >= CO_MAX_TASKS || incarnation == 0) return 0;
  if (task->place == place && task->incarnation == incarnation) return 1;
  const Process& here = process();
  if (here.control->tasks[place].incarnation.load() != incarnation) return 0;
  // Asked after the incarnation was read: a later holder of the place has raised it.
  if (!place_locked(here.query_fd, place)) return 0;
  return here.control->tasks[place].incarnation.load() == incarnation ? 1 : 0;
}

uint32_t co_live_tasks(void* handle, co_task_info* out, uint32_t max) {
  if (task_of(handle) == nullptr) return 0;
  const Process& here = process();
  uint32_t count = 0;
  for (uint32_t place = 0; place < CO_MAX_TASKS; ++place) {
    if (here.control->tasks[place].process.load() == 0 || !place_locked(here.query_fd, place)) continue;
    if (out != nullptr && count < max) describe_place(here.control, place, &out[count]);
    ++count;
  }
  return count;
}
