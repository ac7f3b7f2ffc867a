// Records as bytes, converted in buffers of exactly their length: a sanitizer sees each
// byte read or written beyond them, and guard bytes show the writes without one.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "keyed/field_tables.h"
#include "keyed/keyed.h"
#include "memory/shared_tables_fixture.h"

namespace zvrtest {

class record_bytes {
 public:
  explicit record_bytes(std::size_t length) : bytes_(length, 0) {}
  record_bytes& text(std::size_t offset, const std::string& value) {
    std::memcpy(bytes_.data() + offset, value.data(), value.size());
    return *this;
  }
  template <class Number>
  record_bytes& number(std::size_t offset, Number value) {
    std::memcpy(bytes_.data() + offset, &value, sizeof value);
    return *this;
  }
  record_bytes& fill(std::size_t offset, std::size_t length, unsigned char value) {
    std::fill_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), length, value);
    return *this;
  }
  template <class Number>
  Number number_at(std::size_t offset) const {
    Number value;
    std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
  }
  std::string text_at(std::size_t offset, std::size_t width) const {
    const char* at = reinterpret_cast<const char*>(bytes_.data() + offset);
    return std::string(at, strnlen(at, width));
  }
  unsigned char operator[](std::size_t at) const { return bytes_[at]; }
  const std::vector<unsigned char>& all() const { return bytes_; }
  std::vector<unsigned char>& all() { return bytes_; }
  std::size_t size() const { return bytes_.size(); }

 private:
  std::vector<unsigned char> bytes_;
};

struct conversion {
  int rc;
  std::vector<unsigned char> bytes;
};

// A buffer of exactly `length` bytes between guards.
class guarded_buffer {
 public:
  explicit guarded_buffer(std::size_t length, unsigned char content = 0)
      : length_(length), bytes_(std::make_unique<unsigned char[]>(length + 2 * guard)) {
    std::memset(bytes_.get(), 0xA5, length + 2 * guard);
    std::memset(data(), content, length);
  }
  unsigned char* data() { return bytes_.get() + guard; }
  std::size_t size() const { return length_; }
  bool intact() const {
    for (std::size_t i = 0; i < guard; ++i)
      if (bytes_[i] != 0xA5 || bytes_[guard + length_ + i] != 0xA5) return false;
    return true;
  }

 private:
  static constexpr std::size_t guard = 64;
  std::size_t length_;
  std::unique_ptr<unsigned char[]> bytes_;
};

inline conversion unparse(void* task, std::uint32_t db_id, const std::vector<unsigned char>& internal,
                          std::size_t room = zvrdb::keyed::external_capacity) {
  guarded_buffer external(room);
  auto length = static_cast<std::uint32_t>(room);
  // A copy of exactly its size: the vector may have more behind it.
  const std::unique_ptr<unsigned char[]> record(new unsigned char[internal.size()]);
  std::copy(internal.begin(), internal.end(), record.get());
  const int rc = zvrdb::keyed::unparse_keyed(task, db_id, external.data(), record.get(), &length,
                                             static_cast<std::uint32_t>(internal.size()));
  EXPECT_TRUE(external.intact()) << "db_id " << db_id;
  EXPECT_LE(length, room);
  return {rc,
          std::vector<unsigned char>(external.data(), external.data() + std::min<std::size_t>(length, room))};
}

inline conversion parse(void* task, std::uint32_t db_id, const std::vector<unsigned char>& external,
                        std::size_t internal_length) {
  guarded_buffer internal(internal_length);
  auto external_length = static_cast<std::uint32_t>(external.size());
  auto length = static_cast<std::uint32_t>(internal_length);
  const std::unique_ptr<unsigned char[]> stored(new unsigned char[external.size()]);
  std::copy(external.begin(), external.end(), stored.get());
  const int rc =
      zvrdb::keyed::parse_keyed(task, db_id, stored.get(), internal.data(), &external_length, &length);
  EXPECT_TRUE(internal.intact()) << "db_id " << db_id;
  return {rc, std::vector<unsigned char>(internal.data(), internal.data() + internal_length)};
}

inline record_bytes as_record(const conversion& parsed) {
  record_bytes record(parsed.bytes.size());
  record.all() = parsed.bytes;
  return record;
}

// A table of targets for the links: "T1" to "T9" have the numbers 1 to 9.
class ConversionTest : public ::testing::Test {
 protected:
  ConversionTest() {
    for (int i = 1; i <= 9; ++i) t.add("T" + std::to_string(i));
  }
  conversion unparsed(std::uint32_t db_id, const record_bytes& record,
                      std::size_t room = zvrdb::keyed::external_capacity) {
    return unparse(t.task(), db_id, record.all(), room);
  }
  conversion parsed(std::uint32_t db_id, const std::vector<unsigned char>& external, std::size_t length) {
    return parse(t.task(), db_id, external, length);
  }
  table_task t;
};

}  // namespace zvrtest
