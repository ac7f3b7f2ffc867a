// Several processes write at once while one after the other is killed and started anew.
//
// The killer owns the writer arbiter of the target file while it kills, so that the
// victim may be anywhere but in the bytes of one write operation: a put is four of
// them, and it dies before, between or behind them, or inside the memory's tables.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "targets/targets_fixture.h"

namespace target_test {

class KilledWriters : public TargetsTest {
 protected:
  static constexpr unsigned writers = 3;

  void SetUp() override;
  void TearDown() override;

  // What a writer does over and over, in its own process and with a task of its own.
  // False when it gives up on an answer that it did not expect.
  virtual bool step(void* own, unsigned writer, std::mt19937& random) = 0;
  // Looks at what a writer left, which is dead by now.
  virtual void check_dead_writer(unsigned writer) = 0;

  // Starts all writers, kills one of them after each stretch of steps and starts it
  // anew, then lets all end.
  struct Plan {
    int kills;
    unsigned fewest_steps;  // of a stretch
    unsigned most_steps;
  };
  void run_and_kill(const Plan& plan);

  // Zeroed memory that this process and all writers have in common.
  template <class Shared>
  Shared* share() {
    return static_cast<Shared*>(share(sizeof(Shared)));
  }
  // For a writer: false, and the end of all of them, when the answer is another one.
  bool expect(int rc, int wanted, int place);

  // The version of a target that bears it as description and as customer's name, 0 when
  // there is no such target.  Memory and file must agree on it.
  std::uint32_t stored_version(const std::string& name);

 private:
  struct Control {
    std::atomic<std::uint32_t> stop;
    std::atomic<int> unexpected;  // the first answer that a writer did not expect
    std::atomic<int> unexpected_at;
  };

  void* share(std::size_t bytes);
  pid_t start(unsigned writer, unsigned seed, int* progress);
  void kill_one(unsigned victim);
  void end_all();
  std::string target_file();

  Control* control_ = nullptr;
  std::vector<std::pair<void*, std::size_t>> shared_;
  std::array<int, writers> progress_{};
  std::array<pid_t, writers> children_{};
};

}  // namespace target_test
