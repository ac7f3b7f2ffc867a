#include "migration/conversion.h"

#include <cstdarg>
#include <cstdio>

#include "memory/trace.h"

namespace zvrdb::migration {
namespace {

step_hook hook = nullptr;

void tell(const conversion& run, std::uint32_t kind, std::uint32_t done, std::uint32_t total, std::int32_t rc,
          const char* text) {
  if (!run.watcher) return;
  const db_mig_event event = {kind, run.stage, done, total, rc, text};
  run.watcher(run.context, &event);
}

}  // namespace

void tell_begin(const conversion& run, const char* found, bool to_do) {
  ZVR_TRACE(run.task, 2, 2, "stage %lu: %s", static_cast<unsigned long>(run.stage), found);
  tell(run, DB_MIG_BEGIN, 0, to_do ? 1 : 0, 0, found);
}

void tell_progress(const conversion& run, std::uint32_t done, std::uint32_t total) {
  tell(run, DB_MIG_PROGRESS, done, total, 0, nullptr);
}

void tell_count(const conversion& run, const char* kind, std::uint32_t count) {
  tell(run, DB_MIG_COUNT, count, count, 0, kind);
}

void tell_note(const conversion& run, std::uint32_t message, const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  ZVR_TRACE(run.task, 4, 2, "%s", text);
  tell(run, DB_MIG_NOTE, 0, 0, static_cast<std::int32_t>(message), text);
}

void step(const conversion&) {
  if (hook) hook();
}

void set_step_hook(step_hook value) {
  hook = value;
}

std::int16_t rename_path(const conversion& run, const char* from, const char* to) {
  step(run);
  ZVR_TRACE(run.task, 2, 2, "renaming %s to %s", from, to);
  const bool done = co_rename(run.task, from, to, 1) == CO_OK;
  step(run);
  return ok_or(done, DBE_IO_ERROR);
}

std::int16_t remove_path(const conversion& run, const char* path) {
  step(run);
  ZVR_TRACE(run.task, 2, 2, "removing file %s", path);
  const bool done = co_remove(run.task, path, 1) == CO_OK;
  step(run);
  return ok_or(done, DBE_IO_ERROR);
}

}  // namespace zvrdb::migration
