#include "engine/report_format.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zvrdb::engine {
namespace {

constexpr std::uint64_t page_size = 1024;
constexpr std::size_t header_size = 352;
constexpr std::uint64_t flag_offset = 1010;
constexpr unsigned flag_value = 13245;

struct magic_word {
  std::size_t offset;
  std::uint32_t value;
};
constexpr magic_word magic_words[] = {{4, 86},  {16, 65}, {20, 76}, {24, 73},
                                      {32, 68}, {40, 65}, {48, 84}, {56, 49}};

template <typename T>
int sign_of(T first, T second) {
  return first < second ? -1 : first > second ? 1 : 0;
}

// 8 bytes of a number in the file's order, as a native integer.
std::uint64_t load64(bool little_endian, const unsigned char* at) {
  std::uint64_t a = report_load32(little_endian, at);
  std::uint64_t b = report_load32(little_endian, at + 4);
  return little_endian ? a | b << 32 : b | a << 32;
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
order compare_floats(T first, T second) {
  bool unordered = std::isnan(first) || std::isnan(second);
  return {unordered ? 1 : sign_of(first, second), unordered};
}

order compare_values(const file_header& header, int type, const entry_head& first, const entry_head& second) {
  bool little = header.little_endian;
  const unsigned char* a = first.value.data();
  const unsigned char* b = second.value.data();
  switch (type) {
    case 1: return {compare_folded(first, second), false};
    case 3:
    case 5:
      return {sign_of(static_cast<std::int32_t>(report_load32(little, a)), static_cast<std::int32_t>(report_load32(little, b))), false};
    case 4:
      return {sign_of(static_cast<std::int16_t>(report_load16(little, a)), static_cast<std::int16_t>(report_load16(little, b))), false};
    case 6: return compare_floats(from_bits<float>(report_load32(little, a)), from_bits<float>(report_load32(little, b)));
    case 7: return compare_floats(from_bits<double>(load64(little, a)), from_bits<double>(load64(little, b)));
    case 10: return {sign_of(report_load16(little, a), report_load16(little, b)), false};
    case 0:
    case 9: return {compare_bytes(first, second, 0), false};
    default: return {compare_bytes(first, second, 1), false};
  }
}

}  // namespace

std::uint16_t report_load16(bool little_endian, const unsigned char* at) {
  return static_cast<std::uint16_t>(little_endian ? at[0] | at[1] << 8 : at[1] | at[0] << 8);
}

std::uint32_t report_load32(bool little_endian, const unsigned char* at) {
  std::uint32_t first = report_load16(little_endian, at);
  std::uint32_t second = report_load16(little_endian, at + 2);
  return little_endian ? first | second << 16 : second | first << 16;
}

bool read_report_header(const report_reader& reader, file_header* header, std::string* reason) {
  unsigned char bytes[header_size];
  if (!read_bytes(reader, 0, bytes, sizeof bytes)) {
    *reason = "is too short for a header";
    return false;
  }
  *header = file_header();
  header->little_endian = bytes[8] == 1;
  bool little = header->little_endian;
  for (const magic_word& word : magic_words) {
    if (report_load32(little, bytes + word.offset) != word.value) {
      *reason = "isn't a record file: no check word in its header";
      return false;
    }
  }
  auto field = [&](std::size_t offset) { return static_cast<std::int32_t>(report_load32(little, bytes + offset)); };
  header->generation = report_load32(little, bytes);
  header->root = field(12);
  header->depth = field(28);
  header->nextnode = field(36);
  header->nextrec = field(44);
  header->extent = field(52);
  header->freenode = field(60);
  header->freerecs = field(64);
  header->reccount = field(68);
  header->infolen = field(72);
  header->transhead = field(344);
  header->savedhead = field(348);
  std::copy(bytes + 192, bytes + 214, header->key_types.begin());
  header->size = reader.size;
  unsigned char flag[2] = {};
  if (read_bytes(reader, flag_offset, flag, sizeof flag))
    header->write_flag = report_load16(true, flag) == flag_value || report_load16(false, flag) == flag_value;
  return true;
}

bool read_report_node(const report_reader& reader, const file_header& header, std::int32_t number, report_node* node) {
  std::uint64_t offset = page_size + page_size * static_cast<std::uint64_t>(number);
  if (!read_bytes(reader, offset, node->bytes.data(), node->bytes.size())) return false;
  bool little = header.little_endian;
  const unsigned char* at = node->bytes.data();
  node->number = number;
  node->child0 = static_cast<std::int32_t>(report_load32(little, at));
  node->next = static_cast<std::int32_t>(report_load32(little, at + 4));
  node->prev = static_cast<std::int32_t>(report_load32(little, at + 8));
  node->level = report_load16(little, at + 12);
  node->count = report_load16(little, at + 14);
  node->room = static_cast<std::int16_t>(report_load16(little, at + 16));
  return true;
}

int report_key_type(const file_header& header, int key) {
  if (key == key_locks) return 2;
  if (key >= key_rollback) return 0;
  return key >= 0 ? header.key_types[static_cast<std::size_t>(key)] & 0x1F : 0;
}

int report_value_size(int key_type, const unsigned char* at, int left) {
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

entry_outcome parse_entry(const file_header& header, const unsigned char* at, int left, report_entry* entry,
                          std::string* text) {
  if (left <= 0 || at[0] == 0) return entry_outcome::end;
  int length = at[0];
  if (length > left - 1) {
    *text = "an entry of " + std::to_string(length + 1) + " bytes runs out of the node, which has " +
            std::to_string(left) + " left";
    return entry_outcome::damaged;
  }
  if (length < 7) {
    *text = "an entry of " + std::to_string(length + 1) + " bytes is shorter than any can be";
    return entry_outcome::damaged;
  }
  entry->size = length + 1;
  entry->key = at[1];
  entry->piece_byte = at[2];
  entry->piece = at[2] & 0x7F;
  entry->last = (at[2] & 0x80) != 0;
  entry->rec = static_cast<std::int32_t>(report_load32(header.little_endian, at + 3));
  if (entry->key < 1 || entry->key > key_locks || entry->key == key_unused) {
    *text = "an entry has key number " + std::to_string(entry->key) + ", which isn't in use";
    return entry_outcome::damaged;
  }
  entry->value = at + 7;
  entry->value_size = report_value_size(report_key_type(header, entry->key), at + 7, length - 6);
  if (entry->value_size < 0) {
    *text = "an entry of key number " + std::to_string(entry->key) + " is too short for its key value";
    return entry_outcome::damaged;
  }
  entry->data = entry->value + entry->value_size;
  entry->data_size = length - 6 - entry->value_size;
  return entry_outcome::entry;
}

entry_head head_of(const report_entry& entry) {
  entry_head head;
  head.key = entry.key;
  head.piece_byte = entry.piece_byte;
  head.rec = entry.rec;
  head.value_size = entry.value_size;
  head.value.fill(0);
  std::memcpy(head.value.data(), entry.value, static_cast<std::size_t>(entry.value_size));
  return head;
}

order compare_heads(const file_header& header, const entry_head& first, const entry_head& second) {
  if (first.key != second.key) return {sign_of(first.key, second.key), false};
  order by_value = compare_values(header, report_key_type(header, first.key), first, second);
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

}  // namespace zvrdb::engine
