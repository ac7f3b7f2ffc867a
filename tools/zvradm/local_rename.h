// Renaming of the local target, whose name stands in three places: its record, the
// configuration file and the shared state.
#pragma once

#include <string>

namespace zvradm {

// Carried through or undone by the next rename when a crash interrupts it; the
// installation works all the time.  Throws refusal.
void rename_local_target(void* task, const std::string& base, const std::string& old_name,
                         const std::string& new_name);

// Ends a rename that a crash interrupted, if there is one: forwards when the record
// has its new name already, backwards otherwise.
void settle_interrupted_rename(void* task, const std::string& base);

}  // namespace zvradm
