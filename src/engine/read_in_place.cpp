#include "engine/read_in_place.h"

#include <algorithm>
#include <cstring>

#include "engine/cursor.h"
#include "engine/kept_bodies.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/node_cache.h"
#include "engine/separate_trees.h"

namespace zvrdb::engine {
namespace {

// An entry in a leaf, and how it compares with what was sought.
struct place {
  const node* image;
  std::int32_t number;
  std::uint32_t where;
  std::uint32_t version;
  int index;
  int offset;
  entry_sign sign;
};

const std::uint8_t* entry_in(const node_view& v, int index) { return v.image->entries + v.offsets[index]; }
const std::uint8_t* entry_of(const place& at) { return at.image->entries + at.offset; }

// The first entry at or above the target.
int search(const node_view& v, const target& t, entry_sign* sign) {
  const bool leaf = v.image->level == 0;
  int low = 0;
  int high = v.image->count;
  while (low < high) {
    const int probe = (low + high) / 2;
    const entry_sign s = entrycmp(entry_in(v, probe), t, leaf);
    if (s.full < 0) {
      low = probe + 1;
    } else {
      high = probe;
      *sign = s;
    }
  }
  return low;
}

std::int32_t child_at(const PSP* h, const node_view& v, int index) {
  if (index < 0) return v.image->child0;
  const std::uint8_t* entry = entry_in(v, index);
  return load32s(entry + entry[entry_at::length] - 3, h->order);
}

std::uint64_t mixed(std::uint64_t v) {
  v *= 0x9E3779B97F4A7C15u;
  return v ^ (v >> 29);
}

std::uint64_t hash_of(const PSP* h, const target& t) {
  std::uint64_t v = (std::uint64_t{h->opened_as} << 8) ^ static_cast<std::uint32_t>(t.keyno);
  v = mixed(v ^ (std::uint64_t{static_cast<std::uint32_t>(t.recno)} << 32));
  int left = std::max(caller_key_length(t.type, t.key), 0);
  const std::uint8_t* p = t.key;
  for (; left >= 8; left -= 8, p += 8) v = mixed(v ^ load<std::uint64_t>(p, native_order));
  std::uint8_t rest[8] = {};
  std::memcpy(rest, p, static_cast<std::size_t>(left));
  v = mixed(v ^ load<std::uint64_t>(rest, native_order));
  return mixed(v ^ (v >> 32));
}

// From the root to the leaf, while each node leads downwards.
bool descend(PSP* h, const target& t, place* out) {
  const tree_place tree = place_of_key(h, t.keyno);
  if (tree.depth < 1 || tree.depth > max_depth) return false;
  std::int32_t n = tree.root;
  for (int level = tree.depth - 1;; --level) {
    node_view v;
    if (view_node(h, n, &v) != e_ok || v.image->level != level) return false;
    const int index = search(v, t, &out->sign);
    if (level == 0) {
      if (index == v.image->count) return false;
      out->image = v.image;
      out->number = v.number;
      out->where = v.where;
      out->version = v.version;
      out->index = index;
      out->offset = v.offsets[index];
      return true;
    }
    if (index == v.image->count && index > 0 && v.image->next != -1) return false;
    n = child_at(h, v, index - 1);
  }
}

// The very entry sought is where a descent would end.  So is the first entry of the key value
// sought, as long as its forerunner is in the same leaf, which did not change, or nothing did.  Not
// of a composite key: what is remembered may be the first of a longer value, which a shorter one
// equals, and not the first of all that begin so.
bool recall_place(PSP* h, const target& t, std::uint64_t hash, place* out) {
  hinted_entry e;
  if (!recall_entry(h, hash, &e)) return false;
  *out = {e.image, e.number, e.where, e.version, e.index, e.offset, entrycmp(e.image->entries + e.offset, t, true)};
  if (out->sign.full == 0) return true;
  return out->sign.key == 0 && t.recno == 0 && t.segments == nullptr && e.first && (e.index > 0 || e.sure);
}

// `again` tells whether that was found before.
bool find_place(PSP* h, const target& t, place* out, bool* again) {
  const std::uint64_t hash = hash_of(h, t);
  *again = recall_place(h, t, hash, out);
  if (*again) return true;
  if (!descend(h, t, out)) return false;
  const bool first = t.recno == 0 && out->sign.key == 0;
  if (first || out->sign.full == 0)
    remember_entry(hash, out->index, out->offset, first, place_of_body(h, entry_record(entry_of(*out), h->order)));
  return true;
}

// The entry behind one, perhaps in the next leaf.  False: there is none, or it is not a plain case.
bool step(PSP* h, place* at) {
  if (++at->index < at->image->count) {
    at->offset += entry_size(entry_of(*at));
    return true;
  }
  node_view v;
  if (at->image->next < 0 || view_node(h, at->image->next, &v) != e_ok) return false;
  if (v.image->level != 0 || v.image->count == 0) return false;
  at->image = v.image;
  at->number = v.number;
  at->where = v.where;
  at->version = v.version;
  at->index = 0;
  at->offset = 0;
  return true;
}

// The data of the value that begins at a place, into the buffer of the request.  The place becomes
// that of its last piece.
bool read_value(PSP* h, place& at) {
  std::uint8_t* const buffer = h->dataptr;
  const int capacity = h->datalen;
  std::int32_t copied = 0;
  std::int32_t total = 0;
  const int keyno = h->keyno;
  std::int32_t recno = 0;
  for (int number = 0;; ++number) {
    const std::uint8_t* entry = entry_of(at);
    const std::uint8_t piece = entry[entry_at::piece];
    if ((piece & piece_number) != number || number == piece_number || entry[entry_at::key] != keyno) return false;
    if (number > 0 && entry_record(entry, h->order) != recno) return false;
    recno = entry_record(entry, h->order);
    const int avail = entry_size(entry) - entry_head_size;
    const int k = key_value_length(type_of_key(h, keyno), entry + entry_at::value, avail);
    if (k < 0) return false;
    const int fits = std::min(avail - k, capacity - copied);
    if (fits > 0) {
      std::memcpy(buffer + copied, entry + entry_at::value + k, static_cast<std::size_t>(fits));
      copied += fits;
    }
    total += avail - k;
    if ((piece & last_piece) != 0) break;
    if (!step(h, &at)) return false;
  }
  h->datalen = copied;
  h->datafull = total;
  return true;
}

bool has_data(const PSP* h, const std::uint8_t* entry) {
  const int avail = entry_size(entry) - entry_head_size;
  return key_value_length(type_of_key(h, entry[entry_at::key]), entry + entry_at::value, avail) < avail;
}

void stand_at(PSP* h, std::int32_t number, std::uint32_t where, int index, const std::uint8_t* entry) {
  cursor& c = cursor_of(h, h->keyno);
  c.cnode = number;
  c.cwhere = where;
  c.cindex = index;
  c.cstale = 0;
  c.cdeleted = 0;
  publish(h, entry);
}
void stand_at(PSP* h, const place& at, const std::uint8_t* entry) {
  stand_at(h, at.number, at.where, at.index, entry);
}

// The bodies of records have the empty key value, and no others are kept.
bool is_empty_key(const std::uint8_t* value) { return *value == 0; }

// A body that was just read into the buffer of the request, from one leaf or two, and whose first
// piece is that entry, which stood at a place.
void keep_body(PSP* h, const place& from, const std::uint8_t* entry, const place& to) {
  const bool in_two_leaves_at_most = (entry_of(to)[entry_at::piece] & piece_number) <= 1;
  if (!is_empty_key(entry + entry_at::value) || !in_two_leaves_at_most) return;
  if (h->datafull > longest_kept_body || h->datafull != h->datalen) return;
  kept_body* b = room_for_body(h, h->recno);
  if (b == nullptr) return;
  b->first = {from.where, from.version};
  b->last = {to.where, to.version};
  b->number = from.number;
  b->index = static_cast<std::int16_t>(from.index);
  b->length = static_cast<std::int16_t>(h->datafull);
  std::memcpy(b->entry, entry, entry_head_size + 1);
  std::memcpy(b->entry + entry_head_size + 1, h->dataptr, static_cast<std::size_t>(h->datafull));
}

// Who walks along a key asks for the body of the next entry too.
void expect_body_behind(const PSP* h, const place& at) {
  if (at.index + 1 >= at.image->count) return;
  const std::uint8_t* entry = entry_of(at) + entry_size(entry_of(at));
  expect_body(h, entry_record(entry, h->order));
}

// The value at a place is read, and the place becomes the cursor's.  A body that is to be kept is.
// False: nothing was changed but the caller's buffer.
bool take_value(PSP* h, const place& at, bool keep) {
  const std::uint8_t* entry = entry_of(at);
  if (h->dataptr == nullptr || !has_data(h, entry)) {
    h->datalen = 0;
    h->datafull = 0;
    stand_at(h, at, entry);
    return true;
  }
  // Its leaf may leave the cache when the value goes on in another one.
  std::uint8_t first[max_entry_size];
  std::memcpy(first, entry, static_cast<std::size_t>(entry_size(entry)));
  place last = at;
  if (!read_value(h, last)) return false;
  stand_at(h, at, first);
  if (keep && h->keyno == key_bodies) keep_body(h, at, first, last);
  return true;
}

// The body asked for, if it is kept.
bool take_kept_body(PSP* h) {
  if (h->dataptr == nullptr || !is_empty_key(h->keyptr)) return false;
  const kept_body* b = recall_body(h, h->recno);
  if (b == nullptr || b->length > h->datalen) return false;
  std::memcpy(h->dataptr, b->data(), static_cast<std::size_t>(b->length));
  h->datalen = b->length;
  h->datafull = b->length;
  stand_at(h, b->number, b->first.where, b->index, b->entry);
  h->cmpfull = 0;
  h->cmpkey = 0;
  return true;
}

}  // namespace

bool find_value_in_place(PSP* h, int* result) {
  if (h->wrnest != 0 || h->edge != 0 || !has_cursor(h, h->keyno)) return false;
  if (h->keyno == key_bodies && take_kept_body(h)) {
    *result = e_ok;
    return true;
  }
  const target t = target_of(h, h->keyno, h->keyptr, h->recno, 0);
  place at;
  bool again = false;
  if (!find_place(h, t, &at, &again)) return false;
  const std::uint8_t* entry = entry_of(at);
  if (entry[entry_at::key] != h->keyno) {
    stand_at(h, at, entry);
    *result = e_not_found;
  } else {
    // Who passes once over all records shall not fill the table with them.
    if (!take_value(h, at, again)) return false;
    *result = at.sign.full == 0 ? 0 : at.sign.key != 0 ? 2 : 1;
  }
  h->cmpfull = at.sign.full;
  h->cmpkey = at.sign.key;
  return true;
}

bool next_value_in_place(PSP* h, int* result) {
  const cursor& c = cursor_of(h, h->keyno);
  if (h->wrnest != 0 || c.ckeyno != h->keyno || c.cdeleted || c.crecno == ~std::uint32_t{0}) return false;
  if ((c.cpiece & last_piece) == 0 || (is_shared(h) && c.cstale)) return false;
  node_view v;
  if (view_node(h, cursor_node(h, h->keyno), &v, c.cwhere) != e_ok) return false;
  if (v.image->level != 0 || c.cindex < 0 || c.cindex >= v.image->count) return false;
  place at{v.image, v.number, v.where, v.version, c.cindex, v.offsets[c.cindex], {}};
  if (!step(h, &at)) return false;
  const std::uint8_t* entry = entry_of(at);
  if (entry[entry_at::key] != h->keyno) return false;
  if (at.number != c.cnode && !follows_in_order(h, c, entry, 1)) return false;
  if (h->keyno < key_bodies) expect_body_behind(h, at);
  if (!take_value(h, at, false)) return false;
  *result = e_ok;
  return true;
}

}  // namespace zvrdb::engine
