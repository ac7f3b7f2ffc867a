#include "frame/shared_memory.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "catalog/catalog.h"
#include "cmstatus/cm_status.h"
#include "memory/name_hints.h"
#include "memory/trace.h"
#include "recfile/file_table.h"
#include "requests/correlators.h"
#include "targets/targets.h"
#include "textrec/parsed_files.h"
#include "users/groups.h"
#include "users/users.h"

namespace zvrdb::frame {
namespace {

constexpr unsigned most_generations_tried = 16;
constexpr unsigned attach_attempts = 9;
constexpr std::uint32_t attach_wait_ms = 5000;
constexpr std::uint32_t kind_offset = 85;  // of the base configuration
constexpr unsigned char kind_without_local_server = 2;
constexpr std::uint16_t local_target_len = 148;  // bytes read of the local target's record
constexpr std::size_t segment_name_len = 16;

// Files whose records are also held in memory.
constexpr std::uint32_t files_in_memory[] = {DB_TRG, DB_CAT};
// Files whose records are counted.
constexpr std::uint32_t files_counted[] = {DB_TG, DB_DTG};

// Of DBR_TCB's bits for files.
std::uint32_t file_bit(std::uint32_t db_id) {
  const int index = recfile::file_index(db_id);
  return index < 0 ? 0 : 1u << index;
}

using building_step = std::int16_t (*)(void* task);

// Each leaves what it computes alone while the lengths of the current generation
// stand (alloc_generation is shm_generation and finitialized is set).
constexpr building_step sizing_steps[] = {targets::alloc_trg, catalog::alloc_cat, users::count_tg, users::count_dtg};
// Each loads its tables from its file into the zeroed segment; the last one makes the
// tables that are loaded when they are asked for be loaded anew.
constexpr building_step loading_steps[] = {targets::init_trg, catalog::init_cat, cmstatus::init_cms,
                                          requests::init_corr, users::init_access_keys};

template <std::size_t count>
std::int16_t run_steps(void* task, const building_step (&steps)[count]) {
  for (const building_step step : steps) {
    const std::int16_t rc = step(task);
    if (rc != DBE_OK) return rc;
  }
  return DBE_OK;
}

// The inited flag is the first byte of the segment; it is set after all else.
bool is_finished(const unsigned char* base) {
  return std::atomic_ref(*const_cast<unsigned char*>(base)).load(std::memory_order_acquire) == 1;
}
void set_finished(unsigned char* base) {
  std::atomic_ref(*base).store(1, std::memory_order_release);
}

bool is_mapped(const DBR_TCB* tcb) {
  return tcb->dist_cat && tcb->cat_cntl && tcb->trg_cntl && tcb->name_index && tcb->dsu_index &&
         tcb->shm_base;
}

std::int16_t cannot_allocate(void* task) {
  co_log2(task, 36355, 0, 0, 0, "%s", "SHR MEM");
  co_log2(task, 36360, 0, 0, 0, "%s", "");
  return DBE_INIT_FAILED;
}

// Whether the length fields were computed for the current generation.  There is always
// room for change files, so a block that was never filled shows by that length.
bool lengths_stand(const DBR_CNTL* cntl) {
  return cntl->alloc_generation == cntl->shm_generation && cntl->dist_cat_len != 0;
}

// What stands under the name of the current generation.
struct found_segment {
  char name[segment_name_len];
  unsigned char* base;  // null when there is none
  std::uint64_t length;
  bool finished;
};

found_segment find_current(void* task, const DBR_CNTL* cntl) {
  found_segment found = {};
  memory::segment_name(cntl->shm_generation, found.name);
  found.length = co_shmlen(task, found.name);
  if (found.length < memory::segment_header_len) return found;
  found.base = static_cast<unsigned char*>(co_shmfind(task, found.name));
  found.finished = found.base && is_finished(found.base);
  return found;
}

// A segment that cannot belong to this generation: too short for the lengths that
// count, finished under other lengths, or left unfinished by a builder that had other
// lengths.
bool does_not_fit(const DBR_CNTL* cntl, const found_segment& found, std::uint64_t wanted) {
  if (found.length == 0) return false;
  if (!found.base) return true;
  if (found.finished) return !lengths_stand(cntl) || found.length < wanted;
  return found.length != wanted;
}

// Sizes, if need be, and maps the segment of the current generation.
std::int16_t map_current(void* task, DBR_TCB* tcb) {
  DBR_CNTL* cntl = tcb->cntl;
  for (unsigned tried = 0; tried < most_generations_tried; ++tried) {
    const found_segment found = find_current(task, cntl);
    const bool sized = found.finished && lengths_stand(cntl);
    if (!found.finished || sized) {
      cntl->finitialized = sized ? 1 : 0;
      const std::int16_t rc = run_steps(task, sizing_steps);
      if (rc != DBE_OK) {
        if (found.base) co_shm_letgo(task, found.base, found.name);
        return rc;
      }
      cntl->alloc_generation = cntl->shm_generation;
    }
    const std::uint64_t wanted = memory::segment_length(tcb);
    if (wanted > std::numeric_limits<std::uint32_t>::max()) return cannot_allocate(task);
    if (does_not_fit(cntl, found, wanted)) {
      ZVR_TRACE(task, 4, 2, "Segment %s does not fit, going on to the next generation", found.name);
      if (found.base) co_shm_letgo(task, found.base, nullptr);
      memory::raise_generation(task);
      continue;
    }
    auto* base = static_cast<unsigned char*>(
        co_malloc(task, static_cast<std::uint32_t>(wanted), CO_MEM_SHARED, found.name));
    if (!base) return cannot_allocate(task);
    // What a builder that died left in it must not pass for entries in use.
    if (found.base && !found.finished) std::memset(base, 0, wanted);
    if (!memory::lay_out(tcb, base, wanted)) {
      co_shm_letgo(task, base, found.name);
      return cannot_allocate(task);
    }
    tcb->shm_generation = cntl->shm_generation;
    return DBE_OK;
  }
  return cannot_allocate(task);
}

// The local target's ren is the rgn of all local targets.
std::int16_t set_local_dsu(void* task, DBR_TCB* tcb) {
  const auto* config = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  if (config && config[kind_offset] == kind_without_local_server) {
    tcb->cntl->local_dsu[0] = 0;
    return DBE_OK;
  }
  const void* keys[] = {co_croca(task, CO_AREA_LOCAL_TARGET)};
  unsigned char record[local_target_len] = {};
  const std::int16_t rc = keys[0] ? targets::get_trg(task, 1, keys, record, local_target_len)
                                  : static_cast<std::int16_t>(DBE_NOT_FOUND);
  if (rc != DBE_OK) {
    co_log2(task, 36387, 0, 0, 0, "%s", "");
    return DBE_INIT_FAILED;
  }
  std::memcpy(tcb->cntl->local_dsu, record + offsetof(TRG_CNTL_ENTRY, ren), sizeof tcb->cntl->local_dsu);
  memory::sort_dsu(task);
  return DBE_OK;
}

std::int16_t load_tables(void* task, DBR_TCB* tcb) {
  const std::int16_t rc = run_steps(task, loading_steps);
  if (rc != DBE_OK) return rc;
  set_finished(tcb->shm_base);
  tcb->cntl->finitialized = 1;  // also where no call has been entered: it is in use from here on
  co_log2(task, 36359, 0, 0, 0, "%s", "");
  return DBE_OK;
}

// Older segments that nobody has: the last one who had them may have been killed.
void remove_older_segments(void* task, const DBR_TCB* tcb) {
  char name[segment_name_len];
  memory::segment_name(tcb->shm_generation, name);
  co_shm_sweep(task, name);
}

// One attempt of a class 0 call, which owns no lock on the shared tables: the lengths
// are read between two looks at the generation, and the segment is laid out only when
// nothing moved meanwhile.
bool try_attach(void* task, DBR_TCB* tcb) {
  const DBR_CNTL* cntl = tcb->cntl;
  const std::atomic_ref<const std::uint32_t> generation(cntl->shm_generation);
  const std::uint32_t current = generation.load(std::memory_order_acquire);
  if (is_mapped(tcb) && tcb->shm_generation == current) return is_finished(tcb->shm_base);
  drop_memory(task, tcb);
  const found_segment found = find_current(task, cntl);
  if (!found.base) return false;
  if (found.finished && lengths_stand(cntl) && memory::lay_out(tcb, found.base, found.length)) {
    tcb->shm_generation = current;
    if (generation.load(std::memory_order_acquire) == current && lengths_stand(cntl)) return true;
    memory::forget_layout(tcb);
  }
  co_shm_letgo(task, found.base, found.name);
  return false;
}

}  // namespace

bool count_undone(void* task, DBR_TCB* tcb) {
  const std::uint32_t undone = std::exchange(tcb->undone_ids, 0);
  // Before the first generation is in use there is nothing that could show it.
  if (undone == 0 || tcb->cntl->finitialized != 1) return false;
  const auto was_undone = [&](std::uint32_t db_id) { return (undone & file_bit(db_id)) != 0; };
  for (const std::uint32_t db_id : files_counted)
    if (was_undone(db_id) && users::recount_groups(task, db_id) != DBE_OK) tcb->undone_ids |= file_bit(db_id);
  return std::any_of(std::begin(files_in_memory), std::end(files_in_memory), was_undone);
}

void drop_memory(void* task, DBR_TCB* tcb) {
  if (tcb->shm_base) {
    char name[segment_name_len];
    memory::segment_name(tcb->cntl->shm_generation, name);
    co_shm_letgo(task, tcb->shm_base, name);
  }
  memory::forget_layout(tcb);
}

std::int16_t enter_memory(void* task, DBR_TCB* tcb) {
  DBR_CNTL* cntl = tcb->cntl;
  std::uint32_t value = 0;
  co_get_signal(task, memory::generation_signal, &value);
  if (tcb->shm_generation != cntl->shm_generation) drop_memory(task, tcb);
  const bool created = !is_mapped(tcb);
  std::int16_t rc = DBE_OK;
  if (created) {
    // Text records of this class have no flag of their own: they are put right now.
    const std::int16_t refreshed = textrec::refresh_parsed(task);
    ZVR_TRACE(task, 1, 2, "refresh_parsed returned %hx", static_cast<unsigned short>(refreshed));
    rc = map_current(task, tcb);
    if (rc != DBE_OK) return rc;
    memory::make_room_for_hints(task, tcb);
  }
  tcb->dist_cat_entry_len = sizeof(DIST_CAT_ENTRY);
  if (!is_finished(tcb->shm_base)) rc = load_tables(task, tcb);
  if (rc == DBE_OK && created) {
    remove_older_segments(task, tcb);
    rc = set_local_dsu(task, tcb);
  }
  // A task that stays alive must meet the same check at its next call.
  if (rc != DBE_OK) drop_memory(task, tcb);
  return rc;
}

std::int16_t attach_memory(void* task, DBR_TCB* tcb) {
  for (unsigned attempt = 0; attempt < attach_attempts; ++attempt) {
    if (try_attach(task, tcb)) return DBE_OK;
    co_delay(task, attach_wait_ms);
  }
  // The last delay is part of the wait: what counts is the flag as it was last seen.
  ZVR_TRACE(task, 5, 2, "%s", "Records held in memory not initialized: stop initialization");
  co_log2(task, 36360, 0, 0, 0, "%s", "");
  return DBE_INIT_FAILED;
}

}  // namespace zvrdb::frame
