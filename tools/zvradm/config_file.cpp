#include "config_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "ownership.h"
#include "refusals.h"
#include "textrec/base_config.h"

namespace zvradm {

namespace {

static_assert(zvrdb::textrec::base_config_len == CO_CONFIG_LENGTH);

constexpr std::size_t longest_config = 1u << 20;
constexpr std::size_t name_width = 64;

[[noreturn]] void fail(const std::string& path, const char* what) {
  throw refusal(path + ": " + what + ": " + std::strerror(errno));
}

class descriptor {
 public:
  explicit descriptor(int value) : value_(value) {}
  ~descriptor() {
    if (value_ >= 0) close(value_);
  }
  descriptor(const descriptor&) = delete;
  descriptor& operator=(const descriptor&) = delete;
  int value() const { return value_; }

 private:
  int value_;
};

void flush_directory_of(const std::string& path) {
  const std::string folder = path.substr(0, path.find_last_of('/'));
  const descriptor d(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (d.value() < 0 || fsync(d.value()) != 0) fail(folder, "cannot be flushed");
}

void write_whole(const std::string& path, std::string_view text) {
  const descriptor d(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664));
  if (d.value() < 0) fail(path, "cannot be written");
  give_to_owner_of(path.substr(0, path.find_last_of('/')), d.value());
  while (!text.empty()) {
    const ssize_t written = write(d.value(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) fail(path, "cannot be written");
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (fsync(d.value()) != 0) fail(path, "cannot be flushed");
}

void rename_durably(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) fail(to, "cannot be replaced");
  flush_directory_of(to);
}

}  // namespace

void require_config_text(const char* what, const std::string& text, std::size_t longest) {
  if (text.empty() || text.size() > longest)
    throw usage_fault(std::string(what) + " must have 1 to " + std::to_string(longest) + " bytes");
  for (const char c : text)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      throw usage_fault(std::string(what) + " must have no control characters");
  if (text.front() == ' ' || text.back() == ' ')
    throw usage_fault(std::string(what) + " must not begin or end with a blank");
}

std::string config_path(const std::string& base) {
  return base + "/orvo.cfg";
}
std::string pending_path(const std::string& base) {
  return base + "/orvo.cfg.pending";
}
std::string kept_config_path(const std::string& base) {
  return config_path(base) + ".older";
}

bool read_config(const std::string& path, config_record& record) {
  const descriptor d(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (d.value() < 0) {
    if (errno == ENOENT) return false;
    fail(path, "cannot be read");
  }
  std::string text;
  for (;;) {
    char piece[4096];
    const ssize_t got = read(d.value(), piece, sizeof piece);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(path, "cannot be read");
    if (got == 0) break;
    text.append(piece, static_cast<std::size_t>(got));
    if (text.size() > longest_config) throw refusal(path + ": too long for a configuration");
  }
  record.fill(0);
  std::uint32_t line = 0;
  char reason[256] = {};
  if (co_parse_config(text.c_str(), record.data(), &line, reason, sizeof reason) != CO_OK)
    throw refusal(path + ", line " + std::to_string(line) + ": " + reason);
  return true;
}

void write_config(void* task, const std::string& path, const config_record& record) {
  std::vector<char> text(zvrdb::textrec::base_config_text_max);
  const std::uint32_t length = zvrdb::textrec::unparse_cfg(task, text.data(), record.data());
  write_config_text(path, {text.data(), length});
}

void write_config_text(const std::string& path, const std::string& text) {
  const std::string fresh = path + ".new";
  try {
    write_whole(fresh, text);
    if (std::rename(fresh.c_str(), path.c_str()) != 0) fail(path, "cannot be replaced");
  } catch (const refusal&) {
    (void)unlink(fresh.c_str());  // a full disk leaves part of it
    throw;
  }
  flush_directory_of(path);
}

void publish_pending(const std::string& base) {
  rename_durably(pending_path(base), config_path(base));
}

void remove_pending(const std::string& base) {
  if (unlink(pending_path(base).c_str()) != 0 && errno != ENOENT)
    fail(pending_path(base), "cannot be removed");
  flush_directory_of(pending_path(base));
}

std::string config_name(const config_record& record) {
  const auto from = record.begin() + config_name_at;
  return {from, std::find(from, from + name_width, static_cast<unsigned char>(0))};
}

void set_config_name(config_record& record, const std::string& name) {
  std::fill_n(record.begin() + config_name_at, name_width, static_cast<unsigned char>(0));
  std::copy_n(name.begin(), std::min(name.size(), name_width - 1), record.begin() + config_name_at);
}

config_record interim_config(const config_record& wanted) {
  config_record interim = wanted;
  interim[config_kind_at] = kind_server_no_comms;
  return interim;
}

config_lock::config_lock(const std::string& base)
    : base_(base), descriptor_(open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) fail(base, "cannot be opened");
  taken_ = flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
  if (taken_ || errno == EWOULDBLOCK) return;
  const int reason = errno;
  close(descriptor_);
  errno = reason;
  fail(base, "cannot be locked");
}

void config_lock::require() const {
  if (!taken_) throw refusal(base_ + ": another process is changing the configuration; wait for its end");
}

config_lock::~config_lock() {
  close(descriptor_);
}

}  // namespace zvradm
