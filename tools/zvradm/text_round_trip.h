// Whether a record can be written as text and read back as it was given.
#pragma once

#include <span>

#include "record_json.h"

namespace zvradm {

// For the record types that are texts; nothing is asked of others.  given: what the record
// was made from.  Throws field_fault for the first field that its text would not give back:
// a text with a line feed, a number that its line cuts, a word that the routes lack.
void require_text_keeps(void* task, const record_type& type, const json& given,
                        std::span<const unsigned char> record);

}  // namespace zvradm
