// Header, nodes and entries of a record file as reports see them: decoded from any bytes,
// every length bounded before use, nothing taken on trust.  It keeps its own parser and
// comparison, so that a mistake of the tree code doesn't hide itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "engine/file_report.h"
#include "engine/format.h"
#include "engine/report_reader.h"

namespace zvrdb::engine::report {

inline byte_order order_of(const file_header& header) {
  return header.little_endian ? byte_order::little : byte_order::big;
}

// The trees that are there, in the order in which they are walked: the one with the bodies last.
std::vector<int> trees_of(const file_header& header);
// False, with a reason: too short, or the magic words don't stand.
bool read_header(const report_reader& reader, file_header* header, std::string* reason);

struct node {
  std::array<unsigned char, 1024> bytes;
  std::int32_t number, child0, next, prev;
  int level, count, room;
};
// False when the bytes can't be read.  The number must be 0 or above.
bool read_node(const report_reader& reader, const file_header& header, std::int32_t number, node* out);

// One entry inside a node's or log record's bytes; valid as long as those bytes.
struct entry {
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

enum class parsed { entry, end, damaged };
// Decodes the entry at the place with `left` bytes behind it (a length byte of 0, or
// nothing left, is the end).  damaged: text tells why.
parsed parse_entry(const file_header& header, const unsigned char* at, int left, entry* out, std::string* text);

// Length of the key value at the place, its bytes bounded by `left`; -1 if it doesn't fit
// or the type is none.
int value_size_of(int key_type, const unsigned char* at, int left);
int key_type_of(const file_header& header, int key);

// The key of an entry by which the tree is ordered, copied out of its node.
struct entry_head {
  int key = 0;
  unsigned char piece_byte = 0;
  std::int32_t rec = 0;
  int value_size = 0;
  std::array<unsigned char, 256> value;
};
entry_head head_of(const entry& from);

struct comparison {
  int sign;         // of the first against the second
  bool unordered;   // no order can be told: a float that is no number, or a composite key
                    // without its segment table
};
using segment_tables = std::array<const segment*, 22>;   // by key number, null where unknown
segment_tables take_segments(const file_header& header, const key_entry* keys);
comparison compare_heads(const file_header& header, const segment_tables& tables, const entry_head& first,
                         const entry_head& second);
// Whether a composite value is made of exactly the segments of the table.
bool is_made_of(const segment* table, const unsigned char* value, int size);

// "key 1, value 05 41 42, record 7, piece 0": for messages.
std::string describe(const entry_head& head);

}  // namespace zvrdb::engine::report
