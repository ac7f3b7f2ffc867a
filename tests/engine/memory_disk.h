// A disk in memory for the engine: it remembers every write and flush, so that a test can
// ask what a kill or a power cut at any point would have left.
#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "engine/paged_bytes.h"

namespace zvrdb::test {

using disk_bytes = std::vector<unsigned char>;

struct disk_file {
  paged_bytes bytes;
  std::uint64_t identity;
};
using disk_image = std::map<std::string, disk_file>;   // by path

struct disk_event {
  enum class kind { write, flush, failed_flush, cut, name, remove } what;
  std::uint64_t identity;   // of the file
  std::uint64_t offset;     // of what is written; of a cut the new size
  disk_bytes bytes;         // written
  std::string path;         // of name and remove
};

// Puts the disk in the place of the operating system (no file may be open), with nothing
// on it but the image, all of which is durable.
enum class power { was_off, stays_on };   // stays_on: the mount before this one goes on
void mount_memory_disk(const disk_image& image, power how = power::was_off);
void unmount_memory_disk();
const std::vector<disk_event>& disk_events();
int disk_flushes(const std::string& path_end = "");   // of files whose path ends so
// From now on flushes fail from the nth on, so many of them; `nth` 0: none.  What they were to
// bring to the disk stays undecided, whatever is flushed afterwards, but for what is written
// again; programs go on to see it as written.
void fail_flushes(int nth, int count);
int failed_flushes();   // since then
disk_image disk_now();
int disk_open_files();
void patch_disk(const std::string& path, std::uint64_t offset, const disk_bytes& bytes);
// The disk as it was behind the first n events since it was mounted with `start`.  Open files
// and their locks stay: others live on beside who was killed there.
void rewind_disk(const disk_image& start, std::size_t n);

// What is there after a kill behind the first n events.
disk_image after_kill(const disk_image& start, const std::vector<disk_event>& events, std::size_t n);

// Writes whose fate a power cut behind the first n events decides: those that no flush of
// their file followed, or one that failed.
std::vector<std::size_t> undecided_writes(const std::vector<disk_event>& events, std::size_t n);
enum class write_fate { kept, lost, torn };   // torn: each 512 bytes by a coin
using write_fates = std::map<std::size_t, write_fate>;   // by event
disk_image after_power_cut(const disk_image& start, const std::vector<disk_event>& events, std::size_t n,
                           const write_fates& fates, std::mt19937* coin);
// Behind all events, when a power cut leaves nothing but what was flushed.
disk_image flushed_alone(const disk_image& start, const std::vector<disk_event>& events);

}  // namespace zvrdb::test
