// The journal of a record file: a second file beside it that takes what write operations
// change, as groups, before the record file does.  docs/journal.md tells how it is used.
// This module knows the journal's bytes; it never touches the record file.
//
//      0 +---------------------------------------------+
//        | head of a life                         512  |  one sector: whole or not written
//        |   0 "ZVRJRNL1"  8 salt (8)  16 identity (8) |
//        |  24 generation (4)  28 settled (4)          |
//        |  32 header of the record file (352)         |
//        | 384 zero (124)  508 CRC-32C of 0 to 507 (4) |
//    512 +---------------------------------------------+
//        | zero                                        |
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
//     48 a random number (8)  56 zero (4)  60 CRC-32C (4)
//     64 header of the record file (352), node numbers (4 each), nodes (1024 each)
//
// Kind 1 is a change.  Kind 0 is an operation that moved nothing but the generation: it has
// no header and no nodes.  The CRC is over all `length` bytes, its own field taken as zero.
// Header and nodes are as they lie in the record file.
//
// A life is what was appended since the journal was begun: its groups bear its salt and the
// sequence 1, 2, 3...  The first place that holds no such group, whole, is the end.  Each
// names its forerunner by the CRC, and the random number makes every CRC one of a kind: when
// a power cut took group 7 and left 8, no new group 7 leads to that old 8.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/format.h"

namespace zvrdb::engine {

inline constexpr std::uint64_t journal_sector = 512;
inline constexpr std::uint64_t journal_groups = 4096;          // where group 1 begins
inline constexpr std::uint64_t journal_size = 1024 * 1024;     // bytes made ahead
inline constexpr std::size_t journal_head_size = 512;
inline constexpr std::size_t group_head_size = 64;

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

  // Behind the last group known:
  std::uint64_t end = journal_groups;
  std::uint64_t sequence = 1;            // of the next group
  bool any_change = false;               // a group of kind 1 is there
  std::uint32_t changed_generation = 0;  // after the last change; without one the settled one
  std::uint32_t generation = 0;          // after the last group of any kind
  std::uint32_t chain = 0;               // CRC of the last group, or of the head

  std::uint8_t* buffer = nullptr;        // of the group at hand
  std::size_t capacity = 0;
};

// What is appended.
struct group_to_write {
  std::uint32_t generation_before;
  std::uint32_t generation_after;
  std::uint32_t extent;               // nodes that exist in the record file
  const std::uint8_t* header;         // 352 bytes, or null: a group of kind 0
  std::uint32_t nodes;
  // Number and bytes (1024) of node i, i from 0 to nodes - 1.
  const std::uint8_t* (*node_at)(const void* context, std::uint32_t i, std::int32_t* number);
  const void* context;
};

// A group that was read.  Points into the buffer of the journal until its next use.
struct group_read {
  std::uint64_t place;
  std::uint32_t crc;
  std::uint64_t length;
  std::uint32_t generation_before;
  std::uint32_t generation_after;
  std::uint32_t extent;
  std::uint32_t nodes;
  const std::uint8_t* header;         // null: kind 0
  const std::uint8_t* numbers;
  const std::uint8_t* images;
  std::int32_t number(std::uint32_t i) const;
  const std::uint8_t* image(std::uint32_t i) const { return images + std::size_t{i} * page_size; }
};

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
// 0, e_write; then the journal has no life.
int begin_life(journal_file* j, const std::uint8_t (&header)[header_size], std::uint32_t settled,
               std::uint32_t generation);

// Reads what others did since: a new life, or groups behind the last known one.
// 0; e_no_memory, e_io.
int catch_up(journal_file* j);

// Appends a group, without a flush.  0; e_write, e_no_memory: it does not count.
int append_group(journal_file* j, const group_to_write& g);
// Bytes that appending moves the end by.
std::uint64_t group_room(std::uint32_t nodes, bool change);
// Takes the last group back: `before` is the journal as it was before the appending.
void take_back_group(journal_file* j, const journal_file& before);
// 0, e_write.
int flush_journal(journal_file* j);

// Where a group stands, and what it must say to belong there.
struct group_place {
  std::uint64_t at;
  std::uint64_t sequence;
  std::uint32_t chain;
};
group_place first_place(const journal_file* j);
group_place place_behind(const group_place& p, const group_read& g);
// The group at a place: 1 found, 0 there is none; e_no_memory, e_io.
int read_group(journal_file* j, const group_place& place, group_read* out);
// Writes a group that was read to its place once more.  0, e_write.
int write_group_again(journal_file* j, const group_read& g);

}  // namespace zvrdb::engine
