#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/open_lock.h"

namespace zvrdb::common {
namespace {

struct flock range_of(short type, off_t start, off_t length) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = start;
  range.l_len = length;
  return range;
}

}  // namespace

bool lock_range(int fd, short type, off_t start, off_t length, bool wait) {
  struct flock range = range_of(type, start, length);
  int result;
  do {
    result = fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &range);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool range_locked(int fd, off_t start, off_t length) {
  struct flock range = range_of(F_WRLCK, start, length);
  if (fcntl(fd, F_OFD_GETLK, &range) != 0) return true;
  return range.l_type != F_UNLCK;
}

}  // namespace zvrdb::common
