// Where things stand in a journal, byte for byte; all numbers are little-endian.  docs/journal.md
// tells what they mean.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/format.h"
#include "engine/journal_file.h"

namespace zvrdb::engine {

namespace head_at {
inline constexpr std::size_t magic = 0;
inline constexpr std::size_t salt = 8;
inline constexpr std::size_t identity = 16;
inline constexpr std::size_t generation = 24;
inline constexpr std::size_t settled = 28;
inline constexpr std::size_t header = 32;
inline constexpr std::size_t before_salt = 384;
inline constexpr std::size_t before_sequence = 392;
inline constexpr std::size_t before_chain = 400;
inline constexpr std::size_t crc = 508;
}  // namespace head_at

namespace group_at {
inline constexpr std::size_t magic = 0;
inline constexpr std::size_t length = 4;
inline constexpr std::size_t salt = 8;
inline constexpr std::size_t sequence = 16;
inline constexpr std::size_t before = 24;
inline constexpr std::size_t after = 28;
inline constexpr std::size_t extent = 32;
inline constexpr std::size_t nodes = 36;
inline constexpr std::size_t kind = 40;
inline constexpr std::size_t chain = 44;
inline constexpr std::size_t random = 48;
inline constexpr std::size_t open = 56;
inline constexpr std::size_t crc = 60;
}  // namespace group_at

namespace list_at {
inline constexpr std::size_t number = 0;
inline constexpr std::size_t from = 4;
inline constexpr std::size_t length = 6;
inline constexpr std::size_t size = 8;
}  // namespace list_at

namespace link_at {
inline constexpr std::size_t number = 0;
inline constexpr std::size_t salt = 8;
inline constexpr std::size_t name = 16;
}  // namespace link_at
static_assert(link_at::name + sizeof(group_link::name) == link_size);
static_assert(head_at::header + header_size == head_at::before_salt);
static_assert(head_at::before_chain + 4 <= head_at::crc && head_at::crc + 4 == journal_head_size);
static_assert(group_at::crc + 4 == group_head_size);

inline constexpr char head_magic[] = "ZVRJRNL2";
inline constexpr char group_magic[] = "ZVRG";
inline constexpr std::uint32_t kind_change = 1;
inline constexpr std::uint32_t kind_promise = 2;
inline constexpr std::uint32_t kind_decision = 3;
inline bool is_linked(std::uint32_t kind) { return kind >= kind_promise; }

inline std::uint64_t load_le64(const std::uint8_t* p) { return load<std::uint64_t>(p, byte_order::little); }
inline void store_le64(std::uint8_t* p, std::uint64_t v) { store(p, v, byte_order::little); }

// Groups begin at sectors.
inline std::uint64_t to_sectors(std::uint64_t n) { return (n + journal_sector - 1) / journal_sector * journal_sector; }

}  // namespace zvrdb::engine
