// What always holds of a handle, between two calls and inside them:
//
//   1  idle          arbiter U, locklevel 1, rdnest 0, wrnest 0
//   2  reading       arbiter U, locklevel 2, rdnest > 0, wrnest 0
//   3  write begun   arbiter L, locklevel 1, wrnest > 0           (integrity level 4)
//   4  writing       arbiter L, locklevel 3, wrnest > 0
//   5  all of these on a handle that is not exclusive; an exclusive one stays idle in
//      its locks whatever its nesting
//   6  nesting is never negative
//   7  a reader byte is never held while the arbiter is waited for
//   8  flagclear only inside an outermost write operation at level 4, or after one that
//      failed: then the flag stands on the disk
//   9  lognode >= 0 only with transtype != 0; logpos lies in the entry area
//  10  quiet reading: as idle, but rdnest > 0; nodes come from the cache alone
//  11  held: the arbiter stays L between operations, and no reader byte is taken or let go of
//
//        idle --rdenter--> reading --rdleave--> idle
//        idle --begin_quiet_read--> quiet reading --a node is missing--> reading
//        quiet reading --wrenter--> write begun
//        idle --wrenter--> write begun --first physical write--> writing --wrleave--> idle
//        idle --wrenter below level 4--> writing
//        reading --wrenter--> write begun; wrleave takes the own byte again before it
//        lets go of the arbiter, so that no other writer comes between
#include "engine/sharing.h"

#include <cassert>

#include "engine/byte_wait.h"
#include "engine/cached_reads.h"
#include "engine/companion.h"
#include "engine/header_page.h"
#include "engine/image_journal.h"
#include "engine/journal.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/record_locks.h"
#include "engine/trans_log.h"
#include "engine/waiting_queue.h"

namespace zvrdb::engine {
namespace {

void assert_handle([[maybe_unused]] const PSP* h) {
  assert(h->rdnest >= 0 && h->wrnest >= 0);
  assert(is_shared(h) || (h->arbiter == 'U' && h->locklevel == 1));
  assert(h->locklevel >= 1 && h->locklevel <= 3);
  assert(h->arbiter == 'L' || h->arbiter == 'U');
  if (h->arbiter == 'U' && h->wrnest == 0 && is_shared(h)) {
    assert(h->locklevel == (h->rdnest > 0 && !is_quiet(h) ? 2 : 1));
  }
  if (h->wrnest > 0 && is_shared(h)) assert(h->arbiter == 'L' && h->locklevel != 2);
  if (h->lognode >= 0) assert(h->transtype != 0);
  assert(h->logpos >= 0 && h->logpos <= entry_area);
}

std::uint64_t own_reader_byte(const PSP* h) { return reader_bytes + static_cast<std::uint64_t>(h->slot); }

// What a write operation changes before it begins: nothing is written yet.
int begin_write_operation(PSP* h) {
  if (h->intlevel == 4 && h->journal == nullptr) {
    const int flag = tstwrit(h);
    if (flag != e_ok) return flag;
  } else if (is_shared(h) && h->intlevel != 4) {
    const int locked = lockread(h, true);
    if (locked != e_ok) return locked;
  }
  h->flagon = 0;
  h->flagclear = 0;
  h->flush_failed = 0;
  if (h->journal != nullptr) journal_begin_operation(h);
  ++h->generation;
  h->hdrdirty = 1;
  if (keeps_images(h)) images_begin_operation(h);
  return e_ok;
}

// All that a write operation changed goes to the pending pages.
int bring_out(PSP* h) {
  int result = h->deferred == e_no_memory ? e_ok : h->deferred;
  if (has_companion(h)) result = leave_result(result, log_node_writes(h));
  result = leave_result(flushfile(h), result);
  if (result == e_ok && h->lognode >= 1) result = translog(h, log_op_finished, nullptr);
  return result;
}

// Brings out all that a write operation changed, in the order: header, nodes, flush;
// log node; flush after growth; flag.
int end_write_operation(PSP* h) {
  if (h->journal != nullptr) return journal_end_operation(h, bring_out(h));
  int result = h->deferred == e_no_memory ? e_ok : h->deferred;
  if (has_companion(h)) result = leave_result(result, log_node_writes(h));
  if (is_shared(h) || h->intlevel >= 4) {
    result = leave_result(flushfile(h), result);
  } else if (h->intlevel >= 1) {
    plain_flush(h);
  }
  if (result == e_ok && h->lognode >= 1) result = translog(h, log_op_finished, nullptr);
  if (result == e_ok && h->grown && h->intlevel != 0) {
    result = checked_flush(h);
    if (result == e_ok) h->grown = 0;
  }
  // Once the flag is clear nothing is restored: the log has to tell of the operation by then.
  if (result == e_ok && keeps_images(h) && h->lognode >= 1) plain_flush(h);
  if (result == e_ok && h->flush_failed) result = e_write;
  if (result == e_ok && h->intlevel == 4 && h->flagclear) {
    result = clrwrit(h);
    if (result == e_ok && h->flush_failed) result = e_write;
    h->flagon = 0;
  }
  return result;
}

constexpr std::uint64_t writer_length = slot_count + 1;   // all reader bytes and the arbiter
static_assert(reader_bytes + slot_count == arbiter_byte);

}  // namespace

bool slot_is_alive(PSP* h, int slot) {
  if (slot < 0 || slot >= slot_count) return false;
  return os().probe(h->file, slot_bytes + static_cast<std::uint64_t>(slot)) != 0;
}

int getslot(PSP* h, bool read_write) {
  if (is_exclusive(h)) return e_ok;
  bool failed = false;   // rather than found every slot in use
  for (int s = 0; s < slot_count; ++s) {
    const std::uint64_t byte = slot_bytes + static_cast<std::uint64_t>(s);
    const lock_answer answer = os().lock(h->file, byte, 1);
    failed = failed || answer == lock_answer::failed;
    if (answer != lock_answer::taken) continue;
    h->slot = s;
    if (read_write || purgelocks(h) != e_old_locks) return e_ok;
    h->slot = -1;
    if (os().unlock(h->file, byte, 1) != 0) return e_byte_lock;
  }
  return failed ? e_byte_lock : e_no_slot;
}

void relslot(PSP* h) {
  if (is_shared(h) && h->slot >= 0) os().unlock(h->file, slot_bytes + static_cast<std::uint64_t>(h->slot), 1);
  h->slot = -1;
}

int unlockread(PSP* h) {
  const int level = h->locklevel;
  if (level == 1) return e_ok;
  h->locklevel = 1;
  const bool all = level == 3;
  if (os().unlock(h->file, all ? reader_bytes : own_reader_byte(h), all ? slot_count : 1) == 0) return e_ok;
  return keep_status(h, e_byte_lock);
}

int lockread(PSP* h, bool all) {
  if (all && h->locklevel == 3) return e_ok;
  // Taking the range over the own byte would merge the two, and unlocking free both.
  if (h->locklevel != 1 && unlockread(h) != e_ok) return e_byte_lock;
  const int taken = all ? wait_for_each_byte(h->file, reader_bytes, slot_count) : wait_for_bytes(h->file, own_reader_byte(h), 1);
  if (taken != e_ok) return taken;
  h->locklevel = all ? 3 : 2;
  return e_ok;
}

int getarbiter(PSP* h) {
  if (is_exclusive(h) || h->arbiter != 'U') return e_ok;
  const int taken = queues(h) ? wait_in_queue(h) : wait_for_bytes(h->file, arbiter_byte, 1);
  if (taken == e_ok) h->arbiter = 'L';
  return taken;
}

int relarbiter(PSP* h) {
  if (h->arbiter != 'L') return e_ok;
  h->arbiter = 'U';
  return os().unlock(h->file, arbiter_byte, 1) == 0 ? e_ok : e_byte_lock;
}

// The locks go at the end of an outermost write operation, or when it cannot begin, or at the end
// of a call of several.
int release_writer(PSP* h) {
  if (is_exclusive(h) || h->held) return e_ok;
  if (h->locklevel == 3 && h->arbiter == 'L' && h->rdnest == 0) {
    h->locklevel = 1;
    h->arbiter = 'U';
    return os().unlock(h->file, reader_bytes, writer_length) == 0 ? e_ok : e_byte_lock;
  }
  int result = e_ok;
  if (h->locklevel != 1) result = unlockread(h);
  if (h->rdnest != 0) result = leave_result(lockread(h, false), result);
  return leave_result(relarbiter(h), result);
}

int waitarbiter(PSP* h) {
  if (os().probe(h->file, arbiter_byte) == 0) return e_ok;
  // A writer with a journal shuts readers out, byte by byte, only while pages go to the file, so
  // they cannot keep it out, and need not wait for its flush.  One without takes all bytes at once.
  if (h->journal != nullptr && !queues(h) && !some_without_journal(h)) return e_ok;
  const int taken = queues(h) ? wait_in_queue(h) : wait_for_bytes(h->file, arbiter_byte, 1);
  if (taken != e_ok) return taken;
  return os().unlock(h->file, arbiter_byte, 1) == 0 ? e_ok : e_byte_lock;
}

int gencheck(PSP* h) {
  if (is_exclusive(h) || h->nogencheck) return e_ok;
  if (h->journal != nullptr) return journal_gencheck(h);
  const std::uint32_t there = read_generation(h);
  if (there == 0) return e_io;
  if (there == h->generation) return e_ok;
  purgefile(h);
  const int loaded = readhdr(h);
  if (loaded != e_ok) return loaded;
  h->generation = there;
  h->lastkey = -1;
  mark_cursors_stale(h);
  return e_ok;
}

int gencheck_lightly(PSP* h) {
  if (is_exclusive(h) || h->nogencheck || h->journal != nullptr) return 0;
  const std::uint32_t there = read_generation(h);
  if (there == 0 || there == h->generation) return 0;
  h->generation = there;
  h->lastkey = -1;
  mark_cursors_stale(h);
  return 1;
}

int rdenter(PSP* h) {
  if (const int ready = cache_ready(); ready != e_ok) return ready;
  if (h->rdnest == 0) h->deferred = 0;
  if (h->rdnest == 0 && h->wrnest == 0) h->hops = 0;
  if (is_shared(h) && h->arbiter == 'U' && h->locklevel == 1 && !is_quiet(h)) {
    int result = waitarbiter(h);
    if (result == e_ok) result = lockread(h, false);
    const bool known = result == e_ok && nothing_moved(h);
    if (result == e_ok && !known && h->journal != nullptr) result = journal_follow(h);
    if (result == e_ok && !known) result = gencheck(h);
    if (result != e_ok) {
      unlockread(h);
      return e_byte_lock;
    }
  }
  if (h->journal != nullptr && is_exclusive(h) && h->rdnest == 0 && h->wrnest == 0) {
    if (const int repaired = journal_enter(h); repaired != e_ok && repaired != e_write_flag) return repaired;
  }
  ++h->rdnest;
  assert_handle(h);
  return e_ok;
}

int rdleave(PSP* h) {
  assert_handle(h);
  --h->rdnest;
  if (h->wrnest != 0 || h->rdnest != 0) return e_ok;
  int result = is_shared(h) && !h->held ? unlockread(h) : e_ok;
  if (h->deferred != 0) result = h->deferred;
  assert_handle(h);
  return result;
}

int become_writer(PSP* h) {
  int result = h->locklevel != 1 && unlockread(h) != e_ok ? e_byte_lock : e_ok;
  if (result == e_ok) result = getarbiter(h);
  const bool known = result == e_ok && nothing_moved(h);
  if (result == e_ok && !known && h->journal != nullptr) result = journal_enter(h);
  if (result == e_ok && !known && gencheck(h) != e_ok) result = e_byte_lock;
  return result;
}

int wrenter(PSP* h) {
  if (const int ready = cache_ready(); ready != e_ok) return ready;
  if (h->wrnest == 0) h->deferred = 0;
  if (h->rdnest == 0 && h->wrnest == 0) h->hops = 0;
  int result = is_quiet(h) ? leave_quiet_read(h) : static_cast<int>(e_ok);
  if (result != e_ok) return result;
  if (is_shared(h) && h->arbiter == 'U') result = become_writer(h);
  if (result == e_ok && h->journal != nullptr && is_exclusive(h) && h->wrnest == 0) result = journal_enter(h);
  if (result == e_ok && h->wrnest == 0) result = begin_write_operation(h);
  if (result != e_ok) {
    if (h->wrnest == 0) release_writer(h);
    return result;
  }
  ++h->wrnest;
  assert_handle(h);
  if (h->transtype != 0 && h->wrnest == 1) {
    h->opnode = h->lognode;
    h->oppos = h->logpos;
    const int logged = translog(h, log_op_begun, nullptr);
    if (logged != e_ok) {
      h->deferred = logged;
      wrleave(h);
      return logged;
    }
  }
  return e_ok;
}

int wrleave(PSP* h) {
  assert_handle(h);
  const int kept = h->status;
  int result = e_ok;
  if (h->wrnest == 1) {
    result = end_write_operation(h);
    if (has_companion(h)) result = keep_companion(h, result);
    if (h->journal != nullptr && h->journal->closing && result == e_ok) result = journal_finish(h);
    const int released = release_writer(h);
    if (result == e_ok) result = released;
    if (h->deferred != 0) result = h->deferred;
  }
  --h->wrnest;
  h->status = kept;
  assert_handle(h);
  return result;
}

int wrleave_with_promise(PSP* h, int result, const group_link& link) {
  assert_handle(h);
  assert(h->wrnest == 1 && h->journal != nullptr);
  const int brought = bring_out(h);
  if (result == e_ok) result = brought != e_ok ? brought : h->deferred;
  result = journal_promise(h, result, link);
  if (result == e_ok) return result;
  release_writer(h);
  --h->wrnest;
  return result;
}

void leave_promised(PSP* h, promise_fate fate, int result) {
  switch (fate) {
    case promise_fate::counts:
      journal_keep_promise(h);
      break;
    case promise_fate::broken:
      journal_break_promise(h, result);
      break;
    case promise_fate::open:
      journal_leave_open(h);
      break;
  }
  release_writer(h);
  --h->wrnest;
  assert_handle(h);
}

}  // namespace zvrdb::engine
