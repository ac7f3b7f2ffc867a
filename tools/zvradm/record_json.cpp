#include "record_json.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "change_file_name.h"
#include "refusals.h"

namespace zvradm {

namespace {

bool same_word(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

const word* find_word(std::span<const word> words, std::string_view text) {
  for (const word& w : words)
    if (same_word(w.text, text)) return &w;
  return nullptr;
}

std::string known_words(std::span<const word> words) {
  std::string all;
  for (const word& w : words) all += std::string(all.empty() ? "" : ", ") + w.text;
  return all;
}

bool all_zero(std::span<const unsigned char> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](unsigned char b) { return b == 0; });
}

// ---- record to JSON

json text_json(std::span<const unsigned char> bytes) {
  const auto end = std::find(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
  const std::string text(bytes.begin(), end);
  if (is_utf8(text)) return text;
  return json{{"hex", to_hex({bytes.data(), text.size()})}};
}

json number_json(const field& f, std::uint32_t value, bool as_words) {
  if (!as_words || f.words.empty()) return value;
  if (!(f.traits & bit_set)) {
    for (const word& w : f.words)
      if (w.value == value) return w.text;
    return value;
  }
  json names = json::array();
  std::uint32_t rest = value;
  for (const word& w : f.words)
    if ((value & w.value) != 0) {
      names.push_back(w.text);
      rest &= ~w.value;
    }
  return rest == 0 ? names : json(value);
}

// Of a long field the zero bytes at its end are left out: they come back by themselves.
json hex_json(std::span<const unsigned char> bytes) {
  constexpr std::size_t short_field = 16;
  if (bytes.size() > short_field)
    while (!bytes.empty() && bytes.back() == 0) bytes = bytes.first(bytes.size() - 1);
  return to_hex(bytes);
}

db_cf_name change_file_at(std::span<const unsigned char> bytes) {
  db_cf_name name;
  std::memcpy(&name, bytes.data(), sizeof name);
  return name;
}

json field_json(const field& f, std::span<const unsigned char> bytes, bool as_words) {
  switch (f.kind) {
    case field_kind::text:
    case field_kind::full_text:
      return text_json(bytes);
    case field_kind::number:
      return number_json(f, load_number(bytes.data(), f.width), as_words);
    case field_kind::hex:
      return hex_json(bytes);
    case field_kind::change_file:
      return change_file_json(change_file_at(bytes));
    case field_kind::list:
    case field_kind::request:
    case field_kind::correlator:
      break;
  }
  return nullptr;
}

std::uint32_t list_count(const field& f, std::span<const unsigned char> record) {
  if (f.count_at >= 0) {
    const auto at = static_cast<std::size_t>(f.count_at);
    if (at + 2 > record.size()) return 0;
    return std::min(load_number(record.data() + at, 2), f.capacity);
  }
  std::uint32_t count = f.capacity;
  while (count > 0) {
    const std::size_t at = f.offset + std::size_t{count - 1} * f.width;
    if (at + f.width <= record.size() && !all_zero(record.subspan(at, f.width))) break;
    --count;
  }
  return count;
}

json list_json(const field& f, std::span<const unsigned char> record, const print_options& options) {
  json elements = json::array();
  const std::uint32_t count = list_count(f, record);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::size_t base = f.offset + std::size_t{i} * f.width;
    if (base + f.width > record.size()) break;
    if (!f.elements[0].name) {
      elements.push_back(field_json(f.elements[0], record.subspan(base, f.width), options.words));
      continue;
    }
    json element = json::object();
    for (const field& part : f.elements) {
      const auto bytes = record.subspan(base + part.offset, part.width);
      if (part.kind == field_kind::hex && all_zero(bytes)) continue;
      element[part.name] = field_json(part, bytes, options.words);
    }
    elements.push_back(std::move(element));
  }
  return elements;
}

// ---- JSON to record

void store_text(const field& f, const json& value, const std::string& path, std::span<unsigned char> out) {
  std::vector<unsigned char> bytes;
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    bytes.assign(text.begin(), text.end());
  } else if (value.is_object() && value.size() == 1 && value.contains("hex") && value["hex"].is_string()) {
    if (!from_hex(value["hex"].get_ref<const std::string&>(), bytes))
      throw field_fault(path, "not an even number of hexadecimal digits");
  } else {
    throw field_fault(path, "must be text");
  }
  if (std::find(bytes.begin(), bytes.end(), static_cast<unsigned char>(0)) != bytes.end())
    throw field_fault(path, "holds a zero byte");
  const std::size_t room = f.kind == field_kind::full_text ? f.width : f.width - 1;
  if (bytes.size() > room)
    throw field_fault(path, std::to_string(bytes.size()) + " bytes, at most " + std::to_string(room));
  std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
  std::copy(bytes.begin(), bytes.end(), out.begin());
}

std::uint32_t word_value(const field& f, const json& value, const std::string& path) {
  const auto& text = value.get_ref<const std::string&>();
  const word* found = find_word(f.words, text);
  if (!found) throw field_fault(path, "unknown word '" + text + "'; there are " + known_words(f.words));
  return found->value;
}

std::uint32_t number_value(const field& f, const json& value, const std::string& path) {
  const std::uint64_t highest = (std::uint64_t{1} << (8 * f.width)) - 1;
  if (value.is_number_integer()) {
    const bool negative = !value.is_number_unsigned() && value.get<std::int64_t>() < 0;
    if (negative || value.get<std::uint64_t>() > highest)
      throw field_fault(path, "must be a number from 0 to " + std::to_string(highest));
    return static_cast<std::uint32_t>(value.get<std::uint64_t>());
  }
  if (value.is_string() && !f.words.empty()) return word_value(f, value, path);
  if (value.is_array() && (f.traits & bit_set)) {
    std::uint32_t bits = 0;
    for (const json& one : value) {
      if (!one.is_string()) throw field_fault(path, "a list here is a list of words");
      bits |= word_value(f, one, path);
    }
    return bits;
  }
  throw field_fault(path, f.words.empty() ? "must be a number from 0 to " + std::to_string(highest)
                                          : "must be a number or one of " + known_words(f.words));
}

void store_hex(const field& f, const json& value, const std::string& path, std::span<unsigned char> out) {
  std::vector<unsigned char> bytes;
  if (!value.is_string() || !from_hex(value.get_ref<const std::string&>(), bytes))
    throw field_fault(path, "must be an even number of hexadecimal digits");
  if (bytes.size() > f.width)
    throw field_fault(path, std::to_string(bytes.size()) + " bytes, at most " + std::to_string(f.width));
  std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
  std::copy(bytes.begin(), bytes.end(), out.begin());
}

void store_change_file(const json& value, const std::string& path, std::span<unsigned char> out) {
  try {
    const db_cf_name name = change_file_from_json(value);
    std::memcpy(out.data(), &name, sizeof name);
  } catch (const name_fault& fault) {
    throw field_fault(path, fault.what());
  }
}

void store_field(const field& f, const json& value, const std::string& path, std::span<unsigned char> out) {
  switch (f.kind) {
    case field_kind::text:
    case field_kind::full_text:
      return store_text(f, value, path, out);
    case field_kind::number:
      return store_number(out.data(), f.width, number_value(f, value, path));
    case field_kind::hex:
      return store_hex(f, value, path, out);
    case field_kind::change_file:
      return store_change_file(value, path, out);
    case field_kind::list:
    case field_kind::request:
    case field_kind::correlator:
      return;
  }
}

const field* find_field(std::span<const field> fields, std::string_view name) {
  for (const field& f : fields)
    if (name == f.name || (f.alias && name == f.alias)) return &f;
  return nullptr;
}

void store_list(const field& f, const json& value, std::span<unsigned char> record) {
  if (!value.is_array()) throw field_fault(f.name, "must be a list");
  if (value.size() > f.capacity)
    throw field_fault(f.name,
                      std::to_string(value.size()) + " elements, at most " + std::to_string(f.capacity));
  const auto whole = record.subspan(f.offset, std::size_t{f.width} * f.capacity);
  std::fill(whole.begin(), whole.end(), static_cast<unsigned char>(0));
  for (std::size_t i = 0; i < value.size(); ++i) {
    const std::string path = std::string(f.name) + "[" + std::to_string(i) + "]";
    if (!f.elements[0].name) {
      store_field(f.elements[0], value[i], path, whole.subspan(i * f.width, f.width));
      continue;
    }
    if (!value[i].is_object()) throw field_fault(path, "must be an object");
    for (const auto& [name, part_value] : value[i].items()) {
      const field* part = find_field(f.elements, name);
      if (!part) throw field_fault(path + "." + name, "unknown field");
      store_field(*part, part_value, path + "." + name,
                  whole.subspan(i * f.width + part->offset, part->width));
    }
  }
  if (f.count_at >= 0) store_number(record.data() + f.count_at, 2, static_cast<std::uint32_t>(value.size()));
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Length of the well-formed UTF-8 sequence that text starts with, 0 when there is none.
std::size_t utf8_sequence(std::string_view text) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = at(0);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  }
  if (length == 0 || text.size() < length || at(1) < low || at(1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i)
    if ((at(i) & 0xC0) != 0x80) return 0;
  return length;
}

}  // namespace

std::uint32_t load_number(const unsigned char* at, std::uint32_t width) {
  if (width == 1) return *at;
  if (width == 2) {
    std::uint16_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
  }
  std::uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

void store_number(unsigned char* at, std::uint32_t width, std::uint32_t value) {
  if (width == 1) {
    *at = static_cast<unsigned char>(value);
  } else if (width == 2) {
    const auto narrow = static_cast<std::uint16_t>(value);
    std::memcpy(at, &narrow, sizeof narrow);
  } else {
    std::memcpy(at, &value, sizeof value);
  }
}

std::string to_hex(std::span<const unsigned char> bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const unsigned char b : bytes) {
    text += digits[b >> 4];
    text += digits[b & 15];
  }
  return text;
}

bool from_hex(std::string_view digits, std::vector<unsigned char>& out) {
  out.clear();
  if (digits.size() % 2 != 0) return false;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = hex_digit(digits[i]), low = hex_digit(digits[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<unsigned char>(high * 16 + low));
  }
  return true;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_sequence(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

json record_to_json(const record_type& type, std::span<const unsigned char> record,
                    const print_options& options) {
  json object = json::object();
  for (const field& f : type.fields) {
    if (options.transferable && (f.traits & live)) continue;
    if (f.kind == field_kind::list) {
      if (f.offset > record.size()) continue;
      json elements = list_json(f, record, options);
      if (!options.transferable || !elements.empty()) object[f.name] = std::move(elements);
      continue;
    }
    if (std::size_t{f.offset} + f.width > record.size()) continue;
    const auto bytes = record.subspan(f.offset, f.width);
    const bool may_go = options.transferable && !(f.traits & needed);
    if (may_go && all_zero(bytes)) continue;
    json value = field_json(f, bytes, options.words);
    if (may_go && value.is_string() && value.get_ref<const std::string&>().empty()) continue;
    object[f.name] = std::move(value);
  }
  return object;
}

void json_to_record(const record_type& type, const json& object, std::span<unsigned char> record) {
  if (!object.is_object()) throw field_fault("", "a record is a JSON object");
  for (const auto& [name, value] : object.items()) {
    if (name == "type") {
      if (value != type.suffix) throw field_fault(name, std::string("must be \"") + type.suffix + "\" here");
      continue;
    }
    const field* f = find_field(type.fields, name);
    if (!f) throw field_fault(name, "unknown field");
    if (f->kind == field_kind::list)
      store_list(*f, value, record);
    else
      store_field(*f, value, name, record.subspan(f->offset, f->width));
  }
}

std::string json_line(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::uint32_t parse_bits(const std::string& option, const std::string& text, std::span<const word> words) {
  std::uint32_t bits = 0;
  std::size_t from = 0;
  while (from <= text.size()) {
    const std::size_t end = std::min(text.find_first_of(",+", from), text.size());
    const std::string part = text.substr(from, end - from);
    from = end + 1;
    if (const word* found = find_word(words, part)) {
      bits |= found->value;
      continue;
    }
    std::size_t used = 0;
    unsigned long value = std::numeric_limits<unsigned long>::max();
    if (!part.empty() && part[0] >= '0' && part[0] <= '9') try {
        value = std::stoul(part, &used, 0);
      } catch (const std::exception&) {
        used = 0;
      }
    if (used == 0 || used != part.size() || value > 0xFFFFFFFFu)
      throw usage_fault(option + ": '" + part + "' is neither a number nor one of " + known_words(words));
    bits |= static_cast<std::uint32_t>(value);
  }
  return bits;
}

std::string words_of(const field& f, std::uint32_t value) {
  const json words = number_json(f, value, true);
  if (words.is_string()) return words.get<std::string>();
  if (!words.is_array()) return std::to_string(value);
  std::string all;
  for (const json& one : words) all += (all.empty() ? "" : "+") + one.get<std::string>();
  return all;
}

}  // namespace zvradm
