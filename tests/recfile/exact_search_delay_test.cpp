// The delay in front of an exact search while another one of the process is running.
#include <sys/wait.h>
#include <unistd.h>

#include "engine/os_file.h"
#include "recfile/record_files_fixture.h"

namespace zvrdb::recfile {
namespace {

// What a process finds that comes to be inside an exact search of its own: a copy of
// this one, made by the read that the search does.
int (*in_the_search)() = nullptr;
int found = -1;

std::int64_t read_with_a_copy(int file, std::uint64_t offset, void* to, std::size_t n) {
  if (in_the_search) {
    int (*const body)() = in_the_search;
    in_the_search = nullptr;
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    if (waitpid(child, &status, 0) == child && WIFEXITED(status)) found = WEXITSTATUS(status);
  }
  return engine::linux_ops.read_at(file, offset, to, n);
}

engine::os_ops with_copies() {
  engine::os_ops ops = engine::linux_ops;
  ops.read_at = read_with_a_copy;
  ops.map = nullptr;   // so that each search reads
  return ops;
}
const engine::os_ops copying_ops = with_copies();

// Another file than the one that is being searched.
constexpr std::uint32_t other_type = 22;
constexpr std::uint32_t other_key_len = 24;

std::uint64_t delay_of(void* task, file_entry* handle, std::int16_t option) {
  const std::uint64_t before = co_test_delayed();
  unsigned char key[other_key_len] = {22};
  db_locate(task, handle, key, option);
  return co_test_delayed() - before;
}

int search_elsewhere() {
  void* task = co_init_task("copy", nullptr, 0);
  if (!task) return 1;
  auto* tcb = static_cast<DBR_TCB*>(co_malloc(task, sizeof(DBR_TCB), CO_MEM_PRIVATE, "DBR__TCB"));
  tcb->cntl = static_cast<DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
  tcb->start_trans_id = no_trans_id;
  co_slots(task)->dbr_tcb = tcb;
  file_entry* handle = nullptr;
  if (db_open(task, other_type, &handle) != DBE_OK) return 2;
  co_test_delay_factor(0, 1);
  if (delay_of(task, handle, KEY_GE) != 0) return 3;
  if (delay_of(task, handle, KEY_EQ) != 500) return 4;
  if (delay_of(task, handle, KEY_EQ) != 0) return 5;
  return 0;
}

class ExactSearch : public ::testing::Test {
 protected:
  ExactSearch() { engine::set_os_ops(&copying_ops); }
  ~ExactSearch() override { engine::set_os_ops(nullptr); }
  zvrdb::test::TempInstallation installation;
};

TEST_F(ExactSearch, WaitsOnceForAnotherOneThatIsRunningAndThenGoesAhead) {
  zvrtest::file_task files("searching");
  ASSERT_EQ(DBE_OK, files.open());
  unsigned char key[12] = {4, 0, 0, 0, 1};
  found = -1;
  in_the_search = search_elsewhere;
  EXPECT_EQ(DBE_NOT_FOUND, db_locate(files.task(), files.tcb()->trg_file, key, KEY_EQ));
  EXPECT_EQ(nullptr, in_the_search);
  EXPECT_EQ(0, found);
}

TEST_F(ExactSearch, AloneWaitsForNothing) {
  zvrtest::file_task files("alone");
  ASSERT_EQ(DBE_OK, files.open());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(0u, delay_of(files.task(), files.tcb()->usr_file, KEY_EQ));
}

}  // namespace
}  // namespace zvrdb::recfile
