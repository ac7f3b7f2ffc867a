// The journal of a record file: a second file beside it that takes what write operations
// change, as groups, before the record file does.  docs/journal.md tells how it is used.
// This module knows the journal's bytes; it never touches the record file.
//
//      0 +---------------------------------------------+
//        | head of a life                         512  |  one sector: whole or not written
//        |   0 "ZVRJRNL2"  8 salt (8)  16 identity (8) |
//        |  24 generation (4)  28 settled (4)          |
//        |  32 header of the record file (352)         |
//        | 384 salt of the life before (8)             |
//        | 392 sequence behind its last group (8)      |
//        | 400 CRC of that group (4)                   |
//        | 404 zero (104)  508 CRC-32C of 0 to 507 (4) |
//    512 +---------------------------------------------+
//        | mount (8): where the life began, see below  |
//    520 | doubt (8): 0 none, see below                |
//    528 | zero                                        |
//   4096 +---------------------------------------------+
//        | group 1, group 2, ...                       |  each begins at a multiple of 512
//        +---------------------------------------------+
//
// A group (integers little-endian, whatever the order of the record file):
//
//      0 "ZVRG"  4 length (4)  8 salt (8)  16 sequence (8)
//     24 generation before (4)  28 generation after (4)
//     32 extent (4)  36 number of nodes (4)  40 kind (4)
//     44 CRC-32C of the group before, of group 1 that of the head (4)
//     48 a random number (8)  56 open (4)  60 CRC-32C (4)
//     64 header of the record file (352), a list of nodes (8 each), their bytes
//
//      0 number of the node (4)   4 where its changed entries begin (2)   6 their length (2)
//
// Of each node its head (18) and those entries lie there, one behind the other: what the operation
// changed of it, or all of them where what was there before is not known, as of a new node.  A
// byte of the record file is what the last group of the life that has it says, whichever of the
// groups before is written again, and a byte that is in none is what it was when the life began:
// the record file was on the disk then.
//
// Kind 1 is a change.  Kind 0 is an operation that moved nothing but the generation: it has
// no header and no nodes.  The CRC is over all `length` bytes, its own field taken as zero.
// Header and nodes are as they lie in the record file.
//
// Open is 1 in a change inside a transaction that was not flushed: it counts for nothing before
// the one that ends the transaction, or another that was flushed.  It is 2 where the transaction
// is that of one call, which nobody was answered anything of.
//
// Kinds 2 and 3 are changes of two record files that end together: a promise in the journal
// of the one, which counts if the journal of the other holds the decision.  Both bear a link
// of 64 bytes between the group's head and the record file's header:
//
//      0 number of the pair, random (8)   8 salt of the other journal (8)
//     16 name of the other record file (48, NULs behind)
//
// While the file system stays mounted that the life began on, the record file has all that was
// written to it, and a repair need not write again what it shows.  A mount of 0 is none.
//
// After a flush of the journal that failed nobody knows what of it is on the disk: programs see
// what was written, and the next flush answers well.  Until all of the life was written once
// more and flushed, doubt is 1, and nothing is appended.
//
// A life is what was appended since the journal was begun: its groups bear its salt and the
// sequence 1, 2, 3...  The first place that holds no such group, whole, is the end.  Each
// names its forerunner by the CRC, and the random number makes every CRC one of a kind: when
// a power cut took group 7 and left 8, no new group 7 leads to that old 8.
//
// A new life overwrites the groups of the one before as it grows, from the front.  Who had read
// those as far as some place finds the rest of them behind it for a while, and goes on to the end
// that the new head tells of.  The sequence is 0 where that life says nothing of the record file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/format.h"

namespace zvrdb::engine {

inline constexpr std::uint64_t journal_sector = 512;
inline constexpr std::uint64_t journal_mount_at = 512;
inline constexpr std::uint64_t journal_doubt_at = 520;
inline constexpr std::uint64_t journal_groups = 4096;          // where group 1 begins
inline constexpr std::uint64_t journal_size = 1024 * 1024;     // bytes made ahead
inline constexpr std::uint64_t journal_kept = 4 * journal_size; // a longer one is cut back to journal_size
inline constexpr std::size_t journal_head_size = 512;
inline constexpr std::size_t group_head_size = 64;
inline constexpr std::size_t gathered_room = 64 * 1024;

// What a promise and its decision say of each other.
inline constexpr std::size_t link_size = 64;
struct group_link {
  bool there = false;
  std::uint64_t number = 0;   // the same in both
  std::uint64_t salt = 0;     // of the other journal
  char name[48] = {};         // of the other record file, in the same folder, with its NUL
};

// Where a group stands, and what it must say to belong there.
struct group_place {
  std::uint64_t at;
  std::uint64_t sequence;
  std::uint32_t chain;
};

// A place behind a group, and what is known there.
struct log_mark {
  std::uint64_t end = journal_groups;
  std::uint64_t sequence = 1;            // of the next group
  bool any_change = false;               // a change is there
  std::uint32_t changed_generation = 0;  // after the last change; without one that of the base
  std::uint8_t header[header_size] = {}; // the same of the record file's header
  std::uint32_t generation = 0;          // after the last group of any kind
  std::uint32_t chain = 0;               // CRC of the last group, or of the head
  std::uint64_t last = 0;                // where the last group begins; 0: there is none
  std::uint64_t behind_change = journal_groups;   // where groups begin that no change follows
  group_link promise;                    // of the last group: nothing was appended behind it
  group_link decision;                   // the last one of this life
};

// A journal and how far it was read.
struct journal_file {
  int file = -1;                  // descriptor, -1: there is none
  std::uint64_t identity = 0;     // of the record file
  bool alive = false;             // the head is sound and of this record file
  std::uint64_t salt = 0;
  std::uint32_t head_crc = 0;
  std::uint8_t base[header_size] = {};   // header of the record file when the life began
  std::uint32_t base_generation = 0;
  std::uint32_t settled_generation = 0;  // the header may bear this one to the base's
  const std::uint8_t* view = nullptr;    // of the first journal_size bytes: they are read there while it is set

  log_mark at;                    // behind the last group known
  log_mark before;                // behind the one before it, while the last is a promise
  bool doubt = false;             // a flush failed: see above
  bool doubt_untold = false;      // and that could not be written
  bool unsure = false;            // the last group may be taken back: its writer was at work

  std::uint8_t* buffer = nullptr;        // of the group at hand, or a piece of the journal
  std::size_t capacity = 0;
  std::uint64_t window_at = 0;           // which piece the buffer holds
  std::size_t window_length = 0;         // 0: none

  // Groups that wait in memory, all behind what the file has.
  bool gathers = false;                  // those to come wait too
  bool lost = false;                     // some could not be written, and do not count
  std::uint8_t* gathered = nullptr;      // gathered_room bytes
  std::size_t gathered_length = 0;
  log_mark gathered_from;                // as it was before the first of them

  std::uint64_t random = 0;              // where the random numbers of this handle's groups stand
  bool seeded = false;
};

// What a change says of a node, as it lies in the record file.
struct node_change {
  std::int32_t number;
  std::uint16_t from;             // of the entries, an offset in the node
  std::uint16_t length;           // 0: the head alone
  const std::uint8_t* head;       // node_head_size bytes
  const std::uint8_t* entries;    // `length` bytes
};
inline bool is_whole(const node_change& c) { return c.from == node_head_size && c.length == page_size - node_head_size; }

// Whether a group counts by itself.  The numbers are those of the format.
enum class group_open : std::uint32_t {
  no,
  in_transaction,
  in_call,   // in a transaction of a call that has answered nothing yet
};

// What is appended.
struct group_to_write {
  std::uint32_t generation_before;
  std::uint32_t generation_after;
  std::uint32_t extent;               // nodes that exist in the record file
  const std::uint8_t* header;         // 352 bytes, or null: a group of kind 0
  std::uint32_t nodes;
  // What is said of node i, i from 0 to nodes - 1.
  node_change (*node_at)(const void* context, std::uint32_t i);
  const void* context;
  group_open open;                    // inside a transaction, and not to be flushed
  const group_link* promise = nullptr;    // at most one of these two, and then a header
  const group_link* decision = nullptr;
};

// A group that was read.  Points into the buffer of the journal until its next use.
struct group_read {
  const std::uint8_t* bytes;
  std::uint64_t place;
  std::uint32_t crc;
  std::uint64_t length;
  std::uint32_t generation_before;
  std::uint32_t generation_after;
  std::uint32_t extent;
  std::uint32_t nodes;
  const std::uint8_t* header;         // null: kind 0
  const std::uint8_t* list;           // of nodes
  const std::uint8_t* contents;       // bytes of the first of them
  bool open;
  group_link promise, decision;
};

// The nodes of a group, one after the other.
struct node_walk {
  explicit node_walk(const group_read& g) : list(g.list), bytes(g.contents), left(g.nodes) {}
  const std::uint8_t* list;
  const std::uint8_t* bytes;
  std::uint32_t left;
};
// False behind the last.
bool next_node(node_walk* w, node_change* out);

// Path of the journal of a record file; false when it has no room.
bool journal_path(const char* record_path, char* out, std::size_t room);

// Makes the journal of a record file, empty and with no life, and opens it.
// 0, e_write.
int make_journal(journal_file* j, const char* path);
// 0, e_not_found.
int open_journal(journal_file* j, const char* path);
void close_journal(journal_file* j);

// Begins a life: whatever was there counts no more.  The journal is flushed.  `settled` is a
// generation that is on the disk for sure, `generation` what the record file bears now.
// 0, e_write; then the journal has no life.  Unflushed it is for a life that follows one
// without a change: whichever is found after a power cut says the same of the record file.
enum class begun { flushed, unflushed };
// Whether the record file is what the groups of the life before say, all of which are known: who
// was in that life may then go on into this one.
enum class life_before { unrelated, leads_here };
int begin_life(journal_file* j, const std::uint8_t (&header)[header_size], std::uint32_t settled,
               std::uint32_t generation, begun how = begun::flushed, life_before before = life_before::unrelated);

// Whether the file system is mounted as it was when the life began.
bool still_mounted(const journal_file* j);
// It is as if it were not, for good: a flush of the record file failed.
void forget_mount(const journal_file* j);
// Whether somebody said so in this life.
bool was_mount_forgotten(const journal_file* j);

// Told of what is met on the way.
struct group_read;
struct journal_watcher {
  void* context;
  // `passed_on`: all groups of the life before that led here were told of.
  void (*new_life)(void* context, const journal_file& j, bool passed_on);
  void (*group)(void* context, const group_read& g);
  void (*taken_back)(void* context);   // what was told of a group does not hold; all are told anew
};
inline constexpr journal_watcher nobody_watches{nullptr, [](void*, const journal_file&, bool) {},
                                               [](void*, const group_read&) {}, [](void*) {}};
// Reads what others did since: a new life, or groups behind the last known one.  A caller
// who does not hold the arbiter may read a group that its writer takes back.
// 0; e_no_memory, e_io.
int catch_up(journal_file* j, bool arbiter_held, const journal_watcher& watcher = nobody_watches);
// Its first part: whether a new life has begun.  What is left of the life before is read then, as
// far as it still stands.  0, e_io.
int look_at_life(journal_file* j, const journal_watcher& watcher);
// The same for who holds no lock: false, and nothing has happened, if the head is none just now.
bool look_at_life_quietly(journal_file* j, const journal_watcher& watcher);
// Reads groups of the same life as far as the change that led to a generation, which the record
// file shows.  No lock need be held.  1 it is the last one known now; 0 it was not met and
// nothing is known beyond what was; e_no_memory, e_io.
int catch_up_to(journal_file* j, std::uint32_t generation, const journal_watcher& watcher);

// Whether the journal goes on behind what is known.  `view` shows the first journal_size bytes
// of the journal as they are now.
enum class journal_news {
  none,
  nothing_to_read,    // operations without a change, or of a call that goes on; or the life is being begun
  change_under_way,   // behind such at most, a change that is not open: while its operation lasts it is ahead of nobody
  pair_under_way,     // the same, of two files: when its writer dies the other one may show first that it counts
  promise_under_way,  // and that other file shows it first while its writer lives too
  some,
};
bool is_same_life(const journal_file* j, const std::uint8_t* view);
// `generation` becomes that of a change that is under way.
journal_news look_for_news(const journal_file* j, const std::uint8_t* view, std::uint32_t* generation = nullptr);
// Whether the change that led to a generation seems to stand behind what is known, and is not open.
bool look_for_change(const journal_file* j, const std::uint8_t* view, std::uint32_t generation);
// The generation of the last change but one behind what is known, if nothing but changes that are
// not open stands there.  Its operation has ended: another one appended behind it.
bool look_for_ended_change(const journal_file* j, const std::uint8_t* view, std::uint32_t* generation);

// Appends a group, without a flush.  0; e_write, e_no_memory: it does not count.
int append_group(journal_file* j, const group_to_write& g);
// From now on groups that are appended wait in memory, for one write in front of the next flush.
// What is read of the journal meanwhile doesn't have them.
void gather_groups(journal_file* j);
// Writes those that wait; the next ones don't, unless told so again.  0; e_write: they do not
// count, `at` is as it was before the first of them and `lost` is set.
int write_gathered(journal_file* j);
// Bytes that appending moves the end by, at most.
std::uint64_t group_room(std::uint32_t nodes, bool change);
// Takes all groups from a place on back; one begins there.  A promise that is the last one then
// gets an empty group behind it: that it counts stays told.  0, e_no_memory, e_io, e_write.
int take_back_from(journal_file* j, std::uint64_t place);
// Takes the last group back, unless it was lost: `before` is the mark as it was before the appending.
void take_back_group(journal_file* j, const log_mark& before);
// The same for one whose flush failed, so that no power cut brings it back.  e_ok; or the journal
// is in doubt.
int refuse_group(journal_file* j, const log_mark& before);
// Puts an end to doubt: the life as far as it is known, and that there is nothing behind it, is
// on the disk.  For who holds the arbiter and has read the log to its end.
// 0; e_write, e_io, e_no_memory: the doubt stays.
int end_doubt(journal_file* j);
// Groups that wait are written first.  0; e_write: and then there is doubt, or those were lost.
int flush_journal(journal_file* j);

// Of the first one; to be asked at the head of each walk, which then reads the journal anew.
group_place first_place(journal_file* j);
group_place place_behind(const group_place& p, const group_read& g);
// The group at a place: 1 found, 0 there is none; e_no_memory, e_io.
int read_group(journal_file* j, const group_place& place, group_read* out);
// Whether the groups of an open journal hold the decision on a promise; then they are flushed
// up to it.  For a journal of any record file; `alone`: the arbiter of that is held.  1 or 0;
// e_no_memory, e_io, e_write; e_byte_lock: in doubt, and somebody works there.
int find_decision(journal_file* j, const group_link& promise, bool alone);
// Writes the head, or a group that was read, to its place once more.  0, e_write, e_io.
int write_head_again(journal_file* j);
int write_group_again(journal_file* j, const group_read& g);
// The same for the groups behind the last change.  Who wrote them may have died before he told of a
// flush that failed, and what is appended behind them counts as long as they do.  For who holds the
// arbiter and has read the log to its end.  0, e_write, e_io, e_no_memory.
int write_last_groups_again(journal_file* j);
// The same for who takes back what stands behind a mark: nothing tells any more that it was flushed,
// and the head of a life without a change may hang on that flush too.
int write_again_before(journal_file* j, const log_mark& mark);
// The same for a promise and all behind it, where there is one of that number.
int write_again_from_promise(journal_file* j, std::uint64_t number);

}  // namespace zvrdb::engine
