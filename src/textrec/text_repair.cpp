// Puts right what a crash left of a replacement; which states there are is told at the
// head of text_replace.cpp.
#include <cstring>

#include "memory/table_bounds.h"
#include "memory/trace.h"
#include "textrec/parsed_files.h"

namespace zvrdb::textrec {
namespace {

constexpr char temporary_directory[] = "tmp";
constexpr std::uint32_t unfinished_replacement = 36406;

// Finishes or drops one entry of the directory.
std::int16_t put_right(void* task, const char* directory, const char* entry, std::uint16_t sem_index) {
  char path[path_size];
  std::uint16_t existed = 0;
  // Another class looks after its own files, and nobody after foreign ones.
  if (co_db_get_name(path, entry, sem_index, &existed) != 1) return DBE_OK;
  co_log2(task, unfinished_replacement, 0, 0, 0, "%s", entry);
  char temporary[path_size];
  std::memcpy(temporary, directory, path_size);
  std::uint16_t rc = co_build_objname(task, temporary, entry, nullptr, sizeof temporary);
  if (rc != CO_OK) return static_cast<std::int16_t>(rc);
  if (existed != 0) {
    const std::int16_t there = check_exists(task, path);
    // A file that is there and cannot be opened must not be replaced by what may be half
    // a text.
    if (there != DBE_OK && there != DBE_NOT_FOUND) return there;
    if (there == DBE_NOT_FOUND) return static_cast<std::int16_t>(co_rename(task, temporary, path, 1));
  }
  return static_cast<std::int16_t>(co_remove(task, temporary, 1));
}

std::int16_t put_all_right(void* task, std::uint32_t* listing, const char* directory,
                           std::uint16_t sem_index) {
  char entry[path_size];
  for (;;) {
    const std::uint16_t read = co_readdir(task, listing, entry, sizeof entry);
    if (read == CO_END_OF_DIR) return DBE_OK;
    if (read != CO_OK) return static_cast<std::int16_t>(read);
    if (std::strcmp(entry, ".") == 0 || std::strcmp(entry, "..") == 0) continue;
    const std::int16_t rc = put_right(task, directory, entry, sem_index);
    if (rc != DBE_OK) return rc;
  }
}

}  // namespace

std::int16_t refresh_parsed(void* task) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const DBR_TCB* tcb = memory::tcb_of(task);
  char directory[path_size] = {};
  if (!tcb || get_dirname(task, directory, temporary_directory) != DBE_OK) return rc = DBE_INIT_FAILED;
  directory[std::strlen(directory) - 1] = 0;
  std::uint32_t listing = 0;
  if (co_opendir(task, directory, &listing, 1) != CO_OK) {
    co_mkdir(task, directory);
    return rc;
  }
  rc = put_all_right(task, &listing, directory, tcb->sem_index);
  co_closedir(task, &listing);
  if (rc != DBE_OK) bracket.quitting();
  return rc;
}

}  // namespace zvrdb::textrec
