// matrix: the table of states, targets against change files.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
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
  bool html_given = false;
};

std::string time_now() {
  const std::time_t now = std::time(nullptr);
  char text[32] = {};
  std::tm parts{};
  if (localtime_r(&now, &parts)) (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M %z", &parts);
  return text;
}

std::string reason_now() {
  return std::strerror(errno);
}

void print_whole(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
    throw refusal("standard output cannot be written");
}

bool write_whole(const std::string& path, const std::string& page) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (!file) throw refusal(path + ": " + reason_now());
  const bool written = std::fwrite(page.data(), 1, page.size(), file) == page.size();
  return std::fclose(file) == 0 && written;
}

// Under another name first, so that whoever looks meanwhile sees the older page.
void replace_page(const std::string& path, const std::string& page) {
  const std::string unfinished = path + ".new";
  if (write_whole(unfinished, page) && std::rename(unfinished.c_str(), path.c_str()) == 0) return;
  const std::string reason = reason_now();
  (void)std::remove(unfinished.c_str());
  throw refusal(path + ": " + reason);
}

// Only a plain file is replaced, at the end of its links: a device or a pipe would be
// gone, and takes the page itself.
void write_page(const std::string& path, const std::string& page) {
  struct stat found {};
  const bool is_there = stat(path.c_str(), &found) == 0;
  if (is_there && S_ISREG(found.st_mode)) {
    std::error_code fault;
    const std::filesystem::path place = std::filesystem::canonical(path, fault);
    if (fault) throw refusal(path + ": " + fault.message());
    return replace_page(place.string(), page);
  }
  if (!is_there || S_ISDIR(found.st_mode)) return replace_page(path, page);
  if (!write_whole(path, page)) throw refusal(path + ": " + reason_now());
}

void show_matrix(const globals& all, const matrix_options& options) {
  if (!options.files.empty()) try {
      (void)parse_change_file_name(options.files);
    } catch (const name_fault& fault) {
      throw usage_fault(std::string("--files: ") + fault.what());
    }
  if (options.html_given && options.html.empty()) throw usage_fault("--html takes the name of a file");
  const session s(base_directory(all));
  const status_matrix matrix = read_status_matrix(s.task(), options.targets, options.files);
  if (!options.html_given) return print_whole(matrix_text(matrix, style_of_output()));
  const std::string page = matrix_page(matrix, "Change files on targets", time_now());
  if (options.html == "-") return print_whole(page);
  write_page(options.html, page);
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
  CLI::Option* html =
      sub.add_option("--html", options->html,
                     "Write the table to this file, as a page for a browser; '-' is standard output")
          ->type_name("FILE");
  sub.footer(R"(In the terminal the change files have numbers, told above each part of the table. A dot
is no status, d the default status, else the status byte stands there. The page sorts by
any target or change file and filters both by name; it needs nothing but itself.

Examples:
  zvradm matrix --targets 'Europe/*' --files 'libs.*.FIX.*'
  zvradm matrix --html states.html)");
  sub.callback([&all, options, html] {
    options->html_given = html->count() > 0;
    show_matrix(all, *options);
  });
}

}  // namespace zvradm
