// list TYPE: records by filters, or names only.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <array>
#include <cstring>
#include <memory>

#include "change_file_list.h"
#include "commands.h"
#include "list_printer.h"
#include "record_keys.h"
#include "request_list.h"
#include "session.h"
#include "text_types.h"

namespace zvradm {

namespace {

struct list_options {
  std::string type;
  std::string file;    // of products and filesets
  std::string filter;  // of change files
  std::uint16_t product = 0;
  bool product_given = false;
  request_filter request;
  std::string name;
  bool exclude = false;
  std::string type_bits, mode_bits, systems;
  std::string server;
  bool names = false;
  bool words = false;
  bool as_table = false;
  std::uint16_t length = 0;
  bool length_given = false;

  bool filters_targets() const {
    return exclude || !type_bits.empty() || !mode_bits.empty() || !systems.empty() || !server.empty();
  }
  bool filtered() const { return filters_targets() || !name.empty(); }
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

// Types whose lists are asked for by a name or the begin of names.
bool listed_by_name(const record_type& type) {
  return type.db_id == DB_USR || type.db_id == DB_APR || type.db_id == DB_TG || type.db_id == DB_DTG;
}

std::string prefix_of(const list_options& options) {
  return options.name.substr(0, options.name.find('*'));
}

std::uint16_t name_length(const record_type& type) {
  return static_cast<std::uint16_t>(type.fields.front().width);
}

list_form form_of(const record_type& type, const list_options& options) {
  list_form form{.length = options.length_given ? options.length : type.list_length,
                 .words = options.words,
                 .as_table = options.as_table};
  if (options.names) form.length = name_length(type);
  return form;
}

// What is common to all lists that db_get_more walks.
void list_more(void* task, const record_type& type, const list_options& options, void* filter) {
  std::array<unsigned char, list_area_length> area{};
  const std::string what = std::string("list ") + type.suffix;
  std::int16_t code = db_init_list(task, type.db_id, filter, area.data(), list_area_length);
  const list_form form = form_of(type, options);
  list_printer printer(type, form);
  if (code == DBE_EMPTY_LIST && !options.file.empty())
    throw refusal(what + " \"" + options.file + "\": " + code_name(code) + " (" + std::to_string(code) +
                  "): the change file is one name, in whose first token '*' is not taken");
  if (code == DBE_EMPTY_LIST) return printer.end();  // no target in the table can match
  require_ok(options.file.empty() ? what : what + " \"" + options.file + "\"", code);
  std::vector<unsigned char> record(65535);
  for (;;) {
    std::memset(record.data(), 0, form.length);
    code = db_get_more(task, type.db_id, area.data(), record.data(), form.length);
    if (code == DBE_END_OF_LIST) break;
    require_ok(what, code);
    printer.add(task, {record.data(), form.length});
  }
  printer.end();
}

void list_targets(void* task, const record_type& type, const list_options& options) {
  db_trg_filter filter = make_filter(options);
  list_more(task, type, options, &filter);
}

void list_by_name(void* task, const record_type& type, const list_options& options) {
  std::string filter = prefix_of(options) + "*";
  list_more(task, type, options, filter.data());
}

void list_products(void* task, const record_type& type, const list_options& options) {
  db_prd_key filter{};
  filter.cf_name = change_file_argument(options.file);
  filter.product_id = options.product;
  list_more(task, type, options, &filter);
}

db_cf_name filter_of(const list_options& options) {
  return options.filter.empty() ? every_change_file() : change_file_argument(options.filter);
}

void list_catalog(void* task, const record_type& type, const list_options& options) {
  const list_form form = form_of(type, options);
  const std::string what = std::string("list ") + type.suffix;
  list_printer printer(type, form);
  const list_changes changes = read_change_files(
      task, filter_of(options), form.length, what,
      [&](const db_cat_entry&, std::span<const unsigned char> record) { printer.add(task, record); });
  printer.end();
  tell_changes(what, changes);
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
  list_printer printer(type, form_of(type, options));
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

// --server and --filter are those of other types too.
request_filter request_filter_of(const list_options& options) {
  request_filter filter = options.request;
  filter.server = options.server;
  filter.object = options.filter;
  return filter;
}

void list_requests(void* task, const record_type& type, const list_options& options) {
  list_form form = form_of(type, options);
  if (options.names) form.length = type.list_length;  // the identifier, of which rqv has more
  list_printer printer(type, form);
  read_requests(task, type, filter_bytes(type, request_filter_of(options)), form.length,
                [&](std::span<const unsigned char> record) { printer.add(task, record); });
  printer.end();
}

void check_request_options(const record_type& type, const list_options& options) {
  list_options others = options;
  others.server.clear();
  if (options.names && options.length_given) throw usage_fault("--names goes with no --len");
  if (others.filtered() || !options.file.empty() || options.product_given)
    throw usage_fault(
        std::string("type ") + type.suffix +
        " is filtered by --server, --user, --seq, --rec, --function, --domain, --target, --rgn, "
        "--ren, or --filter with a JSON object");
  (void)filter_bytes(type, request_filter_of(options));
}

// Connections stand in files of their own: their names first, then each record.
void list_connections(void* task, const record_type& type, const list_options& options) {
  constexpr std::uint32_t width = sizeof(db_scn::connection);
  prepare_text_record(task, type.db_id);
  std::vector<unsigned char> list(65535 * width);
  std::uint16_t count = 0, index = 0;
  const std::string what = std::string("list ") + type.suffix;
  require_ok(what, db_start_list(task, type.db_id, nullptr, list.data(),
                                 static_cast<std::uint32_t>(list.size()), &count, &index));
  list_form form = form_of(type, options);
  if (options.names) form.length = width;
  list_printer printer(type, form);
  std::string unreadable;
  while (index < count) {
    std::vector<unsigned char> record(65535);
    const std::uint16_t at = index;
    std::copy_n(list.begin() + at * width, width, record.begin());
    const std::int16_t code =
        options.names ? static_cast<std::int16_t>(DBE_OK)
                      : db_get_next(task, type.db_id, list.data(), count, &index, record.data(), form.length);
    if (options.names) ++index;
    if (code == DBE_NOT_FOUND) continue;  // deleted since the list was made
    const std::string name(record.begin(), std::find(record.begin(), record.begin() + width, 0));
    if (code == DBE_OK)
      printer.add(task, {record.data(), form.length});
    else
      unreadable = library_refusal("get scn \"" + name + "\"", code).what();
  }
  printer.end();
  if (!unreadable.empty()) throw refusal(unreadable + " ('zvradm check-config' tells where)");
}

// Faults of the command line, before an installation is touched.
void check_options(const record_type& type, const list_options& options) {
  const bool of_file = type.db_id == DB_PRD || type.db_id == DB_FST;
  const std::string suffix = type.suffix;
  if (is_request(type)) return check_request_options(type, options);
  if (options.request.given())
    throw usage_fault("these filters are for request records only, not for type " + suffix);
  const bool by_name = listed_by_name(type);
  if (type.db_id != DB_TRG && (by_name ? options.filters_targets() : options.filtered()))
    throw usage_fault("type " + suffix + " is not filtered by that: " +
                      (by_name ? "it takes --name" : type.db_id == DB_CAT ? "it takes --filter" : "it takes no filter"));
  if (type.db_id != DB_CAT && !options.filter.empty())
    throw usage_fault("--filter is for change files (cat) and requests, not for type " + suffix);
  if (of_file && options.file.empty())
    throw usage_fault("list " + suffix + " takes the change file: list " + suffix + " FILE");
  if (!of_file && !options.file.empty()) throw usage_fault("list " + suffix + " takes no FILE");
  if (options.product_given && type.db_id != DB_FST)
    throw usage_fault("--product is for filesets (fst) only");
  if (options.names && of_file) throw usage_fault("--names is not for type " + suffix);
  if (options.names && by_name && options.length_given) throw usage_fault("--names goes with no --len");
  if (options.names && !by_name && (options.filtered() || options.length_given))
    throw usage_fault("--names goes with no filter of targets and no --len");
  if (options.exclude && options.name.empty()) throw usage_fault("--exclude goes with --name");
  if (by_name && prefix_of(options).size() > name_length(type))
    throw usage_fault("--name is longer than " + std::to_string(name_length(type)) + " bytes");
  if (type.db_id == DB_TRG) (void)make_filter(options);
  if (type.db_id == DB_CAT) (void)filter_of(options);
  if (of_file) (void)change_file_argument(options.file);
}

void list_all(const globals& all, const list_options& options) {
  const record_type& type = record_type_named(options.type);
  check_options(type, options);
  const session s(base_directory(all));
  if (is_request(type)) return list_requests(s.task(), type, options);
  switch (type.db_id) {
    case DB_CAT:
      return list_catalog(s.task(), type, options);
    case DB_SCN:
      return list_connections(s.task(), type, options);
    case DB_PRD:
    case DB_FST:
      return list_products(s.task(), type, options);
    case DB_USR:
    case DB_APR:
    case DB_TG:
    case DB_DTG:
      return list_by_name(s.task(), type, options);
    default:
      return options.names ? list_names(s.task(), type, options) : list_targets(s.task(), type, options);
  }
}

}  // namespace

void add_list(CLI::App& app, globals& all) {
  auto options = std::make_shared<list_options>();
  CLI::App& sub = *app.add_subcommand("list", "List records as JSON lines");
  sub.add_option("TYPE", options->type,
                 "Record type: trg, prm, tg, dtg, apr, usr, cat, prd, fst, scn, rqr, rqf, fan, rqd, rqt, rqv")
      ->required();
  sub.add_option("FILE", options->file, "The change file whose products (prd) or filesets (fst) are listed");
  sub.add_option("--name", options->name,
                 "Names that begin with this text (trg, tg, dtg, apr, usr); the text ends at a '*'")
      ->type_name("TEXT");
  sub.add_flag("--exclude", options->exclude, "Names that do not begin with the text of --name");
  sub.add_option("--type", options->type_bits, "Targets with any of these type bits")->type_name("BITS");
  sub.add_option("--mode", options->mode_bits,
                 "Targets with any of these mode bits; exactly 4 means equal to 4")
      ->type_name("BITS");
  sub.add_option("--os", options->systems, "Targets of these systems: a mask, or words")->type_name("MASK");
  sub.add_option("--server", options->server, "Targets of this server; requests that arose at it")
      ->type_name("NAME");
  request_filter& request = options->request;
  sub.add_option("--user", request.user, "Requests of this user; AB* of all that begin so")
      ->type_name("NAME");
  sub.add_option("--seq", request.sequence, "Requests of this sequence number")
      ->type_name("N")
      ->check(CLI::Range(0u, 4294967295u).description(""));
  sub.add_option("--rec", request.recursion, "Requests of this recursion number")
      ->type_name("N")
      ->check(CLI::Range(0u, 65535u).description(""));
  sub.add_option("--function", request.function, "Records of this function; AB* likewise")->type_name("NAME");
  sub.add_option("--domain", request.domain, "Domain and target records of this server")->type_name("NAME");
  sub.add_option("--target", request.target, "Target records of this target")->type_name("NAME");
  sub.add_option("--rgn", request.rgn, "Fan-out records of this network")->type_name("TEXT");
  sub.add_option("--ren", request.ren, "Fan-out records of this element")->type_name("TEXT");
  sub.add_option(
         "--filter", options->filter,
         "Change files with names like this, '*' and '?' in its tokens; or, for requests, fields as a "
         "JSON object")
      ->type_name("NAME");
  CLI::Option* product =
      sub.add_option("--product", options->product, "Filesets of this product; 0, or left out: of all")
          ->type_name("N")
          ->check(CLI::Range(0, 65535).description(""));
  sub.add_flag("--names", options->names, "Names only");
  CLI::Option* length =
      sub.add_option("--len", options->length,
                     "Buffer length of each call; when left out 192 for trg and 164 for cat (from memory)")
          ->type_name("N")
          ->check(CLI::Range(0, 65535).description(""));
  sub.add_flag("--words", options->words, "Numbers that have words as words");
  sub.add_flag("--table", options->as_table, "A table for people");
  sub.footer(R"(Bits are a number (40, 0x28) or words joined by ',' (LOCAL,SERVER).
The name of a change file is written with dots between its tokens, "\." for a dot
inside one. In a filter '?' stands for one character, '*' for the rest of a token; a
token '*' alone also for none: 'DEB.*' lists DEB and DEB.X, not DEB.X.Y.

Of requests what a filter leaves open must run from the end of server, user, sequence,
recursion, function, domain, target (or RGN, REN) without a gap; a prefix stands in its
first part only. rqd by --domain alone and rqt by --target alone list a destination.

Examples:
  zvradm list rqt --server OSLO --user 'K*' --table
  zvradm list rqt --target BERGEN
  zvradm list trg --name 'Europe/*' --table
  zvradm list trg --server OSLO --type CLIENT
  zvradm list trg --os SOLARIS,HP_UX --len 21724
  zvradm list trg --names
  zvradm list usr --name 'K*' --table
  zvradm list tg --name Europe
  zvradm list cat --filter 'DEB.*.FIX.*' --table
  zvradm list cat --names
  zvradm list fst 'DEB.libc6.FIX.2\.36' --product 1)");
  sub.callback([&all, options, length, product] {
    options->length_given = length->count() > 0;
    options->product_given = product->count() > 0;
    list_all(all, *options);
  });
}

}  // namespace zvradm
