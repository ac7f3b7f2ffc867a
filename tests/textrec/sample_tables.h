// Small keyword tables with a row of every kind.
#pragma once

#include "textrec/keyword_rows.h"
#include "textrec/parse.h"

namespace zvrtest {

using namespace zvrdb::textrec;

inline constexpr value_word numbers[] = {{"big", 0x01020304}, {"twice", 1}, {"twice", 2}, {"NULL", 0}};

inline constexpr std::size_t sample_len = 80;
inline constexpr keyword_entry sample_keywords[] = {
    value_row("SHORT", KIND_SHORT, {2, 0}),
    value_row("USHORT", KIND_USHORT, {2, 2}),
    value_row("LONG", KIND_LONG, {4, 4}),
    value_row("ULONG", KIND_ULONG, {4, 8}),
    value_row("WIDE", KIND_WORD, {4, 12}, numbers),
    value_row("NARROW", KIND_WORD, {1, 16}, numbers),
    value_row("MIDDLE", KIND_WORD, {2, 18}, numbers),
    value_row("BROKEN", 9, {2, 20}),
    value_row("SHORT NAME", KIND_NAME, {8, 24}),
    value_row("NETWORK ID", KIND_NAME, {8, 32}),
    value_row("LOCAL LU ALIAS NAME", KIND_NAME, {8, 32}),
    value_row("MODE NAME", KIND_NAME, {8, 32}),
    repeated_row("LIST", KIND_STRING, {4, 40}, {3, 24}),
    repeated_row("MORE", KIND_STRING, {4, 52}, {3, 24}),
    end_row(),
};

inline constexpr keyword_entry catch_all_first[] = {catch_all_row({62, 4}, {6, 0}, prm_prs),
                                                    value_row("COUNT", KIND_USHORT, {2, 0}), end_row()};
inline constexpr keyword_entry catch_all_last[] = {value_row("COUNT", KIND_USHORT, {2, 0}),
                                                   catch_all_row({62, 4}, {6, 0}, prm_prs), end_row()};

}  // namespace zvrtest
