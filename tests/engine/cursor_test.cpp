// Cursors, and the entries they walk over, on the level of single values.
#include "engine/cursor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/key_search.h"
#include "engine/node_cache.h"
#include "engine/scratch_folder.h"
#include "engine/sharing.h"

namespace zvrdb::test {
namespace {

using namespace zvrdb::engine;

const std::uint8_t* bytes(const std::string& s) { return reinterpret_cast<const std::uint8_t*>(s.c_str()); }

std::string numbered(const char* stem, int n) {
  char text[32];
  std::snprintf(text, sizeof text, "%s%06d", stem, n);
  return text;
}

// Keys 1 to 3 hold strings.
inline constexpr key_entry string_keys[] = {{1, 0, {}, nullptr}, {2, 0, {}, nullptr}, {3, 0, {}, nullptr}, {}};

class Cursors : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override { ASSERT_EQ(h.create(folder.file("f"), GetParam(), 3, string_keys), 0); }
  int add(int key, const std::string& value, int recno, const std::string& data = "") {
    return badd(h, key, bytes(value), recno, bytes(data), static_cast<int>(data.size()));
  }
  int find(int key, const std::string& value, int recno = 0) { return bfind(h, key, bytes(value), recno, nullptr, 0); }
  std::string here() { return reinterpret_cast<const char*>(h.get()->keybuf); }
  std::vector<std::string> forward(int key) {
    std::vector<std::string> all;
    for (int r = bfirst(h, key, nullptr, 0); r == 0; r = bnext(h, key, nullptr, 0)) all.push_back(here());
    return all;
  }
  std::vector<std::string> backward(int key) {
    std::vector<std::string> all;
    for (int r = blast(h, key, nullptr, 0); r == 0; r = bprev(h, key, nullptr, 0)) all.push_back(here());
    return all;
  }
  // Nodes of a level from left to right, by their numbers.
  std::vector<int> leaves() {
    std::vector<int> all;
    EXPECT_EQ(rdenter(h), 0);
    int n = h.get()->root;
    while (true) {
      EXPECT_EQ(nodeget(h, nullptr, n), 0);
      if (h.get()->current->level == 0) break;
      n = h.get()->current->child0;
    }
    for (; n >= 0; n = h.get()->current->next) {
      EXPECT_EQ(nodeget(h, nullptr, n), 0);
      all.push_back(n);
    }
    EXPECT_EQ(rdleave(h), 0);
    return all;
  }
  node image(int n) {
    EXPECT_EQ(rdenter(h), 0);
    EXPECT_EQ(nodeget(h, nullptr, n), 0);
    const node v = *h.get()->current;
    EXPECT_EQ(rdleave(h), 0);
    return v;
  }

  scratch_folder folder;
  handle h;
};
INSTANTIATE_TEST_SUITE_P(SharedAndExclusive, Cursors, ::testing::Values('S', 'E'));

TEST_P(Cursors, ASearchBehindTheLastEntryOfAKeyStandsOnTheNextKey) {
  ASSERT_EQ(add(1, "a", 1), 0);
  ASSERT_EQ(add(2, "b", 1), 0);
  EXPECT_EQ(find(1, "z"), -1);
  EXPECT_EQ(h.get()->cursors[0]->ckeyno, 2);
  EXPECT_EQ(bnext(h, 1, nullptr, 0), -1);
  EXPECT_EQ(bprev(h, 1, nullptr, 0), 0);
  EXPECT_EQ(here(), "a");
}

TEST_P(Cursors, NextWithoutAPositionIsTheFirst) {
  ASSERT_EQ(add(1, "a", 1), 0);
  ASSERT_EQ(dclose(h), 0);
  ASSERT_EQ(h.open(folder.file("f"), GetParam(), 2, string_keys), 0);
  ASSERT_EQ(bnext(h, 1, nullptr, 0), 0);
  EXPECT_EQ(here(), "a");
}

TEST_P(Cursors, FindTellsExactSameKeyAndGreater) {
  ASSERT_EQ(add(1, "b", 5), 0);
  EXPECT_EQ(find(1, "b", 5), 0);
  EXPECT_EQ(find(1, "b", 4), 1);
  EXPECT_EQ(find(1, "a", 9), 2);
  EXPECT_EQ(find(1, "b", 6), -1);
  EXPECT_EQ(find(2, "b", 5), -1);
}

TEST_P(Cursors, ADeletedEntryGivesItsNeighboursWithoutANewSearch) {
  for (int i = 0; i < 5; ++i) ASSERT_EQ(add(18, std::string(1, static_cast<char>('a' + i)), i + 1), 0);
  const auto delete_c = [&] {
    ASSERT_EQ(find(18, "c", 3), 0);
    ASSERT_EQ(bdelcur(h, 18), 0);
  };
  delete_c();
  EXPECT_EQ(bcurrent(h, 18, nullptr, 0), -1);
  ASSERT_EQ(bnext(h, 18, nullptr, 0), 0);
  EXPECT_EQ(here(), "d");
  ASSERT_EQ(add(18, "c", 3), 0);
  delete_c();
  ASSERT_EQ(bprev(h, 18, nullptr, 0), 0);
  EXPECT_EQ(here(), "b");
  ASSERT_EQ(bnext(h, 18, nullptr, 0), 0);
  EXPECT_EQ(here(), "d");
}

TEST_P(Cursors, EmptyLeavesAreSkippedInBothDirections) {
  std::vector<std::string> all;
  for (int i = 0; i < 1200; ++i) {
    all.push_back(numbered("k", i));
    ASSERT_EQ(add(18, all.back(), 1), 0);
  }
  const std::vector<int> chain = leaves();
  ASSERT_GT(chain.size(), 10u);
  // The middle half goes, and with it all entries of several leaves.
  for (int i = 300; i < 900; ++i) ASSERT_EQ(bdelete(h, 18, bytes(all[static_cast<std::size_t>(i)]), 1), 0);
  EXPECT_EQ(leaves(), chain);
  int empty = 0;
  for (int n : chain) empty += image(n).count == 0 ? 1 : 0;
  EXPECT_GT(empty, 2);
  all.erase(all.begin() + 300, all.begin() + 900);
  EXPECT_EQ(forward(18), all);
  std::reverse(all.begin(), all.end());
  EXPECT_EQ(backward(18), all);
  // Separators of what is gone still lead there.
  ASSERT_EQ(add(18, numbered("k", 600), 1), 0);
  EXPECT_EQ(find(18, numbered("k", 600), 1), 0);
}

std::string long_value(int length) {
  std::string v(static_cast<std::size_t>(length), '\0');
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<char>((i * 31 + i / 243) & 0xFF);
  return v;
}

TEST_P(Cursors, AValueOf129PiecesReadsBackWhole) {
  ASSERT_EQ(add(19, "", 6, "before"), 0);
  ASSERT_EQ(add(19, "", 8, "behind"), 0);
  const std::string value = long_value(31346);
  EXPECT_EQ(add(19, "", 7, long_value(31347)), -2);
  ASSERT_EQ(add(19, "", 7, value), 0);
  std::vector<std::uint8_t> buffer(40000);
  ASSERT_EQ(bfind(h, 19, bytes(""), 7, buffer.data(), 40000), 0);
  EXPECT_EQ(h.get()->datalen, 31346);
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 31346), value);
  ASSERT_EQ(bfind(h, 19, bytes(""), 7, buffer.data(), 1000), 0);
  EXPECT_EQ(h.get()->datalen, 1000);
  EXPECT_EQ(h.get()->datafull, 31346);
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 1000), value.substr(0, 1000));
  // Over it in both directions, by values.
  ASSERT_EQ(bnext(h, 19, buffer.data(), 40000), 0);
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 6), "behind");
  ASSERT_EQ(bprev(h, 19, buffer.data(), 40000), 0);
  EXPECT_EQ(h.get()->datafull, 31346);
  ASSERT_EQ(bprev(h, 19, buffer.data(), 40000), 0);
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 6), "before");
  // It goes whole, and the others stay.
  ASSERT_EQ(bdelete(h, 19, bytes(""), 7), 0);
  EXPECT_EQ(forward(19).size(), 2u);
  ASSERT_EQ(bfind(h, 19, bytes(""), 7, nullptr, 0), 1);
}

TEST_P(Cursors, ReadingALongValueLeavesThePositionOnIt) {
  ASSERT_EQ(add(19, "", 1, long_value(5000)), 0);
  ASSERT_EQ(add(19, "", 2, "x"), 0);
  std::vector<std::uint8_t> buffer(6000);
  ASSERT_EQ(bfirst(h, 19, buffer.data(), 6000), 0);
  EXPECT_EQ(h.get()->recno, 1);
  EXPECT_EQ(h.get()->piece, 0);
  ASSERT_EQ(bnext(h, 19, buffer.data(), 6000), 0);
  EXPECT_EQ(h.get()->recno, 2);
}

TEST_P(Cursors, RisingKeysFillEachLeftNode) {
  // Entries of 7 + 9 = 16 bytes: 62 of them end at 992, the 63rd makes 1008.
  for (int i = 0; i < 63; ++i) ASSERT_EQ(add(1, numbered("ab", i), 1), 0);
  const std::vector<int> chain = leaves();
  ASSERT_EQ(chain.size(), 2u);
  EXPECT_EQ(image(chain[0]).count, 62);
  EXPECT_EQ(image(chain[1]).count, 1);
}

TEST_P(Cursors, AnExactlyFullNodeIsNotSplit) {
  // 62 entries of 16 bytes and one of 14 make 1006.
  for (int i = 0; i < 62; ++i) ASSERT_EQ(add(1, numbered("ab", i), 1), 0);
  ASSERT_EQ(add(1, "zzzzzz", 1), 0);
  EXPECT_EQ(leaves().size(), 1u);
  EXPECT_EQ(image(0).room, 0);
  EXPECT_EQ(forward(1).size(), 63u);
}

TEST_P(Cursors, ASplitOfTheRootAddsALevel) {
  EXPECT_EQ(h.get()->depth, 1);
  const int old_root = h.get()->root;
  for (int i = 0; i < 63; ++i) ASSERT_EQ(add(1, numbered("ab", i), 1), 0);
  EXPECT_EQ(h.get()->depth, 2);
  EXPECT_NE(h.get()->root, old_root);
  const node root = image(h.get()->root);
  EXPECT_EQ(root.level, 1);
  EXPECT_EQ(root.count, 1);
  EXPECT_EQ(root.child0, old_root);
}

TEST_P(Cursors, ReplacingAValueByAShorterOneRemovesAllOldPieces) {
  ASSERT_EQ(add(3, "k", 1, long_value(3000)), 0);
  ASSERT_EQ(bstore(h, 3, bytes("k"), 1, bytes("short"), 5, store_replace), 0);
  std::vector<std::uint8_t> buffer(4000);
  ASSERT_EQ(bfind(h, 3, bytes("k"), 1, buffer.data(), 4000), 0);
  EXPECT_EQ(h.get()->datafull, 5);
  int total = 0;
  for (int n : leaves()) total += image(n).count;
  EXPECT_EQ(total, 1);
  EXPECT_EQ(bstore(h, 3, bytes("l"), 1, bytes("x"), 1, store_replace), -1);
  EXPECT_EQ(bstore(h, 3, bytes("l"), 1, bytes("x"), 1, store_any), 0);
  EXPECT_EQ(bstore(h, 3, bytes("l"), 1, bytes("x"), 1, store_new), -1);
}

TEST_P(Cursors, AValueOverALeafBoundaryIsDeletedWhole) {
  for (int r = 1; r <= 20; ++r) ASSERT_EQ(add(19, "", r, long_value(700)), 0);
  for (int r = 1; r <= 20; r += 2) ASSERT_EQ(bdelete(h, 19, bytes(""), r), 0);
  std::vector<std::uint8_t> buffer(1000);
  for (int r = 1; r <= 20; ++r) {
    const int found = bfind(h, 19, bytes(""), r, buffer.data(), 1000);
    if (r % 2 == 1) {
      EXPECT_EQ(found, 1);
    } else {
      ASSERT_EQ(found, 0);
      EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 700), long_value(700));
    }
  }
}

TEST_P(Cursors, AUniqueAddOfAKeyUnderAnotherRecordChangesNothing) {
  ASSERT_EQ(baddu(h, 1, bytes("k"), 5, bytes(""), 0), 0);
  const node before = image(0);
  EXPECT_EQ(baddu(h, 1, bytes("k"), 9, bytes(""), 0), -1);
  EXPECT_EQ(baddu(h, 1, bytes("k"), 5, bytes(""), 0), -1);
  const node after = image(0);
  EXPECT_EQ(std::memcmp(&before, &after, 1024), 0);
}

TEST_P(Cursors, CursorsOfOtherKeysStayOnTheirEntriesThroughSplits) {
  for (int i = 0; i < 40; ++i) ASSERT_EQ(add(2, numbered("m", i), 1), 0);
  ASSERT_EQ(find(2, numbered("m", 20), 1), 0);
  for (int i = 0; i < 200; ++i) ASSERT_EQ(add(1, numbered("a", (i * 37) % 200), 1), 0);
  ASSERT_EQ(bcurrent(h, 2, nullptr, 0), 0);
  EXPECT_EQ(here(), numbered("m", 20));
  ASSERT_EQ(bnext(h, 2, nullptr, 0), 0);
  EXPECT_EQ(here(), numbered("m", 21));
  for (int i = 0; i < 200; ++i) ASSERT_EQ(bdelete(h, 1, bytes(numbered("a", i)), 1), 0);
  ASSERT_EQ(bprev(h, 2, nullptr, 0), 0);
  EXPECT_EQ(here(), numbered("m", 20));
}

TEST_P(Cursors, WalksTurnRoundAtBothEnds) {
  for (int i = 0; i < 3; ++i) ASSERT_EQ(add(2, numbered("m", i), 1), 0);
  ASSERT_EQ(bfirst(h, 2, nullptr, 0), 0);
  EXPECT_EQ(bprev(h, 2, nullptr, 0), -1);
  ASSERT_EQ(bnext(h, 2, nullptr, 0), 0);
  EXPECT_EQ(here(), numbered("m", 0));
  ASSERT_EQ(blast(h, 2, nullptr, 0), 0);
  EXPECT_EQ(bnext(h, 2, nullptr, 0), -1);
  EXPECT_EQ(bnext(h, 2, nullptr, 0), -1);
  ASSERT_EQ(bprev(h, 2, nullptr, 0), 0);
  EXPECT_EQ(here(), numbered("m", 2));
}

TEST_P(Cursors, SteppingBackFindsALeafThatItsRightNeighbourDoesNotKnow) {
  std::vector<std::string> all;
  for (int i = 0; i < 300; ++i) {
    all.push_back(numbered("k", i));
    ASSERT_EQ(add(1, all.back(), 1), 0);
  }
  const std::vector<int> chain = leaves();
  ASSERT_GT(chain.size(), 3u);
  ASSERT_EQ(wrenter(h), 0);
  ASSERT_EQ(nodeget(h, &main_buffer, chain[2]), 0);
  main_buffer.image.prev = chain[0];
  ASSERT_EQ(nodeput(h, main_buffer, chain[2]), 0);
  ASSERT_EQ(wrleave(h), 0);
  std::reverse(all.begin(), all.end());
  EXPECT_EQ(backward(1), all);
}

TEST_P(Cursors, BadArgumentsAreRefused) {
  EXPECT_EQ(find(0, "a"), -2);
  EXPECT_EQ(find(21, "a"), -2);
  EXPECT_EQ(bstore(h, 21, bytes("a"), 1, bytes(""), 0, store_any), -2);
  EXPECT_EQ(add(1, std::string(242, 'x'), 1), -2);
  EXPECT_EQ(add(1, std::string(241, 'x'), 1), 0);
  handle closed;
  EXPECT_EQ(bnext(closed, 1, nullptr, 0), -3);
}

TEST(SharedCursors, AStalePositionIsFoundAgainByKey) {
  scratch_folder folder;
  handle a;
  handle b;
  ASSERT_EQ(a.create(folder.file("f"), 'S', 3, string_keys), 0);
  ASSERT_EQ(b.open(folder.file("f"), 'S', 2, string_keys), 0);
  const std::uint8_t none[] = {0};
  for (int i = 0; i < 100; i += 2) ASSERT_EQ(badd(a, 18, bytes(numbered("k", i)), 1, none, 0), 0);
  ASSERT_EQ(bfind(b, 18, bytes(numbered("k", 50)), 1, nullptr, 0), 0);
  // Another handle moves everything.
  for (int i = 1; i < 100; i += 2) ASSERT_EQ(badd(a, 18, bytes(numbered("k", i)), 1, none, 0), 0);
  ASSERT_EQ(bnext(b, 18, nullptr, 0), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(b.get()->keybuf), numbered("k", 51));
  ASSERT_EQ(bdelete(a, 18, bytes(numbered("k", 51)), 1), 0);
  EXPECT_EQ(bcurrent(b, 18, nullptr, 0), -16);
  ASSERT_EQ(bnext(b, 18, nullptr, 0), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(b.get()->keybuf), numbered("k", 52));
  ASSERT_EQ(bdelete(a, 18, bytes(numbered("k", 52)), 1), 0);
  ASSERT_EQ(bprev(b, 18, nullptr, 0), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(b.get()->keybuf), numbered("k", 50));
  // The last entry goes, and nothing is behind it.
  ASSERT_EQ(bfind(b, 18, bytes(numbered("k", 99)), 1, nullptr, 0), 0);
  ASSERT_EQ(bdelete(a, 18, bytes(numbered("k", 99)), 1), 0);
  EXPECT_EQ(bcurrent(b, 18, nullptr, 0), -16);
  ASSERT_EQ(bprev(b, 18, nullptr, 0), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(b.get()->keybuf), numbered("k", 98));
}

TEST(SharedCursors, AStaleStepGoesToTheNextPieceAndBehindTheLastToTheNextValue) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("f"), 'S', 3, string_keys), 0);
  const std::vector<std::uint8_t> longest(31346, 'd'), single(10, 's');
  const auto put = [&](int recno, const std::vector<std::uint8_t>& data) {
    return badd(h, 19, bytes(""), recno, data.data(), static_cast<int>(data.size()));
  };
  ASSERT_EQ(put(4, single), 0);
  ASSERT_EQ(put(5, longest), 0);
  ASSERT_EQ(put(6, single), 0);
  ASSERT_EQ(bfind(h, 19, bytes(""), 4, nullptr, 0), 0);
  ASSERT_EQ(rdenter(h), 0);
  h.get()->keyno = 19;
  const auto step = [&] {
    cursor_of(h, 19).cstale = 1;
    return stepfwd(h);
  };
  for (int piece = 0; piece < 129; ++piece) {
    ASSERT_EQ(step(), 0) << piece;
    ASSERT_EQ(h.get()->recno, 5) << piece;
    ASSERT_EQ(h.get()->piece, piece == 128 ? 0x80 : piece);
  }
  ASSERT_EQ(step(), 0);
  EXPECT_EQ(h.get()->recno, 6);
  EXPECT_EQ(step(), -1);
  ASSERT_EQ(rdleave(h), 0);
}

TEST(SharedCursors, EachKeyHasOnePlaceForAllWhoWalkIt) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("f"), 'S', 3, string_keys), 0);
  for (int i = 0; i < 5; ++i)
    for (int key : {1, 2}) ASSERT_EQ(badd(h, key, bytes(numbered("k", i)), 1, nullptr, 0), 0);
  ASSERT_EQ(bfirst(h, 1, nullptr, 0), 0);
  ASSERT_EQ(bnext(h, 1, nullptr, 0), 0);
  // A second walk of the key moves the place of the first, one of another key doesn't.
  ASSERT_EQ(blast(h, 2, nullptr, 0), 0);
  ASSERT_EQ(bnext(h, 1, nullptr, 0), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(h.get()->keybuf), numbered("k", 2));
  ASSERT_EQ(bfirst(h, 1, nullptr, 0), 0);
  ASSERT_EQ(bnext(h, 1, nullptr, 0), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(h.get()->keybuf), numbered("k", 1));
}

}  // namespace
}  // namespace zvrdb::test
