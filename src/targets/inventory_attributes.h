// Names of inventory attributes.  A name that ends in "/" is followed by an instance
// when it is used, in the manner of a path; the others stand alone.
#pragma once

#include <cstdint>

namespace zvrdb::targets {

struct inventory_attribute {
  std::uint32_t id;  // 1 to 151, not in the order of the rows; 0 closes the table
  const char* name;  // "DisketteDrives" stands twice, under two ids
};
inline constexpr std::uint32_t inventory_attribute_count = 151;
extern const inventory_attribute inventory_attributes[inventory_attribute_count + 1];

}  // namespace zvrdb::targets
