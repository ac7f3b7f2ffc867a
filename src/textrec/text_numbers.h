// Numbers of text records.  They are read as a machine of 32-bit longs reads them:
// base 0 ("0x" hexadecimal, a leading 0 octal), beyond 32 bits they stay at the limit,
// and what is no number is 0.
#pragma once

#include <cstdint>

namespace zvrdb::textrec {

std::int32_t signed_number(const char* text);
std::uint32_t unsigned_number(const char* text);
// The leading decimal digits, as atoi.
std::int32_t decimal_number(const char* text);

}  // namespace zvrdb::textrec
