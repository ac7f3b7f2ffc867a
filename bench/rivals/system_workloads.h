// The workloads on a whole installation: what lives in shared memory, lists of change files and
// of status, the start of a process.
#pragma once

#include <cstdint>
#include <string>

#include "rivals/figures.h"

namespace bench {

struct SystemOptions {
  std::string folder;
  std::string only;
  std::uint32_t targets = 60000;
  std::uint32_t files = 30000;
  double slice = 0.5;
};

namespace workload {
inline constexpr char lookup[] = "lookup of a target by name";
inline constexpr char target[] = "get of 148 bytes of a target";
inline constexpr char state[] = "state of a target, read and written";
inline constexpr char list_step[] = "step of a list of targets";
inline constexpr char filter[] = "change files by filter";
inline constexpr char targets_of_file[] = "all targets of a change file";
inline constexpr char files_of_target[] = "all change files of a target";
inline constexpr char attach[] = "start of a process, attach";
inline constexpr char first_build[] = "start of a process, first build";
}  // namespace workload

void run_system_workloads(const SystemOptions& options, Report* report);
// Whether this is the name of one of them.
bool is_system_workload(const std::string& name);

// The heads of the same targets in LMDB, by name.
inline constexpr std::size_t target_head_len = 192;
bool have_target_names();
// Makes and fills the store.
void make_target_names(const std::string& folder, std::uint32_t count, std::string (*name_of)(std::uint32_t));
class TargetNames {
 public:
  explicit TargetNames(const std::string& folder);
  ~TargetNames();
  TargetNames(const TargetNames&) = delete;
  TargetNames& operator=(const TargetNames&) = delete;
  // A transaction of its own.
  bool get(const std::string& name, unsigned char* out, std::size_t length);

  struct Inside;

 private:
  Inside* inside_;
};

// The same lists from tables of SQLite with the indexes that serve them best.
struct StatusTables {
  std::uint32_t targets, files, sections, section_wanted;
};
bool have_status_lists();
// Makes and fills the tables.
void make_status_lists(const std::string& folder, const StatusTables& tables);
class StatusLists {
 public:
  explicit StatusLists(const std::string& folder);
  ~StatusLists();
  StatusLists(const StatusLists&) = delete;
  StatusLists& operator=(const StatusLists&) = delete;
  // Numbers into a list, as many as were found.
  std::uint32_t by_filter(std::uint32_t* out);
  std::uint32_t targets_of_file(unsigned char* out);
  std::uint32_t files_of_target(std::uint32_t* out);

 private:
  struct Inside;
  Inside* inside_;
};

}  // namespace bench
