// The look at a node of which nothing may be taken for granted, with a code for what is wrong
// (see fault in engine.h).
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// 0, or a code of fault.  Entries are looked at in nodes of a tree alone: log nodes and free
// ones have none.
int check_node(const PSP* h, const node& v);
// Keeps what was wrong, for last_fault.
inline void note_fault(PSP* h, int code, std::int32_t n) {
  h->fault_code = code;
  h->fault_node = n;
}

}  // namespace zvrdb::engine
