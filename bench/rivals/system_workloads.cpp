#include "rivals/system_workloads.h"

#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "bench_installation.h"
#include "long_records.h"
#include "measurement.h"
#include "rivals/run.h"
#include "support/cf_names.h"
#include "system_call_count.h"

namespace bench {
namespace {

using zvrtest::cf;
using zvrtest::CfName;

constexpr char ours[] = "zvrdb calls";
constexpr char sqlite[] = "SQLite WAL";
constexpr char lmdb[] = "LMDB, the same targets";
constexpr std::size_t target_record_len = 21724;
constexpr std::size_t file_record_len = 2464;
constexpr std::uint32_t sections = 30;
constexpr std::uint32_t section_wanted = 7;
constexpr double attach_limit_s = 0.001, build_limit_s = 0.300;

std::string target_name(std::uint32_t i) {
  return numbered("TARGET.", i);
}

CfName file_name(std::uint32_t i) {
  return cf(numbered("section", i / 2 % sections) + "." + numbered("package", i / 2 / sections + 10000) +
            (i % 2 ? ".FIX." : ".REF.") + "1-2");
}

class System {
 public:
  System(const SystemOptions& options, Report* report)
      : options_(options), report_(report), installation_(options.folder, options.targets + 1000) {}

  void run() {
    populate();
    starts();
    memory();
    lists();
  }

 private:
  bool wanted(const char* name) const { return options_.only.empty() || options_.only == name; }
  void announce(const char* name) {
    report_->workloads.push_back(name);
    std::fprintf(stderr, "%s\n", name);
  }
  Figure& add(const char* workload, const char* store) {
    Figure f;
    f.workload = workload;
    f.store = store;
    f.ours = std::strcmp(store, ours) == 0;
    report_->figures.push_back(f);
    return report_->figures.back();
  }

  // Targets 1 and up, the first change file with status on all, the first target with all.
  void populate() {
    await(start_worker([this] {
      Task task;
      std::vector<unsigned char> record(file_record_len);
      expect(db_start_trans(task, DB_CAT), "start of the transaction");
      for (std::uint32_t i = 0; i < options_.files; ++i) {
        const CfName name = file_name(i);
        std::memcpy(record.data(), name.data(), name.size());
        const void* keys[] = {name.data()};
        expect(db_put(task, DB_CAT, 1, keys, record.data(), file_record_len), "put of a change file");
      }
      expect(db_commit(task, DB_CAT), "commit");
      record.assign(target_record_len, 0);
      expect(db_start_trans(task, DB_TRG), "start of the transaction");
      for (std::uint32_t i = 0; i < options_.targets; ++i) {
        const std::string name = target_name(i);
        std::memset(record.data(), 0, 64);
        std::memcpy(record.data(), name.data(), name.size());
        record[144] = 128 | 2;
        const void* keys[] = {name.c_str()};
        expect(db_put(task, DB_TRG, 1, keys, record.data(), target_record_len), "put of a target");
      }
      expect(db_commit(task, DB_TRG), "commit");
      write_record_of_target(task, 1, options_.files);
      write_record_of_change_file(task, 0, options_.targets);
    }));
  }

  // Each start in a process of its own; `anew` drops the shared state before.
  void start(const char* name, bool anew, unsigned times, double limit) {
    if (!wanted(name)) return;
    announce(name);
    SharedOutcome out;
    for (unsigned i = 0; i < times; ++i) {
      if (anew) installation_.reset();
      await(start_worker([&] {
        const Clock::time_point from = Clock::now();
        Task task;
        std::uint32_t number = 0;
        expect(db_get_trg_index(task, target_name(5).c_str(), &number), "first call");
        const double us = microseconds(from);
        out->add_sample(us);
        out->seconds += us / 1e6;
        ++out->operations;
      }));
    }
    Figure& f = add(name, ours);
    f.median_us = out.percentile(0.5);
    f.p99_us = out.percentile(0.99);
    f.per_second = 1e6 / f.median_us;
    add(name, "limit").per_second = 1 / limit;
  }
  void starts() {
    start(workload::first_build, true, 5, build_limit_s);
    const Keeper keeper(*this);
    start(workload::attach, false, 100, attach_limit_s);
  }

  // A process with a task that has called, until the object ends.
  class Keeper {
   public:
    explicit Keeper(const System&) {
      if (pipe(hold_) != 0 || pipe(ready_) != 0) give_up("pipe", 0);
      child_ = start_worker([this] {
        ::close(hold_[1]);
        Task task;
        std::uint32_t number = 0;
        expect(db_get_trg_index(task, target_name(5).c_str(), &number), "first call");
        char byte = 1;
        if (::write(ready_[1], &byte, 1) != 1 || ::read(hold_[0], &byte, 1) != 0) give_up("pipe", 0);
      });
      ::close(hold_[0]);
      char byte;
      if (::read(ready_[0], &byte, 1) != 1) give_up("a process that keeps the shared state", 0);
    }
    ~Keeper() {
      ::close(hold_[1]);
      await(child_);
      ::close(ready_[0]);
      ::close(ready_[1]);
    }
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

   private:
    int hold_[2], ready_[2];
    pid_t child_;
  };

  // An operation of a task: time in a process of its own, then its calls.
  // Before, it is done `rounds` times.
  void operation(const char* name, double per_call, std::uint32_t rounds,
                 const std::function<void(void*, std::uint64_t)>& body) {
    if (!wanted(name)) return;
    announce(name);
    SharedOutcome out, each;
    const auto warm = [&](void* task) {
      for (std::uint64_t i = 0; i < 20; ++i) body(task, i);
    };
    await(start_worker([&] {
      Task task;
      for (std::uint64_t i = 0; i < rounds; ++i) body(task, i);
      time_all(&*out, options_.slice, UINT64_MAX, [&](std::uint64_t i) { body(task, i); });
      time_each(&*each, options_.slice / 2, Outcome::most_samples, [&](std::uint64_t i) { body(task, i); });
    }));
    Figure& f = add(name, ours);
    f.per_second = per_call * static_cast<double>(out->operations) / out->seconds;
    f.median_us = each.percentile(0.5);
    f.p99_us = each.percentile(0.99);
    constexpr unsigned counted = 20;
    const CallCounts found = count_system_calls(
        [&] {
          task_ = new Task;
          warm(*task_);
        },
        [&] {
          for (unsigned i = 0; i < counted; ++i) body(*task_, i);
        });
    f.counted = found.known;
    f.calls = static_cast<double>(found.calls) / counted / per_call;
    f.flushes = static_cast<double>(found.flushes) / counted / per_call;
  }
  std::string some_target(std::uint64_t i) const { return target_name(static_cast<std::uint32_t>(i * 7919 % options_.targets)); }

  void memory() {
    auto buffer = std::make_shared<std::vector<unsigned char>>(65535);
    operation(workload::lookup, 1, options_.targets, [this](void* task, std::uint64_t i) {
      std::uint32_t number = 0;
      expect(db_get_trg_index(task, some_target(i).c_str(), &number), "lookup");
    });
    beside_lmdb(workload::target, [this, buffer](TargetNames& names, std::uint64_t i) {
      if (!names.get(some_target(i), buffer->data(), 148)) give_up("get of LMDB", 0);
    });
    operation(workload::target, 1, options_.targets, [this, buffer](void* task, std::uint64_t i) {
      const std::string name = some_target(i);
      const void* keys[] = {name.c_str()};
      expect(db_get(task, DB_TRG, 1, keys, buffer->data(), 148), "get");
    });
    operation(workload::state, 1, options_.targets, [this](void* task, std::uint64_t i) {
      const std::string name = some_target(i);
      unsigned char status[4];
      expect(db_get_trg_stat(task, name.c_str(), status), "state");
      ++status[3];
      expect(db_put_trg_stat(task, name.c_str(), status), "state");
    });
    operation(workload::list_step, options_.targets, 20, [this, buffer](void* task, std::uint64_t) {
      unsigned char filter[138] = {};
      unsigned char state[420];
      expect(db_init_list(task, DB_TRG, filter, state, sizeof state), "list");
      std::uint32_t found = 0;
      while (db_get_more(task, DB_TRG, state, buffer->data(), 148) == DBE_OK) ++found;
      if (found < options_.targets) give_up("list of targets", found);
    });
  }

  // The same from LMDB, after as many rounds.
  void beside_lmdb(const char* name, const std::function<void(TargetNames&, std::uint64_t)>& body) {
    if (!wanted(name) || !have_target_names()) return;
    make_target_names(options_.folder, options_.targets, target_name);
    SharedOutcome out, each;
    await(start_worker([&] {
      TargetNames names(options_.folder);
      for (std::uint64_t i = 0; i < options_.targets; ++i) body(names, i);
      time_all(&*out, options_.slice, UINT64_MAX, [&](std::uint64_t i) { body(names, i); });
      time_each(&*each, options_.slice / 2, Outcome::most_samples, [&](std::uint64_t i) { body(names, i); });
    }));
    Figure& f = add(name, lmdb);
    f.per_second = static_cast<double>(out->operations) / out->seconds;
    f.median_us = each.percentile(0.5);
    f.p99_us = each.percentile(0.99);
  }

  // The same list from SQLite.
  void compare(const char* name, const std::function<std::uint32_t(StatusLists&)>& body, std::uint32_t expected) {
    if (!wanted(name) || !have_status_lists()) return;
    SharedOutcome out, each;
    const auto run = [&](StatusLists& lists) {
      if (body(lists) != expected) give_up("a list of SQLite", 0);
    };
    await(start_worker([&] {
      StatusLists lists(options_.folder);
      run(lists);
      time_all(&*out, options_.slice, UINT64_MAX, [&](std::uint64_t) { run(lists); });
      time_each(&*each, options_.slice, Outcome::most_samples, [&](std::uint64_t) { run(lists); });
    }));
    Figure& f = add(name, sqlite);
    f.per_second = static_cast<double>(out->operations) / out->seconds;
    f.median_us = each.percentile(0.5);
    f.p99_us = each.percentile(0.99);
  }

  void lists() {
    if (have_status_lists() && (wanted(workload::filter) || wanted(workload::targets_of_file) ||
                                wanted(workload::files_of_target)))
      make_status_lists(options_.folder, {options_.targets, options_.files, sections, section_wanted});
    auto bytes = std::make_shared<std::vector<unsigned char>>(options_.targets + 1001);
    auto numbers = std::make_shared<std::vector<std::uint32_t>>(65535);
    const auto room = static_cast<std::uint32_t>(numbers->size() * sizeof(std::uint32_t));
    const std::uint32_t of_section = options_.files / sections / 2;
    operation(workload::filter, 1, 20, [=](void* task, std::uint64_t) {
      const CfName filter = cf(numbered("section", section_wanted) + ".*.FIX.*");
      std::uint16_t count = 0, index = 0;
      expect(db_start_list(task, DB_CAT, filter.data(), numbers->data(), room, &count, &index), "list");
      if (count != of_section) give_up("a list of change files", count);
    });
    compare(workload::filter, [=](StatusLists& l) { return l.by_filter(numbers->data()); }, of_section);
    operation(workload::targets_of_file, 1, 20, [=](void* task, std::uint64_t) {
      expect(db_cm_by_cat(task, file_name(0).data(), bytes->data(), static_cast<std::uint32_t>(bytes->size())),
             "targets of a change file");
    });
    compare(workload::targets_of_file, [=](StatusLists& l) { return l.targets_of_file(bytes->data()); },
            options_.targets);
    operation(workload::files_of_target, 1, 20, [=, this](void* task, std::uint64_t) {
      std::uint32_t count = 0;
      expect(db_cm_by_trg(task, target_name(0).c_str(), numbers->data(), room, &count), "change files of a target");
      if (count != options_.files) give_up("change files of a target", count);
    });
    compare(workload::files_of_target, [=](StatusLists& l) { return l.files_of_target(numbers->data()); },
            options_.files);
  }

  SystemOptions options_;
  Report* report_;
  Installation installation_;
  Task* task_ = nullptr;
};

}  // namespace

bool is_system_workload(const std::string& name) {
  for (const char* one :
       {workload::lookup, workload::target, workload::state, workload::list_step, workload::filter,
        workload::targets_of_file, workload::files_of_target, workload::attach, workload::first_build})
    if (name == one) return true;
  return false;
}

void run_system_workloads(const SystemOptions& options, Report* report) {
  if (options.only.empty() || is_system_workload(options.only)) System(options, report).run();
}

}  // namespace bench
