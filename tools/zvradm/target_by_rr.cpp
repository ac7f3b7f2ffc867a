// target-by-rr RGN.REN: a target by its network name.
#include <zvrdb/zvrdb.h>

#include <cstring>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "record_table.h"
#include "session.h"

namespace zvradm {

namespace {

struct rr_options {
  std::string rr;
  std::uint16_t length = target_record_length;
  bool words = false;
  bool as_table = false;
};

void find_target(const globals& all, const rr_options& options) {
  constexpr std::size_t part = 8;
  const std::size_t dot = options.rr.find('.');
  const std::size_t behind = options.rr.size() - (dot == std::string::npos ? 0 : dot + 1);
  if (dot == std::string::npos || dot > part || behind > part || behind == 0)
    throw usage_fault("'" + options.rr + "' is not of the form RGN.REN, each part at most 8 characters");
  char rgn_ren[2 * part] = {};
  std::memcpy(rgn_ren, options.rr.data(), dot);
  std::memcpy(rgn_ren + part, options.rr.data() + dot + 1, behind);

  const record_type& type = record_type_named("trg");
  const session s(base_directory(all));
  std::vector<unsigned char> record(65535);
  require_ok("target-by-rr " + options.rr, db_trg_from_rr(s.task(), rgn_ren, record.data(), options.length));
  const std::span<const unsigned char> filled(record.data(), options.length);
  if (options.as_table)
    print_table(record_sheet(type, filled), stdout);
  else
    print_json(record_to_json(type, filled, {.words = options.words}));
}

}  // namespace

void add_target_by_rr(CLI::App& app, globals& all) {
  auto options = std::make_shared<rr_options>();
  CLI::App& sub = *app.add_subcommand("target-by-rr", "Print the target of a network name");
  sub.add_option("RGN.REN", options->rr, "Network name; an empty RGN means this server's own network")
      ->required();
  sub.add_option("--len", options->length, "Buffer length of the call");
  sub.add_flag("--words", options->words, "Numbers that have words as words");
  sub.add_flag("--table", options->as_table, "A table for people, a field a line");
  sub.footer(R"(Examples:
  zvradm target-by-rr NORTH.BERGEN01
  zvradm target-by-rr .BERGEN01)");
  sub.callback([&all, options] { find_target(all, *options); });
}

}  // namespace zvradm
