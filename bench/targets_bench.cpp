// What the main operations on targets cost, as Markdown: time per operation in one
// process and in four at once, system calls and flushes per operation, the load of a
// full table, and the memory of a process.
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench_installation.h"
#include "command_line.h"
#include "measurement.h"

namespace {

using namespace bench;

constexpr std::size_t record_len = 21724;

struct Options {
  std::string folder = "/tmp";
  unsigned targets = 65000;
  unsigned reads = 20000;  // calls measured of each reading operation
  unsigned writes = 400;   // of each writing one; the four processes share them
  unsigned lists = 20;
};

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

class Targets {
 public:
  explicit Targets(const Options& options) : options_(options), buffer_(65535), record_(record_len) {}

  static std::vector<Operation> operations(const Options& options) {
    const auto self = std::make_shared<Targets>(options);
    const auto get = [self](std::uint16_t length) {
      return [self, length](void* t, unsigned w, unsigned i) { self->get(t, w, i, length); };
    };
    const auto put = [self](void* t, unsigned w, unsigned i) { self->put(t, fresh_name(w, i), i); };
    return {
        {"lookup by name", [self](void* t, unsigned w, unsigned i) { self->lookup(t, w, i); }, options.reads},
        {"get 148 bytes", get(148), options.reads, 20, true},
        {"get 192 bytes", get(192), options.reads, 20, true},
        {"get 193 bytes", get(193), options.reads / 10, 20, true},
        {"get 21724 bytes", get(21724), options.reads / 10, 20, true},
        {"put new", put, options.writes},
        {"put replace", put, options.writes},
        {"delete", [self](void* t, unsigned w, unsigned i) { self->erase(t, fresh_name(w, i)); }, options.writes},
        {"list of all", [self](void* t, unsigned, unsigned) { self->list(t); }, options.lists, 1},
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
    if (found < options_.targets) give_up("list of all", found);
  }

  Options options_;
  std::vector<unsigned char> buffer_;
  std::vector<unsigned char> record_;
};

void populate(const Options& options) {
  Task task;
  Targets targets(options);
  const Clock::time_point from = Clock::now();
  expect(db_start_trans(task, DB_TRG), "start of the transaction");
  for (unsigned i = 0; i < options.targets; ++i) targets.put(task, populated_name(i), i);
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
  Task task;
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
    Task second;
    std::uint32_t found = 0;
    const Clock::time_point start = Clock::now();
    expect(db_get_trg_index(second, populated_name(0).c_str(), &found), "first call");
    std::printf("| first call of the next process | %.3f ms |\n", microseconds(start) / 1e3);
  });
  int status = 0;
  wait(&status);
  return status;
}

void measure_first_call(const Installation& installation) {
  installation.reset();
  await(start_worker([] {
    execl("/proc/self/exe", "targets_bench", "--first-call", static_cast<char*>(nullptr));
    _exit(1);
  }));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (argc == 2 && std::strcmp(argv[1], "--first-call") == 0) return first_call_worker();
  const auto shorter = [&](const char*) {
    options.targets = 2000;
    options.reads /= 10;
    options.writes /= 4;
    options.lists /= 4;
  };
  const auto targets = [&](const char* n) {
    options.targets = static_cast<unsigned>(std::clamp(std::atol(n), 1L, 65000L));
  };
  if (!read_command_line(
          argc, argv,
          {{"--short", nullptr, "2000 targets and a tenth of the calls", shorter},
           {"--dir", "FOLDER", "where the installation is made (default /tmp)", [&](const char* f) { options.folder = f; }},
           {"--targets", "N", "size of the table (default 65000)", targets}}))
    return 2;
  const Installation installation(options.folder, options.targets + 1000);
  std::printf("Targets: %u in the table, installation under %s\n\n| whole table | |\n|---|---:|\n",
              options.targets, options.folder.c_str());
  populate(options);
  measure_first_call(installation);
  print_operations([&] { return Targets::operations(options); });
  return 0;
}
