#include "record_keys.h"

#include <algorithm>
#include <cstring>

#include "change_file_name.h"
#include "record_json.h"
#include "refusals.h"
#include "request_name.h"

namespace zvradm {

namespace {

std::vector<unsigned char> bytes_of(const db_cf_name& name) {
  std::vector<unsigned char> bytes(sizeof name);
  std::memcpy(bytes.data(), &name, sizeof name);
  return bytes;
}

std::vector<unsigned char> number_bytes(const key_part& part, const std::string& text) {
  const std::uint32_t highest = (1u << (8 * part.width)) - 1;
  const bool digits = !text.empty() && text.size() <= 5 &&
                      std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  const unsigned long value = digits ? std::stoul(text) : highest + 1ul;
  if (value > highest)
    throw usage_fault(std::string(part.name) + " must be a number from 0 to " + std::to_string(highest));
  std::vector<unsigned char> bytes(part.width);
  store_number(bytes.data(), part.width, static_cast<std::uint32_t>(value));
  return bytes;
}

std::vector<unsigned char> text_bytes(const key_part& part, const std::string& text) {
  const std::size_t most = part.kind == field_kind::full_text ? part.width : part.width - 1;
  if (text.size() > most)
    throw usage_fault(std::string(part.name) + " is " + std::to_string(text.size()) +
                      " bytes long, at most " + std::to_string(most));
  std::vector<unsigned char> bytes(part.width);
  std::copy(text.begin(), text.end(), bytes.begin());
  return bytes;
}

request_form form_of(const key_part& part) {
  return part.width < sizeof(db_rqf_id) ? request_form::root : request_form::function;
}

std::vector<unsigned char> request_bytes(const key_part& part, const std::string& words) {
  std::vector<unsigned char> bytes(part.width);
  try {
    if (part.kind == field_kind::correlator) {
      const db_coo record = parse_correlator(words);
      std::memcpy(bytes.data(), &record, std::min(bytes.size(), sizeof record));
    } else {
      const db_rqf_id id = parse_request(words, form_of(part));
      std::memcpy(bytes.data(), &id, std::min(bytes.size(), sizeof id));
    }
  } catch (const request_fault& fault) {
    throw usage_fault(std::string(part.name) + ": " + fault.what());
  }
  return bytes;
}

std::vector<unsigned char> key_bytes(const key_part& part, const std::string& text) {
  switch (part.kind) {
    case field_kind::number:
      return number_bytes(part, text);
    case field_kind::change_file:
      return bytes_of(change_file_argument(text));
    case field_kind::request:
    case field_kind::correlator:
      return request_bytes(part, text);
    default:
      return text_bytes(part, text);
  }
}

std::string key_word(const key_part& part, const std::vector<unsigned char>& bytes) {
  if (part.kind == field_kind::number) return std::to_string(load_number(bytes.data(), part.width));
  if (part.kind == field_kind::change_file) {
    db_cf_name name;
    std::memcpy(&name, bytes.data(), sizeof name);
    return change_file_text(name);
  }
  if (part.kind == field_kind::request) {
    db_rqf_id id{};
    std::memcpy(&id, bytes.data(), std::min(bytes.size(), sizeof id));
    return request_text(id, form_of(part));
  }
  return {bytes.begin(), std::find(bytes.begin(), bytes.end(), static_cast<unsigned char>(0))};
}

}  // namespace

void record_keys::add(const key_part& part, const std::vector<unsigned char>& bytes) {
  if (part.joined)
    areas_.back().insert(areas_.back().end(), bytes.begin(), bytes.end());
  else
    areas_.push_back(bytes);
}

void record_keys::point() {
  for (const std::vector<unsigned char>& area : areas_) pointers_.push_back(area.data());
}

record_keys::record_keys(const record_type& type, const std::vector<std::string>& words) : words_(words) {
  std::size_t least = 0, most = 0;
  for (const key_part& part : type.keys) {
    if (part.name && !part.optional) ++least;
    if (part.name) ++most;
  }
  if (words.size() < least || words.size() > most)
    throw usage_fault(std::string("type ") + type.suffix + " takes " +
                      (type.keys.empty() ? "no key" : "the key " + key_form(type)));
  for (std::size_t i = 0; i < type.keys.size(); ++i) {
    const bool given = i < words.size();
    add(type.keys[i],
        given ? key_bytes(type.keys[i], words[i]) : std::vector<unsigned char>(type.keys[i].width));
  }
  point();
}

record_keys::record_keys(const record_type& type, std::span<const unsigned char> record) {
  for (const key_part& part : type.keys) {
    std::vector<unsigned char> bytes(part.width);
    if (part.field_name) {
      const field& f = type.field_named(part.field_name);
      // A request is the head of the record, of which the field is the first.
      const std::uint32_t length = part.kind == field_kind::request ? part.width : std::min(f.width, part.width);
      std::copy_n(record.begin() + f.offset, length, bytes.begin());
      words_.push_back(key_word(part, bytes));
    }
    add(part, bytes);
  }
  point();
}

std::string key_form(const record_type& type) {
  std::string form;
  for (const key_part& part : type.keys) {
    if (!part.name) continue;
    form += form.empty() ? "" : " ";
    form += part.optional ? std::string("[") + part.name + "]" : part.name;
  }
  return form;
}

std::string call_text(const char* verb, const record_type& type, const std::vector<std::string>& words) {
  std::string text = std::string(verb) + " " + type.suffix;
  for (const std::string& key : words) text += " \"" + key + "\"";
  return text;
}

db_cf_name change_file_argument(const std::string& text) {
  try {
    return parse_change_file_name(text);
  } catch (const name_fault& fault) {
    throw usage_fault(fault.what());
  }
}

}  // namespace zvradm
