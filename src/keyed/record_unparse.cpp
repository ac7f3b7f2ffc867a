// Internal to external form.
//
// Where the internal record ends inside a field, the record is stored that far:
//   single field   the bytes there are, the last one made a NUL
//   array element  the bytes there are but one, and a NUL
#include "keyed/converters.h"
#include "keyed/keyed.h"
#include "keyed/record_bytes.h"
#include "memory/trace.h"

namespace zvrdb::keyed {
namespace {

enum class step { next, stop };

struct unparsing {
  void* task;
  std::uint32_t db_id;
  external_sink to;
  internal_record_view from;
  std::int16_t rc;
};

step ends_with(unparsing* u, std::int16_t rc) {
  u->rc = rc;
  return step::stop;
}

// Stored length of the field at `start`, which lies in the record.  A string that the
// record ends before its NUL is longer than what there is.
std::uint32_t stored_length(const unparsing& u, const field_descriptor& field, std::uint32_t start) {
  if (field.type != data_type::text) return field.length;
  const std::uint32_t there = u.from.length - start;
  return static_cast<std::uint32_t>(strnlen(reinterpret_cast<const char*>(u.from.base + start), there)) + 1;
}

void append(unparsing* u, std::uint32_t start, std::uint32_t length) {
  std::memcpy(u->to.at, u->from.base + start, length);
  u->to.at += length;
}

step store_single(unparsing* u, const field_descriptor& field) {
  if (field.unparse) {
    u->rc = field.unparse(u->task, u->db_id, &field, &u->to, u->from);
    return u->rc == DBE_OK ? step::next : step::stop;
  }
  const std::uint32_t length = stored_length(*u, field, field.offset);
  if (u->to.left() < length) return ends_with(u, no_room(u->task, u->db_id));
  const std::uint32_t there = u->from.length - field.offset;
  append(u, field.offset, std::min(length, there));
  if (length <= there) return step::next;
  u->to.at[-1] = 0;
  return step::stop;
}

step store_element(unparsing* u, const field_descriptor& field, std::uint32_t base) {
  if (field.unparse) {
    u->rc = field.unparse(u->task, u->db_id, &field, &u->to, {u->from.base + base, u->from.length - base});
    return u->rc == DBE_OK ? step::next : step::stop;
  }
  const std::uint32_t start = base + field.offset;
  const std::uint32_t length = stored_length(*u, field, start);
  if (u->to.left() < length) return ends_with(u, no_room(u->task, u->db_id));
  const std::uint32_t there = u->from.length - start;
  if (length <= there) {
    append(u, start, length);
    return step::next;
  }
  append(u, start, there - 1);
  *u->to.at++ = 0;
  return step::stop;
}

step store_array(unparsing* u, const field_descriptor& field) {
  std::uint32_t count = field.occ;
  if (field.count_offset != fixed_count)
    count = std::min<std::uint32_t>(count, take_number<std::uint16_t>(u->from, field.count_offset));
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t base = field.length * i;
    if (base + field.offset >= u->from.length) return step::stop;
    if (store_element(u, field, base) == step::stop) return step::stop;
  }
  return step::next;
}

}  // namespace

std::int16_t unparse_keyed(void* task, std::uint32_t db_id, void* external, const void* internal,
                           std::uint32_t* external_len, std::uint32_t internal_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  auto* const out = static_cast<unsigned char*>(external);
  const std::uint32_t room = *external_len;
  *external_len = 0;
  const std::span<const field_descriptor> table = field_table(db_id);
  if (table.empty()) {
    co_log2(task, 36453, 0, 0, 0, "%lu", static_cast<unsigned long>(db_id));
    bracket.quitting();
    return rc = DBE_BAD_RECORD;
  }
  if (internal_len == 0) {
    ZVR_TRACE(task, 2, 2, "%s", "Buffer length zero for internal record");
    return rc;
  }
  unparsing u = {
      task, db_id, {out, out + room}, {static_cast<const unsigned char*>(internal), internal_len}, DBE_OK};
  for (const field_descriptor& field : table) {
    if (field.offset >= internal_len) {
      ZVR_TRACE(task, 2, 2, "%s", "No more space in internal buffer");
      break;
    }
    if ((field.occ == 0 ? store_single(&u, field) : store_array(&u, field)) == step::stop) break;
  }
  *external_len = static_cast<std::uint32_t>(u.to.at - out);
  return rc = u.rc;
}

}  // namespace zvrdb::keyed
