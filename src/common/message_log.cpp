// Rendering and logging of numbered messages.
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/log_files.h"
#include "common/process.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

constexpr uint32_t kMaxInserts = 9;
constexpr size_t kInsertRoom = 1024;
constexpr size_t kTextSize = 1200;
constexpr size_t kFormatSize = 128;
// Stands for '|' while the inserts are rendered, so that a name may hold a '|'.
constexpr char kInsertBorder = '\x1F';

struct Inserts {
  char room[kInsertRoom];
  const char* text[kMaxInserts];
  uint32_t count;
};

// A line of the log is one line: control characters become blanks.
void blank_control_characters(char* text) {
  for (; *text != '\0'; ++text)
    if (static_cast<unsigned char>(*text) < 0x20 || *text == 0x7F) *text = ' ';
}

void render_inserts(const char* format, va_list arguments, Inserts* out) {
  out->count = 0;
  if (format == nullptr || *format == '\0') return;
  char bordered[kFormatSize];
  size_t length = strnlen(format, sizeof bordered - 1);
  for (size_t i = 0; i < length; ++i) bordered[i] = format[i] == '|' ? kInsertBorder : format[i];
  bordered[length] = '\0';
  if (vsnprintf(out->room, sizeof out->room, bordered, arguments) < 0) return;
  for (char* place = out->room; place != nullptr && out->count < kMaxInserts;) {
    char* border = strchr(place, kInsertBorder);
    if (border != nullptr) *border++ = '\0';
    blank_control_characters(place);
    out->text[out->count++] = place;
    place = border;
  }
}

struct Output {
  char text[kTextSize];
  size_t length = 0;
  void add(const char* from, size_t count) {
    const size_t left = sizeof text - 1 - length;
    if (count > left) count = left;
    memcpy(text + length, from, count);
    length += count;
    text[length] = '\0';
  }
};

// Puts the inserts in the places %1 to %9 of the text; "%%" is a percent sign.  A
// place without an insert stays empty.
void fill_places(const char* text, const Inserts& inserts, Output* out) {
  for (const char* c = text; *c != '\0'; ++c) {
    if (c[0] == '%' && c[1] >= '1' && c[1] <= '9') {
      const uint32_t index = static_cast<uint32_t>(*++c - '1');
      if (index < inserts.count) out->add(inserts.text[index], strlen(inserts.text[index]));
    } else {
      if (c[0] == '%' && c[1] == '%') ++c;
      out->add(c, 1);
    }
  }
}

void render_message(uint32_t number, const Inserts& inserts, Output* out, char* severity) {
  out->text[0] = '\0';
  const Message* message = find_message(process().messages, number);
  *severity = message == nullptr ? 'E' : message->severity;
  if (message != nullptr) {
    fill_places(message->text, inserts, out);
    return;
  }
  constexpr char kUnknown[] = "(no text in the message file)";
  out->add(kUnknown, sizeof kUnknown - 1);
  for (uint32_t i = 0; i < inserts.count; ++i) {
    out->add(" ", 1);
    out->add(inserts.text[i], strlen(inserts.text[i]));
  }
}

void send_to_syslog(char severity, uint32_t number, const char* text) {
  const char* wanted = getenv("ZVR_SYSLOG");
  if (wanted == nullptr || *wanted == '\0' || strcmp(wanted, "0") == 0) return;
  const int priority = severity == 'E' ? LOG_ERR : severity == 'W' ? LOG_WARNING : LOG_INFO;
  lock_log_files();  // syslog has a lock of its own, which no fork resets
  syslog(LOG_USER | priority, "ZVR%05u%c %s", number, severity, text);
  unlock_log_files();
}

void log_message(const char* task_name, uint32_t number, char severity, const char* text) {
  char stamp[32];
  stamp_now(stamp, sizeof stamp);
  char line[kTextSize + 128];
  const int written = snprintf(line, sizeof line - 1, "%s %d %s ZVR%05u%c %s", stamp, getpid(), task_name,
                               number, severity, text);
  if (written <= 0) return;
  blank_control_characters(line);
  const size_t length = strlen(line);
  line[length] = '\n';
  append_line(LogFile::messages, line, length + 1);
  send_to_syslog(severity, number, text);
}

void log_formatted(const Task& task, uint32_t number, const char* format, va_list arguments) {
  Inserts inserts;
  render_inserts(format, arguments, &inserts);
  Output output;
  char severity;
  render_message(number, inserts, &output, &severity);
  log_message(task.name, number, severity, output.text);
}

}  // namespace
}  // namespace zvrdb::common

using namespace zvrdb::common;

uint16_t co_log2(void* handle, uint32_t number, uint32_t zero1, uint32_t zero2, uint32_t zero3,
                 const char* format, ...) {
  (void)zero1, (void)zero2, (void)zero3;
  const Task* task = task_of(handle);
  if (task == nullptr) return CO_BAD_ARGUMENT;
  va_list arguments;
  va_start(arguments, format);
  log_formatted(*task, number, format, arguments);
  va_end(arguments);
  return CO_OK;
}

uint16_t co_log2_notest(void* handle, uint32_t number, char* out, uint32_t zero1, uint32_t zero2,
                        const char* format, ...) {
  (void)zero1, (void)zero2;
  const Task* task = task_of(handle);
  if (task == nullptr) return CO_BAD_ARGUMENT;
  va_list arguments;
  va_start(arguments, format);
  if (out == nullptr) {
    log_formatted(*task, number, format, arguments);
  } else {
    Inserts inserts;
    render_inserts(format, arguments, &inserts);
    Output output;
    char severity;
    render_message(number, inserts, &output, &severity);
    char prefix[CO_MESSAGE_PREFIX + 1];
    snprintf(prefix, sizeof prefix, "ZVR%05u%c%10s", number % 100000u, severity, "");
    memcpy(out, prefix, CO_MESSAGE_PREFIX);
    snprintf(out + CO_MESSAGE_PREFIX, CO_MESSAGE_BUFFER - CO_MESSAGE_PREFIX, "%.127s", output.text);
  }
  va_end(arguments);
  return CO_OK;
}

const char* co_message_text(void* handle, uint32_t number) {
  if (task_of(handle) == nullptr) return nullptr;
  const Message* message = find_message(process().messages, number);
  return message == nullptr ? nullptr : message->text;
}

const char* co_log_path(void* handle) {
  return task_of(handle) == nullptr ? nullptr : log_path(LogFile::messages);
}

uint16_t co_init_log(uint32_t number, const char* format, ...) {
  if (format == nullptr) return CO_BAD_ARGUMENT;
  (void)number;  // the format carries the full text: there is no installation yet
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stderr, format, arguments);
  va_end(arguments);
  return written < 0 ? CO_IO_ERROR : CO_OK;
}
