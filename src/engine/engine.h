// The storage engine: ordered record files with B-tree indexes, variable records,
// sharing between processes and transactions.  It calls nothing above it.
//
// One thread of the process is inside the engine at a time; others wait.  A handle belongs
// to one thread at a time.  Results are 0 or a negative number of the table below
// (1, 2, 3 are find statuses).
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvrdb::engine {

// The open-file block.  The caller owns psp_size zeroed bytes, aligned to 8.
struct PSP;
inline constexpr std::size_t psp_size = 1532;

enum result : int {
  e_ok = 0,
  e_not_found = -1,          // not found, at the end, or general failure
  e_bad_argument = -2,       // key number, direction, mode, value too long
  e_bad_handle = -3,         // not a valid open-file block
  e_io = -4,                 // input/output failure, no node, no cache
  e_foreign_file = -5,       // not a file of this engine
  e_write = -8,              // write failed, or disk full
  e_short_read = -9,
  e_broken_pieces = -12,     // pieces of a value not consecutive
  e_no_field = -14,          // no such field, or field without data
  e_no_current = -16,        // no current record or position
  e_body = -18,              // record body missing or already there
  e_field_list = -20,        // field list doesn't fit the record
  e_checksum = -21,
  e_field_type = -22,
  e_key_type = -23,
  e_duplicates_flag = -24,
  e_field_length = -25,
  e_too_long = -26,          // value or key too long
  e_key_number = -27,
  e_record_length = -28,     // record longer than the buffer
  e_exists = -29,            // file to create exists, or entries of a key that must have none
  e_damaged = -30,           // tree damaged, or node overflow at write
  e_node_range = -31,        // node number out of range at a split
  e_byte_order = -32,
  e_read_only = -33,
  e_no_memory = -34,
  e_key_table = -35,         // key table doesn't fit the file
  e_segments = -37,          // bad segment table
  e_write_flag = -40,        // write-in-progress flag found
  e_level = -41,             // transaction at an integrity level below 4
  e_negative_node = -43,
  e_unallocated_node = -47,
  e_open_exclusive = -101,   // open failed in exclusive mode
  e_byte_lock = -102,
  e_locked_by_other = -104,
  e_locked_by_self = -105,   // a state, not an error
  e_not_locked = -106,       // a state
  e_lock_needed = -107,      // update or delete without a lock
  e_no_slot = -109,          // no free slot, or no place in the queue
  e_queue = -110,
  e_trans_busy = -111,       // transaction busy under another handle
  e_trans_interrupted = -112,
  e_trans_empty = -113,      // transaction chain allocated, empty
  e_trans_none = -114,       // nothing to roll back
  e_log_record = -115,       // unknown log record type
  e_unlock = -116,           // lock on a key couldn't be dropped
  e_old_locks = -302,        // read-only handle found old locks of its slot
  e_not_cached = -303,       // a read without locks needs the file; never answered to a caller
};

// One field of a record.  The list is ended by ftype 'E'.
struct field {
  char ftype;           // 'B' 'D' 'F' 'H' 'I' 'L' 'M' 'S' 'U', 'X' composite key, 'E'; bit 7: taken out
  char fkeytype;        // 'N' not a key; 'S' key of type 0; else the key type number
  char fdup;            // 'D' duplicates allowed; 'U' unique; 'N' not a key
  char spare1;
  std::int16_t flen;    // maximum length, or the length of a 'B' value
  std::uint8_t fkey;    // key number 0 to 15, 0 not a key
  std::uint8_t spare2;
  void* fdata;          // the value, may be null
};

// A composite key, of type 8, has a value made of several fields of the record: a length byte,
// then the segments that a table given at open names, in that order.  In a field list it is a
// field of type 'X' without data, of key type 8.  The value is at most 241 bytes long behind
// its length byte.
//
//   segment type    field          bytes
//   0, 1            'S'            the string, at most max_length characters, and its NUL
//   2, 16 to 20     'B'            a length byte, at most max_length bytes
//   3, 5, 6         'F', 'I', 'L'  4
//   4, 10           'H', 'U'       2
//   7               'D'            8
//   9               'M'            6
//
// Numbers are in the machine's byte order where a call takes or gives a value.  A field that is
// taken out or not stored counts as empty or zero.  A call that builds a value answers
// e_no_field where a field of the list has no data or isn't there, e_too_long, and e_segments
// where a segment's type isn't one of these or doesn't fit its field.  The table stays the
// caller's and must be there as long as the file is open.  dfind takes a
// value that ends early as well: it equals all that begin with it.  A handle opened without
// the table can neither find nor change such keys (e_key_type) nor roll back a transaction
// that did (e_segments).
struct segment {
  std::uint8_t type;         // key type 0 to 20; 31 ends the table
  std::uint8_t spare1[3];
  std::int32_t field;        // index in the field list
  std::uint8_t max_length;   // 0 means 242
  std::uint8_t descending;   // not 0: this segment sorts from high to low
  std::uint8_t spare2[6];
};
static_assert(sizeof(segment) == 16);

struct key_entry {
  std::uint8_t number;  // 0 ends the table
  std::uint8_t type;
  std::uint8_t spare[2];
  const segment* segments;
};

enum find_option { find_equal = 1, find_greater = 2, find_greater_equal = 3, find_less = 4, find_less_equal = 5 };
enum direction { seq_next = 1, seq_previous = 2, seq_first = 3, seq_last = 4 };

// ---- Lifecycle
// Whether write operations go through a commit journal beside the file (docs/journal.md):
// one flush a commit, and no crash leaves half an operation.  Off is the order of writes that
// every program of the format knows.  All handles of a file use the same: who comes later
// does as the others do.  Either way an open brings the file up to date first if it finds
// that a journal is ahead of it.
enum class journal_use { off, on };
//
// Options of an open, added up; each is the handle's own and off where nobody asks for it.
//   option_merge   a leaf that a delete empties leaves the tree, and its node is free again
//   option_queue   writers that wait come in the order of their coming; the calls may then
//                  answer e_no_slot (no place in the queue) and e_queue (it cannot be used)
enum open_option : unsigned { option_merge = 1, option_queue = 2 };
int dcreate(PSP* h, const char* path, void* recbuf, int reclen, char access, int byte_order, const key_entry* keys,
            journal_use journal = journal_use::off, unsigned options = 0);
int dopen(PSP* h, const char* path, void* recbuf, int reclen, char access, int mode, const key_entry* keys,
          journal_use journal = journal_use::off, unsigned options = 0);
int _bopen(PSP* h, const char* path, char access, int mode, journal_use journal = journal_use::off,
           unsigned options = 0);
// Whether an open handle uses a journal.
bool has_journal(const PSP* h);
// Whether the open took back a transaction that its dead owner left in the journal.  The
// file never had any of it, or what it has is rolled back as ever.
bool took_back_transaction(const PSP* h);
// Whether the file told of a transaction when its header was read last.  Behind an open, before
// anything else: false is what transstat says by 0, without a write operation.
bool tells_of_transaction(const PSP* h);
int clrwrit(PSP* h);
int cclose(PSP* h);
int dclose(PSP* h);
int csetfile(PSP* h, int level);
int dflush(PSP* h);
// Reads without locks, off at an open.  A find or step, and a read of a record, on a key that
// is not locked, uses the cache alone as long as the file did not change; whatever it needs of
// the file is read under the locks as ever.  The first page of the file is mapped for it.
// Not on remote file systems.
// A find or step that misses a leaf brings as many more leaves into the cache as `leaves_ahead`
// says, in its direction; of these at most one less than the cache has blocks.
// 0; e_bad_argument, a negative count; e_io, the file cannot be looked at like that; e_no_memory.
// Reads are as before then.
int read_from_cache(PSP* h, int leaves_ahead);
// Every read takes its lock again.  0.
int read_under_locks(PSP* h);
char checkpsp(const PSP* h);  // 'O' open, 'C' closed, 'I' neither
// Lets go of a block that is still open and whose close failed or must not write:
// blocks of the cache, byte locks and descriptor are given up, nothing is written.
void abandon(PSP* h);

// ---- Records
int dfind(PSP* h, int key, const void* value, char key_type, int option);
int dseq(PSP* h, int key, int direction);
int dread(PSP* h, field* fields);
int dkeyval(PSP* h, int key, const field* fields, int index, void* out);  // out: 256 bytes
int dinsert(PSP* h, const field* fields);
int dupdate(PSP* h, field* fields);
int ddelete(PSP* h, field* fields);
int dlock(PSP* h);
int dunlock(PSP* h);
// Key value of the entry that the last dfind or dseq found, in the file's order: for
// key type 2 a length byte, then the bytes.  Valid until the next call on h.
const unsigned char* current_key(const PSP* h);
// Number of the record of that entry, -1 when nothing was found.  Entries of one key value
// follow one another by their record's number.
std::int32_t current_record(const PSP* h);
int last_status(const PSP* h);

// ---- Transactions
struct log_view;  // one log record as the progress function sees it
using progress_fn = int (*)(PSP* h, double done, const log_view* record);
// Type 3 is a plain transaction.  Types 1 and 2 keep the file of another open handle, the
// companion, as a copy: what a write operation changed is written there too at its end, but
// for the log of the transaction, which follows when that ends.  A type 2 logs no changes and
// cannot be rolled back (e_trans_none); of a type 1 the companion goes back with the file.
// The companion has to be a copy of the file when the transaction begins, opened read-write
// and used by this transaction alone: e_bad_handle where it isn't such a handle (or none is
// given), e_key_table where the other file can't be a copy, e_bad_argument for one with type
// 3.  Either file may have a commit journal.  When the companion cannot be written, the call
// and all that follow in the transaction answer why; the file itself is whole, and the
// companion no copy any more.  Nor is it one when the transaction was left behind by a death.
int transbeg(PSP* h, int type, PSP* companion);
int transend(PSP* h, int mode);
// Ends the transactions of two files in the same folder at once: after a crash at any point
// both count or neither.  0, or an error: then both are to be rolled back.  Each file is
// flushed once.  Whoever ends the same two files together names them in the same order.
int transend_together(PSP* first, PSP* second, int mode);
// Whether transend_together can do so: both handles use a journal and are in a transaction,
// and no operation is under way.
bool can_end_together(const PSP* first, const PSP* second);
int transroll(PSP* h, progress_fn progress, int new_type, PSP* new_companion);
int transstat(PSP* h);

// ---- Separate trees
// A key can have a tree of its own instead of the one that all share: the header names it.
// Gives a key number from 1 to 20 but 17 the tree 0 (shared) to 20, which is made when it
// isn't there yet: one empty leaf.  Several keys may share a tree.  Not while the key has
// entries (e_exists), nor while a transaction has log records of the file (e_trans_busy,
// e_trans_interrupted).  e_bad_argument for a wrong number.
int dkeytree(PSP* h, int key, int tree);
// Gives back all nodes of a tree from 1 to 20, with the entries in it; its keys are in the
// shared one again, empty.  Record bodies that belong to such entries stay.  e_not_found where
// there is no such tree; e_trans_busy, e_trans_interrupted as above.  A node that fails is
// told by last_fault, as fault_tree_read or fault_tree_write; the tree is gone then, and nodes
// of it may be lost space.
int dfreetree(PSP* h, int tree);

// ---- Several operations as one
// What stands between the two is a call of its own: no other handle writes or begins to read
// before it ends, nor does another thread of the process enter the engine.  Every operation
// answers as it would alone, and the file is the same afterwards; but what a transaction inside
// does reaches the journal together, in front of its commit.  A failure to write ends the call.
// For a handle with a commit journal, shared, outside an operation; for others nothing happens,
// and so where the bytes cannot be locked: the operations are on their own then.
void begin_call(PSP* h);
// Without a call that began, or when it has ended, nothing happens.  0; e_write: what was done
// since the last commit never was, the begin of a transaction too; e_byte_lock.
int end_call(PSP* h);
// dlock for a dupdate or ddelete of the record, which follows at once in the same call, and behind
// dupdate dunlock; nothing else may come between.  Nobody can see such a lock before it is given up,
// so it is not put into the file where that would leave no trace; those of others count as ever.  It
// ends with the call at the latest.  Outside a call it is dlock.
int dlock_for_call(PSP* h);

// ---- Before-image journal
// From now on the image of each node before its first change in a write operation goes to a
// second file (made when it isn't there), ahead of the change, so that an operation that a
// crash cut short can be undone.  path null: no more.  A record of 1048 bytes passes through
// `out` on its way, in place, where one is given.  Every writer of the file has to use the
// same journal.  0; e_level below integrity level 4; e_bad_argument with a commit journal,
// which makes this one needless; e_read_only; e_not_found where the file cannot be opened;
// e_no_memory.
using image_transform = void (*)(unsigned char* record, std::size_t n);
int dimages(PSP* h, const char* path, image_transform out = nullptr);
// Undoes the operation that a crash cut short, for a handle of _bopen with access 'E' and mode
// 2: images that are whole are written back, header and generation are as before the
// operation, nodes never used are zero, and the write-in-progress flag is clear.  `in` takes
// back what `out` did.  Doing it again after another crash does no harm.  e_trans_none: the
// flag is clear, so there is nothing to undo; e_foreign_file: the journal is none, or of
// another operation; e_bad_argument: another kind of handle; e_not_found, e_io, e_write.
// last_fault names the image that ended the journal where that one is damaged.
int drestore(PSP* h, const char* path, image_transform in = nullptr);

// What was wrong with a node, and its number, as the last call that looked closely at one
// found it; 0 and -1 for nothing.
enum fault : int {
  fault_tree_read = -201,     // of a tree that was to be freed: not read, or not of its level
  fault_room = -202,          // room negative or above 1006
  fault_entries = -203,       // more entries than a node can hold, or bytes that are none
  fault_neighbours = -204,    // both neighbours the same
  fault_next = -205,
  fault_prev = -206,
  fault_data = -207,          // an entry is shorter than its key value
  fault_child = -208,         // a child below 0
  fault_entry = -210,         // a key number outside 1 to 20, or too short for an entry
  fault_tree_write = -211,    // of a tree that was to be freed: not written
};
int last_fault(const PSP* h, std::int32_t* node);

// ---- Process-wide
// Number of cache blocks, made at the first use of the cache by any file; default 10.
// Takes effect when no file is open.
void set_cache_blocks(unsigned count);

}  // namespace zvrdb::engine
