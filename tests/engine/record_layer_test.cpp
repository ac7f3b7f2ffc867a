// Records as callers see them: the rules of insert, update, delete, find and read.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/cursor.h"
#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

class RecordLayer : public ::testing::TestWithParam<char> {
 protected:
  void SetUp() override {
    path_ = folder_.file("records");
    ASSERT_EQ(h_.create(path_, access()), 0);
    ASSERT_EQ(engine::csetfile(h_, 4), 0);
  }
  void TearDown() override {
    if (engine::checkpsp(h_) == 'O') {
      EXPECT_EQ(h_.close(), 0);
    }
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  char access() const { return GetParam(); }
  engine::file_summary summary() {
    engine::file_summary s;
    std::string reason;
    engine::dflush(h_);
    engine::summarize_file(path_.c_str(), &s, &reason);
    return s;
  }
  void fill(int first, int last) {
    for (int i = first; i <= last; i++) ASSERT_EQ(h_.insert(sample(i)), 0) << i;
  }
  int dfind_number(std::int32_t value, int option) { return engine::dfind(h_, 3, &value, 3, option); }
  std::int32_t number_here() {
    sample_record record;
    EXPECT_EQ(h_.read(&record), 0);
    return record.number;
  }
  scratch_folder folder_;
  std::string path_;
  handle h_;
};

INSTANTIATE_TEST_SUITE_P(Access, RecordLayer, ::testing::Values('S', 'E'),
                         [](const auto& a) { return a.param == 'S' ? "Shared" : "Exclusive"; });

TEST_P(RecordLayer, InsertRefusesASecondRecordWithTheSameUniqueKeyAndFreesItsNumber) {
  ASSERT_EQ(h_.insert(sample(1)), 0);
  EXPECT_EQ(h_.insert(sample(1)), engine::e_not_found);
  EXPECT_EQ(summary().free_numbers, 1U);
  EXPECT_EQ(summary().records, 1U);
  EXPECT_EQ(summary().header.freerecs, 1);
  ASSERT_EQ(h_.insert(sample(2)), 0);
  EXPECT_EQ(h_.get()->recno_cur, 2);
  EXPECT_EQ(summary().free_numbers, 0U);
  EXPECT_EQ(summary().header.nextrec, 3);
}

TEST_P(RecordLayer, ReadRefusesAListWithAnotherChecksum) {
  ASSERT_EQ(h_.insert(sample(1)), 0);
  ASSERT_EQ(h_.find_name(sample(1).name), 0);
  sample_fields fields;
  fields.list[2].fdup = 'U';
  EXPECT_EQ(engine::dread(h_, fields.list), engine::e_field_list);
}

TEST_P(RecordLayer, ReadRefusesABufferShorterThanTheBody) {
  ASSERT_EQ(h_.insert(sample(1, 500)), 0);
  ASSERT_EQ(h_.close(), 0);
  std::vector<unsigned char> small(300);
  ASSERT_EQ(engine::dopen(h_, path_.c_str(), small.data(), 300, access(), 2, sample_key_table()), 0);
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_first), 0);
  sample_fields fields;
  EXPECT_EQ(engine::dread(h_, fields.list), engine::e_record_length);
}

TEST_P(RecordLayer, InsertRefusesARecordLongerThanTheBuffer) {
  ASSERT_EQ(h_.insert(sample(1)), 0);
  ASSERT_EQ(h_.close(), 0);
  std::vector<unsigned char> small(100);
  ASSERT_EQ(engine::dopen(h_, path_.c_str(), small.data(), 100, access(), 2, sample_key_table()), 0);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  EXPECT_EQ(h_.insert(sample(2, 500)), engine::e_record_length);
  EXPECT_EQ(h_.find_name(sample(2).name), engine::e_not_found);
}

TEST_P(RecordLayer, AnEmptyFieldReadsBackEmpty) {
  ASSERT_EQ(h_.insert(sample(1, 0)), 0);
  ASSERT_EQ(h_.find_name(sample(1).name), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found.payload, "");
  EXPECT_EQ(found.name, sample(1).name);
}

// A record of a key and of fields of every type that are no keys.
struct plain_fields {
  std::int32_t key = 7, whole = 0, longer = 0;
  std::int16_t half = 0;
  std::uint16_t natural = 0;
  float narrow = 0;
  double wide = 0;
  char text[12] = {}, bytes[12] = {}, six[6] = {};
  engine::field list[11] = {
      {'L', 3, 'D', 0, 4, 3, 0, &key},           {'S', 'N', 'N', 0, sizeof text, 0, 0, text},
      {'B', 'N', 'N', 0, 0, 0, 0, bytes},        {'M', 'N', 'N', 0, 6, 0, 0, six},
      {'I', 'N', 'N', 0, 4, 0, 0, &whole},       {'L', 'N', 'N', 0, 4, 0, 0, &longer},
      {'H', 'N', 'N', 0, 2, 0, 0, &half},        {'U', 'N', 'N', 0, 2, 0, 0, &natural},
      {'F', 'N', 'N', 0, 4, 0, 0, &narrow},      {'D', 'N', 'N', 0, 8, 0, 0, &wide},
      {'E', 'E', 'N', 0, 0, 0, 0, nullptr},
  };
};

TEST_P(RecordLayer, FieldsThatAreNoKeysAreStoredUnlessEmpty) {
  constexpr int head = 4 + 1, key = 2 + 4, end = 2;
  plain_fields empty;
  empty.narrow = -0.0F;
  empty.wide = -0.0;
  ASSERT_EQ(engine::dinsert(h_, empty.list), 0);
  plain_fields found;
  found.key = found.whole = found.longer = found.half = 1;
  found.natural = 1;
  found.narrow = 1;
  found.wide = 1;
  std::strcpy(found.text, "old");
  std::strcpy(found.bytes, "old");
  found.list[2].flen = 3;
  std::memset(found.six, 1, sizeof found.six);
  ASSERT_EQ(engine::dread(h_, found.list), 0);
  EXPECT_EQ(h_.get()->datafull, head + key + end);
  EXPECT_EQ(found.key, 7);
  EXPECT_EQ(found.whole + found.longer + found.half + found.natural, 0);
  EXPECT_EQ(found.narrow, 0.0F);
  EXPECT_EQ(found.wide, 0.0);
  EXPECT_STREQ(found.text, "");
  EXPECT_EQ(std::string(found.six, 6), std::string(6, '\0'));
  // Bytes that are not there are left to the caller.
  EXPECT_STREQ(found.bytes, "old");
  EXPECT_EQ(found.list[2].flen, 3);

  plain_fields full;
  full.whole = -5;
  full.longer = 1 << 30;
  full.half = -2;
  full.natural = 65535;
  full.narrow = 0.5F;
  full.wide = -1e100;
  std::strcpy(full.text, "text");
  std::memcpy(full.bytes, "a\0b", 3);
  full.list[2].flen = 3;
  full.six[5] = 1;
  ASSERT_EQ(engine::dinsert(h_, full.list), 0);
  ASSERT_EQ(engine::dread(h_, found.list), 0);
  EXPECT_EQ(h_.get()->datafull, head + key + (2 + 5) + (2 + 2 + 3) + (2 + 6) + (2 + 4) + (2 + 4) + (2 + 2) + (2 + 2) +
                                    (2 + 4) + (2 + 8) + end);
  EXPECT_EQ(found.whole, -5);
  EXPECT_EQ(found.longer, 1 << 30);
  EXPECT_EQ(found.half, -2);
  EXPECT_EQ(found.natural, 65535);
  EXPECT_EQ(found.narrow, 0.5F);
  EXPECT_EQ(found.wide, -1e100);
  EXPECT_STREQ(found.text, "text");
  EXPECT_EQ(found.list[2].flen, 3);
  EXPECT_EQ(std::memcmp(found.bytes, "a\0b", 3), 0);
  EXPECT_EQ(std::memcmp(found.six, full.six, sizeof full.six), 0);
}

TEST_P(RecordLayer, AStringLongerThanItsFieldIsCutWhenItIsRead) {
  ASSERT_EQ(h_.insert(sample(5)), 0);
  sample_fields fields;
  fields.list[1].flen = 4;   // the list's checksum knows no lengths
  ASSERT_EQ(engine::dread(h_, fields.list), 0);
  EXPECT_STREQ(static_cast<const char*>(fields.list[1].fdata), "gro");
}

TEST_P(RecordLayer, AFieldTakenOutIsGoneWithItsKeyUntilItIsPutBack) {
  fill(1, 3);
  const auto change = [&](bool taken_out) {
    sample_fields fields(sample(2));
    if (taken_out) fields.list[2].ftype = static_cast<char>(fields.list[2].ftype | 0x80);
    EXPECT_EQ(engine::dlock(h_), 0);
    EXPECT_EQ(engine::dupdate(h_, fields.list), 0);
    EXPECT_EQ(engine::dunlock(h_), 0);
  };
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  change(true);
  EXPECT_EQ(dfind_number(sample(2).number, engine::find_equal), engine::e_not_found);
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  EXPECT_EQ(number_here(), 0);
  EXPECT_EQ(summary().entries_by_key[3], 2U);
  change(true);
  EXPECT_EQ(summary().entries_by_key[3], 2U);
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  change(false);
  EXPECT_EQ(dfind_number(sample(2).number, engine::find_equal), 0);
  EXPECT_EQ(number_here(), sample(2).number);
  EXPECT_EQ(summary().entries_by_key[3], 3U);

  sample_fields fields(sample(9));
  fields.list[2].ftype = static_cast<char>(fields.list[2].ftype | 0x80);
  ASSERT_EQ(engine::dinsert(h_, fields.list), 0);
  EXPECT_EQ(summary().entries_by_key[3], 3U);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found.name, sample(9).name);
  EXPECT_EQ(found.number, 0);
}

TEST_P(RecordLayer, ABinaryKeyOf242BytesIsRefusedAndOneOf241Stored) {
  unsigned char value[256];
  std::memset(value, 'k', sizeof value);
  sample_fields fields(sample(1));
  fields.list[0].fdata = value;
  fields.list[0].flen = 242;
  EXPECT_EQ(engine::dinsert(h_, fields.list), engine::e_too_long);
  fields.list[0].flen = 243;
  EXPECT_EQ(engine::dinsert(h_, fields.list), engine::e_field_length);
  fields.list[0].flen = 241;
  EXPECT_EQ(engine::dinsert(h_, fields.list), 0);
  EXPECT_EQ(h_.find_name(std::string(241, 'k')), 0);
}

TEST_P(RecordLayer, UpdateWithTheSameKeysTouchesNoKeyEntry) {
  fill(1, 20);
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  sample_record changed = sample(7);
  changed.payload = "something else";
  ASSERT_EQ(engine::dlock(h_), 0);
  // What is done to an entry shows in the cursor of its key.
  for (int key = 1; key <= 5; key++) ASSERT_EQ(engine::bfirst(h_, key, nullptr, 0), 0);
  std::vector<engine::cursor> before;
  for (int key = 1; key <= 5; key++) before.push_back(engine::cursor_of(h_, key));
  sample_fields fields(changed);
  ASSERT_EQ(engine::dupdate(h_, fields.list), 0);
  for (int key = 1; key <= 5; key++) {
    const engine::cursor& now = engine::cursor_of(h_, key);
    EXPECT_EQ(now.cnode, before[static_cast<std::size_t>(key - 1)].cnode) << key;
    EXPECT_EQ(now.cindex, before[static_cast<std::size_t>(key - 1)].cindex) << key;
    EXPECT_EQ(now.cdeleted, 0) << key;
  }
  ASSERT_EQ(engine::dunlock(h_), 0);
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found, changed);
  EXPECT_EQ(summary().entries_by_key[1], 20U);
}

TEST_P(RecordLayer, UpdateMovesChangedKeys) {
  fill(1, 50);
  for (int i = 1; i <= 50; i++) {
    ASSERT_EQ(h_.find_name(sample(i).name), 0);
    sample_record changed = sample(i);
    changed.name += "-renamed";
    changed.number = 1000 + i;
    ASSERT_EQ(h_.update(changed), 0);
    EXPECT_EQ(h_.find_name(sample(i).name), engine::e_not_found);
    EXPECT_EQ(dfind_number(1000 + i, engine::find_equal), 0);
    EXPECT_EQ(number_here(), 1000 + i);
  }
  EXPECT_EQ(summary().entries_by_key[1], 50U);
}

TEST_P(RecordLayer, AFailedUpdateRestoresTheOldKeys) {
  fill(1, 20);
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  sample_record changed = sample(7);
  changed.name = sample(8).name;
  changed.number = 5000;
  EXPECT_EQ(h_.update(changed), engine::e_not_found);
  ASSERT_EQ(h_.find_name(sample(7).name), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found, sample(7));
  EXPECT_EQ(dfind_number(5000, engine::find_equal), engine::e_not_found);
}

TEST_P(RecordLayer, FindGreaterStepsOverAllDuplicates) {
  for (int i = 1; i <= 310; i++) {
    sample_record record = sample(i);
    record.number = i <= 300 ? 5 : 9;
    ASSERT_EQ(h_.insert(record), 0);
  }
  EXPECT_EQ(dfind_number(5, engine::find_greater), 0);
  EXPECT_EQ(number_here(), 9);
  EXPECT_EQ(dfind_number(9, engine::find_greater), engine::e_not_found);
}

TEST_P(RecordLayer, FindOptionsAnswerAsTold) {
  for (std::int32_t value : {10, 20, 30}) {
    sample_record record = sample(value);
    record.number = value;
    ASSERT_EQ(h_.insert(record), 0);
  }
  using namespace engine;
  const struct {
    std::int32_t asked;
    int option, result;
    std::int32_t found;
  } rows[] = {
      {20, find_equal, 0, 20},         {15, find_equal, e_not_found, 0},
      {10, find_greater, 0, 20},       {15, find_greater, 0, 20},
      {30, find_greater, e_not_found, 0},
      {20, find_greater_equal, 0, 20}, {21, find_greater_equal, 2, 30},
      {31, find_greater_equal, e_not_found, 0},
      {20, find_less, 0, 10},          {25, find_less, 0, 20},
      {99, find_less, 0, 30},          {10, find_less, e_not_found, 0},
      {20, find_less_equal, 0, 20},    {25, find_less_equal, 3, 20},
      {99, find_less_equal, 3, 30},    {1, find_less_equal, e_not_found, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.asked) + ", option " + std::to_string(row.option));
    EXPECT_EQ(dfind_number(row.asked, row.option), row.result);
    sample_record found;
    EXPECT_EQ(h_.read(&found), row.result >= 0 ? 0 : int(e_no_current));
    if (row.result >= 0) {
      EXPECT_EQ(found.number, row.found);
    }
  }
}

TEST_P(RecordLayer, FindLessIsBoundedByItsKeyNumber) {
  fill(1, 30);
  std::int16_t lowest = -32768;
  EXPECT_EQ(engine::dfind(h_, 4, &lowest, 4, engine::find_less), engine::e_not_found);
  std::int16_t highest = 32767;
  EXPECT_EQ(engine::dfind(h_, 4, &highest, 4, engine::find_greater_equal), engine::e_not_found);
  EXPECT_EQ(engine::dfind(h_, 4, &highest, 4, engine::find_less), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found.small, -20);
}

TEST_P(RecordLayer, FindRefusesAKeyTypeThatDoesNotFit) {
  std::int32_t value = 1;
  EXPECT_EQ(engine::dfind(h_, 3, &value, 4, engine::find_equal), engine::e_key_type);
  EXPECT_EQ(engine::dfind(h_, 3, &value, 'S', engine::find_equal), engine::e_key_type);
  EXPECT_EQ(engine::dfind(h_, 3, &value, 'N', engine::find_equal), engine::e_not_found);
  EXPECT_EQ(engine::dfind(h_, 3, &value, 'E', engine::find_equal), engine::e_not_found);
  EXPECT_EQ(engine::dfind(h_, 2, "x", 'S', engine::find_equal), engine::e_not_found);
}

TEST_P(RecordLayer, KeyNumbersAndDirectionsOutOfRangeAreRefused) {
  EXPECT_EQ(engine::dseq(h_, 0, engine::seq_first), engine::e_bad_argument);
  EXPECT_EQ(engine::dseq(h_, 21, engine::seq_first), engine::e_bad_argument);
  EXPECT_EQ(engine::dseq(h_, 1, 5), engine::e_bad_argument);
  EXPECT_EQ(engine::dseq(h_, 1, 0), engine::e_bad_argument);
}

TEST_P(RecordLayer, AfterDeleteNoRecordIsCurrent) {
  fill(1, 3);
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  ASSERT_EQ(h_.remove(), 0);
  sample_record found;
  EXPECT_EQ(h_.read(&found), engine::e_no_current);
  EXPECT_EQ(engine::dlock(h_), engine::e_no_current);
  sample_fields fields;
  EXPECT_EQ(engine::ddelete(h_, fields.list), engine::e_no_current);
  EXPECT_EQ(engine::dupdate(h_, fields.list), engine::e_no_current);
  ASSERT_EQ(h_.find_name(sample(3).name), 0);
  EXPECT_EQ(h_.read(&found), 0);
}

TEST_P(RecordLayer, ChangesOfASharedFileNeedTheLock) {
  fill(1, 3);
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  sample_fields fields(sample(2));
  int expected = access() == 'S' ? int(engine::e_lock_needed) : 0;
  EXPECT_EQ(engine::dupdate(h_, fields.list), expected);
  EXPECT_EQ(engine::ddelete(h_, fields.list), expected);
}

TEST_P(RecordLayer, NextAfterADeletedRecordGivesTheOneThatFollowed) {
  fill(1, 30);
  std::vector<std::string> names;
  for (int i = 1; i <= 30; i++) names.push_back(sample(i).name);
  std::sort(names.begin(), names.end());
  ASSERT_EQ(h_.find_name(names[10]), 0);
  ASSERT_EQ(h_.remove(), 0);
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_next), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found.name, names[11]);
  ASSERT_EQ(h_.remove(), 0);
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_previous), 0);
  ASSERT_EQ(h_.read(&found), 0);
  EXPECT_EQ(found.name, names[9]);
}

TEST_P(RecordLayer, AllRecordsCanBeDeletedInALoop) {
  fill(1, 200);
  int deleted = 0;
  for (int result = engine::dseq(h_, 1, engine::seq_first); result == 0; result = engine::dseq(h_, 1, engine::seq_next)) {
    ASSERT_EQ(h_.remove(), 0);
    deleted++;
  }
  EXPECT_EQ(deleted, 200);
  EXPECT_EQ(summary().records, 0U);
  EXPECT_EQ(summary().free_numbers, 200U);
  EXPECT_EQ(summary().header.reccount, 0);
}

TEST_P(RecordLayer, NextWithoutAPositionActsAsFirst) {
  fill(1, 5);
  ASSERT_EQ(h_.close(), 0);
  ASSERT_EQ(h_.open(path_, access()), 0);
  ASSERT_EQ(engine::dseq(h_, 1, engine::seq_next), 0);
  sample_record found;
  ASSERT_EQ(h_.read(&found), 0);
  std::string first = sample(1).name;
  for (int i = 2; i <= 5; i++) first = std::min(first, sample(i).name);
  EXPECT_EQ(found.name, first);
}

TEST_P(RecordLayer, ReadingALongBodyLeavesOtherPositionsAlone) {
  for (int i = 1; i <= 40; i++) ASSERT_EQ(h_.insert(sample(i, 1200)), 0);
  std::vector<std::string> names;
  for (int i = 1; i <= 40; i++) names.push_back(sample(i).name);
  std::sort(names.begin(), names.end());
  int direction = engine::seq_first;
  for (const std::string& name : names) {
    ASSERT_EQ(engine::dseq(h_, 1, direction), 0);
    direction = engine::seq_next;
    sample_record found;
    ASSERT_EQ(h_.read(&found), 0);
    ASSERT_EQ(found.name, name);
  }
}

TEST_P(RecordLayer, CurrentKeyIsTheKeyValueInFileOrder) {
  fill(1, 3);
  ASSERT_EQ(h_.find_name(sample(2).name), 0);
  const unsigned char* key = engine::current_key(h_);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key[0], sample(2).name.size());
  EXPECT_EQ(std::memcmp(key + 1, sample(2).name.data(), key[0]), 0);
}

TEST_P(RecordLayer, KeyvalBuildsTheKeyOfAField) {
  sample_fields fields(sample(5));
  unsigned char out[256];
  ASSERT_EQ(engine::dkeyval(h_, 1, fields.list, -1, out), 0);
  EXPECT_EQ(out[0], sample(5).name.size());
  ASSERT_EQ(engine::dkeyval(h_, 2, fields.list, 1, out), 0);
  EXPECT_STREQ(reinterpret_cast<const char*>(out), "group5");
  std::int32_t number = sample(5).number;
  ASSERT_EQ(engine::dkeyval(h_, 3, fields.list, -1, out), 0);
  EXPECT_EQ(std::memcmp(out, &number, 4), 0);
  EXPECT_EQ(engine::dkeyval(h_, 9, fields.list, -1, out), engine::e_no_field);
  fields.list[0].flen = 242;
  EXPECT_EQ(engine::dkeyval(h_, 1, fields.list, -1, out), engine::e_too_long);
  fields.list[1].fdata = nullptr;
  EXPECT_EQ(engine::dkeyval(h_, 2, fields.list, -1, out), engine::e_no_field);
}

TEST_P(RecordLayer, FieldListsAreCheckedBeforeWriting) {
  struct {
    void (*spoil)(engine::field*);
    int expected;
  } const cases[] = {
      {[](engine::field* f) { f[5].ftype = 'Q'; }, engine::e_field_type},
      {[](engine::field* f) { f[2].fkeytype = 4; }, engine::e_key_type},
      {[](engine::field* f) { f[2].fdup = 'x'; }, engine::e_duplicates_flag},
      {[](engine::field* f) { f[5].flen = -1; }, engine::e_field_length},
      {[](engine::field* f) { f[5].flen = 31233; }, engine::e_field_length},
      {[](engine::field* f) { f[1].flen = 3; }, engine::e_too_long},
      {[](engine::field* f) { f[5].fkey = 16; }, engine::e_key_number},
      {[](engine::field* f) { f[2].fkey = 255; }, engine::e_key_number},
      // The first fault of a field is told, in the order of its columns.
      {[](engine::field* f) { f[2].fkey = 255, f[2].fdup = 'x', f[2].flen = -1; }, engine::e_duplicates_flag},
      {[](engine::field* f) { f[2].fkeytype = 4, f[2].fdup = 'x'; }, engine::e_key_type},
      {[](engine::field* f) { f[2].ftype = 'Q', f[2].fkeytype = 4; }, engine::e_field_type},
  };
  for (const auto& c : cases) {
    sample_fields fields(sample(3));
    c.spoil(fields.list);
    EXPECT_EQ(engine::dinsert(h_, fields.list), c.expected);
  }
  EXPECT_EQ(summary().records, 0U);
  EXPECT_EQ(summary().header.nextrec, 1);
}

TEST_P(RecordLayer, FoldsCaseToLowerUnderKeyTypeOne) {
  ASSERT_EQ(h_.close(), 0);
  const engine::key_entry keys[] = {{1, 1, {}, nullptr}, {0, 0, {}, nullptr}};
  path_ = folder_.file("folded");
  ASSERT_EQ(h_.create(path_, access(), 3, keys), 0);
  // '_' stands between the capitals and the small letters.
  for (const char* text : {"Zeta", "_bar", "alpha", "BETA"}) {
    char name[20];
    std::strcpy(name, text);
    engine::field list[] = {{'S', 1, 'U', 0, 20, 1, 0, name}, {'E', 'E', 'N', 0, 0, 0, 0, nullptr}};
    ASSERT_EQ(engine::dinsert(h_, list), 0);
  }
  std::vector<std::string> order;
  int direction = engine::seq_first;
  while (engine::dseq(h_, 1, direction) == 0) {
    order.push_back(reinterpret_cast<const char*>(engine::current_key(h_)));
    direction = engine::seq_next;
  }
  EXPECT_EQ(order, (std::vector<std::string>{"_bar", "alpha", "BETA", "Zeta"}));
  EXPECT_EQ(engine::dfind(h_, 1, "beta", 1, engine::find_equal), 0);
}

TEST_P(RecordLayer, OrdersLengthByteKeysByBytesFirst) {
  for (const char* text : {"b", "ab", "a", "abc", "B"}) {
    sample_record record = sample(1);
    record.name = text;
    ASSERT_EQ(h_.insert(record), 0);
  }
  sample_record high = sample(1);
  high.name = "\xF0";
  ASSERT_EQ(h_.insert(high), 0);
  std::vector<std::string> order;
  int direction = engine::seq_first;
  while (engine::dseq(h_, 1, direction) == 0) {
    const unsigned char* key = engine::current_key(h_);
    order.emplace_back(reinterpret_cast<const char*>(key) + 1, key[0]);
    direction = engine::seq_next;
  }
  EXPECT_EQ(order, (std::vector<std::string>{"B", "a", "ab", "abc", "b", "\xF0"}));
}

TEST_P(RecordLayer, RisingKeysFillTheLeftNodes) {
  ASSERT_EQ(h_.close(), 0);
  const engine::key_entry keys[] = {{3, 3, {}, nullptr}, {0, 0, {}, nullptr}};
  path_ = folder_.file("rising");
  ASSERT_EQ(h_.create(path_, access(), 3, keys), 0);
  ASSERT_EQ(engine::csetfile(h_, 4), 0);
  for (std::int32_t i = 1; i <= 2000; i++) {
    engine::field list[] = {{'L', 3, 'D', 0, 4, 3, 0, &i}, {'E', 'E', 'N', 0, 0, 0, 0, nullptr}};
    ASSERT_EQ(engine::dinsert(h_, list), 0);
  }
  engine::file_summary s = summary();
  EXPECT_EQ(s.header.depth, 3);
  EXPECT_EQ(s.records, 2000U);
  EXPECT_GT(s.leaf_fill, 0.7);
}

}  // namespace
}  // namespace zvrdb::test
