// External to internal form.  Tolerant: a short external record and a short internal
// one are normal.
//
// Where the internal record ends inside a field ("room" is what it has left):
//   single field   room at most what is left of the data: the room is filled and its
//                  last byte made a NUL; else the data is copied and a NUL put behind
//   array element  the whole element is there: the room is filled, without a NUL; else
//                  what there is, and a NUL behind it if there is room for one
// Where the data ends inside a field, what there is is copied and a NUL put behind it.
#include "keyed/converters.h"
#include "keyed/keyed.h"
#include "keyed/record_bytes.h"
#include "memory/trace.h"

namespace zvrdb::keyed {
namespace {

enum class step { next, stop };

struct parsing {
  void* task;
  std::uint32_t db_id;
  external_source from;
  internal_record to;
  std::int16_t rc;
};

// A string that the data ends before its NUL is longer than what is left.
std::uint32_t stored_length(const parsing& p, const field_descriptor& field) {
  if (field.type != data_type::text) return field.length;
  return static_cast<std::uint32_t>(strnlen(reinterpret_cast<const char*>(p.from.at), p.from.left())) + 1;
}

void take(parsing* p, std::uint32_t start, std::uint32_t length) {
  std::memcpy(p->to.base + start, p->from.at, length);
  p->from.at += length;
}

step take_all_that_is_left(parsing* p, std::uint32_t start) {
  const std::uint32_t left = p->from.left();
  take(p, start, left);
  p->to.base[start + left] = 0;
  return step::stop;
}

step fill_single(parsing* p, const field_descriptor& field) {
  if (field.parse) {
    p->rc = field.parse(p->task, p->db_id, &field, &p->from, p->to);
    return p->rc == DBE_OK ? step::next : step::stop;
  }
  const std::uint32_t length = stored_length(*p, field);
  const std::uint32_t room = p->to.length - field.offset;
  if (length > room && room <= p->from.left()) {
    take(p, field.offset, room);
    p->to.base[p->to.length - 1] = 0;
    return step::stop;
  }
  if (length > room || p->from.left() < length) return take_all_that_is_left(p, field.offset);
  take(p, field.offset, length);
  return step::next;
}

step fill_element(parsing* p, const field_descriptor& field, std::uint32_t base) {
  if (field.parse) {
    p->rc = field.parse(p->task, p->db_id, &field, &p->from, {p->to.base + base, p->to.length - base});
    return p->rc == DBE_OK ? step::next : step::stop;
  }
  const std::uint32_t start = base + field.offset;
  const std::uint32_t length = stored_length(*p, field);
  const std::uint32_t room = p->to.length - start;
  if (length > room && room <= p->from.left()) {
    take(p, start, room);
    return step::stop;
  }
  if (length > room || p->from.left() < length) return take_all_that_is_left(p, start);
  take(p, start, length);
  return step::next;
}

step fill_array(parsing* p, const field_descriptor& field) {
  std::uint32_t count = field.occ;
  if (field.count_offset != fixed_count)
    count = std::min<std::uint32_t>(
        count, take_number<std::uint16_t>({p->to.base, p->to.length}, field.count_offset));
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t base = field.length * i;
    if (base + field.offset >= p->to.length) return step::stop;
    if (fill_element(p, field, base) == step::stop) return step::stop;
  }
  return step::next;
}

}  // namespace

std::int16_t parse_keyed(void* task, std::uint32_t db_id, const void* external, void* internal,
                         std::uint32_t* external_len, std::uint32_t* internal_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const std::span<const field_descriptor> table = field_table(db_id);
  if (table.empty()) {
    co_log2(task, 36453, 0, 0, 0, "%lu", static_cast<unsigned long>(db_id));
    bracket.quitting();
    return rc = DBE_BAD_RECORD;
  }
  if (*external_len == 0) {
    ZVR_TRACE(task, 2, 2, "%s", "No data in external buffer");
    return rc;
  }
  const auto* in = static_cast<const unsigned char*>(external);
  parsing p = {task,
               db_id,
               {in, in + *external_len, nullptr},
               {static_cast<unsigned char*>(internal), *internal_len},
               DBE_OK};
  for (const field_descriptor& field : table) {
    if (field.offset >= p.to.length) break;
    if ((field.occ == 0 ? fill_single(&p, field) : fill_array(&p, field)) == step::stop) break;
  }
  return rc = p.rc;
}

}  // namespace zvrdb::keyed
