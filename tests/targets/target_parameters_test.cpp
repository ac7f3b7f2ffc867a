// Parameters, hardware and shadow records of targets.
#include <cstring>

#include "targets/targets_fixture.h"

namespace target_test {
namespace {

constexpr std::size_t prm_len = 62812, thw_len = 20804, sht_len = 62068;

// A record of entries: name, count at 64, entries from 68.
struct Entries {
  Entries(std::string_view name, std::size_t entry_len, std::size_t len) : entry(entry_len), bytes(len) {
    std::memcpy(bytes.data(), name.data(), name.size());
  }
  Entries& add(std::string_view name, std::string_view value, std::size_t name_width) {
    std::uint16_t count;
    std::memcpy(&count, bytes.data() + 64, 2);
    unsigned char* at = bytes.data() + 68 + count * entry;
    std::memcpy(at, name.data(), name.size());
    std::memcpy(at + name_width, value.data(), value.size());
    ++count;
    std::memcpy(bytes.data() + 64, &count, 2);
    return *this;
  }
  std::size_t entry;
  std::vector<unsigned char> bytes;
};
Entries prm(std::string_view name) {
  return Entries(name, 62, prm_len);
}
Entries thw(std::string_view name) {
  return Entries(name, 162, thw_len);
}
Entries sht(std::string_view name) {
  return Entries(name, 62, sht_len);
}

class TargetParameters : public TargetsTest {
 protected:
  int store(std::uint32_t db_id, const std::string& name, Entries record) {
    const void* keys[] = {name.c_str()};
    return db_put(task, db_id, 1, keys, record.bytes.data(), static_cast<std::uint16_t>(record.bytes.size()));
  }
  int load(std::uint32_t db_id, const std::string& name, std::size_t length) {
    const void* keys[] = {name.c_str()};
    read.assign(length, 0xEE);
    return db_get(task, db_id, 1, keys, read.data(), static_cast<std::uint16_t>(length));
  }
  int erase(std::uint32_t db_id, const std::string& name) {
    const void* keys[] = {name.c_str()};
    return db_del(task, db_id, 1, keys);
  }
  std::vector<unsigned char> read;
};

TEST_F(TargetParameters, EachOfTheThreeKindsComesBackAsItWasPut) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  const Entries p = prm("T").add("COLOUR", "red", 12).add("SIZE", "9", 12);
  const Entries h = thw("T").add("processor", "fast", 81);
  const Entries s = sht("T").add("COLOUR", "blue", 12);
  EXPECT_EQ(store(DB_PRM, "T", p), DBE_OK);
  EXPECT_EQ(store(DB_THW, "T", h), DBE_OK);
  EXPECT_EQ(store(DB_SHT, "T", s), DBE_OK);
  EXPECT_EQ(store(DB_PRM, "T", p), DBE_RECORD_REPLACED);
  ASSERT_EQ(load(DB_PRM, "T", prm_len), DBE_OK);
  EXPECT_EQ(read, p.bytes);
  ASSERT_EQ(load(DB_THW, "T", thw_len), DBE_OK);
  EXPECT_EQ(read, h.bytes);
  ASSERT_EQ(load(DB_SHT, "T", sht_len), DBE_OK);
  EXPECT_EQ(read, s.bytes);
}

TEST_F(TargetParameters, AFullRecordOfAllItsEntriesIsKept) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  Entries p = prm("T");
  for (int i = 0; i < 1000; ++i) p.add(numbered("N", i), numbered("value ", i), 12);
  Entries h = thw("T");
  for (int i = 0; i < 128; ++i) h.add(numbered("N", i), numbered("value ", i), 81);
  ASSERT_EQ(store(DB_PRM, "T", p), DBE_OK);
  ASSERT_EQ(store(DB_THW, "T", h), DBE_OK);
  ASSERT_EQ(load(DB_PRM, "T", prm_len), DBE_OK);
  EXPECT_EQ(read, p.bytes);
  ASSERT_EQ(load(DB_THW, "T", thw_len), DBE_OK);
  EXPECT_EQ(read, h.bytes);
}

TEST_F(TargetParameters, ACountAboveTheArrayStoresAndReadsNothingBeyondIt) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  Entries h = thw("T").add("processor", "fast", 81);
  const std::uint16_t count = 0xFFFF;
  std::memcpy(h.bytes.data() + 64, &count, 2);
  EXPECT_EQ(store(DB_THW, "T", h), DBE_OK);
  EXPECT_EQ(load(DB_THW, "T", thw_len), DBE_OK);
  EXPECT_EQ(std::memcmp(read.data() + 68, h.bytes.data() + 68, 128 * 162), 0);
}

TEST_F(TargetParameters, ARecordThatIsNotThereAndATargetThatIsNotThereDiffer) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  for (const std::uint32_t db_id : {DB_PRM, DB_THW, DB_SHT}) {
    EXPECT_EQ(load(db_id, "T", 100), DBE_NOT_FOUND);
    EXPECT_EQ(load(db_id, "NOBODY", 100), DBE_NO_TARGET);
    EXPECT_EQ(erase(db_id, "T"), DBE_NOT_FOUND);
    EXPECT_EQ(erase(db_id, "NOBODY"), DBE_NO_TARGET);
  }
  EXPECT_EQ(store(DB_PRM, "NOBODY", prm("NOBODY")), DBE_NO_TARGET);
}

TEST_F(TargetParameters, ARecordWithoutEntriesHasNoArray) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  ASSERT_EQ(store(DB_PRM, "T", prm("T")), DBE_OK);
  ASSERT_EQ(load(DB_PRM, "T", prm_len), DBE_OK);
  EXPECT_EQ(read, prm("T").bytes);
}

TEST_F(TargetParameters, AReadOfTheNameAloneAnswersFromTheKey) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  ASSERT_EQ(store(DB_PRM, "T", prm("T").add("A", "B", 12)), DBE_OK);
  EXPECT_EQ(load(DB_PRM, "T", 64), DBE_OK);
  EXPECT_EQ(read, std::vector<unsigned char>(64, 0)) << "the name does not stand in the key";
  EXPECT_EQ(load(DB_PRM, "T", 63), DBE_OK);
  EXPECT_EQ(read, std::vector<unsigned char>(63, 0xEE)) << "less than the key's part: untouched";
}

TEST_F(TargetParameters, AShadowRecordIsStoredAtTheLengthGiven) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  Entries s = sht("T").add("A", "1", 12).add("B", "2", 12);
  s.bytes.resize(68 + 62);
  ASSERT_EQ(store(DB_SHT, "T", s), DBE_OK);
  ASSERT_EQ(load(DB_SHT, "T", sht_len), DBE_OK);
  EXPECT_STREQ(reinterpret_cast<const char*>(read.data() + 68), "A");
  EXPECT_EQ(read[68 + 62], 0) << "the second entry was beyond the length";
}

TEST_F(TargetParameters, ADeletedTargetTakesParametersAndHardwareWithItAndLeavesItsShadow) {
  ASSERT_EQ(put(Record("T")), DBE_OK);
  ASSERT_EQ(store(DB_PRM, "T", prm("T")), DBE_OK);
  ASSERT_EQ(store(DB_THW, "T", thw("T")), DBE_OK);
  ASSERT_EQ(store(DB_SHT, "T", sht("T").add("A", "1", 12)), DBE_OK);
  ASSERT_EQ(del("T"), DBE_OK);
  EXPECT_EQ(load(DB_SHT, "T", 100), DBE_NO_TARGET);
  ASSERT_EQ(put(Record("NEXT")), DBE_OK);
  EXPECT_EQ(load(DB_PRM, "NEXT", 100), DBE_NOT_FOUND);
  EXPECT_EQ(load(DB_THW, "NEXT", 100), DBE_NOT_FOUND);
  ASSERT_EQ(load(DB_SHT, "NEXT", 130), DBE_OK) << "the shadow passes on with the number";
  EXPECT_STREQ(reinterpret_cast<const char*>(read.data()), "T");
}

TEST_F(TargetParameters, ARenamedTargetKeepsTheNameThatItsRecordsWereStoredWith) {
  ASSERT_EQ(put(Record("OLD")), DBE_OK);
  ASSERT_EQ(store(DB_PRM, "OLD", prm("OLD")), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "OLD", "NEW"), DBE_OK);
  ASSERT_EQ(load(DB_PRM, "NEW", prm_len), DBE_OK);
  EXPECT_STREQ(reinterpret_cast<const char*>(read.data()), "OLD");
}

TEST_F(TargetParameters, TheListGoesOverTheParametersOfAllTargets) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name)), DBE_OK);
  ASSERT_EQ(store(DB_PRM, "C", prm("C")), DBE_OK);
  ASSERT_EQ(store(DB_PRM, "A", prm("A")), DBE_OK);
  ASSERT_EQ(store(DB_THW, "B", thw("B")), DBE_OK);
  unsigned char filter[64] = {};
  unsigned char state[420];
  std::vector<unsigned char> record(prm_len);
  ASSERT_EQ(db_init_list(task, DB_PRM, filter, state, sizeof state), DBE_OK);
  ASSERT_EQ(db_get_more(task, DB_PRM, state, record.data(), static_cast<std::uint16_t>(prm_len)), DBE_OK);
  EXPECT_EQ(record, prm("A").bytes);
  ASSERT_EQ(db_get_more(task, DB_PRM, state, record.data(), static_cast<std::uint16_t>(prm_len)), DBE_OK);
  EXPECT_EQ(record, prm("C").bytes);
  for (int again = 0; again < 2; ++again)
    EXPECT_EQ(db_get_more(task, DB_PRM, state, record.data(), static_cast<std::uint16_t>(prm_len)),
              DBE_END_OF_LIST);
}

TEST_F(TargetParameters, AListBlockOneByteShortIsRefusedUntouched) {
  unsigned char filter[64] = {};
  std::vector<unsigned char> state(419, 0xEE);
  EXPECT_EQ(db_init_list(task, DB_PRM, filter, state.data(), 419), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(state, std::vector<unsigned char>(419, 0xEE));
}

TEST_F(TargetParameters, OnlyParametersCanBeListed) {
  unsigned char filter[64] = {};
  unsigned char state[420];
  EXPECT_EQ(db_init_list(task, DB_THW, filter, state, sizeof state), DBE_BAD_DB_ID);
  EXPECT_EQ(db_init_list(task, DB_SHT, filter, state, sizeof state), DBE_BAD_DB_ID);
}

}  // namespace
}  // namespace target_test
