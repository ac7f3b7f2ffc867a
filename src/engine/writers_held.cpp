#include "engine/writers_held.h"

#include "engine/byte_wait.h"
#include "engine/journal.h"
#include "engine/one_thread.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/sharing.h"

namespace zvrdb::engine {

PSP* writers_held::handle() { return reinterpret_cast<PSP*>(block_); }

writers_held::writers_held(const char* path) : result_(e_not_found) {
  const one_thread alone;
  PSP* h = handle();
  if (_bopen(h, path, 'S', 2) == e_ok && is_shared(h)) {
    result_ = getarbiter(h);
    if (result_ == e_ok && h->journal != nullptr) result_ = journal_enter(h);
    // A flag that no journal explains is copied with the file.
    if (result_ == e_write_flag) result_ = e_ok;
    return;
  }
  abandon(h);
  file_ = os().open(path, {true, false, false});
  if (file_ >= 0) result_ = wait_for_bytes(file_, arbiter_byte, 1);
}

writers_held::~writers_held() {
  abandon(handle());
  if (file_ >= 0) os().close(file_);
}

}  // namespace zvrdb::engine
