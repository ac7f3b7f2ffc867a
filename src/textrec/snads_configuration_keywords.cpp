#include "textrec/keyword_rows.h"
#include "textrec/keyword_tables.h"
#include "textrec/text_records.h"

namespace zvrdb::textrec {

constexpr keyword_entry scf_keywords[] = {
    value_row("ORIGIN HOP COUNT", KIND_USHORT, {2, 0}),
    value_row("MAX CRMU", KIND_USHORT, {2, 2}),
    value_row("TRANSMISSION HOLD TIME", KIND_ULONG, {4, 4}),
    value_row("ALLOCATION FAILURE RETRY TIME", KIND_ULONG, {4, 8}),
    end_row(),
};
static_assert(table_is_sound(scf_keywords, scf_record_len));

}  // namespace zvrdb::textrec
