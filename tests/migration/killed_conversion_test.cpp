// A conversion that is killed at each of its steps, or has no memory, and is run again.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "migration/conversion.h"
#include "migration/migration_fixture.h"
#include "migration/new_files.h"

using namespace migration_test;

namespace {

int steps_left = -1;

void die_at_zero() {
  if (steps_left-- == 0) kill(getpid(), SIGKILL);
}

// Dies at a step of the replacement of "orvo.cfg".
std::string config_step;
bool in_replacement = false;
std::uint16_t die_at_config_step(const char* step, const char* path) {
  if (path && std::strstr(path, "orvo.cfg")) in_replacement = true;
  if (in_replacement && config_step == step) kill(getpid(), SIGKILL);
  return CO_OK;
}

// One installation with an older database; what becomes of it can be told as a text.
class Converted : public MigrationTest {
 public:
  explicit Converted(const older_size& size) : size_(size) {
    write_older_database(installation_->base(), size);
    // Conversions of types, a limit that is raised, users beyond their lists.
    db_.target("FOCAL", {.type = "focalpoint", .rgn = "R0", .ren = "FOC"});
    db_.target("far", {.type = "remote", .rgn = "FAR", .ren = "AWAY"});
    db_.status("FOCAL", status_entry(1, 4));
    db_.status("far", "");
  }
  void TestBody() override {}

  // Runs it in a process that is killed before its step `step`. True when it came through.
  bool run_until(int step) {
    const pid_t child = fork();
    if (child == 0) {
      void* own = co_init_task("killed", nullptr, 1);
      steps_left = step;
      zvrdb::migration::set_transaction_records(2);
      zvrdb::migration::set_step_hook(die_at_zero);
      _exit(own ? (db_mig_das(own) == DBE_OK ? 0 : 2) : 3);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "exit " << WEXITSTATUS(status);
    return WIFEXITED(status);
  }
  // The same before a step of the replacement of "orvo.cfg".
  bool run_until_config_step(const char* step) {
    const pid_t child = fork();
    if (child == 0) {
      void* own = co_init_task("killed", nullptr, 1);
      config_step = step;
      co_test_file_steps(die_at_config_step);
      _exit(own ? (db_mig_das(own) == DBE_OK ? 0 : 2) : 3);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status);
  }
  int run() { return migrate(); }

  std::string told() { return installation_->read("orvo.cfg") + told_of_records(); }
  std::string told_of_records() {
    std::ostringstream out;
    for (const std::string& name : db_.entries_of_db()) out << name << '\n';
    for (const std::string& name : target_names()) tell_target(out, name);
    for (unsigned i = 0; i < size_.users; ++i) tell_user(out, "user" + std::to_string(i));
    tell_user(out, "remuser");
    for (unsigned i = 0; i < size_.change_files; ++i) tell_body(out, "file", status_body(2, i));
    for (unsigned i = 0; i < size_.groups; ++i) tell_record(out, keyed(DB_TG, "GROUP" + std::to_string(i), 64152));
    for (const char* name : {"ZVRUSER", "ZVRBLD", "ZVRADMN"}) tell_record(out, keyed(DB_APR, name, 28));
    for (const std::uint32_t db_id : {DB_TAK, DB_DAK}) tell_record(out, keyed(db_id, "", 2432));
    for (unsigned i = 0; i < size_.change_files; ++i)
      tell_record(out, change_file("APP.PART.REF." + std::to_string(i)));
    return out.str();
  }

 private:
  std::vector<std::string> target_names() const {
    std::vector<std::string> names = {"FOCAL", "far"};
    for (unsigned i = 0; i < size_.targets; ++i) names.push_back(target_name(i));
    return names;
  }
  static void tell_body(std::ostringstream& out, const char* what, const std::vector<unsigned char>& body) {
    out << what << ' ' << std::string(body.begin(), body.end()) << '\n';
  }
  static void tell_record(std::ostringstream& out, const stored_record& record) {
    out << record.rc << ' ' << std::string(record.bytes.begin(), record.bytes.end()) << '\n';
  }
  void tell_target(std::ostringstream& out, const std::string& name) {
    const stored_record record = target(name);
    out << name << ' ';
    tell_record(out, record);
    tell_record(out, get(DB_THW, name, 20804));
    tell_record(out, get(DB_PRM, name, 62812));
    std::uint32_t number = 0;
    if (db_get_trg_index(task, name.c_str(), &number) == DBE_OK) tell_body(out, "target", status_body(1, number));
  }
  void tell_user(std::ostringstream& out, const std::string& name) { tell_record(out, keyed(DB_USR, name, 1236)); }
  older_size size_;
};

constexpr older_size small = {.targets = 2, .change_files = 3, .pairs_per_target = 2, .users_per_target = 2,
                              .users = 2, .hardware = 1, .parameters = 1, .groups = 1, .members = 2};

std::string undisturbed() {
  Converted whole(small);
  EXPECT_EQ(DBE_OK, whole.run());
  return whole.told();
}

// Kills at every `stride`th step from `first` on.
void kill_at_steps(int first, int stride) {
  const std::string expected = undisturbed();
  for (int step = first;; step += stride) {
    Converted cut(small);
    const bool through = cut.run_until(step);
    ASSERT_EQ(DBE_OK, cut.run()) << "killed at step " << step;
    ASSERT_EQ(expected, cut.told()) << "killed at step " << step;
    if (through) {
      EXPECT_LT(100, step);  // the hook was there
      return;
    }
  }
}

TEST(KilledConversion, OfEveryFirstStepOfFourGoesOnToTheSameEnd) {
  kill_at_steps(0, 4);
}
TEST(KilledConversion, OfEverySecondStepOfFourGoesOnToTheSameEnd) {
  kill_at_steps(1, 4);
}
TEST(KilledConversion, OfEveryThirdStepOfFourGoesOnToTheSameEnd) {
  kill_at_steps(2, 4);
}
TEST(KilledConversion, OfEveryFourthStepOfFourGoesOnToTheSameEnd) {
  kill_at_steps(3, 4);
}

// The steps of the text files themselves: those of "orvo.cfg" are in between.
TEST(KilledConversion, InTheReplacementOfTheConfigurationItGoesOnToTheSameEnd) {
  const std::string expected = undisturbed();
  constexpr const char* steps[] = {"write", "fsync", "remove", "rename"};
  for (const char* step : steps) {
    Converted cut(small);
    ASSERT_FALSE(cut.run_until_config_step(step)) << step;
    ASSERT_EQ(DBE_OK, cut.run()) << "killed at " << step;
    ASSERT_EQ(expected, cut.told()) << "killed at " << step;
  }
}

TEST(KilledConversion, MayBeKilledAgainAndAgain) {
  const std::string expected = undisturbed();
  Converted cut(small);
  for (int step = 3; !cut.run_until(step); step += 5) {
  }
  ASSERT_EQ(DBE_OK, cut.run());
  EXPECT_EQ(expected, cut.told());
}

TEST(ConversionWithoutMemory, EndsWithACodeOrGoesOnAndComesToTheSameEnd) {
  // That "orvo.cfg" cannot be written is no failure: the limit holds in memory.
  std::string expected;
  {
    Converted whole(small);
    ASSERT_EQ(DBE_OK, whole.run());
    expected = whole.told_of_records();
  }
  constexpr int allocations = 90;  // more than a small conversion makes
  int failures = 0;
  for (int n = 0; n < allocations; ++n) {
    Converted starved(small);
    co_test_fail_malloc(n);
    const int rc = starved.run();
    co_test_fail_malloc(-1);
    ASSERT_TRUE(rc == DBE_OK || rc == DBE_IO_ERROR || rc == DBE_MIGRATION) << n << ": " << rc;
    if (rc != DBE_OK) ++failures;
    ASSERT_EQ(DBE_OK, starved.run()) << n;
    ASSERT_EQ(expected, starved.told_of_records()) << n;
  }
  EXPECT_LT(15, failures);
}

}  // namespace
