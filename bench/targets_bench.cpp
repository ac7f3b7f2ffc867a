// What the main operations on targets cost, as Markdown: time per operation in one
// process and in four at once, system calls and flushes per operation, the load of a
// full table, and the memory of a process.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "bench_installation.h"
#include "system_call_count.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t record_len = 21724;
constexpr unsigned processes = 4;

struct Options {
  std::string folder = "/tmp";
  unsigned targets = 65000;
  unsigned reads = 20000;  // calls measured of each reading operation
  unsigned writes = 400;   // of each writing one; the four processes share them
  unsigned lists = 20;
};

double microseconds(Clock::time_point from) {
  return std::chrono::duration<double, std::micro>(Clock::now() - from).count();
}

std::string numbered(const char* text, unsigned long long number) {
  std::string whole(text);
  whole.append(std::to_string(number));
  return whole;
}

std::string populated_name(unsigned i) {
  return numbered("TARGET.", i);
}

void fill_record(std::vector<unsigned char>& record, const std::string& name, unsigned i) {
  std::fill(record.begin(), record.end(), std::uint8_t{0});
  const auto text = [&](std::size_t offset, const std::string& value) {
    std::memcpy(record.data() + offset, value.data(), value.size());
  };
  text(0, name);
  text(64, numbered("A workstation of department ", i % 97));
  text(124, numbered("NET", i % 50));
  text(132, numbered("E", i));
  record[144] = 128 | 2;
  record[145] = 11;
  record[146] = 2;
  text(256, numbered("10.0.0.", i % 250));
  text(288, "Customer");
  text(348, "Contact");
  text(440, "Manager");
  record[700] = 3;
  for (std::size_t j = 0; j < 3; ++j) {
    text(988 + j * 162, numbered("parameter ", j));
    text(988 + j * 162 + 81, "value");
  }
}

void expect(std::int16_t rc, const char* what) {
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) bench::give_up(what, rc);
}

// One thing that is measured: `run` does it for the i-th time on behalf of a worker.
struct Operation {
  const char* name;
  std::function<void(void* task, unsigned worker, unsigned i)> run;
  unsigned count;
};

class Workload {
 public:
  explicit Workload(const Options& options) : options_(options), buffer_(65535), record_(record_len) {}

  std::vector<Operation> operations() {
    return {
        {"lookup by name", [this](void* t, unsigned w, unsigned i) { lookup(t, w, i); }, options_.reads},
        {"get 148 bytes", [this](void* t, unsigned w, unsigned i) { get(t, w, i, 148); }, options_.reads},
        {"get 192 bytes", [this](void* t, unsigned w, unsigned i) { get(t, w, i, 192); }, options_.reads},
        {"get 193 bytes", [this](void* t, unsigned w, unsigned i) { get(t, w, i, 193); },
         options_.reads / 10},
        {"get 21724 bytes", [this](void* t, unsigned w, unsigned i) { get(t, w, i, 21724); },
         options_.reads / 10},
        {"put new", [this](void* t, unsigned w, unsigned i) { put(t, fresh_name(w, i), i); },
         options_.writes},
        {"put replace", [this](void* t, unsigned w, unsigned i) { put(t, fresh_name(w, i), i); },
         options_.writes},
        {"delete", [this](void* t, unsigned w, unsigned i) { erase(t, fresh_name(w, i)); }, options_.writes},
        {"list of all", [this](void* t, unsigned, unsigned) { list(t); }, options_.lists},
    };
  }

  void put(void* task, const std::string& name, unsigned i) {
    fill_record(record_, name, i);
    const void* keys[] = {name.c_str()};
    expect(db_put(task, DB_TRG, 1, keys, record_.data(), record_len), "put");
  }

 private:
  std::string some_name(unsigned worker, unsigned i) const {
    return populated_name((i * 7919u + worker * 104729u) % options_.targets);
  }
  static std::string fresh_name(unsigned worker, unsigned i) {
    return numbered("NEW.", worker) + numbered(".", i * 31 % 1000);
  }
  void lookup(void* task, unsigned worker, unsigned i) {
    std::uint32_t number = 0;
    expect(db_get_trg_index(task, some_name(worker, i).c_str(), &number), "lookup");
  }
  void get(void* task, unsigned worker, unsigned i, std::uint16_t length) {
    const std::string name = some_name(worker, i);
    const void* keys[] = {name.c_str()};
    expect(db_get(task, DB_TRG, 1, keys, buffer_.data(), length), "get");
  }
  void erase(void* task, const std::string& name) {
    const void* keys[] = {name.c_str()};
    expect(db_del(task, DB_TRG, 1, keys), "delete");
  }
  void list(void* task) {
    unsigned char filter[138] = {};
    unsigned char state[420];
    expect(db_init_list(task, DB_TRG, filter, state, sizeof state), "list");
    unsigned found = 0;
    while (db_get_more(task, DB_TRG, state, buffer_.data(), 192) == DBE_OK) ++found;
    if (found < options_.targets) bench::give_up("list of all", found);
  }

  Options options_;
  std::vector<unsigned char> buffer_;
  std::vector<unsigned char> record_;
};

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
  if (memory == MAP_FAILED) bench::give_up("memory for samples", 0);
  return static_cast<T*>(memory);
}

pid_t start_worker(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) bench::give_up("fork", 0);
  if (child == 0) {
    body();
    std::fflush(nullptr);
    _exit(0);
  }
  return child;
}

void await(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) bench::give_up("a worker", status);
}

// All workers do each operation at the same time.
std::vector<Timing> measure_in(unsigned workers, const Options& options) {
  const std::size_t operation_count = Workload(options).operations().size();
  const std::size_t row = std::max({options.reads, options.writes, options.lists});
  double* samples = shared_memory<double>(operation_count * workers * row);
  auto* arrived = shared_memory<std::atomic<unsigned>>(1);
  std::vector<unsigned> counts(operation_count);
  std::vector<Operation> operations = Workload(options).operations();
  for (std::size_t o = 0; o < operation_count; ++o) counts[o] = std::max(1u, operations[o].count / workers);
  std::vector<pid_t> children;
  for (unsigned w = 0; w < workers; ++w)
    children.push_back(start_worker([&, w] {
      bench::Task task;
      Workload workload(options);
      std::vector<Operation> own = workload.operations();
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

std::vector<PerCall> count_per_call(const Options& options) {
  constexpr unsigned repeats = 20;
  std::vector<PerCall> counts;
  const std::size_t operation_count = Workload(options).operations().size();
  for (std::size_t o = 0; o < operation_count; ++o) {
    // Names of their own, so that "put replace" and "delete" find what they need.
    const unsigned worker = 90;
    bench::Task* task = nullptr;
    Workload workload(options);
    std::vector<Operation> operations = workload.operations();
    const unsigned n = std::string(operations[o].name) == "list of all" ? 1 : repeats;
    const bench::CallCounts counted = bench::count_system_calls(
        [&] {
          task = new bench::Task;
          for (unsigned i = 0; i < 3; ++i) operations[0].run(*task, worker, i);
          if (std::strncmp(operations[o].name, "get", 3) == 0)
            for (unsigned i = 0; i < n; ++i) operations[o].run(*task, worker, i);
        },
        [&] {
          for (unsigned i = 0; i < n; ++i) operations[o].run(*task, worker, i);
        });
    counts.push_back(
        {static_cast<double>(counted.calls) / n, static_cast<double>(counted.flushes) / n, counted.known});
  }
  return counts;
}

void populate(const Options& options) {
  bench::Task task;
  Workload workload(options);
  const Clock::time_point from = Clock::now();
  expect(db_start_trans(task, DB_TRG), "start of the transaction");
  for (unsigned i = 0; i < options.targets; ++i) workload.put(task, populated_name(i), i);
  const double puts = microseconds(from);
  expect(db_commit(task, DB_TRG), "commit");
  const double all = microseconds(from);
  std::printf("| %u targets put in one explicit transaction | %.2f s (%.1f us each, commit %.2f s) |\n",
              options.targets, all / 1e6, puts / options.targets, (all - puts) / 1e6);
  std::fflush(stdout);
}

long status_kib(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field) + 1);
  return -1;
}

// Runs in a process of its own, started anew so that nothing is inherited.
int first_call_worker() {
  bench::Task task;
  std::uint32_t number = 0;
  Clock::time_point from = Clock::now();
  expect(db_get_trg_index(task, populated_name(0).c_str(), &number), "first call");
  std::printf("| first call of a new process, shared state just dropped | %.3f s |\n",
              microseconds(from) / 1e6);
  const long beyond = status_kib("VmRSS:") - status_kib("RssShmem:");
  std::printf("| its memory beyond shared memory | %.1f MiB |\n", static_cast<double>(beyond) / 1024);
  std::fflush(stdout);
  from = Clock::now();
  start_worker([] {
    bench::Task second;
    std::uint32_t found = 0;
    const Clock::time_point start = Clock::now();
    expect(db_get_trg_index(second, populated_name(0).c_str(), &found), "first call");
    std::printf("| first call of the next process | %.3f ms |\n", microseconds(start) / 1e3);
  });
  int status = 0;
  wait(&status);
  return status;
}

void measure_first_call(const bench::Installation& installation) {
  installation.reset();
  await(start_worker([] {
    execl("/proc/self/exe", "targets_bench", "--first-call", static_cast<char*>(nullptr));
    _exit(1);
  }));
}

void print_operations(const Options& options) {
  const std::vector<PerCall> counts = count_per_call(options);
  const std::vector<Timing> alone = measure_in(1, options);
  const std::vector<Timing> together = measure_in(processes, options);
  std::printf(
      "\n| operation | median us | p99 us | median us, %u processes | p99 us, %u processes | system calls | "
      "flushes |\n|---|---:|---:|---:|---:|---:|---:|\n",
      processes, processes);
  const std::vector<Operation> operations = Workload(options).operations();
  for (std::size_t o = 0; o < operations.size(); ++o) {
    std::printf("| %s | %.2f | %.2f | %.2f | %.2f |", operations[o].name, alone[o].median, alone[o].p99,
                together[o].median, together[o].p99);
    if (counts[o].known)
      std::printf(" %.2f | %.2f |\n", counts[o].calls, counts[o].flushes);
    else
      std::printf(" not counted | not counted |\n");
  }
}

int usage() {
  std::fprintf(stderr,
               "usage: targets_bench [--short] [--dir FOLDER] [--targets N]\n"
               "  --short    2000 targets and a tenth of the calls\n"
               "  --dir      where the installation is made (default /tmp)\n"
               "  --targets  size of the table (default 65000)\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--first-call") return first_call_worker();
    if (argument == "--short") {
      options.targets = 2000;
      options.reads /= 10;
      options.writes /= 4;
      options.lists /= 4;
    } else if (argument == "--dir" && i + 1 < argc) {
      options.folder = argv[++i];
    } else if (argument == "--targets" && i + 1 < argc) {
      options.targets = static_cast<unsigned>(std::clamp(std::atol(argv[++i]), 1L, 65000L));
    } else {
      return usage();
    }
  }
  const bench::Installation installation(options.folder, options.targets + 1000);
  std::printf("Targets: %u in the table, installation under %s\n\n| whole table | |\n|---|---:|\n",
              options.targets, options.folder.c_str());
  populate(options);
  measure_first_call(installation);
  print_operations(options);
  return 0;
}
