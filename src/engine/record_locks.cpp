#include "engine/record_locks.h"

#include <algorithm>
#include <cstring>

#include "engine/companion.h"
#include "engine/cursor.h"
#include "engine/entry_update.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

constexpr int lock_key_size = 256;
constexpr int owner_size = 2;

// The caller's request, which looking after a lock must leave alone.
class request_kept {
 public:
  explicit request_kept(PSP* h)
      : h_(h), keyptr_(h->keyptr), dataptr_(h->dataptr), keyno_(h->keyno), recno_(h->recno), datalen_(h->datalen),
        datafull_(h->datafull), edge_(h->edge), keylen_(h->keylen), pieceln_(h->pieceln), status_(h->status),
        piece_(h->piece), nolock_(h->nolock) {
    std::memcpy(keybuf_, h->keybuf, sizeof keybuf_);
    h->nolock = 1;
    h->edge = 0;
  }
  ~request_kept() {
    std::memcpy(h_->keybuf, keybuf_, sizeof keybuf_);
    h_->keyptr = keyptr_;
    h_->dataptr = dataptr_;
    h_->keyno = keyno_;
    h_->recno = recno_;
    h_->datalen = datalen_;
    h_->datafull = datafull_;
    h_->edge = edge_;
    h_->keylen = keylen_;
    h_->pieceln = pieceln_;
    h_->status = status_;
    h_->piece = piece_;
    h_->nolock = nolock_;
  }
  request_kept(const request_kept&) = delete;
  request_kept& operator=(const request_kept&) = delete;

 private:
  PSP* h_;
  const std::uint8_t* keyptr_;
  std::uint8_t* dataptr_;
  std::int32_t keyno_, recno_, datalen_, datafull_, edge_, keylen_, pieceln_, status_;
  std::uint8_t piece_, nolock_;
  std::uint8_t keybuf_[keybuf_size];
};

// The lock that belongs to the entry at a cursor: length of the key value, key number,
// key value less its last byte.
struct lock_name {
  std::uint8_t key[lock_key_size];
  std::int32_t recno;
};

bool name_lock(PSP* h, int key, lock_name* out) {
  const cursor& c = cursor_of(h, key);
  const int type = type_of_key(h, key);
  const int k = key_value_length(type, c.ckey, value_and_data);
  if (k < 1) return false;
  std::uint8_t native[value_and_data];
  convert_value(type, c.ckey, native, k, h->order, native_order);
  std::memset(out->key, 0, sizeof out->key);
  out->key[0] = static_cast<std::uint8_t>(k);
  out->key[1] = static_cast<std::uint8_t>(key);
  std::memcpy(out->key + 2, native, static_cast<std::size_t>(k - 1));
  out->recno = static_cast<std::int32_t>(c.crecno);
  return true;
}

// Owner of a lock: 0 or above, -1 there is no such lock, below that an error.
int owner_of(PSP* h, const lock_name& lock) {
  std::uint8_t owner[owner_size] = {};
  const int found = bfind(h, key_locks, lock.key, lock.recno, owner, sizeof owner);
  if (found > 0) return -1;
  return found == 0 ? load16(owner, h->order) : found;
}

// A lock met without a living owner may be the trace of a process that died in a
// transaction.  A handle inside its own transaction knows how that stands.
int transaction_left_behind(PSP* h) {
  const int state = transstat(h);
  if (state == e_trans_empty) return e_ok;
  return state == e_trans_interrupted && h->transtype != 0 ? static_cast<int>(e_ok) : state;
}

int add_lock(PSP* h, const lock_name& lock) {
  std::uint8_t owner[owner_size];
  store16(owner, static_cast<std::uint16_t>(h->slot), h->order);
  return badd(h, key_locks, lock.key, lock.recno, owner, sizeof owner);
}

int lockentry(PSP* h, const lock_name& lock) {
  const request_kept kept(h);
  int result = add_lock(h, lock);
  if (result != e_not_found) return result;
  const int owner = owner_of(h, lock);
  if (owner < 0) return e_locked_by_other;
  if (owner == h->slot) return e_ok;
  if (slot_is_alive(h, owner)) return e_locked_by_other;
  result = bdelete(h, key_locks, lock.key, lock.recno);
  if (result == e_ok) result = add_lock(h, lock);
  return result == e_ok ? transaction_left_behind(h) : result;
}

int unlockentry(PSP* h, const lock_name& lock) {
  const request_kept kept(h);
  const int owner = owner_of(h, lock);
  if (owner == -1) return e_ok;
  if (owner < 0) return owner;
  return owner == h->slot ? bdelcur(h, key_locks) : static_cast<int>(e_locked_by_other);
}

// Whether the last leaf, where the lock would stand, has room for it, and is as it was when the lock
// has gone again.
bool leaves_no_trace(const leaf_place& at, int size) {
  const node& v = *at.leaf.image;
  if (v.next != -1 || v.prev < 0 || v.count == 0 || v.count == max_entries || v.room < size) return false;
  const std::uint8_t* behind = v.entries + entries_end(v);
  return std::all_of(behind, behind + size, [](std::uint8_t b) { return b == 0; });
}

// Whether the lock of the record at hand may stay out of the file while nobody sees it: the lock is
// nobody's, and the change of the record doesn't reach the leaf in which it would stand.  That is so
// when the leaf before that one ends with a later record.
bool may_stay_unwritten(PSP* h, int key, const lock_name& lock) {
  if (key != key_bodies || !h->held || h->journal == nullptr || has_companion(h) || h->trees != 0) return false;
  leaf_place at;
  if (!look_up(h, key_locks, lock.key, lock.recno, &at) || at.found) return false;
  if (!leaves_no_trace(at, entry_head_size + 1 + lock.key[0] + owner_size)) return false;
  const std::int32_t last = at.leaf.number;
  node_view before;
  if (view_node(h, at.leaf.image->prev, &before) != e_ok) return false;
  const node& v = *before.image;
  if (v.level != 0 || v.next != last || v.count == 0) return false;
  const std::uint8_t* end = v.entries + before.offsets[v.count - 1];
  return end[entry_at::key] == key_bodies && entry_record(end, h->order) > lock.recno;
}

// The write operation that would take the lock out of the file.
int give_up_unwritten_lock(PSP* h) {
  const int entered = wrenter(h);
  if (entered != e_ok) return entered;
  const int left = wrleave(h);
  if (left == e_ok) h->lock_unwritten = 0;
  return left;
}

int check_lock_call(PSP* h, int key) {
  if (!is_open(h)) return e_bad_handle;
  return good_key_number(key) ? static_cast<int>(e_ok) : keep_status(h, e_bad_argument);
}

bool stands_on_entry(PSP* h, int key) {
  if (!has_cursor(h, key)) return false;
  const cursor& c = cursor_of(h, key);
  return c.ckeyno == key && !c.cdeleted;
}

// That the cursor's entry still exists.
bool entry_still_there(PSP* h, int key) {
  const request_kept kept(h);
  return bcurrent(h, key, nullptr, 0) == e_ok;
}

int foreign_lock_state(PSP* h, const lock_name& lock) {
  if (leaf_place at; h->wrnest > 0 && look_up(h, key_locks, lock.key, lock.recno, &at) && !at.found) return e_not_locked;
  const request_kept kept(h);
  const int owner = owner_of(h, lock);
  if (owner == -1) return e_not_locked;
  if (owner < 0) return owner;
  if (owner == h->slot) return e_locked_by_self;
  if (slot_is_alive(h, owner)) return e_locked_by_other;
  if (h->rw == 1) return e_not_locked;
  const int deleted = bdelete(h, key_locks, lock.key, lock.recno);
  if (deleted != e_ok && deleted != e_not_found) return deleted;
  const int left = transaction_left_behind(h);
  return left != e_ok ? left : static_cast<int>(e_not_locked);
}

}  // namespace

void forget_unwritten_lock(PSP* h) {
  if (!h->lock_unwritten) return;
  h->lock_unwritten = 0;
  h->keylocks[key_bodies - 1] = 'U';
  h->recno_locked = -1;
}

int keylock(PSP* h, int key, lock_for use) {
  if (const int good = check_lock_call(h, key); good != e_ok) return good;
  char& state = h->keylocks[key - 1];
  if (is_exclusive(h)) {
    state = 'L';
    return e_ok;
  }
  if (h->nolock || state == 'L') return e_ok;
  if (!stands_on_entry(h, key)) return e_no_current;
  const int entered = wrenter(h);
  if (entered != e_ok) return entered;
  int result = entry_still_there(h, key) ? e_ok : e_no_current;
  lock_name lock;
  if (result == e_ok && !name_lock(h, key, &lock)) result = e_no_current;
  const bool unwritten = result == e_ok && use == lock_for::one_call && may_stay_unwritten(h, key, lock);
  if (result == e_ok && !unwritten) result = lockentry(h, lock);
  if (result == e_ok) state = 'L';
  if (unwritten) h->lock_unwritten = 1;
  return leave_result(result, wrleave(h));
}

int keyunlock(PSP* h, int key) {
  if (const int good = check_lock_call(h, key); good != e_ok) return good;
  if (h->nolock) return e_ok;
  char& state = h->keylocks[key - 1];
  if (is_exclusive(h)) {
    state = 'U';
    return e_ok;
  }
  if (state == 'U') {
    const int asked = keylockstate(h, key);
    return asked == e_not_locked ? static_cast<int>(e_ok) : asked;
  }
  lock_name lock;
  if (!stands_on_entry(h, key) || !name_lock(h, key, &lock)) return e_no_current;
  const bool unwritten = key == key_bodies && h->lock_unwritten;
  const int result = unwritten ? give_up_unwritten_lock(h) : unlockentry(h, lock);
  if (result == e_ok) state = 'U';
  return result;
}

int keylockstate(PSP* h, int key) {
  if (const int good = check_lock_call(h, key); good != e_ok) return good;
  if (h->keylocks[key - 1] == 'L') return e_locked_by_self;
  if (is_exclusive(h)) return e_not_locked;
  lock_name lock;
  if (!stands_on_entry(h, key) || !name_lock(h, key, &lock)) return e_no_current;
  return foreign_lock_state(h, lock);
}

int keyfree(PSP* h, int key) {
  if (h->keylocks[key - 1] == 'U') return e_ok;
  return keyunlock(h, key) == e_ok ? e_ok : e_unlock;
}

int purgelocks(PSP* h) {
  if (is_exclusive(h)) return e_ok;
  const request_kept kept(h);
  std::uint8_t owner[owner_size] = {};
  int result = bfirst(h, key_locks, owner, sizeof owner);
  while (result == e_ok) {
    if (h->datalen == owner_size && load16(owner, h->order) == h->slot) {
      if (h->rw == 1) return e_old_locks;
      result = bdelcur(h, key_locks);
      if (result != e_ok) return result;
    }
    result = bnext(h, key_locks, owner, sizeof owner);
  }
  return result == e_not_found ? static_cast<int>(e_ok) : result;
}

}  // namespace zvrdb::engine
