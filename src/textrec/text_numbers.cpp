#include "textrec/text_numbers.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>

namespace zvrdb::textrec {
namespace {

bool is_negative(const char* text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  return *text == '-';
}

std::int32_t signed_of_base(const char* text, int base) {
  using limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<long long>(std::strtoll(text, nullptr, base), limits::min(), limits::max()));
}

}  // namespace

std::int32_t signed_number(const char* text) {
  return signed_of_base(text, 0);
}

std::int32_t decimal_number(const char* text) {
  return signed_of_base(text, 10);
}

std::uint32_t unsigned_number(const char* text) {
  constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
  const int kept = errno;
  errno = 0;
  const unsigned long long number = std::strtoull(text, nullptr, 0);
  const bool overflow = errno == ERANGE;
  errno = kept;
  // A minus sign takes the number from zero, whatever the width: "-1" has all bits set.
  const unsigned long long magnitude = is_negative(text) ? 0 - number : number;
  if (overflow || magnitude > most) return most;
  return static_cast<std::uint32_t>(number);
}

}  // namespace zvrdb::textrec
