// The trace bracket of every function: entry, quitting, return value, exit.
#pragma once

#include <zvrco/zvrco.h>

#include <cstdint>

namespace zvrdb {

// Said before the tail when a function leaves early.
inline void trace_quitting(void* task, const char* function) {
  if (co_trc_test(task, 0, 39)) co_trc2(task, 0, 39, function, "%s", "<><><><><> QUITTING");
}

// Prints the entry line when made and the tail when it goes out of scope, so that no
// path can miss them.  `result` points at the function's return code, or is null
// for functions without one.  Costs one test when trace is off.
class trace_bracket {
 public:
  trace_bracket(void* task, const char* function, const std::int16_t* result = nullptr)
      : task_(task), function_(function), result_(result) {
    if (co_trc_test(task_, 0, 39)) co_trc2(task_, 0, 39, function_, "%s", ">>>>>>>>>> ENTRY");
  }
  ~trace_bracket() {
    if (co_trc_test(task_, 0, 39)) tail();
  }
  trace_bracket(const trace_bracket&) = delete;
  trace_bracket& operator=(const trace_bracket&) = delete;
  void quitting() const { trace_quitting(task_, function_); }

 private:
  void tail() const {
    if (result_) co_trc2(task_, 0, 39, function_, "return data = %hx", static_cast<unsigned short>(*result_));
    co_trc2(task_, 0, 39, function_, "%s", "<<<<<<<<<< EXIT");
  }
  void* task_;
  const char* function_;
  const std::int16_t* result_;
};

}  // namespace zvrdb

// One trace line, formatted only when its level is on.
#define ZVR_TRACE(task, level, component, ...)                                                        \
  do {                                                                                                \
    if (co_trc_test(task, level, component)) co_trc2(task, level, component, __func__, __VA_ARGS__); \
  } while (0)
