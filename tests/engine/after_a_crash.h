// What is done with a file that a crash left.
#pragma once

#include "engine/engine_handle.h"
#include "engine/memory_disk.h"

namespace zvrdb::test {

// As the layer above does once it has opened the file: a transaction that its owner left is
// rolled back, and one that changed nothing is ended.
void settle(handle* h);

// The deep check finds no fault in the bytes of a record file.
void expect_sound_bytes(const disk_bytes& bytes);

}  // namespace zvrdb::test
