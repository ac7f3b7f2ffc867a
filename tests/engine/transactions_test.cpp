#include <sys/wait.h>
#include <unistd.h>

#include "engine/format.h"
#include "engine/trans_log.h"
#include "engine_file.h"

namespace engine_test {
namespace {

using namespace zvrdb::engine;

class Transactions : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    ASSERT_EQ(h.create(path, GetParam(), 3, name_keys), 0);
    ASSERT_EQ(csetfile(h, 4), 0);
  }
  void insert_many(const char* stem, int n, std::size_t length = 100) {
    for (int i = 0; i < n; ++i) ASSERT_EQ(insert(h, {numbered(stem, i), "g", i, std::string(length, 'd')}), 0);
  }
  void remove(const std::string& name) {
    ASSERT_EQ(find_name(h, name), 0);
    record_fields f;
    ASSERT_EQ(dread(h, f.list), 0);
    ASSERT_EQ(dlock(h), 0);
    ASSERT_EQ(ddelete(h, f.list), 0);
  }
  std::size_t entries(int key) {
    std::size_t n = 0;
    for (int r = dseq(h, key, seq_first); r == 0; r = dseq(h, key, seq_next)) ++n;
    return n;
  }
  void reopen() {
    ASSERT_EQ(dclose(h), 0);
    ASSERT_EQ(h.open(path, GetParam(), 2, name_keys), 0);
    ASSERT_EQ(csetfile(h, 4), 0);
  }

  scratch_folder folder;
  std::string path = folder.file("transactions");
  handle h;
};
INSTANTIATE_TEST_SUITE_P(SharedAndExclusive, Transactions, ::testing::Values('S', 'E'));

TEST_P(Transactions, EndWithoutAChainIsNotFound) {
  EXPECT_EQ(transend(h, 1), -1);
  EXPECT_EQ(transend(h, 0), -2);
  EXPECT_EQ(transend(h, 4), -2);
}

TEST_P(Transactions, RollBackOfAHealthyFileHasNothingToDo) { EXPECT_EQ(transroll(h, nullptr, 0, nullptr), -114); }

TEST_P(Transactions, BeginNeedsLevelFour) {
  ASSERT_EQ(csetfile(h, 1), 0);
  EXPECT_EQ(transbeg(h, 3, nullptr), -41);
  ASSERT_EQ(csetfile(h, 4), 0);
  handle other;
  EXPECT_EQ(transbeg(h, 3, other), -2);
  EXPECT_EQ(transbeg(h, 1, other), -3);
  EXPECT_EQ(transbeg(h, 3, nullptr), 0);
}

TEST_P(Transactions, CommittedRecordsStay) {
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("n", 50);
  ASSERT_EQ(transend(h, 1), 0);
  EXPECT_EQ(transstat(h), 0);
  EXPECT_EQ(transroll(h, nullptr, 0, nullptr), -114);
  EXPECT_EQ(all_names(h).size(), 50u);
  // The log nodes are on the free chain and come back into use.
  EXPECT_GT(h.psp()->freenode, 0);
}

TEST_P(Transactions, RollBackTakesAddedRecordsOutAndLeavesTheSplits) {
  insert_many("a", 5);
  const int depth = h.psp()->depth;
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("n", 200);
  const int grown_depth = h.psp()->depth;
  ASSERT_GT(grown_depth, depth);
  const int nextrec = h.psp()->nextrec;
  ASSERT_EQ(transroll(h, nullptr, 0, nullptr), 0);
  EXPECT_EQ(all_names(h).size(), 5u);
  for (int key : {1, 2, 3}) EXPECT_EQ(entries(key), 5u) << key;
  EXPECT_EQ(h.psp()->depth, grown_depth);
  EXPECT_EQ(h.psp()->nextrec, nextrec);
  EXPECT_EQ(h.psp()->reccount, 205);
  EXPECT_EQ(transstat(h), 0);
  reopen();
  EXPECT_EQ(all_names(h).size(), 5u);
  insert_many("n", 20);
  EXPECT_EQ(all_names(h).size(), 25u);
}

TEST_P(Transactions, RollBackBringsDeletedAndChangedRecordsBack) {
  insert_many("n", 100, 600);
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  for (int i = 0; i < 100; i += 2) remove(numbered("n", i));
  for (int i = 1; i < 100; i += 2) {
    ASSERT_EQ(find_name(h, numbered("n", i)), 0);
    record_fields f({numbered("m", i), "other", i + 1000, std::string(30, 'e')});
    ASSERT_EQ(dlock(h), 0);
    ASSERT_EQ(dupdate(h, f.list), 0);
    ASSERT_EQ(dunlock(h), 0);
  }
  ASSERT_EQ(all_names(h).size(), 50u);
  ASSERT_EQ(transroll(h, nullptr, 0, nullptr), 0);
  const std::vector<std::string> names = all_names(h);
  ASSERT_EQ(names.size(), 100u);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(find_name(h, numbered("n", i)), 0);
    EXPECT_EQ(read_current(h), (record{numbered("n", i), "g", i, std::string(600, 'd')}));
  }
  EXPECT_EQ(entries(2), 100u);
  EXPECT_EQ(entries(3), 100u);
}

TEST_P(Transactions, ARecordAddedAndDeletedInOneComesBackToNothing) {
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("n", 1);
  remove(numbered("n", 0));
  ASSERT_EQ(transroll(h, nullptr, 0, nullptr), 0);
  for (int key : {1, 2, 3}) EXPECT_EQ(entries(key), 0u);
}

TEST_P(Transactions, AnEmptyOneRollsBackToNothing) {
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  EXPECT_EQ(transroll(h, nullptr, 0, nullptr), 0);
  EXPECT_EQ(transstat(h), 0);
}

TEST_P(Transactions, AChainOfManyNodesIsWalkedFromTheLastToTheFirst) {
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  const int head = h.psp()->transhead;
  insert_many("n", 40, 900);
  EXPECT_NE(h.psp()->lognode, head);
  static std::vector<double> shares;
  static std::vector<int> sequences;
  shares.clear();
  sequences.clear();
  const auto note = [](PSP*, double share, const log_view* r) {
    shares.push_back(share);
    if (share >= 0) sequences.push_back(r->sequence);
    return 0;
  };
  ASSERT_EQ(transroll(h, note, 0, nullptr), 0);
  ASSERT_FALSE(sequences.empty());
  EXPECT_EQ(sequences.back(), 1);
  for (std::size_t i = 1; i < sequences.size(); ++i) ASSERT_EQ(sequences[i], sequences[i - 1] - 1);
  EXPECT_EQ(shares.size(), sequences.size() * 2);
  EXPECT_DOUBLE_EQ(shares.back(), 1.0);
  EXPECT_TRUE(all_names(h).empty());
}

TEST_P(Transactions, AnEndThatKeepsTheChainAllocatedShowsIt) {
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("n", 30, 500);
  ASSERT_EQ(transend(h, 2), 0);
  EXPECT_EQ(transstat(h), -113);
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("m", 30, 500);
  ASSERT_EQ(transroll(h, nullptr, 0, nullptr), 0);
  EXPECT_EQ(all_names(h).size(), 30u);
  EXPECT_EQ(transstat(h), 0);
}

TEST_P(Transactions, AKeptChainHangsOnTheOneBefore) {
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("n", 1);
  const int first = h.psp()->transhead;
  ASSERT_EQ(transend(h, 3), 0);
  EXPECT_EQ(h.psp()->savedhead, first);
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("m", 1);
  ASSERT_EQ(transend(h, 3), 0);
  EXPECT_NE(h.psp()->savedhead, first);
  EXPECT_EQ(transstat(h), 0);
  EXPECT_EQ(all_names(h).size(), 2u);
}

TEST_P(Transactions, AnInterruptedOneIsRolledBackByTheNextOpener) {
  insert_many("a", 3);
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  insert_many("n", 60, 300);
  abandon(h);
  ASSERT_EQ(h.open(path, GetParam(), 2, name_keys), 0);
  ASSERT_EQ(csetfile(h, 4), 0);
  EXPECT_EQ(all_names(h).size(), 63u);
  EXPECT_EQ(transstat(h), -112);
  EXPECT_EQ(transbeg(h, 3, nullptr), -112);
  ASSERT_EQ(transroll(h, nullptr, 0, nullptr), 0);
  EXPECT_EQ(transstat(h), 0);
  EXPECT_EQ(all_names(h).size(), 3u);
  EXPECT_EQ(transbeg(h, 3, nullptr), 0);
}

TEST(SharedTransactions, AnotherHandleFindsItBusy) {
  scratch_folder folder;
  handle a;
  handle b;
  ASSERT_EQ(a.create(folder.file("f"), 'S', 3, name_keys), 0);
  ASSERT_EQ(b.open(folder.file("f"), 'S', 2, name_keys), 0);
  ASSERT_EQ(csetfile(a, 4), 0);
  ASSERT_EQ(csetfile(b, 4), 0);
  ASSERT_EQ(transbeg(a, 3, nullptr), 0);
  ASSERT_EQ(insert(a, {"one", "g", 1, "d"}), 0);
  EXPECT_EQ(transstat(a), -112);
  EXPECT_EQ(transstat(b), -111);
  EXPECT_EQ(transbeg(b, 3, nullptr), -111);
  EXPECT_EQ(transend(b, 1), -111);
  EXPECT_EQ(transroll(b, nullptr, 0, nullptr), -114);
  // The owner goes on undisturbed.
  ASSERT_EQ(insert(a, {"two", "g", 1, "d"}), 0);
  ASSERT_EQ(transroll(a, nullptr, 0, nullptr), 0);
  EXPECT_TRUE(all_names(b).empty());
}

TEST(SharedTransactions, AForkedChildLetsGoOfFilesWithoutUnlockingThem) {
  scratch_folder folder;
  handle a;
  handle b;
  ASSERT_EQ(a.create(folder.file("f"), 'S', 3, name_keys), 0);
  ASSERT_EQ(b.open(folder.file("f"), 'S', 2, name_keys), 0);
  ASSERT_EQ(csetfile(a, 4), 0);
  ASSERT_EQ(csetfile(b, 4), 0);
  ASSERT_EQ(transbeg(a, 3, nullptr), 0);
  ASSERT_EQ(insert(a, {"one", "g", 1, "d"}), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool closed = checkpsp(a) == 'C' && dinsert(a, nullptr) == -3;
    handle own;
    const bool opens = own.open(folder.file("f"), 'S', 2, name_keys) == 0 && find_name(own, "one") == 0;
    _exit(closed && opens ? 0 : 1);
  }
  int state = 0;
  ASSERT_EQ(waitpid(child, &state, 0), child);
  EXPECT_EQ(state, 0);
  // The owner's slot is still locked, and still the owner's alone.
  EXPECT_EQ(transstat(b), -111);
  ASSERT_EQ(insert(a, {"two", "g", 1, "d"}), 0);
  abandon(a);
  EXPECT_EQ(transstat(b), -112);
}

TEST(SharedTransactions, TwoFilesMayEachHaveOne) {
  scratch_folder folder;
  handle a;
  handle b;
  ASSERT_EQ(a.create(folder.file("a"), 'S', 3, name_keys), 0);
  ASSERT_EQ(b.create(folder.file("b"), 'S', 3, name_keys), 0);
  for (handle* h : {&a, &b}) {
    ASSERT_EQ(csetfile(*h, 4), 0);
    ASSERT_EQ(transbeg(*h, 3, nullptr), 0);
  }
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(insert(a, {numbered("a", i), "g", i, "d"}), 0);
    ASSERT_EQ(insert(b, {numbered("b", i), "g", i, "d"}), 0);
  }
  ASSERT_EQ(transroll(a, nullptr, 0, nullptr), 0);
  ASSERT_EQ(transend(b, 1), 0);
  EXPECT_TRUE(all_names(a).empty());
  EXPECT_EQ(all_names(b).size(), 50u);
}

TEST(SharedTransactions, ALockOfADeadHandleIsTakenOverInsideATransaction) {
  scratch_folder folder;
  handle dead;
  handle h;
  ASSERT_EQ(h.create(folder.file("f"), 'S', 3, name_keys), 0);
  ASSERT_EQ(dead.open(folder.file("f"), 'S', 2, name_keys), 0);
  ASSERT_EQ(csetfile(h, 4), 0);
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  ASSERT_EQ(find_name(dead, "one"), 0);
  ASSERT_EQ(dlock(dead), 0);
  abandon(dead);
  ASSERT_EQ(transbeg(h, 3, nullptr), 0);
  ASSERT_EQ(find_name(h, "one"), 0);
  EXPECT_EQ(dlock(h), 0);
  record_fields f({"one", "g", 2, "e"});
  EXPECT_EQ(dupdate(h, f.list), 0);
  ASSERT_EQ(transend(h, 1), 0);
}

}  // namespace
}  // namespace engine_test
