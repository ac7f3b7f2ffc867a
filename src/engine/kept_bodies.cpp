#include "engine/kept_bodies.h"

#include "engine/memory_lines.h"
#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

void* memory = nullptr;
kept_body* bodies = nullptr;   // each at the beginning of a line of memory
std::uint32_t mask = 0;

kept_body* kept_at(std::uint32_t place) { return bodies + (place & mask); }

}  // namespace

// Records of a file follow each other, so that a small file takes little of the table.
std::uint32_t place_of_body(const PSP* h, std::int32_t recno) {
  return (h->opened_as * 0x9E3779B9u + static_cast<std::uint32_t>(recno)) & mask;
}

const kept_body* recall_body(const PSP* h, std::int32_t recno) {
  if (bodies == nullptr) return nullptr;
  kept_body* b = kept_at(place_of_body(h, recno));
  if (b->owner != h || b->recno != recno) return nullptr;
  if (b->changes < h->nodes_changed) {
    if (!is_unchanged(h, b->first) || !is_unchanged(h, b->last)) return nullptr;
    b->changes = node_changes();
  }
  return b;
}

void expect_kept_body(std::uint32_t place) {
  if (bodies == nullptr) return;
  call_for(kept_at(place), sizeof(kept_body));
}

kept_body* room_for_body(const PSP* h, std::int32_t recno) {
  if (bodies == nullptr) return nullptr;
  kept_body* b = kept_at(place_of_body(h, recno));
  b->owner = h;
  b->changes = node_changes();
  b->recno = recno;
  return b;
}

int make_kept_bodies(unsigned nodes) {
  std::uint32_t count = 1;
  while (count < nodes) count *= 2;
  const std::size_t bytes = std::size_t{count} * sizeof(kept_body) + memory_line;
  memory = os().allocate(bytes);
  if (memory == nullptr) return e_no_memory;
  os().scatter(memory, bytes);
  bodies = at_a_line<kept_body>(memory);
  mask = count - 1;
  return e_ok;
}

void forget_kept_bodies() {
  for (std::uint32_t i = 0; bodies != nullptr && i <= mask; ++i) bodies[i].owner = nullptr;
}

void release_kept_bodies() {
  os().release(memory);
  memory = nullptr;
  bodies = nullptr;
  mask = 0;
}

}  // namespace zvrdb::engine
