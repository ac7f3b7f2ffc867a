// A second process of a test, led through its steps over pipes, so that every
// interleaving is chosen.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

namespace zvrtest {

// What the child's body has of its parent.
class parent_link {
 public:
  parent_link(int to_parent, int from_parent) : to_parent_(to_parent), from_parent_(from_parent) {}
  // Tells the parent that this point is reached.
  void reached() { tell(1); }
  // The same, and waits until the parent lets it go on (or kills it).
  void stop_here() {
    reached();
    char byte = 0;
    if (read(from_parent_, &byte, 1) != 1) _exit(98);
  }
  // A number for the parent.
  void tell(unsigned char value) {
    if (write(to_parent_, &value, 1) != 1) _exit(97);
  }
  [[noreturn]] void die() {
    kill(getpid(), SIGKILL);
    _exit(96);
  }

 private:
  int to_parent_;
  int from_parent_;
};

class child_process {
 public:
  explicit child_process(const std::function<int(parent_link&)>& body) {
    int up[2];
    int down[2];
    if (pipe(up) != 0 || pipe(down) != 0) abort();
    pid_ = fork();
    if (pid_ == 0) {
      close(up[0]);
      close(down[1]);
      parent_link link(up[1], down[0]);
      _exit(body(link));
    }
    close(up[1]);
    close(down[0]);
    from_child_ = up[0];
    to_child_ = down[1];
  }
  ~child_process() {
    if (pid_ > 0) kill_now();
    close(from_child_);
    close(to_child_);
  }
  child_process(const child_process&) = delete;
  child_process& operator=(const child_process&) = delete;

  // Waits for the next value of the child; -1 when it has ended without one.
  int next() {
    unsigned char value = 0;
    return read(from_child_, &value, 1) == 1 ? value : -1;
  }
  void go_on() {
    const char byte = 1;
    if (write(to_child_, &byte, 1) != 1) abort();
  }
  void kill_now() {
    kill(pid_, SIGKILL);
    finish();
  }
  // Exit status of the child, or 1000 and the signal that ended it.
  int finish() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, 0) != pid_) return -1;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int from_child_ = -1;
  int to_child_ = -1;
};

}  // namespace zvrtest
