// Handlers of the text records: SNADS connections (db_id 2), configuration (3), routes
// (1), user configuration (8), and the base configuration as the migration writes it.
#pragma once

#include <cstdint>

#include "memory/codes.h"

namespace zvrdb::textrec {

inline constexpr std::uint32_t scn_record_len = 144;
inline constexpr std::uint32_t scn_name_len = 16;
inline constexpr std::uint32_t scf_record_len = 12;
inline constexpr std::uint32_t rte_record_len = 64004;
inline constexpr std::uint32_t ucf_record_len = 24;

std::int16_t get_scn(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t put_scn(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t del_scn(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t start_list_scn(void* task, const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count);
std::int16_t get_next_scn(void* task, const void* list, const std::uint16_t* index, void* record,
                          std::uint16_t record_len);
std::int16_t get_scf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t put_scf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t get_rte(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t put_rte(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t get_ucf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
std::int16_t put_ucf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
// Prints "orvo.cfg" anew, shorter than unparse_cfg, and takes the record over.  Always 8196.
std::int16_t put_new_cfg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                         std::uint16_t record_len);

}  // namespace zvrdb::textrec
