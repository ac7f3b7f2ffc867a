#include "migration/catalog_record.h"

#include "migration/field_copy.h"

namespace zvrdb::migration {
namespace {

constexpr std::uint32_t free_mark = 0xFFFFFFFF;
constexpr std::uint32_t second_mark = 656;

constexpr field_move moves[] = {
    {0, 0, 76},      // name
    {76, 76, 4},  {80, 90, 1},   {81, 91, 1},     {82, 92, 10},    {340, 350, 2},
    {342, 352, 2}, {344, 356, 4}, {604, 2412, 48}, {652, 2460, 3},
};

struct text_move {
  std::uint32_t from;
  std::uint32_t from_len;
  std::uint32_t to;
  std::uint32_t to_len;
};
constexpr text_move texts[] = {
    {92, 244, 102, 244},
    {336, 4, 346, 4},
    {348, 256, 364, 256},  // the first of eight lines
};

}  // namespace

catalog_entry judge_cat_rec(const unsigned char* older) {
  const bool first = load_u32(older) == free_mark;
  const bool second = load_u32(older + second_mark) == free_mark;
  if (first && second) return catalog_entry::free;
  return first || second ? catalog_entry::corrupt : catalog_entry::used;
}

void copy_cat_rec(unsigned char* record, const unsigned char* older) {
  std::memset(record, 0, catalog_len);
  copy_fields(record, older, moves);
  for (const text_move& text : texts)
    copy_text(record + text.to, text.to_len, older + text.from, text.from_len);
}

void free_cat_rec(unsigned char* record) {
  std::memset(record, 0, catalog_len);
  store_u32(record, free_mark);
}

}  // namespace zvrdb::migration
