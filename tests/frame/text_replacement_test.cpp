// A replacement of a text record that is cut short at any step, by a failure or a kill,
// and what the next caller makes of it.
#include <unistd.h>

#include "text_records_fixture.h"
#include "textrec/parsed_files.h"
#include "textrec/text_records.h"

namespace {

using zvrtest::client_task;
using zvrtest::get_single;
using zvrtest::logged;
using zvrtest::parent_link;
using zvrtest::put_single;
using zvrtest::text_record;

// The step that is not done: the Nth of this process, from 0.
int failing_step = -1;
int killing_step = -1;
int steps = 0;
std::uint16_t fail_or_die(const char*, const char*) {
  const int step = steps++;
  if (step == killing_step) kill(getpid(), SIGKILL);
  return step == failing_step ? CO_IO_ERROR : CO_OK;
}

void watch_steps(int fail, int kill_at) {
  failing_step = fail;
  killing_step = kill_at;
  steps = 0;
  co_test_file_steps(fail_or_die);
}

constexpr int most_steps = 20;

class TextReplacement : public zvrtest::TextRecordTest {
 protected:
  ~TextReplacement() override { co_test_file_steps(nullptr); }
  static text_record hops(unsigned count) { return text_record(12).set16(0, count); }
  unsigned hops_now() {
    text_record got(12);
    const std::int16_t rc = get_single(task, DB_SCF, got);
    return rc == DBE_OK ? got.u16(0) : 100000u + static_cast<unsigned>(rc);
  }
  bool nothing_left() const { return std::filesystem::is_empty(installation.path("db/tmp")); }
};

constexpr unsigned no_record = 100000 + DBE_NOT_FOUND;

// The steps of an update in order: the close of the question whether the record exists,
// then open, write, fsync, close, remove, rename.  A new record has neither the first nor
// the removal.
constexpr int opening = 1;
constexpr int removal = 5;
constexpr int renaming = 6;

TEST_F(TextReplacement, KilledAtAnyStepOfAnUpdateTheRecordIsTheOldOrTheNewOne) {
  int killed = 0;
  for (int step = 0; step < most_steps; ++step) {
    ASSERT_GE(put_single(task, DB_SCF, hops(1)), DBE_OK);
    const unsigned repairs = logged(task, 36406);
    zvrtest::child_process child([step](parent_link&) {
      client_task own("killed");
      text_record got(12);
      if (get_single(own, DB_SCF, got) != DBE_OK) return 9;
      watch_steps(-1, step);
      return put_single(own, DB_SCF, hops(2)) == DBE_RECORD_REPLACED ? 0 : 8;
    });
    const int ended = child.finish();
    if (ended == 0) {
      EXPECT_EQ(2u, hops_now());
      break;
    }
    ASSERT_EQ(1000 + SIGKILL, ended) << step;
    ++killed;
    EXPECT_EQ(step < opening ? 1 : 0, task.cntl()->fparsed_ok) << step;
    // Before the renaming the record is the temporary file alone.
    EXPECT_EQ(step < renaming ? 1u : 2u, hops_now()) << step;
    EXPECT_EQ(1, task.cntl()->fparsed_ok) << step;
    EXPECT_EQ(repairs + (step <= opening ? 0 : 1), logged(task, 36406)) << step;
    EXPECT_TRUE(nothing_left()) << step;
  }
  EXPECT_EQ(7, killed);
}

TEST_F(TextReplacement, KilledAtAnyStepOfANewRecordThereIsNone) {
  int killed = 0;
  for (int step = 0; step < most_steps; ++step) {
    std::filesystem::remove(installation.path("db/snadscfg"));
    zvrtest::child_process child([step](parent_link&) {
      client_task own("killed");
      text_record got(12);
      if (get_single(own, DB_SCF, got) != DBE_NOT_FOUND) return 9;
      watch_steps(-1, step);
      return put_single(own, DB_SCF, hops(2)) == DBE_OK ? 0 : 8;
    });
    const int ended = child.finish();
    if (ended == 0) break;
    ASSERT_EQ(1000 + SIGKILL, ended) << step;
    ++killed;
    EXPECT_EQ(no_record, hops_now()) << step << ": nothing was promised, though the text may be whole";
    EXPECT_TRUE(nothing_left()) << step;
  }
  EXPECT_EQ(5, killed);
}

TEST_F(TextReplacement, KilledInTheRepairItIsRepairedByTheNextCaller) {
  ASSERT_EQ(DBE_OK, put_single(task, DB_SCF, hops(1)));
  zvrtest::child_process writer([](parent_link&) {
    client_task own("killed");
    text_record got(12);
    get_single(own, DB_SCF, got);
    watch_steps(-1, renaming);
    put_single(own, DB_SCF, hops(2));
    return 0;
  });
  ASSERT_EQ(1000 + SIGKILL, writer.finish());
  EXPECT_FALSE(std::filesystem::exists(installation.path("db/snadscfg")));
  zvrtest::child_process repairer([](parent_link&) {
    client_task own("repairer");
    // What the first call opens is not counted: only the steps of the text files are.
    watch_steps(-1, 0);
    text_record got(12);
    get_single(own, DB_SCF, got);
    return 0;
  });
  ASSERT_EQ(1000 + SIGKILL, repairer.finish());
  EXPECT_EQ(2u, hops_now());
  EXPECT_TRUE(nothing_left());
}

TEST_F(TextReplacement, EachFailingStepEndsTheCallAndIsPutRightByTheNext) {
  ASSERT_EQ(DBE_OK, put_single(task, DB_SCF, hops(1)));
  // The opening is tried twice, with the directory made between.
  for (int step = opening + 1; step <= renaming; ++step) {
    watch_steps(step, -1);
    EXPECT_EQ(CO_IO_ERROR, put_single(task, DB_SCF, hops(2))) << step;
    watch_steps(-1, -1);
    EXPECT_EQ(0, task.cntl()->fparsed_ok) << step;
    EXPECT_FALSE(nothing_left()) << step;
    // Only behind the removal is the new text the record.
    EXPECT_EQ(step <= removal ? 1u : 2u, hops_now()) << step;
    EXPECT_EQ(1, task.cntl()->fparsed_ok) << step;
    EXPECT_TRUE(nothing_left()) << step;
    ASSERT_GE(put_single(task, DB_SCF, hops(1)), DBE_OK);
  }
  watch_steps(opening, -1);
  EXPECT_EQ(DBE_RECORD_REPLACED, put_single(task, DB_SCF, hops(3))) << "the second opening went well";
  co_test_file_steps(nullptr);
  EXPECT_EQ(3u, hops_now());
}

TEST_F(TextReplacement, AFailedRepairIsTheResultAndIsTriedAgain) {
  ASSERT_EQ(DBE_OK, put_single(task, DB_SCF, hops(1)));
  installation.write("db/tmp/t0e_db%2Fsnadscfg", "ORIGIN HOP");
  task.cntl()->fparsed_ok = 0;
  watch_steps(0, -1);
  EXPECT_EQ(100000u + CO_IO_ERROR, hops_now());
  EXPECT_EQ(0, task.cntl()->fparsed_ok);
  co_test_file_steps(nullptr);
  EXPECT_EQ(1u, hops_now());
  EXPECT_TRUE(nothing_left());
}

TEST_F(TextReplacement, WhatTheFlagSaysIsCleanIsNotLookedAt) {
  ASSERT_EQ(DBE_OK, put_single(task, DB_SCF, hops(1)));
  installation.write("db/tmp/t0e_db%2Fsnadscfg", "half");
  EXPECT_EQ(1u, hops_now());
  EXPECT_FALSE(nothing_left());
  EXPECT_EQ(0u, logged(task, 36406));
}

TEST_F(TextReplacement, FilesOfTheOtherClassAndForeignOnesAreLeft) {
  for (const char* name : {"t1e_db%2Fuser_config", "notes.txt", "t0e_..%2Fx", "t0x_db%2Fy"})
    installation.write(std::string("db/tmp/") + name, "x");
  installation.write("db/tmp/t0n_db%2Fsnadscfg", "ORIGIN HOP COUNT: 5\n");
  task.cntl()->fparsed_ok = 0;
  EXPECT_EQ(no_record, hops_now());
  EXPECT_EQ(1u, logged(task, 36406));
  EXPECT_FALSE(std::filesystem::exists(installation.path("db/tmp/t0n_db%2Fsnadscfg")));
  for (const char* name : {"t1e_db%2Fuser_config", "notes.txt", "t0e_..%2Fx", "t0x_db%2Fy"})
    EXPECT_TRUE(std::filesystem::exists(installation.path(std::string("db/tmp/") + name))) << name;
}

TEST_F(TextReplacement, ARecordThatIsThereAndCannotBeOpenedIsNotReplaced) {
  std::filesystem::create_directory(installation.path("db/snadscfg"));
  installation.write("db/tmp/t0e_db%2Fsnadscfg", "half");
  task.cntl()->fparsed_ok = 0;
  EXPECT_EQ(100000u + DBE_IO_ERROR, hops_now());
  EXPECT_TRUE(std::filesystem::exists(installation.path("db/tmp/t0e_db%2Fsnadscfg")));
  std::filesystem::remove(installation.path("db/snadscfg"));
}

TEST_F(TextReplacement, ACallOfClassOneThatBuildsTheMemoryPutsItsOwnRight) {
  ASSERT_EQ(DBE_OK, put_single(task, DB_UCF, text_record(24).set8(0, 1)));
  std::filesystem::rename(installation.path("db/user_config"),
                          installation.path("db/tmp/t1e_db%2Fuser_config"));
  installation.write("db/tmp/t0e_db%2Fsnadscfg", "ORIGIN HOP COUNT: 5\n");
  text_record got(24);
  EXPECT_EQ(DBE_NOT_FOUND, get_single(task, DB_UCF, got)) << "not at every call";
  client_task later("later");
  ASSERT_EQ(DBE_OK, get_single(later, DB_UCF, got));
  EXPECT_EQ(1u, got.u8(0));
  EXPECT_TRUE(std::filesystem::exists(installation.path("db/tmp/t0e_db%2Fsnadscfg")))
      << "class 0 is another's";
  EXPECT_EQ(5u, [&] {
    task.cntl()->fparsed_ok = 0;
    return hops_now();
  }());
}

TEST_F(TextReplacement, AFailedRepairDoesNotStopACallOfClassOne) {
  installation.write("db/tmp/t1n_db%2Fuser_config", "x");
  watch_steps(0, -1);
  client_task later("later");
  text_record got(24);
  EXPECT_EQ(DBE_NOT_FOUND, get_single(later, DB_UCF, got));
  EXPECT_TRUE(std::filesystem::exists(installation.path("db/tmp/t1n_db%2Fuser_config")));
}

TEST_F(TextReplacement, TheFirstCallOfClassZeroMakesTheDirectoryOfTemporaryFiles) {
  std::filesystem::remove_all(installation.path("db/tmp"));
  task.cntl()->fparsed_ok = 0;
  EXPECT_EQ(no_record, hops_now());
  EXPECT_TRUE(nothing_left());
  EXPECT_EQ(1, task.cntl()->fparsed_ok);
}

// The path end to end: this task's first call is of class 0 and waits for the segment.
TEST(FirstTextCall, WaitsForTheTablesInMemoryAndThenAnswers) {
  zvrdb::test::TempInstallation installation;
  installation.write("db/snadscon/A", "NEXT DSU: RGN     .BERGEN\n");
  co_test_delay_factor(1, 500);
  {
    client_task first("first");
    const std::uint64_t before = co_test_delayed();
    text_record record(144);
    zvrtest::child_process builder([](parent_link& parent) {
      client_task own("builder");
      parent.stop_here();
      const bool built = zvrtest::put_target(own, "BERGEN") == DBE_OK;
      parent.reached();
      return built ? 0 : 1;
    });
    ASSERT_EQ(1, builder.next());
    EXPECT_EQ(DBE_INIT_FAILED, zvrtest::get_connection(first, "A", record, 144))
        << "nine waits, nobody built";
    EXPECT_EQ(before + 9 * 5000, co_test_delayed());
    EXPECT_EQ(1u, logged(first, 36360));
    co_test_delay_factor(1, 50);
    builder.go_on();
    // The builder needs less than the nine waits of a tenth of a second each.
    EXPECT_EQ(DBE_OK, zvrtest::get_connection(first, "A", record, 144));
    EXPECT_EQ("BERGEN", record.text(76, 64));
    EXPECT_EQ(1, builder.next());
    EXPECT_EQ(0, builder.finish());
  }
  co_test_delay_factor(1, 1);
}

}  // namespace
