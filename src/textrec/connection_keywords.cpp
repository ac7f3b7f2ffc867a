#include "textrec/keyword_rows.h"
#include "textrec/keyword_tables.h"
#include "textrec/parse.h"
#include "textrec/text_records.h"

namespace zvrdb::textrec {
namespace {

constexpr value_word protocols[] = {{"APPC", 1}, {"TCP/IP", 2}, {"IPX", 4}, {"NBI", 5}, {"NULL", 0}};
constexpr value_word types[] = {{"SNA", 1}, {"STS", 2}, {"NULL", 0}};

}  // namespace

constexpr keyword_entry scn_keywords[] = {
    value_row("PROTOCOL", KIND_WORD, {1, 16}, protocols),
    value_row("TYPE", KIND_WORD, {1, 18}, types),
    value_row("SEND TP SYMBOLIC DESTINATION", KIND_STRING, {9, 20}),
    value_row("RECEIVE TP SYMBOLIC DESTINATION", KIND_STRING, {9, 32}),
    special_row("NEXT DSU", {16, 44}, rgn_ren_prs),
    value_row("TRANSMISSION TIME-OUT", KIND_ULONG, {4, 60}),
    value_row("RETRY LIMIT", KIND_USHORT, {2, 64}),
    value_row("SEND MU_ID TIME-OUT", KIND_ULONG, {4, 68}),
    value_row("RECEIVE MU_ID TIME-OUT", KIND_ULONG, {4, 72}),
    value_row("REMOTE SERVER NAME", KIND_STRING, {64, 76}),
    value_row("TCP/IP TIME-OUT", KIND_ULONG, {4, 140}),
    end_row(),
};
static_assert(table_is_sound(scn_keywords, scn_record_len));

}  // namespace zvrdb::textrec
