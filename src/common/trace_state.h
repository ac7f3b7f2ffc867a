// Which word the trace test reads.
//   no task yet              a private zero
//   ZVR_TRACE set            a private word with its value, for this process alone
//   otherwise                the live word in shared memory
#pragma once

namespace zvrdb::common {

void trace_by_private_word();  // off
void trace_by_environment_or_shared_word();

}  // namespace zvrdb::common
