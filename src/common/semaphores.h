// Named semaphores: robust mutexes in the control file.
//
// Ways of a semaphore, and what a kill at each place leaves:
//   free --lock--> locked, owner unset --store owner--> owned
//   owned --clear owner--> locked, owner unset --unlock--> free
// A kill anywhere between lock and unlock makes the next lock answer EOWNERDEAD.
// The next owner records the death, clears the mark, and only then makes the mutex
// consistent: a kill amid that is again an owner's death, and the record stays.
// A death that was asked for is forgotten at the release, not at the question, so
// that the death of a repairer hands the same question to the next one.
#pragma once

namespace zvrdb::common {

struct Task;

// Clears every semaphore that the task owns.
void release_semaphores_of(Task* task);

}  // namespace zvrdb::common
