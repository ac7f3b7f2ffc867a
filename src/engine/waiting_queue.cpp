#include "engine/waiting_queue.h"

#include "engine/byte_wait.h"
#include "engine/format.h"
#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

constexpr int last_position = slot_count;
// Two who come at the same moment may find each other in the way and no position free; the
// queue is full only if that doesn't pass.
constexpr unsigned full_after = 1000;

static_assert(arbiter_byte + 1 == queue_bytes);

std::uint64_t byte_of(int position) { return arbiter_byte + static_cast<std::uint64_t>(position); }

// Takes a position if it and all above it are free: those above are held for the moment, so
// that nobody comes between.
lock_answer take_position(int file, int position) {
  const std::uint64_t above = static_cast<std::uint64_t>(last_position - position);
  if (above > 0) {
    const lock_answer free = os().lock(file, byte_of(position + 1), above);
    if (free != lock_answer::taken) return free;
  }
  const lock_answer answer = os().lock(file, byte_of(position), 1);
  if (above > 0 && os().unlock(file, byte_of(position + 1), above) != 0) return lock_answer::failed;
  return answer;
}

// The position taken, or e_no_slot, e_queue.
int join(int file) {
  for (unsigned attempt = 0; attempt < full_after; ++attempt) {
    for (int position = 0; position <= last_position; ++position) {
      const lock_answer answer = take_position(file, position);
      if (answer == lock_answer::taken) return position;
      if (answer == lock_answer::failed) return e_queue;
    }
    os().wait(attempt);
  }
  return e_no_slot;
}

}  // namespace

int wait_in_queue(PSP* h) {
  const int joined = join(h->file);
  if (joined < 0) return joined;
  for (int position = joined; position > 0; --position) {
    const int moved = wait_for_bytes(h->file, byte_of(position - 1), 1);
    const bool left = os().unlock(h->file, byte_of(position), 1) == 0;
    if (moved != e_ok) return e_queue;
    if (left) continue;
    os().unlock(h->file, byte_of(position - 1), 1);
    return e_queue;
  }
  return e_ok;
}

}  // namespace zvrdb::engine
