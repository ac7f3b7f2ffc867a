// Putting an entry into a leaf, with the splits that follow, and taking one out.
// Cursors of all key numbers stay where they were.
#pragma once

#include <cstdint>

#include "engine/node_cache.h"
#include "engine/psp.h"

namespace zvrdb::engine {

inline constexpr int entry_buffer_size = 256;

// Adds an entry of key number keyno to the leaf v in the main buffer, at a byte offset
// that is index i, and writes all nodes that change.
// 0, e_write, e_io, e_node_range, e_damaged.
int treeadd(PSP* h, int keyno, const std::uint8_t* entry, int offset, std::int32_t v, int i);

// Takes the entry at index i of the leaf v, at a byte offset, out of the main buffer;
// the caller writes the node.
void remove_entry(PSP* h, int keyno, int offset, std::int32_t v, int i);

// Writes the node in the main buffer, of a tree whose nodes above it stand in path_nodes, and
// splits it and those above it where they overflow; `split` tells whether any was.
int write_with_splits(PSP* h, int tree, std::int32_t number, bool* split);

// Bytes of a node alone.
void insert_bytes(node& v, int offset, const std::uint8_t* entry);
void remove_bytes(node& v, int offset);
// The child of an inner entry.
std::int32_t child_in(const PSP* h, const std::uint8_t* entry);

}  // namespace zvrdb::engine
