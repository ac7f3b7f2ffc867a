// Reads text records.
#include <algorithm>
#include <cstring>
#include <limits>

#include "memory/trace.h"
#include "textrec/parse.h"
#include "textrec/parsed_files.h"

namespace zvrdb::textrec {
namespace {

constexpr std::uint32_t longest_read = 65535;
constexpr std::uint32_t text_tail = 2;  // line feed and NUL behind the text
constexpr std::size_t size_in_status = 8;
constexpr std::uint32_t no_memory = 36355;

std::int16_t read_text(void* task, std::uint32_t file, char* buffer, std::uint32_t buffer_size) {
  std::uint32_t length = 0;
  std::uint16_t rc = CO_OK;
  while (length < buffer_size - text_tail) {
    std::uint32_t part = std::min(longest_read, buffer_size - text_tail - length);
    rc = co_read(task, file, buffer + length, &part);
    if (rc != CO_OK || part == 0) break;
    length += part;
  }
  buffer[length] = '\n';
  buffer[length + 1] = 0;
  return static_cast<std::int16_t>(rc);
}

// Room for the whole text, or null (logged).
char* text_area(void* task, std::uint32_t file_size, std::uint32_t* size) {
  char* area = nullptr;
  if (file_size <= std::numeric_limits<std::uint32_t>::max() - text_tail) {
    *size = file_size + text_tail;
    area = static_cast<char*>(co_malloc(task, *size, CO_MEM_PRIVATE, "PRSD_GET"));
  }
  if (!area) co_log2(task, no_memory, 0, 0, 0, "%s", "temp ext buffer");
  return area;
}

std::int16_t file_size_of(void* task, const char* path, std::uint32_t* size) {
  unsigned char status[CO_STATUS_BLOCK] = {};
  if (co_get_mod(task, path, nullptr, nullptr, status) != CO_FILE_STATUS) return DBE_NOT_FOUND;
  std::memcpy(size, status + size_in_status, sizeof *size);
  return DBE_OK;
}

}  // namespace

std::int16_t get_unparsed(void* task, const char* path, char* buffer, std::uint32_t buffer_size) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  if (buffer_size < text_tail) return rc = DBE_IO_ERROR;
  std::uint32_t file = 0;
  const std::uint16_t opened = co_open(task, path, CO_OPEN_READ, &file);
  if (opened == CO_NOT_FOUND) return rc = DBE_NOT_FOUND;
  if (opened != CO_OK) return rc = DBE_IO_ERROR;
  rc = read_text(task, file, buffer, buffer_size);
  const auto closed = static_cast<std::int16_t>(co_close(task, file));
  if (rc == DBE_OK) rc = closed;
  return rc;
}

std::int16_t get_parsed(void* task, const parsed_source& source, std::uint16_t num_keys,
                        const void* const* keys, void* record, std::uint32_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  char path[path_size];
  rc = get_filename(task, source.directory, path, num_keys, keys);
  if (rc == DBE_OK) rc = check_exists(task, path);
  if (rc != DBE_OK || record_len == 0) return rc;
  std::uint32_t size = 0;
  rc = file_size_of(task, path, &size);
  if (rc != DBE_OK) return rc;
  char* text = text_area(task, size, &size);
  if (!text) return rc = DBE_IO_ERROR;

  // The name may stand in the record itself, of which it is then the head.
  char name[path_size] = {};
  if (num_keys > 0) std::memcpy(name, keys[0], strnlen(static_cast<const char*>(keys[0]), sizeof name - 1));
  rc = get_unparsed(task, path, text, size);
  if (rc == DBE_OK) {
    auto* bytes = static_cast<char*>(record);
    if (record_len > source.key_length)
      std::memset(bytes + source.key_length, 0, record_len - source.key_length);
    const std::uint32_t head = std::min({record_len, source.key_length, path_size});
    if (num_keys > 0 && keys[0] != record) std::memcpy(bytes, name, head);
    rc = parse(task, source.db_id, name, source.table, text, record, record_len);
  }
  co_free_int(task, text, "get_parsed");
  return rc;
}

std::int16_t get_next_parsed(void* task, const parsed_source& source, const void* list,
                             const std::uint16_t* index, std::uint32_t entry_length, void* record,
                             std::uint32_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  // A name that fills its entry has no terminator there.
  char name[path_size] = {};
  if (entry_length >= sizeof name) return rc = DBE_NOT_FOUND;
  const auto* entry = static_cast<const char*>(list) + std::size_t{*index} * entry_length;
  std::memcpy(name, entry, strnlen(entry, entry_length));
  const void* const keys[] = {name};
  return rc = get_parsed(task, source, 1, keys, record, record_len);
}

}  // namespace zvrdb::textrec
