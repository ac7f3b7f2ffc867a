// The engine's operating system for tests: the real one, with a record of what was asked
// of it, and with failures or a death at a chosen call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zvrdb::test {

enum class os_call { open, create, put_in_place, close, remove, read, write, flush, size, lock, unlock, probe, allocate };

struct os_event {
  os_call call;
  int file;
  std::uint64_t offset;
  std::size_t n;
};

// Puts the table in place (no file may be open), with nothing armed; and takes it away.
void install_faulty_os();
void remove_faulty_os();

// The nth call of the kind from now on fails, alone or with all that follow.
void fail_call(os_call call, int nth, bool for_good = false);
void disarm();
// Failures since the last fail_call.
int failures();

// The process dies by SIGKILL before the nth write that follows the setting of the
// write-in-progress flag.
void kill_after_flag(int nth);

void clear_events();
const std::vector<os_event>& events();
// Files open now through the table.
int open_files();

}  // namespace zvrdb::test
