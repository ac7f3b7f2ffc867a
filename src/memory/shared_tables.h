// The tables in the shared segment, their layout, and the lookups on them.  Only
// shared memory is touched here, never a file.  Every index that comes out of shared
// memory is bounded before use: out of bounds reads as "not found".
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvrdb {

struct DBR_TCB;

// First 192 bytes of a target record: slot n - 1 of TRG_CNTL holds target number n.
struct TRG_CNTL_ENTRY {
  char trg_name[64];
  char description[60];
  char rgn[8];
  char ren[8];
  unsigned char carried140[4];
  std::uint8_t trg_type;
  std::uint8_t trg_os;
  std::uint8_t trg_mode;
  std::uint8_t mob_conn_stat;
  std::uint32_t cm_window_start;
  std::uint32_t cm_window_stop;
  std::uint32_t dist_window_start;
  std::uint32_t dist_window_stop;
  std::uint8_t rbapi_trace;
  std::uint8_t log_level;
  std::uint8_t held_status;
  std::uint8_t in_use;
  char carried168[16];
  unsigned char trg_status[4];
  std::uint32_t srv_num;
};
static_assert(sizeof(TRG_CNTL_ENTRY) == 192);
static_assert(offsetof(TRG_CNTL_ENTRY, trg_type) == 144);
static_assert(offsetof(TRG_CNTL_ENTRY, in_use) == 167);
static_assert(offsetof(TRG_CNTL_ENTRY, trg_status) == 184);
static_assert(offsetof(TRG_CNTL_ENTRY, srv_num) == 188);

struct NAME_INDEX_ENTRY {
  std::uint32_t trg_index;
  std::uint32_t unused;
};
static_assert(sizeof(NAME_INDEX_ENTRY) == 8);

struct CAT_CNTL_ENTRY {
  std::uint16_t dist_idx;
  std::uint8_t name_diff;
  std::uint8_t spare;
};
static_assert(sizeof(CAT_CNTL_ENTRY) == 4);

struct DIST_CAT_ENTRY {
  std::uint8_t free_flag;
  std::uint8_t cf_gen;
  std::uint16_t cf_number;
  unsigned char head[164];
};
static_assert(sizeof(DIST_CAT_ENTRY) == 168);

namespace memory {

inline constexpr std::uint32_t segment_header_len = 4;  // inited flag and 3 spare bytes
inline constexpr std::uint32_t generation_signal = 3;   // of the common services
inline constexpr std::uint32_t no_server = 0xFFFFFFFFu;
inline constexpr std::size_t trg_name_len = 64;
inline constexpr std::size_t dsu_text_len = 17;     // without its NUL
inline constexpr std::uint8_t trg_type_local = 32;  // bit of trg_type: a target of this server

// ---- layout of the segment
// Bytes that the lengths in DBR_CNTL ask for.
std::uint64_t segment_length(const DBR_TCB* tcb);
// Sets the six pointers for a segment of which `mapped` bytes are mapped at base, and
// shm_length to the length that the tables take of it.  False, and nothing laid out, when
// the lengths in DBR_CNTL ask for more or are none that tables have.
bool lay_out(DBR_TCB* tcb, unsigned char* base, std::uint64_t mapped);
void forget_layout(DBR_TCB* tcb);
// "MEM_%4.4lu"; out holds 16 bytes.
void segment_name(std::uint32_t generation, char* out);
// The tables in memory no longer match the files, or are full: they are built anew, by
// this task when its call ends and by every other at its next call.
void raise_generation(void* task);

// ---- targets
// Slot of a number, or null when the number is 0 or beyond the table.
TRG_CNTL_ENTRY* trg_slot(DBR_TCB* tcb, std::uint32_t number);
// Number of targets in use, never above the table's size whatever memory says.
std::uint32_t trg_count(const DBR_TCB* tcb);

// Lookups make no system call and allocate nothing.
//
// Position in the name index of the entry with this very name, or -1.  Two names that
// the collation calls equal but that differ in a byte are two names.  A name longer
// than 63 bytes is never found.
std::int64_t find_name(void* task, const char* name);
// Position of the entry with this very name; else of the first one that collates equal;
// else of the first one above; -1 when the name is above all entries.
std::int64_t locate_name(void* task, const char* name);
// The same two on the DSU index, by DSU text.
std::int64_t find_dsu(void* task, const char* text);
std::int64_t locate_dsu(void* task, const char* text);
// Position of this number among the entries equal to text in the DSU index, or -1.
std::int64_t find_dsu_of(void* task, const char* text, std::uint32_t number);

// Number of the target that find_name finds, or 0.  The task remembers where it has found
// a name and finds it there again without a search.
std::uint32_t number_of_name(void* task, const char* name);

// Sorts the used part of the name index.
void sort_names(void* task);
// Writes local_dsu into rgn of every local target in use, then sorts the used part of
// the DSU index.
void sort_dsu(void* task);
// "%8.8s.%8.8s"; out holds 18 bytes.
void dsu_text(char* out, const char* rgn, const char* ren);
// Text of a slot, with local_dsu in place of rgn when it is local and local_dsu is set.
void dsu_text_of(DBR_TCB* tcb, const TRG_CNTL_ENTRY* entry, char* out);

// 0; 8200 not found; 8214 the number is 65535.
std::int16_t get_trg_index(void* task, const char* name, std::uint32_t* number);
// Writes 64 bytes.  0; 8200 number 0 or above num_trgs_allowed.  A free slot gives the
// last name held there, or "".
std::int16_t get_trg_name(void* task, char* name, std::uint32_t number);

// ---- change files
// Names (cf_name, 76 bytes) are ordered by their text area and, where that is equal, by
// their token table so that the name with fewer tokens comes first.  Lookups make no
// system call and allocate nothing.
int compare_cf_names(const void* a, const void* b);
// Position in CAT_CNTL of this very name, else of the first with an equal text area; -1.
std::int64_t find_cat(void* task, const void* cf_name);
// Slot at that position, or null; position may be null.
DIST_CAT_ENTRY* cat_slot_of(void* task, const void* cf_name, std::int64_t* position = nullptr);
// Position of the first name not below this one, token table included; -1 when it is
// above all.
std::int64_t locate_cat(void* task, const void* cf_name);
// As find_cat among count entries of CAT_CNTL's form in a caller's area, which need not be
// aligned; for a name that is not there the place of the first one above, or count.
std::uint32_t locate_in_cat_list(void* task, const void* cf_name, const void* list, std::uint32_t count);
// Sorts the used part of CAT_CNTL.  name_diff is not computed anew.
void sort_cat(void* task);
// 0; 8194.
std::int16_t get_cat_num(void* task, std::uint16_t* number, const void* cf_name);
// Writes 76 bytes.  0; 8194.
std::int16_t get_cat_name(void* task, void* cf_name, std::uint16_t number);

// Whether the in-memory tables of targets hold together: every number 1 to
// num_trgs_allowed exactly once in each index, the used parts sorted and marked as in
// use, the free parts equal.  (The counts of local targets and servers
// follow rules of their own and are not judged.)  False with a reason (at least 160 bytes) when not.
bool tables_sound(void* task, char* reason, std::size_t reason_size);

// Whether the in-memory tables of change files hold together: each slot in use stands
// exactly once in the index, each free one not at all, the index is in order, name_diff
// tells where neighbours differ, counts and numbers fit.  False with a reason (at least
// 160 bytes) when not.
bool catalog_sound(void* task, char* reason, std::size_t reason_size);

}  // namespace memory
}  // namespace zvrdb
