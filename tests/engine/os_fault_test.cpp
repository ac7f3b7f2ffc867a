// The order of writes, and what happens when the operating system fails.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/header_page.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using engine::report_outcome;

constexpr int spare = 60;   // nodes on disk ahead, so that nothing grows

std::vector<unsigned char> prepared_image() {
  file_recipe recipe = sample_recipe(false, 30, 600);
  recipe.spare_nodes = spare;
  return build_file(recipe).bytes;
}

class WriteOrder : public ::testing::Test {
 protected:
  void SetUp() override {
    install_faulty_os();
    path_ = folder_.file("order");
    write_file(path_, prepared_image());
    ASSERT_EQ(h_.open_for_work(path_), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    EXPECT_EQ(open_files(), 0);
    remove_faulty_os();
  }
  // Writes and flushes since clear_events: F flag set, C flag cleared, H header, n node,
  // L log node, | flush.
  std::string order(std::size_t log_node = 0) {
    std::string result;
    bool flagged = false;
    for (const os_event& e : events()) {
      if (e.call == os_call::flush) result += '|';
      if (e.call != os_call::write) continue;
      if (e.offset == 1010) {
        result += flagged ? 'C' : 'F';
        flagged = !flagged;
      } else if (e.offset == 0) {
        result += 'H';
      } else {
        result += log_node && e.offset == 1024 + 1024 * log_node ? 'L' : 'n';
      }
    }
    return result;
  }
  static std::string squeezed(std::string text) {
    text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == b && a == 'n'; }), text.end());
    return text;
  }
  scratch_folder folder_;
  std::string path_;
  std::uint32_t generation_ = 0;
  handle h_;
};

TEST_F(WriteOrder, OfAnInsertIsFlagHeaderNodesFlushClear) {
  clear_events();
  ASSERT_EQ(h_.insert(sample(100)), 0);
  EXPECT_EQ(squeezed(order()), "F|Hn|C|");
}

TEST_F(WriteOrder, InATransactionPutsTheLogBehindTheData) {
  std::vector<unsigned char> bytes = read_file(path_);
  std::size_t log_node = bytes[36] + 256U * bytes[37];
  ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
  clear_events();
  ASSERT_EQ(h_.insert(sample(100)), 0);
  EXPECT_EQ(squeezed(order(log_node)), "F|Hn|LC|");
  ASSERT_EQ(engine::transend(h_, 1), 0);
}

TEST_F(WriteOrder, NeverWritesTheFlagWithTheHeader) {
  clear_events();
  ASSERT_EQ(h_.insert(sample(100)), 0);
  for (const os_event& e : events()) {
    if (e.call != os_call::write) continue;
    bool header = e.offset == 0 && e.n == 352;
    bool flag = e.offset == 1010 && e.n == 2;
    bool node = e.offset >= 1024 && e.offset % 1024 == 0 && e.n == 1024;
    EXPECT_TRUE(header || flag || node) << e.offset << " " << e.n;
  }
}

TEST_F(WriteOrder, LocksAllReadersOutBeforeTheFlag) {
  clear_events();
  ASSERT_EQ(h_.insert(sample(100)), 0);
  bool arbiter = false, readers = false, flag = false;
  for (const os_event& e : events()) {
    if (e.call == os_call::lock && e.offset == 771) arbiter = true;
    if (e.call == os_call::lock && e.offset == 562 && e.n == 209) {
      EXPECT_TRUE(arbiter);
      EXPECT_FALSE(flag);
      readers = true;
    }
    if (e.call == os_call::write && e.offset == 1010) flag = true;
    EXPECT_TRUE(readers || e.call != os_call::write);
  }
  EXPECT_TRUE(flag);
}

TEST_F(WriteOrder, AWriteInsideAReadHasItsReaderByteBackBeforeTheArbiterGoes) {
  ASSERT_EQ(engine::rdenter(h_), 0);
  clear_events();
  ASSERT_EQ(h_.insert(sample(100)), 0);
  std::string locks;   // + taken, - freed; r own reader byte, R all of them, a arbiter
  for (const os_event& e : events()) {
    const bool freed = e.call == os_call::unlock;
    if (e.call != os_call::lock && !freed) continue;
    locks += freed ? "-" : "+";
    locks += e.offset == 771 ? 'a' : e.n == 209 ? 'R' : 'r';
  }
  EXPECT_EQ(locks, "-r+a+R-R+r-a");
  ASSERT_EQ(engine::rdleave(h_), 0);
}

TEST_F(WriteOrder, OfARefusedRecordClearsTheFlagLikeAnyOther) {
  ASSERT_EQ(h_.insert(sample(100)), 0);
  clear_events();
  EXPECT_EQ(h_.insert(sample(100)), engine::e_not_found);
  EXPECT_EQ(squeezed(order()), "F|Hn|C|");
  EXPECT_EQ(h_.insert(sample(101)), 0);
}

TEST_F(WriteOrder, AFlushThatFailsEndsTheOperationWithTheFlagSet) {
  fail_call(os_call::flush, 2);   // that of the data
  clear_events();
  EXPECT_EQ(h_.insert(sample(100)), engine::e_write);
  EXPECT_EQ(squeezed(order()), "F|Hn|");
  EXPECT_EQ(h_.insert(sample(101)), engine::e_write_flag);
  engine::abandon(h_);
}

TEST_F(WriteOrder, AnOperationThatIsRefusedAtItsBeginningChangesNothing) {
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  const std::uint32_t generation = h_.get()->generation;
  std::vector<unsigned char> bytes = read_file(path_);
  bytes[1010] = 0xBD;
  bytes[1011] = 0x33;
  write_file(path_, bytes);
  clear_events();
  EXPECT_EQ(h_.insert(sample(100)), engine::e_write_flag);
  EXPECT_EQ(engine::transstat(h_), engine::e_write_flag);
  fail_call(os_call::lock, 1);
  EXPECT_EQ(h_.insert(sample(100)), engine::e_byte_lock);
  EXPECT_EQ(order(), "");
  EXPECT_EQ(h_.get()->generation, generation);
  EXPECT_EQ(engine::clrwrit(h_), 0);
  EXPECT_EQ(h_.insert(sample(100)), 0);
  EXPECT_EQ(h_.get()->generation, generation + 1);
}

TEST_F(WriteOrder, EveryOperationThatMayWriteIsACycleOfItsOwn) {
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  const auto expect_cycle = [&](int result) {
    EXPECT_EQ(result, 0);
    const std::string all = squeezed(order());
    EXPECT_EQ(all.substr(0, 2), "F|");
    EXPECT_NE(all.find('H'), std::string::npos);
    EXPECT_EQ(all.substr(all.size() - 2), "C|");
    EXPECT_EQ(h_.get()->generation, ++generation_);
    clear_events();
  };
  generation_ = h_.get()->generation;
  clear_events();
  expect_cycle(engine::dlock(h_));
  expect_cycle(engine::dunlock(h_));
  expect_cycle(engine::transstat(h_));
  expect_cycle(engine::dflush(h_));
  expect_cycle(engine::transbeg(h_, 3, nullptr));
  expect_cycle(engine::transend(h_, 1));
}

TEST_F(WriteOrder, ReadsWriteNothing) {
  clear_events();
  for (int i = 1; i <= 30; i++) ASSERT_EQ(h_.find_name(sample(i).name), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(order(), "");
}

TEST_F(WriteOrder, GrowthIsFlushedBeforeTheFlagIsCleared) {
  bool grown = false;
  for (int i = 100; i < 400 && !grown; i++) {
    std::size_t before = read_file(path_).size();
    clear_events();
    ASSERT_EQ(h_.insert(sample(i)), 0);
    if (read_file(path_).size() == before) continue;
    grown = true;
    std::string all = order();
    ASSERT_GE(all.size(), 4U);
    EXPECT_EQ(all.substr(all.size() - 4), "||C|");
  }
  EXPECT_TRUE(grown);
}

struct fault_case {
  const char* name;
  os_call call;
  bool for_good;
  engine::journal_use journal = engine::journal_use::off;
};

constexpr fault_case with_journal(const char* name, os_call call, bool for_good) {
  return {name, call, for_good, engine::journal_use::on};
}

class OsFault : public ::testing::TestWithParam<fault_case> {
 protected:
  void SetUp() override {
    alarm(110);   // a lock that fails for good must not be waited for
    install_faulty_os();
    path_ = folder_.file("fault");
    image_ = prepared_image();
  }
  void TearDown() override {
    remove_faulty_os();
    alarm(0);
  }
  // After a failure the file shows it by its flag, or it is sound and holds what was
  // acknowledged.
  void expect_honest(const std::vector<int>& acknowledged, bool committed) {
    handle h;
    h.journal = GetParam().journal;
    int result = h.open(path_);
    // A journal explains every flag.
    if (result == engine::e_write_flag && h.journal == engine::journal_use::off) return;
    ASSERT_EQ(result, 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    int state = engine::transstat(h);
    ASSERT_TRUE(state == 0 || state == engine::e_trans_interrupted || state == engine::e_trans_empty) << state;
    if (state == engine::e_trans_interrupted) {
      EXPECT_FALSE(committed);
      ASSERT_EQ(engine::transroll(h, nullptr, 0, nullptr), 0);
    }
    for (int i = 1; i <= 30; i++) ASSERT_EQ(h.find_name(sample(i).name), 0) << i;
    for (int i : acknowledged) ASSERT_EQ(h.find_name(sample(i).name), 0) << i;
    ASSERT_EQ(h.close(), 0);
    check_result checked = check_file(path_, true);
    ASSERT_EQ(checked.outcome, report_outcome::sound) << checked.text();
  }
  // As callers do it: a change that failed is rolled back with all of its transaction.
  bool run_transaction(handle* h, std::vector<int>* acknowledged) {
    if (engine::transbeg(*h, 3, nullptr) != 0) return false;
    bool good = true;
    std::vector<int> pending;
    for (int i = 101; good && i < 106; i++) {
      good = h->insert(sample(i, 600)) == 0;
      pending.push_back(i);
    }
    if (good) {
      sample_record changed = sample(7);
      changed.number = 777;
      good = h->find_name(sample(7).name) == 0 && h->update(changed) == 0;
    }
    if (!good || engine::transend(*h, 1) != 0) {
      engine::transroll(*h, nullptr, 0, nullptr);
      return false;
    }
    acknowledged->insert(acknowledged->end(), pending.begin(), pending.end());
    return true;
  }
  // Runs a script whose nth call of the kind fails; false when it made fewer.
  bool run(int nth) {
    unlink((path_ + ".jnl").c_str());
    write_file(path_, image_);
    std::vector<int> acknowledged;
    bool committed = false;
    {
      handle h;
      h.journal = GetParam().journal;
      fail_call(GetParam().call, nth, GetParam().for_good);
      if (h.open_for_work(path_) == 0) {
        if (h.insert(sample(100)) == 0) acknowledged.push_back(100);
        committed = run_transaction(&h, &acknowledged);
        if (h.insert(sample(120)) == 0) acknowledged.push_back(120);
      }
      bool failed = failures() > 0;
      disarm();
      if (engine::checkpsp(h) == 'O') {
        // The handle works again, or it goes on failing; either way a code comes back.
        h.find_name(sample(3).name);
        if (h.close() != 0) engine::abandon(h);
      }
      if (!failed) return false;
    }
    EXPECT_EQ(open_files(), 0);
    expect_honest(acknowledged, committed);
    return true;
  }
  scratch_folder folder_;
  std::string path_;
  std::vector<unsigned char> image_;
};

INSTANTIATE_TEST_SUITE_P(Calls, OsFault,
                         ::testing::Values(fault_case{"WriteOnce", os_call::write, false},
                                           fault_case{"WriteForGood", os_call::write, true},
                                           fault_case{"FlushOnce", os_call::flush, false},
                                           fault_case{"FlushForGood", os_call::flush, true},
                                           fault_case{"LockOnce", os_call::lock, false},
                                           fault_case{"LockForGood", os_call::lock, true},
                                           fault_case{"UnlockOnce", os_call::unlock, false},
                                           fault_case{"ReadOnce", os_call::read, false},
                                           fault_case{"ReadForGood", os_call::read, true},
                                           fault_case{"OpenOnce", os_call::open, false},
                                           fault_case{"ProbeOnce", os_call::probe, false},
                                           fault_case{"AllocateOnce", os_call::allocate, false},
                                           fault_case{"AllocateForGood", os_call::allocate, true},
                                           with_journal("JournalWriteOnce", os_call::write, false),
                                           with_journal("JournalWriteForGood", os_call::write, true),
                                           with_journal("JournalFlushOnce", os_call::flush, false),
                                           with_journal("JournalFlushForGood", os_call::flush, true),
                                           with_journal("JournalLockOnce", os_call::lock, false),
                                           with_journal("JournalLockForGood", os_call::lock, true),
                                           with_journal("JournalUnlockOnce", os_call::unlock, false),
                                           with_journal("JournalReadOnce", os_call::read, false),
                                           with_journal("JournalReadForGood", os_call::read, true),
                                           with_journal("JournalOpenOnce", os_call::open, false),
                                           with_journal("JournalProbeOnce", os_call::probe, false),
                                           with_journal("JournalAllocateOnce", os_call::allocate, false),
                                           with_journal("JournalAllocateForGood", os_call::allocate, true)),
                         [](const auto& c) { return c.param.name; });

TEST_P(OsFault, EveryNthFailureEndsWithACodeAndNothingAcknowledgedIsLost) {
  int nth = 1;
  for (; nth < 3000; nth++) {
    SCOPED_TRACE("call " + std::to_string(nth));
    if (!run(nth)) break;
    if (HasFatalFailure() || HasNonfatalFailure()) return;
  }
  EXPECT_LT(nth, 3000);
  EXPECT_GT(nth, 1);
}

TEST_P(OsFault, CreateFailsWithACodeAndLeavesNoFile) {
  for (int nth = 1; nth < 500; nth++) {
    SCOPED_TRACE("call " + std::to_string(nth));
    std::string path = folder_.file("new");
    unlink(path.c_str());
    handle h;
    h.journal = GetParam().journal;
    unlink((path + ".jnl").c_str());
    fail_call(GetParam().call, nth, GetParam().for_good);
    int result = h.create(path);
    bool failed = failures() > 0;
    disarm();
    if (engine::checkpsp(h) == 'O' && h.close() != 0) engine::abandon(h);
    ASSERT_EQ(open_files(), 0);
    if (!failed) break;
    if (result != 0) {
      handle again;
      int second = again.create(path);
      EXPECT_TRUE(second == 0 || second == engine::e_exists) << second;
    }
  }
}

}  // namespace
}  // namespace zvrdb::test
