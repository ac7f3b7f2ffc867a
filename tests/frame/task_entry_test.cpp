// Entering and leaving: semaphores, marks, the first call, the wait of class 0.
#include <sched.h>
#include <sys/resource.h>

#include "frame/frame_fixture.h"
#include "recfile/recfile.h"

namespace zvrdb::frame {
namespace {

using zvrtest::client_task;
using zvrtest::get_target;
using zvrtest::logged;
using zvrtest::put_target;

constexpr std::uint32_t nine_waits = 45000;

class TaskEntry : public zvrtest::FrameTest {
 protected:
  void TearDown() override {
    co_test_delay_factor(1, 1);
    FrameTest::TearDown();
  }
};

TEST_F(TaskEntry, TheFirstSegmentBearsGenerationZero) {
  client_task task("first");
  std::uint32_t number;
  EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
  EXPECT_GT(co_shmlen(task, "MEM_0000"), 0u);
  EXPECT_EQ(0u, task.cntl()->shm_generation);
  EXPECT_EQ(1, task.cntl()->finitialized);
  EXPECT_EQ(168u, task.tcb()->dist_cat_entry_len);
  EXPECT_EQ(1u, logged(task, 36359));
  EXPECT_EQ(0u, logged(task, 36356));
}

TEST_F(TaskEntry, TheLengthsAreThoseOfTheTables) {
  client_task task("lengths");
  ASSERT_EQ(DBE_NOT_FOUND, get_target(task, "X"));
  const DBR_CNTL* cntl = task.cntl();
  EXPECT_EQ(100u, cntl->num_trgs_allowed);
  EXPECT_EQ(100u * 192, cntl->trg_cntl_len);
  EXPECT_EQ(100u * 8, cntl->name_index_len);
  EXPECT_EQ(100u * 4, cntl->dsu_index_len);
  EXPECT_EQ(500u * 4, cntl->cat_cntl_len);
  EXPECT_EQ(500u * 168, cntl->dist_cat_len);
  EXPECT_EQ(4u + 100 * 204 + 500 * 172, co_shmlen(task, "MEM_0000"));
  const DBR_TCB* tcb = task.tcb();
  const auto* base = tcb->shm_base;
  EXPECT_EQ(base + 4, reinterpret_cast<unsigned char*>(tcb->trg_cntl));
  EXPECT_EQ(base + 4 + 19200, reinterpret_cast<unsigned char*>(tcb->name_index));
  EXPECT_EQ(base + 4 + 20000, reinterpret_cast<unsigned char*>(tcb->dsu_index));
  EXPECT_EQ(base + 4 + 20400, reinterpret_cast<unsigned char*>(tcb->cat_cntl));
  EXPECT_EQ(base + 4 + 22400, reinterpret_cast<unsigned char*>(tcb->dist_cat));
}

TEST_F(TaskEntry, ACallLeavesNothingHeld) {
  client_task task("leave");
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_FALSE(task.inside());
  EXPECT_FALSE(task.owns_memory());
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
}

TEST_F(TaskEntry, TheWriteFlagStandsFromEntryToExitOfAWriteOfClassOneOnly) {
  client_task task("flag");
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::write, DB_TRG));
  EXPECT_EQ(1, task.cntl()->fwrite_in_prog);
  EXPECT_TRUE(task.owns_memory());
  EXPECT_TRUE(task.inside());
  dbr_out(task, operation::write, DB_TRG, 0);
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::read, DB_TRG));
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  dbr_out(task, operation::read, DB_TRG, 0);
  const std::uint32_t gen = task.cntl()->gen[0];
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::write, DB_CFG));
  EXPECT_EQ(0, task.cntl()->fwrite_in_prog);
  EXPECT_EQ(gen + 1, task.cntl()->gen[0]);
  EXPECT_TRUE(task.owns_files());
  EXPECT_FALSE(task.owns_memory());
  dbr_out(task, operation::write, DB_CFG, 0);
  EXPECT_FALSE(task.owns_files());
}

TEST_F(TaskEntry, WritesRaiseTheGenerationOfTheirTypeTransactionsToo) {
  client_task task("gen");
  EXPECT_EQ(DBE_OK, db_start_trans(task, DB_TRG));
  EXPECT_EQ(1u, task.cntl()->gen[DB_TRG]);
  EXPECT_EQ(DBE_OK, db_commit(task, DB_TRG));
  EXPECT_EQ(2u, task.cntl()->gen[DB_TRG]);
}

TEST_F(TaskEntry, AFirstCallOfClassZeroWaitsForTheSegmentAndTakesItsBlockDown) {
  client_task task("waiting");
  co_test_delay_factor(0, 1);
  const std::uint64_t before = co_test_delayed();
  char buffer[100];
  EXPECT_EQ(DBE_INIT_FAILED, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(before + nine_waits, co_test_delayed());
  EXPECT_EQ(1u, logged(task, 36360));
  EXPECT_EQ(nullptr, task.tcb());
  EXPECT_FALSE(task.inside());
  for (const iocb& block : task.cntl()->files) EXPECT_EQ(0, block.use_count) << block.name;
}

TEST_F(TaskEntry, TypesThatAreNotAssignedWaitForTheSegmentAsClassZeroDoes) {
  client_task task("not assigned");
  co_test_delay_factor(0, 1);
  const std::uint64_t before = co_test_delayed();
  char buffer[8];
  EXPECT_EQ(DBE_INIT_FAILED, db_get(task, 12, 0, nullptr, buffer, 8));
  EXPECT_EQ(before + nine_waits, co_test_delayed());
  EXPECT_EQ(0u, logged(task, 36361));
}

TEST_F(TaskEntry, AFailedFirstCallCanBeMadeAgainAndAgain) {
  client_task task("again");
  co_test_delay_factor(0, 1);
  char buffer[100];
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(DBE_INIT_FAILED, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
}

TEST_F(TaskEntry, ClassZeroAttachesToASegmentThatIsThere) {
  client_task maker("maker");
  ASSERT_EQ(DBE_OK, put_target(maker, "A"));
  client_task task("attaching");
  const std::uint64_t before = co_test_delayed();
  char buffer[100];
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(before, co_test_delayed());
  EXPECT_NE(nullptr, task.tcb()->name_index);
  EXPECT_EQ(2, task.cntl()->files[0].use_count);
}

TEST_F(TaskEntry, ClassZeroNeverMakesASegmentOfANewGeneration) {
  client_task maker("maker");
  ASSERT_EQ(DBE_OK, put_target(maker, "A"));
  char buffer[100];
  ASSERT_EQ(DBE_OK, db_get(maker, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  ++maker.cntl()->shm_generation;
  co_test_delay_factor(0, 1);
  EXPECT_EQ(DBE_INIT_FAILED, db_get(maker, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(0u, co_shmlen(maker, "MEM_0001"));
  EXPECT_FALSE(maker.owns_files());
  // The block of a task that had one stays.
  EXPECT_NE(nullptr, maker.tcb());
  EXPECT_EQ(DBE_OK, get_target(maker, "A"));
  EXPECT_EQ(DBE_OK, db_get(maker, DB_CFG, 0, nullptr, buffer, sizeof buffer));
  EXPECT_EQ(1u, maker.tcb()->shm_generation);
}

// Whether the process waits for something.
bool is_waiting(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(status, text);
  const std::size_t name_end = text.rfind(')');
  return name_end != std::string::npos && text.compare(name_end, 3, ") S") == 0;
}

// The waits are cut to a quarter of a second each; all nine leave two seconds for what
// the other process does meanwhile.
TEST_F(TaskEntry, ClassZeroHoldsItsSemaphoreWhileItWaitsAndGoesOnOnceTheSegmentIsThere) {
  zvrtest::child_process child([](zvrtest::parent_link& parent) {
    void* own = co_init_task("waiting", nullptr, 0);
    co_test_delay_factor(1, 20);
    const std::uint64_t before = co_test_delayed();
    char config[100];
    parent.reached();
    if (db_get(own, DB_CFG, 0, nullptr, config, sizeof config) != DBE_OK) return 1;
    const std::uint64_t waited = co_test_delayed() - before;
    coi_term_task(own, 0);
    return waited >= 5000 && waited < nine_waits && waited % 5000 == 0 ? 0 : 2;
  });
  ASSERT_EQ(1, child.next());
  client_task maker("maker");
  std::uint32_t files = 0;
  std::uint32_t memory = 0;
  co_open_sema4(maker, "DBRFILE", &files, 0, 1);
  co_open_sema4(maker, "DBR_MEM", &memory, 0, 1);
  // Once it has opened the last of its files and given "DBR_MEM" back, the other one
  // waits for nothing but time.
  const volatile std::uint16_t& last_opened = maker.cntl()->files[file_count - 1].use_count;
  while (last_opened == 0) sched_yield();
  ASSERT_EQ(CO_OK, co_req_sema4(maker, memory, 0));
  while (!is_waiting(child.pid())) sched_yield();
  EXPECT_EQ(0, co_try_sema4(maker, files));
  EXPECT_EQ(DBE_OK, put_target(maker, "A"));
  EXPECT_EQ(0, child.finish());
  EXPECT_EQ(1, co_try_sema4(maker, files));
  co_clear_sema4(maker, files);
}

TEST_F(TaskEntry, TheClassOfTheCallStandsInTheTaskBlock) {
  client_task task("class");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  EXPECT_EQ(1, task.tcb()->sem_index);
  char config[10];
  ASSERT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, config, sizeof config));
  EXPECT_EQ(0, task.tcb()->sem_index);
  EXPECT_EQ(1, task.cntl()->fparsed_ok);
}

TEST_F(TaskEntry, EveryCallOfClassOneSaysThatTheMemoryIsInUse) {
  client_task task("in use");
  ASSERT_EQ(DBE_OK, put_target(task, "A"));
  task.cntl()->finitialized = 0;
  EXPECT_EQ(DBE_OK, get_target(task, "A"));
  EXPECT_EQ(1, task.cntl()->finitialized);
  EXPECT_EQ(0u, task.cntl()->shm_generation);
}

TEST_F(TaskEntry, AnEventDuringACallComesAtItsEndARefusedOneToo) {
  for (const int number : {SIGINT, SIGQUIT, SIGHUP}) {
    for (const std::uint32_t db_id : {std::uint32_t{DB_TRG}, std::uint32_t{DB_TYPE_COUNT}}) {
      zvrtest::child_process child([number, db_id](zvrtest::parent_link& parent) {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        void* own = co_init_task("guarded", nullptr, 0);
        const std::int16_t rc = dbr_in(own, operation::write, db_id);
        raise(number);
        parent.reached();
        dbr_out(own, operation::write, db_id, rc);
        return 1;
      });
      EXPECT_EQ(1, child.next()) << number << " " << db_id;
      EXPECT_EQ(1000 + number, child.finish()) << db_id;
    }
  }
}

TEST_F(TaskEntry, ASegmentThatCannotBeMadeIsToldAndCanBeMadeLater) {
  client_task task("segment");
  std::uint32_t number;
  bool told = false;
  for (int n = 0; n < 200 && !told; ++n) {
    co_test_fail_malloc(n);
    const std::int16_t rc = db_get_trg_index(task, "X", &number);
    co_test_fail_malloc(-1);
    if (rc == DBE_NO_TARGET) break;
    told = zvrtest::last_logged(task, 36355).find("SHR MEM") != std::string::npos;
    EXPECT_EQ(told ? 1u : 0u, logged(task, 36360)) << n;
    if (told) {
      EXPECT_EQ(DBE_INIT_FAILED, rc);
    }
  }
  EXPECT_TRUE(told);
  EXPECT_EQ(nullptr, task.tcb());
  EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
}

TEST_F(TaskEntry, TheSyncFrequencyIsReadAsTold) {
  EXPECT_EQ(-1, sync_frequency_of(nullptr));
  EXPECT_EQ(1000, sync_frequency_of("19"));
  EXPECT_EQ(20, sync_frequency_of("20"));
  EXPECT_EQ(1000, sync_frequency_of("0"));
  EXPECT_EQ(1000, sync_frequency_of("-5"));
  EXPECT_EQ(1000, sync_frequency_of("none"));
}

// It is read once a process, so each value has a fresh process: this program again, with
// a test that makes calls.
TEST_F(TaskEntry, TheSyncFrequencyComesFromTheEnvironmentAndIsTraced) {
  const struct {
    const char* value;
    const char* traced;
    bool warned;
  } cases[] = {
      {nullptr, "frequency=(-1)", true}, {"19", "frequency=(1000)", false}, {"20", "frequency=(20)", false}};
  const std::string trace = installation.base() + "/own-trace";
  for (const auto& it : cases) {
    std::remove(trace.c_str());
    zvrtest::child_process child([&](zvrtest::parent_link&) {
      unsetenv("cindex_sync_freq");
      if (it.value) setenv("cindex_sync_freq", it.value, 1);
      setenv("ZVR_TRACE", "all", 1);
      setenv("ZVR_TRACE_FILE", trace.c_str(), 1);
      if (!std::freopen("/dev/null", "w", stdout)) return 98;
      execl("/proc/self/exe", "frame_tests", "--gtest_filter=TaskEntry.TheLengthsAreThoseOfTheTables",
            static_cast<char*>(nullptr));
      return 99;
    });
    EXPECT_EQ(0, child.finish());
    const std::string text = installation.read("own-trace");
    EXPECT_NE(std::string::npos, text.find(std::string("sync() count=(0) ") + it.traced)) << it.traced;
    EXPECT_EQ(it.warned, text.find("Warning: using fsync() countinuosly ") != std::string::npos) << it.traced;
  }
}

TEST_F(TaskEntry, NoMemoryForTheTaskBlockIsLoggedAndLeavesNothing) {
  client_task task("memory");
  std::uint32_t number;
  co_test_fail_malloc(0);
  EXPECT_EQ(DBE_INIT_FAILED, db_get_trg_index(task, "X", &number));
  co_test_fail_malloc(-1);
  EXPECT_NE(std::string::npos, zvrtest::last_logged(task, 36355).find("DBR_TCB"));
  EXPECT_EQ(nullptr, task.tcb());
  EXPECT_FALSE(task.inside());
  EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
}

TEST_F(TaskEntry, EveryFailingAllocationOfAFirstCallIsACleanRefusal) {
  bool passed = false;
  for (int n = 0; n < 200 && !passed; ++n) {
    client_task task("sweep");
    co_test_fail_malloc(n);
    const std::int16_t rc = put_target(task, "A");
    co_test_fail_malloc(-1);
    passed = rc == DBE_OK || rc == DBE_RECORD_REPLACED;
    if (passed) break;
    EXPECT_TRUE(rc == DBE_INIT_FAILED || rc == DBE_IO_ERROR) << n << " " << rc;
    EXPECT_FALSE(task.inside());
    EXPECT_FALSE(task.owns_memory());
    for (const iocb& block : task.cntl()->files) EXPECT_LE(block.use_count, task.tcb() ? 1 : 0) << n;
  }
  EXPECT_TRUE(passed);
}

TEST_F(TaskEntry, AFileThatCannotBeOpenedTakesTheBlockDown) {
  installation.write("db/users", std::string(4096, 'x'));
  client_task task("bad file");
  std::uint32_t number;
  EXPECT_EQ(DBE_IO_ERROR, db_get_trg_index(task, "X", &number));
  EXPECT_EQ(nullptr, task.tcb());
  for (const iocb& block : task.cntl()->files) EXPECT_EQ(0, block.use_count) << block.name;
  // The semaphore is free: another task is refused for the same reason and not kept waiting.
  client_task other("other");
  EXPECT_EQ(DBE_IO_ERROR, db_get_trg_index(other, "X", &number));
  std::remove((installation.base() + "/db/users").c_str());
  EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
}

TEST_F(TaskEntry, LeavingAnUnknownTypeOnlyEndsTheBracket) {
  client_task task("unknown");
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::read, DB_TRG));
  dbr_out(task, operation::write, 34, 0);
  EXPECT_FALSE(task.inside());
  EXPECT_TRUE(task.owns_memory());
  dbr_out(task, operation::read, DB_TRG, 0);
  EXPECT_FALSE(task.owns_memory());
}

TEST_F(TaskEntry, AStatusOfTheCommonServicesIsLoggedOnTheWayOut) {
  client_task task("status");
  ASSERT_EQ(DBE_OK, dbr_in(task, operation::read, DB_TRG));
  dbr_out(task, operation::read, DB_TRG, DBE_CO_FAILURE);
  EXPECT_EQ(1u, logged(task, 36392));
}

TEST_F(TaskEntry, TheTaskRegistersTheVersionOfTheLibrary) {
  client_task task("version");
  ASSERT_EQ(DBE_NOT_FOUND, get_target(task, "X"));
  const char* date = nullptr;
  const char* time = nullptr;
  ASSERT_EQ(CO_OK, co_version(task, 4, &date, &time));
  EXPECT_STREQ("Dec 11 2000", date);
  EXPECT_STREQ("23:34:09", time);
}

class NeedsLocalTarget : public zvrtest::FrameTest {
 protected:
  NeedsLocalTarget()
      : FrameTest(zvrdb::test::default_config({.workstation = "LOCAL", .kind = "SERVER_WITH_COMMS"})) {}
  unsigned char* config(void* task) { return static_cast<unsigned char*>(co_croca(task, CO_AREA_CONFIG)); }
};

TEST_F(NeedsLocalTarget, WithoutItsRecordEveryCallAnswersTheSame) {
  client_task task("local");
  std::uint32_t number;
  for (unsigned i = 1; i <= 3; ++i) {
    EXPECT_EQ(DBE_INIT_FAILED, db_get_trg_index(task, "X", &number));
    EXPECT_EQ(i, logged(task, 36387));
    EXPECT_FALSE(task.owns_memory());
  }
}

TEST_F(NeedsLocalTarget, ATaskThatLivesOnMeetsTheCheckAgainAfterARebuild) {
  client_task task("local");
  const unsigned char kind = config(task)[85];
  config(task)[85] = 2;
  ASSERT_EQ(DBE_OK, put_target(task, "OTHER"));
  config(task)[85] = kind;
  ++task.cntl()->shm_generation;
  EXPECT_EQ(DBE_INIT_FAILED, get_target(task, "OTHER"));
  EXPECT_EQ(DBE_INIT_FAILED, get_target(task, "OTHER"));
  EXPECT_EQ(2u, logged(task, 36387));
  EXPECT_EQ(nullptr, task.tcb()->shm_base);
  config(task)[85] = 2;
  EXPECT_EQ(DBE_OK, get_target(task, "OTHER"));
}

TEST_F(NeedsLocalTarget, ItsRenIsTheNetworkOfAllLocalTargets) {
  const unsigned char two = 2;
  {
    client_task task("put");
    const unsigned char kind = config(task)[85];
    config(task)[85] = two;
    TRG_CNTL_ENTRY record = zvrtest::target_record("LOCAL");
    record.trg_type = 32 | 8;
    std::memcpy(record.ren, "HOMENET ", 8);
    const void* keys[] = {"LOCAL"};
    ASSERT_EQ(DBE_OK, db_put(task, DB_TRG, 1, keys, &record, sizeof record));
    config(task)[85] = kind;
  }
  client_task task("read");
  EXPECT_EQ(DBE_OK, get_target(task, "LOCAL"));
  EXPECT_EQ(0, std::memcmp("HOMENET ", task.cntl()->local_dsu, 8));
}

TEST_F(NeedsLocalTarget, TheNameInTheCommonAreaSaysWhichTargetItIs) {
  client_task task("local");
  const unsigned char kind = config(task)[85];
  config(task)[85] = 2;
  for (const char* name : {"LOCAL", "OTHER"}) {
    TRG_CNTL_ENTRY record = zvrtest::target_record(name);
    record.trg_type = 32 | 8;
    std::memcpy(record.ren, name, 5);
    const void* keys[] = {name};
    ASSERT_EQ(DBE_OK, db_put(task, DB_TRG, 1, keys, &record, sizeof record));
  }
  EXPECT_EQ(0, task.cntl()->local_dsu[0]) << "an installation without a local server has none";
  config(task)[85] = kind;
  std::strcpy(static_cast<char*>(co_croca(task, CO_AREA_LOCAL_TARGET)), "OTHER");
  task.cntl()->fwrite_in_prog = 1;
  EXPECT_EQ(DBE_OK, get_target(task, "LOCAL"));
  EXPECT_EQ(0, std::memcmp("OTHER\0\0\0", task.cntl()->local_dsu, 8));
  config(task)[85] = 2;
  task.cntl()->fwrite_in_prog = 1;
  EXPECT_EQ(DBE_OK, get_target(task, "LOCAL"));
  EXPECT_EQ(0, task.cntl()->local_dsu[0]);
}

}  // namespace
}  // namespace zvrdb::frame
