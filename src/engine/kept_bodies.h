// Bodies of records in one piece each, as they were read last.
//
// A body lies in pieces in leaves of its own; to put it together means looking at several places
// in memory, one after the other.  Of a record that is asked for a second time they are kept here,
// side by side, for as long as the nodes that they lie in stay what they were.
// The table is process-wide, as the cache is, and as long; a record has one place in it, which it
// shares with others.
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/node_cache.h"
#include "engine/psp.h"

namespace zvrdb::engine {

struct kept_body {
  const PSP* owner;              // null: the place is empty
  std::uint64_t changes;         // node_changes() when it was the file's last
  node_stamp first, last;        // the leaves that its pieces lie in, perhaps the same one
  std::int32_t recno;
  std::int32_t number;           // node of its first piece
  std::int16_t index;            // the first piece's entry there
  std::int16_t length;           // of the body
  // The entry of the first piece as it stands in its leaf, and behind it the data of the others.
  std::uint8_t entry[464];

  const std::uint8_t* data() const { return entry + entry_at::value + 1; }   // behind the empty key value
};
static_assert(sizeof(kept_body) == 512);
inline constexpr int longest_kept_body = sizeof(kept_body::entry) - entry_head_size - 1;

// The body of that record, or null: it must be read.  Good until the next call here.
const kept_body* recall_body(const PSP* h, std::int32_t recno);
// Its place, which another record's body may have taken.
std::uint32_t place_of_body(const PSP* h, std::int32_t recno);
// What is at that place will be asked for soon.
void expect_kept_body(std::uint32_t place);
inline void expect_body(const PSP* h, std::int32_t recno) { expect_kept_body(place_of_body(h, recno)); }
// Where the body of that record goes, null where none are kept.  What was there is gone; the
// caller fills all but owner, changes and recno, which are set already.
kept_body* room_for_body(const PSP* h, std::int32_t recno);

// Makes room for about as many as the cache has nodes.  0, e_no_memory.
int make_kept_bodies(unsigned nodes);
void forget_kept_bodies();
void release_kept_bodies();

}  // namespace zvrdb::engine
