#include "engine/one_thread.h"

#include <pthread.h>

namespace zvrdb::engine {
namespace {

pthread_mutex_t inside = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

}  // namespace

one_thread::one_thread() { pthread_mutex_lock(&inside); }
one_thread::~one_thread() { pthread_mutex_unlock(&inside); }

void keep_other_threads_out() { pthread_mutex_lock(&inside); }
void let_other_threads_in() { pthread_mutex_unlock(&inside); }

void forget_other_threads() { inside = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP; }

}  // namespace zvrdb::engine
