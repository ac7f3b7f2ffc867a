// Faults planted on purpose, to prove that the tests of crashes see each of them
// (tests/torture/planted_faults).  The product has none: there the question is a constant.
// A test program whose sources are compiled with ZVR_PLANTED_FAULTS has the one that the
// environment variable ZVR_PLANTED_FAULT names by its number.
#pragma once

namespace zvrdb::engine {

enum class planted_fault : int {
  flush_left_out = 1,            // a commit does not wait for the disk
  flag_late = 2,                 // the write flag is set when the header is written already
  writes_swapped = 3,            // the flag is cleared before the last node is written
  group_cut = 4,                 // the last sector of a group is not written
  crc_ignored = 5,               // a torn group counts
  checkpoint_before_flush = 6,   // the journal begins anew before the record file is on the disk
  undo_one_short = 7,            // a roll-back leaves the oldest change
  use_count_leaked = 8,          // the use counts of a dead task are not taken back
  chain_ignored = 9,             // a group counts whose forerunner is lost
  identity_ignored = 10,         // the journal of another file is applied
  repair_begins_late = 11,       // groups that a torn file may lack are not written again
  growth_not_restored = 12,      // nodes behind the end of a cut file are not made again
  promise_believed = 13,         // half of a commit on two files counts without its decision
  partner_forgotten = 14,        // a decision is dropped while the promise still hangs on it
  doubt_forgotten = 15,          // a flush of the journal that failed is taken for none
  promise_not_kept_open = 16,    // a promise is broken while its decision may be on the disk
  open_groups_left_open = 17,    // groups that a repair brings to the file may be taken back
  last_groups_believed = 18,     // groups without a change count on, whose flush may have failed
};

#ifdef ZVR_PLANTED_FAULTS
bool planted(planted_fault which);
#else
constexpr bool planted(planted_fault) { return false; }
#endif

}  // namespace zvrdb::engine
