// Whether this process opens record files with a commit journal: the environment variable
// ZVR_JOURNAL, "on" or "off", read here and nowhere else.  Off without it.
#pragma once

#include <cstdlib>
#include <cstring>

#include "engine/engine.h"

namespace zvrdb::recfile {

inline engine::journal_use journal_choice() {
  const char* wanted = std::getenv("ZVR_JOURNAL");
  return wanted && std::strcmp(wanted, "on") == 0 ? engine::journal_use::on : engine::journal_use::off;
}

}  // namespace zvrdb::recfile
