// Replaces and removes text records.
//
// A replacement is a temporary file that is written whole, then the record's file goes,
// then the temporary file takes its name.  The name of the temporary file tells whether
// the record existed, so that refresh_parsed can tell what a crash left:
//   record's file is there        the temporary file may be cut short; it is dropped
//   it is gone, but had existed   the temporary file is whole; it becomes the record
//   it had never existed          nothing was promised; the temporary file is dropped
#include <cstring>

#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "textrec/parsed_files.h"

namespace zvrdb::textrec {
namespace {

constexpr std::uint32_t no_memory = 36355;
constexpr std::uint16_t file_class = 0;
constexpr std::uint16_t memory_class = 1;

std::int16_t code(std::uint16_t answer) {
  return static_cast<std::int16_t>(answer);
}

// The directory of temporary files may be missing.
std::int16_t open_temporary(void* task, char* path, std::uint32_t* file) {
  const std::uint16_t first = co_open(task, path, CO_OPEN_REPLACE, file);
  char* separator = std::strrchr(path, CO_SEPARATOR);
  if (first == CO_OK || !separator) return code(first);
  *separator = 0;
  co_mkdir(task, path);
  *separator = CO_SEPARATOR;
  return code(co_open(task, path, CO_OPEN_REPLACE, file));
}

std::int16_t write_temporary(void* task, char* path, const char* text, std::uint32_t length) {
  std::uint32_t file = 0;
  std::int16_t rc = open_temporary(task, path, &file);
  if (rc != DBE_OK) return rc;
  rc = code(co_write(task, file, text, length));
  if (rc == DBE_OK) rc = code(co_fsync(task, file));
  const std::int16_t closed = code(co_close(task, file));
  if (rc == DBE_OK) rc = closed;
  // Whatever the mask of the process: the others of the installation read it too.
  if (rc == DBE_OK) co_dflt_mod(task, path, 1);
  return rc;
}

}  // namespace

std::int16_t put_unparsed(void* task, const char* path, const char* text, std::uint32_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  rc = check_exists(task, path);
  if (rc != DBE_OK && rc != DBE_NOT_FOUND) return rc;
  const bool existed = rc == DBE_OK;
  const DBR_TCB* tcb = memory::tcb_of(task);
  const std::uint16_t sem_index = tcb ? tcb->sem_index : memory_class;
  char temporary[path_size];
  rc = code(co_db_get_tmpnam(path, temporary, sem_index, existed ? 1 : 0));
  if (rc != DBE_OK) return rc;
  if (sem_index == file_class) tcb->cntl->fparsed_ok = 0;
  rc = write_temporary(task, temporary, text, length);
  // From here to the end of the renaming the record is the temporary file alone.
  if (rc == DBE_OK && existed) rc = code(co_remove(task, path, 1));
  if (rc == DBE_OK) rc = code(co_rename(task, temporary, path, 1));
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  if (sem_index == file_class) tcb->cntl->fparsed_ok = 1;
  return rc = existed ? DBE_RECORD_REPLACED : DBE_OK;
}

std::int16_t put_parsed(void* task, const char* directory, std::uint16_t num_keys, const void* const* keys,
                        unparse_function unparse, const void* record, std::uint32_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  auto* text = static_cast<char*>(co_malloc(task, text_size_max, CO_MEM_PRIVATE, "PRSD_PUT"));
  if (!text) {
    co_log2(task, no_memory, 0, 0, 0, "%s", "temp ext buffer");
    return rc = DBE_IO_ERROR;
  }
  const std::int32_t length = unparse(task, text, record, record_len);
  char path[path_size];
  rc = length < 0 ? static_cast<std::int16_t>(DBE_IO_ERROR)
                  : get_filename(task, directory, path, num_keys, keys);
  if (rc == DBE_OK) rc = put_unparsed(task, path, text, static_cast<std::uint32_t>(length));
  co_free_int(task, text, "put_parsed");
  return rc;
}

std::int16_t del_parsed(void* task, const char* directory, std::uint16_t num_keys, const void* const* keys) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  char path[path_size];
  rc = get_filename(task, directory, path, num_keys, keys);
  if (rc != DBE_OK) return rc;
  rc = code(co_remove(task, path, 1));
  if (rc == DBE_FILE_NOT_FOUND) rc = DBE_NOT_FOUND;
  return rc;
}

}  // namespace zvrdb::textrec
