// Reads that fail inside a record of several pieces: it is read whole or not at all, and
// replaced or deleted whole or not at all.  A piece that cannot be looked for is no missing one.
#include <algorithm>

#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "recfile/record_files_fixture.h"
#include "support/journal_mode.h"

namespace zvrdb::recfile {
namespace {

using zvrtest::target_key;

int reads_left = -1;  // until one fails; -1: none will
std::int64_t planned_read(int file, std::uint64_t offset, void* to, std::size_t n) {
  if (reads_left >= 0 && reads_left-- == 0) return -1;
  return engine::linux_ops.read_at(file, offset, to, n);
}
engine::os_ops with_planned_reads() {
  engine::os_ops ops = engine::linux_ops;
  ops.read_at = planned_read;
  ops.map = nullptr;  // so that each node comes by the read
  return ops;
}
const engine::os_ops planned_ops = with_planned_reads();

using bytes = std::vector<unsigned char>;
constexpr std::uint32_t long_record = 60000;  // four pieces
constexpr std::uint32_t short_record = 100;
constexpr std::uint32_t number = 7;

class FailedReads : public ::testing::Test {
 protected:
  FailedReads() {
    reads_left = -1;
    engine::set_os_ops(&planned_ops);
    zvrtest::file_task files("first");
    EXPECT_EQ(files.open(), DBE_OK);
    cache_blocks_ = engine::cache_blocks();
    for (std::uint32_t n = 1; n <= 2 * number; ++n)
      EXPECT_EQ(write(files, n, zvrtest::bytes_of(n % 2 ? long_record : short_record, n)), DBE_OK);
  }
  ~FailedReads() override {
    reads_left = -1;
    engine::set_os_ops(nullptr);
  }
  static std::int16_t write(zvrtest::file_task& files, std::uint32_t n, const bytes& content) {
    target_key key = {DB_SHT, n, 0};
    return db_write(files.task(), files.tcb()->trg_file, &key, content.data(),
                    static_cast<std::uint32_t>(content.size()));
  }
  static std::int16_t update(zvrtest::file_task& files, const bytes& content) {
    target_key key = {DB_SHT, number, 0};
    return db_update(files.task(), files.tcb()->trg_file, &key, content.data(),
                     static_cast<std::uint32_t>(content.size()));
  }
  static std::int16_t remove(zvrtest::file_task& files) {
    target_key key = {DB_SHT, number, 0};
    return db_delete(files.task(), &key, files.tcb()->trg_file);
  }
  // Empty when it is not there.  The key stands at its head.
  static std::int16_t read(zvrtest::file_task& files, bytes* content) {
    target_key key = {DB_SHT, number, 0};
    content->assign(65000, 0);
    auto length = static_cast<std::uint32_t>(content->size());
    std::int16_t rc = db_locate(files.task(), files.tcb()->trg_file, &key, KEY_EQ);
    if (rc == DBE_OK) rc = db_read(files.task(), files.tcb()->trg_file, content->data(), &length);
    content->resize(rc == DBE_OK ? length : 0);
    return rc;
  }
  static std::int16_t surely(zvrtest::file_task& files, locate_option option) {
    target_key key = {DB_SHT, number, 0};
    const std::int16_t rc = db_locate_surely(files.task(), files.tcb()->trg_file, &key, option);
    EXPECT_NE(rc, DBE_NOT_FOUND);
    return rc;
  }
  // The cache of a process that just came; no file is open.  Opens look through all blocks that
  // were ever used: what earlier tries left would cost most of the time.
  void empty_cache() const { engine::set_cache_blocks(cache_blocks_); }
  using operation = std::int16_t (*)(zvrtest::file_task& files);
  // The n-th read fails, for every n, each time in files that were just opened.
  void try_all(operation run, unsigned least_failures = 4) {
    unsigned failures = 0;
    for (int n = 0;; ++n) {
      SCOPED_TRACE("read " + std::to_string(n));
      empty_cache();
      zvrtest::file_task files("reads");
      ASSERT_EQ(files.open(), DBE_OK);
      bytes before, after;
      unsigned pieces_before = 0;
      {
        zvrtest::file_task beside("beside");
        ASSERT_EQ(beside.open(), DBE_OK);
        ASSERT_EQ(read(beside, &before), DBE_OK);
        pieces_before = zvrtest::pieces_in(beside.tcb()->trg_file);
      }
      files.take();
      reads_left = n;
      const std::int16_t rc = run(files);
      const bool whole = reads_left >= 0;
      reads_left = -1;
      if (whole) {
        EXPECT_EQ(rc, DBE_OK);
      }
      failures += rc != DBE_OK;
      const std::int16_t found = read(files, &after);
      const unsigned pieces = zvrtest::pieces_in(files.tcb()->trg_file);
      // Without journals the flush behind a transaction reads again, and fails when all is done.
      if (rc != DBE_OK && zvrdb::test::journals_on()) {
        EXPECT_EQ(found, DBE_OK);
        EXPECT_TRUE(after == before);
        EXPECT_EQ(pieces, pieces_before);
      } else {
        EXPECT_EQ(pieces + pieces_of(before), pieces_before + pieces_of(after));
      }
      if (found == DBE_NOT_FOUND) {
        EXPECT_EQ(write(files, number, zvrtest::bytes_of(long_record, number)), DBE_OK);
      } else {
        EXPECT_EQ(update(files, zvrtest::bytes_of(long_record, number)), DBE_OK);
      }
      if (whole || HasFailure()) break;
    }
    EXPECT_GE(failures, least_failures);
  }
  static unsigned pieces_of(const bytes& content) {
    return static_cast<unsigned>((content.size() + 15999) / 16000);
  }
  zvrdb::test::TempInstallation installation;
  unsigned cache_blocks_ = 0;
};

TEST_F(FailedReads, LeaveARecordThatIsReadWholeOrUnread) {
  try_all([](zvrtest::file_task& files) {
    bytes content;
    const std::int16_t rc = read(files, &content);
    EXPECT_EQ(content.size(), rc == DBE_OK ? long_record : 0u);
    return rc;
  });
}

TEST_F(FailedReads, AreNoMissingRecordToWhoWantsToKnowForSure) {
  for (const operation search : {operation{[](zvrtest::file_task& files) { return surely(files, KEY_GE); }},
                                 operation{[](zvrtest::file_task& files) { return surely(files, KEY_GT); }},
                                 operation{[](zvrtest::file_task& files) { return surely(files, KEY_LE); }},
                                 operation{[](zvrtest::file_task& files) { return surely(files, KEY_EQ); }}})
    try_all(search, 2);
}

TEST_F(FailedReads, LeaveARecordThatIsDeletedWholeOrGone) {
  try_all([](zvrtest::file_task& files) { return remove(files); });
}

TEST_F(FailedReads, LeaveARecordThatIsReplacedByAShorterOneWholeOrReplaced) {
  try_all([](zvrtest::file_task& files) { return update(files, zvrtest::bytes_of(short_record, 90)); });
}

TEST_F(FailedReads, LeaveARecordThatIsReplacedByAnotherWholeOrReplaced) {
  try_all([](zvrtest::file_task& files) { return update(files, zvrtest::bytes_of(long_record - 50, 91)); });
}

}  // namespace
}  // namespace zvrdb::recfile
