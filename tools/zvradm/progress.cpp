#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace zvradm {

using namespace std::chrono_literals;

progress::progress(std::string what, std::uint64_t all)
    : what_(std::move(what)),
      all_(all),
      terminal_(isatty(STDERR_FILENO) == 1),
      next_(std::chrono::steady_clock::now() + 1s) {}

progress::~progress() {
  if (shown_) std::fputs("\r\033[K", stderr);
}

void progress::reached(std::uint64_t done, std::uint64_t all) {
  if (!terminal_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + 200ms;
  shown_ = true;
  if (all > 0)
    std::fprintf(stderr, "\r\033[K%s: %llu of %llu (%llu%%)", what_.c_str(),
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(all),
                 static_cast<unsigned long long>(done * 100 / all));
  else
    std::fprintf(stderr, "\r\033[K%s: %llu", what_.c_str(), static_cast<unsigned long long>(done));
  std::fflush(stderr);
}

}  // namespace zvradm
