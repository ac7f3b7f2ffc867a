// Stores a value by the kind of its keyword.
#pragma once

#include <cstdint>

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

// value: leading white space already gone.  0; 8195 when the value is none of its kind.
std::int16_t store_by_kind(void* task, const special_value& given, char* value);

}  // namespace zvrdb::textrec
