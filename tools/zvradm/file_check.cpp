// file check: verifies record files.
#include <cstdio>
#include <memory>

#include "commands.h"
#include "database_files.h"
#include "engine/file_report.h"
#include "json_output.h"
#include "lone_correlators.h"
#include "progress.h"

namespace zvradm {

namespace {

using zvrdb::engine::problem;
using zvrdb::engine::report_outcome;

constexpr int exit_problems = 1, exit_unreadable = 2;

struct check_request {
  std::vector<std::string> files;
  bool deep = false;
  bool as_json = false;
};

// Nodes that the same note is told of.
struct noted {
  std::string text;
  std::uint64_t nodes;
  std::int64_t first;
};

struct check_run {
  const std::string& file;
  bool as_json;
  std::uint64_t problems = 0;
  std::vector<noted> notes;
};

// A roll-back can leave thousands of nodes with one and the same note, so notes are
// counted here and told once each.
void take_note(check_run& run, const problem& found) {
  for (noted& note : run.notes)
    if (note.text == found.text) {
      ++note.nodes;
      return;
    }
  run.notes.push_back({found.text, 1, found.node});
}

void print_notes(const check_run& run) {
  for (const noted& note : run.notes) {
    if (run.as_json) {
      print_json(
          {{"file", run.file}, {"note", note.text}, {"first_node", note.first}, {"nodes", note.nodes}});
      continue;
    }
    const std::string where = note.first < 0    ? ""
                              : note.nodes == 1 ? "node " + std::to_string(note.first) + ": "
                                                : std::to_string(note.nodes) + " nodes, the first " +
                                                      std::to_string(note.first) + ": ";
    std::printf("%s: note: %s%s\n", run.file.c_str(), where.c_str(), note.text.c_str());
  }
}

void print_lone_correlators(const check_run& run) {
  for (const std::string& line : lone_correlators(run.file))
    if (run.as_json)
      print_json({{"file", run.file}, {"note", line}});
    else
      std::printf("%s: note: %s\n", run.file.c_str(), line.c_str());
}

void print_problem(void* context, const problem& found) {
  check_run& run = *static_cast<check_run*>(context);
  if (found.note) return take_note(run, found);
  ++run.problems;
  if (run.as_json)
    return print_json(
        {{"file", run.file}, {"node", found.node}, {"path", found.path}, {"problem", found.text}});
  const std::string where = found.node < 0 ? "header" : "node " + std::to_string(found.node);
  std::printf("%s: %s%s: %s\n", run.file.c_str(), where.c_str(),
              found.path.empty() ? "" : (" (" + found.path + ")").c_str(), found.text.c_str());
}

void show_progress(void* context, std::uint64_t done, std::uint64_t all) {
  static_cast<progress*>(context)->reached(done, all);
}

int check_file(const std::string& file, const check_request& request) {
  progress shown("checking " + file, 0);
  zvrdb::engine::check_options options;
  options.deep = request.deep;
  options.progress = show_progress;
  options.progress_context = &shown;
  check_run run{file, request.as_json, 0, {}};
  std::string reason;
  const report_outcome outcome =
      zvrdb::engine::verify_file(file.c_str(), options, print_problem, &run, &reason);
  print_notes(run);
  if (request.deep && outcome != report_outcome::unreadable) print_lone_correlators(run);
  const char* word = outcome == report_outcome::sound      ? "sound"
                     : outcome == report_outcome::problems ? "problems"
                                                           : "unreadable";
  if (request.as_json) {
    json line{{"file", file}, {"outcome", word}, {"problems", run.problems}};
    if (outcome == report_outcome::unreadable) line["reason"] = reason;
    print_json(line);
  } else if (outcome == report_outcome::sound) {
    std::printf("%s: sound\n", file.c_str());
  } else if (outcome == report_outcome::problems) {
    std::printf("%s: %llu problem%s\n", file.c_str(), static_cast<unsigned long long>(run.problems),
                run.problems == 1 ? "" : "s");
  }
  if (outcome == report_outcome::unreadable) {
    std::fflush(stdout);
    std::fprintf(stderr, "zvradm: %s: not readable: %s\n", file.c_str(), reason.c_str());
  }
  return outcome == report_outcome::sound      ? 0
         : outcome == report_outcome::problems ? exit_problems
                                               : exit_unreadable;
}

int check_files(const check_request& request) {
  const std::vector<std::string> files = record_files_among(request.files);
  int worst = files.empty() ? exit_unreadable : 0;
  for (const std::string& file : files) worst = std::max(worst, check_file(file, request));
  return worst;
}

}  // namespace

void add_file_check(CLI::App& file, globals& all) {
  auto request = std::make_shared<check_request>();
  CLI::App& sub = *file.add_subcommand("check", "Verify record files");
  sub.add_option("FILE", request->files, "Record files")->required();
  sub.add_flag("--deep", request->deep, "Also every record against its key entries");
  sub.add_flag("--json", request->as_json, "JSON lines, for machines");
  sub.footer(R"(A line is printed for each problem and one for each file. Nothing is changed. Lines
with "note:" tell what is remarkable and harmless, such as nodes that a roll-back has
left behind, or, when userreq lies beside snacorr, correlators without their function;
they come with --deep.
Folders and text records among the names are passed over and told.
Exit codes: 0 all sound, 1 problems, 2 a file that cannot be read or is no record file.

Examples:
  zvradm file check /srv/zvr/db/*
  zvradm file check --deep /srv/zvr/db/trgcfg)");
  sub.callback([&all, request] { all.answer = check_files(*request); });
}

}  // namespace zvradm
