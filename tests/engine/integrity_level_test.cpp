// What each integrity level writes, and when.
#include <gtest/gtest.h>

#include <set>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/faulty_os.h"
#include "engine/header_page.h"
#include "engine/node_cache.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

// Nodes written, by what they are.
struct writes {
  int headers = 0;
  int flushes = 0;
  int flags = 0;
  std::set<std::int32_t> leaves, inner;
  bool header_first = false;   // of all headers and nodes
};

class Levels : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    engine::set_cache_blocks(200);
    install_faulty_os();
    path_ = folder_.file("level");
    file_recipe recipe = sample_recipe(false, 60, 600);
    recipe.spare_nodes = 90;   // so that nothing grows
    write_file(path_, build_file(recipe).bytes);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    remove_faulty_os();
    engine::set_cache_blocks(10);
    check_result result = check_file(path_, false);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  int level() const { return GetParam(); }
  bool header_at_once() const { return level() >= 1 && level() <= 3; }
  void open(char access) {
    ASSERT_EQ(h_.open(path_, access), 0);
    ASSERT_EQ(engine::csetfile(h_, level()), 0);
    ASSERT_GE(h_.get()->depth, 2);
  }
  int add(int i) {
    const std::string key = "split" + std::to_string(1000 + i);
    return engine::badd(h_, 2, reinterpret_cast<const std::uint8_t*>(key.c_str()), 5000 + i, nullptr, 0);
  }
  bool is_leaf(std::int32_t n) {
    EXPECT_EQ(engine::nodeget(h_, nullptr, n), 0);
    return h_.get()->current->level == 0;
  }
  writes written() {
    const std::vector<os_event> all = events();
    writes w;
    bool first = true;
    for (const os_event& e : all) {
      w.flushes += e.call == os_call::flush;
      if (e.call != os_call::write) continue;
      if (e.offset == 1010) {
        w.flags++;
        continue;
      }
      w.headers += e.offset == 0;
      if (first) w.header_first = e.offset == 0;
      first = false;
      if (e.offset == 0) continue;
      const auto n = static_cast<std::int32_t>(e.offset / 1024 - 1);
      (is_leaf(n) ? w.leaves : w.inner).insert(n);
    }
    return w;
  }
  // Adds entries until a leaf splits; what the operation that split it wrote.
  writes writes_of_a_split() {
    for (int i = 0; i < 200; i++) {
      const std::int32_t next = h_.get()->nextnode;
      clear_events();
      EXPECT_EQ(add(i), 0);
      if (h_.get()->nextnode != next) return written();
    }
    ADD_FAILURE() << "no leaf was split";
    return {};
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(EveryOne, Levels, ::testing::Range(0, 5));

TEST_P(Levels, WriteNodesOfAnExclusiveFileAsTheirRowTells) {
  open('E');
  const writes w = writes_of_a_split();
  EXPECT_EQ(w.leaves.size() >= 2, level() >= 2);
  EXPECT_EQ(w.leaves.empty(), level() < 2);
  EXPECT_EQ(w.inner.empty(), level() < 3);
  // Level 4 writes the header once, at the end of the operation.
  EXPECT_EQ(w.headers, level() == 0 ? 0 : 1);
  EXPECT_EQ(w.header_first, level() >= 1);
  EXPECT_EQ(w.flags, level() == 4 ? 2 : 0);
  EXPECT_EQ(w.flushes, level() == 0 ? 0 : level() == 4 ? 3 : 1);
}

TEST_P(Levels, WriteNodesOfASharedFileAtTheEndOfTheOperation) {
  open('S');
  EXPECT_EQ(h_.get()->intlevel, level() == 2 || level() == 3 ? 1 : level());
  const writes w = writes_of_a_split();
  EXPECT_GE(w.leaves.size(), 2U);
  EXPECT_FALSE(w.inner.empty());
  // Once at the allocation of the node, once with the flush.
  EXPECT_EQ(w.headers, header_at_once() ? 2 : 1);
  EXPECT_TRUE(w.header_first);
  EXPECT_EQ(w.flags, level() == 4 ? 2 : 0);
  EXPECT_EQ(w.flushes, level() == 4 ? 3 : 1);
}

TEST(SplitOrder, IsNewNodeOldNodeRightNeighbourParent) {
  scratch_folder folder;
  const std::string path = folder.file("split");
  file_recipe recipe = sample_recipe(false, 60, 600);
  recipe.spare_nodes = 90;
  write_file(path, build_file(recipe).bytes);
  engine::set_cache_blocks(200);
  install_faulty_os();
  {
    handle h;
    ASSERT_EQ(h.open(path, 'E'), 0);
    ASSERT_EQ(h.get()->intlevel, 3);
    bool seen = false;
    for (int i = 0; i < 200 && !seen; i++) {
      const std::int32_t fresh = h.get()->nextnode;
      const std::string key = "split" + std::to_string(1000 + i);
      clear_events();
      ASSERT_EQ(engine::badd(h, 2, reinterpret_cast<const std::uint8_t*>(key.c_str()), 5000 + i, nullptr, 0), 0);
      if (h.get()->nextnode == fresh) continue;
      seen = true;
      std::vector<std::int32_t> order;
      for (const os_event& e : events())
        if (e.call == os_call::write && e.offset >= 1024)
          order.push_back(static_cast<std::int32_t>(e.offset / 1024 - 1));
      ASSERT_EQ(order.size(), 4U);
      EXPECT_EQ(order[0], fresh);
      ASSERT_EQ(engine::nodeget(h, nullptr, fresh), 0);
      EXPECT_EQ(order[1], h.get()->current->prev);
      EXPECT_EQ(order[2], h.get()->current->next);
      EXPECT_EQ(order[3], h.get()->path_nodes[1]);
    }
    EXPECT_TRUE(seen);
    EXPECT_EQ(h.close(), 0);
  }
  remove_faulty_os();
  engine::set_cache_blocks(10);
}

TEST_P(Levels, OneToThreeWriteTheHeaderAsSoonAsACounterMoves) {
  open('E');
  ASSERT_EQ(engine::wrenter(h_), 0);
  clear_events();
  ASSERT_EQ(engine::header_changed(h_), 0);
  EXPECT_EQ(written().headers, header_at_once() ? 1 : 0);
  EXPECT_EQ(h_.get()->hdrdirty, header_at_once() ? 0 : 1);
  ASSERT_EQ(engine::wrleave(h_), 0);
  // A record takes a number and is counted.
  clear_events();
  ASSERT_EQ(h_.insert(sample(100)), 0);
  const writes w = written();
  EXPECT_EQ(w.headers >= 2, header_at_once());
  EXPECT_EQ(w.headers == 0, level() == 0);
}

TEST_P(Levels, AreOneForASharedFileAndThreeForAnExclusiveOneAtFirst) {
  ASSERT_EQ(h_.open(path_, 'S'), 0);
  EXPECT_EQ(h_.get()->intlevel, 1);
  ASSERT_EQ(h_.close(), 0);
  ASSERT_EQ(h_.open(path_, 'E'), 0);
  EXPECT_EQ(h_.get()->intlevel, 3);
  EXPECT_EQ(engine::csetfile(h_, level()), 0);
  EXPECT_EQ(h_.get()->intlevel, level());
}

// ---- The append shortcut

TEST(AppendShortcut, PutsRisingRecordsWithoutADescent) {
  scratch_folder folder;
  engine::set_cache_blocks(1);   // so that every node but the one at hand must be read
  install_faulty_os();
  {
    handle h;
    constexpr std::uint8_t no_key[] = {0};
    const std::uint8_t data[100] = {};
    ASSERT_EQ(h.create(folder.file("rising"), 'E'), 0);
    ASSERT_EQ(engine::csetfile(h, 0), 0);
    const auto reads_of_add = [&](int key, int rec) {
      clear_events();
      EXPECT_EQ(engine::badd(h, key, no_key, rec, data, sizeof data), 0);
      int reads = 0;
      for (const os_event& e : events()) reads += e.call == os_call::read;
      return reads;
    };
    int without_descent = 0;
    bool after_split = true;
    for (int rec = 1; rec <= 100; rec++) {
      const std::int32_t next = h.get()->nextnode;
      const int reads = reads_of_add(19, rec * 10);
      const bool split = h.get()->nextnode != next;
      if (!split && !after_split && h.get()->depth > 1) {
        EXPECT_EQ(reads, 0) << rec;
        without_descent++;
      }
      after_split = split;
    }
    EXPECT_GT(without_descent, 50);
    // A number below the last one is searched from the root, and so is the next after it.
    EXPECT_GT(reads_of_add(19, 5), 0);
    EXPECT_GT(reads_of_add(19, 2000), 0);
    EXPECT_EQ(reads_of_add(19, 2001), 0);
    // So is an entry of another key number, though it lies in no other leaf.
    EXPECT_GT(reads_of_add(20, 1), 0);
    EXPECT_EQ(h.close(), 0);
  }
  remove_faulty_os();
  engine::set_cache_blocks(10);
  EXPECT_EQ(check_file(folder.file("rising"), false).outcome, engine::report_outcome::sound);
}

}  // namespace
}  // namespace zvrdb::test
