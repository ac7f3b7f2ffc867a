// list TYPE: records by filters, or names only.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <array>
#include <cstring>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "record_keys.h"
#include "record_table.h"
#include "session.h"

namespace zvradm {

namespace {

struct list_options {
  std::string type;
  std::string name;
  bool exclude = false;
  std::string type_bits, mode_bits, systems;
  std::string server;
  bool names = false;
  bool words = false;
  bool as_table = false;
  std::uint16_t length = 0;
  bool length_given = false;

  bool filtered() const {
    return exclude || !name.empty() || !type_bits.empty() || !mode_bits.empty() || !systems.empty() ||
           !server.empty();
  }
};

constexpr std::size_t name_width = sizeof(db_trg::trg_name);
// Longest area that any list of a record type asks for.
constexpr std::uint32_t list_area_length = DB_TRG_LIST_STATE;

void put_name(char (&to)[name_width], const char* option, const std::string& text) {
  if (text.size() >= name_width)
    throw usage_fault(std::string(option) + " is longer than " + std::to_string(name_width - 1) + " bytes");
  std::memcpy(to, text.data(), text.size());
}

std::uint8_t byte_of(const char* option, const std::string& text, std::span<const word> words) {
  const std::uint32_t bits = parse_bits(option, text, words);
  if (bits > 0xFF) throw usage_fault(std::string(option) + " has bits above 255");
  return static_cast<std::uint8_t>(bits);
}

// The mask of systems: a number is the mask itself, a word stands for its own bit.
std::uint32_t system_mask(const std::string& text) {
  std::array<word, 32> bits{};
  std::size_t count = 0;
  for (const word& w : target_systems())
    if (w.value < 32) bits[count++] = {w.text, 1u << w.value};
  return parse_bits("--os", text, {bits.data(), count});
}

db_trg_filter make_filter(const list_options& options) {
  db_trg_filter filter{};
  put_name(filter.name, "--name", options.name);
  put_name(filter.server, "--server", options.server);
  if (!options.type_bits.empty()) filter.type = byte_of("--type", options.type_bits, target_types());
  if (!options.mode_bits.empty()) filter.mode = byte_of("--mode", options.mode_bits, target_modes());
  if (!options.systems.empty()) {
    const std::uint32_t mask = system_mask(options.systems);
    filter.os_filter_on = 1;
    filter.os_mask_low = static_cast<std::uint16_t>(mask);
    filter.os_mask_high = static_cast<std::uint16_t>(mask >> 16);
  }
  filter.exclude_filter = options.exclude ? 1 : 0;
  return filter;
}

// Bytes of each record of the list.
std::uint16_t length_of(const record_type& type, const list_options& options) {
  if (options.names) return name_width;
  return options.length_given ? options.length : type.list_length;
}

// Where the records of a list go, one at a time.
class list_printer {
 public:
  list_printer(const record_type& type, const list_options& options)
      : type_(type), options_(options), table_(record_table(type, length_of(type, options))) {}

  void add(void* task, std::span<const unsigned char> record) {
    if (!options_.as_table) return print_json(record_to_json(type_, record, {.words = options_.words}));
    std::vector<std::string> row = record_row(type_, record);
    if (type_.db_id == DB_TRG) fill_server(task, record, row);
    table_.rows.push_back(std::move(row));
  }
  void end() const {
    if (options_.as_table) print_table(table_, stdout);
  }

 private:
  // The head of a target in memory has its server's number only; a target without a
  // server has its own.
  void fill_server(void* task, std::span<const unsigned char> record, std::vector<std::string>& row) const {
    for (std::size_t i = 0; i < table_.head.size(); ++i) {
      if (table_.head[i] != "srv_name" || !row[i].empty() || record.size() < name_width) continue;
      char name[name_width + 1] = {}, server[name_width + 1] = {};
      std::memcpy(name, record.data(), name_width);
      if (db_get_srv(task, name, server) == DBE_OK && std::strcmp(name, server) != 0) row[i] = server;
    }
  }

  const record_type& type_;
  const list_options& options_;
  table table_;
};

void list_records(void* task, const record_type& type, const list_options& options) {
  db_trg_filter filter = make_filter(options);
  std::array<unsigned char, list_area_length> area{};
  std::int16_t code = db_init_list(task, type.db_id, &filter, area.data(), list_area_length);
  list_printer printer(type, options);
  if (code == DBE_EMPTY_LIST) return printer.end();  // nothing in the table can match
  require_ok(std::string("list ") + type.suffix, code);
  const std::uint16_t length = length_of(type, options);
  std::vector<unsigned char> record(65535);
  for (;;) {
    std::memset(record.data(), 0, length);
    code = db_get_more(task, type.db_id, area.data(), record.data(), length);
    if (code == DBE_END_OF_LIST) break;
    require_ok(std::string("list ") + type.suffix, code);
    printer.add(task, {record.data(), length});
  }
  printer.end();
}

void list_names(void* task, const record_type& type, const list_options& options) {
  std::vector<unsigned char> list(65535 * name_width);
  std::uint16_t count = 0, index = 0;
  const std::string what = std::string("list ") + type.suffix + " --names";
  std::int16_t code = db_start_list(task, type.db_id, nullptr, list.data(),
                                    static_cast<std::uint32_t>(list.size()), &count, &index);
  if (code == DBE_LIST_TOO_SMALL)
    throw refusal(what + ": there are more names than one list holds; list without --names");
  require_ok(what, code);
  list_printer printer(type, options);
  for (;;) {
    std::array<unsigned char, name_width> record{};
    code = db_get_next(task, type.db_id, list.data(), count, &index, record.data(), name_width);
    if (code == DBE_END_OF_LIST) break;
    if (code == DBE_NOT_FOUND) continue;  // deleted since the list was made
    require_ok(what, code);
    printer.add(nullptr, record);
  }
  printer.end();
}

void list_all(const globals& all, const list_options& options) {
  const record_type& type = record_type_named(options.type);
  if (type.db_id != DB_TRG && options.filtered())
    throw usage_fault(std::string("the filters are for targets only, not for type ") + type.suffix);
  if (options.names && (options.filtered() || options.length_given))
    throw usage_fault("--names goes with no filter and no --len");
  if (options.exclude && options.name.empty()) throw usage_fault("--exclude goes with --name");
  (void)make_filter(options);  // faults of the command line come first
  const session s(base_directory(all));
  if (options.names)
    list_names(s.task(), type, options);
  else
    list_records(s.task(), type, options);
}

}  // namespace

void add_list(CLI::App& app, globals& all) {
  auto options = std::make_shared<list_options>();
  CLI::App& sub = *app.add_subcommand("list", "List records as JSON lines");
  sub.add_option("TYPE", options->type, "Record type: trg, prm")->required();
  sub.add_option("--name", options->name, "Names that begin with this text; the text ends at a '*'")
      ->type_name("TEXT");
  sub.add_flag("--exclude", options->exclude, "Names that do not begin with the text of --name");
  sub.add_option("--type", options->type_bits, "Targets with any of these type bits")->type_name("BITS");
  sub.add_option("--mode", options->mode_bits,
                 "Targets with any of these mode bits; exactly 4 means equal to 4")
      ->type_name("BITS");
  sub.add_option("--os", options->systems, "Targets of these systems: a mask, or words")->type_name("MASK");
  sub.add_option("--server", options->server, "Targets of this server")->type_name("NAME");
  sub.add_flag("--names", options->names, "Names only");
  CLI::Option* length = sub.add_option("--len", options->length,
                                       "Buffer length of each call; for trg 192 (from memory) when left out");
  sub.add_flag("--words", options->words, "Numbers that have words as words");
  sub.add_flag("--table", options->as_table, "A table for people");
  sub.footer(R"(Bits are a number (40, 0x28) or words joined by ',' (LOCAL,SERVER).

Examples:
  zvradm list trg --name 'Europe/*' --table
  zvradm list trg --server OSLO --type CLIENT
  zvradm list trg --os SOLARIS,HP_UX --len 21724
  zvradm list trg --names)");
  sub.callback([&all, options, length] {
    options->length_given = length->count() > 0;
    list_all(all, *options);
  });
}

}  // namespace zvradm
