// Users and their levels, date and time, delays, the start of a program.
#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <ctime>
#include <string>

#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::TempInstallation;

class Identity : public testing::Test {
 protected:
  void SetUp() override {
    task_ = co_init_task("t", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
  }
  void TearDown() override { coi_term_task(task_, 0); }
  uint16_t level(const char* user, const char* target = nullptr) {
    uint16_t value = 9999;
    EXPECT_EQ(co_get_uauth(task_, user, target, &value), CO_OK);
    return value;
  }
  TempInstallation installation_;
  void* task_ = nullptr;
};

TEST_F(Identity, AUserNobodyKnowsIsUnknown) {
  EXPECT_EQ(level("nobody_of_that_name"), 255);
  EXPECT_EQ(level(""), 255);
  EXPECT_EQ(co_get_uauth(task_, nullptr, nullptr, nullptr), CO_BAD_ARGUMENT);
}

TEST_F(Identity, LevelsComeFromTheFileOfUsers) {
  installation_.write("users",
                      "# user level [target]\n"
                      "\n"
                      "anna 0\r\n"
                      "bert\t1\n"
                      "carl none\n"
                      "dora 2 SERVER1\n"
                      "dora none\n"
                      "emil 254\n"
                      "emil x\n"
                      "emil\n"
                      "emil 7\n");
  EXPECT_EQ(level("anna"), 0);
  EXPECT_EQ(level("bert"), 1);
  EXPECT_EQ(level("carl"), 254);
  EXPECT_EQ(level("dora"), 254);
  EXPECT_EQ(level("dora", ""), 254);
  EXPECT_EQ(level("dora", "SERVER1"), 2);
  EXPECT_EQ(level("dora", "SERVER2"), 254);
  EXPECT_EQ(level("emil"), 7);
  EXPECT_EQ(level("ann"), 255);
}

TEST_F(Identity, DatesDifferByDaysOfTheCalendar) {
  const auto diff = [this](co_date a, co_date b) { return co_date_diff(task_, &a, &b); };
  EXPECT_EQ(diff({2026, 11, 21}, {2026, 11, 21}), 0);
  EXPECT_EQ(diff({2026, 11, 22}, {2026, 11, 21}), 1);
  EXPECT_EQ(diff({2026, 1, 1}, {2026, 12, 31}), -364);
  EXPECT_EQ(diff({2000, 3, 1}, {2000, 2, 28}), 2);
  EXPECT_EQ(diff({1900, 3, 1}, {1900, 2, 28}), 1);
  EXPECT_EQ(diff({2024, 3, 1}, {2024, 2, 28}), 2);
  EXPECT_EQ(diff({2026, 1, 1}, {0, 0, 0}), 32767);
  EXPECT_EQ(diff({0, 0, 0}, {2026, 1, 1}), -32768);
  EXPECT_EQ(co_date_diff(task_, nullptr, nullptr), 0);
}

TEST_F(Identity, EveryDayIsOneAfterTheDayBefore) {
  constexpr uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  co_date before{1999, 12, 31};
  for (uint16_t year = 2000; year < 2101; ++year) {
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    for (uint8_t month = 1; month <= 12; ++month) {
      const int days = kDays[month - 1] + (leap && month == 2);
      for (int day = 1; day <= days; ++day) {
        const co_date now{year, month, static_cast<uint8_t>(day)};
        ASSERT_EQ(co_date_diff(task_, &now, &before), 1) << year << "-" << +month << "-" << day;
        before = now;
      }
    }
  }
}

TEST_F(Identity, TheClockRunsUnlessATestHoldsIt) {
  co_date date{};
  co_time time{};
  const std::time_t now = std::time(nullptr);
  co_date_time(task_, &date, &time);
  const std::tm* local = std::localtime(&now);
  EXPECT_EQ(date.year, local->tm_year + 1900);
  const co_date held_date{1999, 2, 3};
  const co_time held_time{4, 5, 6, 7};
  co_test_set_clock(&held_date, &held_time);
  co_date_time(task_, &date, &time);
  co_test_set_clock(nullptr, nullptr);
  EXPECT_EQ(date.year, 1999);
  EXPECT_EQ(date.day, 3);
  EXPECT_EQ(time.hundredth, 7);
  co_date_time(task_, &date, nullptr);
  EXPECT_GE(date.year, 2024);
}

TEST_F(Identity, DelaysAreScaledAndCounted) {
  const uint64_t before = co_test_delayed();
  co_test_delay_factor(0, 1);
  EXPECT_EQ(co_delay(task_, 60000), CO_OK);
  EXPECT_EQ(co_test_delayed() - before, 60000u);
  co_test_delay_factor(1, 1000);
  timespec start{};
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  EXPECT_EQ(co_delay(task_, 5000), CO_OK);
  clock_gettime(CLOCK_MONOTONIC, &end);
  co_test_delay_factor(1, 1);
  EXPECT_GE((end.tv_sec - start.tv_sec) * 1000000000L + end.tv_nsec - start.tv_nsec, 5000000L);
  EXPECT_EQ(co_test_delayed() - before, 65000u);
}

TEST_F(Identity, TheTitleIsTheNameOfTheThread) {
  char before[16] = "";
  prctl(PR_GET_NAME, before);
  EXPECT_EQ(co_set_title(task_, "zvr title"), CO_OK);
  char now[16] = "";
  prctl(PR_GET_NAME, now);
  EXPECT_STREQ(now, "zvr title");
  prctl(PR_SET_NAME, before);
  EXPECT_EQ(co_set_title(task_, nullptr), CO_BAD_ARGUMENT);
}

TEST_F(Identity, HardwareNamesOfTheFilterAreLeftOut) {
  EXPECT_EQ(co_read_hw_filter(task_), CO_OK);
  EXPECT_EQ(co_hw_filtered(task_, "SERIAL"), 0);
  installation_.write("hwfilter", "# names\nSERIAL  \nDISK SIZE\r\n" + std::string(81, 'x') + "\n");
  EXPECT_EQ(co_read_hw_filter(task_), CO_OK);
  EXPECT_EQ(co_hw_filtered(task_, "SERIAL"), 1);
  EXPECT_EQ(co_hw_filtered(task_, "DISK SIZE"), 1);
  EXPECT_EQ(co_hw_filtered(task_, "DISK"), 0);
  EXPECT_EQ(co_hw_filtered(task_, std::string(81, 'x').c_str()), 0);
}

}  // namespace
