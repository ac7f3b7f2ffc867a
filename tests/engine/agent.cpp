#include "engine/agent.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace zvrdb::test {

agent::agent() {
  int commands[2], answers[2];
  if (pipe2(commands, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0) std::abort();
  signal(SIGPIPE, SIG_IGN);
  pid_ = fork();
  if (pid_ < 0) std::abort();
  if (pid_ == 0) {
    dup2(commands[0], 0);
    dup2(answers[1], 1);
    execl(ENGINE_AGENT, ENGINE_AGENT, static_cast<char*>(nullptr));
    _exit(127);
  }
  close(commands[0]);
  close(answers[1]);
  to_ = commands[1];
  from_ = answers[0];
}

agent::~agent() { kill(); }

void agent::kill() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
  close(to_);
  close(from_);
}

void agent::send(const std::string& command) {
  std::string line = command + "\n";
  if (write(to_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) pending_.clear();
}

int agent::answer() {
  for (;;) {
    std::size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      int result = std::atoi(pending_.c_str());
      pending_.erase(0, end + 1);
      return result;
    }
    char part[256];
    ssize_t n = read(from_, part, sizeof part);
    if (n <= 0) {
      waitpid(pid_, nullptr, 0);
      pid_ = -1;
      close(to_);
      close(from_);
      return died;
    }
    pending_.append(part, static_cast<std::size_t>(n));
  }
}

int agent::tell(const std::string& command) {
  send(command);
  return answer();
}

bool agent::is_silent(int milliseconds) {
  struct pollfd poll_for = {from_, POLLIN, 0};
  return pending_.find('\n') == std::string::npos && poll(&poll_for, 1, milliseconds) == 0;
}

}  // namespace zvrdb::test
