// Date, time and delays, with the seams of tests.
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>

#include "common/clock.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

std::mutex clock_mutex;
bool clock_stands = false;  // the three under clock_mutex
co_date standing_date;
co_time standing_time;

std::atomic<uint32_t> delay_numerator{1};
std::atomic<uint32_t> delay_denominator{1};
std::atomic<uint64_t> delayed{0};

// Days since 1970-01-01 of the civil calendar.
int32_t day_number(const co_date& date) {
  const int32_t month = std::clamp<int32_t>(date.month, 1, 12);
  const int32_t year = static_cast<int32_t>(date.year) - (month <= 2);
  const int32_t era = (year >= 0 ? year : year - 399) / 400;
  const int32_t year_of_era = year - era * 400;
  const int32_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
  const int32_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + day_of_era - 719468;
}

}  // namespace

void lock_clock() {
  clock_mutex.lock();
}
void unlock_clock() {
  clock_mutex.unlock();
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

void co_date_time(void* handle, co_date* date, co_time* time) {
  (void)handle;
  // Held over localtime_r too: that has a lock of its own, which no fork resets.
  std::lock_guard<std::mutex> guard(clock_mutex);
  if (clock_stands) {
    if (date != nullptr) *date = standing_date;
    if (time != nullptr) *time = standing_time;
    return;
  }
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  if (date != nullptr)
    *date = co_date{static_cast<uint16_t>(local.tm_year + 1900), static_cast<uint8_t>(local.tm_mon + 1),
                    static_cast<uint8_t>(local.tm_mday)};
  if (time != nullptr)
    *time = co_time{static_cast<uint8_t>(local.tm_hour), static_cast<uint8_t>(local.tm_min),
                    static_cast<uint8_t>(local.tm_sec), static_cast<uint8_t>(now.tv_nsec / 10000000)};
}

int16_t co_date_diff(void* handle, const co_date* a, const co_date* b) {
  (void)handle;
  if (a == nullptr || b == nullptr) return 0;
  return static_cast<int16_t>(std::clamp(day_number(*a) - day_number(*b), INT16_MIN, INT16_MAX));
}

uint16_t co_delay(void* handle, uint32_t milliseconds) {
  (void)handle;
  delayed.fetch_add(milliseconds);
  const uint64_t scaled =
      static_cast<uint64_t>(milliseconds) * delay_numerator.load() / delay_denominator.load();
  if (scaled == 0) return CO_OK;
  timespec left{static_cast<time_t>(scaled / 1000), static_cast<long>(scaled % 1000) * 1000000};
  int result;
  do {
    result = clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left);
  } while (result == EINTR);
  return result == 0 ? CO_OK : CO_IO_ERROR;
}

void co_test_delay_factor(uint32_t numerator, uint32_t denominator) {
  delay_numerator.store(numerator);
  delay_denominator.store(denominator == 0 ? 1 : denominator);
}

uint64_t co_test_delayed(void) {
  return delayed.load();
}

void co_test_set_clock(const co_date* date, const co_time* time) {
  std::lock_guard<std::mutex> guard(clock_mutex);
  clock_stands = date != nullptr && time != nullptr;
  if (!clock_stands) return;
  standing_date = *date;
  standing_time = *time;
}
