#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "common/clock.h"
#include "common/collation.h"
#include "common/common_areas.h"
#include "common/console_events.h"
#include "common/handle_table.h"
#include "common/init_error.h"
#include "common/log_files.h"
#include "common/process.h"
#include "common/segments.h"
#include "common/shared_folder.h"
#include "common/task_block.h"
#include "common/task_registry.h"
#include "common/trace_state.h"

namespace zvrdb::common {
namespace {

void close_if_open(int* fd) {
  if (*fd >= 0) close(*fd);
  *fd = -1;
}

void before_fork() {
  process().mutex.lock();
  lock_log_files();
  lock_clock();
}

void after_fork_in_parent() {
  unlock_clock();
  unlock_log_files();
  process().mutex.unlock();
}

// The child is no task of the installation.  It drops its copies of descriptors
// and its mappings, which unlocks nothing of the parent's; it never runs exit
// functions of the parent's tasks.
void after_fork_in_child() {
  Process& here = process();
  here.epoch.fetch_add(1);
  for (Task* task = here.first_task; task != nullptr; task = task->next) close_if_open(&task->registry_fd);
  here.first_task = nullptr;
  here.task_count = 0;
  trace_by_private_word();
  if (here.control != nullptr) munmap(here.control, sizeof(SharedControl));
  here.control = nullptr;
  close_if_open(&here.folder_fd);
  close_if_open(&here.query_fd);
  close_collation();
  free_messages(&here.messages);
  forget_segments_of_parent();
  release_areas();
  forget_log_files();
  forget_held_events();
  close_directories_of_parent();
  unlock_clock();
  unlock_log_files();
  here.mutex.unlock();
}

// At exit(): tasks of the exiting thread end in order; those of other threads may
// be anywhere in a call, and go as a killed one would.
void end_tasks_at_exit() {
  const pid_t thread = gettid();
  for (;;) {
    Task* found = nullptr;
    {
      std::lock_guard<std::mutex> guard(process().mutex);
      for (Task* task = process().first_task; task != nullptr && found == nullptr; task = task->next)
        if (task->thread == thread) found = task;
    }
    if (found == nullptr) return;
    end_task(found, 1);
  }
}

void install_process_hooks() {
  static bool installed = false;  // under process().mutex
  if (installed) return;
  installed = true;
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
  atexit(end_tasks_at_exit);
}

}  // namespace

namespace {
constinit Process the_process;
static_assert(std::is_trivially_destructible_v<Process>);
}  // namespace
constinit Process* const process_of_program = &the_process;

bool attach() {
  Process& here = process();
  install_process_hooks();
  if (!describe_installation(nullptr, &here.installation)) return false;
  for (;;) {
    here.folder_fd = open_shared_folder(here.installation, true);
    if (here.folder_fd < 0) return false;
    bool gone = false;
    const int setup = take_setup_lock(here.installation, here.folder_fd, &gone);
    if (setup >= 0) {
      here.control = map_or_make_control(here.installation, here.folder_fd);
      if (here.control != nullptr)
        here.query_fd = open_shared_file(here.installation, here.folder_fd, kRegistryName, O_RDWR | O_CREAT);
      close(setup);
      break;
    }
    close_if_open(&here.folder_fd);
    if (!gone) return false;
  }
  if (here.control == nullptr || here.query_fd < 0 || !open_collation(here.control->collation)) {
    if (here.control != nullptr && here.query_fd < 0)
      init_error("the task registry of %s cannot be opened: %s", here.installation.folder, strerror(errno));
    detach();
    return false;
  }
  load_messages(here.installation.base, &here.messages);
  trace_by_environment_or_shared_word();
  return true;
}

void detach() {
  Process& here = process();
  trace_by_private_word();
  release_all_segments();
  release_areas();
  close_log_files();
  free_messages(&here.messages);
  close_collation();
  if (here.control != nullptr) munmap(here.control, sizeof(SharedControl));
  here.control = nullptr;
  close_if_open(&here.query_fd);
  close_if_open(&here.folder_fd);
}

}  // namespace zvrdb::common
