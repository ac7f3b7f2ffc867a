// The record file, byte for byte.  A reader needs nothing else to take a file apart
// by hand.
//
// One record file is one operating-system file: a header page of 1024 bytes, then
// nodes of 1024 bytes.  All indexes, record bodies, free record numbers, record locks
// and the roll-back list are entries of one ordered tree, told apart by a key number.
//
//      0 +-----------------------------------+
//        | file header               352     |  converted by the marker at offset 8
//    352 +-----------------------------------+
//    353 | slot bytes, one a handle  209     |  locked only: handle s is alive
//    562 | reader bytes, one a slot  209     |  locked only: slot s reads; all: a writer
//    771 | writer arbiter            1       |  locked only: a write operation is under way
//    772 | waiting queue             209     |  locked only: writers that wait in turn
//    981 | unused                    29      |
//   1010 | write-in-progress flag    2       |  0 or 13245; not part of the header
//   1012 | unused                    12      |
//   1024 +-----------------------------------+
//        | node 0, 1, 2 ...          1024    |  node n at 1024 + 1024 * n
//        +-----------------------------------+
//
// A node of the tree (all integers in the file's order):
//
//      0 child0 (4)  next (4)  prev (4)  level (2)  count (2)  room (2)
//     18 entries, one behind the other, `count` of them; `room` bytes are left over:
//        the sizes of the entries and `room` always make 1006.  Behind the last entry
//        all is zero.
//
//     leaf entry:   L  key  piece  record (4)  value (k)  data (L-k-6)
//     inner entry:  L  key  piece  record (4)  value (k)  child (4)       L = k+10
//
// Entries are ordered by key number, key value (by its type), record number (signed),
// piece number (bits 0 to 6).  An inner entry is a copy of the entry that ended the
// left node when it split: its subtree holds what sorts above it.
//
// Worked examples, little-endian.
//   A new file with no keys begins (the generation is 2 once the file was closed):
//     02 00 00 00  56 00 00 00  01 00 00 00  00 00 00 00   generation "V" marker root
//     41 00 00 00  4C 00 00 00  49 00 00 00  01 00 00 00   "A" "L" "I" depth
//     44 00 00 00  01 00 00 00  41 00 00 00  01 00 00 00   "D" nextnode "A" nextrec
//     54 00 00 00  0A 00 00 00  31 00 00 00  FF FF FF FF   "T" extent "1" freenode
//   Its node 0, the empty root leaf:
//     00 00 00 00  FF FF FF FF  FF FF FF FF  00 00  00 00  EE 03   then zeros
//   Key 1 of type 2 (length byte, bytes) with value "AB" of record 5:
//     09  01  80  05 00 00 00  02 41 42          one piece, the last: piece byte 80
//   The body of record 5, packed bytes P Q R:
//     0A  13  80  05 00 00 00  00  P Q R         key 19, value "" (one NUL)
//   Separator of those body bytes in an inner node, child 7:
//     0B  13  80  05 00 00 00  00  07 00 00 00
//   Record 5 waiting for reuse:
//     07  12  80  05 00 00 00  00                key 18
//   A lock on the body of record 5 by slot 3 (locked value: one NUL, length 1):
//     0A  14  80  05 00 00 00  01 13  03 00      key 20, value: length 1, key 19
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace zvrdb::engine {

// ---- Bytes and integers of either order

enum class byte_order : std::uint8_t { little, big };

inline constexpr byte_order native_order =
    std::endian::native == std::endian::little ? byte_order::little : byte_order::big;

constexpr std::uint16_t swap_bytes(std::uint16_t v) { return static_cast<std::uint16_t>((v << 8) | (v >> 8)); }
constexpr std::uint32_t swap_bytes(std::uint32_t v) { return __builtin_bswap32(v); }
constexpr std::uint64_t swap_bytes(std::uint64_t v) { return __builtin_bswap64(v); }

// An unsigned integer from unaligned bytes that hold it in the given order.
template <class T>
inline T load(const void* from, byte_order order) {
  static_assert(std::is_unsigned_v<T>);
  T v;
  std::memcpy(&v, from, sizeof v);
  return order == native_order ? v : swap_bytes(v);
}

template <class T>
inline void store(void* to, T v, byte_order order) {
  static_assert(std::is_unsigned_v<T>);
  if (order != native_order) v = swap_bytes(v);
  std::memcpy(to, &v, sizeof v);
}

inline std::uint16_t load16(const void* p, byte_order o) { return load<std::uint16_t>(p, o); }
inline std::uint32_t load32(const void* p, byte_order o) { return load<std::uint32_t>(p, o); }
inline std::int32_t load32s(const void* p, byte_order o) { return static_cast<std::int32_t>(load32(p, o)); }
inline void store16(void* p, std::uint16_t v, byte_order o) { store(p, v, o); }
inline void store32(void* p, std::uint32_t v, byte_order o) { store(p, v, o); }
inline void store32s(void* p, std::int32_t v, byte_order o) { store(p, static_cast<std::uint32_t>(v), o); }

inline std::uint16_t load_le16(const void* p) { return load16(p, byte_order::little); }
inline std::uint32_t load_le32(const void* p) { return load32(p, byte_order::little); }
inline std::uint16_t load_be16(const void* p) { return load16(p, byte_order::big); }
inline std::uint32_t load_be32(const void* p) { return load32(p, byte_order::big); }
inline void store_le16(void* p, std::uint16_t v) { store16(p, v, byte_order::little); }
inline void store_le32(void* p, std::uint32_t v) { store32(p, v, byte_order::little); }
inline void store_be16(void* p, std::uint16_t v) { store16(p, v, byte_order::big); }
inline void store_be32(void* p, std::uint32_t v) { store32(p, v, byte_order::big); }

// ---- The header page

inline constexpr std::uint32_t page_size = 1024;
inline constexpr std::uint32_t header_size = 352;

inline constexpr int slot_count = 209;
inline constexpr std::uint32_t slot_bytes = 353;      // slot_count bytes
inline constexpr std::uint32_t reader_bytes = 562;    // slot_count bytes
inline constexpr std::uint32_t arbiter_byte = 771;
inline constexpr std::uint32_t queue_bytes = 772;     // slot_count bytes
inline constexpr std::uint32_t flag_offset = 1010;
inline constexpr std::uint16_t flag_set = 13245;      // 0x33BD

static_assert(slot_bytes + slot_count == reader_bytes);
static_assert(reader_bytes + slot_count == arbiter_byte);

// Offsets in the header.  32-bit integers unless told otherwise.
namespace header_at {
inline constexpr std::size_t generation = 0;
inline constexpr std::size_t marker = 8;          // 1 in the file's order; never converted
inline constexpr std::size_t root = 12;
inline constexpr std::size_t depth = 28;          // 1: a lone leaf
inline constexpr std::size_t nextnode = 36;       // next node never yet used
inline constexpr std::size_t nextrec = 44;        // next record number never yet used
inline constexpr std::size_t extent = 52;         // nodes that exist in the file
inline constexpr std::size_t freenode = 60;       // first free node, -1 for none
inline constexpr std::size_t freerecs = 64;       // record numbers waiting under key 18
inline constexpr std::size_t reccount = 68;
inline constexpr std::size_t infolen = 72;        // 0 to 100
inline constexpr std::size_t reserved = 76;       // 16 zero bytes
inline constexpr std::size_t info = 92;           // 100 bytes, opaque
inline constexpr std::size_t keytypes = 192;      // 22 bytes, keys 0 to 21
inline constexpr std::size_t keytree = 220;       // 22 bytes, keys 1 to 22; zero: tree 0
inline constexpr std::size_t treedepth = 242;     // 20 bytes, trees 1 to 20
inline constexpr std::size_t treeroot = 264;      // 20 integers, trees 1 to 20
inline constexpr std::size_t transhead = 344;     // first log node, -1 for none
inline constexpr std::size_t savedhead = 348;     // first kept log chain, -1 for none
}  // namespace header_at

inline constexpr std::size_t info_size = 100;
inline constexpr std::size_t keytypes_size = 22;

struct magic_word {
  std::size_t offset;
  std::uint32_t letter;
};
inline constexpr magic_word magic_words[] = {{4, 'V'},  {16, 'A'}, {20, 'L'}, {24, 'I'},
                                             {32, 'D'}, {40, 'A'}, {48, 'T'}, {56, '1'}};

static_assert(header_at::info + info_size == header_at::keytypes);
static_assert(header_at::treeroot + 20 * 4 == header_at::transhead);
static_assert(header_at::savedhead + 4 == header_size);
static_assert(flag_offset + 2 <= page_size);

// The order that the marker of a header declares: its low byte, read natively, is 1
// only in a file of the machine's own order.
inline byte_order order_of_marker(const void* marker_bytes) {
  std::uint32_t v;
  std::memcpy(&v, marker_bytes, sizeof v);
  if ((v & 0xFF) == 1) return native_order;
  return native_order == byte_order::little ? byte_order::big : byte_order::little;
}

// ---- Nodes

inline constexpr std::size_t node_head_size = 18;
inline constexpr int entry_area = 1006;
inline constexpr int max_entries = 143;
inline constexpr int half_full = 503;                    // split limit of an inner place of a level
inline constexpr std::int32_t max_node = 4194302;        // the file ends at 4 gigabytes
inline constexpr int max_depth = 20;

inline constexpr std::uint16_t level_free = 0xFFFF;
inline constexpr std::uint16_t level_log_first = 0xFFFE;
inline constexpr std::uint16_t level_log_later = 0xFFFD;

// A level of the tree, as opposed to the marks above (bit 15 set).
constexpr bool is_tree_level(std::uint16_t level) { return level < 0x8000; }

constexpr std::uint64_t node_offset(std::int32_t n) {
  return page_size + std::uint64_t{page_size} * static_cast<std::uint32_t>(n);
}
static_assert(node_offset(max_node) + page_size <= (std::uint64_t{1} << 32));

// A node in memory: the head in native order, the entries as they lie in the file.
// The spare bytes behind the entry area let an insert overflow a node before it is
// split, and stand for the zero byte that ends the entries of a full node.
inline constexpr int node_spare = 275;
struct node {
  std::int32_t child0;    // inner: first child; leaf 0; free -1; first log node: former head
  std::int32_t next;      // right neighbour, -1 for none; free: next free; log: next, 0 at the end
  std::int32_t prev;      // left neighbour, -1 for none; free -1; log: slot of the owner
  std::uint16_t level;    // 0 leaf, above that inner, or a mark
  std::uint16_t count;    // entries, or log records
  std::int16_t room;      // free bytes of the entry area; negative only before a split
  std::uint8_t entries[entry_area + node_spare];
};
static_assert(offsetof(node, child0) == 0);
static_assert(offsetof(node, next) == 4);
static_assert(offsetof(node, prev) == 8);
static_assert(offsetof(node, level) == 12);
static_assert(offsetof(node, count) == 14);
static_assert(offsetof(node, room) == 16);
static_assert(offsetof(node, entries) == node_head_size);
static_assert(node_head_size + entry_area == page_size);
static_assert(std::is_trivially_copyable_v<node>);

// ---- Entries

namespace entry_at {
inline constexpr int length = 0;    // bytes that follow; 0 is the end of the entries
inline constexpr int key = 1;       // key number 1 to 20
inline constexpr int piece = 2;
inline constexpr int record = 3;    // 32-bit
inline constexpr int value = 7;
}  // namespace entry_at

inline constexpr int entry_head_size = 7;            // up to the key value
inline constexpr int max_key_value = 242;
inline constexpr int max_entry_size = 251;
inline constexpr int value_and_data = 244;           // key value and data of one entry together
inline constexpr int max_pieces = 129;
inline constexpr std::uint8_t last_piece = 0x80;     // bit 7 of the piece byte
inline constexpr std::uint8_t piece_number = 0x7F;   // bits 0 to 6

static_assert(entry_head_size + value_and_data == max_entry_size);
static_assert(entry_area / max_entries == 7, "the shortest entries fill a node");

// Key numbers that the engine owns; applications have 1 to 15.
inline constexpr int key_rollback = 16;
inline constexpr int key_free_records = 18;
inline constexpr int key_bodies = 19;
inline constexpr int key_locks = 20;
inline constexpr int max_key_number = 20;

// Key types: the low five bits of the type byte.
inline constexpr std::uint8_t key_type_mask = 0x1F;
enum key_type : std::uint8_t {
  kt_string = 0,           // NUL-terminated, byte order
  kt_string_nocase = 1,    // NUL-terminated, ASCII letters folded to lower case
  kt_bytes = 2,            // length byte, bytes
  kt_int32 = 3,
  kt_int16 = 4,
  kt_int32_too = 5,
  kt_float = 6,
  kt_double = 7,
  kt_composite = 8,
  kt_six = 9,              // 6 bytes
  kt_uint16 = 10,
  kt_bytes_16 = 16,        // 16 to 20: as type 2
  kt_bytes_20 = 20,
};

// ---- Packed records (the data of a body)

namespace packed_at {
inline constexpr int list_checksum = 0;     // 16-bit, over the field list
inline constexpr int record_checksum = 2;   // 16-bit, over offset 4 to the end
inline constexpr int type = 4;
inline constexpr int fields = 5;            // index (2), for 'B' a length (2), value; ...
}  // namespace packed_at
inline constexpr std::uint16_t packed_end = 0xFFFF;

// One step of the checksums: a 16-bit sum, doubled with each byte, taken as signed.
// Whatever came more than fifteen bytes ago is shifted out.
constexpr std::uint16_t checksum_step(std::uint16_t sum, std::int8_t b) {
  return static_cast<std::uint16_t>(static_cast<std::uint16_t>(sum + b) << 1);
}

// ---- Log records

namespace log_at {
inline constexpr int start_generation = 0;   // 32-bit, generation at the transaction's start
inline constexpr int sequence = 4;           // 16-bit, from 1
inline constexpr int gap = 6;                // 2 bytes, written as zero
inline constexpr int generation = 8;         // 32-bit
inline constexpr int type = 12;
inline constexpr int entry = 13;             // leaf entry, or one byte 0
}  // namespace log_at
inline constexpr int log_head_size = 13;

enum log_type : std::uint8_t {
  log_added = 1,
  log_removed = 2,
  log_end = 3,
  log_op_begun = 4,
  log_op_finished = 5,
  log_node_written = 6,
  log_ignored_from = 128,
};

}  // namespace zvrdb::engine
