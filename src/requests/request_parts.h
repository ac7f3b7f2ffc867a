// The six types of request records as data: which parts the identifier of each has, and
// where each part stands in it and in the record key.  Handlers, filters and lists of all
// six types read the same rows.
#pragma once

#include <zvrdb/records.h>

#include <cstdint>
#include <span>

#include "memory/codes.h"

namespace zvrdb::requests {

inline constexpr std::uint32_t request_key_len = 76;

// Bits of a filter's mask.
enum wild_part : std::uint16_t {
  wild_source = 1,
  wild_user = 2,
  wild_sequence = 4,
  wild_recursion = 8,
  wild_function = 16,
  wild_server = 32,
  wild_target = 64,
  wild_rgn = 128,
  wild_ren = 256
};

enum class part_kind : std::uint8_t {
  name,         // of a target, whose number stands in the key; in a filter whole or "*"
  text,         // up to a NUL or its width; in a filter it may be a prefix before "*"
  fanout_text,  // bytes as they stand; in a filter likewise
  sequence,     // u32; wild when all ones
  recursion     // u16, widened in the key; wild when all ones
};

struct request_part {
  std::uint16_t wild;  // its bit
  part_kind kind;
  std::uint16_t id_offset;
  std::uint16_t id_width;
  std::uint16_t key_offset;
  std::uint16_t key_width;  // bytes that an exact part binds in the key
  const char* what;         // in traces
};

struct request_type {
  std::uint32_t db_id;
  std::uint32_t id_len;
  std::span<const request_part> parts;  // in key order, which is that of the identifier but for its first two
  std::uint16_t destination_index;      // key of the file that lists by the last part; 0: none

  constexpr const request_part& destination() const { return parts.back(); }
  constexpr std::uint16_t all_wild() const {
    unsigned mask = 0;
    for (const request_part& part : parts) mask |= part.wild;
    return static_cast<std::uint16_t>(mask);
  }
  // The list by destination: that part alone is exact.
  constexpr bool by_destination(std::uint16_t mask) const {
    return destination_index != 0 && mask == (all_wild() & ~unsigned{destination().wild});
  }
  // Wild parts run from the end of the key without a gap; so do those of a whole list.
  constexpr bool by_prefix(std::uint16_t mask) const {
    bool wild = false;
    for (const request_part& part : parts) {
      const bool this_wild = (mask & part.wild) != 0;
      if (wild && !this_wild) return false;
      wild = this_wild;
    }
    return true;
  }
};

// Null for a db_id that is no request.
const request_type* request_type_of(std::uint32_t db_id);

// Key of the record with this identifier, whose id_len bytes are read.  0 or the code of
// the name lookup; 8193 for another db_id.
std::int16_t build_request_key(void* task, std::uint32_t db_id, const void* identifier, std::uint32_t id_len,
                               unsigned char (&key)[request_key_len]);

// The text of a part in an identifier, up to its NUL or width.
std::span<const unsigned char> part_text(const request_part& part, const void* identifier);

}  // namespace zvrdb::requests
