// The record files with a commit journal, and how it is chosen.
#include <cstdlib>

#include "engine/os_file.h"
#include "recfile/journal_choice.h"
#include "recfile/child_process.h"
#include "recfile/record_files_fixture.h"

namespace zvrdb::recfile {
namespace {

using zvrtest::target_key;

int flushes = 0;

int counted_flush(int file) {
  ++flushes;
  return engine::linux_ops.flush(file);
}

const engine::os_ops counting_ops = [] {
  engine::os_ops ops = engine::linux_ops;
  ops.flush = counted_flush;
  return ops;
}();

class Journal : public ::testing::Test {
 protected:
  Journal() {
    if (const char* was = std::getenv("ZVR_JOURNAL")) before_ = was;
    setenv("ZVR_JOURNAL", "on", 1);
    engine::set_os_ops(&counting_ops);
  }
  ~Journal() override {
    engine::set_os_ops(nullptr);
    if (before_.empty())
      unsetenv("ZVR_JOURNAL");
    else
      setenv("ZVR_JOURNAL", before_.c_str(), 1);
  }
  std::string path(const char* name) const { return installation.base() + "/db/" + name; }
  static target_key key_of(std::uint32_t number) { return {4, number, 0}; }
  // A record whose first bytes are its key, as all records of the files.
  static std::vector<unsigned char> record_of(std::uint32_t length, unsigned seed) {
    return zvrtest::bytes_of(length, seed);
  }
  zvrdb::test::TempInstallation installation;
  std::string before_;
};

int since(int* last) {
  const int cost = flushes - *last;
  *last = flushes;
  return cost;
}

TEST_F(Journal, APutAReplacementAndADeletionOfAnyLengthFlushOnce) {
  zvrtest::file_task files("flushes");
  ASSERT_EQ(0, files.open());
  file_entry* handle = files.tcb()->trg_file;
  ASSERT_TRUE(engine::has_journal(handle->psp));
  int last = flushes;
  std::uint32_t number = 7;
  for (const std::uint32_t length : {300u, 40000u}) {
    SCOPED_TRACE(length);
    target_key key = key_of(++number);
    ASSERT_EQ(DBE_OK, db_write(files.task(), handle, &key, record_of(length, 1).data(), length));
    ASSERT_EQ(DBE_OK, db_bflush(files.task(), 4));
    EXPECT_EQ(1, since(&last)) << "put";
    key = key_of(number);
    ASSERT_EQ(DBE_OK, db_update(files.task(), handle, &key, record_of(length + 20000, 2).data(), length + 20000));
    ASSERT_EQ(DBE_OK, db_bflush(files.task(), 4));
    EXPECT_EQ(1, since(&last)) << "replace";
    key = key_of(number);
    ASSERT_EQ(DBE_OK, db_locate(files.task(), handle, &key, KEY_EQ));
    EXPECT_EQ(0, since(&last)) << "get";
    key = key_of(number);
    ASSERT_EQ(DBE_OK, db_delete(files.task(), &key, handle));
    ASSERT_EQ(DBE_OK, db_bflush(files.task(), 4));
    EXPECT_EQ(1, since(&last)) << "delete";
  }
}

TEST_F(Journal, AnExplicitTransactionFlushesOnceAtItsEnd) {
  zvrtest::file_task files("transaction");
  ASSERT_EQ(0, files.open());
  int last = flushes;
  ASSERT_EQ(DBE_OK, start_trans(files.task(), 4));
  for (std::uint32_t number = 1; number <= 50; number++) {
    target_key key = key_of(number);
    ASSERT_EQ(DBE_OK, db_write(files.task(), files.tcb()->trg_file, &key, record_of(300, number).data(), 300));
  }
  EXPECT_EQ(0, since(&last));
  ASSERT_EQ(DBE_OK, commit(files.task(), 4));
  EXPECT_EQ(1, since(&last));
}

TEST_F(Journal, OpeningIntactFilesFlushesNothing) {
  {
    zvrtest::file_task files("first");
    ASSERT_EQ(0, files.open());
    target_key key = key_of(3);
    ASSERT_EQ(DBE_OK, db_write(files.task(), files.tcb()->trg_file, &key, record_of(300, 3).data(), 300));
  }
  int last = flushes;
  zvrtest::file_task files("second");
  ASSERT_EQ(0, files.open());
  EXPECT_EQ(0, since(&last));
  target_key key = key_of(3);
  EXPECT_EQ(DBE_OK, db_locate(files.task(), files.tcb()->trg_file, &key, KEY_EQ));
}

TEST_F(Journal, WhatAKilledTaskWroteIsThereAndWhatItBeganIsNot) {
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    zvrtest::file_task own("killed");
    if (own.open() != 0) return 1;
    target_key key = key_of(5);
    if (db_write(own.task(), own.tcb()->trg_file, &key, record_of(300, 5).data(), 300) != DBE_OK) return 2;
    if (start_trans(own.task(), 4) != DBE_OK) return 3;
    key = key_of(6);
    if (db_write(own.task(), own.tcb()->trg_file, &key, record_of(300, 6).data(), 300) != DBE_OK) return 4;
    parent.die();
  });
  ASSERT_EQ(1000 + SIGKILL, child.finish());
  zvrtest::file_task files("next");
  ASSERT_EQ(0, files.open());
  target_key key = key_of(5);
  EXPECT_EQ(DBE_OK, db_locate(files.task(), files.tcb()->trg_file, &key, KEY_EQ));
  key = key_of(6);
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(files.task(), files.tcb()->trg_file, &key, KEY_EQ));
}

// ---- The choice

class JournalChoice : public Journal {
 protected:
  JournalChoice() { unsetenv("ZVR_JOURNAL"); }
  // Whether a task that opens the files now does so with journals.
  static bool opens_with() {
    zvrtest::file_task files("asks");
    EXPECT_EQ(0, files.open());
    return engine::has_journal(files.tcb()->trg_file->psp);
  }
};

TEST_F(JournalChoice, JournalsAreTheRule) {
  EXPECT_TRUE(opens_with());
  EXPECT_EQ(0, access(path("trgcfg.jnl").c_str(), F_OK));
}

TEST_F(JournalChoice, TheInstallationMayDoWithout) {
  installation.write("journal", "# no journals here\n\n  off # or so\n");
  EXPECT_FALSE(opens_with());
  EXPECT_NE(0, access(path("trgcfg.jnl").c_str(), F_OK));
  installation.write("journal", "on\n");
  EXPECT_TRUE(opens_with());
}

TEST_F(JournalChoice, TheEnvironmentGoesBeforeTheInstallation) {
  installation.write("journal", "off\n");
  setenv("ZVR_JOURNAL", "on", 1);
  EXPECT_TRUE(opens_with());
  installation.write("journal", "on\n");
  setenv("ZVR_JOURNAL", "off", 1);
  EXPECT_FALSE(opens_with());
  // Another word is none.
  setenv("ZVR_JOURNAL", "perhaps", 1);
  EXPECT_TRUE(opens_with());
}

TEST_F(JournalChoice, AFileThatSaysNeitherIsToldAndChangesNothing) {
  zvrtest::file_task files("asks");
  for (const char* text : {"", "offf\n", "# off\n", "ON\n"}) {
    installation.write("journal", text);
    const journal_setting setting = read_journal_choice(files.task());
    EXPECT_TRUE(setting.misread) << text;
    EXPECT_EQ(engine::journal_use::on, setting.use) << text;
    EXPECT_EQ(choice_source::standard, setting.source) << text;
  }
  installation.write("journal", "off");
  const journal_setting setting = read_journal_choice(files.task());
  EXPECT_FALSE(setting.misread);
  EXPECT_EQ(choice_source::installation, setting.source);
}

TEST_F(JournalChoice, WhoComesBesideOthersDoesAsTheyDoUntilTheLastHasGone) {
  target_key key = key_of(3);
  {
    zvrtest::file_task first("first");
    ASSERT_EQ(0, first.open());
    first.release();
    installation.write("journal", "off\n");
    zvrtest::file_task second("second");
    ASSERT_EQ(0, second.open());
    EXPECT_TRUE(engine::has_journal(second.tcb()->trg_file->psp));
    ASSERT_EQ(DBE_OK, db_write(first.task(), first.tcb()->trg_file, &key, record_of(300, 3).data(), 300));
    key = key_of(3);
    EXPECT_EQ(DBE_OK, db_locate(second.task(), second.tcb()->trg_file, &key, KEY_EQ));
  }
  zvrtest::file_task first("first");
  ASSERT_EQ(0, first.open());
  EXPECT_FALSE(engine::has_journal(first.tcb()->trg_file->psp));
  first.release();
  installation.write("journal", "on\n");
  zvrtest::file_task second("second");
  ASSERT_EQ(0, second.open());
  EXPECT_FALSE(engine::has_journal(second.tcb()->trg_file->psp));
  key = key_of(3);
  EXPECT_EQ(DBE_OK, db_locate(second.task(), second.tcb()->trg_file, &key, KEY_EQ));
}

// A file that is thrown away should its maker die has no use for one.
TEST_F(JournalChoice, AFileThatIsOpenedAloneHasNone) {
  { EXPECT_TRUE(opens_with()); }
  zvrtest::file_task files("alone");
  file_entry* handle = nullptr;
  set_datalist(files.task(), 4, &files.cntl()->files[1], "trgcfg", 12);
  ASSERT_EQ(DBE_OK, db_open_alone(files.task(), 4, &handle));
  EXPECT_FALSE(engine::has_journal(handle->psp));
  target_key key = key_of(3);
  EXPECT_EQ(DBE_OK, db_write(files.task(), handle, &key, record_of(300, 3).data(), 300));
  reset_trans_active(files.task(), 4);
  EXPECT_EQ(DBE_OK, db_close(files.task(), handle));
  // What stands beside it is about another state, and is not applied.
  ASSERT_EQ(0, files.open());
  EXPECT_TRUE(engine::has_journal(files.tcb()->trg_file->psp));
  key = key_of(3);
  EXPECT_EQ(DBE_OK, db_locate(files.task(), files.tcb()->trg_file, &key, KEY_EQ));
}

// ---- Two files

TEST_F(Journal, TwoTransactionsEndTogetherWithOneFlushAFile) {
  zvrtest::file_task files("both");
  ASSERT_EQ(0, files.open());
  const auto change_both = [&](std::uint32_t number) {
    ASSERT_EQ(DBE_OK, start_trans(files.task(), 10));
    ASSERT_EQ(DBE_OK, start_trans(files.task(), 4));
    target_key key = {10, number, 0};
    ASSERT_EQ(DBE_OK, db_write(files.task(), files.tcb()->cms_file, &key, record_of(300, number).data(), 300));
    key = key_of(number);
    ASSERT_EQ(DBE_OK, db_write(files.task(), files.tcb()->trg_file, &key, record_of(300, number).data(), 300));
  };
  int last = flushes;
  change_both(1);
  both_ends ended = end_both(files.task(), 10, 4, DBE_OK);
  EXPECT_EQ(DBE_OK, ended.first);
  EXPECT_EQ(DBE_OK, ended.second);
  EXPECT_EQ(2, since(&last));
  EXPECT_EQ(0, files.tcb()->trans_active[4]);
  EXPECT_EQ(0, files.tcb()->trans_active[10]);
  // A result that is none undoes both.
  change_both(2);
  ended = end_both(files.task(), 10, 4, DBE_BAD_RECORD);
  EXPECT_EQ(DBE_BAD_RECORD, ended.first);
  EXPECT_EQ(DBE_BAD_RECORD, ended.second);
  target_key key = key_of(2);
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(files.task(), files.tcb()->trg_file, &key, KEY_EQ));
  key = {10, 2, 0};
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(files.task(), files.tcb()->cms_file, &key, KEY_EQ));
  key = {10, 1, 0};
  EXPECT_EQ(DBE_OK, db_locate(files.task(), files.tcb()->cms_file, &key, KEY_EQ));
}

}  // namespace
}  // namespace zvrdb::recfile
