// Records as rows of a table for people.
#pragma once

#include <span>

#include "record_json.h"
#include "table_output.h"

namespace zvradm {

// The columns of a record type that records of this length can fill.
table record_table(const record_type& type, std::size_t length);
// A record as a row of the table for its length; a name that is to be looked up stays empty.
std::vector<std::string> record_row(const record_type& type, std::span<const unsigned char> record);
// One record in full, a field a line.
table record_sheet(const record_type& type, std::span<const unsigned char> record);

}  // namespace zvradm
