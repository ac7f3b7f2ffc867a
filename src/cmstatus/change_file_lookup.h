// What CM status needs to know of a change file and of the installation to answer a
// pair without a record: the default status.
#pragma once

#include <cstdint>

#include "memory/dbr_tcb.h"

namespace zvrdb::cmstatus {

inline constexpr std::uint8_t default_status = 128;
inline constexpr std::uint8_t flag_default_status = 32;  // of cf_flags

// Number and cf_flags of the change file, the latter from its record in the file.
// 0; 8194, with the flags 0.
std::int16_t find_change_file(void* task, const void* cf_name, std::uint16_t* cf_number,
                              std::uint8_t* cf_flags);
// Whether the base configuration grants the default status for every change file.
bool default_for_all(void* task);
bool is_local(const TRG_CNTL_ENTRY* slot);

}  // namespace zvrdb::cmstatus
