// This library beside SQLite, LMDB, Berkeley DB, TDB and the bare disk, on the same records in
// one run: a table in Markdown on standard output, and the same as JSON in a file.
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "bench_installation.h"
#include "command_line.h"
#include "rivals/figures.h"
#include "rivals/rival.h"
#include "rivals/store_workloads.h"
#include "rivals/system_workloads.h"

namespace {

using namespace bench;

constexpr char engine[] = "zvrdb engine";
constexpr char calls[] = "zvrdb calls";
constexpr char best[] = "best";

const std::vector<Wanted> wanted = {
    {workload::insert_empty, engine, best, 1.1},
    {workload::insert_empty, engine, "floor", 0.8},
    {workload::insert_full, engine, best, 1.1},
    {workload::insert_full, engine, "floor", 0.8},
    {workload::replace, engine, best, 1.1},
    {workload::erase, engine, best, 1.1},
    {workload::bulk, engine, "LMDB", 1.0},
    {workload::get, engine, "LMDB", 1.0},
    {workload::get, calls, "SQLite WAL", 2.0},
    {workload::scan, engine, "LMDB", 1.0},
    {workload::list, engine, "LMDB", 1.2},
    {workload::readers, engine, "LMDB", 0.8},
    {workload::writer, engine, best, 1.0},
    {workload::lookup, calls, "LMDB", 3.0, workload::get},
    {workload::target, calls, "LMDB", 3.0, workload::get},
    {workload::state, calls, "LMDB", 3.0, workload::get},
    {workload::list_step, calls, "LMDB", 3.0, workload::get},
    {workload::filter, calls, best, 3.0},
    {workload::targets_of_file, calls, best, 3.0},
    {workload::files_of_target, calls, best, 3.0},
    {workload::attach, calls, "limit", 1.0},
    {workload::first_build, calls, "limit", 1.0},
    {workload::size, engine, best, 1.0, nullptr, true},
};

void describe(const StoreOptions& options, const Rivals& rivals, Report* report) {
  utsname machine;
  uname(&machine);
  char line[256];
  std::snprintf(line, sizeof line, "%s %s, %ld processors, files under %s", machine.sysname, machine.release,
                sysconf(_SC_NPROCESSORS_ONLN), options.folder.c_str());
  report->notes.push_back(line);
  std::snprintf(line, sizeof line,
                "%u records: unique key of %zu bytes, repeating keys of %zu and 4 bytes, body of %zu bytes; each "
                "change is a commit on the disk; gets with two other processes having the store open",
                options.records, name_len, group_len, body_len);
  report->notes.push_back(line);
  for (const auto& rival : rivals) report->notes.push_back(rival->name() + ": " + rival->settings());
}

}  // namespace

int main(int argc, char** argv) {
  StoreOptions options;
  SystemOptions system;
  std::string json;
  const auto shorter = [&](const char*) {
    options.records = 10000;
    options.slice = 0.1;
    options.rounds = 2;
    options.mixed_seconds = 1;
    system.targets = 6000;
    system.files = 3000;
  };
  if (!read_command_line(
          argc, argv,
          {{"--short", nullptr, "10,000 records and a fifth of the time", shorter},
           {"--dir", "FOLDER", "where the files are made (default /tmp)", [&](const char* f) { options.folder = f; }},
           {"--only", "WORKLOAD", "one workload of the table, e.g. get", [&](const char* w) { options.only = w; }},
           {"--json", "FILE", "write the figures there too", [&](const char* f) { json = f; }}}))
    return 2;
  setenv("ZVR_JOURNAL", "on", 1);
  std::string folder = options.folder + "/zvr-rivals-XXXXXX";
  if (!mkdtemp(folder.data())) give_up("making a folder", 0);
  options.folder = folder;
  system.folder = folder;
  system.only = options.only;
  Rivals rivals;
  rivals.push_back(make_engine());
  rivals.push_back(make_calls());
#ifdef ZVR_HAVE_SQLITE
  add_sqlite(&rivals);
#endif
#ifdef ZVR_HAVE_LMDB
  add_lmdb(&rivals);
#endif
#ifdef ZVR_HAVE_BERKELEY
  add_berkeley(&rivals);
#endif
#ifdef ZVR_HAVE_TDB
  add_tdb(&rivals);
#endif
  rivals.push_back(make_floor());
  Report report;
  describe(options, rivals, &report);
  if (!is_system_workload(options.only)) run_store_workloads(options, rivals, &report);
  run_system_workloads(system, &report);
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  if (report.figures.empty()) {
    std::fprintf(stderr, "rivals_bench: no workload is called \"%s\"; a run of all of them tells their names\n",
                 options.only.c_str());
    return 2;
  }
  print_report(report, wanted);
  if (!json.empty()) write_json(report, wanted, json);
  return 0;
}
