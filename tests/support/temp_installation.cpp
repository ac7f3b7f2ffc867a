#include "support/temp_installation.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace zvrdb::test {
namespace {

std::string shared_folder_of(const std::string& base) {
  struct stat status {};
  if (stat(base.c_str(), &status) != 0) throw std::runtime_error("stat " + base);
  char name[64];
  const unsigned long long device =
      (static_cast<unsigned long long>(major(status.st_dev)) << 20) | minor(status.st_dev);
  snprintf(name, sizeof name, "/dev/shm/zvr-%llx-%llx", device,
           static_cast<unsigned long long>(status.st_ino));
  return name;
}

}  // namespace

std::string default_config(const ConfigChoices& choices) {
  std::ostringstream text;
  text << "WORKSTATION NAME:     " << choices.workstation << "\n"
       << "MAX TARGETS:          " << choices.max_targets << "\n"
       << "CONFIGURATION:        " << choices.kind << "\n"
       << "MAX LOCAL TARGETS:   " << choices.max_local_targets << "\n"
       << "MAX SERVER TARGETS:  " << choices.max_server_targets << "\n";
  return text.str();
}

TempInstallation::TempInstallation(const std::string& config) {
  char name[] = "/dev/shm/zvrtest-XXXXXX";
  if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp");
  base_ = name;
  shared_folder_ = shared_folder_of(base_);
  // An inode number may come again: what another run left is not ours.
  std::filesystem::remove_all(shared_folder_);
  std::filesystem::create_directory(base_ + "/db");
  if (!config.empty()) write("orvo.cfg", config);
  setenv("ORVO_PATH", base_.c_str(), 1);
}

TempInstallation::~TempInstallation() {
  unsetenv("ORVO_PATH");
  std::error_code ignored;
  std::filesystem::remove_all(shared_folder_, ignored);
  std::filesystem::remove_all(base_, ignored);
}

void TempInstallation::write(const std::string& relative, const std::string& text) const {
  const std::filesystem::path file = path(relative);
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
}

std::string TempInstallation::read(const std::string& relative) const {
  std::ifstream file(path(relative), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace zvrdb::test
