// Merge on delete: a leaf that a deletion empties leaves the tree, and its node goes to the
// free ones.  Without the option of the open nothing here does anything.
#pragma once

#include <cstdint>

#include "engine/psp.h"

namespace zvrdb::engine {

inline bool merges_on_delete(const PSP* h) { return (h->options & option_merge) != 0; }

// Before a value is removed.
void forget_emptied_leaves();
// A leaf of the value that is being removed has no entries any more; `entry` was its last.
void note_emptied_leaf(PSP* h, std::int32_t leaf, const std::uint8_t* entry);
// Takes the leaves that were noted out of their tree, as far as they are empty still.  Main and
// second buffer hold something else afterwards; all cursors stand where they stood.
// 0, e_io, e_damaged, errors of nodes.
int merge_emptied_leaves(PSP* h);

}  // namespace zvrdb::engine
