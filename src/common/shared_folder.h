// The shared folder of an installation under /dev/shm: finding, guarding, setting
// up and dropping it.
//
//   control       shared_control.h
//   setup         locked (one OFD write lock) by whoever sets up, starts or ends a
//                 task, names a semaphore, or drops the folder
//   tasks         registry: byte `place` is locked while that task lives
//   area-<n>      common areas
//   seg-<name>    segments; new-* are segments being made
//
// The control file is renamed into place last.  A folder without it is an unfinished
// set-up: the next one throws everything away and begins again.
#pragma once

#include "common/process.h"

namespace zvrdb::common {

// Fills the description of the installation at base (ORVO_PATH when null).
bool describe_installation(const char* base, Installation* out);

// Root may work in anybody's installation, but what it makes belongs to the owner: gives
// an open file of this process to owner and group of the installation, or to the group
// alone when that is all that is allowed.  False when neither could be had.
bool give_to_owner(const Installation& installation, int fd);

// Opens the shared folder; refuses one that is not a directory, is a link, has
// another owner than the base directory, or is open to others than owner and group of
// that, to the group only as long as it may write there.  -1 on failure.
// make: create it when missing; otherwise -1 with errno ENOENT and no reason.
int open_shared_folder(const Installation& installation, bool make);

// Takes the set-up lock of the folder; the descriptor holds it, close drops it.
// Called under process().mutex, or a child forked meanwhile would hold the lock too, for
// as long as it lives.  -1 on failure; *gone tells that the folder was dropped meanwhile: open it again.
int take_setup_lock(const Installation& installation, int folder_fd, bool* gone);

// Opens a file of the folder with the access rights of the installation.  flags
// as for open(2); refuses links, other owners and what is no regular file.
int open_shared_file(const Installation& installation, int folder_fd, const char* name, int flags);

// Makes the file at least size bytes long, with memory for all of them: a full memory
// file system refuses here and does not end a process at a later access.  0 or an errno.
int allocate_shared_file(int fd, uint64_t size);

// Opens and checks the control file, or sets the shared state up; the caller holds
// the set-up lock.  Null on failure.
SharedControl* map_or_make_control(const Installation& installation, int folder_fd);

}  // namespace zvrdb::common
