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

}  // namespace zvrdb::engine
