// Correlators: a request identifier and the SNA correlator it travels under, in "snacorr"
// (db_id 29 by identifier, 28 by correlator), and the generator of new ones.  The handlers
// run inside the frame, with "DBR_MEM" held by the task.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::requests {

// Sets corr_date and corr_seq from the control correlator, or for a new system.  Always 0.
std::int16_t init_corr(void* task);

// 0; 8194; 8200; 8455.
std::int16_t get_coo(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
// Both keys come from the db_coo at keys[0].  0; 8196; 8200; 8455.
std::int16_t put_coo(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// 0; 8194; 8200; 8455.
std::int16_t del_coo(void* task, std::uint16_t num_keys, const void* const* keys);
// By SNA correlator: keys[0] is a db_coo.
std::int16_t get_coi(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);

// ---- Work of the exported calls, without their frame.  record: a db_coo.
// In the request identifier, out its correlator, made if need be.
std::int16_t reqid2corr(void* task, void* record);
// In the correlator, out its request identifier, made up for one from elsewhere.
std::int16_t corr2reqid(void* task, void* record);
// Fills date, time and sequence of the next correlator.  0 or the code of the control
// correlator's record.
std::int16_t build_sna_corr(void* task, void* record);

}  // namespace zvrdb::requests
