// One side of a pair, by number.  The caller has the transaction that covers both.
#pragma once

#include <cstdint>

#include "cmstatus/stored_records.h"

namespace zvrdb::cmstatus {

// In the record of the change file.  0 added; 8196 changed; 8224; 8455.
std::int16_t put_cm_by_cat(void* task, std::uint32_t trg_index, std::uint16_t cf_number, std::uint8_t status);
// 0, also when the target is not listed; 8194 no record of the change file; 8224; 8455.
// The record goes with its last target.  work: an area of file_area.
std::int16_t del_cm_by_cat(void* task, std::uint32_t trg_index, std::uint16_t cf_number, image_area* work);

// In the record of the target: the entry becomes free.  0, also when the change file is
// not listed; 8194 no record of the target; 8224; 8455.  work: an area of target_area.
std::int16_t del_cm_by_trg(void* task, std::uint32_t trg_index, std::uint16_t cf_number, image_area* work);

}  // namespace zvrdb::cmstatus
