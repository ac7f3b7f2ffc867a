// correlator of, request of: from a request to its correlator and back.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "json_output.h"
#include "local_target.h"
#include "request_commands.h"
#include "request_name.h"
#include "session.h"

namespace zvradm {

namespace {

struct correlator_options {
  std::string name;  // of the request, or the correlator
  std::string origin, server;
  std::uint32_t sequence = 0;
  bool known = false;
};

void put_name(char (&field)[64], const char* option, const std::string& name) {
  if (name.size() >= sizeof field)
    throw usage_fault(std::string(option) + " is longer than " + std::to_string(sizeof field - 1) + " bytes");
  std::memset(field, 0, sizeof field);
  std::memcpy(field, name.data(), name.size());
}

void print_pair(const db_coo& record) {
  print_json({{"request", request_text(record.request, request_form::function)},
              {"correlator", correlator_text(record)},
              {"num_mangled", record.num_mangled}});
}

// Programs may ask for a correlator before they store the function; a slip of the pen must
// not go by unnoticed, though.
void tell_lone(void* task, const db_coo& record, const std::string& name) {
  const void* keys[] = {&record.request};
  unsigned char nothing = 0;
  if (db_get(task, DB_RQF, 1, keys, &nothing, 0) != DBE_NOT_FOUND) return;
  std::fprintf(stderr,
               "zvradm: note: there is no record of the function \"%s\"; 'zvradm del coo' deletes its correlator\n",
               name.c_str());
}

void find_correlator(const globals& all, const correlator_options& options) {
  db_coo record{};
  try {
    record.request = parse_request(options.name, request_form::function);
  } catch (const request_fault& fault) {
    throw usage_fault(fault.what());
  }
  put_name(record.origin, "--origin", options.origin);
  const session s(base_directory(all));
  const std::string what = "correlator of \"" + options.name + "\"";
  if (options.known) {
    const db_coo key = record;
    const void* keys[] = {&key};
    require_ok(what, db_get(s.task(), DB_COO, 1, keys, &record, sizeof record));
  } else {
    if (options.origin.empty()) put_name(record.origin, "--origin", local_target_name(s.task()));
    require_ok(what, db_reqid2corr(s.task(), &record));
    tell_lone(s.task(), record, options.name);
  }
  print_pair(record);
}

void find_request(const globals& all, const correlator_options& options) {
  db_coo record{};
  try {
    record = parse_correlator(options.name);
  } catch (const request_fault& fault) {
    throw usage_fault(fault.what());
  }
  put_name(record.request.request.src_domain, "--server", options.server);
  record.request.request.seq_no = options.sequence;
  const session s(base_directory(all));
  const std::string what = "request of \"" + options.name + "\"";
  if (options.server.empty()) {
    const db_coo key = record;
    const void* keys[] = {&key};
    require_ok(what, db_get(s.task(), DB_COI, 1, keys, &record, sizeof record));
  } else {
    const std::int16_t code = db_corr2reqid(s.task(), &record);
    if (code == DBE_RECORD_REPLACED)
      throw refusal(what + ": " + code_name(code) + " (" + std::to_string(code) +
                    "): the request made up for it, \"" +
                    request_text(record.request, request_form::function) +
                    "\", belongs to another correlator; give another --seq");
    require_ok(what, code);
  }
  print_pair(record);
}

}  // namespace

void add_correlator_of(CLI::App& app, globals& all) {
  auto options = std::make_shared<correlator_options>();
  CLI::App& correlator = *app.add_subcommand("correlator", "SNA correlators of requests");
  correlator.require_subcommand(1);
  correlator.footer(R"(Example:
  zvradm correlator of OSLO.KLUND.17.0.INSTALL)");
  CLI::App& sub =
      *correlator.add_subcommand("of", "Print the correlator of a function of a request, made if need be");
  sub.add_option("REQUEST", options->name, "SERVER.USER.SEQUENCE.RECURSION.FUNCTION")->required();
  sub.add_option("--origin", options->origin, "Origin of a new one; the local target when left out")
      ->type_name("NAME");
  sub.add_flag("--known", options->known, "Make none: one that is not there is refused");
  sub.footer(R"(A correlator is ORIGIN.YEAR/MONTH/DAY.HOUR:MINUTE:SECOND.SEQUENCE.

Example:
  zvradm correlator of OSLO.KLUND.17.0.INSTALL)");
  sub.callback([&all, options] { find_correlator(all, *options); });
}

void add_request_of(CLI::App& app, globals& all) {
  auto options = std::make_shared<correlator_options>();
  CLI::App& request = *app.add_subcommand("request", "Requests of SNA correlators");
  request.require_subcommand(1);
  request.footer(R"(Example:
  zvradm request of OSLO.2001/2/3.4:5:6.512000)");
  CLI::App& sub = *request.add_subcommand("of", "Print the request of a correlator");
  sub.add_option("CORRELATOR", options->name, "ORIGIN.YEAR/MONTH/DAY.HOUR:MINUTE:SECOND.SEQUENCE")
      ->required();
  CLI::Option* server =
      sub.add_option("--server", options->server,
                     "A request is made up for a correlator from elsewhere, as of this server")
          ->type_name("NAME");
  sub.add_option("--seq", options->sequence, "Sequence of the request made up")
      ->type_name("N")
      ->needs(server);
  sub.footer(R"(Examples:
  zvradm request of OSLO.2001/2/3.4:5:6.512000
  zvradm request of BERGEN.2001/2/3.4:5:6.17 --server BERGEN --seq 17)");
  sub.callback([&all, options] { find_request(all, *options); });
}

}  // namespace zvradm
