// The page holds the matrix as compact JSON and draws only the cells in sight, so that
// hundreds of targets and thousands of change files stay quick.
#include "matrix_page.h"

#include <array>

#include "matrix_page_parts.h"
#include "record_json.h"

namespace zvradm {

namespace {

std::string html_text(const std::string& text) {
  std::string safe;
  for (const char c : text) switch (c) {
      case '&':
        safe += "&amp;";
        break;
      case '<':
        safe += "&lt;";
        break;
      case '>':
        safe += "&gt;";
        break;
      case '"':
        safe += "&quot;";
        break;
      default:
        safe += c;
    }
  return safe;
}

// JSON that stands in a script element: no "<" of its own could end it.  Bytes that are
// no UTF-8 become replacement characters.
std::string script_json(const json& value) {
  const std::string plain = value.dump(-1, ' ', false, json::error_handler_t::replace);
  std::string safe;
  safe.reserve(plain.size());
  for (const char c : plain) {
    if (c == '<')
      safe += "\\u003c";
    else
      safe += c;
  }
  return safe;
}

// Signs for the distinct states, one or two characters each, none of them special in
// JSON or HTML.
constexpr char code_characters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::size_t code_count = sizeof code_characters - 1;

json page_data(const status_matrix& matrix) {
  const std::vector<state_count> counts = count_states(matrix);
  const std::size_t width = counts.size() <= code_count ? 1 : 2;
  std::array<std::array<char, 2>, 256> codes{};
  json states = json::array(), pairs = json::array(), words = json::array();
  for (std::size_t i = 0; i < counts.size(); ++i) {
    codes[counts[i].state] = {code_characters[i % code_count], code_characters[i / code_count]};
    states.push_back(counts[i].state);
    pairs.push_back(counts[i].pairs);
    words.push_back(state_words(counts[i].state));
  }
  json rows = json::array();
  for (std::size_t t = 0; t < matrix.targets.size(); ++t) {
    std::string row;
    row.reserve(matrix.files.size() * width);
    for (std::size_t f = 0; f < matrix.files.size(); ++f) row.append(codes[matrix.state(t, f)].data(), width);
    rows.push_back(std::move(row));
  }
  return {{"targets", matrix.targets}, {"files", matrix.files},
          {"rows", std::move(rows)},   {"states", std::move(states)},
          {"pairs", std::move(pairs)}, {"words", std::move(words)},
          {"code", code_characters},   {"width", width},
          {"none", no_status},         {"default", default_status}};
}

}  // namespace

std::string matrix_page(const status_matrix& matrix, const std::string& title, const std::string& made_at) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  page += html_text(title) + "</title>\n<style>\n" + page_style + "</style>\n</head>\n<body>\n<header>\n<h1>";
  page += html_text(title) + "</h1>\n<p>" + std::to_string(matrix.targets.size()) + " targets, " +
          std::to_string(matrix.files.size()) + " change files, as of " + html_text(made_at) +
          "</p>\n</header>\n";
  page += page_body;
  page += "<script type=\"application/json\" id=\"data\">" + script_json(page_data(matrix)) +
          "</script>\n<script>\n";
  page += page_script;
  page += "</script>\n</body>\n</html>\n";
  return page;
}

}  // namespace zvradm
