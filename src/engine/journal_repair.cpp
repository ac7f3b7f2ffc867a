// From the journal to the record file: applying, repair after a death, checkpoints.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "engine/journal.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/planted_fault.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

constexpr std::size_t behind_generation = header_at::generation + 4;

int write_flag(PSP* h, bool set) {
  std::uint8_t bytes[2] = {0, 0};
  if (set) store16(bytes, flag_set, h->order);
  return write_through(h, flag_offset, bytes, sizeof bytes);
}

// Nodes that a group takes for there: a power cut may have taken the file's growth.
int extend_file(PSP* h, std::uint32_t extent) {
  static const std::uint8_t zeros[64 * 1024] = {};
  if (planted(planted_fault::growth_not_restored)) return e_ok;
  const std::int64_t size = os().size(h->file);
  if (size < 0) return e_io;
  const std::uint64_t end = node_offset(static_cast<std::int32_t>(extent));
  for (auto at = static_cast<std::uint64_t>(size); at < end;) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(end - at, sizeof zeros));
    if (const int written = write_through(h, at, zeros, n); written != e_ok) return written;
    at += n;
  }
  return e_ok;
}

// States of the file that follow each other in the log: a header, with the generations that
// checkpoints without a change moved it through.
struct known_state {
  std::uint8_t header[header_size];
  std::uint32_t from, to;
};

bool same_but_for_generation(const std::uint8_t* header, const first_page& page) {
  return std::memcmp(header + behind_generation, page.bytes + behind_generation, header_size - behind_generation) == 0;
}

bool shows(const known_state& s, const first_page& page) {
  return same_but_for_generation(s.header, page) && page.generation >= s.from && page.generation <= s.to;
}

// The place behind the group whose state the header of the file shows: the first place for the
// base.  1 found, 0 none, or an error.
int find_state(journal_file* log, const first_page& page, group_place* out) {
  known_state state;
  std::memcpy(state.header, log->base, header_size);
  state.from = log->settled_generation;
  state.to = log->base_generation;
  group_place behind_state = first_place(log);
  bool found = false;
  for (group_place at = first_place(log); at.at < log->at.end;) {
    group_read g;
    const int read = read_group(log, at, &g);
    if (read < 0) return read;
    if (read == 0) break;
    if (g.header != nullptr) {
      if (shows(state, page)) {
        found = true;
        *out = behind_state;
      }
      std::memcpy(state.header, g.header, header_size);
      state.from = state.to = g.generation_after;
      behind_state = place_behind(at, g);
    }
    at = place_behind(at, g);
  }
  if (shows(state, page)) {
    found = true;
    *out = behind_state;
  }
  return found ? 1 : 0;
}

int apply_group(PSP* h, const group_read& g) {
  if (g.header == nullptr) return e_ok;
  int result = extend_file(h, g.extent);
  if (result == e_ok) result = write_through(h, 0, g.header, header_size);
  node_walk walk(g);
  for (node_change c; result == e_ok && next_node(&walk, &c);) {
    const std::uint64_t at = node_offset(c.number);
    // In the group the entries lie behind the head.
    const bool together = c.from == node_head_size;
    result = write_through(h, at, c.head, node_head_size + (together ? c.length : 0u));
    if (result == e_ok && !together) result = write_through(h, at + c.from, c.entries, c.length);
  }
  return result;
}

using group_step = int (*)(PSP* h, const group_read& g);

int for_groups(PSP* h, group_place at, group_step step) {
  journal_file* log = &h->journal->log;
  while (at.at < log->at.end) {
    group_read g;
    const int read = read_group(log, at, &g);
    if (read <= 0) return read == 0 ? static_cast<int>(e_io) : read;
    if (const int done = step(h, g); done != e_ok) return done;
    at = place_behind(at, g);
  }
  return e_ok;
}

// When the file shall show groups of a transaction that goes on, or whose owner died: nobody may
// take them back any more, even when a power cut leaves nodes of them in the file and no flag.
// `closed` tells that there were any.
int close_open_groups(PSP* h, const group_place& from, bool* closed) {
  journal_file* log = &h->journal->log;
  std::uint8_t header[header_size];
  bool open = false;
  *closed = false;
  for (group_place at = from; at.at < log->at.end;) {
    group_read g;
    const int read = read_group(log, at, &g);
    if (read <= 0) return read == 0 ? static_cast<int>(e_io) : read;
    if (g.header != nullptr) {
      open = g.open;
      std::memcpy(header, g.header, sizeof header);
    }
    at = place_behind(at, g);
  }
  if (!open || planted(planted_fault::open_groups_left_open)) return e_ok;
  store32(header + header_at::generation, log->at.generation, order_of_marker(header + header_at::marker));
  group_to_write none = {};
  none.header = header;
  none.generation_before = none.generation_after = log->at.generation;
  *closed = true;
  return append_group(log, none);
}

// A flush that failed may have taken bytes that only look written.
int write_groups_again(PSP* h, const group_place& at) {
  if (const int head = write_head_again(&h->journal->log); head != e_ok) return head;
  const int written =
      for_groups(h, at, [](PSP* handle, const group_read& g) { return write_group_again(&handle->journal->log, g); });
  return written != e_ok ? written : flush_journal(&h->journal->log);
}

}  // namespace

int write_through(PSP* h, std::uint64_t offset, const void* bytes, std::size_t n) {
  if (os().write_at(h->file, offset, bytes, n) == static_cast<std::int64_t>(n)) return e_ok;
  h->errdetail = e_write;
  return e_write;
}

namespace {
int first_page_of(int file, first_page* out) {
  const std::int64_t got = os().read_at(file, 0, out->bytes, sizeof out->bytes);
  if (got != static_cast<std::int64_t>(sizeof out->bytes)) return e_io;
  out->generation = load32(out->bytes + header_at::generation, order_of_marker(out->bytes + header_at::marker));
  const std::uint8_t* flag = out->bytes + flag_offset;
  out->flag = load_le16(flag) == flag_set || load_be16(flag) == flag_set;
  return e_ok;
}

// Whether changes that count lie behind the state that the page shows.  The answer may be out
// of date when it is given.
bool lacks_changes(journal_file* log, const first_page& page) {
  group_place at;
  if (find_state(log, page, &at) != 1) return false;
  if (page.flag) return true;
  for (group_read g; at.at < log->at.end; at = place_behind(at, g)) {
    if (read_group(log, at, &g) != 1) return false;
    if (g.header != nullptr && !g.open) return true;
  }
  return false;
}
}  // namespace

int note_that_it_ended(PSP* h) {
  journal_file* log = &h->journal->log;
  group_to_write none = {};
  none.generation_before = none.generation_after = log->at.generation;
  return append_group(log, none);
}

int read_first_page(PSP* h, first_page* out) { return first_page_of(h->file, out); }

journal_beside look_at_journal_beside(const char* path) {
  char name[4096];
  if (!journal_path(path, name, sizeof name)) return journal_beside::nothing;
  const int file = os().open(path, {false, false, false});
  if (file < 0) return journal_beside::nothing;
  journal_file log;
  log.identity = os().identity(file);
  log.file = os().open(name, {false, false, false});
  const bool closed = log.file < 0 && os().exists(name) == 1;
  first_page page;
  const bool known = log.file >= 0 && catch_up(&log, false) == e_ok && log.alive && log.at.any_change;
  const bool ahead = known && first_page_of(file, &page) == e_ok && lacks_changes(&log, page);
  close_journal(&log);
  os().close(file);
  return closed ? journal_beside::closed : ahead ? journal_beside::ahead : journal_beside::nothing;
}

// Operations without a change move the generation in the log alone: one that the file bears
// behind the last change is a checkpoint's that was cut short, or another program's.  It may be
// that of a change, when a power cut brought back what an opener had taken back.
bool in_step(const journal* j, const first_page& page) {
  return page.generation == j->log.at.changed_generation && same_but_for_generation(j->log.at.header, page);
}

bool others_alive(PSP* h) {
  return is_shared(h) && os().find_held(h->file, slot_bytes, slot_count) != none_held;
}

int repair_file(PSP* h, bool all) {
  journal* j = h->journal;
  if (const int sound = end_doubt(&j->log); sound != e_ok) return sound;
  first_page page;
  if (const int got = read_first_page(h, &page); got != e_ok) return got;
  if (!j->log.alive || !j->log.at.any_change) return page.flag ? not_explained : static_cast<int>(e_ok);
  group_place from;
  const int found = find_state(&j->log, page, &from);
  if (found < 0) return found;
  if (found == 0) return not_explained;
  forget_pages(&j->pages);
  purgefile(h);
  j->deferred = false;
  j->must_reload = true;
  // With the flag set all was flushed that was on its way to the file then; so was a change that
  // the file shows.  But a power cut may have lost no more than the clearing of the flag, and what
  // a transaction that ended nowhere appended later is still open.
  if (page.flag || !in_step(j, page)) {
    const group_place first = page.flag ? first_place(&j->log) : from;
    bool any_open = false;
    if (const int closed = close_open_groups(h, first, &any_open); closed != e_ok) return closed;
    if (!page.flag || any_open) {
      if (const int again = write_groups_again(h, first); again != e_ok) return again;
    }
  }
  if (!page.flag && in_step(j, page)) {
    if (const int noted = note_that_it_ended(h); noted != e_ok) return noted;
  }
  j->unflushed = false;
  const bool locks = is_shared(h) && h->locklevel != 3;
  if (locks) {
    if (const int locked = lockread(h, true); locked != e_ok) return locked;
  }
  int result = write_flag(h, true);
  // A death while pages went to the file: the header is written first, and what groups of a
  // transaction before it deferred may be missing.
  const bool any_may_miss = (all || page.flag) && !planted(planted_fault::repair_begins_late);
  if (result == e_ok) result = for_groups(h, any_may_miss ? first_place(&j->log) : from, apply_group);
  if (result == e_ok) result = write_flag(h, false);
  if (result == e_ok) {
    j->must_repair = false;
    j->disk_generation = j->log.at.changed_generation;
  }
  if (locks) result = leave_result(result, unlockread(h));
  return result;
}

int drop_unfinished(PSP* h) {
  journal* j = h->journal;
  if (const int settled = settle_promise(h); settled != e_ok) return settled;
  first_page page;
  if (const int got = read_first_page(h, &page); got != e_ok) return got;
  // With the flag set, all groups were on their way to the file: they were flushed.
  if (!j->log.alive || !j->log.at.any_change || page.flag) return e_ok;
  group_place at;
  const int found = find_state(&j->log, page, &at);
  if (found <= 0) return found;
  std::uint64_t keep = at.at;
  bool unfinished = false;
  for (group_read g; at.at < j->log.at.end; at = place_behind(at, g)) {
    const int read = read_group(&j->log, at, &g);
    if (read <= 0) return read == 0 ? static_cast<int>(e_io) : read;
    if (g.header != nullptr) unfinished = g.open;
    if (!unfinished) keep = place_behind(at, g).at;
  }
  if (!unfinished) return e_ok;
  // A flush of a promise behind them may have failed, and the head of a life that began without one
  // hang on it.  The groups that stay are written once more by who opens.
  if (const int head = write_head_again(&j->log); head != e_ok) return head;
  h->took_back = 1;
  return take_back_from(&j->log, keep);
}

namespace {
// Nodes that lie side by side go in one write.
int write_nodes(PSP* h) {
  static std::uint8_t together[64][page_size];
  pending_pages* p = &h->journal->pages;
  const std::uint32_t* order = order_of_nodes(p);
  const auto node_in = [&](std::uint32_t at) -> const pending_node& { return p->nodes[order[at]]; };
  for (std::uint32_t at = 0; at < p->count;) {
    const pending_node& first = node_in(at);
    std::uint32_t n = 1;
    while (n < std::size(together) && at + n < p->count &&
           node_in(at + n).number == first.number + static_cast<std::int32_t>(n))
      ++n;
    for (std::uint32_t i = 0; n > 1 && i < n; ++i) std::memcpy(together[i], node_in(at + i).bytes, page_size);
    at += n;
    if (planted(planted_fault::writes_swapped) && at == p->count) write_flag(h, false);
    const std::uint8_t* bytes = n > 1 ? together[0] : first.bytes;
    if (const int written = write_through(h, node_offset(first.number), bytes, n * page_size); written != e_ok)
      return written;
  }
  return e_ok;
}
}  // namespace

int apply_pages(PSP* h) {
  const pending_pages& p = h->journal->pages;
  int result = planted(planted_fault::flag_late) ? static_cast<int>(e_ok) : write_flag(h, true);
  // Before the nodes: a header that no journal knows tells that there are changes behind it.
  if (result == e_ok && p.has_header) result = write_through(h, 0, p.header, header_size);
  if (planted(planted_fault::flag_late)) result = write_flag(h, true);
  if (result == e_ok) result = write_nodes(h);
  return result == e_ok ? write_flag(h, false) : result;
}

namespace {
// Flushes the file; then it may bear `generation`, which needs no flush, since nothing else
// changes with it: the new life knows the file by the one and by the other.
int settle_and_begin(PSP* h, const first_page& page, std::uint32_t generation, life_before before) {
  journal* j = h->journal;
  if (const int settled = settle_partner(h); settled != e_ok) return settled;
  // Told before it fails: nobody may come to tell it afterwards.
  forget_mount(&j->log);
  if (!planted(planted_fault::checkpoint_before_flush) && os().flush(h->file) != 0) {
    j->pages_lost = true;
    return e_write;
  }
  j->pages_lost = false;
  std::uint8_t header[header_size];
  std::memcpy(header, page.bytes, sizeof header);
  if (generation != page.generation) {
    store32(header, generation, order_of_marker(header + header_at::marker));
    if (const int written = write_through(h, 0, header, sizeof(std::uint32_t)); written != e_ok) return written;
    j->disk_generation = generation;
  }
  return begin_life(&j->log, header, page.generation, generation, begun::flushed, before);
}
}  // namespace

int begin_anew(PSP* h) {
  first_page page;
  const int got = read_first_page(h, &page);
  if (got != e_ok) return got;
  const int begun = settle_and_begin(h, page, page.generation, life_before::unrelated);
  return begun == partner_busy ? static_cast<int>(e_io) : begun;
}

namespace {
// The generation alone, which needs no flush: nothing hangs on it.
int note_in_file(PSP* h, const first_page& page, std::uint32_t generation) {
  std::uint8_t bytes[sizeof generation];
  store32(bytes, generation, order_of_marker(page.bytes + header_at::marker));
  const int written = write_through(h, 0, bytes, sizeof bytes);
  if (written == e_ok) h->journal->disk_generation = generation;
  return written;
}
}  // namespace

int check_point(PSP* h) {
  journal* j = h->journal;
  // None of them holds a change, or they would have been flushed.
  if (write_gathered(&j->log) != e_ok) {
    j->log.lost = false;
    return e_write;
  }
  if (const int sound = end_doubt(&j->log); sound != e_ok) return sound;
  // The system tells of a flush that failed once; the next one of another handle would succeed.
  if (j->pages_lost || j->must_repair || was_mount_forgotten(&j->log)) {
    const int repaired = repair_file(h, true);
    if (repaired != e_ok) return repaired == not_explained ? static_cast<int>(e_io) : repaired;
  }
  first_page page;
  if (const int got = read_first_page(h, &page); got != e_ok) return got;
  // Operations that changed nothing moved the generation on in the log alone.
  const bool known = j->log.alive && in_step(j, page);
  const std::uint32_t generation = known ? j->log.at.generation : page.generation;
  if (j->log.at.any_change || j->log.at.end > checkpoint_at) {
    const int begun = settle_and_begin(h, page, generation, known ? life_before::leads_here : life_before::unrelated);
    // The journal stays as it is, and the file is not flushed: it will be at the next one.
    return begun == partner_busy ? static_cast<int>(e_ok) : begun;
  }
  if (generation != page.generation) {
    if (const int noted = note_in_file(h, page, generation); noted != e_ok) return noted;
  }
  // Groups without a change only cost who reads them.
  if (!known || j->log.at.last == 0) return e_ok;
  return begin_life(&j->log, j->log.base, j->log.settled_generation, generation, begun::unflushed,
                    life_before::leads_here);
}

}  // namespace zvrdb::engine
