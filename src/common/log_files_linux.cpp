#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "common/bounded_text.h"
#include "common/log_files.h"
#include "common/process.h"
#include "common/shared_folder.h"

namespace zvrdb::common {
namespace {

struct OpenLog {
  int fd = -1;
  char path[CO_PATH_MAX] = {};
};

OpenLog logs[2];  // under log_mutex
std::mutex log_mutex;

OpenLog& log_of(LogFile file) {
  return logs[file == LogFile::trace ? 0 : 1];
}

void name_log(LogFile file, OpenLog* log) {
  const Installation& installation = process().installation;
  const char* chosen = file == LogFile::trace ? getenv("ZVR_TRACE_FILE") : nullptr;
  if (chosen != nullptr && *chosen != '\0') {
    copy_text(log->path, sizeof log->path, chosen);
    return;
  }
  snprintf(log->path, sizeof log->path, "%s/log/%s", installation.base,
           file == LogFile::trace ? "trace.log" : "messages.log");
}

// Opens a log that is there, or makes it with the access rights of the installation:
// whoever of its users makes it, the others write to it too.
int open_or_make(const char* path) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY;
  const int made = open(path, kFlags | O_CREAT | O_EXCL, 0664);
  if (made < 0) return errno == EEXIST ? open(path, kFlags) : -1;
  const Installation& installation = process().installation;
  // Without these rights it is a log all the same.
  (void)give_to_owner(installation, made);
  if (installation.group_may_write) (void)fchmod(made, 0664);
  return made;
}

void open_log(OpenLog* log) {
  log->fd = open_or_make(log->path);
  if (log->fd >= 0 || errno != ENOENT) return;
  char directory[CO_PATH_MAX];
  snprintf(directory, sizeof directory, "%s/log", process().installation.base);
  if (mkdir(directory, 0775) == 0 || errno == EEXIST) log->fd = open_or_make(log->path);
}

// Removed, renamed, or another file is in its place.
bool moved_away(const OpenLog& log) {
  struct stat open_one;
  struct stat named;
  return fstat(log.fd, &open_one) != 0 || stat(log.path, &named) != 0 || open_one.st_ino != named.st_ino ||
         open_one.st_dev != named.st_dev;
}

}  // namespace

void append_line(LogFile file, const char* line, size_t length) {
  std::lock_guard<std::mutex> guard(log_mutex);
  OpenLog& log = log_of(file);
  if (log.path[0] == '\0') name_log(file, &log);
  if (log.fd >= 0 && moved_away(log)) {
    close(log.fd);
    log.fd = -1;
  }
  if (log.fd < 0) open_log(&log);
  if (log.fd < 0) return;
  ssize_t written;
  do {
    written = write(log.fd, line, length);
  } while (written < 0 && errno == EINTR);
}

const char* log_path(LogFile file) {
  std::lock_guard<std::mutex> guard(log_mutex);
  OpenLog& log = log_of(file);
  if (log.path[0] == '\0') name_log(file, &log);
  return log.path;
}

void stamp_now(char* out, size_t size) {
  co_date date;
  co_time time;
  co_date_time(nullptr, &date, &time);
  snprintf(out, size, "%04u-%02u-%02u %02u:%02u:%02u.%02u", date.year, date.month, date.day, time.hour,
           time.minute, time.second, time.hundredth);
}

void close_log_files() {
  std::lock_guard<std::mutex> guard(log_mutex);
  for (OpenLog& log : logs) {
    if (log.fd >= 0) close(log.fd);
    log = OpenLog{};
  }
}

void forget_log_files() {
  for (OpenLog& log : logs) {
    if (log.fd >= 0) close(log.fd);
    log = OpenLog{};
  }
}

void lock_log_files() {
  log_mutex.lock();
}
void unlock_log_files() {
  log_mutex.unlock();
}

}  // namespace zvrdb::common
