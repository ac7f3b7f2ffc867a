// Record locks: entries under key 20, owned by slots.  Key numbers are 1 to 20, else
// e_bad_argument.
#pragma once

#include "engine/psp.h"

namespace zvrdb::engine {

// Locks the entry at the key's cursor.  0, e_no_current, e_locked_by_other.
int keylock(PSP* h, int key);
int keyunlock(PSP* h, int key);
// e_locked_by_self, e_not_locked, e_locked_by_other, e_no_current.
int keylockstate(PSP* h, int key);
// Drops a lock on the key, as each move of its cursor must.  0, e_unlock.
int keyfree(PSP* h, int key);
// Removes locks that an earlier owner of the slot left.  0; e_old_locks for a read-only
// handle that finds one.
int purgelocks(PSP* h);

}  // namespace zvrdb::engine
