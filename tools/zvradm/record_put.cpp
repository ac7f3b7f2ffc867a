#include "record_put.h"

#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "named_targets.h"
#include "refusals.h"
#include "status_read.h"
#include "text_round_trip.h"
#include "text_types.h"

namespace zvradm {

namespace {

// The fields that may not be left out; with update only those of the keys.
void require_fields(const record_type& type, const json& object, bool update) {
  for (const field& f : type.fields) {
    const bool in_key = std::any_of(type.keys.begin(), type.keys.end(), [&](const key_part& part) {
      return part.field_name && std::string_view(part.field_name) == f.name;
    });
    if ((f.traits & needed) && (in_key || !update) && !object.contains(f.name))
      throw field_fault(f.name, type.db_id == DB_CFG ? "is missing; put --update keeps what is left out"
                                                     : "is missing");
  }
}

// A target has a name; change files may have any that was read.
void require_names(const record_type& type, std::span<const unsigned char> record) {
  for (const key_part& part : type.keys)
    if (part.kind == field_kind::text && part.field_name &&
        record[type.field_named(part.field_name).offset] == 0)
      throw field_fault(part.field_name, "is empty");
}

// Bytes that are kept as far as a number beside them tells: without that number all that
// were given.
void count_bytes(const record_type& type, const json& object, std::span<unsigned char> record) {
  struct counted_row {
    std::uint32_t db_id;
    const char *bytes, *count;
  };
  constexpr std::array rows{counted_row{DB_FAN, "block", "block_length"},
                            counted_row{DB_RQV, "vector", "vector_length"}};
  for (const counted_row& row : rows) {
    if (row.db_id != type.db_id || !object.contains(row.bytes) || object.contains(row.count)) continue;
    const field& f = type.field_named(row.count);
    const std::size_t digits = object[row.bytes].get_ref<const std::string&>().size();
    store_number(record.data() + f.offset, f.width, static_cast<std::uint32_t>(digits / 2));
  }
}

// A text record is a file of the name of its key.
void require_file_name(const record_type& type, std::span<const unsigned char> record) {
  const text_type* lines = find_text_type(type.suffix);
  if (!lines || !lines->many) return;
  const field& f = type.fields.front();
  const auto at = record.begin() + f.offset;
  const std::string name(at, std::find(at, at + f.width, static_cast<unsigned char>(0)));
  try {
    (void)text_path("", *lines, name);
  } catch (const usage_fault& fault) {
    throw field_fault(f.name, fault.what());
  }
}

}  // namespace

json parse_record_line(const std::string& line) {
  json object;
  try {
    object = json::parse(line);
  } catch (const json::parse_error& fault) {
    throw field_fault("", "not JSON at byte " + std::to_string(fault.byte));
  }
  if (!object.is_object()) throw field_fault("", "a record is a JSON object");
  return object;
}

void record_writer::require_kept(const record_type& type, const json& object) const {
  if (text_rule_ == texts::keeps) require_text_keeps(task_, type, object, buffer_);
}

record_keys record_writer::prepare(const record_type& type, const json& object, bool update) {
  std::fill(buffer_.begin(), buffer_.end(), static_cast<unsigned char>(0));
  // First, so that a name that is misspelt is told and not missed.
  json_to_record(type, object, buffer_);
  require_fields(type, object, update);
  require_names(type, buffer_);
  require_file_name(type, buffer_);
  if (!update) require_kept(type, object);
  if (!update) count_bytes(type, object, buffer_);
  return record_keys(type, buffer_);
}

// What is stored already, into the buffer.  A default status is not stored.
std::int16_t record_writer::read_stored(const record_type& type, const record_keys& keys) {
  if (type.db_id == DB_CMS) {
    const pair_status stored = read_status(task_, keys);
    std::memcpy(buffer_.data(), &stored.record, sizeof stored.record);
    return stored.is_default ? static_cast<std::int16_t>(DBE_NOT_FOUND) : stored.code;
  }
  std::fill(buffer_.begin(), buffer_.end(), static_cast<unsigned char>(0));
  return db_get(task_, type.db_id, keys.count(), keys.data(), buffer_.data(), type.get_length);
}

bool record_writer::is_there(const record_type& type, const json& object) {
  const record_keys keys = prepare(type, object, false);
  return db_get(task_, type.db_id, keys.count(), keys.data(), buffer_.data(), 0) == DBE_OK;
}

void record_writer::raise_last_seqno(const json& object) {
  const record_type& type = record_type_named("usr");
  const record_keys keys = prepare(type, object, false);
  db_usr wanted, stored{};
  std::memcpy(&wanted, buffer_.data(), sizeof wanted);
  const std::int16_t code = db_get(task_, DB_USR, keys.count(), keys.data(), &stored, sizeof stored);
  require_ok(call_text("get", type, keys.words()), code);
  if (stored.last_seqno >= wanted.last_seqno) return;
  const std::int16_t again = db_put(task_, DB_USR, keys.count(), keys.data(), &wanted, sizeof wanted);
  if (!is_stored(again)) throw library_refusal(call_text("put", type, keys.words()), again);
}

std::string record_writer::refused(const record_type& type, std::int16_t code) {
  const std::string unknown = code == DBE_NO_TARGET ? unknown_targets(task_, type, buffer_) : "";
  if (unknown.empty()) return library_refusal(what_, code).what();
  return what_ + ": " + code_name(code) + " (" + std::to_string(code) + "): there is no target " + unknown;
}

std::int16_t record_writer::put(const record_type& type, const json& object, bool update) {
  const record_keys keys = prepare(type, object, update);
  what_ = call_text("put", type, keys.words());
  if (update) {
    const std::int16_t code = read_stored(type, keys);
    if (code != DBE_OK) {
      what_ = call_text("get", type, keys.words());
      return code;
    }
    json_to_record(type, object, buffer_);
    require_kept(type, object);
    count_bytes(type, object, buffer_);
  }
  return db_put(task_, type.db_id, keys.count(), keys.data(), buffer_.data(), type.put_length);
}

}  // namespace zvradm
