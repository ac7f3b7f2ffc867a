// User configuration: the rights of the three classes of users.
#include <cctype>
#include <cstring>
#include <iterator>

#include "memory/trace.h"
#include "textrec/keyword_tables.h"
#include "textrec/parsed_files.h"
#include "textrec/record_printers.h"
#include "textrec/text_records.h"
#include "textrec/text_writer.h"
#include "textrec/user_configuration_words.h"

namespace zvrdb::textrec {
namespace {

constexpr char file_name[] = "user_config";
constexpr std::size_t class_len = 8;

constexpr const char* classes[] = {"USER", "PREP", "ADMN"};

struct right {
  const char* stem;
  const char* blanks;  // between the colon and the word
  const value_word* words;
  const char* other;  // for a number without word
};
constexpr right rights[] = {
    {"CONFIG", "      ", right_words, "NONE"}, {"PREP", "      ", right_words, "NONE"},
    {"CM", "          ", cm_words, "NONE"},    {"DIST", "      ", dist_words, "NONE"},
    {"TCQ", "      ", right_words, "NONE"},    {"SYSTEM", "      ", right_words, "NONE"},
    {"TARGET", "      ", scope_words, "ALL"},
};
static_assert(std::size(classes) * class_len == ucf_record_len);

// The upper-case word: it stands behind the lower-case one.
const char* word_of(const right& field, unsigned char number) {
  const char* word = field.other;
  for (const value_word* row = field.words; std::strcmp(row->text, "NULL") != 0; ++row)
    if (row->number == number) word = row->text;
  return word;
}

}  // namespace

std::int32_t unparse_ucf(void* task, char* text, const void* record, std::uint32_t) {
  const trace_bracket bracket(task, __func__);
  unsigned char from[ucf_record_len];
  std::memcpy(from, record, sizeof from);
  text_writer out(text);
  for (std::size_t user_class = 0; user_class < std::size(classes); ++user_class)
    for (std::size_t field = 0; field < std::size(rights); ++field)
      out.print("%s_%s:%s%s\n", rights[field].stem, classes[user_class], rights[field].blanks,
                word_of(rights[field], from[user_class * class_len + field]));
  return out.length();
}

std::int16_t get_ucf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = get_parsed(task, {DB_UCF, file_name, 0, ucf_keywords}, num_keys, keys, record, record_len);
}

std::int16_t put_ucf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = put_parsed(task, file_name, num_keys, keys, unparse_ucf, record, record_len);
}

}  // namespace zvrdb::textrec
