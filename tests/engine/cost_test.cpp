// What the operations cost the system, in exact figures: a change that makes one dearer fails
// here.  One that makes it cheaper fails too, and brings the new figure.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "engine/engine_handle.h"
#include "engine/journal.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

struct cost {
  int calls = 0;         // locks, probes, reads, writes, sizes, random numbers; not flushes
  int flushes = 0;
  int allocations = 0;
  bool operator==(const cost&) const = default;
};
cost spent;

std::ostream& operator<<(std::ostream& to, const cost& c) {
  return to << c.calls << " calls, " << c.flushes << " flushes, " << c.allocations << " allocations";
}

template <auto Operation, int cost::*Kind>
struct counted;
template <class R, class... A, R (*engine::os_ops::*Operation)(A...), int cost::*Kind>
struct counted<Operation, Kind> {
  static R call(A... a) {
    ++(spent.*Kind);
    return (engine::linux_ops.*Operation)(a...);
  }
};

const engine::os_ops counting_ops = [] {
  using engine::os_ops;
  os_ops ops = engine::linux_ops;
  ops.lock = counted<&os_ops::lock, &cost::calls>::call;
  ops.unlock = counted<&os_ops::unlock, &cost::calls>::call;
  ops.probe = counted<&os_ops::probe, &cost::calls>::call;
  ops.read_at = counted<&os_ops::read_at, &cost::calls>::call;
  ops.write_at = counted<&os_ops::write_at, &cost::calls>::call;
  ops.size = counted<&os_ops::size, &cost::calls>::call;
  ops.random = counted<&os_ops::random, &cost::calls>::call;
  ops.flush = counted<&os_ops::flush, &cost::flushes>::call;
  ops.allocate = counted<&os_ops::allocate, &cost::allocations>::call;
  return ops;
}();

constexpr int records = 400;
constexpr int measured = 50;   // and no checkpoint falls among them

class Cost : public ::testing::Test {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(2000);
    engine::set_os_ops(&counting_ops);
    for (handle* h : {&h_, &bystander_}) {
      h->journal = engine::journal_use::on;
      h->from_cache = true;
    }
    ASSERT_EQ(h_.create(folder_.file("cost")), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
    for (int i = 1; i <= records; ++i) ASSERT_EQ(h_.insert(sample(i * 2, 300)), 0);
    ASSERT_EQ(bystander_.open_for_work(folder_.file("cost")), 0);
    for (int i = 1; i <= records; ++i) get(h_, i * 2);
  }
  void TearDown() override {
    bystander_.close();
    h_.close();
    engine::set_os_ops(nullptr);
    engine::set_cache_blocks(10);
  }
  // The last one to go ends the life of the journal, with its changes.
  void come_back() {
    for (handle* h : {&bystander_, &h_}) ASSERT_EQ(h->close(), 0);
    for (handle* h : {&bystander_, &h_}) ASSERT_EQ(h->open_for_work(folder_.file("cost")), 0);
  }
  static void get(handle& h, int i) {
    sample_record found;
    ASSERT_EQ(h.find_name(sample(i).name), 0);
    ASSERT_EQ(h.read(&found), 0);
  }
  void replace(int i) {
    sample_record changed = sample(i, 300);
    changed.payload[7] = 'x';
    ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
    ASSERT_EQ(h_.find_name(changed.name), 0);
    ASSERT_EQ(h_.update(changed), 0);
    ASSERT_EQ(engine::transend(h_, 1), 0);
  }
  void remove(int i) {
    ASSERT_EQ(engine::transbeg(h_, 3, nullptr), 0);
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
    ASSERT_EQ(h_.remove(), 0);
    ASSERT_EQ(engine::transend(h_, 1), 0);
  }
  // Of `measured` operations, after one that is not counted.
  static cost of(const std::function<void(int)>& operation) {
    operation(0);
    spent = {};
    for (int i = 1; i <= measured; ++i) operation(i);
    return spent;
  }

  scratch_folder folder_;
  handle h_, bystander_;
};

TEST_F(Cost, OfAGetIsNothing) {
  EXPECT_EQ(of([&](int i) { get(h_, 2 + i * 4); }), cost{});
}

// A record that was read before is found without a descent: where its entry stands is known, and
// its body is kept in one piece.
TEST_F(Cost, OfAGetThatWasMadeBeforeIsNoDescent) {
  for (int i = 0; i <= measured; ++i) get(h_, 2 + i * 4);
  const std::uint64_t before = engine::nodes_looked_up;
  for (int i = 0; i <= measured; ++i) get(h_, 2 + i * 4);
  EXPECT_EQ(engine::nodes_looked_up - before, 0u);
}

TEST_F(Cost, OfAWalkIsANodeALeaf) {
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_first), 0);
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_next), 0);
  const std::uint64_t before = engine::nodes_looked_up;
  for (int i = 0; i < measured; ++i) ASSERT_EQ(engine::dseq(h_, 1, engine::seq_next), 0);
  EXPECT_EQ(engine::nodes_looked_up - before, 1u);   // where the leaf ends
}

TEST_F(Cost, OfAStepIsNothing) {
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_first), 0);
  EXPECT_EQ(of([&](int) { ASSERT_EQ(engine::dseq(h_, 1, engine::seq_next), 0); }), cost{});
}

TEST_F(Cost, OfADurableInsertIsOneFlush) {
  EXPECT_EQ(of([&](int i) { ASSERT_EQ(h_.insert(sample(3 + i * 4, 300)), 0); }),
            (cost{671, measured, 0}));
}

TEST_F(Cost, OfADurableReplaceIsOneFlush) {
  EXPECT_EQ(of([&](int i) {
              replace(2 + i * 4);
            }),
            (cost{1052, measured, 0}));
}

TEST_F(Cost, OfADurableDeleteIsOneFlush) {
  EXPECT_EQ(of([&](int i) { remove(2 + i * 4); }),
            (cost{1135, measured, 0}));
}

// The same in one call each, as the calls of an installation make them.
TEST_F(Cost, OfADurableReplaceInOneCall) {
  EXPECT_EQ(of([&](int i) {
              engine::begin_call(h_);
              replace(2 + i * 4);
              ASSERT_EQ(engine::end_call(h_), 0);
            }),
            (cost{452, measured, 0}));
}

// The lock of the record stays out of the file, so the last leaf isn't written.  In this file it lies
// between two nodes that are, and one write of three nodes is two now: a call more, and a node less.
TEST_F(Cost, OfADurableDeleteInOneCall) {
  EXPECT_EQ(of([&](int i) {
              engine::begin_call(h_);
              remove(2 + i * 4);
              ASSERT_EQ(engine::end_call(h_), 0);
            }),
            (cost{735, measured, 0}));
}

// What an operation wrote stands together in the cache, however many nodes that holds.
TEST_F(Cost, OfBringingOutAReplacementDoesNotGrowWithTheCache) {
  const std::uint64_t before = engine::blocks_looked_at;
  replace(40);
  EXPECT_EQ(engine::blocks_looked_at - before, 4u);
}

// Each get comes after a commit of another handle, which it follows by the journal.
TEST_F(Cost, OfFollowingAWriterIsNothing) {
  cost gets;
  for (int i = 0; i < measured; ++i) {
    ASSERT_EQ(bystander_.insert(sample(3 + i * 4, 20)), 0);
    spent = {};
    get(h_, 2 + i * 4);
    gets.calls += spent.calls;
    gets.flushes += spent.flushes;
    gets.allocations += spent.allocations;
  }
  EXPECT_EQ(gets, (cost{0, 0, 0}));
}

// Three changes, of which the second one ends the life of the journal, behind some that are known.
TEST_F(Cost, OfFollowingAWriterOverACheckpointIsNothing) {
  const std::uint64_t kept = engine::checkpoint_at;
  cost gets;
  for (int i = 0; i < measured; ++i) {
    const int next = 1001 + i * 8;
    for (int known = 0; known < 5; ++known) ASSERT_EQ(bystander_.insert(sample(next + known, 20)), 0);
    get(h_, next);
    ASSERT_EQ(bystander_.insert(sample(next + 5, 20)), 0);
    const std::uint64_t life = bystander_.get()->journal->log.salt;
    engine::checkpoint_at = 1;
    ASSERT_EQ(bystander_.insert(sample(next + 6, 20)), 0);
    engine::checkpoint_at = kept;
    ASSERT_NE(bystander_.get()->journal->log.salt, life);
    ASSERT_EQ(bystander_.insert(sample(next + 7, 20)), 0);
    spent = {};
    get(h_, next + 6);
    gets.calls += spent.calls;
    gets.flushes += spent.flushes;
    gets.allocations += spent.allocations;
  }
  EXPECT_EQ(gets, (cost{0, 0, 0}));
}

// A find and a read, each under its lock, when it has seen that nobody writes, and a few nodes.
TEST_F(Cost, OfAGetOutOfTheFileIsALockAndTheReads) {
  for (int i = 0; i < 10; ++i) {   // who misses more than that reads nodes beside them too
    engine::purgefile(h_);
    spent = {};
    get(h_, 2 + i * 4);
    const int nodes = h_.get()->blocks;
    ASSERT_LE(nodes, 6);
    ASSERT_EQ(spent, (cost{2 * 3 + nodes, 0, 0}));
  }
}

// A handle that comes beside another one, and goes.
TEST_F(Cost, OfAnOpenBesideAnotherHandleIsAFewCalls) {
  come_back();
  handle third;
  third.journal = engine::journal_use::on;
  spent = {};
  ASSERT_EQ(third.open_for_work(folder_.file("cost")), 0);
  EXPECT_FALSE(engine::tells_of_transaction(third));
  EXPECT_EQ(spent, (cost{17, 0, 2}));
  ASSERT_EQ(third.close(), 0);
}

// What opens and closes leave in a journal without a change is read by the next one to open.
TEST_F(Cost, OfAnOpenDoesNotGrowWithTheOpensBefore) {
  come_back();
  spent = {};
  std::uint64_t longest = 0;
  for (int i = 0; i < measured; ++i) {
    handle third;
    third.journal = engine::journal_use::on;
    ASSERT_EQ(third.open_for_work(folder_.file("cost")), 0);
    longest = std::max(longest, third.get()->journal->log.at.end);
    ASSERT_EQ(third.close(), 0);
    get(h_, 2 + i * 4);
  }
  EXPECT_EQ(longest, 4096u + 15 * 512u);
  EXPECT_EQ(spent.flushes, 0);
  ASSERT_EQ(bystander_.insert(sample(3, 20)), 0);
  get(h_, 3);
}

}  // namespace
}  // namespace zvrdb::test
