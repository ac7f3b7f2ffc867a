#include "engine/pending_pages.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

constexpr std::uint32_t first_room = 64;
constexpr std::uint32_t slab_pages = 64;

std::uint32_t hash_of(std::int32_t n, std::uint32_t size) {
  return (static_cast<std::uint32_t>(n) * 0x9E3779B1u >> 8) & (size - 1);
}

// Where a node stands in the table, or the empty place where it would.
std::uint32_t place_of(const pending_pages* p, std::int32_t n) {
  std::uint32_t at = hash_of(n, p->table_size);
  while (p->table[at] != 0 && p->nodes[p->table[at] - 1].number != n) at = (at + 1) & (p->table_size - 1);
  return at;
}

void release_arrays(pending_pages* p) {
  os().release(p->nodes);
  os().release(p->table);
  os().release(p->touched);
  p->nodes = nullptr;
  p->table = nullptr;
  p->touched = nullptr;
  p->count = p->room = p->table_size = p->touched_count = 0;
}

bool grow(pending_pages* p) {
  const std::uint32_t room = p->room == 0 ? first_room : p->room * 2;
  const std::uint32_t size = room * 4;
  auto* nodes = static_cast<pending_node*>(os().allocate(room * sizeof(pending_node)));
  auto* table = static_cast<std::uint32_t*>(os().allocate(size * sizeof(std::uint32_t)));
  auto* touched = static_cast<std::uint32_t*>(os().allocate(room * sizeof(std::uint32_t)));
  if (nodes == nullptr || table == nullptr || touched == nullptr) {
    os().release(nodes);
    os().release(table);
    os().release(touched);
    return false;
  }
  const std::uint32_t count = p->count;
  const std::uint32_t touched_count = p->touched_count;
  if (count > 0) std::memcpy(nodes, p->nodes, count * sizeof(pending_node));
  if (touched_count > 0) std::memcpy(touched, p->touched, touched_count * sizeof(std::uint32_t));
  release_arrays(p);
  p->nodes = nodes;
  p->table = table;
  p->touched = touched;
  p->room = room;
  p->table_size = size;
  p->count = count;
  p->touched_count = touched_count;
  for (std::uint32_t i = 0; i < count; ++i) p->table[place_of(p, nodes[i].number)] = i + 1;
  return true;
}

std::uint8_t* new_page(pending_pages* p) {
  if (p->slabs == nullptr || p->slabs->used == slab_pages) {
    auto* slab = static_cast<page_slab*>(os().allocate(sizeof(page_slab)));
    if (slab == nullptr) return nullptr;
    slab->next = p->slabs;
    p->slabs = slab;
  }
  return p->slabs->pages[p->slabs->used++];
}

}  // namespace

bool keep_node(pending_pages* p, std::int32_t n, const void* bytes, const byte_range& changed) {
  if (p->count == p->room && !grow(p)) return false;
  const std::uint32_t at = place_of(p, n);
  std::uint32_t index = p->table[at];
  const bool is_new = index == 0;
  if (is_new) {
    std::uint8_t* page = new_page(p);
    if (page == nullptr) return false;
    p->nodes[p->count] = {n, 0, changed, page};
    index = ++p->count;
    p->table[at] = index;
  }
  pending_node& node = p->nodes[index - 1];
  const auto* now = static_cast<const std::uint8_t*>(bytes);
  const bool first_time = node.touched != p->operation;
  if (is_new) {
    std::memcpy(node.bytes, now, page_size);
  } else {
    const byte_range differing = is_all(changed) ? differing_entries(node.bytes, now) : changed;
    assert(lies_in(differing_entries(node.bytes, now), differing));
    node.changed = first_time ? differing : unite(node.changed, differing);
    // What else there is of it stays far from the processor.
    std::memcpy(node.bytes, now, node_head_size);
    if (differing.from < differing.to)
      std::memcpy(node.bytes + differing.from, now + differing.from, std::size_t{differing.to} - differing.from);
  }
  if (!first_time) return true;
  node.touched = p->operation;
  p->touched[p->touched_count++] = index - 1;
  return true;
}

const std::uint8_t* find_node(const pending_pages* p, std::int32_t n) {
  if (p->count == 0) return nullptr;
  const std::uint32_t index = p->table[place_of(p, n)];
  return index == 0 ? nullptr : p->nodes[index - 1].bytes;
}

const std::uint32_t* order_of_nodes(pending_pages* p) {
  p->touched_count = 0;
  for (std::uint32_t i = 0; i < p->count; ++i) p->touched[i] = i;
  std::sort(p->touched, p->touched + p->count,
            [p](std::uint32_t a, std::uint32_t b) { return p->nodes[a].number < p->nodes[b].number; });
  return p->touched;
}

void next_operation(pending_pages* p) {
  p->touched_count = 0;
  ++p->operation;
}

void forget_pages(pending_pages* p) {
  if (p->room > first_room) {
    release_arrays(p);
  } else if (p->count > 0) {
    std::memset(p->table, 0, p->table_size * sizeof(std::uint32_t));
  }
  // One slab stays for the next operation.
  while (p->slabs != nullptr && p->slabs->next != nullptr) {
    page_slab* slab = p->slabs;
    p->slabs = slab->next;
    os().release(slab);
  }
  if (p->slabs != nullptr) p->slabs->used = 0;
  p->count = 0;
  p->touched_count = 0;
  p->has_header = false;
}

void release_pages(pending_pages* p) {
  forget_pages(p);
  release_arrays(p);
  os().release(p->slabs);
  p->slabs = nullptr;
}

}  // namespace zvrdb::engine
