// Trees beside the one that all keys share.  The header names the tree of each key number,
// and root and depth of trees 1 to 20; a tree whose depth is 0 isn't there.
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/psp.h"

namespace zvrdb::engine {

inline constexpr int max_tree = 20;

struct tree_place {
  std::int32_t root;    // -1: there is no such tree
  std::int32_t depth;   // levels; 0: there is no such tree
};

inline int tree_of_key(const PSP* h, int key) { return h->trees == 0 ? 0 : h->treetables[key - 1]; }
tree_place place_of_tree(const PSP* h, int tree);
inline tree_place place_of_key(const PSP* h, int key) {
  return h->trees == 0 ? tree_place{h->root, h->depth} : place_of_tree(h, h->treetables[key - 1]);
}
// The header is not marked as changed.
void set_place(PSP* h, int tree, const tree_place& place);
// Levels of the deepest tree that a key lies in.
int deepest_tree(const PSP* h);
// To be called when the tables of the block were loaded or changed.
void look_for_trees(PSP* h);

}  // namespace zvrdb::engine
