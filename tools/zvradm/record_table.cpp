#include "record_table.h"

#include <cstring>

#include "change_file_name.h"
#include "json_output.h"

namespace zvradm {

namespace {

bool is_column(const field& f, std::size_t length) {
  if (!(f.traits & column)) return false;
  return f.offset + ((f.traits & looked_up) ? 0 : f.width) <= length;
}

// A field as a cell; object is the record as JSON with words.
std::string cell(const field& f, std::span<const unsigned char> record, const json& object) {
  if (f.kind != field_kind::change_file) return object.contains(f.name) ? cell_text(object[f.name]) : "";
  db_cf_name name;
  std::memcpy(&name, record.data() + f.offset, sizeof name);
  return change_file_text(name);
}

}  // namespace

table record_table(const record_type& type, std::size_t length) {
  table t;
  for (const field& f : type.fields)
    if (is_column(f, length)) t.head.emplace_back(f.name);
  return t;
}

std::vector<std::string> record_row(const record_type& type, std::span<const unsigned char> record) {
  const json object = record_to_json(type, record, {.words = true});
  std::vector<std::string> row;
  for (const field& f : type.fields)
    if (is_column(f, record.size())) row.push_back(cell(f, record, object));
  return row;
}

table record_sheet(const record_type& type, std::span<const unsigned char> record) {
  table t;
  t.head = {"field", "value"};
  const json object = record_to_json(type, record, {.words = true, .transferable = false});
  for (const field& f : type.fields) {
    if (!object.contains(f.name)) continue;
    const json& value = object[f.name];
    const bool elements = f.kind == field_kind::list && !value.empty();
    if (!elements) {
      t.rows.push_back({f.name, cell(f, record, object)});
      continue;
    }
    for (std::size_t i = 0; i < value.size(); ++i)
      t.rows.push_back({std::string(f.name) + "[" + std::to_string(i) + "]",
                        value[i].contains("value")
                            ? cell_text(value[i]["name"]) + " = " + cell_text(value[i]["value"])
                            : cell_text(value[i])});
  }
  return t;
}

}  // namespace zvradm
