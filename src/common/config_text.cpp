// The text of the base configuration, read into its fixed record.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/config_file.h"
#include "common/init_error.h"
#include "common/small_file.h"
#include "zvrco/zvrco.h"

namespace zvrdb::common {
namespace {

enum class Kind { text, number, word };

struct Word {
  const char* text;
  uint8_t value;
};

// What a printer writes for a value outside its list reads back as such a value.
constexpr uint8_t kUnknown = 255;

constexpr Word kLogLevels[] = {{"D", 2}, {"N", 1}, {"M", 0}, {nullptr, 0}};
constexpr Word kConfigurations[] = {{"CLIENT", 0},
                                    {"BASE", 1},
                                    {"SERVER_NO_COMMS", 2},
                                    {"SERVER_WITH_COMMS", 3},
                                    {"REMOTE_ADMIN_SERVER", 4},
                                    {"REMOTE_ADMIN_BASE", 5},
                                    {nullptr, 0}};
constexpr Word kMachines[] = {
    {"MK/6", 0},        {"MK/7", 2},           {"HP_UX", 3},  {"DOS", 4},     {"WINDOWS", 5},
    {"SUNOS", 6},       {"SOLARIS", 7},        {"MAC", 8},    {"NCR", 9},     {"NETWARE", 10},
    {"WINDOWS_NT", 11}, {"SCO", 12},           {"SINIX", 13}, {"MK/900", 14}, {"IRIX", 16},
    {"MK/8", 17},       {"WIN95", 18},         {"WIN98", 19}, {"WIN2K", 20},  {"WIN2K_ADV", 21},
    {"OS_UNKNOWN", 24}, {"Unknown", kUnknown}, {nullptr, 0}};
constexpr Word kAuthorize[] = {{"ALL", 1}, {"NONE", 0}, {"Unknown", kUnknown}, {nullptr, 0}};
constexpr Word kFlags[] = {{"YES", 1}, {"NO", 0}, {"Unknown", kUnknown}, {nullptr, 0}};
constexpr Word kYesNo[] = {{"Y", 1}, {"N", 0}, {nullptr, 0}};
// Here 0 has no word of its own, and is what a record holds that never had a mode.
constexpr Word kTargetModes[] = {{"PUSH", 2}, {"PULL", 1}, {"Unknown", 0}, {nullptr, 0}};

// One row a keyword.  length: of the field in bytes; a text that fills it has no NUL.
struct Row {
  const char* keyword;
  Kind kind;
  uint16_t offset;
  uint16_t length;
  const Word* words = nullptr;
  uint16_t most = 1;  // how often the keyword may appear; the next field follows the last
};

constexpr Row kRows[] = {
    {"WORKSTATION NAME", Kind::text, 0, 64},
    {"MESSAGE LOG LEVEL", Kind::word, 64, 2, kLogLevels},
    {"LAN AUTHORIZATION", Kind::number, 66, 2},
    {"LOG FILE SIZE", Kind::number, 68, 4},
    {"API TRACE FILE SIZE", Kind::number, 72, 4},
    {"TRACE FILE SIZE", Kind::number, 76, 4},
    {"TCP/IP PORT", Kind::number, 80, 2},
    {"FILE SYSTEM", Kind::number, 82, 2},
    {"MACHINE TYPE", Kind::word, 84, 1, kMachines},
    {"CONFIGURATION", Kind::word, 85, 1, kConfigurations},
    {"MAX ATTEMPTS", Kind::number, 86, 2},
    {"FILE PATH", Kind::text, 88, 256},
    {"REPOSITORY", Kind::text, 344, 256},
    {"SERVICE AREA", Kind::text, 600, 256},
    {"BACKUP AREA", Kind::text, 856, 256},
    {"WORK AREA", Kind::text, 1112, 256},
    {"SERVER", Kind::text, 1368, 350, nullptr, 5},
    {"MAX CONNECTIONS", Kind::number, 4264, 4},
    {"MAX TARGETS", Kind::number, 4268, 4},
    {"MAX USER INTERFACES", Kind::number, 4272, 4},
    {"AUTHORIZE", Kind::word, 4276, 1, kAuthorize},
    {"AUTOMATIC CLIENT UPGRADE", Kind::word, 4277, 1, kFlags},
    {"TARGET PASSWORD AUTHENTICATION", Kind::word, 4278, 1, kFlags},
    {"MAX REQUESTS", Kind::number, 4280, 4},
    {"MAX LOCAL TARGETS", Kind::number, 4284, 4},
    {"MAX SERVER CONNS", Kind::number, 4288, 4},
    {"MAX STS", Kind::number, 4292, 4},
    {"DACA IDLE TIME", Kind::number, 4296, 4},
    {"DACA RETRY TIME", Kind::number, 4300, 4},
    {"STS IDLE TIME", Kind::number, 4304, 4},
    {"STS RETRY TIME", Kind::number, 4308, 4},
    {"INVENTORY PROGRAM", Kind::text, 4312, 256},
    {"MAX SERVER TARGETS", Kind::number, 4568, 4},
    {"MAX SNADS ROUTES", Kind::number, 4572, 4},
    {"MAX STS ROUTES", Kind::number, 4576, 4},
    {"PLAN FEATURE", Kind::word, 4580, 1, kYesNo},
    {"AUTOMATIC TARGET REGISTRATION", Kind::word, 4581, 1, kFlags},
    {"AUTOMATIC TARGET INVENTORY", Kind::word, 4582, 1, kFlags},
    {"TARGET MODE", Kind::word, 4583, 1, kTargetModes},
    {"TARGET ADDRESS", Kind::text, 4584, 9},
    {"EXTEND FILE SYSTEM ON STORE", Kind::word, 4593, 1, kFlags},
    {"OS USER", Kind::text, 4594, 16},
    {"AUTOMATIC TARGET INFO UPDATE", Kind::word, 4610, 1, kFlags},
    {"AUTOMATIC TARGET DELETION", Kind::word, 4611, 1, kFlags},
    {"KESTRA ALERT", Kind::word, 4624, 1, kFlags},
    {"CONNECTION WINDOW DURATION", Kind::number, 4636, 4},
};
constexpr uint32_t kRowCount = sizeof kRows / sizeof kRows[0];

constexpr bool rows_lie_in_record() {
  for (const Row& row : kRows)
    if (row.offset + static_cast<uint32_t>(row.length) * row.most > CO_CONFIG_LENGTH) return false;
  return true;
}
static_assert(rows_lie_in_record());

// Printers leave the line out when the path is this default.
constexpr char kDefaultFilePath[] = ".\\\\";
constexpr uint16_t kFilePathOffset = 88;

struct Fault {
  char* reason;
  uint32_t size;
  template <typename... Arguments>
  bool tell(const char* format, Arguments... arguments) const {
    if (reason != nullptr && size != 0) snprintf(reason, size, format, arguments...);
    return false;
  }
};

bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// A line without its end and without white space there.
struct Line {
  const char* text;
  size_t length;
};

Line trimmed(const char* text, size_t length) {
  while (length > 0 && is_space(text[length - 1])) --length;
  return Line{text, length};
}

void store_low_bytes(unsigned char* field, uint16_t length, uint32_t value) {
  const uint16_t narrow16 = static_cast<uint16_t>(value);
  const uint8_t narrow8 = static_cast<uint8_t>(value);
  if (length == 4)
    memcpy(field, &value, 4);
  else if (length == 2)
    memcpy(field, &narrow16, 2);
  else
    memcpy(field, &narrow8, 1);
}

bool store_text(const Row& row, Line value, unsigned char* field, Fault fault) {
  if (value.length > row.length)
    return fault.tell("the value of %s is longer than %u characters", row.keyword, +row.length);
  memset(field, 0, row.length);
  memcpy(field, value.text, value.length);
  return true;
}

bool store_number(const Row& row, Line value, unsigned char* field, Fault fault) {
  char digits[24];
  if (value.length == 0 || value.length >= sizeof digits || value.text[0] < '0' || value.text[0] > '9')
    return fault.tell("the value of %s is not a number", row.keyword);
  memcpy(digits, value.text, value.length);
  digits[value.length] = '\0';
  char* end = nullptr;
  errno = 0;
  const unsigned long number = strtoul(digits, &end, 0);
  if (*end != '\0') return fault.tell("the value of %s is not a number", row.keyword);
  const unsigned long most = row.length == 2 ? 0xFFFFul : 0xFFFFFFFFul;
  if (errno != 0 || number > most) return fault.tell("the value of %s is above %lu", row.keyword, most);
  store_low_bytes(field, row.length, static_cast<uint32_t>(number));
  return true;
}

bool store_word(const Row& row, Line value, unsigned char* field, Fault fault) {
  size_t length = 0;
  while (length < value.length && !is_space(value.text[length])) ++length;
  for (const Word* word = row.words; word->text != nullptr; ++word) {
    if (strlen(word->text) != length || memcmp(word->text, value.text, length) != 0) continue;
    store_low_bytes(field, row.length, word->value);
    return true;
  }
  return fault.tell("%s has no value %.*s", row.keyword, static_cast<int>(length < 64 ? length : 64),
                    value.text);
}

uint32_t row_of(const char* keyword, size_t length) {
  uint32_t index = 0;
  while (index < kRowCount &&
         (strlen(kRows[index].keyword) != length || memcmp(kRows[index].keyword, keyword, length) != 0))
    ++index;
  return index;
}

bool store_line(Line line, unsigned char* record, uint16_t* seen, Fault fault) {
  const void* colon = memchr(line.text, ':', line.length);
  if (colon == nullptr) return fault.tell("%s", "a line is KEYWORD: value");
  const size_t keyword_length = static_cast<size_t>(static_cast<const char*>(colon) - line.text);
  const uint32_t index = row_of(line.text, keyword_length);
  if (index == kRowCount)
    return fault.tell("%.*s is no keyword", static_cast<int>(keyword_length < 64 ? keyword_length : 64),
                      line.text);
  const Row& row = kRows[index];
  Line value{line.text + keyword_length + 1, line.length - keyword_length - 1};
  while (value.length > 0 && is_space(*value.text)) ++value.text, --value.length;
  // Printers end a list at its first empty place, so what stands behind one would be lost.
  if (row.most > 1 && value.length == 0) return true;
  uint16_t occurrence = 0;
  if (row.most > 1) {
    if (seen[index] == row.most) return fault.tell("%s appears more than %u times", row.keyword, +row.most);
    occurrence = seen[index];
  }
  ++seen[index];
  unsigned char* field = record + row.offset + static_cast<size_t>(occurrence) * row.length;
  if (row.kind == Kind::text) return store_text(row, value, field, fault);
  if (row.kind == Kind::number) return store_number(row, value, field, fault);
  return store_word(row, value, field, fault);
}

}  // namespace

bool read_config_file(const char* base, unsigned char* record) {
  constexpr uint32_t kMaxFileSize = 65536;
  char path[CO_PATH_MAX];
  snprintf(path, sizeof path, "%s/orvo.cfg", base);
  char* text = read_small_file(path, kMaxFileSize);
  if (text == nullptr) return errno == ENOENT || init_error("%s cannot be read: %s", path, strerror(errno));
  uint32_t line = 0;
  char reason[160] = "";
  const uint16_t result = co_parse_config(text, record, &line, reason, sizeof reason);
  free(text);
  return result == CO_OK || init_error("%s, line %u: %s", path, line, reason);
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_parse_config(const char* text, void* record, uint32_t* line, char* reason, uint32_t reason_size) {
  if (text == nullptr || record == nullptr) return CO_BAD_ARGUMENT;
  unsigned char* bytes = static_cast<unsigned char*>(record);
  uint16_t seen[kRowCount] = {};
  uint32_t number = 0;
  const Fault fault{reason, reason_size};
  while (*text != '\0' && *text != 0x1A) {
    const size_t length = strcspn(text, "\n");
    ++number;
    const Line content = trimmed(text, length);
    if (content.length > 0 && content.text[0] != '#' && !store_line(content, bytes, seen, fault)) {
      if (line != nullptr) *line = number;
      return CO_BAD_ARGUMENT;
    }
    text += length + (text[length] == '\n');
  }
  if (seen[row_of("FILE PATH", strlen("FILE PATH"))] == 0)
    memcpy(bytes + kFilePathOffset, kDefaultFilePath, sizeof kDefaultFilePath);
  return CO_OK;
}
