// Drives an agent: a process of its own that works on a record file as it is told.
#pragma once

#include <string>
#include <sys/types.h>

namespace zvrdb::test {

class agent {
 public:
  agent();
  ~agent();   // ends the process
  agent(const agent&) = delete;
  agent& operator=(const agent&) = delete;

  static constexpr int died = -99999;
  // Sends the command and waits for its answer; died when the process ended instead.
  int tell(const std::string& command);
  void send(const std::string& command);
  int answer();
  // True when the answer to a command that was sent has not come within the time.
  bool is_silent(int milliseconds);
  void kill();

 private:
  pid_t pid_ = -1;
  int to_ = -1;
  int from_ = -1;
  std::string pending_;
};

}  // namespace zvrdb::test
