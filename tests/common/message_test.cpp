// Messages, their file, the log, and trace lines.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "common/agent.h"
#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::Agent;
using zvrdb::test::TempInstallation;

// Every number that the library may log or render, with the count of its inserts.
struct Known {
  uint32_t number;
  uint32_t inserts;
};
constexpr Known kKnown[] = {
    {35844, 2}, {35854, 1}, {35864, 1}, {36353, 1}, {36354, 1}, {36355, 1}, {36356, 0}, {36357, 1},
    {36358, 1}, {36359, 0}, {36360, 0}, {36361, 1}, {36362, 1}, {36363, 1}, {36364, 1}, {36365, 1},
    {36366, 1}, {36376, 3}, {36377, 4}, {36378, 3}, {36379, 5}, {36380, 4}, {36381, 2}, {36383, 2},
    {36385, 0}, {36386, 0}, {36387, 0}, {36388, 1}, {36391, 0}, {36392, 0}, {36393, 0}, {36394, 0},
    {36395, 0}, {36396, 0}, {36397, 0}, {36398, 0}, {36399, 0}, {36400, 0}, {36401, 0}, {36402, 0},
    {36403, 0}, {36404, 0}, {36405, 4}, {36406, 1}, {36409, 2}, {36415, 2}, {36417, 2}, {36418, 2},
    {36419, 0}, {36420, 0}, {36421, 0}, {36422, 0}, {36423, 0}, {36424, 0}, {36425, 0}, {36426, 0},
    {36427, 0}, {36428, 0}, {36429, 1}, {36430, 1}, {36431, 1}, {36432, 1}, {36433, 1}, {36434, 2},
    {36435, 2}, {36436, 2}, {36437, 1}, {36438, 1}, {36439, 1}, {36440, 1}, {36441, 1}, {36442, 2},
    {36443, 1}, {36444, 1}, {36445, 1}, {36446, 1}, {36447, 1}, {36448, 1}, {36449, 2}, {36450, 2},
    {36451, 1}, {36452, 1}, {36453, 1}, {36454, 1}, {36455, 0}, {36456, 1}, {36457, 0}, {36458, 0},
    {36459, 1}, {36460, 1}, {36461, 1}, {36462, 2}, {36463, 0}, {36464, 0}, {36465, 1}, {36466, 0},
    {36467, 0}, {36468, 1}, {36469, 0},
};

class Messages : public testing::Test {
 protected:
  void SetUp() override { start(); }
  void TearDown() override { coi_term_task(task_, 0); }
  void start() {
    task_ = co_init_task("tester", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
  }
  void restart() {
    coi_term_task(task_, 0);
    start();
  }
  std::string log() const { return installation_.read("log/messages.log"); }

  TempInstallation installation_;
  void* task_ = nullptr;
};

TEST_F(Messages, EveryKnownNumberHasATextWithItsInserts) {
  for (const Known& known : kKnown) {
    const char* text = co_message_text(task_, known.number);
    ASSERT_NE(text, nullptr) << known.number;
    EXPECT_GT(strlen(text), 3u) << known.number;
    for (uint32_t insert = 1; insert <= 9; ++insert) {
      const bool present = strstr(text, ("%" + std::to_string(insert)).c_str()) != nullptr;
      EXPECT_EQ(present, insert <= known.inserts) << known.number << " insert " << insert << ": " << text;
    }
  }
}

TEST_F(Messages, TheFileHoldsNothingTwiceAndNothingUnknown) {
  std::ifstream file(ZVR_TEST_MESSAGES);
  ASSERT_TRUE(file);
  std::string line;
  size_t index = 0;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    ASSERT_LT(index, std::size(kKnown)) << line;
    EXPECT_EQ(line.substr(0, 6), std::to_string(kKnown[index].number) + " ") << line;
    ++index;
  }
  EXPECT_EQ(index, std::size(kKnown));
}

TEST_F(Messages, NamesOfRecordTypesFitTheirBuffer) {
  char buffer[CO_MESSAGE_BUFFER];
  for (const Known& known : kKnown) {
    memset(buffer, 0x55, sizeof buffer);
    ASSERT_EQ(co_log2_notest(task_, known.number, buffer, 0, 0, ""), CO_OK);
    ASSERT_NE(memchr(buffer + CO_MESSAGE_PREFIX, '\0', sizeof buffer - CO_MESSAGE_PREFIX), nullptr);
  }
  co_log2_notest(task_, 36397, buffer, 0, 0, "");
  EXPECT_STREQ(buffer + CO_MESSAGE_PREFIX, "target");
  EXPECT_EQ(std::string(buffer, CO_MESSAGE_PREFIX), "ZVR36397I          ");
  EXPECT_EQ(log(), "");
}

TEST_F(Messages, ALineTellsTimeProcessTaskSeverityNumberAndText) {
  const co_date date{2026, 11, 21};
  const co_time time{5, 6, 7, 8};
  co_test_set_clock(&date, &time);
  EXPECT_EQ(
      co_log2(task_, 36379, 0, 0, 0, "%s|%s|%hd|%s|%s", "USER", "a|b", static_cast<short>(16), "key", "type"),
      CO_OK);
  co_test_set_clock(nullptr, nullptr);
  EXPECT_EQ(log(),
            "2026-11-21 05:06:07.08 " + std::to_string(getpid()) +
                " tester ZVR36379E The value of keyword USER is too long: a|b. At most 16 characters are "
                "allowed (record key of type type).\n");
  EXPECT_STREQ(co_log_path(task_), installation_.path("log/messages.log").c_str());
}

TEST_F(Messages, AnUnknownNumberStillTellsItsInserts) {
  co_log2(task_, 40000, 0, 0, 0, "%s|%ld", "first", 2L);
  EXPECT_NE(log().find("ZVR40000E"), std::string::npos);
  EXPECT_NE(log().find("first 2"), std::string::npos);
}

TEST_F(Messages, OddInsertsAreHarmless) {
  const std::string endless(5000, 'x');
  co_log2(task_, 36355, 0, 0, 0, "%s", endless.c_str());
  co_log2(task_, 36355, 0, 0, 0, "%s", "line\nbreak\tand \x1b[31mcolour");
  co_log2(task_, 36379, 0, 0, 0, "%s", "alone");
  co_log2(task_, 36355, 0, 0, 0, "||||||||||||||||||||");
  co_log2(task_, 36355, 0, 0, 0, "%s", "%s%n%1%2");
  std::istringstream lines(log());
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    ++count;
    EXPECT_LT(line.size(), 1400u);
    for (char c : line) EXPECT_GE(static_cast<unsigned char>(c), 0x20);
  }
  EXPECT_EQ(count, 5);
  char buffer[CO_MESSAGE_BUFFER + 1];
  buffer[CO_MESSAGE_BUFFER] = 77;
  co_log2_notest(task_, 36355, buffer, 0, 0, "%s", endless.c_str());
  EXPECT_EQ(strlen(buffer + CO_MESSAGE_PREFIX), CO_MESSAGE_BUFFER - CO_MESSAGE_PREFIX - 1);
  EXPECT_EQ(buffer[CO_MESSAGE_BUFFER], 77);
}

TEST_F(Messages, WithoutABufferTheMessageIsLogged) {
  EXPECT_EQ(co_log2_notest(task_, 36392, nullptr, 0, 0, ""), CO_OK);
  EXPECT_NE(log().find("ZVR36392E"), std::string::npos);
}

TEST_F(Messages, AnInstallationMayReplaceSingleTexts) {
  installation_.write("messages/zvr.msg",
                      "36397 I Zielsystem\r\n36355 W zu wenig Speicher: %1\nnonsense\n99 X bad\n");
  restart();
  EXPECT_STREQ(co_message_text(task_, 36397), "Zielsystem");
  EXPECT_STREQ(co_message_text(task_, 36355), "zu wenig Speicher: %1");
  EXPECT_STREQ(co_message_text(task_, 36398), "target parameters");
  EXPECT_EQ(co_message_text(task_, 99), nullptr);
}

TEST_F(Messages, TheEnvironmentMayNameAnotherFile) {
  installation_.write("other.msg", "36397 I elsewhere\n");
  setenv("ZVR_MESSAGES", installation_.path("other.msg").c_str(), 1);
  restart();
  unsetenv("ZVR_MESSAGES");
  EXPECT_STREQ(co_message_text(task_, 36397), "elsewhere");
  EXPECT_EQ(co_message_text(task_, 36398), nullptr);
}

TEST_F(Messages, ALogThatWasMovedAwayIsOpenedAnew) {
  co_log2(task_, 36392, 0, 0, 0, "");
  ASSERT_EQ(unlink(installation_.path("log/messages.log").c_str()), 0);
  co_log2(task_, 36387, 0, 0, 0, "");
  EXPECT_EQ(log().find("ZVR36392"), std::string::npos);
  EXPECT_NE(log().find("ZVR36387"), std::string::npos);
}

TEST_F(Messages, ALogThatWasRenamedIsOpenedAnew) {
  co_log2(task_, 36392, 0, 0, 0, "");
  const std::string path = installation_.path("log/messages.log");
  ASSERT_EQ(rename(path.c_str(), (path + ".1").c_str()), 0);
  co_log2(task_, 36387, 0, 0, 0, "");
  EXPECT_NE(log().find("ZVR36387"), std::string::npos);
  EXPECT_EQ(installation_.read("log/messages.log.1").find("ZVR36387"), std::string::npos);
}

TEST_F(Messages, ATaskOfAnOddNameStillWritesOneLine) {
  void* odd = co_init_task("odd\nname\x1b", nullptr, 0);
  ASSERT_NE(odd, nullptr);
  co_log2(odd, 36392, 0, 0, 0, "");
  coi_term_task(odd, 0);
  EXPECT_EQ(log().find('\n'), log().size() - 1);
  EXPECT_NE(log().find(" odd name  ZVR36392E "), std::string::npos) << log();
}

TEST_F(Messages, LinesOfManyWritersDoNotMix) {
  const auto write = [](void* own) {
    for (int i = 0; i < 200; ++i) co_log2(own, 36355, 0, 0, 0, "%s", "the same text for all");
  };
  Agent agent([&](Agent&) {
    write(co_init_task("agent", nullptr, 1));
    return 0;
  });
  std::thread thread([&] {
    void* own = co_init_task("thread", nullptr, 0);
    write(own);
    coi_term_task(own, 0);
  });
  write(task_);
  thread.join();
  EXPECT_EQ(agent.result(), 0);
  std::istringstream lines(log());
  std::string line;
  int count = 0;
  for (; std::getline(lines, line); ++count)
    ASSERT_TRUE(line.ends_with("ZVR36355E Not enough memory for the same text for all.")) << line;
  EXPECT_EQ(count, 600);
}

TEST_F(Messages, TraceIsOffUntilTheSharedWordIsSet) {
  EXPECT_EQ(co_trc_test(task_, 0, 39), 0u);
  EXPECT_EQ(co_trc_test(task_, 5, 2), 0u);
  Agent agent([](Agent&) { return co_set_trace(co_init_task("admin", nullptr, 1), 0x100 | 1u << 5); });
  EXPECT_EQ(agent.result(), 0);
  EXPECT_EQ(co_trc_test(task_, 0, 39), 1u);
  EXPECT_EQ(co_trc_test(task_, 5, 2), 1u);
  EXPECT_EQ(co_trc_test(task_, 0, 2), 0u);
  co_trc2(task_, 0, 39, "db_get", "return data = %hx", static_cast<unsigned short>(8194));
  const std::string trace = installation_.read("log/trace.log");
  EXPECT_NE(trace.find(" tester 0/39 db_get: return data = 2002\n"), std::string::npos) << trace;
  EXPECT_EQ(co_set_trace(task_, 0), CO_OK);
  EXPECT_EQ(co_trc_test(task_, 0, 39), 0u);
}

TEST_F(Messages, TraceOfALevelOrComponentThatIsNoneIsOff) {
  EXPECT_EQ(co_set_trace(task_, 0xFFFFFFFF), CO_OK);
  for (const uint32_t level : {0u, 1u, 2u, 3u, 4u, 5u}) EXPECT_EQ(co_trc_test(task_, level, 2), 1u) << level;
  EXPECT_EQ(co_trc_test(task_, 0, 39), 1u);
  EXPECT_EQ(co_trc_test(task_, 8, 2), 0u);
  EXPECT_EQ(co_trc_test(task_, 32, 2), 0u);
  EXPECT_EQ(co_trc_test(task_, 0xFFFFFFFF, 2), 0u);
  EXPECT_EQ(co_trc_test(task_, 1, 39), 0u);
  EXPECT_EQ(co_trc_test(task_, 0, 3), 0u);
  EXPECT_EQ(co_set_trace(task_, 0), CO_OK);
}

TEST_F(Messages, TheEnvironmentTurnsTraceOnForOneProcess) {
  setenv("ZVR_TRACE", "0x20", 1);
  setenv("ZVR_TRACE_FILE", installation_.path("own-trace").c_str(), 1);
  restart();
  unsetenv("ZVR_TRACE");
  EXPECT_EQ(co_trc_test(task_, 5, 2), 1u);
  EXPECT_EQ(co_trc_test(task_, 0, 39), 0u);
  co_trc2(task_, 5, 2, "f", "%s", std::string(10000, 'y').c_str());
  unsetenv("ZVR_TRACE_FILE");
  const std::string trace = installation_.read("own-trace");
  EXPECT_LE(trace.size(), 2048u);
  EXPECT_EQ(trace.back(), '\n');
  Agent agent([](Agent&) { return static_cast<int>(co_trc_test(co_init_task("o", nullptr, 1), 5, 2)); });
  EXPECT_EQ(agent.result(), 0);
}

TEST(MessageStart, AFailureBeforeTheFirstTaskGoesToStandardError) {
  testing::internal::CaptureStderr();
  const char* format = "ZVRCO014E: Task %1$s not found.\n";  // a place by number is no plain C
  EXPECT_EQ(co_init_log(35854, format, "abc"), CO_OK);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ZVRCO014E: Task abc not found.\n");
}

}  // namespace
