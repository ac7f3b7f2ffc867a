#include "crash/crash_installation.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "crash/system_calls.h"
#include "engine/file_report.h"

namespace crash_test {
namespace {

namespace fs = std::filesystem;

// Messages of a child: a letter, the length, the bytes.
enum message : char { step_done = 'd', step_refused = 'f', points_counted = 'p', seen = 'o' };
constexpr int patience_ms = 60000;

void send(int to, message what, const std::string& text = {}) {
  const auto length = static_cast<std::uint32_t>(text.size());
  std::string whole(1, what);
  whole.append(reinterpret_cast<const char*>(&length), sizeof length);
  whole += text;
  tell(to, whole.data(), whole.size());
}

// Reads what is there to the end of the pipe, but no longer than a child may take.
std::string read_all(int from, pid_t child) {
  std::string text;
  for (;;) {
    pollfd ready{from, POLLIN, 0};
    if (poll(&ready, 1, patience_ms) == 0) {
      kill(child, SIGKILL);
      text += "hangs";
      return text;
    }
    char bytes[4096];
    const ssize_t got = read(from, bytes, sizeof bytes);
    if (got <= 0) return text;
    text.append(bytes, static_cast<std::size_t>(got));
  }
}

void take_messages(const std::string& text, outcome* out) {
  for (std::size_t at = 0; at + 5 <= text.size();) {
    std::uint32_t length = 0;
    std::memcpy(&length, text.data() + at + 1, sizeof length);
    const std::string content = text.substr(at + 5, length);
    switch (text[at]) {
      case step_done: ++out->done; break;
      case step_refused: out->failed = true; break;
      case points_counted: out->points = std::stoi(content); break;
      case seen:
        out->observed = content;
        out->states.push_back(content);
        break;
      default: out->failed = true; return;
    }
    at += 5 + length;
  }
}

struct child {
  pid_t process;
  int from;
};

child begin(const std::function<int(int to)>& body) {
  int pipe_ends[2];
  if (pipe(pipe_ends) != 0) abort();
  const pid_t process = fork();
  if (process == 0) {
    ::close(pipe_ends[0]);
    alarm(120);
    _exit(body(pipe_ends[1]));
  }
  ::close(pipe_ends[1]);
  return {process, pipe_ends[0]};
}

outcome end(const child& c) {
  outcome out;
  take_messages(read_all(c.from, c.process), &out);
  ::close(c.from);
  int status = 0;
  waitpid(c.process, &status, 0);
  out.killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  if (!out.killed && !(WIFEXITED(status) && WEXITSTATUS(status) == 0)) out.failed = true;
  return out;
}

int run_script(const script& s, int kill_at, bool observing, int to) {
  if (s.from_birth && !observing) count_points(kill_at);
  void* task = co_init_task("script", nullptr, 0);
  if (!task) return 1;
  if (s.before && !s.before(task)) return 2;
  if (observing) send(to, seen, observe(task));
  if (!s.from_birth) count_points(kill_at);
  for (const step& next : s.steps) {
    if (!next(task)) {
      send(to, step_refused);
      return 3;
    }
    send(to, step_done);
    if (observing) send(to, seen, observe(task));
  }
  if (s.from_birth) coi_term_task(task, 0);
  send(to, points_counted, std::to_string(end_points()));
  if (!s.from_birth) coi_term_task(task, 0);
  return 0;
}

int look_and_work(int to, int wait_for, const step& work) {
  void* task = co_init_task("looks", nullptr, 0);
  if (!task) return 1;
  if (wait_for >= 0) {
    static_cast<void>(observe(task));
    send(to, step_done);
    char byte = 0;
    if (read(wait_for, &byte, 1) != 1) return 0;
  }
  send(to, seen, observe(task));
  const bool works = work(task);
  coi_term_task(task, 0);
  return works ? 0 : 4;
}

std::string bytes_of(const fs::path& path) {
  std::string bytes(fs::file_size(path), '\0');
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t got = file < 0 ? -1 : ::read(file, bytes.data(), bytes.size());
  ::close(file);
  if (got != static_cast<ssize_t>(bytes.size())) abort();
  return bytes;
}

// Into the file as it is there, so that it stays the one that its journal knows.
void put_bytes(const fs::path& path, const std::string& bytes) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0660);
  if (file < 0 || ::ftruncate(file, static_cast<off_t>(bytes.size())) != 0 ||
      ::pwrite(file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    abort();
  ::close(file);
}

}  // namespace

installation::installation() {
  if (const char* chosen = std::getenv("ZVR_JOURNAL")) chosen_ = chosen;
  setenv("ZVR_JOURNAL", "on", 1);
  keep_this();
}

installation::~installation() {
  if (chosen_.empty())
    unsetenv("ZVR_JOURNAL");
  else
    setenv("ZVR_JOURNAL", chosen_.c_str(), 1);
}

void installation::keep_this() {
  kept_.clear();
  for (const auto& entry : fs::directory_iterator(base() + "/db"))
    if (entry.is_regular_file())
      kept_[entry.path().filename()] = {bytes_of(entry.path())};
}

void installation::put_back() {
  forget_shared_state();
  const fs::path folder = base() + "/db";
  std::vector<fs::path> extra;
  for (const auto& entry : fs::directory_iterator(folder))
    if (kept_.count(entry.path().filename()) == 0) extra.push_back(entry.path());
  for (const fs::path& path : extra) fs::remove_all(path);
  for (const auto& [name, file] : kept_) put_bytes(folder / name, file.bytes);
}

void installation::forget_shared_state() {
  std::error_code ignored;
  fs::remove_all(place_.shared_folder(), ignored);
}

outcome installation::run(const script& s, int kill_at) {
  return end(begin([&](int to) { return run_script(s, kill_at, false, to); }));
}

outcome installation::rehearse(const script& s) {
  return end(begin([&](int to) { return run_script(s, 0, true, to); }));
}

std::string installation::start_with(const step& first) {
  script base;
  base.steps.push_back(first);
  const outcome made = rehearse(base);
  if (made.failed || made.done != 1) return "the first step was refused";
  const std::string found = faults();
  if (!found.empty()) return found;
  forget_shared_state();
  keep_this();
  return {};
}

outcome installation::look(const step& work) {
  return end(begin([&work](int to) { return look_and_work(to, -1, work); }));
}

installation::bystander::bystander(installation& own) : own_(own) {
  int pipe_ends[2];
  if (pipe(pipe_ends) != 0) abort();
  const child c = begin([&pipe_ends](int to) {
    ::close(pipe_ends[1]);
    return look_and_work(to, pipe_ends[0], work_on);
  });
  ::close(pipe_ends[0]);
  go_on_ = pipe_ends[1];
  answers_ = c.from;
  process_ = c.process;
  char ready[5];
  if (read(answers_, ready, sizeof ready) != sizeof ready) abort();
}

installation::bystander::~bystander() {
  if (process_ < 0) return;
  ::close(go_on_);
  static_cast<void>(end({process_, answers_}));
}

outcome installation::bystander::look() {
  tell(go_on_, "g", 1);
  ::close(go_on_);
  const pid_t process = process_;
  process_ = -1;
  return end({process, answers_});
}

std::string installation::faults() const {
  std::ostringstream out;
  for (const auto& entry : fs::directory_iterator(base() + "/db")) {
    if (!entry.is_regular_file() || entry.path().extension() == ".jnl") continue;
    zvrdb::engine::check_options options;
    options.deep = true;
    const auto collect = [](void* context, const zvrdb::engine::problem& p) {
      if (!p.note) *static_cast<std::ostringstream*>(context) << p.text << '\n';
    };
    std::string reason;
    const auto result = zvrdb::engine::verify_file(entry.path().c_str(), options, collect, &out, &reason);
    if (result == zvrdb::engine::report_outcome::unreadable) out << entry.path() << ": " << reason << '\n';
  }
  return out.str();
}

}  // namespace crash_test
