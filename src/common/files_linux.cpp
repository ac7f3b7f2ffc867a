// Files and directories.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/bounded_text.h"
#include "common/handle_table.h"
#include "common/process.h"
#include "common/shared_folder.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr size_t kStampSize = 8;
constexpr size_t kStatusSizeOffset = 8;
constexpr size_t kStatusFilled = 14;  // callers may have no more
constexpr size_t kStatusAttributesOffset = 13;
constexpr unsigned char kPassedOver = 0x40;  // entries that listings skip

std::atomic<co_test_step_fn> step_asker{nullptr};

// What a test wants in place of a step that changes files; CO_OK lets it go on.
uint16_t asked(const char* step, const char* path) {
  const co_test_step_fn ask = step_asker.load(std::memory_order_relaxed);
  return ask == nullptr ? static_cast<uint16_t>(CO_OK) : ask(step, path);
}

bool good_path(const char* path) {
  return path != nullptr && *path != '\0' && strnlen(path, CO_PATH_MAX) < CO_PATH_MAX;
}

bool open_flags_of(uint32_t flags, int* out) {
  switch (flags) {
    case CO_OPEN_READ:
    case CO_OPEN_OLD_TEXT:
    case CO_OPEN_OLD:
      *out = O_RDONLY;
      return true;
    case CO_OPEN_REPLACE:
      *out = O_WRONLY | O_CREAT | O_TRUNC;
      return true;
    default:
      return false;
  }
}

bool below_base(const char* path) {
  const char* base = process().installation.base;
  const size_t length = strlen(base);
  return length > 0 && strncmp(path, base, length) == 0 && path[length] == '/';
}

// A directory of the installation belongs to whom the base directory belongs, and is as
// open to its group, whoever makes it.
bool fit_to_base(const char* path) {
  const Installation& installation = process().installation;
  struct stat base;
  struct stat made;
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  bool fits = stat(installation.base, &base) == 0 && give_to_owner(installation, fd) && fstat(fd, &made) == 0;
  if (fits && (made.st_uid == geteuid() || geteuid() == 0)) {
    const mode_t wanted = (made.st_mode | (base.st_mode & (S_IWGRP | S_ISGID))) & 07777;
    fits = (made.st_mode & 07777) == wanted || fchmod(fd, wanted) == 0;
  }
  close(fd);
  return fits;
}

uint16_t failure_of_path() {
  return errno == ENOENT || errno == ENOTDIR ? static_cast<uint16_t>(CO_NOT_FOUND)
                                             : static_cast<uint16_t>(CO_IO_ERROR);
}

uint16_t result_of(int outcome) {
  return outcome == 0 ? static_cast<uint16_t>(CO_OK) : failure_of_path();
}

void fill_status(const char* path, const struct stat& file, void* out) {
  unsigned char block[CO_STATUS_BLOCK] = {};
  const uint64_t whole = static_cast<uint64_t>(file.st_size);
  const uint32_t size = whole > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(whole);
  const uint64_t changed = static_cast<uint64_t>(file.st_mtim.tv_sec);
  memcpy(block, &changed, kStampSize);
  memcpy(block + kStatusSizeOffset, &size, sizeof size);
  const char* slash = strrchr(path, CO_SEPARATOR);
  const char* name = slash == nullptr ? path : slash + 1;
  if (S_ISDIR(file.st_mode) || *name == '.') block[kStatusAttributesOffset] |= kPassedOver;
  memcpy(out, block, kStatusFilled);
}

}  // namespace
}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_open(void* handle, const char* path, uint32_t flags, uint32_t* out) {
  if (task_of(handle) == nullptr || out == nullptr) return CO_BAD_ARGUMENT;
  *out = 0;
  int system_flags;
  if (!good_path(path) || !open_flags_of(flags, &system_flags)) return CO_BAD_ARGUMENT;
  if (flags == CO_OPEN_REPLACE) {
    const uint16_t answer = asked("open", path);
    if (answer != CO_OK) return answer;
  }
  const int fd = open(path, system_flags | O_CLOEXEC, 0664);
  if (fd < 0) return failure_of_path();
  struct stat status;
  if (fstat(fd, &status) != 0 || S_ISDIR(status.st_mode)) {
    close(fd);
    errno = EISDIR;
    return CO_IO_ERROR;
  }
  *out = static_cast<uint32_t>(fd) + 1;
  return CO_OK;
}

uint16_t co_read(void* handle, uint32_t file, void* buffer, uint32_t* length) {
  if (task_of(handle) == nullptr || file == 0 || length == nullptr || (buffer == nullptr && *length != 0))
    return CO_BAD_ARGUMENT;
  const uint32_t wanted = *length;
  *length = 0;
  while (*length < wanted) {
    const ssize_t got =
        read(static_cast<int>(file - 1), static_cast<char*>(buffer) + *length, wanted - *length);
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return CO_IO_ERROR;
    *length += static_cast<uint32_t>(got);
  }
  return CO_OK;
}

uint16_t co_write(void* handle, uint32_t file, const void* buffer, uint32_t length) {
  if (task_of(handle) == nullptr || file == 0 || (buffer == nullptr && length != 0)) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("write", nullptr);
  if (answer != CO_OK) return answer;
  const char* from = static_cast<const char*>(buffer);
  while (length > 0) {
    const ssize_t put = write(static_cast<int>(file - 1), from, length);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return CO_IO_ERROR;
    from += put;
    length -= static_cast<uint32_t>(put);
  }
  return CO_OK;
}

uint16_t co_fsync(void* handle, uint32_t file) {
  if (task_of(handle) == nullptr || file == 0) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("fsync", nullptr);
  if (answer != CO_OK) return answer;
  return fsync(static_cast<int>(file - 1)) == 0 ? CO_OK : CO_IO_ERROR;
}

uint16_t co_close(void* handle, uint32_t file) {
  if (task_of(handle) == nullptr || file == 0) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("close", nullptr);
  const bool closed = close(static_cast<int>(file - 1)) == 0;
  if (answer != CO_OK) return answer;
  return closed ? CO_OK : CO_IO_ERROR;
}

uint16_t co_lseek(void* handle, uint32_t file, uint32_t zero1, uint32_t zero2, uint32_t* out) {
  if (task_of(handle) == nullptr || file == 0) return CO_BAD_ARGUMENT;
  if (zero1 != 0 || zero2 != 0) return CO_BAD_ARGUMENT;
  if (lseek(static_cast<int>(file - 1), 0, SEEK_SET) != 0) return CO_IO_ERROR;
  if (out != nullptr) *out = 0;
  return CO_OK;
}

uint16_t co_remove(void* handle, const char* path, uint32_t flag) {
  (void)flag;
  if (task_of(handle) == nullptr || !good_path(path)) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("remove", path);
  return answer != CO_OK ? answer : result_of(unlink(path));
}

uint16_t co_rename(void* handle, const char* from, const char* to, uint32_t one) {
  (void)one;
  if (task_of(handle) == nullptr || !good_path(from) || !good_path(to)) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("rename", from);
  return answer != CO_OK ? answer : result_of(rename(from, to));
}

uint16_t co_mkdir(void* handle, const char* path) {
  if (task_of(handle) == nullptr || !good_path(path)) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("mkdir", path);
  if (answer != CO_OK) return answer;
  if (mkdir(path, 0775) != 0) return result_of(-1);
  if (below_base(path) && !fit_to_base(path)) {
    const uint16_t failure = result_of(-1);
    rmdir(path);
    return failure;
  }
  return CO_OK;
}

uint16_t co_rmdir(void* handle, const char* path) {
  if (task_of(handle) == nullptr || !good_path(path)) return CO_BAD_ARGUMENT;
  const uint16_t answer = asked("rmdir", path);
  return answer != CO_OK ? answer : result_of(rmdir(path));
}

uint16_t co_opendir(void* handle, const char* path, uint32_t* out, uint32_t one) {
  (void)one;
  if (task_of(handle) == nullptr || out == nullptr) return CO_BAD_ARGUMENT;
  *out = 0;
  if (!good_path(path)) return CO_BAD_ARGUMENT;
  DIR* listing = opendir(path);
  if (listing == nullptr) return failure_of_path();
  *out = keep_directory(listing);
  if (*out != 0) return CO_OK;
  closedir(listing);
  return CO_NO_MEMORY;
}

uint16_t co_readdir(void* handle, uint32_t* directory, char* name, uint32_t size) {
  if (task_of(handle) == nullptr || directory == nullptr || name == nullptr || size == 0)
    return CO_BAD_ARGUMENT;
  DIR* listing = kept_directory(*directory);
  if (listing == nullptr) return CO_BAD_ARGUMENT;
  errno = 0;
  const dirent* entry = readdir(listing);
  if (entry == nullptr) return errno == 0 ? CO_END_OF_DIR : CO_IO_ERROR;
  if (strlen(entry->d_name) >= size) {
    errno = ENAMETOOLONG;
    return CO_IO_ERROR;
  }
  snprintf(name, size, "%s", entry->d_name);
  return CO_OK;
}

uint16_t co_closedir(void* handle, uint32_t* directory) {
  if (task_of(handle) == nullptr || directory == nullptr) return CO_BAD_ARGUMENT;
  DIR* listing = give_up_directory(*directory);
  *directory = 0;
  if (listing == nullptr) return CO_BAD_ARGUMENT;
  return closedir(listing) == 0 ? CO_OK : CO_IO_ERROR;
}

uint16_t co_get_mod(void* handle, const char* path, void* stamp, void* buffer, void* status) {
  if (task_of(handle) == nullptr || !good_path(path)) return CO_BAD_ARGUMENT;
  struct stat file;
  if (stat(path, &file) != 0) return failure_of_path();
  if (stamp != nullptr) {
    const int64_t moment = static_cast<int64_t>(file.st_mtim.tv_sec) * 1000000000 + file.st_mtim.tv_nsec;
    static_assert(sizeof moment == kStampSize);
    memcpy(stamp, &moment, kStampSize);
  }
  if (status != nullptr) fill_status(path, file, status);
  return buffer == nullptr ? CO_FILE_STATUS : CO_OK;
}

uint16_t co_dflt_mod(void* handle, const char* path, uint32_t one) {
  (void)one;
  if (task_of(handle) == nullptr || !good_path(path)) return CO_BAD_ARGUMENT;
  constexpr mode_t permissions = 0660;
  // Asked for at each open of a file, it is nearly always so already.
  const Installation& installation = process().installation;
  struct stat status;
  if (stat(path, &status) == 0 && (status.st_mode & 07777) == permissions &&
      status.st_uid == installation.owner && status.st_gid == installation.group)
    return CO_OK;
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return failure_of_path();
  const bool set = fchmod(fd, permissions) == 0 && give_to_owner(installation, fd);
  const uint16_t result = result_of(set ? 0 : -1);
  close(fd);
  return result;
}

void co_test_file_steps(co_test_step_fn ask) {
  step_asker.store(ask, std::memory_order_relaxed);
}
