// What the engine asks of the operating system, as one table of operations.  The
// product uses the real one (os_file_linux.cpp); a test may put its own in place.
//
// Where not told otherwise an operation answers 0, or -1 when it failed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvrdb::engine {

// Share modes, as two questions: may others read, may others write?
struct open_how {
  bool write;        // open for reading and writing, else for reading
  bool deny_read;    // no other handle may read while this one is open
  bool deny_write;   // no other handle may write
};

inline constexpr std::int64_t none_held = -2;

enum class lock_answer { taken, busy, failed };

// The attempt from which on waiting gives the processor to others.
inline constexpr unsigned give_way = 4;

struct os_ops {
  // An existing file.  A descriptor, or -1 when absent, forbidden or refused by the
  // share mode of another handle.
  int (*open)(const char* path, open_how how);
  // A new file that will be called `path` and that nobody can see yet.
  int (*create)(const char* path);
  // Gives a created file its name, for good (the directory is on disk too).  Fails
  // when something of that name exists.
  int (*put_in_place)(int file, const char* path);
  // Lets go of a created file that was not put in place; closes it.
  void (*discard)(int file, const char* path);
  int (*close)(int file);
  int (*remove)(const char* path);
  int (*exists)(const char* path);             // 1 something of that name is there, 0 not, -1 unknown

  // Bytes moved, fewer than n at the end of the file or on a full disk; -1 failed.
  std::int64_t (*read_at)(int file, std::uint64_t offset, void* to, std::size_t n);
  std::int64_t (*write_at)(int file, std::uint64_t offset, const void* from, std::size_t n);
  int (*flush)(int file);                      // to the disk
  int (*cut)(int file, std::uint64_t size);    // to a smaller size
  std::int64_t (*size)(int file);              // bytes, -1 failed
  // A number that tells this file from others and from a later one of its name; 0 unknown.
  std::uint64_t (*identity)(int file);
  std::uint64_t (*random)();                   // a number that nobody can foretell
  // A number for as long as what was written to the file without a flush is there for sure:
  // while this machine runs and the file system stays mounted.  0 unknown.
  std::uint64_t (*mount)(int file);

  // The first bytes of a file to look at, changing as others write them; null when that is
  // not to be had here.  Zeros from when the file was found to be cut shorter.
  const void* (*map)(int file, std::size_t n);
  void (*unmap)(const void* mapped, std::size_t n);

  // Locks on bytes, without waiting.  They hold between all handles, those of one
  // process too, and die with their handle.
  lock_answer (*lock)(int file, std::uint64_t offset, std::uint64_t length);
  int (*unlock)(int file, std::uint64_t offset, std::uint64_t length);
  int (*probe)(int file, std::uint64_t offset);   // 1 another handle locks the byte, 0 free, -1 failed
  // One of the bytes of a range that other handles lock, whichever; none_held, or -1 failed.
  std::int64_t (*find_held)(int file, std::uint64_t offset, std::uint64_t length);

  // Passes time before the next attempt; attempt counts from 0.
  void (*wait)(unsigned attempt);

  void* (*allocate)(std::size_t bytes);        // zeroed, or null
  void (*scatter)(void* memory, std::size_t bytes);   // of what was allocated little will be touched, here and there
  void (*release)(void* memory);
};

extern const os_ops linux_ops;
const os_ops& os();
// For tests; null puts the real operations back.  Only while no file is open.
void set_os_ops(const os_ops* ops);

}  // namespace zvrdb::engine
