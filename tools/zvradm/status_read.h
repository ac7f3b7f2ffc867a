// CM status of one pair, with the default status told from a stored one.
#pragma once

#include <zvrdb/records.h>

#include <map>

#include "record_json.h"
#include "record_keys.h"

namespace zvradm {

inline constexpr std::uint8_t no_status = 15;        // of a pair, in lists
inline constexpr std::uint8_t default_status = 128;  // of a pair without a record

struct pair_status {
  std::int16_t code;  // of db_get
  bool is_default;    // the pair has no record, the default applies
  db_cms record;
};

// keys: those of type cms.
pair_status read_status(void* task, const record_keys& keys);
// The stored status of all change files on a target, by their numbers; empty for a target
// without any.  Throws refusal, also for an unknown target.
using status_map = std::map<std::uint32_t, std::uint8_t>;
status_map read_stored_status(void* task, const std::string& target, const std::string& what);

// {"trg_name", "cf_name", "cm_status", ...}; of the default status also "default" and
// "cf_type".
json status_json(const pair_status& status);

}  // namespace zvradm
