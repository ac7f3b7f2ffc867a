// Key of the records in the catalog file: change files, and behind them the products
// and filesets that hang on a change file's number.
#pragma once

#include <cstdint>
#include <cstring>

#include "memory/shared_tables.h"

namespace zvrdb::catalog {

// In host order; it stands at the head of the stored record.
struct catalog_key {
  std::uint32_t db_id;
  std::uint16_t cf_number;
  std::uint16_t product_id;  // 0 in the key of a change file
  std::uint16_t fileset_id;  // 0 but in the key of a fileset
  std::uint16_t spare;
  std::uint32_t recnum;
};
static_assert(sizeof(catalog_key) == 16);

// First u32 of the record that a deleted change file leaves in the file, so that its
// number stays taken.
inline constexpr std::uint32_t free_mark = 0xFFFFFFFFu;
inline bool is_free_image(const unsigned char* record) {
  std::uint32_t first = 0;
  std::memcpy(&first, record, sizeof first);
  return first == free_mark;
}

// The cf_name that keys[0] points at, or null when there is none.
inline const unsigned char* name_key(std::uint16_t num_keys, const void* const* keys) {
  return num_keys == 0 || !keys ? nullptr : static_cast<const unsigned char*>(keys[0]);
}

}  // namespace zvrdb::catalog
