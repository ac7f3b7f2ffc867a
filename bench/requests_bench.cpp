// What the main operations on requests and groups cost, as Markdown: time per operation
// in one process and in four at once, system calls and flushes per operation, and the
// deletion of whole requests.
#include <zvrco/zvrco.h>
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_installation.h"
#include "command_line.h"
#include "measurement.h"
#include "system_call_count.h"

namespace {

using namespace bench;

constexpr unsigned members = DB_MAX_TG_MEMBERS;
constexpr unsigned destinations = 100;  // of a request: a record for each
constexpr std::uint32_t list_state_len = 332;
constexpr unsigned functions_of_tree = 3;
constexpr unsigned records_of_tree = 1000;

struct Options {
  std::string folder = "/tmp";
  unsigned records = 100000;
  unsigned lists = 40;    // calls measured of each list
  unsigned groups = 400;  // of each operation on groups; the four processes share them
  unsigned trees = 10;
  unsigned requests() const { return records / destinations; }
};

template <std::size_t Width>
void put_text(char (&field)[Width], const std::string& text) {
  std::memset(field, 0, Width);
  std::memcpy(field, text.data(), std::min(text.size(), Width));
}

std::string target_name(unsigned i) {
  return numbered("TARGET.", i);
}

db_rqt_id destination_of(std::uint32_t sequence, const std::string& user, const std::string& function,
                         const std::string& target) {
  db_rqt_id id = {};
  db_rqf_id& request = id.destination.function;
  put_text(request.request.user, user);
  put_text(request.request.src_domain, "LOCAL");
  request.request.seq_no = sequence;
  put_text(request.subreq_id, function);
  put_text(id.destination.domain, "LOCAL");
  put_text(id.target, target);
  return id;
}

// A record of the identifier alone: what is kept behind it is the clients' business.
void put_request(void* task, std::uint32_t db_id, const db_rqt_id& id, std::size_t length) {
  const void* keys[] = {&id};
  db_rqt_id record = id;
  expect(db_put(task, db_id, 1, keys, &record, static_cast<std::uint16_t>(length)), "put of a request");
}

class Requests {
 public:
  explicit Requests(const Options& options) : options_(options), group_(std::make_unique<db_tg>()) {}

  static std::vector<Operation> operations(const Options& options) {
    const auto self = std::make_shared<Requests>(options);
    const auto put = [self](void* t, unsigned w, unsigned i) { self->put_group(t, w, i); };
    return {
        {"list of a request's function, by exact prefix",
         [self](void* t, unsigned w, unsigned i) { self->list_request(t, self->some_request(w, i)); },
         options.lists * 10, 20, true},
        {"list by destination",
         [self](void* t, unsigned w, unsigned i) { self->list_destination(t, (i * 7 + w * 31) % destinations); },
         options.lists, 5, true},
        {"put group of 1000 members, new", put, options.groups},
        {"put group of 1000 members, replace", put, options.groups},
        {"get group of 1000 members", [self](void* t, unsigned w, unsigned i) { self->get_group(t, w, i); },
         options.groups},
        {"delete group of 1000 members", [self](void* t, unsigned w, unsigned i) { self->erase_group(t, w, i); },
         options.groups},
    };
  }

 private:
  std::uint32_t some_request(unsigned worker, unsigned i) const {
    return (i * 7919u + worker * 104729u) % options_.requests();
  }
  void list_request(void* task, std::uint32_t sequence) {
    db_rqt_id filter = destination_of(sequence, "KLUND", "INSTALL", "*");
    put_text(filter.destination.domain, "*");
    walk(task, filter, destinations);
  }
  void list_destination(void* task, unsigned target) {
    db_rqt_id filter = destination_of(0xFFFFFFFFu, "*", "*", target_name(target));
    filter.destination.function.request.recursion_no = 0xFFFF;
    put_text(filter.destination.function.request.src_domain, "*");
    put_text(filter.destination.domain, "*");
    walk(task, filter, options_.requests());
  }
  static void walk(void* task, db_rqt_id filter, unsigned expected) {
    unsigned char state[list_state_len];
    db_rqt_id found;
    expect(db_init_list(task, DB_RQT, &filter, state, sizeof state), "begin of a list");
    unsigned count = 0;
    std::int16_t code;
    while ((code = db_get_more(task, DB_RQT, state, &found, sizeof found)) == DBE_OK) ++count;
    if (code != DBE_END_OF_LIST) give_up("a list", code);
    if (count != expected) give_up("number of records in a list", count);
  }

  // Of groups that come and go, each worker has names to itself.
  static std::string group_name(unsigned worker, unsigned i) {
    return numbered("GROUP", worker) + numbered(".", i);
  }
  void put_group(void* task, unsigned worker, unsigned i) {
    const std::string name = group_name(worker, i);
    const void* keys[] = {name.c_str()};
    std::memset(group_.get(), 0, sizeof *group_);
    put_text(group_->name, name);
    group_->num_members = members;
    for (unsigned m = 0; m < members; ++m) put_text(group_->members[m], target_name((i + m * 7) % members));
    expect(db_put(task, DB_TG, 1, keys, group_.get(), sizeof *group_), "put of a group");
  }
  void get_group(void* task, unsigned worker, unsigned i) {
    const std::string name = group_name(worker, i);
    const void* keys[] = {name.c_str()};
    expect(db_get(task, DB_TG, 1, keys, group_.get(), sizeof *group_), "get of a group");
    if (group_->num_members != members) give_up("number of members of a group", group_->num_members);
  }
  void erase_group(void* task, unsigned worker, unsigned i) {
    const std::string name = group_name(worker, i);
    const void* keys[] = {name.c_str()};
    expect(db_del(task, DB_TG, 1, keys), "delete of a group");
  }

  Options options_;
  std::unique_ptr<db_tg> group_;
};

void populate(const Options& options) {
  Task task;
  expect(db_start_trans(task, DB_TRG), "start of the transaction");
  auto record = std::make_unique<db_trg>();
  for (unsigned i = 0; i <= members; ++i) {
    std::memset(record.get(), 0, sizeof *record);
    put_text(record->trg_name, i < members ? target_name(i) : "LOCAL");
    record->trg_type = DB_TRG_LOCAL | DB_TRG_CLIENT;
    const void* keys[] = {record->trg_name};
    expect(db_put(task, DB_TRG, 1, keys, record.get(), sizeof *record), "put of a target");
  }
  expect(db_commit(task, DB_TRG), "commit");
  const Clock::time_point from = Clock::now();
  expect(db_start_trans(task, DB_RQT), "start of the transaction");
  for (unsigned r = 0; r < options.requests(); ++r)
    for (unsigned t = 0; t < destinations; ++t)
      put_request(task, DB_RQT, destination_of(r, "KLUND", "INSTALL", target_name(t)), sizeof(db_rqt_id));
  const double puts = microseconds(from);
  expect(db_commit(task, DB_RQT), "commit");
  const double all = microseconds(from);
  std::printf("| %u request records put in one explicit transaction | %.2f s (%.1f us each, commit %.2f s) |\n",
              options.records, all / 1e6, puts / options.records, (all - puts) / 1e6);
  std::fflush(stdout);
}

// A root, functions with their correlators, a server for each and targets: all of it, the
// correlators aside, is records_of_tree records.
db_rqt_id put_tree(void* task, unsigned number) {
  constexpr unsigned targets = (records_of_tree - 1) / functions_of_tree - 2;
  static_assert(1 + functions_of_tree * (2 + targets) == records_of_tree);
  const db_rqt_id root = destination_of(number, "TREE", "", "");
  expect(db_start_trans(task, DB_RQR), "start of the transaction");
  put_request(task, DB_RQR, root, sizeof(db_rqr_id));
  for (unsigned f = 0; f < functions_of_tree; ++f) {
    const std::string function = numbered("FUNCTION", f);
    const db_rqt_id id = destination_of(number, "TREE", function, "");
    put_request(task, DB_RQF, id, sizeof(db_rqf_id));
    put_request(task, DB_RQD, id, sizeof(db_rqd_id));
    for (unsigned t = 0; t < targets; ++t)
      put_request(task, DB_RQT, destination_of(number, "TREE", function, target_name(t)), sizeof(db_rqt_id));
  }
  expect(db_commit(task, DB_RQR), "commit");
  for (unsigned f = 0; f < functions_of_tree; ++f) {
    db_coo correlator = {};
    correlator.request = destination_of(number, "TREE", numbered("FUNCTION", f), "").destination.function;
    put_text(correlator.origin, "LOCAL");
    expect(db_reqid2corr(task, &correlator), "correlator");
  }
  return root;
}

void print_counted(const char* what, double milliseconds, const CallCounts& counted) {
  std::printf("| %s | %.2f ms", what, milliseconds);
  if (counted.known) std::printf(", %ld system calls, %ld flushes", counted.calls, counted.flushes);
  std::printf(" |\n");
  std::fflush(stdout);
}

void measure_trees(const Options& options) {
  std::vector<double> puts, deletions;
  {
    Task task;
    for (unsigned i = 0; i < options.trees; ++i) {
      Clock::time_point from = Clock::now();
      const db_rqt_id root = put_tree(task, i);
      puts.push_back(microseconds(from) / 1e3);
      from = Clock::now();
      expect(db_del_rq_tree(task, &root), "deletion of a tree");
      deletions.push_back(microseconds(from) / 1e3);
    }
  }
  // The first call of a task attaches it.
  Task* task = nullptr;
  db_rqt_id root = {};
  const CallCounts of_puts = count_system_calls(
      [&] {
        task = new Task;
        root = put_tree(*task, options.trees);
        expect(db_del_rq_tree(*task, &root), "deletion of a tree");
      },
      [&] { put_tree(*task, options.trees); });
  const CallCounts of_deletion = count_system_calls(
      [&] {
        task = new Task;
        root = put_tree(*task, options.trees);
      },
      [&] { expect(db_del_rq_tree(*task, &root), "deletion of a tree"); });
  std::sort(puts.begin(), puts.end());
  std::sort(deletions.begin(), deletions.end());
  std::printf("| tree: %u records of requests, %u correlators | |\n", records_of_tree, functions_of_tree);
  print_counted("tree put, its records in one transaction", puts[puts.size() / 2], of_puts);
  print_counted("tree deleted by db_del_rq_tree", deletions[deletions.size() / 2], of_deletion);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const auto shorter = [&](const char*) {
    options.records /= 20;
    options.lists /= 4;
    options.groups /= 4;
    options.trees = 3;
  };
  if (!read_command_line(
          argc, argv,
          {{"--short", nullptr, "5000 request records and a quarter of the calls", shorter},
           {"--dir", "FOLDER", "where the installation is made (default /tmp)", [&](const char* f) { options.folder = f; }}}))
    return 2;
  const Installation installation(options.folder, 4 * members);
  std::printf("Requests: %u records, %u to each destination, installation under %s\n\n| whole requests | |\n|---|---:|\n",
              options.records, options.requests(), options.folder.c_str());
  populate(options);
  measure_trees(options);
  print_operations([&] { return Requests::operations(options); });
  return 0;
}
