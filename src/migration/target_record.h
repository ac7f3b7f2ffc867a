// An older target's record and what becomes of it.
#pragma once

#include <cstdint>

namespace zvrdb::migration {

inline constexpr std::uint32_t target_len = 21724;
inline constexpr std::uint32_t hardware_len = 20804;
inline constexpr std::uint32_t parameter_len = 62812;

// Places in the new record.
namespace target_at {
inline constexpr std::uint32_t rgn = 124;
inline constexpr std::uint32_t type = 144;
inline constexpr std::uint32_t os = 145;
inline constexpr std::uint32_t mode = 146;
inline constexpr std::uint32_t status = 184;
inline constexpr std::uint32_t server_name = 192;
inline constexpr std::uint32_t hardware_count = 700;
}  // namespace target_at

// Bits of the older type, and of the new one.
inline constexpr std::uint8_t type_no_cm = 1;
inline constexpr std::uint8_t type_remote = 128;

// Fills the new record (target_len bytes) of an older one (textrec::older_target_len). The
// type is the older one still, with the bit of a local target where it is one.
void copy_trg_rec(unsigned char* record, const unsigned char* older);

// The type and mode that take the place of an older type.
struct type_and_mode {
  std::uint8_t type;
  std::uint8_t mode;
  bool set_to_push;  // by the rule for targets that say neither
};
type_and_mode convert_type(std::uint8_t older_type);

// Bits that a target's place in the network adds to the type. own_server: its name is its
// server's.
std::uint8_t relation_bits(std::uint8_t type, bool has_server, bool own_server);

}  // namespace zvrdb::migration
