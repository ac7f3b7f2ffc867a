// Several processes write at once while one after the other is killed and started anew.
//
// The killer owns the writer arbiter of the file while it kills, so that the victim may be
// anywhere but in the bytes of one write operation: it dies before, between or behind those of
// a call, or inside the memory's tables.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace target_test {

// What one writer stores again and again: a version, 0 when there is nothing.
struct StoredVersion {
  std::atomic<std::uint32_t> under_way;
  std::atomic<std::uint32_t> done;
  // After the writer's death the stored version becomes the one that counts.
  void settle(std::uint32_t stored, const std::string& name);
};

// For a fixture, beside that of its floor.
class KilledWriters {
 protected:
  static constexpr unsigned writers = 3;

  KilledWriters();
  virtual ~KilledWriters();
  KilledWriters(const KilledWriters&) = delete;
  KilledWriters& operator=(const KilledWriters&) = delete;

  // The file that they write.
  virtual std::string written_file() = 0;
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
  // For a writer: what a call on one record answers in the end.  Without journals the lock of a
  // record is written to the file.  That of a dead writer counts once more from when another
  // process takes its slot until that one, at the end of its open, has cleared it away; so the
  // call is made again while it answers "locked by another".
  static int answer_in_the_end(const std::function<int()>& call);

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

  std::vector<std::pair<void*, std::size_t>> shared_;
  Control* control_;
  std::array<int, writers> progress_{};
  std::array<pid_t, writers> children_{};
};

}  // namespace target_test
