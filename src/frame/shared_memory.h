// The shared segment with the in-memory tables, and its generations.
//
// Life of a generation:
//   named      shm_generation holds its number; no segment yet
//   sized      the length fields of DBR_CNTL are computed for it (alloc_generation)
//   unfinished its segment exists, inited flag 0: being loaded, or its builder died
//   finished   inited flag 1: tables loaded, any task may map it
//   old        shm_generation has gone on; each task lets go at its next call, and the
//              name goes with the last one
//
// Invariants, under "DBR_MEM":
//   1. A finished segment of the current generation is as long as the length fields
//      ask for, and they do not change while it is current.
//   2. Length fields count only when alloc_generation is shm_generation.
//   3. Nobody maps a segment that is shorter than the length fields ask for.
//   4. A task's pointers are used only while its shm_generation is the current one.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::frame {

// Whether a roll-back undid changes of earlier calls that the segment still shows.  Counts
// that it made wrong are taken anew here, for they need no new generation, which would cost
// the volatile status of targets.  Asking clears the note, but for files that could not be
// counted just now.  The caller owns "DBR_MEM".
bool count_undone(void* task, DBR_TCB* tcb);
inline bool take_undone(void* task, DBR_TCB* tcb) {
  return tcb->undone_ids != 0 && count_undone(task, tcb);
}

// Class 1, semaphore held: maps the current segment, sized and loaded if it is the
// first.  0; 8201 (36355 and 36360, or 36387 logged); or the code of a failed step.
std::int16_t enter_memory(void* task, DBR_TCB* tcb);

// Class 0: attaches to the current segment, waiting for it up to nine times five
// seconds.  0 or 8201 (36360 logged).
std::int16_t attach_memory(void* task, DBR_TCB* tcb);

// Lets go of the mapped segment, if any.
void drop_memory(void* task, DBR_TCB* tcb);

}  // namespace zvrdb::frame
