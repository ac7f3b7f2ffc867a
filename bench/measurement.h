// What the benchmark programs share: operations that are timed in one process and in
// four at once, their system calls counted, and the Markdown table of it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline constexpr unsigned processes = 4;

// One thing that is measured: `run` does it for the i-th time on behalf of a worker.
struct Operation {
  const char* name;
  std::function<void(void* task, unsigned worker, unsigned i)> run;
  unsigned count;         // calls that are timed; the four processes share them
  unsigned counted = 20;  // calls whose system calls are counted
  bool warm = false;      // these calls are made once before they are counted
};

// The operations, with buffers of their own; each worker makes them anew.  The first one
// is a read that attaches a new task; they are measured in their order.
using Workload = std::function<std::vector<Operation>()>;

// Time, system calls and flushes of each operation, as a table on standard output.
void print_operations(const Workload& workload);

double microseconds(Clock::time_point from);
// The text and the number behind it.
std::string numbered(const char* text, unsigned long long number);
// Gives up unless the code is DBE_OK or DBE_RECORD_REPLACED.
void expect(std::int16_t rc, const char* what);

// Runs the body in a child process.
pid_t start_worker(const std::function<void()>& body);
// Gives up unless it ended with 0.
void await(pid_t child);

}  // namespace bench
