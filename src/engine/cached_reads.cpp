#include "engine/cached_reads.h"

#include "engine/header_page.h"
#include "engine/journal.h"
#include "engine/node_cache.h"
#include "engine/one_thread.h"
#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

// What other processes write, by way of the system, while it is looked at.
template <class T>
T look_at(const std::uint8_t* mapped, byte_order order) {
  const T v = __atomic_load_n(reinterpret_cast<const T*>(mapped), __ATOMIC_ACQUIRE);
  return order == native_order ? v : swap_bytes(v);
}

struct first_page_seen {
  std::uint32_t generation;
  bool flag;
};
first_page_seen look_at_first_page(const PSP* h) {
  const std::uint8_t* page = h->cached->page;
  first_page_seen seen;
  seen.flag = look_at<std::uint16_t>(page + flag_offset, native_order) != 0;
  seen.generation = look_at<std::uint32_t>(page + header_at::generation, h->order);
  return seen;
}

bool something_moved(PSP* h, const first_page_seen& page) {
  if (h->journal != nullptr) return journal_moved(h, h->cached->journal, page.generation, page.flag);
  return page.flag || page.generation != h->generation;
}
bool something_moved(PSP* h) { return something_moved(h, look_at_first_page(h)); }

// And no operation is under way whose pages go to the file.
bool file_moved(PSP* h) {
  const first_page_seen page = look_at_first_page(h);
  return page.flag || something_moved(h, page);
}

bool journal_in_view(PSP* h) {
  const journal* j = h->journal;
  cached_reads* c = h->cached;
  if (j == nullptr) return true;
  if (c->journal == nullptr && j->log.file >= 0)
    c->journal = static_cast<const std::uint8_t*>(os().map(j->log.file, journal_size));
  return c->journal != nullptr;
}

// While it lives the journal is read through its mapping.
class journal_in_mapping {
 public:
  explicit journal_in_mapping(PSP* h) : log_(&h->journal->log) { log_->view = h->cached->journal; }
  journal_in_mapping(const journal_in_mapping&) = delete;
  journal_in_mapping& operator=(const journal_in_mapping&) = delete;
  ~journal_in_mapping() { log_->view = nullptr; }

 private:
  journal_file* log_;
};

// What others changed is taken from the journal without waiting for who is at work.
bool follow_writer(PSP* h) {
  if (h->journal == nullptr) return false;
  const journal_in_mapping mapped(h);
  if (!is_same_life(&h->journal->log, h->cached->journal)) {
    if (!journal_follow_into_life(h)) return false;
    if (!something_moved(h)) return true;
  }
  const first_page_seen page = look_at_first_page(h);
  // While the pages of a commit go to the file, what ended before is all that counts.
  std::uint32_t generation = page.generation;
  if (page.flag && !look_for_ended_change(&h->journal->log, h->cached->journal, &generation)) return false;
  if (!journal_follow_quietly(h, h->cached->journal, generation)) return false;
  const first_page_seen after = look_at_first_page(h);
  if (!page.flag && (after.flag || after.generation != generation)) return false;
  return journal_take_seen(h, generation) && !something_moved(h);
}

}  // namespace

bool nothing_moved(PSP* h) {
  if (h->cached == nullptr || !is_shared(h) || !journal_in_view(h) || file_moved(h)) return false;
  return h->journal == nullptr || look_for_news(&h->journal->log, h->cached->journal) == journal_news::none;
}

const std::uint8_t* view_of_journal(PSP* h) {
  return h->cached != nullptr && journal_in_view(h) ? h->cached->journal : nullptr;
}

unsigned nodes_to_bring(PSP* h) {
  constexpr unsigned misses_a_node = 32;
  if (h->cached == nullptr || h->locklevel == 1 || h->wrnest != 0) return 1;
  const unsigned worth = ++h->cached->misses / misses_a_node;
  unsigned nodes = 1;
  while (nodes < most_nodes_brought && 2 * nodes <= worth) nodes *= 2;
  return nodes;
}

bool begin_quiet_read(PSP* h, int keyno) {
  cached_reads* c = h->cached;
  if (c == nullptr || is_exclusive(h) || h->held || h->rdnest != 0 || h->wrnest != 0 || h->keylocks[keyno - 1] != 'U') return false;
  if (!journal_in_view(h) || (something_moved(h) && !follow_writer(h))) return false;
  c->state = quiet::running;
  c->due = 0;
  h->deferred = 0;
  h->hops = 0;
  ++h->rdnest;
  return true;
}

bool end_quiet_read(PSP* h, int* result) {
  cached_reads* c = h->cached;
  const quiet state = c->state;
  c->state = quiet::no;
  if (state == quiet::no) {
    // It went on under the locks.
    h->status = *result;
    *result = leave_result(*result, rdleave(h));
    return true;
  }
  --h->rdnest;
  // All it saw is the process's own, and was the file's when it began: so it was made then.
  if (state == quiet::broken) return false;
  if (h->deferred != 0) *result = h->deferred;
  return true;
}

int lock_quiet_read(PSP* h) {
  cached_reads* c = h->cached;
  if (c->state == quiet::broken) return e_not_cached;
  c->due = c->leaves_ahead;
  int result = waitarbiter(h);
  if (result == e_ok) result = lockread(h, false);
  if (result == e_ok && !file_moved(h)) {
    c->state = quiet::no;
    return e_ok;
  }
  // What a lock failed for is told by the read that is made anew.
  c->state = quiet::broken;
  if (result == e_ok) unlockread(h);
  return e_not_cached;
}

int leave_quiet_read(PSP* h) {
  if (h->cached->state == quiet::broken) return e_not_cached;
  h->cached->state = quiet::no;
  return e_ok;
}

int read_from_cache(PSP* h, int leaves_ahead) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  if (leaves_ahead < 0) return e_bad_argument;
  if (const int ready = cache_ready(); ready != e_ok) return ready;
  const int most = static_cast<int>(cache_blocks()) - 1;
  if (leaves_ahead > most) leaves_ahead = most > 0 ? most : 0;
  if (h->cached != nullptr) {
    h->cached->leaves_ahead = leaves_ahead;
    return e_ok;
  }
  const void* page = os().map != nullptr ? os().map(h->file, page_size) : nullptr;
  if (page == nullptr) return e_io;
  auto* c = static_cast<cached_reads*>(os().allocate(sizeof(cached_reads)));
  if (c == nullptr) {
    os().unmap(page, page_size);
    return e_no_memory;
  }
  c->page = static_cast<const std::uint8_t*>(page);
  c->leaves_ahead = leaves_ahead;
  h->cached = c;
  return e_ok;
}

int read_under_locks(PSP* h) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  end_cached_reads(h);
  return e_ok;
}

void end_cached_reads(PSP* h) {
  cached_reads* c = h->cached;
  if (c == nullptr) return;
  h->cached = nullptr;
  os().unmap(c->page, page_size);
  if (c->journal != nullptr) os().unmap(c->journal, journal_size);
  os().release(c);
}

}  // namespace zvrdb::engine
