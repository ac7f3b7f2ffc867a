// The catalog's change files by a filter: the numbers first, then the records of a list.
#pragma once

#include <zvrdb/records.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace zvradm {

// A filter that every name matches: eleven tokens "*", as each also stands for no token.
db_cf_name every_change_file();

// The entries of all change files that match, in the order of their names.  Throws
// refusal; what tells the work in messages.
std::vector<db_cat_entry> list_change_files(void* task, const db_cf_name& filter, const std::string& what);

// What other tasks did to the entries of a list while it was read.
struct list_changes {
  std::uint64_t stored_anew = 0;  // given as they are now
  std::uint64_t gone = 0;         // deleted, or stored anew under a name that does not match: not given
};

using change_file_fn = std::function<void(const db_cat_entry& entry, std::span<const unsigned char> record)>;

// Gives each change file that matches, with the first `length` bytes of its record: 76
// for the name alone.  Throws refusal.
list_changes read_change_files(void* task, const db_cf_name& filter, std::uint16_t length,
                               const std::string& what, const change_file_fn& give);

// Tells on standard error what changed, if anything did.
void tell_changes(const std::string& what, const list_changes& changes);

struct numbered_change_file {
  std::uint32_t number;
  db_cf_name name;
};

// The whole catalog in the order of its names.  Throws refusal.
std::vector<numbered_change_file> list_numbered_change_files(void* task, const std::string& what);

}  // namespace zvradm
