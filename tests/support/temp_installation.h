// A fresh installation for a test: a base directory in memory, removed with its
// shared state at the end.
#pragma once

#include <cstdint>
#include <string>

namespace zvrdb::test {

struct ConfigChoices {
  std::string workstation = "LOCAL";
  std::string kind = "SERVER_NO_COMMS";  // needs no local target's record
  uint32_t max_targets = 100;
  uint32_t max_local_targets = 50;
  uint32_t max_server_targets = 50;
};

// Text of an "orvo.cfg" with these choices and nothing else.
std::string default_config(const ConfigChoices& choices = {});

// Makes the base directory with an empty "db", writes "orvo.cfg" (none for an empty
// text) and sets ORVO_PATH.  At the end: ORVO_PATH is unset, base directory and
// shared folder are removed, whatever still uses them.  One at a time in a process.
class TempInstallation {
 public:
  explicit TempInstallation(const std::string& config = default_config());
  ~TempInstallation();
  TempInstallation(const TempInstallation&) = delete;
  TempInstallation& operator=(const TempInstallation&) = delete;

  const std::string& base() const { return base_; }
  // The shared folder, there once a first task was made.
  const std::string& shared_folder() const { return shared_folder_; }
  std::string path(const std::string& relative) const { return base_ + "/" + relative; }
  void write(const std::string& relative, const std::string& text) const;
  // The whole file; empty when there is none.
  std::string read(const std::string& relative) const;

 private:
  std::string base_;
  std::string shared_folder_;
};

}  // namespace zvrdb::test
