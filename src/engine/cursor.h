// Walking values in order, one key number at a time.  A value is all its pieces.
#pragma once

#include <cstdint>

#include "engine/psp.h"

namespace zvrdb::engine {

// Complete operations: handle (-3), key number (-2), lock dropped (-116), read bracket.
// `data` may be null: then only the position is taken.
// 0 exact, 1 same key value with a higher record number, 2 greater value, -1 none.
int bfind(PSP* h, int keyno, const std::uint8_t* key, std::int32_t recno, std::uint8_t* data, int capacity);
// 0, -1 at the end.
int bnext(PSP* h, int keyno, std::uint8_t* data, int capacity);
int bprev(PSP* h, int keyno, std::uint8_t* data, int capacity);
int bfirst(PSP* h, int keyno, std::uint8_t* data, int capacity);
int blast(PSP* h, int keyno, std::uint8_t* data, int capacity);
// 0; -1 not on this key or deleted; -16 a stale cursor's entry is gone.
int bcurrent(PSP* h, int keyno, std::uint8_t* data, int capacity);

// An entry of a neighbouring leaf must lie on the right side (1 or -1) of the one left behind:
// leaves linked in a circle show here.
bool follows_in_order(PSP* h, const cursor& left, const std::uint8_t* entry, int side);

// One entry forward, back.  The status: 0, -1 none, or an error.
int stepfwd(PSP* h);
int stepback(PSP* h);

// The same find and re-read inside a bracket, with the request fields of the block.
int find_value(PSP* h);
int current_value(PSP* h);

// Reads the value that begins at the entry at hand.  0, e_broken_pieces, errors.
int readval(PSP* h, std::uint8_t* buffer, int capacity);

}  // namespace zvrdb::engine
