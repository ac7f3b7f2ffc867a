// The commit journal of a handle: what a write operation changes is kept in memory, goes to
// the journal as one group, and only then to the record file.  docs/journal.md tells the
// whole; journal_file.h the bytes.
#pragma once

#include <cstdint>

#include "engine/header_page.h"
#include "engine/journal_file.h"
#include "engine/pending_pages.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// Where a handle stood when the first of the groups that wait in memory was made.
struct call_place {
  bool deferred;
  std::int32_t transtype, lognode, logpos;
};

struct journal {
  journal_file log;
  call_place place;
  pending_pages pages;                // changed, and not in the record file yet
  std::uint8_t before[header_size];   // header when the operation at hand began
  std::uint32_t disk_generation;      // of the record file, as last seen
  bool deferred;             // groups of the running transaction are in the log, not in the file
  bool transaction_begins;   // the operation at hand begins one: more will follow
  bool flush_wanted;         // the operation at hand is a flush
  bool unflushed;            // a change was appended since the last flush
  bool closing;              // the operation at hand closes the handle
  bool must_repair;          // a group that counts did not reach the record file whole
  bool must_reload;          // header fields of the block are not those of the file
  bool committed;            // the operation at hand is flushed: it cannot fail any more
  group_link decision;       // the operation at hand decides a promise
  bool pages_lost;           // a flush of the record file failed: all groups must go there again
  bool follows;              // the nodes in the cache are those of the last change known of the log
  bool ahead;                // some were taken from groups that the block's header is older than
  std::uint8_t seen_header[header_size];   // of the group taken last
  std::int32_t broken;       // an error after which the operation at hand cannot be kept
  char path[1];              // of the journal; the block is as long as it needs
};

// Length of the journal that a checkpoint ends, at the end of an operation that leaves
// nothing deferred.  A transaction defers until the journal has four times that length.
// Tests make it small.
extern std::uint64_t checkpoint_at;
// Length of the journal up to which a transaction defers its writing.
extern std::uint64_t defer_to;

// Whether an open has to do with a journal, and so takes the arbiter before its slot.
bool settles_journal(const PSP* h, const char* path, journal_use asked);
// At open, inside its read nesting: takes the journal of the file, if it has one or shall
// have one, and brings the file up to date.  The arbiter may be held when it answers, and then
// the own reader byte is not.  The answer is as of dopen.
int journal_open(PSP* h, const char* path, journal_use asked);
// The header of the block is that of the file now, and no node of it is in the cache.
void journal_header_read(PSP* h);
// Without a write: at close, after a failure, in a forked child.
void journal_let_go(PSP* h);
// A stale journal beside a file that is about to be made.
void remove_journal(const char* path);

// What physical_write and physical_read do with a journal.
int journal_write(PSP* h, write_kind kind, std::uint64_t offset, const void* bytes, std::size_t n,
                  const byte_range& changed);
bool journal_read(const PSP* h, std::uint64_t offset, void* bytes, std::size_t n);

// At the beginning of an outermost write operation, the arbiter held: repairs what a dead
// writer left.  0, e_write_flag (the journal does not explain the flag), e_io, e_write,
// e_byte_lock, e_no_memory.
int journal_enter(PSP* h);
// Whether the file is as the handle knows it, asked without the system.  `view` shows the
// journal, `generation` and `flag` are those of the first page.  An operation whose pages are on
// their way to the file has not ended, so what the handle knows counts still; but nothing may be
// read of the file then.
bool journal_moved(PSP* h, const std::uint8_t* view, std::uint32_t generation, bool flag);
// Whether a handle beside this one does without the journal, or nobody can say.
bool some_without_journal(PSP* h);
// Others began the journal anew: whether the handle followed the life before to its end, no lock
// being held, and knows the file as it was then.
bool journal_follow_into_life(PSP* h);
// Follows what others wrote by the journal alone, no lock being held, up to the change that the
// record file bears.  False: it must be followed under the locks.
bool journal_follow_quietly(PSP* h, const std::uint8_t* view, std::uint32_t generation);
// The header of the block becomes that of the last change followed.
bool journal_take_seen(PSP* h, std::uint32_t generation);
// At the beginning of a read operation, the own reader byte held.  0 or an error.
int journal_follow(PSP* h);
// The same question as gencheck, for a handle with a journal.
int journal_gencheck(PSP* h);
void journal_begin_operation(PSP* h);
// The end of an outermost write operation that came to `result`.  What it changed is
// committed, or undone if that is an error.  The answer is the result of the operation.
int journal_end_operation(PSP* h, int result);
// The last steps of a close, the arbiter held; lets the slot go.
int journal_finish(PSP* h);

// ---- journal_pair.cpp: transactions of two files that end together

// What an end of a transaction came to, without its commit: it is a promise in the journal,
// flushed, readers shut out, pages pending, the operation still open.  On an error it never
// was.  `result` as in journal_end_operation.
int journal_promise(PSP* h, int result, const group_link& link);
// The end of that operation: it counts, or it never was, or that is open.
void journal_keep_promise(PSP* h);
int journal_break_promise(PSP* h, int result);
void journal_leave_open(PSP* h);
// The arbiter held, the log read to its end: what became of a promise that stands there.
// 0, e_io, e_no_memory, e_write.
int settle_promise(PSP* h);
// The file that the last decision of this life is about bears it in its own journal, so that
// this life may end.  0; partner_busy: somebody works there; e_io, e_no_memory, e_write.
inline constexpr int partner_busy = 2;
int settle_partner(PSP* h);
// Runs `end` as a write operation on each and commits both.  0, or an error: then neither has
// changed, but transactions that were ended are the handle's no more, and are rolled back.
int end_pair(PSP* decides, PSP* promises, int (*end)(PSP* h));

// ---- journal_repair.cpp

// The part of the first page that matters.
struct first_page {
  std::uint8_t bytes[flag_offset + 2];
  std::uint32_t generation;
  bool flag;
};
int read_first_page(PSP* h, first_page* out);   // 0, e_io
// What the journal beside a record file means to who looks at the file alone: nothing; that it
// has committed changes that the file does not show, or was on the way to it with some; or that
// it is there and can't be opened.  For reports: nothing is changed, nobody is kept out.
enum class journal_beside { nothing, ahead, closed };
journal_beside look_at_journal_beside(const char* path);
// ---- parts of an operation's end, journal.cpp
int ready_log(PSP* h);
struct change_kind {
  group_open open = group_open::no;         // inside a transaction, and not to be flushed
  const group_link* promise = nullptr;
  const group_link* decision = nullptr;
};
int append_change(PSP* h, const change_kind& kind);
bool changes_something(const journal* j);
int undo_operation(PSP* h, int result);
// What undo_operation does with the block alone.
void forget_operation(PSP* h);
void apply_committed(PSP* h);
int flush_log(journal* j);

// Bytes to the record file itself.  0, e_write.
int write_through(PSP* h, std::uint64_t offset, const void* bytes, std::size_t n);
// Whether the file is as the log says.
bool in_step(const journal* j, const first_page& page);
bool others_alive(PSP* h);

// Writes groups of the log to the file again: all, or those that it may not show.  Readers
// are shut out meanwhile.  0 the file is as the log says; not_explained; or an error.
inline constexpr int not_explained = 1;
int repair_file(PSP* h, bool all);
// The last change of the log has been seen, or answered, and the flag may stand once more: that is
// not its own then.  Who reads without locks tells by the empty group behind it.  0, e_write,
// e_no_memory.
int note_that_it_ended(PSP* h);
// Nobody else has the file open: takes back what a transaction, whose owner must be dead, left
// in the log and nowhere else.  0, or an error of reading or writing.
int drop_unfinished(PSP* h);
// The pending pages to the file: flag, header, nodes, flag.  0, e_write.
int apply_pages(PSP* h);
// The file alone is complete, and the journal begins anew, unless somebody works in a file
// whose promise this journal decided.  0, e_write, e_io.
int check_point(PSP* h);
// Begins a life with the file as it is.  0, e_write, e_io.
int begin_anew(PSP* h);

}  // namespace zvrdb::engine
