// The base configuration record as text.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvrdb::textrec {

inline constexpr std::size_t base_config_len = 4640;  // bytes of the record
// No record prints longer than this, NUL included, whatever its bytes.
inline constexpr std::size_t base_config_text_max = 8192;

// Prints the record (base_config_len bytes) as the lines of "orvo.cfg" into text
// (base_config_text_max bytes) with a NUL behind them; the length without it.  A text
// field that is not terminated ends with its field.  co_parse_config reads the text as
// the same record, but for what a line cannot tell: a control character or a blank at an
// end of a text, a value without a word of its own, bytes behind a NUL.
std::uint32_t unparse_cfg(void* task, char* text, const void* record);

}  // namespace zvrdb::textrec
