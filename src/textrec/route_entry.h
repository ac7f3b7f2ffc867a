// A route as it stands in the route record: the record's head of 4 bytes (count, network
// protocol), then up to 1600 of these.
#pragma once

#include <cstddef>
#include <cstdint>

#include "textrec/service_parameters.h"

namespace zvrdb::textrec {

struct route_entry {
  char rgn[8];  // no terminator when full
  char ren[8];
  std::uint8_t parameters[service_parameter_count];  // priority, protection, capacity, security
  char connection[16];
  unsigned char spare[2];
  std::uint16_t hop_count;
};
static_assert(sizeof(route_entry) == 40);
static_assert(offsetof(route_entry, parameters) == 16);
static_assert(offsetof(route_entry, connection) == 20);
static_assert(offsetof(route_entry, hop_count) == 38);

inline constexpr std::uint32_t route_head_len = 4;
inline constexpr std::uint32_t most_routes = 1600;

}  // namespace zvrdb::textrec
