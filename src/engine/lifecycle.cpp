// Creating, opening and closing files.
#include <cstdio>
#include <cstring>

#include "engine/cached_reads.h"
#include "engine/companion.h"
#include "engine/composite_key.h"
#include "engine/header_page.h"
#include "engine/image_journal.h"
#include "engine/journal.h"
#include "engine/key_compare.h"
#include "engine/node_alloc.h"
#include "engine/node_cache.h"
#include "engine/one_thread.h"
#include "engine/open_handles.h"
#include "engine/os_file.h"
#include "engine/record_locks.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

constexpr int max_key_table = 20;
constexpr int max_application_key = 15;
constexpr int max_segments = 243;
constexpr unsigned known_options = option_merge | option_queue;
constexpr std::uint8_t max_stored_type = 20;

void mark_block(PSP* h) {
  h->mark_v = 'V';
  h->mark_a = 'A';
  h->mark_l = 'L';
  h->mark_i = 'I';
  h->mark_d = 'D';
  h->mark_a2 = 'A';
  h->mark_t = 'T';
  h->mark_e = 'E';
}

bool is_marked(const PSP* h) {
  return h->mark_v == 'V' && h->mark_a == 'A' && h->mark_l == 'L' && h->mark_i == 'I' && h->mark_d == 'D' &&
         h->mark_a2 == 'A' && h->mark_t == 'T' && h->mark_e == 'E';
}

// A block as it stands before a file is opened with it.  What an earlier use of the
// same memory left in cache or tables is forgotten.
void prepare_block(PSP* h, const char* path) {
  if (forget_handle(h) && is_marked(h) && h->state == 'O') {
    os().close(h->file);
    end_cached_reads(h);
    journal_let_go(h);
    images_let_go(h);
    companion_let_go(h);
    free_cursors(h);
  }
  // A big cache takes long to look through, and hardly ever has anything of a closed handle.
  if (nodes_in_cache() != nodes_of_open_handles()) purge_memory_of(h);
  forget_buffers(h);
  std::memset(h, 0, sizeof *h);
  static std::uint32_t opens;
  h->opened_as = ++opens;
  note_change(h);
  mark_block(h);
  h->state = 'C';
  h->file = -1;
  h->slot = -1;
  h->growstep = 10;
  h->flagenabled = 1;
  h->arbiter = 'U';
  h->locklevel = 1;
  h->lognode = -1;
  h->opnode = -1;
  h->lastleaf = -1;
  h->lastkey = -1;
  h->recno_cur = -1;
  h->recno_locked = -1;
  h->order = native_order;
  h->checks = 1;
  h->reuse = 1;
  h->transhead = -1;
  h->savedhead = -1;
  h->keyptr = h->keybuf;
  std::memset(h->keylocks, 'U', sizeof h->keylocks);
  std::snprintf(h->path, sizeof h->path, "%s", path);
}

void close_block(PSP* h) {
  if (h->held) let_other_threads_in();
  h->held = 0;
  h->lock_unwritten = 0;
  purgefile(h);
  forget_handle(h);
  if (h->file >= 0) os().close(h->file);
  h->file = -1;
  h->slot = -1;
  end_cached_reads(h);
  journal_let_go(h);
  images_let_go(h);
  companion_let_go(h);
  free_cursors(h);
  h->state = 'C';
}

bool open_with_access(PSP* h, const char* path, char access) {
  open_how how{h->rw == 2, false, false};
  if (access == 'E') {
    how.deny_read = true;
    how.deny_write = true;
  } else if (access == 'D' && how.write) {
    how.deny_write = true;
  }
  h->access = access;
  h->openaccess = access;
  h->file = os().open(path, how);
  if (h->file < 0) return false;
  h->state = 'O';
  h->nogencheck = access == 'D' && how.write;
  remember_handle(h);
  return true;
}

// Behind the writer at work, if one is.
int begin_reading(PSP* h) {
  int result = waitarbiter(h);
  if (result == e_ok) result = lockread(h, false);
  return result == e_ok || result == e_queue ? result : static_cast<int>(e_byte_lock);
}

// Slot, and a read nesting that stays until the open is done.  Who will settle a journal takes
// the arbiter first and keeps it until then: so each that has a slot has settled what it found,
// and who comes sees of each whether it uses the journal.
int enter_shared_file(PSP* h, const char* path, bool slot_as_writer, journal_use use) {
  const bool settles = is_shared(h) && settles_journal(h, path, use);
  if (settles) {
    if (const int taken = getarbiter(h); taken != e_ok) return taken == e_queue ? taken : static_cast<int>(e_byte_lock);
    // Loads the header, by which a reader looks for old locks; one that is bad is told below.
    if (!slot_as_writer) gencheck(h);
  }
  const int result = getslot(h, slot_as_writer);
  if (result != e_ok) return result;
  if (is_shared(h) && !settles) {
    if (const int begun = begin_reading(h); begun != e_ok) return begun;
  }
  ++h->rdnest;
  return e_ok;
}

int settle_journal(PSP* h, const char* path, journal_use use) {
  int result = journal_open(h, path, use);
  // No writer comes between: the own byte is taken before the arbiter is given back.
  if (h->arbiter == 'L') {
    if (result == e_ok && h->locklevel == 1) result = lockread(h, false);
    return leave_result(result, relarbiter(h));
  }
  if (result == e_ok && is_shared(h) && h->locklevel == 1) result = begin_reading(h);
  return result;
}

// The steps common to all opens.  Answers inside a read nesting.
int openfile(PSP* h, const char* path, char access, int mode, bool slot_as_writer, journal_use use, unsigned options) {
  prepare_block(h, path);
  if ((options & ~known_options) != 0) return e_bad_argument;
  h->options = static_cast<std::uint8_t>(options);
  if ((access != 'S' && access != 'E' && access != 'D') || (mode != 1 && mode != 2)) return e_bad_argument;
  if (const int ready = cache_ready(); ready != e_ok) return ready;
  h->rw = mode;
  if (!open_with_access(h, path, access) && (access == 'E' || !open_with_access(h, path, 'E'))) {
    h->state = 'C';
    return e_not_found;
  }
  int entered = enter_shared_file(h, path, slot_as_writer || mode == 2, use);
  if (entered != e_ok) {
    // A file that cannot be shared is taken whole.
    const bool alone = is_exclusive(h);
    close_block(h);
    h->arbiter = 'U';
    h->locklevel = 1;
    if (entered == e_queue) return entered;
    if (alone || !open_with_access(h, path, 'E')) {
      h->state = 'C';
      return entered == e_no_slot ? e_no_slot : e_open_exclusive;
    }
    entered = enter_shared_file(h, path, true, use);
  }
  if (const int taken = settle_journal(h, path, use); taken != e_ok) {
    // The reader byte may be gone meanwhile; all others go with the descriptor.
    h->rdnest = 0;
    h->arbiter = 'U';
    h->locklevel = 1;
    close_block(h);
    h->errdetail = taken;
    return taken;
  }
  // The look for old locks on the way to a slot may have cached nodes that a writer has
  // changed since; the header to come would make them pass for fresh ones.
  purgefile(h);
  mark_cursors_stale(h);
  h->lastkey = -1;
  const int loaded = readhdr(h);
  if (h->journal != nullptr) journal_header_read(h);
  if (loaded != e_ok) {
    const int detail = loaded;
    rdleave(h);
    close_block(h);
    h->errdetail = detail;
    return loaded;
  }
  h->intlevel = is_shared(h) ? 1 : 3;
  return e_ok;
}

// Ends the nesting of an open.  A lone reader beside a writer then looks at the file as
// if it were exclusive: it neither locks nor follows changes.
int leave_open(PSP* h) {
  const int left = rdleave(h);
  if (h->access == 'D' && h->rw == 1) h->access = 'E';
  return left;
}

int check_segments(const segment* table) {
  int n = 0;
  for (; n <= max_segments && table[n].type != segment_end; ++n)
    if (table[n].type > max_stored_type) return e_segments;
  return n >= 1 && n <= max_segments ? e_ok : e_segments;
}

int take_key_table(PSP* h, const key_entry* keys) {
  int result = e_ok;
  if (keys == nullptr) {
    for (int k = 0; k < max_application_key; ++k)
      if (h->keytypes[k] != 0) result = e_key_table;
    return result;
  }
  for (int i = 0; i < max_key_table && keys[i].number != 0; ++i) {
    const key_entry& e = keys[i];
    if (e.number > max_application_key) {
      result = e_key_number;
      continue;
    }
    if (e.type > max_stored_type || e.type != h->keytypes[e.number]) result = e_key_table;
    if (e.segments == nullptr) continue;
    if (const int good = check_segments(e.segments); good != e_ok) {
      result = good;
    } else {
      h->segments[e.number - 1] = e.segments;
    }
  }
  return result;
}

void take_record_buffer(PSP* h, void* recbuf, int reclen) {
  h->recbuf = static_cast<std::uint8_t*>(recbuf);
  h->reclen = recbuf != nullptr && reclen > 0 ? reclen : 0;
  h->recno_cur = -1;
  h->recno_locked = -1;
}

// All of a close but letting go of the descriptor.
int finish_handle(PSP* h) {
  const bool writer = h->rw == 2;
  const int entered = writer ? wrenter(h) : rdenter(h);
  if (entered != e_ok) return entered;
  int result = e_ok;
  if (writer) {
    for (int k = 1; k <= max_key_number; ++k)
      if (has_cursor(h, k)) keyunlock(h, k);
    if (h->hdrdirty) result = writehdr(h);
  }
  if (result == e_ok) result = dropfile(h);
  if (result != e_ok) {
    h->errdetail = result;
    result = e_io;
  } else {
    h->flagenabled = 0;
  }
  if (h->journal != nullptr && writer) h->journal->closing = result == e_ok;
  const int left = writer ? wrleave(h) : rdleave(h);
  if (result == e_ok) result = left;
  if (result == e_ok) relslot(h);
  return result;
}

// ---- Creation

// Header fields of a new file.
int fill_new_header(PSP* h, const key_entry* keys) {
  h->generation = 1;
  h->root = 0;
  h->depth = 1;
  h->nextnode = 1;
  h->nextrec = 1;
  h->freenode = -1;
  h->keytypes[key_locks] = kt_bytes;
  int result = e_ok;
  for (int i = 0; keys != nullptr && i < max_key_table && keys[i].number != 0; ++i) {
    if (keys[i].number > max_application_key) {
      result = e_key_number;
    } else if (keys[i].type > max_stored_type) {
      result = e_key_table;
    } else {
      h->keytypes[keys[i].number] = keys[i].type;
    }
  }
  return result;
}

// The bytes of a new, empty file, all but those that its first close writes.
int write_new_file(PSP* h) {
  static const std::uint8_t zeros[page_size] = {};
  int result = physical_write(h, write_kind::header, 0, zeros, sizeof zeros);
  if (result == e_ok) result = writehdr(h);
  if (result != e_ok) return result;
  if (ensurenodes(h) != e_ok) return e_write;
  clear_buffer(scratch_buffer);
  scratch_buffer.image.next = -1;
  scratch_buffer.image.prev = -1;
  scratch_buffer.image.room = entry_area;
  result = nodeput(h, scratch_buffer, h->root);
  h->hdrdirty = 1;
  return result == e_ok ? finish_handle(h) : result;
}

// Makes the file nameless, and gives it its name only when it is whole.
int make_file(PSP* h, const char* path, const key_entry* keys) {
  h->file = os().create(path);
  if (h->file < 0) return e_not_found;
  h->state = 'O';
  remember_handle(h);
  int result = fill_new_header(h, keys);
  if (result == e_ok) result = write_new_file(h);
  if (result == e_ok && os().put_in_place(h->file, path) == 0) {
    close_block(h);
    return e_ok;
  }
  const int file = h->file;
  h->file = -1;
  close_block(h);
  os().discard(file, path);
  return result == e_ok ? static_cast<int>(e_not_found) : result;
}

}  // namespace

char checkpsp(const PSP* h) {
  if (h == nullptr || !is_marked(h)) return 'I';
  return h->state == 'O' || h->state == 'C' ? h->state : 'I';
}

int dopen(PSP* h, const char* path, void* recbuf, int reclen, char access, int mode, const key_entry* keys,
          journal_use journal, unsigned options) {
  const one_thread alone;
  if (h == nullptr || path == nullptr) return e_bad_argument;
  int result = openfile(h, path, access, mode, false, journal, options);
  if (result != e_ok) return result;
  result = tstwrit(h);
  if (result != e_ok) {
    rdleave(h);
    close_block(h);
    return result;
  }
  result = take_key_table(h, keys);
  if (result != e_ok) {
    leave_open(h);
    if (cclose(h) != e_ok) close_block(h);
    return result;
  }
  if (h->rw == 2) result = purgelocks(h);
  result = leave_result(result, leave_open(h));
  if (result != e_ok) {
    close_block(h);
    return result;
  }
  take_record_buffer(h, recbuf, reclen);
  return e_ok;
}

int _bopen(PSP* h, const char* path, char access, int mode, journal_use journal, unsigned options) {
  const one_thread alone;
  if (h == nullptr || path == nullptr) return e_bad_argument;
  const int result = openfile(h, path, access, mode, true, journal, options);
  return result == e_ok ? leave_open(h) : result;
}

bool has_journal(const PSP* h) { return is_open(h) && h->journal != nullptr; }

bool took_back_transaction(const PSP* h) { return is_open(h) && h->took_back != 0; }

bool tells_of_transaction(const PSP* h) { return is_open(h) && h->transhead >= 0; }

int dcreate(PSP* h, const char* path, void* recbuf, int reclen, char access, int order, const key_entry* keys,
            journal_use journal, unsigned options) {
  const one_thread alone;
  if (h == nullptr || path == nullptr || (options & ~known_options) != 0) return e_bad_argument;
  if (order < 1 || order > 3) return e_byte_order;
  prepare_block(h, path);
  h->order = order == 1 ? byte_order::little : order == 2 ? byte_order::big : native_order;
  h->access = 'E';
  h->openaccess = 'E';
  h->rw = 2;
  if (const int ready = cache_ready(); ready != e_ok) return ready;
  const int there = os().open(path, {false, false, false});
  if (there >= 0) {
    os().close(there);
    return e_exists;
  }
  // One of a file that was removed.  A file that is there and cannot be opened just now needs its own.
  if (os().exists(path) == 0) remove_journal(path);
  const int made = make_file(h, path, keys);
  if (made != e_ok) return made;
  const int opened = dopen(h, path, recbuf, reclen, access, 2, keys, journal, options);
  if (opened != e_ok) os().remove(path);
  return opened;
}

int cclose(PSP* h) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (const int ended = end_call(h); ended != e_ok) return keep_status(h, ended);
  const int result = finish_handle(h);
  if (result != e_ok) return keep_status(h, result);
  const int file = h->file;
  h->file = -1;
  const int closed = os().close(file);
  close_block(h);
  return closed == 0 ? e_ok : e_not_found;
}

int dclose(PSP* h) { return cclose(h); }

void abandon(PSP* h) {
  const one_thread alone;
  if (is_open(h)) close_block(h);
}

int csetfile(PSP* h, int level) {
  if (!is_open(h)) return e_bad_handle;
  if (level < 0 || level > 4) return e_not_found;
  h->intlevel = is_shared(h) && (level == 2 || level == 3) ? 1 : level;
  return e_ok;
}

int dflush(PSP* h) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  h->errdetail = 0;
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  if (h->journal != nullptr) h->journal->flush_wanted = true;
  int result = flushfile(h);
  if (result == e_ok && h->grown) {
    plain_flush(h);
    h->grown = 0;
  }
  h->status = result;
  return keep_status(h, leave_result(result, wrleave(h)));
}

}  // namespace zvrdb::engine
