// The targets that users and groups name.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "record_fields.h"

namespace zvradm {

// The list of such names that a type has, or null.
const field* list_of_targets(const record_type& type);

// Takes the names out of the record that no target bears, as of targets deleted since the
// record was stored; answers them.
std::vector<std::string> drop_unknown_targets(void* task, const record_type& type,
                                              std::span<unsigned char> record);

// The names in the record that no target bears and that keep it from being stored, with
// their fields: `"ROMA" (members[2])`.  The first ten.
std::string unknown_targets(void* task, const record_type& type, std::span<const unsigned char> record);

}  // namespace zvradm
