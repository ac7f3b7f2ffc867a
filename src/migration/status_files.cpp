#include "migration/status_files.h"

#include <algorithm>
#include <cstring>

#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/field_copy.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t beyond_catalog = 36391;
constexpr std::uint16_t free_index = 65535;
constexpr std::uint32_t status_at = 2;
constexpr std::uint32_t by_cat = 2;
constexpr std::uint32_t key_len = sizeof(target_key);  // the keys of both files have this form

std::uint32_t gathered_pairs = 4u << 20;  // 16 MiB

std::int16_t take_chunk(const conversion& run, const unsigned char* chunk, std::uint32_t length, const char* target,
                        entry_taker take, void* context) {
  for (std::uint32_t at = 0; at + status_entry_len <= length; at += status_entry_len) {
    const std::uint16_t cat_index = load_u16(chunk + at);
    if (cat_index == free_index) continue;
    if (cat_index > run.catalog_numbers) {
      co_log2(run.task, beyond_catalog, 0, 0, 0, "%s", "");
      tell_note(run, beyond_catalog, "CM status of %s: change file number %u, the catalog has %lu", target,
                static_cast<unsigned>(cat_index), static_cast<unsigned long>(run.catalog_numbers));
      return DBE_IO_ERROR;
    }
    const std::int16_t rc = take(context, cat_index, chunk[at + status_at]);
    if (rc != DBE_OK) return rc;
  }
  return DBE_OK;
}

// The pairs of the change files from `first` to before `end`, each one's in the order in
// which they were put.
struct gathering {
  std::uint32_t first;
  std::uint32_t end;
  std::uint32_t* starts;  // of each change file in `pairs`
  std::uint32_t* used;    // how many it has so far
  std::uint32_t* pairs;   // target number times 256, or status
  std::uint32_t number;   // of the target whose file is being read
};

// As a pair is stored: in the place of an earlier one of the same target, else behind all.
std::int16_t gather(void* context, std::uint16_t cat_index, std::uint8_t status) {
  auto* g = static_cast<gathering*>(context);
  if (cat_index < g->first || cat_index >= g->end) return DBE_OK;
  const std::uint32_t i = cat_index - g->first;
  std::uint32_t* of_file = g->pairs + g->starts[i];
  const std::uint32_t pair = g->number << 8 | status;
  // The targets come one after the other, so an earlier one can only be the last.
  if (g->used[i] > 0 && of_file[g->used[i] - 1] >> 8 == g->number)
    of_file[g->used[i] - 1] = pair;
  else if (g->used[i] < g->starts[i + 1] - g->starts[i])
    of_file[g->used[i]++] = pair;
  else
    return DBE_IO_ERROR;  // the file has grown since it was counted
  return DBE_OK;
}

void target_at_position(const conversion& run, std::uint32_t position, std::uint32_t* number,
                        char (&name)[memory::trg_name_len + 1]) {
  *number = run.tcb->name_index[position].trg_index;
  std::memcpy(name, run.tcb->trg_cntl[*number - 1].trg_name, memory::trg_name_len);
  name[memory::trg_name_len] = 0;
}

std::int16_t gather_all(const conversion& run, const status_files& files, gathering* g) {
  char name[memory::trg_name_len + 1];
  for (std::uint32_t i = 0; i < memory::trg_count(run.tcb); ++i) {
    target_at_position(run, i, &g->number, name);
    std::uint32_t last = 0;
    const std::int16_t rc = read_status(run, files, name, gather, g, &last);
    if (rc != DBE_OK) return rc;
  }
  return DBE_OK;
}

std::int16_t write_gathered(const conversion& run, new_file* file, const gathering& g, unsigned char* image) {
  for (std::uint32_t i = 0; i < g.end - g.first; ++i) {
    if (g.used[i] == 0) continue;
    const std::uint32_t length = g.used[i] * static_cast<std::uint32_t>(sizeof(std::uint32_t));
    target_key key = {by_cat, g.first + i, 0};
    std::memcpy(image + key_len, g.pairs + g.starts[i], length);
    if (file->write(&key, image, key_len + length) != DBE_OK) return DBE_IO_ERROR;
  }
  tell_progress(run, g.end, std::max(g.end, run.catalog_numbers + 1));
  return DBE_OK;
}

// Change files from `first` on whose pairs fit; at least one.
std::uint32_t end_of_portion(const std::uint32_t* pairs_of, std::uint32_t first, std::uint32_t numbers,
                             std::uint32_t* pairs, std::uint32_t* longest) {
  *pairs = *longest = 0;
  std::uint32_t end = first;
  while (end < numbers && (end == first || *pairs + pairs_of[end] <= gathered_pairs)) {
    *pairs += pairs_of[end];
    *longest = std::max(*longest, pairs_of[end]);
    ++end;
  }
  return end;
}

std::int16_t put_portion(const conversion& run, const status_files& files, new_file* file,
                         const std::uint32_t* pairs_of, gathering* g, std::uint32_t pairs, std::uint32_t longest) {
  const std::uint32_t numbers = g->end - g->first;
  const std::uint64_t words = std::uint64_t{numbers} * 2 + 1 + pairs;
  const std::uint64_t size = words * sizeof(std::uint32_t) + key_len + std::uint64_t{longest} * sizeof(std::uint32_t);
  auto* area = size > UINT32_MAX ? nullptr
                                 : static_cast<std::uint32_t*>(co_malloc(
                                       run.task, static_cast<std::uint32_t>(size), CO_MEM_PRIVATE, "MIG_CMS"));
  if (!area) {
    co_log2(run.task, 36355, 0, 0, 0, "%s", "MIG_CMS");
    return DBE_IO_ERROR;
  }
  g->starts = area;
  g->used = area + numbers + 1;
  g->pairs = g->used + numbers;
  for (std::uint32_t i = 0; i < numbers; ++i) g->starts[i + 1] = g->starts[i] + pairs_of[g->first + i];
  std::int16_t rc = gather_all(run, files, g);
  if (rc == DBE_OK) rc = write_gathered(run, file, *g, reinterpret_cast<unsigned char*>(g->pairs + pairs));
  co_free_int(run.task, area, "db_mig_cms");
  return rc;
}

}  // namespace

void set_gathered_pairs(std::uint32_t pairs) {
  gathered_pairs = pairs;
}

std::int16_t read_status(const conversion& run, const status_files& files, const char* target, entry_taker take,
                         void* context, std::uint32_t* last) {
  const char* name = files.names->find(target);
  file_path path;
  std::uint32_t older = 0;
  if (!name || !path_in(run.task, files.directory, name, path) ||
      co_open(run.task, path, CO_OPEN_OLD, &older) != CO_OK) {
    ZVR_TRACE(run.task, 5, 2, "no CM status file of target %s", target);
    tell_note(run, 0, "%s has no file for target %s", files.directory, target);
    return DBE_IO_ERROR;
  }
  unsigned char* chunk = files.image + key_len;
  std::int16_t rc = DBE_OK;
  for (*last = status_chunk; rc == DBE_OK && *last == status_chunk;) {
    rc = ok_or(co_read(run.task, older, chunk, last) == CO_OK, DBE_IO_ERROR);
    if (rc == DBE_OK) rc = take_chunk(run, chunk, *last, target, take, context);
  }
  co_close(run.task, older);
  return rc;
}

std::int16_t put_change_file_sides(const conversion& run, const status_files& files, new_file* file,
                                   const std::uint32_t* pairs_of, std::uint32_t numbers) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  for (std::uint32_t first = 0; first < numbers && rc == DBE_OK;) {
    std::uint32_t pairs = 0;
    std::uint32_t longest = 0;
    gathering g = {};
    g.first = first;
    g.end = end_of_portion(pairs_of, first, numbers, &pairs, &longest);
    if (pairs > 0) rc = put_portion(run, files, file, pairs_of, &g, pairs, longest);
    first = g.end;
  }
  return rc;
}

}  // namespace zvrdb::migration
