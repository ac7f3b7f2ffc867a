// Storing under a key that the caller gives beside the record.
#pragma once

#include <cstdint>

#include "memory/dbr_tcb.h"

namespace zvrdb::requests {

// The head of a record as the caller's key has it.
struct identity {
  const void* bytes;
  std::uint32_t length;
};

// put_keyed of the record with this head in the place of its own, which is not looked at;
// a record that is shorter is its head alone.
std::int16_t put_under_identity(void* task, std::uint32_t db_id, file_entry* handle, void* key,
                                const identity& head, const void* record, std::uint16_t length);

}  // namespace zvrdb::requests
