// Handlers of the two record types that need nothing but the common services: the
// base configuration and the authorization of a user.
#pragma once

#include <cstdint>

#include "memory/codes.h"

namespace zvrdb::frame {

// Copies the smaller of record_len and 4640 bytes.  Always 0.
std::int16_t get_cfg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
// Takes 4640 bytes, whatever record_len says.  Always 8196; the change lives as long
// as the common area, the file stays as it is.
std::int16_t put_cfg(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len);
// keys: user name, second name, one byte.  Fills, as far as whole pieces fit: 16 bytes
// name, 16 bytes second name, the byte, the level.  0, 8194 unknown user, 8216.
std::int16_t get_ua(void* task, std::uint16_t num_keys, const void* const* keys, void* buffer,
                    std::uint16_t length);

}  // namespace zvrdb::frame
