// Names of change files for tests: made from tokens, and shown with dots.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace zvrtest {

using CfName = std::array<unsigned char, 76>;

// The tokens in order, each with its NUL; what is beyond eleven tokens or 65 bytes is cut.
inline CfName cf_name_of(const std::vector<std::string>& tokens) {
  CfName name{};
  name.fill(0);
  std::memset(name.data(), 255, 11);
  std::size_t at = 0;
  for (std::size_t i = 0; i < tokens.size() && i < 11 && at < 65; ++i) {
    name[i] = static_cast<unsigned char>(at);
    const std::size_t length = std::min(tokens[i].size(), 65 - at);
    std::memcpy(name.data() + 11 + at, tokens[i].data(), length);
    at += length + 1;
  }
  return name;
}

// From the dotted form; no token can hold a dot here.
inline CfName cf(const std::string& dotted) {
  std::vector<std::string> tokens(1);
  for (const char c : dotted) {
    if (c == '.')
      tokens.emplace_back();
    else
      tokens.back() += c;
  }
  return cf_name_of(tokens);
}

// The dotted form of a sound name.
inline std::string dotted(const CfName& name) {
  std::string text;
  for (std::size_t i = 0; i < 11 && name[i] < 65; ++i) {
    if (i > 0) text += '.';
    const char* token = reinterpret_cast<const char*>(name.data()) + 11 + name[i];
    text.append(token, strnlen(token, 65u - name[i]));
  }
  return text;
}

}  // namespace zvrtest
