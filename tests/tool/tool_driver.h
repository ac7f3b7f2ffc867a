// Runs the tool as a process, on installations of its own in memory.
#pragma once

#include <string>
#include <vector>

#include "record_json.h"

namespace tool_test {

struct tool_result {
  int exit = -1;  // exit code; -1 when the tool was ended by a signal
  std::string out, err;
  std::vector<std::string> lines() const;          // of out
  zvradm::json json() const { return zvradm::json::parse(out); }  // out as one value
};

// Arguments behind "zvradm"; in is its standard input.
tool_result run_tool(const std::vector<std::string>& arguments, const std::string& in = "");

// A base directory that does not exist yet, removed with its shared state at the end.
class scratch_base {
 public:
  scratch_base();
  ~scratch_base();
  scratch_base(const scratch_base&) = delete;
  scratch_base& operator=(const scratch_base&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // The tool with --base before the arguments.
  tool_result tool(std::vector<std::string> arguments, const std::string& in = "") const;
  // An installation of a server OSLO; more are further arguments of init.
  tool_result init(const std::vector<std::string>& more = {}) const;

 private:
  std::string folder_, path_;
};

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& bytes);

}  // namespace tool_test
