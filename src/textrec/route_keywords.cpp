#include "textrec/keyword_rows.h"
#include "textrec/keyword_tables.h"
#include "textrec/parse.h"
#include "textrec/route_entry.h"
#include "textrec/text_records.h"

namespace zvrdb::textrec {
namespace {

constexpr value_word protocols[] = {{"APPC", 1}, {"TCP/IP", 2}, {"BOTH", 3}, {"NULL", 0}};

}  // namespace

// SNDS_RTE_PRS counts what the counter counts, but in the record.
constexpr keyword_entry rte_keywords[] = {
    value_row("NETWORK PROTOCOL", KIND_WORD, {1, 2}, protocols),
    catch_all_row({sizeof(route_entry), route_head_len}, {most_routes, 7}, SNDS_RTE_PRS),
    end_row(),
};
static_assert(table_is_sound(rte_keywords, rte_record_len));

}  // namespace zvrdb::textrec
