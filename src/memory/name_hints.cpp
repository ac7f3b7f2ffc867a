#include "memory/name_hints.h"

#include <zvrco/zvrco.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "memory/table_bounds.h"

namespace zvrdb::memory {

// The entries follow: a number of 24 bits, above it 8 bits of the name's hash; 0 is empty.
// An entry stands at the place of its hash or soon behind it.
struct name_hints {
  const TRG_CNTL_ENTRY* slots;  // these hints are of this table ...
  std::uint32_t generation;     // ... of this generation ...
  std::uint32_t renames;        // ... with the names as they were after so many renames
  std::uint32_t slot_count;
  std::uint32_t mask;  // number of entries less 1, which is a power of two

  std::uint32_t* entries() { return reinterpret_cast<std::uint32_t*>(this + 1); }
};

namespace {

constexpr std::uint32_t least_entries = 64;
constexpr std::uint32_t most_entries = 1u << 20;
constexpr std::uint32_t most_probes = 8;
constexpr unsigned number_bits = 24;
constexpr std::uint32_t highest_number = (1u << number_bits) - 1;

constexpr std::uint64_t spread = 0x9E3779B97F4A7C15u;  // odd

std::uint64_t mixed(std::uint64_t hash, std::uint64_t bytes) {
  hash = (hash ^ bytes) * spread;
  return hash ^ hash >> 32;
}

std::uint64_t eight_bytes(const char* at) {
  std::uint64_t bytes;
  std::memcpy(&bytes, at, sizeof bytes);
  return bytes;
}

std::uint32_t hash_of(const char* name, std::size_t length) {
  constexpr std::size_t step = sizeof(std::uint64_t);
  std::uint64_t hash = length;
  if (length < step) {
    for (std::size_t i = 0; i < length; ++i) hash = hash << 8 | static_cast<unsigned char>(name[i]);
  } else {
    for (std::size_t at = 0; at < length - step; at += step) hash = mixed(hash, eight_bytes(name + at));
    hash ^= eight_bytes(name + length - step);
  }
  // Every byte has a say in the upper half.
  return static_cast<std::uint32_t>(mixed(hash, 0) * spread >> 32);
}

std::uint32_t tag_of(std::uint32_t hash) {
  return hash & ~highest_number;
}

bool are_current(const name_hints* hints, const DBR_TCB* tcb) {
  return hints && hints->slots == tcb->trg_cntl && hints->generation == tcb->shm_generation &&
         hints->renames == tcb->cntl->renames;
}

// Empties the hints of other tables or names.
void begin_anew(name_hints* hints, const DBR_TCB* tcb) {
  const bool used = hints->slots != nullptr;  // fresh memory is zero, and most of it not there yet
  if (used) std::memset(hints->entries(), 0, (std::size_t{hints->mask} + 1) * sizeof(std::uint32_t));
  hints->slots = tcb->trg_cntl;
  hints->generation = tcb->shm_generation;
  hints->renames = tcb->cntl->renames;
  hints->slot_count = std::min(trg_table_size(tcb), highest_number);
}

}  // namespace

void make_room_for_hints(void* task, DBR_TCB* tcb) {
  const std::uint32_t slots = std::min(trg_table_size(tcb), most_entries / 2);
  const std::uint32_t entries = std::max(std::bit_ceil(2 * slots), least_entries);
  if (tcb->hints && tcb->hints->mask + 1 == entries) return;
  free_hints(task, tcb);
  const std::size_t length = sizeof(name_hints) + entries * sizeof(std::uint32_t);
  tcb->hints = static_cast<name_hints*>(
      co_malloc(task, static_cast<std::uint32_t>(length), CO_MEM_PRIVATE, "TRG_HINT"));
  if (tcb->hints) tcb->hints->mask = entries - 1;
}

void free_hints(void* task, DBR_TCB* tcb) {
  if (tcb->hints) co_free_int(task, tcb->hints, "name_hints");
  tcb->hints = nullptr;
}

std::uint32_t hinted_number(const DBR_TCB* tcb, const char* name, std::size_t length) {
  name_hints* hints = tcb->hints;
  if (!are_current(hints, tcb)) return 0;
  const std::uint32_t hash = hash_of(name, length);
  const std::uint32_t* entries = hints->entries();
  for (std::uint32_t probe = 0; probe < most_probes; ++probe) {
    const std::uint32_t entry = entries[(hash + probe) & hints->mask];
    if (entry == 0) return 0;
    if (tag_of(entry ^ hash) != 0) continue;
    const std::uint32_t number = entry & highest_number;
    if (number == 0 || number > hints->slot_count) continue;
    const TRG_CNTL_ENTRY& slot = hints->slots[number - 1];
    if (slot.in_use == 1 && slot.trg_name[length] == 0 && std::memcmp(slot.trg_name, name, length) == 0)
      return number;
  }
  return 0;
}

void keep_hint(DBR_TCB* tcb, const char* name, std::size_t length, std::uint32_t number) {
  name_hints* hints = tcb->hints;
  if (!hints) return;
  if (!are_current(hints, tcb)) begin_anew(hints, tcb);
  if (number == 0 || number > hints->slot_count) return;
  const std::uint32_t hash = hash_of(name, length);
  std::uint32_t* entries = hints->entries();
  std::uint32_t place = hash & hints->mask;
  for (std::uint32_t probe = 0; probe < most_probes; ++probe) {
    const std::uint32_t behind = (hash + probe) & hints->mask;
    if (entries[behind] != 0) continue;
    place = behind;
    break;
  }
  entries[place] = tag_of(hash) | number;
}

}  // namespace zvrdb::memory
