// A fresh folder in memory-backed storage, removed with all it holds.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace zvrdb::test {

class scratch_folder {
 public:
  scratch_folder() {
    char name[] = "/dev/shm/zvrtestXXXXXX";
    if (!mkdtemp(name)) std::abort();
    path_ = name;
  }
  ~scratch_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace zvrdb::test
