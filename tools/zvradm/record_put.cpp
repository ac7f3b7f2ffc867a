#include "record_put.h"

#include <zvrdb/zvrdb.h>

#include <algorithm>

#include "record_keys.h"
#include "refusals.h"

namespace zvradm {

namespace {

std::vector<std::string> key_words(const record_type& type, const json& object) {
  if (!type.key_field) return {};
  const auto name = object.find(type.key_field);
  if (name == object.end()) throw field_fault(type.key_field, "is missing");
  if (name->is_object()) {  // text that is not UTF-8
    std::vector<unsigned char> bytes;
    const auto hex = name->find("hex");
    if (hex != name->end() && hex->is_string() && from_hex(hex->get_ref<const std::string&>(), bytes)) {
      if (bytes.empty()) throw field_fault(type.key_field, "is empty");
      return {std::string(bytes.begin(), bytes.end())};
    }
  }
  if (!name->is_string()) throw field_fault(type.key_field, "must be text");
  if (name->get_ref<const std::string&>().empty()) throw field_fault(type.key_field, "is empty");
  return {name->get<std::string>()};
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

std::int16_t record_writer::put(const record_type& type, const json& object, bool update) {
  const std::vector<std::string> words = key_words(type, object);
  what_ = call_text("put", type, words);
  std::fill(buffer_.begin(), buffer_.end(), static_cast<unsigned char>(0));
  // Checked before the key is looked at, so that a name that is too long is told as
  // the field it is.
  json_to_record(type, object, buffer_);
  const record_keys keys(type, words);
  if (update) {
    std::fill(buffer_.begin(), buffer_.end(), static_cast<unsigned char>(0));
    const std::int16_t code =
        db_get(task_, type.db_id, keys.count(), keys.data(), buffer_.data(), type.get_length);
    if (code != DBE_OK) {
      what_ = call_text("get", type, words);
      return code;
    }
    json_to_record(type, object, buffer_);
  }
  return db_put(task_, type.db_id, keys.count(), keys.data(), buffer_.data(), type.put_length);
}

}  // namespace zvradm
