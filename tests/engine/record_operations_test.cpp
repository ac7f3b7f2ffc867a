#include <algorithm>
#include <map>
#include <random>

#include "engine_file.h"

namespace engine_test {
namespace {

using namespace zvrdb::engine;

class Records : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    ASSERT_EQ(h.create(path, GetParam(), 3, name_keys), 0);
    ASSERT_EQ(csetfile(h, 4), 0);
  }
  // A record lock where the file asks for one.
  void lock() { ASSERT_EQ(dlock(h), 0); }

  scratch_folder folder;
  std::string path = folder.file("records");
  handle h;
};
INSTANTIATE_TEST_SUITE_P(SharedAndExclusive, Records, ::testing::Values('S', 'E'));

TEST_P(Records, WhatWasInsertedIsReadBackWhole) {
  const record r{"alpha", "group", 7, std::string(5000, 'x')};
  ASSERT_EQ(insert(h, r), 0);
  ASSERT_EQ(find_name(h, "alpha"), 0);
  EXPECT_EQ(read_current(h), r);
  EXPECT_EQ(dclose(h), 0);
  ASSERT_EQ(h.open(path, GetParam(), 2, name_keys), 0);
  ASSERT_EQ(find_name(h, "alpha"), 0);
  EXPECT_EQ(read_current(h), r);
}

TEST_P(Records, ManyRecordsStayInOrderOfTheirKeys) {
  std::map<std::string, record> model;
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    record r{numbered("n", static_cast<int>(random() % 100000)), numbered("g", i % 17), i % 5,
             std::string(random() % 300, 'd')};
    const int result = insert(h, r);
    ASSERT_EQ(result, model.count(r.name) != 0 ? -1 : 0) << i;
    model.emplace(r.name, r);
  }
  const std::vector<std::string> names = all_names(h);
  ASSERT_EQ(names.size(), model.size());
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  for (const auto& [name, r] : model) {
    ASSERT_EQ(find_name(h, name), 0);
    ASSERT_EQ(read_current(h), r);
  }
  int backwards = 0;
  for (int r = dseq(h, 1, seq_last); r == 0; r = dseq(h, 1, seq_previous)) ++backwards;
  EXPECT_EQ(backwards, static_cast<int>(model.size()));
}

TEST_P(Records, RandomChangesGiveWhatAPlainMapGives) {
  std::map<std::string, record> model;
  std::mt19937 random(11);
  for (int i = 0; i < 4000; ++i) {
    const std::string name = numbered("k", static_cast<int>(random() % 300));
    const record r{name, numbered("g", static_cast<int>(random() % 9)), static_cast<int>(random() % 4),
                   std::string(random() % 700, static_cast<char>('a' + random() % 26))};
    const bool there = model.count(name) != 0;
    ASSERT_EQ(find_name(h, name), there ? 0 : -1) << i;
    if (!there) {
      ASSERT_EQ(insert(h, r), 0) << i;
      model[name] = r;
      continue;
    }
    record_fields f;
    ASSERT_EQ(dread(h, f.list), 0);
    ASSERT_EQ(f.get(), model[name]) << i;
    lock();
    if (random() % 2 == 0) {
      f.set(r);
      ASSERT_EQ(dupdate(h, f.list), 0) << i;
      ASSERT_EQ(dunlock(h), 0);
      model[name] = r;
    } else {
      ASSERT_EQ(ddelete(h, f.list), 0) << i;
      model.erase(name);
    }
  }
  std::vector<std::string> expected;
  for (const auto& [name, r] : model) expected.push_back(name);
  EXPECT_EQ(all_names(h), expected);
  // Every key of every record, and no other.
  for (int key = 1; key <= 3; ++key) {
    std::size_t entries = 0;
    for (int r = dseq(h, key, seq_first); r == 0; r = dseq(h, key, seq_next)) ++entries;
    EXPECT_EQ(entries, model.size()) << key;
  }
  EXPECT_EQ(h.psp()->reccount, static_cast<int>(model.size()));
}

TEST_P(Records, ASecondInsertOfAUniqueKeyGivesTheNumberBack) {
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  EXPECT_EQ(insert(h, {"one", "h", 2, "e"}), -1);
  EXPECT_EQ(h.psp()->freerecs, 1);
  // The number comes back into use with the next record.
  ASSERT_EQ(insert(h, {"two", "h", 2, "e"}), 0);
  EXPECT_EQ(h.psp()->recno_cur, 2);
  EXPECT_EQ(h.psp()->freerecs, 0);
  // Nothing of the refused record is left under the other keys.
  int groups = 0;
  for (int r = dseq(h, 2, seq_first); r == 0; r = dseq(h, 2, seq_next)) ++groups;
  EXPECT_EQ(groups, 2);
}

TEST_P(Records, AListThatDiffersFromTheStoredOneIsRefused) {
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  record_fields f;
  f.list[3].ftype = 'S';
  EXPECT_EQ(dread(h, f.list), -20);
}

TEST_P(Records, ABufferShorterThanTheBodyIsRefused) {
  ASSERT_EQ(insert(h, {"one", "g", 1, std::string(2000, 'x')}), 0);
  ASSERT_EQ(dclose(h), 0);
  h.buffer.resize(1000);
  ASSERT_EQ(h.open(path, GetParam(), 2, name_keys), 0);
  ASSERT_EQ(find_name(h, "one"), 0);
  int result = 0;
  read_current(h, &result);
  EXPECT_EQ(result, -28);
}

TEST_P(Records, AnEmptyFieldThatIsNoKeyIsNotStored) {
  ASSERT_EQ(insert(h, {"one", "g", 1, ""}), 0);
  // type, name (2+2+3), group (2+2), number (2+4), end mark, checksums
  ASSERT_EQ(find_name(h, "one"), 0);
  const record r = read_current(h);
  EXPECT_EQ(r.data, "");
  EXPECT_EQ(h.psp()->datafull, 4 + 1 + 7 + 4 + 6 + 2);
}

TEST_P(Records, ABinaryKeyOf242BytesCannotBeStored) {
  static char key[300];
  field list[] = {{'B', 2, 'U', 0, 243, 1, 0, key}, {'E', 0, 0, 0, 0, 0, 0, nullptr}};
  EXPECT_EQ(dinsert(h, list), -25);
  list[0].flen = 242;
  EXPECT_EQ(dinsert(h, list), -26);
  list[0].flen = 241;
  EXPECT_EQ(dinsert(h, list), 0);
  EXPECT_EQ(h.psp()->reccount, 1);
}

TEST_P(Records, AnUpdateOfUnchangedKeysTouchesNoKeyEntries) {
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  ASSERT_EQ(insert(h, {"two", "g", 1, "d"}), 0);
  ASSERT_EQ(find_name(h, "one"), 0);
  record_fields f;
  ASSERT_EQ(dread(h, f.list), 0);
  f.set({"one", "g", 1, "other data"});
  lock();
  ASSERT_EQ(dseq(h, 2, seq_first), 0);
  const cursor before = *h.psp()->cursors[1];
  ASSERT_EQ(find_name(h, "one"), 0);
  lock();
  ASSERT_EQ(dupdate(h, f.list), 0);
  const cursor after = *h.psp()->cursors[1];
  EXPECT_EQ(before.cindex, after.cindex);
  EXPECT_EQ(after.cdeleted, 0);
  ASSERT_EQ(find_name(h, "one"), 0);
  EXPECT_EQ(read_current(h).data, "other data");
}

TEST_P(Records, FindGreaterStepsOverAllDuplicates) {
  for (int i = 0; i < 300; ++i) ASSERT_EQ(insert(h, {numbered("n", i), i < 299 ? "same" : "then", i, "d"}), 0);
  ASSERT_EQ(dfind(h, 2, "same", 'S', find_greater), 0);
  EXPECT_EQ(read_current(h).group, "then");
  EXPECT_EQ(dfind(h, 2, "then", 'S', find_greater), -1);
}

TEST_P(Records, EachFindOptionAnswersAsItIsTold) {
  for (const char* name : {"bb", "dd", "ff"}) ASSERT_EQ(insert(h, {name, "g", 1, "d"}), 0);
  const struct {
    const char* asked;
    int option;
    int result;
    const char* found;
  } rows[] = {
      {"dd", find_equal, 0, "dd"},         {"cc", find_equal, -1, ""},
      {"dd", find_greater, 0, "ff"},       {"cc", find_greater, 0, "dd"},
      {"ff", find_greater, -1, ""},        {"dd", find_greater_equal, 0, "dd"},
      {"cc", find_greater_equal, 2, "dd"}, {"gg", find_greater_equal, -1, ""},
      {"dd", find_less, 0, "bb"},          {"bb", find_less, -1, ""},
      {"gg", find_less, 0, "ff"},          {"dd", find_less_equal, 0, "dd"},
      {"ee", find_less_equal, 3, "dd"},    {"aa", find_less_equal, -1, ""},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(find_name(h, row.asked, row.option), row.result) << row.asked << row.option;
    if (row.result >= 0) {
      EXPECT_EQ(read_current(h).name, row.found) << row.asked << row.option;
    } else {
      int result = 0;
      read_current(h, &result);
      EXPECT_EQ(result, -16);
    }
  }
  EXPECT_EQ(dfind(h, 1, name_value("bb").data(), 5, find_equal), -23);
}

TEST_P(Records, AfterADeleteThereIsNoCurrentRecord) {
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  ASSERT_EQ(insert(h, {"two", "g", 1, "d"}), 0);
  ASSERT_EQ(find_name(h, "one"), 0);
  record_fields f;
  ASSERT_EQ(dread(h, f.list), 0);
  lock();
  ASSERT_EQ(ddelete(h, f.list), 0);
  EXPECT_EQ(dread(h, f.list), -16);
  ASSERT_EQ(find_name(h, "two"), 0);
  EXPECT_EQ(dread(h, f.list), 0);
}

TEST_P(Records, AFailedUpdateRestoresTheKeys) {
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  ASSERT_EQ(insert(h, {"two", "h", 2, "d"}), 0);
  ASSERT_EQ(find_name(h, "two"), 0);
  record_fields f({"one", "x", 9, "d"});
  lock();
  EXPECT_EQ(dupdate(h, f.list), -1);
  ASSERT_EQ(find_name(h, "two"), 0);
  EXPECT_EQ(read_current(h), (record{"two", "h", 2, "d"}));
  ASSERT_EQ(dfind(h, 2, "h", 'S', find_equal), 0);
  EXPECT_EQ(dfind(h, 2, "x", 'S', find_equal), -1);
}

TEST_P(Records, BadFieldListsAreRefusedEachWithItsCode) {
  record_fields good({"one", "g", 1, "d"});
  const auto refused = [&](int row, auto change) {
    record_fields f({"one", "g", 1, "d"});
    change(f.list[row]);
    return dinsert(h, f.list);
  };
  EXPECT_EQ(refused(3, [](field& f) { f.ftype = 'Q'; }), -22);
  EXPECT_EQ(refused(0, [](field& f) { f.fkeytype = 5; }), -23);
  EXPECT_EQ(refused(0, [](field& f) { f.fdup = 'Q'; }), -24);
  EXPECT_EQ(refused(3, [](field& f) { f.flen = 31233; }), -25);
  EXPECT_EQ(refused(1, [](field& f) { f.flen = 1; }), -26);
  EXPECT_EQ(refused(3, [](field& f) { f.fkey = 16; }), -27);
  EXPECT_EQ(h.psp()->reccount, 0);
  EXPECT_EQ(h.psp()->nextrec, 1);
}

TEST(SharedRecords, UpdateAndDeleteNeedALock) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("f"), 'S', 3, name_keys), 0);
  ASSERT_EQ(insert(h, {"one", "g", 1, "d"}), 0);
  ASSERT_EQ(find_name(h, "one"), 0);
  record_fields f({"one", "g", 1, "e"});
  EXPECT_EQ(dupdate(h, f.list), -107);
  EXPECT_EQ(ddelete(h, f.list), -107);
}

TEST(SharedRecords, ARecordLockedByOneHandleIsRefusedToAnother) {
  scratch_folder folder;
  handle a;
  handle b;
  ASSERT_EQ(a.create(folder.file("f"), 'S', 3, name_keys), 0);
  ASSERT_EQ(b.open(folder.file("f"), 'S', 2, name_keys), 0);
  ASSERT_EQ(insert(a, {"one", "g", 1, "d"}), 0);
  ASSERT_EQ(find_name(a, "one"), 0);
  ASSERT_EQ(dlock(a), 0);
  EXPECT_EQ(dlock(a), 0);
  ASSERT_EQ(find_name(b, "one"), 0);
  EXPECT_EQ(dlock(b), -104);
  EXPECT_EQ(dunlock(b), -104);
  ASSERT_EQ(dunlock(a), 0);
  EXPECT_EQ(dlock(b), 0);
  EXPECT_EQ(dunlock(b), 0);
}

TEST(BigEndianRecords, NumbersAreStoredInTheOrderOfTheFile) {
  scratch_folder folder;
  handle h;
  ASSERT_EQ(h.create(folder.file("f"), 'S', 2, name_keys), 0);
  std::map<int, std::string> expected;
  for (int i = 0; i < 500; ++i) {
    const int n = (i * 7919) % 1000 - 500;
    ASSERT_EQ(insert(h, {numbered("n", i), "g", n, "d"}), 0);
    expected[n] = numbered("n", i);
  }
  ASSERT_EQ(dclose(h), 0);
  ASSERT_EQ(h.open(folder.file("f"), 'S', 1, name_keys), 0);
  auto at = expected.begin();
  for (int r = dseq(h, 3, seq_first); r == 0; r = dseq(h, 3, seq_next), ++at) {
    ASSERT_NE(at, expected.end());
    const record got = read_current(h);
    EXPECT_EQ(got.number, at->first);
    EXPECT_EQ(got.name, at->second);
  }
  EXPECT_EQ(at, expected.end());
  const std::int32_t wanted = -499;
  ASSERT_EQ(dfind(h, 3, &wanted, 5, find_greater_equal), expected.count(-499) != 0 ? 0 : 2);
}

}  // namespace
}  // namespace engine_test
