// The task's work area for one external record.
#pragma once

#include <cstdint>

#include "keyed/keyed.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::keyed {

// Longest request: an external record behind both keys of a correlator.
inline constexpr std::uint32_t scratch_capacity = external_capacity + 124;

// The area of scratch_capacity bytes, made with this tag at the first use of the task.
// Its bytes are whatever the last use left.  Null (36355 logged) when there is no memory.
unsigned char* scratch_area(void* task, const char* tag);

}  // namespace zvrdb::keyed
