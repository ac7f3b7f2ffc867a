// What a task that died can leave in a record file, and how the next one clears it.
// The caller owns "DBR_MEM" throughout: nobody is writing.
#pragma once

#include <cstdint>

#include "engine/engine.h"

namespace zvrdb::recfile {

// Nobody has the file open: opens it whole and clears the write flag.  A file that
// is not there yet is no error.
void clear_flag_alone(void* task, engine::PSP* psp, unsigned index, const char* path);
// Memory may still show a transaction that the open of the file took back.
void note_taken_back(void* task, const engine::PSP* psp, unsigned index);
// Live tasks have the file open, and the flag was set by one that died.  True when
// the flag was cleared; false when the ledger cannot account for every use count:
// then somebody unknown may be writing, and the flag stays.
bool clear_flag_beside_live_users(void* task, engine::PSP* psp, unsigned index, const char* path);
// Ends a transaction whose owner is gone; state is what transstat answered.  0 or the
// engine's code; after a failure the handle must write nothing more.  What is rolled
// back is noted in undone_ids: memory may still show it.
int end_interrupted_transaction(void* task, engine::PSP* psp, unsigned index, int state);

// A handle whose roll-back failed knows less than its file: it is let go of without
// another write, and the file is opened anew, which rolls back what the handle could
// not.  When even that fails the entry stays closed until reopen_lost_files succeeds.
void reopen_after_failure(void* task, unsigned index);

}  // namespace zvrdb::recfile
