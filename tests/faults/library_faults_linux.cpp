#include "faults/library_faults.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <unordered_map>

namespace fault_test {
namespace {

constexpr const char* names[requests] = {"open", "read", "write", "flush",  "lock",   "name",
                                         "status", "room", "map", "close", "random", "allocation"};

unsigned inside = 0;   // of exported calls
bool armed = false;
request wanted = request::open;
unsigned fatal = 0;
bool every_later = false;
unsigned failed = 0;
unsigned counts[requests];
std::string strange;
std::int16_t refusal = DBE_OK;

constexpr std::uint64_t no_bound = UINT64_MAX;
std::uint64_t disk_room = no_bound;

// Every answer that the header tells of, but those of the conversion.
constexpr int table[] = {
    DBE_OK,            DBE_BAD_DB_ID,     DBE_NOT_FOUND,      DBE_BAD_RECORD,        DBE_RECORD_REPLACED,
    DBE_END_OF_LIST,   DBE_NO_TARGET,     DBE_INIT_FAILED,    DBE_BAD_CMS_KEY,       DBE_ENTRY_CHANGED,
    DBE_LIST_TOO_SMALL, DBE_CMS_EXISTS,   DBE_LIMIT_EXCEEDED, DBE_NO_STATUS,         DBE_NO_STAT_GET,
    DBE_NOT_AUTHORIZED, DBE_EMPTY_LIST,   DBE_BUFFER_TOO_SMALL, DBE_TRANS_IN_PROGRESS, DBE_FILE_NOT_FOUND,
    DBE_IO_ERROR,      DBE_FILE_STATUS,   DBE_CO_FAILURE,
};

// The error of a request that fails now, or 0.
int fault_of(request kind, int error) {
  if (inside == 0 || !armed) return 0;
  const unsigned n = ++counts[static_cast<unsigned>(kind)];
  if (kind != wanted || fatal == 0 || n < fatal || (n > fatal && !every_later)) return 0;
  ++failed;
  return error;
}

// Whether the answer may be that of the common services: text records pass it on.
bool is_text(std::uint32_t db_id) {
  return db_id <= DB_SCF;
}

bool fails(request kind, int error) {
  const int fault = fault_of(kind, error);
  if (fault != 0) errno = fault;
  return fault != 0;
}

// Bytes by address.  Allocates by operator new alone, which does not come by here.
using sizes = std::unordered_map<const void*, std::size_t>;
sizes& blocks() {
  static sizes all;
  return all;
}
sizes& mappings() {
  static sizes all;
  return all;
}

void* held(void* block, std::size_t size) {
  if (block && inside != 0) blocks()[block] = size;
  return block;
}

std::size_t all_bytes(const sizes& of) {
  std::size_t sum = 0;
  for (const auto& [address, size] : of) sum += size;
  return sum;
}

// So much of n bytes at the offset as the disk has room for.
std::size_t that_fits(int fd, std::uint64_t offset, std::size_t n) {
  if (inside == 0 || disk_room == no_bound) return n;
  struct stat status;
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return n;
  const auto end = static_cast<std::uint64_t>(status.st_size);
  if (offset + n <= end) return n;
  const std::uint64_t begin = std::max(offset, end);
  const std::uint64_t grown = std::min(offset + n - begin, disk_room);
  disk_room -= grown;
  return static_cast<std::size_t>(begin + grown - offset);
}

}  // namespace

const char* name_of(request kind) {
  return names[static_cast<unsigned>(kind)];
}

void fail_request(request kind, unsigned n, bool for_good) {
  std::fill(std::begin(counts), std::end(counts), 0u);
  failed = 0;
  wanted = kind;
  fatal = n;
  every_later = for_good;
  armed = true;
}

unsigned end_of_faults() {
  armed = false;
  return failed;
}

unsigned counted(request kind) {
  return counts[static_cast<unsigned>(kind)];
}

void fill_disk(std::uint64_t room) {
  disk_room = room;
}

void make_room() {
  disk_room = no_bound;
}

std::int16_t last_refusal() {
  return refusal;
}

std::string strange_answers() {
  return std::exchange(strange, {});
}

holdings held_now() {
  holdings h = {blocks().size(), all_bytes(blocks()), mappings().size(), all_bytes(mappings()), 0};
  for (int fd = 0; fd < 1024; ++fd) h.descriptors += fcntl(fd, F_GETFD) >= 0;
  return h;
}

std::string told(const holdings& h) {
  char text[160];
  std::snprintf(text, sizeof text, "%zu blocks of %zu bytes, %zu mappings of %zu bytes, %zu descriptors", h.blocks,
                h.bytes, h.mappings, h.mapped, h.descriptors);
  return text;
}

// While it lives the process is in an exported call.
class exported_call {
 public:
  exported_call() { ++inside; }
  ~exported_call() { --inside; }
  exported_call(const exported_call&) = delete;
  exported_call& operator=(const exported_call&) = delete;
};

std::int16_t answered(const char* call, std::int16_t rc, bool of_text) {
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) refusal = rc;
  if (of_text && rc == CO_IO_ERROR) return rc;
  if (std::find(std::begin(table), std::end(table), rc) == std::end(table))
    strange += std::string(call) + " answered " + std::to_string(rc) + "\n";
  return rc;
}

}  // namespace fault_test

using fault_test::answered;
using fault_test::exported_call;
using fault_test::fails;
using fault_test::request;

// REQUEST stands in the place of a function of the C library, PASSED is that one.
#define REQUEST(type, function, ...)             \
  extern "C" type __real_##function(__VA_ARGS__); \
  extern "C" type __wrap_##function(__VA_ARGS__); \
  type __wrap_##function(__VA_ARGS__)
#define PASSED(function) __real_##function

// ---- Files

extern "C" int __real_open(const char*, int, ...);
extern "C" int __wrap_open(const char*, int, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return fails(request::open, EMFILE) ? -1 : __real_open(path, flags, mode);
}
extern "C" int __real_openat(int, const char*, int, ...);
extern "C" int __wrap_openat(int, const char*, int, ...);
int __wrap_openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return fails(request::open, EMFILE) ? -1 : __real_openat(folder, path, flags, mode);
}
REQUEST(DIR*, opendir, const char* path) {
  return fails(request::open, EMFILE) ? nullptr : PASSED(opendir)(path);
}
REQUEST(DIR*, fdopendir, int fd) {
  return fails(request::open, ENOMEM) ? nullptr : PASSED(fdopendir)(fd);
}
REQUEST(int, mkdir, const char* path, mode_t mode) {
  return fails(request::open, ENOSPC) ? -1 : PASSED(mkdir)(path, mode);
}
REQUEST(int, close, int fd) {
  const bool told_so = fails(request::close, EIO);
  const int error = errno;
  const int result = PASSED(close)(fd);
  if (!told_so) return result;
  errno = error;
  return -1;
}
REQUEST(ssize_t, read, int fd, void* to, size_t n) {
  return fails(request::read, EIO) ? -1 : PASSED(read)(fd, to, n);
}
REQUEST(ssize_t, pread, int fd, void* to, size_t n, off_t offset) {
  return fails(request::read, EIO) ? -1 : PASSED(pread)(fd, to, n, offset);
}
REQUEST(struct dirent*, readdir, DIR* folder) {
  return fails(request::read, EIO) ? nullptr : PASSED(readdir)(folder);
}
REQUEST(ssize_t, write, int fd, const void* from, size_t n) {
  if (fails(request::write, EIO)) return -1;
  const size_t fitting = fault_test::that_fits(fd, static_cast<std::uint64_t>(std::max<off_t>(lseek(fd, 0, SEEK_CUR), 0)), n);
  if (fitting != 0 || n == 0) return PASSED(write)(fd, from, fitting);
  errno = ENOSPC;
  return -1;
}
REQUEST(ssize_t, pwrite, int fd, const void* from, size_t n, off_t offset) {
  if (fails(request::write, EIO)) return -1;
  const size_t fitting = fault_test::that_fits(fd, static_cast<std::uint64_t>(offset), n);
  if (fitting != 0 || n == 0) return PASSED(pwrite)(fd, from, fitting, offset);
  errno = ENOSPC;
  return -1;
}
REQUEST(int, fdatasync, int fd) {
  return fails(request::flush, EIO) ? -1 : PASSED(fdatasync)(fd);
}
REQUEST(int, fsync, int fd) {
  return fails(request::flush, EIO) ? -1 : PASSED(fsync)(fd);
}
extern "C" int __real_fcntl(int, int, ...);
extern "C" int __wrap_fcntl(int, int, ...);
int __wrap_fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  bool locks = false;
  switch (command) {
    case F_SETLK: case F_SETLKW: case F_OFD_SETLK: case F_OFD_SETLKW:
      locks = static_cast<const struct flock*>(argument)->l_type != F_UNLCK;
      break;
    case F_GETLK: case F_OFD_GETLK:
      locks = true;
      break;
    default:
      break;
  }
  return locks && fails(request::lock, ENOLCK) ? -1 : __real_fcntl(fd, command, argument);
}
REQUEST(int, flock, int fd, int operation) {
  return (operation & LOCK_UN) == 0 && fails(request::lock, ENOLCK) ? -1 : PASSED(flock)(fd, operation);
}

// ---- Names and what stands beside them

REQUEST(int, link, const char* from, const char* to) {
  return fails(request::name, EIO) ? -1 : PASSED(link)(from, to);
}
REQUEST(int, linkat, int from_fd, const char* from, int to_fd, const char* to, int flags) {
  return fails(request::name, EIO) ? -1 : PASSED(linkat)(from_fd, from, to_fd, to, flags);
}
REQUEST(int, rename, const char* from, const char* to) {
  return fails(request::name, EIO) ? -1 : PASSED(rename)(from, to);
}
REQUEST(int, renameat, int from_fd, const char* from, int to_fd, const char* to) {
  return fails(request::name, EIO) ? -1 : PASSED(renameat)(from_fd, from, to_fd, to);
}
REQUEST(int, unlink, const char* path) {
  return fails(request::name, EIO) ? -1 : PASSED(unlink)(path);
}
REQUEST(int, unlinkat, int folder, const char* path, int flags) {
  return fails(request::name, EIO) ? -1 : PASSED(unlinkat)(folder, path, flags);
}
REQUEST(int, rmdir, const char* path) {
  return fails(request::name, EIO) ? -1 : PASSED(rmdir)(path);
}
REQUEST(int, stat, const char* path, struct stat* status) {
  return fails(request::status, EIO) ? -1 : PASSED(stat)(path, status);
}
REQUEST(int, lstat, const char* path, struct stat* status) {
  return fails(request::status, EIO) ? -1 : PASSED(lstat)(path, status);
}
REQUEST(int, fstat, int fd, struct stat* status) {
  return fails(request::status, EIO) ? -1 : PASSED(fstat)(fd, status);
}
REQUEST(int, fstatat, int folder, const char* path, struct stat* status, int flags) {
  return fails(request::status, EIO) ? -1 : PASSED(fstatat)(folder, path, status, flags);
}
REQUEST(int, statx, int folder, const char* path, int flags, unsigned mask, struct statx* status) {
  return fails(request::status, EIO) ? -1 : PASSED(statx)(folder, path, flags, mask, status);
}
REQUEST(int, fstatfs, int fd, struct statfs* status) {
  return fails(request::status, EIO) ? -1 : PASSED(fstatfs)(fd, status);
}
REQUEST(int, access, const char* path, int mode) {
  return fails(request::status, EIO) ? -1 : PASSED(access)(path, mode);
}
REQUEST(char*, realpath, const char* path, char* to) {
  return fails(request::status, EIO) ? nullptr : PASSED(realpath)(path, to);
}
REQUEST(int, posix_fallocate, int fd, off_t offset, off_t length) {
  return fails(request::room, ENOSPC) ? ENOSPC : PASSED(posix_fallocate)(fd, offset, length);
}
REQUEST(int, fchmod, int fd, mode_t mode) {
  return fails(request::room, EPERM) ? -1 : PASSED(fchmod)(fd, mode);
}
REQUEST(int, fchown, int fd, uid_t owner, gid_t group) {
  return fails(request::room, EPERM) ? -1 : PASSED(fchown)(fd, owner, group);
}
REQUEST(ssize_t, getrandom, void* to, size_t n, unsigned flags) {
  return fails(request::random, ENOSYS) ? -1 : PASSED(getrandom)(to, n, flags);
}

// ---- Memory

REQUEST(void*, mmap, void* at, size_t length, int rights, int flags, int fd, off_t offset) {
  if (fails(request::map, ENOMEM)) return MAP_FAILED;
  void* address = PASSED(mmap)(at, length, rights, flags, fd, offset);
  if (address != MAP_FAILED && fault_test::inside != 0) fault_test::mappings()[address] = length;
  return address;
}
REQUEST(int, munmap, void* address, size_t length) {
  fault_test::mappings().erase(address);
  return PASSED(munmap)(address, length);
}
REQUEST(void*, malloc, size_t size) {
  return fails(request::allocation, ENOMEM) ? nullptr : fault_test::held(PASSED(malloc)(size), size);
}
REQUEST(void*, calloc, size_t count, size_t size) {
  return fails(request::allocation, ENOMEM) ? nullptr : fault_test::held(PASSED(calloc)(count, size), count * size);
}
REQUEST(void*, realloc, void* old, size_t size) {
  if (fails(request::allocation, ENOMEM)) return nullptr;
  void* block = PASSED(realloc)(old, size);
  if (!block) return nullptr;
  fault_test::blocks().erase(old);
  return fault_test::held(block, size);
}
REQUEST(char*, strdup, const char* text) {
  if (fails(request::allocation, ENOMEM)) return nullptr;
  return static_cast<char*>(fault_test::held(PASSED(strdup)(text), std::strlen(text) + 1));
}
REQUEST(void, free, void* block) {
  if (block) fault_test::blocks().erase(block);
  PASSED(free)(block);
}

// ---- Exported calls

#define CALL_OF(of_text, function, parameters, arguments)                 \
  extern "C" int16_t __real_##function parameters;                        \
  extern "C" int16_t __wrap_##function parameters;                        \
  int16_t __wrap_##function parameters {                                  \
    const exported_call call;                                             \
    return answered(#function, __real_##function arguments, of_text);     \
  }
#define CALL(function, parameters, arguments) CALL_OF(false, function, parameters, arguments)
#define GENERIC_CALL(function, parameters, arguments) CALL_OF(fault_test::is_text(id), function, parameters, arguments)
GENERIC_CALL(db_del, (void* t, uint32_t id, uint16_t n, const void* const* keys), (t, id, n, keys))
GENERIC_CALL(db_get, (void* t, uint32_t id, uint16_t n, const void* const* keys, void* b, uint16_t l), (t, id, n, keys, b, l))
GENERIC_CALL(db_put, (void* t, uint32_t id, uint16_t n, const void* const* keys, void* b, uint16_t l), (t, id, n, keys, b, l))
GENERIC_CALL(db_start_list, (void* t, uint32_t id, const void* filter, void* list, uint32_t size, uint16_t* count, uint16_t* index),
     (t, id, filter, list, size, count, index))
GENERIC_CALL(db_get_next, (void* t, uint32_t id, const void* list, uint16_t max, uint16_t* index, void* b, uint16_t l),
     (t, id, list, max, index, b, l))
GENERIC_CALL(db_init_list, (void* t, uint32_t id, void* filter, void* state, uint32_t size), (t, id, filter, state, size))
GENERIC_CALL(db_get_more, (void* t, uint32_t id, void* state, void* b, uint16_t l), (t, id, state, b, l))
CALL(db_start_trans, (void* t, uint32_t id), (t, id))
CALL(db_commit, (void* t, uint32_t id), (t, id))
CALL(db_rollback, (void* t, uint32_t id), (t, id))
CALL(db_get_trg_index, (void* t, const char* name, uint32_t* number), (t, name, number))
CALL(db_rename_trg, (void* t, const char* from, const char* to), (t, from, to))
CALL(db_del_rq_tree, (void* t, const void* id), (t, id))
CALL(db_cm_by_cat, (void* t, const void* name, uint8_t* list, uint32_t length), (t, name, list, length))
CALL(db_cm_by_trg, (void* t, const char* target, uint32_t* list, uint32_t length, uint32_t* count),
     (t, target, list, length, count))

extern "C" void* __real_co_init_task(const char*, co_task_entry, uint32_t);
extern "C" void* __wrap_co_init_task(const char*, co_task_entry, uint32_t);
void* __wrap_co_init_task(const char* name, co_task_entry entry, uint32_t flag) {
  const exported_call call;
  void* task = __real_co_init_task(name, entry, flag);
  const char* reason = co_init_error();
  if (!task && (!reason || !*reason)) fault_test::strange += "co_init_task failed and told no reason\n";
  return task;
}
extern "C" void __real_coi_term_task(void*, uint32_t);
extern "C" void __wrap_coi_term_task(void*, uint32_t);
void __wrap_coi_term_task(void* task, uint32_t reason) {
  const exported_call call;
  __real_coi_term_task(task, reason);
}
