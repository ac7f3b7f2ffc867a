#include "record_table.h"

#include "json_output.h"

namespace zvradm {

namespace {

bool is_column(const field& f, std::size_t length) {
  if (!(f.traits & column)) return false;
  return f.offset + ((f.traits & looked_up) ? 0 : f.width) <= length;
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
    if (is_column(f, record.size())) row.push_back(object.contains(f.name) ? cell_text(object[f.name]) : "");
  return row;
}

table record_sheet(const record_type& type, std::span<const unsigned char> record) {
  table t;
  t.head = {"field", "value"};
  const json object = record_to_json(type, record, {.words = true, .transferable = false});
  for (const auto& [name, value] : object.items()) {
    const bool objects = value.is_array() && !value.empty() && value[0].is_object();
    if (!objects) {
      t.rows.push_back({name, cell_text(value)});
      continue;
    }
    for (std::size_t i = 0; i < value.size(); ++i)
      t.rows.push_back({name + "[" + std::to_string(i) + "]",
                        value[i].contains("value")
                            ? cell_text(value[i]["name"]) + " = " + cell_text(value[i]["value"])
                            : json_line(value[i])});
  }
  return t;
}

}  // namespace zvradm
