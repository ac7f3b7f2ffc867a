// import FILE: stores the records of an export.
#include <zvrdb/zvrdb.h>

#include <array>
#include <iterator>
#include <map>
#include <memory>

#include "commands.h"
#include "import_check.h"
#include "input_lines.h"
#include "json_output.h"
#include "record_import.h"
#include "session.h"
#include "text_types.h"

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

// Records whose types share a file are stored in one transaction on it.  CM status has
// transactions of its own, a pair each, and a transaction on its own file would end with
// the first; one on the catalog keeps others out and the names as they were checked.
constexpr std::size_t types_of_a_phase = 6;
struct import_phase {
  const char* title;
  std::array<const char*, types_of_a_phase> types;  // in the order in which they are stored; null: no more
  std::uint32_t transaction;
  bool as_a_whole;
};
constexpr std::uint32_t no_transaction = DB_TYPE_COUNT;  // each record for itself, in a file of its own
// The tables of access keys stay in memory when their transaction is taken back, so theirs,
// too, is one on another file.
constexpr std::array phases{
    import_phase{"targets", {"trg", "prm", "thw", "sht"}, DB_TRG, true},
    import_phase{"target groups", {"tg"}, DB_TG, true},
    import_phase{"dynamic groups", {"dtg"}, DB_DTG, true},
    import_phase{"profiles", {"apr"}, DB_APR, true},
    import_phase{"users", {"usr"}, DB_USR, true},
    import_phase{"access keys", {"tak", "dak"}, DB_TRG, false},
    import_phase{"change files", {"cat", "prd", "fst"}, DB_CAT, true},
    import_phase{"CM status", {"cms"}, DB_CAT, false},
    import_phase{"requests", {"rqr", "rqf", "fan", "rqd", "rqt", "rqv"}, DB_RQR, true},
    import_phase{"correlators", {"coo"}, DB_COO, true},
    import_phase{"text records", {"scn", "scf", "rte", "ucf"}, no_transaction, false}};

class whole_import {
 public:
  whole_import(void* task, const std::string& source, bool transaction)
      : task_(task), source_(source), transaction_(transaction) {}

  import_counts run(std::vector<import_line> lines) {
    sort_out(lines);
    if (transaction_) {
      check_all();
      if (counts_.refused > 0)
        throw refusal(source_ + ": nothing was imported; correct it, or use --no-transaction");
    }
    for (std::size_t i = 0; i < phases.size(); ++i)
      if (!of_phase_[i].empty()) store(phases[i], std::move(of_phase_[i]));
    return counts_;
  }

 private:
  void refuse(std::uint64_t line, const std::string& text) {
    std::fprintf(stderr, "zvradm: %s, line %llu: %s\n", source_.c_str(),
                 static_cast<unsigned long long>(line), text.c_str());
  }
  void refuse(std::uint64_t line, const field_fault& fault) {
    ++counts_.refused;
    refuse(line, (fault.path.empty() ? "" : fault.path + ": ") + fault.what());
  }

  // Lines by phase, each phase by the order of its types.
  void sort_out(std::vector<import_line>& lines) {
    std::map<std::string_view, std::vector<import_line>> of_type;
    for (import_line& line : lines) try {
        of_type[imported_type(parse_record_line(line.text)).suffix].push_back(std::move(line));
      } catch (const field_fault& fault) {
        refuse(line.number, fault);
      }
    for (std::size_t i = 0; i < phases.size(); ++i)
      for (const char* suffix : phases[i].types)
        if (suffix) {
          std::vector<import_line>& some = of_type[suffix];
          std::move(some.begin(), some.end(), std::back_inserter(of_phase_[i]));
        }
  }

  void check_all() {
    import_check check(task_);
    std::uint64_t all = 0, done = 0;
    for (const std::vector<import_line>& lines : of_phase_) all += lines.size();
    progress shown("checking", all);
    for (const std::vector<import_line>& lines : of_phase_)
      for (const import_line& line : lines) {
        const json object = parse_record_line(line.text);
        check.will_be_stored(imported_type(object), object);
      }
    for (const std::vector<import_line>& lines : of_phase_)
      for (const import_line& line : lines) try {
          shown.reached(done++);
          const json object = parse_record_line(line.text);
          check.check(imported_type(object), object);
        } catch (const field_fault& fault) {
          refuse(line.number, fault);
        }
  }

  void store(const import_phase& phase, std::vector<import_line> lines) {
    const std::string what = std::string("import of ") + phase.title;
    const bool transaction = transaction_ && phase.transaction != no_transaction;
    if (phase.transaction == no_transaction) prepare_text_record(task_, DB_SCN);
    if (transaction)
      require_ok(what + ": start of the transaction", db_start_trans(task_, phase.transaction));
    progress shown(std::string("importing ") + phase.title, lines.size());
    const import_counts counts = import_records(
        task_, std::move(lines), !transaction_,
        [this](std::uint64_t line, const std::string& text) { refuse(line, text); }, shown);
    if (transaction_ && counts.refused > 0) {
      if (transaction)
        require_ok(what + ": taking the transaction back", db_rollback(task_, phase.transaction));
      if (!phase.as_a_whole) add(counts);
      throw refusal(source_ + ": a line was refused, so " + remains());
    }
    if (transaction) require_ok(what + ": end of the transaction", db_commit(task_, phase.transaction));
    add(counts);
  }

  void add(const import_counts& counts) {
    counts_.added += counts.added;
    counts_.replaced += counts.replaced;
    counts_.refused += counts.refused;
  }

  // What is true after a refusal that was not foreseen.
  std::string remains() const {
    const std::uint64_t stored = counts_.added + counts_.replaced;
    if (stored == 0) return "nothing was imported; correct it, or use --no-transaction";
    return "the import ends here; " + std::to_string(stored) +
           " records stored before stay, and the import can be repeated";
  }

  void* task_;
  std::string source_;
  bool transaction_;
  import_counts counts_;
  std::array<std::vector<import_line>, phases.size()> of_phase_;
};

int import_all(const globals& all, const import_options& options) {
  input_lines input(options.file);
  std::vector<import_line> lines = read_lines(input);
  const session s(base_directory(all));
  const std::uint64_t records = lines.size();
  const import_counts counts =
      whole_import(s.task(), input.name(), !options.no_transaction).run(std::move(lines));
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
  sub.footer(R"(Their order does not matter: a target waits for its server, CM status for its target and
its change file. All lines are checked before anything is stored. Then targets with all
that hangs on them are stored in one transaction, groups of either kind, profiles, users,
change files with their products and filesets, requests and correlators in one more each,
access keys a table, CM status a pair each and text records one by one. A line that is refused all the same
ends the import and takes its own transaction back; what was stored before stays.

Examples:
  zvradm --base /srv/new import all.jsonl
  zvradm --base /srv/old export | zvradm --base /srv/new import -)");
  sub.callback([&all, options] { all.answer = import_all(all, *options); });
}

}  // namespace zvradm
