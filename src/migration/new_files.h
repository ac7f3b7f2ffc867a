// The record files that the conversion writes.
#pragma once

#include <cstdint>

#include "migration/conversion.h"

namespace zvrdb::migration {

// One of the record files, open as long as the object. A file that a cut-short run would
// make anew is built without a flush before its end, if nobody has it open; of any other
// many records are stored in one transaction.
enum class building { anew, with_transactions };
class new_file {
 public:
  explicit new_file(const conversion& run) : run_(run) {}
  ~new_file() { close(); }
  new_file(const new_file&) = delete;
  new_file& operator=(const new_file&) = delete;

  // Makes the file known and opens it, or makes it. 0 or 8455.
  std::int16_t open(std::uint32_t db_id, building how = building::with_transactions);
  // Stores a record under its key (host order). db_id may be another one of the file.
  // 0 or 8196, or the code of put_keyed.
  std::int16_t put(std::uint32_t db_id, void* key, const void* record, std::uint32_t record_len);
  // The same of an image that begins with room for the key.
  std::int16_t write(void* key, const void* image, std::uint32_t image_len);
  // Makes everything that was stored durable: the records are on the disk. 0 or 8455.
  std::int16_t commit();
  // Ends without what the last commit has not seen. Nothing happens when not open. 0, 8455.
  std::int16_t close();
  file_entry* handle() const { return handle_; }

 private:
  std::int16_t begin_if_none();
  std::int16_t count_one();
  const conversion& run_;
  std::uint32_t list_id_ = 0;
  file_entry* handle_ = nullptr;
  std::uint32_t uncommitted_ = 0;
  bool in_transaction_ = false;
  bool alone_ = false;
};

// How many records a transaction holds at most; tests lower it.
void set_transaction_records(std::uint32_t records);

// Removes a new file that a cut-short run had begun. 8455 also when a task has it open: it
// would go on with what is no longer there.
std::int16_t remove_new_file(const conversion& run, std::uint32_t db_id, const char* path);

// Name of the record file of a db_id.
const char* new_file_name(std::uint32_t db_id);

inline bool stored(std::int16_t rc) {
  return rc == DBE_OK || rc == DBE_RECORD_REPLACED;
}

// ---- Keys, in host order
struct target_key {
  std::uint32_t db_id;
  std::uint32_t number;
  std::uint32_t recnum;
};
static_assert(sizeof(target_key) == 12);
struct catalog_key {
  std::uint32_t db_id;
  std::uint16_t number;
  std::uint16_t product;
  std::uint16_t fileset;
  std::uint16_t spare;
  std::uint32_t recnum;
};
static_assert(sizeof(catalog_key) == 16);
struct name_key {
  std::uint32_t db_id;
  char name[16];
  std::uint32_t recnum;
};
static_assert(sizeof(name_key) == 24);
struct group_key {
  std::uint32_t db_id;
  char name[64];
  std::uint32_t recnum;
};
static_assert(sizeof(group_key) == 72);

}  // namespace zvrdb::migration
