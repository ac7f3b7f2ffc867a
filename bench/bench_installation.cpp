#include "bench_installation.h"

#include <sys/stat.h>
#include <zvrco/zvrco.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace bench {

void give_up(const char* what, long code) {
  std::fprintf(stderr, "bench: %s failed (%ld)\n", what, code);
  std::exit(1);
}

Installation::Installation(const std::string& folder, std::uint32_t max_targets) {
  std::string pattern = folder + "/zvr-bench-XXXXXX";
  if (!mkdtemp(pattern.data())) give_up("making a base directory", 0);
  base_ = pattern;
  for (const char* part : {"db", "log", "messages"}) std::filesystem::create_directory(base_ + "/" + part);
  std::ofstream(base_ + "/orvo.cfg") << "WORKSTATION NAME:     LOCAL\n"
                                     << "MAX TARGETS:          " << max_targets << "\n"
                                     << "CONFIGURATION:        SERVER_NO_COMMS\n"
                                     << "MAX LOCAL TARGETS:    " << max_targets << "\n"
                                     << "MAX SERVER TARGETS:   " << max_targets << "\n";
  setenv("ORVO_PATH", base_.c_str(), 1);
}

Installation::~Installation() {
  reset();
  std::error_code ignored;
  std::filesystem::remove_all(base_, ignored);
}

void Installation::reset() const {
  std::uint32_t alive = 0;
  const std::uint16_t rc = co_reset(base_.c_str(), nullptr, 0, &alive);
  if (rc != CO_OK)
    std::fprintf(stderr, "bench: shared state not dropped (%u), %u tasks live\n", rc, alive);
}

Task::Task() : task_(co_init_task("bench", nullptr, 1)) {
  if (!task_) {
    std::fprintf(stderr, "bench: no task: %s\n", co_init_error());
    std::exit(1);
  }
}

Task::~Task() {
  coi_term_task(task_, 0);
}

}  // namespace bench
