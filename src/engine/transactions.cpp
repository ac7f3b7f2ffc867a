// The life of a transaction chain, as the header and its head node show it:
//
//   none          transhead -1
//   allocated     transhead >= 0, head count 0            transbeg, or transend mode 2
//   in progress   transhead >= 0, owner's slot locked     only its owner may add to it
//   interrupted   transhead >= 0, owner's slot free       transroll or transend by anyone
//   kept          transhead -1, on the chain of savedhead transend mode 3
//
//   none --transbeg--> in progress --transend 1--> none         writing the header commits
//                      in progress --transroll--> none          ... and gives the chain up
//
// What always holds:
//   1  transtype is not 0 exactly while this handle has begun and not ended
//   2  fields of the transaction are set after the operation that began it was left, so
//      that this operation logs nothing
//   3  a roll-back first takes the chain out of the header: a crash does not undo twice
#include <algorithm>
#include <cstring>

#include "engine/companion.h"
#include "engine/composite_key.h"
#include "engine/cursor.h"
#include "engine/entry_update.h"
#include "engine/header_page.h"
#include "engine/journal.h"
#include "engine/key_compare.h"
#include "engine/key_search.h"
#include "engine/node_alloc.h"
#include "engine/one_thread.h"
#include "engine/planted_fault.h"
#include "engine/sharing.h"
#include "engine/trans_log.h"
#include "engine/tree_insert.h"

namespace zvrdb::engine {
namespace {

constexpr std::uint8_t rollback_key[] = "TRANSNDE";

void forget_transaction(PSP* h) {
  h->transtype = 0;
  h->lognode = -1;
  h->opnode = -1;
  h->logpos = 0;
  h->oppos = 0;
  h->transgen = 0;
  h->transseq = 0;
}

void set_transaction(PSP* h, int type, std::int32_t n) {
  h->transtype = type;
  h->lognode = n;
  h->logpos = 0;
  h->opnode = n;
  h->oppos = 0;
  h->transgen = h->generation;
  h->transseq = 1;
}

// A log node of a chain, directly.
int read_log_node(PSP* h, node_buffer& b, std::int32_t n) {
  const int got = nodegetd(h, b, n);
  if (got != e_ok) return got == e_not_found ? e_io : got;
  return is_log_level(b.image.level) ? static_cast<int>(e_ok) : raise_damage(h, n);
}

// State of the chain, inside a write operation.
int chain_state(PSP* h) {
  if (h->transhead < 0) return e_ok;
  // Not the log buffer: records of the running operation may still lie there.
  node_buffer& b = holds(log_buffer, h, h->transhead) ? log_buffer : third_buffer;
  const int got = read_log_node(h, b, h->transhead);
  if (got != e_ok) return got;
  const std::int32_t owner = b.image.prev;
  if (is_exclusive(h) || owner == h->slot) return b.image.count < 1 ? e_trans_empty : e_trans_interrupted;
  return slot_is_alive(h, owner) ? e_trans_busy : e_trans_interrupted;
}

int begin_chain(PSP* h, std::int32_t* head) {
  if (h->transhead >= 0) {
    *head = h->transhead;
    return read_log_node(h, log_buffer, h->transhead);
  }
  int result = ensurenodes(h);
  if (result != e_ok) return result;
  const std::int32_t n = nodealloc(h);
  if (n < 1) return e_io;
  fill_log_node(log_buffer, h->transhead, h->slot, level_log_first);
  result = nodeputd(h, log_buffer, n);
  if (result != e_ok) return result;
  h->transhead = n;
  *head = n;
  return writehdr(h);
}

// Walks a chain whose head is in the log buffer; each node is emptied, and given back
// if `free` is set.  The cache keeps those that the next allocations take: a long chain
// would fill it with free nodes.
int empty_chain(PSP* h, std::int32_t n, bool free) {
  constexpr std::int32_t kept = 16;
  std::int32_t freed[kept] = {};
  for (std::int32_t steps = 0; n > 0; ++steps) {
    if (steps >= h->nextnode) return raise_damage(h, n);
    int result = read_log_node(h, log_buffer, n);
    if (result != e_ok) return result;
    node& v = log_buffer.image;
    const std::int32_t next = v.next;
    if (free) result = nodefree(h, log_buffer, n);
    if (result != e_ok) return result;
    v.count = 0;
    v.room = entry_area;
    std::memset(v.entries, 0, sizeof v.entries);
    result = nodeputd(h, log_buffer, n);
    if (result != e_ok) return result;
    if (has_companion(h)) note_node_write(h, n);
    if (steps >= kept) forget_node(h, freed[steps % kept]);
    freed[steps % kept] = n;
    n = next;
  }
  return e_ok;
}

// A companion gets the chain that stays in the file.
int note_chain(PSP* h, std::int32_t n) {
  for (std::int32_t steps = 0; n > 0; ++steps) {
    if (steps >= h->nextnode) return raise_damage(h, n);
    if (const int result = read_log_node(h, third_buffer, n); result != e_ok) return result;
    note_node_write(h, n);
    n = third_buffer.image.next;
  }
  return e_ok;
}

int keep_chain(PSP* h, std::int32_t head) {
  h->transhead = -1;
  log_buffer.image.child0 = h->savedhead;
  h->savedhead = head;
  int result = writehdr(h);
  if (result == e_ok) result = nodeputd(h, log_buffer, head);
  return result == e_ok && has_companion(h) ? note_chain(h, head) : result;
}

int end_transaction(PSP* h, int mode) {
  if (h->transhead < 0) return e_not_found;
  int result = translog(h, log_end, nullptr);
  if (result == e_ok) result = flushfile(h);
  if (result != e_ok) return result;
  forget_transaction(h);
  const std::int32_t head = h->transhead;
  result = read_log_node(h, log_buffer, head);
  if (result != e_ok) return result;
  if (log_buffer.image.prev != h->slot && is_shared(h)) return e_trans_busy;
  if (has_companion(h)) h->companion->with_chain = mode == 2;
  if (mode == 3) return keep_chain(h, head);
  if (mode == 1) {
    h->transhead = -1;
    result = writehdr(h);   // the commit
    if (result != e_ok) return result;
  }
  return empty_chain(h, head, mode == 1);
}

// ---- Roll-back

// Progress as the caller's function sees it.
struct rollback_progress {
  progress_fn tell;
  std::int64_t all = 0;
  std::int64_t done = 0;
};

// Keys of an earlier roll-back that was cut short would point at nodes of its chain.
int clear_rollback_list(PSP* h) {
  for (;;) {
    int result = bfirst(h, key_rollback, nullptr, 0);
    if (result == e_not_found) return e_ok;
    if (result == e_ok) result = bdelcur(h, key_rollback);
    if (result != e_ok) return e_io;
  }
}

// Whether a log node that its forerunner names was never written: the process died
// between the two writes.  Nothing in it can have been finished, so the chain ends
// before it.
bool was_never_written(PSP* h, std::int32_t n) {
  if (n < 1 || n >= h->nextnode || n > max_node) return false;
  std::uint8_t head[node_head_size];
  if (physical_read(h, node_offset(n), head, sizeof head) != e_ok) return false;
  if (load16(head + offsetof(node, level), h->order) == level_free) return true;
  return std::all_of(head, head + sizeof head, [](std::uint8_t b) { return b == 0; });
}

// Whether the chain tells of composite keys whose order this handle doesn't know.
int check_segments_known(PSP* h, std::int32_t n) {
  for (std::int32_t steps = 0; n >= 1 && steps < h->nextnode; ++steps) {
    if (steps > 0 && was_never_written(h, n)) return e_ok;
    if (const int result = read_log_node(h, third_buffer, n); result != e_ok) return result;
    const node& v = third_buffer.image;
    int offsets[max_log_records];
    if (!collect_log_records(v, offsets)) return raise_damage(h, n);
    for (int i = 0; i < v.count; ++i) {
      const log_view record = view_log_record(h, v, offsets[i]);
      if (record.type != log_added && record.type != log_removed) continue;
      const int key = record.entry[entry_at::length] == 0 ? 0 : record.entry[entry_at::key];
      if (good_key_number(key) && type_of_key(h, key) == kt_composite && segments_of(h, key) == nullptr)
        return e_segments;
    }
    n = v.next;
  }
  return e_ok;
}

// Counts the chain and lists its nodes under key 16, since it has no links back.
int list_chain(PSP* h, std::int32_t n, rollback_progress* progress, std::int32_t* nodes) {
  *nodes = 0;
  while (n >= 1) {
    if (*nodes >= h->nextnode) return raise_damage(h, n);
    if (*nodes > 0 && was_never_written(h, n)) return e_ok;
    int result = read_log_node(h, third_buffer, n);
    if (result != e_ok) return result;
    const node& v = third_buffer.image;
    int offsets[max_log_records];
    if (!collect_log_records(v, offsets)) return raise_damage(h, n);
    ++*nodes;
    progress->all += v.count;
    for (int i = 0; progress->tell != nullptr && i < v.count; ++i) {
      const log_view record = view_log_record(h, v, offsets[i]);
      progress->tell(h, -1.0, &record);
    }
    std::uint8_t number[4];
    store32s(number, n, native_order);
    const std::int32_t next = v.next;
    result = badd(h, key_rollback, rollback_key, *nodes, number, sizeof number);
    if (result != e_ok) return result == e_not_found ? e_io : result;
    n = next;
  }
  return e_ok;
}

bool same_entry_found(PSP* h, int keyno) {
  return h->cmpfull == 0 && cursor_of(h, keyno).cindex < main_buffer.image.count;
}

// A change to undo: an entry that was added, or removed.
struct logged_change {
  bool added;
  std::uint8_t entry[entry_buffer_size];
};

bool is_change(const log_view& record) { return record.type == log_added || record.type == log_removed; }

// The change that a record in the third buffer tells of.
int take_change(PSP* h, const log_view& record, logged_change* out) {
  const int left = static_cast<int>(third_buffer.image.entries + entry_area - record.entry);
  if (!leaf_entry_is_sound(h, record.entry, left)) return raise_damage(h, third_buffer.number);
  out->added = record.type == log_added;
  std::memset(out->entry, 0, sizeof out->entry);
  std::memcpy(out->entry, record.entry, static_cast<std::size_t>(entry_size(record.entry)));
  return e_ok;
}

int undo(PSP* h, const logged_change& change) {
  const bool added = change.added;
  const std::uint8_t* entry = change.entry;
  const int keyno = entry[entry_at::key];
  h->keyno = keyno;
  if (!treesearch(h, keyno, entry + entry_at::value, entry_record(entry, h->order), entry[entry_at::piece]))
    return e_damaged;
  cursor& c = cursor_of(h, keyno);
  const bool exact = same_entry_found(h, keyno);
  if (exact) remove_entry(h, keyno, h->foundoffset, c.cnode, c.cindex);
  if (added) {
    const int result = exact ? nodeput(h, main_buffer, c.cnode) : static_cast<int>(e_ok);
    h->lastkey = -1;
    return result;
  }
  const int result = treeadd(h, keyno, entry, h->foundoffset, c.cnode, exact ? c.cindex + 1 : c.cindex);
  c.cdeleted = 0;
  return result;
}

// Piece 128 bears the number 0, so its place is behind piece 127 and not to be searched.
// Undoes both: `piece_127` was logged just before `piece_128`.
int undo_last_two_pieces(PSP* h, const logged_change& piece_127, const logged_change& piece_128) {
  const std::uint8_t* before = piece_127.entry;
  const int keyno = before[entry_at::key];
  if (!piece_128.added) {
    if (const int result = undo(h, piece_127); result != e_ok) return result;
  }
  h->keyno = keyno;
  if (!treesearch(h, keyno, before + entry_at::value, entry_record(before, h->order), piece_number)) return e_damaged;
  if (!same_entry_found(h, keyno)) return piece_128.added ? undo(h, piece_127) : raise_damage(h, main_buffer.number);
  cursor& c = cursor_of(h, keyno);
  const node& m = main_buffer.image;
  int index = c.cindex + 1;
  int offset = entry_offset(m, index);
  h->lastkey = -1;
  if (!piece_128.added) {
    const int result = treeadd(h, keyno, piece_128.entry, offset, c.cnode, index);
    c.cdeleted = 0;
    return result;
  }
  if (index >= m.count) {
    const int there = next_leaf(h);
    if (there < 0) return there;
    index = 0;
    offset = 0;
  }
  const std::uint8_t* found = entry_at_index(m, index);
  if (found != nullptr && found[entry_at::piece] == last_piece && compare_entries(h, found, before) == 0) {
    remove_entry(h, keyno, offset, c.cnode, index);
    if (const int result = nodeput(h, main_buffer, c.cnode); result != e_ok) return result;
  }
  return undo(h, piece_127);
}

// How far the undoing of a chain has come.
struct undo_state {
  bool finished = false;   // the end of an operation was met: what lies behind it counts
  bool stop = false;       // the caller's function wants no more
  bool holding = false;    // `held` may be a piece 128: the record before it will tell
  logged_change held = {};
};

int undo_held(PSP* h, undo_state* s) {
  if (!s->holding) return e_ok;
  s->holding = false;
  return undo(h, s->held);
}

bool belongs_behind(const PSP* h, const logged_change& change, const logged_change& held) {
  return change.added == held.added && change.entry[entry_at::piece] == piece_number &&
         compare_entries(h, change.entry, held.entry) == 0;
}

// Undoes one record of an operation that was finished.
int undo_record(PSP* h, const log_view& record, undo_state* s) {
  if (!is_change(record)) {
    const bool known = (record.type != 0 && record.type <= log_node_written) || record.type >= log_ignored_from;
    const int result = undo_held(h, s);
    return result != e_ok || known ? result : static_cast<int>(e_log_record);
  }
  logged_change change;
  if (const int taken = take_change(h, record, &change); taken != e_ok) return taken;
  if (s->holding && belongs_behind(h, change, s->held)) {
    s->holding = false;
    return undo_last_two_pieces(h, change, s->held);
  }
  const int result = undo_held(h, s);
  if (result != e_ok || change.entry[entry_at::piece] != last_piece) return result != e_ok ? result : undo(h, change);
  s->holding = true;
  s->held = change;
  return e_ok;
}

// Handles the records of one node from the last to the first.
int undo_node(PSP* h, rollback_progress* progress, undo_state* s) {
  const node& v = third_buffer.image;
  int offsets[max_log_records];
  if (!collect_log_records(v, offsets)) return raise_damage(h, third_buffer.number);
  const int oldest = planted(planted_fault::undo_one_short) ? 1 : 0;
  for (int i = v.count - 1; i >= oldest; --i) {
    const log_view record = view_log_record(h, v, offsets[i]);
    ++progress->done;
    if (progress->tell != nullptr) {
      const double share =
          progress->all > 0 ? static_cast<double>(progress->done) / static_cast<double>(progress->all) : 0.0;
      s->stop = progress->tell(h, share, &record) != 0;
      if (s->stop) return e_ok;
    }
    if (record.type == log_end || record.type == log_op_finished) {
      s->finished = true;
    } else if (s->finished) {
      const int result = undo_record(h, record, s);
      if (result != e_ok) return result;
    }
  }
  return e_ok;
}

int undo_chain(PSP* h, std::int32_t nodes, rollback_progress* progress) {
  undo_state s;
  for (std::int32_t at = nodes; at >= 1 && !s.stop; --at) {
    std::uint8_t number[4] = {};
    if (bfind(h, key_rollback, rollback_key, at, number, sizeof number) != 0 || h->datalen != 4) return e_io;
    int result = read_log_node(h, third_buffer, load32s(number, native_order));
    if (result == e_ok) result = undo_node(h, progress, &s);
    if (result != e_ok) return result;
  }
  return undo_held(h, &s);
}

int unlist_chain(PSP* h, std::int32_t nodes) {
  for (std::int32_t at = nodes; at >= 1; --at) {
    if (bfind(h, key_rollback, rollback_key, at, nullptr, 0) != 0 || bdelcur(h, key_rollback) != 0) return e_io;
  }
  return e_ok;
}

// Whether a transaction of that kind may begin on the file at all.
int check_begin(PSP* h, int type, PSP* companion) {
  if (h->intlevel < 4) return e_level;
  if (type < 1 || type > 3 || (companion != nullptr && type == 3)) return e_bad_argument;
  return type == 3 || is_open(companion) ? static_cast<int>(e_ok) : static_cast<int>(e_bad_handle);
}

int begin_transaction(PSP* h, int type, PSP* companion) {
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  int result = transstat(h);
  if (result == e_trans_empty) result = e_ok;
  if (result == e_ok && companion != nullptr) result = check_companion(h, companion);
  std::int32_t head = -1;
  if (result == e_ok) result = begin_chain(h, &head);
  if (result == e_ok && h->journal != nullptr) h->journal->transaction_begins = h->wrnest == 1;
  result = leave_result(result, wrleave(h));
  if (result == e_ok && companion != nullptr) result = companion_attach(h, companion);
  if (result == e_ok) set_transaction(h, type, head);
  return keep_status(h, result);
}

// Inside a write operation.
int roll_back(PSP* h, progress_fn tell, bool own, std::int32_t lognode, int new_type) {
  int result = e_ok;
  if (!own) {
    if (chain_state(h) != e_trans_interrupted) return e_trans_none;
  } else if (holds(log_buffer, h, lognode)) {
    result = nodeputd(h, log_buffer, lognode);
  }
  // All cursors up front: memory that runs out later would leave it half undone.
  for (int k = 1; k <= max_key_number; ++k)
    if (!make_cursor(h, k)) return e_no_memory;
  if (result == e_ok && lacks_segments(h)) result = check_segments_known(h, h->transhead);
  if (result != e_ok) return result;
  const std::int32_t chain = h->transhead;
  h->transhead = -1;
  result = writehdr(h);
  if (result == e_ok && new_type != 0) result = begin_transaction(h, new_type, nullptr);
  // What follows is no part of the new transaction.
  forget_transaction(h);
  if (result == e_ok) result = clear_rollback_list(h);
  rollback_progress progress{tell};
  std::int32_t nodes = 0;
  if (result == e_ok) result = list_chain(h, chain, &progress, &nodes);
  if (result == e_ok) result = undo_chain(h, nodes, &progress);
  const int unlisted = unlist_chain(h, nodes);
  if (result == e_ok) result = unlisted;
  const int flushed = flushfile(h);
  if (result == e_ok) result = flushed;
  // The chain is gone from the header, so nobody can undo the rest.  The write flag has
  // to stay: the file is known as damaged, and no handle goes on as if nothing were.
  if (result != e_ok) h->deferred = result;
  return result;
}

}  // namespace

int transstat(PSP* h) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  const bool reader = h->rw == 1;
  const int entered = reader ? rdenter(h) : wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  const int result = chain_state(h);
  h->status = result;
  return keep_status(h, leave_result(result, reader ? rdleave(h) : wrleave(h)));
}

int transbeg(PSP* h, int type, PSP* companion) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  if (const int good = check_begin(h, type, companion); good != e_ok) return keep_status(h, good);
  return begin_transaction(h, type, companion);
}

int transend(PSP* h, int mode) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (mode < 1 || mode > 3) return keep_status(h, e_bad_argument);
  if (h->rw == 1) return keep_status(h, e_read_only);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  h->status = end_transaction(h, mode);
  const int result = leave_result(h->status, wrleave(h));
  if (h->transtype == 0) companion_let_go(h);
  return keep_status(h, result);
}

int transend_together(PSP* first, PSP* second, int mode) {
  const one_thread alone;
  if (mode < 1 || mode > 3) return e_bad_argument;
  if (!can_end_together(first, second)) return e_bad_argument;
  constexpr int (*ends[])(PSP*) = {[](PSP* h) { return end_transaction(h, 1); },
                                   [](PSP* h) { return end_transaction(h, 2); },
                                   [](PSP* h) { return end_transaction(h, 3); }};
  const int result = end_pair(first, second, ends[mode - 1]);
  keep_status(second, result);
  return keep_status(first, result);
}

int transroll(PSP* h, progress_fn progress, int new_type, PSP* new_companion) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (h->rw == 1) return keep_status(h, e_read_only);
  if (new_type != 0) {
    if (const int good = check_begin(h, new_type, new_companion); good != e_ok) return keep_status(h, good);
    // Only the copy that goes back with the file is one afterwards.
    const PSP* kept = has_companion(h) ? h->companion->to : nullptr;
    if (new_companion != nullptr && new_companion != kept) return keep_status(h, e_key_table);
  }
  if (h->transtype == 2) return keep_status(h, e_trans_none);
  const bool own = h->transtype != 0;
  const std::int32_t lognode = h->lognode;
  forget_transaction(h);
  const int entered = wrenter(h);
  if (entered != e_ok) return keep_status(h, entered);
  const int result = roll_back(h, progress, own, lognode, new_type);
  h->status = result;
  const int left = leave_result(result, wrleave(h));
  if (left != e_ok || new_companion == nullptr) companion_let_go(h);
  if (left == e_ok && new_type != 0) set_transaction(h, new_type, h->transhead);
  return keep_status(h, left);
}

}  // namespace zvrdb::engine
