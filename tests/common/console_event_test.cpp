// Console events held back while a task is inside a call.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <string>

#include "common/agent.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::Agent;
using zvrdb::test::TempInstallation;

std::atomic<int> events{0};
void count_event(int) {
  events.fetch_add(1);
}

// Each case runs in a process of its own: the guard stays for a process's life.
int in_child(int (*body)(void* task)) {
  TempInstallation installation;
  Agent agent([body](Agent&) {
    void* task = co_init_task("guarded", nullptr, 1);
    return task == nullptr ? 99 : body(task);
  });
  return agent.result();
}

void choose(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigaction(number, &action, nullptr);
}

TEST(ConsoleEvents, AnEventInsideACallComesAtItsEndToTheProgramsHandler) {
  EXPECT_EQ(in_child([](void* task) {
              choose(SIGINT, count_event);
              co_hold_events(task);
              raise(SIGINT);
              if (events != 0) return 1;
              co_release_events(task);
              return events == 1 ? 0 : 2;
            }),
            0);
}

TEST(ConsoleEvents, OutsideACallTheProgramsHandlerRunsAtOnce) {
  EXPECT_EQ(in_child([](void* task) {
              choose(SIGHUP, count_event);
              co_hold_events(task);
              co_release_events(task);
              if (events != 0) return 1;
              raise(SIGHUP);
              return events == 1 ? 0 : 2;
            }),
            0);
}

TEST(ConsoleEvents, AnEventWithoutAHandlerEndsTheProcessOnlyAfterTheCall) {
  for (int number : {SIGINT, SIGQUIT, SIGHUP}) {
    TempInstallation installation;
    Agent agent([number](Agent& self) {
      void* task = co_init_task("guarded", nullptr, 1);
      signal(number, SIG_DFL);
      co_hold_events(task);
      raise(number);
      self.tell(1);
      co_release_events(task);
      return 3;
    });
    EXPECT_EQ(agent.hear(), 1u) << number;
    EXPECT_EQ(agent.result(), 1000 + number);
  }
}

TEST(ConsoleEvents, OutsideACallAnEventWithoutAHandlerEndsTheProcess) {
  EXPECT_EQ(in_child([](void* task) {
              signal(SIGINT, SIG_DFL);
              co_hold_events(task);
              co_release_events(task);
              raise(SIGINT);
              return 3;
            }),
            1000 + SIGINT);
}

TEST(ConsoleEvents, AnIgnoredEventStaysIgnored) {
  EXPECT_EQ(in_child([](void* task) {
              signal(SIGINT, SIG_IGN);
              co_hold_events(task);
              raise(SIGINT);
              co_release_events(task);
              raise(SIGINT);
              struct sigaction action {};
              sigaction(SIGINT, nullptr, &action);
              return action.sa_handler == SIG_IGN ? 0 : 1;
            }),
            0);
}

TEST(ConsoleEvents, OtherEventsAreNotHeld) {
  EXPECT_EQ(in_child([](void* task) {
              choose(SIGUSR1, count_event);
              co_hold_events(task);
              raise(SIGUSR1);
              return events == 1 ? 0 : 1;
            }),
            0);
}

TEST(ConsoleEvents, HoldsNestAndTheLastReleaseDelivers) {
  EXPECT_EQ(in_child([](void* task) {
              choose(SIGINT, count_event);
              void* second = co_init_task("second", nullptr, 0);
              co_hold_events(task);
              co_hold_events(task);
              co_hold_events(second);
              raise(SIGINT);
              raise(SIGINT);
              co_release_events(task);
              co_release_events(task);
              if (events != 0) return 1;
              co_release_events(task);  // holds nothing any more
              if (events != 0) return 2;
              coi_term_task(second, 0);  // an ending task lets go
              return events == 1 ? 0 : 3;
            }),
            0);
}

TEST(ConsoleEvents, AHandlerChosenLaterByTheProgramIsLeftAlone) {
  EXPECT_EQ(in_child([](void* task) {
              co_hold_events(task);
              co_release_events(task);
              choose(SIGINT, count_event);
              co_hold_events(task);
              raise(SIGINT);
              co_release_events(task);
              return events == 1 ? 0 : 1;
            }),
            0);
}

}  // namespace
