// Text records as files: one file a record below the base directory, replaced so that a
// crash leaves the old record or the new one.  Runs under the semaphore of the record's
// class.
#pragma once

#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"
#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

inline constexpr std::uint32_t path_size = 256;         // of every path buffer here
inline constexpr std::uint32_t text_size_max = 65535;   // of a printed record
inline constexpr char config_file_name[] = "orvo.cfg";  // lies in the base directory itself

// Prints a record into text (text_size_max bytes); the length, or a negative number when
// it does not fit.
using unparse_function = std::int32_t (*)(void* task, char* text, const void* record,
                                          std::uint32_t record_len);

// 0; 8194 no name, a name that is no plain file name, or a path that does not fit.
std::int16_t get_filename(void* task, const char* directory, char* path, std::uint16_t num_keys,
                          const void* const* keys);
// The path of a directory below "db", with a separator at its end.
std::int16_t get_dirname(void* task, char* path, const char* directory);
// 0; 8194; 8455.
std::int16_t check_exists(void* task, const char* path);
std::int16_t get_unparsed(void* task, const char* path, char* buffer, std::uint32_t buffer_size);
// 0 new; 8196 replaced; or the code of the step that failed.
std::int16_t put_unparsed(void* task, const char* path, const char* text, std::uint32_t length);
std::int16_t del_parsed(void* task, const char* directory, std::uint16_t num_keys, const void* const* keys);
// What to read: the directory or file, the length of the name at the record's head.
struct parsed_source {
  std::uint32_t db_id;
  const char* directory;
  std::uint32_t key_length;
  const keyword_entry* table;
};
std::int16_t get_parsed(void* task, const parsed_source& source, std::uint16_t num_keys,
                        const void* const* keys, void* record, std::uint32_t record_len);
std::int16_t get_next_parsed(void* task, const parsed_source& source, const void* list,
                             const std::uint16_t* index, std::uint32_t entry_length, void* record,
                             std::uint32_t record_len);
std::int16_t put_parsed(void* task, const char* directory, std::uint16_t num_keys, const void* const* keys,
                        unparse_function unparse, const void* record, std::uint32_t record_len);
std::int16_t start_list_parsed(void* task, const char* directory, std::uint32_t entry_length, void* list,
                               std::uint32_t list_size, std::uint16_t* count);
std::int16_t start_list_dir(void* task, void* list, std::uint32_t list_size, std::uint16_t* count,
                            std::uint32_t entry_length, const char* directory_path);
std::int16_t list_dir(void* task, void* list, std::uint32_t list_size, std::uint16_t* returned,
                      std::uint16_t* total, std::uint32_t entry_length, const char* directory_path);
// Finishes or drops what a crash left in "tmp", for the class of the current call.
std::int16_t refresh_parsed(void* task);

}  // namespace zvrdb::textrec
