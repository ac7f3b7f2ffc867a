#include "list_printer.h"

#include <zvrdb/zvrdb.h>

#include <cstring>

#include "json_output.h"

namespace zvradm {

void list_printer::add(void* task, std::span<const unsigned char> record) {
  if (!form_.as_table) return print_json(record_to_json(type_, record, {.words = form_.words}));
  std::vector<std::string> row = record_row(type_, record);
  if (type_.db_id == DB_TRG && task) fill_server(task, record, row);
  table_.rows.push_back(std::move(row));
}

void list_printer::end() const {
  if (form_.as_table) print_table(table_, stdout);
}

// The head of a target in memory has its server's number only; a target without a
// server has its own.
void list_printer::fill_server(void* task, std::span<const unsigned char> record,
                               std::vector<std::string>& row) const {
  constexpr std::size_t name_width = sizeof(db_trg::trg_name);
  for (std::size_t i = 0; i < table_.head.size(); ++i) {
    if (table_.head[i] != "srv_name" || !row[i].empty() || record.size() < name_width) continue;
    char name[name_width + 1] = {}, server[name_width + 1] = {};
    std::memcpy(name, record.data(), name_width);
    if (db_get_srv(task, name, server) == DBE_OK && std::strcmp(name, server) != 0) row[i] = server;
  }
}

}  // namespace zvradm
