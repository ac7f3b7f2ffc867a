// The table of states: targets against change files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvradm {

inline constexpr std::uint8_t no_status = 15;        // of a pair without a record
inline constexpr std::uint8_t default_status = 128;  // of a pair that has the default

struct status_matrix {
  std::vector<std::string> targets;  // the rows, in the installation's order of names
  std::vector<std::string> files;    // the columns, as dotted names in catalog order
  std::vector<std::uint8_t> states;  // row by row

  std::uint8_t state(std::size_t target, std::size_t file) const {
    return states[target * files.size() + file];
  }
};

// How many pairs have each state, by value of the state; states that no pair has are
// left out.
struct state_count {
  std::uint8_t state;
  std::size_t pairs;
};
std::vector<state_count> count_states(const status_matrix& matrix);

// What a state is called where there is a word for it: "no status", "default", else
// "status 7".
std::string state_words(std::uint8_t state);

// Reads the states of the targets and the change files that the filters let through;
// empty filters let all through.  Throws refusal.
status_matrix read_status_matrix(void* task, const std::string& target_filter,
                                 const std::string& file_filter);

}  // namespace zvradm
