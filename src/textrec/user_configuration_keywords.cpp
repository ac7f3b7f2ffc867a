#include "textrec/keyword_rows.h"
#include "textrec/keyword_tables.h"
#include "textrec/text_records.h"
#include "textrec/user_configuration_words.h"

namespace zvrdb::textrec {
namespace {

constexpr std::uint16_t class_len = 8;

// skip: the column of the value; what the keyword asks for when 0.
template <std::size_t size>
constexpr keyword_entry right(const char (&keyword)[size], unsigned user_class, unsigned field,
                              const value_word* words, std::uint16_t skip = 0) {
  keyword_entry row =
      value_row(keyword, KIND_WORD, {1, static_cast<std::uint16_t>(user_class * class_len + field)}, words);
  if (skip != 0) row.skip = skip;
  return row;
}

}  // namespace

// Classes USER, PREP, ADMN.  The numbered keywords are of an older form of the file and
// keep the columns of the longer ones.
constexpr keyword_entry ucf_keywords[] = {
    right("CONFIG_USER", 0, 0, right_words),
    right("PREP_USER", 0, 1, right_words),
    right("CM_USER", 0, 2, cm_words),
    right("DIST_USER", 0, 3, dist_words),
    right("TCQ_USER", 0, 4, right_words),
    right("SYSTEM_USER", 0, 5, right_words),
    right("TARGET_USER", 0, 6, scope_words),
    right("CONFIG_PREP", 1, 0, right_words),
    right("PREP_PREP", 1, 1, right_words),
    right("CM_PREP", 1, 2, cm_words),
    right("DIST_PREP", 1, 3, dist_words),
    right("TCQ_PREP", 1, 4, right_words),
    right("SYSTEM_PREP", 1, 5, right_words),
    right("TARGET_PREP", 1, 6, scope_words),
    right("CONFIG_ADMN", 2, 0, right_words),
    right("PREP_ADMN", 2, 1, right_words),
    right("CM_ADMN", 2, 2, cm_words),
    right("DIST_ADMN", 2, 3, dist_words),
    right("TCQ_ADMN", 2, 4, right_words),
    right("SYSTEM_ADMN", 2, 5, right_words),
    right("TARGET_ADMN", 2, 6, scope_words),
    right("CONFIG1", 0, 0, right_words, 12),
    right("PREP1", 0, 1, right_words, 10),
    right("CM1", 0, 2, cm_words, 8),
    right("DIST1", 0, 3, dist_words, 10),
    right("TCQ1", 0, 4, right_words, 9),
    right("SYSTEM1", 0, 5, right_words, 12),
    right("TARGET1", 0, 6, scope_words, 12),
    right("CONFIG2", 1, 0, right_words, 12),
    right("PREP2", 1, 1, right_words, 10),
    right("CM2", 1, 2, cm_words, 8),
    right("DIST2", 1, 3, dist_words, 10),
    right("TCQ2", 1, 4, right_words, 9),
    right("SYSTEM2", 1, 5, right_words, 12),
    right("TARGET2", 1, 6, scope_words, 12),
    right("CONFIG3", 2, 0, right_words, 12),
    right("PREP3", 2, 1, right_words, 10),
    right("CM3", 2, 2, cm_words, 8),
    right("DIST3", 2, 3, dist_words, 10),
    right("TCQ3", 2, 4, right_words, 9),
    right("SYSTEM3", 2, 5, right_words, 12),
    right("TARGET3", 2, 6, scope_words, 12),
    end_row(),
};
static_assert(table_is_sound(ucf_keywords, ucf_record_len));

}  // namespace zvrdb::textrec
