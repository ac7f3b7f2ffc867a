// The keyword tables of the text records.
#pragma once

#include "textrec/keyword_table.h"

namespace zvrdb::textrec {

extern const keyword_entry scn_keywords[];  // SNADS connection
extern const keyword_entry scf_keywords[];  // SNADS configuration
extern const keyword_entry rte_keywords[];  // SNADS routes
extern const keyword_entry ucf_keywords[];  // user configuration

}  // namespace zvrdb::textrec
