// What a text record may hold: one table a record type, one row a keyword.
#pragma once

#include <cstdint>

namespace zvrdb::textrec {

// How a value is stored.
enum value_kind : std::uint16_t {
  KIND_STRING = 1,  // up to length - 1 bytes, no terminator written
  KIND_SHORT = 2,   // 2 bytes, strtol with base 0
  KIND_USHORT = 3,  // 2 bytes, strtoul with base 0
  KIND_LONG = 4,    // 4 bytes
  KIND_ULONG = 5,   // 4 bytes
  KIND_WORD = 6,    // length low bytes of a value list's number
  KIND_NAME = 7     // up to length bytes: digits and upper-case letters
};

// One row of a value list, which ends with the text "NULL".
struct value_word {
  const char* text;
  std::uint32_t number;
};

struct keyword_entry;

// Is told of faults in place of the message log.  line counts from 1; number and text are
// those of the message (text of at most 127 characters).
struct fault_sink {
  void (*tell)(void* context, std::uint32_t line, std::uint32_t number, const char* text);
  void* context;
};

// Where a fault is: its line, and who is told (null: the message log).
struct fault_place {
  const fault_sink* sink;
  std::uint32_t line;
};

// What a special function is given.  What looks behind its value looks no further than
// line_end, or than text_end where the next line counts.
struct special_value {
  std::uint32_t db_id;
  const char* key;  // name of the record, for messages
  const keyword_entry* entry;
  char* value;            // trailing blanks already gone
  char* colon;            // the NUL in place of the line's first colon; null without one
  char* line_end;         // the NUL that ends the line; a catch-all's value ends at the colon
  char* text_end;         // the NUL that ends the whole buffer
  unsigned char* target;  // place of this occurrence, entry->length bytes inside the record
  unsigned char* record;
  std::uint32_t record_size;
  const char* type_name;
  fault_place place;
};
// 0, or the code that ends the parse.
using special_function = std::int16_t (*)(void* task, const special_value& given);

struct keyword_entry {
  char keyword[60];    // "*" the catch-all, "NULL" the end of the table
  std::uint16_t skip;  // from the start of the line to where the value may begin
  std::uint16_t kind;
  std::uint16_t length;       // of the field, or of one occurrence
  std::uint16_t offset;       // of the field, or of occurrence 0
  std::uint16_t max_occurs;   // 0: occurs once
  std::uint16_t occurs_slot;  // of occurrence_counters
  const value_word* value_list;
  special_function special;
};

inline constexpr unsigned occurrence_slots = 25;

}  // namespace zvrdb::textrec
