#include "record_keys.h"

#include <algorithm>

#include "refusals.h"

namespace zvradm {

namespace {

std::vector<char> key_area(const key_part& part, const std::string& text) {
  if (part.width == 1) {
    const bool digits = !text.empty() && text.size() <= 3 &&
                        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const int value = digits ? std::stoi(text) : 256;
    if (value > 255) throw usage_fault(std::string(part.name) + " must be a number from 0 to 255");
    return {static_cast<char>(static_cast<unsigned char>(value))};
  }
  if (text.size() >= part.width)
    throw usage_fault(std::string(part.name) + " is " + std::to_string(text.size()) +
                      " bytes long, at most " + std::to_string(part.width - 1));
  std::vector<char> area(part.width, '\0');
  std::copy(text.begin(), text.end(), area.begin());
  return area;
}

}  // namespace

record_keys::record_keys(const record_type& type, const std::vector<std::string>& words) {
  // A first word names the record; the parts behind it may be left out.
  const std::size_t least = type.keys.empty() ? 0 : 1;
  if (words.size() < least || words.size() > type.keys.size())
    throw usage_fault(std::string("type ") + type.suffix + " takes " +
                      (type.keys.empty() ? "no key" : "the key " + key_form(type)));
  for (std::size_t i = 0; i < type.keys.size(); ++i) {
    const std::string missing = type.keys[i].width == 1 ? "0" : "";
    areas_.push_back(key_area(type.keys[i], i < words.size() ? words[i] : missing));
  }
  for (const std::vector<char>& area : areas_) pointers_.push_back(area.data());
}

std::string key_form(const record_type& type) {
  std::string form;
  for (const key_part& part : type.keys)
    form += form.empty() ? part.name : std::string(" [") + part.name + "]";
  return form;
}

std::string call_text(const char* verb, const record_type& type, const std::vector<std::string>& words) {
  std::string text = std::string(verb) + " " + type.suffix;
  for (const std::string& key : words) text += " \"" + key + "\"";
  return text;
}

}  // namespace zvradm
