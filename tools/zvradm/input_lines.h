// Lines of a file or of standard input.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace zvradm {

class input_lines {
 public:
  // "" or "-": standard input.  Throws refusal when the file cannot be opened.
  explicit input_lines(const std::string& path);
  ~input_lines();
  input_lines(const input_lines&) = delete;
  input_lines& operator=(const input_lines&) = delete;
  // The next line that is not blank, without its end; false at the end of the file.
  // Throws refusal when reading fails.
  bool next(std::string& line);
  std::uint64_t number() const { return number_; }  // of the line last given, from 1
  const std::string& name() const { return name_; }

 private:
  std::FILE* file_;
  std::string name_;
  std::uint64_t number_ = 0;
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;
};

}  // namespace zvradm
