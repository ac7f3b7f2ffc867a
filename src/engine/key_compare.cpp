#include "engine/key_compare.h"

#include <cstring>

#include "engine/composite_key.h"

namespace zvrdb::engine {
namespace {

template <class T>
int sign_of(T a, T b) {
  return a < b ? -1 : a > b ? 1 : 0;
}

int sign(int v) { return v < 0 ? -1 : v > 0 ? 1 : 0; }

int compare_without_case(const std::uint8_t* a, const std::uint8_t* b) {
  for (;; ++a, ++b) {
    const int d = folded(*a) - folded(*b);
    if (d != 0 || *a == 0) return sign(d);
  }
}

int compare_counted(const std::uint8_t* a, const std::uint8_t* b) {
  const int shorter = a[0] < b[0] ? a[0] : b[0];
  const int d = std::memcmp(a + 1, b + 1, static_cast<std::size_t>(shorter));
  return d != 0 ? sign(d) : sign(a[0] - b[0]);
}

template <class F, class U>
int compare_floats(const std::uint8_t* a, const std::uint8_t* b, byte_order o) {
  const F x = std::bit_cast<F>(load<U>(a, o));
  const F y = std::bit_cast<F>(load<U>(b, o));
  if (x < y) return -1;
  return x == y ? 0 : 1;
}

}  // namespace

bool has_length_byte(int type) {
  return type == kt_bytes || type == kt_composite || (type >= kt_bytes_16 && type <= kt_bytes_20);
}

int fixed_key_length(int type) {
  switch (type) {
    case kt_int32:
    case kt_int32_too:
    case kt_float:
      return 4;
    case kt_int16:
    case kt_uint16:
      return 2;
    case kt_double:
      return 8;
    case kt_six:
      return 6;
    default:
      return 0;
  }
}

std::uint8_t folded(std::uint8_t c) {
  return c >= 'A' && c <= 'Z' ? static_cast<std::uint8_t>(c + ('a' - 'A')) : c;
}

bool key_type_is_known(int type) { return fixed_key_length(type) != 0 || has_length_byte(type) || type <= kt_string_nocase; }

bool key_type_is_numeric(int type) { return fixed_key_length(type) != 0 && type != kt_six; }

bool is_totally_ordered(int type) { return type != kt_float && type != kt_double && type != kt_composite; }

int key_value_length(int type, const std::uint8_t* value, int avail) {
  const int fixed = fixed_key_length(type);
  if (fixed != 0) return fixed <= avail ? fixed : -1;
  if (avail < 1) return -1;
  if (has_length_byte(type)) return value[0] + 1 <= avail ? value[0] + 1 : -1;
  if (type != kt_string && type != kt_string_nocase) return -1;
  const void* end = std::memchr(value, 0, static_cast<std::size_t>(avail));
  return end == nullptr ? -1 : static_cast<int>(static_cast<const std::uint8_t*>(end) - value) + 1;
}

int caller_key_length(int type, const std::uint8_t* value) {
  if (type != kt_string && type != kt_string_nocase) return key_value_length(type, value, 256);
  return static_cast<int>(strnlen(reinterpret_cast<const char*>(value), max_key_value)) + 1;
}

int compare_values(int type, byte_order o, const std::uint8_t* a, const std::uint8_t* b) {
  switch (type) {
    case kt_string:
      return sign(std::strcmp(reinterpret_cast<const char*>(a), reinterpret_cast<const char*>(b)));
    case kt_string_nocase:
      return compare_without_case(a, b);
    case kt_int32:
    case kt_int32_too:
      return sign_of(load32s(a, o), load32s(b, o));
    case kt_int16:
      return sign_of(static_cast<std::int16_t>(load16(a, o)), static_cast<std::int16_t>(load16(b, o)));
    case kt_uint16:
      return sign_of(load16(a, o), load16(b, o));
    case kt_float:
      return compare_floats<float, std::uint32_t>(a, b, o);
    case kt_double:
      return compare_floats<double, std::uint64_t>(a, b, o);
    case kt_six:
      return sign(std::memcmp(a, b, 6));
    default:
      return has_length_byte(type) ? compare_counted(a, b) : 0;
  }
}

void convert_value(int type, const std::uint8_t* from, std::uint8_t* to, int length, byte_order from_order,
                   byte_order to_order) {
  if (from_order == to_order || !key_type_is_numeric(type)) {
    std::memmove(to, from, static_cast<std::size_t>(length));
    return;
  }
  switch (length) {
    case 2:
      return store16(to, load16(from, from_order), to_order);
    case 4:
      return store32(to, load32(from, from_order), to_order);
    default:
      return store<std::uint64_t>(to, load<std::uint64_t>(from, from_order), to_order);
  }
}

entry_sign entrycmp(const std::uint8_t* entry, const target& t, bool in_leaf) {
  if (const int d = entry[entry_at::key] - t.keyno; d != 0) return {sign(d), sign(d)};
  if (t.edge != 0) return {-t.edge, -t.edge};
  const std::uint8_t* value = entry + entry_at::value;
  const int by_value = t.segments == nullptr ? compare_values(t.type, t.order, value, t.key)
                                             : compare_composite(t.segments, t.order, value, t.key);
  if (by_value != 0) return {by_value, by_value};
  const int by_record = sign_of(entry_record(entry, t.order), t.recno);
  if (by_record != 0) return {by_record, 0};
  // Piece 128, the last of the longest values, has the byte of a lone piece 0.  A piece
  // above 0 is only looked for in a value of many pieces, and there it comes last.  A
  // separator may be left from an earlier value of one piece, so it counts as it reads.
  const std::uint8_t byte = entry[entry_at::piece];
  const int piece = in_leaf && byte == last_piece && t.piece > 0 ? max_pieces - 1 : byte & piece_number;
  return {sign_of(piece, t.piece), 0};
}

int compare_entries(const PSP* h, const std::uint8_t* a, const std::uint8_t* b) {
  if (const int d = a[entry_at::key] - b[entry_at::key]; d != 0) return sign(d);
  const int by_value = compare_key_values(h, a[entry_at::key], a + entry_at::value, b + entry_at::value);
  if (by_value != 0) return by_value;
  return sign_of(entry_record(a, h->order), entry_record(b, h->order));
}

}  // namespace zvrdb::engine
