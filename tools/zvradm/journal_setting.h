// What an installation chose for the commit journals of its record files, for people.
#pragma once

#include <string>

#include "recfile/journal_choice.h"

namespace zvradm {

struct journal_view {
  bool on;
  std::string source;  // "ZVR_JOURNAL", "installation" or "default"
  bool misread;        // the file "journal" of the base directory says neither on nor off
  bool environment_misread;  // ZVR_JOURNAL does
};

journal_view view_journal(void* task);
// "on (ZVR_JOURNAL)"
std::string journal_text(const journal_view& view);

}  // namespace zvradm
