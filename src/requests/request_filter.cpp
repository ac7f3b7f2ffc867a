// Which parts of a filter are wild.
#include <algorithm>
#include <cstring>

#include "memory/trace.h"
#include "requests/request_parts.h"
#include "requests/requests.h"

namespace zvrdb::requests {
namespace {

enum class verdict { exact, wild, invalid };

constexpr std::uint16_t order_of_tests[] = {wild_target, wild_server,   wild_rgn,
                                            wild_ren,    wild_function, wild_source,
                                            wild_user,   wild_sequence, wild_recursion};

template <class Number>
bool all_ones(const void* filter, std::uint16_t offset) {
  Number number = 0;
  std::memcpy(&number, static_cast<const unsigned char*>(filter) + offset, sizeof number);
  return number == static_cast<Number>(~Number{0});
}

verdict judge_name(std::span<const unsigned char> text) {
  if (std::find(text.begin(), text.end(), '*') == text.end()) return verdict::exact;
  return text.size() == 1 ? verdict::wild : verdict::invalid;
}

verdict judge_text(std::span<const unsigned char> text) {
  const auto star = std::find(text.begin(), text.end(), '*');
  if (star == text.end()) return verdict::exact;
  return star + 1 == text.end() ? verdict::wild : verdict::invalid;
}

verdict judge(const request_part& part, const void* filter) {
  switch (part.kind) {
    case part_kind::name:
      return judge_name(part_text(part, filter));
    case part_kind::text:
      return judge_text(part_text(part, filter));
    case part_kind::fanout_text: {
      const auto* bytes = static_cast<const unsigned char*>(filter) + part.id_offset;
      return std::memchr(bytes, '*', part.id_width) ? verdict::wild : verdict::exact;
    }
    case part_kind::sequence:
      return all_ones<std::uint32_t>(filter, part.id_offset) ? verdict::wild : verdict::exact;
    case part_kind::recursion:
      return all_ones<std::uint16_t>(filter, part.id_offset) ? verdict::wild : verdict::exact;
  }
  return verdict::invalid;
}

}  // namespace

std::uint16_t chk_filter_req(void* task, const void* filter, std::uint32_t db_id) {
  const trace_bracket bracket(task, __func__);
  const request_type* type = request_type_of(db_id);
  if (!type || !filter) {
    bracket.quitting();
    return invalid_filter;
  }
  unsigned mask = 0;
  for (const std::uint16_t bit : order_of_tests) {
    const auto part = std::find_if(type->parts.begin(), type->parts.end(),
                                   [&](const request_part& one) { return one.wild == bit; });
    if (part == type->parts.end()) continue;
    const verdict found = judge(*part, filter);
    if (found == verdict::invalid) {
      const std::span<const unsigned char> text = part_text(*part, filter);
      ZVR_TRACE(task, 5, 2, "Invalid %s %.*s", part->what, static_cast<int>(text.size()),
                reinterpret_cast<const char*>(text.data()));
      bracket.quitting();
      return invalid_filter;
    }
    if (found == verdict::wild) mask |= bit;
  }
  return static_cast<std::uint16_t>(mask);
}

}  // namespace zvrdb::requests
