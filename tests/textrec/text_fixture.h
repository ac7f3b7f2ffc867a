// A task in a fresh installation, and texts parsed with what was told about them.
#pragma once

#include <gtest/gtest.h>
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/temp_installation.h"
#include "textrec/keyword_table.h"
#include "textrec/parse.h"

namespace zvrtest {

struct TextFault {
  std::uint32_t line;
  std::uint32_t number;
  std::string text;
};

struct ParsedText {
  std::int16_t rc;
  std::vector<unsigned char> record;
  std::vector<TextFault> faults;

  std::uint32_t u16(std::size_t at) const { return number<std::uint16_t>(at); }
  std::uint32_t u32(std::size_t at) const { return number<std::uint32_t>(at); }
  std::uint32_t u8(std::size_t at) const { return record.at(at); }
  // Bytes at `at` up to their NUL or the field's width.
  std::string text(std::size_t at, std::size_t width) const {
    const char* begin = reinterpret_cast<const char*>(record.data()) + at;
    return std::string(begin, strnlen(begin, width));
  }
  // Number of the first message, 0 when there was none.
  std::uint32_t message() const { return faults.empty() ? 0 : faults[0].number; }

 private:
  template <class Number>
  std::uint32_t number(std::size_t at) const {
    Number value = 0;
    std::memcpy(&value, record.data() + at, sizeof value);
    return value;
  }
};

class TextTest : public ::testing::Test {
 protected:
  TextTest() : task(co_init_task("textrec", nullptr, 1)) { EXPECT_NE(task, nullptr); }
  ~TextTest() override { coi_term_task(task, 0); }

  // The record is zeroed first, unless one is given.  The text lies in an area of just its
  // size, so that a step beyond it does not go unnoticed.
  ParsedText parsed(const zvrdb::textrec::keyword_entry* table, const std::string& text,
                    std::size_t record_len, std::vector<unsigned char> record = {}) {
    ParsedText result{0, std::move(record), {}};
    result.record.resize(record_len);
    std::vector<char> area(text.begin(), text.end());
    area.push_back('\n');
    area.push_back(0);
    const zvrdb::textrec::fault_sink sink = {note, &result.faults};
    result.rc = zvrdb::textrec::parse_checking(task, DB_SCN, "NAME", table, area.data(), result.record.data(),
                                               static_cast<std::uint32_t>(record_len), sink);
    return result;
  }

  std::string log() const {
    const std::string path = co_log_path(task);
    return installation.read(path.substr(installation.base().size() + 1));
  }

  zvrdb::test::TempInstallation installation;
  void* task;

 private:
  static void note(void* context, std::uint32_t line, std::uint32_t number, const char* text) {
    static_cast<std::vector<TextFault>*>(context)->push_back({line, number, text});
  }
};

}  // namespace zvrtest
