// A call that never ends is the death of the test.
#pragma once

#include <sys/time.h>
#include <unistd.h>

namespace fault_test {

// For what comes now; the machine may have much else to do.
inline void limit_time() {
  constexpr unsigned seconds_at_work = 60, seconds_in_all = 1800;
  const itimerval at_work = {{0, 0}, {seconds_at_work, 0}};
  setitimer(ITIMER_PROF, &at_work, nullptr);
  alarm(seconds_in_all);
}

inline void end_of_limit() {
  const itimerval none = {};
  setitimer(ITIMER_PROF, &none, nullptr);
  alarm(0);
}

}  // namespace fault_test
