// Writes the database of an older release, of any size and with the damage that real ones
// have: directories of text files, the binary catalog, CM status files.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace migration_test {

// An older catalog's record, 1,024 bytes.
std::string catalog_entry(const std::string& dotted_name, const std::string& text = "", const std::string& line = "");
std::string free_catalog_entry();
enum class mark { first, second };
std::string half_free_catalog_entry(mark which);

// An entry of a CM status file, 38 bytes; number 65535 is free.
std::string status_entry(unsigned number, unsigned status, const std::string& details = "");

struct older_target {
  std::string type = "push";  // word of the file, "" for no such line
  std::string rgn = "REGION"; // network id
  std::string ren = "TARGET"; // short name
  std::string description = "An older target";
  std::string os = "WINDOWS_NT";
  std::vector<std::string> users = {};
  std::vector<std::pair<std::string, std::string>> hardware = {};  // in the target's own file
  std::string more = "";  // further lines as they stand
  std::string text() const;
};

std::string hardware_text(const std::vector<std::pair<std::string, std::string>>& parms);
std::string parameter_text(const std::vector<std::pair<std::string, std::string>>& parms);

struct older_group {
  std::string type = "push";
  std::string os = "WINDOWS_NT";
  std::string ren = "GROUP";
  std::vector<std::string> members = {};
  unsigned tsps = 0;
  std::string text() const;
};

// "user_config" with these words for all three classes.
std::string user_config_text();

// Paths are relative to the base directory. Makes the directories on the way.
class older_database {
 public:
  explicit older_database(std::string base);
  // The directories and files that every older database has, still empty.
  void lay_out() const;
  void target(const std::string& name, const older_target& target) const;
  void hardware(const std::string& name, const std::vector<std::pair<std::string, std::string>>& parms) const;
  void parameters(const std::string& name, const std::vector<std::pair<std::string, std::string>>& parms) const;
  void group(const std::string& name, const older_group& group) const;
  void catalog(const std::vector<std::string>& entries) const;
  void status(const std::string& target, const std::string& entries) const;
  void file(const std::string& relative, const std::string& text) const;
  bool there(const std::string& relative) const;
  std::vector<std::string> entries_of_db() const;  // without journals

 private:
  std::string base_;
};

// A whole database by size. Targets are named "TRG00001" and on; every 10th is a server of
// its region, the others its clients.
struct older_size {
  unsigned targets = 10;
  unsigned change_files = 20;
  unsigned pairs_per_target = 5;
  unsigned users_per_target = 2;
  unsigned users = 5;  // different ones
  unsigned hardware = 3;
  unsigned parameters = 4;
  unsigned groups = 2;
  unsigned members = 3;
  bool damaged = false;  // corrupt catalog entries, odd user names, missing side records, case
};
std::string target_name(unsigned i);
void write_older_database(const std::string& base, const older_size& size);

}  // namespace migration_test
