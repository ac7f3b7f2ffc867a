#include "textrec/base_config.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "memory/trace.h"
#include "textrec/record_printers.h"

namespace zvrdb::textrec {
namespace {

struct word {
  int value;
  const char* text;
};
constexpr int any_other = -1;  // closes a list with the word of every other value

constexpr word log_level_words[] = {{2, "D"}, {1, "N"}, {any_other, "M"}};
constexpr word flag_words[] = {{1, "YES"}, {0, "NO"}, {any_other, "Unknown"}};
constexpr word authorize_words[] = {{1, "ALL"}, {0, "NONE"}, {any_other, "Unknown"}};
constexpr word plan_words[] = {{1, "Y"}, {any_other, "N"}};
constexpr word target_mode_words[] = {{2, "PUSH"}, {1, "PULL"}, {any_other, "Unknown"}};
constexpr word configuration_words[] = {{0, "CLIENT"},
                                        {1, "BASE"},
                                        {2, "SERVER_NO_COMMS"},
                                        {3, "SERVER_WITH_COMMS"},
                                        {5, "REMOTE_ADMIN_BASE"},
                                        {any_other, "REMOTE_ADMIN_SERVER"}};
constexpr word machine_words[] = {
    {0, "MK/6"},        {2, "MK/7"},           {3, "HP_UX"},  {4, "DOS"},     {5, "WINDOWS"},
    {6, "SUNOS"},       {7, "SOLARIS"},        {8, "MAC"},    {9, "NCR"},     {10, "NETWARE"},
    {11, "WINDOWS_NT"}, {12, "SCO"},           {13, "SINIX"}, {14, "MK/900"}, {16, "IRIX"},
    {17, "MK/8"},       {18, "WIN95"},         {19, "WIN98"}, {20, "WIN2K"},  {21, "WIN2K_ADV"},
    {24, "OS_UNKNOWN"}, {any_other, "Unknown"}};
// What the migration knows of them.
constexpr word older_machine_words[] = {{0, "MK/6"},       {2, "MK/7"},        {3, "HP_UX"},
                                        {4, "DOS"},        {5, "WINDOWS"},     {6, "SUNOS"},
                                        {7, "SOLARIS"},    {8, "MAC"},         {9, "NCR"},
                                        {10, "NETWARE"},   {11, "WINDOWS_NT"}, {12, "SCO"},
                                        {13, "SINIX"},     {19, "WIN98"},      {20, "WIN2K"},
                                        {21, "WIN2K_ADV"}, {24, "OS_UNKNOWN"}, {any_other, "Unknown"}};

enum field_kind : std::uint8_t {
  text,          // up to its NUL or its width
  number,        // of 1, 2 or 4 bytes
  raised_limit,  // a number that is printed only above its default
  word_of,       // a word for its value
  server_blocks  // five blocks that begin with a name; the first empty one ends them
};

struct config_line {
  const char* label;
  std::uint16_t offset;
  std::uint16_t width;
  field_kind kind;
  const word* words;
  const char* silent;  // a text of this value is not printed; null: every one is
};

constexpr unsigned server_block_count = 5;
constexpr char default_file_path[] = ".\\\\";

// In the order of the file.
constexpr config_line lines[] = {
    {"WORKSTATION NAME:     ", 0, 64, text, nullptr, nullptr},
    {"MESSAGE LOG LEVEL:    ", 64, 2, word_of, log_level_words, nullptr},
    {"LAN AUTHORIZATION:    ", 66, 2, number, nullptr, nullptr},
    {"LOG FILE SIZE:        ", 68, 4, number, nullptr, nullptr},
    {"TRACE FILE SIZE:      ", 76, 4, number, nullptr, nullptr},
    {"API TRACE FILE SIZE:  ", 72, 4, number, nullptr, nullptr},
    {"TCP/IP PORT:          ", 80, 2, number, nullptr, nullptr},
    {"MAX TARGETS:          ", 4268, 4, number, nullptr, nullptr},
    {"MAX CONNECTIONS:      ", 4264, 4, number, nullptr, nullptr},
    {"MAX USER INTERFACES:  ", 4272, 4, number, nullptr, nullptr},
    {"CONFIGURATION:        ", 85, 1, word_of, configuration_words, nullptr},
    {"MACHINE TYPE:         ", 84, 1, word_of, machine_words, nullptr},
    {"PLAN FEATURE:         ", 4580, 1, word_of, plan_words, nullptr},
    {"FILE PATH:            ", 88, 256, text, nullptr, default_file_path},
    {"REPOSITORY:           ", 344, 256, text, nullptr, nullptr},
    {"SERVICE AREA:         ", 600, 256, text, nullptr, nullptr},
    {"BACKUP AREA:          ", 856, 256, text, nullptr, nullptr},
    {"WORK AREA:            ", 1112, 256, text, nullptr, nullptr},
    {"AUTHORIZE:   ", 4276, 1, word_of, authorize_words, nullptr},
    {"MAX REQUESTS:        ", 4280, 4, number, nullptr, nullptr},
    {"MAX LOCAL TARGETS:   ", 4284, 4, number, nullptr, nullptr},
    {"MAX SERVER CONNS:    ", 4288, 4, number, nullptr, nullptr},
    {"MAX STS:             ", 4292, 4, number, nullptr, nullptr},
    {"DACA IDLE TIME:      ", 4296, 4, number, nullptr, nullptr},
    {"DACA RETRY TIME:     ", 4300, 4, number, nullptr, nullptr},
    {"STS IDLE TIME:       ", 4304, 4, number, nullptr, nullptr},
    {"STS RETRY TIME:      ", 4308, 4, number, nullptr, nullptr},
    {"INVENTORY PROGRAM:   ", 4312, 256, text, nullptr, nullptr},
    {"AUTOMATIC CLIENT UPGRADE:  ", 4277, 1, word_of, flag_words, nullptr},
    {"TARGET PASSWORD AUTHENTICATION:   ", 4278, 1, word_of, flag_words, nullptr},
    {"FILE SYSTEM:    ", 82, 2, number, nullptr, nullptr},
    {"MAX SERVER TARGETS:  ", 4568, 4, number, nullptr, nullptr},
    {"MAX SNADS ROUTES:    ", 4572, 4, number, nullptr, nullptr},
    {"MAX STS ROUTES:      ", 4576, 4, number, nullptr, nullptr},
    {"MAX ATTEMPTS:   ", 86, 2, number, nullptr, nullptr},
    {"AUTOMATIC TARGET REGISTRATION:  ", 4581, 1, word_of, flag_words, nullptr},
    {"AUTOMATIC TARGET INVENTORY:  ", 4582, 1, word_of, flag_words, nullptr},
    {"TARGET MODE:  ", 4583, 1, word_of, target_mode_words, nullptr},
    {"TARGET ADDRESS:  ", 4584, 9, text, nullptr, ""},
    {"EXTEND FILE SYSTEM ON STORE:  ", 4593, 1, word_of, flag_words, nullptr},
    {"AUTOMATIC TARGET INFO UPDATE:  ", 4610, 1, word_of, flag_words, nullptr},
    {"AUTOMATIC TARGET DELETION:  ", 4611, 1, word_of, flag_words, nullptr},
    {"KESTRA ALERT:  ", 4624, 1, word_of, flag_words, nullptr},
    {"CONNECTION WINDOW DURATION:      ", 4636, 4, number, nullptr, nullptr},
    {"SERVER:               ", 1368, 350, server_blocks, nullptr, nullptr},
    {"OS USER:  ", 4594, 16, text, nullptr, ""},
};

// The same for the migration: what an older installation knew.
constexpr unsigned long default_local_targets = 512;
constexpr config_line older_lines[] = {
    {"WORKSTATION NAME:     ", 0, 64, text, nullptr, nullptr},
    {"MESSAGE LOG LEVEL:    ", 64, 2, word_of, log_level_words, nullptr},
    {"LAN AUTHORIZATION:    ", 66, 2, number, nullptr, nullptr},
    {"LOG FILE SIZE:        ", 68, 4, number, nullptr, nullptr},
    {"TRACE FILE SIZE:      ", 76, 4, number, nullptr, nullptr},
    {"API TRACE FILE SIZE:  ", 72, 4, number, nullptr, nullptr},
    {"TCP/IP PORT:          ", 80, 2, number, nullptr, nullptr},
    {"MAX TARGETS:          ", 4268, 4, number, nullptr, nullptr},
    {"MAX LOCAL TARGETS:    ", 4284, 4, raised_limit, nullptr, nullptr},
    {"MAX CONNECTIONS:      ", 4264, 4, number, nullptr, nullptr},
    {"MAX USER INTERFACES:  ", 4272, 4, number, nullptr, nullptr},
    {"CONFIGURATION:        ", 85, 1, word_of, configuration_words, nullptr},
    {"MACHINE TYPE:         ", 84, 1, word_of, older_machine_words, nullptr},
    {"FILE PATH:            ", 88, 256, text, nullptr, default_file_path},
    {"REPOSITORY:           ", 344, 256, text, nullptr, nullptr},
    {"SERVICE AREA:         ", 600, 256, text, nullptr, nullptr},
    {"BACKUP AREA:          ", 856, 256, text, nullptr, nullptr},
    {"WORK AREA:            ", 1112, 256, text, nullptr, nullptr},
    {"SERVER:               ", 1368, 350, server_blocks, nullptr, nullptr},
};

static_assert([] {
  for (const config_line& line : lines) {
    const std::size_t count = line.kind == server_blocks ? server_block_count : 1;
    if (line.offset + line.width * count > base_config_len) return false;
  }
  return true;
}());

// Label, number of at most 10 digits or word, line end; text at its full width.
constexpr std::size_t longest_text() {
  std::size_t sum = 1;
  for (const config_line& line : lines) {
    const std::size_t count = line.kind == server_blocks ? server_block_count : 1;
    const std::size_t value = line.kind == text || line.kind == server_blocks ? line.width : 24;
    sum += (std::char_traits<char>::length(line.label) + value + 1) * count;
  }
  return sum;
}
static_assert(longest_text() <= base_config_text_max);

unsigned long load_number(const unsigned char* at, std::uint16_t width) {
  std::uint16_t two = 0;
  std::uint32_t four = 0;
  switch (width) {
    case 1:
      return *at;
    case 2:
      std::memcpy(&two, at, sizeof two);
      return two;
    default:
      std::memcpy(&four, at, sizeof four);
      return four;
  }
}

const char* word_for(const word* words, unsigned long value) {
  while (words->value != any_other && static_cast<unsigned long>(words->value) != value) ++words;
  return words->text;
}

struct printer {
  char* text;
  std::size_t length;

  void line(const char* label, const char* value, std::size_t value_len) {
    length += static_cast<std::size_t>(std::snprintf(text + length, base_config_text_max - length, "%s%.*s\n",
                                                     label, static_cast<int>(value_len), value));
  }
};

// A text ends with its NUL, its field, or a line feed: what follows one would be read as a
// line of its own.
std::size_t text_length(const char* field, std::size_t width) {
  const std::size_t length = strnlen(field, width);
  const void* feed = std::memchr(field, '\n', length);
  return feed ? static_cast<std::size_t>(static_cast<const char*>(feed) - field) : length;
}

void print_servers(printer& out, const config_line& line, const unsigned char* record) {
  for (unsigned i = 0; i < server_block_count; ++i) {
    const auto* name = reinterpret_cast<const char*>(record + line.offset + i * line.width);
    const std::size_t length = text_length(name, line.width);
    if (length == 0) return;
    out.line(line.label, name, length);
  }
}

void print_line(printer& out, const config_line& line, const unsigned char* record) {
  const unsigned char* field = record + line.offset;
  char digits[24];
  switch (line.kind) {
    case text: {
      const auto* value = reinterpret_cast<const char*>(field);
      const std::size_t n = text_length(value, line.width);
      if (line.silent && n == std::strlen(line.silent) && std::memcmp(value, line.silent, n) == 0) return;
      out.line(line.label, value, n);
      return;
    }
    case raised_limit:
      if (load_number(field, line.width) <= default_local_targets) return;
      [[fallthrough]];
    case number:
      std::snprintf(digits, sizeof digits, "%lu", load_number(field, line.width));
      out.line(line.label, digits, sizeof digits);
      return;
    case word_of: {
      const char* value = word_for(line.words, load_number(field, line.width));
      out.line(line.label, value, std::strlen(value));
      return;
    }
    case server_blocks:
      print_servers(out, line, record);
      return;
  }
}

template <std::size_t count>
std::uint32_t print_lines(const config_line (&printed)[count], char* text_out, const void* record) {
  printer out{text_out, 0};
  out.text[0] = 0;
  for (const config_line& line : printed) print_line(out, line, static_cast<const unsigned char*>(record));
  return static_cast<std::uint32_t>(out.length);
}

}  // namespace

std::uint32_t unparse_cfg(void* task, char* text_out, const void* record) {
  trace_bracket trace(task, "unparse_cfg");
  return print_lines(lines, text_out, record);
}

std::int32_t unparse_new_cfg(void* task, char* text_out, const void* record, std::uint32_t) {
  trace_bracket trace(task, "unparse_new_cfg");
  return static_cast<std::int32_t>(print_lines(older_lines, text_out, record));
}

}  // namespace zvrdb::textrec
