// What every handler of targets starts from: the task's tables, the name in its key,
// the slot behind an index position.
#pragma once

#include <cstdint>

#include "memory/dbr_tcb.h"
#include "targets/target_fields.h"

namespace zvrdb::targets {

// Null outside a call that entered the frame.
DBR_TCB* tcb_of(void* task);

// A target's name, always terminated, cut to 63 bytes when the source is longer.
struct target_name {
  char text[name_len];
  bool cut;  // the source was longer
};
target_name name_from(const void* source, std::size_t source_len);

// The name that keys[0] points at, or null when there is none.
const char* name_key(std::uint16_t num_keys, const void* const* keys);

// Slot that the name index names at this position of its used part; null beyond it.
TRG_CNTL_ENTRY* slot_at(DBR_TCB* tcb, std::int64_t position);
// Slot of the target with this name, or null; number may be null.
TRG_CNTL_ENTRY* slot_of(void* task, const char* name, std::uint32_t* number);
// The same with the target's position in the name index.
TRG_CNTL_ENTRY* slot_and_position_of(void* task, const char* name, std::int64_t* position);

// Copies the record of the target in this slot out: from memory what the head holds, and
// from the file for a length beyond it.  0 or the code of get_keyed.
std::int16_t read_target(void* task, TRG_CNTL_ENTRY* slot, std::uint32_t number, void* buffer,
                         std::uint16_t length);

// Number of the server of this name (64 bytes, terminated or not); the target's own
// number when the name is empty or unknown.
std::uint32_t server_number(void* task, const char* srv_name, std::uint32_t own_number);

// Writes local_dsu into rgn when the target is local and local_dsu is set.
void apply_local_dsu(const DBR_TCB* tcb, std::uint8_t trg_type, char* rgn);

}  // namespace zvrdb::targets
