// Processes that are really killed while a change goes to the file, and a system that fails
// while their work is finished.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/journal.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_use;

class JournalKill : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(110);
    install_faulty_os();
    path_ = folder_.file("killed");
  }
  void TearDown() override {
    remove_faulty_os();
    alarm(0);
  }
  void make_file() {
    unlink((path_ + ".jnl").c_str());
    file_recipe recipe = sample_recipe(false, 30, 600);
    recipe.spare_nodes = 6;
    write_file(path_, build_file(recipe).bytes);
  }
  // A process commits record 101 and is killed before the nth write that follows the flag of
  // its next commit, of records 102 and 103.  False: it came to its end.
  bool killed(int nth) {
    const pid_t child = fork();
    if (child == 0) {
      handle h;
      h.journal = journal_use::on;
      if (h.open_for_work(path_) != 0 || h.insert(sample(101)) != 0) _exit(1);
      if (engine::transbeg(h, 3, nullptr) != 0) _exit(2);
      kill_after_flag(nth);
      if (h.insert(sample(102, 900)) != 0 || h.insert(sample(103)) != 0) _exit(3);
      if (engine::transend(h, 1) != 0) _exit(4);
      kill_after_flag(0);
      if (h.close() != 0) _exit(5);
      _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    if (WIFSIGNALED(status)) {
      EXPECT_EQ(WTERMSIG(status), SIGKILL);
      return true;
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
    return false;
  }
  static void expect_all(handle* h) {
    for (int i = 101; i <= 103; i++) ASSERT_EQ(h->find_name(sample(i).name), 0) << i;
  }
  void expect_sound() {
    const check_result checked = check_file(path_, true);
    ASSERT_EQ(checked.outcome, engine::report_outcome::sound) << checked.text();
  }
  // Who opens it now finds everything and works on.
  void expect_whole() {
    handle h;
    h.journal = journal_use::on;
    ASSERT_EQ(h.open_for_work(path_), 0);
    ASSERT_EQ(engine::transstat(h), 0);
    expect_all(&h);
    if (HasFatalFailure()) return;
    ASSERT_EQ(h.insert(sample(104)), 0);
    ASSERT_EQ(h.close(), 0);
    expect_sound();
  }
  scratch_folder folder_;
  std::string path_;
};

TEST_F(JournalKill, WhatWasFlushedIsThereWhereverItsWriterDies) {
  int nth = 1;
  for (;; nth++) {
    SCOPED_TRACE("write " + std::to_string(nth));
    ASSERT_LT(nth, 100);
    make_file();
    const bool died = killed(nth);
    expect_whole();
    if (HasFatalFailure()) return;
    if (!died) break;
  }
  std::cout << nth << " points" << std::endl;
  EXPECT_GE(nth, 5) << "header, at least two of nodes, flag";
}

TEST_F(JournalKill, AHandleThatLivedBesideItFindsItToo) {
  make_file();
  handle h;
  h.journal = journal_use::on;
  ASSERT_EQ(h.open_for_work(path_), 0);
  ASSERT_TRUE(killed(3));
  expect_all(&h);
  if (HasFatalFailure()) return;
  ASSERT_EQ(h.close(), 0);
  expect_sound();
}

// No descriptor is free, say: the file must not be used as if there were no journal.
TEST_F(JournalKill, AJournalThatCannotBeOpenedKeepsTheFileClosed) {
  for (const journal_use use : {journal_use::on, journal_use::off}) {
    make_file();
    ASSERT_TRUE(killed(3));
    const std::vector<unsigned char> bytes = read_file(path_);
    handle h;
    h.journal = use;
    fail_call(os_call::open, 2);
    EXPECT_EQ(h.open_for_work(path_), engine::e_io);
    disarm();
    EXPECT_EQ(open_files(), 0);
    EXPECT_EQ(read_file(path_), bytes);
    ASSERT_EQ(h.open_for_work(path_), 0);
    expect_all(&h);
    ASSERT_EQ(h.close(), 0);
  }
}

struct repair_fault {
  const char* name;
  os_call call;
  bool for_good;
};
class RepairFault : public JournalKill, public ::testing::WithParamInterface<repair_fault> {};
INSTANTIATE_TEST_SUITE_P(Calls, RepairFault,
                         ::testing::Values(repair_fault{"WriteOnce", os_call::write, false},
                                           repair_fault{"WriteForGood", os_call::write, true},
                                           repair_fault{"FlushOnce", os_call::flush, false},
                                           repair_fault{"FlushForGood", os_call::flush, true},
                                           repair_fault{"ReadOnce", os_call::read, false},
                                           repair_fault{"ReadForGood", os_call::read, true},
                                           repair_fault{"SizeOnce", os_call::size, false},
                                           repair_fault{"LockOnce", os_call::lock, false},
                                           repair_fault{"UnlockOnce", os_call::unlock, false},
                                           repair_fault{"ProbeOnce", os_call::probe, false},
                                           repair_fault{"OpenOnce", os_call::open, false},
                                           repair_fault{"AllocateOnce", os_call::allocate, false},
                                           repair_fault{"AllocateForGood", os_call::allocate, true}),
                         [](const auto& c) { return c.param.name; });

TEST_P(RepairFault, EndsWithACodeAndTheNextOneRepairs) {
  int nth = 1;
  for (;; nth++) {
    SCOPED_TRACE("call " + std::to_string(nth));
    ASSERT_LT(nth, 1000);
    make_file();
    ASSERT_TRUE(killed(3));
    {
      handle h;
      h.journal = journal_use::on;
      fail_call(GetParam().call, nth, GetParam().for_good);
      if (h.open_for_work(path_) == 0) h.find_name(sample(102).name);
      disarm();
      if (engine::checkpsp(h) == 'O' && h.close() != 0) engine::abandon(h);
    }
    ASSERT_EQ(open_files(), 0);
    const bool failed = failures() > 0;
    expect_whole();
    if (HasFatalFailure()) return;
    if (!failed) break;
  }
  std::cout << nth << " points" << std::endl;
}

}  // namespace
}  // namespace zvrdb::test
