// Entries and cursors below the record layer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/entry_update.h"
#include "engine/psp.h"
#include "engine/record_locks.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::e_not_found;

const engine::key_entry entry_keys[] = {{1, 2, {}, nullptr}, {2, 0, {}, nullptr}, {3, 3, {}, nullptr}, {0, 0, {}, nullptr}};

std::string counted(const std::string& text) { return static_cast<char>(text.size()) + text; }
const std::uint8_t* raw(const std::string& text) { return reinterpret_cast<const std::uint8_t*>(text.data()); }

class Entry : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    path_ = folder_.file("entries");
    ASSERT_EQ(h_.create(path_, GetParam(), 1, entry_keys), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    check_result result = check_file(path_, false);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  bool shared() const { return GetParam() == 'S'; }
  int add(int key, const std::string& value, std::int32_t rec, const std::string& data = "") {
    return engine::badd(h_, key, raw(value), rec, raw(data), static_cast<int>(data.size()));
  }
  int find(int key, const std::string& value, std::int32_t rec) {
    return engine::bfind(h_, key, raw(value), rec, buffer_, sizeof buffer_);
  }
  std::string value_here() { return {reinterpret_cast<const char*>(buffer_), static_cast<std::size_t>(h_.get()->datalen)}; }
  std::string number(std::int32_t n) { return bytes32(false, static_cast<std::uint32_t>(n)); }
  engine::cursor& cursor(int key) { return engine::cursor_of(h_, key); }
  engine::file_summary summary() {
    engine::file_summary s;
    std::string reason;
    engine::dflush(h_);
    engine::summarize_file(path_.c_str(), &s, &reason);
    return s;
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
  std::uint8_t buffer_[40000];
};

INSTANTIATE_TEST_SUITE_P(Access, Entry, ::testing::Values('S', 'E'),
                         [](const auto& a) { return a.param == 'S' ? "Shared" : "Exclusive"; });

class SharedEntry : public Entry {};
INSTANTIATE_TEST_SUITE_P(Access, SharedEntry, ::testing::Values('S'), [](const auto&) { return "Shared"; });

TEST_P(Entry, FindTellsExactHigherRecordGreaterValueAndNone) {
  ASSERT_EQ(add(3, number(10), 5), 0);
  ASSERT_EQ(add(3, number(20), 5), 0);
  EXPECT_EQ(find(3, number(10), 5), 0);
  EXPECT_EQ(find(3, number(10), 4), 1);
  EXPECT_EQ(find(3, number(10), 6), 2);
  EXPECT_EQ(find(3, number(11), 0), 2);
  EXPECT_EQ(find(3, number(-1), 0), 2);
  EXPECT_EQ(find(3, number(20), 6), e_not_found);
}

TEST_P(Entry, FindBehindAKeyNumberStandsOnTheNextOne) {
  ASSERT_EQ(add(1, counted("a"), 1), 0);
  ASSERT_EQ(add(2, std::string("b\0", 2), 1), 0);
  EXPECT_EQ(find(1, counted("z"), 0), e_not_found);
  EXPECT_EQ(cursor(1).ckeyno, 2);
  EXPECT_EQ(engine::bprev(h_, 1, nullptr, 0), 0);
  EXPECT_EQ(cursor(1).ckeyno, 1);
}

TEST_P(Entry, FirstAndLastStayInsideTheirKeyNumber) {
  for (int key : {1, 2, 3})
    EXPECT_EQ(engine::bfirst(h_, key, nullptr, 0), e_not_found);
  ASSERT_EQ(add(1, counted(""), 1), 0);
  ASSERT_EQ(add(1, counted(std::string(60, '\xFF')), 1), 0);
  ASSERT_EQ(add(3, number(-2000000000), 1), 0);
  EXPECT_EQ(engine::bfirst(h_, 2, nullptr, 0), e_not_found);
  EXPECT_EQ(engine::blast(h_, 2, nullptr, 0), e_not_found);
  EXPECT_EQ(engine::bfirst(h_, 3, nullptr, 0), 0);
  EXPECT_EQ(engine::bprev(h_, 3, nullptr, 0), e_not_found);
  EXPECT_EQ(engine::blast(h_, 1, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->keybuf[0], 60);
  EXPECT_EQ(engine::bfirst(h_, 1, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->keybuf[0], 0);
}

TEST_P(Entry, AValueIsCutInPiecesAndReadWhole) {
  for (std::size_t length : {0U, 1U, 239U, 240U, 241U, 480U, 5000U, 31000U}) {
    std::string data;
    for (std::size_t i = 0; i < length; i++) data += static_cast<char>(i * 7 + length);
    ASSERT_EQ(add(3, number(static_cast<std::int32_t>(length)), 9, data), length / 240 < 129 ? 0 : engine::e_bad_argument) << length;
    if (length / 240 >= 129) continue;
    ASSERT_EQ(find(3, number(static_cast<std::int32_t>(length)), 9), 0);
    EXPECT_EQ(value_here(), data);
    EXPECT_EQ(h_.get()->datafull, static_cast<int>(length));
  }
}

TEST_P(Entry, AValueOf129PiecesReadsBackWholeAndIsDeletedWhole) {
  std::string nul(1, '\0');
  std::string longest;
  for (int i = 0; i < 31346; i++) longest += static_cast<char>(i % 251);
  ASSERT_EQ(add(19, nul, 4, "before"), 0);
  ASSERT_EQ(add(19, nul, 6, "behind"), 0);
  EXPECT_EQ(add(19, nul, 5, longest + "x"), engine::e_bad_argument);
  ASSERT_EQ(add(19, nul, 5, longest), 0);
  ASSERT_EQ(find(19, nul, 5), 0);
  EXPECT_EQ(value_here(), longest);
  std::uint8_t part[1000];
  ASSERT_EQ(engine::bfind(h_, 19, raw(nul), 5, part, sizeof part), 0);
  EXPECT_EQ(h_.get()->datalen, 1000);
  EXPECT_EQ(h_.get()->datafull, 31346);
  EXPECT_EQ(std::memcmp(part, longest.data(), sizeof part), 0);
  ASSERT_EQ(engine::bnext(h_, 19, buffer_, sizeof buffer_), 0);
  EXPECT_EQ(value_here(), "behind");
  ASSERT_EQ(engine::bprev(h_, 19, buffer_, sizeof buffer_), 0);
  EXPECT_EQ(value_here(), longest);
  ASSERT_EQ(engine::bprev(h_, 19, buffer_, sizeof buffer_), 0);
  EXPECT_EQ(value_here(), "before");
  EXPECT_EQ(check_file(path_, false).outcome, engine::report_outcome::sound);
  ASSERT_EQ(engine::bdelete(h_, 19, raw(nul), 5), 0);
  EXPECT_EQ(summary().entries_by_key[19], 2U);
}

TEST_P(Entry, StoreModesTestTheFirstPiece) {
  std::string value = number(1);
  auto store = [&](const std::string& data, int mode) {
    return engine::bstore(h_, 3, raw(value), 1, raw(data), static_cast<int>(data.size()), mode);
  };
  EXPECT_EQ(store("a", engine::store_replace), e_not_found);
  EXPECT_EQ(store("a", engine::store_replace_locked), e_not_found);
  EXPECT_EQ(store("a", engine::store_new), 0);
  EXPECT_EQ(store("b", engine::store_new), e_not_found);
  ASSERT_EQ(find(3, value, 1), 0);
  EXPECT_EQ(value_here(), "a");
  EXPECT_EQ(store("c", engine::store_any), 0);
  EXPECT_EQ(store(std::string(3000, 'd'), engine::store_replace), 0);
  ASSERT_EQ(find(3, value, 1), 0);
  EXPECT_EQ(value_here(), std::string(3000, 'd'));
  EXPECT_EQ(summary().entries_by_key[3], 13U);
}

TEST_P(Entry, ReplacingByAShorterValueRemovesAllOldPieces) {
  for (int rec = 1; rec <= 5; rec++) ASSERT_EQ(add(3, number(1), rec, std::string(4000, static_cast<char>('0' + rec))), 0);
  std::string shorter = "short";
  for (int rec : {3, 1, 5})
    ASSERT_EQ(engine::bstore(h_, 3, raw(number(1)), rec, raw(shorter), 5, engine::store_any), 0);
  EXPECT_EQ(summary().entries_by_key[3], 3U + 2U * 17U);
  for (int rec = 1; rec <= 5; rec++) {
    ASSERT_EQ(find(3, number(1), rec), 0);
    EXPECT_EQ(value_here(), rec % 2 ? shorter : std::string(4000, static_cast<char>('0' + rec)));
  }
}

TEST_P(Entry, AValueThatCrossesLeavesIsDeletedWhole) {
  for (int rec = 1; rec <= 9; rec++) ASSERT_EQ(add(3, number(1), rec, std::string(3000, 'x')), 0);
  for (int rec : {4, 5, 1, 9}) ASSERT_EQ(engine::bdelete(h_, 3, raw(number(1)), rec), 0);
  EXPECT_EQ(summary().entries_by_key[3], 5U * 13U);
  for (int rec = 1; rec <= 9; rec++)
    EXPECT_EQ(find(3, number(1), rec) == 0, rec == 2 || rec == 3 || rec == 6 || rec == 7 || rec == 8) << rec;
}

TEST_P(Entry, AddUniqueRefusesAKeyUnderAnotherRecordAndChangesNothing) {
  ASSERT_EQ(add(3, number(1), 5, "kept"), 0);
  EXPECT_EQ(engine::baddu(h_, 3, raw(number(1)), 9, nullptr, 0), e_not_found);
  EXPECT_EQ(engine::baddu(h_, 3, raw(number(1)), 2, nullptr, 0), e_not_found);
  EXPECT_EQ(summary().entries_by_key[3], 1U);
  EXPECT_EQ(engine::baddu(h_, 3, raw(number(2)), 9, nullptr, 0), 0);
}

TEST_P(Entry, ArgumentsOutOfRangeAreRefused) {
  EXPECT_EQ(add(0, number(1), 1), engine::e_bad_argument);
  EXPECT_EQ(add(21, number(1), 1), engine::e_bad_argument);
  EXPECT_EQ(engine::bstore(h_, 3, raw(number(1)), 1, nullptr, -1, engine::store_new), engine::e_bad_argument);
  EXPECT_EQ(find(0, number(1), 1), engine::e_bad_argument);
  EXPECT_EQ(find(21, number(1), 1), engine::e_bad_argument);
  EXPECT_EQ(add(1, counted(std::string(242, 'k')), 1), engine::e_bad_argument);
  EXPECT_EQ(add(1, counted(std::string(241, 'k')), 1), 0);
  EXPECT_EQ(find(1, counted(std::string(241, 'k')), 1), 0);
}

TEST_P(Entry, RecordNumbersSortSigned) {
  for (int rec : {5, -1, 0, 7, -2000000000}) ASSERT_EQ(add(3, number(1), rec), 0);
  std::vector<int> order;
  for (int r = engine::bfirst(h_, 3, nullptr, 0); r == 0; r = engine::bnext(h_, 3, nullptr, 0)) order.push_back(h_.get()->recno);
  EXPECT_EQ(engine::blast(h_, 3, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->recno, 7);
  EXPECT_EQ(order, (std::vector<int>{-2000000000, -1, 0, 5, 7}));
}

TEST_P(Entry, CurrentReadsAgainAndIsRefusedAfterADelete) {
  ASSERT_EQ(add(3, number(1), 1, "one"), 0);
  ASSERT_EQ(add(3, number(2), 1, "two"), 0);
  ASSERT_EQ(find(3, number(1), 1), 0);
  ASSERT_EQ(engine::bcurrent(h_, 3, buffer_, sizeof buffer_), 0);
  EXPECT_EQ(value_here(), "one");
  ASSERT_EQ(engine::bdelete(h_, 3, raw(number(1)), 1), 0);
  EXPECT_EQ(engine::bcurrent(h_, 3, buffer_, sizeof buffer_), e_not_found);
  ASSERT_EQ(engine::bnext(h_, 3, buffer_, sizeof buffer_), 0);
  EXPECT_EQ(value_here(), "two");
}

TEST_P(Entry, CursorsOfAllKeysStayRightThroughInsertsSplitsAndDeletes) {
  for (int i = 0; i < 400; i += 2) {
    ASSERT_EQ(add(1, counted(std::to_string(10000 + i)), i), 0);
    ASSERT_EQ(add(3, number(i), i), 0);
  }
  ASSERT_EQ(find(1, counted("10200"), 200), 0);
  ASSERT_EQ(find(3, number(200), 200), 0);
  for (int i = 1; i < 400; i += 2) ASSERT_EQ(add(2, std::to_string(i) + '\0', i), 0);
  ASSERT_EQ(engine::bcurrent(h_, 1, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->recno, 200);
  ASSERT_EQ(engine::bnext(h_, 1, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->recno, 202);
  ASSERT_EQ(engine::bprev(h_, 3, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->recno, 198);
  for (int i = 1; i < 400; i += 2) ASSERT_EQ(engine::bdelete(h_, 2, raw(std::to_string(i) + '\0'), i), 0);
  ASSERT_EQ(engine::bnext(h_, 1, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->recno, 204);
  ASSERT_EQ(engine::bprev(h_, 3, nullptr, 0), 0);
  EXPECT_EQ(h_.get()->recno, 196);
}

TEST_P(Entry, LockingTwiceAddsNoSecondEntry) {
  ASSERT_EQ(add(3, number(1), 1), 0);
  EXPECT_EQ(engine::keylock(h_, 3), 0);
  EXPECT_EQ(engine::keylock(h_, 3), 0);
  EXPECT_EQ(summary().locks, shared() ? 1U : 0U);
  EXPECT_EQ(engine::keylockstate(h_, 3), engine::e_locked_by_self);
  EXPECT_EQ(engine::keyunlock(h_, 3), 0);
  EXPECT_EQ(engine::keylockstate(h_, 3), engine::e_not_locked);
  EXPECT_EQ(engine::keyunlock(h_, 3), 0);
  EXPECT_EQ(summary().locks, 0U);
  EXPECT_EQ(engine::keylock(h_, 0), engine::e_bad_argument);
  EXPECT_EQ(engine::keylock(h_, 21), engine::e_bad_argument);
}

TEST_P(Entry, AMoveOfTheCursorDropsItsLock) {
  ASSERT_EQ(add(3, number(1), 1), 0);
  ASSERT_EQ(add(3, number(2), 1), 0);
  ASSERT_EQ(find(3, number(1), 1), 0);
  ASSERT_EQ(engine::keylock(h_, 3), 0);
  ASSERT_EQ(engine::bnext(h_, 3, nullptr, 0), 0);
  EXPECT_EQ(summary().locks, 0U);
  EXPECT_EQ(engine::keylockstate(h_, 3), engine::e_not_locked);
}

TEST_P(SharedEntry, LocksOfTwoHandlesExcludeEachOther) {
  ASSERT_EQ(add(3, number(1), 1), 0);
  handle other;
  ASSERT_EQ(other.open(path_, 'S', 2, entry_keys), 0);
  ASSERT_EQ(engine::csetfile(other, 4), 0);
  ASSERT_EQ(find(3, number(1), 1), 0);
  ASSERT_EQ(engine::keylock(h_, 3), 0);
  EXPECT_EQ(engine::keylock(other, 3), engine::e_no_current);
  ASSERT_EQ(engine::bfind(other, 3, raw(number(1)), 1, nullptr, 0), 0);
  EXPECT_EQ(engine::keylock(other, 3), engine::e_locked_by_other);
  EXPECT_EQ(engine::keylockstate(other, 3), engine::e_locked_by_other);
  EXPECT_EQ(engine::keyunlock(other, 3), engine::e_locked_by_other);
  EXPECT_EQ(engine::bdelete(other, 3, raw(number(1)), 1), engine::e_locked_by_other);
  EXPECT_EQ(engine::bdelcur(other, 3), engine::e_lock_needed);
  EXPECT_EQ(engine::bupdcur(other, 3, raw(number(1)), 4), engine::e_lock_needed);
  EXPECT_EQ(engine::keyunlock(h_, 3), 0);
  EXPECT_EQ(engine::keylock(other, 3), 0);
  EXPECT_EQ(engine::bdelcur(other, 3), 0);
  EXPECT_EQ(find(3, number(1), 1), e_not_found);
}

TEST_P(SharedEntry, AReadOnlyHandleTakesTheNextSlotWhenItsOwnHasLocks) {
  ASSERT_EQ(h_.close(), 0);
  file_recipe recipe = sample_recipe(false, 5);
  add_lock(&recipe, 19, std::string(1, '\0'), 4, 0);
  write_file(path_, build_file(recipe).bytes);
  handle reader;
  ASSERT_EQ(reader.open(path_, 'S', 1), 0);
  EXPECT_EQ(reader.get()->slot, 1);
}

TEST_P(Entry, HandlesTakeTheLowestFreeSlotAndAnExclusiveOneNone) {
  if (!shared()) {
    EXPECT_EQ(h_.get()->slot, -1);
    return;
  }
  EXPECT_EQ(h_.get()->slot, 0);
  handle second, third;
  ASSERT_EQ(second.open(path_, 'S', 2, entry_keys), 0);
  ASSERT_EQ(third.open(path_, 'S', 2, entry_keys), 0);
  EXPECT_EQ(third.get()->slot, 2);
  ASSERT_EQ(second.close(), 0);
  handle again;
  ASSERT_EQ(again.open(path_, 'S', 2, entry_keys), 0);
  EXPECT_EQ(again.get()->slot, 1);
}

}  // namespace
}  // namespace zvrdb::test
