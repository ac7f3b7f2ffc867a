// Correlators: records by either key, and the way from identifier to correlator and back.
#include "requests/requests_fixture.h"

namespace request_test {
namespace {

class Correlators : public RequestsTest {
 protected:
  static db_coo record(const Id& id, std::uint32_t sequence, const std::string& origin = "ORIGIN") {
    db_coo made = correlator_of(id, origin);
    made.year = 2001;
    made.month = 2;
    made.day = 3;
    made.hour = 4;
    made.minute = 5;
    made.second = 6;
    made.sequence = sequence;
    made.num_mangled = 7;
    return made;
  }
  int put_as(const db_coo& key, db_coo stored, std::uint16_t length = sizeof(db_coo)) {
    const void* keys[] = {&key};
    return db_put(task, DB_COO, 1, keys, &stored, length);
  }
  int put_one(const db_coo& one) { return put_as(one, one); }
  int get(std::uint32_t db_id, const db_coo& key, db_coo* found, std::uint16_t length = sizeof(db_coo)) {
    const void* keys[] = {&key};
    return db_get(task, db_id, 1, keys, found, length);
  }
  static Id id(std::uint32_t sequence, const char* function = "FUNC") {
    Id one;
    one.sequence = sequence;
    one.function = function;
    return one;
  }
};

bool equal(const db_coo& a, const db_coo& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_F(Correlators, AreFoundByIdentifierAndByCorrelator) {
  for (std::uint32_t n = 1; n <= 5; ++n) ASSERT_EQ(put_one(record(id(n), 100 + n)), DBE_OK);
  db_coo found;
  ASSERT_EQ(get(DB_COO, correlator_of(id(3), "no matter"), &found), DBE_OK);
  EXPECT_TRUE(equal(found, record(id(3), 103)));
  db_coo key = record(id(9, "no matter"), 104);
  ASSERT_EQ(get(DB_COI, key, &found), DBE_OK);
  EXPECT_TRUE(equal(found, record(id(4), 104)));
}

TEST_F(Correlators, EachPartOfEitherKeyCounts) {
  ASSERT_EQ(put_one(record(id(1), 1)), DBE_OK);
  db_coo found;
  const std::vector<std::function<void(Id&)>> changes = {
      [](Id& i) { i.user = "OTHER"; }, [](Id& i) { i.source = "SRC2"; }, [](Id& i) { i.sequence = 2; },
      [](Id& i) { i.recursion = 1; }, [](Id& i) { i.function = "OTHER"; }};
  for (const auto& change : changes) {
    Id other = id(1);
    change(other);
    EXPECT_EQ(get(DB_COO, correlator_of(other), &found), DBE_NOT_FOUND);
  }
  const std::vector<std::function<void(db_coo&)>> differences = {
      [](db_coo& c) { c.origin[0] = 'X'; }, [](db_coo& c) { c.year++; },     [](db_coo& c) { c.month++; },
      [](db_coo& c) { c.day++; },           [](db_coo& c) { c.hour++; },     [](db_coo& c) { c.minute++; },
      [](db_coo& c) { c.second++; },        [](db_coo& c) { c.gmt_flag++; }, [](db_coo& c) { c.sequence++; }};
  for (const auto& difference : differences) {
    db_coo other = record(id(1), 1);
    difference(other);
    EXPECT_EQ(get(DB_COI, other, &found), DBE_NOT_FOUND);
  }
}

TEST_F(Correlators, ARecordOfAKnownIdentifierIsReplacedAndKeepsItsSecondKey) {
  ASSERT_EQ(put_one(record(id(1), 1)), DBE_OK);
  db_coo other = record(id(1), 2);
  other.num_mangled = 99;
  EXPECT_EQ(put_one(other), DBE_RECORD_REPLACED);
  db_coo found;
  EXPECT_EQ(get(DB_COI, other, &found), DBE_NOT_FOUND) << "the second key never moves";
  ASSERT_EQ(get(DB_COI, record(id(1), 1), &found), DBE_OK);
  EXPECT_EQ(found.num_mangled, 99u);
}

TEST_F(Correlators, BothKeysComeFromTheKeyOfTheCallAlone) {
  db_coo stored = record(id(2, "OTHER"), 22, "ELSEWHERE");
  stored.num_mangled = 5;
  ASSERT_EQ(put_as(record(id(1), 1), stored), DBE_OK);
  db_coo found;
  ASSERT_EQ(get(DB_COO, correlator_of(id(1)), &found), DBE_OK);
  db_coo expected = record(id(1), 1);
  expected.num_mangled = 5;
  EXPECT_TRUE(equal(found, expected));
  EXPECT_EQ(get(DB_COO, correlator_of(id(2, "OTHER")), &found), DBE_NOT_FOUND);
  // A record without anything of its own is its keys alone.
  ASSERT_EQ(put_as(record(id(3), 3), stored, 1), DBE_OK);
  ASSERT_EQ(get(DB_COO, correlator_of(id(3)), &found), DBE_OK);
  expected = record(id(3), 3);
  expected.num_mangled = 0;
  EXPECT_TRUE(equal(found, expected));
}

TEST_F(Correlators, TheSameCorrelatorForTwoRequestsIsRefused) {
  ASSERT_EQ(put_one(record(id(1), 1)), DBE_OK);
  EXPECT_EQ(put_one(record(id(2), 1)), DBE_IO_ERROR);
  db_coo found;
  EXPECT_EQ(get(DB_COO, correlator_of(id(2)), &found), DBE_NOT_FOUND);
  ASSERT_EQ(get(DB_COI, record(id(2), 1), &found), DBE_OK);
  EXPECT_EQ(found.request.request.seq_no, 1u);
}

TEST_F(Correlators, ABufferShorterThanBothKeysIsLeftAlone) {
  ASSERT_EQ(put_one(record(id(1), 1)), DBE_OK);
  for (const std::uint32_t db_id : {DB_COO, DB_COI}) {
    db_coo found;
    std::memset(&found, 0x77, sizeof found);
    const db_coo before = found;
    EXPECT_EQ(get(db_id, record(id(1), 1), &found, 123), DBE_OK);
    EXPECT_TRUE(equal(found, before));
    EXPECT_EQ(get(db_id, record(id(2), 2), &found, 123), DBE_NOT_FOUND) << "which is found out first";
    EXPECT_EQ(get(db_id, record(id(1), 1), &found, 124), DBE_OK);
    EXPECT_EQ(std::string(found.request.request.user), "USER");
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&found)[124], 0x77);
  }
}

TEST_F(Correlators, DeletionGoesByIdentifier) {
  ASSERT_EQ(put_one(record(id(1), 1)), DBE_OK);
  ASSERT_EQ(put_one(record(id(2), 2)), DBE_OK);
  const bytes key = id(1).of(DB_RQF);
  const void* keys[] = {key.data()};
  EXPECT_EQ(db_del(task, DB_COO, 1, keys), DBE_OK);
  EXPECT_EQ(db_del(task, DB_COO, 1, keys), DBE_NOT_FOUND);
  db_coo found;
  EXPECT_EQ(get(DB_COI, record(id(1), 1), &found), DBE_NOT_FOUND);
  EXPECT_EQ(get(DB_COI, record(id(2), 2), &found), DBE_OK);
}

TEST_F(Correlators, AnUnknownServerIsTheLookupsOwnCode) {
  Id unknown = id(1);
  unknown.source = "NOBODY";
  db_coo found;
  EXPECT_EQ(put_one(record(unknown, 1)), DBE_NO_TARGET);
  EXPECT_EQ(get(DB_COO, correlator_of(unknown), &found), DBE_NO_TARGET);
  const db_coo key = correlator_of(unknown);
  const void* keys[] = {&key};
  EXPECT_EQ(db_del(task, DB_COO, 1, keys), DBE_NO_TARGET);
  EXPECT_EQ(get(DB_COI, record(unknown, 1), &found), DBE_NOT_FOUND) << "which is not asked for";
}

TEST_F(Correlators, NamesMayFillTheirFields) {
  const std::string name(63, 'n');
  ASSERT_EQ(put(target_test::Record(name).ren("N")), DBE_OK);
  Id full = id(0xFFFFFFFFu, "abcdefghijklmnop");
  full.user = "ABCDEFGHIJKLMNOP";
  full.source = name;
  full.recursion = 0xFFFF;
  const db_coo one = record(full, 0xFFFFFFFFu, std::string(64, 'o'));
  ASSERT_EQ(put_one(one), DBE_OK);
  db_coo found;
  ASSERT_EQ(get(DB_COO, one, &found), DBE_OK);
  EXPECT_TRUE(equal(found, one));
  ASSERT_EQ(get(DB_COI, one, &found), DBE_OK);
  EXPECT_TRUE(equal(found, one));
}

// ---- the two ways

TEST_F(Correlators, AnIdentifierGetsACorrelatorOnceAndForAll) {
  db_coo first = correlator_of(id(1));
  ASSERT_EQ(db_reqid2corr(task, &first), DBE_OK);
  EXPECT_EQ(std::string(first.origin), "ORIGIN") << "is the caller's";
  db_coo again = correlator_of(id(1), "");
  ASSERT_EQ(db_reqid2corr(task, &again), DBE_OK);
  EXPECT_TRUE(equal(first, again));
  new_task();
  again = correlator_of(id(1), "");
  ASSERT_EQ(db_reqid2corr(task, &again), DBE_OK);
  EXPECT_TRUE(equal(first, again));
  db_coo other = correlator_of(id(1, "OTHER"));
  ASSERT_EQ(db_reqid2corr(task, &other), DBE_OK);
  EXPECT_EQ(other.sequence, first.sequence + 1);
}

TEST_F(Correlators, ACorrelatorLeadsBackToTheIdentifierItWasMadeFor) {
  db_coo made = correlator_of(id(1));
  ASSERT_EQ(db_reqid2corr(task, &made), DBE_OK);
  db_coo back = made;
  std::memset(&back.request, 0, sizeof back.request);
  ASSERT_EQ(db_corr2reqid(task, &back), DBE_OK);
  EXPECT_TRUE(equal(back, made));
}

TEST_F(Correlators, ACorrelatorFromElsewhereGetsAnIdentifier) {
  db_coo foreign = record(Id{}, 77, "ELSEWHERE");
  foreign.year = 2000;
  foreign.month = 12;
  foreign.day = 9;
  std::memset(&foreign.request, 0, sizeof foreign.request);
  std::memcpy(foreign.request.request.src_domain, "SRC", 4);
  foreign.request.request.seq_no = 5;
  foreign.request.request.recursion_no = 3;
  db_coo first = foreign;
  ASSERT_EQ(db_corr2reqid(task, &first), DBE_OK);
  EXPECT_EQ(std::string(first.request.request.user), "remuser");
  EXPECT_EQ(first.request.request.recursion_no, 0);
  EXPECT_EQ(std::string(first.request.subreq_id), "Y2000M12D09");
  EXPECT_EQ(std::string(first.request.request.src_domain), "SRC");
  EXPECT_EQ(first.request.request.seq_no, 5u);
  db_coo again = foreign;
  again.request.request.seq_no = 6;
  ASSERT_EQ(db_corr2reqid(task, &again), DBE_OK);
  EXPECT_TRUE(equal(first, again)) << "the second call finds it";
  db_coo forth = first;
  std::memset(forth.origin, 0, sizeof forth - offsetof(db_coo, origin));
  ASSERT_EQ(db_reqid2corr(task, &forth), DBE_OK);
  EXPECT_TRUE(equal(forth, first));
}

TEST_F(Correlators, AUserThatIsGivenStaysAndDatesAreWrittenInFull) {
  db_coo foreign = record(Id{}, 77, "ELSEWHERE");
  foreign.year = 65535;
  foreign.month = 255;
  foreign.day = 255;
  ASSERT_EQ(db_corr2reqid(task, &foreign), DBE_OK);
  EXPECT_EQ(std::string(foreign.request.request.user), "USER");
  EXPECT_EQ(std::string(foreign.request.subreq_id), "Y65535M255D255");
  foreign = record(id(2), 78, "ELSEWHERE");
  foreign.year = 7;
  foreign.month = 0;
  foreign.day = 1;
  ASSERT_EQ(db_corr2reqid(task, &foreign), DBE_OK);
  EXPECT_EQ(std::string(foreign.request.subreq_id), "Y0007M00D01");
}

TEST_F(Correlators, ASecondForeignCorrelatorOfTheSameIdentifierReplacesAndIsNotFound) {
  db_coo first = record(Id{}, 1, "ELSEWHERE");
  db_coo second = record(Id{}, 2, "ELSEWHERE");
  ASSERT_EQ(db_corr2reqid(task, &first), DBE_OK);
  EXPECT_EQ(db_corr2reqid(task, &second), DBE_RECORD_REPLACED);
  EXPECT_EQ(std::string(second.request.subreq_id), "Y2001M02D03") << "the identifier is in place";
  db_coo found;
  EXPECT_EQ(get(DB_COI, second, &found), DBE_NOT_FOUND);
  EXPECT_EQ(get(DB_COI, first, &found), DBE_OK);
}

TEST_F(Correlators, AForeignOneOfAnUnknownServerHasNoIdentifier) {
  Id unknown;
  unknown.source = "NOBODY";
  db_coo foreign = record(unknown, 1, "ELSEWHERE");
  EXPECT_EQ(db_corr2reqid(task, &foreign), DBE_NO_TARGET);
}

TEST_F(Correlators, AnIdentifierOfAnUnknownServerUsesTwentySequenceNumbersUp) {
  db_coo made = correlator_of(id(1));
  ASSERT_EQ(db_reqid2corr(task, &made), DBE_OK);
  Id unknown;
  unknown.source = "NOBODY";
  db_coo refused = correlator_of(unknown);
  EXPECT_EQ(db_reqid2corr(task, &refused), DBE_NO_TARGET);
  db_coo next = correlator_of(id(2));
  ASSERT_EQ(db_reqid2corr(task, &next), DBE_OK);
  EXPECT_EQ(next.sequence, made.sequence + 21);
}

TEST_F(Correlators, ATakenCorrelatorIsPassedOverUpToTwentyTimes) {
  const co_date date = {2001, 2, 3};
  const co_time time = {4, 5, 6, 0};
  co_test_set_clock(&date, &time);
  new_task();
  db_coo made = correlator_of(id(1));
  ASSERT_EQ(db_reqid2corr(task, &made), DBE_OK);
  // What the next 19 would be is there.
  for (std::uint32_t n = 1; n <= 19; ++n) {
    db_coo taken = made;
    taken.request.request.seq_no = 1000 + n;
    taken.sequence = made.sequence + n;
    ASSERT_EQ(put_one(taken), DBE_OK);
  }
  db_coo next = correlator_of(id(2));
  ASSERT_EQ(db_reqid2corr(task, &next), DBE_OK) << "the twentieth attempt";
  EXPECT_EQ(next.sequence, made.sequence + 20);
  for (std::uint32_t n = 21; n <= 40; ++n) {
    db_coo taken = made;
    taken.request.request.seq_no = 1000 + n;
    taken.sequence = made.sequence + n;
    ASSERT_EQ(put_one(taken), DBE_OK);
  }
  next = correlator_of(id(3));
  EXPECT_EQ(db_reqid2corr(task, &next), DBE_IO_ERROR) << "what the last attempt answered";
  EXPECT_EQ(db_reqid2corr(task, &next), DBE_OK) << "the numbers are used up";
  co_test_set_clock(nullptr, nullptr);
}

TEST_F(Correlators, RecordsNeedNotBeAligned) {
  std::vector<unsigned char> area(sizeof(db_coo) + 1);
  const db_coo one = correlator_of(id(1));
  std::memcpy(area.data() + 1, &one, sizeof one);
  EXPECT_EQ(db_reqid2corr(task, area.data() + 1), DBE_OK);
  EXPECT_EQ(db_corr2reqid(task, area.data() + 1), DBE_OK);
  const void* keys[] = {area.data() + 1};
  std::vector<unsigned char> found(sizeof(db_coo) + 1);
  EXPECT_EQ(db_get(task, DB_COI, 1, keys, found.data() + 1, sizeof(db_coo)), DBE_OK);
  EXPECT_EQ(found, area);
}

TEST_F(Correlators, NullArgumentsAreRefused) {
  db_coo one = correlator_of(id(1));
  EXPECT_EQ(db_reqid2corr(task, nullptr), DBE_BAD_RECORD);
  EXPECT_EQ(db_corr2reqid(task, nullptr), DBE_BAD_RECORD);
  EXPECT_EQ(db_reqid2corr(nullptr, &one), DBE_INIT_FAILED);
  EXPECT_EQ(db_corr2reqid(nullptr, &one), DBE_INIT_FAILED);
}

}  // namespace
}  // namespace request_test
