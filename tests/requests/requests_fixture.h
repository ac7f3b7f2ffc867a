// An installation with some targets, and the calls on requests and correlators in short
// form.  What is handed over lies in memory of just its length, so that a read or a write
// beyond it is noticed.
#pragma once

#include <zvrdb/records.h>

#include <cstdint>
#include <string>
#include <vector>

#include "targets/targets_fixture.h"

namespace request_test {

using bytes = std::vector<unsigned char>;
using target_test::numbered;

// Bits of a filter's mask, as clients know them.
constexpr unsigned wild_source = 1, wild_user = 2, wild_sequence = 4, wild_recursion = 8, wild_function = 16,
                   wild_server = 32, wild_target = 64, wild_rgn = 128, wild_ren = 256;

struct Type {
  std::uint32_t db_id;
  const char* suffix;
  std::size_t id_len;
  std::size_t record_len;
  std::vector<unsigned> parts;  // bits in key order
  unsigned all() const {
    unsigned mask = 0;
    for (const unsigned part : parts) mask |= part;
    return mask;
  }
};
const std::vector<Type>& request_types();
const Type& type_of(std::uint32_t db_id);

// An identifier, or a filter.
struct Id {
  std::string user = "USER";
  std::string source = "SRC";
  std::uint32_t sequence = 1;
  std::uint16_t recursion = 0;
  std::string function = "FUNC";
  std::string rgn = "RGN1", ren = "REN1";
  std::string domain = "SRV";
  std::string target = "T1";

  // As far as the type's identifier goes.
  bytes of(std::uint32_t db_id) const;
  // The same with these parts wild.
  Id wild(unsigned mask) const;
  // "SRC.USER.1.0.FUNC", and what the type has behind it.
  std::string text(std::uint32_t db_id) const;
  static Id read(std::uint32_t db_id, const bytes& record);
};
Id everything();  // a filter with all parts wild

void put_text(bytes& record, std::size_t offset, std::size_t width, const std::string& text);
template <class Number>
void put_number(bytes& record, std::size_t offset, Number value) {
  std::memcpy(record.data() + offset, &value, sizeof value);
}
template <class Number>
Number number_at(const bytes& record, std::size_t offset) {
  Number value;
  std::memcpy(&value, record.data() + offset, sizeof value);
  return value;
}
std::string text_at(const bytes& record, std::size_t offset, std::size_t width);

// A whole record of the type whose blocks are filled: what can be stored differs from
// seed to seed.
bytes full_record(std::uint32_t db_id, const Id& id, unsigned seed = 1);
// A record of the identifier and 8 bytes of its own behind it.
bytes short_record(std::uint32_t db_id, const Id& id, std::uint64_t content);

struct Listed {
  int rc;  // of db_init_list
  std::vector<std::string> ids;
  int end;  // of the last db_get_more
};

class RequestsTest : public target_test::TargetsTest {
 protected:
  static constexpr std::size_t list_len = 332;

  void SetUp() override;

  static int put_on(void* own, std::uint32_t db_id, const Id& id, const bytes& record);
  int put_request(std::uint32_t db_id, const Id& id, std::uint64_t content = 1);
  int put_record(std::uint32_t db_id, const Id& id, const bytes& record);
  int get_request(std::uint32_t db_id, const Id& id, bytes& buffer);
  int del_request(std::uint32_t db_id, const Id& id);
  bool there(std::uint32_t db_id, const Id& id);

  int begin(std::uint32_t db_id, const Id& filter, bytes& state);
  int more(std::uint32_t db_id, bytes& state, Id* found);
  Listed list(std::uint32_t db_id, const Id& filter);
  // Identifiers of all records of a type.
  std::vector<std::string> all(std::uint32_t db_id);
  // All records of all six types, with a number that stands for their contents.
  std::vector<std::string> everything_stored();

  // Names of the functions that the work enters, in order.
  std::vector<std::string> entered(const std::function<void()>& work);

  // ---- correlators
  static db_coo correlator_of(const Id& id, const std::string& origin = "ORIGIN");
  int put_correlator(const Id& id, std::uint32_t sequence);
  bool has_correlator(const Id& id);
};

}  // namespace request_test
