// Handlers of CM status (db_id 10): the state of a change file on a target.  Each pair is
// stored twice in "cmstatus", in the record of its target and in that of its change file,
// and both are changed in one transaction.  They run inside the frame, with "DBR_MEM"
// held by the task.  keys[0] is the target's name (NUL-terminated), keys[1] the cf_name
// (76 bytes).
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::cmstatus {

// Nothing to load.  Always 0.
std::int16_t init_cms(void* task);

// At most 176 bytes.  0; 8194 unknown names or no status; 8455.  When the default status
// applies the buffer must have 153 bytes, whatever length says.
std::int16_t get_cms(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
// Reads 176 bytes of the record, whatever length says.  0 new; 8196 replaced; 8209 target
// or change file unknown; 8455; or a code of the file layer.
std::int16_t put_cms(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// 0; 8194; 8455.
std::int16_t del_cms(void* task, std::uint16_t num_keys, const void* const* keys);

// All pairs of a target.  0, also when there is none; 8455.
std::int16_t del_target_cms(void* task, const char* target);
// The same without its end: when there were pairs, and 0 is answered, *begun is true and the
// transaction on "cmstatus" is the caller's to end.
std::int16_t begin_del_target_cms(void* task, const char* target, bool* begun);
// Whether any target has status of a change file.  0 none; 8212; 8455 not readable.
std::int16_t any_cm_by_cat(void* task, std::uint16_t cf_number);

// ---- Work of the exported calls, without their frame
std::int16_t del_cf_cms(void* task, const void* cf_name);
// What cm_by_cat leaves for add_default_status, which runs when the frame has been left.
struct default_status_rule {
  bool by_authorization;  // authorization mode 1 in the base configuration
  bool by_change_file;    // bit 32 of its cf_flags
  TRG_CNTL_ENTRY* slots;  // the table of targets, as it was mapped during the call
  std::uint32_t slot_count;
};
std::int16_t cm_by_cat(void* task, const void* cf_name, std::uint8_t* list, std::uint32_t length,
                       default_status_rule* rule);
// Writes 128 for each local target without status.  Holds no semaphore: slots are read
// while others may change them.
void add_default_status(void* task, std::uint8_t* list, std::uint32_t length,
                        const default_status_rule& rule);
std::int16_t cm_by_trg(void* task, const char* target, void* list, std::uint32_t length,
                       std::uint32_t* count);

}  // namespace zvrdb::cmstatus
