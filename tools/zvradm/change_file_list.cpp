#include "change_file_list.h"

#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "change_file_name.h"
#include "progress.h"
#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::size_t first_area = 4096;  // entries
constexpr std::size_t most_entries = 65536;

// The record at a place of the list; the code of db_get_next.
std::int16_t read_at(void* task, const std::vector<db_cat_entry>& list, std::size_t at,
                     std::vector<unsigned char>& record) {
  auto index = static_cast<std::uint16_t>(at);
  std::fill(record.begin(), record.end(), static_cast<unsigned char>(0));
  return db_get_next(task, DB_CAT, list.data(), static_cast<std::uint16_t>(list.size()), &index,
                     record.data(), static_cast<std::uint16_t>(record.size()));
}

// A number whose record is not what it was: whether what it is now matches as well.  The
// record is read again under a list of now.
bool read_anew(void* task, const db_cf_name& filter, std::uint16_t cf_number, const std::string& what,
               std::vector<unsigned char>& record) {
  const std::vector<db_cat_entry> now = list_change_files(task, filter, what);
  const auto same = std::find_if(now.begin(), now.end(),
                                 [&](const db_cat_entry& entry) { return entry.cf_number == cf_number; });
  return same != now.end() &&
         read_at(task, now, static_cast<std::size_t>(same - now.begin()), record) == DBE_OK;
}

}  // namespace

db_cf_name every_change_file() {
  return change_file_name(std::vector<std::string>(sizeof(db_cf_name::token), "*"));
}

std::vector<db_cat_entry> list_change_files(void* task, const db_cf_name& filter, const std::string& what) {
  for (std::size_t room = first_area;; room *= 2) {
    std::vector<db_cat_entry> list(room);
    std::uint16_t count = 0, index = 0;
    const std::int16_t code =
        db_start_list(task, DB_CAT, &filter, list.data(), static_cast<std::uint32_t>(room * sizeof list[0]),
                      &count, &index);
    if (code == DBE_LIST_TOO_SMALL && room < most_entries) continue;
    require_ok(what, code);
    list.resize(count);
    return list;
  }
}

list_changes read_change_files(void* task, const db_cf_name& filter, std::uint16_t length,
                               const std::string& what, const change_file_fn& give) {
  const std::vector<db_cat_entry> list = list_change_files(task, filter, what);
  list_changes changes;
  std::vector<unsigned char> record(length);
  progress shown("reading change files", list.size());
  for (std::size_t at = 0; at < list.size(); ++at) {
    shown.reached(at);
    const std::int16_t code = read_at(task, list, at, record);
    if (code == DBE_OK) {
      give(list[at], record);
      continue;
    }
    if (code != DBE_NOT_FOUND && code != DBE_ENTRY_CHANGED) throw library_refusal(what, code);
    if (code == DBE_ENTRY_CHANGED && read_anew(task, filter, list[at].cf_number, what, record)) {
      ++changes.stored_anew;
      give(list[at], record);
    } else {
      ++changes.gone;
    }
  }
  return changes;
}

void tell_changes(const std::string& what, const list_changes& changes) {
  const auto tell = [&](std::uint64_t number, const char* text) {
    if (number == 0) return;
    std::fflush(stdout);
    std::fprintf(stderr, "zvradm: %s: %llu %s\n", what.c_str(), static_cast<unsigned long long>(number),
                 text);
  };
  tell(changes.stored_anew, "stored anew by others meanwhile: shown as they are now");
  tell(changes.gone, "deleted or replaced by others meanwhile: not shown");
}

std::vector<numbered_change_file> list_numbered_change_files(void* task, const std::string& what) {
  std::vector<numbered_change_file> files;
  read_change_files(task, every_change_file(), sizeof(db_cf_name), what,
                    [&](const db_cat_entry& entry, std::span<const unsigned char> record) {
                      numbered_change_file file{entry.cf_number, {}};
                      std::memcpy(&file.name, record.data(), sizeof file.name);
                      files.push_back(file);
                    });
  return files;
}

}  // namespace zvradm
