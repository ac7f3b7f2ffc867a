// Handlers of targets (db_id 4) and of the small records that hang on a target
// (parameters 5, hardware 11, shadow 32).  They run inside the frame, with "DBR_MEM"
// held by the task.  keys[0] is the target's name, a NUL-terminated string.
#pragma once

#include <zvrdb/records.h>

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::targets {

inline constexpr std::uint32_t trg_record_len = sizeof(db_trg);
inline constexpr std::uint32_t trg_list_len = DB_TRG_LIST_STATE;
inline constexpr std::uint32_t trg_filter_len = sizeof(db_trg_filter);
inline constexpr std::uint32_t prm_record_len =
    sizeof(db_prm);  // caller's contract of put_prm and get_more_prm
inline constexpr std::uint32_t thw_record_len = sizeof(db_thw);

// ---- Building of the shared memory
// Sets the sizes of the target tables from the base configuration, unless those of the
// current generation stand.  Always 0.
std::int16_t alloc_trg(void* task);
// Loads the tables into the zeroed segment.  0; 8201 a limit is exceeded or a record
// cannot be read (36360 logged); 8455 no memory.
std::int16_t init_trg(void* task);

// ---- Targets (db_id 4)
// At most 192 bytes come from memory, more from the file.  0; 8194 no such target; or
// the code of get_keyed.
std::int16_t get_trg(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
// 0 added; 8196 replaced; 8195 the record bears another name than the key; 8200 its
// server is unknown; 8213 a limit is reached; 8455 not written.  Bytes of the record
// beyond length count as zero.
std::int16_t put_trg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// Deletes the target with its parameters and hardware.  0; 8194; 8455 (also when a
// focal point was missing from its list: the target is gone then).
std::int16_t del_trg(void* task, std::uint16_t num_keys, const void* const* keys);
// Names of 64 bytes, added to *count.  0; 8211 the area ends before the list does, or
// the count would not fit.
std::int16_t start_list_trg(void* task, const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count);
// As get_trg for the name at *index of such a list.
std::int16_t get_next_trg(void* task, const void* list, const std::uint16_t* index, void* buffer,
                          std::uint16_t length);
// filter: trg_filter_len bytes, its `*` becomes a NUL.  list_state: trg_list_len bytes.
// 0; 8195 no filter; 8211 block too small; 8217 nothing can match.
std::int16_t init_list_trg(void* task, void* filter, void* list_state, std::uint32_t size);
// As get_trg for the next target that the filter lets through; 8199 at the end.
std::int16_t get_more_trg(void* task, void* list_state, void* buffer, std::uint16_t length);

// ---- Work of the exported calls, without their frame
// 0; 8194 no such target; 8455 record or focal point missing; or the code of put_keyed,
// with the table renamed all the same.  The new name must not be in use; it is cut to
// 63 bytes.
std::int16_t rename_trg(void* task, const char* old_name, const char* new_name);
// rgn_ren: 16 bytes; no RGN means that of this server.  0 or 8194.
std::int16_t trg_from_rr(void* task, const char* rgn_ren, TRG_CNTL_ENTRY** entry);
// status: 4 bytes.  0 or 8194.
std::int16_t get_trg_status(void* task, const char* name, void* status);
// Lowers the status counters by elapsed; one that runs out is cleared with the byte
// behind it.  Always 0.
std::int16_t time_trg_stat(void* task, std::uint16_t elapsed);
// server: 64 bytes.  0; 8194 no such target, or its link leads nowhere.
std::int16_t get_srv_name(void* task, const char* name, char* server);

// ---- Parameters (5), hardware (11) and shadow record (32) of a target.  All answer the
// code of get_trg_index for an unknown name and otherwise that of the keyed function.
// put_prm reads prm_record_len bytes and put_thw thw_record_len, whatever length says;
// put_sht reads length.
std::int16_t get_prm(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_prm(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_prm(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t get_thw(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_thw(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_thw(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t get_sht(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_sht(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_sht(void* task, std::uint16_t num_keys, const void* const* keys);
// The parameters of all targets.  0; 8211 less than trg_list_len bytes.
std::int16_t init_list_prm(void* task, void* filter, void* list_state, std::uint32_t size);
// Writes prm_record_len bytes, whatever length says.  0; 8199 at the end; or a code of
// get_keyed.
std::int16_t get_more_prm(void* task, void* list_state, void* buffer, std::uint16_t length);

}  // namespace zvrdb::targets
