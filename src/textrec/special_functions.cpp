// Values that need more than a row of a table can say.  A part that is too long ends the
// parse; nobody looks behind the end of the text.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "memory/trace.h"
#include "textrec/parse.h"
#include "textrec/parse_faults.h"
#include "textrec/text_numbers.h"

namespace zvrdb::textrec {
namespace {

constexpr std::size_t dsu_part_len = 8;

// Room for the begin of a part that is shown as too long.
constexpr std::size_t shown_text = 256;

struct part {
  const char* text;
  std::size_t length;
};

part up_to(const char* text, const char* end) {
  return {text, static_cast<std::size_t>(end - text)};
}

std::int16_t refuse_length(void* task, const special_value& given, const char* keyword, part text,
                           int limit) {
  char begin[shown_text];
  const std::size_t length = std::min(text.length, sizeof begin - 1);
  std::memcpy(begin, text.text, length);
  begin[length] = 0;
  tell_too_long(task, given, keyword, begin, limit);
  return DBE_BAD_RECORD;
}

// Copies into a field of `width` bytes as far as the occurrence reaches, zeros behind.
void fill_field(const special_value& given, std::size_t offset, std::size_t width, part text) {
  if (offset >= given.entry->length) return;
  const std::size_t room = std::min<std::size_t>(width, given.entry->length - offset);
  std::memset(given.target + offset, 0, room);
  std::memcpy(given.target + offset, text.text, std::min(text.length, room));
}

// The line behind the one that ends at `end`, as far as the text goes.
part next_line(const special_value& given, const char* end) {
  if (end >= given.text_end) return {"", 0};
  const char* begin = end + 1;
  const std::size_t room = static_cast<std::size_t>(given.text_end - begin);
  const std::size_t length = strnlen(begin, room);
  const void* feed = std::memchr(begin, '\n', length);
  return feed ? up_to(begin, static_cast<const char*>(feed)) : part{begin, length};
}

// RGN and REN of a value with a dot: a leading dot ends nothing, so ".E1" is an RGN.
void split_at_dot(const char* value, part* rgn, part* ren) {
  const char* begin = value + std::strspn(value, ".");
  const char* end = begin + std::strcspn(begin, ".");
  *rgn = up_to(begin, end);
  *ren = *end ? part{end + 1, std::strlen(end + 1)} : part{"", 0};
}

bool lu_characters(part text) {
  return std::all_of(text.text, text.text + text.length, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return std::isdigit(byte) || std::isupper(byte) || c == '$' || c == '#' || c == '@';
  });
}

}  // namespace

std::int16_t rgn_ren_prs(void* task, const special_value& given) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const char* value = skip_wte_space(task, given.value);
  const std::size_t length = std::strlen(value);
  part rgn = {value, length};
  part ren = {"", 0};
  if (std::strchr(value, '.'))
    split_at_dot(value, &rgn, &ren);
  else if (length > 0)
    ren = next_line(given, value + length);
  for (const part& one : {rgn, ren})
    if (one.length > dsu_part_len)
      return rc = refuse_length(task, given, given.entry->keyword, one, dsu_part_len);
  fill_field(given, 0, dsu_part_len, rgn);
  fill_field(given, dsu_part_len, dsu_part_len, ren);
  return rc;
}

std::int16_t fqplu_name_parse(void* task, const special_value& given) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const char* value = skip_wte_space(task, given.value);
  const char* end = value + std::strlen(value);
  const char* dot = std::strchr(value, '.');
  if (!dot || std::strchr(dot + 1, '.')) return rc = DBE_BAD_RECORD;
  for (const part& one : {up_to(value, dot), up_to(dot + 1, end)}) {
    if (one.length > dsu_part_len)
      return rc = refuse_length(task, given, given.entry->keyword, one, dsu_part_len);
    if (lu_characters(one)) continue;
    tell_fault(task, given.place, bad_character, "%s|%s|%s|%s", given.entry->keyword, value, given.key,
               given.type_name);
    return rc = DBE_BAD_RECORD;
  }
  const part name = up_to(value, end);
  std::memcpy(given.target, name.text, std::min<std::size_t>(name.length, given.entry->length));
  return rc;
}

std::int16_t addr_prs(void* task, const special_value& given) {
  const trace_bracket bracket(task, __func__);
  const std::size_t size = given.entry->length;
  const std::size_t room = size > 0 ? size - 1 : 0;
  std::size_t used = strnlen(reinterpret_cast<const char*>(given.target), room);
  const char* value = skip_wte_space(task, given.value);
  const std::size_t length = std::strlen(value);
  const std::size_t border = used > 0 ? 1 : 0;
  if (used + border + length > room)
    tell_fault(task, given.place, address_cut, "%s|%hd", given.key, static_cast<short>(size));
  if (border > 0 && used < room) given.target[used++] = '\n';
  std::memcpy(given.target + used, value, std::min(length, room - used));
  return DBE_OK;
}

std::int16_t hw_parm(void* task, const special_value& given) {
  constexpr std::size_t part_size = 81;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  char* value = skip_wte_space(task, given.value);
  char* end = value + std::strlen(value);
  char* equals = std::strchr(value, '=');
  const part name = up_to(value, equals ? equals : end);
  const part content = equals ? up_to(skip_wte_space(task, equals + 1), end) : part{"", 0};
  for (const part& one : {name, content})
    if (one.length >= part_size) return rc = refuse_length(task, given, given.entry->keyword, one, part_size);
  fill_field(given, 0, part_size, name);
  fill_field(given, part_size, part_size, content);
  return rc;
}

std::int16_t prm_prs(void* task, const special_value& given) {
  constexpr std::size_t name_size = 12;
  constexpr std::size_t content_size = 50;
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const char* value = skip_wte_space(task, given.value);
  const part name = {value, std::strlen(value)};
  part content = {"", 0};
  if (given.colon) {
    const char* begin = skip_wte_space(task, given.colon + 1);
    content = {begin, std::strlen(begin)};
  }
  if (name.length >= name_size)
    return rc = refuse_length(task, given, "Target Parameter", name, name_size - 1);
  if (content.length >= content_size)
    return rc = refuse_length(task, given, "Target Parameter Value", content, content_size - 1);
  fill_field(given, 0, name_size, name);
  fill_field(given, name_size, content_size, content);
  return rc;
}

std::int16_t dva_time_parse(void* task, const special_value& given) {
  const trace_bracket bracket(task, __func__);
  const char* colon = std::strchr(given.value, ':');
  const std::uint32_t hour = unsigned_number(given.value);
  const std::uint32_t minute = colon ? unsigned_number(colon + 1) : 0;
  if (given.entry->length >= 1) given.target[0] = static_cast<unsigned char>(hour);
  if (given.entry->length >= 2) given.target[1] = static_cast<unsigned char>(minute);
  return DBE_OK;
}

}  // namespace zvrdb::textrec
