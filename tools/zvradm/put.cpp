// put TYPE [FILE]: a record a line, an answer a line.
#include <zvrdb/zvrdb.h>

#include <memory>

#include "commands.h"
#include "input_lines.h"
#include "json_output.h"
#include "record_put.h"
#include "session.h"
#include "text_types.h"

namespace zvradm {

namespace {

struct put_options {
  std::string type;
  std::string file;
  bool update = false;
};

void complain(const input_lines& lines, const std::string& text) {
  std::fflush(stdout);
  std::fprintf(stderr, "zvradm: %s, line %llu: %s\n", lines.name().c_str(),
               static_cast<unsigned long long>(lines.number()), text.c_str());
}

int put_all(const globals& all, const put_options& options) {
  const record_type& type = record_type_named(options.type);
  if (!type.storable()) throw library_refusal("put " + options.type, DBE_BAD_DB_ID);
  input_lines lines(options.file);
  const session s(base_directory(all));
  prepare_text_record(s.task(), type.db_id);
  record_writer writer(s.task(), record_writer::texts::keeps);
  bool refused = false;
  std::string line;
  while (lines.next(line)) {
    json answer{{"line", lines.number()}};
    std::string fault;
    try {
      const std::int16_t code = writer.put(type, parse_record_line(line), options.update);
      answer["rc"] = code;
      answer["code"] = code_name(code);
      if (!is_stored(code)) fault = writer.refused(type, code);
    } catch (const field_fault& wrong) {
      answer["rc"] = DBE_BAD_RECORD;
      answer["code"] = code_name(DBE_BAD_RECORD);
      answer["field"] = wrong.path;
      answer["error"] = wrong.what();
      fault = (wrong.path.empty() ? "" : wrong.path + ": ") + wrong.what();
    }
    print_json(answer);
    // An answer stands for a record that is stored, so it must not wait in a buffer.
    std::fflush(stdout);
    if (fault.empty()) continue;
    refused = true;
    complain(lines, fault);
  }
  return refused ? exit_refused : exit_done;
}

}  // namespace

void add_put(CLI::App& app, globals& all) {
  auto options = std::make_shared<put_options>();
  CLI::App& sub = *app.add_subcommand("put", "Store records given as JSON lines");
  sub.add_option("TYPE", options->type,
                 "Record type: cfg, trg, prm, thw, sht, tg, dtg, apr, usr, tak, dak, cat, prd, fst, cms, "
                 "scn, scf, rte, "
                 "ucf, rqr, rqf, fan, rqd, rqt, rqv, coo")
      ->required();
  sub.add_option("FILE", options->file, "JSON lines, a record a line; standard input when left out or '-'");
  sub.add_flag("--update", options->update,
               "Fields that are left out keep their value instead of being zero");
  sub.footer(R"(One JSON line is answered for each line read: {"line":1,"rc":0,"code":"DBE_OK"}.
The exit code is 1 when any record was refused. A group is always answered with 8196, a new
one too. The last_seqno of a new user is 0, that of one deleted before goes on.

Examples:
  echo '{"trg_name":"BERGEN","trg_type":["LOCAL","CLIENT"],"srv_name":"OSLO"}' | zvradm put trg
  zvradm put thw hardware.jsonl
  echo '{"name":"Europe","members":["OSLO","BERGEN"]}' | zvradm put tg
  echo '{"usr_name":"KLUND","profile":"builder","tak_mask":1}' | zvradm put usr
  echo '{"cf_name":["DEB","libc6","FIX","2.36"],"text102":"The C library"}' | zvradm put cat
  echo '{"trg_name":"BERGEN","contact_name":"K. Lund"}' | zvradm put trg --update)");
  sub.callback([&all, options] { all.answer = put_all(all, *options); });
}

}  // namespace zvradm
