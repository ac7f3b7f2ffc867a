// The base configuration as the migration stores it.
#include <cstring>

#include "memory/trace.h"
#include "textrec/base_config.h"
#include "textrec/parsed_files.h"
#include "textrec/record_printers.h"
#include "textrec/text_records.h"

namespace zvrdb::textrec {

std::int16_t put_new_cfg(void* task, std::uint16_t, const void* const*, void* record,
                         std::uint16_t record_len) {
  std::int16_t rc = DBE_RECORD_REPLACED;
  const trace_bracket bracket(task, __func__, &rc);
  static_assert(base_config_len == CO_CONFIG_LENGTH && base_config_text_max <= text_size_max);
  // Whether the file could be written steers nothing: the record counts from now on.
  const std::int16_t written =
      put_parsed(task, config_file_name, 0, nullptr, unparse_new_cfg, record, record_len);
  ZVR_TRACE(task, 1, 2, "put_parsed returned %hx", static_cast<unsigned short>(written));
  if (void* area = co_croca(task, CO_AREA_CONFIG)) std::memcpy(area, record, CO_CONFIG_LENGTH);
  return rc;
}

}  // namespace zvrdb::textrec
