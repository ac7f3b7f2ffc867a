// Opening and closing of the record files.
#include "recfile/file_table.h"
#include "recfile/record_files_fixture.h"
#include "recfile/storage_messages.h"

namespace zvrdb::recfile {
namespace {

class FileOpen : public ::testing::Test {
 protected:
  std::string path(const char* name) const { return installation.base() + "/db/" + name; }
  zvrdb::test::TempInstallation installation;
};

TEST_F(FileOpen, NineFilesAreMadeAtTheFirstOpen) {
  zvrtest::file_task files("open");
  ASSERT_EQ(0, files.open());
  for (const char* name :
       {"userreq", "trgcfg", "users", "auth", "cmstatus", "trggrp", "catalog", "snacorr", "dyntggrp"}) {
    struct stat status;
    EXPECT_EQ(0, stat(path(name).c_str(), &status)) << name;
    EXPECT_GE(status.st_size, 11264) << name;
  }
  for (const iocb& block : files.cntl()->files) EXPECT_EQ(1, block.use_count) << block.name;
}

TEST_F(FileOpen, ControlBlocksHoldTheTableOfTheFile) {
  zvrtest::file_task files("open");
  ASSERT_EQ(0, files.open());
  const iocb& req = files.cntl()->files[0];
  EXPECT_STREQ("userreq", req.name);
  EXPECT_EQ(17u, req.db_id);
  EXPECT_EQ(16000, req.max_rec_len);
  EXPECT_EQ(16384u, req.buff_len);
  EXPECT_EQ(76, req.field_list[0].length);
  EXPECT_EQ('D', req.field_list[1].duplicates);
  EXPECT_EQ(8, req.field_list[1].length);
  EXPECT_EQ('L', req.field_list[2].type);
  EXPECT_EQ(3, req.field_list[2].key);
  EXPECT_EQ('N', req.field_list[3].key_type);
  EXPECT_EQ('E', req.field_list[4].type);
  const iocb& corr = files.cntl()->files[7];
  EXPECT_STREQ("snacorr", corr.name);
  EXPECT_EQ(29u, corr.db_id);
  EXPECT_EQ(48, corr.field_list[0].length);
  EXPECT_EQ(76, corr.field_list[1].length);
  EXPECT_EQ('U', corr.field_list[1].duplicates);
  EXPECT_EQ('E', corr.field_list[3].type);
}

TEST_F(FileOpen, SetDatalistDoesNothingTwice) {
  zvrtest::file_task files("open");
  ASSERT_EQ(0, files.open());
  iocb& block = files.cntl()->files[1];
  set_datalist(files.task(), 22, &block, "other", 24);
  EXPECT_STREQ("trgcfg", block.name);
  EXPECT_EQ(4u, block.db_id);
  EXPECT_EQ(1, block.use_count);
}

TEST_F(FileOpen, EachFileBelongsToItsRecordTypesAndToNoOther) {
  zvrtest::file_task files("open");
  const int expected[DB_TYPE_COUNT] = {-1, -1, -1, -1, 1, 1, 5, -1, -1, 6,  4,  1, -1, -1, -1, -1, -1,
                                       0,  0,  0,  0,  0, 2, 3, -1, -1, -1, -1, 7, 7,  0,  8,  1,  -1};
  for (std::uint32_t db_id = 0; db_id < DB_TYPE_COUNT; ++db_id) {
    iocb* block = nullptr;
    file_entry* entry = nullptr;
    const std::int16_t rc = get_file_ptr(files.task(), &block, &entry, db_id);
    if (expected[db_id] < 0) {
      EXPECT_EQ(DBE_BAD_DB_ID, rc) << db_id;
      EXPECT_EQ(nullptr, block);
    } else {
      EXPECT_EQ(DBE_OK, rc) << db_id;
      EXPECT_EQ(&files.cntl()->files[expected[db_id]], block) << db_id;
      EXPECT_EQ(&files.tcb()->files[expected[db_id]], entry) << db_id;
    }
  }
  EXPECT_EQ(16u, zvrtest::logged(files.task(), 36366));
}

TEST_F(FileOpen, ASecondOpenGivesTheSameHandleAndClosesAreCounted) {
  zvrtest::file_task files("open");
  ASSERT_EQ(0, files.open());
  file_entry* again = nullptr;
  ASSERT_EQ(DBE_OK, db_open(files.task(), 5, &again));
  EXPECT_EQ(files.tcb()->trg_file, again);
  EXPECT_EQ(2u, again->use_count);
  EXPECT_EQ(1, again->iocb->use_count);
  EXPECT_EQ(DBE_OK, db_close(files.task(), again));
  EXPECT_NE(nullptr, again->iocb);
  EXPECT_EQ(DBE_OK, db_close(files.task(), again));
  EXPECT_EQ(nullptr, again->iocb);
  EXPECT_EQ(nullptr, again->psp);
  EXPECT_EQ(0, files.cntl()->files[1].use_count);
  EXPECT_EQ(DBE_OK, db_close(files.task(), again));
}

TEST_F(FileOpen, OpeningATypeWithoutAFileIsRefusedWithItsMessages) {
  zvrtest::file_task files("open");
  file_entry* handle = nullptr;
  EXPECT_EQ(DBE_BAD_DB_ID, db_open(files.task(), 24, &handle));
  EXPECT_EQ(nullptr, handle);
  EXPECT_EQ(1u, zvrtest::logged(files.task(), 36366));
  EXPECT_EQ(1u, zvrtest::logged(files.task(), 36429));
}

TEST_F(FileOpen, TheFirstOpenerClearsAFlagLeftByACrash) {
  {
    zvrtest::file_task files("first");
    ASSERT_EQ(0, files.open());
  }
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  zvrtest::file_task files("second");
  EXPECT_EQ(0, files.open());
  EXPECT_EQ(0, zvrtest::flag_on_disk(path("trgcfg")));
}

TEST_F(FileOpen, AHealthyFileGoesThroughTheClearingOfItsFlagToo) {
  {
    zvrtest::file_task files("first");
    ASSERT_EQ(0, files.open());
  }
  // The flag word holds something that is neither set nor clear: clearing writes 0.
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), 4711));
  zvrtest::file_task files("second");
  EXPECT_EQ(0, files.open());
  EXPECT_EQ(0, zvrtest::flag_on_disk(path("trgcfg")));
}

TEST_F(FileOpen, AUseCountSetByHandKeepsTheFlagAndTheOpenFails) {
  zvrtest::file_task files("hand");
  ASSERT_EQ(0, files.open());
  files.close_files();
  ASSERT_TRUE(zvrtest::set_flag_on_disk(path("trgcfg"), zvrtest::write_flag));
  files.cntl()->files[1].use_count = 1;
  file_entry* handle = nullptr;
  EXPECT_EQ(DBE_IO_ERROR, db_open(files.task(), 4, &handle));
  EXPECT_EQ(nullptr, handle);
  const std::string line = zvrtest::last_logged(files.task(), 36435);
  EXPECT_NE(std::string::npos, line.find("-40")) << line;
  EXPECT_EQ(zvrtest::write_flag, zvrtest::flag_on_disk(path("trgcfg")));
  EXPECT_EQ(nullptr, files.tcb()->files[1].psp);
  files.cntl()->files[1].use_count = 0;
  EXPECT_EQ(DBE_OK, db_open(files.task(), 4, &handle));
}

TEST_F(FileOpen, AFileOfAnotherKindIsRefusedAndLeftAlone) {
  const std::string foreign(4096, 'x');
  std::ofstream(path("users")) << foreign;
  zvrtest::file_task files("foreign");
  EXPECT_EQ(DBE_IO_ERROR, files.open());
  EXPECT_EQ(1u, zvrtest::logged(files.task(), 36435));
  std::ifstream in(path("users"));
  EXPECT_EQ(foreign, std::string(std::istreambuf_iterator<char>(in), {}));
}

TEST_F(FileOpen, NoMemoryForAHandleIsLoggedAndNothingStaysOpen) {
  zvrtest::file_task files("memory");
  for (int fail_at : {0, 1}) {
    file_entry* handle = nullptr;
    set_datalist(files.task(), 4, &files.cntl()->files[1], "trgcfg", 12);
    co_test_fail_malloc(fail_at);
    EXPECT_EQ(DBE_IO_ERROR, db_open(files.task(), 4, &handle)) << fail_at;
    co_test_fail_malloc(-1);
    EXPECT_NE(std::string::npos, zvrtest::last_logged(files.task(), 36355).find("CFILE_PSP"));
    EXPECT_EQ(nullptr, handle);
    EXPECT_EQ(nullptr, files.tcb()->files[1].psp);
    EXPECT_EQ(0, files.cntl()->files[1].use_count);
  }
}

struct message_case {
  std::uint16_t function;
  std::int16_t code;
  unsigned message;
  const char* told = "NAME";  // beside the name
};

class StorageMessages : public FileOpen, public ::testing::WithParamInterface<message_case> {};

TEST_P(StorageMessages, EachFailureHasItsNumber) {
  zvrtest::file_task files("messages");
  const message_case& it = GetParam();
  issue_err_msg(files.task(), "NAME", it.code, it.function);
  EXPECT_EQ(1u, zvrtest::logged(files.task(), it.message));
  const std::string line = zvrtest::last_logged(files.task(), it.message);
  EXPECT_NE(std::string::npos, line.find("NAME")) << line;
  EXPECT_NE(std::string::npos, line.find(it.told)) << line;
  EXPECT_EQ(it.code == -8 ? 1u : 0u, zvrtest::logged(files.task(), 36409));
  if (it.code == -8) {
    EXPECT_NE(std::string::npos, zvrtest::last_logged(files.task(), 36409).find("28"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    AllRows, StorageMessages,
    ::testing::Values(message_case{1, -40, 36435, "-40"}, message_case{5, -111, 36436, "-111"},
                      message_case{6, -4, 36437}, message_case{7, -1, 36438}, message_case{7, -20, 36439},
                      message_case{7, -21, 36440}, message_case{9, -1, 36441},
                      message_case{10, -14, 36442, "-14"}, message_case{12, -104, 36443},
                      message_case{12, -16, 36444}, message_case{13, -1, 36445}, message_case{13, -20, 36439},
                      message_case{13, -17, 36446}, message_case{13, -107, 36447},
                      message_case{14, -20, 36439}, message_case{14, -18, 36448},
                      message_case{15, -41, 36449, "-41"}, message_case{16, -1, 36450, "-1"},
                      message_case{16, -8, 36450, "-8"}, message_case{99, -1, 36434, "99"}));

}  // namespace
}  // namespace zvrdb::recfile
