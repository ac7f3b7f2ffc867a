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
// The same, but nothing is logged: each message goes to faults with its line.
std::int16_t parse_checking(void* task, std::uint32_t db_id, const char* key, const keyword_entry* table,
                            char* text, void* record, std::uint32_t record_size, const fault_sink& faults);

// First character that is no white space, at the latest the terminating NUL.
char* skip_wte_space(void* task, char* text);

// ---- Special functions of the tables
// RGN.REN into two char[8].  Without a dot the REN is what the next line holds.
std::int16_t rgn_ren_prs(void* task, const special_value& given);
// NETID.LUNAME, kept as it stands.
std::int16_t fqplu_name_parse(void* task, const special_value& given);
// Appends a line of an address; what does not fit is cut.
std::int16_t addr_prs(void* task, const special_value& given);
// NAME=VALUE into two char[81].
std::int16_t hw_parm(void* task, const special_value& given);
// A whole line NAME: VALUE into char[12] and char[50].
std::int16_t prm_prs(void* task, const special_value& given);
// HH:MM into two bytes.  Base 0: "08" and "09" are 0.
std::int16_t dva_time_parse(void* task, const special_value& given);
// A whole line into a route; counts it at the record's head.
std::int16_t SNDS_RTE_PRS(void* task, const special_value& given);

// How many table rows the parses of this thread have compared with a keyword so far.  A
// row of another length, first or last character is passed over without a comparison.
std::uint64_t keyword_comparisons();

}  // namespace zvrdb::textrec
