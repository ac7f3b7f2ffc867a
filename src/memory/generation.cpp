// The step to a new generation of the shared segment.
#include "memory/table_bounds.h"
#include "memory/trace.h"

namespace zvrdb::memory {

void raise_generation(void* task) {
  constexpr std::uint32_t generation_raised = 2;
  DBR_CNTL* cntl = tcb_of(task)->cntl;
  ++cntl->shm_generation;
  ZVR_TRACE(task, 3, 2, "New shared memory generation is %lu",
            static_cast<unsigned long>(cntl->shm_generation));
  co_set_signal(task, generation_signal, generation_raised);
}

}  // namespace zvrdb::memory
