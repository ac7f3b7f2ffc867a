// edit TYPE [NAME]: a text record in the editor.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrdb/zvrdb.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "commands.h"
#include "config_file.h"
#include "session.h"
#include "text_faults.h"
#include "text_store.h"
#include "text_types.h"

namespace zvradm {

namespace {

struct edit_options {
  std::string type;
  std::string name;
};

// A private copy for the editor; it goes when the edit is done, and stays otherwise.
class working_copy {
 public:
  working_copy(const std::string& file_name, const std::string& text) {
    const char* folder = std::getenv("TMPDIR");
    folder_ = std::string(folder && *folder ? folder : "/tmp") + "/zvradm-edit-XXXXXX";
    if (!mkdtemp(folder_.data())) throw refusal(folder_ + ": cannot be made: " + std::strerror(errno));
    path_ = folder_ + "/" + file_name;
    write(text);
  }
  ~working_copy() {
    if (kept_) return;
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }
  working_copy(const working_copy&) = delete;
  working_copy& operator=(const working_copy&) = delete;

  const std::string& path() const { return path_; }
  void keep() { kept_ = true; }
  std::string read() const {
    std::string text;
    if (!read_text_file(path_, text)) throw refusal(path_ + ": the editor left no file");
    return text;
  }

 private:
  void write(const std::string& text) const {
    std::FILE* file = std::fopen(path_.c_str(), "we");
    const bool written = file && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (file && std::fclose(file) == 0 && written) return;
    throw refusal(path_ + ": cannot be written: " + std::strerror(errno));
  }

  std::string folder_, path_;
  bool kept_ = false;
};

std::string editor_command() {
  for (const char* name : {"VISUAL", "EDITOR"})
    if (const char* command = std::getenv(name); command && *command) return command;
  return "vi";
}

// Keys that interrupt are for the editor: the terminal sends their signals to both.
class held_interrupts {
 public:
  held_interrupts() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignore, &interrupt_);
    sigaction(SIGQUIT, &ignore, &quit_);
  }
  ~held_interrupts() { give_back(); }
  held_interrupts(const held_interrupts&) = delete;
  held_interrupts& operator=(const held_interrupts&) = delete;
  void give_back() const {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGQUIT, &quit_, nullptr);
  }

 private:
  struct sigaction interrupt_ {}, quit_ {};
};

// The command may have arguments of its own, so the shell takes it apart.
void run_editor(const std::string& path) {
  std::fflush(stdout);
  const std::string command = editor_command();
  const std::string line = command + " \"$1\"";
  const held_interrupts held;
  const pid_t child = fork();
  if (child < 0) throw refusal(std::string("no process for the editor: ") + std::strerror(errno));
  if (child == 0) {
    held.give_back();
    execl("/bin/sh", "sh", "-c", line.c_str(), "sh", path.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw refusal("the editor '" + command +
                  "' failed; nothing was changed (VISUAL or EDITOR names another)");
}

bool wants_to_go_back() {
  std::fputs("Back to the editor? [Y/n] ", stderr);
  std::fflush(stderr);
  std::string answer;
  if (!std::getline(std::cin, answer)) {
    std::fputc('\n', stderr);
    return false;
  }
  return answer.empty() || answer[0] == 'y' || answer[0] == 'Y';
}

// What the editor begins with when there is no record: what it may hold, as comments.
std::string first_text(const text_type& type) {
  std::string text = "# There is no such record yet. Lines that begin with '#' are comments.\n";
  if (!type.keywords) return text;
  for (const auto* row = type.keywords; std::strcmp(row->keyword, "NULL") != 0; ++row) {
    if (std::strcmp(row->keyword, "*") == 0) {
      text += "# RGN.REN  [PRIORITY  PROTECTION  CAPACITY  SECURITY]  CONNECTION  [HOPS]\n";
      continue;
    }
    text += std::string("# ") + row->keyword + ":";
    const char* border = " ";
    for (const auto* word = row->value_list; word && std::strcmp(word->text, "NULL") != 0; ++word) {
      text += border + std::string(word->text);
      border = " | ";
    }
    text += "\n";
  }
  return text;
}

std::string title_of(const text_type& type, const std::string& name) {
  return std::string(type.suffix) + (name.empty() ? "" : " " + name);
}

// Edits until the text can be read or the administrator gives up.
std::string edited(void* task, const text_type& type, const std::string& name, working_copy& copy) {
  for (;;) {
    run_editor(copy.path());
    const std::string text = copy.read();
    const std::vector<text_fault> faults = faults_of(task, type, name, text);
    tell_faults(title_of(type, name), faults);
    if (!any_fatal(faults)) return text;
    if (wants_to_go_back()) continue;
    copy.keep();
    throw refusal(title_of(type, name) + ": the text cannot be read; nothing was changed. It is kept in " +
                  copy.path());
  }
}

// The configuration names the local target, whose record has a name of its own.
void tell_other_name(const std::string& before, const std::string& text) {
  config_record old_record{}, new_record{};
  std::uint32_t line = 0;
  char reason[256] = {};
  if (co_parse_config(before.c_str(), old_record.data(), &line, reason, sizeof reason) != CO_OK ||
      co_parse_config(text.c_str(), new_record.data(), &line, reason, sizeof reason) != CO_OK)
    return;
  const std::string old_name = config_name(old_record), new_name = config_name(new_record);
  if (old_name.empty() || old_name == new_name) return;
  tell_faults("cfg", {{0,
                       "WORKSTATION NAME was " + old_name + " and is " + new_name +
                           " now: no target is renamed by that; 'zvradm rename-target " + old_name + " " +
                           new_name + "' renames the local target with all that goes with it",
                       false}});
}

void tell(const std::string& text) {
  std::printf("%s\n", text.c_str());
}

void edit_one(const globals& all, const edit_options& options) {
  const text_type* type = find_text_type(options.type);
  if (!type) throw usage_fault("type '" + options.type + "' is no text: there are cfg, scn, scf, rte, ucf");
  if (type->many && options.name.empty()) throw usage_fault("edit " + options.type + " takes a NAME");
  if (!type->many && !options.name.empty()) throw usage_fault("edit " + options.type + " takes no NAME");
  const std::string base = base_directory(all);
  const std::string path = text_path(base, *type, options.name);
  require_installation(base);
  // A base configuration with a fault must be open to correction: it needs no session.
  std::unique_ptr<session> s;
  if (type->keywords) s = std::make_unique<session>(base);
  void* task = s ? s->task() : nullptr;
  if (task) prepare_text_record(task, type->db_id);
  std::string before;
  const bool existed = read_text_file(path, before);
  const std::string begin = existed ? before : first_text(*type);
  working_copy copy(type->many ? options.name : std::string(path, path.rfind('/') + 1), begin);
  const std::string text = edited(task, *type, options.name, copy);
  if (text == begin) return tell(title_of(*type, options.name) + ": unchanged");
  try {
    if (type->keywords)
      replace_text(task, *type, path, existed ? &before : nullptr, text);
    else
      replace_config_text(base, existed ? &before : nullptr, text);
  } catch (const refusal& fault) {
    copy.keep();
    throw refusal(std::string(fault.what()) + "; your text is kept in " + copy.path());
  }
  tell(title_of(*type, options.name) + ": stored");
  if (!type->keywords) tell_other_name(before, text);
  if (!type->keywords)
    tell(
        "It takes effect when the shared state is made anew: after 'zvradm reset' while no program uses the\n"
        "installation, or when the machine starts again. Until then all programs go by the old one.");
}

}  // namespace

void add_edit(CLI::App& app, globals& all) {
  auto options = std::make_shared<edit_options>();
  CLI::App& sub = *app.add_subcommand("edit", "Change a text record in the editor");
  sub.add_option("TYPE", options->type, "Record type: cfg, scn, scf, rte, ucf")->required();
  sub.add_option("NAME", options->name, "Name of the connection, for scn");
  sub.footer(R"(VISUAL or EDITOR names the editor (vi otherwise); it gets a copy. When it ends, the text is
read: a fault is told with its line, and the editor opened again if you wish. Only a text
that can be read replaces the record, comments included. An editor that fails, a text that
is not changed, or a record that somebody else changed meanwhile replaces nothing.
The base configuration (cfg) takes effect when the shared state is made anew.

Examples:
  zvradm edit scn OSLO
  EDITOR=nano zvradm --base /srv/zvr edit rte)");
  sub.callback([&all, options] { edit_one(all, *options); });
}

}  // namespace zvradm
