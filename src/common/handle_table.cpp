#include "common/handle_table.h"

#include <atomic>

namespace zvrdb::common {
namespace {
constexpr uint32_t kMaxDirectories = 64;
std::atomic<DIR*> directories[kMaxDirectories];
}  // namespace

uint32_t keep_directory(DIR* directory) {
  for (uint32_t i = 0; i < kMaxDirectories; ++i) {
    DIR* expected = nullptr;
    if (directories[i].compare_exchange_strong(expected, directory)) return i + 1;
  }
  return 0;
}

DIR* kept_directory(uint32_t handle) {
  return handle == 0 || handle > kMaxDirectories ? nullptr : directories[handle - 1].load();
}

DIR* give_up_directory(uint32_t handle) {
  return handle == 0 || handle > kMaxDirectories ? nullptr : directories[handle - 1].exchange(nullptr);
}

void close_directories_of_parent() {
  for (std::atomic<DIR*>& directory : directories)
    if (DIR* listing = directory.exchange(nullptr)) closedir(listing);
}

}  // namespace zvrdb::common
