#include "engine/cursor.h"

#include <algorithm>
#include <cstring>

#include "engine/cached_reads.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/read_in_place.h"
#include "engine/record_locks.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

void reset_cursor(cursor& c) {
  std::memset(&c, 0, sizeof c);
  c.cnode = -1;
  c.ckeyno = -1;
  c.cstale = 1;
}

int piece_of(std::uint8_t byte) { return byte & piece_number; }
bool is_last(std::uint8_t byte) { return (byte & last_piece) != 0; }

// Piece 128, the last one possible, has the byte of a lone piece 0.
bool is_piece_128(std::uint8_t before, std::uint8_t byte) { return before == piece_number && byte == last_piece; }

// The leaf of the cursor into the main buffer.  0 or an error.
int read_leaf(PSP* h) {
  const int n = cursor_node(h, h->keyno);
  if (n < 0) return e_not_found;
  const int got = nodeget(h, &main_buffer, n);
  if (got != e_ok) return got == e_not_found ? e_io : got;
  return main_buffer.image.level == 0 ? e_ok : raise_damage(h, n);
}

// Ends a step: the entry is made the one at hand, or there is none.
int arrive(PSP* h, const std::uint8_t* entry, int beyond) {
  cursor& c = cursor_of(h, h->keyno);
  c.cdeleted = 0;
  if (entry != nullptr) {
    publish(h, entry);
    return h->status;
  }
  c.ckeyno += beyond;
  clear_request(h);
  return h->status;
}

void nothing_at_hand(PSP* h) { clear_request(h); }

// What reading a value must leave as it was.
struct position {
  cursor at;
  std::uint8_t keybuf[keybuf_size];
  const std::uint8_t* keyptr;
  std::int32_t recno, status, keylen, pieceln;
  std::uint8_t piece;
};

void save_position(PSP* h, position& p) {
  p.at = cursor_of(h, h->keyno);
  std::memcpy(p.keybuf, h->keybuf, sizeof p.keybuf);
  p.keyptr = h->keyptr;
  p.recno = h->recno;
  p.status = h->status;
  p.keylen = h->keylen;
  p.pieceln = h->pieceln;
  p.piece = h->piece;
}

void restore_position(PSP* h, const position& p) {
  cursor_of(h, h->keyno) = p.at;
  std::memcpy(h->keybuf, p.keybuf, sizeof p.keybuf);
  h->keyptr = p.keyptr;
  h->recno = p.recno;
  h->status = p.status;
  h->keylen = p.keylen;
  h->pieceln = p.pieceln;
  h->piece = p.piece;
}

// Finds a stale place again by key: where the cursor's entry is or, if it is gone, was.
int find_place_again(PSP* h) {
  const cursor& c = cursor_of(h, h->keyno);
  std::uint8_t key[value_and_data];
  std::memcpy(key, c.ckey, sizeof key);
  h->keyptr = key;
  h->recno = static_cast<std::int32_t>(c.crecno);
  h->edge = c.ckeyno > h->keyno ? 1 : 0;
  const int r = locate(h);
  h->edge = 0;
  return r < -1 ? r : e_ok;
}

int first_value(PSP* h) {
  static const std::uint8_t lowest[value_and_data] = {};
  h->keyptr = lowest;
  h->recno = 0;
  h->edge = -1;
  const int r = find_value(h);
  h->edge = 0;
  return r >= 0 ? e_ok : h->status;
}

int next_stale_value(PSP* h) {
  cursor& c = cursor_of(h, h->keyno);
  if (c.ckeyno > h->keyno) {
    nothing_at_hand(h);
    return e_not_found;
  }
  const cursor before = c;
  std::uint8_t key[value_and_data];
  std::memcpy(key, before.ckey, sizeof key);
  h->keyptr = key;
  h->recno = static_cast<std::int32_t>(before.crecno + 1);
  int r = find_value(h);
  if (r > 0) r = keep_status(h, e_ok);
  if (r != e_ok) {
    std::memcpy(c.ckey, before.ckey, sizeof c.ckey);
    c.crecno = before.crecno;
    nothing_at_hand(h);
    h->status = r;
  }
  c.cstale = 0;
  return r;
}

int next_value(PSP* h) {
  cursor& c = cursor_of(h, h->keyno);
  if (c.ckeyno == -1) return first_value(h);
  if (is_shared(h) && c.cstale) return next_stale_value(h);
  if (int stepped = 0; next_value_in_place(h, &stepped)) return keep_status(h, stepped);
  if (h->keyno < c.ckeyno) {
    nothing_at_hand(h);
    return e_not_found;
  }
  std::uint8_t before = c.cpiece;
  // A deleted entry went with all its pieces: what follows is the next value.
  bool past = c.cdeleted || c.crecno == ~std::uint32_t{0} || is_last(before);
  while (stepfwd(h) == e_ok && !past) {
    const std::uint8_t now = h->piece;
    if (piece_of(now) <= piece_of(before) && !is_piece_128(before, now)) break;
    before = now;
    past = is_last(now);
  }
  if (h->status != e_ok && h->status != e_broken_pieces) return h->status;
  if (c.ckeyno != h->keyno) {
    nothing_at_hand(h);
    return e_not_found;
  }
  return keep_status(h, readval(h, h->dataptr, h->datalen));
}

// Whether the entry at hand, whose byte reads "piece 0 and last", is piece 128 of the
// value before it.  Leaves the cursor on piece 127 if so, else where it was.
bool stands_behind_piece_127(PSP* h) {
  if (h->piece != last_piece || h->pieceln == 0) return false;
  position p;
  save_position(h, p);
  const bool stepped = stepback(h) == e_ok;
  const cursor& c = cursor_of(h, h->keyno);
  if (stepped && h->piece == piece_number && c.ckeyno == p.at.ckeyno && c.crecno == p.at.crecno &&
      std::memcmp(c.ckey, p.at.ckey, sizeof c.ckey) == 0)
    return true;
  restore_position(h, p);
  return false;
}

int previous_value(PSP* h) {
  cursor& c = cursor_of(h, h->keyno);
  if (is_shared(h) && c.cstale && c.ckeyno != -1) {
    const int r = find_place_again(h);
    if (r != e_ok) return keep_status(h, r);
  }
  bool there = h->keyno <= c.ckeyno;
  if (there) {
    do {
      there = stepback(h) == e_ok;
      if (there && c.ckeyno != h->keyno) break;
      if (there && piece_of(h->piece) == 0 && !stands_behind_piece_127(h)) break;
    } while (there);
    if (!there && h->status != e_not_found) return h->status;
  }
  if (!there || c.ckeyno != h->keyno) {
    std::memset(c.ckey, 0, sizeof c.ckey);
    c.crecno = ~std::uint32_t{0};
    nothing_at_hand(h);
    return e_not_found;
  }
  return keep_status(h, readval(h, h->dataptr, h->datalen));
}

int last_value(PSP* h) {
  static const std::uint8_t lowest[value_and_data] = {};
  h->keyptr = lowest;
  h->recno = 0;
  h->edge = 1;
  const int r = locate(h);
  h->edge = 0;
  if (r < -1) return r;
  return previous_value(h) < 0 ? h->status : e_ok;
}

// The frame of each complete operation.
int bracketed(PSP* h, int keyno, std::uint8_t* data, int capacity, int (*work)(PSP*)) {
  if (!is_open(h)) return e_bad_handle;
  if (!good_key_number(keyno)) return keep_status(h, e_bad_argument);
  tell_direction(h, work == previous_value || work == last_value);
  return read_operation(h, keyno, [=] {
    h->keyno = keyno;
    h->dataptr = data;
    h->datalen = data != nullptr ? capacity : 0;
    const int ready = make_cursor(h, keyno) ? keyfree(h, keyno) : static_cast<int>(e_no_memory);
    return ready == e_ok ? work(h) : ready;
  });
}

}  // namespace

bool follows_in_order(PSP* h, const cursor& left, const std::uint8_t* entry, int side) {
  const int found = entry[entry_at::key];
  if (left.ckeyno != found) return side * (found - left.ckeyno) > 0 || !good_key_number(left.ckeyno);
  const int type = type_of_key(h, found);
  if (!is_totally_ordered(type) || left.crecno == ~std::uint32_t{0}) return true;
  const target t{left.ckey, static_cast<std::int32_t>(left.crecno), found, type, piece_of(left.cpiece), 0, h->order,
                 nullptr};
  const entry_sign s = entrycmp(entry, t, true);
  const std::uint8_t byte = entry[entry_at::piece];
  return side * s.full > 0 || (side < 0 && is_piece_128(byte, left.cpiece));
}

bool make_cursor(PSP* h, int key) {
  if (has_cursor(h, key)) return true;
  auto* c = static_cast<cursor*>(os().allocate(sizeof(cursor)));
  if (c == nullptr) {
    h->deferred = e_no_memory;
    return false;
  }
  reset_cursor(*c);
  h->cursors[key - 1] = c;
  return true;
}

cursor& cursor_of(PSP* h, int key) {
  static cursor none;
  if (make_cursor(h, key)) return *h->cursors[key - 1];
  reset_cursor(none);
  return none;
}

int cursor_node(PSP* h, int key) {
  const cursor& c = cursor_of(h, key);
  return c.cnode > h->extent ? -1 : c.cnode;
}

void forget_position(PSP* h, int key) {
  if (cursor* c = h->cursors[key - 1]; c != nullptr) reset_cursor(*c);
}

void free_cursors(PSP* h) {
  for (cursor*& c : h->cursors) {
    os().release(c);
    c = nullptr;
  }
}

void mark_cursors_stale(PSP* h) {
  for (cursor* c : h->cursors)
    if (c != nullptr) c->cstale = 1;
}

int stepfwd(PSP* h) {
  cursor& c = cursor_of(h, h->keyno);
  if (is_shared(h) && c.cstale) {
    const bool behind_value = is_last(c.cpiece);
    // The number of piece 128 can't be searched: it is a step from piece 127.
    const bool by_step = c.cpiece == piece_number;
    std::uint8_t key[value_and_data];
    std::memcpy(key, c.ckey, sizeof key);
    h->keyptr = key;
    h->recno = static_cast<std::int32_t>(c.crecno + (behind_value ? 1 : 0));
    const int r = locate(h, behind_value ? 0 : piece_of(c.cpiece) + (by_step ? 0 : 1));
    if (r < -1) return keep_status(h, r);
    if (!by_step || r != 0) return h->status;
  }
  const int got = read_leaf(h);
  if (got != e_ok) return keep_status(h, got);
  const cursor left = c;
  ++c.cindex;
  const std::uint8_t* entry = entry_at_index(main_buffer.image, c.cindex);
  if (entry == nullptr) {
    const int there = next_leaf(h);
    if (there < 0) return keep_status(h, there);
    if (there == 1) {
      entry = main_buffer.image.entries;
      if (!follows_in_order(h, left, entry, 1)) return keep_status(h, raise_damage(h, c.cnode));
    } else {
      // Behind the last entry of all; trailing empty leaves are not a place to stay.
      c.cnode = left.cnode;
      c.cindex = left.cindex + 1;
    }
  }
  return arrive(h, entry, 1);
}

int stepback(PSP* h) {
  cursor& c = cursor_of(h, h->keyno);
  const int got = read_leaf(h);
  if (got != e_ok) return keep_status(h, got);
  if (c.cdeleted && c.cindex > -1) {
    c.cdeleted = 0;
    return arrive(h, entry_at_index(main_buffer.image, c.cindex), -1);
  }
  const cursor left = c;
  if (c.cindex > 0) {
    c.cindex = std::min<std::int32_t>(c.cindex, main_buffer.image.count);
    --c.cindex;
    return arrive(h, entry_at_index(main_buffer.image, c.cindex), -1);
  }
  const int there = previous_leaf(h);
  if (there < 0) return keep_status(h, there);
  if (there == 0) {
    c.cnode = left.cnode;
    c.cindex = -1;
    return arrive(h, nullptr, -1);
  }
  const std::uint8_t* entry = entry_at_index(main_buffer.image, c.cindex);
  if (!follows_in_order(h, left, entry, -1)) return keep_status(h, raise_damage(h, c.cnode));
  return arrive(h, entry, -1);
}

int readval(PSP* h, std::uint8_t* buffer, int capacity) {
  h->datafull = 0;
  if (h->pieceln == 0 || buffer == nullptr) {
    h->datalen = 0;
    return e_ok;
  }
  position p;
  save_position(h, p);
  bool broken = piece_of(h->piece) != 0;
  std::int64_t total = 0;
  int copied = 0;
  int result = e_ok;
  for (;;) {
    const int fits = std::min<int>(h->pieceln, capacity - copied);
    if (fits > 0) {
      std::memcpy(buffer + copied, h->keybuf + h->keylen, static_cast<std::size_t>(fits));
      copied += fits;
    }
    total += h->pieceln;
    const std::uint8_t before = h->piece;
    if (is_last(before)) break;
    if (stepfwd(h) != e_ok) {
      if (h->status != e_not_found) result = h->status;
      broken = true;
      break;
    }
    if (piece_of(h->piece) != ((before + 1) & piece_number)) {
      broken = true;
      if (total > entry_area * static_cast<std::int64_t>(max_pieces)) break;
    }
  }
  restore_position(h, p);
  h->datalen = copied;
  h->datafull = static_cast<std::int32_t>(total);
  if (result != e_ok) return result;
  return broken ? static_cast<int>(e_broken_pieces) : static_cast<int>(e_ok);
}

int find_value(PSP* h) {
  if (int found = 0; find_value_in_place(h, &found)) return keep_status(h, found);
  int r = locate(h);
  if (r >= 0 && cursor_of(h, h->keyno).ckeyno != h->keyno) r = e_not_found;
  if (r >= 0) {
    const int read = readval(h, h->dataptr, h->datalen);
    if (read != e_ok) r = read;
  }
  return keep_status(h, r);
}

int current_value(PSP* h) {
  cursor& c = cursor_of(h, h->keyno);
  if (c.ckeyno != h->keyno || c.cdeleted) return keep_status(h, e_not_found);
  if (is_shared(h) && c.cstale) {
    const cursor before = c;
    std::uint8_t key[value_and_data];
    std::memcpy(key, before.ckey, sizeof key);
    h->keyptr = key;
    h->recno = static_cast<std::int32_t>(before.crecno);
    const int r = find_value(h);
    h->keyptr = h->keybuf;
    if (r > 0 || r == e_not_found) {
      // The place stays stale: a later step finds it by key.
      c = before;
      return keep_status(h, e_no_current);
    }
    return r;
  }
  const int got = read_leaf(h);
  if (got != e_ok) return keep_status(h, got);
  const std::uint8_t* entry = entry_at_index(main_buffer.image, c.cindex);
  if (entry == nullptr || entry[entry_at::key] != h->keyno) return keep_status(h, e_not_found);
  publish(h, entry);
  return keep_status(h, readval(h, h->dataptr, h->datalen));
}

int bfind(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, std::uint8_t* data, int capacity) {
  if (!is_open(h)) return e_bad_handle;
  h->keyptr = key;
  h->recno = recno;
  return bracketed(h, keyno, data, capacity, find_value);
}
int bnext(PSP* h, int keyno, std::uint8_t* data, int capacity) { return bracketed(h, keyno, data, capacity, next_value); }
int bprev(PSP* h, int keyno, std::uint8_t* data, int capacity) {
  return bracketed(h, keyno, data, capacity, previous_value);
}
int bfirst(PSP* h, int keyno, std::uint8_t* data, int capacity) {
  return bracketed(h, keyno, data, capacity, first_value);
}
int blast(PSP* h, int keyno, std::uint8_t* data, int capacity) { return bracketed(h, keyno, data, capacity, last_value); }
int bcurrent(PSP* h, int keyno, std::uint8_t* data, int capacity) {
  return bracketed(h, keyno, data, capacity, current_value);
}

}  // namespace zvrdb::engine
