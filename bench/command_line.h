// The command lines of the benchmark programs: a table of switches each.
#pragma once

#include <functional>
#include <vector>

namespace bench {

struct Switch {
  const char* name;    // "--dir"
  const char* value;   // what the usage calls what follows it, "FOLDER"; null: nothing follows
  const char* help;
  std::function<void(const char* value)> take;   // is given null where nothing follows
};

// Hands out what the command line says.  False when it says something else; the usage was
// printed then.
bool read_command_line(int argc, char** argv, const std::vector<Switch>& switches);

}  // namespace bench
