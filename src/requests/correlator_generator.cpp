// New correlators.  A correlator is unique by origin, date, time and sequence, and has to
// stay so over restarts of the system and changes of the machine's clock: the sequence
// starts anew with each day, and in a band of its own when the clock was set back.
#include <cstring>

#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "requests/control_correlator.h"
#include "requests/correlators.h"

namespace zvrdb::requests {
namespace {

using memory::tcb_of;

// corr_date holds a date in the form that a correlator has it.
static_assert(sizeof(co_date) == sizeof(DBR_CNTL::corr_date));
static_assert(offsetof(co_date, month) == 2 && offsetof(co_date, day) == 3);
static_assert(offsetof(db_coo, day) - offsetof(db_coo, year) == offsetof(co_date, day));

co_date last_date(const DBR_CNTL* cntl) {
  co_date date;
  std::memcpy(&date, cntl->corr_date, sizeof date);
  return date;
}
void set_last_date(DBR_CNTL* cntl, const co_date& date) {
  std::memcpy(cntl->corr_date, &date, sizeof date);
}
void put_date(db_coo* correlator, const co_date& date) {
  correlator->year = date.year;
  correlator->month = date.month;
  correlator->day = date.day;
}

void follow_clock(void* task, const co_date& today, std::uint32_t* num_mangled) {
  DBR_CNTL* cntl = tcb_of(task)->cntl;
  const co_date last = last_date(cntl);
  const std::int16_t days = co_date_diff(task, &today, &last);
  if (days == 0) return;
  if (days > 0) {
    cntl->corr_seq = 1;
    *num_mangled = 1;
  } else {
    ++*num_mangled;
    ZVR_TRACE(task, 4, 2, "machine clock has been 'mangled' %lu times, recovering ...",
              static_cast<unsigned long>(*num_mangled));
    cntl->corr_seq = *num_mangled * sequence_band;
  }
  set_last_date(cntl, today);
}

}  // namespace

std::int16_t init_corr(void* task) {
  const trace_bracket bracket(task, __func__);
  DBR_CNTL* cntl = tcb_of(task)->cntl;
  db_coo control;
  co_date date = {};
  if (read_control_correlator(task, &control) == DBE_OK) {
    date = {control.year, control.month, control.day};
    cntl->corr_seq = control.sequence;
  } else {
    ZVR_TRACE(task, 3, 2, "%s", "Dumming up correlator info in DBR_CNTL");
    co_date_time(task, &date, nullptr);
    cntl->corr_seq = sequence_band;
  }
  set_last_date(cntl, date);
  return DBE_OK;
}

std::int16_t build_sna_corr(void* task, void* record) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  db_coo control;
  rc = take_control_correlator(task, &control);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  co_date today = {};
  co_time now = {};
  co_date_time(task, &today, &now);
  std::uint32_t num_mangled = control.num_mangled;
  follow_clock(task, today, &num_mangled);
  DBR_CNTL* cntl = tcb_of(task)->cntl;
  db_coo made;
  std::memcpy(&made, record, sizeof made);
  put_date(&made, last_date(cntl));
  made.hour = now.hour;
  made.minute = now.minute;
  made.second = now.second;
  made.gmt_flag = 0;
  made.sequence = cntl->corr_seq++;
  std::memcpy(record, &made, sizeof made);
  control = empty_control_correlator(task);
  put_date(&control, last_date(cntl));
  control.sequence = cntl->corr_seq;
  control.num_mangled = num_mangled;
  return rc = store_control_correlator(task, &control);
}

}  // namespace zvrdb::requests
