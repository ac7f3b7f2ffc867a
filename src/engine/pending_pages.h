// What a handle changed in its file and did not write there yet: the header, and nodes by
// number.  All bytes are as they will lie in the file.
#pragma once

#include <cstdint>

#include "engine/changed_bytes.h"
#include "engine/format.h"

namespace zvrdb::engine {

struct pending_node {
  std::int32_t number;
  std::uint32_t touched;     // of the operation that wrote it last
  byte_range changed;        // by that operation
  std::uint8_t* bytes;       // page_size
};

struct page_slab {
  page_slab* next;
  std::uint32_t used;
  std::uint8_t pages[64][page_size];
};

struct pending_pages {
  pending_node* nodes = nullptr;      // in the order of their first write
  std::uint32_t count = 0;
  std::uint32_t room = 0;
  std::uint32_t* table = nullptr;     // hash table: index in nodes + 1, 0 empty
  std::uint32_t table_size = 0;       // a power of two
  std::uint32_t* touched = nullptr;   // indexes of the nodes that the operation at hand wrote; `room` of them
  std::uint32_t touched_count = 0;
  std::uint32_t operation = 1;
  page_slab* slabs = nullptr;
  bool has_header = false;
  std::uint8_t header[header_size] = {};
};

// Keeps a node.  `changed` tells in which entries it may differ from what it was when it was kept
// the last time or, if it is not among the kept ones, when the operation began.  False when memory
// is out, with nothing changed.
bool keep_node(pending_pages* p, std::int32_t n, const void* bytes, const byte_range& changed);
// The kept bytes of a node, or null.
const std::uint8_t* find_node(const pending_pages* p, std::int32_t n);
// Sorts the nodes by their number, for who writes them all: `order` has the index of each.  No
// operation touches them before the next one begins.
const std::uint32_t* order_of_nodes(pending_pages* p);
// The next operation begins: no node is touched by it yet.
void next_operation(pending_pages* p);
// Forgets everything and gives the memory back, but for a little.
void forget_pages(pending_pages* p);
void release_pages(pending_pages* p);

}  // namespace zvrdb::engine
