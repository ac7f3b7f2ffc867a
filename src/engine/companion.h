// The companion of a transaction: another file that is kept as a copy.  What a write operation
// wrote is noted by node number, logged, and copied when the operation has ended well; nodes
// of the log follow when the transaction ends.
#pragma once

#include <cstdint>

#include "engine/psp.h"

namespace zvrdb::engine {

struct companion_copy {
  PSP* to;
  std::int32_t* nodes;      // written by the operation at hand, some more than once
  std::uint32_t count;
  std::uint32_t room;
  bool with_chain;          // the log chain is copied too: it stays, empty
  std::int32_t failed;      // the copy was given up for this
};

inline bool has_companion(const PSP* h) { return h->companion != nullptr; }

// Whether that handle's file can be a copy of this one, as both are now.
// 0, e_bad_handle, e_key_table, errors of reading.
int check_companion(PSP* h, PSP* companion);
// 0, e_no_memory.
int companion_attach(PSP* h, PSP* companion);
void companion_let_go(PSP* h);

// A node was written.
void note_node_write(PSP* h, std::int32_t n);
// At the end of a write operation, before it is flushed: the nodes to the log.
int log_node_writes(PSP* h);
// When the operation has come to `result`: copies what it changed.  The result of both.
int keep_companion(PSP* h, int result);

}  // namespace zvrdb::engine
