// What the main operations on change files and CM status cost, as Markdown: time per
// operation in one process and in four at once, system calls and flushes per operation,
// and the load of a full catalog.
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_installation.h"
#include "command_line.h"
#include "long_records.h"
#include "measurement.h"
#include "support/cf_names.h"

namespace {

using namespace bench;
using zvrtest::cf;
using zvrtest::CfName;

constexpr std::size_t record_len = 2464;
constexpr std::size_t target_record_len = 21724;
constexpr unsigned sections = 30;

struct Options {
  std::string folder = "/tmp";
  unsigned files = 30000;  // two for each package of each section
  unsigned targets = 60000;
  unsigned reads = 20000;  // calls measured of each reading operation
  unsigned writes = 400;   // of each writing one; the four processes share them
  unsigned lists = 40;
  unsigned packages() const { return files / sections / 2; }
};

std::string section(unsigned number) {
  return numbered("section", number + 10);
}
std::string package(unsigned number) {
  return numbered("package", number + 10000);
}
CfName populated_name(unsigned i) {
  return cf(section(i / 2 % sections) + "." + package(i / 2 / sections) + (i % 2 ? ".FIX." : ".REF.") + "1-2");
}
std::string populated_target(unsigned i) {
  return numbered("TARGET.", i);
}
// Of pairs that come and go, each worker has a target to itself.
std::string target_of(unsigned worker) {
  return numbered("WORKER.", worker);
}
constexpr unsigned workers_with_target[] = {0, 1, 2, 3, 90};

class ChangeFiles {
 public:
  explicit ChangeFiles(const Options& options)
      : options_(options), buffer_(65535), record_(record_len), states_(options.targets + 1001), list_(65535) {}

  static std::vector<Operation> operations(const Options& options) {
    const auto self = std::make_shared<ChangeFiles>(options);
    const auto get = [self](std::uint16_t length) {
      return [self, length](void* t, unsigned w, unsigned i) { self->get(t, self->some_name(w, i), length); };
    };
    const auto put = [self](void* t, unsigned w, unsigned i) { self->put(t, fresh_name(w, i), i); };
    const auto list = [self](const std::string& filter, unsigned found) {
      return [self, name = cf(filter), found](void* t, unsigned, unsigned) { self->list(t, name, found); };
    };
    const auto put_state = [self](void* t, unsigned w, unsigned i) {
      self->put_state(t, target_of(w), self->some_name(w, i), i);
    };
    return {
        {"get 164 bytes", get(164), options.reads, 20, true},
        {"get 2464 bytes", get(2464), options.reads / 10, 20, true},
        {"put new", put, options.writes},
        {"put replace", put, options.writes},
        {"delete", [self](void* t, unsigned w, unsigned i) { self->erase(t, fresh_name(w, i)); }, options.writes},
        {"list *.*.*.*, all", list("*.*.*.*", options.files), options.lists, 5, true},
        {"list of a section's FIX", list(section(7) + ".*.FIX.*", options.packages()), options.reads / 10, 20, true},
        {"list of a package in all sections", list("*." + package(3) + ".*.*", 2 * sections), options.reads / 20, 20,
         true},
        {"states of a change file, every target",
         [self](void* t, unsigned, unsigned) { self->states_of_file(t); }, options.lists * 10, 20, true},
        {"states of a target, every change file",
         [self](void* t, unsigned, unsigned) { self->states_of_target(t); }, options.lists * 10, 20, true},
        {"put state new", put_state, options.writes},
        {"put state replace", put_state, options.writes},
        {"get state",
         [self](void* t, unsigned w, unsigned i) {
           self->get_state(t, target_of(w), self->some_name(w, i % (self->options_.writes / processes)));
         },
         options.reads / 10},
        {"delete state",
         [self](void* t, unsigned w, unsigned i) { self->erase_state(t, target_of(w), self->some_name(w, i)); },
         options.writes},
        {"put state replace, on the longest records",
         [self](void* t, unsigned, unsigned i) { self->put_state(t, populated_target(0), populated_name(0), i); },
         options.lists},
    };
  }

  void put(void* task, const CfName& name, unsigned i) {
    std::fill(record_.begin(), record_.end(), std::uint8_t{0});
    std::memcpy(record_.data(), name.data(), name.size());
    const std::string text = numbered("A package of department ", i % 97);
    std::memcpy(record_.data() + 102, text.data(), text.size());
    for (std::size_t line = 0; line < 3; ++line) {
      const std::string comment = numbered("line ", line) + " of what it is about";
      std::memcpy(record_.data() + 364 + line * 256, comment.data(), comment.size());
    }
    const void* keys[] = {name.data()};
    expect(db_put(task, DB_CAT, 1, keys, record_.data(), record_len), "put");
  }

 private:
  CfName some_name(unsigned worker, unsigned i) const {
    // Not the first one, whose record of states is long.
    return populated_name(1 + (i * 7919u + worker * 104729u) % (options_.files - 1));
  }
  static CfName fresh_name(unsigned worker, unsigned i) {
    return cf(numbered("new", worker) + numbered(".package", i * 31 % 1000) + ".FIX.1");
  }
  void get(void* task, const CfName& name, std::uint16_t length) {
    const void* keys[] = {name.data()};
    expect(db_get(task, DB_CAT, 1, keys, buffer_.data(), length), "get");
  }
  void erase(void* task, const CfName& name) {
    const void* keys[] = {name.data()};
    expect(db_del(task, DB_CAT, 1, keys), "delete");
  }
  void list(void* task, const CfName& filter, unsigned expected) {
    std::uint16_t count = 0, index = 0;
    expect(db_start_list(task, DB_CAT, filter.data(), list_.data(),
                         static_cast<std::uint32_t>(list_.size() * sizeof list_[0]), &count, &index),
           "list");
    if (count != expected) give_up("number of change files in a list", count);
  }
  void states_of_file(void* task) {
    expect(db_cm_by_cat(task, populated_name(0).data(), states_.data(), static_cast<std::uint32_t>(states_.size())),
           "states of a change file");
    if (states_[options_.targets] == 15) give_up("the last target's state", 15);
  }
  void states_of_target(void* task) {
    std::uint32_t count = 0;
    expect(db_cm_by_trg(task, populated_target(0).c_str(), list_.data(),
                        static_cast<std::uint32_t>(list_.size() * sizeof list_[0]), &count),
           "states of a target");
    if (count != options_.files) give_up("number of states of a target", count);
  }
  void put_state(void* task, const std::string& target, const CfName& name, unsigned i) {
    unsigned char status[176] = {};
    std::memcpy(status, target.data(), target.size());
    std::memcpy(status + 64, name.data(), name.size());
    status[140] = static_cast<unsigned char>(1 + i % 9);
    const void* keys[] = {target.c_str(), name.data()};
    expect(db_put(task, DB_CMS, 2, keys, status, sizeof status), "put state");
  }
  void get_state(void* task, const std::string& target, const CfName& name) {
    const void* keys[] = {target.c_str(), name.data()};
    expect(db_get(task, DB_CMS, 2, keys, buffer_.data(), 176), "get state");
  }
  void erase_state(void* task, const std::string& target, const CfName& name) {
    const void* keys[] = {target.c_str(), name.data()};
    expect(db_del(task, DB_CMS, 2, keys), "delete state");
  }

  Options options_;
  std::vector<unsigned char> buffer_, record_, states_;
  std::vector<std::uint32_t> list_;
};

void put_target(void* task, const std::string& name) {
  std::vector<unsigned char> record(target_record_len);
  std::memcpy(record.data(), name.data(), name.size());
  record[144] = 128 | 2;
  const void* keys[] = {name.c_str()};
  expect(db_put(task, DB_TRG, 1, keys, record.data(), target_record_len), "put of a target");
}

// Change files first: their table grows by a few hundred at a time, and each time the
// tables of targets are built anew with it.
void populate(const Options& options) {
  Task task;
  ChangeFiles change_files(options);
  const Clock::time_point from = Clock::now();
  expect(db_start_trans(task, DB_CAT), "start of the transaction");
  for (unsigned i = 0; i < options.files; ++i) change_files.put(task, populated_name(i), i);
  const double puts = microseconds(from);
  expect(db_commit(task, DB_CAT), "commit");
  const double all = microseconds(from);
  std::printf("| %u change files put in one explicit transaction | %.2f s (%.1f us each, commit %.2f s) |\n",
              options.files, all / 1e6, puts / options.files, (all - puts) / 1e6);
  std::fflush(stdout);
  expect(db_start_trans(task, DB_TRG), "start of the transaction");
  for (unsigned i = 0; i < options.targets; ++i) put_target(task, populated_target(i));
  for (const unsigned worker : workers_with_target) put_target(task, target_of(worker));
  expect(db_commit(task, DB_TRG), "commit");
  // Numbers are given out in order: targets from 1, change files from 0.
  write_record_of_target(task, 1, options.files);
  write_record_of_change_file(task, 0, options.targets);
}

void measure_first_call(const Installation& installation) {
  installation.reset();
  await(start_worker([] {
    Task task;
    unsigned char name[76];
    const CfName wanted = populated_name(0);
    const void* keys[] = {wanted.data()};
    Clock::time_point from = Clock::now();
    expect(db_get(task, DB_CAT, 1, keys, name, sizeof name), "first call");
    std::printf("| first call of a new process, shared state just dropped | %.3f s |\n", microseconds(from) / 1e6);
  }));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const auto shorter = [&](const char*) {
    options.files = 1200;
    options.targets = 2000;
    options.reads /= 10;
    options.writes /= 4;
    options.lists /= 4;
  };
  const auto targets = [&](const char* n) {
    options.targets = static_cast<unsigned>(std::clamp(std::atol(n), 1L, 60000L));
  };
  if (!read_command_line(
          argc, argv,
          {{"--short", nullptr, "1200 change files, 2000 targets and a tenth of the calls", shorter},
           {"--dir", "FOLDER", "where the installation is made (default /tmp)", [&](const char* f) { options.folder = f; }},
           {"--targets", "N", "targets that a change file has status on (default 60000)", targets}}))
    return 2;
  const Installation installation(options.folder, options.targets + 1000);
  std::printf("Change files: %u in the catalog, %u targets, installation under %s\n\n| whole catalog | |\n|---|---:|\n",
              options.files, options.targets, options.folder.c_str());
  populate(options);
  measure_first_call(installation);
  print_operations([&] { return ChangeFiles::operations(options); });
  return 0;
}
