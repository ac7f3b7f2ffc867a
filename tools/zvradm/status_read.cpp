#include "status_read.h"

#include <zvrdb/zvrdb.h>

#include <array>
#include <cstring>

#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::size_t class_at = 8;  // in the details of a default status

std::int16_t read_over(void* task, const record_keys& keys, unsigned char fill, db_cms& record) {
  std::memset(&record, fill, sizeof record);
  return db_get(task, DB_CMS, keys.count(), keys.data(), &record, sizeof record);
}

}  // namespace

pair_status read_status(void* task, const record_keys& keys) {
  pair_status status{DBE_OK, false, {}};
  status.code = read_over(task, keys, 0, status.record);
  if (status.code != DBE_OK || status.record.cm_status != default_status) return status;
  // A client may have stored this number.  A default status leaves most of the buffer
  // alone, a stored one fills it.
  db_cms other;
  status.code = read_over(task, keys, 0xFF, other);
  const std::size_t details = offsetof(db_cms, cm_details);
  status.is_default = status.code == DBE_OK && other.cm_status == default_status &&
                      std::memcmp(status.record.cm_details, other.cm_details, sizeof(db_cms) - details) != 0;
  return status;
}

status_map read_stored_status(void* task, const std::string& target, const std::string& what) {
  std::uint32_t number = 0;
  const std::int16_t known = db_get_trg_index(task, target.c_str(), &number);
  if (known != DBE_NO_STATUS) require_ok(what, known);
  constexpr std::size_t most = 1u << 20;  // entries; more than there are numbers
  for (std::size_t room = 4096;; room *= 2) {
    std::vector<std::uint32_t> list(room);
    std::uint32_t count = 0;
    const std::int16_t code = db_cm_by_trg(task, target.c_str(), list.data(),
                                           static_cast<std::uint32_t>(room * sizeof list[0]), &count);
    if (code == DBE_NOT_FOUND) return {};
    if (code == DBE_LIST_TOO_SMALL && room < most) continue;
    require_ok(what, code);
    status_map status;
    for (std::uint32_t i = 0; i < count; ++i) status[list[i] >> 8] = static_cast<std::uint8_t>(list[i]);
    return status;
  }
}

json status_json(const pair_status& status) {
  const record_type& type = record_type_named("cms");
  std::array<unsigned char, sizeof(db_cms)> bytes;
  std::memcpy(bytes.data(), &status.record, bytes.size());
  json object = record_to_json(type, bytes);
  object.erase("carried141");
  if (!status.is_default) return object;
  object.erase("cm_details");
  object["default"] = true;
  constexpr std::array classes{"FIX", "UPD", "REF"};
  const std::size_t number = status.record.cm_details[class_at];
  object["cf_type"] = number < classes.size() ? classes[number] : "other";
  return object;
}

}  // namespace zvradm
