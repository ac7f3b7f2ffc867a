// What the processes of the kill torture have in common: a plain model of what was
// acknowledged, kept in memory that outlives any of them.
//
// Each thing (a target, the parameters of one, a change file, a pair of CM status, a tree
// of requests and its correlator, a group, a user, a connection in a text file) belongs to one worker, who alone changes it.  A version is a number other
// than 0; 0 is a thing that is not there.
//
// Before a worker changes things it writes down what it is about to do, and strikes it out
// when the model has the outcome.  Whoever comes after its death looks at the database and
// holds it against that note.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace torture {

inline constexpr unsigned workers = 6;

enum class Kind : std::uint32_t {
  target,
  parameters,
  change_file,
  pair,        // CM status on a target that stays
  own_pair,    // and on a target of the worker's own, with which it goes
  request,
  correlator,  // of a request, with which it goes
  group,
  user,
  connection
};
inline constexpr unsigned kinds = 10;
// Things of one worker, by kind.
inline constexpr unsigned things[kinds] = {10, 10, 6, 20, 6, 5, 5, 4, 4, 3};
// Targets from this one on are local, and have three pairs of their own each.
inline constexpr unsigned first_local = 8, pairs_of_a_target = 3;
inline constexpr unsigned most_things = 20;

struct Thing {
  Kind kind;
  unsigned index;
};

// How far the worker has come with what it wrote down.
enum class Phase : std::uint32_t {
  nothing,       // nothing is written down
  open,          // in a transaction that has not been asked to commit: all must be as before
  deciding,      // the call that makes it last is under way: before or after
  acknowledged,  // it was answered as done: all must be as after
};

struct Change {
  std::atomic<std::uint32_t> kind, index, before, after;
};
inline constexpr unsigned most_changes = 8;

struct Note {
  std::atomic<Phase> phase;
  std::atomic<std::uint32_t> changes;
  Change change[most_changes];
};

using Cell = std::atomic<std::uint32_t>;
static_assert(Cell::is_always_lock_free);

struct Shared {
  Cell version[workers][kinds][most_things];
  Note note[workers];
  std::atomic<std::uint32_t> stop;       // 1: end after the step at hand
  std::atomic<std::uint32_t> steps;
  std::atomic<std::uint32_t> failed;     // 1: failure is being written, 2: it stands there
  char failure[600];                     // the first one
  // What deaths were settled as, where they met something written down.
  std::atomic<std::uint32_t> settled_before, settled_after;
};

// Shared by this process and all it forks, zeroed; given back by release.
Shared* make_shared_model();
void release(Shared* shared);

// Ends the run of all workers with this reason, unless there is one already.
void report_failure(Shared* shared, unsigned worker, const std::string& what);

}  // namespace torture
