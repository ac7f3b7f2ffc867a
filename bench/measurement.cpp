#include "measurement.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "bench_installation.h"
#include "system_call_count.h"

namespace bench {

double microseconds(Clock::time_point from) {
  return std::chrono::duration<double, std::micro>(Clock::now() - from).count();
}

std::string numbered(const char* text, unsigned long long number) {
  std::string whole(text);
  whole.append(std::to_string(number));
  return whole;
}

void expect(std::int16_t rc, const char* what) {
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) give_up(what, rc);
}

pid_t start_worker(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) give_up("fork", 0);
  if (child == 0) {
    body();
    std::fflush(nullptr);
    _exit(0);
  }
  return child;
}

void await(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) give_up("a worker", status);
}

namespace {

struct Timing {
  double median;
  double p99;
};

Timing timing_of(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  return {samples[samples.size() / 2], samples[std::min(samples.size() - 1, samples.size() * 99 / 100)]};
}

void measure(void* task, const Operation& operation, unsigned worker, unsigned count, double* samples) {
  for (unsigned i = 0; i < count; ++i) {
    const Clock::time_point from = Clock::now();
    operation.run(task, worker, i);
    samples[i] = microseconds(from);
  }
}

// Memory that a worker shares with its parent.
template <typename T>
T* shared_memory(std::size_t count) {
  void* memory = mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) give_up("memory for samples", 0);
  return static_cast<T*>(memory);
}

// All workers do each operation at the same time.
std::vector<Timing> measure_in(unsigned workers, const Workload& workload) {
  const std::vector<Operation> operations = workload();
  const std::size_t operation_count = operations.size();
  std::size_t row = 1;
  for (const Operation& operation : operations) row = std::max<std::size_t>(row, operation.count);
  double* samples = shared_memory<double>(operation_count * workers * row);
  auto* arrived = shared_memory<std::atomic<unsigned>>(1);
  std::vector<unsigned> counts(operation_count);
  for (std::size_t o = 0; o < operation_count; ++o) counts[o] = std::max(1u, operations[o].count / workers);
  std::vector<pid_t> children;
  for (unsigned w = 0; w < workers; ++w)
    children.push_back(start_worker([&, w] {
      Task task;
      const std::vector<Operation> own = workload();
      own[0].run(task, w, 0);  // the first call attaches
      for (std::size_t o = 0; o < own.size(); ++o) {
        arrived->fetch_add(1);
        while (arrived->load() < (o + 1) * workers) usleep(50);
        measure(task, own[o], w, counts[o], samples + (o * workers + w) * row);
      }
    }));
  for (const pid_t child : children) await(child);
  std::vector<Timing> timings;
  for (std::size_t o = 0; o < operation_count; ++o) {
    std::vector<double> all;
    for (unsigned w = 0; w < workers; ++w) {
      const double* from = samples + (o * workers + w) * row;
      all.insert(all.end(), from, from + counts[o]);
    }
    timings.push_back(timing_of(std::move(all)));
  }
  munmap(samples, operation_count * workers * row * sizeof(double));
  munmap(arrived, sizeof *arrived);
  return timings;
}

struct PerCall {
  double calls;
  double flushes;
  bool known;
};

std::vector<PerCall> count_per_call(const Workload& workload) {
  std::vector<PerCall> counts;
  const std::size_t operation_count = workload().size();
  for (std::size_t o = 0; o < operation_count; ++o) {
    // Names of their own, so that "put replace" and "delete" find what they need.
    const unsigned worker = 90;
    Task* task = nullptr;
    const std::vector<Operation> operations = workload();
    const Operation& counted = operations[o];
    const CallCounts found = count_system_calls(
        [&] {
          task = new Task;
          for (unsigned i = 0; i < 3; ++i) operations[0].run(*task, worker, i);
          for (unsigned i = 0; counted.warm && i < counted.counted; ++i) counted.run(*task, worker, i);
        },
        [&] {
          for (unsigned i = 0; i < counted.counted; ++i) counted.run(*task, worker, i);
        });
    const double n = counted.counted;
    counts.push_back({static_cast<double>(found.calls) / n, static_cast<double>(found.flushes) / n, found.known});
  }
  return counts;
}

}  // namespace

void print_operations(const Workload& workload) {
  const std::vector<PerCall> counts = count_per_call(workload);
  const std::vector<Timing> alone = measure_in(1, workload);
  const std::vector<Timing> together = measure_in(processes, workload);
  std::printf(
      "\n| operation | median us | p99 us | median us, %u processes | p99 us, %u processes | system calls | "
      "flushes |\n|---|---:|---:|---:|---:|---:|---:|\n",
      processes, processes);
  const std::vector<Operation> operations = workload();
  for (std::size_t o = 0; o < operations.size(); ++o) {
    std::printf("| %s | %.2f | %.2f | %.2f | %.2f |", operations[o].name, alone[o].median, alone[o].p99,
                together[o].median, together[o].p99);
    if (counts[o].known)
      std::printf(" %.2f | %.2f |\n", counts[o].calls, counts[o].flushes);
    else
      std::printf(" not counted | not counted |\n");
  }
}

}  // namespace bench
