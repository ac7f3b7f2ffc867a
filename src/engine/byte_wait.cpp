#include "engine/byte_wait.h"

#include "engine/engine.h"
#include "engine/os_file.h"

namespace zvrdb::engine {

int wait_for_bytes(int file, std::uint64_t offset, std::uint64_t length) {
  for (unsigned attempt = 0;; ++attempt) {
    switch (os().lock(file, offset, length)) {
      case lock_answer::taken:
        return e_ok;
      case lock_answer::failed:
        return e_byte_lock;
      case lock_answer::busy:
        os().wait(attempt);
        break;
    }
  }
}

namespace {
int take_each(int file, std::uint64_t offset, std::uint64_t length) {
  if (length == 1) return wait_for_bytes(file, offset, 1);
  switch (os().lock(file, offset, length)) {
    case lock_answer::taken:
      return e_ok;
    case lock_answer::failed:
      return e_byte_lock;
    case lock_answer::busy:
      break;
  }
  const std::uint64_t half = length / 2;
  const int taken = take_each(file, offset, half);
  return taken == e_ok ? take_each(file, offset + half, length - half) : taken;
}
}  // namespace

int wait_for_each_byte(int file, std::uint64_t offset, std::uint64_t length) {
  const int taken = take_each(file, offset, length);
  if (taken != e_ok) os().unlock(file, offset, length);
  return taken;
}

}  // namespace zvrdb::engine
