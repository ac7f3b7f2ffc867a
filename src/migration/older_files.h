// Files and directories of the older database, below "db". Their names are matched
// without regard to case: what is there is opened under the name that it has.
#pragma once

#include <zvrco/zvrco.h>

#include <cstdint>

#include "migration/conversion.h"

namespace zvrdb::migration {

inline constexpr std::uint32_t entry_size = 256;  // of a name as directories give it
using file_path = char[CO_PATH_MAX];

// Path of a name below "db"; of "db" itself for an empty name. False when it is too long.
bool database_path(void* task, const char* name, char (&path)[CO_PATH_MAX]);
// Path of a file in a directory below "db".
bool path_in(void* task, const char* directory, const char* name, char (&path)[CO_PATH_MAX]);

// Whether two names are the same but for case.
bool same_name(const char* a, const char* b);

// The name that an entry of "db" has on the disk: this very one if it is there, else one
// that differs in case alone. exists is false when there is neither, and for a name that
// would make too long a path.
struct older_entry {
  bool exists = false;
  char name[entry_size] = {};
  file_path path = {};
};
// 0; 8455 "db" cannot be read.
std::int16_t find_entry(void* task, const char* name, older_entry* found);

// The names of a directory below "db", for many look-ups. Freed with the object.
class directory_names {
 public:
  explicit directory_names(void* task) : task_(task) {}
  ~directory_names();
  directory_names(const directory_names&) = delete;
  directory_names& operator=(const directory_names&) = delete;
  // 0; 8455 when it cannot be read, or (36355 logged) without memory.
  std::int16_t load(const char* directory);
  std::uint32_t count() const { return count_; }
  const char* at(std::uint32_t position) const { return text_ + places_[position]; }
  // This very name, or one that differs in case alone; null.
  const char* find(const char* name) const;

 private:
  bool keep(const char* name);
  template <class Area>
  bool grow(Area** area, std::uint32_t* room, std::uint32_t used, std::uint32_t more);
  void* task_;
  char* text_ = nullptr;  // the names, one behind the other
  std::uint32_t text_len_ = 0;
  std::uint32_t text_room_ = 0;
  std::uint32_t* places_ = nullptr;  // in order, case ignored
  std::uint32_t count_ = 0;
  std::uint32_t places_room_ = 0;
};

// Removes every entry of a directory below "db" but "." and "..", then the directory.
// 8455 when it cannot be opened, else 0, also when something of it stays.
std::int16_t rm_dir(const conversion& run, const char* directory);
// The same for an entry that may be missing or have another case: 0 when it is missing.
std::int16_t rm_dir_if_there(const conversion& run, const char* directory);

// What a file begins with. nothing: shorter than a header, or zeros (a file that was being
// made when the machine went down).
enum class file_begin { record_file, nothing, other };
file_begin begin_of(void* task, const char* path);
// Bytes of a file; 0 when there is none.
std::uint32_t file_size(void* task, const char* path);

}  // namespace zvrdb::migration
