// Replaces the text of a record as the library does, comments and all.
#pragma once

#include <string>

#include "text_types.h"

namespace zvradm {

// What keeps everybody else from the records of a type while a text is replaced.  The
// task's last call was on the type.
// Throws refusal when the file is not `before` any more (null: there was none), or when a
// step fails.
void replace_text(void* task, const text_type& type, const std::string& path, const std::string* before,
                  const std::string& text);
// The same for "orvo.cfg", under the lock of those who change it.
void replace_config_text(const std::string& base, const std::string* before, const std::string& text);

}  // namespace zvradm
