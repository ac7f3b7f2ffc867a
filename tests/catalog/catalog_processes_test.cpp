// Several processes change the catalog at once while they are killed: what was answered
// as done is there, what was under way is there whole or not at all, and no number is
// given twice.
//
// The killer owns the writer arbiter of the catalog file while it kills, so that the
// victim may be anywhere but in the bytes of one write operation.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <random>

#include "catalog/catalog_fixture.h"
#include "engine/writers_held.h"

namespace catalog_test {
namespace {

constexpr unsigned writers = 3;
constexpr unsigned cells = 12;

// One name: the version that its text tells, 0 when there is no such change file.
struct Cell {
  std::atomic<std::uint32_t> under_way;
  std::atomic<std::uint32_t> done;
};
struct Shared {
  std::atomic<std::uint32_t> stop;
  std::atomic<int> unexpected;  // the first answer that a writer did not expect
  Cell cell[writers][cells];
};

std::string name_of(unsigned writer, unsigned cell) {
  return numbered("W", writer) + numbered(".", cell);
}

CatRecord version_of(const std::string& name, std::uint32_t version) {
  CatRecord record(name);
  record.text(std::to_string(version));
  const std::string text = std::to_string(version);
  std::memcpy(record.bytes.data() + 364, text.data(), text.size());
  return record;
}

class CatalogProcesses : public CatalogTest {
 protected:
  void SetUp() override {
    CatalogTest::SetUp();
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    shared = static_cast<Shared*>(memory);
  }
  void TearDown() override {
    munmap(shared, sizeof(Shared));
    CatalogTest::TearDown();
  }

  bool expect(int rc, int wanted) {
    if (rc == wanted) return true;
    int none = 0;
    shared->unexpected.compare_exchange_strong(none, rc == 0 ? -1 : rc);
    shared->stop = 1;
    return false;
  }

  void write_until_stopped(void* own, unsigned writer, unsigned seed, int progress) {
    std::mt19937 random(seed);
    while (!shared->stop) {
      const unsigned at = static_cast<unsigned>(random() % cells);
      Cell& cell = shared->cell[writer][at];
      const std::string name = name_of(writer, at);
      const std::uint32_t old = cell.done;
      const std::uint32_t next = random() % 3 == 0 ? 0 : static_cast<std::uint32_t>(random() | 1u);
      cell.under_way = next;
      if (next == 0) {
        if (!expect(del_on(own, name), old ? DBE_OK : DBE_NOT_FOUND)) return;
      } else if (!expect(put_on(own, version_of(name, next)), old ? DBE_RECORD_REPLACED : DBE_OK)) {
        return;
      }
      cell.done = next;
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
    const CatReading whole = get_cf(name);
    const CatReading head = get_cf(name, head_len);
    EXPECT_EQ(whole.rc, head.rc) << "memory and file of " << name;
    if (whole.rc == DBE_NOT_FOUND) return 0;
    EXPECT_EQ(whole.rc, DBE_OK);
    EXPECT_EQ(whole.record.text(), head.record.text()) << "memory and file of " << name;
    EXPECT_STREQ(whole.record.text().c_str(), reinterpret_cast<const char*>(whole.record.bytes.data()) + 364)
        << "half a record of " << name;
    return static_cast<std::uint32_t>(std::stoul(whole.record.text()));
  }

  // After the writer's death the stored version becomes the one that counts.
  void check_dead_writer(unsigned writer) {
    for (unsigned at = 0; at < cells; ++at) {
      Cell& cell = shared->cell[writer][at];
      const std::uint32_t stored = stored_version(name_of(writer, at));
      EXPECT_TRUE(stored == cell.done || stored == cell.under_way) << name_of(writer, at);
      cell.done = stored;
      cell.under_way = stored;
    }
  }

  Shared* shared = nullptr;
};

TEST_F(CatalogProcesses, WhatWasAnsweredAsDoneSurvivesTheDeathOfAWriterBetweenWriteOperations) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(numbered("seed ", seed));
  std::mt19937 random(seed);
  std::array<int, writers> progress{};
  std::array<pid_t, writers> children{};
  for (unsigned w = 0; w < writers; ++w)
    children[w] = start(w, static_cast<unsigned>(random()), &progress[w]);
  for (int kill_count = 0; kill_count < 12 && !HasFailure() && !shared->stop; ++kill_count) {
    const unsigned victim = static_cast<unsigned>(random() % writers);
    char byte;
    unsigned steps = 5 + static_cast<unsigned>(random() % 20);
    while (steps > 0 && read(progress[victim], &byte, 1) == 1) --steps;
    if (steps > 0) break;  // it gave up on an answer
    {
      const zvrdb::engine::writers_held arbiter(installation_->path("db/catalog").c_str());
      ASSERT_EQ(arbiter.result(), 0);
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
  EXPECT_EQ(shared->unexpected, 0) << "an answer that a writer did not expect";
  for (unsigned w = 0; w < writers; ++w)
    for (unsigned at = 0; at < cells; ++at)
      EXPECT_EQ(stored_version(name_of(w, at)), shared->cell[w][at].done) << name_of(w, at);
  expect_agreement();
}

}  // namespace
}  // namespace catalog_test
