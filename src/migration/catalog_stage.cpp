// The catalog: one file of records, converted under their running numbers.
#include <cstring>

#include "memory/trace.h"
#include "migration/catalog_record.h"
#include "migration/conversion.h"
#include "migration/new_files.h"
#include "migration/older_files.h"
#include "recfile/recfile.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t block_len = 4096;
constexpr std::uint32_t most_numbers = 65535;  // 65535 itself marks what is free
constexpr std::uint32_t cannot_convert = 36388;

struct catalog_counts {
  std::uint32_t numbers = 0;
  std::uint32_t used = 0;
  std::uint32_t corrupt = 0;
};

// An empty path: "db" itself could not be read.
std::int16_t fail(const conversion& run, const char* path) {
  if (*path == 0) path = "catalog";
  co_log2(run.task, cannot_convert, 0, 0, 0, "%s", path);
  tell_note(run, cannot_convert, "%s cannot be worked on", path);
  return DBE_IO_ERROR;
}

// What is to be done, and under which names the file is and will be.
struct catalog_plan {
  enum { nothing, rename_first, resume } action = nothing;
  older_entry current;  // "catalog"
  file_path old_path = {};   // "catalog.old"
  file_path done_path = {};  // "catalog.old.done"
};

// A catalog that is a record file has been converted, unless its older form still has its
// working name: then the conversion was cut short, and the record file is the begin of it.
std::int16_t make_plan(const conversion& run, catalog_plan* plan) {
  older_entry working;
  std::int16_t rc = find_entry(run.task, "catalog", &plan->current);
  if (rc == DBE_OK) rc = find_entry(run.task, "catalog.old", &working);
  if (rc != DBE_OK) return rc;
  if (!database_path(run.task, "catalog.old", plan->old_path) ||
      !database_path(run.task, "catalog.old.done", plan->done_path))
    return DBE_IO_ERROR;
  const file_begin begin = plan->current.exists ? begin_of(run.task, plan->current.path) : file_begin::nothing;
  if (!working.exists) {
    plan->action = begin == file_begin::record_file ? catalog_plan::nothing : catalog_plan::rename_first;
    return ok_or(plan->current.exists, DBE_IO_ERROR);
  }
  std::memcpy(plan->old_path, working.path, sizeof plan->old_path);
  plan->action = catalog_plan::resume;
  // What stands in its place must be what that run had made of the new one so far.
  return ok_or(begin != file_begin::other, DBE_IO_ERROR);
}

std::int16_t convert_record(const conversion& run, const unsigned char* older, new_file* file,
                            unsigned char* record, catalog_counts* counts) {
  if (counts->numbers == most_numbers) return DBE_IO_ERROR;
  const catalog_entry entry = judge_cat_rec(older);
  if (entry == catalog_entry::used) {
    copy_cat_rec(record, older);
    ++counts->used;
  } else {
    free_cat_rec(record);
  }
  if (entry == catalog_entry::corrupt) {
    ++counts->corrupt;
    ZVR_TRACE(run.task, 4, 2, "Entry corrupted found, number is %lu", static_cast<unsigned long>(counts->numbers));
    tell_note(run, 0, "the catalog entry %lu is corrupt and becomes a free one",
              static_cast<unsigned long>(counts->numbers));
  }
  catalog_key key = {DB_CAT, static_cast<std::uint16_t>(counts->numbers), 0, 0, 0, 0};
  ++counts->numbers;
  if (run.dry_run) return DBE_OK;
  return ok_or(stored(file->put(DB_CAT, &key, record, catalog_len)), DBE_IO_ERROR);
}

std::int16_t convert_blocks(const conversion& run, std::uint32_t older, std::uint32_t total, new_file* file,
                            unsigned char* work, catalog_counts* counts) {
  unsigned char record[catalog_len];
  for (std::uint32_t length = block_len; length == block_len;) {
    if (co_read(run.task, older, work, &length) != CO_OK) return DBE_IO_ERROR;
    for (std::uint32_t i = 0; i < length / older_catalog_len; ++i) {
      const std::int16_t rc = convert_record(run, work + i * older_catalog_len, file, record, counts);
      if (rc != DBE_OK) return rc;
    }
    tell_progress(run, counts->numbers, total);
  }
  return DBE_OK;
}

std::int16_t convert_file(conversion& run, const char* path, new_file* file, catalog_counts* counts) {
  std::uint32_t older = 0;
  if (co_open(run.task, path, CO_OPEN_OLD, &older) != CO_OK) return DBE_IO_ERROR;
  const std::uint32_t total = file_size(run.task, path) / older_catalog_len;
  auto* work = static_cast<unsigned char*>(co_malloc(run.task, block_len, CO_MEM_PRIVATE, "MIG_CAT"));
  std::int16_t rc = DBE_IO_ERROR;
  if (work) {
    rc = convert_blocks(run, older, total, file, work, counts);
    co_free_int(run.task, work, "db_mig_cat");
  } else {
    co_log2(run.task, 36355, 0, 0, 0, "%s", "MIG_CAT");
  }
  co_close(run.task, older);
  return rc;
}

// One above the highest number of a catalog that stands converted.
std::int16_t count_converted(conversion& run) {
  new_file file(run);
  std::int16_t rc = file.open(DB_CAT);
  if (rc != DBE_OK) return rc;
  catalog_key key = {DB_CAT, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0};
  rc = recfile::db_locate(run.task, file.handle(), &key, recfile::KEY_LE);
  if (rc != DBE_OK && rc != DBE_NOT_FOUND) return rc;
  const bool found = rc == DBE_OK && key.db_id == DB_CAT;
  run.catalog_numbers = found ? key.number + 1u : 0;
  return file.close();
}

std::int16_t convert(conversion& run, const catalog_plan& plan) {
  file_path path;
  if (!database_path(run.task, new_file_name(DB_CAT), path)) return fail(run, plan.old_path);
  if (!run.dry_run) {
    if (plan.action == catalog_plan::rename_first &&
        rename_path(run, plan.current.path, plan.old_path) != DBE_OK)
      return fail(run, plan.current.path);
    if (plan.action == catalog_plan::resume && plan.current.exists &&
        remove_new_file(run, DB_CAT, plan.current.path) != DBE_OK)
      return fail(run, plan.current.path);
  }
  const bool still_there = run.dry_run && plan.action == catalog_plan::rename_first;
  const char* older = still_there ? plan.current.path : plan.old_path;
  new_file file(run);
  if (!run.dry_run && file.open(DB_CAT, building::anew) != DBE_OK) return fail(run, path);
  catalog_counts counts;
  std::int16_t rc = convert_file(run, older, &file, &counts);
  if (rc == DBE_OK && !run.dry_run) rc = file.commit();
  if (rc != DBE_OK) return fail(run, older);
  run.catalog_numbers = counts.numbers;
  tell_count(run, "change files", counts.used);
  tell_count(run, "free entries", counts.numbers - counts.used - counts.corrupt);
  tell_count(run, "corrupt entries freed", counts.corrupt);
  if (run.dry_run) return rc;
  if (file.close() != DBE_OK) return fail(run, path);
  if (rename_path(run, plan.old_path, plan.done_path) != DBE_OK) return fail(run, plan.old_path);
  return rc;
}

}  // namespace

std::int16_t db_mig_cat(conversion& run) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  catalog_plan plan;
  rc = make_plan(run, &plan);
  if (rc != DBE_OK) {
    bracket.quitting();
    tell_begin(run, plan.current.exists ? "an older catalog beside one that was being converted" : "no catalog", true);
    return rc = fail(run, plan.current.exists ? plan.current.path : plan.old_path);
  }
  if (plan.action == catalog_plan::nothing) {
    tell_begin(run, "converted", false);
    rc = count_converted(run);
  } else {
    tell_begin(run, plan.action == catalog_plan::resume ? "conversion was cut short, begins anew" : "older layout", true);
    rc = convert(run, plan);
  }
  if (!run.dry_run) run.tcb->cntl->num_cat_inited = run.catalog_numbers;
  return rc;
}

}  // namespace zvrdb::migration
