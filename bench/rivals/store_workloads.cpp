#include "rivals/store_workloads.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <new>

#include "bench_installation.h"
#include "measurement.h"
#include "rivals/run.h"
#include "system_call_count.h"

namespace bench {
namespace {

constexpr unsigned helpers = 2;      // processes that have the store open beside the one that reads
constexpr unsigned readers = 3;
constexpr std::uint32_t step = 7919; // prime: gets wander over all records

std::uint32_t wandering(std::uint64_t i, std::uint32_t records) {
  return static_cast<std::uint32_t>((i * step + 17) % records);
}

void need(bool good, const char* what) {
  if (!good) give_up(what, 0);
}

// Processes that have the store open and have read in it, until the object ends.
class Bystanders {
 public:
  Bystanders(Rival& rival, const std::string& folder) {
    need(pipe(hold_) == 0 && pipe(ready_) == 0, "pipe");
    for (unsigned i = 0; i < helpers; ++i)
      children_.push_back(start_worker([&] {
        close(hold_[1]);
        rival.open(folder);
        Record record;
        make_record(1, &record);
        need(rival.get(record.name, &record), "get of a bystander");
        char byte = 1;
        need(write(ready_[1], &byte, 1) == 1, "pipe");
        while (read(hold_[0], &byte, 1) > 0) {
        }
        rival.close();
      }));
    close(hold_[0]);
    char byte;
    for (unsigned i = 0; i < helpers; ++i) need(read(ready_[0], &byte, 1) == 1, "a bystander");
  }
  ~Bystanders() {
    close(hold_[1]);
    for (const pid_t child : children_) await(child);
    close(ready_[0]);
    close(ready_[1]);
  }
  Bystanders(const Bystanders&) = delete;
  Bystanders& operator=(const Bystanders&) = delete;

 private:
  int hold_[2], ready_[2];
  std::vector<pid_t> children_;
};

// State of one store through the workloads.
struct Store {
  Rival* rival;
  std::string folder;        // with all records
  std::uint32_t next = 0;    // number of the next new record
};

class Runner {
 public:
  Runner(const StoreOptions& options, Rivals& rivals, Report* report)
      : options_(options), report_(report) {
    for (const auto& rival : rivals) stores_.push_back({rival.get(), folder_of(*rival, "full")});
  }

  ~Runner() {
    for (const auto& [rival, folder] : folders_) rival->drop(folder);
  }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  void run() {
    insert_empty();
    bulk();
    reads();
    mixed();
    changes();
  }

 private:
  bool wanted(const char* name) const { return options_.only.empty() || options_.only == name; }
  void announce(const char* name) {
    report_->workloads.push_back(name);
    std::fprintf(stderr, "%s\n", name);
  }
  static bool able(const Store& s, Ability a) { return s.rival->can(a); }

  std::string folder_of(Rival& rival, const char* kind) {
    std::string name = rival.name() + "-" + kind;
    std::replace(name.begin(), name.end(), ' ', '_');
    std::replace(name.begin(), name.end(), ',', '_');
    const std::string path = options_.folder + "/" + name;
    if (std::filesystem::create_directory(path)) folders_.emplace_back(&rival, path);
    return path;
  }
  Figure& add(const char* workload, const Store& s) {
    Figure f;
    f.workload = workload;
    f.store = s.rival->name();
    f.ours = s.rival->is_ours();
    f.floor = f.store == "floor";
    report_->figures.push_back(f);
    return report_->figures.back();
  }
  static void take(const SharedOutcome& outcome, Figure* f) {
    f->per_second = outcome->seconds > 0 ? static_cast<double>(outcome->operations) / outcome->seconds : 0;
    f->median_us = outcome.percentile(0.5);
    f->p99_us = outcome.percentile(0.99);
  }
  // Calls of `n` operations in a process that has done a few before.
  static void count(Store& s, const std::string& folder, unsigned n, double per, Figure* f,
                    const std::function<void(std::uint64_t)>& operation) {
    const CallCounts found = count_system_calls(
        [&] {
          s.rival->open(folder);
          for (std::uint64_t i = 0; i < n; ++i) operation(i);
        },
        [&] {
          for (std::uint64_t i = n; i < 2 * n; ++i) operation(i);
        });
    f->counted = found.known;
    f->calls = static_cast<double>(found.calls) / per;
    f->flushes = static_cast<double>(found.flushes) / per;
  }

  // A durable operation: rounds of all stores in turn, and its calls counted.  The operation
  // gets a number that grows over the rounds.
  void durable(const char* name, const char* folder_kind,
               const std::function<void(Store&, std::uint64_t)>& operation, std::uint64_t most = UINT64_MAX) {
    if (!wanted(name)) return;
    announce(name);
    constexpr unsigned counted = 8;
    const std::uint64_t most_timed = most - 4 * counted;   // the rest is counted
    std::map<Rival*, SharedOutcome> outcomes;
    for (unsigned round = 0; round < options_.rounds; ++round)
      for (Store& s : stores_) {
        if (!able(s, Ability::change)) continue;
        SharedOutcome& out = outcomes[s.rival];
        const std::string folder = folder_kind ? folder_of(*s.rival, folder_kind) : s.folder;
        await(start_worker([&] {
          s.rival->open(folder);
          const std::uint64_t from = out->cursor;
          const std::uint64_t done_before = out->operations;
          time_each(&*out, options_.slice, most_timed - from, [&](std::uint64_t i) { operation(s, from + i); });
          out->cursor += out->operations - done_before;
          s.rival->close();
        }));
      }
    for (Store& s : stores_) {
      if (!able(s, Ability::change)) continue;
      SharedOutcome& out = outcomes[s.rival];
      Figure& f = add(name, s);
      take(out, &f);
      const std::string folder = folder_kind ? folder_of(*s.rival, folder_kind) : s.folder;
      const std::uint64_t from = out->cursor;
      count(s, folder, counted, counted, &f, [&](std::uint64_t i) { operation(s, from + i); });
    }
  }

  void insert_empty() {
    durable(workload::insert_empty, "empty", [](Store& s, std::uint64_t i) {
      Record record;
      make_record(static_cast<std::uint32_t>(i), &record);
      s.rival->insert(record);
    });
  }

  // All records in one transaction; what the other workloads begin with.
  void bulk() {
    if (wanted(workload::bulk)) announce(workload::bulk);
    for (Store& s : stores_) {
      if (!able(s, Ability::bulk)) {
        await(start_worker([&] {
          s.rival->open(s.folder);   // makes it
          s.rival->close();
        }));
        continue;
      }
      SharedOutcome out;
      await(start_worker([&] {
        s.rival->open(s.folder);
        const Clock::time_point from = Clock::now();
        s.rival->begin();
        Record record;
        for (std::uint32_t i = 0; i < options_.records; ++i) {
          make_record(i, &record);
          s.rival->insert(record);
        }
        s.rival->commit();
        out->seconds = microseconds(from) / 1e6;
        out->operations = options_.records;
        s.rival->close();
      }));
      s.next = options_.records;
      if (!wanted(workload::bulk)) continue;
      Figure& f = add(workload::bulk, s);
      take(out, &f);
      const unsigned counted = options_.records / 100;
      count(s, folder_of(*s.rival, "bulk"), 2, 2.0 * counted, &f, [&](std::uint64_t n) {
        s.rival->begin();
        Record record;
        for (std::uint32_t i = 0; i < counted; ++i) {
          make_record(static_cast<std::uint32_t>(n) * counted + i, &record);
          s.rival->insert(record);
        }
        s.rival->commit();
      });
    }
    if (wanted(workload::size)) sizes();
  }

  void sizes() {
    announce(workload::size);
    for (const Store& s : stores_) {
      std::uintmax_t bytes = 0;
      for (const std::string& file : s.rival->data_files()) bytes += std::filesystem::file_size(s.folder + "/" + file);
      if (bytes == 0) continue;
      add(workload::size, s).per_second = static_cast<double>(bytes) / options_.records;
    }
  }

  // Reads: what is done once a call, how often a call counts, and the same with a clock in it.
  void read(const char* name, Ability ability, double per_call, unsigned counted,
            const std::function<void(Store&, std::uint64_t)>& operation) {
    if (!wanted(name)) return;
    announce(name);
    std::map<Rival*, SharedOutcome> outcomes;
    for (unsigned round = 0; round < options_.rounds; ++round)
      for (Store& s : stores_) {
        if (!able(s, ability)) continue;
        SharedOutcome& out = outcomes[s.rival];
        const Bystanders beside(*s.rival, s.folder);
        await(start_worker([&] {
          s.rival->open(s.folder);
          const auto all = static_cast<std::uint64_t>(options_.records / per_call);
          for (std::uint64_t i = 0; i < all; ++i) operation(s, i);   // what a process keeps is there
          const std::uint64_t before = out->operations;
          time_all(&*out, options_.slice, UINT64_MAX, [&](std::uint64_t i) { operation(s, i); });
          // One at a time, for the spread; not for the throughput.
          const std::uint64_t operations = out->operations;
          const double seconds = out->seconds;
          time_each(&*out, options_.slice / 2, Outcome::most_samples / options_.rounds,
                    [&](std::uint64_t i) { operation(s, i); });
          out->operations = operations;
          out->seconds = seconds;
          need(operations > before, "an operation");
          s.rival->close();
        }));
      }
    for (Store& s : stores_) {
      if (!able(s, ability)) continue;
      Figure& f = add(name, s);
      take(outcomes[s.rival], &f);
      f.per_second *= per_call;
      const Bystanders beside(*s.rival, s.folder);
      count(s, s.folder, counted, counted * per_call, &f, [&](std::uint64_t i) { operation(s, i); });
    }
  }

  void reads() {
    const std::uint32_t records = options_.records;
    read(workload::get, Ability::get, 1, 1000, [records](Store& s, std::uint64_t i) {
      Record record;
      make_record_name(wandering(i, records), &record);
      Record found;
      need(s.rival->get(record.name, &found), "get");
    });
    read(workload::scan, Ability::scan, records, 1, [records](Store& s, std::uint64_t) {
      std::uint64_t seen = 0, sum = 0;
      s.rival->scan([&](const RecordView& v) {
        ++seen;
        sum += static_cast<unsigned>(v.name[name_len - 1]) + v.body[0] + v.body[body_len - 1];
      });
      need(seen == records && sum != 0, "scan");
    });
    const std::uint32_t groups = records / records_of_group;
    read(workload::list, Ability::list, records_of_group, 20, [groups](Store& s, std::uint64_t i) {
      unsigned char group[group_len];
      make_group(wandering(i, groups), group);
      std::uint64_t seen = 0, sum = 0;
      s.rival->list(group, [&](const RecordView& v) {
        ++seen;
        sum += static_cast<unsigned>(v.name[name_len - 1]) + v.body[0] + v.body[body_len - 1];
      });
      need(seen == records_of_group && sum != 0, "list");
    });
  }

  // Readers and a durable writer at once.
  void mixed() {
    if (!wanted(workload::readers) && !wanted(workload::writer)) return;
    announce(workload::readers);
    report_->workloads.push_back(workload::writer);
    void* memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    need(memory != MAP_FAILED, "memory");
    for (Store& s : stores_) {
      if (!able(s, Ability::share) || !able(s, Ability::get)) continue;
      auto* arrived = new (memory) std::atomic<unsigned>(0);
      const auto meet = [&] {
        arrived->fetch_add(1);
        while (arrived->load() < readers + 1) usleep(50);
      };
      SharedOutcome written;
      std::vector<std::unique_ptr<SharedOutcome>> read;
      std::vector<pid_t> children;
      for (unsigned r = 0; r < readers; ++r) {
        read.push_back(std::make_unique<SharedOutcome>());
        children.push_back(start_worker([&, r] {
          const auto get_one = [&](std::uint64_t i) {
            Record record, found;
            make_record_name(wandering(i * readers + r, options_.records), &record);
            need(s.rival->get(record.name, &found), "get beside a writer");
          };
          s.rival->open(s.folder);
          for (std::uint64_t i = 0; i < options_.records; ++i) get_one(i);   // as where nobody writes
          meet();
          time_each(&**read[r], options_.mixed_seconds, UINT64_MAX, get_one);
          s.rival->close();
        }));
      }
      children.push_back(start_worker([&] {
        s.rival->open(s.folder);
        meet();
        time_each(&*written, options_.mixed_seconds, UINT64_MAX, [&](std::uint64_t i) {
          Record record;
          make_record(s.next + static_cast<std::uint32_t>(i), &record);
          s.rival->insert(record);
        });
        s.rival->close();
      }));
      for (const pid_t child : children) await(child);
      s.next += static_cast<std::uint32_t>(written->operations);
      Figure& all = add(workload::readers, s);
      take(*read[0], &all);
      all.per_second = 0;
      for (const auto& one : read) all.per_second += static_cast<double>((*one)->operations) / (*one)->seconds;
      take(written, &add(workload::writer, s));
    }
    munmap(memory, 4096);
  }

  void changes() {
    std::map<Rival*, std::uint32_t> first;
    for (const Store& s : stores_) first[s.rival] = s.next;
    durable(workload::insert_full, nullptr, [&](Store& s, std::uint64_t i) {
      Record record;
      make_record(first[s.rival] + static_cast<std::uint32_t>(i), &record);
      s.rival->insert(record);
    });
    const std::uint32_t records = options_.records;
    durable(workload::replace, nullptr, [records](Store& s, std::uint64_t i) {
      Record record;
      make_record(wandering(i, records), &record);
      std::memset(record.body, static_cast<int>(1 + i % 200), body_len);
      s.rival->replace(record);
    });
    durable(workload::erase, nullptr, [records](Store& s, std::uint64_t i) {
      Record record;
      make_record(wandering(i, records), &record);
      s.rival->erase(record);
    }, records);   // each is deleted once
  }

  const StoreOptions& options_;
  Report* report_;
  std::vector<std::pair<Rival*, std::string>> folders_;
  std::vector<Store> stores_;
};

}  // namespace

void run_store_workloads(const StoreOptions& options, Rivals& rivals, Report* report) {
  Runner(options, rivals, report).run();
}

}  // namespace bench
