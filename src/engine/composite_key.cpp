#include "engine/composite_key.h"

#include <algorithm>
#include <cstring>

#include "engine/key_compare.h"
#include "engine/record_pack.h"

namespace zvrdb::engine {
namespace {

constexpr int no_limit = 242;   // what a maximum of 0 stands for

bool is_text(int type) { return type == kt_string || type == kt_string_nocase; }

// Bytes of a segment of which at most `left` (above 0) are there; 0: it is not there whole.
int bytes_of_segment(int type, const std::uint8_t* at, int left) {
  if (const int fixed = fixed_key_length(type); fixed != 0) return fixed <= left ? fixed : 0;
  if (has_length_byte(type)) return std::min(at[0] + 1, left);
  if (!is_text(type)) return 0;
  const void* end = std::memchr(at, 0, static_cast<std::size_t>(left));
  return end == nullptr ? left : static_cast<int>(static_cast<const std::uint8_t*>(end) - at) + 1;
}

// Text of n bytes at most, of which a NUL may be the last.
int compare_text(const std::uint8_t* a, int na, const std::uint8_t* b, int nb, bool fold) {
  for (int i = 0;; ++i) {
    const int x = i < na ? (fold ? folded(a[i]) : a[i]) : 0;
    const int y = i < nb ? (fold ? folded(b[i]) : b[i]) : 0;
    if (x != y) return x < y ? -1 : 1;
    if (x == 0) return 0;
  }
}

int compare_segment(int type, byte_order order, const std::uint8_t* a, int na, const std::uint8_t* b, int nb) {
  if (is_text(type)) return compare_text(a, na, b, nb, type == kt_string_nocase);
  if (!has_length_byte(type)) return compare_values(type, order, a, b);
  const int d = std::memcmp(a + 1, b + 1, static_cast<std::size_t>(std::min(na, nb) - 1));
  if (d != 0) return d < 0 ? -1 : 1;
  return na < nb ? -1 : na > nb ? 1 : 0;
}

// Where a value being built stands.
struct builder {
  std::uint8_t* out;
  int total;   // bytes behind the length byte

  bool room_for(int n) const { return total + n <= longest_composite; }
  std::uint8_t* take(int n) {
    std::uint8_t* at = out + 1 + total;
    total += n;
    return at;
  }
};

// Whether a field of that type can make a segment of that one.
bool segment_fits(int type, char field_type) {
  switch (type) {
    case kt_string:
    case kt_string_nocase:
      return field_type == 'S';
    case kt_int32:
    case kt_int32_too:
    case kt_float:
      return field_type == 'F' || field_type == 'I' || field_type == 'L';
    case kt_int16:
    case kt_uint16:
      return field_type == 'H' || field_type == 'U';
    case kt_double:
      return field_type == 'D';
    case kt_six:
      return field_type == 'M';
    default:
      return type != kt_composite && has_length_byte(type) && field_type == 'B';
  }
}

// Appends a segment; `value` null stands for an empty one or zero.
int append(builder* b, const segment& s, const std::uint8_t* value, std::int32_t length) {
  const int most = s.max_length == 0 ? no_limit : s.max_length;
  int n = fixed_key_length(s.type);
  if (n != 0) {
    if (!b->room_for(n)) return e_too_long;
    std::uint8_t* at = b->take(n);
    if (value != nullptr) {
      std::memcpy(at, value, static_cast<std::size_t>(n));
    } else {
      std::memset(at, 0, static_cast<std::size_t>(n));
    }
    return e_ok;
  }
  n = value == nullptr ? 0 : std::min<std::int32_t>(length, most);
  if (!b->room_for(n + 1)) return e_too_long;
  std::uint8_t* at = b->take(n + 1);
  if (!is_text(s.type)) *at++ = static_cast<std::uint8_t>(n);
  if (n > 0) std::memcpy(at, value, static_cast<std::size_t>(n));
  if (is_text(s.type)) at[n] = 0;
  return e_ok;
}

// The bytes of a stored field that has an index; null when it isn't stored.
int find_stored(const PSP* h, const std::uint8_t* record, std::int32_t length, const field* fields, int index,
                stored_field* out) {
  packed_reader r = read_packed(h, record, length, fields);
  for (;;) {
    const int result = next_stored(&r, out);
    if (result != e_ok || out->index == index) return result;
    if (out->index >= 0 && out->index < index) continue;
    out->value = nullptr;
    out->length = 0;
    return e_ok;
  }
}

// Text without its NUL.
std::int32_t bare_length(const segment& s, const std::uint8_t* value, std::int32_t length) {
  return is_text(s.type) && length > 0 && value[length - 1] == 0 ? length - 1 : length;
}

std::int32_t list_length(const field& f) {
  if (type_char(f) == 'B') return std::max<std::int32_t>(f.flen, 0);
  if (type_char(f) == 'S') return static_cast<std::int32_t>(strnlen(static_cast<const char*>(f.fdata), no_limit));
  return 0;
}

int count_fields(const field* fields) {
  int n = 0;
  while (!is_list_end(fields[n])) ++n;
  return n;
}

// What a table and a list must agree on before a value is built: the field of each segment.
int check_segment(const segment& s, const field* fields, int count) {
  if (s.field < 0 || s.field >= count) return e_no_field;
  return segment_fits(s.type, type_char(fields[s.field])) ? e_ok : e_segments;
}

}  // namespace

bool lacks_segments(const PSP* h) {
  for (int key = 1; key < key_rollback; ++key)
    if (type_of_key(h, key) == kt_composite && h->segments[key - 1] == nullptr) return true;
  return false;
}

int compare_composite(const segment* table, byte_order order, const std::uint8_t* a, const std::uint8_t* b) {
  int left_a = *a++;
  int left_b = *b++;
  for (; table->type != segment_end && left_a > 0 && left_b > 0; ++table) {
    const int na = bytes_of_segment(table->type, a, left_a);
    const int nb = bytes_of_segment(table->type, b, left_b);
    if (na == 0 || nb == 0) return 0;
    const int sign = compare_segment(table->type, order, a, na, b, nb);
    if (sign != 0) return table->descending != 0 ? -sign : sign;
    a += na;
    b += nb;
    left_a -= na;
    left_b -= nb;
  }
  return 0;
}

void convert_composite(const segment* table, const std::uint8_t* from, std::uint8_t* to, int length,
                       byte_order from_order, byte_order to_order) {
  std::memmove(to, from, static_cast<std::size_t>(length));
  if (from_order == to_order) return;
  for (int at = 1; at < length && table->type != segment_end; ++table) {
    const int n = bytes_of_segment(table->type, to + at, length - at);
    if (n == 0) return;
    convert_value(table->type, to + at, to + at, n, from_order, to_order);
    at += n;
  }
}

int compare_key_values(const PSP* h, int key, const std::uint8_t* a, const std::uint8_t* b) {
  if (const segment* table = segments_of(h, key)) return compare_composite(table, h->order, a, b);
  return compare_values(type_of_key(h, key), h->order, a, b);
}

void convert_key_value(const PSP* h, int key, const std::uint8_t* from, std::uint8_t* to, int length,
                       byte_order from_order, byte_order to_order) {
  if (const segment* table = segments_of(h, key)) {
    convert_composite(table, from, to, length, from_order, to_order);
  } else {
    convert_value(type_of_key(h, key), from, to, length, from_order, to_order);
  }
}

int composite_of_list(const PSP* h, int key, const field* fields, std::uint8_t* out) {
  const segment* table = segments_of(h, key);
  if (table == nullptr) return e_segments;
  const int count = count_fields(fields);
  builder b{out, 0};
  for (; table->type != segment_end; ++table) {
    if (const int good = check_segment(*table, fields, count); good != e_ok) return good;
    const field& f = fields[table->field];
    // As it is built from the record, where such a field isn't stored.
    const bool out_of_record = is_taken_out(f);
    if (!out_of_record && f.fdata == nullptr) return e_no_field;
    const auto* value = out_of_record ? nullptr : static_cast<const std::uint8_t*>(f.fdata);
    const int result = append(&b, *table, value, out_of_record ? 0 : list_length(f));
    if (result != e_ok) return result;
  }
  out[0] = static_cast<std::uint8_t>(b.total);
  return e_ok;
}

int composite_of_record(const PSP* h, int key, const std::uint8_t* record, std::int32_t length, const field* fields,
                        std::uint8_t* out) {
  const segment* table = segments_of(h, key);
  if (table == nullptr) return e_segments;
  const int count = count_fields(fields);
  builder b{out, 0};
  for (; table->type != segment_end; ++table) {
    if (const int good = check_segment(*table, fields, count); good != e_ok) return good;
    stored_field s{};
    int result = find_stored(h, record, length, fields, table->field, &s);
    if (result == e_ok) result = append(&b, *table, s.value, bare_length(*table, s.value, s.length));
    if (result != e_ok) return result;
  }
  out[0] = static_cast<std::uint8_t>(b.total);
  return e_ok;
}

}  // namespace zvrdb::engine
