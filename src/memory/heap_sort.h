// Sorting in place.  It needs no memory, and it stays inside the entries whatever the
// comparison answers: that of names depends on the collation of the system.
#pragma once

#include <cstdint>
#include <utility>

namespace zvrdb::memory {

template <class Entry, class Below>
bool in_order(const Entry* entries, std::uint32_t count, const Below& below) {
  for (std::uint32_t i = 1; i < count; ++i)
    if (below(entries[i], entries[i - 1])) return false;
  return true;
}

// Lets the entry at the top of the heap [root, end) find its place: down along the
// greater children to the bottom, then up again.  That costs half the compares of
// stopping on the way, and compares are what a sort by collation spends its time on.
template <class Entry, class Below>
void settle(Entry* heap, std::uint32_t root, std::uint32_t end, const Below& below) {
  std::uint32_t at = root;
  for (std::uint64_t child = 2ull * at + 1; child < end; child = 2ull * at + 1) {
    auto greater = static_cast<std::uint32_t>(child);
    if (child + 1 < end && below(heap[greater], heap[greater + 1])) ++greater;
    at = greater;
  }
  while (at > root && !below(heap[root], heap[at])) at = (at - 1) / 2;
  // Rotates the path: the root's entry to `at`, each one on the way up by one place.
  Entry moving = heap[root];
  for (;;) {
    std::swap(moving, heap[at]);
    if (at == root) return;
    at = (at - 1) / 2;
  }
}

template <class Entry, class Below>
void sort_entries(Entry* entries, std::uint32_t count, const Below& below) {
  if (count < 2 || in_order(entries, count, below)) return;
  for (std::uint32_t root = count / 2; root-- > 0;) settle(entries, root, count, below);
  for (std::uint32_t end = count - 1; end > 0; --end) {
    std::swap(entries[0], entries[end]);
    settle(entries, 0, end, below);
  }
}

}  // namespace zvrdb::memory
