#include "matrix_text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "table_output.h"

namespace zvradm {

namespace {

constexpr std::size_t widest_name = 30;  // of a target, before it is cut
constexpr std::size_t least_width = 40;

// A state in a cell: a dot for none, a d for the default, else its number.
std::string sign_of(std::uint8_t state) {
  if (state == no_status) return ".";
  if (state == default_status) return "d";
  return std::to_string(state);
}

// Colours that can be told apart on dark and light ground; none for "no status".
std::string coloured(std::uint8_t state, const std::string& text, bool colours) {
  constexpr int palette[] = {32, 36, 33, 35, 34, 31};
  if (!colours || state == no_status) return text;
  const int colour = state == default_status ? 90 : palette[state % std::size(palette)];
  return "\x1b[" + std::to_string(colour) + "m" + text + "\x1b[0m";
}

std::string padded_left(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

// The name in this many columns; a cut one ends in "~".
std::string fitted(const std::string& name, std::size_t width) {
  std::string shown = printable(name);
  if (display_width(shown) > width) {
    while (display_width(shown) >= width) {
      // Not in the middle of a character.
      do shown.pop_back();
      while (!shown.empty() && (static_cast<unsigned char>(shown.back()) & 0xC0) == 0x80);
    }
    shown += '~';
  }
  return shown + std::string(width - display_width(shown), ' ');
}

std::string counted(std::size_t count, const char* what) {
  return std::to_string(count) + what + (count == 1 ? "" : "s");
}

struct layout {
  std::size_t name_width, cell_width, files_in_block;
};

layout lay_out(const status_matrix& matrix, const text_style& style) {
  layout l{6, 2, 1};
  for (const std::string& name : matrix.targets)
    l.name_width = std::max(l.name_width, std::min(widest_name, display_width(printable(name))));
  l.cell_width = std::max<std::size_t>(std::to_string(matrix.files.size()).size(), 3) + 1;
  const std::size_t width = std::max(style.width, least_width);
  l.files_in_block = std::max<std::size_t>(1, (width - std::min(width - 1, l.name_width)) / l.cell_width);
  return l;
}

void add_block(std::string& out, const status_matrix& matrix, const text_style& style, const layout& l,
               std::size_t first) {
  const std::size_t last = std::min(matrix.files.size(), first + l.files_in_block);
  for (std::size_t f = first; f < last; ++f)
    out += padded_left(std::to_string(f + 1), l.cell_width) + "  " + printable(matrix.files[f]) + '\n';
  out += '\n' + fitted("Target", l.name_width);
  for (std::size_t f = first; f < last; ++f) out += padded_left(std::to_string(f + 1), l.cell_width);
  out += '\n';
  for (std::size_t t = 0; t < matrix.targets.size(); ++t) {
    out += fitted(matrix.targets[t], l.name_width);
    for (std::size_t f = first; f < last; ++f) {
      const std::uint8_t state = matrix.state(t, f);
      const std::string sign = sign_of(state);
      out += std::string(l.cell_width - sign.size(), ' ') + coloured(state, sign, style.colours);
    }
    out += '\n';
  }
  out += '\n';
}

}  // namespace

text_style style_of_output() {
  text_style style;
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  winsize size{};
  if (terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) style.width = size.ws_col;
  if (const char* columns = std::getenv("COLUMNS"); columns && std::atoi(columns) > 0)
    style.width = static_cast<std::size_t>(std::atoi(columns));
  const char* refused = std::getenv("NO_COLOR");
  style.colours = terminal && !(refused && *refused);
  return style;
}

std::string matrix_text(const status_matrix& matrix, const text_style& style) {
  std::string out;
  const layout l = lay_out(matrix, style);
  for (std::size_t first = 0; first < matrix.files.size(); first += l.files_in_block)
    add_block(out, matrix, style, l, first);
  out += counted(matrix.targets.size(), " target") + ", " + counted(matrix.files.size(), " change file") + '\n';
  for (const state_count& c : count_states(matrix)) {
    const std::string sign = sign_of(c.state);
    out += padded_left("", 4 - sign.size()) + coloured(c.state, sign, style.colours) + "  " +
           state_words(c.state) + ": " + counted(c.pairs, " pair") + '\n';
  }
  return out;
}

}  // namespace zvradm
