#include "text_faults.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::size_t longest_text = 16u << 20;

struct file_closer {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

void tell_faults(const std::string& file, const std::vector<text_fault>& faults) {
  std::fflush(stdout);
  for (const text_fault& one : faults) {
    const std::string place = one.line == 0 ? "" : ", line " + std::to_string(one.line);
    std::fprintf(stderr, "zvradm: %s%s: %s%s\n", file.c_str(), place.c_str(),
                 one.fatal ? "" : "note: ", one.reason.c_str());
  }
}

bool read_text_file(const std::string& path, std::string& text) {
  text.clear();
  const std::unique_ptr<std::FILE, file_closer> file(std::fopen(path.c_str(), "re"));
  if (!file && errno == ENOENT) return false;
  if (!file) throw refusal(path + ": cannot be read: " + std::strerror(errno));
  char piece[65536];
  while (const std::size_t got = std::fread(piece, 1, sizeof piece, file.get())) {
    text.append(piece, got);
    if (text.size() > longest_text) throw refusal(path + ": too long for a text record");
  }
  if (std::ferror(file.get())) throw refusal(path + ": cannot be read: " + std::strerror(errno));
  return true;
}

}  // namespace zvradm
