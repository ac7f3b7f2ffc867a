// Faults of a text are told in one way: to the message log, or to whoever asked.
#pragma once

#include <zvrco/zvrco.h>

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

inline constexpr std::uint32_t unknown_keyword = 36376;
inline constexpr std::uint32_t unknown_word = 36377;
inline constexpr std::uint32_t too_many_occurrences = 36378;
inline constexpr std::uint32_t value_too_long = 36379;
inline constexpr std::uint32_t unknown_kind = 36380;
inline constexpr std::uint32_t address_cut = 36381;
inline constexpr std::uint32_t bad_character = 36405;
inline constexpr std::uint32_t bad_route = 36415;

// format: inserts joined by '|', as the message log takes them.
template <class... Inserts>
void tell_fault(void* task, const fault_place& place, std::uint32_t number, const char* format,
                Inserts... inserts) {
  if (!place.sink) {
    co_log2(task, number, 0, 0, 0, format, inserts...);
    return;
  }
  char rendered[CO_MESSAGE_BUFFER] = {};
  co_log2_notest(task, number, rendered, 0, 0, format, inserts...);
  rendered[CO_MESSAGE_BUFFER - 1] = 0;
  place.sink->tell(place.sink->context, place.line, number, rendered + CO_MESSAGE_PREFIX);
}

// What exceeds its limit: the text, the most that is allowed.
inline void tell_too_long(void* task, const special_value& given, const char* keyword, const char* text,
                          int limit) {
  tell_fault(task, given.place, value_too_long, "%s|%s|%hd|%s|%s", keyword, text, static_cast<short>(limit),
             given.key, given.type_name);
}

}  // namespace zvrdb::textrec
