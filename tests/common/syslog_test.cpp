// What goes to syslog, by choice, beside the message log.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

struct Sent {
  int priority;
  std::string text;
};
std::vector<Sent> sent;

}  // namespace

// Stands in the place of the C library's for the whole test program; <syslog.h> may
// declare it in another way.
extern "C" __attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  sent.push_back(Sent{priority, text});
}

namespace {

constexpr int kUser = 1 << 3;  // the facility, as every system numbers it
constexpr int kError = kUser | 3;
constexpr int kWarning = kUser | 4;
constexpr int kInformation = kUser | 6;

class Syslog : public testing::Test {
 protected:
  void SetUp() override {
    installation_.write("messages/zvr.msg", "101 E error of %1\n102 W warning\n103 I information\n");
    task_ = co_init_task("tester", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
    sent.clear();
  }
  void TearDown() override {
    unsetenv("ZVR_SYSLOG");
    coi_term_task(task_, 0);
  }
  zvrdb::test::TempInstallation installation_;
  void* task_ = nullptr;
};

TEST_F(Syslog, MessagesGoThereWithTheirSeverityWhenItIsChosen) {
  setenv("ZVR_SYSLOG", "1", 1);
  co_log2(task_, 101, 0, 0, 0, "%s", "a 100%s disk");
  co_log2(task_, 102, 0, 0, 0, "");
  co_log2_notest(task_, 103, nullptr, 0, 0, "");
  co_log2(task_, 104, 0, 0, 0, "%ld", 5L);
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].priority, kError);
  EXPECT_EQ(sent[0].text, "ZVR00101E error of a 100%s disk");
  EXPECT_EQ(sent[1].priority, kWarning);
  EXPECT_EQ(sent[1].text, "ZVR00102W warning");
  EXPECT_EQ(sent[2].priority, kInformation);
  EXPECT_EQ(sent[2].text, "ZVR00103I information");
  EXPECT_EQ(sent[3].priority, kError);
  EXPECT_EQ(sent[3].text, "ZVR00104E (no text in the message file) 5");
  EXPECT_NE(installation_.read("log/messages.log").find("ZVR00101E error of a 100%s disk\n"),
            std::string::npos);
}

TEST_F(Syslog, NothingGoesThereUnlessItIsChosen) {
  for (const char* choice : {static_cast<const char*>(nullptr), "", "0"}) {
    if (choice == nullptr)
      unsetenv("ZVR_SYSLOG");
    else
      setenv("ZVR_SYSLOG", choice, 1);
    co_log2(task_, 101, 0, 0, 0, "%s", "x");
  }
  setenv("ZVR_SYSLOG", "1", 1);
  char rendered[CO_MESSAGE_BUFFER];
  co_log2_notest(task_, 101, rendered, 0, 0, "%s", "x");
  EXPECT_TRUE(sent.empty());
}

}  // namespace
