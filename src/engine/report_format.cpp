#include "engine/report_format.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zvrdb::engine::report {
namespace {

template <typename T>
int sign_of(T first, T second) {
  return first < second ? -1 : first > second ? 1 : 0;
}

template <typename T, typename U>
T from_bits(U bits) {
  static_assert(sizeof(T) == sizeof(U));
  T value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

int compare_folded(const entry_head& first, const entry_head& second) {
  auto fold = [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c + 32 : static_cast<int>(c); };
  int common = std::min(first.value_size, second.value_size);
  for (int i = 0; i < common; i++) {
    std::size_t at = static_cast<std::size_t>(i);
    int sign = sign_of(fold(first.value[at]), fold(second.value[at]));
    if (sign) return sign;
  }
  return sign_of(first.value_size, second.value_size);
}

// Plain bytes from the offset on, the shorter first when one is the start of the other.
int compare_bytes(const entry_head& first, const entry_head& second, int offset) {
  int common = std::min(first.value_size, second.value_size) - offset;
  if (common > 0) {
    int sign = std::memcmp(first.value.data() + offset, second.value.data() + offset, static_cast<std::size_t>(common));
    if (sign) return sign < 0 ? -1 : 1;
  }
  return sign_of(first.value_size, second.value_size);
}

template <typename T>
comparison compare_floats(T first, T second) {
  bool unordered = std::isnan(first) || std::isnan(second);
  return {unordered ? 1 : sign_of(first, second), unordered};
}

comparison compare_values(byte_order bytes, int type, const entry_head& first, const entry_head& second) {
  const unsigned char* a = first.value.data();
  const unsigned char* b = second.value.data();
  switch (type) {
    case 1: return {compare_folded(first, second), false};
    case 3:
    case 5:
      return {sign_of(static_cast<std::int32_t>(load32(a, bytes)), static_cast<std::int32_t>(load32(b, bytes))), false};
    case 4:
      return {sign_of(static_cast<std::int16_t>(load16(a, bytes)), static_cast<std::int16_t>(load16(b, bytes))), false};
    case 6: return compare_floats(from_bits<float>(load32(a, bytes)), from_bits<float>(load32(b, bytes)));
    case 7: return compare_floats(from_bits<double>(load<std::uint64_t>(a, bytes)), from_bits<double>(load<std::uint64_t>(b, bytes)));
    case 8: return {-1, true};  // without its segment table
    case 10: return {sign_of(load16(a, bytes), load16(b, bytes)), false};
    case 0:
    case 9: return {compare_bytes(first, second, 0), false};
    default: return {compare_bytes(first, second, 1), false};
  }
}

// Takes the segment at an offset of a composite value for a value of its own; false when it
// isn't there whole.
bool segment_at(const segment& s, const unsigned char* value, int value_size, int at, entry_head* out) {
  const int size = s.type == 8 || at >= value_size ? -1 : value_size_of(s.type, value + at, value_size - at);
  if (size < 0) return false;
  out->value_size = size;
  out->value.fill(0);
  std::memcpy(out->value.data(), value + at, static_cast<std::size_t>(size));
  return true;
}

comparison compare_composites(byte_order bytes, const segment* table, const entry_head& first, const entry_head& second) {
  int at_first = 1;
  int at_second = 1;
  for (; table->type != 31; table++) {
    entry_head a, b;
    if (!segment_at(*table, first.value.data(), first.value_size, at_first, &a) ||
        !segment_at(*table, second.value.data(), second.value_size, at_second, &b))
      return {0, true};
    comparison c = compare_values(bytes, table->type, a, b);
    if (c.unordered) return c;
    if (c.sign) return {table->descending ? -c.sign : c.sign, false};
    at_first += a.value_size;
    at_second += b.value_size;
  }
  return {0, false};
}

}  // namespace

segment_tables take_segments(const file_header& header, const key_entry* keys) {
  segment_tables tables = {};
  for (int i = 0; keys && i < 20 && keys[i].number != 0; i++)
    if (keys[i].number < key_rollback && key_type_of(header, keys[i].number) == 8) tables[keys[i].number] = keys[i].segments;
  return tables;
}

bool is_made_of(const segment* table, const unsigned char* value, int size) {
  int at = 1;
  entry_head part;
  for (; table->type != 31; table++) {
    if (!segment_at(*table, value, size, at, &part)) return false;
    at += part.value_size;
  }
  return at == size;
}

bool read_header(const report_reader& reader, file_header* header, std::string* reason) {
  unsigned char bytes[header_size];
  if (!read_bytes(reader, 0, bytes, sizeof bytes)) {
    *reason = "is too short for a header";
    return false;
  }
  *header = file_header();
  byte_order in_file = order_of_marker(bytes + header_at::marker);
  header->little_endian = in_file == byte_order::little;
  for (const magic_word& word : magic_words) {
    if (load32(bytes + word.offset, in_file) != word.letter) {
      *reason = "isn't a record file: no check word in its header";
      return false;
    }
  }
  auto field = [&](std::size_t offset) { return load32s(bytes + offset, in_file); };
  header->generation = load32(bytes + header_at::generation, in_file);
  header->root = field(header_at::root);
  header->depth = field(header_at::depth);
  header->nextnode = field(header_at::nextnode);
  header->nextrec = field(header_at::nextrec);
  header->extent = field(header_at::extent);
  header->freenode = field(header_at::freenode);
  header->freerecs = field(header_at::freerecs);
  header->reccount = field(header_at::reccount);
  header->infolen = field(header_at::infolen);
  header->transhead = field(header_at::transhead);
  header->savedhead = field(header_at::savedhead);
  std::memcpy(header->key_types.data(), bytes + header_at::keytypes, header->key_types.size());
  std::memcpy(header->key_trees.data(), bytes + header_at::keytree, header->key_trees.size());
  std::memcpy(header->tree_depths.data(), bytes + header_at::treedepth, header->tree_depths.size());
  for (std::size_t i = 0; i < header->tree_roots.size(); i++) header->tree_roots[i] = field(header_at::treeroot + 4 * i);
  header->size = reader.size;
  unsigned char flag[2] = {};
  if (read_bytes(reader, flag_offset, flag, sizeof flag))
    header->write_flag = load_le16(flag) == flag_set || load_be16(flag) == flag_set;
  return true;
}

bool read_node(const report_reader& reader, const file_header& header, std::int32_t number, node* out) {
  if (!read_bytes(reader, node_offset(number), out->bytes.data(), out->bytes.size())) return false;
  byte_order in_file = order_of(header);
  const unsigned char* at = out->bytes.data();
  out->number = number;
  out->child0 = load32s(at + offsetof(engine::node, child0), in_file);
  out->next = load32s(at + offsetof(engine::node, next), in_file);
  out->prev = load32s(at + offsetof(engine::node, prev), in_file);
  out->level = load16(at + offsetof(engine::node, level), in_file);
  out->count = load16(at + offsetof(engine::node, count), in_file);
  out->room = static_cast<std::int16_t>(load16(at + offsetof(engine::node, room), in_file));
  return true;
}

std::vector<int> trees_of(const file_header& header) {
  const int last = header.key_trees[key_bodies - 1];
  std::vector<int> trees;
  for (int t = 0; t <= static_cast<int>(header.tree_depths.size()); t++)
    if (t != last && (t == 0 || header.tree_depths[static_cast<std::size_t>(t) - 1] != 0)) trees.push_back(t);
  if (last <= static_cast<int>(header.tree_depths.size()) && (last == 0 || header.tree_depths[static_cast<std::size_t>(last) - 1] != 0))
    trees.push_back(last);
  return trees;
}

int key_type_of(const file_header& header, int key) {
  if (key == key_locks) return 2;
  if (key >= key_rollback) return 0;
  return key >= 0 ? header.key_types[static_cast<std::size_t>(key)] & key_type_mask : 0;
}

int value_size_of(int key_type, const unsigned char* at, int left) {
  int size = -1;
  switch (key_type) {
    case 0:
    case 1: {
      const void* end = left > 0 ? std::memchr(at, 0, static_cast<std::size_t>(left)) : nullptr;
      if (end) size = static_cast<int>(static_cast<const unsigned char*>(end) - at) + 1;
      break;
    }
    case 3:
    case 5:
    case 6: size = 4; break;
    case 4:
    case 10: size = 2; break;
    case 7: size = 8; break;
    case 9: size = 6; break;
    case 2:
    case 8:
    case 16:
    case 17:
    case 18:
    case 19:
    case 20:
      if (left > 0) size = at[0] + 1;
      break;
    default: break;
  }
  return size <= left ? size : -1;
}

parsed parse_entry(const file_header& header, const unsigned char* at, int left, entry* out, std::string* text) {
  if (left <= 0 || at[entry_at::length] == 0) return parsed::end;
  int length = at[entry_at::length];
  if (length > left - 1) {
    *text = "an entry of " + std::to_string(length + 1) + " bytes runs out of the node, which has " +
            std::to_string(left) + " left";
    return parsed::damaged;
  }
  if (length < entry_head_size) {
    *text = "an entry of " + std::to_string(length + 1) + " bytes is shorter than any can be";
    return parsed::damaged;
  }
  out->size = length + 1;
  out->key = at[entry_at::key];
  out->piece_byte = at[entry_at::piece];
  out->piece = out->piece_byte & piece_number;
  out->last = (out->piece_byte & last_piece) != 0;
  out->rec = load32s(at + entry_at::record, order_of(header));
  if (out->key < 1 || out->key > max_key_number || out->key == key_rollback + 1) {
    *text = "an entry has key number " + std::to_string(out->key) + ", which isn't in use";
    return parsed::damaged;
  }
  out->value = at + entry_at::value;
  out->value_size = value_size_of(key_type_of(header, out->key), out->value, out->size - entry_head_size);
  if (out->value_size < 0) {
    *text = "an entry of key number " + std::to_string(out->key) + " is too short for its key value";
    return parsed::damaged;
  }
  out->data = out->value + out->value_size;
  out->data_size = out->size - entry_head_size - out->value_size;
  return parsed::entry;
}

entry_head head_of(const entry& from) {
  entry_head head;
  head.key = from.key;
  head.piece_byte = from.piece_byte;
  head.rec = from.rec;
  head.value_size = from.value_size;
  head.value.fill(0);
  std::memcpy(head.value.data(), from.value, static_cast<std::size_t>(from.value_size));
  return head;
}

comparison compare_heads(const file_header& header, const segment_tables& tables, const entry_head& first,
                         const entry_head& second) {
  if (first.key != second.key) return {sign_of(first.key, second.key), false};
  const segment* table = tables[static_cast<std::size_t>(first.key)];
  comparison by_value = table ? compare_composites(order_of(header), table, first, second)
                              : compare_values(order_of(header), key_type_of(header, first.key), first, second);
  if (by_value.sign || by_value.unordered) return by_value;
  if (first.rec != second.rec) return {sign_of(first.rec, second.rec), false};
  return {sign_of(first.piece_byte & 0x7F, second.piece_byte & 0x7F), false};
}

std::string describe(const entry_head& head) {
  static const char digits[] = "0123456789abcdef";
  std::string text = "key " + std::to_string(head.key) + ", value ";
  int shown = std::min(head.value_size, 32);
  for (int i = 0; i < shown; i++) {
    unsigned char byte = head.value[static_cast<std::size_t>(i)];
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  if (shown < head.value_size) text += "...";
  return text + ", record " + std::to_string(head.rec) + ", piece " + std::to_string(head.piece_byte & 0x7F);
}

}  // namespace zvrdb::engine::report
