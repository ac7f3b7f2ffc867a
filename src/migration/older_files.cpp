#include "migration/older_files.h"

#include <algorithm>
#include <cstring>

#include "engine/format.h"
#include "memory/heap_sort.h"
#include "memory/trace.h"

namespace zvrdb::migration {
namespace {

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

int compare_names(const char* a, const char* b) {
  while (*a != 0 && lower(*a) == lower(*b)) ++a, ++b;
  return static_cast<unsigned char>(lower(*a)) - static_cast<unsigned char>(lower(*b));
}

bool is_dots(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Calls visit(name) for each entry until it answers false. 0; 8455.
template <class Visit>
std::int16_t for_each_entry(void* task, const char* path, Visit visit) {
  std::uint32_t directory = 0;
  if (co_opendir(task, path, &directory, 1) != CO_OK) return DBE_IO_ERROR;
  char name[entry_size];
  std::uint16_t rc = CO_OK;
  while ((rc = co_readdir(task, &directory, name, sizeof name)) == CO_OK)
    if (!is_dots(name) && !visit(name)) break;
  co_closedir(task, &directory);
  return ok_or(rc == CO_OK || rc == CO_END_OF_DIR, DBE_IO_ERROR);
}

bool has_magic(const unsigned char* header, engine::byte_order order) {
  for (const engine::magic_word& word : engine::magic_words)
    if (engine::load32(header + word.offset, order) != word.letter) return false;
  return true;
}

}  // namespace

bool database_path(void* task, const char* name, char (&path)[CO_PATH_MAX]) {
  path[0] = 0;
  if (co_get_orvo_path(task, path, 0) != CO_OK) return false;
  if (co_build_objname(task, path, "db", nullptr, CO_PATH_MAX) != CO_OK) return false;
  return name[0] == 0 || co_build_objname(task, path, name, nullptr, CO_PATH_MAX) == CO_OK;
}

bool path_in(void* task, const char* directory, const char* name, char (&path)[CO_PATH_MAX]) {
  return database_path(task, directory, path) &&
         co_build_objname(task, path, name, nullptr, CO_PATH_MAX) == CO_OK;
}

bool same_name(const char* a, const char* b) {
  return compare_names(a, b) == 0;
}

std::int16_t find_entry(void* task, const char* name, older_entry* found) {
  *found = {};
  file_path directory;
  if (!database_path(task, "", directory)) return DBE_IO_ERROR;
  const std::int16_t rc = for_each_entry(task, directory, [&](const char* entry) {
    if (!same_name(entry, name)) return true;
    std::memcpy(found->name, entry, std::strlen(entry) + 1);
    found->exists = true;
    return std::strcmp(entry, name) != 0;  // this very name comes before any other
  });
  if (rc == DBE_OK && found->exists) found->exists = database_path(task, found->name, found->path);
  return rc;
}

directory_names::~directory_names() {
  if (text_) co_free_int(task_, text_, "directory_names");
  if (places_) co_free_int(task_, places_, "directory_names");
}

template <class Area>
bool directory_names::grow(Area** area, std::uint32_t* room, std::uint32_t used, std::uint32_t more) {
  if (used + more <= *room) return true;
  const std::uint32_t wanted = std::max(*room * 2, used + more + 4096);
  auto* larger = static_cast<Area*>(co_malloc(task_, wanted * sizeof(Area), CO_MEM_PRIVATE, "MIG_DIR"));
  if (!larger) {
    co_log2(task_, 36355, 0, 0, 0, "%s", "MIG_DIR");
    return false;
  }
  if (*area) {
    std::memcpy(larger, *area, used * sizeof(Area));
    co_free_int(task_, *area, "directory_names");
  }
  *area = larger;
  *room = wanted;
  return true;
}

bool directory_names::keep(const char* name) {
  const auto length = static_cast<std::uint32_t>(std::strlen(name)) + 1;
  if (!grow(&text_, &text_room_, text_len_, length) || !grow(&places_, &places_room_, count_, 1)) return false;
  std::memcpy(text_ + text_len_, name, length);
  places_[count_++] = text_len_;
  text_len_ += length;
  return true;
}

std::int16_t directory_names::load(const char* directory) {
  file_path path;
  if (!database_path(task_, directory, path)) return DBE_IO_ERROR;
  text_len_ = count_ = 0;
  bool kept = true;
  const std::int16_t rc = for_each_entry(task_, path, [&](const char* name) { return kept = keep(name); });
  if (rc != DBE_OK || !kept) return DBE_IO_ERROR;
  const auto below = [this](std::uint32_t a, std::uint32_t b) {
    const int compared = compare_names(text_ + a, text_ + b);
    return compared < 0 || (compared == 0 && std::strcmp(text_ + a, text_ + b) < 0);
  };
  memory::sort_entries(places_, count_, below);
  return DBE_OK;
}

const char* directory_names::find(const char* name) const {
  const std::uint32_t* end = places_ + count_;
  const std::uint32_t* first = std::lower_bound(
      static_cast<const std::uint32_t*>(places_), end, name, [this](std::uint32_t place, const char* wanted) { return compare_names(text_ + place, wanted) < 0; });
  const char* answer = nullptr;
  for (; first != end && same_name(text_ + *first, name); ++first) {
    if (std::strcmp(text_ + *first, name) == 0) return text_ + *first;
    if (!answer) answer = text_ + *first;
  }
  return answer;
}

std::int16_t rm_dir(const conversion& run, const char* directory) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(run.task, __func__, &rc);
  directory_names names(run.task);
  rc = names.load(directory);
  if (rc != DBE_OK) {
    bracket.quitting();
    return rc;
  }
  file_path path;
  for (std::uint32_t i = 0; i < names.count(); ++i)
    if (path_in(run.task, directory, names.at(i), path)) remove_path(run, path);
  if (!database_path(run.task, directory, path)) return rc = DBE_IO_ERROR;
  step(run);
  if (co_rmdir(run.task, path) != CO_OK)
    tell_note(run, 0, "%s cannot be removed: something is in it that is not of the older database", path);
  step(run);
  return rc;
}

std::int16_t rm_dir_if_there(const conversion& run, const char* directory) {
  older_entry entry;
  const std::int16_t rc = find_entry(run.task, directory, &entry);
  return rc == DBE_OK && entry.exists ? rm_dir(run, entry.name) : rc;
}

file_begin begin_of(void* task, const char* path) {
  std::uint32_t file = 0;
  if (co_open(task, path, CO_OPEN_READ, &file) != CO_OK) return file_begin::other;
  unsigned char header[engine::header_size] = {};
  std::uint32_t length = sizeof header;
  const bool readable = co_read(task, file, header, &length) == CO_OK;
  co_close(task, file);
  if (!readable) return file_begin::other;
  if (has_magic(header, engine::byte_order::little) || has_magic(header, engine::byte_order::big))
    return file_begin::record_file;
  const bool zeros = std::all_of(header, header + length, [](unsigned char byte) { return byte == 0; });
  return zeros || length < sizeof header ? file_begin::nothing : file_begin::other;
}

std::uint32_t file_size(void* task, const char* path) {
  constexpr std::size_t size_offset = 8;
  unsigned char status[CO_STATUS_BLOCK] = {};
  if (co_get_mod(task, path, nullptr, nullptr, status) != CO_FILE_STATUS) return 0;
  std::uint32_t size = 0;
  std::memcpy(&size, status + size_offset, sizeof size);
  return size;
}

}  // namespace zvrdb::migration
