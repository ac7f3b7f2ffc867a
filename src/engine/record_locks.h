// Record locks: entries under key 20, owned by slots.  Key numbers are 1 to 20, else
// e_bad_argument.
#pragma once

#include "engine/psp.h"

namespace zvrdb::engine {

// How long a lock is wanted.
enum class lock_for {
  as_long_as_asked,
  one_call,   // for one change in a call of several operations: it may stay out of the file
};

// Locks the entry at the key's cursor.  0, e_no_current, e_locked_by_other.
int keylock(PSP* h, int key, lock_for use = lock_for::as_long_as_asked);
int keyunlock(PSP* h, int key);
// e_locked_by_self, e_not_locked, e_locked_by_other, e_no_current.
int keylockstate(PSP* h, int key);
// Drops a lock on the key, as each move of its cursor must.  0, e_unlock.
int keyfree(PSP* h, int key);
// A call of several operations ends: so does a lock that stayed out of the file.
void forget_unwritten_lock(PSP* h);
// Removes locks that an earlier owner of the slot left.  0; e_old_locks for a read-only
// handle that finds one.
int purgelocks(PSP* h);

}  // namespace zvrdb::engine
