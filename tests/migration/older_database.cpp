#include "migration/older_database.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "support/cf_names.h"

namespace migration_test {
namespace {

constexpr std::size_t catalog_len = 1024;
constexpr std::size_t status_len = 38;

void set_text(std::string* record, std::size_t at, std::size_t width, const std::string& value) {
  record->replace(at, std::min(width, value.size()), value.substr(0, width));
}

template <class Number>
void set_number(std::string* record, std::size_t at, Number value) {
  std::memcpy(record->data() + at, &value, sizeof value);
}

std::string numbered(const char* format, unsigned number) {
  char text[64];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

std::string line(const char* keyword, const std::string& value) {
  return std::string(keyword) + ": " + value + "\n";
}

void write_catalog(const older_database& db, const older_size& size) {
  std::vector<std::string> entries;
  for (unsigned i = 0; i < size.change_files; ++i) {
    if (size.damaged && i % 7 == 3)
      entries.push_back(half_free_catalog_entry(i % 2 ? mark::first : mark::second));
    else if (i % 11 == 5)
      entries.push_back(free_catalog_entry());
    else
      entries.push_back(catalog_entry(numbered("APP.PART.REF.%u", i), numbered("description %u", i), "a line"));
  }
  db.catalog(entries);
}

older_target make_target(const older_size& size, unsigned i) {
  constexpr unsigned region_size = 10;
  older_target target;
  target.rgn = numbered("R%u", i / region_size);
  target.ren = i % region_size == 0 ? target.rgn : numbered("T%u", i);
  for (unsigned u = 0; u < size.users_per_target && size.users > 0; ++u)
    target.users.push_back(numbered("user%u", (i + u) % size.users));
  if (size.damaged && i % 5 == 1) target.users.push_back("odd name");
  for (unsigned h = 0; h < size.hardware; ++h) target.hardware.emplace_back(numbered("Disk%u", h), "40 GB");
  return target;
}

using parms = std::vector<std::pair<std::string, std::string>>;

void write_target(const older_database& db, const older_size& size, unsigned i) {
  const std::string name = target_name(i);
  db.target(name, make_target(size, i));
  parms hardware;
  for (unsigned h = 0; h < size.hardware; ++h) hardware.emplace_back(numbered("Disk%u", h), "40 GB");
  parms parameters;
  for (unsigned p = 0; p < size.parameters; ++p) parameters.emplace_back(numbered("PARM%u", p), numbered("value %u", i));
  const bool odd = size.damaged && i % 4 == 2;
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
  if (!odd) db.hardware(name, hardware);
  db.parameters(odd ? lower : name, parameters);
  std::string status;
  for (unsigned p = 0; p < size.pairs_per_target; ++p) {
    const unsigned number = size.change_files == 0 ? 65535 : (i * 13 + p) % size.change_files;
    status += status_entry(number, p % 12, "details");
  }
  db.status(odd ? lower : name, status);
}

}  // namespace

std::string catalog_entry(const std::string& dotted_name, const std::string& text, const std::string& line) {
  std::string record(catalog_len, '\0');
  const zvrtest::CfName name = zvrtest::cf(dotted_name);
  std::memcpy(record.data(), &name, 76);
  set_number<std::uint32_t>(&record, 76, 0x11223344);
  record[80] = 7;
  record[81] = 8;
  set_text(&record, 82, 10, "0123456789");
  set_number<std::uint16_t>(&record, 84, 0x5555);
  set_text(&record, 92, 243, text);
  set_text(&record, 336, 3, "V1");
  set_number<std::uint16_t>(&record, 340, 340);
  set_number<std::uint16_t>(&record, 342, 342);
  set_number<std::uint32_t>(&record, 344, 344344);
  set_text(&record, 348, 255, line);
  set_text(&record, 604, 48, std::string(48, 'k'));
  record[652] = 1;
  record[653] = 2;
  record[654] = 3;
  return record;
}

std::string free_catalog_entry() {
  std::string record(catalog_len, 'f');
  set_number<std::uint32_t>(&record, 0, 0xFFFFFFFF);
  set_number<std::uint32_t>(&record, 656, 0xFFFFFFFF);
  return record;
}

std::string half_free_catalog_entry(mark which) {
  std::string record = catalog_entry("HALF.FREE");
  set_number<std::uint32_t>(&record, which == mark::first ? 0 : 656, 0xFFFFFFFF);
  return record;
}

std::string status_entry(unsigned number, unsigned status, const std::string& details) {
  std::string entry(status_len, '\0');
  set_number(&entry, 0, static_cast<std::uint16_t>(number));
  entry[2] = static_cast<char>(status);
  set_text(&entry, 3, 3, "abc");
  set_text(&entry, 6, 32, details);
  return entry;
}

std::string older_target::text() const {
  std::string text = "# written by the older release\n" + line("DESCRIPTION", description);
  if (!type.empty()) text += line("TARGET TYPE", type);
  text += line("TARGET OS", os);
  if (!rgn.empty()) text += line("NETWORK ID", rgn);
  if (!ren.empty()) text += line("SHORT NAME", ren);
  text += "CM WINDOW START: 6:30\nLOG LEVEL: N\nLAN ADDRESS: 10.0.0.1\nCUSTOMER NAME: A customer\n";
  text += "MANAGER ADDRESS: Main Street 1\nMANAGER ADDRESS: Some Town\n";
  text += line("NUMBER OF PARMS", std::to_string(hardware.size()));
  text += line("NUMBER OF USERS", std::to_string(users.size()));
  for (const auto& [name, value] : hardware) text += line("HARDWARE PARMS", name + "=" + value);
  for (const std::string& user : users) text += line("USER", user);
  return text + more;
}

std::string hardware_text(const parms& list) {
  std::string text = line("NUMBER OF PARMS", std::to_string(list.size()));
  for (const auto& [name, value] : list) text += line("HARDWARE PARMS", name + "=" + value);
  return text;
}

std::string parameter_text(const parms& list) {
  std::string text = line("NUMBER OF PARMS", std::to_string(list.size()));
  for (const auto& [name, value] : list) text += line(name.c_str(), value);
  return text;
}

std::string older_group::text() const {
  std::string text = line("DESCRIPTION", "An older group") + line("TARGET TYPE", type) + line("TARGET OS", os);
  text += line("SHORT NAME", ren) + line("NUMBER OF TARGETS", std::to_string(members.size()));
  text += line("NUMBER OF TSPS", std::to_string(tsps));
  for (const std::string& member : members) text += line("TARGET", member);
  return text;
}

std::string user_config_text() {
  std::string text;
  for (const char* group : {"USER", "PREP", "ADMN"}) {
    const std::string suffix = std::string("_") + group + ": ";
    const bool admin = group[0] == 'A';
    for (const char* stem : {"CONFIG", "PREP", "TCQ", "SYSTEM"})
      text += stem + suffix + (admin ? "modify" : "view") + "\n";
    text += "CM" + suffix + (admin ? "all" : "inst&exec") + "\nDIST" + suffix + "send\nTARGET" + suffix + "own_target\n";
  }
  return text;
}

older_database::older_database(std::string base) : base_(std::move(base)) {}

void older_database::file(const std::string& relative, const std::string& text) const {
  const std::filesystem::path path = base_ + "/" + relative;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

void older_database::lay_out() const {
  for (const char* directory : {"target_config", "target_hw", "parms", "cm_status", "target_group"})
    std::filesystem::create_directories(base_ + "/db/" + directory);
  file("db/catalog", "");
  file("db/user_config", user_config_text());
}

void older_database::target(const std::string& name, const older_target& target) const {
  file("db/target_config/" + name, target.text());
}
void older_database::hardware(const std::string& name, const parms& list) const {
  file("db/target_hw/" + name, hardware_text(list));
}
void older_database::parameters(const std::string& name, const parms& list) const {
  file("db/parms/" + name, parameter_text(list));
}
void older_database::group(const std::string& name, const older_group& group) const {
  file("db/target_group/" + name, group.text());
}
void older_database::catalog(const std::vector<std::string>& entries) const {
  std::string whole;
  for (const std::string& entry : entries) whole += entry;
  file("db/catalog", whole);
}
void older_database::status(const std::string& target, const std::string& entries) const {
  file("db/cm_status/" + target, entries);
}

bool older_database::there(const std::string& relative) const {
  return std::filesystem::exists(base_ + "/" + relative);
}

std::vector<std::string> older_database::entries_of_db() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(base_ + "/db"))
    if (entry.path().extension() != ".jnl") names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::string target_name(unsigned i) {
  return numbered("TRG%05u", i);
}

void write_older_database(const std::string& base, const older_size& size) {
  const older_database db(base);
  db.lay_out();
  write_catalog(db, size);
  for (unsigned i = 0; i < size.targets; ++i) write_target(db, size, i);
  for (unsigned i = 0; i < size.groups; ++i) {
    older_group group;
    for (unsigned m = 0; m < std::min(size.members, size.targets); ++m)
      group.members.push_back(target_name((i + m) % size.targets));
    db.group(numbered("GROUP%u", i), group);
  }
}

}  // namespace migration_test
