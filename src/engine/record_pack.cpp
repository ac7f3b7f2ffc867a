#include "engine/record_pack.h"

#include <algorithm>
#include <cstring>

#include "engine/composite_key.h"
#include "engine/key_compare.h"

namespace zvrdb::engine {
namespace {

constexpr int longest_field = 31232;
constexpr int longest_key_field = 242;
constexpr int longest_binary_key = 241;

bool is_field_type(char type) { return type != 0 && std::strchr("ESBMXIHULFD", type) != nullptr; }

void convert_number(const std::uint8_t* from, std::uint8_t* to, char type, byte_order a, byte_order b) {
  const int n = value_size(type);
  if (n == 0) return;   // a composite key has no bytes of its own
  if (a == b || type == 'M') {
    std::memcpy(to, from, static_cast<std::size_t>(n));
  } else if (n == 2) {
    store16(to, load16(from, a), b);
  } else if (n == 4) {
    store32(to, load32(from, a), b);
  } else {
    store<std::uint64_t>(to, load<std::uint64_t>(from, a), b);
  }
}

std::int64_t string_length(const field& f) {
  return static_cast<std::int64_t>(std::strlen(static_cast<const char*>(f.fdata)));
}

bool is_empty_value(const field& f) {
  if (f.fdata == nullptr) return true;
  const char type = type_char(f);
  if (type == 'B') return f.flen <= 0;
  if (type == 'S') return *static_cast<const char*>(f.fdata) == '\0';
  if (type == 'D' || type == 'F') {
    double d = 0;
    float s = 0;
    std::memcpy(type == 'D' ? static_cast<void*>(&d) : &s, f.fdata, type == 'D' ? sizeof d : sizeof s);
    return type == 'D' ? d == 0 : s == 0;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(f.fdata);
  return std::all_of(bytes, bytes + value_size(type), [](std::uint8_t b) { return b == 0; });
}

bool is_stored(const field& f) {
  if (is_taken_out(f)) return false;
  return is_key_field(f) || !is_empty_value(f);
}

std::uint16_t list_checksum(const field* fields) {
  std::uint16_t sum = 0;
  for (; !is_list_end(*fields); ++fields) {
    sum = checksum_step(sum, static_cast<std::int8_t>(type_char(*fields)));
    sum = checksum_step(sum, static_cast<std::int8_t>(fields->fkeytype));
    sum = checksum_step(sum, static_cast<std::int8_t>(fields->fdup));
    sum = checksum_step(sum, static_cast<std::int8_t>(fields->fkey));
  }
  return sum;
}

// What came more than fifteen bytes before the end is shifted out of the sum.
const std::uint8_t* checksum_start(const std::uint8_t* record, std::int32_t length) {
  constexpr std::int32_t felt = 16;
  return record + std::max<std::int32_t>(packed_at::type, length - felt);
}

std::uint16_t record_checksum(const std::uint8_t* record, std::int32_t length) {
  std::uint16_t sum = 0;
  for (const std::uint8_t* p = checksum_start(record, length); p < record + length; ++p)
    sum = checksum_step(sum, static_cast<std::int8_t>(*p));
  return sum;
}

std::uint16_t unsigned_checksum(const std::uint8_t* record, std::int32_t length) {
  std::uint16_t sum = 0;
  for (const std::uint8_t* p = checksum_start(record, length); p < record + length; ++p)
    sum = static_cast<std::uint16_t>(static_cast<std::uint16_t>(sum + *p) << 1);
  return sum;
}

int check_descriptor(const PSP* h, const field& f, bool writing) {
  const char type = type_char(f);
  if (!is_field_type(type)) return e_field_type;
  if (f.fkey < keytypes_size && !key_type_fits(h, f.fkey, f.fkeytype)) return e_key_type;
  if (f.fkeytype != 'N' && f.fkeytype != 'E' && (type == 'X') != (f.fkeytype == kt_composite)) return e_field_type;
  if (f.fdup != 'D' && f.fdup != 'U' && f.fdup != 'N') return e_duplicates_flag;
  if (writing) {
    const bool key = f.fkeytype != 'N' && f.fkeytype != 'E';
    if (f.flen < 0 || f.flen > longest_field || (key && f.flen > longest_key_field)) return e_field_length;
    if (type == 'S' && f.fdata != nullptr && string_length(f) + 1 > f.flen) return e_too_long;
  }
  return f.fkey < 16 ? e_ok : e_key_number;
}

int check_list(const PSP* h, const field* fields, bool writing) {
  if (fields == nullptr) return e_bad_argument;
  int result = e_ok;
  for (; result == e_ok && !is_list_end(*fields); ++fields) result = check_descriptor(h, *fields, writing);
  return result;
}

void clear_value(const field& f) {
  if (f.fdata == nullptr) return;
  const char type = type_char(f);
  if (type == 'S') {
    *static_cast<char*>(f.fdata) = '\0';
  } else {
    std::memset(f.fdata, 0, static_cast<std::size_t>(value_size(type)));
  }
}

void copy_out(const PSP* h, field& f, const stored_field& s) {
  const char type = type_char(f);
  if (type == 'B') f.flen = static_cast<std::int16_t>(s.length);
  if (f.fdata == nullptr) return;
  if (type == 'B') {
    std::memcpy(f.fdata, s.value, static_cast<std::size_t>(s.length));
  } else if (type == 'S') {
    if (f.flen <= 0) return;
    std::memcpy(f.fdata, s.value, static_cast<std::size_t>(std::min<std::int32_t>(s.length, f.flen)));
    static_cast<char*>(f.fdata)[f.flen - 1] = '\0';
  } else {
    convert_number(s.value, static_cast<std::uint8_t*>(f.fdata), type, h->order, native_order);
  }
}

}  // namespace

int value_size(char type) {
  switch (type) {
    case 'D':
      return 8;
    case 'F':
    case 'I':
    case 'L':
      return 4;
    case 'H':
    case 'U':
      return 2;
    case 'M':
      return 6;
    default:
      return 0;
  }
}

bool key_type_fits(const PSP* h, int key, char key_type) {
  if (key_type == 'N' || key_type == 'E') return true;
  const std::uint8_t stored = h->keytypes[key];
  if ((stored & key_type_mask) == kt_composite && (key < 1 || segments_of(h, key) == nullptr)) return false;
  if (key_type == 'S') return stored == 0;
  return static_cast<std::uint8_t>(key_type) == stored && key_type_is_known(stored & key_type_mask);
}

int check_list_for_writing(const PSP* h, const field* fields) { return check_list(h, fields, true); }
int check_list_for_reading(const PSP* h, const field* fields) { return check_list(h, fields, false); }

std::int64_t packrec(const PSP* h, std::uint8_t* buffer, const field* fields, std::uint8_t type,
                     std::int64_t capacity) {
  const field* const list = fields;
  std::int64_t at = packed_at::fields;
  if (capacity < at) return -1;
  if (buffer != nullptr) buffer[packed_at::type] = type;
  for (int i = 0; !is_list_end(*fields); ++fields, ++i) {
    if (!is_stored(*fields)) continue;
    const char t = type_char(*fields);
    const bool counted = t == 'B';
    // A key field without data is stored as an empty value.
    const bool absent = fields->fdata == nullptr;
    std::int64_t n = value_size(t);
    if (counted) n = absent ? 0 : std::max<std::int64_t>(fields->flen, 0);
    if (t == 'S') n = absent ? 1 : string_length(*fields) + 1;
    if (at + 2 + (counted ? 2 : 0) + n > capacity) return -1;
    if (buffer != nullptr) {
      store16(buffer + at, static_cast<std::uint16_t>(i), h->order);
      if (counted) store16(buffer + at + 2, static_cast<std::uint16_t>(n), h->order);
      std::uint8_t* value = buffer + at + (counted ? 4 : 2);
      if (absent) {
        std::memset(value, 0, static_cast<std::size_t>(n));
      } else if (counted || t == 'S') {
        std::memcpy(value, fields->fdata, static_cast<std::size_t>(n));
      } else {
        convert_number(static_cast<const std::uint8_t*>(fields->fdata), value, t, native_order, h->order);
      }
    }
    at += 2 + (counted ? 2 : 0) + n;
  }
  if (at + 2 > capacity) return -1;
  if (buffer == nullptr) return at + 2;
  store16(buffer + at, packed_end, h->order);
  at += 2;
  store16(buffer + packed_at::list_checksum, list_checksum(list), h->order);
  store16(buffer + packed_at::record_checksum, record_checksum(buffer, static_cast<std::int32_t>(at)), h->order);
  return at;
}

int check_packed(const PSP* h, const std::uint8_t* record, std::int32_t length, const field* fields) {
  if (length < packed_at::fields) return e_checksum;
  const std::uint16_t stored = load16(record + packed_at::record_checksum, h->order);
  if (stored != record_checksum(record, length) && stored != unsigned_checksum(record, length)) return e_checksum;
  if (h->checks && load16(record + packed_at::list_checksum, h->order) != list_checksum(fields)) return e_field_list;
  return e_ok;
}

packed_reader read_packed(const PSP* h, const std::uint8_t* record, std::int32_t length, const field* fields) {
  int count = 0;
  while (!is_list_end(fields[count])) ++count;
  return {h, record, length, packed_at::fields, fields, count, -1};
}

int next_stored(packed_reader* r, stored_field* out) {
  out->index = -1;
  if (r->at + 2 > r->length) return e_field_list;
  const std::uint16_t index = load16(r->record + r->at, r->h->order);
  if (index == packed_end) return e_ok;
  if (index > 0x7FFF || index >= r->count || index <= r->last) return e_field_list;
  r->at += 2;
  const std::uint8_t* value = r->record + r->at;
  const std::int32_t left = r->length - r->at;
  const char type = type_char(r->fields[index]);
  std::int32_t n = value_size(type);
  if (type == 'B') {
    if (left < 2) return e_field_list;
    n = load16(value, r->h->order);
    value += 2;
    r->at += 2;
    if (n > 0x7FFF) return e_field_list;
  } else if (type == 'S') {
    const void* end = std::memchr(value, 0, static_cast<std::size_t>(left));
    if (end == nullptr) return e_field_list;
    n = static_cast<std::int32_t>(static_cast<const std::uint8_t*>(end) - value) + 1;
  }
  if (n > r->length - r->at) return e_field_list;
  r->at += n;
  r->last = index;
  *out = {index, value, n};
  return e_ok;
}

int unpackrec(PSP* h, const std::uint8_t* record, std::int32_t length, field* fields) {
  const int good = check_packed(h, record, length, fields);
  if (good != e_ok) return good;
  for (const field* f = fields; !is_list_end(*f); ++f) clear_value(*f);
  h->rectype = record[packed_at::type];
  packed_reader r = read_packed(h, record, length, fields);
  for (;;) {
    stored_field s;
    const int result = next_stored(&r, &s);
    if (result != e_ok || s.index < 0) return result;
    copy_out(h, fields[s.index], s);
  }
}

bool key_of_stored(const field& f, const stored_field& s, bool cut, key_value out) {
  std::memset(out, 0, key_value_buffer);
  const int type = f.fkeytype == 'S' ? 0 : f.fkeytype & key_type_mask;
  const bool counted = type == kt_bytes || (type >= kt_bytes_16 && type <= kt_bytes_20);
  std::int32_t n = s.length;
  if (counted && type_char(f) == 'B') {
    if (n > longest_binary_key && !cut) return false;
    n = std::min<std::int32_t>(n, longest_binary_key);
    out[0] = static_cast<std::uint8_t>(n);
    std::memcpy(out + 1, s.value, static_cast<std::size_t>(n));
    return true;
  }
  std::memcpy(out, s.value, static_cast<std::size_t>(std::min<std::int32_t>(n, max_key_value)));
  return true;
}

}  // namespace zvrdb::engine
