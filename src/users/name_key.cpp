#include "users/name_key.h"

namespace zvrdb::users {

const void* given_name(std::uint16_t num_keys, const void* const* keys) {
  return num_keys == 0 || !keys ? nullptr : keys[0];
}

}  // namespace zvrdb::users
