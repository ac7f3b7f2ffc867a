#include "change_file_name.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "record_json.h"

namespace zvradm {

namespace {

constexpr std::size_t most_tokens = sizeof(db_cf_name::token);
constexpr std::size_t text_room = sizeof(db_cf_name::text);
constexpr std::uint8_t no_token = 255;
constexpr std::string_view raw_mark = "\\x";

std::string escaped(std::string_view token) {
  std::string text;
  for (const char c : token) {
    if (c == '.' || c == '\\') text += '\\';
    text += c;
  }
  return text;
}

std::string joined(const std::vector<std::string>& tokens) {
  std::string text;
  for (std::size_t i = 0; i < tokens.size(); ++i) text += (i == 0 ? "" : ".") + escaped(tokens[i]);
  return text;
}

name_fault fault_of(std::string_view name, const std::string& what) {
  return name_fault("change file \"" + std::string(name) + "\" " + what);
}

db_cf_name name_of_bytes(std::string_view digits) {
  std::vector<unsigned char> bytes;
  db_cf_name name;
  if (!from_hex(digits, bytes) || bytes.size() != sizeof name)
    throw name_fault("the bytes of a change file's name are " + std::to_string(2 * sizeof name) +
                     " hexadecimal digits");
  std::memcpy(&name, bytes.data(), sizeof name);
  return name;
}

std::string digits_of(const db_cf_name& name) {
  unsigned char bytes[sizeof name];
  std::memcpy(bytes, &name, sizeof name);
  return to_hex(bytes);
}

std::string token_from_json(const json& value) {
  if (value.is_string()) return value.get<std::string>();
  std::vector<unsigned char> bytes;
  const bool hex =
      value.is_object() && value.size() == 1 && value.contains("hex") && value["hex"].is_string();
  if (!hex || !from_hex(value["hex"].get_ref<const std::string&>(), bytes))
    throw name_fault("a token of a change file's name must be text");
  return {bytes.begin(), bytes.end()};
}

}  // namespace

db_cf_name change_file_name(const std::vector<std::string>& tokens) {
  if (tokens.empty()) throw name_fault("the name of a change file has at least one token");
  if (tokens.size() > most_tokens)
    throw fault_of(joined(tokens), "has " + std::to_string(tokens.size()) + " tokens, at most " +
                                       std::to_string(most_tokens));
  std::size_t bytes = 0;
  for (const std::string& token : tokens) {
    if (token.find('\0') != std::string::npos)
      throw name_fault("a token of a change file's name holds a zero byte");
    bytes += token.size() + 1;
  }
  if (bytes > text_room)
    throw fault_of(joined(tokens), "takes " + std::to_string(bytes) + " bytes, at most " +
                                       std::to_string(text_room) + " (each token its length and one more)");
  db_cf_name name{};
  std::fill(std::begin(name.token), std::end(name.token), no_token);
  std::size_t at = 0;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    name.token[i] = static_cast<std::uint8_t>(at);
    std::memcpy(name.text + at, tokens[i].data(), tokens[i].size());
    at += tokens[i].size() + 1;
  }
  return name;
}

std::vector<std::string> tokens_of(const db_cf_name& name) {
  std::vector<std::string> tokens;
  for (const std::uint8_t at : name.token) {
    if (at >= text_room) break;
    tokens.emplace_back(name.text + at, strnlen(name.text + at, text_room - at));
  }
  return tokens;
}

bool is_plain_name(const db_cf_name& name) {
  const std::vector<std::string> tokens = tokens_of(name);
  std::size_t bytes = 0;
  for (const std::string& token : tokens) bytes += token.size() + 1;
  if (tokens.empty() || bytes > text_room) return false;
  const db_cf_name plain = change_file_name(tokens);
  return std::memcmp(&plain, &name, sizeof name) == 0;
}

db_cf_name parse_change_file_name(std::string_view text) {
  if (text.empty()) throw name_fault("the name of a change file is empty");
  if (text.substr(0, raw_mark.size()) == raw_mark) return name_of_bytes(text.substr(raw_mark.size()));
  std::vector<std::string> tokens(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '.') {
      tokens.emplace_back();
      continue;
    }
    if (text[i] == '\\') {
      ++i;
      if (i == text.size() || (text[i] != '.' && text[i] != '\\'))
        throw fault_of(text, R"(has a backslash that stands before neither '.' nor '\'; write '\\' for one)");
    }
    tokens.back() += text[i];
  }
  return change_file_name(tokens);
}

std::string change_file_text(const db_cf_name& name) {
  if (!is_plain_name(name)) return std::string(raw_mark) + digits_of(name);
  // One empty token would be the empty text, which stands for no name.
  const std::string text = joined(tokens_of(name));
  return text.empty() ? std::string(raw_mark) + digits_of(name) : text;
}

db_cf_name change_file_from_json(const json& value) {
  if (value.is_object() && value.size() == 1 && value.contains("hex") && value["hex"].is_string())
    return name_of_bytes(value["hex"].get_ref<const std::string&>());
  if (!value.is_array()) throw name_fault("the name of a change file must be a list of its tokens");
  std::vector<std::string> tokens;
  for (const json& one : value) tokens.push_back(token_from_json(one));
  return change_file_name(tokens);
}

json change_file_json(const db_cf_name& name) {
  if (!is_plain_name(name)) return json{{"hex", digits_of(name)}};
  json tokens = json::array();
  for (const std::string& token : tokens_of(name)) {
    if (is_utf8(token))
      tokens.push_back(token);
    else
      tokens.push_back(json{{"hex", to_hex(std::vector<unsigned char>(token.begin(), token.end()))}});
  }
  return tokens;
}

}  // namespace zvradm
