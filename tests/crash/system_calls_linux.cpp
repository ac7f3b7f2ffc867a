#include "crash/system_calls.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace crash_test {
namespace {

constexpr int most_points = 100000;

bool counting = false;
int points = 0;
int deadly = 0;
const char* calls[most_points];

void point(const char* call) {
  if (!counting) return;
  if (points < most_points) calls[points] = call;
  if (++points == deadly) {
    kill(getpid(), SIGKILL);
    for (;;) pause();
  }
}

// The call between its two points.
template <class... Arguments>
long made(const char* name, long number, Arguments... arguments) {
  point(name);
  const long result = syscall(number, arguments...);
  const int error = errno;
  point(name);
  errno = error;
  return result;
}

}  // namespace

void count_points(int kill_at) {
  points = 0;
  deadly = kill_at;
  counting = true;
}

int end_points() {
  counting = false;
  return points;
}

const char* call_of_point(int number) {
  return number >= 1 && number <= points && number <= most_points ? calls[number - 1] : "?";
}

void tell(int descriptor, const void* bytes, unsigned long n) {
  syscall(SYS_write, descriptor, bytes, n);
}

}  // namespace crash_test

// In the place of the C library's.
#define SEEN extern "C" __attribute__((visibility("default")))
using crash_test::made;

SEEN ssize_t pwrite(int fd, const void* from, size_t n, off_t offset) {
  return made("pwrite", SYS_pwrite64, fd, from, n, offset);
}
SEEN ssize_t write(int fd, const void* from, size_t n) {
  return made("write", SYS_write, fd, from, n);
}
SEEN int fdatasync(int fd) {
  return static_cast<int>(made("fdatasync", SYS_fdatasync, fd));
}
SEEN int fsync(int fd) {
  return static_cast<int>(made("fsync", SYS_fsync, fd));
}
SEEN int link(const char* from, const char* to) noexcept {
  return static_cast<int>(made("link", SYS_link, from, to));
}
SEEN int linkat(int from_fd, const char* from, int to_fd, const char* to, int flags) noexcept {
  return static_cast<int>(made("linkat", SYS_linkat, from_fd, from, to_fd, to, flags));
}
SEEN int rename(const char* from, const char* to) noexcept {
  return static_cast<int>(made("rename", SYS_rename, from, to));
}
SEEN int renameat(int from_fd, const char* from, int to_fd, const char* to) noexcept {
  return static_cast<int>(made("renameat", SYS_renameat, from_fd, from, to_fd, to));
}
SEEN int unlink(const char* name) noexcept {
  return static_cast<int>(made("unlink", SYS_unlink, name));
}
SEEN int unlinkat(int fd, const char* name, int flags) noexcept {
  return static_cast<int>(made("unlinkat", SYS_unlinkat, fd, name, flags));
}
SEEN int ftruncate(int fd, off_t length) noexcept {
  return static_cast<int>(made("ftruncate", SYS_ftruncate, fd, length));
}
SEEN int posix_fallocate(int fd, off_t offset, off_t length) {
  return made("fallocate", SYS_fallocate, fd, 0, offset, length) == 0 ? 0 : errno;
}
SEEN int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  switch (command) {
    case F_SETLK:
    case F_SETLKW:
    case F_OFD_SETLK:
    case F_OFD_SETLKW:
      return static_cast<int>(made("lock", SYS_fcntl, fd, command, argument));
    default:
      return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
  }
}
