// get TYPE KEY...: one record.
#include <zvrdb/zvrdb.h>

#include <memory>

#include "commands.h"
#include "json_output.h"
#include "record_keys.h"
#include "record_table.h"
#include "session.h"
#include "text_types.h"

namespace zvradm {

namespace {

struct get_options {
  std::string type;
  std::vector<std::string> keys;
  std::uint16_t length = 0;
  bool length_given = false;
  bool words = false;
  bool as_table = false;
};

void get_one(const globals& all, const get_options& options) {
  const record_type& type = record_type_named(options.type);
  const record_keys keys(type, options.keys);
  const session s(base_directory(all));
  prepare_text_record(s.task(), type.db_id);
  const std::uint16_t length = options.length_given ? options.length : type.get_length;
  std::vector<unsigned char> record(65535);
  const std::int16_t code = db_get(s.task(), type.db_id, keys.count(), keys.data(), record.data(), length);
  if (code == DBE_NOT_FOUND && find_text_type(type.suffix))
    throw refusal(library_refusal(call_text("get", type, options.keys), code).what() +
                  std::string("; 'zvradm edit ") + type.suffix + (options.keys.empty() ? "" : " NAME") + "' makes one");
  if ((code == DBE_BAD_RECORD || code == DBE_IO_ERROR) && find_text_type(type.suffix))
    throw refusal(library_refusal(call_text("get", type, options.keys), code).what() +
                  std::string("; 'zvradm check-config' tells where"));
  require_ok(call_text("get", type, options.keys), code);
  const std::span<const unsigned char> filled(record.data(), length);
  if (options.as_table)
    print_table(record_sheet(type, filled), stdout);
  else
    print_json(record_to_json(type, filled, {.words = options.words}));
}

}  // namespace

void add_get(CLI::App& app, globals& all) {
  auto options = std::make_shared<get_options>();
  CLI::App& sub = *app.add_subcommand("get", "Print one record as a JSON line");
  sub.add_option(
         "TYPE", options->type,
         "Record type: cfg, trg, prm, thw, sht, ua, tg, dtg, apr, usr, tak, dak, cat, prd, fst, cms, scn, "
         "scf, rte, ucf, rqr, rqf, fan, rqd, rqt, rqv, coo, coi")
      ->required();
  sub.add_option(
      "KEY", options->keys,
      "NAME of the target, group, profile or connection; for usr: USER; for ua: USER [SECOND [SELECTOR]]; "
      "for cat: FILE; for prd: FILE PRODUCT; for fst: FILE PRODUCT FILESET; for cms: TARGET FILE; none for "
      "cfg, tak, dak, scf, rte, ucf; for rqr, rqf, rqv, coo: REQUEST; for fan: REQUEST RGN REN; for rqd: "
      "REQUEST DOMAIN; for rqt: REQUEST DOMAIN TARGET; for coi: CORRELATOR");
  CLI::Option* length = sub.add_option("--len", options->length,
                                       "Buffer length of the call; only fields that fit whole are printed")
                            ->type_name("N")
                            ->check(CLI::Range(0, 65535).description(""));
  sub.add_flag("--words", options->words, "Numbers that have words as words");
  sub.add_flag("--table", options->as_table, "A table for people, a field a line");
  sub.footer(R"(A target of at most 192 bytes comes from shared memory, a longer one from the file; a
change file of at most 164 bytes likewise. The name of a change file is written with dots
between its tokens, "\." for a dot inside one and "\\" for a backslash.

A request is written SERVER.USER.SEQUENCE.RECURSION, and for all but rqr .FUNCTION behind it.

Examples:
  zvradm get trg OSLO
  zvradm get trg OSLO --len 192
  zvradm get thw OSLO --table
  zvradm get ua KLUND OSLO
  zvradm get usr KLUND --words
  zvradm get tak --table
  zvradm get cat 'DEB.libc6.FIX.2\.36'
  zvradm get fst 'DEB.libc6.FIX.2\.36' 7 1)");
  sub.callback([&all, options, length] {
    options->length_given = length->count() > 0;
    get_one(all, *options);
  });
}

}  // namespace zvradm
