// A record file kept still, for a copy of a file in use.
#pragma once

#include "engine/engine.h"

namespace zvrdb::engine {

// Keeps every writer of a record file between two of its write operations, from its making
// to its end.  Readers go on.  It waits for the operation at work.  What a dead writer
// committed is in the file first, if a journal has it; nothing else of the file changes.
// Whoever holds a file must not change it through a handle: it would wait for itself.
class writers_held {
 public:
  explicit writers_held(const char* path);
  ~writers_held();
  writers_held(const writers_held&) = delete;
  writers_held& operator=(const writers_held&) = delete;

  // 0; e_not_found: the file cannot be opened for writing, or a handle has it for itself;
  // e_byte_lock: its file system takes no byte locks; or an error of a repair.  Only at 0
  // anybody is held.
  int result() const { return result_; }

 private:
  PSP* handle();
  alignas(8) unsigned char block_[psp_size] = {};
  int file_ = -1;   // of a file that is none of the engine's
  int result_;
};

}  // namespace zvrdb::engine
