// CRC-32C (the Castagnoli polynomial, reflected), as the journal uses it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvrdb::engine {

// Goes on from `crc`, the value of the bytes before (0 for none).
std::uint32_t crc32c(std::uint32_t crc, const void* bytes, std::size_t n);
// The same where the processor has no instruction for it.
std::uint32_t crc32c_without_instruction(std::uint32_t crc, const void* bytes, std::size_t n);

}  // namespace zvrdb::engine
