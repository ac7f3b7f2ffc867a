// Keeps every writer of a record file between two of its write operations.
#pragma once

#include <string>

#include "engine/format.h"
#include "engine/os_file.h"

namespace target_test {

// Owns the writer arbiter of a record file from its making to its end.
class WritersHeldOut {
 public:
  explicit WritersHeldOut(const std::string& path)
      : file_(zvrdb::engine::linux_ops.open(path.c_str(), {true, false, false})) {
    for (unsigned attempt = 0; file_ >= 0; ++attempt) {
      const auto answer = zvrdb::engine::linux_ops.lock(file_, zvrdb::engine::arbiter_byte, 1);
      if (answer == zvrdb::engine::lock_answer::taken) held_ = true;
      if (answer != zvrdb::engine::lock_answer::busy) break;
      zvrdb::engine::linux_ops.wait(attempt);
    }
  }
  ~WritersHeldOut() {
    if (file_ >= 0) zvrdb::engine::linux_ops.close(file_);
  }
  WritersHeldOut(const WritersHeldOut&) = delete;
  WritersHeldOut& operator=(const WritersHeldOut&) = delete;
  bool held() const { return held_; }

 private:
  int file_;
  bool held_ = false;
};

}  // namespace target_test
