// Conversion of an older database: time, peak of memory, flushes.
//
//   migration_bench [--short] [--dir FOLDER]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bench_installation.h"
#include "command_line.h"
#include "measurement.h"
#include "migration/older_database.h"

namespace {

constexpr std::uint32_t most_targets = 4000;

struct stage_clock {
  bench::Clock::time_point begin = bench::Clock::now();
  double seconds[DB_MIG_STAGES] = {};
  static void watch(void* context, const db_mig_event* event) {
    auto* clock = static_cast<stage_clock*>(context);
    if (event->kind == DB_MIG_BEGIN) clock->begin = bench::Clock::now();
    if (event->kind == DB_MIG_END) clock->seconds[event->stage] = bench::microseconds(clock->begin) / 1e6;
    if (event->kind == DB_MIG_NOTE) std::fprintf(stderr, "%s\n", event->text);
  }
};

// In a process of its own, so that its peak is that of the conversion.
int convert() {
  rusage before = {};
  getrusage(RUSAGE_SELF, &before);
  stage_clock clock;
  const bench::Clock::time_point begin = bench::Clock::now();
  std::int16_t rc = DBE_OK;
  {
    const bench::Task task;
    rc = db_mig_watched(task, 0, stage_clock::watch, &clock);
  }
  if (rc != DBE_OK) bench::give_up("db_mig_watched", rc);
  rusage after = {};
  getrusage(RUSAGE_SELF, &after);
  constexpr const char* names[] = {"catalog", "targets and users", "CM status", "target groups", "authorization",
                                   "remote user"};
  std::printf("| stage | s |\n|---|---:|\n");
  for (unsigned stage = 0; stage < DB_MIG_STAGES; ++stage) std::printf("| %s | %.2f |\n", names[stage], clock.seconds[stage]);
  std::printf("| all | %.2f |\n\n", bench::microseconds(begin) / 1e6);
  std::printf("Peak of memory: %.1f MiB (%.1f MiB at the begin). Blocks written: %ld.\n", static_cast<double>(after.ru_maxrss) / 1024,
              static_cast<double>(before.ru_maxrss) / 1024, after.ru_oublock - before.ru_oublock);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  migration_test::older_size size = {.targets = 2000, .change_files = 10000, .pairs_per_target = 500, .users_per_target = 5,
                                     .users = 400, .hardware = 20, .parameters = 50, .groups = 50, .members = 200};
  std::string folder = ".";
  const auto shorter = [&](const char*) { size.targets = 200, size.change_files = 1000; };
  if (!bench::read_command_line(
          argc, argv,
          {{"--short", nullptr, "200 targets and 1000 change files", shorter},
           {"--dir", "FOLDER", "where the installation is made (default here)", [&](const char* f) { folder = f; }}}))
    return 2;
  const bench::Installation installation(folder, most_targets);
  migration_test::write_older_database(installation.base(), size);
  std::printf("# Conversion of %u targets, %u change files, %u files of %u status entries\n\n", size.targets,
              size.change_files, size.targets, size.pairs_per_target);
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    const int code = convert();
    std::fflush(stdout);
    _exit(code);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
