// Handlers of targets (db_id 4) and of the small records that hang on a target
// (parameters 5, hardware 11, shadow 32).  They run inside the frame, with "DBR_MEM"
// held by the task.  keys[0] is the target's name, a NUL-terminated string.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::targets {

inline constexpr std::uint32_t trg_record_len = 21724;
inline constexpr std::uint32_t trg_list_len = 420;
inline constexpr std::uint32_t trg_filter_len = 138;
inline constexpr std::uint32_t prm_record_len = 62812;  // caller's contract of put_prm and get_more_prm
inline constexpr std::uint32_t thw_record_len = 20804;

// Building of the shared memory.
std::int16_t alloc_trg(void* task);
std::int16_t init_trg(void* task);

std::int16_t get_trg(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer, std::uint16_t length);
std::int16_t put_trg(void* task, std::uint16_t num_keys, const void* const* keys, void* record, std::uint16_t length);
std::int16_t del_trg(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t get_next_trg(void* task, const void* list, const std::uint16_t* index, void* buffer, std::uint16_t length);
std::int16_t start_list_trg(void* task, const void* filter, void* list, std::uint32_t size, std::uint16_t* count);
std::int16_t init_list_trg(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_trg(void* task, void* list_state, void* buffer, std::uint16_t length);

// Work of the exported calls, without their frame.
std::int16_t rename_trg(void* task, const char* old_name, const char* new_name);
std::int16_t trg_from_rr(void* task, const char* rgn_ren, TRG_CNTL_ENTRY** entry);
std::int16_t time_trg_stat(void* task, std::uint16_t elapsed);
std::int16_t get_srv_name(void* task, const char* name, char* server);

std::int16_t get_prm(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer, std::uint16_t length);
std::int16_t put_prm(void* task, std::uint16_t num_keys, const void* const* keys, void* record, std::uint16_t length);
std::int16_t del_prm(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t init_list_prm(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t get_more_prm(void* task, void* list_state, void* buffer, std::uint16_t length);
std::int16_t get_thw(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer, std::uint16_t length);
std::int16_t put_thw(void* task, std::uint16_t num_keys, const void* const* keys, void* record, std::uint16_t length);
std::int16_t del_thw(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t get_sht(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer, std::uint16_t length);
std::int16_t put_sht(void* task, std::uint16_t num_keys, const void* const* keys, void* record, std::uint16_t length);
std::int16_t del_sht(void* task, std::uint16_t num_keys, const void* const* keys);

}  // namespace zvrdb::targets
