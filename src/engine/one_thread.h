// One thread of the process at a time in the engine: buffers, cache and the list of open
// handles are the process's.  Tasks of one installation exclude each other anyway; those of
// two installations, on two threads, have nothing else between them.
#pragma once

namespace zvrdb::engine {

// Stands at the head of every call that touches what is the process's.  The thread that is
// inside may enter again.  A call that waits for another process keeps the others waiting.
class one_thread {
 public:
  one_thread();
  ~one_thread();
  one_thread(const one_thread&) = delete;
  one_thread& operator=(const one_thread&) = delete;
};

// The same beyond the end of a call, for a thread that is inside.
void keep_other_threads_out();
void let_other_threads_in();

// In a forked child only the forking thread lives on: nobody else is inside any more.
void forget_other_threads();

}  // namespace zvrdb::engine
