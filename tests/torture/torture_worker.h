// One of the processes of the kill torture: changes its things at random by exported calls
// and holds every answer against the model.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "torture/torture_model.h"
#include "torture/torture_records.h"

namespace torture {

class Worker {
 public:
  Worker(void* task, Shared* shared, unsigned self, std::uint32_t seed)
      : task_(task), shared_(shared), self_(self), random_(seed) {}

  // Finds out what became of what the dead worker before had written down.  False: between
  // before and after, or not as it was acknowledged; the failure is reported.
  bool settle();
  // One step.  False when an answer was not as it must be.
  bool step();
  // All its things and all lists of them.
  bool look_at_everything();

 private:
  struct Wanted {
    Thing thing;
    std::uint32_t after;
  };

  unsigned pick(unsigned below) { return static_cast<unsigned>(random_() % below); }
  Thing some(Kind kind) { return {kind, pick(things[static_cast<unsigned>(kind)])}; }
  std::uint32_t new_version() { return static_cast<std::uint32_t>(random_() % 100000000 + 1) * 2; }
  Cell& cell(Thing thing) { return shared_->version[self_][static_cast<unsigned>(thing.kind)][thing.index]; }
  // Version of what a thing hangs on; 1 for one that stands alone.
  std::uint32_t base_of(Thing thing);
  bool fail(const std::string& what);
  bool expect(int code, int wanted, const char* call, Thing thing);

  void write_down(const std::vector<Wanted>& changes, Phase phase);
  void phase(Phase phase) { shared_->note[self_].phase = phase; }
  void strike_out(bool done);

  bool put(Thing thing);
  bool remove(Thing thing);
  bool rename(Thing target);
  bool look_at(Thing thing);
  bool put_or_remove_request();
  bool transaction_on_targets();
  bool change_in_transaction(const Wanted& wanted);
  bool status_of_a_target();
  std::string fault_of_list(const std::vector<std::string>& found, Kind kind);
  bool look_at_list(Kind kind);
  std::string name_of(Thing thing);

  void* task_;
  Shared* shared_;
  unsigned self_;
  std::mt19937 random_;
};

}  // namespace torture
