// file dump: the contents of a record file as JSON lines.
#include <memory>

#include "commands.h"
#include "database_files.h"
#include "file_header_json.h"
#include "json_output.h"

namespace zvradm {

namespace {

using zvrdb::engine::dump_entry;
using zvrdb::engine::file_header;
using zvrdb::engine::report_outcome;

// The walk may not be left by an exception; a fault of the output is kept for its end.
struct dump_run {
  std::string fault;
};

bool print_guarded(void* context, const json& line) {
  try {
    print_json(line);
    return true;
  } catch (const refusal& fault) {
    static_cast<dump_run*>(context)->fault = fault.what();
    return false;
  }
}

bool print_header(void* context, const file_header& header) {
  return print_guarded(context, file_header_json(header));
}

bool print_entry(void* context, const dump_entry& entry) {
  return print_guarded(context, {{"key", entry.key},
                                 {"value", to_hex(entry.value)},
                                 {"rec", entry.rec},
                                 {"piece", entry.piece},
                                 {"last", entry.last},
                                 {"data", to_hex(entry.data)}});
}

void dump(const std::string& file) {
  require_record_file_name(file);
  dump_run run;
  std::string reason;
  const report_outcome outcome =
      zvrdb::engine::dump_file(file.c_str(), print_header, print_entry, &run, &reason);
  if (!run.fault.empty()) throw refusal(run.fault);
  if (outcome == report_outcome::unreadable) throw refusal(file + ": not readable: " + reason);
  if (outcome == report_outcome::problems)
    throw refusal(file + ": damaged, so the dump is not whole; 'zvradm file check --deep' tells where" +
                  (reason.empty() ? "" : ": " + reason));
}

}  // namespace

void add_file_dump(CLI::App& file, globals& all) {
  (void)all;
  auto path = std::make_shared<std::string>();
  CLI::App& sub = *file.add_subcommand("dump", "Print the contents of a record file as JSON lines");
  sub.add_option("FILE", *path, "Record file")->required();
  sub.footer(R"(One line for the header, then one for each leaf entry in tree order:
{"key":1,"value":"<hex>","rec":1,"piece":0,"last":true,"data":"<hex>"}
The header's line bears a "note" when the file's journal has changes that the file does not
have yet.

Example:
  zvradm file dump /srv/zvr/db/trgcfg)");
  sub.callback([path] { dump(*path); });
}

}  // namespace zvradm
