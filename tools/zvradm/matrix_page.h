// The table of states as one self-contained page.
#pragma once

#include <string>

#include "status_matrix.h"

namespace zvradm {

// HTML that needs nothing from elsewhere.  title and made_at (a date for the reader) are
// shown at the top.  No name can leave the place it is written to.
std::string matrix_page(const status_matrix& matrix, const std::string& title, const std::string& made_at);

}  // namespace zvradm
