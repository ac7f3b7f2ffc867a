#include "input_lines.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "refusals.h"

namespace zvradm {

input_lines::input_lines(const std::string& path)
    : file_(stdin), name_(path.empty() || path == "-" ? "standard input" : path) {
  if (name_ != path) return;
  file_ = std::fopen(path.c_str(), "re");
  if (!file_) throw refusal(path + ": cannot be read: " + std::strerror(errno));
}

input_lines::~input_lines() {
  std::free(buffer_);
  if (file_ && file_ != stdin) std::fclose(file_);
}

bool input_lines::next(std::string& line) {
  for (;;) {
    errno = 0;
    const ssize_t length = getline(&buffer_, &capacity_, file_);
    if (length < 0) {
      if (std::ferror(file_)) throw refusal(name_ + ": cannot be read: " + std::strerror(errno));
      return false;
    }
    ++number_;
    line.assign(buffer_, static_cast<std::size_t>(length));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (line.find_first_not_of(" \t") != std::string::npos) return true;
  }
}

}  // namespace zvradm
