// Waiting for lock bytes of a record file, by a handle or without one.
#pragma once

#include <cstdint>

namespace zvrdb::engine {

// Locks bytes of an open file, however long another handle has them.
// 0, or e_byte_lock when they cannot be locked at all.
int wait_for_bytes(int file, std::uint64_t offset, std::uint64_t length);

// Keeps every writer of a record file between two of its write operations, from its making
// to its end: for a copy of a file in use.  Readers go on.  It waits for the operation at
// work.  Whoever holds a file must not change it through a handle: it would wait for itself.
class writers_held {
 public:
  explicit writers_held(const char* path);
  ~writers_held();
  writers_held(const writers_held&) = delete;
  writers_held& operator=(const writers_held&) = delete;

  // 0; e_not_found: the file cannot be opened for writing, or a handle has it for itself;
  // e_byte_lock: its file system takes no byte locks.  Only at 0 anybody is held.
  int result() const { return result_; }

 private:
  int file_;
  int result_;
};

}  // namespace zvrdb::engine
