// Order of targets in which each server stands before its clients.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zvradm {

struct ordered_target {
  std::string name;         // as bytes
  std::string json_name;    // name and server as JSON, compared with each other only
  std::string json_server;  // "" when there is none
  std::string line;
};

// Positions of all targets.  A target keeps its place unless its server, and the
// server's server, must come first; in a ring of servers the first one by position
// comes last.
std::vector<std::size_t> servers_first(const std::vector<ordered_target>& targets);

}  // namespace zvradm
