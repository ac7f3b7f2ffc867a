#include "engine/node_check.h"

#include <algorithm>

#include "engine/key_compare.h"

namespace zvrdb::engine {
namespace {

constexpr int shortest_entry = entry_head_size - 1;   // its length byte

int check_entries(const PSP* h, const node& v) {
  int at = 0;
  for (int i = 0; i < v.count; ++i) {
    const std::uint8_t* entry = v.entries + at;
    // Entries never leave the node, so the length byte of a next one is looked at only inside.
    if (at >= entry_area) return fault_entries;
    const int size = entry_size(entry);
    if (size - 1 < shortest_entry) return fault_entry;
    if (at + size > entry_area) return fault_entries;
    if (!good_key_number(entry[entry_at::key])) return fault_entry;
    const int rest = size - entry_head_size;
    const int k = key_value_length(type_of_key(h, entry[entry_at::key]), entry + entry_at::value, rest);
    if (k < 0 || (v.level != 0 && rest < k + 4)) return fault_data;
    if (v.level != 0 && load32s(entry + size - 4, h->order) < 0) return fault_child;
    at += size;
  }
  const bool clean = std::all_of(v.entries + at, v.entries + entry_area, [](std::uint8_t b) { return b == 0; });
  return clean ? 0 : static_cast<int>(fault_entries);
}

}  // namespace

int check_node(const PSP* h, const node& v) {
  if (v.room < 0 || v.room > entry_area) return fault_room;
  if (v.count > max_entries) return fault_entries;
  const bool in_tree = is_tree_level(v.level);
  if (in_tree && v.next == v.prev && v.next != -1) return fault_neighbours;
  if (v.next < -1) return fault_next;
  if (v.prev < -1) return fault_prev;
  if (!in_tree) return 0;
  if (v.child0 < 0) return fault_child;
  return check_entries(h, v);
}

}  // namespace zvrdb::engine
