// Several processes change targets at once while their writers are killed: what was
// answered as done is there, what was under way is there whole or not at all.
#include "targets/target_writers.h"

namespace target_test {
namespace {

constexpr unsigned cells = 12;

std::string name_of(unsigned writer, unsigned cell) {
  return numbered("W", writer) + numbered(".", cell);
}

class TargetProcesses : public TargetWriters {
 protected:
  struct Shared {
    StoredVersion cell[writers][cells];   // of each name: what its description tells
  };

  bool step(void* own, unsigned writer, std::mt19937& random) override {
    const auto at = static_cast<unsigned>(random() % cells);
    StoredVersion& cell = shared->cell[writer][at];
    const std::string name = name_of(writer, at);
    const void* keys[] = {name.c_str()};
    const std::uint32_t old = cell.done;
    const std::uint32_t next = random() % 3 == 0 ? 0 : static_cast<std::uint32_t>(random() | 1u);
    cell.under_way = next;
    if (next == 0) {
      const int rc = answer_in_the_end([&] { return db_del(own, DB_TRG, 1, keys); });
      if (!expect(rc, old ? DBE_OK : DBE_NOT_FOUND, 1)) return false;
    } else {
      Record record(name);
      record.description(std::to_string(next)).ren(std::to_string(at)).text(288, 60, std::to_string(next));
      const int rc = answer_in_the_end([&] { return db_put(own, DB_TRG, 1, keys, record.bytes.data(), record_len); });
      if (!expect(rc, old ? DBE_RECORD_REPLACED : DBE_OK, 2)) return false;
    }
    cell.done = next;
    return true;
  }

  void check_dead_writer(unsigned writer) override {
    for (unsigned at = 0; at < cells; ++at) {
      const std::string name = name_of(writer, at);
      shared->cell[writer][at].settle(stored_version(name), name);
    }
  }

  Shared* shared = share<Shared>();
};

TEST_F(TargetProcesses, WhatWasAnsweredAsDoneSurvivesTheDeathOfAWriterBetweenWriteOperations) {
  run_and_kill({.kills = 12, .fewest_steps = 5, .most_steps = 24});
  for (unsigned w = 0; w < writers; ++w)
    for (unsigned at = 0; at < cells; ++at)
      EXPECT_EQ(stored_version(name_of(w, at)), shared->cell[w][at].done) << name_of(w, at);
}

}  // namespace
}  // namespace target_test
