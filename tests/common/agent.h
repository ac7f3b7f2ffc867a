// A second process of a test, spoken with over pipes so that each interleaving is
// chosen and not hoped for.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <stdexcept>

namespace zvrdb::test {

class Agent {
 public:
  // The body runs in a child process; its result is the exit code.
  explicit Agent(const std::function<int(Agent&)>& body) {
    int down[2];
    int up[2];
    if (pipe(down) != 0 || pipe(up) != 0) throw std::runtime_error("pipe");
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork");
    const bool child = pid_ == 0;
    in_ = child ? down[0] : up[0];
    out_ = child ? up[1] : down[1];
    close(child ? down[1] : down[0]);
    close(child ? up[0] : up[1]);
    if (child) _exit(body(*this));
  }
  ~Agent() {
    if (pid_ > 0) kill_now();
    close(in_);
    close(out_);
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  void tell(uint32_t value) {
    if (write(out_, &value, sizeof value) != sizeof value && pid_ == 0) _exit(90);
  }
  // The next value from the other side; 0xFFFFFFFF when that is gone.
  uint32_t hear() {
    uint32_t value = 0;
    return read(in_, &value, sizeof value) == sizeof value ? value : 0xFFFFFFFFu;
  }
  pid_t pid() const { return pid_; }
  void kill_now() {
    ::kill(pid_, SIGKILL);
    wait_status();
  }
  // Status of waitpid.
  int wait_status() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }
  // Exit code, or 1000 + signal.
  int result() {
    const int status = wait_status();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
};

}  // namespace zvrdb::test
