#include "engine/journal_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "engine/crc32c.h"
#include "engine/engine.h"
#include "engine/journal_layout.h"
#include "engine/os_file.h"
#include "engine/planted_fault.h"

namespace zvrdb::engine {
namespace {

constexpr std::size_t buffer_kept = 1024 * 1024;
// Read at once: most often there are few groups, and short ones.  Then four times as much each time.
constexpr std::size_t first_window = 8 * 1024;
constexpr std::size_t longest_window = 64 * 1024;

// The head and what stands behind it in the next sector.
constexpr std::size_t head_and_state = journal_doubt_at + 8;
static_assert(journal_mount_at == journal_head_size && journal_doubt_at == journal_mount_at + 8);

// Of a group without the entries of its nodes.
std::uint64_t least_length(std::uint32_t nodes, std::uint32_t kind) {
  return group_head_size + (is_linked(kind) ? link_size : 0) + (kind != 0 ? header_size : 0) +
         std::uint64_t{nodes} * (list_at::size + node_head_size);
}
std::uint64_t most_length(std::uint32_t nodes, std::uint32_t kind) {
  return least_length(nodes, kind) + std::uint64_t{nodes} * (page_size - node_head_size);
}

bool make_room(journal_file* j, std::size_t n) {
  j->window_length = 0;
  if (j->capacity >= n) return true;
  os().release(j->buffer);
  j->capacity = 0;
  const std::size_t wanted = n <= first_window ? first_window : std::max(n, longest_window);
  j->buffer = static_cast<std::uint8_t*>(os().allocate(wanted));
  if (j->buffer == nullptr) return false;
  j->capacity = wanted;
  return true;
}

// The buffer of one giant group is not kept for ever.
void give_back_room(journal_file* j) {
  if (j->capacity <= buffer_kept) return;
  os().release(j->buffer);
  j->buffer = nullptr;
  j->capacity = 0;
  j->window_length = 0;
}

// The bytes of the journal from a place on, if the buffer holds as many as that; or null.
const std::uint8_t* in_window(const journal_file* j, std::uint64_t at, std::size_t n) {
  if (at < j->window_at || at - j->window_at > j->window_length) return nullptr;
  const auto from = static_cast<std::size_t>(at - j->window_at);
  return j->window_length - from >= n ? j->buffer + from : nullptr;
}

// What others may be writing meanwhile: who reads finds that by the checksums.
void copy_from_view(const std::uint8_t* from, std::uint8_t* to, std::size_t n) {
  while (n > 0) {
    const std::uint64_t word = __atomic_load_n(reinterpret_cast<const std::uint64_t*>(from), __ATOMIC_RELAXED);
    const std::size_t some = std::min(n, sizeof word);
    std::memcpy(to, &word, some);
    from += sizeof word;
    to += some;
    n -= some;
  }
}

bool is_in_view(const journal_file* j, std::uint64_t at, std::size_t n) {
  static_assert(journal_size % sizeof(std::uint64_t) == 0);
  return j->view != nullptr && at <= journal_size && n <= journal_size - at;
}

// Up to n bytes from a place on, which is a multiple of 8.  Their number, negative on failure.
std::int64_t read_bytes(const journal_file* j, std::uint64_t at, std::uint8_t* to, std::size_t n) {
  if (!is_in_view(j, at, n)) return os().read_at(j->file, at, to, n);
  copy_from_view(j->view + at, to, n);
  return static_cast<std::int64_t>(n);
}

// Reads up to n bytes from a place on into the buffer.  0, e_no_memory, e_io.
int fill_window(journal_file* j, std::uint64_t at, std::size_t n) {
  if (!make_room(j, n)) return e_no_memory;
  const std::int64_t got = read_bytes(j, at, j->buffer, n);
  if (got < 0) return e_io;
  j->window_at = at;
  j->window_length = static_cast<std::size_t>(got);
  return e_ok;
}

// CRC of a group, its own field taken as zero.
std::uint32_t group_crc(const std::uint8_t* bytes, std::size_t length) {
  static constexpr std::uint8_t zero[4] = {};
  std::uint32_t crc = crc32c(0, bytes, group_at::crc);
  crc = crc32c(crc, zero, sizeof zero);
  return crc32c(crc, bytes + group_head_size, length - group_head_size);
}

void store_link(std::uint8_t* to, const group_link& link) {
  store_le64(to + link_at::number, link.number);
  store_le64(to + link_at::salt, link.salt);
  std::memcpy(to + link_at::name, link.name, sizeof link.name);
}

// False when the name is none of a file in the same folder.
bool load_link(const std::uint8_t* from, group_link* out) {
  out->there = true;
  out->number = load_le64(from + link_at::number);
  out->salt = load_le64(from + link_at::salt);
  std::memcpy(out->name, from + link_at::name, sizeof out->name);
  const void* end = std::memchr(out->name, 0, sizeof out->name);
  return end != nullptr && out->name[0] != 0 && std::strchr(out->name, '/') == nullptr;
}

void note_doubt(journal_file* j, bool there) {
  std::uint8_t bytes[8];
  store_le64(bytes, there ? 1 : 0);
  const bool told = os().write_at(j->file, journal_doubt_at, bytes, sizeof bytes) == static_cast<std::int64_t>(sizeof bytes);
  j->doubt = there;
  j->doubt_untold = there && !told;
}

void start_of_life(journal_file* j) {
  j->at = log_mark{};
  j->at.changed_generation = j->base_generation;
  std::memcpy(j->at.header, j->base, header_size);
  j->at.generation = j->base_generation;
  j->at.chain = j->head_crc;
  j->unsure = false;
}

bool is_sound(const journal_file* j, const std::uint8_t (&head)[journal_head_size]) {
  return std::memcmp(head, head_magic, sizeof head_magic - 1) == 0 &&
         load_le32(head + head_at::crc) == crc32c(0, head, head_at::crc) &&
         (load_le64(head + head_at::identity) == j->identity || planted(planted_fault::identity_ignored));
}

void take_head(journal_file* j, const std::uint8_t (&head)[journal_head_size]) {
  j->alive = is_sound(j, head);
  j->salt = load_le64(head + head_at::salt);
  std::memcpy(j->base, head + head_at::header, header_size);
  j->base_generation = load_le32(head + head_at::generation);
  j->settled_generation = load_le32(head + head_at::settled);
  j->head_crc = load_le32(head + head_at::crc);
  start_of_life(j);
}

void step_over(journal_file* j, const group_read& g) {
  log_mark& at = j->at;
  if (g.promise.there) j->before = at;
  at.last = at.end;
  at.end += to_sectors(g.length);
  ++at.sequence;
  at.chain = g.crc;
  at.generation = g.generation_after;
  at.promise = g.promise;
  if (g.decision.there) at.decision = g.decision;
  if (g.header == nullptr) return;
  at.any_change = true;
  at.changed_generation = g.generation_after;
  std::memcpy(at.header, g.header, header_size);
  at.behind_change = at.end;
}

// No group begins behind the last one known.
bool cut_off(const journal_file* j, std::uint64_t end) {
  static constexpr std::uint8_t zeros[journal_sector] = {};
  return os().write_at(j->file, end, zeros, sizeof zeros) == static_cast<std::int64_t>(sizeof zeros);
}

void end_journal_at(journal_file* j, const log_mark& mark) {
  const log_mark back = mark;   // it may be one of the journal's own
  cut_off(j, back.end);
  j->at = back;
  j->unsure = false;
}

// Whether the head of a group says what can be: bytes that are none of this life's end it.
bool head_is_good(const journal_file* j, const std::uint8_t* head, const group_place& place) {
  if (std::memcmp(head, group_magic, 4) != 0) return false;
  if (load_le64(head + group_at::salt) != j->salt || load_le64(head + group_at::sequence) != place.sequence) return false;
  if (load_le32(head + group_at::chain) != place.chain && !planted(planted_fault::chain_ignored)) return false;
  const std::uint32_t kind = load_le32(head + group_at::kind);
  const std::uint32_t nodes = load_le32(head + group_at::nodes);
  if (kind > kind_decision || nodes > static_cast<std::uint32_t>(max_node) + 1 || (kind == 0 && nodes != 0)) return false;
  if (load_le32(head + group_at::extent) > static_cast<std::uint32_t>(max_node) + 1) return false;
  const std::uint64_t length = load_le32(head + group_at::length);
  return length >= least_length(nodes, kind) && length <= most_length(nodes, kind);
}

// Whether the list names nodes that there are, and their bytes fill the group.
bool list_is_good(const group_read& g) {
  const std::uint8_t* end = g.bytes + g.length;
  node_walk walk(g);
  while (walk.left > 0) {
    const std::size_t from = load_le16(walk.list + list_at::from);
    const std::size_t length = load_le16(walk.list + list_at::length);
    if (from < node_head_size || from + length > page_size) return false;
    if (static_cast<std::size_t>(end - walk.bytes) < node_head_size + length) return false;
    node_change c;
    next_node(&walk, &c);
    if (c.number < 0 || c.number > max_node || static_cast<std::uint32_t>(c.number) >= g.extent) return false;
  }
  return walk.bytes == end;
}

}  // namespace

bool next_node(node_walk* w, node_change* out) {
  if (w->left == 0) return false;
  out->number = load32s(w->list + list_at::number, byte_order::little);
  out->from = load_le16(w->list + list_at::from);
  out->length = load_le16(w->list + list_at::length);
  out->head = w->bytes;
  out->entries = w->bytes + node_head_size;
  w->list += list_at::size;
  w->bytes += node_head_size + out->length;
  --w->left;
  return true;
}

bool journal_path(const char* record_path, char* out, std::size_t room) {
  const int n = std::snprintf(out, room, "%s.jnl", record_path);
  return n > 0 && static_cast<std::size_t>(n) < room;
}

int make_journal(journal_file* j, const char* path) {
  static const std::uint8_t zeros[64 * 1024] = {};
  static_assert(journal_size % sizeof zeros == 0);
  const int file = os().create(path);
  if (file < 0) return e_write;
  // Written and not only promised: a commit then moves no bookkeeping of the file system.
  bool good = true;
  for (std::uint64_t at = 0; good && at < journal_size; at += sizeof zeros)
    good = os().write_at(file, at, zeros, sizeof zeros) == static_cast<std::int64_t>(sizeof zeros);
  good = good && os().flush(file) == 0 && os().put_in_place(file, path) == 0;
  if (!good) {
    os().discard(file, path);
    return e_write;
  }
  j->file = file;
  j->alive = false;
  return e_ok;
}

int open_journal(journal_file* j, const char* path) {
  j->file = os().open(path, {true, false, false});
  if (j->file < 0) return e_not_found;
  j->alive = false;
  return e_ok;
}

void close_journal(journal_file* j) {
  if (j->file >= 0) os().close(j->file);
  j->file = -1;
  j->alive = false;
  os().release(j->buffer);
  os().release(j->gathered);
  j->buffer = j->gathered = nullptr;
  j->capacity = j->gathered_length = 0;
  j->window_length = 0;
}

int begin_life(journal_file* j, const std::uint8_t (&header)[header_size], std::uint32_t settled,
               std::uint32_t generation, begun how, life_before before) {
  std::uint8_t head[journal_head_size] = {};
  std::memcpy(head + head_at::magic, head_magic, sizeof head_magic - 1);
  store_le64(head + head_at::salt, os().random());
  store_le64(head + head_at::identity, j->identity);
  store_le32(head + head_at::generation, generation);
  store_le32(head + head_at::settled, settled);
  std::memcpy(head + head_at::header, header, header_size);
  if (before == life_before::leads_here) {
    store_le64(head + head_at::before_salt, j->salt);
    store_le64(head + head_at::before_sequence, j->at.sequence);
    store_le32(head + head_at::before_chain, j->at.chain);
  }
  store_le32(head + head_at::crc, crc32c(0, head, head_at::crc));
  j->alive = false;
  std::uint8_t begin[head_and_state];
  std::memcpy(begin, head, sizeof head);
  store_le64(begin + journal_mount_at, os().mount(j->file));
  // Whoever dies before he can tell that the flush failed has told it.
  store_le64(begin + journal_doubt_at, how == begun::flushed ? 1 : 0);
  if (os().write_at(j->file, 0, begin, sizeof begin) != static_cast<std::int64_t>(sizeof begin)) return e_write;
  if (how == begun::flushed) {
    if (const int flushed = flush_journal(j); flushed != e_ok) return flushed;
    note_doubt(j, false);
  }
  j->doubt = j->doubt_untold = false;
  take_head(j, head);
  // The groups of a giant transaction count no more, and whether they go is no matter.
  if (how == begun::flushed && os().size(j->file) > static_cast<std::int64_t>(journal_kept))
    os().cut(j->file, journal_size);
  return e_ok;
}

namespace {
// Of the life; 0 unknown, or forgotten.
std::uint64_t mount_of_life(const journal_file* j) {
  std::uint8_t bytes[sizeof(std::uint64_t)];
  const std::int64_t got = os().read_at(j->file, journal_mount_at, bytes, sizeof bytes);
  return got == static_cast<std::int64_t>(sizeof bytes) ? load_le64(bytes) : 0;
}
}  // namespace

bool still_mounted(const journal_file* j) {
  const std::uint64_t then = mount_of_life(j);
  return then != 0 && then == os().mount(j->file);
}

bool was_mount_forgotten(const journal_file* j) { return mount_of_life(j) == 0 && os().mount(j->file) != 0; }

void forget_mount(const journal_file* j) {
  static constexpr std::uint8_t zeros[sizeof(std::uint64_t)] = {};
  os().write_at(j->file, journal_mount_at, zeros, sizeof zeros);
}

namespace {
// Whether the last group known was taken back meanwhile.  1 it was, 0 not, e_io.
int was_taken_back(journal_file* j) {
  if (!j->unsure || j->at.last == 0) return 0;
  std::uint8_t head[group_head_size];
  const std::int64_t got = os().read_at(j->file, j->at.last, head, sizeof head);
  if (got < 0) return e_io;
  return got != static_cast<std::int64_t>(sizeof head) || std::memcmp(head, group_magic, 4) != 0 ||
         load_le32(head + group_at::crc) != j->at.chain;
}
}  // namespace

namespace {
// The next group, made known.  1, 0 there is none, or an error.
int take_next_group(journal_file* j, const journal_watcher& watcher, group_read* g) {
  const int found = read_group(j, {j->at.end, j->at.sequence, j->at.chain}, g);
  if (found <= 0) return found;
  watcher.group(watcher.context, *g);
  step_over(j, *g);
  return 1;
}
}  // namespace

int catch_up_to(journal_file* j, std::uint32_t generation, const journal_watcher& watcher) {
  const log_mark before = j->at;
  const log_mark before_promise = j->before;
  j->window_length = 0;
  int found = 1;
  group_read g;
  while (found == 1 && j->at.changed_generation != generation)
    found = take_next_group(j, watcher, &g);
  if (found != 1) {
    j->at = before;
    j->before = before_promise;
  }
  return found;
}

namespace {
// With what is told behind it.  1; 0 the file is too short, e_io.
int read_head(journal_file* j, std::uint8_t (*head)[journal_head_size]) {
  std::uint8_t bytes[head_and_state] = {};
  const std::int64_t got = read_bytes(j, 0, bytes, sizeof bytes);
  if (got < 0) return e_io;
  if (got < static_cast<std::int64_t>(journal_head_size)) return 0;
  std::memcpy(*head, bytes, sizeof *head);
  j->doubt = j->doubt_untold || load_le64(bytes + journal_doubt_at) != 0;
  return 1;
}

// Reads the rest of a life that ended, to the end that the head of the next one tells of.  Its
// chain leads there by what counted alone: not by a group that was taken back, nor by one that
// is overwritten by now.
bool read_to_its_end(journal_file* j, const std::uint8_t (&next)[journal_head_size], const journal_watcher& watcher) {
  const std::uint64_t end = load_le64(next + head_at::before_sequence);
  if (end == 0 || load_le64(next + head_at::before_salt) != j->salt) return false;
  j->window_length = 0;
  group_read g;
  while (j->at.sequence < end)
    if (take_next_group(j, watcher, &g) != 1) return false;
  return j->at.sequence == end && j->at.chain == load_le32(next + head_at::before_chain);
}

void go_into_life(journal_file* j, const std::uint8_t (&head)[journal_head_size], const journal_watcher& watcher) {
  const bool passed_on = j->alive && is_sound(j, head) && read_to_its_end(j, head, watcher);
  take_head(j, head);
  watcher.new_life(watcher.context, *j, passed_on);
}
}  // namespace

int look_at_life(journal_file* j, const journal_watcher& watcher) {
  std::uint8_t head[journal_head_size];
  const int got = read_head(j, &head);
  if (got < 0) return got;
  if (got == 0) {
    j->alive = false;
    return e_ok;
  }
  if (!j->alive || load_le64(head + head_at::salt) != j->salt) go_into_life(j, head, watcher);
  return e_ok;
}

bool look_at_life_quietly(journal_file* j, const journal_watcher& watcher) {
  std::uint8_t head[journal_head_size];
  const bool doubt = j->doubt;
  const int got = read_head(j, &head);
  j->doubt = doubt;   // looked at by who works on it
  if (got != 1 || !is_sound(j, head)) return false;
  if (!j->alive || load_le64(head + head_at::salt) != j->salt) go_into_life(j, head, watcher);
  return true;
}

int catch_up(journal_file* j, bool arbiter_held, const journal_watcher& watcher) {
  if (const int looked = look_at_life(j, watcher); looked != e_ok) return looked;
  if (!j->alive) return e_ok;
  const int taken_back = was_taken_back(j);
  if (taken_back < 0) return taken_back;
  if (taken_back != 0) {
    start_of_life(j);
    watcher.taken_back(watcher.context);
  }
  if (arbiter_held) j->unsure = j->at.promise.there;
  j->window_length = 0;
  for (;;) {
    group_read g;
    const int found = take_next_group(j, watcher, &g);
    if (found <= 0) return found;
    // What has a group behind it is there to stay, and so is what changes nothing.
    j->unsure = g.header != nullptr && (!arbiter_held || g.promise.there);
  }
}

std::uint64_t group_room(std::uint32_t nodes, bool change) {
  return to_sectors(most_length(nodes, change ? kind_decision : 0));
}

namespace {
std::uint32_t kind_of(const group_to_write& g) {
  if (g.header == nullptr) return 0;
  return g.promise != nullptr ? kind_promise : g.decision != nullptr ? kind_decision : kind_change;
}

// The bytes behind the head of a group.
void fill_content(std::uint8_t* at, const group_to_write& g) {
  if (const group_link* link = g.promise != nullptr ? g.promise : g.decision; link != nullptr) {
    store_link(at, *link);
    at += link_size;
  }
  std::memcpy(at, g.header, header_size);
  std::uint8_t* list = at + header_size;
  std::uint8_t* bytes = list + std::size_t{g.nodes} * list_at::size;
  for (std::uint32_t i = 0; i < g.nodes; ++i) {
    const node_change c = g.node_at(g.context, i);
    store32s(list + list_at::number, c.number, byte_order::little);
    store16(list + list_at::from, c.from, byte_order::little);
    store16(list + list_at::length, c.length, byte_order::little);
    std::memcpy(bytes, c.head, node_head_size);
    std::memcpy(bytes + node_head_size, c.entries, c.length);
    list += list_at::size;
    bytes += node_head_size + c.length;
  }
}

std::uint64_t length_of(const group_to_write& g, std::uint32_t kind) {
  std::uint64_t length = least_length(g.nodes, kind);
  for (std::uint32_t i = 0; i < g.nodes; ++i) length += g.node_at(g.context, i).length;
  return length;
}
}  // namespace

namespace {
// A number that no other group bears: the system is asked once, and a sequence that visits
// every value goes on from there.
std::uint64_t next_random(journal_file* j) {
  if (!j->seeded) j->random = os().random();
  j->seeded = true;
  j->random += 0x9E3779B97F4A7C15u;
  std::uint64_t v = j->random;
  v = (v ^ (v >> 30)) * 0xBF58476D1CE4E5B9u;
  v = (v ^ (v >> 27)) * 0x94D049BB133111EBu;
  return v ^ (v >> 31);
}
}  // namespace

namespace {
// Puts a group behind those that wait in memory.  False when it shall not, or has no room.
bool gather(journal_file* j, const std::uint8_t* group, std::size_t n) {
  if (!j->gathers || planted(planted_fault::group_cut) || n > gathered_room - j->gathered_length) return false;
  if (j->gathered == nullptr) j->gathered = static_cast<std::uint8_t*>(os().allocate(gathered_room));
  if (j->gathered == nullptr) return false;
  if (j->gathered_length == 0) j->gathered_from = j->at;
  std::memcpy(j->gathered + j->gathered_length, group, n);
  j->gathered_length += n;
  return true;
}

int put_gathered(journal_file* j) {
  const auto n = static_cast<std::int64_t>(j->gathered_length);
  if (n == 0) return e_ok;
  j->gathered_length = 0;
  if (os().write_at(j->file, j->gathered_from.end, j->gathered, static_cast<std::size_t>(n)) == n) return e_ok;
  // Who has read some of them finds the last one it knows gone.
  std::memset(j->gathered, 0, static_cast<std::size_t>(n));
  os().write_at(j->file, j->gathered_from.end, j->gathered, static_cast<std::size_t>(n));
  end_journal_at(j, j->gathered_from);
  j->lost = true;
  return e_write;
}
}  // namespace

void gather_groups(journal_file* j) { j->gathers = true; }

int write_gathered(journal_file* j) {
  j->gathers = false;
  return put_gathered(j);
}

int append_group(journal_file* j, const group_to_write& g) {
  const std::uint32_t kind = kind_of(g);
  const std::uint64_t length = length_of(g, kind);
  const std::uint64_t padded = to_sectors(length);
  if (length > 0xFFFFFFFFu) return e_write;
  if (!make_room(j, padded)) return e_no_memory;
  std::uint8_t* at = j->buffer;
  std::memset(at, 0, group_head_size);
  std::memcpy(at + group_at::magic, group_magic, 4);
  store_le32(at + group_at::length, static_cast<std::uint32_t>(length));
  store_le64(at + group_at::salt, j->salt);
  store_le64(at + group_at::sequence, j->at.sequence);
  store_le32(at + group_at::before, g.generation_before);
  store_le32(at + group_at::after, g.generation_after);
  store_le32(at + group_at::extent, g.extent);
  store_le32(at + group_at::nodes, g.nodes);
  store_le32(at + group_at::kind, kind);
  store_le32(at + group_at::chain, j->at.chain);
  store_le64(at + group_at::random, next_random(j));
  store_le32(at + group_at::open, static_cast<std::uint32_t>(g.open));
  if (kind != 0) fill_content(at + group_head_size, g);
  std::memset(at + length, 0, padded - length);
  group_read written = {};
  written.length = length;
  written.crc = group_crc(at, length);
  written.generation_after = g.generation_after;
  written.header = g.header;
  if (g.promise != nullptr) written.promise = *g.promise;
  if (g.decision != nullptr) written.decision = *g.decision;
  store_le32(at + group_at::crc, written.crc);
  const std::uint64_t kept = padded - (planted(planted_fault::group_cut) ? journal_sector : 0);
  const bool good = gather(j, at, padded) ||
                    (put_gathered(j) == e_ok &&
                     os().write_at(j->file, j->at.end, at, kept) == static_cast<std::int64_t>(kept));
  give_back_room(j);
  if (!good) return e_write;
  step_over(j, written);
  j->unsure = false;
  return e_ok;
}

void take_back_group(journal_file* j, const log_mark& before) {
  if (j->at.sequence < before.sequence) return;
  end_journal_at(j, before);
}

int take_back_from(journal_file* j, std::uint64_t place) {
  start_of_life(j);
  j->window_length = 0;
  while (j->at.end < place) {
    group_read g;
    const int found = read_group(j, {j->at.end, j->at.sequence, j->at.chain}, &g);
    if (found <= 0) return found == 0 ? static_cast<int>(e_io) : found;
    step_over(j, g);
  }
  // Should that fail, the next one to read would find them again.
  if (!j->at.promise.there) return cut_off(j, j->at.end) ? static_cast<int>(e_ok) : static_cast<int>(e_write);
  // A promise that something stood behind counts, and the deciding journal may have relied on that.
  group_to_write behind = {};
  behind.generation_before = behind.generation_after = j->at.generation;
  // On the disk before anything else is written over what stood there.
  const int told = append_group(j, behind);
  return told == e_ok ? flush_journal(j) : told;
}

int refuse_group(journal_file* j, const log_mark& before) {
  take_back_group(j, before);
  return end_doubt(j);
}

int end_doubt(journal_file* j) {
  // Without a life there is nothing to be sure of: one begins with the next change.
  if (!j->doubt || !j->alive) return e_ok;
  if (const int written = write_head_again(j); written != e_ok) return written;
  group_place place = first_place(j);
  while (place.at < j->at.end) {
    group_read g;
    const int found = read_group(j, place, &g);
    if (found <= 0) return found == 0 ? static_cast<int>(e_io) : found;
    if (const int written = write_group_again(j, g); written != e_ok) return written;
    place = place_behind(place, g);
  }
  const std::int64_t size = os().size(j->file);
  if (size < 0) return e_io;
  // What was refused may still stand there on the disk.
  static constexpr std::uint8_t zeros[journal_sector] = {};
  const bool room = place.at + sizeof zeros <= static_cast<std::uint64_t>(size);
  if (room && os().write_at(j->file, place.at, zeros, sizeof zeros) != static_cast<std::int64_t>(sizeof zeros))
    return e_write;
  if (const int flushed = flush_journal(j); flushed != e_ok) return flushed;
  note_doubt(j, false);
  return e_ok;
}

int flush_journal(journal_file* j) {
  if (const int put = put_gathered(j); put != e_ok) return put;
  if (os().flush(j->file) == 0) return e_ok;
  if (!planted(planted_fault::doubt_forgotten)) note_doubt(j, true);
  return e_write;
}

group_place first_place(journal_file* j) {
  j->window_length = 0;
  return {journal_groups, 1, j->head_crc};
}

group_place place_behind(const group_place& p, const group_read& g) {
  return {p.at + to_sectors(g.length), p.sequence + 1, g.crc};
}

namespace {
// The whole group at a place in the buffer, or null when there is none.  0, e_no_memory, e_io.
int find_bytes(journal_file* j, const group_place& place, const std::uint8_t** out) {
  *out = nullptr;
  const std::uint8_t* at = in_window(j, place.at, group_head_size);
  if (at == nullptr) {
    std::size_t window = std::min(4 * j->window_length, longest_window);
    const bool in_view = j->view != nullptr;   // nothing is won by reading ahead
    if (window == 0 || in_view) {
      // Most often nothing has been appended: that costs one short read.
      std::uint8_t head[group_head_size];
      const std::int64_t got = read_bytes(j, place.at, head, sizeof head);
      if (got < 0) return e_io;
      if (got != static_cast<std::int64_t>(sizeof head) || !head_is_good(j, head, place)) return e_ok;
      const std::size_t length = load_le32(head + group_at::length);
      window = in_view ? std::min(length, longest_window) : std::clamp(length, first_window, longest_window);
    }
    if (const int filled = fill_window(j, place.at, window); filled != e_ok) return filled;
    at = in_window(j, place.at, group_head_size);
  }
  if (at == nullptr || !head_is_good(j, at, place)) return e_ok;
  const std::size_t length = load_le32(at + group_at::length);
  if (in_window(j, place.at, length) == nullptr) {
    std::size_t wanted = length;
    if (!is_in_view(j, place.at, length)) {
      const std::int64_t size = os().size(j->file);
      if (size < 0) return e_io;
      const auto bytes = static_cast<std::uint64_t>(size);
      if (place.at >= bytes || length > bytes - place.at) return e_ok;
      wanted = std::max(length, longest_window);
    }
    if (const int filled = fill_window(j, place.at, wanted); filled != e_ok) return filled;
    at = in_window(j, place.at, length);
    // What was read now may not be what the head was read from: another one may be writing.
    if (at == nullptr || !head_is_good(j, at, place) || load_le32(at + group_at::length) != length) return e_ok;
  }
  if (load_le32(at + group_at::crc) == group_crc(at, length) || planted(planted_fault::crc_ignored)) *out = at;
  return e_ok;
}
}  // namespace

int read_group(journal_file* j, const group_place& place, group_read* out) {
  const std::uint8_t* at = nullptr;
  if (const int found = find_bytes(j, place, &at); found != e_ok) return found;
  if (at == nullptr) return 0;
  const std::size_t length = load_le32(at + group_at::length);
  out->bytes = at;
  out->open = load_le32(at + group_at::open) != 0;
  const std::uint32_t kind = load_le32(at + group_at::kind);
  const bool change = kind != 0;
  out->promise = out->decision = group_link{};
  const std::uint8_t* content = at + group_head_size;
  if (is_linked(kind)) {
    if (!load_link(content, kind == kind_promise ? &out->promise : &out->decision)) return 0;
    content += link_size;
  }
  out->place = place.at;
  out->crc = load_le32(at + group_at::crc);
  out->length = length;
  out->generation_before = load_le32(at + group_at::before);
  out->generation_after = load_le32(at + group_at::after);
  out->extent = load_le32(at + group_at::extent);
  out->nodes = load_le32(at + group_at::nodes);
  out->header = change ? content : nullptr;
  out->list = content + (change ? header_size : 0);
  out->contents = out->list + std::size_t{out->nodes} * list_at::size;
  return list_is_good(*out) ? 1 : 0;
}

int write_head_again(journal_file* j) {
  std::uint8_t head[journal_head_size];
  if (os().read_at(j->file, 0, head, sizeof head) != static_cast<std::int64_t>(sizeof head)) return e_io;
  return os().write_at(j->file, 0, head, sizeof head) == static_cast<std::int64_t>(sizeof head) ? e_ok : e_write;
}

int write_group_again(journal_file* j, const group_read& g) {
  const bool written = os().write_at(j->file, g.place, g.bytes, g.length) == static_cast<std::int64_t>(g.length);
  return written ? e_ok : e_write;
}

namespace {
int write_groups_without_change_again(journal_file* j, const log_mark& mark) {
  for (std::uint64_t at = mark.behind_change; at < mark.end;) {
    const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(mark.end - at, longest_window));
    if (const int filled = fill_window(j, at, n); filled != e_ok) return filled;
    const std::size_t there = j->window_length;   // the zeros behind the last group may be missing
    if (os().write_at(j->file, at, j->buffer, there) != static_cast<std::int64_t>(there)) return e_write;
    if (there < n) break;
    at += n;
  }
  return e_ok;
}
}  // namespace

int write_last_groups_again(journal_file* j) { return write_groups_without_change_again(j, j->at); }

int write_again_before(journal_file* j, const log_mark& mark) {
  // A life may have begun without a flush.
  if (!mark.any_change) {
    if (const int head = write_head_again(j); head != e_ok) return head;
  }
  return write_groups_without_change_again(j, mark);
}

int write_again_from_promise(journal_file* j, std::uint64_t number) {
  bool met = false;
  group_read g;
  for (group_place place = first_place(j); place.at < j->at.end; place = place_behind(place, g)) {
    const int found = read_group(j, place, &g);
    if (found <= 0) return found == 0 ? static_cast<int>(e_io) : found;
    met = met || (g.promise.there && g.promise.number == number);
    if (!met) continue;
    if (const int written = write_group_again(j, g); written != e_ok) return written;
  }
  return e_ok;
}

namespace {
// In a journal of another record file.
int end_doubt_there(journal_file* j) {
  j->window_length = 0;
  int found = 1;
  for (group_read g; found == 1;) found = take_next_group(j, nobody_watches, &g);
  return found < 0 ? found : end_doubt(j);
}
}  // namespace

int find_decision(journal_file* j, const group_link& promise, bool alone) {
  std::uint8_t head[journal_head_size];
  if (const int got = read_head(j, &head); got <= 0) return got;
  j->identity = load_le64(head + head_at::identity);
  take_head(j, head);
  if (!j->alive || j->salt != promise.salt) return 0;
  // One that was refused may be on the disk although nobody sees it.
  if (j->doubt) {
    if (!alone) return e_byte_lock;
    if (const int ended = end_doubt_there(j); ended != e_ok) return ended;
  }
  // A flush that failed may have taken what only looks written.
  if (alone) {
    if (const int again = write_head_again(j); again != e_ok) return again;
  }
  for (group_place place = first_place(j);;) {
    group_read g;
    const int found = read_group(j, place, &g);
    if (found <= 0) return found;
    const int again = alone ? write_group_again(j, g) : static_cast<int>(e_ok);
    if (again != e_ok) return again;
    if (g.decision.there && g.decision.number == promise.number) break;
    place = place_behind(place, g);
  }
  const int flushed = flush_journal(j);
  return flushed == e_ok ? 1 : flushed;
}

}  // namespace zvrdb::engine
