// Handlers of the distribution catalog (db_id 9) and of the products (26) and filesets
// (27) of its change files.  They run inside the frame, with "DBR_MEM" held by the task.
// keys[0] is the cf_name (76 bytes) of a change file, or for products and filesets the
// 80 bytes of a db_product_key.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::catalog {

inline constexpr std::uint32_t cat_record_len = 2464;
inline constexpr std::uint32_t cat_head_len = 164;      // of a record, kept in memory
inline constexpr std::uint32_t spare_slots = 500;       // beyond those in use, of both tables
inline constexpr std::uint32_t product_list_len = 272;  // list state of products and filesets

// ---- Building of the shared memory
// Sets the sizes of the catalog's tables, unless those of the current generation stand.
// Always 0.
std::int16_t alloc_cat(void* task);
// Loads the tables into the zeroed segment.  0; 8201 (36360 logged) a record cannot be
// read, there are more than the tables hold, or no memory.
std::int16_t init_cat(void* task);

// ---- Change files (db_id 9)
// At most 164 bytes come from memory, more from the file.  0; 8194 no such change file;
// or the code of get_keyed.
std::int16_t get_cat(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
// 0 added; 8196 replaced; 8195 the record bears another name than the key; 8213 no number
// is left; 8455 not written.  Bytes of the record beyond length count as zero.
std::int16_t put_cat(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
// Deletes the change file with its filesets and products.  0; 8194; 8212 a target has CM
// status of it; or the code of the step that failed.
std::int16_t del_cat(void* task, std::uint16_t num_keys, const void* const* keys);
// Entries of 4 bytes (CAT_CNTL_ENTRY with cf_gen in the spare byte), added to *count.
// 0; 8211 the area ends before the list does.
std::int16_t start_list_cat(void* task, const void* filter, void* list, std::uint32_t size,
                            std::uint16_t* count);
// As get_cat for the entry at *index of such a list; 8210 its slot has been stored anew
// since (the buffer is filled all the same).
std::int16_t get_next_cat(void* task, const void* list, const std::uint16_t* index, void* buffer,
                          std::uint16_t length);

// Place of the name among count entries of a caller's list; count when it is above all.
// The list is read bytewise: it need not be aligned.  Always 0.
std::int16_t find_cat_idx(void* task, const void* cf_name, const void* list, std::uint16_t count,
                          std::uint16_t* index);

// ---- Products (26) and filesets (27) of a change file.  All answer 8194 for an unknown
// change file and otherwise the code of the keyed function.
std::int16_t get_prd(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_prd(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_prd(void* task, std::uint16_t num_keys, const void* const* keys);
std::int16_t get_fst(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                     std::uint16_t length);
std::int16_t put_fst(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t length);
std::int16_t del_fst(void* task, std::uint16_t num_keys, const void* const* keys);
// filter: a db_product_key.  0; 8194; 8211 less than product_list_len bytes; 8217 a
// wildcard in the first token.
std::int16_t init_list_prd(void* task, void* filter, void* list_state, std::uint32_t size);
std::int16_t init_list_fst(void* task, void* filter, void* list_state, std::uint32_t size);
// In key order; 8199 at the end.
std::int16_t get_more_prd(void* task, void* list_state, void* buffer, std::uint16_t length);
std::int16_t get_more_fst(void* task, void* list_state, void* buffer, std::uint16_t length);
// All filesets, then all products of a change file.  0 or the code of db_delete.
std::int16_t del_prod_file(void* task, std::int16_t number);

}  // namespace zvrdb::catalog
