#include "engine/trans_log.h"

#include <cstring>

#include "engine/header_page.h"
#include "engine/key_compare.h"
#include "engine/node_alloc.h"
#include "engine/sharing.h"

namespace zvrdb::engine {
namespace {

// The log node being filled into the log buffer, checked.
int take_log_node(PSP* h) {
  const int got = nodegetd(h, log_buffer, h->lognode);
  if (got != e_ok) return got == e_not_found ? e_io : got;
  const node& v = log_buffer.image;
  if (!is_log_level(v.level) || v.room < 0 || v.room > entry_area) return raise_damage(h, h->lognode);
  // Records of an operation that failed may never have reached the disk.
  h->logpos = entry_area - v.room;
  return e_ok;
}

int extend_chain(PSP* h) {
  int result = ensurenodes(h);
  if (result != e_ok) return result;
  const std::int32_t m = nodealloc(h);
  if (m < 1) return e_io;
  log_buffer.image.next = m;
  result = nodeputd(h, log_buffer, h->lognode);
  if (result != e_ok) {
    // The chain ends here still: node m was never written.
    log_buffer.image.next = 0;
    return result;
  }
  fill_log_node(log_buffer, 0, h->slot, level_log_later);
  h->lognode = m;
  h->logpos = 0;
  result = nodeputd(h, log_buffer, m);
  return result != e_ok ? result : writehdr(h);
}

void append(PSP* h, std::uint8_t type, const std::uint8_t* entry, int size) {
  node& v = log_buffer.image;
  std::uint8_t* at = v.entries + h->logpos;
  store32(at + log_at::start_generation, h->transgen, h->order);
  store16(at + log_at::sequence, h->transseq, h->order);
  store16(at + log_at::gap, 0, h->order);
  store32(at + log_at::generation, h->generation, h->order);
  at[log_at::type] = type;
  if (entry != nullptr) {
    std::memcpy(at + log_at::entry, entry, static_cast<std::size_t>(size - log_head_size));
  } else {
    at[log_at::entry] = 0;
  }
  h->logpos += size;
  ++v.count;
  ++h->transseq;
  v.room = static_cast<std::int16_t>(v.room - size);
}

int log_record(PSP* h, std::uint8_t type, const std::uint8_t* entry) {
  const int size = log_head_size + (entry != nullptr ? entry_size(entry) : 1);
  int result = take_log_node(h);
  if (result == e_ok && log_buffer.image.room < size) result = extend_chain(h);
  if (result != e_ok) return result;
  append(h, type, entry, size);
  return type == log_op_finished ? nodeputd(h, log_buffer, h->lognode) : static_cast<int>(e_ok);
}

}  // namespace

void fill_log_node(node_buffer& b, std::int32_t former_head, int slot, std::uint16_t level) {
  clear_buffer(b);
  b.image.child0 = former_head;
  b.image.prev = slot;
  b.image.level = level;
  b.image.room = entry_area;
}

int translog(PSP* h, std::uint8_t type, const std::uint8_t* entry) {
  if (type == log_added || type == log_removed) {
    if (entry[entry_at::key] == key_locks || (h->transtype != 1 && h->transtype != 3)) return e_ok;
  }
  const int entered = wrenter(h);
  if (entered != e_ok) return entered;
  const int result = h->lognode >= 1 ? log_record(h, type, entry) : static_cast<int>(e_ok);
  return leave_result(result, wrleave(h));
}

bool collect_log_records(const node& v, int (&offsets)[max_log_records]) {
  if (v.count > max_log_records) return false;
  int at = 0;
  for (int i = 0; i < v.count; ++i) {
    if (at + log_head_size + 1 > entry_area) return false;
    offsets[i] = at;
    at += log_head_size + entry_size(v.entries + at + log_at::entry);
    if (at > entry_area) return false;
  }
  return true;
}

log_view view_log_record(const PSP* h, const node& v, int offset) {
  const std::uint8_t* at = v.entries + offset;
  return {load32(at + log_at::start_generation, h->order), load32(at + log_at::generation, h->order),
          load16(at + log_at::sequence, h->order), at[log_at::type], at + log_at::entry};
}

}  // namespace zvrdb::engine
