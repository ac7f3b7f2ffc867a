// DBR_CNTL: the shared control block, one an installation, in common area 3.  It
// survives the end of any process.  Written only by the owner of the semaphore that
// covers the field; holds no pointers.
#pragma once

#include <zvrdb/zvrdb.h>

#include <cstddef>
#include <cstdint>

namespace zvrdb {

inline constexpr unsigned file_count = 9;

// A row of a file's field list as kept in shared memory: no pointer, for each call
// makes its own engine field list from it.
struct field_row {
  char type;
  char key_type;
  char duplicates;
  char spare1;
  std::int16_t length;
  std::uint8_t key;
  std::uint8_t spare2;
  std::uint32_t unused;
};
static_assert(sizeof(field_row) == 12);

// Shared file control block, one a file.
struct iocb {
  std::uint32_t inited;       // 1 once set_datalist has filled the block
  char name[256];             // file name without directory
  std::uint32_t db_id;        // selects key layout
  std::uint16_t use_count;    // tasks of all processes that have the file open
  std::uint16_t max_rec_len;  // 16000: longest piece in one engine record, key included
  std::uint32_t buff_len;     // 16384
  field_row field_list[5];
  unsigned char record_buffer[16384];  // part of the layout; each task uses a buffer of its own
};

struct DBR_CNTL {
  std::uint32_t shm_generation;
  std::uint32_t alloc_generation;  // generation for which the lengths below were computed
  std::uint32_t num_trgs_actual;
  std::uint32_t num_ltrg_actual;
  std::uint32_t num_srv_actual;
  std::uint32_t num_cat_actual;
  std::uint32_t num_trgs_allowed;
  std::uint32_t num_ltrg_allowed;
  std::uint32_t num_cat_alloc;     // num_cat_inited + 500 when allocated
  std::uint32_t num_cat_inited;    // one above the highest catalog number, free slots included
  std::uint32_t trg_cntl_len;
  std::uint32_t name_index_len;
  std::uint32_t dsu_index_len;
  std::uint32_t cat_cntl_len;
  std::uint32_t dist_cat_len;
  std::uint16_t finitialized;
  std::uint16_t fwrite_in_prog;    // 1 from dbr_in to dbr_out of a write of class 1
  std::uint16_t fparsed_ok;
  char local_dsu[8];
  std::uint32_t gen[DB_TYPE_COUNT];
  std::uint32_t num_tg_actual;
  std::uint32_t num_dtg_actual;
  iocb files[file_count];
  std::uint32_t corr_seq;
  unsigned char corr_date[4];
  // Beyond the fields that the record types know:
  std::uint32_t renames;  // of targets, so far
};
static_assert(offsetof(DBR_CNTL, finitialized) == 60);
static_assert(offsetof(DBR_CNTL, local_dsu) == 66);
static_assert(offsetof(DBR_CNTL, gen) == 76);
static_assert(offsetof(DBR_CNTL, files) == 220);
static_assert(offsetof(DBR_CNTL, corr_seq) == 220 + file_count * sizeof(iocb));

}  // namespace zvrdb
