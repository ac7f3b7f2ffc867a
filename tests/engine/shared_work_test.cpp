// Writers and readers of one file, all at once and each a process of its own that is killed now
// and then at a call of the system, or meets one that fails and gives up: what was acknowledged is there for whoever begins to read
// afterwards, what somebody has seen is never taken back, and nobody sees half a call.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "engine/engine_handle.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;
using engine::linux_ops;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int writers = 2;
constexpr int readers = 3;
constexpr int processes = writers + readers;

// A number that one writer counts up in the file, and what is known of it.
struct counter {
  std::atomic<int> begun;   // on its way, whether it came or not
  std::atomic<int> sure;    // acknowledged, or seen
  void is_sure(int n) {
    for (int known = sure; known < n && !sure.compare_exchange_weak(known, n);) {}
  }
};

// Each writer has records 3w+1 and 3w+2, which bear the same number, and 3w+3.
struct board {
  counter pairs[writers];
  counter singles[writers];
  std::atomic<long> written, read, killed;
  std::atomic<bool> stop, failed;
  bool faults;   // some processes meet them, and what a transaction did that failed may be seen
  char failure[400];
};
board* seen = nullptr;

int first_of(int w) { return 3 * w + 1; }

[[gnu::format(printf, 1, 2)]] [[noreturn]] void fail(const char* format, ...) {
  if (!seen->failed.exchange(true)) {
    va_list values;
    va_start(values, format);
    std::vsnprintf(seen->failure, sizeof seen->failure, format, values);
    va_end(values);
  }
  seen->stop = true;
  _exit(1);
}

bool has_faults = false;   // of the system of this process: it gives up at the first one it is told of

void expect(bool good, const char* what, int result) {
  if (!good && has_faults) std::raise(SIGKILL);
  if (!good) fail("process %d: %s: %d", static_cast<int>(getpid()), what, result);
}

// ---- A system that takes its time, and kills

std::mt19937 chance;
int calls_left = 0;   // until death; 0: none

int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(chance); }

void may_die() {
  if (calls_left != 0 && --calls_left == 0) std::raise(SIGKILL);
}
void may_rest(int one_in, unsigned longest) {
  if (below(one_in) == 0) usleep(static_cast<unsigned>(below(static_cast<int>(longest))));
}

bool may_fail(int one_in) { return has_faults && below(one_in) == 0; }

std::int64_t write_slowly(int file, std::uint64_t offset, const void* from, std::size_t n) {
  may_die();
  if (may_fail(1000)) return -1;
  may_rest(12, 400);
  const std::int64_t written = linux_ops.write_at(file, offset, from, n);
  may_die();
  return written;
}
std::int64_t read_slowly(int file, std::uint64_t offset, void* to, std::size_t n) {
  may_rest(40, 300);
  return linux_ops.read_at(file, offset, to, n);
}
int flush_slowly(int file) {
  may_die();
  may_rest(1, 1200);
  if (may_fail(100)) return -1;
  const int flushed = linux_ops.flush(file);
  may_die();
  return flushed;
}
engine::lock_answer lock_slowly(int file, std::uint64_t offset, std::uint64_t n) {
  if (may_fail(1000)) return engine::lock_answer::failed;
  may_rest(40, 300);
  const engine::lock_answer answer = linux_ops.lock(file, offset, n);
  may_die();
  may_rest(40, 300);
  return answer;
}
int unlock_slowly(int file, std::uint64_t offset, std::uint64_t n) {
  may_die();
  may_rest(40, 300);
  return linux_ops.unlock(file, offset, n);
}
int probe_slowly(int file, std::uint64_t offset) {
  const int held = linux_ops.probe(file, offset);
  may_rest(40, 300);
  return held;
}

void take_slow_system() {
  static engine::os_ops slow;
  slow = linux_ops;
  slow.write_at = write_slowly;
  slow.read_at = read_slowly;
  slow.flush = flush_slowly;
  slow.lock = lock_slowly;
  slow.unlock = unlock_slowly;
  slow.probe = probe_slowly;
  engine::set_os_ops(&slow);
}

// ---- Records

sample_record numbered(int i, int n) {
  sample_record r = sample(i, 0);
  r.number = n;
  const int m = std::abs(n);
  const auto length = static_cast<std::size_t>(m % 7 == 0 ? 1500 + m % 900 : m % 5 == 0 ? 0 : 40 + m % 300);
  r.payload = std::string(length, static_cast<char>('a' + m % 26));
  return r;
}

void open_again(handle* h, const std::string& path) {
  h->journal = journal_use::on;
  const int opened = h->open_for_work(path);
  expect(opened == 0, "open", opened);
}

// What a dead one left is rolled back, and a living one waited for.
void settle_others(handle* h) {
  const int state = engine::transstat(*h);
  if (state == engine::e_trans_interrupted) {
    const int back = engine::transroll(*h, nullptr, 0, nullptr);
    expect(back == 0 || back == engine::e_trans_none, "roll-back", back);
  } else if (state == engine::e_trans_empty) {
    const int ended = engine::transend(*h, 1);
    expect(ended == 0 || ended == engine::e_not_found || ended == engine::e_trans_busy, "end of another's", ended);
  } else if (state == engine::e_trans_busy) {
    usleep(200);
  } else {
    expect(state == 0, "state", state);
  }
}

// False while the slot of a dead one that had locked it is being taken over, and behind one whose
// transaction met a fault and had not ended.
bool replace(handle* h, int i, int n) {
  const int found = h->find_name(sample(i).name);
  expect(found == 0, "find of a writer", found);
  const int updated = h->update(numbered(i, n));
  if (seen->faults && (updated == engine::e_trans_busy || updated == engine::e_trans_interrupted)) {
    settle_others(h);
    return false;
  }
  expect(updated == 0 || updated == engine::e_locked_by_other, "update", updated);
  return updated == 0;
}

// ---- Work

void write_pair(handle* h, int w, bool keep) {
  counter& c = seen->pairs[w];
  engine::begin_call(*h);
  const int begun = engine::transbeg(*h, 3, nullptr);
  if (begun == engine::e_trans_interrupted || begun == engine::e_trans_busy) {
    const int ended = engine::end_call(*h);
    expect(ended == 0, "end of a call without work", ended);
    return settle_others(h);
  }
  expect(begun == 0, "begin", begun);
  const int n = c.begun + 1;
  if (keep) c.begun = n;
  keep = replace(h, first_of(w), keep ? n : -n) && replace(h, first_of(w) + 1, keep ? n : -n) && keep;
  const int ended = keep ? engine::transend(*h, 1) : engine::transroll(*h, nullptr, 0, nullptr);
  expect(ended == 0, "end", ended);
  const int left = engine::end_call(*h);
  expect(left == 0, "end of a call", left);
  if (keep) c.is_sure(n);
}

void write_single(handle* h, int w) {
  counter& c = seen->singles[w];
  const int n = ++c.begun;
  if (replace(h, first_of(w) + 2, n)) c.is_sure(n);
}

void write_on(const std::string& path, int w) {
  handle h;
  h.from_cache = below(2) == 0;
  open_again(&h, path);
  while (!seen->stop) {
    const int kind = below(20);
    if (kind == 0) {
      const int closed = h.close();
      expect(closed == 0, "close", closed);
      open_again(&h, path);
    } else if (kind < 6) {
      write_single(&h, w);
    } else {
      write_pair(&h, w, kind > 7);
    }
    ++seen->written;
    may_rest(3, 500);
  }
  expect(h.close() == 0, "last close", 0);
}

int number_of(handle* h, int i) {
  const int found = h->find_name(sample(i).name);
  expect(found == 0, "find", found);
  sample_record r;
  const int got = h->read(&r);
  expect(got == 0, "read", got);
  if (r != numbered(i, r.number)) fail("record %d with number %d is none that was written", i, r.number);
  return r.number;
}

int number_between(handle* h, int i, counter* c, int least) {
  const int n = number_of(h, i);
  const int most = c->begun;
  if (seen->faults) {
    if (std::abs(n) < least || std::abs(n) > most + 1) fail("record %d has %d, and %d was sure, %d begun", i, n, least, most);
    return least;
  }
  if (n < least || n > most) fail("record %d has %d, and %d was sure, %d begun", i, n, least, most);
  c->is_sure(n);
  return n;
}

void read_pair(handle* h, int w) {
  counter* c = &seen->pairs[w];
  const int sure = c->sure;
  const int first = number_between(h, first_of(w), c, sure);
  const int second = number_between(h, first_of(w) + 1, c, first);
  number_between(h, first_of(w), c, second);
}

// In one read operation.
void read_pair_at_once(handle* h, int w) {
  counter* c = &seen->pairs[w];
  const int sure = c->sure;
  const int entered = engine::rdenter(*h);
  expect(entered == 0, "begin of a read", entered);
  const int first = number_of(h, first_of(w));
  const int second = number_of(h, first_of(w) + 1);
  const int left = engine::rdleave(*h);
  expect(left == 0, "end of a read", left);
  if (seen->faults) {
    if (std::min(std::abs(first), std::abs(second)) < sure) fail("a pair has %d and %d, and %d was sure", first, second, sure);
    return;
  }
  if (first != second || first < sure) fail("a pair has %d and %d, and %d was sure", first, second, sure);
  c->is_sure(first);
}

void read_on(const std::string& path, bool from_cache) {
  handle h;
  h.from_cache = from_cache;
  open_again(&h, path);
  while (!seen->stop) {
    const int kind = below(200);
    const int w = below(writers);
    if (kind == 0) {
      const int closed = h.close();
      expect(closed == 0, "close of a reader", closed);
      open_again(&h, path);
    } else if (kind < 60) {
      number_between(&h, first_of(w) + 2, &seen->singles[w], seen->singles[w].sure);
    } else if (kind < 80) {
      read_pair_at_once(&h, w);
    } else {
      read_pair(&h, w);
    }
    ++seen->read;
    may_rest(10, 300);
  }
  expect(h.close() == 0, "last close of a reader", 0);
}

pid_t start(const std::string& path, int role, std::mt19937::result_type seed) {
  const pid_t child = fork();
  if (child != 0) return child;
  alarm(150);
  chance.seed(seed);
  has_faults = seen->faults && below(2) == 0;
  calls_left = below(3) == 0 ? 1 + below(4000) : 1 + below(300);
  engine::checkpoint_at = static_cast<std::uint64_t>(8 * 1024) << below(5);
  take_slow_system();
  if (role < writers) {
    write_on(path, role);
  } else {
    if (below(2) == 0) calls_left = 0;
    read_on(path, role != writers);
  }
  _exit(0);
}

class SharedWork : public ::testing::Test {
 protected:
  void SetUp() override {
    void* memory = mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    seen = new (memory) board{};
    path_ = folder_.file("shared");
    file_recipe recipe = sample_recipe(false, 0, 600);
    recipe.spare_nodes = 6;
    write_file(path_, build_file(recipe).bytes);
    handle h;
    open_again(&h, path_);
    for (int i = 1; i <= 30; i++) {
      const int n = i <= 3 * writers ? 1 : 0;
      ASSERT_EQ(h.insert(numbered(i, n)), 0);
    }
    ASSERT_EQ(h.close(), 0);
    for (int w = 0; w < writers; w++) {
      for (counter* c : {&seen->pairs[w], &seen->singles[w]}) c->begun = c->sure = 1;
    }
  }
  void TearDown() override { munmap(seen, sizeof(board)); }
  void run(milliseconds how_long, std::mt19937::result_type seed) {
    std::mt19937 seeds(seed);
    std::array<pid_t, processes> running{};
    for (int role = 0; role < processes; role++) running[static_cast<std::size_t>(role)] = start(path_, role, seeds());
    const auto end = steady_clock::now() + how_long;
    int left = processes;
    while (left > 0) {
      if (steady_clock::now() > end) seen->stop = true;
      int status = 0;
      const pid_t died = waitpid(-1, &status, WNOHANG);
      if (died <= 0) {
        usleep(300);
        continue;
      }
      const auto at = std::find(running.begin(), running.end(), died);
      ASSERT_NE(at, running.end());
      const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
      if (!killed && status != 0 && !seen->failed.exchange(true))
        std::snprintf(seen->failure, sizeof seen->failure, "process %d ended with status %d", static_cast<int>(died), status);
      if (!killed || seen->stop) {
        --left;
        continue;
      }
      ++seen->killed;
      *at = start(path_, static_cast<int>(at - running.begin()), seeds());
    }
  }
  void run_and_look();
  scratch_folder folder_;
  std::string path_;
};

void SharedWork::run_and_look() {
  const char* given = std::getenv("ZVR_TEST_SEED");
  const std::mt19937::result_type seed = given != nullptr ? std::strtoul(given, nullptr, 10) : std::random_device{}();
  run(milliseconds(std::getenv("ZVR_TORTURE") != nullptr ? 60000 : 3000), seed);
  std::cout << "seed " << seed << ": " << seen->written << " written, " << seen->read << " read, " << seen->killed
            << " killed" << std::endl;
  ASSERT_FALSE(seen->failed) << seen->failure;
  EXPECT_GT(seen->killed, 0);
  handle h;
  open_again(&h, path_);
  settle_others(&h);
  for (int w = 0; w < writers; w++) {
    EXPECT_EQ(number_of(&h, first_of(w)), number_of(&h, first_of(w) + 1));
    EXPECT_GE(number_of(&h, first_of(w)), seen->pairs[w].sure);
    EXPECT_GE(number_of(&h, first_of(w) + 2), seen->singles[w].sure);
  }
  ASSERT_EQ(h.close(), 0);
  const check_result checked = check_file(path_, true);
  EXPECT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
}

TEST_F(SharedWork, IsSeenWholeAndForGoodWhoeverDies) { run_and_look(); }

TEST_F(SharedWork, IsThereOnceAcknowledgedWhateverFails) {
  seen->faults = true;
  run_and_look();
}

}  // namespace
}  // namespace zvrdb::test
