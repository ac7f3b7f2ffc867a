// The operations on Linux.
//
// Locks are open-file-description locks: a lock of one descriptor conflicts with every
// other one, in the same process too; it dies with its descriptor, and closing another
// descriptor of the file drops nothing.
//
// Share modes are kept with locks on bytes behind the largest possible file:
//
//   2^32 + 0  uses: reads      a shared lock of every handle
//        + 1  uses: writes     a shared lock of every handle that may write
//        + 2  denies: reads    a shared lock of a handle that shares no reads
//        + 3  denies: writes   a shared lock of a handle that shares no writes
//        + 4  gate             held alone while the four are checked and taken
//
// Who denies nothing needs no gate: it takes its uses, and then looks for denials.  Who denies
// takes its denials, and then looks for uses.  So of two at once one sees the other; who met a
// denial gives its uses back and asks again behind the gate, where it is told for good.
//
// A program that keeps no such bytes still takes slots, so a handle that denies all
// also looks at the slot bytes.
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/format.h"
#include "engine/mapped_pages.h"
#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

constexpr std::uint64_t share_base = std::uint64_t{1} << 32;
constexpr std::uint64_t uses_read = share_base;
constexpr std::uint64_t uses_write = share_base + 1;
constexpr std::uint64_t denies_read = share_base + 2;
constexpr std::uint64_t denies_write = share_base + 3;
constexpr std::uint64_t gate = share_base + 4;
constexpr std::size_t path_limit = 4096;

struct flock range_of(short kind, std::uint64_t offset, std::uint64_t length) {
  struct flock f;
  std::memset(&f, 0, sizeof f);
  f.l_type = kind;
  f.l_whence = SEEK_SET;
  f.l_start = static_cast<off_t>(offset);
  f.l_len = static_cast<off_t>(length);
  return f;
}

lock_answer set_lock(int file, short kind, std::uint64_t offset, std::uint64_t length) {
  struct flock f = range_of(kind, offset, length);
  while (fcntl(file, F_OFD_SETLK, &f) != 0) {
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EACCES ? lock_answer::busy : lock_answer::failed;
  }
  return lock_answer::taken;
}

std::int64_t linux_find_held(int file, std::uint64_t offset, std::uint64_t length) {
  struct flock f = range_of(F_WRLCK, offset, length);
  while (fcntl(file, F_OFD_GETLK, &f) != 0) {
    if (errno != EINTR) return -1;
  }
  if (f.l_type == F_UNLCK) return none_held;
  return f.l_start > static_cast<off_t>(offset) ? f.l_start : static_cast<std::int64_t>(offset);
}

// 1 another descriptor has any lock in the range, 0 none, -1 failed.
int foreign_lock(int file, std::uint64_t offset, std::uint64_t length) {
  const std::int64_t held = linux_find_held(file, offset, length);
  return held == none_held ? 0 : held < 0 ? -1 : 1;
}

int linux_unlock(int file, std::uint64_t offset, std::uint64_t length) {
  return set_lock(file, F_UNLCK, offset, length) == lock_answer::taken ? 0 : -1;
}

// A descriptor without the right to write cannot take an exclusive lock.  It takes a
// shared one and lets go again if anybody else has the byte.
lock_answer linux_lock(int file, std::uint64_t offset, std::uint64_t length) {
  lock_answer answer = set_lock(file, F_WRLCK, offset, length);
  if (answer != lock_answer::failed || errno != EBADF) return answer;
  answer = set_lock(file, F_RDLCK, offset, length);
  if (answer != lock_answer::taken) return answer;
  const int others = foreign_lock(file, offset, length);
  if (others == 0) return lock_answer::taken;
  linux_unlock(file, offset, length);
  return others > 0 ? lock_answer::busy : lock_answer::failed;
}

int linux_probe(int file, std::uint64_t offset) { return foreign_lock(file, offset, 1); }

void linux_wait(unsigned attempt) {
  if (attempt < give_way) return;
  if (attempt < 12) {
    sched_yield();
    return;
  }
  const unsigned doublings = attempt - 12 < 5 ? attempt - 12 : 5;
  long pause = 50'000L << doublings;
  if (pause > 1'000'000) pause = 1'000'000;
  const timespec t{0, pause};
  nanosleep(&t, nullptr);
}

lock_answer lock_patiently(int file, std::uint64_t offset) {
  for (unsigned attempt = 0;; ++attempt) {
    const lock_answer answer = linux_lock(file, offset, 1);
    if (answer != lock_answer::busy) return answer;
    linux_wait(attempt);
  }
}

static_assert(uses_write == uses_read + 1 && denies_write == denies_read + 1);

void take_uses(int file, open_how how) { set_lock(file, F_RDLCK, uses_read, how.write ? 2 : 1); }

bool is_denied(int file, open_how how) { return foreign_lock(file, denies_read, how.write ? 2 : 1) > 0; }

void take_denials(int file, open_how how) {
  if (how.deny_read) set_lock(file, F_RDLCK, denies_read, 1);
  if (how.deny_write) set_lock(file, F_RDLCK, denies_write, 1);
}

// Whether others use what is denied.
bool is_used(int file, open_how how) {
  if (how.deny_read && foreign_lock(file, uses_read, 1) > 0) return true;
  if (how.deny_write && foreign_lock(file, uses_write, 1) > 0) return true;
  return how.deny_read && how.deny_write && foreign_lock(file, slot_bytes, slot_count) > 0;
}

// Takes the share mode; false when another handle stands against it.  Where the file
// system knows no locks there is nobody to refuse: slots will show that later.
bool take_share_mode(int file, open_how how) {
  if (!how.deny_read && !how.deny_write) {
    take_uses(file, how);
    if (!is_denied(file, how)) return true;
    linux_unlock(file, uses_read, 2);
  }
  if (lock_patiently(file, gate) != lock_answer::taken) return true;
  bool free = !is_denied(file, how);
  if (free) {
    take_denials(file, how);
    free = !is_used(file, how);
    if (free)
      take_uses(file, how);
    else
      linux_unlock(file, denies_read, 2);
  }
  linux_unlock(file, gate, 1);
  return free;
}

int open_retrying(const char* path, int flags, mode_t mode) {
  for (;;) {
    const int file = ::open(path, flags | O_CLOEXEC, mode);
    if (file >= 0 || errno != EINTR) return file;
  }
}

int linux_close(int file) { return ::close(file) == 0 || errno == EINTR ? 0 : -1; }

int linux_open(const char* path, open_how how) {
  // A reader too asks for the right to write: its lock bytes need it.
  int file = open_retrying(path, O_RDWR, 0);
  if (file < 0 && !how.write && (errno == EACCES || errno == EROFS || errno == EPERM))
    file = open_retrying(path, O_RDONLY, 0);
  if (file < 0) return -1;
  struct stat st;
  if (fstat(file, &st) != 0 || !S_ISREG(st.st_mode) || !take_share_mode(file, how)) {
    linux_close(file);
    return -1;
  }
  posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM);
  return file;
}

// The directory of a path, "." if it names none.
bool directory_of(const char* path, char (&out)[path_limit]) {
  const char* slash = std::strrchr(path, '/');
  const std::size_t n = slash == nullptr ? 0 : static_cast<std::size_t>(slash - path);
  if (n >= sizeof out) return false;
  if (slash == nullptr) {
    std::strcpy(out, ".");
  } else if (n == 0) {
    std::strcpy(out, "/");
  } else {
    std::memcpy(out, path, n);
    out[n] = '\0';
  }
  return true;
}

// Where the file system knows no nameless files, a new one bears this name meanwhile.
bool temporary_name(const char* path, char (&out)[path_limit]) {
  const int n = std::snprintf(out, sizeof out, "%s.new.%ld", path, static_cast<long>(getpid()));
  return n > 0 && static_cast<std::size_t>(n) < sizeof out;
}

int linux_create(const char* path) {
  char name[path_limit];
  if (!directory_of(path, name)) return -1;
  const int file = open_retrying(name, O_TMPFILE | O_RDWR, 0666);
  if (file >= 0) return file;
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != ENOENT && errno != EINVAL) return -1;
  if (!temporary_name(path, name)) return -1;
  ::unlink(name);  // of an earlier process of our number
  return open_retrying(name, O_RDWR | O_CREAT | O_EXCL, 0666);
}

int linux_put_in_place(int file, const char* path) {
  struct stat st;
  if (fstat(file, &st) != 0) return -1;
  char name[path_limit];
  if (st.st_nlink == 0) {
    std::snprintf(name, sizeof name, "/proc/self/fd/%d", file);
    if (linkat(AT_FDCWD, name, AT_FDCWD, path, AT_SYMLINK_FOLLOW) != 0) return -1;
  } else {
    if (!temporary_name(path, name) || link(name, path) != 0) return -1;
    ::unlink(name);
  }
  if (!directory_of(path, name)) return -1;
  const int directory = open_retrying(name, O_RDONLY | O_DIRECTORY, 0);
  if (directory < 0) return -1;
  const int result = fsync(directory);
  linux_close(directory);
  // Some file systems cannot flush a directory and need not.
  return result == 0 || errno == EINVAL ? 0 : -1;
}

void linux_discard(int file, const char* path) {
  struct stat st;
  char name[path_limit];
  if (fstat(file, &st) == 0 && st.st_nlink != 0 && temporary_name(path, name)) ::unlink(name);
  linux_close(file);
}

int linux_remove(const char* path) { return ::unlink(path) == 0 ? 0 : -1; }

int linux_exists(const char* path) {
  struct stat st;
  if (lstat(path, &st) == 0) return 1;
  return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
}

std::int64_t linux_read_at(int file, std::uint64_t offset, void* to, std::size_t n) {
  std::size_t done = 0;
  while (done < n) {
    const ssize_t got =
        pread(file, static_cast<char*>(to) + done, n - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t linux_write_at(int file, std::uint64_t offset, const void* from, std::size_t n) {
  std::size_t done = 0;
  while (done < n) {
    const ssize_t put =
        pwrite(file, static_cast<const char*>(from) + done, n - done, static_cast<off_t>(offset + done));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return -1;
    if (put == 0) break;
    done += static_cast<std::size_t>(put);
  }
  return static_cast<std::int64_t>(done);
}

int linux_flush(int file) {
  while (fdatasync(file) != 0) {
    if (errno == EINTR) continue;
    return errno == EINVAL || errno == EROFS ? 0 : -1;
  }
  return 0;
}

int linux_cut(int file, std::uint64_t size) { return ftruncate(file, static_cast<off_t>(size)); }

std::int64_t linux_size(int file) {
  struct stat st;
  return fstat(file, &st) == 0 ? static_cast<std::int64_t>(st.st_size) : -1;
}

// The number of the inode alone comes back for a new file; the time of birth does not.
std::uint64_t linux_identity(int file) {
  struct statx st;
  if (statx(file, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &st) != 0) return 0;
  std::uint64_t v = st.stx_ino;
  if ((st.stx_mask & STATX_BTIME) != 0) {
    const std::uint64_t seconds = static_cast<std::uint64_t>(st.stx_btime.tv_sec);
    v ^= (seconds * 1'000'000'000u + st.stx_btime.tv_nsec) * 0x9E3779B97F4A7C15u;
  }
  return v;
}

// A fingerprint of the running kernel, made once.
std::uint64_t running_kernel() {
  static const std::uint64_t fingerprint = [] {
    char text[64] = {};
    const int file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    const ssize_t got = file < 0 ? -1 : read(file, text, sizeof text);
    if (file >= 0) close(file);
    std::uint64_t v = 0xCBF29CE484222325u;
    for (ssize_t i = 0; i < got; ++i) v = (v ^ static_cast<unsigned char>(text[i])) * 0x100000001B3u;
    return got > 0 ? v : 0;
  }();
  return fingerprint;
}

std::uint64_t linux_mount(int file) {
  struct statx st;
  if (running_kernel() == 0 || statx(file, "", AT_EMPTY_PATH, STATX_MNT_ID, &st) != 0) return 0;
  if ((st.stx_mask & STATX_MNT_ID) == 0) return 0;
  const std::uint64_t device = (std::uint64_t{st.stx_dev_major} << 32) | st.stx_dev_minor;
  const std::uint64_t v = running_kernel() ^ device * 0x9E3779B97F4A7C15u ^ st.stx_mnt_id * 0xC2B2AE3D27D4EB4Fu;
  return v != 0 ? v : 1;
}

std::uint64_t linux_random() {
  std::uint64_t v = 0;
  if (getrandom(&v, sizeof v, 0) == static_cast<ssize_t>(sizeof v)) return v;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'007u + static_cast<std::uint64_t>(now.tv_nsec) +
         (static_cast<std::uint64_t>(getpid()) << 40);
}

constexpr std::size_t long_page = 2u << 20;

// What is long comes in long pages where the system has them: fewer of them to be looked up.
void* linux_allocate(std::size_t bytes) {
  constexpr std::size_t much = 16u << 20;   // of less, one long page would be more than is ever used
  void* memory = std::calloc(1, bytes);
  if (memory == nullptr || bytes < much) return memory;
  const std::size_t skip = (long_page - reinterpret_cast<std::uintptr_t>(memory) % long_page) % long_page;
  madvise(static_cast<char*>(memory) + skip, (bytes - skip) / long_page * long_page, MADV_HUGEPAGE);
  return memory;
}
// A touch of a long page would take all of it.
void linux_scatter(void* memory, std::size_t bytes) {
  constexpr std::size_t page = 4096;
  if (bytes < long_page) return;
  const std::size_t skip = (page - reinterpret_cast<std::uintptr_t>(memory) % page) % page;
  madvise(static_cast<char*>(memory) + skip, (bytes - skip) / page * page, MADV_NOHUGEPAGE);
}
void linux_release(void* memory) { std::free(memory); }

}  // namespace

const os_ops linux_ops = {
    .open = linux_open,
    .create = linux_create,
    .put_in_place = linux_put_in_place,
    .discard = linux_discard,
    .close = linux_close,
    .remove = linux_remove,
    .exists = linux_exists,
    .read_at = linux_read_at,
    .write_at = linux_write_at,
    .flush = linux_flush,
    .cut = linux_cut,
    .size = linux_size,
    .identity = linux_identity,
    .random = linux_random,
    .mount = linux_mount,
    .map = map_pages,
    .unmap = unmap_pages,
    .lock = linux_lock,
    .unlock = linux_unlock,
    .probe = linux_probe,
    .find_held = linux_find_held,
    .wait = linux_wait,
    .allocate = linux_allocate,
    .scatter = linux_scatter,
    .release = linux_release,
};

namespace {
const os_ops* ops_in_use = &linux_ops;
}  // namespace

const os_ops& os() { return *ops_in_use; }
void set_os_ops(const os_ops* ops) { ops_in_use = ops != nullptr ? ops : &linux_ops; }

}  // namespace zvrdb::engine
