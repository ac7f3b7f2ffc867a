#include "engine/entry_update.h"

#include <algorithm>
#include <cstring>

#include "engine/cursor.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/leaf_merge.h"
#include "engine/node_cache.h"
#include "engine/record_locks.h"
#include "engine/sharing.h"
#include "engine/trans_log.h"
#include "engine/tree_insert.h"

namespace zvrdb::engine {
namespace {

constexpr int key_buffer_size = 256;

// The value being stored or removed, apart from the fields of the block, which the
// steps on the way overwrite.
struct value_at {
  int keyno;
  std::int32_t recno;
  int keylen;
  std::uint8_t key[key_buffer_size];
};

bool take_key(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, value_at* out) {
  const int k = caller_key_length(type_of_key(h, keyno), key);
  if (k < 0 || k > max_key_value) return false;
  out->keyno = keyno;
  out->recno = recno;
  out->keylen = k;
  std::memset(out->key, 0, sizeof out->key);
  std::memcpy(out->key, key, static_cast<std::size_t>(k));
  return true;
}

// Makes the block's request that of the value, with the key where it stays unharmed.
void ask_for(PSP* h, const value_at& v) {
  h->keyno = v.keyno;
  h->recno = v.recno;
  h->keyptr = v.key;
  h->dataptr = nullptr;
  h->datalen = 0;
}

void build_leaf_entry(const PSP* h, const value_at& v, std::uint8_t piece, const std::uint8_t* data, int length,
                      std::uint8_t (&out)[entry_buffer_size]) {
  out[entry_at::length] = static_cast<std::uint8_t>(entry_head_size - 1 + v.keylen + length);
  out[entry_at::key] = static_cast<std::uint8_t>(v.keyno);
  out[entry_at::piece] = piece;
  store32s(out + entry_at::record, v.recno, h->order);
  std::memcpy(out + entry_at::value, v.key, static_cast<std::size_t>(v.keylen));
  if (length > 0) std::memcpy(out + entry_at::value + v.keylen, data, static_cast<std::size_t>(length));
}

// Where the deletion of a value stands.
struct removal {
  int keyno;
  std::int32_t recno;
  std::uint8_t piece = last_piece;   // byte of the piece removed last
  bool first = true;
  bool done = false;
};

// Whether the entry is the next piece of the value being removed.
bool is_next_piece(const PSP* h, const removal& r, const std::uint8_t* entry) {
  if (r.first) return true;
  const std::uint8_t now = entry[entry_at::piece];
  if (entry[entry_at::key] != r.keyno || entry_record(entry, h->order) != r.recno) return false;
  if (r.piece == piece_number && now == last_piece) return true;
  if ((r.piece & piece_number) > (now & piece_number)) return false;
  return (now & piece_number) != 0;
}

// Removes what lies of the value in the leaf v in the main buffer, from index i on.
int delpieces(PSP* h, std::int32_t v, int i, removal* r) {
  node& m = main_buffer.image;
  const int offset = entry_offset(m, i);
  while (i < m.count) {
    const std::uint8_t* entry = m.entries + offset;
    if (!is_next_piece(h, *r, entry)) {
      r->done = true;
      return e_ok;
    }
    std::uint8_t copy[entry_buffer_size];
    std::memcpy(copy, entry, static_cast<std::size_t>(entry_size(entry)));
    const int logged = translog(h, log_removed, copy);
    if (logged != e_ok) return logged;
    r->first = false;
    r->recno = entry_record(copy, h->order);
    r->piece = copy[entry_at::piece];
    remove_entry(h, r->keyno, offset, v, i);
    if (merges_on_delete(h) && m.count == 0) note_emptied_leaf(h, v, copy);
    if ((r->piece & last_piece) != 0) {
      r->done = true;
      return e_ok;
    }
  }
  return e_ok;
}

// Removes a whole value from the cursor's place, whose leaf is in the main buffer.
// 0, 1 the walk went on into another leaf, negative an error.
int delvalue(PSP* h, int keyno) {
  cursor& c = cursor_of(h, keyno);
  const std::int32_t first_node = c.cnode;
  const int first_index = c.cindex;
  removal r{keyno, 0};
  int index = first_index;
  std::int32_t right = main_buffer.image.next;
  bool moved = false;
  int result = e_ok;
  h->lastkey = -1;
  if (merges_on_delete(h)) forget_emptied_leaves();
  for (;;) {
    result = delpieces(h, c.cnode, index, &r);
    const int written = nodeput(h, main_buffer, c.cnode);
    if (result == e_ok) result = written;
    if (result != e_ok || r.done || right < 0) break;
    if (!may_hop(h)) {
      result = raise_damage(h, right);
      break;
    }
    result = nodeget(h, &main_buffer, right);
    if (result == e_ok && main_buffer.image.level != 0) result = raise_damage(h, right);
    if (result != e_ok) break;
    moved = true;
    c.cnode = right;
    right = main_buffer.image.next;
    index = 0;
  }
  if (result != e_ok) clear_tag(main_buffer);
  c.cnode = first_node;
  c.cindex = first_index - 1;
  if (result != e_ok) return result == e_not_found ? e_io : result;
  return moved ? 1 : 0;
}

// Brings the cursor's leaf back into the main buffer.
int reread_cursor_leaf(PSP* h, int keyno) {
  const int got = nodeget(h, &main_buffer, cursor_of(h, keyno).cnode);
  return got == e_not_found ? e_io : got;
}

// The place of piece 128: its byte reads like that of a piece 0, so it is put behind
// piece 127 by position.
int place_behind_piece_127(PSP* h, const value_at& v, int* offset) {
  if (!treesearch(h, v.keyno, v.key, v.recno, piece_number) || h->cmpfull != 0) return e_damaged;
  cursor& c = cursor_of(h, v.keyno);
  *offset = h->foundoffset + entry_size(main_buffer.image.entries + h->foundoffset);
  ++c.cindex;
  h->lastkey = -1;
  return e_ok;
}

// Applies the mode to the first piece, the search having been made.
int clear_the_way(PSP* h, const value_at& v, int mode, int* offset) {
  cursor& c = cursor_of(h, v.keyno);
  const bool exact = h->cmpfull == 0 && c.cindex < main_buffer.image.count;
  if (mode == store_new && exact) return e_not_found;
  if ((mode == store_replace || mode == store_replace_locked) && !exact) return e_not_found;
  if (!exact || mode == store_untested || mode == store_new) return e_ok;
  const int removed = delvalue(h, v.keyno);
  if (removed < 0) return removed == e_write ? removed : static_cast<int>(e_io);
  ++c.cindex;
  if (removed == 1) {
    const int got = reread_cursor_leaf(h, v.keyno);
    if (got != e_ok) return got;
  }
  *offset = entry_offset(main_buffer.image, c.cindex);
  // The leaf that the search led to is at hand, and what is put there is searched from there.
  h->lastkey = v.keyno;
  return e_ok;
}

int putentry(PSP* h, const value_at& v, int counter, std::uint8_t piece, const std::uint8_t* data, int length,
             int mode) {
  cursor& c = cursor_of(h, v.keyno);
  int offset = 0;
  if (counter < max_pieces - 1) {
    if (!treesearch(h, v.keyno, v.key, v.recno, counter)) return e_damaged;
    offset = h->foundoffset;
    if (counter == 0) {
      const int way = clear_the_way(h, v, mode, &offset);
      if (way != e_ok) return way;
    }
  } else if (const int placed = place_behind_piece_127(h, v, &offset); placed != e_ok) {
    return placed;
  }
  std::uint8_t entry[entry_buffer_size];
  build_leaf_entry(h, v, piece, data, length, entry);
  const int logged = translog(h, log_added, entry);
  if (logged != e_ok) return logged;
  const int added = treeadd(h, v.keyno, entry, offset, c.cnode, c.cindex);
  if (added == e_ok) c.cdeleted = 0;
  return added;
}

int put_pieces(PSP* h, const value_at& v, const std::uint8_t* data, int length, int mode, int* pieces) {
  const int piece_length = value_and_data - v.keylen;
  int result = e_ok;
  int counter = 0;
  int done = 0;
  do {
    const int rest = length - done;
    const int n = std::min(rest, piece_length);
    const std::uint8_t last = rest <= piece_length ? last_piece : std::uint8_t{0};
    const auto piece = static_cast<std::uint8_t>((counter & piece_number) | last);
    result = putentry(h, v, counter, piece, data == nullptr ? nullptr : data + done, n, mode);
    if (result == e_ok) *pieces = ++counter;
    done += n;
  } while (result == e_ok && done < length);
  return result;
}

// Removes (keyno, key, recno), inside a write operation.
int delete_entry(PSP* h, const value_at& v) {
  ask_for(h, v);
  if (!treesearch(h, v.keyno, v.key, v.recno, 0)) return e_damaged;
  cursor& c = cursor_of(h, v.keyno);
  if (h->cmpfull != 0 || c.cindex >= main_buffer.image.count) return e_not_found;
  c.cdeleted = 0;
  const int removed = delvalue(h, v.keyno);
  if (removed >= 0) return merge_emptied_leaves(h);
  return removed == e_write ? removed : static_cast<int>(e_io);
}

int bdelentry(PSP* h, const value_at& v) {
  const int entered = wrenter(h);
  if (entered != e_ok) return entered;
  int result = keyfree(h, v.keyno);
  if (result == e_ok) result = delete_entry(h, v);
  return leave_result(result, wrleave(h));
}

// The checks that all changes share.
int check_change(PSP* h, int keyno) {
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return e_read_only;
  return good_key_number(keyno) ? e_ok : e_bad_argument;
}

bool engine_owned(int keyno) { return keyno == key_rollback || keyno == key_free_records || keyno == key_locks; }

// Key and record number of the cursor's entry.
bool value_at_cursor(PSP* h, int keyno, value_at* out) {
  const cursor& c = cursor_of(h, keyno);
  std::uint8_t key[key_buffer_size] = {};
  std::memcpy(key, c.ckey, sizeof c.ckey);
  return take_key(h, keyno, key, static_cast<std::int32_t>(c.crecno), out);
}

// bdelcur at a place that is surely the entry's.
int delete_at_cursor(PSP* h, int keyno) {
  cursor& c = cursor_of(h, keyno);
  const int got = reread_cursor_leaf(h, keyno);
  if (got != e_ok) return got;
  if (c.cdeleted || entry_at_index(main_buffer.image, c.cindex) == nullptr) return e_not_found;
  const int removed = delvalue(h, keyno);
  return removed < 0 ? removed : merge_emptied_leaves(h);
}

}  // namespace

int bstore(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length,
           int mode) {
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  value_at v;
  int result = e_ok;
  if (!good_key_number(keyno) || length < 0 || !take_key(h, keyno, key, recno, &v) ||
      length / (value_and_data - v.keylen) >= max_pieces) {
    result = e_bad_argument;
  } else if (!make_cursor(h, keyno)) {
    result = e_no_memory;
  }
  if (result == e_ok && mode != store_replace_locked) result = keyfree(h, keyno);
  if (result == e_ok) {
    ask_for(h, v);
    int pieces = 0;
    result = put_pieces(h, v, data, length, mode, &pieces);
    if (result == e_ok) {
      h->keyno = keyno;
      for (; pieces > 1 && result == e_ok; --pieces) result = stepback(h);
      // What a longer value before it left empty; a leaf that was filled again stays.
      if (result == e_ok) result = merge_emptied_leaves(h);
    } else if (result == e_write) {
      const int removed = delete_entry(h, v);
      if (removed != e_ok && removed != e_not_found) result = removed;
    }
    // The request must not point at what ends with this call.
    h->keyptr = h->keybuf;
  }
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

int badd(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length) {
  return bstore(h, keyno, key, recno, data, length, store_new);
}

int baddu(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length) {
  const int good = check_change(h, keyno);
  if (good != e_ok) return good;
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  int result = bfind(h, keyno, key, 0, nullptr, 0);
  if (result == 0 || result == 1) {
    result = e_not_found;
  } else if (result == 2 || result == e_not_found) {
    result = bstore(h, keyno, key, recno, data, length, store_untested);
  }
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

int bupdcur(PSP* h, int keyno, const std::uint8_t* data, int length) {
  const int good = check_change(h, keyno);
  if (good != e_ok) return good;
  if (cursor_of(h, keyno).ckeyno != keyno) return keep_status(h, e_not_found);
  if (is_shared(h) && h->keylocks[keyno - 1] != 'L') return keep_status(h, e_lock_needed);
  value_at v;
  if (!value_at_cursor(h, keyno, &v)) return keep_status(h, e_not_found);
  return bstore(h, keyno, v.key, v.recno, data, length, store_replace_locked);
}

int bupdate(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length) {
  const int good = check_change(h, keyno);
  if (good != e_ok) return good;
  if (is_exclusive(h)) return bstore(h, keyno, key, recno, data, length, store_replace);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  int result = bfind(h, keyno, key, recno, nullptr, 0);
  if (result > 0) result = e_not_found;
  if (result == e_ok) result = keylock(h, keyno);
  if (result == e_ok) {
    result = bupdcur(h, keyno, data, length);
    const int unlocked = keyunlock(h, keyno);
    if (result == e_ok) result = unlocked;
  }
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

int bdelete(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno) {
  const int good = check_change(h, keyno);
  if (good != e_ok) return good;
  value_at v;
  if (!take_key(h, keyno, key, recno, &v)) return keep_status(h, e_not_found);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  int result = make_cursor(h, keyno) ? e_ok : e_no_memory;
  if (result == e_ok && is_shared(h)) {
    result = bfind(h, keyno, v.key, recno, nullptr, 0);
    if (result > 0) result = e_not_found;
    if (result == e_ok && keylockstate(h, keyno) == e_locked_by_other) result = e_locked_by_other;
  }
  if (result == e_ok) result = bdelentry(h, v);
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

int bdelcur(PSP* h, int keyno) {
  const int good = check_change(h, keyno);
  if (good != e_ok) return good;
  if (is_shared(h) && !engine_owned(keyno) && h->keylocks[keyno - 1] != 'L') return keep_status(h, e_lock_needed);
  if (cursor_of(h, keyno).ckeyno != keyno) return keep_status(h, e_not_found);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  // The find of the lock's own entry must not move what is to be deleted.
  value_at v;
  int result = value_at_cursor(h, keyno, &v) ? e_ok : e_not_found;
  if (result == e_ok) result = keyfree(h, keyno);
  if (result == e_ok) {
    cursor& c = cursor_of(h, keyno);
    h->keyno = keyno;
    const bool sure = !c.cstale || is_exclusive(h) || keyno == key_locks;
    if (sure && h->lastkey == keyno) {
      result = delete_at_cursor(h, keyno);
    } else {
      result = c.cdeleted ? static_cast<int>(e_not_found) : delete_entry(h, v);
      c.cstale = 0;
    }
    h->keyptr = h->keybuf;
  }
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

}  // namespace zvrdb::engine
