// Blocks whose stored length stands in the record, and the report of a target.
#include "keyed/converters.h"
#include "keyed/record_bytes.h"
#include "memory/trace.h"

namespace zvrdb::keyed {
namespace {

constexpr std::uint32_t fan_blk_count = 124;  // u16
constexpr std::uint32_t vector_count = 616;   // u32

constexpr std::uint32_t report_len = 1060;
constexpr std::uint32_t report_head_len = 34;     // behind the type
constexpr std::uint32_t report_text_offset = 36;  // string, up to the end of the block
constexpr std::uint32_t report_text_len = report_len - report_text_offset;
constexpr std::uint16_t report_with_text = 1;
constexpr std::uint16_t no_report = 0xFFFF;

std::uint32_t length_to_move(const field_descriptor& field, std::uint32_t internal_length,
                             std::uint32_t count) {
  return field.offset < internal_length ? std::min(internal_length - field.offset, count) : 0;
}

std::int16_t store_block(void* task, std::uint32_t db_id, const field_descriptor& field, std::uint32_t count,
                         external_sink* to, internal_record_view from) {
  const std::uint32_t length = length_to_move(field, from.length, count);
  if (to->left() < length) return no_room(task, db_id);
  if (length > 0) std::memcpy(to->at, from.base + field.offset, length);
  to->at += length;
  return DBE_OK;
}

// False when the data ends before the block does; nothing is moved then.
bool load_block(const field_descriptor& field, std::uint32_t count, external_source* from,
                internal_record to) {
  const std::uint32_t length = length_to_move(field, to.length, count);
  if (from->left() < length) return false;
  if (length > 0) std::memcpy(to.base + field.offset, from->at, length);
  from->at += length;
  return true;
}

bool holds_report(const field_descriptor& field, std::uint32_t internal_length) {
  return internal_length >= report_len && field.offset <= internal_length - report_len;
}

void log_report_type(void* task, std::uint16_t type) {
  co_log2(task, 36454, 0, 0, 0, "%hu", type);
}

}  // namespace

std::int16_t unprs_fan_blk(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                           internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = store_block(task, db_id, *field, take_number<std::uint16_t>(from, fan_blk_count), to, from);
}

std::int16_t prs_fan_blk(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                         internal_record to) {
  const trace_bracket bracket(task, __func__);
  const auto count = take_number<std::uint16_t>({to.base, to.length}, fan_blk_count);
  if (!load_block(*field, count, from, to))
    ZVR_TRACE(task, 2, 2, "%s", "End of data in external buffer prs_fan_blk()");
  return DBE_OK;
}

std::int16_t unprs_vector(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                          internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = store_block(task, db_id, *field, take_number<std::uint32_t>(from, vector_count), to, from);
}

std::int16_t prs_vector(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                        internal_record to) {
  const trace_bracket bracket(task, __func__);
  const auto count = take_number<std::uint32_t>({to.base, to.length}, vector_count);
  if (!load_block(*field, count, from, to))
    ZVR_TRACE(task, 2, 2, "%s", "End of data in external buffer prs_vector()");
  return DBE_OK;
}

std::int16_t unprs_report(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                          internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!holds_report(*field, from.length)) return rc;
  const unsigned char* report = from.base + field->offset;
  auto type = load_number<std::uint16_t>(report);
  if (type != report_with_text && type != no_report) {
    log_report_type(task, type);
    type = no_report;
  }
  if (to->left() < sizeof type) return rc = no_room(task, db_id);
  store_number(to->at, type);
  to->at += sizeof type;
  if (type == no_report) return rc;
  if (to->left() < report_head_len) return rc = no_room(task, db_id);
  std::memcpy(to->at, report + sizeof type, report_head_len);
  to->at += report_head_len;
  const auto* text = reinterpret_cast<const char*>(report + report_text_offset);
  const auto length = static_cast<std::uint32_t>(strnlen(text, report_text_len));
  if (to->left() < length + 1) return rc = no_room(task, db_id);
  std::memcpy(to->at, text, length);
  to->at[length] = 0;
  to->at += length + 1;
  return rc;
}

std::int16_t prs_report(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                        internal_record to) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!holds_report(*field, to.length)) return rc;
  unsigned char* report = to.base + field->offset;
  std::memset(report, 0, report_len);
  if (from->left() < sizeof(std::uint16_t)) {
    ZVR_TRACE(task, 2, 2, "%s", "End of data in external buffer (1)");
    return rc;
  }
  const auto type = load_number<std::uint16_t>(from->at);
  if (type != report_with_text && type != no_report) {
    log_report_type(task, type);
    bracket.quitting();
    return rc = DBE_BAD_RECORD;
  }
  store_number(report, type);
  from->at += sizeof type;
  if (type == no_report) return rc;
  if (from->left() < report_head_len) {
    ZVR_TRACE(task, 2, 2, "%s", "End of data in external buffer (2)");
    return rc;
  }
  std::memcpy(report + sizeof type, from->at, report_head_len);
  from->at += report_head_len;
  const auto* text = reinterpret_cast<const char*>(from->at);
  const auto length = static_cast<std::uint32_t>(strnlen(text, from->left()));
  if (length == from->left()) {
    ZVR_TRACE(task, 2, 2, "%s", "End of data in external buffer (3)");
    return rc;
  }
  std::memcpy(report + report_text_offset, text, std::min(length, report_text_len));
  from->at += length + 1;
  return rc;
}

}  // namespace zvrdb::keyed
