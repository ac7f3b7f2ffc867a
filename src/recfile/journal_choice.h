// Whether record files are opened with a commit journal.  The environment variable
// ZVR_JOURNAL, "on" or "off", goes before the file "journal" of the base directory, whose
// first word that is no comment is "on" or "off"; without either the answer is on.
#pragma once

#include <cstdint>

#include "engine/engine.h"

namespace zvrdb::recfile {

inline constexpr char journal_choice_file[] = "journal";   // in the base directory

enum class choice_source : std::uint8_t { standard, installation, environment };

struct journal_setting {
  engine::journal_use use;
  choice_source source;
  bool misread;   // the file is there and says neither, or cannot be read: on
  bool environment_misread;   // the variable is there and says neither: passed over
};

// Asks environment and installation anew.
journal_setting read_journal_choice(void* task);
// What this task goes by, asked once when it opens its files.
engine::journal_use journal_choice(void* task);
void ask_journal_choice_anew(void* task);

}  // namespace zvrdb::recfile
