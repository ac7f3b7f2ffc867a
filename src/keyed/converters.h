// The special functions of the field tables.  parse (prs) fills the internal record,
// unparse (unprs) writes the external form.  Internally a record names things by their
// names; in keys and in the external form stands their number.
//
// Every function stays inside both sides: it reads and writes internal bytes only below
// `length`, external bytes only below `end`.  An internal record cut short reads as
// zero; an unparse that finds no room answers 8224 (36456 logged).
#pragma once

#include "keyed/field_tables.h"

namespace zvrdb::keyed {

// The converters of one row.
#define ZVR_CONVERTER_PAIR(name)                                                            \
  std::int16_t prs_##name(void* task, std::uint32_t db_id, const field_descriptor* field,   \
                          external_source* from, internal_record to);                       \
  std::int16_t unprs_##name(void* task, std::uint32_t db_id, const field_descriptor* field, \
                            external_sink* to, internal_record_view from)

// Key of 76 bytes of a user request (17 to 21, 30).  Without a descriptor the position
// stays.  8193 (36366 logged) for another type; 8200 for an unknown name or number.
ZVR_CONVERTER_PAIR(ur_key);
// Keys that hold a name: user and profile (24 bytes), both kinds of group (72).
ZVR_CONVERTER_PAIR(usr_name);
ZVR_CONVERTER_PAIR(apr_name);
ZVR_CONVERTER_PAIR(tg_name);
ZVR_CONVERTER_PAIR(dtg_name);
// Key of 24 bytes without a name.
ZVR_CONVERTER_PAIR(ak);
// Key of 16 bytes of the catalog; parsing turns its numbers into name and ids.  8194.
ZVR_CONVERTER_PAIR(cat_key);
// Both keys of a correlator, 48 and 76 bytes; only the second moves the position.
ZVR_CONVERTER_PAIR(coo_key);
ZVR_CONVERTER_PAIR(coi_key);
// Key of a target's records; the name follows as data, so parsing only passes it.
std::int16_t unprs_trg_key(void* task, std::uint32_t db_id, const field_descriptor* field, external_sink* to,
                           internal_record_view from);
// A target's name, stored as its number (0xFFFFFFFF: none).  8200.
ZVR_CONVERTER_PAIR(trg_name);
// The number that the name before was stored as.
ZVR_CONVERTER_PAIR(srv_num);
// Connection status, which only a mobile client has.  prs: 8224 when it is missing.
ZVR_CONVERTER_PAIR(mobstat);
// Blocks as long as a length field before them says.
ZVR_CONVERTER_PAIR(fan_blk);
ZVR_CONVERTER_PAIR(vector);
// A report of 1060 bytes, stored as its type tells.  prs: 8195 (36454) for an unknown type.
ZVR_CONVERTER_PAIR(report);

#undef ZVR_CONVERTER_PAIR

}  // namespace zvrdb::keyed
