#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "common/console_events.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr int kEvents[] = {SIGINT, SIGQUIT, SIGHUP};
constexpr uint32_t kEventCount = 3;

// Shared with the signal handler, so nothing but lock-free atomics and what was
// written before the handler was installed.
std::atomic<uint32_t> calls_inside{0};
std::atomic<uint32_t> events_pending{0};  // bit i: kEvents[i]
struct sigaction program_action[kEventCount];
std::atomic<int> guard_state{0};  // 0 none, 1 being installed, 2 installed

uint32_t index_of(int number) {
  for (uint32_t i = 0; i < kEventCount; ++i)
    if (kEvents[i] == number) return i;
  return kEventCount;
}

// The event goes the way the program had chosen before the guard came.
void pass_on(int number, siginfo_t* info, void* context) {
  const struct sigaction& action = program_action[index_of(number)];
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    action.sa_sigaction(number, info, context);
  } else if (action.sa_handler == SIG_DFL) {
    // Held by the mask of this handler until it returns; then it ends the process.
    signal(number, SIG_DFL);
    raise(number);
  } else if (action.sa_handler != SIG_IGN) {
    action.sa_handler(number);
  }
}

void deliver_pending() {
  const uint32_t events = events_pending.exchange(0);
  for (uint32_t i = 0; i < kEventCount; ++i)
    if ((events & (1u << i)) != 0) raise(kEvents[i]);
}

void on_event(int number, siginfo_t* info, void* context) {
  const int kept_errno = errno;
  if (calls_inside.load() == 0) {
    pass_on(number, info, context);
  } else {
    const uint32_t bit = 1u << index_of(number);
    events_pending.fetch_or(bit);
    // The last call may have ended between the two looks and seen nothing pending.
    if (calls_inside.load() == 0 && (events_pending.fetch_and(~bit) & bit) != 0)
      pass_on(number, info, context);
  }
  errno = kept_errno;
}

// A program that ignores an event goes on ignoring it: no handler for that one.
void install_guard() {
  int expected = 0;
  if (!guard_state.compare_exchange_strong(expected, 1)) return;
  for (uint32_t i = 0; i < kEventCount; ++i) {
    if (sigaction(kEvents[i], nullptr, &program_action[i]) != 0) continue;
    const bool ignored =
        (program_action[i].sa_flags & SA_SIGINFO) == 0 && program_action[i].sa_handler == SIG_IGN;
    if (ignored) continue;
    struct sigaction guard {};
    guard.sa_sigaction = on_event;
    guard.sa_mask = program_action[i].sa_mask;
    guard.sa_flags = SA_SIGINFO | (program_action[i].sa_flags & (SA_RESTART | SA_ONSTACK));
    sigaction(kEvents[i], &guard, nullptr);
  }
  guard_state.store(2);
}

}  // namespace

void forget_held_events() {
  calls_inside.store(0);
  events_pending.store(0);
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

void co_hold_events(void* handle) {
  Task* task = task_of(handle);
  if (task == nullptr) return;
  if (guard_state.load(std::memory_order_acquire) != 2) install_guard();
  ++task->held_events;
  calls_inside.fetch_add(1);
}

void co_release_events(void* handle) {
  Task* task = task_of(handle);
  if (task == nullptr || task->held_events == 0) return;
  --task->held_events;
  if (calls_inside.fetch_sub(1) == 1 && events_pending.load() != 0) deliver_pending();
}
