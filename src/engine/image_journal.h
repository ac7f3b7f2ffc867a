// The before-image journal: a second file that takes each node as it was before its first
// change in a write operation, ahead of the change.  engine.h tells how it is turned on.
//
//      0 +---------------------------------------------+
//        | header of the record file as it was when    |  with the generation of the operation
//        | the operation began                     352 |
//    508 | CRC-32C of bytes 0 to 351                 4 |
//   1024 +---------------------------------------------+
//        | record 0, record 1, ...            1048 each|
//        +---------------------------------------------+
//
// A record, integers in the order of the record file:
//
//      0 CRC-32C of the rest (4)  4 zero (4)  8 node number (4)  12 zero (4)
//     16 number of the record (4)  20 generation of the operation (4)
//     24 the node as it lay in the record file (1024)
//
// Each operation begins the journal anew.  Its images are on the disk before its first byte
// goes to the record file, and so is an image that comes later before the next one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/format.h"
#include "engine/psp.h"

namespace zvrdb::engine {

inline constexpr std::size_t image_record_size = 1048;
inline constexpr std::size_t image_at = 24;         // of the node in a record
inline constexpr std::size_t image_header_crc = 508;

struct image_journal {
  std::int32_t file;
  image_transform out;
  std::int32_t first_new;      // nodes from here on were never used when the operation began
  std::uint32_t records;       // of the operation
  bool header_written;
  bool flushed;                // all of the operation so far is on the disk
  std::uint8_t header[header_size];
};

inline bool keeps_images(const PSP* h) { return h->images != nullptr; }
// When an outermost write operation has its generation.
void images_begin_operation(PSP* h);
// Before node n is changed; `there` is the node as it is, null where it has to be read.
// 0, e_write, e_damaged, errors of reading.
int keep_image(PSP* h, std::int32_t n, const node* there);
// Before bytes go to the record file.  0, e_write.
int images_before_write(PSP* h);
void images_let_go(PSP* h);

}  // namespace zvrdb::engine
