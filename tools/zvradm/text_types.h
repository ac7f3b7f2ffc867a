// The record types that are text files: where they lie, and what is wrong with a text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "record_fields.h"
#include "textrec/keyword_table.h"

namespace zvradm {

struct text_type {
  const char* suffix;
  std::uint32_t db_id;
  const char* file;  // below the base directory; a directory for a type with a key
  bool many;         // a file a record, named by its key
  const zvrdb::textrec::keyword_entry* keywords;  // null: the base configuration
  std::uint32_t record_length;
};

const std::vector<text_type>& text_types();
// Null for a type that is no text.
const text_type* find_text_type(std::string_view suffix);

// The file of a record; name is looked at for a type of many only.  Throws usage_fault
// for a name that is no file name or longer than the type takes.
std::string text_path(const std::string& base, const text_type& type, const std::string& name);

struct text_fault {
  std::uint32_t line;  // 0: the text as a whole
  std::string reason;
  bool fatal;  // the record cannot be read
};

// All faults of a text, in the order of their lines.  The base configuration tells its
// first one only.
std::vector<text_fault> faults_of(void* task, const text_type& type, const std::string& name,
                                  const std::string& text);
bool any_fatal(const std::vector<text_fault>& faults);

// The calls on text records wait for the shared tables and need their directory: both
// are made here.  Nothing happens for other types.
void prepare_text_record(void* task, std::uint32_t db_id);

}  // namespace zvradm
