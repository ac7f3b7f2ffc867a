// The table of states for the eye in a terminal.
#pragma once

#include <string>

#include "status_matrix.h"

namespace zvradm {

struct text_style {
  std::size_t width = 80;  // columns of the terminal; the table is split into blocks as wide
  bool colours = false;
};

// What standard output is: its width, and whether colours are welcome there (a terminal,
// and NO_COLOR not set).  COLUMNS overrides the width.
text_style style_of_output();

std::string matrix_text(const status_matrix& matrix, const text_style& style);

}  // namespace zvradm
