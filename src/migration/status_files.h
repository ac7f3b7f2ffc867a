// The older CM status: a file a target, each an array of entries of 38 bytes.
#pragma once

#include <cstdint>

#include "migration/conversion.h"
#include "migration/new_files.h"
#include "migration/older_files.h"

namespace zvrdb::migration {

inline constexpr std::uint32_t status_chunk = 38912;  // bytes read at a time: 1,024 entries
inline constexpr std::uint32_t status_entry_len = 38;

// The files of this run's targets.
struct status_files {
  const char* directory;  // as it stands on the disk
  directory_names* names;
  unsigned char* image;   // room for a key and a chunk behind it
};

// Calls take(cat_index, status) for each entry in use of a target's file and leaves its last
// chunk, of *last bytes, behind the key's room of the image. 0; 8455 no such file, or not
// readable, or (36391 logged) an entry beyond the catalog; or what take answers.
using entry_taker = std::int16_t (*)(void* context, std::uint16_t cat_index, std::uint8_t status);
std::int16_t read_status(const conversion& run, const status_files& files, const char* target, entry_taker take,
                         void* context, std::uint32_t* last);

// Makes the record of every change file: which targets have status of it. The pairs are
// gathered in memory for as many change files at a time as fit. 0; 8455.
std::int16_t put_change_file_sides(const conversion& run, const status_files& files, new_file* file,
                                   const std::uint32_t* pairs_of, std::uint32_t numbers);
// How many pairs are gathered at a time; tests lower it. One change file's are never parted.
void set_gathered_pairs(std::uint32_t pairs);

}  // namespace zvrdb::migration
