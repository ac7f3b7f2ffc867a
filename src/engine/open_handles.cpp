#include "engine/open_handles.h"

#include <pthread.h>

#include "engine/cached_reads.h"
#include "engine/companion.h"
#include "engine/image_journal.h"
#include "engine/journal.h"
#include "engine/node_cache.h"
#include "engine/one_thread.h"
#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

PSP* first_open = nullptr;

// A child shares the open files of its parent, and with them the locks: an unlock in
// the child would free the bytes of the parent.  So it only closes.
void let_go_in_child() {
  forget_other_threads();
  while (first_open != nullptr) {
    PSP* h = first_open;
    first_open = h->next_open;
    os().close(h->file);
    h->file = -1;
    h->state = 'C';
    end_cached_reads(h);
    journal_let_go(h);
    images_let_go(h);
    companion_let_go(h);
    free_cursors(h);
  }
  forget_cache();
}

}  // namespace

void remember_handle(PSP* h) {
  static const int watching = pthread_atfork(nullptr, nullptr, let_go_in_child);
  static_cast<void>(watching);
  forget_handle(h);
  h->next_open = first_open;
  first_open = h;
}

bool forget_handle(PSP* h) {
  for (PSP** link = &first_open; *link != nullptr; link = &(*link)->next_open) {
    if (*link != h) continue;
    *link = h->next_open;
    return true;
  }
  return false;
}

bool any_open_handle() { return first_open != nullptr; }

unsigned nodes_of_open_handles() {
  unsigned nodes = 0;
  for (const PSP* h = first_open; h != nullptr; h = h->next_open) nodes += static_cast<unsigned>(h->blocks);
  return nodes;
}

}  // namespace zvrdb::engine
