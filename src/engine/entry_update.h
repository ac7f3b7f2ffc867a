// Storing and removing values.  Keys are given in file order.
#pragma once

#include <cstdint>

#include "engine/psp.h"

namespace zvrdb::engine {

// What bstore does where the first piece meets an entry of the same key, record number.
enum store_mode {
  store_replace = 1,          // replaces the value; -1 if there is none
  store_any = 2,              // replaces or adds
  store_untested = 3,         // adds without a look
  store_new = 4,              // -1 if there is one
  store_replace_locked = 5,   // as 1, and leaves a lock on the key alone
};

// 0; -1 by mode; e_bad_argument, e_bad_handle, e_read_only, e_unlock, errors of nodes.
int bstore(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length,
           int mode);
// 0, -1 the entry exists.
int badd(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length);
// Adds where no entry has the key value under any record number: 0, -1 there is one.
int baddu(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length);
// Replaces the value: 0, -1 not found.
int bupdate(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, const std::uint8_t* data, int length);
// Replaces the value at the cursor: 0, -1, e_lock_needed.
int bupdcur(PSP* h, int keyno, const std::uint8_t* data, int length);
// Removes an entry: 0, -1 not found, e_locked_by_other, e_read_only.
int bdelete(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno);
// Removes the entry at the cursor: 0, -1, e_lock_needed, e_unlock, e_read_only.
int bdelcur(PSP* h, int keyno);

}  // namespace zvrdb::engine
