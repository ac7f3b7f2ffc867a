// Reads without locks, of nodes that the cache holds.
//
// Every write operation that has ended is seen in the file: its header bears a new generation
// or, with a journal, the journal goes on behind the last group known.  Both are looked at
// through read-only mappings.  While nothing moved, the nodes in the cache are the file's:
// images of the process's own that no writer can touch.  A read that begins so shows the file as
// it was at that moment, as one under the own reader byte does, and costs no system call.  Nor
// does a writer at work keep it waiting: until its operation has ended, what the file was before
// is as good an answer.
//
// A node that is not in the cache is never read so.  The read takes its byte then and goes on
// if nothing moved meanwhile; otherwise it is made again from the beginning, under the locks.
#pragma once

#include <cstdint>
#include <utility>

#include "engine/cursor.h"
#include "engine/psp.h"
#include "engine/sharing.h"

namespace zvrdb::engine {

enum class quiet : std::uint8_t {
  no,       // reads take their byte
  running,  // inside a read without one
  broken,   // something moved: what the read found is no answer
};

inline constexpr unsigned most_nodes_brought = 64;

struct cached_reads {
  const std::uint8_t* page;      // first page of the record file
  const std::uint8_t* journal;   // the journal as it was made, null: none, or not mapped yet
  quiet state;
  int leaves_ahead;              // that a missing leaf brings with it
  int due;                       // of these, by the read that is under the locks now
  unsigned misses;               // nodes that had to be read
  std::uint32_t beside;          // generation of the change on its way whose writer was last seen alive
  unsigned reads_beside;         // of that change since then
  bool backwards;                // the read steps back
};

inline bool is_quiet(const PSP* h) { return h->cached != nullptr && h->cached->state != quiet::no; }

// Whether the file is surely as the handle knows it; false when that cannot be told without
// asking the system.
bool nothing_moved(PSP* h);

// Whether a read of that key number may begin without locks; if so it has, and a nesting with it.
bool begin_quiet_read(PSP* h, int keyno);
// Its end.  False: it must be made again; nothing is left of it but what it put into the block.
bool end_quiet_read(PSP* h, int* result);

// A node must be read from the file: takes the own reader byte.  0; e_not_cached, the read is
// broken.
int lock_quiet_read(PSP* h);
// A write operation begins inside a read: what follows is under its locks.
int leave_quiet_read(PSP* h);

// Which way a find or step goes.
inline void tell_direction(PSP* h, bool backwards) {
  if (h->cached != nullptr) h->cached->backwards = backwards;
}
// Leaves to bring with the one that was just read, once a read.
inline int take_leaves_ahead(PSP* h) { return h->cached != nullptr ? std::exchange(h->cached->due, 0) : 0; }

// The journal as it is now, journal_size bytes; null: not mapped.
const std::uint8_t* view_of_journal(PSP* h);

// A node had to be read, under the own byte: how many places, a power of two, its part of the
// file has that is worth reading with it.  Who misses much reads much at once.
unsigned nodes_to_bring(PSP* h);

// Lets go of the mappings.
void end_cached_reads(PSP* h);

// What a read works on, kept for a second attempt.
class read_request {
 public:
  read_request(PSP* h, int keyno)
      : h_(h), keyno_(keyno), cursor_(h->cursors[keyno - 1]), keyptr_(h->keyptr), damaged_source_(h->damaged_source),
        recno_(h->recno), damaged_node_(h->damaged_node), damaged_line_(h->damaged_line), errdetail_(h->errdetail) {
    if (cursor_ != nullptr) at_ = *cursor_;
  }
  void restore() const {
    h_->keyptr = keyptr_;
    h_->recno = recno_;
    h_->edge = 0;
    h_->damaged_source = damaged_source_;
    h_->damaged_node = damaged_node_;
    h_->damaged_line = damaged_line_;
    h_->errdetail = errdetail_;
    if (cursor_ != nullptr) {
      *cursor_ = at_;
    } else {
      forget_position(h_, keyno_);
    }
  }

 private:
  PSP* h_;
  int keyno_;
  cursor* cursor_;
  const std::uint8_t* keyptr_;
  const char* damaged_source_;
  std::int32_t recno_, damaged_node_, damaged_line_, errdetail_;
  cursor at_;
};

// A read operation of a key number in its bracket: without locks if it can be, else with them.
// What it answers when the bracket cannot be entered may be told.
template <class Work>
int read_operation(PSP* h, int keyno, Work work, int refused = e_ok) {
  // Beside a busy writer the first attempt often meets the end of an operation.
  constexpr int attempts = 4;
  for (int attempt = 0; attempt < attempts && begin_quiet_read(h, keyno); ++attempt) {
    const read_request request(h, keyno);
    int result = work();
    if (end_quiet_read(h, &result)) return keep_status(h, result);
    request.restore();
  }
  if (const int entered = rdenter(h); entered != e_ok) return keep_status(h, refused != e_ok ? refused : entered);
  const int result = work();
  h->status = result;
  const int left = rdleave(h);
  return keep_status(h, leave_result(result, left));
}

}  // namespace zvrdb::engine
