// Finding entries in the tree: descent, the entry at a position, neighbours of a leaf.
#pragma once

#include <cstdint>

#include "engine/key_compare.h"
#include "engine/node_cache.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// Bytes of the entries that are in use.
inline int entries_end(const node& v) { return entry_area - v.room; }
// Offset of the entry at an index, or of the end for an index at or behind count.
int entry_offset(const node& v, int index);

// What a search for (keyno, key, recno, piece) with the edge of the block looks for.
target target_of(const PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, int piece);

// Searches (keyno, key, recno, piece) with the edge of the block.  On success the main
// buffer holds the leaf, h->foundoffset is the place of the first entry at or above the
// target or the end of the entries, the cursor of keyno stands there, and cmpfull and
// cmpkey tell how that entry compares.  False: damage (e_damaged).
bool treesearch(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, int piece);

// Where in a leaf (keyno, key, recno) is, or would be put.
struct leaf_place {
  node_view leaf;
  int index;
  bool found;
};
// Looks for that inside a write operation.  Buffers, cursors and the place of the search before
// stay as they are.  False: only a search can tell.
bool look_up(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, leaf_place* out);

// Finds keyno, keyptr, recno, with the given piece, and makes the entry current:
// 0 exact, 1 same key value, 2 greater, -1 nothing, e_damaged.  A find of 2 may be an
// entry of another key number: see the cursor's ckeyno.
int locate(PSP* h, int piece = 0);

// Makes an entry the one at hand: keyptr, recno, piece, keybuf, and the cursor's copy.
void publish(PSP* h, const std::uint8_t* entry);
void clear_request(PSP* h);   // nothing at hand; status -1

// The next, previous leaf with entries, into the main buffer; the cursor of h->keyno
// goes with it.  1 there is one, 0 none, negative an error.
int next_leaf(PSP* h);
int previous_leaf(PSP* h);

// One more step to a neighbour; false when more were made than any walk over the nodes
// of the file needs.
bool may_hop(PSP* h);

// Entry of the cursor's node at an index, in the main buffer, or null.
const std::uint8_t* entry_at_index(const node& v, int index);

}  // namespace zvrdb::engine
