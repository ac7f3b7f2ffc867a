#include "engine/report_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "engine/format.h"

namespace zvrdb::engine::report {
namespace {

constexpr int longest_wait_ms = 5000;
// Locked by a handle that has the file for itself; such a one writes without the bytes
// of the header page.
constexpr off_t denies_readers = (off_t{1} << 32) + 2;

// The file is open for reading alone, which allows shared locks only.  They conflict with
// the exclusive ones of every handle, and two reports may share a byte.
bool lock_shared(int fd, off_t at) {
  struct flock lock = {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = at;
  lock.l_len = 1;
  int result;
  do {
    result = fcntl(fd, F_OFD_SETLK, &lock);
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

void unlock(int fd, off_t at) {
  struct flock lock = {};
  lock.l_type = F_UNLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = at;
  lock.l_len = 1;
  (void)fcntl(fd, F_OFD_SETLK, &lock);
}

bool locked_by_others(int fd, off_t at) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = at;
  lock.l_len = 1;
  return fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

// Slots are taken from the top, where live handles come last.
int take_slot(int fd) {
  for (int slot = slot_count - 1; slot >= 0; slot--) {
    if (!lock_shared(fd, slot_bytes + slot)) continue;
    if (!locked_by_others(fd, slot_bytes + slot)) return slot;
    unlock(fd, slot_bytes + slot);
  }
  return -1;
}

// A writer holds the arbiter over the operation and all reader bytes while it writes; a
// reader passes both.
bool take_reader_byte(int fd, int slot) {
  for (int waited = 0; waited < longest_wait_ms; waited++) {
    if (!locked_by_others(fd, arbiter_byte) && lock_shared(fd, reader_bytes + slot)) return true;
    struct timespec pause = {0, 1000000};
    nanosleep(&pause, nullptr);
  }
  return false;
}

}  // namespace

bool open_reader(const char* path, report_reader* reader, std::string* reason) {
  *reader = report_reader();
  if (!path) {
    *reason = "no path was given";
    return false;
  }
  // Not blocking: a named pipe must not hold the report up.
  int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) {
    *reason = std::string("can't be opened: ") + strerrordesc_np(errno);
    if (fd >= 0) close(fd);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    *reason = "isn't a regular file";
    close(fd);
    return false;
  }
  reader->fd = fd;
  int slot = take_slot(fd);
  bool taken_whole = locked_by_others(fd, denies_readers);
  reader->guarded = !taken_whole && slot >= 0 && take_reader_byte(fd, slot);
  // The size counts from here on: a writer may have grown the file until the byte was held.
  if (fstat(fd, &status) == 0) reader->size = static_cast<std::uint64_t>(status.st_size);
  return true;
}

void close_reader(report_reader* reader) {
  if (reader->fd >= 0) close(reader->fd);
  *reader = report_reader();
}

bool read_bytes(const report_reader& reader, std::uint64_t offset, void* out, std::size_t n) {
  unsigned char* at = static_cast<unsigned char*>(out);
  while (n > 0) {
    ssize_t got = pread(reader.fd, at, n, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    offset += static_cast<std::uint64_t>(got);
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace zvrdb::engine::report
