// Keys of users, profiles, groups, access keys and the catalog.
#include "keyed/converters.h"
#include "keyed/record_bytes.h"
#include "memory/shared_tables.h"
#include "memory/trace.h"

namespace zvrdb::keyed {
namespace {

constexpr std::uint32_t id_len = 4;     // record type, first field of these keys
constexpr std::uint32_t piece_len = 4;  // piece number, the last
constexpr std::uint32_t user_key_len = 24;
constexpr std::uint32_t group_key_len = 72;
constexpr std::uint32_t catalog_key_len = 16;

template <std::uint32_t key_len>
std::int16_t name_from_key(const field_descriptor* field, external_source* from, internal_record to) {
  const external_key<key_len> key(*from);
  if (field->offset < to.length) {
    const auto* name = reinterpret_cast<const char*>(key.bytes + id_len);
    const auto length = static_cast<std::uint32_t>(strnlen(name, key_len - id_len - piece_len));
    std::memcpy(to.base + field->offset, name, std::min(length, to.length - field->offset));
  }
  pass_over(from, key_len);
  return DBE_OK;
}

// The engine's key is the one given to the record operation.  Here only its place and
// the name in it are made.
template <std::uint32_t key_len>
std::int16_t name_into_key(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                           internal_record_view from) {
  if (to->left() < key_len) return no_room(task, db_id);
  std::memset(to->at, 0, key_len);
  take_text(from, field->offset, to->at + id_len, key_len - id_len - piece_len);
  to->at += key_len;
  return DBE_OK;
}

std::int16_t empty_key(void* task, std::uint32_t db_id, external_sink* to, std::uint32_t key_len) {
  if (to->left() < key_len) return no_room(task, db_id);
  std::memset(to->at, 0, key_len);
  to->at += key_len;
  return DBE_OK;
}

}  // namespace

std::int16_t prs_usr_name(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                          internal_record to) {
  const trace_bracket bracket(task, __func__);
  return name_from_key<user_key_len>(field, from, to);
}

std::int16_t prs_apr_name(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                          internal_record to) {
  const trace_bracket bracket(task, __func__);
  return name_from_key<user_key_len>(field, from, to);
}

std::int16_t prs_tg_name(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                         internal_record to) {
  const trace_bracket bracket(task, __func__);
  return name_from_key<group_key_len>(field, from, to);
}

std::int16_t prs_dtg_name(void* task, std::uint32_t, const field_descriptor* field, external_source* from,
                          internal_record to) {
  const trace_bracket bracket(task, __func__);
  return name_from_key<group_key_len>(field, from, to);
}

std::int16_t unprs_usr_name(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                            internal_record_view from) {
  const trace_bracket bracket(task, __func__);
  return name_into_key<user_key_len>(task, db_id, field, to, from);
}

std::int16_t unprs_apr_name(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                            internal_record_view from) {
  const trace_bracket bracket(task, __func__);
  return name_into_key<user_key_len>(task, db_id, field, to, from);
}

std::int16_t unprs_tg_name(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                           internal_record_view from) {
  const trace_bracket bracket(task, __func__);
  return name_into_key<group_key_len>(task, db_id, field, to, from);
}

std::int16_t unprs_dtg_name(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                            internal_record_view from) {
  const trace_bracket bracket(task, __func__);
  return name_into_key<group_key_len>(task, db_id, field, to, from);
}

std::int16_t prs_ak(void* task, std::uint32_t, const field_descriptor*, external_source* from,
                    internal_record) {
  const trace_bracket bracket(task, __func__);
  pass_over(from, user_key_len);
  return DBE_OK;
}

std::int16_t unprs_ak(void* task, std::uint32_t db_id, const field_descriptor*, external_sink* to,
                      internal_record_view) {
  const trace_bracket bracket(task, __func__);
  return empty_key(task, db_id, to, user_key_len);
}

std::int16_t prs_cat_key(void* task, std::uint32_t db_id, const field_descriptor*, external_source* from,
                         internal_record to) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  constexpr std::uint32_t product_offset = 76;
  constexpr std::uint32_t fileset_offset = 78;
  const external_key<catalog_key_len> key(*from);
  if ((db_id == DB_PRD || db_id == DB_FST) && to.length >= fileset_offset) {
    std::memcpy(to.base + product_offset, key.bytes + 6, sizeof(std::uint16_t));
    if (db_id == DB_FST && to.length >= fileset_offset + sizeof(std::uint16_t))
      std::memcpy(to.base + fileset_offset, key.bytes + 8, sizeof(std::uint16_t));
    rc = memory::get_cat_name(task, to.base, load_number<std::uint16_t>(key.bytes + 4));
    if (rc != DBE_OK) {
      bracket.quitting();
      return rc;
    }
  }
  pass_over(from, catalog_key_len);
  return rc;
}

std::int16_t unprs_cat_key(void* task, std::uint32_t db_id, const field_descriptor*, external_sink* to,
                           internal_record_view) {
  const trace_bracket bracket(task, __func__);
  return empty_key(task, db_id, to, catalog_key_len);
}

}  // namespace zvrdb::keyed
