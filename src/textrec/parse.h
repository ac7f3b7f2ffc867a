// Turns the text of a record into the record, by its keyword table.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

// text: writable, ends in a line feed and NUL, and is destroyed.  record: record_size
// bytes, which may be fewer than the whole record.  key: the record's name, for messages.
// 0; 8195 with a message logged, what was stored before the failure stays.
std::int16_t parse(void* task, std::uint32_t db_id, const char* key, const keyword_entry* table, char* text,
                   void* record, std::uint32_t record_size);

// First character that is no white space, at the latest the terminating NUL.
char* skip_wte_space(void* task, char* text);

// ---- Special functions of the tables
std::int16_t rgn_ren_prs(void* task, const special_value& given);
std::int16_t fqplu_name_parse(void* task, const special_value& given);
std::int16_t addr_prs(void* task, const special_value& given);
std::int16_t hw_parm(void* task, const special_value& given);
std::int16_t prm_prs(void* task, const special_value& given);
std::int16_t dva_time_parse(void* task, const special_value& given);
std::int16_t SNDS_RTE_PRS(void* task, const special_value& given);

// How many table rows the parses of this thread have compared with a line so far.
std::uint64_t keyword_comparisons();

}  // namespace zvrdb::textrec
