// Lists the names of text records.
#include <algorithm>
#include <cstring>
#include <limits>

#include "memory/trace.h"
#include "textrec/parsed_files.h"

namespace zvrdb::textrec {
namespace {

constexpr std::uint32_t no_memory = 36355;
constexpr std::size_t attributes_in_status = 13;
constexpr unsigned char passed_over = 0x40;
constexpr std::uint32_t spare_entries = 4;  // for files that come between two passes

// A list of names of one width, in the caller's area, of which the last may be cut.
struct name_list {
  void* task;
  char* bytes;
  std::uint32_t size;
  std::uint32_t entry_length;

  std::uint32_t whole_entries() const { return entry_length == 0 ? 0 : size / entry_length; }
  void copy_name(std::uint32_t index, char* out) const {
    const char* entry = bytes + std::size_t{index} * entry_length;
    const std::size_t length = strnlen(entry, std::min(entry_length, path_size - 1));
    std::memcpy(out, entry, length);
    out[length] = 0;
  }
  bool below(std::uint32_t a, std::uint32_t b) const {
    char first[path_size];
    char second[path_size];
    copy_name(a, first);
    copy_name(b, second);
    const int order = co_collate(task, first, second);
    return order != 0 ? order < 0 : std::strcmp(first, second) < 0;
  }
  void swap(std::uint32_t a, std::uint32_t b) const {
    char* first = bytes + std::size_t{a} * entry_length;
    std::swap_ranges(first, first + entry_length, bytes + std::size_t{b} * entry_length);
  }
  // Lets the entry at the root of the heap [root, end) sink to its place.
  void settle(std::uint32_t root, std::uint32_t end) const {
    for (std::uint32_t child = 2 * root + 1; child < end; child = 2 * root + 1) {
      if (child + 1 < end && below(child, child + 1)) ++child;
      if (!below(root, child)) return;
      swap(root, child);
      root = child;
    }
  }
  void sort(std::uint32_t count) const {
    count = std::min(count, whole_entries());
    for (std::uint32_t root = count / 2; root-- > 0;) settle(root, count);
    for (std::uint32_t end = count; end-- > 1;) {
      swap(0, end);
      settle(0, end);
    }
  }
};

void count_one(std::uint16_t* count) {
  if (*count < std::numeric_limits<std::uint16_t>::max()) ++*count;
}

// Whether the entry is a record and no directory.  0, or 8194 when that cannot be told.
std::int16_t is_record(void* task, const char* directory, const char* entry, bool* record) {
  char path[path_size];
  unsigned char status[CO_STATUS_BLOCK] = {};
  std::memcpy(path, directory, path_size);
  if (co_build_objname(task, path, entry, nullptr, sizeof path) != CO_OK ||
      co_get_mod(task, path, nullptr, nullptr, status) != CO_FILE_STATUS)
    return DBE_NOT_FOUND;
  *record = (status[attributes_in_status] & passed_over) == 0;
  return DBE_OK;
}

struct list_walk {
  name_list list;
  std::uint64_t offset = 0;
  std::uint16_t returned = 0;
  std::uint16_t total = 0;
  bool overflow = false;

  // The last entry is cut where the area ends.
  void add(const char* name) {
    count_one(&total);
    if (offset >= list.size) {
      overflow = true;
      return;
    }
    if (list.entry_length == 0) return;
    const std::uint64_t room = std::min<std::uint64_t>(list.entry_length, list.size - offset);
    char* entry = list.bytes + offset;
    std::memset(entry, 0, room);
    std::memcpy(entry, name, std::min<std::uint64_t>(std::strlen(name), room));
    count_one(&returned);
    offset += list.entry_length;
  }

  std::int16_t walk(std::uint32_t* listing, const char* directory) {
    char entry[path_size];
    for (;;) {
      const std::uint16_t read = co_readdir(list.task, listing, entry, sizeof entry);
      if (read == CO_END_OF_DIR) break;
      if (read != CO_OK) return static_cast<std::int16_t>(read);
      if (std::strcmp(entry, ".") == 0 || std::strcmp(entry, "..") == 0) continue;
      bool record = false;
      const std::int16_t rc = is_record(list.task, directory, entry, &record);
      if (rc != DBE_OK) return rc;
      if (record) add(entry);
    }
    if (overflow) return DBE_LIST_TOO_SMALL;
    list.sort(returned);
    return DBE_OK;
  }
};

}  // namespace

std::int16_t list_dir(void* task, void* list, std::uint32_t list_size, std::uint16_t* returned,
                      std::uint16_t* total, std::uint32_t entry_length, const char* directory_path) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  *returned = 0;
  *total = 0;
  char directory[path_size] = {};
  const std::size_t length = strnlen(directory_path, path_size);
  std::uint32_t listing = 0;
  if (length == path_size) return rc = DBE_IO_ERROR;
  std::memcpy(directory, directory_path, length);
  if (co_opendir(task, directory, &listing, 1) != CO_OK) return rc = DBE_IO_ERROR;
  list_walk walk{{task, static_cast<char*>(list), list ? list_size : 0, entry_length}};
  rc = walk.walk(&listing, directory);
  *returned = walk.returned;
  *total = walk.total;
  co_closedir(task, &listing);
  return rc;
}

std::int16_t start_list_dir(void* task, void* list, std::uint32_t list_size, std::uint16_t* count,
                            std::uint32_t entry_length, const char* directory_path) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  std::uint16_t returned = 0;
  rc = list_dir(task, list, list_size, &returned, count, entry_length, directory_path);
  if (rc != DBE_LIST_TOO_SMALL || !list || entry_length == 0 || returned == 0) return rc;

  // A second pass into an area for all of them tells which names are the first.
  const std::uint64_t all = (std::uint64_t{*count} + spare_entries) * entry_length;
  char* area = nullptr;
  if (all <= std::numeric_limits<std::uint32_t>::max())
    area = static_cast<char*>(co_malloc(task, static_cast<std::uint32_t>(all), CO_MEM_PRIVATE, "LIST_DIR"));
  if (!area) {
    co_log2(task, no_memory, 0, 0, 0, "%s", "temp list buffer");
    return rc = DBE_IO_ERROR;
  }
  std::uint16_t listed = 0;
  rc = list_dir(task, area, static_cast<std::uint32_t>(all), &listed, count, entry_length, directory_path);
  const std::uint64_t copied = std::uint64_t{std::min(returned, listed)} * entry_length;
  std::memcpy(list, area, std::min<std::uint64_t>(copied, list_size));
  co_free_int(task, area, "start_list_dir");
  return rc;
}

std::int16_t start_list_parsed(void* task, const char* directory, std::uint32_t entry_length, void* list,
                               std::uint32_t list_size, std::uint16_t* count) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  char path[path_size];
  rc = get_filename(task, directory, path, 0, nullptr);
  if (rc == DBE_OK) rc = start_list_dir(task, list, list_size, count, entry_length, path);
  return rc;
}

}  // namespace zvrdb::textrec
