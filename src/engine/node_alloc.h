// Numbers of nodes: taking, giving back, and growth of the file.
#pragma once

#include <cstdint>

#include "engine/node_cache.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// A node number from the free chain, else one never used.  Negative: e_io, and the
// errors of writing the header.
std::int32_t nodealloc(PSP* h);
// Puts a node on the free chain.  The caller clears its entries and writes it.
int nodefree(PSP* h, node_buffer& b, std::int32_t n);
// Makes sure that `need` nodes never used exist in the file.  0, e_write, e_damaged.
int ensurenodes(PSP* h, std::int64_t need);
inline int ensurenodes(PSP* h) { return ensurenodes(h, std::int64_t{h->depth} + 1); }

}  // namespace zvrdb::engine
