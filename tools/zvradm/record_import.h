// Storing of many records whose order need not suit the links between them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "progress.h"
#include "record_put.h"

namespace zvradm {

struct import_line {
  std::uint64_t number;
  std::string text;
};

struct import_counts {
  std::uint64_t added = 0, replaced = 0, refused = 0;
};

// The type that a line names.  Throws field_fault when it is none that can be imported.
const record_type& imported_type(const json& object);

// Told for each refused line: its number and what is wrong.
using refusal_fn = std::function<void(std::uint64_t line, const std::string& text)>;

// Stores the records of one phase; a record whose target or server is not there yet waits for the
// others, and servers that are each other's clients are linked when all are there.
// Ends at the first refused line unless keep_going.
import_counts import_records(void* task, std::vector<import_line> lines, bool keep_going,
                             const refusal_fn& refused, progress& shown);

}  // namespace zvradm
