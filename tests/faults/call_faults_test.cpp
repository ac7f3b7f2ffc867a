// Whatever the library asks of the system inside its exported calls fails: the n-th open,
// read, write, flush, lock, allocation and so on, alone or with all that follow, for every n
// until none fails.  Each call answers a code of its table; what was acknowledged is there,
// what was refused is there whole or not at all; nothing is held any more when the task has
// ended; and the next call works when the fault is over.
//
// The suite takes a sample of the requests; ZVR_TORTURE=1 takes all, and ZVR_FAULT one, told
// as a failure tells it: "write 3", or "write 3 all" when all later ones are to fail too.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>

#include "crash/crash_installation.h"
#include "crash/stored_records.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "faults/library_faults.h"
#include "faults/text_connection.h"
#include "faults/time_limit.h"
#include "memory/dbr_cntl.h"
#include "support/cf_names.h"

namespace fault_test {
namespace {

using crash_test::installation;
using crash_test::observe;
using crash_test::outcome;
using crash_test::script;
using crash_test::step;

constexpr unsigned remembered_tasks = 70;  // more blocks of ended tasks a process does not keep
constexpr unsigned most_faults = 20000;    // of a run that does not come to its end

bool torture() {
  return std::getenv("ZVR_TORTURE") != nullptr;
}

struct scenario {
  const char* name;
  script run;
  // The state that it begins with: a process that was killed there left it.
  step killed_in;
  int killed_at = 0;  // in thousandths of its points
  bool from_nothing = false;
  step work = crash_test::work_on;  // of who comes afterwards
  // The tables in memory have what a refused call was to bring, until they are built anew.
  bool shows_refused = false;
  bool keeps_nothing = false;  // the end of the task takes all back
};
void PrintTo(const scenario& s, std::ostream* out) {
  *out << s.name;
}

std::string observe_all(void* task);
bool has_come(void* task) {
  return !observe_all(task).empty();
}
script of(std::vector<step> steps) {
  return {std::move(steps), has_come, false};
}
script whole_life_of(std::vector<step> steps) {
  return {std::move(steps), {}, true};
}

// Lists of targets and change files, and all of requests and pairs.
bool lists(void* task) {
  std::vector<char> names(64 * 16);
  std::uint16_t count = 0, index = 0;
  if (db_start_list(task, DB_TRG, nullptr, names.data(), static_cast<std::uint32_t>(names.size()), &count,
                    &index) != DBE_OK)
    return false;
  zvrtest::CfName every = zvrtest::cf("*.*.*.*.*.*.*.*.*.*.*");
  db_cat_entry entries[16];
  if (db_start_list(task, DB_CAT, every.data(), entries, sizeof entries, &count, &index) != DBE_OK)
    return false;
  for (std::int16_t rc = DBE_OK; rc != DBE_END_OF_LIST;) {
    unsigned char record[512];
    rc = db_get_next(task, DB_CAT, entries, count, &index, record, sizeof record);
    if (rc != DBE_OK && rc != DBE_END_OF_LIST) return false;
  }
  return has_come(task);
}

std::string observe_all(void* task) {
  const std::string records = observe(task);  // these calls build the tables, which the other waits for
  return records + observe_connection(task);
}

bool small_journals(void* task) {
  zvrdb::engine::checkpoint_at = 8 * 1024;
  return has_come(task);
}
script with_checkpoints() {
  std::vector<step> steps;
  for (unsigned i = 0; i < 2; ++i) {
    steps.push_back([i](void* task) { return crash_test::put_shadow(task, "T1", 120, i); });
    steps.push_back([i](void* task) { return crash_test::put_status(task, "T2", "APP.TWO.REF.1", i + 1); });
  }
  return {std::move(steps), small_journals, false};
}

using namespace crash_test;

std::vector<scenario> all_scenarios() {
  std::vector<scenario> all;
  const auto add = [&all](const char* name, step only) { all.push_back({name, of({std::move(only)}), {}}); };
  add("PutNew", [](void* t) { return put_target(t, "NEW", "new"); });
  add("PutNewOfOnePiece", [](void* t) { return put_shadow(t, "T1", 10, 1); });
  add("PutNewOfFourPieces", [](void* t) { return put_shadow(t, "T1", 1000, 1); });
  add("Replace", [](void* t) { return put_target(t, "T1", "replaced"); });
  add("ReplaceFourPieces", [](void* t) { return put_shadow(t, "T2", 990, 2); });
  add("ReplaceFourPiecesByOne", [](void* t) { return put_shadow(t, "T2", 10, 2); });
  add("DeleteOnePiece", [](void* t) { return del_shadow(t, "SRV"); });
  add("DeleteFourPieces", [](void* t) { return del_shadow(t, "T2"); });
  add("Commit", [](void* t) { return explicit_transaction(t, true); });
  add("RollBack", [](void* t) { return explicit_transaction(t, false); });
  add("DeletionOfATarget", [](void* t) { return del_target(t, "T1"); });
  add("Rename", [](void* t) { return db_rename_trg(t, "T1", "NEW") == DBE_OK; });
  all.back().shows_refused = true;
  add("PutOfAPair", [](void* t) { return put_status(t, "T2", "APP.TWO.REF.1", 4); });
  add("ReplacementOfAPair", [](void* t) { return put_status(t, "T1", "APP.ONE.REF.1", 4); });
  add("DeletionOfAPair", [](void* t) { return del_status(t, "T1", "APP.ONE.REF.1"); });
  add("PutOfAChangeFile", [](void* t) { return put_change_file(t, "APP.THREE.REF.1"); });
  add("ReplacementOfAChangeFile", [](void* t) { return put_change_file(t, "APP.ONE.REF.1"); });
  add("DeletionOfAChangeFile", [](void* t) { return del_change_file(t, "APP.FREE.REF.1"); });
  add("PutOfARequest", [](void* t) { return put_request_root(t, 3); });
  add("DeletionOfARequest", [](void* t) { return del_request(t, 1); });
  add("ReplacementOfAText", [](void* t) { return put_connection(t, 2); });
  add("DeletionOfAText", del_connection);
  add("Lists", lists);
  all.push_back({"Checkpoints", with_checkpoints(), {}});
  all.push_back({"OpenPutAndClose",
                 whole_life_of({[](void* t) { return put_target(t, "T1", "in a whole life"); }}),
                 {}});
  all.push_back({"OpenListAndClose", whole_life_of({lists}), {}});
  all.push_back({"OpenAndEndInATransaction",
                 whole_life_of({[](void* t) {
                   return db_start_trans(t, DB_TRG) == DBE_OK && put_target(t, "T1", "never kept");
                 }}),
                 {}});
  all.back().keeps_nothing = true;
  const script come_and_go = whole_life_of({has_come});
  for (const auto& [name, at] :
       {std::pair{"RepairBehindTheCommitOfAPair", 600}, {"RepairAmongThePagesOfAPair", 850}})
    all.push_back({name, come_and_go, [](void* t) { return put_status(t, "T2", "APP.TWO.REF.1", 4); }, at});
  for (const auto& [name, at] : {std::pair{"RepairInATransaction", 700}, {"RepairBehindItsCommit", 930}})
    all.push_back({name, come_and_go, [](void* t) { return explicit_transaction(t, true); }, at});
  all.push_back({"Birth",
                 whole_life_of({[](void* t) { return put_target(t, "T1", "the first"); }}),
                 {},
                 0,
                 true,
                 work_a_little});
  return all;
}

// Most reads are made in mapped pages without a lock.  For requests of these kinds they are not.
bool by_the_locked_path(request kind) {
  return kind == request::read || kind == request::lock;
}
const zvrdb::engine::os_ops& without_mappings() {
  static const zvrdb::engine::os_ops operations = [] {
    zvrdb::engine::os_ops made = zvrdb::engine::linux_ops;
    made.map = nullptr;
    return made;
  }();
  return operations;
}

// Files of a folder that somebody holds a byte lock on, and leftovers of unfinished work.
std::string locks_and_leavings(const std::string& folder) {
  std::string found;
  std::error_code none;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, none)) {
    if (!entry.is_regular_file()) continue;
    const std::string name = entry.path().filename();
    if (name.starts_with("new-") || entry.path().parent_path().filename() == "tmp")
      found += name + " is left; ";
    const int fd = ::open(entry.path().c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) continue;
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK) found += name + " is locked; ";
    ::close(fd);
  }
  return found;
}

class CallFaults : public ::testing::TestWithParam<scenario> {
 protected:
  void SetUp() override {
    // What waits for something that another task is to bring waits short.
    co_test_delay_factor(1, 1000);
    const scenario& s = GetParam();
    if (!s.from_nothing) {
      const step start = [](void* t) { return put_start(t) && put_change_file(t, "APP.FREE.REF.1"); };
      ASSERT_EQ(place_.start_with(start), "");
    }
    if (s.killed_in) leave_killed(s);
    strange_answers();
    rehearse();
    if (HasFatalFailure()) return;
    for (unsigned i = 0; i < remembered_tasks; ++i) two_come_and_go();
    ASSERT_EQ(strange_answers(), "");
    at_rest_ = held_now();
  }
  void TearDown() override {
    end_of_faults();
    zvrdb::engine::set_os_ops(nullptr);
    if (HasFailure()) std::cout << "The log of the installation:\n" << end_of_log();
    zvrdb::engine::checkpoint_at = zvrdb::engine::journal_size;
    co_test_delay_factor(1, 1);
    end_of_limit();
  }
  std::string end_of_log() const {
    std::ifstream log(place_.base() + "/log/messages.log");
    const std::string text((std::istreambuf_iterator<char>(log)), {});
    return text.substr(text.size() - std::min<std::size_t>(text.size(), 3000));
  }
  void put_back() {
    place_.put_back();
    std::filesystem::create_directory(place_.base() + "/db/snadscon");
    std::ofstream(place_.base() + "/db/snadscon/" + connection)
        << "TYPE: STS\nPROTOCOL: TCP/IP\nTRANSMISSION TIME-OUT: 1\nSEND MU_ID TIME-OUT: 1\n";
  }
  // Without a fault.
  void rehearse() {
    put_back();
    void* task = co_init_task("rehearses", nullptr, 0);
    ASSERT_NE(task, nullptr) << co_init_error();
    states_ = {observe_all(task)};
    for (const step& next : GetParam().run.steps) {
      ASSERT_TRUE(next(task));
      states_.push_back(GetParam().keeps_nothing ? states_[0] : observe_all(task));
    }
    coi_term_task(task, 0);
    put_back();
    std::vector<std::string> allowed = {states_[0]};
    look(&allowed);
  }
  void leave_killed(const scenario& s) {
    const script work = of({s.killed_in});
    const outcome whole = place_.run(work, 0);
    ASSERT_FALSE(whole.failed);
    place_.put_back();
    ASSERT_TRUE(place_.run(work, std::max(1, whole.points * s.killed_at / 1000)).killed);
    place_.forget_shared_state();
    place_.keep_this();
  }

  // What stood behind the steps that were answered as done, or one more; after that of these
  // two the one that `found` is, and no other.
  static void expect_state(const std::string& observed, std::vector<std::string>* allowed) {
    ASSERT_NE(std::find(allowed->begin(), allowed->end(), observed), allowed->end())
        << "found\n"
        << observed << "and not\n"
        << allowed->front() << (allowed->size() > 1 ? "or\n" + allowed->back() : "");
    *allowed = {observed};
  }
  // A task that comes afterwards, alone.
  void look(std::vector<std::string>* allowed) {
    void* task = co_init_task("looks", nullptr, 0);
    ASSERT_NE(task, nullptr) << co_init_error();
    expect_state(observe_all(task), allowed);
    if (!HasFatalFailure()) expect_alone(task);
    if (!HasFatalFailure()) {
      EXPECT_TRUE(GetParam().work(task));
    }
    coi_term_task(task, 0);
  }
  static void expect_alone(void* task) {
    co_task_info alive[4];
    ASSERT_EQ(co_live_tasks(task, alive, 4), 1u);
    const auto* cntl = static_cast<const zvrdb::DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
    for (const zvrdb::iocb& file : cntl->files) ASSERT_EQ(file.use_count, 1) << file.name;
    ASSERT_EQ(cntl->fwrite_in_prog, 0);
  }

  // As many at once as there are in any run: so many blocks of ended tasks the process keeps.
  static void two_come_and_go() {
    void* first = co_init_task("first", nullptr, 0);
    coi_term_task(co_init_task("second", nullptr, 0), 0);
    coi_term_task(first, 0);
  }

  // The script with the fault; steps done.
  unsigned run_steps(void* task, bool* refused) const {
    unsigned done = 0;
    for (const step& next : GetParam().run.steps) {
      *refused = !next(task);
      if (*refused) break;
      ++done;
    }
    return done;
  }
  // 0: nothing failed, the run is whole.
  unsigned run_with(request kind, unsigned n, bool for_good) {
    const scenario& s = GetParam();
    limit_time();
    zvrdb::engine::set_os_ops(by_the_locked_path(kind) ? &without_mappings() : nullptr);
    put_back();
    unsigned failures = 0, done = 0;
    bool refused = false;
    std::vector<std::string> allowed;
    const auto allow = [&] {
      allowed = {states_[done]};
      if (refused && done + 1 < states_.size()) allowed.push_back(states_[done + 1]);
    };
    if (s.run.from_birth) {
      fail_request(kind, n, for_good);
      void* task = co_init_task("script", nullptr, 0);
      if (task) done = run_steps(task, &refused);
      if (task) coi_term_task(task, 0);
      failures = end_of_faults();
      allow();
    } else {
      void* beside = n % 2 ? co_init_task("beside", nullptr, 0) : nullptr;
      void* task = co_init_task("script", nullptr, 0);
      EXPECT_TRUE(task && s.run.before(task) && (!beside || has_come(beside)));
      fail_request(kind, n, for_good);
      done = run_steps(task, &refused);
      failures = end_of_faults();
      allow();
      if (refused) {
        EXPECT_EQ(db_rollback(task, DB_TRG), DBE_OK);
      }
      const bool as_stored = !refused || !s.shows_refused;
      if (as_stored) expect_state(observe_all(task), &allowed);
      if (as_stored && beside && !HasFatalFailure()) expect_state(observe_all(beside), &allowed);
      if (!HasFatalFailure()) {
        EXPECT_TRUE(work_on(task));
      }
      coi_term_task(task, 0);
      if (beside) coi_term_task(beside, 0);
    }
    if (HasFatalFailure() || HasNonfatalFailure()) return failures;
    if (failures == 0) {
      EXPECT_FALSE(refused);
    }
    if (refused && s.shows_refused) place_.forget_shared_state();
    look(&allowed);
    two_come_and_go();
    EXPECT_EQ(strange_answers(), "");
    EXPECT_EQ(told(held_now()), told(at_rest_));
    EXPECT_EQ(locks_and_leavings(place_.base() + "/db"), "");
    EXPECT_EQ(locks_and_leavings(shared_folder()), "");
    EXPECT_EQ(place_.faults(), "");
    return failures;
  }
  bool try_point(request kind, unsigned n, bool for_good) {
    SCOPED_TRACE("request " + std::to_string(n) + " of the kind " + name_of(kind) +
                 (for_good ? " and all later ones" : ""));
    const bool failed = run_with(kind, n, for_good) != 0;
    tried_ += failed;
    return failed && !HasFatalFailure() && !HasNonfatalFailure();
  }
  std::string shared_folder() const { return place_.shared_folder(); }

  installation place_;
  std::vector<std::string> states_;
  holdings at_rest_ = {};
  unsigned tried_ = 0;
  std::mt19937 random_{11};
};

INSTANTIATE_TEST_SUITE_P(Scenarios, CallFaults, ::testing::ValuesIn(all_scenarios()),
                         [](const auto& c) { return std::string(c.param.name); });

TEST_P(CallFaults, WhicheverRequestFailsNothingIsLostAndNothingLeftBehind) {
  if (const char* chosen = std::getenv("ZVR_FAULT")) {
    std::string kind, all;
    unsigned n = 0;
    std::istringstream(chosen) >> kind >> n >> all;
    for (unsigned k = 0; k < requests; ++k)
      if (kind == name_of(static_cast<request>(k))) try_point(static_cast<request>(k), n, all == "all");
    return;
  }
  unsigned all[requests];
  for (unsigned k = 0; k < requests; ++k) {
    const auto kind = static_cast<request>(k);
    ASSERT_EQ(run_with(kind, 0, false), 0u);
    all[k] = counted(kind);
  }
  unsigned requests_of_run = 0;
  for (const unsigned n : all) requests_of_run += n;
  std::cout << requests_of_run << " requests" << std::endl;
  for (unsigned k = 0; k < requests; ++k) {
    const auto kind = static_cast<request>(k);
    for (const bool for_good : {false, true}) {
      if (torture()) {
        unsigned n = 1;
        while (n < most_faults && try_point(kind, n, for_good)) ++n;
        ASSERT_LT(n, most_faults);
        std::cout << name_of(kind) << (for_good ? " all " : " ") << n - 1 << std::endl;
      } else if (all[k] != 0) {
        try_point(kind, 1 + static_cast<unsigned>(random_() % all[k]), for_good);
      }
      if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
  }
  std::cout << tried_ << " points" << std::endl;
}

}  // namespace
}  // namespace fault_test
