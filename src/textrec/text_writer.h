// Prints a record as text, within its area.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "textrec/parsed_files.h"

namespace zvrdb::textrec {

// A text field of a record: it ends with its NUL, its width, or a line feed, for what
// follows one would be read as a line of its own.
struct field_text {
  char text[256];

  template <std::size_t width>
  explicit field_text(const char (&field)[width]) : field_text(field, width) {}
  field_text(const char* field, std::size_t width) {
    std::size_t length = 0;
    while (length < width && length < sizeof text - 1 && field[length] && field[length] != '\n') ++length;
    std::memcpy(text, field, length);
    text[length] = 0;
  }
};

// A text that does not fit makes the length negative, whatever is printed afterwards.
class text_writer {
 public:
  explicit text_writer(char* area) : area_(area) {}

  __attribute__((format(printf, 2, 3))) void print(const char* format, ...) {
    if (length_ < 0) return;
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    const int printed = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (printed < 0 || static_cast<std::size_t>(printed) >= sizeof line ||
        static_cast<std::uint32_t>(length_ + printed) > text_size_max) {
      length_ = -1;
      return;
    }
    std::memcpy(area_ + length_, line, static_cast<std::size_t>(printed));
    length_ += printed;
  }
  std::int32_t length() const { return length_; }

 private:
  char* area_;
  std::int32_t length_ = 0;
};

}  // namespace zvrdb::textrec
