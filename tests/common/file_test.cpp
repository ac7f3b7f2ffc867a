// Files, directories, paths and names of temporary files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <set>
#include <string>

#include "support/temp_installation.h"
#include "zvrco/zvrco.h"

namespace {

using zvrdb::test::TempInstallation;

class Files : public testing::Test {
 protected:
  void SetUp() override {
    task_ = co_init_task("t", nullptr, 1);
    ASSERT_NE(task_, nullptr) << co_init_error();
  }
  void TearDown() override { coi_term_task(task_, 0); }
  std::string path(const char* relative) const { return installation_.path(relative); }

  TempInstallation installation_;
  void* task_ = nullptr;
};

TEST_F(Files, AMissingFileIsToldAsSuch) {
  uint32_t file = 7;
  EXPECT_EQ(co_open(task_, path("none").c_str(), CO_OPEN_READ, &file), CO_NOT_FOUND);
  EXPECT_EQ(file, 0u);
  EXPECT_EQ(co_open(task_, path("none").c_str(), CO_OPEN_OLD_TEXT, &file), CO_NOT_FOUND);
  EXPECT_EQ(co_open(task_, path("none").c_str(), CO_OPEN_OLD, &file), CO_NOT_FOUND);
  EXPECT_EQ(co_open(task_, path("no/way/here").c_str(), CO_OPEN_REPLACE, &file), CO_NOT_FOUND);
  EXPECT_EQ(co_open(task_, path("db").c_str(), CO_OPEN_READ, &file), CO_IO_ERROR);
  EXPECT_EQ(co_open(task_, path("x").c_str(), 1234, &file), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_open(task_, std::string(256, 'x').c_str(), CO_OPEN_READ, &file), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_open(task_, nullptr, CO_OPEN_READ, &file), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_open(task_, path("x").c_str(), CO_OPEN_READ, nullptr), CO_BAD_ARGUMENT);
}

TEST_F(Files, WhatIsWrittenIsReadBack) {
  uint32_t file = 0;
  const std::string name = path("db/record");
  ASSERT_EQ(co_open(task_, name.c_str(), CO_OPEN_REPLACE, &file), CO_OK);
  ASSERT_NE(file, 0u);
  EXPECT_EQ(co_write(task_, file, "hello world", 11), CO_OK);
  EXPECT_EQ(co_fsync(task_, file), CO_OK);
  EXPECT_EQ(co_close(task_, file), CO_OK);
  ASSERT_EQ(co_open(task_, name.c_str(), CO_OPEN_READ, &file), CO_OK);
  char buffer[65535];
  uint32_t length = 5;
  EXPECT_EQ(co_read(task_, file, buffer, &length), CO_OK);
  EXPECT_EQ(std::string(buffer, length), "hello");
  length = sizeof buffer;
  EXPECT_EQ(co_read(task_, file, buffer, &length), CO_OK);
  EXPECT_EQ(std::string(buffer, length), " world");
  length = sizeof buffer;
  EXPECT_EQ(co_read(task_, file, buffer, &length), CO_OK);
  EXPECT_EQ(length, 0u);
  uint32_t at = 9;
  EXPECT_EQ(co_lseek(task_, file, 0, 0, &at), CO_OK);
  EXPECT_EQ(at, 0u);
  length = 3;
  EXPECT_EQ(co_read(task_, file, buffer, &length), CO_OK);
  EXPECT_EQ(std::string(buffer, length), "hel");
  EXPECT_EQ(co_write(task_, file, "x", 1), CO_IO_ERROR);  // opened for reading
  EXPECT_EQ(co_close(task_, file), CO_OK);
  EXPECT_EQ(co_close(task_, file), CO_IO_ERROR);
  EXPECT_EQ(co_close(task_, 0), CO_BAD_ARGUMENT);
  ASSERT_EQ(co_open(task_, name.c_str(), CO_OPEN_REPLACE, &file), CO_OK);
  EXPECT_EQ(co_close(task_, file), CO_OK);
  EXPECT_EQ(installation_.read("db/record"), "");
}

TEST_F(Files, RemoveRenameAndDirectories) {
  installation_.write("a", "1");
  EXPECT_EQ(co_rename(task_, path("a").c_str(), path("b").c_str(), 1), CO_OK);
  EXPECT_EQ(co_rename(task_, path("a").c_str(), path("b").c_str(), 1), CO_NOT_FOUND);
  EXPECT_EQ(co_remove(task_, path("b").c_str(), 1), CO_OK);
  EXPECT_EQ(co_remove(task_, path("b").c_str(), 0), CO_NOT_FOUND);
  EXPECT_EQ(co_mkdir(task_, path("d").c_str()), CO_OK);
  EXPECT_EQ(co_mkdir(task_, path("d").c_str()), CO_IO_ERROR);
  EXPECT_EQ(co_rmdir(task_, path("d").c_str()), CO_OK);
  EXPECT_EQ(co_rmdir(task_, path("d").c_str()), CO_NOT_FOUND);
}

TEST_F(Files, ADirectoryIsListedToItsEnd) {
  installation_.write("dir/one", "1");
  installation_.write("dir/two", "2");
  uint32_t directory = 0;
  ASSERT_EQ(co_opendir(task_, path("dir").c_str(), &directory, 1), CO_OK);
  std::set<std::string> names;
  char name[256];
  uint16_t result;
  while ((result = co_readdir(task_, &directory, name, sizeof name)) == CO_OK) names.insert(name);
  EXPECT_EQ(result, CO_END_OF_DIR);
  EXPECT_EQ(names, (std::set<std::string>{".", "..", "one", "two"}));
  EXPECT_EQ(co_closedir(task_, &directory), CO_OK);
  EXPECT_EQ(directory, 0u);
  EXPECT_EQ(co_closedir(task_, &directory), CO_BAD_ARGUMENT);
  directory = 1;
  EXPECT_EQ(co_readdir(task_, &directory, name, sizeof name), CO_BAD_ARGUMENT);
  EXPECT_EQ(co_opendir(task_, path("none").c_str(), &directory, 1), CO_NOT_FOUND);
}

TEST_F(Files, ANameThatDoesNotFitIsNotCut) {
  installation_.write("dir/a_longer_name", "1");
  uint32_t directory = 0;
  ASSERT_EQ(co_opendir(task_, path("dir").c_str(), &directory, 1), CO_OK);
  char name[8];
  uint16_t result;
  int entries = 0;
  std::set<std::string> names;
  while ((result = co_readdir(task_, &directory, name, sizeof name)) != CO_END_OF_DIR) {
    ASSERT_LE(++entries, 3);
    if (result == CO_OK) {
      names.insert(name);
    } else {
      EXPECT_EQ(result, CO_IO_ERROR);
    }
  }
  EXPECT_EQ(entries, 3);
  EXPECT_EQ(names, (std::set<std::string>{".", ".."}));
  EXPECT_EQ(co_closedir(task_, &directory), CO_OK);
}

TEST_F(Files, TheStatusBlockTellsSizeAndWhatListingsSkip) {
  installation_.write("db/record", std::string(70000, 'x'));
  installation_.write("db/.hidden", "x");
  unsigned char status[CO_STATUS_BLOCK + 4];
  unsigned char stamp[8] = {};
  memset(status, 0x55, sizeof status);
  EXPECT_EQ(co_get_mod(task_, path("db/record").c_str(), stamp, nullptr, status), CO_FILE_STATUS);
  uint32_t size = 0;
  memcpy(&size, status + 8, 4);
  EXPECT_EQ(size, 70000u);
  EXPECT_EQ(status[13] & 0x40, 0);
  EXPECT_EQ(status[14], 0x55);
  unsigned char again[8] = {};
  EXPECT_EQ(co_get_mod(task_, path("db/record").c_str(), again, nullptr, status), CO_FILE_STATUS);
  EXPECT_EQ(memcmp(stamp, again, 8), 0);
  EXPECT_EQ(co_get_mod(task_, path("db").c_str(), stamp, nullptr, status), CO_FILE_STATUS);
  EXPECT_NE(status[13] & 0x40, 0);
  EXPECT_EQ(co_get_mod(task_, path("db/.hidden").c_str(), stamp, nullptr, status), CO_FILE_STATUS);
  EXPECT_NE(status[13] & 0x40, 0);
  EXPECT_EQ(co_get_mod(task_, path("db/none").c_str(), stamp, nullptr, status), CO_NOT_FOUND);
  char buffer[1];
  EXPECT_EQ(co_get_mod(task_, path("db").c_str(), nullptr, buffer, nullptr), CO_OK);  // nothing is put there
}

TEST_F(Files, TheDefaultAccessIsForOwnerAndGroup) {
  installation_.write("db/file", "x");
  EXPECT_EQ(co_dflt_mod(task_, path("db/file").c_str(), 1), CO_OK);
  struct stat status {};
  stat(path("db/file").c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  EXPECT_EQ(co_dflt_mod(task_, path("db/none").c_str(), 1), CO_NOT_FOUND);
}

TEST(FilesOfAnotherUser, WhatRootMakesBelongsToTheOwnerOfTheBaseDirectory) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a folder away";
  TempInstallation installation;
  ASSERT_EQ(chown(installation.base().c_str(), 65534, 65534), 0);
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
  installation.write("db/file", "x");
  EXPECT_EQ(co_dflt_mod(task, installation.path("db/file").c_str(), 1), CO_OK);
  co_log2(task, 36359, 0, 0, 0, "");
  for (const char* name : {"db/file", "log/messages.log"}) {
    struct stat status {};
    ASSERT_EQ(stat(installation.path(name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_uid, 65534u) << name;
    EXPECT_EQ(status.st_gid, 65534u) << name;
  }
  coi_term_task(task, 0);
}

TEST(FilesOfAnotherUser, ALogIsForTheGroupThatMayWriteTheBase) {
  TempInstallation installation;
  ASSERT_EQ(chmod(installation.base().c_str(), 0770), 0);
  const mode_t before = umask(077);
  void* task = co_init_task("t", nullptr, 1);
  ASSERT_NE(task, nullptr) << co_init_error();
  co_log2(task, 36359, 0, 0, 0, "");
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(installation.path("log/messages.log").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0664u);
  coi_term_task(task, 0);
}

TEST_F(Files, NamesAreAppendedWithinTheRoom) {
  char directory[256];
  EXPECT_EQ(co_get_orvo_path(task_, directory, 0), CO_OK);
  EXPECT_EQ(directory, installation_.base());
  EXPECT_EQ(co_build_objname(task_, directory, "db", nullptr, 256), CO_OK);
  EXPECT_EQ(directory, path("db"));
  char out[256];
  EXPECT_EQ(co_build_objname(task_, directory, "trgcfg", out, 256), CO_OK);
  EXPECT_EQ(out, path("db/trgcfg"));
  EXPECT_EQ(directory, path("db"));
  char slash[256] = "a/";
  EXPECT_EQ(co_build_objname(task_, slash, "b", nullptr, 256), CO_OK);
  EXPECT_STREQ(slash, "a/b");
  char full[256];
  memset(full, 'x', 253);
  full[253] = '\0';
  EXPECT_EQ(co_build_objname(task_, full, "yy", nullptr, 256), CO_BAD_ARGUMENT);
  EXPECT_EQ(strlen(full), 253u);
  EXPECT_EQ(co_build_objname(task_, full, "y", nullptr, 256), CO_OK);
  EXPECT_EQ(strlen(full), 255u);
}

TEST_F(Files, TemporaryNamesTellTargetClassAndExistence) {
  for (const char* target :
       {"orvo.cfg", "db/routetab", "db/snadscon/CONN 1", "db/snadscon/50%25%2F", "db/a b%"}) {
    for (uint16_t sem_index : {uint16_t{0}, uint16_t{1}}) {
      for (uint16_t exists : {uint16_t{0}, uint16_t{1}}) {
        char temporary[256];
        ASSERT_EQ(co_db_get_tmpnam(path(target).c_str(), temporary, sem_index, exists), CO_OK) << target;
        const std::string directory = path("db/tmp/");
        ASSERT_EQ(std::string(temporary).substr(0, directory.size()), directory);
        const std::string entry = std::string(temporary).substr(directory.size());
        EXPECT_EQ(entry.find('/'), std::string::npos);
        char back[256] = "";
        uint16_t existed = 9;
        ASSERT_EQ(co_db_get_name(back, entry.c_str(), sem_index, &existed), 1) << entry;
        EXPECT_EQ(back, path(target));
        EXPECT_EQ(existed, exists);
        EXPECT_EQ(co_db_get_name(back, entry.c_str(), sem_index ^ 1, &existed), 0);
      }
    }
  }
}

TEST_F(Files, NamesThatAreNoTemporaryFilesAreLeft) {
  char back[256] = "kept";
  uint16_t existed = 9;
  for (const char* entry :
       {"", ".", "..", "t0e_", "t0x_a", "x0e_a", "t0ea", "t0e_..%2Fetc", "t0e_%2Fetc", "t0e_a%2F",
        "t0e_a%2F%2Fb", "t0e_a/b", "t0e_a%", "t0e_a%2", "t0e_a%41", "t0e_a%2F..%2Fb", "readme"}) {
    EXPECT_EQ(co_db_get_name(back, entry, 0, &existed), 0) << entry;
  }
  EXPECT_EQ(co_db_get_name(back, ("t0e_" + std::string(250, 'a')).c_str(), 0, &existed), 0);
  EXPECT_STREQ(back, "kept");
  EXPECT_EQ(existed, 9);
  char temporary[256];
  EXPECT_NE(co_db_get_tmpnam("/elsewhere/file", temporary, 0, 1), CO_OK);
  EXPECT_NE(co_db_get_tmpnam((installation_.base() + "x/file").c_str(), temporary, 0, 1), CO_OK);
  EXPECT_NE(co_db_get_tmpnam(path("db/../x").c_str(), temporary, 0, 1), CO_OK);
  EXPECT_NE(co_db_get_tmpnam(path("").c_str(), temporary, 0, 1), CO_OK);
  EXPECT_NE(co_db_get_tmpnam(path(std::string(230, 'z').c_str()).c_str(), temporary, 0, 1), CO_OK);
}

}  // namespace
