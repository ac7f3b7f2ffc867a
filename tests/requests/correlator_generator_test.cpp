// The generator of correlators over days, restarts and a clock that is put back.
#include <optional>

#include "requests/requests_fixture.h"

namespace request_test {
namespace {

constexpr std::uint32_t band = 512000;

class CorrelatorGenerator : public RequestsTest {
 protected:
  // The tables were built before the clock was set: build them anew.
  void SetUp() override {
    RequestsTest::SetUp();
    set_clock({2001, 2, 3});
    ASSERT_EQ(rebuild(), DBE_OK);
  }
  void TearDown() override {
    RequestsTest::TearDown();
    co_test_set_clock(nullptr, nullptr);
  }
  static void set_clock(co_date date, co_time time = {4, 5, 6, 99}) { co_test_set_clock(&date, &time); }

  db_coo next() {
    Id id;
    id.sequence = ++requests;
    db_coo made = correlator_of(id);
    EXPECT_EQ(db_reqid2corr(task, &made), DBE_OK);
    return made;
  }
  static Id control_id() {
    Id id;
    id.user = id.function = "";
    id.source = "LOCAL";
    id.sequence = 0;
    return id;
  }
  std::optional<db_coo> control() {
    const db_coo key = correlator_of(control_id());
    const void* keys[] = {&key};
    db_coo found;
    if (db_get(task, DB_COO, 1, keys, &found, sizeof found) != DBE_OK) return {};
    return found;
  }
  void lose_control() {
    const db_coo key = correlator_of(control_id());
    const void* keys[] = {&key};
    ASSERT_EQ(db_del(task, DB_COO, 1, keys), DBE_OK);
  }
  // All tasks end and the shared state is lost, as when the machine starts anew.
  void restart() {
    coi_term_task(task, 0);
    // The generator's fields survive in the common area: what the file tells must do.
    task = co_init_task("test", nullptr, 1);
    ASSERT_NE(task, nullptr);
    cntl()->corr_seq = 0xDEAD;
    std::memset(cntl()->corr_date, 0x77, sizeof cntl()->corr_date);
    ASSERT_EQ(rebuild(), DBE_OK);
  }

  std::uint32_t requests = 0;
};

std::string date_of(const db_coo& record) {
  return numbered("", record.year) + numbered("/", record.month) + numbered("/", record.day);
}

TEST_F(CorrelatorGenerator, OnANewSystemItBeginsAtItsBandAndStoresNothing) {
  EXPECT_EQ(cntl()->corr_seq, band);
  EXPECT_FALSE(control());
  const db_coo first = next();
  EXPECT_EQ(first.sequence, band);
  EXPECT_EQ(date_of(first), "2001/2/3");
  EXPECT_EQ(next().sequence, band + 1);
}

TEST_F(CorrelatorGenerator, ACorrelatorBearsTheTimeAndNoGmtFlag) {
  db_coo made = correlator_of(Id{});
  made.gmt_flag = 9;
  made.sequence = 9;
  made.num_mangled = 9;
  ASSERT_EQ(db_reqid2corr(task, &made), DBE_OK);
  EXPECT_EQ(made.hour, 4);
  EXPECT_EQ(made.minute, 5);
  EXPECT_EQ(made.second, 6);
  EXPECT_EQ(made.gmt_flag, 0);
}

TEST_F(CorrelatorGenerator, EachCorrelatorSavesWhereTheNextOneBegins) {
  next();
  next();
  const auto stored = control();
  ASSERT_TRUE(stored);
  EXPECT_EQ(date_of(*stored), "2001/2/3");
  EXPECT_EQ(stored->sequence, band + 2);
  EXPECT_EQ(stored->num_mangled, 0u);
  EXPECT_EQ(std::string(stored->origin), "LOCAL");
  EXPECT_EQ(std::string(stored->request.request.src_domain), "LOCAL");
  EXPECT_EQ(stored->hour, 0);
}

TEST_F(CorrelatorGenerator, TheControlRecordIsFoundByItsSecondKeyAsWell) {
  next();
  next();
  const auto stored = control();
  ASSERT_TRUE(stored);
  const void* keys[] = {&*stored};
  db_coo found;
  EXPECT_EQ(db_get(task, DB_COI, 1, keys, &found, sizeof found), DBE_OK) << "its second key moved with it";
}

TEST_F(CorrelatorGenerator, EachNewDayBeginsAtOne) {
  next();
  set_clock({2001, 2, 4});
  const db_coo first = next();
  EXPECT_EQ(first.sequence, 1u);
  EXPECT_EQ(date_of(first), "2001/2/4");
  EXPECT_EQ(next().sequence, 2u);
  EXPECT_EQ(control()->num_mangled, 1u);
  set_clock({2002, 1, 1});
  EXPECT_EQ(next().sequence, 1u);
}

TEST_F(CorrelatorGenerator, AClockPutBackBeginsABandOfItsOwn) {
  next();
  set_clock({2001, 2, 2});
  const db_coo first = next();
  EXPECT_EQ(first.sequence, band) << "the first time on a new system";
  EXPECT_EQ(date_of(first), "2001/2/2");
  EXPECT_EQ(control()->num_mangled, 1u);
  EXPECT_EQ(next().sequence, band + 1);
  set_clock({2001, 2, 1});
  EXPECT_EQ(next().sequence, 2 * band);
  EXPECT_EQ(control()->num_mangled, 2u);
  set_clock({2000, 2, 1});
  EXPECT_EQ(next().sequence, 3 * band);
}

TEST_F(CorrelatorGenerator, AClockPutBackBehindAForwardDayBeginsTheSecondBand) {
  next();
  set_clock({2001, 2, 4});
  next();
  set_clock({2001, 2, 3});
  const db_coo first = next();
  EXPECT_EQ(first.sequence, 2 * band);
  EXPECT_EQ(date_of(first), "2001/2/3");
  EXPECT_EQ(control()->num_mangled, 2u);
}

TEST_F(CorrelatorGenerator, AClockPutForwardAgainBeginsAtOneAndForgetsTheRecoveries) {
  next();
  set_clock({2001, 2, 1});
  next();
  set_clock({2001, 1, 31});
  next();
  set_clock({2001, 2, 1});
  EXPECT_EQ(next().sequence, 1u) << "past the stored date, though not past the one before it";
  EXPECT_EQ(control()->num_mangled, 1u);
}

TEST_F(CorrelatorGenerator, NoCorrelatorComesTwiceOverAWeekOfClockChanges) {
  std::vector<std::string> made;
  const co_date dates[] = {{2001, 2, 3}, {2001, 2, 4}, {2001, 2, 3},
                           {2001, 2, 2}, {2001, 2, 3}, {2001, 2, 4}};
  // Each day at another time, as clocks do.
  unsigned hour = 0;
  for (const co_date& date : dates) {
    set_clock(date, {static_cast<std::uint8_t>(hour++), 0, 0, 0});
    for (int n = 0; n < 3; ++n) {
      const db_coo one = next();
      made.push_back(date_of(one) + numbered(" ", one.hour) + numbered(" ", one.sequence));
    }
  }
  std::sort(made.begin(), made.end());
  EXPECT_EQ(std::unique(made.begin(), made.end()), made.end());
}

TEST_F(CorrelatorGenerator, GoesOnBehindARestartWhereItStood) {
  next();
  next();
  restart();
  EXPECT_EQ(cntl()->corr_seq, band + 2);
  EXPECT_EQ(next().sequence, band + 2);
  set_clock({2001, 2, 4});
  restart();
  EXPECT_EQ(next().sequence, 1u) << "the first of the new day";
  set_clock({2001, 2, 2});
  restart();
  EXPECT_EQ(next().sequence, 2 * band) << "the clock was put back meanwhile";
}

TEST_F(CorrelatorGenerator, WithoutItsControlRecordItGoesOnInMemoryAndBeginsAnewBehindARestart) {
  next();
  lose_control();
  EXPECT_EQ(next().sequence, band + 1) << "memory knows";
  set_clock({2001, 2, 4});
  next();
  next();
  lose_control();
  set_clock({2001, 2, 5});
  restart();
  EXPECT_EQ(cntl()->corr_seq, band);
  const db_coo first = next();
  EXPECT_EQ(first.sequence, band);
  EXPECT_EQ(date_of(first), "2001/2/5");
  EXPECT_EQ(control()->num_mangled, 0u);
}

TEST_F(CorrelatorGenerator, TheRecoveriesCountStandsInTheControlRecordAlone) {
  next();
  set_clock({2001, 2, 2});
  next();
  set_clock({2001, 2, 1});
  next();
  ASSERT_EQ(control()->num_mangled, 2u);
  lose_control();
  set_clock({2001, 1, 1});
  EXPECT_EQ(next().sequence, band) << "counted from nothing";
}

TEST_F(CorrelatorGenerator, ANewGenerationOfMemoryTakesNothingBack) {
  next();
  next();
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(next().sequence, band + 2);
}

TEST_F(CorrelatorGenerator, AMachineThatIsNoTargetHasNoGenerator) {
  ASSERT_EQ(del("LOCAL"), DBE_OK);
  db_coo made = correlator_of(Id{});
  EXPECT_EQ(db_reqid2corr(task, &made), DBE_NO_TARGET);
  EXPECT_EQ(cntl()->corr_seq, band) << "no number was used up";
  ASSERT_EQ(rebuild(), DBE_OK) << "which does not keep the tables from being built";
}

TEST_F(CorrelatorGenerator, SeveralProcessesMakeCorrelatorsOneBehindTheOther) {
  for (int n = 0; n < 4; ++n) {
    EXPECT_EQ(in_child([n](void* child) {
                Id id;
                id.user = numbered("child", static_cast<unsigned>(n));
                db_coo made = correlator_of(id);
                const int rc = db_reqid2corr(child, &made);
                return rc == DBE_OK && made.sequence == band + 2 * static_cast<unsigned>(n) ? 0 : 1;
              }),
              0);
    EXPECT_EQ(next().sequence, band + 2 * static_cast<unsigned>(n) + 1);
  }
}

TEST_F(CorrelatorGenerator, ADayFarAwayIsADifferenceOf16Bits) {
  next();
  set_clock({2100, 1, 1});  // 36,000 days on
  const db_coo far = next();
  EXPECT_EQ(date_of(far), "2100/1/1");
  EXPECT_EQ(far.sequence, 1u);
}

}  // namespace
}  // namespace request_test
