// What an installation chose for the commit journals of its record files, for people.
#pragma once

#include <string>

#include "recfile/journal_choice.h"

namespace zvradm {

struct journal_view {
  bool on;
  std::string source;  // "ZVR_JOURNAL", "installation" or "default"
  std::string note;    // what was passed over because it says neither on nor off; most often empty
};

journal_view view_journal(void* task);
// "on (ZVR_JOURNAL)", "on (default; the file ... says neither on nor off)"
std::string journal_text(const journal_view& view);

}  // namespace zvradm
