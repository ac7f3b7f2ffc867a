// Starting programs of a load table and threads of a task table.
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tasklaunch/launch.h"
#include "tasklaunch/launch_fixture.h"
#include "tasklaunch/version.h"

using namespace zvrdb::tasklaunch;

namespace {

// What the body of a task saw, written to a pipe as one text.
int told[2] = {-1, -1};

std::string shown(const char* text) {
  return text ? "[" + std::string(text) + "]" : "null";
}

std::uint16_t tell(void* task, const char* name, int count, char** arguments) {
  std::string text = std::string(name) + " " + std::to_string(count);
  for (int i = 0; i < count; ++i) text += " " + shown(arguments[i]);
  text += co_slots(task) ? " in a task" : " without a task";
  text += thread_started() ? ", started" : ", not started";
  if (write(told[1], text.c_str(), text.size()) < 0) return 1;
  close(told[1]);
  return 7;
}

std::uint16_t answer_301(void*, const char*, int, char**) {
  return 301;
}

std::uint16_t tell_stack(void*, const char*, int, char**) {
  pthread_attr_t attributes;
  std::size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 1;
  pthread_attr_getstacksize(&attributes, &size);
  pthread_attr_destroy(&attributes);
  const std::string text = std::to_string(size);
  if (write(told[1], text.c_str(), text.size()) < 0) return 1;
  close(told[1]);
  return 0;
}

constexpr zvr_task_row tasks[] = {
    {"teller", tell, 0, nullptr},
    {"elevenchars", tell, 0, nullptr},
    {"odd", answer_301, 0, nullptr},
    {"stack", tell_stack, 0, nullptr},
    {"", nullptr, 0, nullptr},
};

// Allocations that fail from the nth on, threads that do not start, nothing leaked.
int allocations_left = -1;
int live_allocations = 0;
int thread_error = 0;

void* counted_allocate(std::size_t size) {
  if (allocations_left == 0) return nullptr;
  if (allocations_left > 0) --allocations_left;
  ++live_allocations;
  return calloc(1, size);
}
void counted_release(void* address) {
  if (address) --live_allocations;
  free(address);
}
int failing_thread(void (*)(void*), void*) {
  return thread_error;
}
// Threads that a test can wait for: a task that is still ending would bind the process
// to the installation of the test before.
std::vector<std::thread> threads;
int joined_later(void (*body)(void*), void* argument) {
  threads.emplace_back(body, argument);
  return 0;
}

std::vector<std::string> spawned;
bool spawned_detached = false;
int spawn_error = 0;
int noted_program(const char* file, char* const* arguments, bool detached) {
  spawned = {file};
  for (; *arguments; ++arguments) spawned.emplace_back(*arguments);
  spawned_detached = detached;
  return spawn_error;
}

class CreateTask : public zvrtest::LaunchTest {
 protected:
  CreateTask() {
    allocations_left = -1;
    live_allocations = 0;
    thread_error = EAGAIN;
    spawn_error = 0;
    spawned.clear();
  }
  zvr_program program_ = {tasks, no_tasks().loads, "", "", ""};
  const launch_system system_ = {counted_allocate, counted_release, failing_thread, noted_program};
  const launch_system joining_ = {counted_allocate, counted_release, joined_later, noted_program};

  void open_pipe() { ASSERT_EQ(0, pipe(told)); }
  static std::string hear() {
    std::string text;
    char piece[512];
    for (ssize_t got; (got = read(told[0], piece, sizeof piece)) > 0;) text.append(piece, static_cast<std::size_t>(got));
    close(told[0]);
    return text;
  }
  static void end_threads() {
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }
  std::string run_thread_with(int count, char** arguments, const char* name = "teller") {
    open_pipe();
    const std::uint16_t rc = create_task(program_, joining_, task_, name, count, arguments);
    EXPECT_EQ(0, rc);
    if (rc != 0) close(told[1]);
    const std::string heard = hear();
    end_threads();
    return heard;
  }
};

TEST_F(CreateTask, WithBothTablesEmptyNothingIsKnown) {
  EXPECT_EQ(288, create_task(no_tasks(), linux_system(), task_, "anything", 0, nullptr));
  EXPECT_EQ(1u, logged(35854));
  EXPECT_EQ(0u, logged(35864));
  EXPECT_EQ(0u, logged(35844));
  EXPECT_NE(std::string::npos, log().find("Task anything is not known."));
}

TEST_F(CreateTask, AnEmptyNameIsNotTheEndRow) {
  EXPECT_EQ(288, create_task(program_, linux_system(), task_, "", 0, nullptr));
  EXPECT_EQ(288, create_task(program_, linux_system(), task_, nullptr, 0, nullptr));
}

TEST_F(CreateTask, AThreadRunsTheBodyInATaskOfItsOwn) {
  char first[] = "first";
  char second[] = "second";
  char* arguments[] = {first, second};
  EXPECT_EQ("teller 2 [first] [second] in a task, started", run_thread_with(2, arguments));
  EXPECT_EQ(1u, logged(35864));
  EXPECT_EQ(0u, logged(35844));
}

// In a process of its own: the thread is nobody's to wait for.
TEST_F(CreateTask, TheSystemsThreadHasTheStackThatItIsTold) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer gives each thread a larger stack";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        char word[] = "word";
        char* arguments[] = {word};
        open_pipe();
        const std::uint16_t rc = create_task(program_, linux_system(), task_, "stack", 1, arguments);
        std::fprintf(stderr, "%u %s", rc, hear().c_str());
        _exit(3);
      },
      ::testing::ExitedWithCode(3), "^0 256000$");
}

TEST_F(CreateTask, ANameIsCutToElevenBytesBeforeItIsLookedUp) {
  EXPECT_EQ("elevenchars 0 in a task, started", run_thread_with(0, nullptr, "elevencharsand more"));
}

TEST_F(CreateTask, ArgumentsAreCutToTheirSlots) {
  std::string text[6];
  char* arguments[6];
  for (int i = 0; i < 6; ++i) {
    text[i] = std::string(100, static_cast<char>('a' + i));
    arguments[i] = text[i].data();
  }
  std::string wanted = "teller 6";
  for (int i = 0; i < 6; ++i) wanted += " [" + std::string(i == 2 ? 64 : 19, static_cast<char>('a' + i)) + "]";
  EXPECT_EQ(wanted + " in a task, started", run_thread_with(6, arguments));
}

TEST_F(CreateTask, MoreThanSixArgumentsAreClampedAndNullOnesStayNull) {
  char some[] = "some";
  char* arguments[] = {some, nullptr, some, nullptr, some, some, some, some};
  EXPECT_EQ("teller 6 [some] null [some] null [some] [some] in a task, started", run_thread_with(8, arguments));
}

TEST_F(CreateTask, ANegativeCountOrNoArrayIsNoArguments) {
  char* arguments[] = {nullptr};
  EXPECT_EQ("teller 0 in a task, started", run_thread_with(-3, arguments));
  EXPECT_EQ("teller 0 in a task, started", run_thread_with(4, nullptr));
}

TEST_F(CreateTask, ArgumentsBelongToTheThreadAndNotToTheCaller) {
  char word[] = "before";
  char* arguments[] = {word};
  open_pipe();
  ASSERT_EQ(0, create_task(program_, joining_, task_, "teller", 1, arguments));
  std::memset(word, 'x', 6);
  arguments[0] = nullptr;
  EXPECT_EQ("teller 1 [before] in a task, started", hear());
  end_threads();
  EXPECT_EQ(0, live_allocations);
}

TEST_F(CreateTask, AThreadThatCannotStartLogsBothMessagesAndLeavesNothing) {
  EXPECT_EQ(281, create_task(program_, system_, task_, "teller", 0, nullptr));
  EXPECT_EQ(1u, logged(35844));
  EXPECT_EQ(1u, logged(35864));
  EXPECT_EQ(0, live_allocations);
  EXPECT_EQ(0, thread_started());
}

TEST_F(CreateTask, WithoutMemoryNoThreadIsTried) {
  for (int left = 0; left < 2; ++left) {
    allocations_left = left;
    EXPECT_EQ(281, create_task(program_, system_, task_, "teller", 0, nullptr)) << left;
    EXPECT_EQ(0, live_allocations) << left;
  }
  EXPECT_EQ(2u, logged(35844));
  EXPECT_EQ(0u, logged(35864));
}

TEST_F(CreateTask, TheLoadTableComesBeforeTheTaskTable) {
  const zvr_load_row loads[] = {{"teller", "/opt/teller"}, {"", nullptr}};
  program_.loads = loads;
  char given[] = "given";
  char word[] = "word";
  char* arguments[] = {given, word};
  EXPECT_EQ(0, create_task(program_, system_, task_, "teller", 2, arguments));
  EXPECT_EQ((std::vector<std::string>{"/opt/teller", "/opt/teller", "word"}), spawned);
  EXPECT_STREQ("/opt/teller", arguments[0]);
  EXPECT_FALSE(spawned_detached);
  EXPECT_EQ(0u, logged(35864));
  EXPECT_EQ(0, live_allocations);
}

TEST_F(CreateTask, AProgramWithoutArgumentsStillGetsItsPath) {
  const zvr_load_row loads[] = {{"printer", "/opt/printer"}, {"", nullptr}};
  program_.loads = loads;
  EXPECT_EQ(0, create_task(program_, system_, task_, "printer", 0, nullptr));
  EXPECT_EQ((std::vector<std::string>{"/opt/printer", "/opt/printer"}), spawned);
}

TEST_F(CreateTask, StsIsDetachedInAnyCaseAndGetsItsCommandLine) {
  for (const char* name : {"STS", "sts", "Sts"}) {
    zvr_load_row loads[] = {{"", "\"/opt/my server\"  -n 3\t\"a b\"c \"\""}, {"", nullptr}};
    std::strcpy(loads[0].name, name);
    program_.loads = loads;
    char word[] = "ignored";
    char* arguments[] = {word, word};
    EXPECT_EQ(0, create_task(program_, system_, task_, name, 2, arguments));
    EXPECT_EQ((std::vector<std::string>{"/opt/my server", "/opt/my server", "-n", "3", "a bc", ""}), spawned);
    EXPECT_TRUE(spawned_detached);
    EXPECT_EQ(0, live_allocations);
  }
}

TEST_F(CreateTask, ACommandLineOfNothingOrOfTooManyPartsIsRefused) {
  std::string long_line = "/bin/true";
  for (int i = 0; i < 100; ++i) long_line += " w";
  for (const char* line : {"", "   ", long_line.c_str()}) {
    const zvr_load_row loads[] = {{"STS", line}, {"", nullptr}};
    program_.loads = loads;
    EXPECT_EQ(281, create_task(program_, system_, task_, "STS", 0, nullptr)) << line;
  }
  EXPECT_TRUE(spawned.empty());
}

TEST_F(CreateTask, AProgramThatCannotStartLogsItsPathAndTheError) {
  for (const char* name : {"printer", "STS"}) {
    const zvr_load_row loads[] = {{"printer", "/nowhere/printer"}, {"STS", "/nowhere/sts -x"}, {"", nullptr}};
    program_.loads = loads;
    EXPECT_EQ(281, create_task(program_, linux_system(), task_, name, 0, nullptr));
  }
  EXPECT_EQ(2u, logged(35844));
  EXPECT_EQ(0u, logged(35864));
  EXPECT_NE(std::string::npos, log().find("/nowhere/printer cannot be started (system error 2)"));
  EXPECT_NE(std::string::npos, log().find("/nowhere/sts -x cannot be started (system error 2)"));
}

TEST_F(CreateTask, AnEndedProgramIsReapedWithoutAnyoneAsking) {
  open_pipe();
  const std::string path = installation_.path("ends");
  installation_.write("ends", "#!/bin/sh\necho $$ >&" + std::to_string(told[1]) + "\n");
  ASSERT_EQ(0, chmod(path.c_str(), 0700));
  const zvr_load_row loads[] = {{"ends", path.c_str()}, {"", nullptr}};
  program_.loads = loads;
  ASSERT_EQ(0, create_task(program_, linux_system(), task_, "ends", 0, nullptr));
  close(told[1]);
  const pid_t process = static_cast<pid_t>(std::stol(hear()));
  // Waits in the kernel until somebody, here or in the shell, has reaped it.
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  EXPECT_EQ(-1, kill(process, 0));
  EXPECT_EQ(ESRCH, errno);
}

TEST_F(CreateTask, ADetachedProgramHasASessionAndNoStandardStreams) {
  open_pipe();
  const std::string path = installation_.path("detached");
  installation_.write("detached", "#!/bin/sh\nread -r stat </proc/self/stat\nset -- $stat\n"
                                  "echo \"$$ $6 $(readlink /proc/$$/fd/1)\" >&" + std::to_string(told[1]) + "\n");
  ASSERT_EQ(0, chmod(path.c_str(), 0700));
  const zvr_load_row loads[] = {{"STS", path.c_str()}, {"", nullptr}};
  program_.loads = loads;
  ASSERT_EQ(0, create_task(program_, linux_system(), task_, "STS", 0, nullptr));
  close(told[1]);
  long process = 0;
  long session = 0;
  char out[64] = {};
  ASSERT_EQ(3, sscanf(hear().c_str(), "%ld %ld %63s", &process, &session, out));
  EXPECT_EQ(process, session);
  EXPECT_STREQ("/dev/null", out);
}

TEST_F(CreateTask, AProgramStartsWithTheSignalMaskOfItsStarter) {
  open_pipe();
  const std::string path = installation_.path("mask");
  installation_.write("mask", "#!/bin/sh\ngrep SigBlk /proc/self/status >&" + std::to_string(told[1]) + "\n");
  ASSERT_EQ(0, chmod(path.c_str(), 0700));
  const zvr_load_row loads[] = {{"mask", path.c_str()}, {"", nullptr}};
  program_.loads = loads;
  ASSERT_EQ(0, create_task(program_, linux_system(), task_, "mask", 0, nullptr));
  close(told[1]);
  EXPECT_EQ("SigBlk:\t0000000000000000\n", hear());
}

TEST_F(CreateTask, CallTaskKeepsTheResultInTheTaskBlock) {
  EXPECT_EQ(301, call_task(program_, task_, 2, 0, nullptr));
  EXPECT_EQ(301, co_slots(task_)->task_rc);
}

TEST_F(CreateTask, CallTaskOfARowThatIsNotThereRunsNothing) {
  co_slots(task_)->task_rc = 5;
  EXPECT_EQ(288, call_task(program_, task_, 4, 0, nullptr));
  EXPECT_EQ(288, call_task(program_, task_, 65535, 0, nullptr));
  EXPECT_EQ(288, call_task(no_tasks(), task_, 0, 0, nullptr));
  EXPECT_EQ(5, co_slots(task_)->task_rc);
}

TEST(Version, TheLibraryRegistersItselfAsComponentFour) {
  const zvrdb::test::TempInstallation installation;
  void* task = co_init_task("version", nullptr, 1);
  ASSERT_NE(nullptr, task);
  const char* date = nullptr;
  const char* time = nullptr;
  zvrdb::tasklaunch::db_ver_reg(task);
  ASSERT_EQ(CO_OK, co_version(task, 4, &date, &time));
  EXPECT_STREQ("Dec 11 2000", date);
  EXPECT_STREQ("23:34:09", time);
  coi_term_task(task, 0);
}

}  // namespace
