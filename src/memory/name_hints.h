// Where a task has found names of targets before, so that it need not search the index
// for them again.
//
// A hint is a number only, and no more than a guess: it counts when the slot of that
// number is in use and holds this very name, which the slot itself tells.  So an added,
// replaced or deleted target needs no notice here.  What the slot cannot tell is that two
// targets bear one name, of which the search finds the first: only a rename makes such
// two, and each rename makes all hints void (DBR_CNTL::renames), as each new generation
// of the tables does.
#pragma once

#include <cstddef>
#include <cstdint>

#include "memory/dbr_tcb.h"

namespace zvrdb::memory {

// Takes private memory for hints on the tables that the task has mapped, unless it has
// some that fits.  Without it nothing is kept, and all names are searched for.
void make_room_for_hints(void* task, DBR_TCB* tcb);
void free_hints(void* task, DBR_TCB* tcb);

// Number of the target with this name as it was found before; 0: not known.  length is
// that of the name, below trg_name_len.
std::uint32_t hinted_number(const DBR_TCB* tcb, const char* name, std::size_t length);

// Keeps that the search has found this name under this number.
void keep_hint(DBR_TCB* tcb, const char* name, std::size_t length, std::uint32_t number);

}  // namespace zvrdb::memory
