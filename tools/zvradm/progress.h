// Progress of a long piece of work on standard error, when that is a terminal and the
// work has lasted more than a second.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zvradm {

class progress {
 public:
  // all: units of the whole work, 0 when unknown.
  progress(std::string what, std::uint64_t all);
  ~progress();
  progress(const progress&) = delete;
  progress& operator=(const progress&) = delete;
  void reached(std::uint64_t done) { reached(done, all_); }
  void reached(std::uint64_t done, std::uint64_t all);

 private:
  std::string what_;
  std::uint64_t all_;
  bool terminal_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace zvradm
