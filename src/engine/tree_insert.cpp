#include "engine/tree_insert.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "engine/header_page.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/node_alloc.h"
#include "engine/node_cache.h"
#include "engine/separate_trees.h"

namespace zvrdb::engine {
namespace {

template <class F>
void for_cursors(PSP* h, int from_key, std::int32_t v, F change) {
  for (int k = from_key; k <= cursor_count; ++k)
    if (cursor* c = h->cursors[k - 1]; c != nullptr && c->cnode == v) change(*c);
}

void repair_after_insert(PSP* h, int keyno, std::int32_t v, int i) {
  for_cursors(h, keyno, v, [&](cursor& c) {
    if (c.cindex > i || c.ckeyno > keyno) ++c.cindex;
  });
}

void repair_after_removal(PSP* h, int keyno, std::int32_t v, int i) {
  if (has_cursor(h, keyno)) h->cursors[keyno - 1]->cdeleted = 1;
  for_cursors(h, keyno, v, [&](cursor& c) {
    if (c.cindex >= i && c.cindex > -1) --c.cindex;
  });
}

void repair_after_split(PSP* h, std::int32_t v, std::int32_t n, int kept) {
  for_cursors(h, 1, v, [&](cursor& c) {
    if (c.cindex < kept) return;
    c.cnode = n;
    c.cindex -= kept;
  });
}


// The separator for the node n split off behind the entry `last` of a node: its key
// and numbers, without data, and n as the child.
void build_separator(const PSP* h, const std::uint8_t* last, bool inner, std::int32_t n, std::uint8_t* out) {
  const int avail = entry_size(last) - entry_head_size;
  const int k = inner ? avail - 4
                      : key_value_length(type_of_key(h, last[entry_at::key]), last + entry_at::value, avail);
  std::memcpy(out, last, static_cast<std::size_t>(entry_head_size + k));
  out[entry_at::length] = static_cast<std::uint8_t>(k + 10);
  store32s(out + entry_head_size + k, n, h->order);
}

// Whether an entry is piece 128 of the value that the entry before it belongs to.  Its
// number doesn't fit in seven bits and reads as 0.
bool is_wrapped_piece(const PSP* h, const std::uint8_t* before, const std::uint8_t* entry) {
  return before[entry_at::piece] == piece_number && entry[entry_at::piece] == last_piece &&
         compare_entries(h, before, entry) == 0;
}

// Moves what doesn't stay in the node into the second buffer.  At the right end of a
// level the node stays full, so that rising keys leave full nodes behind.
// The offset of the last entry that stays, -1 if none would.
int nodesplit(PSP* h, node& v, int* kept) {
  const int limit = v.next == -1 ? entry_area : half_full;
  const int end = entries_end(v);
  int at = 0;
  int last = -1;
  *kept = 0;
  while (*kept < v.count) {
    const int size = entry_size(v.entries + at);
    // Inner entries are longer than half a node allows for: what moves must fit as well.
    if (at + size >= limit && end - at <= entry_area) break;
    last = at;
    at += size;
    ++*kept;
  }
  if (last < 0) return last;
  clear_buffer(second_buffer);
  node& w = second_buffer.image;
  const int moved = end - at;
  std::memcpy(w.entries, v.entries + at, static_cast<std::size_t>(moved));
  w.level = v.level;
  w.count = static_cast<std::uint16_t>(v.count - *kept);
  w.room = static_cast<std::int16_t>(entry_area - moved);
  w.child0 = v.level == 0 ? 0 : child_in(h, v.entries + last);
  v.count = static_cast<std::uint16_t>(*kept);
  v.room = static_cast<std::int16_t>(entry_area - at);
  std::memset(v.entries + at, 0, sizeof v.entries - static_cast<std::size_t>(at));
  return last;
}

// A new root above the old one, in the main buffer.
std::int32_t grow_root(PSP* h, int tree) {
  const tree_place old = place_of_tree(h, tree);
  if (old.depth >= max_depth) return raise_damage(h, old.root);
  const std::int32_t n = nodealloc(h);
  if (n < 0) return n;
  clear_buffer(main_buffer);
  node& v = main_buffer.image;
  v.next = -1;
  v.prev = -1;
  v.room = entry_area;
  v.level = static_cast<std::uint16_t>(old.depth);
  v.child0 = old.root;
  set_place(h, tree, {n, old.depth + 1});
  if (nodeput(h, main_buffer, n) != e_ok || header_changed(h) != e_ok) return e_io;
  return n;
}

// Brings the parent of a node of that level into the main buffer; its number, negative
// on failure.
std::int32_t parentof(PSP* h, int tree, int level) {
  if (level + 1 == place_of_tree(h, tree).depth) return grow_root(h, tree);
  if (level + 1 >= max_depth) return e_io;
  const std::int32_t n = h->path_nodes[level + 1];
  clear_tag(main_buffer);
  if (nodeget(h, &main_buffer, n) != e_ok || main_buffer.image.level != level + 1) return e_io;
  return n;
}

// Where in the parent the separator goes: behind the entry whose child is the left
// node.  A left node without an entry of its own (an operation was torn before) was
// reached through its neighbour: then the order tells the place.
int separator_place(PSP* h, const node& parent, std::int32_t left, const std::uint8_t* separator) {
  int at = 0;
  if (parent.child0 == left) return at;
  const int end = entries_end(parent);
  for (; at < end; at += entry_size(parent.entries + at))
    if (child_in(h, parent.entries + at) == left) return at + entry_size(parent.entries + at);
  for (at = 0; at < end; at += entry_size(parent.entries + at))
    if (compare_entries(h, parent.entries + at, separator) > 0) break;
  return at;
}

// Splits the node v in the main buffer into v and a new node, writes both and links
// the right neighbour back; `separator` is what the parent needs.
int split_and_write(PSP* h, std::int32_t v, bool at_leaf, std::uint8_t* separator) {
  node& m = main_buffer.image;
  const std::int32_t n = nodealloc(h);
  if (n < 0) return e_io;
  if (n > h->nextnode) return e_node_range;
  int kept = 0;
  const int last = nodesplit(h, m, &kept);
  if (last < 0) return raise_damage(h, v);
  const std::int32_t right = m.next;
  second_buffer.image.next = right;
  second_buffer.image.prev = v;
  m.next = n;
  if (at_leaf) repair_after_split(h, v, n, kept);
  int result = nodeput(h, second_buffer, n);
  if (result == e_ok) result = nodeput(h, main_buffer, v);
  if (result != e_ok) return result;
  build_separator(h, m.entries + last, m.level != 0, n, separator);
  // All other pieces of the value lie to the left as well: the highest number tells so.
  if (at_leaf && kept > 1 && is_wrapped_piece(h, m.entries + entry_offset(m, kept - 2), m.entries + last))
    separator[entry_at::piece] = last_piece | piece_number;
  if (right < 0) return e_ok;
  result = nodeget(h, &second_buffer, right);
  if (result != e_ok) return result == e_not_found ? e_io : result;
  second_buffer.image.prev = n;
  return nodeput(h, second_buffer, right);
}

}  // namespace

void insert_bytes(node& v, int offset, const std::uint8_t* entry) {
  const int size = entry_size(entry);
  const int end = entries_end(v);
  assert(end + size <= static_cast<int>(sizeof v.entries));
  std::memmove(v.entries + offset + size, v.entries + offset, static_cast<std::size_t>(end - offset));
  std::memcpy(v.entries + offset, entry, static_cast<std::size_t>(size));
  ++v.count;
  v.room = static_cast<std::int16_t>(v.room - size);
}

void remove_bytes(node& v, int offset) {
  const int size = entry_size(v.entries + offset);
  const int end = entries_end(v);
  std::memmove(v.entries + offset, v.entries + offset + size, static_cast<std::size_t>(end - offset - size));
  std::memset(v.entries + end - size, 0, static_cast<std::size_t>(size));
  --v.count;
  v.room = static_cast<std::int16_t>(v.room + size);
}

std::int32_t child_in(const PSP* h, const std::uint8_t* entry) {
  return load32s(entry + entry[entry_at::length] - 3, h->order);
}

void remove_entry(PSP* h, int keyno, int offset, std::int32_t v, int i) {
  remove_bytes(main_buffer.image, offset);
  repair_after_removal(h, keyno, v, i);
}

int treeadd(PSP* h, int keyno, const std::uint8_t* entry, int offset, std::int32_t v, int i) {
  node& m = main_buffer.image;
  insert_bytes(m, offset, entry);
  cursor& c = cursor_of(h, keyno);
  c.ckeyno = keyno;
  c.cindex = i;
  c.crecno = static_cast<std::uint32_t>(entry_record(entry, h->order));
  c.cpiece = entry[entry_at::piece];
  const int k = key_value_length(type_of_key(h, keyno), entry + entry_at::value, entry_size(entry) - entry_head_size);
  std::memset(c.ckey, 0, sizeof c.ckey);
  if (k > 0) std::memcpy(c.ckey, entry + entry_at::value, static_cast<std::size_t>(k));
  repair_after_insert(h, keyno, v, i);

  bool split = false;
  const int result = write_with_splits(h, tree_of_key(h, keyno), v, &split);
  if (result == e_ok) return result;
  if (!split && m.room < 0) {
    // Nothing was split: the leaf is as before, but for the entry in memory.
    remove_entry(h, keyno, offset, v, i);
    c.cdeleted = 0;
  }
  clear_tag(main_buffer);
  h->lastkey = -1;
  return result;
}

int write_with_splits(PSP* h, int tree, std::int32_t number, bool* split) {
  node& m = main_buffer.image;
  *split = false;
  while (m.room < 0) {
    int result = ensurenodes(h, std::int64_t{place_of_tree(h, tree).depth} + 1);
    if (*split) result = e_ok;
    std::uint8_t separator[entry_buffer_size];
    const int level = m.level;
    if (result == e_ok) result = split_and_write(h, number, level == 0, separator);
    if (result != e_ok) return result;
    *split = true;
    h->lastkey = -1;
    h->hdrdirty = 1;
    const std::int32_t parent = parentof(h, tree, level);
    if (parent < 0) return e_io;
    insert_bytes(m, separator_place(h, m, number, separator), separator);
    number = parent;
  }
  return nodeput(h, main_buffer, number);
}

}  // namespace zvrdb::engine
