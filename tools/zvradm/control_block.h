// The shared control block of an installation, as it is at one moment.
#pragma once

#include "memory/dbr_cntl.h"

namespace zvradm {

// A copy: the block itself changes while we look.  Throws refusal.
zvrdb::DBR_CNTL read_control_block(void* task);

}  // namespace zvradm
