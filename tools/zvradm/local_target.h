// The local target's name, and the first look at it.
#pragma once

#include <string>

namespace zvradm {

std::string local_target_name(void* task);

// Has the shared tables built if no task has done so yet.  Calls on configuration
// records only wait for them.
void build_shared_tables(void* task);

}  // namespace zvradm
