// matrix: the table of states, targets against change files.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "change_file_name.h"
#include "commands.h"
#include "matrix_page.h"
#include "matrix_text.h"
#include "session.h"
#include "status_matrix.h"

namespace zvradm {

namespace {

struct matrix_options {
  std::string targets, files, html;
};

std::string time_now() {
  const std::time_t now = std::time(nullptr);
  char text[32] = {};
  std::tm parts{};
  if (localtime_r(&now, &parts)) (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M %z", &parts);
  return text;
}

// Under another name first, so that whoever looks meanwhile sees the older page.
void write_page(const std::string& path, const std::string& page) {
  const std::string unfinished = path + ".new";
  std::FILE* file = std::fopen(unfinished.c_str(), "w");
  if (!file) throw refusal(unfinished + ": " + std::strerror(errno));
  const bool written = std::fwrite(page.data(), 1, page.size(), file) == page.size();
  if (std::fclose(file) != 0 || !written || std::rename(unfinished.c_str(), path.c_str()) != 0) {
    const std::string reason = std::strerror(errno);
    (void)std::remove(unfinished.c_str());
    throw refusal(path + ": " + reason);
  }
}

void show_matrix(const globals& all, const matrix_options& options) {
  if (!options.files.empty()) try {
      (void)parse_change_file_name(options.files);
    } catch (const name_fault& fault) {
      throw usage_fault(std::string("--files: ") + fault.what());
    }
  const std::string base = base_directory(all);
  const session s(base);
  const status_matrix matrix = read_status_matrix(s.task(), options.targets, options.files);
  if (options.html.empty()) {
    const std::string text = matrix_text(matrix, style_of_output());
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
      throw refusal("standard output cannot be written");
    return;
  }
  write_page(options.html, matrix_page(matrix, "Change files on targets", time_now()));
}

}  // namespace

void add_matrix(CLI::App& app, globals& all) {
  auto options = std::make_shared<matrix_options>();
  CLI::App& sub = *app.add_subcommand("matrix", "Show the states of change files on targets as a table");
  sub.add_option("--targets", options->targets,
                 "Targets whose names begin with this text; the text ends at a '*'")
      ->type_name("TEXT");
  sub.add_option("--files", options->files,
                 "Change files by a filter: tokens with dots between them, '*' and '?'")
      ->type_name("FILTER");
  sub.add_option("--html", options->html, "Write the table to this file, as a page for a browser")
      ->type_name("FILE");
  sub.footer(R"(In the terminal the change files have numbers, told above each part of the table. A dot
is no status, d the default status, else the status byte stands there. The page sorts by
any target or change file and filters both by name; it needs nothing but itself.

Examples:
  zvradm matrix --targets 'Europe/*' --files 'libs.*.FIX.*'
  zvradm matrix --html states.html)");
  sub.callback([&all, options] { show_matrix(all, *options); });
}

}  // namespace zvradm
