// Reading of a record file for reports: without the cache, without a change to the file,
// beside live users.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zvrdb::engine::report {

struct report_reader {
  int fd = -1;
  std::uint64_t size = 0;   // bytes of the file when it was opened
  bool guarded = false;     // a reader byte is held: no writer changes the file meanwhile
};

// Opens a regular file for reading and takes a slot and its reader byte, waiting for a
// writer in work a few seconds at most.  False: reason is filled.
bool open_reader(const char* path, report_reader* reader, std::string* reason);
void close_reader(report_reader* reader);
// Fills all n bytes from the offset; false when the file ends before or can't be read.
bool read_bytes(const report_reader& reader, std::uint64_t offset, void* out, std::size_t n);

}  // namespace zvrdb::engine::report
