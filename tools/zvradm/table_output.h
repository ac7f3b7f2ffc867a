// Aligned tables for people.  Widths are those of the characters on a terminal.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace zvradm {

struct table {
  std::vector<std::string> head;
  std::vector<std::vector<std::string>> rows;  // each as long as the head
  std::vector<bool> right;                     // columns set to the right; may be shorter
};

void print_table(const table& t, std::FILE* out);

// Columns that a text takes on a terminal.
std::size_t display_width(std::string_view text);
// The text with what a terminal would act upon, or could not show, replaced by '?'.
std::string printable(std::string_view text);

}  // namespace zvradm
