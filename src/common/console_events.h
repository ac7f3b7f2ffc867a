// Holding back of console events while a task is inside a call.
#pragma once

namespace zvrdb::common {

void forget_held_events();  // in a forked child: it is inside no call

}  // namespace zvrdb::common
