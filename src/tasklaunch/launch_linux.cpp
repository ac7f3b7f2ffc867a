#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "tasklaunch/launch.h"

extern char** environ;

namespace zvrdb::tasklaunch {
namespace {

constexpr std::size_t stack_size = 256000;

struct thread_start {
  void (*body)(void* argument);
  void* argument;
};

void* thread_entry(void* argument) {
  const thread_start start = *static_cast<thread_start*>(argument);
  std::free(argument);
  start.body(start.argument);
  return nullptr;
}

int start_thread(void (*body)(void* argument), void* argument) {
  auto* start = static_cast<thread_start*>(std::malloc(sizeof(thread_start)));
  if (!start) return ENOMEM;
  *start = {body, argument};
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error == 0) {
    pthread_t thread;
    error = pthread_attr_setstacksize(&attributes, stack_size);
    if (error == 0) error = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (error == 0) error = pthread_create(&thread, &attributes, thread_entry, start);
    pthread_attr_destroy(&attributes);
  }
  if (error != 0) std::free(start);
  return error;
}

// A program on its way. The thread that starts it stays to reap it, so that no ended
// program is left over whatever the process does with its children's signals.
struct program_start {
  const char* file;
  char* const* arguments;
  bool detached;
  sigset_t signals;  // blocked in the thread that asked
  pthread_mutex_t mutex;
  pthread_cond_t answered;
  bool known;
  int error;
};

int describe(const program_start& start, posix_spawnattr_t* attributes, posix_spawn_file_actions_t* files) {
  short flags = POSIX_SPAWN_SETSIGMASK;
  if (start.detached) flags |= POSIX_SPAWN_SETSID;
  int error = posix_spawnattr_setflags(attributes, flags);
  if (error == 0) error = posix_spawnattr_setsigmask(attributes, &start.signals);
  for (int stream = STDIN_FILENO; start.detached && error == 0 && stream <= STDERR_FILENO; ++stream)
    error = posix_spawn_file_actions_addopen(files, stream, "/dev/null", O_RDWR, 0);
  return error;
}

int spawn(const program_start& start, pid_t* process) {
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t files;
  int error = posix_spawnattr_init(&attributes);
  if (error != 0) return error;
  error = posix_spawn_file_actions_init(&files);
  if (error == 0) {
    error = describe(start, &attributes, &files);
    if (error == 0) error = posix_spawnp(process, start.file, &files, &attributes, start.arguments, environ);
    posix_spawn_file_actions_destroy(&files);
  }
  posix_spawnattr_destroy(&attributes);
  return error;
}

void start_and_reap(void* argument) {
  auto* start = static_cast<program_start*>(argument);
  pid_t process = -1;
  const int error = spawn(*start, &process);
  pthread_mutex_lock(&start->mutex);
  start->error = error;
  start->known = true;
  pthread_cond_signal(&start->answered);
  pthread_mutex_unlock(&start->mutex);
  // *start is gone from here on.
  if (error != 0) return;
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
}

int start_program(const char* file, char* const* arguments, bool detached) {
  program_start start = {};
  start.file = file;
  start.arguments = arguments;
  start.detached = detached;
  pthread_mutex_init(&start.mutex, nullptr);
  pthread_cond_init(&start.answered, nullptr);
  // Signals of the process are for its own threads.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &start.signals);
  int error = start_thread(start_and_reap, &start);
  pthread_sigmask(SIG_SETMASK, &start.signals, nullptr);
  if (error == 0) {
    pthread_mutex_lock(&start.mutex);
    while (!start.known) pthread_cond_wait(&start.answered, &start.mutex);
    error = start.error;
    pthread_mutex_unlock(&start.mutex);
  }
  pthread_cond_destroy(&start.answered);
  pthread_mutex_destroy(&start.mutex);
  return error;
}

void* allocate(std::size_t size) {
  return std::calloc(1, size);
}

constexpr launch_system real_system = {allocate, std::free, start_thread, start_program};

}  // namespace

const launch_system& linux_system() {
  return real_system;
}

}  // namespace zvrdb::tasklaunch
