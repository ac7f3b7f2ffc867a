// Six processes work on one installation by the exported calls of the library, and every
// 100 ms one of them is killed, wherever it may be; now and then several in a row, so that
// who repairs dies too, or all of them at once.
//
// What a worker was answered is in the model, in memory that outlives it.  A worker that
// takes the place of a dead one first holds the database against what that one had written
// down: acknowledged means there, a transaction that was not asked to commit never was, and
// the call that was under way has happened or it has not.
//
// ZVR_TORTURE=1 runs for three minutes, ZVR_TORTURE_SECONDS for so many seconds.
// ZVR_TORTURE_KEEP names a folder that a failed run's installation is copied to.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <thread>

#include "engine/file_report.h"
#include "memory/dbr_cntl.h"
#include "support/temp_installation.h"
#include "torture/torture_worker.h"

namespace torture {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

constexpr auto between_kills = 100ms;
constexpr unsigned one_kill_in_all = 40;   // one in so many kills takes all workers
constexpr unsigned one_kill_in_a_burst = 10;  // and one in so many is followed by others at once
constexpr unsigned most_in_a_burst = 8;
constexpr unsigned steps_of_a_life = 400;  // a worker that comes so far ends its task in order
constexpr auto longest_standstill = 60s;

std::chrono::seconds wanted_time() {
  if (const char* seconds = std::getenv("ZVR_TORTURE_SECONDS")) return std::chrono::seconds(std::atoi(seconds));
  return std::getenv("ZVR_TORTURE") ? 180s : 8s;
}

// Names and sizes of what lies in a folder.
std::map<std::string, std::uintmax_t> contents(const std::string& folder) {
  std::map<std::string, std::uintmax_t> found;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    if (entry.is_regular_file()) found[entry.path().filename()] = entry.file_size();
  return found;
}

// Files of the folder that somebody holds a byte lock on.
std::vector<std::string> locked_files(const std::string& folder) {
  std::vector<std::string> locked;
  for (const auto& [name, size] : contents(folder)) {
    const int fd = open((folder + "/" + name).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) continue;
    struct flock lock{};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK) locked.push_back(name);
    close(fd);
  }
  return locked;
}

// On the processor or waiting for it, and not for somebody else's semaphore.
bool is_running(pid_t process) {
  std::ifstream text("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(text, line);
  const std::size_t end = line.rfind(')');
  return end != std::string::npos && end + 2 < line.size() && line[end + 2] == 'R';
}

class KillTorture : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("ZVR_JOURNAL", "on", 1);
    zvrdb::test::ConfigChoices choices;
    choices.max_targets = 400;
    choices.max_local_targets = 100;
    installation = std::make_unique<zvrdb::test::TempInstallation>(zvrdb::test::default_config(choices));
    std::filesystem::create_directory(installation->path("db/snadscon"));  // of the connections
    shared = make_shared_model();
    random.seed(seed);
    void* task = co_init_task("parent", nullptr, 1);
    ASSERT_NE(task, nullptr) << co_init_error();
    shared_folder = co_shared_folder(task);
    ASSERT_EQ(put_base_records(task), DBE_OK);
    base_targets = list(&all_targets, task).size();
    base_change_files = list(&all_change_files, task).size();
    coi_term_task(task, 0);
  }
  void TearDown() override {
    for (const pid_t child : children)
      if (child > 0) end(child);
    const char* keep = std::getenv("ZVR_TORTURE_KEEP");
    if (HasFailure() && keep) {
      std::error_code ignored;
      std::filesystem::copy(installation->base(), keep, std::filesystem::copy_options::recursive, ignored);
    }
    if (HasFailure()) std::cout << "The log of the installation:\n" << last_lines(installation->read("log/messages.log"));
    installation.reset();
    release(shared);
    unsetenv("ZVR_JOURNAL");
  }

  static std::string last_lines(const std::string& text) { return text.substr(text.size() - std::min<std::size_t>(text.size(), 4000)); }

  template <class Lister>
  static std::vector<std::string> list(Lister lister, void* task) {
    std::string fault;
    std::vector<std::string> found = lister(task, &fault);
    EXPECT_EQ(fault, "");
    return found;
  }

  void start(unsigned worker) {
    const auto own_seed = static_cast<std::uint32_t>(random());
    children[worker] = fork();
    ASSERT_GE(children[worker], 0);
    if (children[worker] > 0) return;
    void* task = co_init_task("worker", nullptr, 1);
    if (!task) {
      report_failure(shared, worker, std::string("no task: ") + co_init_error());
      _exit(2);
    }
    Worker own(task, shared, worker, own_seed);
    bool good = own.settle();
    for (unsigned step = 0; good && step < steps_of_a_life && !shared->stop; ++step) {
      good = own.step();
      ++shared->steps;
    }
    coi_term_task(task, 0);
    _exit(good ? 0 : 1);
  }

  static void end(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  // Most workers wait for the one that is inside: that one is of interest.
  unsigned choose_victim() {
    const unsigned first = static_cast<unsigned>(random() % workers);
    if (random() % 4 == 0) return first;
    for (unsigned i = 0; i < workers; ++i)
      if (is_running(children[(first + i) % workers])) return (first + i) % workers;
    return first;
  }

  void kill_one() {
    const unsigned victim = choose_victim();
    end(children[victim]);
    ++kills;
    start(victim);
  }
  void kill_all() {
    for (const pid_t child : children) kill(child, SIGKILL);
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    kills += workers;
    ++blackouts;
    for (unsigned w = 0; w < workers; ++w) start(w);
  }
  // So that who repairs dies too, and who repairs after it.
  void kill_some_at_once() {
    for (auto left = 2 + random() % most_in_a_burst; left > 0 && !HasFatalFailure(); --left) {
      kill_one();
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
      replace_ended();
    }
  }
  // Workers that came to the end of their lives.
  void replace_ended() {
    for (unsigned w = 0; w < workers; ++w) {
      int status = 0;
      if (waitpid(children[w], &status, WNOHANG) != children[w]) continue;
      children[w] = -1;
      ASSERT_EQ(status, 0) << "the end of a worker that nobody killed";
      start(w);
    }
  }

  // A task of the parent's own, which lives on beside the dying for a while.
  void change_observer() {
    if (observer) {
      coi_term_task(observer, 0);
      observer = nullptr;
      return;
    }
    observer = co_init_task("observer", nullptr, 1);
    ASSERT_NE(observer, nullptr) << co_init_error();
  }
  void observe() {
    if (random() % 20 == 0) change_observer();
    if (observer) {
      EXPECT_GE(list(&all_targets, observer).size(), base_targets);
    }
  }

  void torture(std::chrono::seconds time) {
    for (unsigned w = 0; w < workers; ++w) start(w);
    const auto last = clock::now() + time;
    auto moved = clock::now();
    std::uint32_t steps = 0;
    for (auto next = clock::now(); clock::now() < last && !shared->stop && !HasFailure();) {
      next = std::max(next + between_kills, clock::now());
      std::this_thread::sleep_until(next);
      replace_ended();
      if (random() % one_kill_in_all == 0)
        kill_all();
      else if (random() % one_kill_in_a_burst == 0)
        kill_some_at_once();
      else
        kill_one();
      if (!HasFailure()) observe();
      if (shared->steps != steps) moved = clock::now();
      steps = shared->steps;
      ASSERT_LT(clock::now() - moved, longest_standstill) << "nobody gets on";
    }
    shared->stop = 1;
    for (pid_t& child : children) {
      int status = 0;
      if (child > 0 && waitpid(child, &status, 0) == child) {
        EXPECT_EQ(status, 0);
      }
      child = -1;
    }
    if (observer) change_observer();
  }

  unsigned known_of(unsigned worker, Kind kind) {
    unsigned known = 0;
    for (const Cell& cell : shared->version[worker][static_cast<unsigned>(kind)]) known += cell != 0;
    return known;
  }

  void compare_with_model() {
    void* task = co_init_task("parent", nullptr, 1);
    ASSERT_NE(task, nullptr) << co_init_error();
    shared->stop = 0;
    unsigned targets = 0, change_files = 0, requests = 0, pairs = 0;
    for (unsigned w = 0; w < workers; ++w) {
      Worker worker(task, shared, w, 1);
      EXPECT_TRUE(worker.settle() && worker.look_at_everything()) << shared->failure;
      targets += known_of(w, Kind::target);
      change_files += known_of(w, Kind::change_file);
      requests += known_of(w, Kind::request);
      pairs += known_of(w, Kind::pair) + known_of(w, Kind::own_pair);
    }
    EXPECT_EQ(list(&all_targets, task).size(), base_targets + targets);
    EXPECT_EQ(list(&all_change_files, task).size(), base_change_files + change_files);
    std::string fault;
    EXPECT_EQ(all_requests(task, "*", &fault).size(), requests);
    EXPECT_EQ(all_pairs(task, &fault), pairs);
    EXPECT_EQ(fault, "");
    expect_no_dead_task(task);
    coi_term_task(task, 0);
  }

  // The task is the only one there is, and all that is counted is its own.
  void expect_no_dead_task(void* task) {
    co_task_info alive[8];
    EXPECT_EQ(co_live_tasks(task, alive, 8), 1u);
    // The lowest free place is taken: no dead task keeps one.
    EXPECT_EQ(co_task_place(task), 0u);
    const auto* cntl = static_cast<const zvrdb::DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
    for (const zvrdb::iocb& file : cntl->files) EXPECT_EQ(file.use_count, 1) << file.name;
    EXPECT_EQ(cntl->fwrite_in_prog, 0);
    for (const char* name : {"DBR_MEM", "DBRFILE"}) {
      std::uint32_t handle = 0;
      ASSERT_EQ(co_open_sema4(task, name, &handle, 0, 1), CO_OK);
      EXPECT_EQ(co_try_sema4(task, handle), 1) << name;
      co_clear_sema4(task, handle);
    }
  }

  // The record lock of a dead task stays in its file until somebody wants the record, or has
  // the dead one's slot: so as many tasks as there ever were come at once.
  void take_every_slot() {
    constexpr unsigned most_at_once = workers + 4;
    std::vector<void*> tasks;
    for (unsigned i = 0; i < most_at_once; ++i) {
      tasks.push_back(co_init_task("parent", nullptr, 1));
      ASSERT_NE(tasks.back(), nullptr) << co_init_error();
      std::string fault;
      all_targets(tasks.back(), &fault);
      EXPECT_EQ(fault, "");
    }
    for (void* task : tasks) coi_term_task(task, 0);
  }

  void check_files() {
    unsigned files = 0;
    for (const auto& [name, size] : contents(installation->path("db"))) {
      if (name.ends_with(".jnl")) continue;
      ++files;
      const std::string path = installation->path("db/" + name);
      std::string reason, problems;
      zvrdb::engine::check_options options;
      options.deep = true;
      const auto tell = [](void* context, const zvrdb::engine::problem& p) {
        *static_cast<std::string*>(context) += p.path + ": " + p.text + "\n";
      };
      EXPECT_EQ(verify_file(path.c_str(), options, tell, &problems, &reason), zvrdb::engine::report_outcome::sound)
          << name << " " << reason << "\n" << problems;
      zvrdb::engine::file_summary summary;
      ASSERT_EQ(summarize_file(path.c_str(), &summary, &reason), zvrdb::engine::report_outcome::sound) << reason;
      EXPECT_FALSE(summary.header.write_flag) << name;
      EXPECT_EQ(summary.locks, 0u) << name;
      EXPECT_EQ(summary.log_nodes, 0u) << name;
    }
    EXPECT_EQ(files, 9u);
    EXPECT_EQ(contents(installation->path("db/tmp")).size(), 0u) << "texts that nobody put in place";
    EXPECT_EQ(locked_files(installation->path("db")), std::vector<std::string>{});
    EXPECT_EQ(locked_files(shared_folder), std::vector<std::string>{});
  }

  std::unique_ptr<zvrdb::test::TempInstallation> installation;
  std::string shared_folder;
  Shared* shared = nullptr;
  const unsigned seed = std::random_device{}();
  std::mt19937 random;
  pid_t children[workers] = {};
  void* observer = nullptr;
  unsigned kills = 0, blackouts = 0;
  std::size_t base_targets = 0, base_change_files = 0;
};

TEST_F(KillTorture, WhatWasAcknowledgedOutlivesTheDeathOfAnyProcessAtAnyInstruction) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  // The size of a generation's tables is settled by the first one behind the base records.
  const auto shared_before = contents(shared_folder);
  torture(wanted_time());
  ASSERT_EQ(shared->failed, 0u) << shared->failure;
  ASSERT_FALSE(HasFailure());
  compare_with_model();
  take_every_slot();
  check_files();
  const auto shared_after = contents(shared_folder);
  EXPECT_EQ(shared_after.size(), shared_before.size());
  std::uintmax_t before = 0, after = 0;
  for (const auto& [name, size] : shared_before) before += size;
  for (const auto& [name, size] : shared_after) after += size;
  EXPECT_LE(after, before + 65536);
  std::cout << kills << " points: kills (" << blackouts << " times all at once), " << shared->steps << " steps; "
            << "calls cut short: " << shared->settled_before << " had not happened, " << shared->settled_after << " had\n";
}

}  // namespace
}  // namespace torture
