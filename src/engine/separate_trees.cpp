#include "engine/separate_trees.h"

#include <algorithm>
#include <cstring>

#include "engine/cursor.h"
#include "engine/header_page.h"
#include "engine/node_alloc.h"
#include "engine/node_cache.h"
#include "engine/one_thread.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

constexpr std::size_t depths_at = header_at::treedepth - header_at::keytree;
constexpr std::size_t roots_at = header_at::treeroot - header_at::keytree;
static_assert(roots_at + 4 * max_tree == sizeof(PSP::treetables));

// Neither log records that name keys by tree nor a roll-back to come.
int no_transaction(PSP* h) {
  const int state = transstat(h);
  return state == e_trans_empty ? static_cast<int>(e_ok) : state;
}

int has_no_entries(PSP* h, int key) {
  const int found = bfirst(h, key, nullptr, 0);
  if (found == e_not_found) return e_ok;
  return found == e_ok ? static_cast<int>(e_exists) : found;
}

void forget_place(PSP* h, int key) {
  if (!has_cursor(h, key)) return;
  cursor& c = cursor_of(h, key);
  c.cnode = -1;
  c.ckeyno = -1;
  c.cdeleted = 0;
}

// The header in its place: what the tables say from now on.
int write_tables(PSP* h) {
  look_for_trees(h);
  h->lastkey = -1;
  return writehdr(h);
}

int make_tree(PSP* h, int tree) {
  if (const int room = ensurenodes(h, 1); room != e_ok) return room;
  const std::int32_t n = nodealloc(h);
  if (n < 0) return n;
  clear_buffer(second_buffer);
  second_buffer.image.next = -1;
  second_buffer.image.prev = -1;
  second_buffer.image.room = entry_area;
  const int written = nodeput(h, second_buffer, n);
  if (written == e_ok) set_place(h, tree, {n, 1});
  return written;
}

int give_tree(PSP* h, int key, int tree) {
  if (tree_of_key(h, key) == tree) return e_ok;
  int result = no_transaction(h);
  if (result == e_ok) result = has_no_entries(h, key);
  if (result == e_ok && tree != 0 && place_of_tree(h, tree).depth == 0) result = make_tree(h, tree);
  if (result != e_ok) return result;
  h->treetables[key - 1] = static_cast<std::uint8_t>(tree);
  forget_place(h, key);
  return write_tables(h);
}

int fail_at(PSP* h, int code, std::int32_t n, int result) {
  h->fault_code = code;
  h->fault_node = n;
  clear_tag(main_buffer);
  return result == e_not_found ? static_cast<int>(e_io) : result;
}

// Frees the nodes of a level from the leftmost one on; `below` becomes the leftmost of the
// level under it.
int free_level(PSP* h, std::int32_t n, int level, std::int32_t* below) {
  *below = -1;
  for (bool leftmost = true; n >= 0; leftmost = false) {
    // A chain in a circle meets a node that is free already.
    int result = nodeget(h, &main_buffer, n);
    node& v = main_buffer.image;
    if (result == e_ok && v.level != level) result = raise_damage(h, n);
    if (result != e_ok) return fail_at(h, fault_tree_read, n, result);
    if (leftmost) *below = v.child0;
    const std::int32_t next = v.next;
    v.count = 0;
    v.room = entry_area;
    std::memset(v.entries, 0, sizeof v.entries);
    result = nodefree(h, main_buffer, n);
    if (result == e_ok) result = nodeput(h, main_buffer, n);
    if (result != e_ok) return fail_at(h, fault_tree_write, n, result);
    n = next;
  }
  return e_ok;
}

int free_tree(PSP* h, int tree) {
  const tree_place place = place_of_tree(h, tree);
  if (place.depth == 0) return e_not_found;
  if (const int state = no_transaction(h); state != e_ok) return state;
  // Out of the header first: what fails behind that is lost space and no damage.
  set_place(h, tree, {0, 0});
  for (int key = 1; key <= max_key_number; ++key) {
    if (h->treetables[key - 1] != tree) continue;
    h->treetables[key - 1] = 0;
    forget_place(h, key);
  }
  int result = write_tables(h);
  std::int32_t leftmost = place.root;
  for (int level = place.depth - 1; result == e_ok && level >= 0; --level) {
    std::int32_t below = -1;
    result = free_level(h, leftmost, level, &below);
    leftmost = below;
  }
  clear_tag(main_buffer);
  return result;
}

// What both calls ask before they begin.
int enter_tables(PSP* h, bool good_numbers) {
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  if (!good_numbers) return keep_status(h, e_bad_argument);
  h->fault_code = 0;
  const int entered = wrenter(h);
  return entered == e_ok ? e_ok : keep_status(h, entered);
}

}  // namespace

tree_place place_of_tree(const PSP* h, int tree) {
  if (tree == 0) return {h->root, h->depth};
  if (tree > max_tree || h->treetables[depths_at + static_cast<std::size_t>(tree) - 1] == 0) return {-1, 0};
  const std::size_t at = static_cast<std::size_t>(tree) - 1;
  return {load32s(h->treetables + roots_at + 4 * at, h->order), h->treetables[depths_at + at]};
}

void set_place(PSP* h, int tree, const tree_place& place) {
  if (tree == 0) {
    h->root = place.root;
    h->depth = place.depth;
    return;
  }
  const std::size_t at = static_cast<std::size_t>(tree) - 1;
  h->treetables[depths_at + at] = static_cast<std::uint8_t>(place.depth);
  store32s(h->treetables + roots_at + 4 * at, place.root, h->order);
}

int deepest_tree(const PSP* h) {
  std::int32_t deepest = h->depth;
  for (int key = 1; h->trees != 0 && key <= max_key_number; ++key)
    deepest = std::max(deepest, place_of_key(h, key).depth);
  return deepest;
}

void look_for_trees(PSP* h) {
  h->trees = std::any_of(h->treetables, h->treetables + max_key_number, [](std::uint8_t t) { return t != 0; });
}

int dkeytree(PSP* h, int key, int tree) {
  const one_thread alone;
  const bool good = good_key_number(key) && key != key_rollback + 1 && tree >= 0 && tree <= max_tree;
  if (const int entered = enter_tables(h, good); entered != e_ok) return entered;
  h->status = give_tree(h, key, tree);
  return keep_status(h, leave_result(h->status, wrleave(h)));
}

int dfreetree(PSP* h, int tree) {
  const one_thread alone;
  if (const int entered = enter_tables(h, tree >= 1 && tree <= max_tree); entered != e_ok) return entered;
  h->status = free_tree(h, tree);
  return keep_status(h, leave_result(h->status, wrleave(h)));
}

int last_fault(const PSP* h, std::int32_t* node) {
  if (node != nullptr) *node = h->fault_code == 0 ? -1 : h->fault_node;
  return h->fault_code;
}

}  // namespace zvrdb::engine
