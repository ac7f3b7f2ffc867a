// One task of this process on an installation, for as long as a command runs.
#pragma once

#include <string>

#include "commands.h"

namespace zvradm {

// The base directory told by --base or ORVO_PATH; throws usage_fault when neither is.
std::string base_directory(const globals& all);
// Throws refusal, saying how one is made, when the base directory has no configuration.
void require_installation(const std::string& base);
// Names the base directory to the common services of this process.
void announce_base(const std::string& base);

class session {
 public:
  // Throws refusal when there is no installation at the base directory or the common
  // services cannot attach to it.
  explicit session(const std::string& base);
  ~session();
  session(const session&) = delete;
  session& operator=(const session&) = delete;
  void* task() const { return task_; }

 private:
  void* task_;
};

}  // namespace zvradm
