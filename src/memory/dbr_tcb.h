// DBR_TCB: what one task keeps of the database, private to it, reached through the
// task slot dbr_tcb.
#pragma once

#include <cstdint>

#include "engine/engine.h"
#include "memory/dbr_cntl.h"
#include "memory/shared_tables.h"

namespace zvrdb {

namespace memory {
struct name_hints;
}

inline constexpr std::uint32_t no_trans_id = 0xFFFFFFFFu;

// One open file of a task.  A file handle is the address of such an entry.
struct file_entry {
  engine::PSP* psp;          // engine::psp_size bytes
  zvrdb::iocb* iocb;         // null when the entry is not open
  std::uint32_t use_count;   // how often this task has opened the file
  unsigned char* record_buffer;  // iocb->buff_len bytes for the engine
};

struct DBR_TCB {
  DIST_CAT_ENTRY* dist_cat;
  CAT_CNTL_ENTRY* cat_cntl;
  TRG_CNTL_ENTRY* trg_cntl;
  std::uint32_t* dsu_index;
  NAME_INDEX_ENTRY* name_index;
  unsigned char* shm_base;
  std::uint32_t sema4[2];
  std::uint32_t trans_in_prog[2];
  file_entry* cat_file;
  DBR_CNTL* cntl;
  std::uint16_t sem_index;  // class of the current call
  std::uint32_t dist_cat_entry_len;
  std::uint16_t occurrence_counters[25];
  std::uint8_t trg_stat_read;
  std::uint8_t mig_marker;
  file_entry* req_file;
  file_entry* usr_file;
  file_entry* apr_file;
  file_entry* cms_file;
  file_entry* tg_file;
  file_entry* trg_file;
  file_entry* corr_file;
  file_entry* dtg_file;
  file_entry files[file_count];
  std::uint16_t trans_active[DB_TYPE_COUNT];
  std::uint32_t start_trans_id;
  // Beyond the fields that the record types know:
  std::uint32_t shm_generation;  // generation that the pointers above belong to
  std::uint64_t shm_length;      // bytes mapped at shm_base
  std::uint32_t undone_ids;      // bit a file index: changes of earlier calls were undone there, a dead task's too
  unsigned char* scratch;        // work area for one record conversion, made on first use
  std::uint32_t scratch_len;
  unsigned char* image;          // work area for one record of CM status, made on first use
  std::uint32_t image_len;
  std::uint32_t image_taken;     // it is in use: another one at the same time is made for its use
  unsigned char* piece_area;     // work area of the record operations, made on first use
  std::uint32_t changed_files;   // bit a file index: records changed in its open transaction
  std::uint32_t changed_before;  // the same, as it stood when the last call ended
  std::uint32_t write_marked;    // this call has set fwrite_in_prog
  memory::name_hints* hints;     // where names of targets were found; may be null
  std::uint32_t journal_choice;  // of the record files: 0 not asked yet, 1 on, 2 off
};

}  // namespace zvrdb
