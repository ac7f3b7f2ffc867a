// The header of a record file as JSON.
#pragma once

#include "engine/file_report.h"
#include "record_json.h"

namespace zvradm {

json file_header_json(const zvrdb::engine::file_header& header);

}  // namespace zvradm
