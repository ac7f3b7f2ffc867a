// The clock around fork(2): the child must not inherit a taken lock.
#pragma once

namespace zvrdb::common {

void lock_clock();
void unlock_clock();

}  // namespace zvrdb::common
