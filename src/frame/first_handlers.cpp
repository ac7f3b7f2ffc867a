#include "frame/first_handlers.h"

#include <algorithm>
#include <cstring>

#include "memory/trace.h"

namespace zvrdb::frame {
namespace {

constexpr std::size_t name_field = 16;
constexpr std::size_t longest_target = 64;
constexpr std::uint16_t unknown_user = 255;
constexpr std::uint16_t not_authorized = 254;

// A piece of the answer that is copied only when the buffer has room for all of it.
constexpr std::uint16_t name_end = 16;
constexpr std::uint16_t second_end = 32;
constexpr std::uint16_t byte_end = 33;
constexpr std::uint16_t level_end = 34;

void fill_name(unsigned char* out, const char* name) {
  if (static_cast<const void*>(out) == name) return;
  char field[name_field] = {};
  std::memcpy(field, name, strnlen(name, name_field));
  std::memcpy(out, field, name_field);
}

}  // namespace

std::int16_t get_cfg(void* task, std::uint16_t, const void* const*, void* record, std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const void* area = co_croca(task, CO_AREA_CONFIG);
  if (!area) return rc = DBE_CO_FAILURE;
  std::memcpy(record, area, std::min<std::size_t>(record_len, CO_CONFIG_LENGTH));
  return rc;
}

std::int16_t put_cfg(void* task, std::uint16_t, const void* const*, void* record, std::uint16_t) {
  std::int16_t rc = DBE_RECORD_REPLACED;
  const trace_bracket bracket(task, __func__, &rc);
  void* area = co_croca(task, CO_AREA_CONFIG);
  if (!area) return rc = DBE_CO_FAILURE;
  std::memcpy(area, record, CO_CONFIG_LENGTH);
  return rc;
}

std::int16_t get_ua(void* task, std::uint16_t, const void* const* keys, void* buffer, std::uint16_t length) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  const auto* name = static_cast<const char*>(keys[0]);
  const auto* second = static_cast<const char*>(keys[1]);
  const auto* byte = static_cast<const unsigned char*>(keys[2]);
  char user[name_field + 1] = {};
  char target[longest_target + 1] = {};
  std::memcpy(user, name, strnlen(name, name_field));
  std::memcpy(target, second, strnlen(second, longest_target));
  std::uint16_t level = unknown_user;
  co_get_uauth(task, user, target, &level);
  if (level == unknown_user) rc = DBE_NOT_FOUND;
  if (level == not_authorized) rc = DBE_NOT_AUTHORIZED;

  auto* out = static_cast<unsigned char*>(buffer);
  const unsigned char kept = *byte;
  if (length >= name_end) fill_name(out, name);
  if (length >= second_end) fill_name(out + name_end, second);
  if (length >= byte_end) out[second_end] = kept;
  if (length >= level_end) out[byte_end] = static_cast<unsigned char>(level);
  return rc;
}

}  // namespace zvrdb::frame
