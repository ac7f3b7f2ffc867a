#include "textrec/parse.h"

#include <cstddef>
#include <cstring>

#include "memory/record_types.h"
#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "textrec/keyword_rows.h"
#include "textrec/parse_faults.h"
#include "textrec/value_kinds.h"

namespace zvrdb::textrec {
namespace {

constexpr char end_of_file_mark = 0x1A;
constexpr std::size_t type_name_size = 128;

thread_local std::uint64_t comparisons = 0;

bool is_white(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// The walk through the lines of a text.  Each line loses its line feed for a NUL; empty
// lines are passed over.  The cursor stands behind the line in hand, so that nobody who
// takes the line apart can disturb the walk.
struct line_walk {
  char* cursor;
  char* text_end;
  char* line = nullptr;
  char* line_end = nullptr;
  std::uint32_t number = 0;  // of the line, from 1

  bool next() {
    while (cursor < text_end && *cursor == '\n') {
      ++cursor;
      ++number;
    }
    if (cursor >= text_end) return false;
    line = cursor;
    void* feed = std::memchr(line, '\n', static_cast<std::size_t>(text_end - line));
    line_end = feed ? static_cast<char*>(feed) : text_end;
    *line_end = 0;
    cursor = feed ? line_end + 1 : text_end;
    ++number;
    return true;
  }
};

// The keyword of a line; empty when the line has no colon and so can only be a catch-all's.
struct line_keyword {
  const char* text;
  std::size_t length;
};

bool same_keyword(const keyword_entry& entry, const line_keyword& keyword) {
  if (keyword.length == 0 || keyword.length >= sizeof entry.keyword) return false;
  const std::size_t last = keyword.length - 1;
  if (entry.keyword[0] != keyword.text[0] || entry.keyword[last] != keyword.text[last] ||
      entry.keyword[last + 1] != 0)
    return false;
  ++comparisons;
  return std::memcmp(entry.keyword, keyword.text, keyword.length) == 0;
}

// Cyclic from the row of the last match, so that lines in table order find theirs at
// once.  A catch-all counts only when no row has this very keyword.
const keyword_entry* find_keyword(const keyword_entry* table, const keyword_entry* start,
                                  const line_keyword& keyword) {
  const keyword_entry* catch_all = nullptr;
  const keyword_entry* entry = start;
  do {
    if (is_end(*entry)) {
      entry = table;
      if (entry == start || is_end(*entry)) break;
    }
    if (is_catch_all(*entry))
      catch_all = entry;
    else if (same_keyword(*entry, keyword))
      return entry;
    ++entry;
  } while (entry != start);
  return catch_all;
}

struct parser {
  void* task;
  const keyword_entry* table;
  std::uint16_t* counters;
  special_value given;
  line_walk lines;
  const keyword_entry* start;  // where the next search begins

  std::int16_t run();
  std::int16_t take_line();
  std::int16_t find_target(const keyword_entry* entry, std::size_t* offset);
};

// White space at the end of a line is not part of it.  A catch-all's value may end at a
// colon before that, and loses its own.
void strip_line_end(void* task, special_value& given) {
  char* last = given.line_end;
  if (last == given.value || !is_white(last[-1])) return;
  while (last > given.value && is_white(last[-1])) *--last = 0;
  given.line_end = last;
  co_strip_trailing_blanks(task, given.value);
}

std::int16_t parser::find_target(const keyword_entry* entry, std::size_t* offset) {
  *offset = entry->offset;
  if (entry->max_occurs == 0) return DBE_OK;
  std::uint16_t& count = counters[entry->occurs_slot % occurrence_slots];
  if (count == entry->max_occurs) {
    tell_fault(task, given.place, too_many_occurrences, "%s|%s|%s", entry->keyword, given.key,
               given.type_name);
    return DBE_BAD_RECORD;
  }
  *offset += std::size_t{count} * entry->length;
  ++count;
  return DBE_OK;
}

std::int16_t parser::take_line() {
  char* line = lines.line;
  char* colon = std::strchr(line, ':');
  if (colon) *colon = 0;
  const line_keyword keyword = {line, colon ? static_cast<std::size_t>(colon - line) : 0};
  const keyword_entry* entry = find_keyword(table, start, keyword);
  if (!entry) {
    tell_fault(task, given.place, unknown_keyword, "%s|%s|%s", line, given.key, given.type_name);
    return DBE_BAD_RECORD;
  }
  start = entry;
  std::size_t offset = 0;
  std::int16_t rc = find_target(entry, &offset);
  if (rc != DBE_OK) return rc;
  // Fields behind the end of a short record are passed over, whatever their value.
  if (offset + entry->length > given.record_size) return DBE_OK;
  given.entry = entry;
  given.colon = colon;
  given.target = given.record + offset;
  given.line_end = lines.line_end;
  // A line that ends before the column of its value has none.
  const bool has_value = entry->skip <= lines.line_end - line;
  given.value = has_value ? line + entry->skip : lines.line_end;
  strip_line_end(task, given);
  if (!entry->special) return store_by_kind(task, given, skip_wte_space(task, given.value));
  rc = entry->special(task, given);
  if (rc != DBE_OK) ZVR_TRACE(task, 5, 2, "%s", "special function returned DBE_BAD_RECORD");
  return rc;
}

std::int16_t parser::run() {
  while (lines.next()) {
    if (*lines.line == end_of_file_mark) return DBE_OK;
    // Behind a comment the end-of-file mark is none.
    while (*lines.line == '#')
      if (!lines.next()) return DBE_OK;
    given.place.line = lines.number;
    const std::int16_t rc = take_line();
    if (rc != DBE_OK) return rc;
  }
  return DBE_OK;
}

std::int16_t parse_text(void* task, std::uint32_t db_id, const char* key, const keyword_entry* table,
                        char* text, void* record, std::uint32_t record_size, const fault_sink* faults) {
  char type_name[type_name_size];
  memory::type_str(task, db_id, type_name);
  DBR_TCB* tcb = memory::tcb_of(task);
  std::uint16_t counters[occurrence_slots] = {};
  static_assert(sizeof counters == sizeof tcb->occurrence_counters);
  if (tcb) std::memset(tcb->occurrence_counters, 0, sizeof tcb->occurrence_counters);
  parser walk = {};
  walk.task = task;
  walk.table = table;
  walk.counters = tcb ? tcb->occurrence_counters : counters;
  walk.start = table;
  walk.lines.cursor = text;
  walk.lines.text_end = text + std::strlen(text);
  walk.given.db_id = db_id;
  walk.given.key = key;
  walk.given.text_end = walk.lines.text_end;
  walk.given.record = static_cast<unsigned char*>(record);
  walk.given.record_size = record_size;
  walk.given.type_name = type_name;
  walk.given.place.sink = faults;
  return walk.run();
}

}  // namespace

std::int16_t parse(void* task, std::uint32_t db_id, const char* key, const keyword_entry* table, char* text,
                   void* record, std::uint32_t record_size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = parse_text(task, db_id, key, table, text, record, record_size, nullptr);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

std::int16_t parse_checking(void* task, std::uint32_t db_id, const char* key, const keyword_entry* table,
                            char* text, void* record, std::uint32_t record_size, const fault_sink& faults) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = parse_text(task, db_id, key, table, text, record, record_size, &faults);
}

char* skip_wte_space(void* task, char* text) {
  while (is_white(*text)) text += co_next_char(task, text) - text;
  return text;
}

std::uint64_t keyword_comparisons() {
  return comparisons;
}

}  // namespace zvrdb::textrec
