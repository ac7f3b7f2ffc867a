#include "engine/key_search.h"

#include <cstring>

#include "engine/composite_key.h"
#include "engine/key_compare.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/separate_trees.h"

namespace zvrdb::engine {
namespace {

struct found_place {
  int index;
  int offset;
  entry_sign sign;
};

// The first entry at or above the target, the last entry being looked at first, so
// that rising targets are placed with one comparison.  `end` is where the entries end.
found_place search_entries(const node& v, const std::uint16_t* offsets, int end, const target& t) {
  const int count = v.count;
  if (count == 0) return {0, 0, {1, 1}};
  const bool leaf = v.level == 0;
  int high = count - 1;
  entry_sign at_high = entrycmp(v.entries + offsets[high], t, leaf);
  if (at_high.full < 0) return {count, end, {-1, -1}};
  int low = 0;
  while (low < high) {
    const int probe = (high + low) / 2;
    const entry_sign s = entrycmp(v.entries + offsets[probe], t, leaf);
    if (s.full < 0) {
      low = probe + 1;
    } else {
      high = probe;
      at_high = s;
    }
  }
  return {high, offsets[high], at_high};
}

// The same in a node whose entries were not looked for yet.
found_place search_entries(const node& v, const target& t) {
  std::uint16_t offsets[max_entries];
  int at = 0;
  for (int i = 0; i < v.count; ++i) {
    offsets[i] = static_cast<std::uint16_t>(at);
    at += entry_size(v.entries + at);
  }
  return search_entries(v, offsets, at, t);
}

std::int32_t child_of(const PSP* h, const node_view& v, int index) {
  if (index < 0) return v.image->child0;
  const std::uint8_t* entry = v.image->entries + v.offsets[index];
  return load32s(entry + entry[entry_at::length] - 3, h->order);
}

// The child to follow from an inner node of that level, which may turn out to be a right
// neighbour: the node number in `n` is brought up to date.  -1 on damage.
std::int32_t search_inner(PSP* h, std::int32_t* n, int level, const target& t) {
  node_view v;
  if (view_node(h, *n, &v) != e_ok || v.image->level != level) return -1;
  for (;;) {
    const int count = v.image->count;
    if (count == 0) return v.image->child0;
    const found_place place = search_entries(*v.image, v.offsets, entries_end(*v.image), t);
    const std::int32_t right = v.image->next;
    // Above all entries: what was split off to the right is found through the link.
    if (place.index < count || right == -1) return child_of(h, v, place.index - 1);
    if (!may_hop(h) || view_node(h, right, &v) != e_ok || v.image->level != level) return -1;
    *n = right;
  }
}

// Puts the leaf's place and entry into cursor and comparison fields.
void place_cursor(PSP* h, const target& t, const found_place& place) {
  h->cmpfull = place.sign.full;
  h->cmpkey = place.sign.key;
  h->foundoffset = place.offset;
  cursor& c = cursor_of(h, t.keyno);
  c.cindex = place.index;
  c.cnode = h->lastleaf;
  c.cstale = 0;
  const node& v = main_buffer.image;
  if (place.index >= v.count) {
    c.ckeyno = t.keyno;
    std::memset(c.ckey, 0, sizeof c.ckey);
    c.crecno = 0;
    c.cpiece = 0;
    return;
  }
  const std::uint8_t* entry = v.entries + place.offset;
  const int avail = entry_size(entry) - entry_head_size;
  const int k = key_value_length(type_of_key(h, entry[entry_at::key]), entry + entry_at::value, avail);
  c.ckeyno = entry[entry_at::key];
  c.crecno = static_cast<std::uint32_t>(entry_record(entry, h->order));
  c.cpiece = entry[entry_at::piece];
  std::memset(c.ckey, 0, sizeof c.ckey);
  if (k > 0 && k <= value_and_data) std::memcpy(c.ckey, entry + entry_at::value, static_cast<std::size_t>(k));
}

// The leaf of the search before is still at hand, and what is sought lies in it: between two of its
// entries, as the second search for one value does, or behind the end of the last leaf, as rising
// inserts do.  A descent would end there.
bool found_in_leaf_at_hand(PSP* h, const target& t) {
  const node& v = main_buffer.image;
  if (t.keyno != h->lastkey || h->lastleaf < 0 || !holds(main_buffer, h, h->lastleaf)) return false;
  if (v.level != 0 || v.count == 0) return false;
  const bool ordered = is_totally_ordered(t.type) && t.edge == 0;
  if (!ordered && v.next != -1) return false;
  const found_place place = search_entries(v, t);
  const bool inside = ordered && place.index > 0 && place.index < v.count;
  const bool behind_all = place.index == v.count && v.next == -1;
  if (!inside && !behind_all) return false;
  place_cursor(h, t, place);
  return true;
}

void copy_leaf_to_main(PSP* h, std::int32_t n) {
  std::memcpy(&main_buffer.image, h->current, page_size);
  std::memset(main_buffer.image.entries + entry_area, 0, node_spare);
  set_tag(main_buffer, h, n);
  h->current = &main_buffer.image;
}

// From the root to the leaf, which ends up in the main buffer; its number, -1 on damage.
std::int32_t descend(PSP* h, const target& t) {
  clear_tag(main_buffer);
  for (std::int32_t& p : h->path_nodes) p = -1;
  const tree_place tree = place_of_key(h, t.keyno);
  if (tree.depth < 1 || tree.depth > max_depth) return -1;
  std::int32_t n = tree.root;
  for (int level = tree.depth - 1; level > 0; --level) {
    const std::int32_t child = search_inner(h, &n, level, t);
    h->path_nodes[level] = n;
    if (child < 0) return -1;
    n = child;
  }
  if (nodeget(h, &main_buffer, n) != e_ok) return -1;
  if (main_buffer.image.level != 0) {
    clear_tag(main_buffer);
    return -1;
  }
  h->path_nodes[0] = n;
  return n;
}

// Whether the leaf's right neighbour begins at or below the target.  Separators lead to
// the right leaf, but one that a split cut short left behind has none.  A neighbour that
// can't be read is not this search's business.
bool goes_on_to_the_right(PSP* h, const target& t) {
  const std::int32_t right = main_buffer.image.next;
  if (right < 0 || nodeget(h, nullptr, right) != e_ok) return false;
  const node& v = *h->current;
  return v.level == 0 && v.count > 0 && entrycmp(v.entries, t, true).full <= 0;
}

// Searches the leaf in the main buffer, and those to its right that the target may lie in.
bool search_leaves(PSP* h, std::int32_t* leaf, const target& t, found_place* place) {
  for (;;) {
    *place = search_entries(main_buffer.image, t);
    if (place->index < main_buffer.image.count || !goes_on_to_the_right(h, t)) return true;
    if (!may_hop(h)) return false;
    *leaf = main_buffer.image.next;
    copy_leaf_to_main(h, *leaf);
  }
}

// A neighbour leaf into the main buffer.
int load_neighbour(PSP* h, std::int32_t n) {
  if (!may_hop(h)) return raise_damage(h, n);
  const int got = nodeget(h, &main_buffer, n);
  if (got != e_ok) return got == e_not_found ? e_io : got;
  return main_buffer.image.level == 0 ? static_cast<int>(e_ok) : raise_damage(h, n);
}

int step_to_leaf(PSP* h, bool right) {
  cursor& c = cursor_of(h, h->keyno);
  const node& v = main_buffer.image;
  for (;;) {
    const std::int32_t from = main_buffer.number;
    std::int32_t n = right ? v.next : v.prev;
    if (n < 0) return 0;
    int got = load_neighbour(h, n);
    // A split cut short may not have told its right neighbour: what lies between the
    // two is found through the links to the right.
    while (got == e_ok && !right && v.next != from) {
      n = v.next;
      got = n < 0 ? raise_damage(h, from) : load_neighbour(h, n);
    }
    if (got != e_ok) return got;
    c.cnode = n;
    if (v.count > 0) return 1;
  }
}

}  // namespace

target target_of(const PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, int piece) {
  return {key, recno, keyno, type_of_key(h, keyno), piece & piece_number, h->edge, h->order, segments_of(h, keyno)};
}

int entry_offset(const node& v, int index) {
  int at = 0;
  for (int i = 0; i < index && i < v.count; ++i) at += entry_size(v.entries + at);
  return at;
}

const std::uint8_t* entry_at_index(const node& v, int index) {
  if (index < 0 || index >= v.count) return nullptr;
  return v.entries + entry_offset(v, index);
}

bool may_hop(PSP* h) {
  constexpr int few = 64;
  // A step back to a long value passes its leaves twice: to its first piece, and reading.
  constexpr std::int64_t passes = 3;
  if (++h->hops <= few) return true;
  if (h->hops >= passes * h->nextnode) return false;
  if (h->hops % 1024 != few + 1) return true;
  // The node count of the header may be anything; the file's own length is not.
  const std::int64_t size = os().size(h->file);
  return size >= 0 && h->hops <= passes * (size / page_size);
}

bool treesearch(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, int piece) {
  if (!make_cursor(h, keyno)) return false;
  const target t = target_of(h, keyno, key, recno, piece);
  h->hops = 0;
  if (found_in_leaf_at_hand(h, t)) return true;
  std::int32_t leaf = descend(h, t);
  found_place place{};
  if (leaf < 0 || !search_leaves(h, &leaf, t, &place)) {
    clear_tag(main_buffer);
    h->lastkey = -1;
    raise_damage(h, leaf);
    return false;
  }
  h->lastleaf = leaf;
  h->lastkey = keyno;
  place_cursor(h, t, place);
  return true;
}

bool look_up(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, leaf_place* out) {
  target t = target_of(h, keyno, key, recno, 0);
  t.edge = 0;
  h->hops = 0;
  const tree_place tree = place_of_key(h, keyno);
  if (tree.depth < 1 || tree.depth > max_depth || !is_totally_ordered(t.type)) return false;
  std::int32_t n = tree.root;
  for (int level = tree.depth - 1; level > 0; --level) {
    const std::int32_t child = search_inner(h, &n, level, t);
    if (child < 0) return false;
    n = child;
  }
  if (view_node(h, n, &out->leaf) != e_ok || out->leaf.image->level != 0) return false;
  const node& v = *out->leaf.image;
  const found_place place = search_entries(v, out->leaf.offsets, entries_end(v), t);
  out->index = place.index;
  out->found = place.index < v.count && place.sign.full == 0;
  return place.index < v.count || v.next == -1;
}

void clear_request(PSP* h) {
  h->keyptr = h->keybuf;
  std::memset(h->keybuf, 0, sizeof h->keybuf);
  h->keylen = 0;
  h->pieceln = 0;
  h->recno = 0;
  h->piece = 0;
  h->status = e_not_found;
}

void publish(PSP* h, const std::uint8_t* entry) {
  const int avail = entry_size(entry) - entry_head_size;
  const int k = key_value_length(type_of_key(h, entry[entry_at::key]), entry + entry_at::value, avail);
  if (k < 0 || avail > value_and_data) {
    raise_damage(h, main_buffer.number);
    clear_request(h);
    return;
  }
  std::memcpy(h->keybuf, entry + entry_at::value, static_cast<std::size_t>(avail));
  h->keybuf[avail] = 0;
  h->keyptr = h->keybuf;
  h->keylen = k;
  h->pieceln = avail - k;
  h->recno = entry_record(entry, h->order);
  h->piece = entry[entry_at::piece];
  cursor& c = cursor_of(h, h->keyno);
  std::memcpy(c.ckey, h->keybuf, static_cast<std::size_t>(k));
  std::memset(c.ckey + k, 0, sizeof c.ckey - static_cast<std::size_t>(k));
  c.crecno = static_cast<std::uint32_t>(h->recno);
  c.cpiece = h->piece;
  c.ckeyno = entry[entry_at::key];
  h->status = e_ok;
}

int locate(PSP* h, int piece) {
  const std::uint8_t* key = h->keyptr;
  if (!treesearch(h, h->keyno, key, h->recno, piece)) return keep_status(h, e_damaged);
  cursor& c = cursor_of(h, h->keyno);
  const std::uint8_t* entry = nullptr;
  if (c.cindex < main_buffer.image.count) {
    entry = main_buffer.image.entries + h->foundoffset;
  } else {
    const target t = target_of(h, h->keyno, key, h->recno, piece);
    const std::int32_t last = c.cnode;
    const int count = c.cindex;
    const int there = next_leaf(h);
    if (there < 0) return keep_status(h, there);
    if (there == 0) {
      // Nothing behind: the cursor stays behind the last entry of its leaf.
      if (nodeget(h, &main_buffer, last) != e_ok) return keep_status(h, e_damaged);
      c.cnode = last;
      c.cindex = count;
      c.ckeyno = h->keyno + 1;
      h->cmpfull = -1;
      h->cmpkey = -1;
    } else {
      entry = main_buffer.image.entries;
      const entry_sign s = entrycmp(entry, t, true);
      h->cmpfull = s.full;
      h->cmpkey = s.key;
      c.ckeyno = entry[entry_at::key];
    }
  }
  c.cdeleted = 0;
  if (entry != nullptr) {
    publish(h, entry);
  } else {
    clear_request(h);
  }
  if (h->cmpfull == 0) return 0;
  if (h->cmpfull < 0) return -1;
  return h->cmpkey != 0 ? 2 : 1;
}

int next_leaf(PSP* h) {
  if (main_buffer.image.next == -1) return 0;
  cursor_of(h, h->keyno).cindex = 0;
  h->lastkey = -1;
  return step_to_leaf(h, true);
}

int previous_leaf(PSP* h) {
  if (main_buffer.image.prev == -1) return 0;
  h->lastkey = -1;
  const int there = step_to_leaf(h, false);
  cursor_of(h, h->keyno).cindex = main_buffer.image.count - 1;
  return there;
}

}  // namespace zvrdb::engine
