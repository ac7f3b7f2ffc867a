#include "ownership.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "refusals.h"

namespace zvradm {

void give_to_owner_of(const std::string& base, int descriptor) {
  struct stat owner {
  }, made{};
  if (stat(base.c_str(), &owner) != 0 || fstat(descriptor, &made) != 0)
    throw refusal(base + ": its owner cannot be read: " + std::strerror(errno));
  const bool root = geteuid() == 0;
  if (root && (made.st_uid != owner.st_uid || made.st_gid != owner.st_gid) &&
      fchown(descriptor, owner.st_uid, owner.st_gid) != 0)
    throw refusal(base + ": what was made there cannot be given to its owner: " + std::strerror(errno));
  if (!root && made.st_gid != owner.st_gid && fchown(descriptor, static_cast<uid_t>(-1), owner.st_gid) != 0)
    return;
  const mode_t wanted = made.st_mode | (owner.st_mode & (S_IWGRP | S_ISGID));
  const mode_t mode = (S_ISDIR(made.st_mode) ? wanted : wanted & ~static_cast<mode_t>(S_ISGID)) & 07777;
  if (mode != (made.st_mode & 07777) && fchmod(descriptor, mode) != 0 && root)
    throw refusal(base + ": what was made there cannot be opened to its group: " + std::strerror(errno));
}

}  // namespace zvradm
