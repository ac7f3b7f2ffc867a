// What the library asks of the system, inside exported calls: each such request of this
// program can be made to fail.  The linker leads the requests of the library and of the test
// alike here (-Wl,--wrap); those outside of exported calls go straight on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fault_test {

enum class request : unsigned {
  open,         // files and folders, made or existing
  read,         // bytes and names of a folder
  write,
  flush,
  lock,         // taken or asked for; to free one never fails
  name,         // link, rename, unlink
  status,
  room,         // storage for a file, rights and owner of it
  map,          // memory of a file, or pages of its own
  close,        // which closes all the same
  random,
  allocation,
};
constexpr unsigned requests = 12;
const char* name_of(request kind);

// Request n of the kind from now on (from 1) fails, alone or with all that follow.  n 0: none
// does, and they are only counted.
void fail_request(request kind, unsigned n, bool for_good);
// Puts everything right; how many requests failed.
unsigned end_of_faults();
// How many requests of the kind there were since the last fail_request, failed ones too.
unsigned counted(request kind);
// From now on this number of bytes can be written behind the ends of files; more is a full disk.
void fill_disk(std::uint64_t room);
void make_room();

// The last answer of an exported call that was neither DBE_OK nor DBE_RECORD_REPLACED.
std::int16_t last_refusal();
// Answers of exported calls that stand in no table, one a line, since the last question.
std::string strange_answers();

// What the process holds by the library's requests.
struct holdings {
  std::size_t blocks, bytes;       // of memory
  std::size_t mappings, mapped;    // of pages and files, and their bytes
  std::size_t descriptors;         // of the whole process
  bool operator==(const holdings&) const = default;
};
holdings held_now();
std::string told(const holdings& h);

}  // namespace fault_test
