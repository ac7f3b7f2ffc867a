#include "migration/private_table.h"

#include <algorithm>
#include <cstring>

#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/new_files.h"
#include "recfile/recfile.h"

namespace zvrdb::migration {
namespace {

// What is read of a stored target: its key and, behind it, its name.
constexpr std::uint32_t name_offset = sizeof(target_key);
constexpr std::uint32_t image_room = 65535;

// Calls take(number, name) for each target of the file. 0, 8455 or what take answers.
template <class Take>
std::int16_t for_each_target(const conversion& run, const new_file& file, unsigned char* image, Take take) {
  target_key key = {DB_TRG, 0, 0};
  std::int16_t option = recfile::KEY_GE;
  for (;;) {
    std::int16_t rc = recfile::db_locate(run.task, file.handle(), &key, option);
    if (rc == DBE_NOT_FOUND || (rc == DBE_OK && key.db_id != DB_TRG)) return DBE_OK;
    std::uint32_t length = image_room;
    if (rc == DBE_OK) rc = recfile::db_read(run.task, file.handle(), image, &length);
    if (rc != DBE_OK) return rc;
    if (length >= name_offset + memory::trg_name_len)
      take(key.number, reinterpret_cast<const char*>(image) + name_offset);
    key.recnum = 0;
    ++key.number;
  }
}

std::int16_t load_names(conversion& run, const new_file& file, unsigned char* image) {
  std::uint32_t highest = 0;
  std::int16_t rc =
      for_each_target(run, file, image, [&](std::uint32_t number, const char*) { highest = std::max(highest, number); });
  if (rc == DBE_OK && highest > run.max_targets) {
    tell_note(run, 0, "target numbers above MAX TARGETS (%lu) are passed over",
              static_cast<unsigned long>(run.max_targets));
    highest = run.max_targets;
  }
  if (rc == DBE_OK) rc = make_table(run, highest);
  if (rc != DBE_OK) return rc;
  return for_each_target(run, file, image, [&](std::uint32_t number, const char* name) {
    if (number == 0 || number > highest) return;
    std::memcpy(run.tcb->trg_cntl[number - 1].trg_name, name, memory::trg_name_len);
    add_to_indexes(run, number);
  });
}

}  // namespace

std::int16_t make_table(conversion& run, std::uint32_t numbers) {
  constexpr std::uint32_t slot_len = sizeof(TRG_CNTL_ENTRY) + sizeof(NAME_INDEX_ENTRY) + sizeof(std::uint32_t);
  constexpr std::uint32_t head = memory::segment_header_len;
  free_table(run);
  const std::uint64_t length = head + std::uint64_t{numbers} * slot_len;
  char name[16];
  memory::segment_name(run.tcb->cntl->shm_generation, name);
  if (length < UINT32_MAX)
    run.table = static_cast<unsigned char*>(
        co_malloc(run.task, static_cast<std::uint32_t>(length), CO_MEM_PRIVATE, name));
  if (!run.table) {
    co_log2(run.task, 36355, 0, 0, 0, "%s", name);
    return DBE_IO_ERROR;
  }
  DBR_TCB* tcb = run.tcb;
  tcb->shm_base = run.table;
  tcb->shm_length = length;
  tcb->shm_generation = tcb->cntl->shm_generation;
  tcb->trg_cntl = reinterpret_cast<TRG_CNTL_ENTRY*>(run.table + head);
  tcb->name_index = reinterpret_cast<NAME_INDEX_ENTRY*>(tcb->trg_cntl + numbers);
  tcb->dsu_index = reinterpret_cast<std::uint32_t*>(tcb->name_index + numbers);
  // No change files: their tables begin and end where the targets' do.
  tcb->cat_cntl = reinterpret_cast<CAT_CNTL_ENTRY*>(run.table + length);
  tcb->dist_cat = reinterpret_cast<DIST_CAT_ENTRY*>(run.table + length);
  tcb->cntl->num_trgs_actual = 0;
  // Would be read in the place of the network name of a local target.
  std::memset(tcb->cntl->local_dsu, 0, sizeof tcb->cntl->local_dsu);
  run.names_known = true;
  return DBE_OK;
}

void add_to_indexes(const conversion& run, std::uint32_t number) {
  DBR_TCB* tcb = run.tcb;
  const std::uint32_t position = tcb->cntl->num_trgs_actual++;
  tcb->name_index[position].trg_index = number;
  tcb->dsu_index[position] = number;
}

void free_table(conversion& run) {
  if (!run.table) return;
  memory::forget_layout(run.tcb);
  co_free_int(run.task, run.table, "db_mig_das");
  run.table = nullptr;
  run.names_known = false;
}

std::int16_t need_names(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  if (run.names_known) return rc;
  auto* image = static_cast<unsigned char*>(co_malloc(run.task, image_room, CO_MEM_PRIVATE, "TRG_BUFF"));
  if (!image) {
    co_log2(run.task, 36355, 0, 0, 0, "%s", "TRG_BUFF");
    return rc = DBE_IO_ERROR;
  }
  new_file file(run);
  rc = file.open(DB_TRG);
  if (rc == DBE_OK) rc = load_names(run, file, image);
  if (rc == DBE_OK) {
    memory::sort_names(run.task);
  } else {
    free_table(run);
    rc = DBE_IO_ERROR;
  }
  co_free_int(run.task, image, "db_mig_das");
  return rc;
}

}  // namespace zvrdb::migration
