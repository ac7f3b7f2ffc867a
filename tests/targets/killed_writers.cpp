#include "targets/killed_writers.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "engine/writers_held.h"

namespace target_test {

void StoredVersion::settle(std::uint32_t stored, const std::string& name) {
  EXPECT_TRUE(stored == done || stored == under_way) << name;
  done = stored;
  under_way = stored;
}

KilledWriters::KilledWriters() : control_(share<Control>()) {}

KilledWriters::~KilledWriters() {
  for (const auto& [memory, bytes] : shared_) munmap(memory, bytes);
}

void* KilledWriters::share(std::size_t bytes) {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) abort();
  shared_.emplace_back(memory, bytes);
  return memory;
}

bool KilledWriters::expect(int rc, int wanted, int place) {
  if (rc == wanted) return true;
  int none = 0;
  if (control_->unexpected.compare_exchange_strong(none, rc == 0 ? -1 : rc)) control_->unexpected_at = place;
  control_->stop = 1;
  return false;
}

int KilledWriters::answer_in_the_end(const std::function<int()>& call) {
  using clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds more_than_an_open_takes(20);
  const char* journals = std::getenv("ZVR_JOURNAL");
  const bool locks_are_written = journals && std::strcmp(journals, "off") == 0;
  const clock::time_point from = clock::now();
  int rc;
  do {
    rc = call();
  } while (locks_are_written && rc == DBE_IO_ERROR && clock::now() - from < more_than_an_open_takes);
  return rc;
}

// Each finished step is a byte in the pipe.  The parent keeps the reading end alone, so
// that the death of a writer ends its pipe.
pid_t KilledWriters::start(unsigned writer, unsigned seed, int* progress) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t child = fork();
  if (child != 0) {
    close(ends[1]);
    *progress = ends[0];
    return child;
  }
  void* own = co_init_task("writer", nullptr, 1);
  if (!own) _exit(2);
  std::mt19937 random(seed);
  while (!control_->stop && step(own, writer, random)) {
    const char byte = 0;
    if (write(ends[1], &byte, 1) != 1) _exit(3);
  }
  coi_term_task(own, 0);
  _exit(0);
}

void KilledWriters::kill_one(unsigned victim) {
  const zvrdb::engine::writers_held arbiter(written_file().c_str());
  ASSERT_EQ(arbiter.result(), 0);
  ASSERT_EQ(kill(children_[victim], SIGKILL), 0);
  ASSERT_EQ(waitpid(children_[victim], nullptr, 0), children_[victim]);
}

void KilledWriters::end_all() {
  control_->stop = 1;
  for (unsigned w = 0; w < writers; ++w) {
    char bytes[256];
    while (read(progress_[w], bytes, sizeof bytes) > 0) {
    }
    close(progress_[w]);
    int status = -1;
    ASSERT_EQ(waitpid(children_[w], &status, 0), children_[w]);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(control_->unexpected, 0) << "an answer that a writer did not expect, at "
                                     << control_->unexpected_at;
}

void KilledWriters::run_and_kill(const Plan& plan) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (unsigned w = 0; w < writers; ++w)
    children_[w] = start(w, static_cast<unsigned>(random()), &progress_[w]);
  for (int kills = 0; kills < plan.kills && !::testing::Test::HasFailure() && !control_->stop; ++kills) {
    const auto victim = static_cast<unsigned>(random() % writers);
    const unsigned range = plan.most_steps - plan.fewest_steps + 1;
    unsigned steps = plan.fewest_steps + static_cast<unsigned>(random() % range);
    char byte;
    while (steps > 0 && read(progress_[victim], &byte, 1) == 1) --steps;
    if (steps > 0) break;  // it gave up on an answer
    ASSERT_NO_FATAL_FAILURE(kill_one(victim));
    check_dead_writer(victim);
    close(progress_[victim]);
    children_[victim] = start(victim, static_cast<unsigned>(random()), &progress_[victim]);
  }
  end_all();
}

}  // namespace target_test
