// The first page: header, write-in-progress flag, and the one place through which all
// bytes of a write operation go to the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/changed_bytes.h"
#include "engine/psp.h"

namespace zvrdb::engine {

enum class write_kind { header, flag, node, growth };

// Every physical write of the engine passes here.  0, e_write.  Of a node it may be told in which
// entries it differs from what the operation at hand found.
int physical_write(PSP* h, write_kind kind, std::uint64_t offset, const void* bytes, std::size_t n,
                   const byte_range& changed = all_entries);
// 0, e_not_found (read failed), e_short_read.
int physical_read(PSP* h, std::uint64_t offset, void* bytes, std::size_t n);

// To be called before any write of header or node: at integrity level 4 the first one
// of an operation locks readers out and sets the flag on disk.
// 0, e_byte_lock, e_write, e_io.
int raise_flag(PSP* h);
// e_write_flag when the flag is set.
int tstwrit(PSP* h);

// 0, e_io, e_write.
int writehdr(PSP* h);
// Header page to the block.  0, e_foreign_file, e_not_found, e_short_read.
int readhdr(PSP* h);
// The same from bytes at hand.  0, e_foreign_file.
int take_header(PSP* h, const std::uint8_t* image);
// Generation on disk; 0 stands for a failed read.
std::uint32_t read_generation(PSP* h);

// Marks the header dirty, or at integrity levels 1 to 3 writes it at once.
int header_changed(PSP* h);

// Flush of the system whose failure is latched for the end of the operation.
void plain_flush(PSP* h);
// 0, e_not_found.
int checked_flush(PSP* h);

// The image of a header with the fields of the block.
void build_header(const PSP* h, std::uint8_t (&image)[header_size]);

}  // namespace zvrdb::engine
