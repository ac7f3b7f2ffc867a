#include <pthread.h>
#include <unistd.h>
#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

#include <cerrno>
#include <cstring>
#include <ctime>

#include "common/bounded_text.h"
#include "common/process_end.h"
#include "common/semaphores.h"
#include "common/shared_folder.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

// The semaphore of a handle (index + 1), or null.
SharedSemaphore* semaphore_of(uint32_t handle) {
  SharedControl* control = process().control;
  if (control == nullptr || handle == 0 || handle > kMaxSemaphores) return nullptr;
  SharedSemaphore& semaphore = control->semaphores[handle - 1];
  return semaphore.used.load(std::memory_order_acquire) != 0 ? &semaphore : nullptr;
}

bool owns(const Task& task, const SharedSemaphore& semaphore) {
  // Only this task ever stores its identity, so a stale word cannot equal it.
  return semaphore.owner.load(std::memory_order_relaxed) == identity_of(task);
}

// The system hands the semaphore of a dying process on before it closes what the
// process had open.  Until then its byte locks stand and make it look alive.
void await_end_of_owner(uint64_t identity) {
  const auto place = static_cast<uint32_t>(identity) - 1u;
  const auto incarnation = static_cast<uint32_t>(identity >> 32);
  if (identity == 0 || place >= CO_MAX_TASKS) return;
  const SharedTask& entry = process().control->tasks[place];
  if (entry.incarnation.load() == incarnation) await_process_end(entry.process.load());
}

uint16_t after_lock(const Task& task, SharedSemaphore* semaphore, int result) {
  if (result == EOWNERDEAD) {
    await_end_of_owner(semaphore->owner.load(std::memory_order_relaxed));
    const uint32_t death = semaphore->mark != 0 ? 2 : 1;
    if (semaphore->death < death) semaphore->death = death;
    semaphore->death_asked = 0;
    semaphore->mark = 0;
    result = pthread_mutex_consistent(&semaphore->mutex);
  }
  if (result != 0) {
    errno = result;
    return CO_FAILURE;
  }
  semaphore->owner.store(identity_of(task), std::memory_order_relaxed);
  return CO_OK;
}

// A release wakes one waiter.  If that one is killed before it has the mutex, the system wakes
// another in its place, but not when somebody took the mutex afresh meanwhile; and that one
// knows of no waiters and wakes none.  So who waits looks again by itself now and then.
constexpr long look_again_ns = 100 * 1000 * 1000;

// The thread sanitizer knows nothing of pthread_mutex_clocklock.
void tell_of_lock([[maybe_unused]] pthread_mutex_t* mutex) {
#ifdef __SANITIZE_THREAD__
  __tsan_mutex_pre_lock(mutex, __tsan_mutex_try_lock);
  __tsan_mutex_post_lock(mutex, __tsan_mutex_try_lock, 0);
#endif
}

int lock_for_certain(pthread_mutex_t* mutex) {
  int result = pthread_mutex_trylock(mutex);
  while (result == EBUSY || result == ETIMEDOUT) {
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_nsec += look_again_ns;
    if (until.tv_nsec >= 1000000000) {
      until.tv_nsec -= 1000000000;
      ++until.tv_sec;
    }
    result = pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &until);
    if (result == 0 || result == EOWNERDEAD) tell_of_lock(mutex);
  }
  return result;
}

uint16_t release(SharedSemaphore* semaphore) {
  if (semaphore->death_asked != 0) {
    semaphore->death = 0;
    semaphore->death_asked = 0;
  }
  const uint64_t owner = semaphore->owner.load(std::memory_order_relaxed);
  semaphore->owner.store(0, std::memory_order_relaxed);
  const int result = pthread_mutex_unlock(&semaphore->mutex);
  if (result == 0) return CO_OK;
  // Another thread than the one that locked it: it stays that one's.
  semaphore->owner.store(owner, std::memory_order_relaxed);
  errno = result;
  return CO_FAILURE;
}

}  // namespace

void release_semaphores_of(Task* task) {
  for (uint32_t handle = 1; handle <= kMaxSemaphores; ++handle) {
    SharedSemaphore* semaphore = semaphore_of(handle);
    if (semaphore != nullptr && owns(*task, *semaphore)) release(semaphore);
  }
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_open_sema4(void* handle, const char* name, uint32_t* out, uint32_t zero, uint32_t one) {
  (void)zero;
  (void)one;
  if (task_of(handle) == nullptr || name == nullptr || out == nullptr) return CO_BAD_ARGUMENT;
  *out = 0;
  const size_t length = strnlen(name, kSemaphoreNameSize);
  if (length == 0 || length == kSemaphoreNameSize) return CO_BAD_ARGUMENT;
  Process& here = process();
  std::lock_guard<std::mutex> guard(here.mutex);  // see take_setup_lock
  bool gone = false;
  const int setup = take_setup_lock(here.installation, here.folder_fd, &gone);
  if (setup < 0) return CO_FAILURE;
  uint16_t result = CO_NO_MEMORY;
  for (uint32_t index = 0; index < kMaxSemaphores; ++index) {
    SharedSemaphore& semaphore = here.control->semaphores[index];
    if (semaphore.used.load() == 0) {
      copy_text(semaphore.name, sizeof semaphore.name, name);
      semaphore.used.store(1, std::memory_order_release);
    } else if (strncmp(semaphore.name, name, sizeof semaphore.name) != 0) {
      continue;
    }
    *out = index + 1;
    result = CO_OK;
    break;
  }
  close(setup);
  return result;
}

uint16_t co_req_sema4(void* handle, uint32_t semaphore_handle, uint32_t zero) {
  (void)zero;
  const Task* task = task_of(handle);
  SharedSemaphore* semaphore = semaphore_of(semaphore_handle);
  if (task == nullptr || semaphore == nullptr) return CO_BAD_ARGUMENT;
  if (owns(*task, *semaphore)) return CO_OK;
  return after_lock(*task, semaphore, lock_for_certain(&semaphore->mutex));
}

int co_try_sema4(void* handle, uint32_t semaphore_handle) {
  const Task* task = task_of(handle);
  SharedSemaphore* semaphore = semaphore_of(semaphore_handle);
  if (task == nullptr || semaphore == nullptr) return 0;
  if (owns(*task, *semaphore)) return 1;
  return after_lock(*task, semaphore, pthread_mutex_trylock(&semaphore->mutex)) == CO_OK ? 1 : 0;
}

uint16_t co_clear_sema4(void* handle, uint32_t semaphore_handle) {
  const Task* task = task_of(handle);
  SharedSemaphore* semaphore = semaphore_of(semaphore_handle);
  if (task == nullptr || semaphore == nullptr) return CO_BAD_ARGUMENT;
  return owns(*task, *semaphore) ? release(semaphore) : static_cast<uint16_t>(CO_OK);
}

uint16_t co_lock_sema4(void* handle, uint32_t semaphore_handle) {
  const Task* task = task_of(handle);
  const SharedSemaphore* semaphore = semaphore_of(semaphore_handle);
  return task != nullptr && semaphore != nullptr && owns(*task, *semaphore) ? 1 : 0;
}

void co_mark_sema4(void* handle, uint32_t semaphore_handle, uint32_t mark) {
  const Task* task = task_of(handle);
  SharedSemaphore* semaphore = semaphore_of(semaphore_handle);
  if (task != nullptr && semaphore != nullptr && owns(*task, *semaphore)) semaphore->mark = mark != 0 ? 1 : 0;
}

uint32_t co_sema4_death(void* handle, uint32_t semaphore_handle) {
  const Task* task = task_of(handle);
  SharedSemaphore* semaphore = semaphore_of(semaphore_handle);
  if (task == nullptr || semaphore == nullptr || !owns(*task, *semaphore) || semaphore->death_asked != 0)
    return 0;
  semaphore->death_asked = semaphore->death != 0 ? 1 : 0;
  return semaphore->death;
}
