// The files under the text records, without the frame: paths, reading, lists, failures;
// and the base configuration as the migration writes it.
#include <filesystem>

#include "memory/dbr_tcb.h"
#include "text_fixture.h"
#include "textrec/keyword_tables.h"
#include "textrec/parsed_files.h"
#include "textrec/record_printers.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;

class TextFiles : public zvrtest::TextTest {
 protected:
  TextFiles() {
    tcb = static_cast<zvrdb::DBR_TCB*>(co_malloc(task, sizeof *tcb, CO_MEM_PRIVATE, "DBR__TCB"));
    tcb->cntl = static_cast<zvrdb::DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
    co_slots(task)->dbr_tcb = tcb;
  }
  ~TextFiles() override {
    co_test_fail_malloc(-1);
    co_test_file_steps(nullptr);
    co_slots(task)->dbr_tcb = nullptr;
  }
  std::string filename(const char* directory, const char* key, std::int16_t expected) {
    char path[path_size];
    const void* keys[] = {key};
    EXPECT_EQ(get_filename(task, directory, path, key ? 1 : 0, keys), expected);
    return path;
  }
  std::string read_all(const std::string& content, std::uint32_t size, std::int16_t expected = DBE_OK) {
    installation.write("db/text", content);
    std::vector<char> buffer(size + 1, '!');
    EXPECT_EQ(get_unparsed(task, installation.path("db/text").c_str(), buffer.data(), size), expected);
    EXPECT_EQ(buffer[size], '!');
    return buffer.data();
  }
  zvrdb::DBR_TCB* tcb;
};

TEST_F(TextFiles, LieBelowTheDataDirectoryButForTheBaseConfiguration) {
  EXPECT_EQ(filename("snadscon", "A", DBE_OK), installation.path("db/snadscon/A"));
  EXPECT_EQ(filename("routetab", nullptr, DBE_OK), installation.path("db/routetab"));
  EXPECT_EQ(filename("orvo.cfg", nullptr, DBE_OK), installation.path("orvo.cfg"));
  EXPECT_EQ(filename("snadscon", "", DBE_NOT_FOUND), installation.path("db/snadscon/"));
  char path[path_size];
  EXPECT_EQ(get_dirname(task, path, "tmp"), DBE_OK);
  EXPECT_EQ(path, installation.path("db/tmp/"));
}

TEST_F(TextFiles, APathThatDoesNotFitIsNotFound) {
  filename("snadscon", std::string(240, 'n').c_str(), DBE_NOT_FOUND);
  filename(std::string(300, 'd').c_str(), nullptr, DBE_NOT_FOUND);
  char path[path_size];
  EXPECT_EQ(get_dirname(task, path, std::string(300, 'd').c_str()), DBE_NOT_FOUND);
}

TEST_F(TextFiles, AreReadWithALineFeedAndANulBehindThem) {
  EXPECT_EQ(read_all("abc", 5), "abc\n");
  EXPECT_EQ(read_all("abc\n", 6), "abc\n\n");
  EXPECT_EQ(read_all("", 2), "\n");
  EXPECT_EQ(read_all("a longer text", 6), "a lo\n") << "as much as has room";
  const std::string big(200000, 'x');
  EXPECT_EQ(read_all(big, 200002), big + "\n");
  char one;
  EXPECT_NE(get_unparsed(task, installation.path("db/text").c_str(), &one, 1), DBE_OK);
  EXPECT_EQ(get_unparsed(task, installation.path("db/none").c_str(), &one, 1), DBE_IO_ERROR);
}

TEST_F(TextFiles, WithoutMemoryACallEndsAndSaysSo) {
  installation.write("db/snadscfg", "MAX CRMU: 1\n");
  unsigned char record[12] = {};
  co_test_fail_malloc(0);
  EXPECT_EQ(get_scf(task, 0, nullptr, record, sizeof record), DBE_IO_ERROR);
  co_test_fail_malloc(0);
  EXPECT_EQ(put_scf(task, 0, nullptr, record, sizeof record), DBE_IO_ERROR);
  EXPECT_EQ(get_scf(task, 0, nullptr, record, sizeof record), DBE_OK);
  EXPECT_EQ(record[2], 1);
  for (const char* name : {"B", "A"}) installation.write(std::string("db/snadscon/") + name, "");
  char list[16];
  std::uint16_t count = 0;
  co_test_fail_malloc(0);
  EXPECT_EQ(start_list_scn(task, nullptr, list, sizeof list, &count), DBE_IO_ERROR);
  EXPECT_NE(log().find("ZVR36355"), std::string::npos);
}

TEST_F(TextFiles, AListCountsAllAndReturnsWhatFits) {
  for (const char* name : {"D", "B", "C", "A"}) installation.write(std::string("db/snadscon/") + name, "");
  char list[100];
  std::uint16_t returned = 9, total = 9;
  const std::string directory = installation.path("db/snadscon");
  EXPECT_EQ(list_dir(task, list, 64, &returned, &total, 16, directory.c_str()), DBE_OK);
  EXPECT_EQ(returned, 4);
  EXPECT_EQ(total, 4);
  EXPECT_STREQ(list, "A");
  EXPECT_STREQ(list + 48, "D");
  EXPECT_EQ(list_dir(task, list, 32, &returned, &total, 16, directory.c_str()), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(returned, 2);
  EXPECT_EQ(total, 4);
  std::memset(list, '!', sizeof list);
  EXPECT_EQ(list_dir(task, list, 20, &returned, &total, 16, directory.c_str()), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(returned, 2) << "the second is cut where the list ends";
  EXPECT_EQ(list[20], '!');
  EXPECT_EQ(list_dir(task, list, 16, &returned, &total, 0, directory.c_str()), DBE_OK);
  EXPECT_EQ(returned, 0) << "entries of no length are counted only";
  EXPECT_EQ(total, 4);
  EXPECT_EQ(list_dir(task, nullptr, 64, &returned, &total, 16, directory.c_str()), DBE_LIST_TOO_SMALL);
  EXPECT_EQ(total, 4);
}

TEST_F(TextFiles, ALongListComesInOrder) {
  for (unsigned i = 0; i < 300; ++i)
    installation.write("db/snadscon/N" + std::to_string(i * 7919 % 1000 + 1000), "");
  std::vector<char> list(300 * 16);
  std::uint16_t count = 0;
  ASSERT_EQ(start_list_scn(task, nullptr, list.data(), 300 * 16, &count), DBE_OK);
  ASSERT_EQ(count, 300);
  for (unsigned i = 1; i < 300; ++i) ASSERT_LT(std::strcmp(&list[(i - 1) * 16], &list[i * 16]), 0) << i;
}

TEST_F(TextFiles, AnEntryThatCannotBeAskedEndsTheList) {
  installation.write("db/snadscon/A", "");
  std::filesystem::create_symlink("nowhere", installation.path("db/snadscon/B"));
  char list[64];
  std::uint16_t count = 0;
  EXPECT_EQ(start_list_scn(task, nullptr, list, sizeof list, &count), DBE_NOT_FOUND);
}

std::string printed(unparse_function print, void* task, const std::vector<unsigned char>& record) {
  std::vector<char> text(text_size_max);
  const std::int32_t length =
      print(task, text.data(), record.data(), static_cast<std::uint32_t>(record.size()));
  EXPECT_GE(length, 0);
  return std::string(text.data(), static_cast<std::size_t>(std::max(length, 0)));
}

TEST_F(TextFiles, TheMigrationPrintsWhatAnOlderInstallationKnew) {
  std::vector<unsigned char> record(CO_CONFIG_LENGTH);
  const auto put32 = [&](std::size_t at, std::uint32_t value) {
    std::memcpy(&record[at], &value, sizeof value);
  };
  std::memcpy(record.data(), "OSLO", 4);
  put32(4268, 100);
  put32(4284, 512);
  record[85] = 3;
  record[84] = 18;
  std::memcpy(&record[88], ".\\\\", 3);
  std::memcpy(&record[1368], "S1", 2);
  EXPECT_EQ(
      printed(unparse_new_cfg, task, record),
      "WORKSTATION NAME:     OSLO\nMESSAGE LOG LEVEL:    M\nLAN AUTHORIZATION:    0\nLOG FILE SIZE:        "
      "0\n"
      "TRACE FILE SIZE:      0\nAPI TRACE FILE SIZE:  0\nTCP/IP PORT:          0\nMAX TARGETS:          100\n"
      "MAX CONNECTIONS:      0\nMAX USER INTERFACES:  0\nCONFIGURATION:        SERVER_WITH_COMMS\n"
      "MACHINE TYPE:         Unknown\nREPOSITORY:           \nSERVICE AREA:         \n"
      "BACKUP AREA:          \nWORK AREA:            \nSERVER:               S1\n");
  put32(4284, 513);
  record[84] = 21;
  EXPECT_NE(printed(unparse_new_cfg, task, record)
                .find("MAX TARGETS:          100\nMAX LOCAL TARGETS:    513\nMAX CONN"),
            std::string::npos);
  EXPECT_NE(printed(unparse_new_cfg, task, record).find("WIN2K_ADV"), std::string::npos);
  for (const unsigned machine : {14u, 16u, 17u, 18u}) {
    record[84] = static_cast<unsigned char>(machine);
    EXPECT_NE(printed(unparse_new_cfg, task, record).find("MACHINE TYPE:         Unknown"),
              std::string::npos);
  }
}

TEST_F(TextFiles, PutNewCfgWritesTheFileAndTakesTheRecordOver) {
  tcb->sem_index = 1;
  std::vector<unsigned char> record(CO_CONFIG_LENGTH);
  std::memcpy(record.data(), "BERGEN", 6);
  record[4280] = 77;
  EXPECT_EQ(put_new_cfg(task, 0, nullptr, record.data(), CO_CONFIG_LENGTH), DBE_RECORD_REPLACED);
  EXPECT_EQ(installation.read("orvo.cfg").substr(0, 29), "WORKSTATION NAME:     BERGEN\n");
  EXPECT_EQ(std::memcmp(co_croca(task, CO_AREA_CONFIG), record.data(), CO_CONFIG_LENGTH), 0);
}

TEST_F(TextFiles, PutNewCfgTakesTheRecordOverWhenTheFileCannotBeWritten) {
  tcb->sem_index = 1;
  co_test_file_steps([](const char*, const char*) -> std::uint16_t { return CO_IO_ERROR; });
  std::vector<unsigned char> record(CO_CONFIG_LENGTH, 'x');
  EXPECT_EQ(put_new_cfg(task, 0, nullptr, record.data(), CO_CONFIG_LENGTH), DBE_RECORD_REPLACED);
  EXPECT_EQ(*static_cast<char*>(co_croca(task, CO_AREA_CONFIG)), 'x');
}

}  // namespace
