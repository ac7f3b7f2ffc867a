#include "text_types.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstring>

#include "local_target.h"
#include "refusals.h"
#include "textrec/keyword_tables.h"
#include "textrec/parse.h"
#include "textrec/text_records.h"

namespace zvradm {

namespace {

namespace text = zvrdb::textrec;

constexpr std::size_t most_faults = 200;

struct told_fault {
  std::uint32_t line;
  std::string reason;
};

void note(void* context, std::uint32_t line, std::uint32_t, const char* reason) {
  static_cast<std::vector<told_fault>*>(context)->push_back({line, reason});
}

// One parse of a text; what it told.
std::int16_t parse_once(void* task, const text_type& type, const std::string& name, const std::string& lines,
                        std::vector<told_fault>& told) {
  std::vector<char> area(lines.begin(), lines.end());
  area.push_back('\n');
  area.push_back(0);
  std::vector<unsigned char> record(type.record_length);
  const text::fault_sink sink = {note, &told};
  return text::parse_checking(task, type.db_id, name.c_str(), type.keywords, area.data(), record.data(),
                              type.record_length, sink);
}

// Takes the text out of a line, its end stays.
void empty_line(std::string& lines, std::uint32_t number) {
  std::size_t at = 0;
  for (std::uint32_t i = 1; i < number && at != std::string::npos; ++i) {
    at = lines.find('\n', at);
    if (at != std::string::npos) ++at;
  }
  if (at == std::string::npos) return;
  lines.erase(at, std::min(lines.find('\n', at), lines.size()) - at);
}

std::vector<text_fault> faults_of_record(void* task, const text_type& type, const std::string& name,
                                         std::string lines) {
  std::vector<text_fault> faults;
  while (faults.size() < most_faults) {
    std::vector<told_fault> told;
    const std::int16_t code = parse_once(task, type, name, lines, told);
    if (code != DBE_OK) {
      // A parse ends at its first fault: the next one goes on behind it.
      if (told.empty()) {
        faults.push_back({0, code_meaning(code), true});
        break;
      }
      faults.push_back({told.back().line, told.back().reason, true});
      empty_line(lines, told.back().line);
      continue;
    }
    for (const told_fault& one : told) faults.push_back({one.line, one.reason, false});
    break;
  }
  std::stable_sort(faults.begin(), faults.end(),
                   [](const text_fault& a, const text_fault& b) { return a.line < b.line; });
  return faults;
}

std::vector<text_fault> faults_of_config(const std::string& lines) {
  std::vector<unsigned char> record(CO_CONFIG_LENGTH);
  std::uint32_t line = 0;
  char reason[256] = {};
  if (co_parse_config(lines.c_str(), record.data(), &line, reason, sizeof reason) == CO_OK) return {};
  return {{line, reason, true}};
}

}  // namespace

const std::vector<text_type>& text_types() {
  static const std::vector<text_type> types = {
      {"cfg", DB_CFG, "orvo.cfg", false, nullptr, CO_CONFIG_LENGTH},
      {"scn", DB_SCN, "db/snadscon", true, text::scn_keywords, text::scn_record_len},
      {"scf", DB_SCF, "db/snadscfg", false, text::scf_keywords, text::scf_record_len},
      {"rte", DB_RTE, "db/routetab", false, text::rte_keywords, text::rte_record_len},
      {"ucf", DB_UCF, "db/user_config", false, text::ucf_keywords, text::ucf_record_len}};
  return types;
}

const text_type* find_text_type(std::string_view suffix) {
  for (const text_type& type : text_types())
    if (suffix == type.suffix) return &type;
  return nullptr;
}

std::string text_path(const std::string& base, const text_type& type, const std::string& name) {
  const std::string path = base + "/" + type.file;
  if (!type.many) return path;
  if (name.empty() || name.size() > text::scn_name_len || name == "." || name == ".." ||
      name.find('/') != std::string::npos)
    throw usage_fault("'" + name + "' is no name of a connection: it is a file name of 1 to " +
                      std::to_string(text::scn_name_len) + " bytes");
  return path + "/" + name;
}

std::vector<text_fault> faults_of(void* task, const text_type& type, const std::string& name,
                                  const std::string& text) {
  const std::size_t zero = text.find('\0');
  const std::string read = text.substr(0, zero);
  std::vector<text_fault> faults =
      type.keywords ? faults_of_record(task, type, name, read) : faults_of_config(read);
  if (zero != std::string::npos)
    faults.push_back({static_cast<std::uint32_t>(std::count(read.begin(), read.end(), '\n')) + 1,
                      "a zero byte ends the text here; what follows is not read", true});
  return faults;
}

bool any_fatal(const std::vector<text_fault>& faults) {
  return std::any_of(faults.begin(), faults.end(), [](const text_fault& one) { return one.fatal; });
}

void prepare_text_record(void* task, std::uint32_t db_id) {
  if (db_id > DB_SCF && db_id != DB_UCF) return;
  build_shared_tables(task);
  if (db_id != DB_SCN) return;
  char path[CO_PATH_MAX] = {};
  if (co_get_orvo_path(task, path, 0) == CO_OK &&
      co_build_objname(task, path, find_text_type("scn")->file, nullptr, sizeof path) == CO_OK)
    co_mkdir(task, path);  // there already, as a rule
}

}  // namespace zvradm
