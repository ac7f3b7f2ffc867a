// Text records through the exported calls.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "frame/frame_fixture.h"

namespace zvrtest {

inline constexpr std::uint16_t connection_len = 144;
inline constexpr std::uint16_t routes_len = 64004;

// A record of bytes, its fields by their offsets.
struct text_record {
  std::vector<unsigned char> bytes;

  explicit text_record(std::size_t length, unsigned char filler = 0) : bytes(length, filler) {}
  unsigned u8(std::size_t at) const { return bytes.at(at); }
  unsigned u16(std::size_t at) const { return number<std::uint16_t>(at); }
  std::uint32_t u32(std::size_t at) const { return number<std::uint32_t>(at); }
  std::string text(std::size_t at, std::size_t width) const {
    const char* begin = reinterpret_cast<const char*>(bytes.data()) + at;
    return std::string(begin, strnlen(begin, width));
  }
  text_record& set8(std::size_t at, unsigned value) { return set(at, static_cast<std::uint8_t>(value)); }
  text_record& set16(std::size_t at, unsigned value) { return set(at, static_cast<std::uint16_t>(value)); }
  text_record& set32(std::size_t at, std::uint32_t value) { return set(at, value); }
  text_record& set_text(std::size_t at, const std::string& value) {
    std::memcpy(bytes.data() + at, value.data(), value.size());
    return *this;
  }

 private:
  template <class Number>
  std::uint32_t number(std::size_t at) const {
    Number value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
  }
  template <class Number>
  text_record& set(std::size_t at, Number value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
    return *this;
  }
};

inline std::int16_t get_connection(void* task, const char* name, text_record& record, std::uint16_t length) {
  const void* keys[] = {name};
  return db_get(task, DB_SCN, 1, keys, record.bytes.data(), length);
}
inline std::int16_t put_connection(void* task, const char* name, text_record record) {
  const void* keys[] = {name};
  return db_put(task, DB_SCN, 1, keys, record.bytes.data(), connection_len);
}
inline std::int16_t get_single(void* task, std::uint32_t db_id, text_record& record) {
  return db_get(task, db_id, 0, nullptr, record.bytes.data(),
                static_cast<std::uint16_t>(record.bytes.size()));
}
inline std::int16_t put_single(void* task, std::uint32_t db_id, text_record record) {
  return db_put(task, db_id, 0, nullptr, record.bytes.data(),
                static_cast<std::uint16_t>(record.bytes.size()));
}

class TextRecordTest : public FrameTest {
 protected:
  TextRecordTest() : task("text") {
    std::filesystem::create_directory(installation.path("db/snadscon"));
    std::uint32_t number = 0;
    EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
  }
  void connection_file(const std::string& name, const std::string& text) {
    installation.write("db/snadscon/" + name, text);
  }
  client_task task;
};

}  // namespace zvrtest
