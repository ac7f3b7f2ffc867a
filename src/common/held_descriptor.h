// A descriptor that is closed when it leaves its scope.
#pragma once

#include <unistd.h>

namespace zvrdb::common {

struct HeldDescriptor {
  int fd = -1;
  explicit HeldDescriptor(int opened) : fd(opened) {}
  HeldDescriptor(const HeldDescriptor&) = delete;
  HeldDescriptor& operator=(const HeldDescriptor&) = delete;
  ~HeldDescriptor() {
    if (fd >= 0) ::close(fd);
  }
  int release() {
    const int kept = fd;
    fd = -1;
    return kept;
  }
};

}  // namespace zvrdb::common
