// What a leaf held falls to its right neighbour: in each node above, the separator to its
// right goes, and the child behind that separator takes its place.  At the right end of a
// level there is none to the right, and the separator to its left goes.
//
//      before      child0  e1 c1  e2 c2  e3 c3         c1 is taken out
//      after       child0  e1 c2         e3 c3
//
// What always holds of inner nodes, and is kept:
//   1  the last entry of one with a right neighbour is its upper bound; that entry's child is
//      the first child of the neighbour, and not followed here
//   2  the separators above that stand for the same bound have the same key
//   3  one without a right neighbour follows all its children
//
// A node whose only entry goes is freed in its turn.  In the middle of a level its range
// falls to the right neighbour, as that of a leaf does.  At the right end one child is left
// over: the left neighbour becomes the end of the level, and follows that child behind its last
// entry.  The root gives way to a child that is left over.
//
// Node 0, the first leaf of every file, stays though it is empty: nothing that names log nodes
// or free ones can name a 0.  So does a leaf that cannot be reached as it should (a split was cut
// short there): an empty leaf is legal, and no reason to fail.
#include "engine/leaf_merge.h"

#include <cstring>

#include "engine/header_page.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/node_alloc.h"
#include "engine/node_cache.h"
#include "engine/separate_trees.h"
#include "engine/tree_insert.h"

namespace zvrdb::engine {
namespace {

// Leaves that the removal of one value emptied.  They hold pieces of it, so key and record
// number are those of all.
struct emptied_leaves {
  PSP* owner = nullptr;
  int count = 0;
  std::int32_t nodes[max_pieces];
  std::uint8_t pieces[max_pieces];
  std::uint8_t entry[entry_buffer_size];
};
emptied_leaves emptied;

node& main_node() { return main_buffer.image; }

int io_result(int result) { return result == e_not_found ? static_cast<int>(e_io) : result; }

void set_child(PSP* h, std::uint8_t* entry, std::int32_t child) {
  store32s(entry + entry[entry_at::length] - 3, child, h->order);
}

std::uint8_t* entry_of(node& v, int index) { return v.entries + entry_offset(v, index); }

// Place of a child among those that a node follows: 0 the first one, j the one behind entry j;
// -1 it isn't there.
int place_of_child(const PSP* h, const node& v, std::int32_t child) {
  const int followed = v.next == -1 ? v.count : v.count - 1;
  if (followed >= 0 && v.child0 == child) return 0;
  int at = 0;
  for (int j = 1; j <= followed; ++j, at += entry_size(v.entries + at))
    if (child_in(h, v.entries + at) == child) return j;
  return -1;
}

// Brings the node of a level that follows the child into the main buffer and into the path: it
// is the one that the path names, or lies to its right.  The place of the child; -1.
int find_parent(PSP* h, int level, std::int32_t child) {
  std::int32_t n = h->path_nodes[level];
  while (n >= 0) {
    if (nodeget(h, &main_buffer, n) != e_ok || main_node().level != level) return -1;
    const int place = place_of_child(h, main_node(), child);
    if (place >= 0) {
      h->path_nodes[level] = n;
      return place;
    }
    if (!may_hop(h)) return -1;
    n = main_node().next;
  }
  return -1;
}

// Brings the path from a level on to the nodes that lead to the child: each follows the one
// below.  After splits they may lie to the right of those that it named, or be new.
bool mend_path(PSP* h, int tree, int level, std::int32_t child) {
  const tree_place place = place_of_tree(h, tree);
  for (; level < place.depth && level < max_depth; ++level) {
    if (level + 1 == place.depth) h->path_nodes[level] = place.root;
    if (find_parent(h, level, child) < 0) return false;
    child = h->path_nodes[level];
    if (main_node().count == 0 && child != place.root) return false;
  }
  return child == place.root;
}

// The way from the root to the leaf.
bool find_path(PSP* h, int tree, std::int32_t leaf, int piece) {
  const std::uint8_t* entry = emptied.entry;
  const int keyno = entry[entry_at::key];
  const cursor kept = cursor_of(h, keyno);
  const std::int32_t cmpfull = h->cmpfull;
  const std::int32_t cmpkey = h->cmpkey;
  const bool found = treesearch(h, keyno, entry + entry_at::value, entry_record(entry, h->order), piece);
  cursor_of(h, keyno) = kept;
  h->cmpfull = cmpfull;
  h->cmpkey = cmpkey;
  h->lastkey = -1;
  return found && mend_path(h, tree, 1, leaf);
}

// Whether the neighbours of the node in the main buffer name it.
bool is_linked(PSP* h, std::int32_t n) {
  const std::int32_t left = main_node().prev;
  const std::int32_t right = main_node().next;
  const int level = main_node().level;
  if (left >= 0 && (nodeget(h, nullptr, left) != e_ok || h->current->next != n || h->current->level != level)) return false;
  return right < 0 || (nodeget(h, nullptr, right) == e_ok && h->current->prev == n && h->current->level == level);
}

// Links the neighbours of the node in the main buffer past it and frees it.  `end_child`: of
// the left neighbour's last entry, -1 for a leaf.
int release_node(PSP* h, std::int32_t n, std::int32_t end_child) {
  node& m = main_node();
  if (!is_linked(h, n)) return raise_damage(h, n);
  node& v = second_buffer.image;
  if (m.prev >= 0) {
    if (const int got = nodeget(h, &second_buffer, m.prev); got != e_ok) return io_result(got);
    v.next = m.next;
    if (end_child >= 0 && v.count > 0) set_child(h, entry_of(v, v.count - 1), end_child);
    if (const int put = nodeput(h, second_buffer, m.prev); put != e_ok) return put;
  }
  if (m.next >= 0) {
    if (const int got = nodeget(h, &second_buffer, m.next); got != e_ok) return io_result(got);
    v.prev = m.prev;
    if (const int put = nodeput(h, second_buffer, m.next); put != e_ok) return put;
  }
  m.count = 0;
  m.room = entry_area;
  std::memset(m.entries, 0, sizeof m.entries);
  const int freed = nodefree(h, main_buffer, n);
  return freed != e_ok ? freed : nodeput(h, main_buffer, n);
}

// The first child of a node became another one: its left neighbour names it as well.
int tell_left_neighbour(PSP* h, std::int32_t left, std::int32_t child) {
  if (left < 0) return e_ok;
  if (const int got = nodeget(h, &second_buffer, left); got != e_ok) return io_result(got);
  node& v = second_buffer.image;
  if (v.count == 0) return e_ok;
  set_child(h, entry_of(v, v.count - 1), child);
  return nodeput(h, second_buffer, left);
}

// The separator that bounds a child from above becomes the key of `bound`.  On each level whose
// node ends with it, the one above bounds that node in its turn.
int replace_bound(PSP* h, int tree, int level, std::int32_t child, const std::uint8_t* bound) {
  bool split = false;
  for (bool ends = true; ends && level < place_of_tree(h, tree).depth; ++level) {
    if (split && !mend_path(h, tree, level, child)) return raise_damage(h, child);
    const int place = find_parent(h, level, child);
    node& m = main_node();
    const std::int32_t n = h->path_nodes[level];
    if (place < 0) return raise_damage(h, child);
    if (place >= m.count) return e_ok;
    const int offset = entry_offset(m, place);
    const std::int32_t next = m.next;
    ends = place == m.count - 1 && next != -1;
    std::uint8_t fresh[entry_buffer_size];
    std::memcpy(fresh, bound, static_cast<std::size_t>(entry_size(bound)));
    set_child(h, fresh, child_in(h, m.entries + offset));
    remove_bytes(m, offset);
    insert_bytes(m, offset, fresh);
    if (const int written = write_with_splits(h, tree, n, &split); written != e_ok) return io_result(written);
    // After a split the bound stands in the right one of the two.
    child = n;
    if (!split) continue;
    if (const int got = nodeget(h, nullptr, n); got != e_ok) return io_result(got);
    if (h->current->next != next) child = h->current->next;
  }
  return e_ok;
}

// The root in the main buffer has one child left, or none (-1): then it is an empty leaf.
int lower_root(PSP* h, int tree, std::int32_t root, std::int32_t child) {
  if (child < 0) {
    node& m = main_node();
    m.level = 0;
    m.child0 = 0;
    const int written = nodeput(h, main_buffer, root);
    set_place(h, tree, {root, 1});
    return written == e_ok ? header_changed(h) : written;
  }
  set_place(h, tree, {child, place_of_tree(h, tree).depth - 1});
  return release_node(h, root, -1);
}

// Takes a child out of the nodes above it, from level 1 on.
int remove_child(PSP* h, int tree, std::int32_t child) {
  for (int level = 1;; ++level) {
    const int place = level < max_depth ? find_parent(h, level, child) : -1;
    if (place < 0) return raise_damage(h, child);
    node& m = main_node();
    const std::int32_t n = h->path_nodes[level];
    const bool root = n == place_of_tree(h, tree).root;
    const bool at_end = m.next == -1;
    if (m.count == 0) return root ? lower_root(h, tree, n, -1) : raise_damage(h, n);
    const bool was_bound = place == m.count - 1 && !at_end;
    if (place < m.count) {
      const int offset = entry_offset(m, place);
      const std::int32_t heir = child_in(h, m.entries + offset);
      remove_bytes(m, offset);
      if (place == 0) {
        m.child0 = heir;
      } else {
        set_child(h, entry_of(m, place - 1), heir);
      }
    } else {
      remove_bytes(m, entry_offset(m, place - 1));
    }
    if (m.count == 0) {
      if (root) return lower_root(h, tree, n, m.child0);
      if (at_end && m.prev < 0) return nodeput(h, main_buffer, n);
      if (const int released = release_node(h, n, m.child0); released != e_ok) return released;
      child = n;
      continue;
    }
    const std::int32_t left = m.prev;
    const std::int32_t first = m.child0;
    std::uint8_t bound[entry_buffer_size];
    const std::uint8_t* last = entry_of(m, m.count - 1);
    std::memcpy(bound, last, static_cast<std::size_t>(entry_size(last)));
    if (const int written = nodeput(h, main_buffer, n); written != e_ok) return written;
    if (place == 0) return tell_left_neighbour(h, left, first);
    return was_bound ? replace_bound(h, tree, level + 1, n, bound) : static_cast<int>(e_ok);
  }
}

// Cursors in a leaf without entries go where the same entries lie before and behind them.
void move_cursors(PSP* h, std::int32_t leaf, std::int32_t left, int left_count, std::int32_t right) {
  for (cursor* c : h->cursors) {
    if (c == nullptr || c->cnode != leaf) continue;
    const bool before_follower = c->cindex < 0 || c->cdeleted;
    if (before_follower ? left >= 0 : right < 0) {
      c->cnode = left;
      c->cindex = before_follower ? left_count - 1 : left_count;
    } else {
      c->cnode = right;
      c->cindex = before_follower ? -1 : 0;
    }
  }
}

int take_out_leaf(PSP* h, std::int32_t leaf, int piece) {
  const int tree = tree_of_key(h, emptied.entry[entry_at::key]);
  if (leaf == 0 || place_of_tree(h, tree).root == leaf || !find_path(h, tree, leaf, piece)) return e_ok;
  node& m = main_node();
  if (const int got = nodeget(h, &main_buffer, leaf); got != e_ok) return io_result(got);
  if (m.level != 0 || m.count != 0 || !is_linked(h, leaf)) return e_ok;
  const std::int32_t left = m.prev;
  const std::int32_t right = m.next;
  int left_count = 0;
  if (left >= 0) {
    if (const int got = nodeget(h, nullptr, left); got != e_ok) return io_result(got);
    left_count = h->current->count;
  }
  // Nodes above first: a leaf that nothing but its neighbours leads to is still a legal one.
  int result = remove_child(h, tree, leaf);
  if (result == e_ok) result = io_result(nodeget(h, &main_buffer, leaf));
  if (result == e_ok) result = release_node(h, leaf, -1);
  if (result == e_ok) move_cursors(h, leaf, left, left_count, right);
  return result;
}

}  // namespace

void forget_emptied_leaves() {
  emptied.owner = nullptr;
  emptied.count = 0;
}

void note_emptied_leaf(PSP* h, std::int32_t leaf, const std::uint8_t* entry) {
  if (emptied.count == max_pieces) return;
  emptied.owner = h;
  emptied.nodes[emptied.count] = leaf;
  // Piece 128 reads as 0, and lies behind piece 127.
  const bool wrapped = emptied.count > 0 && entry[entry_at::piece] == last_piece;
  emptied.pieces[emptied.count] = wrapped ? piece_number : entry[entry_at::piece];
  if (emptied.count++ == 0) std::memcpy(emptied.entry, entry, static_cast<std::size_t>(entry_size(entry)));
}

int merge_emptied_leaves(PSP* h) {
  if (emptied.owner == nullptr) return e_ok;
  int result = e_ok;
  for (int i = 0; emptied.owner == h && result == e_ok && i < emptied.count; ++i)
    result = take_out_leaf(h, emptied.nodes[i], emptied.pieces[i]);
  forget_emptied_leaves();
  clear_tag(main_buffer);
  h->lastkey = -1;
  return result;
}

}  // namespace zvrdb::engine
