// Read-only views of the first bytes of a file, coherent with what is written to it.
//
// A file may be cut shorter under its view, by a copy that is put back in its place say, and to
// look behind its end raises SIGBUS.  Such a view turns into zeros, and the process goes on: no
// state of a file is all zeros, so who looks finds that something moved and asks the file itself.
// While there are views the process has a handler of SIGBUS for it; what has another cause goes
// the way the program chose.
#pragma once

#include <cstddef>

namespace zvrdb::engine {

// Null: the file is shorter, lies on another machine, or there are too many views.
const void* map_pages(int file, std::size_t n);
void unmap_pages(const void* mapped, std::size_t n);

}  // namespace zvrdb::engine
