#include "named_targets.h"

#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstring>

#include "record_json.h"

namespace zvradm {

const field* list_of_targets(const record_type& type) {
  for (const field& f : type.fields)
    if (f.traits & targets) return &f;
  return nullptr;
}

std::string unknown_targets(void* task, const record_type& type, std::span<const unsigned char> record) {
  constexpr unsigned most = 10;
  std::string text;
  unsigned told = 0;
  const auto ask = [&](std::uint32_t offset, std::uint32_t width, const std::string& path) {
    const auto at = record.begin() + offset;
    const std::string name(at, std::find(at, at + width, static_cast<unsigned char>(0)));
    std::uint32_t number = 0;
    if (name.empty() || told == most || db_get_trg_index(task, name.c_str(), &number) != DBE_NO_TARGET) return;
    text += (text.empty() ? "\"" : ", \"") + name + "\" (" + path + ")";
    ++told;
  };
  for (const field& f : type.fields) {
    const std::string_view name = f.name;
    const bool own = name == "trg_name" && type.db_id != DB_TRG;  // a target's own may be new
    if (own || name == "srv_name" || name == "src_domain" || name == "domain" || name == "target")
      ask(f.offset, f.width, f.name);
    if (!(f.traits & targets)) continue;
    const std::uint32_t count = std::min(load_number(record.data() + f.count_at, 2), f.capacity);
    for (std::uint32_t i = 0; i < count; ++i)
      ask(f.offset + i * f.width, f.width, std::string(f.name) + "[" + std::to_string(i) + "]");
  }
  return text;
}

std::vector<std::string> drop_unknown_targets(void* task, const record_type& type,
                                              std::span<unsigned char> record) {
  std::vector<std::string> unknown;
  const field* f = list_of_targets(type);
  if (!f) return unknown;
  unsigned char* count_at = record.data() + f->count_at;
  const std::uint32_t count = std::min(load_number(count_at, 2), f->capacity);
  unsigned char* names = record.data() + f->offset;
  std::uint32_t kept = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const unsigned char* at = names + std::size_t{i} * f->width;
    const std::string name(at, std::find(at, at + f->width, static_cast<unsigned char>(0)));
    std::uint32_t number = 0;
    if (!name.empty() && db_get_trg_index(task, name.c_str(), &number) == DBE_NO_TARGET)
      unknown.push_back(name);
    else
      std::memmove(names + std::size_t{kept++} * f->width, at, f->width);
  }
  std::fill(names + std::size_t{kept} * f->width, names + std::size_t{count} * f->width,
            static_cast<unsigned char>(0));
  store_number(count_at, 2, kept);
  return unknown;
}

}  // namespace zvradm
