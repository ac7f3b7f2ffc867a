// The open blocks of the process, so that a forked child can let go of them.
#pragma once

#include "engine/psp.h"

namespace zvrdb::engine {

void remember_handle(PSP* h);
// True when it was remembered.  Also for memory that never was an open block.
bool forget_handle(PSP* h);
bool any_open_handle();
// Nodes in the cache that belong to open handles.
unsigned nodes_of_open_handles();

}  // namespace zvrdb::engine
