// A small installation with one damaged byte, or cut short: every exported call on it ends
// with a code, and so does the end of the task.
//
// Four things are damaged: a record file at rest, its journal at rest, and both in the state
// that a kill leaves, when a committed change is in the journal alone.  A journal at rest
// says nothing that the file does not show, so whatever becomes of it every record is there.
//
// A process of its own goes through a stretch of damages; its death or silence fails the
// test with the damage it was at.  The suite tries a sample, ZVR_TORTURE=1 every bit and
// every length.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "engine/format.h"
#include "engine/journal_file.h"
#include "support/temp_installation.h"

namespace torture {
namespace {

namespace fs = std::filesystem;
namespace engine = zvrdb::engine;
using Bytes = std::vector<unsigned char>;

constexpr unsigned targets = 4;
constexpr unsigned seconds_at_work = 20, seconds_in_all = 900;  // of one damage; the machine may have much else to do
constexpr int answers_of_the_table[] = {
    DBE_OK,           DBE_MIGRATION,    DBE_BAD_DB_ID,      DBE_NOT_FOUND,        DBE_BAD_RECORD, DBE_RECORD_REPLACED,
    DBE_END_OF_LIST,  DBE_NO_TARGET,    DBE_INIT_FAILED,    DBE_BAD_CMS_KEY,      DBE_ENTRY_CHANGED, DBE_LIST_TOO_SMALL,
    DBE_CMS_EXISTS,   DBE_LIMIT_EXCEEDED, DBE_NO_STATUS,    DBE_NO_STAT_GET,      DBE_NOT_AUTHORIZED, DBE_EMPTY_LIST,
    DBE_BUFFER_TOO_SMALL, DBE_TRANS_IN_PROGRESS, DBE_FILE_NOT_FOUND, DBE_IO_ERROR, DBE_FILE_STATUS, DBE_CO_FAILURE};

struct Damage {
  std::uint64_t bit;     // flipped
  std::uint64_t length;  // other than the file's own: cut to it, and no bit is flipped
};

// What the process that tries damages tells the one that waits for it.
struct Progress {
  std::atomic<std::uint64_t> tried;
  std::atomic<int> code;          // an answer that no table has
  std::atomic<unsigned> missing;  // damages with which a record was not there
  std::atomic<unsigned> opened;   // damages with which the tables could be built
};

Bytes read_file(const std::string& path) {
  Bytes bytes(fs::file_size(path));
  const int fd = open(path.c_str(), O_RDONLY);
  EXPECT_EQ(read(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
  return bytes;
}

// In its place: the journal knows its file by the inode.
void write_file(const std::string& path, const Bytes& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0660);
  if (fd < 0 || pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()) ||
      ftruncate(fd, static_cast<off_t>(bytes.size())) != 0)
    _exit(3);
  close(fd);
}

db_trg target(unsigned i) {
  db_trg record{};
  std::snprintf(record.trg_name, sizeof record.trg_name, "TARGET%u", i);
  std::snprintf(record.description, sizeof record.description, "number %u", i);
  std::snprintf(record.ren, sizeof record.ren, "REN%u", i);
  record.trg_type = DB_TRG_LOCAL | DB_TRG_CLIENT;
  return record;
}

int put(void* task, const db_trg& record) {
  const void* keys[] = {record.trg_name};
  db_trg copy = record;
  return db_put(task, DB_TRG, 1, keys, &copy, offsetof(db_trg, carried702));
}

class Corruption : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("ZVR_JOURNAL", "on", 1);
    co_test_delay_factor(1, 10000);  // some damages look like somebody who is to be waited for
    installation = std::make_unique<zvrdb::test::TempInstallation>();
    file = installation->path("db/trgcfg");
    journal = file + ".jnl";
    void* task = co_init_task("fill", nullptr, 1);
    ASSERT_NE(task, nullptr) << co_init_error();
    for (unsigned i = 0; i < targets; ++i) ASSERT_EQ(put(task, target(i)), DBE_OK);
    const db_trg named = target(0);
    const void* keys[] = {named.trg_name};
    auto parameters = std::make_unique<db_prm>();
    std::memcpy(parameters->trg_name, named.trg_name, sizeof parameters->trg_name);
    parameters->num_parms = 3;
    ASSERT_EQ(db_put(task, DB_PRM, 1, keys, parameters.get(), sizeof *parameters), DBE_OK);
    coi_term_task(task, 0);
    task = co_init_task("fill", nullptr, 1);  // the journal began anew
    ASSERT_EQ(put(task, target(0)), DBE_RECORD_REPLACED);
    file_behind = read_file(file);
    ASSERT_EQ(put(task, target(targets)), DBE_OK);  // what the journal alone will know
    journal_ahead = used_part(read_file(journal));
    ASSERT_GT(journal_ahead.size(), engine::journal_groups + 4096);
    coi_term_task(task, 0);
    file_at_rest = read_file(file);
    journal_at_rest = used_part(read_file(journal));
    for (const auto& entry : fs::directory_iterator(installation->path("db")))
      if (entry.is_regular_file() && entry.path() != file && entry.path() != journal)
        others.emplace_back(entry.path(), used_part(read_file(entry.path())));
    void* memory = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    progress = new (memory) Progress{};
  }
  void TearDown() override {
    co_test_delay_factor(1, 1);
    installation.reset();
    unsetenv("ZVR_JOURNAL");
  }

  // A record file whole; of a journal its head, the groups of its life, and the place of the
  // next one, which is made zero.
  static Bytes used_part(Bytes bytes) {
    if (bytes.size() < engine::journal_size) return bytes;
    constexpr std::size_t salt = 8, group_length = 4, salt_len = 8;
    std::size_t end = engine::journal_groups;
    while (end + 512 < bytes.size() && std::memcmp(&bytes[end], "ZVRG", 4) == 0 &&
           std::memcmp(&bytes[end + salt], &bytes[salt], salt_len) == 0) {
      const std::size_t length = engine::load_le32(&bytes[end + group_length]);
      end += (length + 511) / 512 * 512;
    }
    bytes.resize(std::min(end, bytes.size()));
    bytes.resize(bytes.size() + 512);
    return bytes;
  }

  void restore(const Bytes& file_bytes, const Bytes& journal_bytes) {
    for (const auto& [path, bytes] : others) write_file(path, bytes);
    write_file(file, file_bytes);
    write_file(journal, journal_bytes);
    co_task_info alive;
    std::uint32_t count = 0;
    if (co_reset(nullptr, &alive, 1, &count) != CO_OK) _exit(4);
  }

  bool answered(int code) {
    if (std::find(std::begin(answers_of_the_table), std::end(answers_of_the_table), code) !=
        std::end(answers_of_the_table))
      return true;
    progress->code = code;
    _exit(5);
  }

  // Calls of each kind that the file has.  False when a record is not there.
  bool calls_end_with_a_code() {
    void* task = co_init_task("try", nullptr, 1);
    if (!task) _exit(6);
    bool there = true;
    std::uint32_t number = 0;
    const int first = db_get_trg_index(task, "TARGET0", &number);
    answered(first);
    if (first != DBE_INIT_FAILED && first != DBE_IO_ERROR) ++progress->opened;
    for (unsigned i = 0; i < targets; ++i) {
      const db_trg wanted = target(i);
      const void* keys[] = {wanted.trg_name};
      auto got = std::make_unique<db_trg>();
      const int rc = db_get(task, DB_TRG, 1, keys, got.get(), sizeof *got);
      answered(rc);
      there = there && rc == DBE_OK && std::strcmp(got->description, wanted.description) == 0;
    }
    const db_trg named = target(0), added = target(20);
    const void* keys[] = {named.trg_name};
    auto parameters = std::make_unique<db_prm>();
    answered(db_get(task, DB_PRM, 1, keys, parameters.get(), sizeof *parameters));
    walk_lists(task);
    answered(put(task, added));
    answered(put(task, named));
    answered(db_rename_trg(task, "TARGET1", "RENAMED"));
    answered(db_start_trans(task, DB_TRG));
    answered(put(task, target(21)));
    answered(db_rollback(task, DB_TRG));
    answered(db_start_trans(task, DB_TRG));
    answered(put(task, target(22)));
    answered(db_commit(task, DB_TRG));
    answered(db_del(task, DB_TRG, 1, keys));
    coi_term_task(task, 0);
    return there;
  }

  void walk_lists(void* task) {
    char names[64 * 64];
    std::uint16_t count = 0, index = 0;
    answered(db_start_list(task, DB_TRG, nullptr, names, sizeof names, &count, &index));
    alignas(8) unsigned char state[DB_PRM_LIST_STATE] = {};
    int rc = db_init_list(task, DB_PRM, nullptr, state, sizeof state);
    auto parameters = std::make_unique<db_prm>();
    for (unsigned i = 0; answered(rc) && rc == DBE_OK && i < 100; ++i)
      rc = db_get_more(task, DB_PRM, state, parameters.get(), sizeof *parameters);
  }

  // A call that never ends is the death of the process.
  static void limit_time() {
    const itimerval at_work = {{0, 0}, {seconds_at_work, 0}};
    setitimer(ITIMER_PROF, &at_work, nullptr);
    alarm(seconds_in_all);
  }

  // All damages of one of the two.  What the other one is stays as it is given.
  void try_all(const Bytes& file_bytes, const Bytes& journal_bytes, bool damage_journal, bool all_must_be_there) {
    const Bytes& whole = damage_journal ? journal_bytes : file_bytes;
    const std::vector<Damage> damages = choose(whole);
    progress = new (progress) Progress{};
    while (progress->tried < damages.size()) {
      const pid_t child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        while (progress->tried < damages.size()) {
          limit_time();
          const Damage& damage = damages[progress->tried];
          Bytes bytes = whole;
          if (damage.length != whole.size())
            bytes.resize(damage.length);
          else
            bytes[damage.bit / 8] ^= static_cast<unsigned char>(1u << damage.bit % 8);
          restore(damage_journal ? file_bytes : bytes, damage_journal ? bytes : journal_bytes);
          if (!calls_end_with_a_code()) {
            if (all_must_be_there) _exit(7);
            ++progress->missing;
          }
          ++progress->tried;
          if (progress->tried % 256 == 0) break;
        }
        _exit(0);
      }
      int status = -1;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      const Damage& damage = damages[std::min<std::size_t>(progress->tried, damages.size() - 1)];
      ASSERT_EQ(status, 0) << "code " << progress->code << ", " << (damage_journal ? "journal" : "file") << " of "
                           << whole.size() << " bytes, bit " << damage.bit << ", length " << damage.length;
    }
    std::cout << damages.size() << " points in " << whole.size() << " bytes: " << progress->opened << " could be opened, " << progress->missing
              << " cost a record\n";
  }

  std::vector<Damage> choose(const Bytes& whole) const {
    std::vector<Damage> damages;
    const bool all = std::getenv("ZVR_TORTURE") != nullptr;
    if (all) {
      for (std::uint64_t bit = 0; bit < whole.size() * 8; ++bit) damages.push_back({bit, whole.size()});
      for (std::uint64_t length = 0; length < whole.size(); ++length) damages.push_back({0, length});
      return damages;
    }
    std::mt19937 random(17);
    std::vector<std::uint64_t> telling;  // bytes that are not zero: damage of others says less
    for (std::uint64_t i = 0; i < whole.size(); ++i)
      if (whole[i]) telling.push_back(i);
    for (int i = 0; i < 60; ++i)
      damages.push_back({telling[random() % telling.size()] * 8 + random() % 8, whole.size()});
    for (int i = 0; i < 15; ++i) damages.push_back({0, random() % whole.size()});
    return damages;
  }

  // The write flag as the engine sets it.
  static Bytes with_flag(Bytes bytes) {
    std::memcpy(bytes.data() + engine::flag_offset, &engine::flag_set, sizeof engine::flag_set);
    return bytes;
  }

  std::unique_ptr<zvrdb::test::TempInstallation> installation;
  std::string file, journal;
  Bytes file_at_rest, journal_at_rest, file_behind, journal_ahead;
  std::vector<std::pair<std::string, Bytes>> others;  // files, and journals so far as they are used
  Progress* progress = nullptr;
};

TEST_F(Corruption, OfAFileAtRestLetsEveryCallEndWithACode) {
  try_all(file_at_rest, journal_at_rest, false, false);
}
TEST_F(Corruption, OfAJournalAtRestCostsNoRecord) {
  try_all(file_at_rest, journal_at_rest, true, true);
}
TEST_F(Corruption, OfAFileThatItsJournalIsAheadOfLetsEveryCallEndWithACode) {
  try_all(with_flag(file_behind), journal_ahead, false, false);
}
TEST_F(Corruption, OfAJournalThatIsAheadOfItsFileCostsNoRecordThatTheFileHas) {
  try_all(file_behind, journal_ahead, true, true);
}

}  // namespace
}  // namespace torture
