// file hold: runs a command while no write operation is under way in record files.
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "commands.h"
#include "database_files.h"
#include "engine/writers_held.h"

namespace zvradm {

namespace {

using zvrdb::engine::writers_held;

struct hold_options {
  std::vector<std::string> files;
  std::string command;
};

// Without those that name the same file once more: who holds it would wait for itself.
std::vector<std::string> each_once(const std::vector<std::string>& names) {
  std::vector<std::string> files;
  for (const std::string& name : names) {
    const bool again = std::any_of(files.begin(), files.end(), [&](const std::string& other) {
      std::error_code missing;  // such a file is refused when it is opened
      return name == other || std::filesystem::equivalent(name, other, missing);
    });
    if (!again) files.push_back(name);
  }
  return files;
}

// The system's word on it; empty when the file can be opened by now.
std::string why_not_for_writing(const std::string& name) {
  std::FILE* file = std::fopen(name.c_str(), "r+b");
  if (!file) return std::string(": ") + std::strerror(errno);
  std::fclose(file);
  return "";
}

void hold(const hold_options& options) {
  const std::vector<std::string> files = each_once(record_files_among(options.files));
  if (files.empty()) throw refusal("none of the names is a record file: nothing was held, nothing was run");
  // In the order of the names given: two holders that name them alike never wait for
  // each other.
  std::vector<std::unique_ptr<writers_held>> held;
  for (const std::string& name : files) {
    held.push_back(std::make_unique<writers_held>(name.c_str()));
    const int result = held.back()->result();
    if (result == zvrdb::engine::e_byte_lock) throw refusal(name + ": this file system takes no byte locks");
    if (result == zvrdb::engine::e_not_found)
      throw refusal(name + ": cannot be opened for writing" + why_not_for_writing(name));
    if (result != 0) throw refusal(name + ": cannot be kept still: code " + std::to_string(result));
  }
  const int status = std::system(options.command.c_str());
  if (status == -1) throw refusal("the command cannot be run");
  if (!WIFEXITED(status)) throw refusal("the command was ended by a signal");
  if (WEXITSTATUS(status) != 0)
    throw refusal("the command ended with code " + std::to_string(WEXITSTATUS(status)));
}

}  // namespace

void add_file_hold(CLI::App& file, globals& all) {
  (void)all;
  auto options = std::make_shared<hold_options>();
  CLI::App& sub =
      *file.add_subcommand("hold", "Run a command while no write operation is under way in record files");
  sub.add_option("FILE", options->files, "Record files, held in this order")->required();
  sub.add_option("--run", options->command, "Command line for the shell")->required();
  sub.footer(
      R"(Folders, journals and text records among the names are passed over and told. Writers wait
until the command has ended, and so does who begins to use the files, to read too; readers
at work go on. The command must not use the installation itself, as another zvradm would:
it would wait for this one for ever. 'zvradm file check' and 'zvradm status' may be in it.

Example, a copy of files in use:
  zvradm file hold /srv/zvr/db/* --run 'cp -r /srv/zvr/db/. /backup/db')");
  sub.callback([options] { hold(*options); });
}

}  // namespace zvradm
