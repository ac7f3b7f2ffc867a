// Reads that look at nodes where they lie in the cache: no leaf is copied, and a leaf that a
// search ended in before is tried before the tree is descended.
//
// They know the plain cases only, answer as the general ways do, and leave the block as those
// would.  Whatever else they meet (a stale place, a move to the right, damage) they leave to the
// general way, with nothing changed.
#pragma once

#include "engine/psp.h"

namespace zvrdb::engine {

// find_value of cursor.h.  False: not a plain case.
bool find_value_in_place(PSP* h, int* result);
// A step forward to the next value, from an entry that is a whole value.  False as above.
bool next_value_in_place(PSP* h, int* result);

}  // namespace zvrdb::engine
