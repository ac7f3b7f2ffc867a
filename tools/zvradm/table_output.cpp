#include "table_output.h"

#include <algorithm>
#include <cwchar>

namespace zvradm {

namespace {

struct character {
  std::size_t bytes;
  int columns;  // negative: not printable
};

character next_character(std::string_view text) {
  std::mbstate_t state{};
  wchar_t wide = 0;
  const std::size_t bytes = std::mbrtowc(&wide, text.data(), text.size(), &state);
  if (bytes == 0 || bytes > text.size()) return {1, -1};
  return {bytes, wcwidth(wide)};
}

}  // namespace

std::size_t display_width(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    const character c = next_character(text);
    columns += c.columns < 0 ? 1u : static_cast<std::size_t>(c.columns);
    text.remove_prefix(c.bytes);
  }
  return columns;
}

std::string printable(std::string_view text) {
  std::string clean;
  while (!text.empty()) {
    const character c = next_character(text);
    if (c.columns < 0)
      clean += '?';
    else
      clean += text.substr(0, c.bytes);
    text.remove_prefix(c.bytes);
  }
  return clean;
}

void print_table(const table& t, std::FILE* out) {
  std::vector<std::vector<std::string>> lines{t.head};
  for (const auto& row : t.rows) {
    lines.emplace_back();
    for (const std::string& cell : row) lines.back().push_back(printable(cell));
  }
  std::vector<std::size_t> widths(t.head.size(), 0);
  for (const auto& line : lines)
    for (std::size_t i = 0; i < widths.size() && i < line.size(); ++i)
      widths[i] = std::max(widths[i], display_width(line[i]));
  for (const auto& line : lines) {
    std::string text;
    for (std::size_t i = 0; i < widths.size() && i < line.size(); ++i) {
      const std::string pad(widths[i] - display_width(line[i]), ' ');
      const bool right = i < t.right.size() && t.right[i];
      text += (i == 0 ? "" : "  ") + (right ? pad + line[i] : line[i] + pad);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    std::fprintf(out, "%s\n", text.c_str());
  }
}

}  // namespace zvradm
