#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/bounded_text.h"
#include "common/held_descriptor.h"
#include "common/open_lock.h"
#include "common/segments.h"
#include "common/shared_folder.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr uint32_t kMaxSegments = 32;  // mapped by one process at once
constexpr uint32_t kSegmentNameSize = 64;
constexpr char kSegmentPrefix[] = "seg-";
constexpr char kUnfinishedPrefix[] = "new-";
constexpr uint32_t kFileNameSize = kSegmentNameSize + 32;

struct MappedSegment {
  void* address = nullptr;  // null: the row is free
  uint64_t length = 0;
  int fd = -1;  // holds the read lock
  char name[kSegmentNameSize] = {};
  std::bitset<CO_MAX_TASKS> users;  // by place
};

MappedSegment table[kMaxSegments];  // under process().mutex

bool good_name(const char* name) {
  const size_t length = strnlen(name, kSegmentNameSize);
  if (length == 0 || length == kSegmentNameSize) return false;
  for (size_t i = 0; i < length; ++i) {
    const char c = name[i];
    if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'))
      return false;
  }
  return true;
}

void file_name_of(const char* segment, char* out) {
  snprintf(out, kFileNameSize, "%s%s", kSegmentPrefix, segment);
}

MappedSegment* mapped_by_name(const char* name) {
  for (MappedSegment& segment : table)
    if (segment.address != nullptr && strcmp(segment.name, name) == 0) return &segment;
  return nullptr;
}

MappedSegment* mapped_by_address(const void* address) {
  for (MappedSegment& segment : table)
    if (segment.address != nullptr && segment.address == address) return &segment;
  return nullptr;
}

MappedSegment* free_row() {
  for (MappedSegment& segment : table)
    if (segment.address == nullptr) return &segment;
  return nullptr;
}

// Maps an open, read-locked file whole.  The descriptor goes over to the table.
MappedSegment* map_segment(HeldDescriptor* file, const char* name, uint64_t length) {
  MappedSegment* row = free_row();
  if (row == nullptr || length == 0) return nullptr;
  void* address = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, file->fd, 0);
  if (address == MAP_FAILED) return nullptr;
  row->address = address;
  row->length = length;
  row->fd = file->release();
  row->users.reset();
  copy_text(row->name, sizeof row->name, name);
  return row;
}

enum class Found { absent, mapped, failed };

// Maps the segment of that name if there is one of at least size bytes.
Found map_existing(const char* name, uint64_t size, MappedSegment** out) {
  const Process& here = process();
  char file_name[kFileNameSize];
  file_name_of(name, file_name);
  for (;;) {
    HeldDescriptor file(open_shared_file(here.installation, here.folder_fd, file_name, O_RDWR));
    if (file.fd < 0) return errno == ENOENT ? Found::absent : Found::failed;
    struct stat status;
    if (!lock_range(file.fd, F_RDLCK, 0, 1, true) || fstat(file.fd, &status) != 0) return Found::failed;
    if (status.st_nlink == 0) continue;  // removed between open and lock
    const uint64_t length = static_cast<uint64_t>(status.st_size);
    if (length < size) return Found::failed;
    *out = map_segment(&file, name, length);
    return *out == nullptr ? Found::failed : Found::mapped;
  }
}

// Makes the segment whole under a name of its own and links it into place.
// absent: another one was quicker, or a sweep took the unfinished file; to be tried anew.
Found make_segment(const Task& task, const char* name, uint64_t size, MappedSegment** out) {
  const Process& here = process();
  char unfinished[kFileNameSize];
  char file_name[kFileNameSize];
  snprintf(unfinished, sizeof unfinished, "%s%u-%u", kUnfinishedPrefix, task.place, task.incarnation);
  file_name_of(name, file_name);
  unlinkat(here.folder_fd, unfinished, 0);
  HeldDescriptor file(
      open_shared_file(here.installation, here.folder_fd, unfinished, O_RDWR | O_CREAT | O_EXCL));
  if (file.fd < 0) return Found::failed;
  Found result = Found::failed;
  if (lock_range(file.fd, F_RDLCK, 0, 1, true) && allocate_shared_file(file.fd, size) == 0) {
    if (linkat(here.folder_fd, unfinished, here.folder_fd, file_name, 0) == 0) {
      *out = map_segment(&file, name, size);
      if (*out != nullptr) result = Found::mapped;
    } else if (errno == EEXIST || errno == ENOENT) {
      result = Found::absent;
    }
  }
  unlinkat(here.folder_fd, unfinished, 0);
  return result;
}

// Removes the file when no process has it mapped.  fd may hold a read lock of ours,
// which then gives way to the write lock.
void remove_if_unused(int fd, const char* file_name) {
  if (lock_range(fd, F_WRLCK, 0, 1, false)) unlinkat(process().folder_fd, file_name, 0);
}

// A name that a segment bore while it was made, and that its maker could not take off again:
// the file is locked by who has the segment, but nobody knows it by this name any more.
bool bears_its_own_name(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && status.st_nlink > 1;
}

void unmap(MappedSegment* segment) {
  munmap(segment->address, segment->length);
  close(segment->fd);
  *segment = MappedSegment{};
}

}  // namespace

void* attach_or_make_segment(Task* task, const char* name, uint32_t size) {
  if (!good_name(name)) return nullptr;
  std::lock_guard<std::mutex> guard(process().mutex);
  MappedSegment* segment = mapped_by_name(name);
  if (segment != nullptr && segment->length < size) return nullptr;
  while (segment == nullptr) {
    Found found = map_existing(name, size, &segment);
    if (found == Found::absent) found = make_segment(*task, name, size, &segment);
    if (found == Found::failed) return nullptr;
  }
  segment->users.set(task->place);
  return segment->address;
}

bool drop_segment_reference(Task* task, void* address) {
  std::lock_guard<std::mutex> guard(process().mutex);
  MappedSegment* segment = mapped_by_address(address);
  if (segment == nullptr) return false;
  segment->users.reset(task->place);
  if (segment->users.none()) unmap(segment);
  return true;
}

void release_segments_of(Task* task) {
  for (MappedSegment& segment : table) {
    if (segment.address == nullptr || !segment.users.test(task->place)) continue;
    segment.users.reset(task->place);
    if (segment.users.none()) unmap(&segment);
  }
}

void release_all_segments() {
  for (MappedSegment& segment : table)
    if (segment.address != nullptr) unmap(&segment);
}

void forget_segments_of_parent() {
  for (MappedSegment& segment : table) {
    // A mapping alone would keep the parent's lock on the file alive.
    if (segment.address != nullptr) unmap(&segment);
  }
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

void* co_shmfind(void* handle, const char* name) {
  Task* task = task_of(handle);
  if (task == nullptr || name == nullptr || !good_name(name)) return nullptr;
  std::lock_guard<std::mutex> guard(process().mutex);
  MappedSegment* segment = mapped_by_name(name);
  if (segment == nullptr && map_existing(name, 0, &segment) != Found::mapped) return nullptr;
  segment->users.set(task->place);
  return segment->address;
}

uint64_t co_shmlen(void* handle, const char* name) {
  if (task_of(handle) == nullptr || name == nullptr || !good_name(name)) return 0;
  std::lock_guard<std::mutex> guard(process().mutex);
  if (const MappedSegment* segment = mapped_by_name(name)) return segment->length;
  char file_name[kFileNameSize];
  file_name_of(name, file_name);
  struct stat status;
  if (fstatat(process().folder_fd, file_name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
    return 0;
  return static_cast<uint64_t>(status.st_size);
}

void co_shm_letgo(void* handle, void* address, const char* keep) {
  Task* task = task_of(handle);
  if (task == nullptr || address == nullptr) return;
  std::lock_guard<std::mutex> guard(process().mutex);
  MappedSegment* segment = mapped_by_address(address);
  if (segment == nullptr) return;
  segment->users.reset(task->place);
  if (segment->users.any()) return;
  if (keep == nullptr || strcmp(segment->name, keep) != 0) {
    char file_name[kFileNameSize];
    file_name_of(segment->name, file_name);
    remove_if_unused(segment->fd, file_name);
  }
  unmap(segment);
}

void co_shm_sweep(void* handle, const char* keep) {
  if (task_of(handle) == nullptr) return;
  Process& here = process();
  // A forked child must not inherit a write lock: it would hold it for its whole life.
  std::lock_guard<std::mutex> guard(here.mutex);
  const int listing_fd = openat(here.folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (listing_fd < 0) return;
  DIR* listing = fdopendir(listing_fd);
  if (listing == nullptr) {
    close(listing_fd);
    return;
  }
  while (const dirent* entry = readdir(listing)) {
    const bool segment = strncmp(entry->d_name, kSegmentPrefix, sizeof kSegmentPrefix - 1) == 0;
    const bool unfinished = strncmp(entry->d_name, kUnfinishedPrefix, sizeof kUnfinishedPrefix - 1) == 0;
    if (!segment && !unfinished) continue;
    if (segment && keep != nullptr && strcmp(entry->d_name + sizeof kSegmentPrefix - 1, keep) == 0) continue;
    HeldDescriptor file(open_shared_file(here.installation, here.folder_fd, entry->d_name, O_RDWR));
    if (file.fd < 0) continue;
    if (unfinished && bears_its_own_name(file.fd))
      unlinkat(here.folder_fd, entry->d_name, 0);
    else
      remove_if_unused(file.fd, entry->d_name);
  }
  closedir(listing);
}
