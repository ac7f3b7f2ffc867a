#include "textrec/value_kinds.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "memory/codes.h"
#include "textrec/keyword_rows.h"
#include "textrec/parse_faults.h"
#include "textrec/text_numbers.h"

namespace zvrdb::textrec {
namespace {

// Room for the begin of a text that is too long for its field.
constexpr std::size_t shown_text = 256;

std::int16_t refuse_length(void* task, const special_value& given, const char* value, std::size_t shown,
                           std::size_t limit) {
  char begin[shown_text];
  const std::size_t length = std::min({std::strlen(value), shown, sizeof begin - 1});
  std::memcpy(begin, value, length);
  begin[length] = 0;
  tell_too_long(task, given, given.entry->keyword, begin, static_cast<int>(limit));
  return DBE_BAD_RECORD;
}

// No terminator is written: the field was cleared beforehand.
std::int16_t store_string(void* task, const special_value& given, const char* value) {
  const std::size_t length = std::strlen(value);
  const std::size_t limit = given.entry->length > 0 ? given.entry->length - 1u : 0u;
  if (length > limit) return refuse_length(task, given, value, given.entry->length, limit);
  std::memcpy(given.target, value, length);
  return DBE_OK;
}

bool takes_signs(const char* keyword) {
  constexpr std::string_view names[] = {"NETWORK ID", "LOCAL LU ALIAS NAME", "MODE NAME"};
  return std::find(std::begin(names), std::end(names), keyword) != std::end(names);
}

bool name_characters(void* task, const char* text, bool signs) {
  for (; *text; text = co_next_char(task, text)) {
    const auto c = static_cast<unsigned char>(*text);
    const bool is_sign = c == '$' || c == '#' || c == '@';
    if (!std::isdigit(c) && !std::isupper(c) && !(signs && is_sign)) return false;
  }
  return true;
}

std::int16_t store_name(void* task, const special_value& given, const char* value) {
  const std::size_t length = std::strlen(value);
  if (length > given.entry->length)
    return refuse_length(task, given, value, given.entry->length + 1u, given.entry->length);
  if (!name_characters(task, value, takes_signs(given.entry->keyword))) {
    tell_fault(task, given.place, bad_character, "%s|%s|%s|%s", given.entry->keyword, value, given.key,
               given.type_name);
    return DBE_BAD_RECORD;
  }
  std::memcpy(given.target, value, length);
  return DBE_OK;
}

void store_low_bytes(const special_value& given, std::uint32_t number) {
  const auto low16 = static_cast<std::uint16_t>(number);
  const auto low8 = static_cast<std::uint8_t>(number);
  if (given.entry->length >= sizeof number)
    std::memcpy(given.target, &number, sizeof number);
  else if (given.entry->length >= sizeof low16)
    std::memcpy(given.target, &low16, sizeof low16);
  else if (given.entry->length == sizeof low8)
    *given.target = low8;
}

// The word ends at the first blank: what follows it is ignored.
std::int16_t store_word(void* task, const special_value& given, char* value) {
  if (char* blank = std::strchr(value, ' ')) *blank = 0;
  const value_word* row = given.entry->value_list;
  while (row && std::strcmp(row->text, "NULL") != 0) {
    if (std::strcmp(row->text, value) == 0) {
      store_low_bytes(given, row->number);
      return DBE_OK;
    }
    ++row;
  }
  tell_fault(task, given.place, unknown_word, "%s|%s|%s|%s", value, given.entry->keyword, given.key,
             given.type_name);
  return DBE_BAD_RECORD;
}

}  // namespace

std::int16_t store_by_kind(void* task, const special_value& given, char* value) {
  switch (given.entry->kind) {
    case KIND_STRING:
      return store_string(task, given, value);
    case KIND_SHORT:
    case KIND_LONG:
      store_low_bytes(given, static_cast<std::uint32_t>(signed_number(value)));
      return DBE_OK;
    case KIND_USHORT:
    case KIND_ULONG:
      store_low_bytes(given, unsigned_number(value));
      return DBE_OK;
    case KIND_WORD:
      return store_word(task, given, value);
    case KIND_NAME:
      return store_name(task, given, value);
    default:
      tell_fault(task, given.place, unknown_kind, "%s|%hd|%s|%s", given.entry->keyword,
                 static_cast<short>(given.entry->kind), given.key, given.type_name);
      return DBE_BAD_RECORD;
  }
}

}  // namespace zvrdb::textrec
