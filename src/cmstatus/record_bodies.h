// Bodies of the two kinds of CM status records, as plain bytes.  They come from a file,
// so nothing in them is believed: a body has as many entries as fit whole in its length,
// and nothing is read or written beyond them.  Numbers are in host order.
//
//   target       entries of 38 bytes, in any order; those of a deleted pair stay, free:
//                  0 u16 change file, 65535 free    2 u8 status
//                  3 3 bytes, kept as they are      6 32 bytes of details
//   change file  entries of 4 bytes, in the order in which they were added:
//                  u32 number of the target times 256, or status
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "memory/codes.h"

namespace zvrdb::cmstatus {

struct record_body {
  unsigned char* bytes;
  std::uint32_t length;
  std::uint32_t room;  // bytes that may be written
};

// ---- of a target
inline constexpr std::uint32_t target_entry_len = 38;
inline constexpr std::uint32_t entry_status = 2;  // from here on readers get an entry
inline constexpr std::uint32_t entry_details = 6;
inline constexpr std::uint32_t details_len = 32;
inline constexpr std::uint16_t free_entry = 65535;

// Offset of the change file's entry: 0.  8194: the offset is where one belongs, that of
// the first free entry or else the end of the entries.  Asked for 65535 it finds the
// first free entry.
std::int16_t find_cms(const record_body& body, std::uint16_t number, std::uint32_t* offset);
// Change file of the entry at an offset; free_entry when no whole entry stands there.
inline std::uint16_t cat_index_at(const record_body& body, std::uint32_t offset) {
  if (body.length < target_entry_len || offset > body.length - target_entry_len) return free_entry;
  std::uint16_t number;
  std::memcpy(&number, body.bytes + offset, sizeof number);
  return number;
}
// Marks the entry as free.  Nothing happens where no whole entry stands.
void free_entry_at(const record_body& body, std::uint32_t offset);
// Writes change file, status and details into the entry at an offset that find_cms gave;
// its other three bytes stay, or are zero in an entry that is added at the end.  False:
// no room.
bool store_entry(record_body* body, std::uint32_t offset, std::uint16_t number, std::uint8_t status,
                 const unsigned char* details);

// ---- of a change file
inline constexpr std::uint32_t file_entry_len = 4;
inline constexpr std::uint32_t highest_target = 0xFFFFFF;

inline std::uint32_t entries_of_file(const record_body& body) {
  return body.length / file_entry_len;
}
struct target_status {
  std::uint32_t trg_index;
  std::uint8_t status;
};
// position: below entries_of_file.
inline target_status target_status_at(const record_body& body, std::uint32_t position) {
  std::uint32_t entry;
  std::memcpy(&entry, body.bytes + std::size_t{position} * file_entry_len, sizeof entry);
  constexpr unsigned status_bits = 8;
  return {entry >> status_bits, static_cast<std::uint8_t>(entry)};
}
// Position of the target's entry; entries_of_file when it has none.
std::uint32_t find_target(const record_body& body, std::uint32_t trg_index);
// Replaces the target's status, or adds the target at the end.  0 added, 8196 replaced,
// 8224 no room.
std::int16_t store_target(record_body* body, std::uint32_t trg_index, std::uint8_t status);
// Closes the gap.  position: below entries_of_file.
void remove_target(record_body* body, std::uint32_t position);

}  // namespace zvrdb::cmstatus
