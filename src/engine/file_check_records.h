// The deep check: what the entries say to one another.  Fed with the leaf entries in tree
// order, and of several trees with that of the bodies last, so key entries and free numbers
// come before the bodies.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "engine/report_walk.h"

namespace zvrdb::engine::report {

struct key_reference {
  std::int32_t rec;
  std::int32_t node;
  std::uint8_t key;
  std::uint8_t value_size;
  std::size_t value_at;     // in deep_check::values
};

// Bodies written through one field list.
// A lock on a body.
struct lock_reference {
  std::int32_t rec;
  std::int32_t node;
};

struct list_members {
  bool any_with_keys = false;
  std::vector<std::int32_t> without_keys;
};

struct deep_check {
  survey* s = nullptr;
  std::vector<key_reference> references;   // of application keys; sorted by record once the bodies begin
  std::vector<bool> matched;               // the reference's record has a body
  std::vector<unsigned char> values;
  bool sorted = false;
  std::vector<std::int32_t> free_numbers;
  std::vector<std::int32_t> bodies;
  std::vector<lock_reference> locks;
  std::map<std::uint16_t, list_members> lists;
  // The value whose pieces are being gathered.
  bool gathering = false;
  int value_key = 0;
  std::int32_t value_rec = 0;
  int next_piece = 0;
  std::vector<unsigned char> body;
};

// A visitor's entry function; the context is the deep_check.
bool deep_entry(void* context, const node& leaf, const entry& e);
// After the walk: what is left over, and the counters of the header.
void finish_deep(deep_check* deep);

}  // namespace zvrdb::engine::report
