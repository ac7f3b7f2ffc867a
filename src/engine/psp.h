// The open-file block.  The caller owns its memory; the engine lays this struct over
// it.  Private to the engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "engine/engine.h"
#include "engine/format.h"

namespace zvrdb::engine {

// A place in the tree, one for each key number, made at first use.
struct cursor {
  std::uint8_t ckey[value_and_data];  // key value of the current entry, file order
  std::uint32_t crecno;               // its record number, all ones after falling off the front
  std::int32_t cindex;                // its index in the node
  std::int32_t cnode;                 // its node, -1 for none
  std::int32_t ckeyno;                // key number found at the position, -1: no position
  std::uint8_t cpiece;                // its piece byte
  std::uint8_t cdeleted;              // the entry was deleted; cindex is one before its follower
  std::uint8_t cstale;                // another process changed the file: find the place by key
  std::uint32_t cwhere;               // where in the cache its node was seen, or anything
};

inline constexpr int cursor_count = 21;         // key numbers 1 to 21
inline constexpr std::size_t path_kept = 100;   // of the file's path, for reports only
inline constexpr std::size_t keybuf_size = 256;

struct PSP {
  // Eight marks and the state byte tell a block that is ours: see checkpsp.
  char mark_v, mark_a;
  char state;               // 'O' open, 'C' closed
  char access;              // in effect: 'S' shared, 'E' exclusive, 'D' one writer, any readers
  char openaccess;          // as asked, or 'E' if the open fell back to it
  char arbiter;             // 'L' writer arbiter byte held, 'U' not
  std::uint8_t nogencheck;  // nobody else can write
  std::uint8_t checks;      // field list checks on
  std::uint8_t reuse;       // reuse of record numbers on
  std::uint8_t rectype;     // type byte of the record read last
  std::uint8_t piece;       // piece byte of the entry at hand
  std::uint8_t hdrdirty;    // header in memory differs from the disk
  std::uint8_t grown;       // file grew since the last checked flush
  std::uint8_t flagon, flagclear, flagenabled;   // write-in-progress flag
  std::uint8_t flush_failed;  // a plain flush failed in this operation
  byte_order order;         // of the file
  std::uint8_t nolock;      // record lock tests are off
  char mark_l;
  char path[path_kept];

  std::int32_t file;        // descriptor, -1 for none
  std::int32_t rw;          // 1 read-only, 2 read-write
  std::int32_t slot;        // 0 to 208, -1 for none
  std::int32_t locklevel;   // 1 no reader byte, 2 own, 3 all
  std::int32_t rdnest, wrnest;
  std::int32_t intlevel;    // integrity level 0 to 4
  std::int32_t growstep;
  char mark_i;
  char keylocks[cursor_count];  // by key number less one: 'U', 'L'

  // Copies of header fields.
  std::uint32_t generation;
  std::int32_t root, depth, nextnode, nextrec, extent, freenode, freerecs, reccount, infolen;
  std::int32_t transhead, savedhead;
  std::uint8_t info[info_size];
  std::uint8_t keytypes[keytypes_size];
  std::uint8_t treetables[header_at::transhead - header_at::keytree];   // as on disk
  char mark_d, mark_a2;

  // Request: what an operation works on, and what it found.
  std::int32_t keyno;
  std::int32_t recno;
  std::int32_t datalen;     // in: capacity; out: bytes delivered
  std::int32_t datafull;    // full length of the value
  std::int32_t status;      // last result
  std::int32_t edge;        // -1 target below every value of keyno, 1 above, 0 normal
  std::int32_t cmpfull, cmpkey;
  std::int32_t lastleaf;    // leaf of the last descent
  std::int32_t lastkey;     // key number of the last search; -1: entries may have moved
  std::int32_t path_nodes[max_depth];   // node used on each level by the last descent
  std::int32_t hops;        // neighbours visited since the last descent
  std::int32_t foundoffset; // where the last search ended in the main buffer
  std::int32_t keylen;      // bytes of the key value in keybuf
  std::int32_t pieceln;     // bytes of data behind it
  const std::uint8_t* keyptr;   // key value, file order
  std::uint8_t* dataptr;
  std::uint8_t keybuf[keybuf_size];  // key value of the entry at hand, its data behind it
  node* current;            // node that the last nodeget made current

  std::int32_t recno_cur, recno_locked;

  // Transaction.
  std::int32_t transtype;   // 0 none, 3 plain, 1 and 2 with a companion
  std::int32_t lognode;     // log node being filled, -1 for none
  std::int32_t logpos;      // where its next record goes
  std::int32_t opnode, oppos;   // where the records of the running operation begin
  std::uint32_t transgen;
  std::uint16_t transseq;
  char mark_t;

  // Errors.
  std::int32_t errdetail;   // further error number
  std::int32_t deferred;    // error met where no result can be given
  std::int32_t damaged_node;
  std::int32_t damaged_line;
  std::int32_t dirtyblocks; // dirty blocks in the cache
  std::int32_t blocks;      // all of its blocks there
  std::uint64_t nodes_changed;  // node_changes() when a node of the file changed last
  std::uint32_t opened_as;      // counts the opens of this process: what is kept of its searches lies by it

  std::uint8_t* recbuf;
  std::int32_t reclen;
  char mark_e;
  const segment* segments[cursor_count];
  cursor* cursors[cursor_count];
  const char* damaged_source;
  PSP* next_open;           // chain of open blocks of the process
  struct journal* journal;  // null: the literal order of writes
  std::uint8_t took_back;   // the open took back an unfinished transaction
  std::uint8_t held;        // between begin_call and end_call: the arbiter stays
  std::uint8_t lock_unwritten;  // and so long: the lock of the current record, which the file doesn't have

  // Optional facilities, all zero where nobody asked for one.
  std::uint8_t trees;           // a key has a tree of its own
  std::uint8_t options;         // open_option
  std::int32_t fault_code;      // what was wrong with a node, see fault
  std::int32_t fault_node;
  struct image_journal* images;     // before-images
  struct companion_copy* companion; // the other file of the transaction
  struct cached_reads* cached;   // null: every read takes its lock
};
static_assert(sizeof(PSP) <= psp_size);
static_assert(alignof(PSP) <= 8);
static_assert(std::is_trivially_copyable_v<PSP> && std::is_standard_layout_v<PSP>);

inline bool is_exclusive(const PSP* h) { return h->access == 'E'; }
inline bool is_shared(const PSP* h) { return h->access != 'E'; }
inline bool is_open(const PSP* h) { return checkpsp(h) == 'O'; }
inline bool good_key_number(int key) { return key >= 1 && key <= max_key_number; }

// The type of a key number, with the bits above the low five taken off.  The types of the
// engine's own keys are fixed, whatever a damaged header says.
inline int type_of_key(const PSP* h, int key) {
  if (key >= key_rollback) return key == key_locks ? kt_bytes : kt_string;
  return h->keytypes[key] & key_type_mask;
}

// Damage is told through this one function, so that a report can name node and line.
inline int raise_damage(PSP* h, std::int32_t n, int line = __builtin_LINE(), const char* source = __builtin_FILE()) {
  h->damaged_node = n;
  h->damaged_line = line;
  h->damaged_source = source;
  h->errdetail = e_damaged;
  return e_damaged;
}

// A counter of the header moved up or down.  A damaged header may hold any value, so it
// wraps instead of overflowing.
inline void move_counter(std::int32_t& counter, std::int32_t by) {
  counter = static_cast<std::int32_t>(static_cast<std::uint32_t>(counter) + static_cast<std::uint32_t>(by));
}

// Keeps a result as the last status and hands it on.
inline int keep_status(PSP* h, int result) {
  h->status = result;
  return result;
}

// ---- Cursors
// The cursor of a key number, made at first use.  When memory is out: the deferred
// error is set, and the answer is a cursor without position that is kept nowhere.
cursor& cursor_of(PSP* h, int key);
inline bool has_cursor(const PSP* h, int key) { return h->cursors[key - 1] != nullptr; }
// False when the cursor could not be made (deferred error set).
bool make_cursor(PSP* h, int key);
void free_cursors(PSP* h);
// A cursor that is there is as if it had just been made.
void forget_position(PSP* h, int key);
void mark_cursors_stale(PSP* h);
// Node of the cursor; -1 for none, or when it lies behind the end of the file.
int cursor_node(PSP* h, int key);

}  // namespace zvrdb::engine
