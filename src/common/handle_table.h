// Open directories by number: the interface has 32-bit handles only.
#pragma once

#include <dirent.h>

#include <cstdint>

namespace zvrdb::common {

uint32_t keep_directory(DIR* directory);  // a handle from 1; 0 when all are in use
DIR* kept_directory(uint32_t handle);     // null for an unknown handle
DIR* give_up_directory(uint32_t handle);  // the same, and forgets it
// In a forked child: a listing shares its place with the parent's.
void close_directories_of_parent();

}  // namespace zvrdb::common
