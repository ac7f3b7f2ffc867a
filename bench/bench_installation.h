// An installation for one benchmark run: made under a folder of the caller's choice,
// removed with its shared state at the end.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

class Installation {
 public:
  // Makes a fresh base directory under folder and points ORVO_PATH at it.
  Installation(const std::string& folder, std::uint32_t max_targets);
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  const std::string& base() const { return base_; }
  // Drops the shared state; no task of the installation may live.
  void reset() const;

 private:
  std::string base_;
};

// A task of the installation in this process, ended with the object.
class Task {
 public:
  Task();
  ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  operator void*() const { return task_; }

 private:
  void* task_;
};

[[noreturn]] void give_up(const char* what, long code);

}  // namespace bench
