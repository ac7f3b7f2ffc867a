#include "json_output.h"

#include "refusals.h"

namespace zvradm {

void print_json(const json& value) {
  const std::string line = json_line(value) + "\n";
  if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size())
    throw refusal("standard output cannot be written");
}

std::string cell_text(const json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_array()) return json_line(value);
  std::string all;
  for (const json& one : value) {
    if (!one.is_string()) return std::to_string(value.size());
    all += (all.empty() ? "" : "+") + one.get<std::string>();
  }
  return all;
}

}  // namespace zvradm
