// check-config: every text record and the base configuration, each fault with its line.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "commands.h"
#include "json_output.h"
#include "session.h"
#include "text_faults.h"
#include "text_types.h"
#include "textrec/text_records.h"

namespace zvradm {

namespace {

struct check_counts {
  std::uint64_t files = 0;
  std::uint64_t faults = 0;
  std::uint64_t notes = 0;
};

// What the library takes for records, everything but directories and hidden files, and what
// leads nowhere. False when the folder cannot be read.
bool names_in(const std::string& folder, std::vector<std::string>& names) {
  DIR* listing = opendir(folder.c_str());
  if (!listing) return false;
  while (const dirent* entry = readdir(listing)) {
    struct stat status {};
    const bool leads_somewhere = fstatat(dirfd(listing), entry->d_name, &status, 0) == 0;
    const bool passed_over = entry->d_name[0] == '.' || S_ISDIR(status.st_mode);
    if (!leads_somewhere || !passed_over) names.emplace_back(entry->d_name);
  }
  closedir(listing);
  std::sort(names.begin(), names.end());
  return true;
}

void tell_fault(const std::string& path, const std::string& reason, check_counts& counts) {
  tell_faults(path, {{0, reason, true}});
  ++counts.faults;
}

void check_file(void* task, const text_type& type, const std::string& path, const std::string& name,
                check_counts& counts) {
  std::string text;
  std::vector<text_fault> faults;
  try {
    if (!read_text_file(path, text)) return;  // need not be there
    faults = faults_of(task, type, name, text);
  } catch (const refusal& fault) {
    std::fprintf(stderr, "zvradm: %s\n", fault.what());
    ++counts.files;
    ++counts.faults;
    return;
  }
  ++counts.files;
  for (const text_fault& one : faults) ++(one.fatal ? counts.faults : counts.notes);
  tell_faults(path, faults);
}

void check_folder(void* task, const text_type& type, const std::string& folder, check_counts& counts) {
  std::vector<std::string> names;
  if (!names_in(folder, names)) {
    if (errno != ENOENT) tell_fault(folder, std::string("cannot be read: ") + std::strerror(errno), counts);
    return;
  }
  for (const std::string& name : names) {
    const std::string path = folder + "/" + name;
    if (access(path.c_str(), F_OK) != 0) {
      ++counts.files;
      tell_fault(path, std::string("leads nowhere, and ends every list of records: ") + std::strerror(errno), counts);
      continue;
    }
    check_file(task, type, path, name, counts);
    if (name.size() > zvrdb::textrec::scn_name_len)
      tell_fault(path, "a name of more than " + std::to_string(zvrdb::textrec::scn_name_len) + " bytes: lists cut it, and there is no record of the rest",
                 counts);
  }
}

int check_all(const globals& all) {
  const std::string base = base_directory(all);
  check_counts counts;
  check_file(nullptr, *find_text_type("cfg"), base + "/orvo.cfg", "", counts);
  if (counts.faults > 0 && std::fflush(stderr) == 0)
    std::fprintf(stderr,
                 "zvradm: the text records are checked when the base configuration can be read: correct it "
                 "first\n");
  if (counts.faults == 0) {
    const session s(base);
    for (const text_type& type : text_types()) {
      if (!type.keywords) continue;
      const std::string path = base + "/" + type.file;
      if (type.many)
        check_folder(s.task(), type, path, counts);
      else
        check_file(s.task(), type, path, "", counts);
    }
  }
  print_json({{"files", counts.files}, {"faults", counts.faults}, {"notes", counts.notes}});
  return counts.faults > 0 ? exit_refused : exit_done;
}

}  // namespace

void add_check_config(CLI::App& app, globals& all) {
  CLI::App& sub = *app.add_subcommand("check-config", "Check the base configuration and all text records");
  sub.footer(R"(Each fault is told on standard error with file, line and reason. A note tells of a line
that is read, but not as it was meant: a service parameter of a route that is not known, an
address that is cut, a number that is none or too large. The exit code is 1 when a record cannot be read.

Example:
  zvradm --base /srv/zvr check-config)");
  sub.callback([&all] { all.answer = check_all(all); });
}

}  // namespace zvradm
