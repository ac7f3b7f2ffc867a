// One run of the conversion: what its stages share.
//
// The renames are the commit points. The name of an older file or directory tells how far
// the conversion of its content has gone, and each stage has a table of what it does with
// what it finds:
//
//   catalog        db/catalog -> catalog.old -> catalog.old.done
//   targets        db/target_config -> target_tmp -> target_del; target_hw and parms go at
//                  the end
//   CM status      db/cm_status -> cm_status.old -> cm_status.old.done
//   target groups  db/target_group -> target_group.old -> target_group.old.done
//
// What has its last name is converted for good, on the disk, and is only to be removed
// (the catalog stays). What has a working name was being converted: the new file of that
// run is thrown away and made again.
#pragma once

#include <zvrdb/zvrdb.h>

#include <cstdint>

#include "memory/dbr_tcb.h"

namespace zvrdb::migration {

struct conversion {
  void* task;
  DBR_TCB* tcb;
  bool dry_run;
  db_mig_watcher watcher;
  void* context;
  std::uint32_t stage;
  std::uint32_t max_targets;  // of the base configuration
  // Numbers of change files in the older catalog, free ones too. In a dry run nothing but
  // this tells it.
  std::uint32_t catalog_numbers;
  // The names and numbers of this run's targets, private to it (private_table.h).
  unsigned char* table;
  bool names_known;
};

// DBE_OK, or the code for what was not done.
constexpr std::int16_t ok_or(bool done, std::int16_t code) {
  if (done) return DBE_OK;
  return code;
}

// ---- What the watcher is told
void tell_begin(const conversion& run, const char* found, bool to_do);
void tell_progress(const conversion& run, std::uint32_t done, std::uint32_t total);
void tell_count(const conversion& run, const char* kind, std::uint32_t count);
// message: number of the message that was logged with it, or 0.
[[gnu::format(printf, 3, 4)]] void tell_note(const conversion& run, std::uint32_t message, const char* format, ...);

// A place where a test ends the process: before and behind each change of the disk.
void step(const conversion& run);
using step_hook = void (*)();
void set_step_hook(step_hook hook);

// Changes of the disk, with a step on both sides. 0 or 8455.
std::int16_t rename_path(const conversion& run, const char* from, const char* to);
std::int16_t remove_path(const conversion& run, const char* path);

// ---- The stages. 0 or the code that ends the conversion.
std::int16_t db_mig_cat(conversion& run);
std::int16_t db_mig_trg(conversion& run);
std::int16_t db_mig_cms(conversion& run);
std::int16_t db_mig_tg(conversion& run);
std::int16_t db_mig_apr(conversion& run);
std::int16_t add_remote(conversion& run);

}  // namespace zvrdb::migration
