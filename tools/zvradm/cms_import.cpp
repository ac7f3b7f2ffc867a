// cms import [FILE]: CM status of many pairs.
#include <zvrdb/zvrdb.h>

#include <memory>

#include "cms_commands.h"
#include "import_check.h"
#include "input_lines.h"
#include "json_output.h"
#include "progress.h"
#include "record_import.h"
#include "session.h"

namespace zvradm {

namespace {

struct import_options {
  std::string file;
  bool no_transaction = false;
  bool answers = false;
};

// Each pair has a transaction of its own inside the library, which ends any that is open
// on the same file.  A transaction on the catalog instead lives through all of them: it
// keeps the lock of the installation, so that nobody sees a part of the import, and the
// names stay what they were when they were checked.
constexpr std::uint32_t held_file = DB_CAT;

class pair_import {
 public:
  pair_import(void* task, const std::string& source, const import_options& options)
      : source_(source), options_(options), check_(task), writer_(task) {}

  void check(const std::vector<import_line>& lines) {
    progress shown("checking", lines.size());
    for (const import_line& line : lines) {
      try {
        check_.check(type_, parse_record_line(line.text));
      } catch (const field_fault& fault) {
        refuse(line, fault_text(fault));
      }
      shown.reached(++checked_);
    }
  }

  void store(const std::vector<import_line>& lines) {
    progress shown("importing", lines.size());
    for (const import_line& line : lines) {
      try {
        const std::int16_t code = writer_.put(type_, parse_record_line(line.text));
        answer(line, code);
        if (code == DBE_OK) ++counts_.added;
        if (code == DBE_RECORD_REPLACED) ++counts_.replaced;
        if (!is_stored(code)) refuse(line, library_refusal(writer_.what(), code).what());
      } catch (const field_fault& fault) {
        answer(line, DBE_BAD_RECORD, &fault);
        refuse(line, fault_text(fault));
      }
      if (counts_.refused > 0 && !options_.no_transaction) return;
      shown.reached(counts_.added + counts_.replaced + counts_.refused);
    }
  }

  const import_counts& counts() const { return counts_; }

 private:
  static std::string fault_text(const field_fault& fault) {
    return (fault.path.empty() ? "" : fault.path + ": ") + fault.what();
  }
  void refuse(const import_line& line, const std::string& text) {
    ++counts_.refused;
    std::fflush(stdout);
    std::fprintf(stderr, "zvradm: %s, line %llu: %s\n", source_.c_str(),
                 static_cast<unsigned long long>(line.number), text.c_str());
  }
  // The pair is stored for good when its answer is written.
  void answer(const import_line& line, std::int16_t code, const field_fault* fault = nullptr) const {
    if (!options_.answers) return;
    json told{{"line", line.number}, {"rc", code}, {"code", code_name(code)}};
    if (fault) {
      told["field"] = fault->path;
      told["error"] = fault->what();
    }
    print_json(told);
    std::fflush(stdout);
  }

  const std::string& source_;
  const import_options& options_;
  const record_type& type_ = record_type_named("cms");
  import_check check_;
  record_writer writer_;
  std::uint64_t checked_ = 0;
  import_counts counts_;
};

std::vector<import_line> read_lines(input_lines& input) {
  // All of the input first: nobody else gets at the installation while it is stored.
  std::vector<import_line> lines;
  std::string text;
  while (input.next(text)) lines.push_back({input.number(), text});
  return lines;
}

int import_pairs(const globals& all, const import_options& options) {
  input_lines input(options.file);
  const std::vector<import_line> lines = read_lines(input);
  const session s(base_directory(all));
  const bool transaction = !options.no_transaction;
  pair_import work(s.task(), input.name(), options);
  if (transaction) {
    require_ok("cms import: start of the transaction", db_start_trans(s.task(), held_file));
    work.check(lines);
  }
  const bool sound = work.counts().refused == 0;
  if (sound) work.store(lines);
  const import_counts counts = work.counts();
  // It has changed nothing; its end lets the others in.
  if (transaction) require_ok("cms import: end of the transaction", db_commit(s.task(), held_file));
  if (!sound) throw refusal(input.name() + ": nothing was imported; correct it, or use --no-transaction");
  print_json({{"records", lines.size()},
              {"added", counts.added},
              {"replaced", counts.replaced},
              {"refused", counts.refused}});
  if (transaction && counts.refused > 0)
    throw refusal(input.name() + ": the import ended at the refused line; the " +
                  std::to_string(counts.added + counts.replaced) +
                  " pairs before it are stored, and it can be repeated");
  return counts.refused > 0 ? exit_refused : exit_done;
}

}  // namespace

void add_cms_import(CLI::App& cms, globals& all) {
  auto options = std::make_shared<import_options>();
  CLI::App& sub = *cms.add_subcommand("import", "Store the status of many pairs given as JSON lines");
  sub.add_option("FILE", options->file, "JSON lines, a pair a line; standard input when left out or '-'");
  sub.add_flag("--no-transaction", options->no_transaction,
               "Let others in between two pairs; refused lines are told and the others kept");
  sub.add_flag("--answers", options->answers, "Answer each line when its pair is stored, as put does");
  sub.footer(R"(A line: {"trg_name":"OSLO","cf_name":["DEB","libc6","FIX"],"cm_status":5,"cm_details":"00ff"}
The import runs in one explicit transaction: others wait until it ends and see all of it
or nothing. All lines are checked first, and a faulty one stores nothing. Each pair is
stored for good, on both sides, one after the other: an import that is killed, or that
meets a full disk, has stored whole pairs, up to the one after the last answer at most,
and they stay. It can be repeated as it is.

Examples:
  zvradm cms import status.jsonl
  zvradm export cms | zvradm --base /srv/new cms import)");
  sub.callback([&all, options] { all.answer = import_pairs(all, *options); });
}

}  // namespace zvradm
