// What a task that died can leave in a record file, and how the next one clears it.
// The caller owns "DBR_MEM" throughout: nobody is writing.
#pragma once

#include <cstdint>

#include "engine/engine.h"

namespace zvrdb::recfile {

// Nobody has the file open: opens it whole and clears the write flag.  A file that
// is not there yet is no error.
void clear_flag_alone(void* task, engine::PSP* psp, const char* path);
// Live tasks have the file open, and the flag was set by one that died.  True when
// the flag was cleared; false when the ledger cannot account for every use count:
// then somebody unknown may be writing, and the flag stays.
bool clear_flag_beside_live_users(void* task, engine::PSP* psp, unsigned index, const char* path);
// Ends a transaction whose owner is gone; state is what transstat answered.
void end_interrupted_transaction(void* task, engine::PSP* psp, const char* name, int state);

}  // namespace zvrdb::recfile
