// Records of the record files, converted between the caller's form (internal) and the stored
// one (external).
//
// Input: the record type; 'p' to parse, 'u' to unparse; the room for the answer (2 bytes,
// little-endian); and the record to convert.  The targets "T1" to "T9" have the numbers 1 to 9.
#include <algorithm>

#include "fuzz_input.h"
#include "keyed/field_tables.h"
#include "keyed/keyed.h"
#include "memory/shared_tables_fixture.h"

namespace {

using namespace zvrdb;
using zvrfuzz::exact_copy;
using zvrfuzz::fuzz_input;
using zvrfuzz::guarded_bytes;

constexpr std::uint32_t most_bytes = 65535;

void* task() {
  static zvrtest::table_task tables;
  static const bool filled = [] {
    for (int i = 1; i <= 9; ++i) tables.add("T" + std::to_string(i));
    return true;
  }();
  return filled ? tables.task() : nullptr;
}

bool known(std::int16_t rc) {
  return rc == DBE_OK || rc == DBE_NO_TARGET || rc == DBE_NOT_FOUND || rc == DBE_BAD_RECORD ||
         rc == DBE_BUFFER_TOO_SMALL;
}

struct converted {
  std::int16_t rc;
  std::string bytes;
};

// Both stay in the bytes they are given, on either side, whatever these are.
converted parse(std::uint32_t db_id, const std::string& external, std::uint32_t room) {
  guarded_bytes internal(room);
  const auto stored = exact_copy(external);
  auto external_len = static_cast<std::uint32_t>(external.size());
  std::uint32_t internal_len = room;
  const std::int16_t rc =
      keyed::parse_keyed(task(), db_id, stored.get(), internal.data(), &external_len, &internal_len);
  FUZZ_EXPECT(known(rc) && internal.intact());
  return {rc, std::string(internal.text(), room)};
}

converted unparse(std::uint32_t db_id, const std::string& internal, std::uint32_t room) {
  guarded_bytes external(room);
  const auto record = exact_copy(internal);
  std::uint32_t length = room;
  const std::int16_t rc = keyed::unparse_keyed(task(), db_id, external.data(), record.get(), &length,
                                               static_cast<std::uint32_t>(internal.size()));
  FUZZ_EXPECT(known(rc) && external.intact() && length <= room);
  return {rc, std::string(external.text(), length)};
}

void tell_difference(std::uint32_t db_id, const std::string& one, const std::string& other) {
  if (one == other) return;
  const auto at = std::mismatch(one.begin(), one.end(), other.begin(), other.end()).first - one.begin();
  std::fprintf(stderr, "type %u: %zu and %zu bytes differ from byte %td on\n", db_id, one.size(),
               other.size(), at);
}

// A text that fills its field is stored with what stands behind the field, up to the first
// NUL: read back, the next fields lie on it.
bool texts_end_in_their_fields(std::uint32_t db_id, const std::string& internal) {
  for (const keyed::field_descriptor& field : keyed::field_table(db_id)) {
    if (field.type != keyed::data_type::text || field.parse) continue;
    for (std::uint32_t i = 0; i < std::max<std::uint32_t>(field.occ, 1); ++i)
      if (!std::memchr(internal.data() + field.offset + i * field.length, 0, field.length)) return false;
  }
  return true;
}

// What a whole record is stored as, is read and stored as the same bytes.
void round_trip(std::uint32_t db_id, const std::string& internal) {
  if (!texts_end_in_their_fields(db_id, internal)) return;
  const converted first = unparse(db_id, internal, most_bytes);
  if (first.rc != DBE_OK) return;
  const converted record = parse(db_id, first.bytes, most_bytes);
  FUZZ_EXPECT(record.rc == DBE_OK);
  const converted second = unparse(db_id, record.bytes, most_bytes);
  FUZZ_EXPECT(second.rc == DBE_OK);
  tell_difference(db_id, first.bytes, second.bytes);
  FUZZ_EXPECT(second.bytes == first.bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::uint32_t db_id = input.u8();
  const char way = static_cast<char>(input.u8());
  const std::uint32_t room = input.u16();
  const std::string record = input.rest().substr(0, most_bytes);
  if (keyed::field_table(db_id).empty()) return -1;
  if (way == 'p') {
    parse(db_id, record, room);
    const converted whole = parse(db_id, record, most_bytes);
    if (whole.rc == DBE_OK) round_trip(db_id, whole.bytes);
  } else if (way == 'u') {
    unparse(db_id, record, room);
    round_trip(db_id, record + std::string(most_bytes - record.size(), '\0'));
  }
  return 0;
}
