// What lies in the "db" folder beside record files: text records and their folders.
#pragma once

#include <string>
#include <vector>

namespace zvradm {

// The names given without folders and text records, so that "db/*" may be given; each one
// passed over is told on standard error.
std::vector<std::string> record_files_among(const std::vector<std::string>& names);

// Throws a refusal when the name is one of a folder, a journal or a text record.
void require_record_file_name(const std::string& name);

}  // namespace zvradm
