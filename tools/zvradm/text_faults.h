// Faults of a text told to people.
#pragma once

#include <string>
#include <vector>

#include "text_types.h"

namespace zvradm {

// "FILE, line 3: reason" a line on standard error; what does not keep the record from
// being read is marked as a note.
void tell_faults(const std::string& file, const std::vector<text_fault>& faults);

// The whole file; false when there is none.  Throws refusal.
bool read_text_file(const std::string& path, std::string& text);

}  // namespace zvradm
