// Targets: their key, links to them, and what only a mobile client has.
#include "keyed/converters.h"
#include "keyed/record_bytes.h"
#include "memory/shared_tables.h"
#include "memory/trace.h"

namespace zvrdb::keyed {
namespace {

constexpr std::uint32_t number_len = sizeof(std::uint32_t);
constexpr std::uint32_t name_len = memory::trg_name_len;
constexpr std::uint32_t trg_key_len = 12;
constexpr std::uint32_t no_target = memory::no_server;
constexpr std::uint32_t type_offset = 144;
constexpr std::uint8_t type_mobile = 0x10;

// Whether the row is the key of the target that the record belongs to: its name follows
// in the record itself.
bool is_own_key(std::uint32_t db_id, const field_descriptor& field) {
  return db_id == DB_PRM || db_id == DB_THW || db_id == DB_SHT ||
         (db_id == DB_TRG && field.length == trg_key_len);
}

bool is_mobile(internal_record_view record) {
  return (take_number<std::uint8_t>(record, type_offset) & type_mobile) != 0;
}

}  // namespace

std::int16_t unprs_trg_key(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                           internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (to->left() < field->length) return rc = no_room(task, db_id);
  std::memset(to->at, 0, field->length);
  const name_text name = take_name(from, 0);
  std::uint32_t number = 0;
  rc = memory::get_trg_index(task, name.text, &number);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  store_number(to->at, db_id);
  store_number(to->at + number_len, number);
  to->at += field->length;
  return rc;
}

std::int16_t unprs_trg_name(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                            internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (field->offset >= from.length) return rc;
  const name_text name = take_name(from, field->offset);
  std::uint32_t number = no_target;
  if (name.text[0] == 0)
    ZVR_TRACE(task, 2, 2, "No target specified, setting index to %lu", static_cast<unsigned long>(number));
  else
    rc = memory::get_trg_index(task, name.text, &number);
  if (rc == DBE_OK && to->left() < number_len) rc = no_room(task, db_id);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  store_number(to->at, number);
  to->at += number_len;
  return rc;
}

std::int16_t prs_trg_name(void* task, std::uint32_t db_id, const field_descriptor* field,
                          external_source* from, internal_record to) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (is_own_key(db_id, *field)) {
    pass_over(from, field->length);
    return rc;
  }
  if (from->left() < number_len) return rc;
  if (to.length >= name_len && field->offset <= to.length - name_len) {
    const auto number = load_number<std::uint32_t>(from->at);
    char* name = reinterpret_cast<char*>(to.base + field->offset);
    if (number == no_target)
      *name = 0;
    else
      rc = memory::get_trg_name(task, name, number);
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
  }
  from->link = from->at;
  from->at += number_len;
  return rc;
}

std::int16_t unprs_srv_num(void* task, std::uint32_t, const field_descriptor*, external_sink*,
                           internal_record_view) {
  // The number is there already: it was written for the name before it.
  const trace_bracket bracket(task, __func__);
  return DBE_OK;
}

std::int16_t prs_srv_num(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                         internal_record to) {
  const trace_bracket bracket(task, __func__);
  // The same four bytes as the name before it.  When the data ended before them, there
  // is no number either.
  if (from->link && to.length >= number_len && field->offset <= to.length - number_len)
    std::memcpy(to.base + field->offset, from->link, number_len);
  from->link = nullptr;
  return DBE_OK;
}

std::int16_t unprs_mobstat(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                           internal_record_view from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!is_mobile(from)) return rc;
  if (to->left() < 1) {
    rc = no_room(task, db_id);
    bracket.quitting();
    return rc;
  }
  *to->at++ = take_number<std::uint8_t>(from, field->offset);
  return rc;
}

std::int16_t prs_mobstat(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                         internal_record to) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (!is_mobile({to.base, to.length})) return rc;
  if (from->left() < 1) {
    bracket.quitting();
    return rc = DBE_BUFFER_TOO_SMALL;
  }
  if (field->offset < to.length) to.base[field->offset] = *from->at;
  ++from->at;
  return rc;
}

}  // namespace zvrdb::keyed
