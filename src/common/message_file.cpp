#include "common/message_file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/small_file.h"
#include "zvrco/zvrco.h"

#ifndef ZVR_MESSAGES_INSTALLED
#define ZVR_MESSAGES_INSTALLED ""
#endif
#ifndef ZVR_MESSAGES_SOURCE
#define ZVR_MESSAGES_SOURCE ""
#endif

namespace zvrdb::common {
namespace {

constexpr uint32_t kMaxFileSize = 1u << 20;

// Takes one line apart in place; false for a comment, an empty or a faulty line.
bool parse_line(char* line, Message* out) {
  if (*line < '0' || *line > '9') return false;
  char* end = nullptr;
  const unsigned long number = strtoul(line, &end, 10);
  if (number == 0 || number > 0xFFFF || end[0] != ' ') return false;
  const char severity = end[1];
  if ((severity != 'I' && severity != 'W' && severity != 'E') || end[2] != ' ') return false;
  *out = Message{static_cast<uint32_t>(number), severity, end + 3};
  return true;
}

uint32_t count_lines(const char* text) {
  uint32_t lines = 1;
  for (; *text != '\0'; ++text) lines += *text == '\n';
  return lines;
}

void add_rows(char* text, MessageTable* table) {
  Message* grown = static_cast<Message*>(
      realloc(table->rows, (table->count + static_cast<size_t>(count_lines(text))) * sizeof(Message)));
  if (grown == nullptr) return;
  table->rows = grown;
  for (char* line = text; line != nullptr && *line != '\0';) {
    char* next = strchr(line, '\n');
    if (next != nullptr) *next++ = '\0';
    const size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\r') line[length - 1] = '\0';
    if (parse_line(line, &table->rows[table->count])) ++table->count;
    line = next;
  }
}

char* read_standard_file() {
  for (const char* path :
       {static_cast<const char*>(getenv("ZVR_MESSAGES")), ZVR_MESSAGES_INSTALLED, ZVR_MESSAGES_SOURCE}) {
    if (path == nullptr || *path == '\0') continue;
    if (char* text = read_small_file(path, kMaxFileSize)) return text;
  }
  return nullptr;
}

}  // namespace

void load_messages(const char* base, MessageTable* table) {
  *table = MessageTable{};
  char path[CO_PATH_MAX];
  snprintf(path, sizeof path, "%s/messages/zvr.msg", base);
  // The override comes first and sorts first among equals.
  table->texts[1] = read_small_file(path, kMaxFileSize);
  if (table->texts[1] != nullptr) add_rows(table->texts[1], table);
  table->texts[0] = read_standard_file();
  if (table->texts[0] != nullptr) add_rows(table->texts[0], table);
  std::stable_sort(table->rows, table->rows + table->count,
                   [](const Message& a, const Message& b) { return a.number < b.number; });
}

void free_messages(MessageTable* table) {
  free(table->rows);
  free(table->texts[0]);
  free(table->texts[1]);
  *table = MessageTable{};
}

const Message* find_message(const MessageTable& table, uint32_t number) {
  const Message* rows = table.rows;
  const Message* end = rows + table.count;
  const Message* found = std::lower_bound(
      rows, end, number, [](const Message& row, uint32_t wanted) { return row.number < wanted; });
  return found != end && found->number == number ? found : nullptr;
}

}  // namespace zvrdb::common
