// The waiting queue of writers: the positions behind the arbiter byte.  Who comes takes the
// first position above all that are taken and walks down, waiting for each position below
// before it lets go of its own, until it holds the arbiter: first come, first served.
//
//     771  arbiter: position 0
//     772  position 1, the next writer
//     980  position 209
//
// Writers that don't queue take the arbiter when it is free, past those who do.
#pragma once

#include "engine/psp.h"

namespace zvrdb::engine {

inline bool queues(const PSP* h) { return (h->options & option_queue) != 0; }

// Waits in the queue until the arbiter byte is this handle's.
// 0, e_no_slot (every position is taken), e_queue (the positions cannot be locked).
int wait_in_queue(PSP* h);

}  // namespace zvrdb::engine
