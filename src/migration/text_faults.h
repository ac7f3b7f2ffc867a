// Says where and why a text of the older database cannot be read.
#pragma once

#include "migration/conversion.h"
#include "textrec/parsed_files.h"

namespace zvrdb::migration {

// For a reading of the source that failed with rc: a note with file, line and reason, or,
// when a second look finds none, with file and code.  name is null for a source
// that is one file; record_len is what was to be filled.
void tell_unreadable(const conversion& run, const textrec::parsed_source& source, const char* name,
                     std::uint32_t record_len, std::int16_t rc);

}  // namespace zvrdb::migration
