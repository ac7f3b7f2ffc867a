// The text records as text.  Each prints into text (text_size_max bytes) and answers the
// length, negative when the text does not fit; there is no NUL behind it.
#pragma once

#include <cstdint>

namespace zvrdb::textrec {

std::int32_t unparse_scn(void* task, char* text, const void* record, std::uint32_t record_len);
std::int32_t unparse_scf(void* task, char* text, const void* record, std::uint32_t record_len);
// As many routes as the record's length holds, whatever its count says.
std::int32_t unparse_rte(void* task, char* text, const void* record, std::uint32_t record_len);
std::int32_t unparse_ucf(void* task, char* text, const void* record, std::uint32_t record_len);
// The base configuration as the migration writes it.
std::int32_t unparse_new_cfg(void* task, char* text, const void* record, std::uint32_t record_len);

}  // namespace zvrdb::textrec
