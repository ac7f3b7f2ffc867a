// JSON lines on standard output.
#pragma once

#include <cstdio>

#include "record_json.h"

namespace zvradm {

// Throws refusal when standard output cannot be written.
void print_json(const json& value);
// A JSON value as a cell of a table: text bare, all else as JSON.
std::string cell_text(const json& value);

}  // namespace zvradm
