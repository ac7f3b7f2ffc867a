// Several processes change groups of targets in explicit transactions, on one file or
// on two, while they are killed between write operations: after any death a group is of
// one version, that which was stored or that under way, in memory and in the file.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <random>

#include "engine/byte_wait.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

constexpr unsigned writers = 3;
constexpr unsigned members = 4;
constexpr std::uint32_t requests = DB_RQR;

// One group: the version that all of its members bear, 0 when there are none.
struct Group {
  std::atomic<std::uint32_t> under_way;
  std::atomic<std::uint32_t> done;
};
struct Shared {
  std::atomic<std::uint32_t> stop;
  std::atomic<int> unexpected;
  std::atomic<int> unexpected_at;
  Group group[writers];
};

std::string member(unsigned writer, unsigned at) {
  return numbered("G", writer) + numbered(".", at);
}

class TransactionProcesses : public TargetsTest {
 protected:
  void SetUp() override {
    TargetsTest::SetUp();
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    shared = static_cast<Shared*>(memory);
  }
  void TearDown() override {
    munmap(shared, sizeof(Shared));
    TargetsTest::TearDown();
  }

  bool expect(int rc, int wanted, int place) {
    if (rc == wanted) return true;
    int none = 0;
    if (shared->unexpected.compare_exchange_strong(none, rc == 0 ? -1 : rc)) shared->unexpected_at = place;
    shared->stop = 1;
    return false;
  }

  // Gives every member the version, or deletes all of them for version 0.
  bool change_members(void* own, unsigned writer, std::uint32_t old, std::uint32_t version) {
    for (unsigned at = 0; at < members; ++at) {
      const std::string name = member(writer, at);
      const void* keys[] = {name.c_str()};
      if (version == 0) {
        if (!expect(db_del(own, DB_TRG, 1, keys), old ? DBE_OK : DBE_NOT_FOUND, 1)) return false;
        continue;
      }
      Record record(name);
      record.description(std::to_string(version)).ren(std::to_string(version % 97));
      record.text(288, 60, std::to_string(version)).type(at == 0 ? server : client);
      if (at > 0) record.server(member(writer, 0));
      const int rc = db_put(own, DB_TRG, 1, keys, record.bytes.data(), record_len);
      if (!expect(rc, old ? DBE_RECORD_REPLACED : DBE_OK, 2)) return false;
    }
    return true;
  }

  bool change_group(void* own, unsigned writer, std::mt19937& random) {
    Group& group = shared->group[writer];
    const std::uint32_t old = group.done;
    const std::uint32_t next = random() % 4 == 0 ? 0 : static_cast<std::uint32_t>(random() | 1u);
    const bool two_files = random() % 3 == 0;
    group.under_way = next;
    if (two_files && !expect(db_start_trans(own, requests), DBE_OK, 3)) return false;
    if (!expect(db_start_trans(own, DB_TRG), DBE_OK, 4)) return false;
    if (!change_members(own, writer, old, next)) return false;
    if (two_files && !expect(db_commit(own, requests), DBE_OK, 5)) return false;
    if (!expect(db_commit(own, DB_TRG), DBE_OK, 6)) return false;
    group.done = next;
    return true;
  }

  bool look_around(void* own, unsigned writer, std::mt19937& random) {
    char config[100];
    if (!expect(db_get(own, DB_CFG, 0, nullptr, config, sizeof config), DBE_OK, 7)) return false;
    const std::string name = member(writer, static_cast<unsigned>(random() % members));
    const int wanted = shared->group[writer].done ? DBE_OK : DBE_NOT_FOUND;
    unsigned char status[4];
    if (!expect(db_get_trg_stat(own, name.c_str(), status), wanted, 8)) return false;
    if (wanted != DBE_OK) return true;
    status[0] = static_cast<unsigned char>(random());
    return expect(db_put_trg_stat(own, name.c_str(), status), DBE_OK, 9);
  }

  void write_until_stopped(void* own, unsigned writer, unsigned seed, int progress) {
    std::mt19937 random(seed);
    while (!shared->stop) {
      if (!(random() % 4 == 0 ? look_around(own, writer, random) : change_group(own, writer, random))) return;
      const char byte = 0;
      if (write(progress, &byte, 1) != 1) _exit(3);
    }
  }

  pid_t start(unsigned writer, unsigned seed, int* progress) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const pid_t child = fork();
    if (child != 0) {
      close(ends[1]);
      *progress = ends[0];
      return child;
    }
    void* own = co_init_task("writer", nullptr, 1);
    if (!own) _exit(2);
    write_until_stopped(own, writer, seed, ends[1]);
    coi_term_task(own, 0);
    _exit(0);
  }

  std::uint32_t stored_version(const std::string& name) {
    const Reading whole = get(name);
    const Reading head = get(name, 192);
    EXPECT_EQ(whole.rc, head.rc) << "memory and file of " << name;
    if (whole.rc == DBE_NOT_FOUND) return 0;
    EXPECT_EQ(whole.record.text_at(64, 60), head.record.text_at(64, 60)) << "memory and file of " << name;
    EXPECT_EQ(whole.record.text_at(64, 60), whole.record.text_at(288, 60)) << "half a record of " << name;
    return static_cast<std::uint32_t>(std::stoul(std::string(whole.record.text_at(64, 60))));
  }

  std::string target_file() {
    char base_path[CO_PATH_MAX] = "";
    co_get_orvo_path(task, base_path, 0);
    return std::string(base_path) + "/db/trgcfg";
  }

  void check_dead_writer(unsigned writer) {
    Group& group = shared->group[writer];
    const std::uint32_t first = stored_version(member(writer, 0));
    for (unsigned at = members; at-- > 0;) {
      const std::string name = member(writer, at);
      const std::uint32_t stored = stored_version(name);
      EXPECT_EQ(stored, first) << name;
      EXPECT_TRUE(stored == group.done || stored == group.under_way)
          << name << " is of version " << stored << ", neither " << group.done << " nor " << group.under_way;
      if (stored) {
        EXPECT_EQ(del(name), DBE_OK) << name;
      }
    }
    group.done = 0;
    group.under_way = 0;
  }

  Shared* shared = nullptr;
};

TEST_F(TransactionProcesses, AGroupIsOfOneVersionAfterTheDeathOfAWriterBetweenWriteOperations) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(numbered("seed ", seed));
  std::mt19937 random(seed);
  configure(100, 100, 1000000);  // each replacement counts a server once more
  // Calls of class 0 wait for tables that somebody else has built.
  ASSERT_EQ(index_rc(""), DBE_NO_TARGET);
  std::array<int, writers> progress{};
  std::array<pid_t, writers> children{};
  for (unsigned w = 0; w < writers; ++w)
    children[w] = start(w, static_cast<unsigned>(random()), &progress[w]);
  constexpr int kills = 12;
  for (int kill_count = 0; kill_count < kills && !HasFailure() && !shared->stop; ++kill_count) {
    const unsigned victim = static_cast<unsigned>(random() % writers);
    char byte;
    unsigned steps = 1 + static_cast<unsigned>(random() % 8);
    while (steps > 0 && read(progress[victim], &byte, 1) == 1) --steps;
    if (steps > 0) break;  // it gave up on an answer
    {
      const zvrdb::engine::writers_held writers_between(target_file().c_str());
      ASSERT_EQ(writers_between.result(), 0);
      ASSERT_EQ(kill(children[victim], SIGKILL), 0);
      ASSERT_EQ(waitpid(children[victim], nullptr, 0), children[victim]);
    }
    check_dead_writer(victim);
    close(progress[victim]);
    children[victim] = start(victim, static_cast<unsigned>(random()), &progress[victim]);
  }
  shared->stop = 1;
  for (unsigned w = 0; w < writers; ++w) {
    char bytes[256];
    while (read(progress[w], bytes, sizeof bytes) > 0) {
    }
    close(progress[w]);
    int status = -1;
    ASSERT_EQ(waitpid(children[w], &status, 0), children[w]);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(shared->unexpected, 0) << "an answer that a writer did not expect, at " << shared->unexpected_at;
  for (unsigned w = 0; w < writers; ++w)
    for (unsigned at = 0; at < members; ++at)
      EXPECT_EQ(stored_version(member(w, at)), shared->group[w].done) << member(w, at);
}

}  // namespace
}  // namespace target_test
