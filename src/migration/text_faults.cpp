#include "migration/text_faults.h"

#include <zvrco/zvrco.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "memory/trace.h"
#include "migration/older_files.h"
#include "textrec/parse.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t text_tail = 2;  // line feed and NUL behind a text

// A parse ends at its fault, which is told last.
struct last_fault {
  std::uint32_t line;
  char reason[128];
};

void keep_fault(void* context, std::uint32_t line, std::uint32_t, const char* reason) {
  auto* fault = static_cast<last_fault*>(context);
  fault->line = line;
  std::snprintf(fault->reason, sizeof fault->reason, "%s", reason);
}

// Private memory for as long as the look takes.
class work_area {
 public:
  work_area(void* task, std::uint32_t size)
      : task_(task), bytes_(static_cast<char*>(co_malloc(task, size, CO_MEM_PRIVATE, "MIG_TEXT"))) {}
  ~work_area() {
    if (bytes_) co_free_int(task_, bytes_, "db_mig_text");
  }
  work_area(const work_area&) = delete;
  work_area& operator=(const work_area&) = delete;
  char* bytes() const { return bytes_; }

 private:
  void* task_;
  char* bytes_;
};

bool find_fault(const conversion& run, const textrec::parsed_source& source, const char* name,
                std::uint32_t record_len, last_fault* fault) {
  const void* const keys[] = {name};
  char path[textrec::path_size];
  const std::uint16_t num_keys = name ? 1 : 0;
  if (textrec::get_filename(run.task, source.directory, path, num_keys, keys) != DBE_OK) return false;
  const std::uint32_t length = file_size(run.task, path);
  if (length > std::numeric_limits<std::uint32_t>::max() - text_tail) return false;
  const work_area text(run.task, length + text_tail), record(run.task, record_len);
  if (!text.bytes() || !record.bytes()) return false;
  if (textrec::get_unparsed(run.task, path, text.bytes(), length + text_tail) != DBE_OK) return false;
  std::fill_n(record.bytes(), record_len, '\0');
  return textrec::parse_checking(run.task, source.db_id, name ? name : source.directory, source.table, text.bytes(),
                                 record.bytes(), record_len, {keep_fault, fault}) != DBE_OK &&
         fault->line != 0;
}

}  // namespace

void tell_unreadable(const conversion& run, const textrec::parsed_source& source, const char* name,
                     std::uint32_t record_len, std::int16_t rc) {
  const trace_bracket bracket(run.task, __func__);
  const char* const separator = name ? "/" : "";
  last_fault fault = {};
  if (find_fault(run, source, name, record_len, &fault))
    tell_note(run, 0, "%s%s%s cannot be read as a record: line %u: %s", source.directory, separator, name ? name : "",
              static_cast<unsigned>(fault.line), fault.reason);
  else
    tell_note(run, 0, "%s%s%s cannot be read as a record (code %d)", source.directory, separator, name ? name : "",
              rc);
}

}  // namespace zvrdb::migration
