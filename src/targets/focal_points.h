// The list of focal points in common area 24, shared with the other programs of the
// product: the targets whose trg_mode has bit 8, in order of addition.
//
// Its count is never believed beyond the capacity of the area, whoever wrote it.
//
// The list outlives the tables of targets, so it may hold what a roll-back undid and
// what a dead writer was about to take out of it.  Each building of the tables puts that
// right.
#pragma once

namespace zvrdb::targets {

// Refreshes rgn and ren (8 bytes each) of the name's entry, or appends one.  When the
// list is full it stays as it is and 36383 is logged.
void enter_focal_point(void* task, const char* name, const char* rgn, const char* ren);
// False when the name is not in the list.
bool remove_focal_point(void* task, const char* name);
bool rename_focal_point(void* task, const char* old_name, const char* new_name);
// Drops the entries for whose name `stays` is false, and those that stand twice; the
// others keep their order.
void keep_focal_points(void* task, bool (*stays)(void* task, const char* name));
// Logs that a focal point is missing from the list (36468).
void log_missing_focal_point(void* task, const char* name);

}  // namespace zvrdb::targets
