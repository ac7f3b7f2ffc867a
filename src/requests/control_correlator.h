// The control correlator: the one record among the correlators that is none, but what the
// generator of new ones remembers between two runs of the system.  Its identifier is empty
// but for this machine's name as src_domain.
#pragma once

#include <zvrdb/records.h>

#include <cstdint>

#include "memory/codes.h"

namespace zvrdb::requests {

// How many sequence numbers lie between two recoveries of the generator: on a new system,
// and whenever the clock was found set back, it goes on at a multiple of this.
inline constexpr std::uint32_t sequence_band = 512000;

// An identifier and nothing else.
db_coo empty_control_correlator(void* task);
// 0; 8194; 8200 this machine is no target; 8455.
std::int16_t read_control_correlator(void* task, db_coo* control);
// 0, whether there was one or not, and the record that there was or an empty one; 8200;
// 8455.
std::int16_t take_control_correlator(void* task, db_coo* control);
// 0; 8200; 8455.
std::int16_t store_control_correlator(void* task, db_coo* control);

}  // namespace zvrdb::requests
