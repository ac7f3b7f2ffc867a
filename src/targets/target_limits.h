// The limits of the target table.  They are read from the base configuration each
// time, but the table never holds more than it was built for.
#pragma once

#include <cstdint>

#include "memory/dbr_tcb.h"

namespace zvrdb::targets {

// The number stands in 24 bits in CM status records, so no table is larger.
inline constexpr std::uint32_t most_targets = 0xFFFFFF;

struct target_limits {
  std::int64_t targets;  // MAX TARGETS, or the size of the table if that is smaller
  std::int64_t local;    // MAX LOCAL TARGETS
  std::int64_t servers;  // MAX SERVER TARGETS
};
target_limits limits_now(void* task);

// Whether the base configuration can be looked at; 0 stands for all of it otherwise.
bool is_configured(void* task);
// MAX TARGETS and MAX LOCAL TARGETS as they stand in the base configuration.
std::uint32_t configured_targets(void* task);
std::uint32_t configured_local_targets(void* task);
// Kind of the installation: DB_CFG_BASE and the like.
std::uint8_t configured_kind(void* task);

struct target_counts {
  std::int64_t targets;
  std::int64_t local;
  std::int64_t servers;
};

// While loading: 0 or 8213 (36417, 36459 or 36460 logged).  reserve places are kept
// free among the targets and the local targets.
std::int16_t check_trg_limits(void* task, const TRG_CNTL_ENTRY& record, const target_counts& so_far,
                              std::uint16_t reserve);
// Before a target is added: 0 or 8213 (36383, 36459 or 36460 logged).
std::int16_t check_room(void* task, const TRG_CNTL_ENTRY& record);

}  // namespace zvrdb::targets
