// A process is killed before and behind each of its system calls that change what others see,
// in every kind of call of a client.  A second process then finds what was answered as done,
// the step at hand whole or not at all, sound files, and works on.
//
// The second one comes fresh; or after the machine was off; or was there all the time.
//
// The suite takes a sample of the points; ZVR_TORTURE=1 takes all, and of the pairs of a first
// kill and one in the repair a larger sample.
#include <gtest/gtest.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>

#include "crash/crash_installation.h"
#include "crash/stored_records.h"
#include "crash/system_calls.h"
#include "engine/journal.h"

namespace crash_test {
namespace {

bool torture() {
  return std::getenv("ZVR_TORTURE") != nullptr;
}

struct named_script {
  const char* name;
  script (*make)();
};
void PrintTo(const named_script& s, std::ostream* out) {
  *out << s.name;
}

// The files are open when the points begin.
bool has_come(void* task) {
  return !observe(task).empty();
}

script of(std::vector<step> steps, step before = has_come) {
  return {std::move(steps), std::move(before), false};
}
script whole_life_of(std::vector<step> steps) {
  return {std::move(steps), {}, true};
}

// Small journals, so that there are checkpoints between the steps.
bool small_journals(void* task) {
  zvrdb::engine::checkpoint_at = 8 * 1024;
  zvrdb::engine::defer_to = 32 * 1024;
  return has_come(task);
}

std::vector<step> some_puts() {
  std::vector<step> steps;
  for (unsigned i = 0; i < 3; ++i) {
    steps.push_back([i](void* task) { return put_shadow(task, "T1", 120, i); });
    steps.push_back([i](void* task) { return put_status(task, "T2", "APP.TWO.REF.1", i + 1); });
  }
  return steps;
}

const named_script scripts[] = {
    {"PutNew", [] { return of({[](void* t) { return put_target(t, "NEW", "new"); }}); }},
    {"PutNewOfFourPieces", [] { return of({[](void* t) { return put_shadow(t, "T1", 1000, 1); }}); }},
    {"Replace", [] { return of({[](void* t) { return put_target(t, "T1", "replaced"); }}); }},
    {"ReplaceFourPieces", [] { return of({[](void* t) { return put_shadow(t, "T2", 990, 2); }}); }},
    {"ReplaceFourPiecesByOne", [] { return of({[](void* t) { return put_shadow(t, "T2", 10, 2); }}); }},
    {"DeleteOnePiece", [] { return of({[](void* t) { return del_shadow(t, "SRV"); }}); }},
    {"DeleteFourPieces", [] { return of({[](void* t) { return del_shadow(t, "T2"); }}); }},
    {"Commit", [] { return of({[](void* t) { return explicit_transaction(t, true); }}); }},
    {"RollBack", [] { return of({[](void* t) { return explicit_transaction(t, false); }}); }},
    {"PutOfAPair", [] { return of({[](void* t) { return put_status(t, "T2", "APP.TWO.REF.1", 4); }}); }},
    {"ReplacementOfAPair", [] { return of({[](void* t) { return put_status(t, "T1", "APP.ONE.REF.1", 4); }}); }},
    {"DeletionOfAPair", [] { return of({[](void* t) { return del_status(t, "T1", "APP.ONE.REF.1"); }}); }},
    {"DeletionOfATarget", [] { return of({[](void* t) { return del_target(t, "T1"); }}); }},
    {"DeletionOfARequest", [] { return of({[](void* t) { return del_request(t, 1); }}); }},
    {"Rename", [] { return of({[](void* t) { return db_rename_trg(t, "T1", "NEW") == DBE_OK; }}); }},
    {"Checkpoints", [] { return of(some_puts(), small_journals); }},
    {"OpenPutAndClose", [] { return whole_life_of({[](void* t) { return put_target(t, "T1", "in a whole life"); }}); }},
    {"OpenReadAndClose", [] { return whole_life_of({has_come}); }},
};

class CrashCalls : public ::testing::TestWithParam<named_script> {
 protected:
  void SetUp() override { ASSERT_EQ(place_.start_with(put_start), ""); }
  // So many of the points, the first and the last among them.
  std::vector<int> chosen(int points, int sample) {
    std::vector<int> all;
    for (int p = 1; p <= points; ++p) all.push_back(p);
    if (points <= sample) return all;
    std::shuffle(all.begin(), all.end(), random_);
    all.resize(static_cast<std::size_t>(sample));
    all.push_back(1);
    all.push_back(points);
    return all;
  }
  // What a look may find: what stood behind the steps that were answered, or one more.
  static void expect_state(const outcome& found, const std::vector<std::string>& states, unsigned done) {
    ASSERT_FALSE(found.failed) << found.observed;
    const bool before = found.observed == states[done];
    const bool after = done + 1 < states.size() && found.observed == states[done + 1];
    ASSERT_TRUE(before || after) << "found\n"
                                 << found.observed << "before\n"
                                 << states[done] << (done + 1 < states.size() ? "after\n" + states[done + 1] : "");
  }
  enum looks { fresh, after_reboot, bystanding };
  // Beside somebody a close asks less of the system than the last one does.
  int points_of(const script& s, looks how) {
    place_.put_back();
    std::unique_ptr<installation::bystander> live;
    if (how == bystanding) live = std::make_unique<installation::bystander>(place_);
    const outcome whole = place_.run(s, 0);
    EXPECT_FALSE(whole.failed);
    return whole.points;
  }
  void kill_at(const script& s, int point, looks how, const std::vector<std::string>& states) {
    place_.put_back();
    std::unique_ptr<installation::bystander> live;
    if (how == bystanding) live = std::make_unique<installation::bystander>(place_);
    const outcome killed = place_.run(s, point);
    ASSERT_TRUE(killed.killed);
    ASSERT_FALSE(killed.failed);
    if (how == after_reboot) place_.forget_shared_state();
    const outcome found = live ? live->look() : place_.look();
    expect_state(found, states, killed.done);
    if (HasFatalFailure()) return;
    ASSERT_EQ(place_.faults(), "");
    // And once more, by who finds it all closed.
    const outcome again = place_.look();
    ASSERT_FALSE(again.failed);
    ASSERT_EQ(again.observed, found.observed);
    ++tried_;
  }

  installation place_;
  std::mt19937 random_{7};
  int tried_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Scripts, CrashCalls, ::testing::ValuesIn(scripts),
                         [](const auto& c) { return std::string(c.param.name); });

TEST_P(CrashCalls, AKillAtAnySystemCallLeavesTheStepWholeOrAbsent) {
  const script s = GetParam().make();
  const outcome rehearsed = place_.rehearse(s);
  ASSERT_FALSE(rehearsed.failed);
  ASSERT_EQ(rehearsed.states.size(), s.steps.size() + 1);
  for (const looks how : {fresh, after_reboot, bystanding}) {
    const int points = points_of(s, how);
    ASSERT_GT(points, 3);
    for (const int point : chosen(points, torture() ? points : 4)) {
      SCOPED_TRACE("point " + std::to_string(point) + " of " + std::to_string(points) + ", looked at in the way " +
                   std::to_string(how));
      kill_at(s, point, how, rehearsed.states);
      if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
  }
  std::cout << tried_ << " points" << std::endl;
}

// The next opener is killed while it repairs what a first one left in the middle of its work.
TEST_P(CrashCalls, AKillInTheRepairIsRepaired) {
  const script s = GetParam().make();
  const outcome rehearsed = place_.rehearse(s);
  ASSERT_FALSE(rehearsed.failed);
  place_.put_back();
  const outcome whole = place_.run(s, 0);
  const script opener = whole_life_of({has_come});
  const std::vector<int> firsts = chosen(whole.points, torture() ? 12 : 3);
  for (const int first : firsts) {
    place_.put_back();
    const outcome killed = place_.run(s, first);
    ASSERT_TRUE(killed.killed);
    // What it left, as the record files and journals tell; the shared state is gone.
    place_.forget_shared_state();
    const installation::kept_files start = place_.kept();
    place_.keep_this();
    const outcome repaired = place_.run(opener, 0);
    ASSERT_FALSE(repaired.failed);
    for (const int second : chosen(repaired.points, torture() ? 60 : 4)) {
      SCOPED_TRACE("points " + std::to_string(first) + " of " + std::to_string(whole.points) + " and " +
                   std::to_string(second) + " of " + std::to_string(repaired.points));
      place_.put_back();
      const outcome again = place_.run(opener, second);
      ASSERT_TRUE(again.killed);
      if (second % 2 == 0) place_.forget_shared_state();
      expect_state(place_.look(), rehearsed.states, killed.done);
      if (HasFatalFailure()) return;
      ASSERT_EQ(place_.faults(), "");
      ++tried_;
    }
    place_.go_back_to(start);
  }
  std::cout << tried_ << " points" << std::endl;
}

// ---- The first creation of the files

TEST(CrashBirth, AKillAtAnySystemCallOfTheFirstCallLeavesAnInstallationThatWorks) {
  installation place;
  const script birth = whole_life_of({[](void* t) { return put_target(t, "T1", "the first"); }});
  const outcome whole = place.run(birth, 0);
  ASSERT_FALSE(whole.failed);
  std::mt19937 random(8);
  int tried = 0;
  for (int point = 1; point <= whole.points; point += torture() ? 1 : 1 + static_cast<int>(random() % 60)) {
    SCOPED_TRACE("point " + std::to_string(point) + " of " + std::to_string(whole.points));
    place.put_back();
    const outcome killed = place.run(birth, point);
    ASSERT_TRUE(killed.killed);
    if (point % 2 == 0) place.forget_shared_state();
    const outcome found = place.look(work_a_little);
    ASSERT_FALSE(found.failed);
    const bool there = found.observed.find("T1 0") != std::string::npos;
    ASSERT_TRUE(there || killed.done == 0) << found.observed;
    ASSERT_EQ(place.faults(), "");
    ++tried;
  }
  std::cout << tried << " points" << std::endl;
}

}  // namespace
}  // namespace crash_test
