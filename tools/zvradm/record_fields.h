// The fields of each record type as one table of rows: name, place and kind.  The
// JSON mapping, the tables for people and the key arguments all read it; a further
// record type is a further set of rows.
#pragma once

#include <zvrdb/records.h>

#include <cstdint>
#include <span>
#include <string_view>

namespace zvradm {

enum class field_kind : std::uint8_t {
  text,         // NUL-terminated in its width
  full_text,    // fills its width, NUL-terminated only when shorter
  number,       // 1, 2 or 4 bytes, native order
  hex,          // opaque bytes
  change_file,  // name of a change file
  list,         // elements of equal length
  request,      // of a key only: the identifier of a request, with its function when it is longer
  correlator    // of a key only: the correlator in a db_coo
};

// A word that stands for a number; in a bit set, for a bit.
struct word {
  const char* text;
  std::uint32_t value;
};

enum field_traits : std::uint8_t {
  plain = 0,
  bit_set = 1,    // the words are bits: several may hold
  live = 2,       // belongs to this installation at this moment: export leaves it out
  column = 4,     // shown in tables for people
  looked_up = 8,  // the name of what the bytes before it number: tables look it up
  needed = 16,    // may not be left out, not even when it is zero
  targets = 32    // list of names of targets, which the library stores as their numbers
};

struct field {
  const char* name;   // null: the only field of an element, which stands without a name
  const char* alias;  // a second name that input may use, or null
  std::uint32_t offset;
  std::uint32_t width;  // of one element, for a list
  field_kind kind;
  std::uint8_t traits = plain;
  std::span<const word> words = {};
  // Lists only:
  std::span<const field> elements = {};  // offsets within one element
  std::uint32_t capacity = 0;            // elements there is room for
  std::int64_t count_at = -1;  // offset of a u16 count; -1: up to the last element that is not all zero
};

// How the key array of a call is made from words of the command line, or from a record.
struct key_part {
  const char* name;        // on the command line
  field_kind kind;         // text, number or change_file
  std::uint32_t width;     // bytes handed over, the NUL of a text included
  const char* field_name;  // the field of a record that it repeats, or null
  bool joined = false;     // stands behind the part before it, under one pointer
  bool optional = false;   // may be left out on the command line
};

struct record_type {
  const char* suffix;
  std::uint32_t db_id;
  const char* title;
  std::uint16_t put_length;   // bytes of a put
  std::uint16_t get_length;   // bytes of a get when --len is not given
  std::uint16_t list_length;  // bytes of a record of a list when --len is not given
  std::span<const key_part> keys;
  std::span<const field> fields;

  // Records can be put: what the keys are stands in them.
  bool storable() const { return keys.empty() || keys[0].field_name; }
  const field& field_named(std::string_view name) const;  // one that there is
};

std::span<const record_type> record_types();
// Null for a suffix that has no rows.
const record_type* find_record_type(std::string_view suffix);
// Throws usage_fault, with the suffixes that there are.
const record_type& record_type_named(std::string_view suffix);

inline constexpr std::uint16_t target_head_length = 192;  // what memory holds of a target
inline constexpr std::uint16_t target_record_length = sizeof(db_trg);
inline constexpr std::uint16_t change_file_head_length = 164;  // what memory holds of a change file

// Words shared with the options of some commands.
std::span<const word> installation_kinds();
std::span<const word> target_types();
std::span<const word> target_modes();
std::span<const word> target_systems();

}  // namespace zvradm
