#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/bounded_text.h"
#include "common/collation.h"
#include "common/common_areas.h"
#include "common/held_descriptor.h"
#include "common/init_error.h"
#include "common/open_lock.h"
#include "common/shared_folder.h"
#include "common/task_block.h"
#include "common/task_registry.h"

namespace zvrdb::common {
namespace {

constexpr char kSetupName[] = "setup";
constexpr char kControlName[] = "control";
constexpr char kNewControlName[] = "control.new";
constexpr mode_t kFileMode = 0660;

bool owner_fits(const Installation& installation, const struct stat& status) {
  if (status.st_uid == installation.owner) return true;
  return installation.group_may_write && status.st_gid == installation.group;
}

bool rights_fit(const Installation& installation, const struct stat& status) {
  return status.st_uid == installation.owner && status.st_gid == installation.group &&
         (status.st_mode & 07777) == kFileMode;
}

// What this user made, and for root what the owner of the installation made.
bool may_set_rights(const Installation& installation, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return false;
  return status.st_uid == geteuid() || (geteuid() == 0 && status.st_uid == installation.owner);
}

// Removes everything but the set-up lock.
bool clear_folder(int folder_fd) {
  const int listing_fd = openat(folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (listing_fd < 0) return false;
  DIR* listing = fdopendir(listing_fd);
  if (listing == nullptr) {
    close(listing_fd);
    return false;
  }
  bool cleared = true;
  while (const dirent* entry = readdir(listing)) {
    const char* name = entry->d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || strcmp(name, kSetupName) == 0) continue;
    if (unlinkat(folder_fd, name, 0) != 0 && errno != ENOENT) cleared = false;
  }
  closedir(listing);
  return cleared;
}

SharedControl* map_control(int fd) {
  void* address = mmap(nullptr, sizeof(SharedControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return address == MAP_FAILED ? nullptr : static_cast<SharedControl*>(address);
}

bool make_mutexes(SharedControl* control) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  bool made = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
              pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
              pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) == 0;
  for (SharedSemaphore& semaphore : control->semaphores)
    made = made && pthread_mutex_init(&semaphore.mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return made;
}

bool same_birth(const Installation& installation, const SharedControl* control) {
  return control->birth_seconds == installation.birth_seconds &&
         control->birth_nanoseconds == installation.birth_nanoseconds;
}

bool someone_lives(const Installation& installation, int folder_fd) {
  HeldDescriptor registry(open_shared_file(installation, folder_fd, kRegistryName, O_RDWR));
  if (registry.fd < 0) return errno != ENOENT;
  return range_locked(registry.fd, 0, CO_MAX_TASKS);
}

// A control file that is whole and of this installation; null when the state must
// be made anew; *foreign when a living state cannot be used.
SharedControl* map_present_control(const Installation& installation, int folder_fd, bool* unusable) {
  HeldDescriptor file(open_shared_file(installation, folder_fd, kControlName, O_RDWR));
  if (file.fd < 0) {
    if (errno != ENOENT)
      *unusable =
          !init_error("%s/%s is not a usable file: %s", installation.folder, kControlName, strerror(errno));
    return nullptr;
  }
  struct stat status;
  if (fstat(file.fd, &status) != 0 || status.st_size != static_cast<off_t>(sizeof(SharedControl))) {
    *unusable = someone_lives(installation, folder_fd);
  } else if (SharedControl* control = map_control(file.fd)) {
    if (control->magic == kControlMagic && control->size == sizeof(SharedControl) &&
        same_birth(installation, control))
      return control;
    munmap(control, sizeof(SharedControl));
    *unusable = someone_lives(installation, folder_fd);
  } else {
    *unusable = !init_error("%s/%s cannot be mapped: %s", installation.folder, kControlName, strerror(errno));
    return nullptr;
  }
  if (*unusable)
    init_error("the shared state %s is in use by another version of the library", installation.folder);
  return nullptr;
}

SharedControl* make_control(const Installation& installation, int folder_fd) {
  HeldDescriptor file(open_shared_file(installation, folder_fd, kNewControlName, O_RDWR | O_CREAT | O_EXCL));
  const int full = file.fd < 0 ? errno : allocate_shared_file(file.fd, sizeof(SharedControl));
  if (file.fd < 0 || full != 0) {
    init_error("%s/%s cannot be made: %s", installation.folder, kNewControlName, strerror(full));
    return nullptr;
  }
  SharedControl* control = map_control(file.fd);
  if (control == nullptr) {
    init_error("%s/%s cannot be mapped: %s", installation.folder, kNewControlName, strerror(errno));
    return nullptr;
  }
  control->magic = kControlMagic;
  control->size = sizeof(SharedControl);
  control->birth_seconds = installation.birth_seconds;
  control->birth_nanoseconds = installation.birth_nanoseconds;
  choose_collation(control->collation, sizeof control->collation);
  if (!make_mutexes(control)) {
    munmap(control, sizeof(SharedControl));
    init_error("the semaphores of %s cannot be made", installation.folder);
    return nullptr;
  }
  return control;
}

}  // namespace

bool describe_installation(const char* base, Installation* out) {
  *out = Installation{};
  if (base == nullptr || *base == '\0') base = getenv("ORVO_PATH");
  if (base == nullptr || *base == '\0')
    return init_error("no installation: the environment variable ORVO_PATH is not set");
  char* resolved = *base == '/' ? strdup(base) : realpath(base, nullptr);
  if (resolved == nullptr)
    return init_error("the base directory %s cannot be found: %s", base, strerror(errno));
  size_t length = strlen(resolved);
  while (length > 1 && resolved[length - 1] == '/') resolved[--length] = '\0';
  const bool fits = length < sizeof out->base;
  if (fits) copy_text(out->base, sizeof out->base, resolved);
  free(resolved);
  if (!fits)
    return init_error("the path of the base directory is longer than %zu characters", sizeof out->base - 1);

  HeldDescriptor directory(open(out->base, O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct statx status;
  if (directory.fd < 0 ||
      statx(directory.fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &status) != 0)
    return init_error("the base directory %s cannot be opened: %s", out->base, strerror(errno));
  out->owner = status.stx_uid;
  out->group = status.stx_gid;
  out->group_may_write = (status.stx_mode & S_IWGRP) != 0;
  if ((status.stx_mask & STATX_BTIME) != 0) {
    out->birth_seconds = status.stx_btime.tv_sec;
    out->birth_nanoseconds = status.stx_btime.tv_nsec;
  }
  const unsigned long long device =
      (static_cast<unsigned long long>(status.stx_dev_major) << 20) | status.stx_dev_minor;
  snprintf(out->folder, sizeof out->folder, "/dev/shm/zvr-%llx-%llx", device,
           static_cast<unsigned long long>(status.stx_ino));
  return true;
}

bool give_to_owner(const Installation& installation, int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) return false;
  if (status.st_uid == installation.owner && status.st_gid == installation.group) return true;
  if (geteuid() == 0) return fchown(fd, installation.owner, installation.group) == 0;
  if (status.st_gid != installation.group && fchown(fd, static_cast<uid_t>(-1), installation.group) != 0)
    return status.st_uid == installation.owner;
  return true;
}

// Members of a group may use the folder when they may write the base directory, and no
// other group ever: the rights of the base directory may have changed since the folder
// was made, and its owner may be no member of the group.  Who may set that right does.
bool fit_group_rights(const Installation& installation, int fd) {
  struct stat status;
  if (geteuid() == 0 || geteuid() == installation.owner) {
    (void)give_to_owner(installation, fd);
    if (fstat(fd, &status) != 0) return false;
    const bool shared = installation.group_may_write && status.st_gid == installation.group;
    const mode_t wanted = shared ? 0770 : 0700;
    if ((status.st_mode & 07777) != wanted && fchmod(fd, wanted) != 0) return false;
  }
  if (fstat(fd, &status) != 0) return false;
  return (status.st_mode & 070) == 0 || (installation.group_may_write && status.st_gid == installation.group);
}

int open_shared_folder(const Installation& installation, bool make) {
  bool made = false;
  if (make) {
    made = mkdir(installation.folder, 0700) == 0;
    if (!made && errno != EEXIST) {
      init_error("%s cannot be made: %s", installation.folder, strerror(errno));
      return -1;
    }
  }
  HeldDescriptor folder(open(installation.folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.fd < 0) {
    const int reason = errno;
    if (reason == EACCES)
      init_error("%s may be used by user %u, who owns %s,%s and root alone", installation.folder,
                 installation.owner, installation.base, installation.group_may_write ? " its group" : "");
    else if (make || reason != ENOENT)
      init_error("%s is not a usable directory: %s", installation.folder, strerror(reason));
    errno = reason;
    return -1;
  }
  if (made && !give_to_owner(installation, folder.fd)) {
    init_error("%s cannot be given to its owner: %s; user %u, who owns %s, or root must make it",
               installation.folder, strerror(errno), installation.owner, installation.base);
    rmdir(installation.folder);
    return -1;
  }
  struct stat status;
  if (fstat(folder.fd, &status) != 0 || status.st_uid != installation.owner || (status.st_mode & 07) != 0) {
    if (made) rmdir(installation.folder);
    if (made)
      init_error(
          "there is no shared state yet, and user %u, who owns %s, or root must make it: "
          "let them run 'zvradm status' once",
          installation.owner, installation.base);
    else
      init_error("%s does not belong to the owner of %s (user %u): it is refused", installation.folder,
                 installation.base, installation.owner);
    errno = EPERM;
    return -1;
  }
  if (!fit_group_rights(installation, folder.fd)) {
    init_error("%s is open to a group that may not write %s: user %u, who owns it, or root must start first",
               installation.folder, installation.base, installation.owner);
    errno = EPERM;
    return -1;
  }
  return folder.release();
}

int take_setup_lock(const Installation& installation, int folder_fd, bool* gone) {
  *gone = false;
  HeldDescriptor file(open_shared_file(installation, folder_fd, kSetupName, O_RDWR | O_CREAT));
  struct stat status;
  if (file.fd < 0) {
    *gone = errno == ENOENT;  // a removed directory takes no new file
    if (!*gone) init_error("the set-up lock cannot be opened: %s", strerror(errno));
    return -1;
  }
  if (!lock_range(file.fd, F_WRLCK, 0, 1, true) || fstat(file.fd, &status) != 0) {
    init_error("the set-up lock cannot be taken: %s", strerror(errno));
    return -1;
  }
  if (status.st_nlink == 0) {
    *gone = true;
    return -1;
  }
  return file.release();
}

int open_shared_file(const Installation& installation, int folder_fd, const char* name, int flags) {
  HeldDescriptor file(openat(folder_fd, name, flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, kFileMode));
  if (file.fd < 0) return -1;
  struct stat status;
  if (fstat(file.fd, &status) != 0) return -1;
  if (may_set_rights(installation, status) && !rights_fit(installation, status) &&
      (fchmod(file.fd, kFileMode) != 0 || !give_to_owner(installation, file.fd) ||
       fstat(file.fd, &status) != 0))
    return -1;
  if (!S_ISREG(status.st_mode) || !owner_fits(installation, status)) {
    errno = EPERM;
    return -1;
  }
  return file.release();
}

int allocate_shared_file(int fd, uint64_t size) {
  int result;
  do {
    result = posix_fallocate(fd, 0, static_cast<off_t>(size));
  } while (result == EINTR);
  return result;
}

SharedControl* map_or_make_control(const Installation& installation, int folder_fd) {
  bool unusable = false;
  if (SharedControl* present = map_present_control(installation, folder_fd, &unusable)) return present;
  if (unusable) return nullptr;
  if (!clear_folder(folder_fd)) {
    init_error("%s cannot be cleared: %s", installation.folder, strerror(errno));
    return nullptr;
  }
  SharedControl* control = make_control(installation, folder_fd);
  if (control == nullptr) return nullptr;
  if (!fill_configuration_areas(installation, folder_fd)) {
    munmap(control, sizeof(SharedControl));
    return nullptr;
  }
  if (renameat(folder_fd, kNewControlName, folder_fd, kControlName) != 0) {
    init_error("%s/%s cannot be put in place: %s", installation.folder, kControlName, strerror(errno));
    munmap(control, sizeof(SharedControl));
    return nullptr;
  }
  return control;
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

namespace {

uint32_t tell_live_tasks(int registry_fd, const SharedControl* control, co_task_info* out, uint32_t max) {
  uint32_t count = 0;
  for (uint32_t place = 0; place < CO_MAX_TASKS; ++place) {
    if (!place_locked(registry_fd, place)) continue;
    if (count < max) {
      co_task_info info{};
      info.place = place;
      if (control != nullptr) describe_place(control, place, &info);
      out[count] = info;
    }
    ++count;
  }
  return count;
}

}  // namespace

const char* co_shared_folder(void* handle) {
  return task_of(handle) == nullptr ? nullptr : process().installation.folder;
}

uint16_t co_reset(const char* base, co_task_info* out, uint32_t max, uint32_t* count) {
  clear_init_error();
  if (count != nullptr) *count = 0;
  if (out == nullptr) max = 0;
  std::lock_guard<std::mutex> guard(process().mutex);
  Installation installation;
  if (!describe_installation(base, &installation)) return CO_FAILURE;
  HeldDescriptor folder(open_shared_folder(installation, false));
  if (folder.fd < 0) return errno == ENOENT ? CO_OK : CO_FAILURE;
  bool gone = false;
  HeldDescriptor setup(take_setup_lock(installation, folder.fd, &gone));
  if (setup.fd < 0) return gone ? CO_OK : CO_FAILURE;
  {
    HeldDescriptor registry(open_shared_file(installation, folder.fd, kRegistryName, O_RDWR));
    if (registry.fd < 0 && errno != ENOENT) {
      init_error("%s/%s, which tells the live tasks, cannot be opened: %s", installation.folder,
                 kRegistryName, strerror(errno));
      return CO_FAILURE;
    }
    if (registry.fd >= 0 && range_locked(registry.fd, 0, CO_MAX_TASKS)) {
      bool unusable = false;
      SharedControl* control = map_present_control(installation, folder.fd, &unusable);
      const uint32_t living = tell_live_tasks(registry.fd, control, out, max);
      if (control != nullptr) munmap(control, sizeof(SharedControl));
      if (count != nullptr) *count = living;
      init_error("%u tasks of the installation are alive", living);
      return CO_FAILURE;
    }
  }
  // The lock file goes last: who waits for it finds it unlinked and starts again.
  const bool cleared = clear_folder(folder.fd) && unlinkat(folder.fd, kSetupName, 0) == 0;
  // A directory that is not empty has a new user already, who begins anew.  An empty one
  // that only its owner may remove is as good as none.
  if (cleared && (rmdir(installation.folder) == 0 || errno == ENOTEMPTY || errno == EEXIST ||
                  errno == EPERM || errno == EACCES))
    return CO_OK;
  init_error("%s cannot be removed: %s", installation.folder, strerror(errno));
  return CO_FAILURE;
}
