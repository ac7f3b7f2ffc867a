// The two modes that record files are opened in: with commit journals, or by the literal
// order of writes.  The suite runs in both.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>

namespace zvrdb::test {

// Of the installations that this process makes: they choose nothing for themselves.
inline bool journals_on() {
  const char* chosen = std::getenv("ZVR_JOURNAL");
  return !chosen || std::strcmp(chosen, "off") != 0;
}

// Installations of this process do without journals for as long as it lives.
class without_journals {
 public:
  without_journals() {
    if (const char* chosen = std::getenv("ZVR_JOURNAL")) chosen_ = chosen;
    setenv("ZVR_JOURNAL", "off", 1);
  }
  ~without_journals() {
    if (chosen_.empty())
      unsetenv("ZVR_JOURNAL");
    else
      setenv("ZVR_JOURNAL", chosen_.c_str(), 1);
  }
  without_journals(const without_journals&) = delete;
  without_journals& operator=(const without_journals&) = delete;

 private:
  std::string chosen_;
};

}  // namespace zvrdb::test
