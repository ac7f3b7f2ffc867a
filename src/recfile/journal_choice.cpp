#include "recfile/journal_choice.h"

#include <cstdlib>
#include <cstring>

#include "memory/dbr_tcb.h"
#include "memory/trace.h"

namespace zvrdb::recfile {
namespace {

using engine::journal_use;

constexpr std::uint32_t longest_file = 4096;   // what lies behind it is not looked at
constexpr char blanks[] = " \t\r\n";

bool is_choice(const char* word, std::size_t length, journal_use* use) {
  const bool on = length == 2 && std::memcmp(word, "on", 2) == 0;
  const bool off = length == 3 && std::memcmp(word, "off", 3) == 0;
  if (on || off) *use = on ? journal_use::on : journal_use::off;
  return on || off;
}

// The first word behind lines that begin with '#'; false when it is no choice.
bool choice_of_text(const char* text, journal_use* use) {
  for (;;) {
    text += std::strspn(text, blanks);
    if (*text != '#') return is_choice(text, std::strcspn(text, blanks), use);
    text += std::strcspn(text, "\n");
  }
}

enum class file_says { nothing, choice, misread };

file_says ask_file(void* task, journal_use* use) {
  char path[CO_PATH_MAX] = {};
  if (co_get_orvo_path(task, path, 0) != CO_OK ||
      co_build_objname(task, path, journal_choice_file, nullptr, CO_PATH_MAX) != CO_OK)
    return file_says::misread;
  std::uint32_t file = 0;
  const std::uint16_t opened = co_open(task, path, CO_OPEN_READ, &file);
  if (opened != CO_OK) return opened == CO_NOT_FOUND ? file_says::nothing : file_says::misread;
  char text[longest_file + 1] = {};
  std::uint32_t length = longest_file;
  const std::uint16_t read = co_read(task, file, text, &length);
  co_close(task, file);
  return read == CO_OK && choice_of_text(text, use) ? file_says::choice : file_says::misread;
}

// As a task keeps it: 0 is not asked yet.
constexpr std::uint32_t kept(journal_use use) {
  return use == journal_use::on ? 1 : 2;
}

}  // namespace

journal_setting read_journal_choice(void* task) {
  journal_setting setting = {journal_use::on, choice_source::standard, false, false};
  const char* wanted = std::getenv("ZVR_JOURNAL");
  if (wanted && is_choice(wanted, std::strlen(wanted), &setting.use)) {
    setting.source = choice_source::environment;
    return setting;
  }
  setting.environment_misread = wanted != nullptr && *wanted != 0;
  if (setting.environment_misread) ZVR_TRACE(task, 5, 2, "%s", "ZVR_JOURNAL says neither on nor off");
  const file_says answer = ask_file(task, &setting.use);
  if (answer == file_says::choice) setting.source = choice_source::installation;
  setting.misread = answer == file_says::misread;
  if (setting.misread) ZVR_TRACE(task, 5, 2, "%s says neither on nor off", journal_choice_file);
  return setting;
}

engine::journal_use journal_choice(void* task) {
  auto* tcb = static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
  if (!tcb) return read_journal_choice(task).use;
  if (tcb->journal_choice == 0) tcb->journal_choice = kept(read_journal_choice(task).use);
  return tcb->journal_choice == kept(journal_use::on) ? journal_use::on : journal_use::off;
}

void ask_journal_choice_anew(void* task) {
  static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb)->journal_choice = 0;
}

}  // namespace zvrdb::recfile
