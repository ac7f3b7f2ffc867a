// import FILE: stores the records of an export.
#include <zvrdb/zvrdb.h>

#include <memory>

#include "commands.h"
#include "input_lines.h"
#include "json_output.h"
#include "record_import.h"
#include "session.h"

namespace zvradm {

namespace {

struct import_options {
  std::string file;
  bool no_transaction = false;
};

std::vector<import_line> read_lines(input_lines& input) {
  // All of the input first: while a transaction is open nobody else can read targets,
  // so it must not wait for a slow source.
  std::vector<import_line> lines;
  std::string text;
  while (input.next(text)) lines.push_back({input.number(), text});
  return lines;
}

int import_all(const globals& all, const import_options& options) {
  input_lines input(options.file);
  std::vector<import_line> lines = read_lines(input);
  const session s(base_directory(all));
  const bool transaction = !options.no_transaction;
  if (transaction) require_ok("import: start of the transaction", db_start_trans(s.task(), DB_TRG));
  progress shown("importing", lines.size());
  const std::uint64_t records = lines.size();
  const import_counts counts = import_records(
      s.task(), std::move(lines), !transaction,
      [&](std::uint64_t line, const std::string& text) {
        std::fprintf(stderr, "zvradm: %s, line %llu: %s\n", input.name().c_str(),
                     static_cast<unsigned long long>(line), text.c_str());
      },
      shown);
  if (transaction && counts.refused > 0) {
    require_ok("import: taking the transaction back", db_rollback(s.task(), DB_TRG));
    throw refusal(input.name() +
                  ": a line was refused, so nothing was imported; correct it, or use --no-transaction");
  }
  if (transaction) require_ok("import: end of the transaction", db_commit(s.task(), DB_TRG));
  print_json({{"records", records},
              {"added", counts.added},
              {"replaced", counts.replaced},
              {"refused", counts.refused}});
  return counts.refused > 0 ? exit_refused : exit_done;
}

}  // namespace

void add_import(CLI::App& app, globals& all) {
  auto options = std::make_shared<import_options>();
  CLI::App& sub = *app.add_subcommand("import", "Store the records of an export");
  sub.add_option("FILE", options->file, "JSON lines, each with a \"type\"; '-' is standard input")
      ->required();
  sub.add_flag("--no-transaction", options->no_transaction,
               "Store each record for itself: refused lines are told and the others kept");
  sub.footer(R"(All records are stored in one transaction, or none. Their order does not matter:
a target waits for its server, a hardware record for its target.

Examples:
  zvradm --base /srv/new import all.jsonl
  zvradm --base /srv/old export | zvradm --base /srv/new import -)");
  sub.callback([&all, options] { all.answer = import_all(all, *options); });
}

}  // namespace zvradm
