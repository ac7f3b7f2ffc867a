// Tasks of one process, each on a thread of its own, work on change files and their status
// beside each other while the catalog grows and targets change.
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "cmstatus/cms_fixture.h"

namespace cms_test {
namespace {

class ThreadsOfOneProcess : public CmStatusTest {};

TEST_F(ThreadsOfOneProcess, SeeEachOthersChangeFilesAndStatusOverGenerations) {
  constexpr unsigned threads = 3, files = 60, targets = 6;
  authorize(1);
  for (unsigned target = 0; target < targets; ++target) ASSERT_EQ(put_target(numbered("T", target)), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
  for (unsigned i = 0; i < 420; ++i) ASSERT_EQ(put_file(cf(numbered("FIRST.", i))), DBE_OK);
  ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
  const std::uint32_t generation = cntl()->shm_generation;
  std::atomic<int> unexpected{0};
  std::atomic<unsigned> running{threads};
  const auto expect = [&](bool as_expected, int line) {
    int none = 0;
    if (!as_expected) unexpected.compare_exchange_strong(none, line);
  };
  std::vector<std::thread> workers;
  for (unsigned self = 0; self < threads; ++self)
    workers.emplace_back([&, self] {
      void* own = co_init_task("worker", nullptr, 0);
      for (unsigned i = 0; i < files && unexpected == 0; ++i) {
        std::vector<unsigned char> record(2464);
        const CfName name = cf(numbered("W", self) + numbered(".N", i) + ".FIX");
        std::memcpy(record.data(), name.data(), name.size());
        const void* keys[] = {name.data()};
        expect(db_put(own, DB_CAT, 1, keys, record.data(), 2464) == DBE_OK, __LINE__);
        const std::string target = numbered("T", i % targets);
        expect(put_status(own, target, name, 7) == DBE_OK, __LINE__);
        expect(get_status(own, target, name).status() == 7, __LINE__);
        if (i % 3 != 0) continue;
        expect(del_status(own, target, name) == DBE_OK, __LINE__);
        expect(db_del(own, DB_CAT, 1, keys) == DBE_OK, __LINE__);
      }
      --running;
      coi_term_task(own, 0);
    });
  // The default status is filled in when the semaphore has been given back.
  std::vector<unsigned char> list(5000);
  while (running != 0 && unexpected == 0) {
    const CfName name = cf("NO.SUCH.FIX");
    expect(db_cm_by_cat(task, name.data(), list.data(), 5000) == DBE_NOT_FOUND, __LINE__);
    expect(list[number("T0")] == 128, __LINE__);
  }
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(unexpected, 0) << "the line of an answer that was not expected";
  for (unsigned self = 0; self < threads; ++self)
    for (unsigned i = 0; i < files; ++i) {
      const CfName name = cf(numbered("W", self) + numbered(".N", i) + ".FIX");
      EXPECT_EQ(status(numbered("T", i % targets), name).status(), i % 3 == 0 ? 128u : 7u);
    }
  EXPECT_GT(cntl()->shm_generation, generation) << "the tables grew";
  expect_sides_agree();
}

}  // namespace
}  // namespace cms_test
