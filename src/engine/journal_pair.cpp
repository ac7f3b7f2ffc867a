// Two record files that commit together.  The one journal takes a promise, the other the
// decision: both are groups as others, and each bears the name of the other's file.
//
//   1  the arbiters of both files are taken, first that of the file that decides
//   2  the promise is appended and flushed; its pages stay pending
//   3  the decision is appended and flushed: the commit of both
//   4  the pages of the deciding file are written, then those of the promising one
//
// When the flush of the decision fails, the decision is taken back on the disk before the promise
// is.  As long as that cannot be done the promise stays as it is, and nobody works in its file:
// a power cut leaves both or neither.
//
// Who finds a promise at the end of a journal looks for the decision in the other one.  It is
// there: the promise counts.  It is not, or that journal has begun a new life: the promise is
// taken back.  So a journal that holds a decision begins no new life before the promise is
// known to count in its own file: something stands behind it there, on the disk.
//
// Who settles a promise, or a partner, holds its file's arbiter and only tries for the other.  So
// nobody waits in a circle, as long as all name the two files in the same order.
#include <cstring>

#include "engine/engine.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine/planted_fault.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

constexpr std::size_t path_limit = 4096;

// Path of a file beside the journal's.
bool path_beside(const journal* j, const char* name, char (&out)[path_limit]) {
  const char* slash = std::strrchr(j->path, '/');
  const std::size_t folder = slash == nullptr ? 0 : static_cast<std::size_t>(slash - j->path) + 1;
  const std::size_t length = std::strlen(name);
  if (folder + length >= sizeof out) return false;
  std::memcpy(out, j->path, folder);
  std::memcpy(out + folder, name, length + 1);
  return true;
}

// Whether the record file bears the last group: nobody writes it there undecided.
int shows_promise(PSP* h) {
  first_page page;
  if (const int got = read_first_page(h, &page); got != e_ok) return got;
  return in_step(h->journal, page) ? 1 : 0;
}

int was_decided(PSP* h, const group_link& promise) {
  char record[path_limit];
  char name[path_limit];
  if (!path_beside(h->journal, promise.name, record) || !journal_path(record, name, sizeof name)) return 0;
  journal_file other;
  if (open_journal(&other, name) != e_ok) return os().exists(name) == 0 ? 0 : static_cast<int>(e_io);
  // Who works there may begin a new life meanwhile: its groups must not be written over.  A life
  // that holds the decision stays, since it does not end without the arbiter of this file.
  const int file = os().open(record, {true, false, false});
  const bool alone = file >= 0 && os().lock(file, arbiter_byte, 1) == lock_answer::taken;
  const int found = find_decision(&other, promise, alone);
  if (alone) os().unlock(file, arbiter_byte, 1);
  if (file >= 0) os().close(file);
  close_journal(&other);
  return found;
}

// In the partner's journal, its arbiter held.
int make_known(int record_file, const char* record, const group_link& decision) {
  char name[path_limit];
  if (!journal_path(record, name, sizeof name)) return e_ok;
  journal_file log;
  log.identity = os().identity(record_file);
  if (log.identity == 0) return e_io;
  if (open_journal(&log, name) != e_ok) return os().exists(name) == 0 ? e_ok : e_io;
  int result = catch_up(&log, true);
  if (result == e_ok) result = end_doubt(&log);
  // A later life began with the file flushed.
  if (result == e_ok && log.alive && log.salt == decision.salt) {
    if (log.at.promise.there && log.at.promise.number == decision.number) {
      group_to_write behind = {};
      behind.generation_before = behind.generation_after = log.at.generation;
      result = append_group(&log, behind);
    }
    // Who wrote them may have died before he told of a flush that failed.
    if (result == e_ok) result = write_again_from_promise(&log, decision.number);
    if (result == e_ok) result = flush_journal(&log);
  }
  close_journal(&log);
  return result;
}

}  // namespace

int settle_promise(PSP* h) {
  journal* j = h->journal;
  if (!j->log.alive || !j->log.at.promise.there) return e_ok;
  int counts = shows_promise(h);
  if (counts == 0 && planted(planted_fault::promise_believed)) counts = 1;
  if (counts == 0) counts = was_decided(h, j->log.at.promise);
  if (counts < 0) return counts;
  if (counts > 0) {
    j->log.at.promise.there = false;
  } else {
    if (const int again = write_again_before(&j->log, j->log.before); again != e_ok) return again;
    take_back_group(&j->log, j->log.before);
    j->follows = false;   // nodes of it may be in the cache
  }
  return e_ok;
}

int settle_partner(PSP* h) {
  journal* j = h->journal;
  const group_link& decision = j->log.at.decision;
  if (!decision.there || planted(planted_fault::partner_forgotten)) return e_ok;
  char record[path_limit];
  if (!path_beside(j, decision.name, record)) return e_ok;
  const int file = os().open(record, {true, false, false});
  if (file < 0) return os().exists(record) == 0 ? static_cast<int>(e_ok) : partner_busy;
  int result = partner_busy;
  if (os().lock(file, arbiter_byte, 1) == lock_answer::taken) {
    result = make_known(file, record, decision);
    os().unlock(file, arbiter_byte, 1);
  }
  os().close(file);
  if (result == e_ok) j->log.at.decision.there = false;
  return result;
}

int journal_promise(PSP* h, int result, const group_link& link) {
  journal* j = h->journal;
  if (j->broken != 0 && result == e_ok) result = j->broken;
  if (result == e_ok && !changes_something(j)) result = e_io;
  if (result == e_ok) result = ready_log(h);
  if (result == e_ok && is_shared(h) && h->locklevel != 3) result = lockread(h, true);
  if (result != e_ok) return undo_operation(h, result);
  const log_mark before = j->log.at;
  change_kind kind;
  kind.promise = &link;
  result = append_change(h, kind);
  if (result == e_ok) {
    result = flush_log(j);
    if (result != e_ok) refuse_group(&j->log, before);
  }
  return result == e_ok ? result : undo_operation(h, result);
}

void journal_keep_promise(PSP* h) {
  journal* j = h->journal;
  j->log.at.promise.there = false;
  apply_committed(h);
  h->grown = 0;
  if (j->log.at.end > checkpoint_at) check_point(h);
}

int journal_break_promise(PSP* h, int result) {
  take_back_group(&h->journal->log, h->journal->log.before);
  return undo_operation(h, result);
}

void journal_leave_open(PSP* h) {
  journal* j = h->journal;
  stop_holding(h);
  forget_operation(h);
  j->log.unsure = true;   // another one may come to know
  j->must_repair = true;
  j->must_reload = true;
}

namespace {

// Name of the record file; false when it has no room or lies in another folder.
bool name_partner(const journal* own, const journal* other, group_link* link) {
  constexpr std::size_t ending = 4;   // ".jnl"
  const char* own_name = std::strrchr(own->path, '/');
  const char* name = std::strrchr(other->path, '/');
  const auto own_folder = own_name == nullptr ? 0 : own_name - own->path;
  const auto folder = name == nullptr ? 0 : name - other->path;
  if (own_folder != folder || std::memcmp(own->path, other->path, static_cast<std::size_t>(folder)) != 0) return false;
  name = name == nullptr ? other->path : name + 1;
  const std::size_t length = std::strlen(name) - ending;
  if (length >= sizeof link->name) return false;
  std::memset(link->name, 0, sizeof link->name);
  std::memcpy(link->name, name, length);
  return true;
}

// The arbiter of the deciding file held.  One decision of a life is remembered, so that on
// another partner is settled first.
int ready_to_decide(PSP* h, const group_link& next) {
  journal* j = h->journal;
  if (const int ready = ready_log(h); ready != e_ok) return ready;
  const group_link& last = j->log.at.decision;
  if (!last.there || std::memcmp(last.name, next.name, sizeof last.name) == 0) return e_ok;
  const int settled = settle_partner(h);
  return settled == partner_busy ? static_cast<int>(e_byte_lock) : settled;
}

}  // namespace

bool can_end_together(const PSP* decides, const PSP* promises) {
  if (!has_journal(decides) || !has_journal(promises) || decides == promises) return false;
  if (decides->transtype == 0 || promises->transtype == 0) return false;
  if (decides->wrnest != 0 || promises->wrnest != 0) return false;
  group_link link;
  return name_partner(decides->journal, promises->journal, &link) &&
         name_partner(promises->journal, decides->journal, &link);
}

namespace {
// While it may be on the disk that the pair counts, nobody may make it so that it does not.
promise_fate fate_of(const journal& decides) {
  if (decides.committed) return promise_fate::counts;
  return decides.log.doubt && !planted(planted_fault::promise_not_kept_open) ? promise_fate::open : promise_fate::broken;
}
}  // namespace

int end_pair(PSP* decides, PSP* promises, int (*end)(PSP* h)) {
  group_link promise;
  group_link decision;
  promise.there = decision.there = true;
  promise.number = decision.number = os().random();
  name_partner(promises->journal, decides->journal, &promise);
  name_partner(decides->journal, promises->journal, &decision);
  if (const int entered = wrenter(decides); entered != e_ok) return entered;
  int result = end(decides);
  if (result == e_ok) result = ready_to_decide(decides, decision);
  promise.salt = decides->journal->log.salt;
  bool promised = false;
  if (result == e_ok) {
    result = wrenter(promises);
    if (result == e_ok) {
      result = wrleave_with_promise(promises, end(promises), promise);
      promised = result == e_ok;
    }
  }
  if (promised) {
    decision.salt = promises->journal->log.salt;
    decides->journal->decision = decision;
  } else {
    decides->journal->broken = result;
  }
  const int left = wrleave(decides);
  const bool committed = decides->journal->committed;
  if (result == e_ok && !committed) result = left != e_ok ? left : static_cast<int>(e_write);
  if (promised) leave_promised(promises, fate_of(*decides->journal), result);
  return result;
}

}  // namespace zvrdb::engine
