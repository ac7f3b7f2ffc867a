// The transaction log: a chain of log nodes in the file itself, written directly and
// never through the cache.
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/node_cache.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// One log record, as the progress function sees it.
struct log_view {
  std::uint32_t start_generation;
  std::uint32_t generation;
  std::uint16_t sequence;
  std::uint8_t type;
  const std::uint8_t* entry;   // length byte first; only that byte when it is 0
};

// Appends a record; entry null stands for an empty one.  Nothing without a transaction,
// and for entries of record locks.  0, e_io, e_damaged, errors of nodes.
int translog(PSP* h, std::uint8_t type, const std::uint8_t* entry);

// A log node, emptied, in the buffer (no tag set).
void fill_log_node(node_buffer& b, std::int32_t former_head, int slot, std::uint16_t level);
inline bool is_log_level(std::uint16_t level) { return level == level_log_first || level == level_log_later; }

// Offsets of the records of a log node; false when one lies outside the node.
inline constexpr int max_log_records = entry_area / (log_head_size + 1);
bool collect_log_records(const node& v, int (&offsets)[max_log_records]);
log_view view_log_record(const PSP* h, const node& v, int offset);

}  // namespace zvrdb::engine
