// The two modes that record files are opened in: with commit journals, or by the literal
// order of writes.  The suite runs in both.
#pragma once

#include <cstdlib>
#include <cstring>

namespace zvrdb::test {

// Of the installations that this process makes: they choose nothing for themselves.
inline bool journals_on() {
  const char* chosen = std::getenv("ZVR_JOURNAL");
  return !chosen || std::strcmp(chosen, "off") != 0;
}

}  // namespace zvrdb::test
