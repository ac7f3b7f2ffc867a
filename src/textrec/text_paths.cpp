// Where text records lie.
#include <cstring>

#include "memory/trace.h"
#include "textrec/parsed_files.h"

namespace zvrdb::textrec {
namespace {

constexpr char data_directory[] = "db";

// A name that leads nowhere but to a file of the directory.
bool is_plain_name(const char* name) {
  return !std::strchr(name, CO_SEPARATOR) && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
}

bool append(void* task, char* path, const char* name) {
  return co_build_objname(task, path, name, nullptr, path_size) == CO_OK;
}

}  // namespace

std::int16_t get_filename(void* task, const char* directory, char* path, std::uint16_t num_keys,
                          const void* const* keys) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  static_assert(path_size == CO_PATH_MAX);
  path[0] = 0;
  const bool below_base = std::strcmp(directory, config_file_name) == 0;
  if (co_get_orvo_path(task, path, 0) != CO_OK || (!below_base && !append(task, path, data_directory)) ||
      !append(task, path, directory))
    return rc = DBE_NOT_FOUND;
  if (num_keys == 0) return rc;
  const auto* name = static_cast<const char*>(keys[0]);
  // An empty name leaves the path of the directory, with a separator.
  if (!name || !is_plain_name(name) || !append(task, path, name) || !name[0]) rc = DBE_NOT_FOUND;
  return rc;
}

std::int16_t get_dirname(void* task, char* path, const char* directory) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const void* const no_name[] = {""};
  get_filename(task, directory, path, 1, no_name);
  const std::size_t length = std::strlen(path);
  if (length == 0 || path[length - 1] != CO_SEPARATOR) rc = DBE_NOT_FOUND;
  return rc;
}

std::int16_t check_exists(void* task, const char* path) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  std::uint32_t file = 0;
  const std::uint16_t opened = co_open(task, path, CO_OPEN_READ, &file);
  if (opened == CO_NOT_FOUND) return rc = DBE_NOT_FOUND;
  if (opened != CO_OK) return rc = DBE_IO_ERROR;
  return rc = static_cast<std::int16_t>(co_close(task, file));
}

}  // namespace zvrdb::textrec
