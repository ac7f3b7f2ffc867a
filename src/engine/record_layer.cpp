// Records: a packed body under key 19, and one entry for each key field that points
// back at it by the record number.
#include <cstring>

#include "engine/cached_reads.h"
#include "engine/composite_key.h"
#include "engine/cursor.h"
#include "engine/entry_update.h"
#include "engine/header_page.h"
#include "engine/kept_bodies.h"
#include "engine/key_compare.h"
#include "engine/node_alloc.h"
#include "engine/one_thread.h"
#include "engine/record_locks.h"
#include "engine/record_pack.h"
#include "engine/separate_trees.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

constexpr std::uint8_t empty_key[] = {0};

// Record lock tests off, for as long as it lives.
class lock_tests_off {
 public:
  explicit lock_tests_off(PSP* h) : h_(h), before_(h->nolock) { h->nolock = 1; }
  ~lock_tests_off() { h_->nolock = before_; }
  lock_tests_off(const lock_tests_off&) = delete;
  lock_tests_off& operator=(const lock_tests_off&) = delete;

 private:
  PSP* h_;
  std::uint8_t before_;
};

int read_body(PSP* h, std::int32_t recno) {
  const lock_tests_off off(h);
  return bfind(h, key_bodies, empty_key, recno, h->recbuf, h->reclen);
}

// Nodes that all entries of a record may need.
int make_room(PSP* h, const field* fields) {
  std::int64_t keys = 0;
  for (; !is_list_end(*fields); ++fields) keys += is_key_field(*fields) ? 1 : 0;
  return ensurenodes(h, (std::int64_t{deepest_tree(h)} + 1) * (keys + 1));
}

// All cursors that changing the record will need, before anything is changed.
int make_record_cursors(PSP* h, const field* fields) {
  for (; !is_list_end(*fields); ++fields)
    if (is_key_field(*fields) && good_key_number(fields->fkey) && !make_cursor(h, fields->fkey)) return e_no_memory;
  return make_cursor(h, key_bodies) && make_cursor(h, key_free_records) ? e_ok : e_no_memory;
}

// ---- Record numbers

std::int32_t newrecno(PSP* h) {
  if (h->reuse && h->freerecs != 0 && bfirst(h, key_free_records, nullptr, 0) == e_ok) {
    const std::int32_t n = h->recno;
    move_counter(h->freerecs, -1);
    return bdelcur(h, key_free_records) == e_ok ? n : -1;
  }
  if (h->nextrec < 1 || h->nextrec == INT32_MAX) return -1;
  const std::int32_t n = h->nextrec++;
  return header_changed(h) == e_ok ? n : -1;
}

int freerecno(PSP* h, std::int32_t n) {
  if (!h->reuse) return e_ok;
  const int result = badd(h, key_free_records, empty_key, n, nullptr, 0);
  if (result != e_ok) return result;
  move_counter(h->freerecs, 1);
  return header_changed(h);
}

// ---- Keys of a record

int add_key(PSP* h, const field& f, const std::uint8_t* key, std::int32_t recno) {
  static const std::uint8_t nothing[1] = {0};
  return f.fdup == 'D' ? badd(h, f.fkey, key, recno, nothing, 0) : baddu(h, f.fkey, key, recno, nothing, 0);
}

// Key value of a stored field in file order: 0, e_too_long, errors of composite keys.
int stored_key(PSP* h, const std::uint8_t* record, std::int32_t length, const field* fields, const stored_field& s,
               bool cut, key_value out) {
  const field& f = fields[s.index];
  if (type_char(f) != 'X') return key_of_stored(f, s, cut, out) ? e_ok : e_too_long;
  std::memset(out, 0, key_value_buffer);
  return composite_of_record(h, f.fkey, record, length, fields, out);
}

int addkeys(PSP* h, const std::uint8_t* record, std::int32_t length, std::int32_t recno, const field* fields) {
  packed_reader r = read_packed(h, record, length, fields);
  for (;;) {
    stored_field s;
    int result = next_stored(&r, &s);
    if (result != e_ok || s.index < 0) return result;
    const field& f = fields[s.index];
    if (!is_key_field(f)) continue;
    key_value key;
    result = stored_key(h, record, length, fields, s, false, key);
    if (result == e_ok) result = add_key(h, f, key, recno);
    if (result != e_ok) return result;
  }
}

int delkeys(PSP* h, const std::uint8_t* record, std::int32_t length, std::int32_t recno, const field* fields) {
  const int good = check_packed(h, record, length, fields);
  if (good != e_ok) return good;
  packed_reader r = read_packed(h, record, length, fields);
  for (;;) {
    stored_field s;
    int result = next_stored(&r, &s);
    if (result != e_ok || s.index < 0) return result;
    const field& f = fields[s.index];
    if (!is_key_field(f)) continue;
    key_value key;
    result = stored_key(h, record, length, fields, s, true, key);
    if (result == e_too_long) continue;   // so it was never added
    if (result == e_ok) result = bdelete(h, f.fkey, key, recno);
    if (result != e_ok && result != e_not_found) return result;
  }
}

// Key value of field i of the list in file order.
int new_key(PSP* h, const field* fields, int i, key_value out) {
  std::memset(out, 0, key_value_buffer);
  key_value native = {};
  const int result = dkeyval(h, fields[i].fkey, fields, i, native);
  if (result != e_ok) return result;
  const int type = type_of_key(h, fields[i].fkey);
  const int n = caller_key_length(type, native);
  if (n < 0) return e_key_type;
  convert_key_value(h, fields[i].fkey, native, out, n, native_order, h->order);
  return e_ok;
}

bool equal_keys(const PSP* h, const field& f, const std::uint8_t* a, const std::uint8_t* b) {
  return compare_key_values(h, f.fkey, a, b) == 0;
}

// Puts the old keys back, up to field index `last`.
int keyrestore(PSP* h, const std::uint8_t* record, std::int32_t length, std::int32_t recno, const field* fields,
               int last) {
  packed_reader r = read_packed(h, record, length, fields);
  for (;;) {
    stored_field s;
    int result = next_stored(&r, &s);
    if (result != e_ok || s.index < 0 || s.index > last) return result;
    const field& f = fields[s.index];
    if (!is_key_field(f)) continue;
    key_value old_key;
    key_value added;
    result = stored_key(h, record, length, fields, s, true, old_key);
    if (result != e_ok) return result;
    const bool has_new = !is_taken_out(f) && new_key(h, fields, s.index, added) == e_ok;
    if (has_new && equal_keys(h, f, old_key, added)) continue;
    if (has_new) {
      result = bdelete(h, f.fkey, added, recno);
      if (result != e_ok && result != e_not_found) return result;
    }
    result = add_key(h, f, old_key, recno);
    if (result != e_ok) return result;
  }
}

// Changes one key from the old record's value (null: it had none) to the new one.
// `undo_to` tells up to where keys must be put back when it fails.
int update_key(PSP* h, const field* fields, int i, const std::uint8_t* old_key, std::int32_t recno, int* undo_to) {
  const field& f = fields[i];
  key_value fresh;
  *undo_to = i - 1;
  if (!is_taken_out(f)) {
    const int result = new_key(h, fields, i, fresh);
    if (result != e_ok) return result;
    if (old_key != nullptr && equal_keys(h, f, old_key, fresh)) return e_ok;
  }
  if (old_key != nullptr) {
    const int result = bdelete(h, f.fkey, old_key, recno);
    if (result != e_ok) return result;
  }
  if (is_taken_out(f)) return e_ok;
  *undo_to = i;
  return add_key(h, f, fresh, recno);
}

int updkeys(PSP* h, const std::uint8_t* record, std::int32_t length, std::int32_t recno, const field* fields) {
  const int good = check_packed(h, record, length, fields);
  if (good != e_ok) return good;
  packed_reader r = read_packed(h, record, length, fields);
  stored_field s;
  int result = next_stored(&r, &s);
  for (int i = 0; result == e_ok && !is_list_end(fields[i]); ++i) {
    const bool stored = s.index == i;
    if (is_key_field(fields[i])) {
      key_value old_key;
      int undo_to = i - 1;
      if (stored) result = stored_key(h, record, length, fields, s, true, old_key);
      if (result == e_ok) result = update_key(h, fields, i, stored ? old_key : nullptr, recno, &undo_to);
      if (result != e_ok) {
        keyrestore(h, record, length, recno, fields, undo_to);
        return result;
      }
    }
    if (stored) result = next_stored(&r, &s);
  }
  return result;
}

// Whether the current record is locked by this handle.
int reclockstate(PSP* h) {
  if (h->recno_locked != h->recno_cur) {
    const int found = bfind(h, key_bodies, empty_key, h->recno_cur, nullptr, 0);
    if (found > -2 && found != 0) return e_no_current;
  }
  return keylockstate(h, key_bodies);
}

// What update and delete ask before they begin; leaves the write operation when no.
int enter_change(PSP* h) {
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return e_read_only;
  if (h->recno_cur == -1) return e_no_current;
  const int entered = wrenter(h);
  if (entered != e_ok || is_exclusive(h)) return entered;
  if (reclockstate(h) == e_locked_by_self) return e_ok;
  return leave_result(e_lock_needed, wrleave(h));
}

int leave_with(PSP* h, int result) {
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

int insert_record(PSP* h, const field* fields) {
  int result = make_record_cursors(h, fields);
  if (result != e_ok) return result;
  const std::int32_t recno = newrecno(h);
  if (recno < 0) return e_io;
  const std::int64_t length = packrec(h, h->recbuf, fields, h->rectype, h->reclen);
  if (length < 0) return e_record_length;
  const auto n = static_cast<std::int32_t>(length);
  result = make_room(h, fields);
  if (result != e_ok) return result;
  result = addkeys(h, h->recbuf, n, recno, fields);
  if (result == e_ok) {
    result = badd(h, key_bodies, empty_key, recno, h->recbuf, n);
    if (result == e_not_found) result = e_body;
  }
  if (result == e_ok) {
    h->recno_cur = recno;
    move_counter(h->reccount, 1);
    result = header_changed(h);
  }
  if (result == e_ok) return result;
  delkeys(h, h->recbuf, n, recno, fields);
  freerecno(h, recno);
  return result;
}

int update_record(PSP* h, const field* fields) {
  int result = make_record_cursors(h, fields);
  if (result == e_ok) result = make_room(h, fields);
  if (result != e_ok) return result;
  const std::int32_t recno = h->recno_cur;
  const lock_tests_off off(h);
  if (read_body(h, recno) != e_ok || h->datafull != h->datalen) return e_body;
  const std::int32_t old_length = h->datafull;
  const std::int64_t length = packrec(h, nullptr, fields, h->rectype, h->reclen);
  result = updkeys(h, h->recbuf, old_length, recno, fields);
  if (result != e_ok) return result;
  if (length < 0) {
    // Too long a body: the keys go back to what the old one says.
    keyrestore(h, h->recbuf, old_length, recno, fields, INT32_MAX);
    return e_record_length;
  }
  packrec(h, h->recbuf, fields, h->rectype, h->reclen);
  return bupdate(h, key_bodies, empty_key, recno, h->recbuf, static_cast<std::int32_t>(length));
}

int delete_record(PSP* h, const field* fields) {
  const std::int32_t recno = h->recno_cur;
  int result = make_record_cursors(h, fields);
  if (result != e_ok) return result;
  if (read_body(h, recno) != e_ok || h->datafull != h->datalen) return e_body;
  result = delkeys(h, h->recbuf, h->datafull, recno, fields);
  if (result == e_ok) result = keylock(h, key_bodies);
  if (result == e_ok) result = bdelcur(h, key_bodies);
  if (result != e_ok) return result;
  move_counter(h->reccount, -1);
  result = freerecno(h, recno);
  h->recno_cur = -1;
  h->recno_locked = -1;
  return result;
}

int read_record(PSP* h, field* fields) {
  if (h->recno_locked != -1 && h->recno_locked != h->recno_cur) {
    const int unlocked = dunlock(h);
    if (unlocked != e_ok && unlocked != e_no_current && unlocked < 0) return unlocked;
    h->recno_locked = -1;
  }
  if (h->recno_cur == -1) return e_no_current;
  if (read_body(h, h->recno_cur) != e_ok) return e_not_found;
  if (h->datafull != h->datalen) return e_record_length;
  return unpackrec(h, h->recbuf, h->datafull, fields);
}

// Steps over all duplicates of the value asked for.
int skip_equal(PSP* h, int key, const std::uint8_t* value) {
  for (;;) {
    const int result = bnext(h, key, nullptr, 0);
    if (result != e_ok) return result;
    if (compare_key_values(h, key, h->keybuf, value) != 0) return e_ok;
  }
}

int find_by_option(PSP* h, int key, const std::uint8_t* value, int option) {
  const int r = bfind(h, key, value, 0, nullptr, 0);
  // Where the search failed nothing is known of what lies there.
  if (option != find_equal && r < e_ok && r != e_not_found) return r;
  switch (option) {
    case find_equal:
      return r == 1 ? e_ok : e_not_found;
    case find_greater:
      if (r == 2) return e_ok;
      return r == 1 || r == 0 ? skip_equal(h, key, value) : r;
    case find_greater_equal:
      if (r == 1) return e_ok;
      return r == 2 ? 2 : static_cast<int>(e_not_found);
    case find_less:
      return bprev(h, key, nullptr, 0);
    default:
      if (r == 1) return e_ok;
      return bprev(h, key, nullptr, 0) == e_ok ? 3 : h->status;
  }
}

// A caller's value, with zeros behind it.
void value_in_file_order(const PSP* h, int key, const std::uint8_t* given, key_value out) {
  const int type = type_of_key(h, key);
  const int n = caller_key_length(type, given);
  convert_key_value(h, key, given, out, n, native_order, h->order);
  if (n > max_key_value && type <= kt_string_nocase) out[n - 1] = 0;
  std::memset(out + n, 0, static_cast<std::size_t>(key_value_buffer - n));
}

int lock_record(PSP* h, lock_for use) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  int result = bfind(h, key_bodies, empty_key, h->recno_cur, nullptr, 0);
  if (result == e_ok) {
    result = keylock(h, key_bodies, use);
  } else if (result >= -1) {
    result = e_no_current;
  }
  h->recno_locked = result == e_ok ? h->recno_cur : -1;
  return leave_with(h, result);
}

}  // namespace

int dfind(PSP* h, int key, const void* value, char key_type, int option) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  h->recno_cur = -1;   // unless something is found
  if (!good_key_number(key) || value == nullptr || option < find_equal || option > find_less_equal)
    return keep_status(h, e_bad_argument);
  const int type = type_of_key(h, key);
  const bool usable = key_type_is_known(type) && (type != kt_composite || segments_of(h, key) != nullptr);
  if (!key_type_fits(h, key, key_type) || !usable) return keep_status(h, e_key_type);
  key_value file;
  value_in_file_order(h, key, static_cast<const std::uint8_t*>(value), file);
  const auto find = [&] {
    const int found = find_by_option(h, key, file, option);
    h->recno_cur = found == 0 || found == 2 || found == 3 ? h->recno : -1;
    if (h->recno_cur != -1) expect_body(h, h->recno_cur);
    return found;
  };
  if (option != find_equal) return read_operation(h, key, find, e_byte_lock);
  const int result = find();
  // The answer is "not found"; the status tells when the search could not be made.
  if (result == e_not_found && h->status < e_ok) return result;
  return keep_status(h, result);
}

int dseq(PSP* h, int key, int direction) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  h->recno_cur = -1;   // unless there is a record
  int result = e_bad_argument;
  switch (direction) {
    case seq_next:
      result = bnext(h, key, nullptr, 0);
      break;
    case seq_previous:
      result = bprev(h, key, nullptr, 0);
      break;
    case seq_first:
      result = bfirst(h, key, nullptr, 0);
      break;
    case seq_last:
      result = blast(h, key, nullptr, 0);
      break;
    default:
      return keep_status(h, result);
  }
  if (result == e_ok) {
    h->recno_cur = h->recno;
    expect_body(h, h->recno_cur);
  }
  return keep_status(h, result);
}

int dread(PSP* h, field* fields) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->checks) {
    const int good = check_list_for_reading(h, fields);
    if (good != e_ok) return keep_status(h, good);
  }
  return read_operation(h, key_bodies, [=] { return read_record(h, fields); }, e_byte_lock);
}

int dkeyval(PSP* h, int key, const field* fields, int index, void* out) {
  if (!is_open(h)) return e_bad_handle;
  if (fields == nullptr || out == nullptr) return e_bad_argument;
  if (h->checks) {
    const int good = check_list_for_reading(h, fields);
    if (good != e_ok) return good;
  }
  int i = 0;
  for (; !is_list_end(fields[i]); ++i)
    if (index >= 0 ? i == index : fields[i].fkey == key) break;
  const field& f = fields[i];
  if (!is_list_end(f) && type_char(f) == 'X') {
    if (!good_key_number(f.fkey)) return e_no_field;
    return composite_of_list(h, f.fkey, fields, static_cast<std::uint8_t*>(out));
  }
  if (is_list_end(f) || f.fdata == nullptr) return e_no_field;
  auto* to = static_cast<std::uint8_t*>(out);
  switch (type_char(f)) {
    case 'B':
      if (f.flen < 0 || f.flen > max_key_value - 1) return e_too_long;
      to[0] = static_cast<std::uint8_t>(f.flen);
      std::memcpy(to + 1, f.fdata, static_cast<std::size_t>(f.flen));
      return e_ok;
    case 'D':
      std::memcpy(to, f.fdata, 8);
      return e_ok;
    case 'F':
    case 'I':
    case 'L':
      std::memcpy(to, f.fdata, 4);
      return e_ok;
    case 'H':
    case 'U':
      std::memcpy(to, f.fdata, 2);
      return e_ok;
    case 'M':
      std::memcpy(to, f.fdata, 6);
      return e_ok;
    case 'S': {
      const std::size_t n = strnlen(static_cast<const char*>(f.fdata), max_key_value);
      if (n >= max_key_value) return e_too_long;
      std::memcpy(to, f.fdata, n);
      to[n] = 0;
      return e_ok;
    }
    default:
      return e_no_field;
  }
}

int dinsert(PSP* h, const field* fields) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int good = check_list_for_writing(h, fields);
  if (good != e_ok) return keep_status(h, good);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  return leave_with(h, insert_record(h, fields));
}

int dupdate(PSP* h, field* fields) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int good = check_list_for_writing(h, fields);
  if (good != e_ok) return keep_status(h, good);
  const int entered = enter_change(h);
  if (entered != e_ok) return keep_status(h, entered);
  return leave_with(h, update_record(h, fields));
}

int ddelete(PSP* h, field* fields) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (fields == nullptr) return keep_status(h, e_bad_argument);
  const int entered = enter_change(h);
  if (entered != e_ok) return keep_status(h, entered);
  return leave_with(h, delete_record(h, fields));
}

int dlock(PSP* h) { return lock_record(h, lock_for::as_long_as_asked); }
int dlock_for_call(PSP* h) { return lock_record(h, lock_for::one_call); }

int dunlock(PSP* h) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int result = keyunlock(h, key_bodies);
  h->recno_locked = -1;
  return keep_status(h, result);
}

const unsigned char* current_key(const PSP* h) { return h->keybuf; }
std::int32_t current_record(const PSP* h) { return h->recno_cur; }
int last_status(const PSP* h) { return h->status; }

}  // namespace zvrdb::engine
