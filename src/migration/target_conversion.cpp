#include "migration/target_conversion.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "memory/shared_tables.h"
#include "memory/trace.h"
#include "migration/field_copy.h"
#include "migration/private_table.h"
#include "migration/target_record.h"
#include "migration/text_faults.h"
#include "migration/user_records.h"
#include "textrec/older_tables.h"
#include "textrec/parsed_files.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t most_listed = 65535;

// Work areas of the stage; given back with the object.
struct work_areas {
  explicit work_areas(void* owner) : task(owner) {}
  ~work_areas() {
    for (void* area : {static_cast<void*>(names), static_cast<void*>(record), static_cast<void*>(older)})
      if (area) co_free_int(task, area, "db_mig_trg");
  }
  work_areas(const work_areas&) = delete;
  work_areas& operator=(const work_areas&) = delete;
  unsigned char* take(std::uint32_t size, const char* tag) const {
    auto* area = static_cast<unsigned char*>(co_malloc(task, size, CO_MEM_PRIVATE, tag));
    if (!area) co_log2(task, 36355, 0, 0, 0, "%s", tag);
    return area;
  }
  void* task;
  unsigned char* names = nullptr;   // 64 bytes each
  unsigned char* record = nullptr;  // the longest of the three new records
  unsigned char* older = nullptr;
  std::uint32_t count = 0;
};

// The names in order; as many as MAX TARGETS at most.
std::int16_t list_names(const conversion& run, const char* directory, work_areas* work) {
  const std::uint32_t room =
      std::min(run.max_targets, most_listed) * static_cast<std::uint32_t>(memory::trg_name_len);
  work->names = work->take(room + memory::trg_name_len, "TRG_INIT");
  work->record = work->take(parameter_len, "TRG_BUFF");
  work->older = work->take(textrec::older_target_len, "TRG_BUFF");
  if (!work->names || !work->record || !work->older) return DBE_IO_ERROR;
  std::uint16_t listed = 0;
  const std::int16_t rc =
      textrec::start_list_parsed(run.task, directory, memory::trg_name_len, work->names, room, &listed);
  work->count = std::min<std::uint32_t>(listed, room / memory::trg_name_len);
  if (rc == DBE_LIST_TOO_SMALL)  // not a single one fits: the configuration is not that of this database
    tell_note(run, 0, "%s holds %lu targets, MAX TARGETS is %lu", directory, static_cast<unsigned long>(listed),
              static_cast<unsigned long>(run.max_targets));
  if (rc != DBE_OK) return rc;
  if (listed > work->count) {
    tell_note(run, 0, "%s holds %lu targets, MAX TARGETS is %lu: those behind it are not converted", directory,
              static_cast<unsigned long>(listed), static_cast<unsigned long>(work->count));
    tell_count(run, DB_MIG_LEFT_OUT, listed - work->count);
  }
  return rc;
}

void copy_name(const unsigned char* list, std::uint32_t i, char (&name)[memory::trg_name_len + 1]) {
  std::memcpy(name, list + i * memory::trg_name_len, memory::trg_name_len);
  name[memory::trg_name_len] = 0;
}

// All names stand in the table before the first record is stored: a record is stored
// under the number of its name.
std::int16_t enter_names(conversion& run, const work_areas& work) {
  const std::int16_t rc = make_table(run, work.count);
  if (rc != DBE_OK) return rc;
  for (std::uint32_t i = 0; i < work.count; ++i) {
    std::memcpy(run.tcb->trg_cntl[i].trg_name, work.names + i * memory::trg_name_len, memory::trg_name_len);
    add_to_indexes(run, i + 1);
  }
  memory::sort_names(run.task);  // the list's own order is that of this process
  return DBE_OK;
}

std::int16_t parse_result(const conversion& run, std::int16_t rc, const textrec::parsed_source& source,
                          const char* name, std::uint32_t record_len) {
  if (rc == DBE_OK) return rc;
  ZVR_TRACE(run.task, 5, 2, "reading %s of %s returned %hx", name, source.directory,
            static_cast<unsigned short>(rc));
  tell_unreadable(run, source, name, record_len, rc);
  return DBE_MIGRATION;
}

// One of the two records beside the target's own, which lie in directories of their own.
struct side_record {
  std::uint32_t db_id;
  const char* directory;
  const textrec::keyword_entry* keywords;
  std::uint32_t older_len;
  std::uint32_t length;
  std::uint32_t entry_limit;
  const char* kind;
};

struct stage_counts {
  std::uint32_t local = 0;
  std::uint32_t sides[2] = {};
};

std::int16_t convert_side(const conversion& run, const side_record& side, const directory_names& names,
                          const char* target, std::uint32_t number, new_file* file, unsigned char* record,
                          std::uint32_t* count) {
  constexpr std::uint32_t count_at = 64;
  const char* file_name = names.find(target);
  if (!file_name) return DBE_OK;
  const textrec::parsed_source source = {side.db_id, side.directory, 0, side.keywords};
  const void* keys[] = {file_name};
  std::memset(record, 0, side.length);
  std::int16_t rc = textrec::get_parsed(run.task, source, 1, keys, record, side.older_len);
  if (rc == DBE_NOT_FOUND) return DBE_OK;
  rc = parse_result(run, rc, source, file_name, side.older_len);
  if (rc != DBE_OK) return rc;
  std::memset(record, 0, memory::trg_name_len);
  std::memcpy(record, target, strnlen(target, memory::trg_name_len));
  store_u16(record + count_at,
            static_cast<std::uint16_t>(std::min<std::uint32_t>(load_u16(record + count_at), side.entry_limit)));
  ++*count;
  if (run.dry_run) return rc;
  target_key key = {side.db_id, number, 0};
  rc = file->put(side.db_id, &key, record, side.length);
  return ok_or(stored(rc), rc);
}

std::int16_t convert_target(conversion& run, const char* directory, const work_areas& work, std::uint32_t i,
                            new_file* targets, listed_users* users, stage_counts* counts) {
  const textrec::parsed_source source = {DB_TRG, directory, textrec::older_key_len, textrec::older_target_keywords};
  char name[memory::trg_name_len + 1];
  copy_name(work.names, i, name);
  const void* keys[] = {name};
  std::int16_t rc =
      textrec::get_parsed(run.task, source, 1, keys, work.older, textrec::older_target_len);
  rc = parse_result(run, rc, source, name, textrec::older_target_len);
  if (rc != DBE_OK) return rc;
  copy_trg_rec(work.record, work.older);
  if (work.record[target_at::type] & memory::trg_type_local) ++counts->local;
  if (!run.dry_run) {
    std::memcpy(&run.tcb->trg_cntl[i], work.record, sizeof(TRG_CNTL_ENTRY));
    target_key key = {DB_TRG, i + 1, 0};
    rc = targets->put(DB_TRG, &key, work.record, target_len);
    if (!stored(rc)) return rc;
  }
  return users->add(work.older, i + 1);
}

std::int16_t convert_each(conversion& run, const target_directories& from, const work_areas& work,
                          new_file* targets, listed_users* users, stage_counts* counts) {
  const side_record sides[] = {
      {DB_THW, from.hardware, textrec::older_hardware_keywords, textrec::older_hardware_len, hardware_len,
       textrec::older_hardware_count, "hardware records"},
      {DB_PRM, from.parameters, textrec::older_parameter_keywords, textrec::older_parameter_len, parameter_len,
       textrec::older_parameter_count, "parameter records"},
  };
  directory_names side_names[] = {directory_names(run.task), directory_names(run.task)};
  for (unsigned side = 0; side < 2; ++side)
    if (side_names[side].load(sides[side].directory) != DBE_OK) return DBE_IO_ERROR;
  char name[memory::trg_name_len + 1];
  for (std::uint32_t i = 0; i < work.count; ++i) {
    std::int16_t rc = convert_target(run, from.targets, work, i, targets, users, counts);
    copy_name(work.names, i, name);
    for (unsigned side = 0; side < 2 && rc == DBE_OK; ++side)
      rc = convert_side(run, sides[side], side_names[side], name, i + 1, targets, work.record,
                        &counts->sides[side]);
    if (rc != DBE_OK) return rc;
    tell_progress(run, i + 1, work.count);
  }
  tell_count(run, "targets", work.count);
  for (unsigned side = 0; side < 2; ++side) tell_count(run, sides[side].kind, counts->sides[side]);
  tell_count(run, "users passed over", users->passed_over());
  return DBE_OK;
}

}  // namespace

std::int16_t convert_targets(conversion& run, const target_directories& from) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  work_areas work(run.task);
  rc = list_names(run, from.targets, &work);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc = DBE_IO_ERROR;
  }
  stage_counts counts;
  new_file targets(run);
  new_file users(run);
  listed_users listed(run);
  if (run.dry_run) return rc = convert_each(run, from, work, &targets, &listed, &counts);
  if (targets.open(DB_TRG, building::anew) != DBE_OK || open_users(run, &users) != DBE_OK) return rc = DBE_IO_ERROR;
  rc = enter_names(run, work);
  if (rc == DBE_OK) rc = convert_each(run, from, work, &targets, &listed, &counts);
  if (rc == DBE_OK) rc = listed.put(&users);
  if (rc == DBE_OK) {
    memory::sort_dsu(run.task);
    rc = copy_srv_names(run, &targets);
  }
  if (rc == DBE_OK) raise_local_limit(run, counts.local);
  if (rc == DBE_OK) rc = targets.commit();
  if (rc == DBE_OK) rc = users.commit();
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  tell_count(run, "users", listed.users());
  rc = users.close();
  if (rc == DBE_OK) rc = end_users(run);
  return rc == DBE_OK ? rc = targets.close() : rc;
}

}  // namespace zvrdb::migration
