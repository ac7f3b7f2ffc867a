// What a call leaves in the trace.
#include <sstream>
#include <vector>

#include "frame/frame_fixture.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::put_target;

constexpr std::uint32_t all_trace = 0x1FF;

struct trace_line {
  std::string function;
  std::string text;
};

class CallTrace : public zvrtest::FrameTest {
 protected:
  CallTrace() : task("traced") { EXPECT_EQ(DBE_OK, put_target(task, "A")); }
  ~CallTrace() override { co_set_trace(task, 0); }

  // Lines that the work leaves.
  template <class Work>
  std::vector<trace_line> traced(Work work) {
    const std::size_t before = installation.read("log/trace.log").size();
    co_set_trace(task, all_trace);
    work();
    co_set_trace(task, 0);
    std::istringstream text(installation.read("log/trace.log").substr(before));
    std::vector<trace_line> lines;
    // "<stamp> <process> <task> <level>/<component> <function>: <text>"
    for (std::string line; std::getline(text, line);) {
      const std::size_t place = line.find('/', line.find(" traced "));
      const std::size_t name = line.find(' ', place) + 1;
      const std::size_t colon = line.find(": ", name);
      lines.push_back({line.substr(name, colon - name), line.substr(colon + 2)});
    }
    return lines;
  }
  // Texts of one function, in order.
  static std::vector<std::string> of(const std::vector<trace_line>& lines, const char* function) {
    std::vector<std::string> texts;
    for (const trace_line& line : lines)
      if (line.function == function) texts.push_back(line.text);
    return texts;
  }
  static bool has(const std::vector<trace_line>& lines, const std::string& text) {
    for (const trace_line& line : lines)
      if (line.text == text) return true;
    return false;
  }
  // Each function leaves as often as it was entered, the last one entered first.
  static void expect_brackets_close(const std::vector<trace_line>& lines) {
    std::vector<std::string> open;
    for (const trace_line& line : lines) {
      if (line.text == ">>>>>>>>>> ENTRY") open.push_back(line.function);
      if (line.text != "<<<<<<<<<< EXIT") continue;
      ASSERT_FALSE(open.empty()) << line.function;
      EXPECT_EQ(open.back(), line.function);
      open.pop_back();
    }
    EXPECT_TRUE(open.empty()) << open.back();
  }
  using Texts = std::vector<std::string>;
  client_task task;
};

TEST_F(CallTrace, ACallSaysItsEntryItsHandlerItsResultAndItsExit) {
  const auto lines = traced([&] { EXPECT_EQ(DBE_OK, zvrtest::get_target(task, "A")); });
  EXPECT_EQ(of(lines, "db_get"),
            (Texts{">>>>>>>>>> ENTRY", "Calling get_fn for db_id 4", "return data = 0", "<<<<<<<<<< EXIT"}));
  EXPECT_EQ(of(lines, "get_trg").front(), ">>>>>>>>>> ENTRY");
  EXPECT_EQ(lines.front().function, "db_get");
  EXPECT_EQ(lines.back().function, "db_get");
  expect_brackets_close(lines);
}

TEST_F(CallTrace, ACallWithoutAHandlerQuitsAndStillPrintsItsTail) {
  const auto lines = traced([&] { EXPECT_EQ(DBE_BAD_DB_ID, db_del(task, DB_UA, 0, nullptr)); });
  EXPECT_EQ(of(lines, "db_del"),
            (Texts{">>>>>>>>>> ENTRY", "<><><><><> QUITTING", "return data = 2001", "<<<<<<<<<< EXIT"}));
  expect_brackets_close(lines);
}

TEST_F(CallTrace, ARefusedEntryQuitsTheCallAndIsLeftAllTheSame) {
  char buffer[8];
  const auto lines = traced([&] { EXPECT_EQ(DBE_BAD_DB_ID, db_get(task, 34, 0, nullptr, buffer, 8)); });
  const Texts refused = {">>>>>>>>>> ENTRY", "<><><><><> QUITTING", "return data = 2001", "<<<<<<<<<< EXIT"};
  EXPECT_EQ(of(lines, "db_get"), refused);
  EXPECT_EQ(of(lines, "dbr_in"), refused);
  EXPECT_EQ(of(lines, "dbr_out").front(), ">>>>>>>>>> ENTRY");
  EXPECT_EQ(of(lines, "dbr_out").back(), "<<<<<<<<<< EXIT");
}

TEST_F(CallTrace, EveryGenericCallNamesTheHandlerThatItCalls) {
  char list[64] = "A";
  char record[300];
  char state[420];
  std::uint16_t count = 0;
  std::uint16_t index = 0;
  const void* keys[] = {"A"};
  const auto lines = traced([&] {
    EXPECT_EQ(DBE_OK, db_start_list(task, DB_TRG, nullptr, list, sizeof list, &count, &index));
    EXPECT_EQ(DBE_OK, db_get_next(task, DB_TRG, list, 1, &index, record, sizeof record));
    zvrtest::put_target(task, "B");
    zvrtest::delete_target(task, "B");
    std::memset(state, 0, sizeof state);
    char filter[200] = {};
    db_init_list(task, DB_TRG, filter, state, sizeof state);
    db_get_more(task, DB_TRG, state, record, sizeof record);
    EXPECT_EQ(DBE_NOT_FOUND, db_get(task, DB_PRM, 1, keys, record, sizeof record));
  });
  for (const char* text :
       {"Calling start_list_fn for db_id 4", "Calling get_next_fn for db_id 4", "Calling put_fn for db_id 4",
        "Calling del_fn for db_id 4", "Calling init_list_fn for db_id 4", "Calling get_more_fn for db_id 4",
        "Calling get_fn for db_id 5"})
    EXPECT_TRUE(has(lines, text)) << text;
  expect_brackets_close(lines);
}

TEST_F(CallTrace, TheMarksAndTheSemaphoreOfACallAreTold) {
  const auto written = traced([&] { EXPECT_EQ(DBE_RECORD_REPLACED, put_target(task, "A")); });
  for (const char* text : {"finitialized set to TRUE", "Setting fwrite_in_prog to TRUE",
                           "Setting fwrite_in_prog to FALSE", "Releasing sema4 of type mem"})
    EXPECT_TRUE(has(written, text)) << text;
  EXPECT_EQ(of(written, "db_bflush").front(), ">>>>>>>>>> ENTRY");
  char config[10];
  const auto read =
      traced([&] { EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, config, sizeof config)); });
  EXPECT_TRUE(has(read, "Releasing sema4 of type file"));
  EXPECT_FALSE(has(read, "Setting fwrite_in_prog to TRUE"));
  EXPECT_TRUE(of(read, "db_bflush").empty());
}

TEST_F(CallTrace, InsideATransactionNothingIsFlushedOrReleasedUntilItsEnd) {
  ASSERT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  const auto inside = traced([&] { EXPECT_EQ(DBE_RECORD_REPLACED, put_target(task, "A")); });
  EXPECT_TRUE(of(inside, "db_bflush").empty());
  EXPECT_FALSE(has(inside, "Releasing sema4 of type mem"));
  const auto end = traced([&] { EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG)); });
  EXPECT_FALSE(of(end, "db_bflush").empty());
  EXPECT_TRUE(has(end, "Releasing sema4 of type mem"));
}

TEST_F(CallTrace, AStatusThatCannotBeReadIsLeftAsAWriteAndOneThatIsReadNotAtAll) {
  unsigned char status[4];
  const auto failed = traced([&] { EXPECT_EQ(DBE_NOT_FOUND, db_get_trg_stat(task, "NONE", status)); });
  EXPECT_TRUE(has(failed, "Setting fwrite_in_prog to FALSE"));
  EXPECT_FALSE(of(failed, "db_bflush").empty());
  expect_brackets_close(failed);
  const auto read = traced([&] { EXPECT_EQ(DBE_OK, db_get_trg_stat(task, "A", status)); });
  EXPECT_TRUE(of(read, "dbr_out").empty());
  expect_brackets_close(read);
  const auto written = traced([&] { EXPECT_EQ(DBE_OK, db_put_trg_stat(task, "A", status)); });
  EXPECT_TRUE(of(written, "dbr_in").empty());
  EXPECT_TRUE(has(written, "Releasing sema4 of type mem"));
  EXPECT_FALSE(has(written, "Setting fwrite_in_prog to FALSE"));
  expect_brackets_close(written);
}

TEST_F(CallTrace, TheEndOfATaskTellsItsReason) {
  client_task* ends = new client_task("traced");
  ASSERT_EQ(DBE_OK, zvrtest::get_target(*ends, "A"));
  const auto lines = traced([&] { delete ends; });
  EXPECT_TRUE(has(lines, "entering with reason = 0, in_das = FALSE "));
  EXPECT_TRUE(of(lines, "das_exit").back() == "<<<<<<<<<< EXIT");
  expect_brackets_close(lines);
}

}  // namespace
}  // namespace zvrdb::frame
