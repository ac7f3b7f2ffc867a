// An installation that is put back to one state again and again: its processes are killed at
// chosen points, and others look at what they left.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/temp_installation.h"

namespace crash_test {

// What one step of a script does, as a whole: true when it was answered as done.
using step = std::function<bool(void* task)>;

struct script {
  std::vector<step> steps;
  // What happens in the process before its first point is counted; may be empty.
  step before;
  bool from_birth = false;   // points are counted from the first call of the common services
                             // to the end of the task, and not only in the steps
};

// What a process came to.
struct outcome {
  bool killed = false;
  unsigned done = 0;          // steps that were answered as done
  bool failed = false;        // a step was refused
  int points = 0;             // of a process that lived
  std::string observed;       // of one that observes
  std::vector<std::string> states;   // observed before the first step and behind each
};

// All that the scripts store, as text: memory and files must agree on it.
std::string observe(void* task);
// Records are put, read, and deleted; a transaction is begun and ended: what is stored is the same again.
bool work_on(void* task);
// The same where nothing is stored yet.
bool work_a_little(void* task);

// With commit journals, whatever the environment of the suite chose: without them a kill may
// leave more than these tests allow.
class installation {
 public:
  installation();
  ~installation();
  installation(const installation&) = delete;
  installation& operator=(const installation&) = delete;
  // What the step stores, and it alone, is what put_back goes back to.  Empty when it was done and
  // left sound files.
  std::string start_with(const step& first);
  // What lies in "db" now is what put_back goes back to.  Nobody has a task.
  void keep_this();
  struct kept_file {
    std::string bytes;
  };
  using kept_files = std::map<std::string, kept_file>;
  kept_files kept() const { return kept_; }
  void go_back_to(kept_files kept) { kept_ = std::move(kept); }
  // The shared state goes too.
  void put_back();
  // As after the machine was off: the shared state is gone, the files are as they are.
  void forget_shared_state();

  // A process of its own that runs the script, killed at a point (0: it is not).
  outcome run(const script& s, int kill_at);
  // The same, unharmed; it observes between the steps.
  outcome rehearse(const script& s);
  // A process of its own that comes, observes what is stored, works on, and goes.
  outcome look(const step& work = work_on);
  // The same of a process that is there already when the other one is killed.
  class bystander {
   public:
    explicit bystander(installation& own);
    ~bystander();
    bystander(const bystander&) = delete;
    bystander& operator=(const bystander&) = delete;
    outcome look();   // once

   private:
    installation& own_;
    int go_on_ = -1, answers_ = -1;
    int process_ = -1;
  };
  // All record files, deep; empty when they are sound.
  std::string faults() const;
  const std::string& base() const { return place_.base(); }
  const std::string& shared_folder() const { return place_.shared_folder(); }

 private:
  zvrdb::test::TempInstallation place_;
  kept_files kept_;
  std::string chosen_;   // by the environment of the suite
};

}  // namespace crash_test
