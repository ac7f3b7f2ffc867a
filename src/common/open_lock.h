// Byte locks of open file descriptions: they conflict between any two descriptions,
// of one process too, and end with the last descriptor of theirs.
#pragma once

#include <sys/types.h>

namespace zvrdb::common {

// type: F_RDLCK, F_WRLCK, F_UNLCK.  wait: blocks in the kernel until free.
bool lock_range(int fd, short type, off_t start, off_t length, bool wait);
// True when another description holds any lock on the range (or the question fails).
bool range_locked(int fd, off_t start, off_t length);

}  // namespace zvrdb::common
