// The records of "cmstatus": their keys, finding them, and work areas to hold one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::cmstatus {

enum record_kind : std::uint32_t { by_trg = 1, by_cat = 2 };

// Key in host order; a record's image begins with it and the body follows.
struct record_key {
  std::uint32_t kind;
  std::uint32_t number;  // of the target or the change file
  std::uint32_t recnum;
};
static_assert(sizeof(record_key) == 12);
inline constexpr std::uint32_t key_len = sizeof(record_key);

constexpr record_key key_of(record_kind kind, std::uint32_t number) {
  return {kind, number, 0};
}

// Places the engine on the record.  0, 8194 or 8455.
std::int16_t locate(void* task, record_kind kind, std::uint32_t number);

}  // namespace zvrdb::cmstatus
