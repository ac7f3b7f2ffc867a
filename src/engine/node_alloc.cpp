#include "engine/node_alloc.h"

#include <algorithm>

#include "engine/header_page.h"

namespace zvrdb::engine {
namespace {

constexpr std::int32_t grown_at_once = 16;
constexpr std::uint8_t zero_nodes[std::size_t{grown_at_once} * page_size] = {};

// The next number never used; it must lie in the file already.
std::int32_t take_unused(PSP* h) {
  if (h->nextnode < 1 || h->nextnode >= h->extent || h->nextnode > max_node) return -1;
  return h->nextnode++;
}

// The head of the free chain.  A chain that leads into a node that isn't free, or was
// never used, is cut.
std::int32_t take_free(PSP* h) {
  const std::int32_t n = h->freenode;
  if (n == h->nextnode) {
    h->freenode = -1;
    return take_unused(h);
  }
  const int got = nodeget(h, &second_buffer, n);
  if (got != e_ok && got != e_damaged) return n;
  const node& v = second_buffer.image;
  if (got == e_ok && v.level == level_free && (v.next == -1 || (v.next >= 1 && v.next < h->nextnode))) {
    h->freenode = v.next;
    return n;
  }
  h->freenode = -1;
  // The first node of an interrupted transaction, whose return was half done.
  if (got == e_ok && (v.level == level_log_first || v.level == level_log_later)) return n;
  return take_unused(h);
}

}  // namespace

std::int32_t nodealloc(PSP* h) {
  const std::int32_t n = h->freenode == -1 ? take_unused(h) : take_free(h);
  if (n < 0) return e_io;
  return header_changed(h) == e_ok ? n : static_cast<std::int32_t>(e_io);
}

int nodefree(PSP* h, node_buffer& b, std::int32_t n) {
  b.image.level = level_free;
  b.image.child0 = -1;
  b.image.prev = -1;
  b.image.next = h->freenode;
  h->freenode = n;
  return header_changed(h);
}

int ensurenodes(PSP* h, std::int64_t need) {
  // The need is reckoned from the depth: a damaged one must not fill the disk.
  if (h->depth < 1 || h->depth > max_depth) return raise_damage(h, h->root);
  const std::int64_t spare = std::int64_t{h->extent} - h->nextnode;
  int result = e_ok;
  if (need > spare) {
    const bool new_file = h->extent == 0 && h->nextnode == 1;
    // Growth writes zeros behind `extent`: never where nodes are in use.
    if ((spare < 0 && !new_file) || h->extent < 0) return raise_damage(h, h->extent);
    const std::int64_t last = h->extent + std::max<std::int64_t>(need - spare, h->growstep) - 1;
    if (last > max_node) return e_write;
    h->hdrdirty = 1;
    while (result == e_ok && h->extent <= last) {
      const auto nodes = static_cast<std::int32_t>(std::min<std::int64_t>(last - h->extent + 1, grown_at_once));
      result = raise_flag(h);
      if (result == e_ok)
        result = physical_write(h, write_kind::growth, node_offset(h->extent), zero_nodes,
                                static_cast<std::size_t>(nodes) * page_size);
      if (result == e_ok) h->extent += nodes;
    }
    h->grown = 1;
  }
  if (h->grown && h->intlevel >= 1 && h->intlevel <= 3 && result == e_ok && is_exclusive(h)) {
    plain_flush(h);
    h->grown = 0;
    result = writehdr(h);
  }
  return result;
}

}  // namespace zvrdb::engine
