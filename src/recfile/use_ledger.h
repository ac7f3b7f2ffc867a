// Who stands behind the use counts of the record files: for each place of the task
// registry, which files its task has open.  With it the counts of a task that was
// killed can be taken back.  The ledger lies in a common area of its own; it is read
// and written by the owner of "DBR_MEM" only.
//
// A count and the ledger change together.  The change is written down first and then
// done, so that whoever comes after a kill between the two finishes it.
#pragma once

#include <cstdint>

namespace zvrdb::recfile {

// This task has file `index` open now, or no longer: raises or lowers the use count.
void count_open(void* task, unsigned index);
void count_close(void* task, unsigned index);
// Tasks that the ledger knows to have the file open.
std::uint32_t known_users(void* task, unsigned index);

}  // namespace zvrdb::recfile
