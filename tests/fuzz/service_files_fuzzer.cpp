// What the common services read: settings, messages and users of an installation, and names.
//
// Input: a letter, and what belongs to it.
//   o  the file orvo.cfg
//   m  number (2), two inserts (a line each), and the message file of the installation
//   u  user and target (a line each), and the file of users
//   t  name of a temporary file
//   n  76 bytes of a change file's name      c  a text that is stepped through
#include <zvrco/zvrco.h>

#include <array>
#include <map>
#include <optional>
#include <vector>

#include "common/message_file.h"
#include "common/process.h"
#include "fuzz_input.h"
#include "support/temp_installation.h"

namespace {

using zvrfuzz::exact_copy;
using zvrfuzz::fuzz_input;
using zvrfuzz::guarded_bytes;

class session {
 public:
  session() {
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("ZVR_MESSAGES", "/dev/null", 1);
    unsetenv("ZVR_TRACE");
    installation_.emplace();
    task_ = co_init_task("fuzz", nullptr, 1);
    FUZZ_EXPECT(task_);
  }
  ~session() { coi_term_task(task_, 0); }
  session(const session&) = delete;
  session& operator=(const session&) = delete;
  void* task() const { return task_; }
  const zvrdb::test::TempInstallation& installation() const { return *installation_; }

 private:
  std::optional<zvrdb::test::TempInstallation> installation_;
  void* task_;
};

session& here() {
  static session one;
  return one;
}

std::string as_text(const std::string& bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

std::string take_line(std::string* text) {
  const std::size_t end = text->find('\n');
  std::string line = as_text(text->substr(0, end));
  text->erase(0, end == std::string::npos ? end : end + 1);
  return line;
}

std::vector<std::string> lines_of(const std::string& file) {
  std::vector<std::string> lines;
  for (std::string rest = as_text(file); !rest.empty();) lines.push_back(take_line(&rest));
  return lines;
}

// The area takes what the text says, or stays as it was.
void settings(const std::string& file) {
  void* task = here().task();
  const auto* area = static_cast<const char*>(co_croca(task, CO_AREA_CONFIG));
  const std::string before(area, CO_CONFIG_LENGTH);
  here().installation().write("orvo.cfg", file);
  const std::uint16_t code = co_reload_config(task);
  guarded_bytes record(CO_CONFIG_LENGTH);
  guarded_bytes reason(160);
  std::uint32_t line = 0;
  const std::uint16_t parsed =
      co_parse_config(as_text(file).c_str(), record.data(), &line, reason.text(), 160);
  FUZZ_EXPECT(record.intact() && reason.intact());
  const std::string after(area, CO_CONFIG_LENGTH);
  if (file.size() <= 65536) FUZZ_EXPECT(code == parsed);
  FUZZ_EXPECT(code == CO_OK ? after == std::string(record.text(), CO_CONFIG_LENGTH) : after == before);
  if (code == CO_OK) return;
  FUZZ_EXPECT(file.size() > 65536 || line <= lines_of(file).size());
  FUZZ_EXPECT(co_init_error()[0] != 0);
}

struct message {
  std::string text;
  char severity;
};

// A line as the message file describes it, read in another way than the library does.
bool message_of(std::string line, std::uint32_t* number, message* out) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const std::size_t digits = line.find_first_not_of("0123456789");
  if (digits == 0 || digits == std::string::npos || line.size() < digits + 3) return false;
  const std::size_t zeros = std::min(line.find_first_not_of('0'), digits);
  if (digits - zeros > 5 || zeros == digits) return false;
  *number = static_cast<std::uint32_t>(std::stoul(line.substr(0, digits)));
  if (*number > 65535 || line[digits] != ' ' || line[digits + 2] != ' ') return false;
  *out = {line.substr(digits + 3), line[digits + 1]};
  return std::strchr("IWE", out->severity) != nullptr;
}

std::string filled(const std::string& text, const std::array<std::string, 2>& inserts) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char next = i + 1 < text.size() ? text[i + 1] : '\0';
    if (text[i] == '%' && next >= '1' && next <= '9') {
      if (next <= '2') out += inserts[static_cast<std::size_t>(next - '1')];
      ++i;
      continue;
    }
    out += text[i];
    if (text[i] == '%' && next == '%') ++i;
  }
  return out;
}

void messages(std::uint32_t number, std::string file) {
  std::array<std::string, 2> inserts = {take_line(&file), take_line(&file)};
  here().installation().write("messages/zvr.msg", file);
  std::map<std::uint32_t, message> expected;
  for (const std::string& line : lines_of(file)) {
    std::uint32_t of = 0;
    message one;
    if (message_of(line, &of, &one)) expected.try_emplace(of, one);
  }
  auto& process = zvrdb::common::process();
  zvrdb::common::free_messages(&process.messages);
  zvrdb::common::load_messages(here().installation().base().c_str(), &process.messages);
  for (const auto& [of, one] : expected) {
    const zvrdb::common::Message* found = zvrdb::common::find_message(process.messages, of);
    FUZZ_EXPECT(found && found->text == one.text && found->severity == one.severity);
  }
  guarded_bytes out(CO_MESSAGE_BUFFER, 0x55);
  co_log2_notest(here().task(), number, out.text(), 0, 0, "%s|%s", inserts[0].c_str(), inserts[1].c_str());
  FUZZ_EXPECT(out.intact() && std::memchr(out.data(), 0, out.size()));
  const std::string shown(out.text() + CO_MESSAGE_PREFIX);
  const auto known = expected.find(number);
  if (known == expected.end()) return;
  FUZZ_EXPECT(out.text()[8] == known->second.severity);
  for (std::string& insert : inserts) {
    // The inserts are cut together, and this byte stands between them.
    if (insert.size() > 400 || insert.find('\x1F') != std::string::npos) return;
    for (char& c : insert)
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  FUZZ_EXPECT(shown == filled(known->second.text, inserts).substr(0, 1199).substr(0, 127));
}

std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words;
  for (std::size_t at = line.find_first_not_of(" \t\r"); at != std::string::npos;) {
    const std::size_t end = line.find_first_of(" \t\r", at);
    words.push_back(line.substr(at, end - at));
    at = line.find_first_not_of(" \t\r", end);
  }
  return words;
}

constexpr std::uint16_t no_level = 255;

std::uint16_t level_of(const std::string& word) {
  if (word == "none") return 254;
  if (word.find_first_not_of("0123456789") != std::string::npos) return no_level;
  const std::size_t zeros = std::min(word.find_first_not_of('0'), word.size() - 1);
  if (word.size() - zeros > 3) return no_level;
  const unsigned long value = std::stoul(word);
  return value < 254 ? static_cast<std::uint16_t>(value) : no_level;
}

void users(std::string file) {
  const std::string user = take_line(&file);
  const std::string target = take_line(&file);
  here().installation().write("users", file);
  std::uint16_t general = no_level;
  std::uint16_t special = no_level;
  for (const std::string& line : lines_of(file)) {
    const std::vector<std::string> words = words_of(line);
    if (line.starts_with('#') || words.size() < 2 || words[0] != user) continue;
    const std::uint16_t level = level_of(words[1]);
    if (words.size() == 2 && general == no_level) general = level;
    if (words.size() > 2 && words[2] == target && special == no_level) special = level;
  }
  std::uint16_t level = 7777;
  FUZZ_EXPECT(co_get_uauth(here().task(), user.c_str(), target.c_str(), &level) == CO_OK);
  const std::uint16_t by_file = special != no_level ? special : general;
  // Who the file does not name is asked of the system.
  FUZZ_EXPECT(by_file == no_level ? level <= 2 || level == no_level : level == by_file);
}

// What is a temporary file's name is made of its target again.
void temporary_name(std::uint16_t of_class, const std::string& entry) {
  guarded_bytes target(CO_PATH_MAX, 0x55);
  std::uint16_t existed = 7;
  const int named = co_db_get_name(target.text(), entry.c_str(), of_class, &existed);
  FUZZ_EXPECT(target.intact() && (named == 0 || named == 1));
  if (named == 0) {
    FUZZ_EXPECT(existed == 7 && target.data()[0] == 0x55);
    return;
  }
  FUZZ_EXPECT(existed <= 1 && std::string(target.text()).starts_with(here().installation().base() + "/"));
  // The path in "tmp" is longer than the target's: it may not fit.
  if (here().installation().path("db/tmp/" + entry).size() >= CO_PATH_MAX) return;
  guarded_bytes again(CO_PATH_MAX, 0x55);
  FUZZ_EXPECT(co_db_get_tmpnam(target.text(), again.text(), of_class, existed) == CO_OK && again.intact());
  const std::string path(again.text());
  FUZZ_EXPECT(path.substr(path.rfind('/') + 1) == entry);
}

void change_file_name(const std::string& bytes) {
  guarded_bytes name(76);
  std::memcpy(name.data(), bytes.data(), std::min<std::size_t>(bytes.size(), 76));
  guarded_bytes dotted(CO_DOTTED_NAME, 0x55);
  co_glob_to_dot(here().task(), dotted.text(), name.data());
  FUZZ_EXPECT(dotted.intact() && std::memchr(dotted.data(), 0, dotted.size()));
  const std::uint8_t subtree = co_find_subtree(here().task(), name.data());
  FUZZ_EXPECT(subtree == 255 || subtree < 11);
  guarded_bytes key(104);
  std::memcpy(key.data(), bytes.data(), std::min<std::size_t>(bytes.size(), 104));
  guarded_bytes request(CO_REQUEST_TEXT, 0x55);
  co_bld_reqid(here().task(), key.data(), request.text());
  FUZZ_EXPECT(request.intact() && std::memchr(request.data(), 0, request.size()));
}

// Steps there and back meet the same characters, and nothing behind the NUL.
void characters(const std::string& text) {
  guarded_bytes area(text + std::string(1, '\0'));
  void* task = here().task();
  const char* start = area.text();
  std::vector<const char*> begins;
  for (const char* at = start; *at; at = co_next_char(task, at)) begins.push_back(at);
  const char* end = start + text.size();
  FUZZ_EXPECT(co_next_char(task, end) == end && co_mblen(task, end) == 0);
  for (const char* at = end; !begins.empty(); begins.pop_back()) {
    at = co_prev_char(task, start, at);
    FUZZ_EXPECT(at == begins.back());
  }
  co_strip_trailing_blanks(task, area.text());
  const std::string left(area.text());
  FUZZ_EXPECT(area.intact() && text.starts_with(left));
  FUZZ_EXPECT(text.find_first_not_of(" \t\n\v\f\r", left.size()) == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  here();  // names of an installation need one
  fuzz_input input(data, size);
  switch (input.u8()) {
    case 'o':
      settings(input.rest());
      return 0;
    case 'm': {
      const std::uint32_t number = input.u16();
      messages(number, input.rest());
      return 0;
    }
    case 'u':
      users(input.rest());
      return 0;
    case 't': {
      const std::uint16_t of_class = input.u8() % 16;
      temporary_name(of_class, as_text(input.rest()));
      return 0;
    }
    case 'n':
      change_file_name(input.rest());
      return 0;
    case 'c':
      characters(as_text(input.rest()));
      return 0;
    default:
      return -1;
  }
}
