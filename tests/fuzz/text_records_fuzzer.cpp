// Text records: a text parsed by one of the keyword tables, or a record printed and read
// back.
//
// Input: a letter that names the table, a byte for the record's length ('=': the whole
// one, else that many 256ths of it), and the text.  A capital letter: a record instead of
// the text, which is printed first.
//   c connection  s configuration  r routes  u user configuration  b base configuration
//   t h p g  target, hardware, parameters and group of older versions
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "fuzz_input.h"
#include "support/temp_installation.h"
#include "textrec/base_config.h"
#include "textrec/keyword_tables.h"
#include "textrec/older_tables.h"
#include "textrec/parse.h"
#include "textrec/parsed_files.h"
#include "textrec/record_defaults.h"
#include "textrec/record_printers.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;
using zvrfuzz::fuzz_input;
using zvrfuzz::guarded_bytes;

struct text_type {
  char letter;
  const keyword_entry* table;
  std::uint32_t length;
  unparse_function print;  // null: records of this type are only read
};

constexpr text_type types[] = {
    {'c', scn_keywords, scn_record_len, unparse_scn},
    {'s', scf_keywords, scf_record_len, unparse_scf},
    {'r', rte_keywords, rte_record_len, unparse_rte},
    {'u', ucf_keywords, ucf_record_len, unparse_ucf},
    {'t', older_target_keywords, older_target_len, nullptr},
    {'h', older_hardware_keywords, older_hardware_len, nullptr},
    {'p', older_parameter_keywords, older_parameter_len, nullptr},
    {'g', older_group_keywords, older_group_len, nullptr},
};

class session {
 public:
  session() {
    setenv("LC_ALL", "C.UTF-8", 1);  // characters of several bytes, whatever the caller's is
    task_ = co_init_task("fuzz", nullptr, 1);
    FUZZ_EXPECT(task_);
  }
  ~session() { coi_term_task(task_, 0); }
  session(const session&) = delete;
  session& operator=(const session&) = delete;
  void* task() const { return task_; }

 private:
  zvrdb::test::TempInstallation installation_;
  void* task_;
};

void* task() {
  static session one;
  return one.task();
}

struct told_faults {
  std::uint32_t count;
  std::uint32_t last_line;
};

void note(void* context, std::uint32_t line, std::uint32_t number, const char* text) {
  auto* told = static_cast<told_faults*>(context);
  FUZZ_EXPECT(line >= told->last_line && number != 0 && std::strlen(text) <= 127);
  told->last_line = line;
  ++told->count;
}

struct parsed {
  std::int16_t rc;
  guarded_bytes record;
};

// A parse ends with one of its two codes, within its text and its record, and tells a
// fault of a line that the text has when it fails.
parsed parse_text(const text_type& type, const std::string& text, std::uint32_t length) {
  guarded_bytes area(text + std::string("\n", 2));
  parsed result = {0, guarded_bytes(length)};
  told_faults told = {};
  const fault_sink sink = {note, &told};
  result.rc =
      parse_checking(task(), DB_SCN, "NAME", type.table, area.text(), result.record.data(), length, sink);
  FUZZ_EXPECT(result.rc == DBE_OK || result.rc == DBE_BAD_RECORD);
  FUZZ_EXPECT(result.rc == DBE_OK || told.count > 0);
  const auto lines = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  FUZZ_EXPECT(told.last_line <= lines);
  FUZZ_EXPECT(area.intact() && result.record.intact());
  return result;
}

std::int32_t print_record(const text_type& type, const guarded_bytes& record, std::string* text) {
  guarded_bytes area(text_size_max, 0x55);
  const auto copy = zvrfuzz::exact_copy(std::string(record.data(), record.data() + record.size()));
  const std::int32_t length =
      type.print(task(), area.text(), copy.get(), static_cast<std::uint32_t>(record.size()));
  FUZZ_EXPECT(area.intact() && length <= static_cast<std::int32_t>(text_size_max));
  if (length >= 0) text->assign(area.text(), static_cast<std::size_t>(length));
  return length;
}

bool is_white(int c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// What the format has no way to say: a route that begins with the sign of a comment or of
// the file's end, and an RGN (read of a value that began with a dot) with a blank before it.
bool cannot_be_told(const text_type& type, const guarded_bytes& record, const std::string& text) {
  if (type.table == scn_keywords) return is_white(record.data()[44]);
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '#' || text[at] == 0x1A) return true;
    at = std::min(text.find('\n', at), text.size() - 1) + 1;
  }
  return false;
}

// What a text need not tell is completed when it is read.
void complete(const text_type& type, guarded_bytes* record) {
  const auto length = static_cast<std::uint32_t>(record->size());
  if (type.table == scn_keywords)
    for (const std::uint32_t protocol_or_type : {16u, 18u})
      default_word(record->data(), length, protocol_or_type, 1);
  if (type.table == rte_keywords) default_word(record->data(), length, 2, 2);
}

// What is printed of a record that was read is read again, and as the same text.
void round_trip(const text_type& type, guarded_bytes record) {
  complete(type, &record);
  std::string first;
  if (print_record(type, record, &first) < 0 || cannot_be_told(type, record, first)) return;
  parsed again = parse_text(type, first, type.length);
  FUZZ_EXPECT(again.rc == DBE_OK);
  complete(type, &again.record);
  std::string second;
  FUZZ_EXPECT(print_record(type, again.record, &second) >= 0);
  if (first != second) std::fprintf(stderr, "first:\n%s\nsecond:\n%s\n", first.c_str(), second.c_str());
  FUZZ_EXPECT(first == second);
}

// Of a text without fault a short record has what the whole one has there, or nothing.
void shorter(const text_type& type, const std::string& text, const guarded_bytes& whole,
             std::uint32_t length) {
  const parsed part = parse_text(type, text, length);
  FUZZ_EXPECT(part.rc == DBE_OK);
  // The routes are counted as they are stored, the count in the first bytes is another.
  for (std::uint32_t i = type.table == rte_keywords ? 2 : 0; i < length; ++i)
    FUZZ_EXPECT(part.record.data()[i] == 0 || part.record.data()[i] == whole.data()[i]);
}

void read_text(const text_type& type, std::uint32_t length, const std::string& text) {
  const std::string seen = text.substr(0, text.find('\0'));
  parsed whole = parse_text(type, text, type.length);
  if (whole.rc != DBE_OK) {
    parse_text(type, text, length);
    return;
  }
  if (length < type.length) shorter(type, seen, whole.record, length);
  if (type.print) round_trip(type, std::move(whole.record));
}

void print_bytes(const text_type& type, std::uint32_t length, const std::string& bytes) {
  guarded_bytes record(type.print == unparse_rte ? length : type.length);
  std::memcpy(record.data(), bytes.data(), std::min(bytes.size(), record.size()));
  std::string text;
  if (print_record(type, record, &text) < 0) return;
  parsed back = parse_text(type, text, type.length);
  if (back.rc == DBE_OK) round_trip(type, std::move(back.record));
}

std::string print_config(const guarded_bytes& record) {
  guarded_bytes area(base_config_text_max, 0x55);
  const std::uint32_t length = unparse_cfg(task(), area.text(), record.data());
  FUZZ_EXPECT(area.intact() && length < base_config_text_max && area.data()[length] == 0);
  return std::string(area.text(), length);
}

void base_config(bool printed_first, const std::string& input) {
  guarded_bytes record(base_config_len);
  std::string text = input.substr(0, input.find('\0'));
  if (printed_first) {
    std::memcpy(record.data(), input.data(), std::min(input.size(), record.size()));
    text = print_config(record);
    record = guarded_bytes(base_config_len);
  }
  std::uint32_t line = 0;
  guarded_bytes reason(160);
  const auto read = [&](const std::string& from) {
    const guarded_bytes copy(from + std::string(1, '\0'));
    const std::uint16_t code =
        co_parse_config(reinterpret_cast<const char*>(copy.data()), record.data(), &line, reason.text(),
                        static_cast<std::uint32_t>(reason.size()));
    FUZZ_EXPECT(code == CO_OK || (code == CO_BAD_ARGUMENT && line > 0 && reason.data()[0] != 0));
    FUZZ_EXPECT(record.intact() && reason.intact());
    return code;
  };
  if (read(text) != CO_OK) return;
  const std::string first = print_config(record);
  record = guarded_bytes(base_config_len);
  FUZZ_EXPECT(read(first) == CO_OK);
  FUZZ_EXPECT(print_config(record) == first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const char letter = static_cast<char>(input.u8());
  const std::uint32_t part = input.u8();
  const bool record = std::isupper(static_cast<unsigned char>(letter));
  const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  if (lower == 'b') {
    base_config(record, input.rest());
    return 0;
  }
  const auto* type = std::find_if(std::begin(types), std::end(types),
                                  [&](const text_type& one) { return one.letter == lower; });
  if (type == std::end(types)) return -1;
  const std::uint32_t length = part == '=' ? type->length : type->length * part / 256;
  if (!record)
    read_text(*type, length, input.rest());
  else if (type->print)
    print_bytes(*type, length, input.rest());
  return 0;
}
