// Several operations that nobody comes between: the arbiter is kept from the first to the last,
// and groups of the journal wait in memory for the commit, since nobody can ask for them before.
#include "engine/engine.h"
#include "engine/journal.h"
#include "engine/node_cache.h"
#include "engine/one_thread.h"
#include "engine/record_locks.h"
#include "engine/sharing.h"

namespace zvrdb::engine {

void begin_call(PSP* h) {
  const one_thread alone;
  if (!is_open(h) || is_exclusive(h) || h->journal == nullptr || h->rw == 1) return;
  if (h->held || h->wrnest != 0 || h->rdnest != 0 || cache_ready() != e_ok) return;
  if (become_writer(h) != e_ok || h->journal == nullptr) {
    release_writer(h);
    return;
  }
  keep_other_threads_out();
  h->held = 1;
  gather_groups(&h->journal->log);
}

void stop_holding(PSP* h) {
  if (!h->held) return;
  h->held = 0;
  forget_unwritten_lock(h);
  if (h->journal != nullptr) write_gathered(&h->journal->log);   // who goes on asks whether some were lost
  let_other_threads_in();
}

int end_call(PSP* h) {
  const one_thread alone;
  if (!is_open(h) || !h->held) return e_ok;
  stop_holding(h);
  const int result = h->journal != nullptr && h->journal->log.lost ? undo_operation(h, e_write) : static_cast<int>(e_ok);
  return leave_result(result, release_writer(h));
}

}  // namespace zvrdb::engine
