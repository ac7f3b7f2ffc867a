// Header, nodes and entries of a record file as reports see them: decoded from any bytes,
// every length bounded before use, nothing taken on trust.  It keeps its own reading of
// the format, so that a mistake of the tree code doesn't hide itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/file_report.h"
#include "engine/report_reader.h"

namespace zvrdb::engine {

inline constexpr int report_max_entries = 143;
inline constexpr int report_entry_area = 1006;
inline constexpr int report_node_head = 18;
inline constexpr int report_max_depth = 20;

inline constexpr int level_free = 0xFFFF;
inline constexpr int level_first_log = 0xFFFE;
inline constexpr int level_later_log = 0xFFFD;

enum : int { key_rollback = 16, key_unused = 17, key_free_numbers = 18, key_bodies = 19, key_locks = 20 };

std::uint16_t report_load16(bool little_endian, const unsigned char* at);
std::uint32_t report_load32(bool little_endian, const unsigned char* at);

// False, with a reason: too short, or the magic words don't stand.
bool read_report_header(const report_reader& reader, file_header* header, std::string* reason);

struct report_node {
  std::array<unsigned char, 1024> bytes;
  std::int32_t number, child0, next, prev;
  int level, count, room;
};
// False when the bytes can't be read.  The number must be 0 or above.
bool read_report_node(const report_reader& reader, const file_header& header, std::int32_t number, report_node* node);

// One entry inside a node's or log record's bytes; valid as long as those bytes.
struct report_entry {
  int size;                     // with its length byte
  int key;
  int piece;                    // bits 0 to 6
  bool last;                    // bit 7
  unsigned char piece_byte;
  std::int32_t rec;
  const unsigned char* value;
  int value_size;
  const unsigned char* data;    // leaf: the data; inner: the child
  int data_size;
};

enum class entry_outcome { entry, end, damaged };
// Decodes the entry at the place with `left` bytes behind it (a length byte of 0, or
// nothing left, is the end).  damaged: text tells why.
entry_outcome parse_entry(const file_header& header, const unsigned char* at, int left, report_entry* entry,
                          std::string* text);

// Length of the key value at the place, its bytes bounded by `left`; -1 if it doesn't fit
// or the type is none.
int report_value_size(int key_type, const unsigned char* at, int left);
int report_key_type(const file_header& header, int key);

// The key of an entry by which the tree is ordered, copied out of its node.
struct entry_head {
  int key = 0;
  unsigned char piece_byte = 0;
  std::int32_t rec = 0;
  int value_size = 0;
  std::array<unsigned char, 256> value;
};
entry_head head_of(const report_entry& entry);

struct order {
  int sign;         // of the first against the second
  bool unordered;   // a float without a place in the order is involved
};
order compare_heads(const file_header& header, const entry_head& first, const entry_head& second);

// "key 1, value 05 41 42, record 7, piece 0": for messages.
std::string describe(const entry_head& head);

}  // namespace zvrdb::engine
