#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "common/held_descriptor.h"
#include "common/small_file.h"

namespace zvrdb::common {

char* read_small_file(const char* path, uint32_t max) {
  HeldDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status;
  if (file.fd < 0 || fstat(file.fd, &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(max)) {
    errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
    return nullptr;
  }
  const size_t room = static_cast<size_t>(status.st_size);
  char* text = static_cast<char*>(malloc(room + 1));
  if (text == nullptr) return nullptr;
  size_t length = 0;
  while (length < room) {
    const ssize_t got = read(file.fd, text + length, room - length);
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      const int reason = errno;
      free(text);
      errno = reason;
      return nullptr;
    }
    length += static_cast<size_t>(got);
  }
  text[length] = '\0';
  return text;
}

}  // namespace zvrdb::common
