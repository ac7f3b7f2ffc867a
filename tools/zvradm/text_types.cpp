#include "text_types.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "config_file.h"
#include "local_target.h"
#include "record_json.h"
#include "refusals.h"
#include "textrec/keyword_tables.h"
#include "textrec/parse.h"
#include "textrec/text_numbers.h"
#include "textrec/text_records.h"

namespace zvradm {

namespace {

namespace text = zvrdb::textrec;

constexpr std::size_t most_faults = 200;

struct told_fault {
  std::uint32_t line;
  std::string reason;
};

// The messages are made for records with a name; those without leave a gap.
void note(void* context, std::uint32_t line, std::uint32_t, const char* reason) {
  constexpr std::string_view gap = "the record  of";
  std::string text = reason;
  if (const std::size_t at = text.find(gap); at != std::string::npos) text.replace(at, gap.size(), "the record of");
  static_cast<std::vector<told_fault>*>(context)->push_back({line, text});
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

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

bool is_number(const text::keyword_entry& row) {
  return !row.special && row.kind >= text::KIND_SHORT && row.kind <= text::KIND_ULONG;
}

// What a number is read as; a note when that is not what stands there.
void note_number(const text::keyword_entry& row, const std::string& value, std::uint32_t line,
                 std::vector<text_fault>& faults) {
  const bool has_sign = row.kind == text::KIND_SHORT || row.kind == text::KIND_LONG;
  const std::uint32_t read = has_sign ? static_cast<std::uint32_t>(text::signed_number(value.c_str()))
                                      : text::unsigned_number(value.c_str());
  const std::uint32_t kept = row.length == 2 ? read & 0xFFFFu : read;
  char* end = nullptr;
  errno = 0;
  const long long meant = std::strtoll(value.c_str(), &end, 0);
  const long long least = row.length == 2 ? INT16_MIN : INT32_MIN, most = row.length == 2 ? UINT16_MAX : UINT32_MAX;
  const bool whole = end != value.c_str() && *end == 0;
  if (whole && errno == 0 && meant >= least && meant <= most) return;
  faults.push_back({line,
                    "the value " + value + " of " + row.keyword + (whole ? " is too large" : " is no number") +
                        ": it is read as " + std::to_string(kept),
                    false});
}

// Lines whose value is read, but as another number than stands there.
void note_numbers(const text_type& type, const std::string& text, std::vector<text_fault>& faults) {
  std::uint32_t number = 0;
  for (const std::string& line : lines_of(text)) {
    ++number;
    const std::size_t colon = line.find(':');
    if (line[0] == '#' || colon == std::string::npos) continue;
    const auto* row = type.keywords;
    while (std::strcmp(row->keyword, "NULL") != 0 && line.compare(0, colon, row->keyword) != 0) ++row;
    if (!is_number(*row) || std::strcmp(row->keyword, "NULL") == 0) continue;
    const std::size_t from = line.find_first_not_of(" \t", colon + 1);
    const std::size_t to = line.find_last_not_of(" \t\r");
    if (from != std::string::npos && to != std::string::npos && to >= from)
      note_number(*row, line.substr(from, to + 1 - from), number, faults);
  }
}

// An editor of another system may end lines with two characters, of which this one shows none.
void tell_carriage_return(const std::vector<std::string>& lines, text_fault& fault) {
  if (fault.line == 0 || fault.line > lines.size()) return;
  const std::string& line = lines[fault.line - 1];
  if (!line.empty() && line.back() == '\r')
    fault.reason += " (the line ends in a carriage return, which is part of it)";
}

std::vector<text_fault> faults_of_record(void* task, const text_type& type, const std::string& name,
                                         std::string lines) {
  std::vector<text_fault> faults;
  const std::vector<std::string> given = lines_of(lines);
  note_numbers(type, lines, faults);
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
  for (text_fault& one : faults) tell_carriage_return(given, one);
  std::stable_sort(faults.begin(), faults.end(),
                   [](const text_fault& a, const text_fault& b) { return a.line < b.line; });
  return faults;
}

// What every line says well enough, and what no installation works with all the same.
std::vector<text_fault> gaps_of_config(const config_record& record) {
  const auto limit = [&](std::size_t at) { return load_number(record.data() + at, sizeof(std::uint32_t)); };
  std::vector<text_fault> faults;
  if (config_name(record).empty())
    faults.push_back({0, "WORKSTATION NAME is missing: the name of the local target", true});
  if (limit(config_max_targets_at) == 0)
    faults.push_back({0, "MAX TARGETS is missing or 0: there is no room for a target", true});
  if (limit(config_max_local_at) == 0)
    faults.push_back({0, "MAX LOCAL TARGETS is missing or 0: there is no room for local targets", false});
  if (limit(config_max_server_at) == 0)
    faults.push_back({0, "MAX SERVER TARGETS is missing or 0: there is no room for servers", false});
  return faults;
}

std::vector<text_fault> faults_of_config(const std::string& lines) {
  config_record record{};
  std::uint32_t line = 0;
  char reason[256] = {};
  if (co_parse_config(lines.c_str(), record.data(), &line, reason, sizeof reason) == CO_OK)
    return gaps_of_config(record);
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
