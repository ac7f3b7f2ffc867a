// How the rows of a keyword table are written, and what holds for every table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

// Kind of a row whose special function stores the value.
inline constexpr std::uint16_t special_kind = 0;

// A row under its keyword.  skip 0: the value begins behind the colon.
template <std::size_t size>
constexpr keyword_entry named_row(const char (&keyword)[size], keyword_entry row) {
  static_assert(size <= sizeof row.keyword);
  for (std::size_t i = 0; i < size; ++i) row.keyword[i] = keyword[i];
  if (row.skip == 0) row.skip = static_cast<std::uint16_t>(size);  // the keyword's NUL counts for the colon
  return row;
}

struct field_place {
  std::uint16_t length;
  std::uint16_t offset;
};
struct repetition {
  std::uint16_t max_occurs;
  std::uint16_t slot;
};

template <std::size_t size>
constexpr keyword_entry value_row(const char (&keyword)[size], std::uint16_t kind, field_place field,
                                  const value_word* words = nullptr) {
  return named_row(keyword, {{}, 0, kind, field.length, field.offset, 0, 0, words, nullptr});
}

template <std::size_t size>
constexpr keyword_entry repeated_row(const char (&keyword)[size], std::uint16_t kind, field_place field,
                                     repetition times, special_function special = nullptr) {
  return named_row(keyword,
                   {{}, 0, kind, field.length, field.offset, times.max_occurs, times.slot, nullptr, special});
}

template <std::size_t size>
constexpr keyword_entry special_row(const char (&keyword)[size], field_place field,
                                    special_function special) {
  return named_row(keyword, {{}, 0, special_kind, field.length, field.offset, 0, 0, nullptr, special});
}

// The catch-all sees the line from its first byte.
constexpr keyword_entry catch_all_row(field_place field, repetition times, special_function special) {
  keyword_entry row = {{},         0,       special_kind, field.length, field.offset, times.max_occurs,
                       times.slot, nullptr, special};
  row.keyword[0] = '*';
  return row;
}

constexpr keyword_entry end_row() {
  return {{'N', 'U', 'L', 'L'}, 0, 0, 0, 0, 0, 0, nullptr, nullptr};
}

constexpr bool is_end(const keyword_entry& entry) {
  return std::string_view(entry.keyword) == "NULL";
}
constexpr bool is_catch_all(const keyword_entry& entry) {
  return entry.keyword[0] == '*' && entry.keyword[1] == 0;
}

constexpr bool row_fits(const keyword_entry& row, std::size_t record_len) {
  const std::size_t times = row.max_occurs == 0 ? 1 : row.max_occurs;
  if (row.offset + times * row.length > record_len || row.occurs_slot >= occurrence_slots) return false;
  if (row.kind == special_kind) return true;  // a function stores the value
  if (row.kind == KIND_WORD) return row.length >= 1 && row.length <= 4;
  if (row.kind == KIND_SHORT || row.kind == KIND_USHORT) return row.length == 2;
  if (row.kind == KIND_LONG || row.kind == KIND_ULONG) return row.length == 4;
  return (row.kind == KIND_STRING || row.kind == KIND_NAME) && row.length > 0;
}

// Every table: ends with its end row and has no other, every field lies in the record,
// no keyword stands twice.
template <std::size_t count>
constexpr bool table_is_sound(const keyword_entry (&table)[count], std::size_t record_len) {
  if (!is_end(table[count - 1])) return false;
  for (std::size_t i = 0; i + 1 < count; ++i) {
    if (is_end(table[i]) || !row_fits(table[i], record_len)) return false;
    for (std::size_t k = 0; k < i; ++k)
      if (std::string_view(table[i].keyword) == table[k].keyword) return false;
  }
  return true;
}

}  // namespace zvrdb::textrec
