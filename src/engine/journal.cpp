// The life of a change on a handle with a journal:
//
//   pending     in pages, of the operation at hand
//   appended    in the log, unflushed                an operation inside a transaction
//   committed   in the log, flushed                  an operation that ends one, or outside
//   applied     in the record file, unflushed
//   settled     in the record file, flushed          checkpoint; the log begins anew
//
// What always holds:
//   1  the record file is changed only by groups that were flushed, but for growth behind
//      its last node, for its generation while nothing else changes, and for the flag
//   2  a group is appended, the file changed and a life begun only by who holds the arbiter
//   3  a handle's pages are all that its appended groups hold and the file does not show
#include "engine/journal.h"

#include <cstring>
#include <utility>

#include "engine/cached_reads.h"
#include "engine/companion.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/planted_fault.h"
#include "engine/sharing.h"
#include "engine/waiting_queue.h"

namespace zvrdb::engine {

// What one more operation appends has room in what was made ahead.
std::uint64_t checkpoint_at = journal_size - journal_size / 16;
std::uint64_t defer_to = std::uint64_t{1} << 30;

namespace {

constexpr std::size_t path_limit = 4096;
// Locked in the journal by each shared handle that uses it, one byte a slot.
constexpr std::uint64_t user_bytes = (std::uint64_t{1} << 32) + 64;

// Length of a journal without a change that a close leaves to others: they read it at once.
constexpr std::uint64_t idle_kept = journal_groups + 15 * journal_sector;

std::uint64_t user_byte(int slot) { return user_bytes + static_cast<std::uint64_t>(slot); }

// Handles beside this one, and whether one of them uses the journal.
struct neighbours {
  bool any, users;
};
neighbours look_around(PSP* h) {
  if (is_exclusive(h)) return {false, false};
  const int log = h->journal->log.file;
  const std::int64_t user = os().find_held(log, user_bytes, slot_count);
  if (user == none_held) return {others_alive(h), false};
  if (user >= 0 && slot_is_alive(h, static_cast<int>(user - static_cast<std::int64_t>(user_bytes)))) return {true, true};
  // That one is about to go: its slot is given back before its byte of the journal.
  neighbours found{false, false};
  for (int s = 0; !found.users && s < slot_count; ++s) {
    if (s == h->slot || !slot_is_alive(h, s)) continue;
    found.any = true;
    found.users = os().probe(log, user_byte(s)) != 0;
  }
  return found;
}

// Whether a handle in one of `n` slots from `first` on doesn't use the journal, or nobody can say.
bool is_without_journal(PSP* h, int first, int n) {
  if (n <= 0) return false;
  const std::uint64_t from = slot_bytes + static_cast<std::uint64_t>(first);
  const std::int64_t held = os().find_held(h->file, from, static_cast<std::uint64_t>(n));
  if (held == none_held) return false;
  if (held < 0) return true;
  const int slot = static_cast<int>(held - static_cast<std::int64_t>(slot_bytes));
  return os().probe(h->journal->log.file, user_byte(slot)) != 1 || is_without_journal(h, first, slot - first) ||
         is_without_journal(h, slot + 1, first + n - slot - 1);
}

// Who dies gives back its slot before its byte of the journal, so the next one in that slot may be
// there too early.  About a second is more than enough for a death.
bool take_user_byte(PSP* h) {
  if (is_exclusive(h) || h->slot < 0) return true;
  constexpr unsigned patience = 1000;
  for (unsigned attempt = 0; attempt < patience; ++attempt) {
    const lock_answer answer = os().lock(h->journal->log.file, user_byte(h->slot), 1);
    if (answer != lock_answer::busy) return answer == lock_answer::taken;
    os().wait(attempt);
  }
  return false;
}

// The arbiter is held, so nobody who comes finds the one byte given back and not the other.
void give_back_slot(PSP* h) {
  const int log = h->journal->log.file;
  if (is_shared(h) && h->slot >= 0 && log >= 0) os().unlock(log, user_byte(h->slot), 1);
  relslot(h);
}

bool is_at_last_change(const journal* j, std::uint32_t generation) {
  return generation == j->log.at.changed_generation;
}

// Nodes in the cache are kept true by what the groups say of them.
void on_new_life(void* context, const journal_file& log, bool passed_on) {
  journal* j = static_cast<PSP*>(context)->journal;
  j->follows = j->follows && log.alive && passed_on && !j->deferred && j->pages.count == 0;
}

void on_group(void* context, const group_read& g) {
  auto* h = static_cast<PSP*>(context);
  journal* j = h->journal;
  if (g.header == nullptr) return;
  if (j->deferred || j->pages.count != 0) j->follows = false;
  if (!j->follows) return;
  j->ahead = true;
  std::memcpy(j->seen_header, g.header, header_size);
  node_walk walk(g);
  for (node_change c; next_node(&walk, &c);) renew_cached_node(h, c);
  forget_buffers(h);
}

void on_taken_back(void* context) { static_cast<PSP*>(context)->journal->follows = false; }

journal_watcher watcher_of(PSP* h) { return {h, on_new_life, on_group, on_taken_back}; }

// What others did meanwhile.
int catch_up(PSP* h, bool arbiter_held) { return catch_up(&h->journal->log, arbiter_held, watcher_of(h)); }

// The file is brought to what the log says, if it is not there already.
int settle_file(PSP* h, bool all) {
  journal* j = h->journal;
  if (const int sound = end_doubt(&j->log); sound != e_ok) return sound;
  if (const int settled = settle_promise(h); settled != e_ok) return settled;
  first_page page;
  if (const int got = read_first_page(h, &page); got != e_ok) return got;
  const bool behind = j->log.alive && j->log.at.any_change && (page.flag || all || !in_step(j, page));
  if (behind || j->must_repair) {
    const int repaired = repair_file(h, all);
    if (repaired != not_explained) return repaired;
  }
  if (page.flag) return e_write_flag;
  // Somebody who keeps no journal changed the file: the log is about another state.
  if (j->log.alive && !in_step(j, page)) j->log.alive = false;
  return e_ok;
}

// At an open, the arbiter held.  `use` becomes false when the file is used without.
int settle_at_open(PSP* h, journal_use asked, bool there, bool* use) {
  journal* j = h->journal;
  *use = false;
  if (!there) {
    // Handles that are here already keep no journal, and one that does would be in their way.
    if (others_alive(h)) return e_ok;
    *use = true;
    // What fails is tried again when there is something to write.
    if (make_journal(&j->log, j->path) == e_ok && begin_anew(h) == e_ok) *use = take_user_byte(h);
    return e_ok;
  }
  if (const int caught = catch_up(h, true); caught != e_ok) return caught;
  const auto [others, users] = look_around(h);
  // Nobody does without beside a journal that holds changes of the file as it is: who has a slot
  // then is about to look at it, or is dying, or is a program that knows nothing of it.
  if (others && !users && !(j->log.alive && j->log.at.any_change)) return e_ok;
  if (const int sound = end_doubt(&j->log); sound != e_ok) return sound;
  if (!users) {
    if (const int dropped = drop_unfinished(h); dropped != e_ok) return dropped;
  }
  // Without others the machine may have been off, and what was not flushed is gone.
  const int settled = settle_file(h, !users && !still_mounted(&j->log));
  if (settled == e_write_flag) return e_ok;   // told by who opens
  if (settled != e_ok) return settled;
  if (others && !users && !j->log.alive) return e_ok;   // it is about another state: they may do without
  if (asked == journal_use::on || users) {
    *use = true;
    if (j->log.alive && h->rw != 1 && !planted(planted_fault::last_groups_believed)) {
      if (const int again = write_last_groups_again(&j->log); again != e_ok) return again;
    }
    return take_user_byte(h) ? e_ok : e_byte_lock;
  }
  return j->log.alive ? check_point(h) : static_cast<int>(e_ok);
}

// A journal may have come since the slot was taken.  The own reader byte is never held while
// the arbiter is waited for.
int with_arbiter_at_open(PSP* h, journal_use asked, bool there, bool* use) {
  int result = unlockread(h);
  if (result == e_ok) result = getarbiter(h);
  return result == e_ok ? settle_at_open(h, asked, there, use) : result;
}

node_change touched_node(const void* context, std::uint32_t i) {
  const auto* p = static_cast<const pending_pages*>(context);
  const pending_node& n = p->nodes[p->touched[i]];
  node_change c = {n.number, static_cast<std::uint16_t>(node_head_size), 0, n.bytes, n.bytes + node_head_size};
  if (n.changed.to > n.changed.from) {
    c.from = n.changed.from;
    c.length = static_cast<std::uint16_t>(n.changed.to - n.changed.from);
    c.entries = n.bytes + n.changed.from;
  }
  return c;
}

void forget_nodes(PSP* h) {
  purgefile(h);
  h->lastkey = -1;
  mark_cursors_stale(h);
  h->journal->follows = false;
}

// Header fields of the block from the file, and everything remembered of nodes forgotten.
int reload(PSP* h) {
  journal* j = h->journal;
  forget_nodes(h);
  j->must_reload = true;
  if (const int loaded = readhdr(h); loaded != e_ok) return loaded;
  j->must_reload = false;
  journal_header_read(h);
  return e_ok;
}

void note_place(PSP* h) {
  journal* j = h->journal;
  if (j->log.gathered_length == 0) j->place = {j->deferred, h->transtype, h->opnode, h->oppos};
}

// The handle as it was when the operation began whose group was the first that waited.
void take_place(PSP* h) {
  journal* j = h->journal;
  j->deferred = j->place.deferred;
  h->transtype = j->place.transtype;
  const bool inside = h->transtype != 0;
  h->lognode = h->opnode = inside ? j->place.lognode : -1;
  h->logpos = h->oppos = inside ? j->place.logpos : 0;
  if (inside) return;
  h->transgen = 0;
  h->transseq = 0;
}

}  // namespace

void forget_operation(PSP* h) {
  journal* j = h->journal;
  forget_pages(&j->pages);
  next_operation(&j->pages);
  j->deferred = false;
  h->hdrdirty = 0;
  h->grown = 0;
  forget_nodes(h);
  if (h->transtype != 0) {
    h->lognode = h->opnode;
    h->logpos = h->oppos;
  }
}

// The operation never was.  Those before it in its transaction are in the log, or, where that could
// not be written, those of its call never were either.
int undo_operation(PSP* h, int result) {
  journal* j = h->journal;
  stop_holding(h);
  const bool lost = std::exchange(j->log.lost, false);
  if (lost) take_place(h);
  const bool earlier = j->deferred;
  forget_operation(h);
  if (earlier && repair_file(h, false) != e_ok) j->must_repair = true;
  reload(h);
  if (j->log.alive) h->generation = j->log.at.generation;
  if (h->transtype == 0 && lost) companion_let_go(h);
  return result;
}

bool changes_something(const journal* j) {
  constexpr std::size_t from = header_at::generation + 4;
  return j->pages.touched_count > 0 ||
         (j->pages.has_header && std::memcmp(j->pages.header + from, j->before + from, header_size - from) != 0);
}

int ready_log(PSP* h) {
  journal* j = h->journal;
  if (j->log.file < 0 && make_journal(&j->log, j->path) != e_ok) return e_write;
  if (j->log.alive) return e_ok;
  if (!take_user_byte(h)) return e_byte_lock;
  return begin_anew(h);
}

namespace {
group_to_write group_of(PSP* h) {
  const journal* j = h->journal;
  group_to_write g = {};
  g.generation_before = load32(j->before + header_at::generation, h->order);
  g.generation_after = h->generation;
  g.extent = h->extent < 0 ? 0 : static_cast<std::uint32_t>(h->extent);
  return g;
}
}  // namespace

int append_change(PSP* h, const change_kind& kind) {
  journal* j = h->journal;
  group_to_write g = group_of(h);
  g.header = j->pages.header;
  g.nodes = j->pages.touched_count;
  g.node_at = touched_node;
  g.context = &j->pages;
  g.open = kind.open;
  g.promise = kind.promise;
  g.decision = kind.decision;
  note_place(h);
  const int appended = append_group(&j->log, g);
  if (appended == e_ok) j->unflushed = true;
  return appended;
}

int flush_log(journal* j) {
  const int flushed = planted(planted_fault::flush_left_out) ? static_cast<int>(e_ok) : flush_journal(&j->log);
  if (flushed == e_ok) j->unflushed = false;
  return flushed;
}

// All pending pages go to the file.  They are committed: a failure leaves work for a repair
// and is none of the operation.
void apply_committed(PSP* h) {
  journal* j = h->journal;
  // Not before the flush is over: readers go on while it lasts.
  int applied = is_shared(h) && h->locklevel != 3 ? lockread(h, true) : static_cast<int>(e_ok);
  if (applied == e_ok) applied = apply_pages(h);
  forget_pages(&j->pages);
  j->deferred = false;
  if (applied == e_ok) {
    j->disk_generation = h->generation;
    return;
  }
  j->must_repair = true;
  stop_holding(h);
  if (repair_file(h, false) == e_ok)
    reload(h);
  else
    note_that_it_ended(h);   // the answer is that it is there
  if (j->log.alive) h->generation = j->log.at.generation;
}

namespace {
int commit_change(PSP* h) {
  journal* j = h->journal;
  if (const int ready = ready_log(h); ready != e_ok) return ready;
  const bool more = (h->transtype != 0 || j->transaction_begins) && !j->closing;
  const std::uint64_t room = group_room(j->pages.touched_count, true);
  const bool defer = more && j->log.at.end + room <= defer_to;
  const log_mark before = j->log.at;
  change_kind kind;
  if (defer) kind.open = h->held ? group_open::in_call : group_open::in_transaction;
  if (j->decision.there) kind.decision = &j->decision;
  if (const int appended = append_change(h, kind); appended != e_ok) return appended;
  if (defer) {
    j->deferred = true;
    return e_ok;
  }
  if (const int flushed = flush_log(j); flushed != e_ok) {
    refuse_group(&j->log, before);
    return flushed;
  }
  j->committed = true;
  apply_committed(h);
  return e_ok;
}

// An operation that moved the generation alone: nothing to lose, so nothing to flush, and
// the file follows with the next change.
int note_generation(PSP* h) {
  journal* j = h->journal;
  const bool flush = j->unflushed && j->flush_wanted;
  if (const int ready = ready_log(h); ready != e_ok) {
    if (j->deferred) return ready;
    // On a full disk there may be no journal yet; whoever only looks is not refused for that.
    forget_pages(&j->pages);
    return e_ok;
  }
  note_place(h);
  if (const int appended = append_group(&j->log, group_of(h)); appended != e_ok) {
    if (j->deferred || j->flush_wanted || j->closing) return appended;   // that is told
    forget_pages(&j->pages);   // as above
    h->generation = j->log.at.generation;
    return e_ok;
  }
  if (flush) {
    if (const int flushed = flush_log(j); flushed != e_ok) return flushed;
  }
  if (!j->deferred) forget_pages(&j->pages);
  return e_ok;
}

}  // namespace

bool some_without_journal(PSP* h) { return is_without_journal(h, 0, slot_count); }

bool settles_journal(const PSP* h, const char* path, journal_use asked) {
  if (asked == journal_use::on && h->rw != 1) return true;
  char name[path_limit];
  return journal_path(path, name, sizeof name) && os().exists(name) != 0;
}

int journal_open(PSP* h, const char* path, journal_use asked) {
  char name[path_limit];
  if (!journal_path(path, name, sizeof name)) return e_ok;
  journal_file log;
  log.identity = os().identity(h->file);
  const bool there = open_journal(&log, name) == e_ok;
  // One that is there and cannot be opened may know more than the file.
  if (!there && h->rw != 1 && os().exists(name) != 0) return e_io;
  if (!there && (asked == journal_use::off || h->rw == 1)) return e_ok;
  // Whose journal it is, or would be, nobody could tell.
  if (log.identity == 0) {
    if (there) close_journal(&log);
    return e_io;
  }
  const std::size_t length = std::strlen(name);
  auto* j = static_cast<journal*>(os().allocate(sizeof(journal) + length));
  if (j == nullptr) {
    close_journal(&log);
    return e_no_memory;
  }
  j->log = log;
  j->pages = pending_pages{};
  std::memcpy(j->path, name, length + 1);
  h->journal = j;
  bool use = false;
  const int result = with_arbiter_at_open(h, asked, there, &use);
  if (result != e_ok || !use) journal_let_go(h);
  return result;
}

void journal_header_read(PSP* h) {
  journal* j = h->journal;
  j->disk_generation = h->generation;
  j->ahead = false;
  j->follows = j->log.alive && is_at_last_change(j, j->disk_generation);
}

void journal_let_go(PSP* h) {
  journal* j = h->journal;
  if (j == nullptr) return;
  h->journal = nullptr;
  close_journal(&j->log);
  release_pages(&j->pages);
  os().release(j);
}

void remove_journal(const char* path) {
  char name[path_limit];
  if (journal_path(path, name, sizeof name)) os().remove(name);
}

int journal_write(PSP* h, write_kind kind, std::uint64_t offset, const void* bytes, std::size_t n,
                  const byte_range& changed) {
  journal* j = h->journal;
  int result = e_ok;
  switch (kind) {
    case write_kind::flag:
      break;   // set and cleared while the file is changed
    case write_kind::growth:
      // Nodes that no header knows yet: a full disk is found while all can be undone.
      result = write_through(h, offset, bytes, n);
      break;
    case write_kind::header:
      std::memcpy(j->pages.header, bytes, header_size);
      j->pages.has_header = true;
      break;
    case write_kind::node: {
      const auto number = static_cast<std::int32_t>((offset - page_size) / page_size);
      if (!keep_node(&j->pages, number, bytes, changed)) result = e_no_memory;
      break;
    }
  }
  if (result != e_ok) j->broken = result;
  return result;
}

bool journal_read(const PSP* h, std::uint64_t offset, void* bytes, std::size_t n) {
  const pending_pages& p = h->journal->pages;
  if (offset + n <= header_size) {
    if (p.has_header) std::memcpy(bytes, p.header + offset, n);
    return p.has_header;
  }
  if (offset < page_size || offset % page_size != 0 || n > page_size) return false;
  const std::uint8_t* kept = find_node(&p, static_cast<std::int32_t>((offset - page_size) / page_size));
  if (kept != nullptr) std::memcpy(bytes, kept, n);
  return kept != nullptr;
}

int journal_enter(PSP* h) {
  journal* j = h->journal;
  // It could not be made so far, and who came meanwhile found none and does without.
  if (j->log.file < 0 && others_alive(h)) {
    journal_let_go(h);
    return e_ok;
  }
  if (is_shared(h) && j->log.file >= 0) {
    if (const int caught = catch_up(h, true); caught != e_ok) return caught;
  }
  first_page page;
  const bool look = is_shared(h) || j->must_repair || j->log.doubt;
  if (look) {
    if (const int got = read_first_page(h, &page); got != e_ok) return got;
  }
  const bool own = j->deferred && look && !page.flag && page.generation == j->disk_generation;
  if (own) {
    if (const int sound = end_doubt(&j->log); sound != e_ok) return sound;
  }
  if (look && !own) {
    if (const int settled = settle_file(h, false); settled != e_ok) return settled;
  }
  if (j->must_reload) {
    if (const int loaded = reload(h); loaded != e_ok) return loaded;
  }
  return e_ok;
}

namespace {
bool is_under_way(journal_news news) {
  return news == journal_news::change_under_way || news == journal_news::pair_under_way;
}

// The own reader byte is held, so no page of a group goes to the file: it is as the change says
// that it bears.  Whether that is known now, and what stands behind it has not ended.
bool follow_to_file(PSP* h) {
  journal* j = h->journal;
  if (j->deferred || j->must_repair || j->must_reload || !is_shared(h)) return false;
  const std::uint8_t* view = view_of_journal(h);
  first_page page;
  if (view == nullptr || read_first_page(h, &page) != e_ok || page.flag) return false;
  const journal_watcher watcher = watcher_of(h);
  if (look_at_life(&j->log, watcher) != e_ok || !j->log.alive || j->log.unsure) return false;
  if (!is_at_last_change(j, page.generation) && catch_up_to(&j->log, page.generation, watcher) != 1) {
    // What was taken on the way may be taken back yet by its writer.
    if (j->ahead) j->follows = false;
    return false;
  }
  const journal_news news = look_for_news(&j->log, view);
  return news <= journal_news::nothing_to_read ||
         (is_under_way(news) && os().probe(h->file, arbiter_byte) == 1);
}

// Who comes behind a living writer need not take the arbiter from it: the writer brings the file
// along itself.  0 the arbiter is held; file_changed; e_byte_lock, e_io.
constexpr int file_changed = 1;
int wait_for_arbiter_or_change(PSP* h, std::uint32_t generation) {
  if (queues(h)) return getarbiter(h);
  for (unsigned attempt = 0;; ++attempt) {
    const lock_answer answer = os().lock(h->file, arbiter_byte, 1);
    if (answer == lock_answer::failed) return e_byte_lock;
    if (answer == lock_answer::taken) {
      h->arbiter = 'L';
      return e_ok;
    }
    os().wait(attempt);
    first_page page;
    if (const int got = read_first_page(h, &page); got != e_ok) return got;
    if (!page.flag && page.generation != generation) return file_changed;
  }
}
}  // namespace

namespace {
// `again`: the file changed while the reader waited, and there is more to follow.
int follow_once(PSP* h, bool* again) {
  *again = false;
  journal* j = h->journal;
  if (j->log.file < 0 || follow_to_file(h)) return e_ok;
  if (const int caught = catch_up(h, false); caught != e_ok) return caught;
  first_page page;
  if (const int got = read_first_page(h, &page); got != e_ok) return got;
  // A change that the file shows is committed: nobody takes it back.
  if (!page.flag && in_step(j, page)) j->log.unsure = false;
  if (j->deferred && !page.flag && page.generation == j->disk_generation) return e_ok;
  const bool behind = j->log.alive && j->log.at.any_change && (page.flag || !in_step(j, page));
  if (!behind && !j->must_repair && !j->must_reload) return e_ok;
  int result = unlockread(h);
  if (result == e_ok) result = wait_for_arbiter_or_change(h, page.generation);
  if (result == file_changed) {
    result = lockread(h, false);
    *again = result == e_ok;
    return result;
  }
  if (result == e_ok) result = journal_enter(h);
  // A flag that the journal does not explain is the business of writers.
  if (result == e_write_flag) result = e_ok;
  result = leave_result(result, relarbiter(h));
  return result == e_ok ? lockread(h, false) : result;
}
}  // namespace

int journal_follow(PSP* h) {
  bool again = false;
  int result = e_ok;
  do result = follow_once(h, &again);
  while (again);
  return result;
}

namespace {
// That operation has not ended if it is one, and not what a dead one left.  A flag is its own:
// another one would have appended before it set it.  What a dead one left is seen by nobody before
// the record file or the journal shows it, so that now and then is often enough to ask.  Of a
// pair the other file may show it first.
bool its_writer_lives(PSP* h, std::uint32_t generation, bool of_pair) {
  const unsigned reads_without_asking = of_pair ? 0 : 15;
  cached_reads* c = h->cached;
  const bool asked_before = c->beside == generation;
  if (asked_before && c->reads_beside < reads_without_asking) {
    ++c->reads_beside;
    return true;
  }
  // Its commit should not wait for the end of a reader's time slice.
  if (asked_before) os().wait(give_way);
  // Until the answer is yes it is asked each time: a read that finds that something moved looks again.
  if (os().probe(h->file, arbiter_byte) != 1) return false;
  c->beside = generation;
  c->reads_beside = 0;
  return true;
}
}  // namespace

bool journal_moved(PSP* h, const std::uint8_t* view, std::uint32_t generation, bool flag) {
  const journal* j = h->journal;
  if (j->must_repair || j->must_reload || j->ahead || !j->log.alive || j->log.doubt) return true;
  if (flag ? j->deferred : generation != j->disk_generation) return true;
  // Known of the log, and not in the file: somebody's transaction.
  if (!j->deferred && !is_at_last_change(j, j->disk_generation)) return true;
  std::uint32_t under_way = generation;
  const journal_news news = look_for_news(&j->log, view, &under_way);
  // Readers are shut out as long as a promise is open: who reads without locks must wait with them.
  if (news == journal_news::promise_under_way) return true;
  if (!is_under_way(news)) return flag || news == journal_news::some;
  // The flag may be that of a program without a journal, which is at work behind that change.
  if (flag && generation != j->disk_generation &&
      (generation != under_way || some_without_journal(h))) {
    return true;
  }
  return !its_writer_lives(h, under_way, news == journal_news::pair_under_way);
}

bool journal_take_seen(PSP* h, std::uint32_t generation) {
  journal* j = h->journal;
  if (!j->follows || !j->log.alive || j->must_reload || j->must_repair || j->deferred) return false;
  if (!is_at_last_change(j, generation)) return false;
  // Else a checkpoint moved the generation alone.
  if (j->ahead && take_header(h, j->seen_header) != e_ok) return false;
  h->generation = generation;
  h->lastkey = -1;
  mark_cursors_stale(h);
  j->disk_generation = generation;
  j->ahead = false;
  j->log.unsure = false;   // the file shows it: nobody takes it back
  return true;
}

bool journal_follow_into_life(PSP* h) {
  journal* j = h->journal;
  if (j->must_repair || j->must_reload || j->ahead || j->deferred || !j->follows || !j->log.alive) return false;
  return look_at_life_quietly(&j->log, watcher_of(h)) && journal_take_seen(h, j->log.base_generation);
}

bool journal_follow_quietly(PSP* h, const std::uint8_t* view, std::uint32_t generation) {
  journal* j = h->journal;
  if (j->must_repair || j->must_reload || j->ahead || j->deferred || !j->follows || !j->log.alive) return false;
  if (j->log.unsure) return false;
  // What is taken on the way to one that isn't there would cost the whole cache.
  if (!is_at_last_change(j, generation) && !look_for_change(&j->log, view, generation)) return false;
  if (catch_up_to(&j->log, generation, watcher_of(h)) == 1) return true;
  // What was taken on the way may be taken back yet by its writer.
  if (j->ahead) j->follows = false;
  return false;
}

int journal_gencheck(PSP* h) {
  journal* j = h->journal;
  std::uint8_t bytes[4];
  if (os().read_at(h->file, header_at::generation, bytes, sizeof bytes) != static_cast<std::int64_t>(sizeof bytes))
    return e_io;
  const std::uint32_t there = load32(bytes, h->order);
  if (there == j->disk_generation && !j->must_reload && !j->ahead) return e_ok;
  if (journal_take_seen(h, there)) return e_ok;
  // What was pending is in the file by now: nobody changes it past a deferred group.
  forget_pages(&j->pages);
  j->deferred = false;
  return reload(h);
}

void journal_begin_operation(PSP* h) {
  journal* j = h->journal;
  if (j->log.alive) h->generation = j->log.at.generation;
  build_header(h, j->before);
  next_operation(&j->pages);
  j->broken = 0;
  j->committed = false;
  j->closing = false;   // a close that failed
  j->decision.there = false;
  j->transaction_begins = false;
  j->flush_wanted = false;
}

int journal_end_operation(PSP* h, int result) {
  journal* j = h->journal;
  if (j->broken != 0 && result == e_ok) result = j->broken;
  // A close writes what a transaction deferred.
  const bool change = changes_something(j) || (j->deferred && j->closing);
  if (result == e_ok) result = change ? commit_change(h) : note_generation(h);
  if (result != e_ok) return undo_operation(h, result);
  h->grown = 0;
  // A checkpoint that fails is tried again after the next operation: nothing is lost.  The file
  // has all its pages, so readers may come in while it is flushed.
  if (!j->deferred && !j->closing && j->log.at.end > checkpoint_at) {
    if (h->locklevel == 3) unlockread(h);
    check_point(h);
  }
  return e_ok;
}

int journal_finish(PSP* h) {
  const journal* j = h->journal;
  int result = e_ok;
  if (!others_alive(h)) {
    result = check_point(h);
  } else if (!j->log.at.any_change && j->log.at.end > idle_kept) {
    // Who opens the file reads what opens and closes before it have left, and all for nothing.  A
    // life without a change is ended without a flush; if it cannot be just now, the next one may.
    check_point(h);
  }
  give_back_slot(h);
  return result;
}

}  // namespace zvrdb::engine
