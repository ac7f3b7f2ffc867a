#include "engine/companion.h"

#include <algorithm>
#include <cstring>

#include "engine/header_page.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/separate_trees.h"
#include "engine/sharing.h"
#include "engine/trans_log.h"

namespace zvrdb::engine {
namespace {

constexpr std::uint32_t first_room = 64;

bool grow(companion_copy* c) {
  const std::uint32_t room = c->room == 0 ? first_room : 2 * c->room;
  auto* nodes = static_cast<std::int32_t*>(os().allocate(room * sizeof(std::int32_t)));
  if (nodes == nullptr) return false;
  if (c->count > 0) std::memcpy(nodes, c->nodes, c->count * sizeof(std::int32_t));
  os().release(c->nodes);
  c->nodes = nodes;
  c->room = room;
  return true;
}

void take_each_once(companion_copy* c) {
  std::sort(c->nodes, c->nodes + c->count);
  c->count = static_cast<std::uint32_t>(std::unique(c->nodes, c->nodes + c->count) - c->nodes);
}

// The companion's file has the same number of nodes.
int grow_companion(PSP* to, std::int32_t extent) {
  static const std::uint8_t zeros[page_size] = {};
  while (to->extent < extent) {
    int result = raise_flag(to);
    if (result == e_ok) result = physical_write(to, write_kind::growth, node_offset(to->extent), zeros, page_size);
    if (result != e_ok) return result;
    ++to->extent;
    to->grown = 1;
  }
  return e_ok;
}

void copy_header(const PSP* h, PSP* to) {
  to->root = h->root;
  to->depth = h->depth;
  to->nextnode = h->nextnode;
  to->nextrec = h->nextrec;
  to->freenode = h->freenode;
  to->freerecs = h->freerecs;
  to->reccount = h->reccount;
  to->infolen = h->infolen;
  // The log of a running transaction is not in the companion.
  to->transhead = h->companion->with_chain ? h->transhead : -1;
  to->savedhead = h->savedhead;
  std::memcpy(to->info, h->info, sizeof to->info);
  std::memcpy(to->keytypes, h->keytypes, sizeof to->keytypes);
  std::memcpy(to->treetables, h->treetables, sizeof to->treetables);
  look_for_trees(to);
  // It never goes back: others tell by it that the file changed.
  to->generation = std::max(to->generation, h->generation);
  to->hdrdirty = 1;
  to->lastkey = -1;
  mark_cursors_stale(to);
}

// Inside a write operation on the companion.
int copy_changes(PSP* h, PSP* to) {
  companion_copy* c = h->companion;
  int result = grow_companion(to, h->extent);
  to->nextnode = std::max(to->nextnode, h->nextnode);
  for (std::uint32_t i = 0; result == e_ok && i < c->count; ++i) {
    result = nodeget(h, &third_buffer, c->nodes[i]);
    if (result == e_not_found) result = e_io;
    if (result == e_ok) result = nodeputd(to, third_buffer, c->nodes[i]);
  }
  if (result == e_ok) copy_header(h, to);
  return result;
}

int copy_operation(PSP* h) {
  PSP* to = h->companion->to;
  if (!is_open(to)) return e_bad_handle;
  to->intlevel = 4;
  const int entered = wrenter(to);
  if (entered != e_ok) return entered;
  const int result = copy_changes(h, to);
  // Half a copy must not pass for a whole file: its write flag stays.
  if (result != e_ok) to->deferred = result;
  return leave_result(result, wrleave(to));
}

}  // namespace

int check_companion(PSP* h, PSP* companion) {
  if (!is_open(companion) || companion == h || companion->rw != 2) return e_bad_handle;
  if (companion->transtype != 0 || has_companion(companion) || companion->wrnest != 0) return e_bad_handle;
  // Entering brings its header up to date.
  if (const int entered = rdenter(companion); entered != e_ok) return entered;
  std::uint8_t own[header_size];
  std::uint8_t other[header_size];
  build_header(h, own);
  build_header(companion, other);
  constexpr std::size_t from = header_at::generation + 4;
  const bool same = h->order == companion->order && std::memcmp(own + from, other + from, header_size - from) == 0;
  const int left = rdleave(companion);
  return leave_result(same ? static_cast<int>(e_ok) : static_cast<int>(e_key_table), left);
}

int companion_attach(PSP* h, PSP* companion) {
  auto* c = static_cast<companion_copy*>(os().allocate(sizeof(companion_copy)));
  if (c == nullptr) return e_no_memory;
  c->to = companion;
  h->companion = c;
  return e_ok;
}

void companion_let_go(PSP* h) {
  companion_copy* c = h->companion;
  if (c == nullptr) return;
  h->companion = nullptr;
  os().release(c->nodes);
  os().release(c);
}

void note_node_write(PSP* h, std::int32_t n) {
  companion_copy* c = h->companion;
  if (c->failed != 0 || (c->count > 0 && c->nodes[c->count - 1] == n)) return;
  if (c->count == c->room && !grow(c)) {
    c->failed = e_no_memory;
    return;
  }
  c->nodes[c->count++] = n;
}

int log_node_writes(PSP* h) {
  companion_copy* c = h->companion;
  take_each_once(c);
  for (std::uint32_t i = 0; i < c->count; ++i) {
    std::uint8_t entry[1 + sizeof(std::int32_t)] = {sizeof(std::int32_t)};
    store32s(entry + 1, c->nodes[i], h->order);
    if (const int logged = translog(h, log_node_written, entry); logged != e_ok) return logged;
  }
  return e_ok;
}

int keep_companion(PSP* h, int result) {
  companion_copy* c = h->companion;
  if (result == e_ok && c->failed == 0) {
    take_each_once(c);
    c->failed = copy_operation(h);
  }
  c->count = 0;
  return result == e_ok ? c->failed : result;
}

}  // namespace zvrdb::engine
