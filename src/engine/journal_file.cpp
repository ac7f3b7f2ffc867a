#include "engine/journal_file.h"

#include <cstdio>
#include <cstring>

#include "engine/crc32c.h"
#include "engine/engine.h"
#include "engine/os_file.h"
#include "engine/planted_fault.h"

namespace zvrdb::engine {
namespace {

namespace head_at {
constexpr std::size_t magic = 0;
constexpr std::size_t salt = 8;
constexpr std::size_t identity = 16;
constexpr std::size_t generation = 24;
constexpr std::size_t settled = 28;
constexpr std::size_t header = 32;
constexpr std::size_t crc = 508;
}  // namespace head_at

namespace group_at {
constexpr std::size_t magic = 0;
constexpr std::size_t length = 4;
constexpr std::size_t salt = 8;
constexpr std::size_t sequence = 16;
constexpr std::size_t before = 24;
constexpr std::size_t after = 28;
constexpr std::size_t extent = 32;
constexpr std::size_t nodes = 36;
constexpr std::size_t kind = 40;
constexpr std::size_t chain = 44;
constexpr std::size_t random = 48;
constexpr std::size_t crc = 60;
}  // namespace group_at
static_assert(head_at::header + header_size <= head_at::crc && head_at::crc + 4 == journal_head_size);
static_assert(group_at::crc + 4 == group_head_size);

constexpr char head_magic[] = "ZVRJRNL1";
constexpr char group_magic[] = "ZVRG";
constexpr std::uint32_t kind_change = 1;
constexpr std::size_t buffer_kept = 1024 * 1024;

std::uint64_t load_le64(const std::uint8_t* p) { return load<std::uint64_t>(p, byte_order::little); }
void store_le64(std::uint8_t* p, std::uint64_t v) { store(p, v, byte_order::little); }

std::uint64_t length_of(std::uint32_t nodes, bool change) {
  return group_head_size + (change ? header_size : 0) + std::uint64_t{nodes} * (4 + page_size);
}

std::uint64_t to_sectors(std::uint64_t n) { return (n + journal_sector - 1) / journal_sector * journal_sector; }

bool make_room(journal_file* j, std::size_t n) {
  if (j->capacity >= n) return true;
  os().release(j->buffer);
  j->capacity = 0;
  const std::size_t wanted = n < 64 * 1024 ? 64 * 1024 : n;
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
}

// CRC of a group, its own field taken as zero.
std::uint32_t group_crc(const std::uint8_t* bytes, std::size_t length) {
  static constexpr std::uint8_t zero[4] = {};
  std::uint32_t crc = crc32c(0, bytes, group_at::crc);
  crc = crc32c(crc, zero, sizeof zero);
  return crc32c(crc, bytes + group_head_size, length - group_head_size);
}

void start_of_life(journal_file* j) {
  j->end = journal_groups;
  j->sequence = 1;
  j->any_change = false;
  j->changed_generation = j->settled_generation;
  j->generation = j->base_generation;
  j->chain = j->head_crc;
}

void take_head(journal_file* j, const std::uint8_t (&head)[journal_head_size]) {
  j->alive = std::memcmp(head, head_magic, sizeof head_magic - 1) == 0 &&
             load_le32(head + head_at::crc) == crc32c(0, head, head_at::crc) &&
             (load_le64(head + head_at::identity) == j->identity || planted(fault::identity_ignored));
  j->salt = load_le64(head + head_at::salt);
  std::memcpy(j->base, head + head_at::header, header_size);
  j->base_generation = load_le32(head + head_at::generation);
  j->settled_generation = load_le32(head + head_at::settled);
  j->head_crc = load_le32(head + head_at::crc);
  start_of_life(j);
}

void step_over(journal_file* j, std::uint64_t length, std::uint32_t crc, std::uint32_t generation, bool change) {
  j->end += to_sectors(length);
  ++j->sequence;
  j->chain = crc;
  j->generation = generation;
  if (!change) return;
  j->any_change = true;
  j->changed_generation = generation;
}

// Whether the head of a group says what can be: bytes that are none of this life's end it.
bool head_is_good(const journal_file* j, const std::uint8_t* head, const group_place& place, std::uint64_t room) {
  if (std::memcmp(head, group_magic, 4) != 0) return false;
  if (load_le64(head + group_at::salt) != j->salt || load_le64(head + group_at::sequence) != place.sequence) return false;
  if (load_le32(head + group_at::chain) != place.chain && !planted(fault::chain_ignored)) return false;
  const std::uint32_t kind = load_le32(head + group_at::kind);
  const std::uint32_t nodes = load_le32(head + group_at::nodes);
  if (kind > kind_change || nodes > static_cast<std::uint32_t>(max_node) + 1 || (kind == 0 && nodes != 0)) return false;
  if (load_le32(head + group_at::extent) > static_cast<std::uint32_t>(max_node) + 1) return false;
  const std::uint64_t length = load_le32(head + group_at::length);
  return length == length_of(nodes, kind == kind_change) && length <= room;
}

bool numbers_are_good(const group_read& g) {
  for (std::uint32_t i = 0; i < g.nodes; ++i) {
    const std::int32_t n = g.number(i);
    if (n < 0 || n > max_node || static_cast<std::uint32_t>(n) >= g.extent) return false;
  }
  return true;
}

}  // namespace

std::int32_t group_read::number(std::uint32_t i) const {
  return load32s(numbers + std::size_t{i} * 4, byte_order::little);
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
  j->buffer = nullptr;
  j->capacity = 0;
}

int begin_life(journal_file* j, const std::uint8_t (&header)[header_size], std::uint32_t settled,
               std::uint32_t generation) {
  std::uint8_t head[journal_head_size] = {};
  std::memcpy(head + head_at::magic, head_magic, sizeof head_magic - 1);
  store_le64(head + head_at::salt, os().random());
  store_le64(head + head_at::identity, j->identity);
  store_le32(head + head_at::generation, generation);
  store_le32(head + head_at::settled, settled);
  std::memcpy(head + head_at::header, header, header_size);
  store_le32(head + head_at::crc, crc32c(0, head, head_at::crc));
  j->alive = false;
  if (os().write_at(j->file, 0, head, sizeof head) != static_cast<std::int64_t>(sizeof head)) return e_write;
  if (os().flush(j->file) != 0) return e_write;
  take_head(j, head);
  return e_ok;
}

int catch_up(journal_file* j) {
  std::uint8_t head[journal_head_size];
  const std::int64_t got = os().read_at(j->file, 0, head, sizeof head);
  if (got < 0) return e_io;
  if (got != static_cast<std::int64_t>(sizeof head)) {
    j->alive = false;
    return e_ok;
  }
  if (!j->alive || load_le64(head + head_at::salt) != j->salt) take_head(j, head);
  if (!j->alive) return e_ok;
  for (;;) {
    group_read g;
    const int found = read_group(j, {j->end, j->sequence, j->chain}, &g);
    if (found <= 0) return found;
    step_over(j, g.length, g.crc, g.generation_after, g.header != nullptr);
  }
}

std::uint64_t group_room(std::uint32_t nodes, bool change) { return to_sectors(length_of(nodes, change)); }

int append_group(journal_file* j, const group_to_write& g) {
  const bool change = g.header != nullptr;
  const std::uint64_t length = length_of(g.nodes, change);
  const std::uint64_t padded = to_sectors(length);
  if (length > 0xFFFFFFFFu) return e_write;
  if (!make_room(j, padded)) return e_no_memory;
  std::uint8_t* at = j->buffer;
  std::memset(at, 0, group_head_size);
  std::memcpy(at + group_at::magic, group_magic, 4);
  store_le32(at + group_at::length, static_cast<std::uint32_t>(length));
  store_le64(at + group_at::salt, j->salt);
  store_le64(at + group_at::sequence, j->sequence);
  store_le32(at + group_at::before, g.generation_before);
  store_le32(at + group_at::after, g.generation_after);
  store_le32(at + group_at::extent, g.extent);
  store_le32(at + group_at::nodes, g.nodes);
  store_le32(at + group_at::kind, change ? kind_change : 0);
  store_le32(at + group_at::chain, j->chain);
  store_le64(at + group_at::random, os().random());
  std::uint8_t* numbers = at + group_head_size;
  if (change) {
    std::memcpy(numbers, g.header, header_size);
    numbers += header_size;
  }
  std::uint8_t* images = numbers + std::size_t{g.nodes} * 4;
  for (std::uint32_t i = 0; i < g.nodes; ++i) {
    std::int32_t n = -1;
    const std::uint8_t* bytes = g.node_at(g.context, i, &n);
    store32s(numbers + std::size_t{i} * 4, n, byte_order::little);
    std::memcpy(images + std::size_t{i} * page_size, bytes, page_size);
  }
  std::memset(at + length, 0, padded - length);
  const std::uint32_t crc = group_crc(at, length);
  store_le32(at + group_at::crc, crc);
  const std::uint64_t kept = padded - (planted(fault::group_cut) ? journal_sector : 0);
  const bool written = os().write_at(j->file, j->end, at, kept) == static_cast<std::int64_t>(kept);
  give_back_room(j);
  if (!written) return e_write;
  step_over(j, length, crc, g.generation_after, change);
  return e_ok;
}

void take_back_group(journal_file* j, const journal_file& before) {
  static constexpr std::uint8_t zeros[journal_sector] = {};
  os().write_at(j->file, before.end, zeros, sizeof zeros);
  j->end = before.end;
  j->sequence = before.sequence;
  j->any_change = before.any_change;
  j->changed_generation = before.changed_generation;
  j->generation = before.generation;
  j->chain = before.chain;
}

int flush_journal(journal_file* j) { return os().flush(j->file) == 0 ? e_ok : e_write; }

group_place first_place(const journal_file* j) { return {journal_groups, 1, j->head_crc}; }

group_place place_behind(const group_place& p, const group_read& g) {
  return {p.at + to_sectors(g.length), p.sequence + 1, g.crc};
}

int read_group(journal_file* j, const group_place& place, group_read* out) {
  std::uint8_t head[group_head_size];
  std::int64_t got = os().read_at(j->file, place.at, head, sizeof head);
  if (got < 0) return e_io;
  if (got != static_cast<std::int64_t>(sizeof head) || std::memcmp(head, group_magic, 4) != 0) return 0;
  const std::int64_t size = os().size(j->file);
  if (size < 0) return e_io;
  const auto bytes = static_cast<std::uint64_t>(size);
  if (place.at >= bytes || !head_is_good(j, head, place, bytes - place.at)) return 0;
  const std::size_t length = load_le32(head + group_at::length);
  if (!make_room(j, length)) return e_no_memory;
  got = os().read_at(j->file, place.at, j->buffer, length);
  if (got < 0) return e_io;
  if (got != static_cast<std::int64_t>(length)) return 0;
  // What was read now may not be what the head was read from: another one may be writing.
  const std::uint8_t* at = j->buffer;
  if (std::memcmp(at, head, sizeof head) != 0) return 0;
  if (load_le32(at + group_at::crc) != group_crc(at, length) && !planted(fault::crc_ignored)) return 0;
  const bool change = load_le32(at + group_at::kind) == kind_change;
  out->place = place.at;
  out->crc = load_le32(at + group_at::crc);
  out->length = length;
  out->generation_before = load_le32(at + group_at::before);
  out->generation_after = load_le32(at + group_at::after);
  out->extent = load_le32(at + group_at::extent);
  out->nodes = load_le32(at + group_at::nodes);
  out->header = change ? at + group_head_size : nullptr;
  out->numbers = at + group_head_size + (change ? header_size : 0);
  out->images = out->numbers + std::size_t{out->nodes} * 4;
  return numbers_are_good(*out) ? 1 : 0;
}

int write_group_again(journal_file* j, const group_read& g) {
  const bool written =
      os().write_at(j->file, g.place, j->buffer, g.length) == static_cast<std::int64_t>(g.length);
  return written ? e_ok : e_write;
}

}  // namespace zvrdb::engine
